// SPDX-License-Identifier: Apache-2.0
#include "Log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace android::lumo::log {

namespace {

/// Where lines go: a sink and its argument belong together. Ones that were chosen are never freed, because another
/// thread may be about to call one that is replaced; so they are kept in a list and found again there, and a process
/// has as many as it ever had different sinks.
struct Way {
    Sink sink;
    void* user;
    Way const* next;
};

constexpr Way PLATFORM{nullptr, nullptr, nullptr}, NOWHERE{nullptr, nullptr, nullptr};

std::atomic<Way const*> way{&PLATFORM};
std::atomic<Way const*> sinks{nullptr};

Way const* wayTo(Sink sink, void* user) {
    for (auto const* known = sinks.load(); known != nullptr; known = known->next) {
        if (known->sink == sink && known->user == user)
            return known;
    }
    auto* const added = new Way{sink, user, sinks.load()};
    while (!sinks.compare_exchange_weak(added->next, added)) {
    }
    return added;
}

} // namespace

void redirect(Sink sink, void* user) {
    way = sink != nullptr ? wayTo(sink, user) : &NOWHERE;
}

void silenceByDefault() {
    Way const* unchosen = &PLATFORM;
    way.compare_exchange_strong(unchosen, &NOWHERE);
}

bool isWanted(int level, char const* tag) {
    auto const* const to = way.load();
    return to == &PLATFORM ? __android_log_is_loggable(level, tag, ANDROID_LOG_VERBOSE) != 0 : to != &NOWHERE;
}

void print(int level, char const* tag, char const* format, ...) {
    auto const* const to = way.load();
    va_list args;
    va_start(args, format);
    if (to == &PLATFORM) {
        __android_log_vprint(level, tag, format, args);
        va_end(args);
        return;
    }
    va_list measured;
    va_copy(measured, args);
    int const length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    std::vector<char> line(length > 0 ? static_cast<size_t>(length) + 1 : 1);
    if (length > 0)
        std::vsnprintf(line.data(), line.size(), format, args);
    va_end(args);
    if (to->sink != nullptr)
        to->sink(level, tag, line.data(), to->user);
}

} // namespace android::lumo::log
