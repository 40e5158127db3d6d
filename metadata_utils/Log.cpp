// SPDX-License-Identifier: Apache-2.0
#include "Log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <vector>

namespace android::lumo::log {

namespace {

enum class Way : int { PLATFORM, NOWHERE, SINK };

std::atomic<Way> way{Way::PLATFORM};
std::atomic<bool> isChosen{false};
/// A sink and its argument belong together.
std::mutex sinkLock;
Sink currentSink = nullptr;
void* currentUser = nullptr;

} // namespace

void redirect(Sink sink, void* user) {
    std::lock_guard const lock(sinkLock);
    currentSink = sink;
    currentUser = user;
    isChosen = true;
    way = sink != nullptr ? Way::SINK : Way::NOWHERE;
}

void silenceByDefault() {
    if (!isChosen.exchange(true))
        way = Way::NOWHERE;
}

bool isWanted(int level, char const* tag) {
    switch (way.load(std::memory_order_relaxed)) {
    case Way::PLATFORM:
        return __android_log_is_loggable(level, tag, ANDROID_LOG_VERBOSE) != 0;
    case Way::SINK:
        return true;
    default:
        return false;
    }
}

void print(int level, char const* tag, char const* format, ...) {
    va_list args;
    va_start(args, format);
    if (way == Way::PLATFORM) {
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
    Sink sink = nullptr;
    void* user = nullptr;
    {
        std::lock_guard const lock(sinkLock);
        sink = currentSink;
        user = currentUser;
    }
    if (sink != nullptr)
        sink(level, tag, line.data(), user);
}

} // namespace android::lumo::log
