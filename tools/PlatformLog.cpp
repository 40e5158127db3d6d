// SPDX-License-Identifier: Apache-2.0
// The platform's log, loaded by the first line somebody wants to see, which is one of `--verbose`. Linked in, it would
// be loaded by each start, and the shared C++ runtime with it: together a third of a start's time.

#include <android/log.h>

#include <cstdarg>
#include <cstdio>

#include <dlfcn.h>

namespace {

struct Platform {
    Platform() {
        void* const library = dlopen(PLATFORM_LOG, RTLD_NOW | RTLD_LOCAL);
        if (library != nullptr) {
            isLoggable = reinterpret_cast<decltype(isLoggable)>(dlsym(library, "__android_log_is_loggable"));
            print = reinterpret_cast<decltype(print)>(dlsym(library, "__android_log_vprint"));
        }
        if (isLoggable == nullptr || print == nullptr)
            std::fprintf(stderr, "motionphoto: the library's log cannot be shown: %s\n", dlerror());
    }

    decltype(&__android_log_is_loggable) isLoggable = nullptr;
    decltype(&__android_log_vprint) print = nullptr;
};

Platform const& platform() {
    static Platform const loaded;
    return loaded;
}

} // namespace

int __android_log_is_loggable(int level, char const* tag, int standard) {
    auto const ask = platform().isLoggable;
    return ask != nullptr ? ask(level, tag, standard) : 0;
}

int __android_log_vprint(int level, char const* tag, char const* format, std::va_list args) {
    auto const print = platform().print;
    return print != nullptr ? print(level, tag, format, args) : -1;
}
