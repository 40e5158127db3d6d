// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/log.h>

/// The library's log, with a class's tag. A source file defines `LOG_TAG` before its first use:
///     constexpr char LOG_TAG[] = "JPEGMetaReader";
/// and logs with LOGD (detail), LOGI (progress), LOGW (retries), LOGE (failed calls). Arguments are evaluated only when
/// somebody would read the line: a packet's text is never copied for a log nobody reads.
namespace android::lumo::log {

using Sink = void (*)(int level, char const* tag, char const* line, void* user);

/// Lines go to `sink` instead of the platform's log; none: nowhere.
void redirect(Sink sink, void* user);
/// Once something has been redirected, does nothing; before that, lines go nowhere.
void silenceByDefault();

bool isWanted(int level, char const* tag);
__attribute__((format(printf, 3, 4))) void print(int level, char const* tag, char const* format, ...);

} // namespace android::lumo::log

#define METADATA_UTILS_LOG(level, ...)                                                                                 \
    do {                                                                                                               \
        if (android::lumo::log::isWanted((level), LOG_TAG))                                                            \
            android::lumo::log::print((level), LOG_TAG, __VA_ARGS__);                                                  \
    } while (false)
#define LOGD(...) METADATA_UTILS_LOG(ANDROID_LOG_DEBUG, __VA_ARGS__)
#define LOGI(...) METADATA_UTILS_LOG(ANDROID_LOG_INFO, __VA_ARGS__)
#define LOGW(...) METADATA_UTILS_LOG(ANDROID_LOG_WARN, __VA_ARGS__)
#define LOGE(...) METADATA_UTILS_LOG(ANDROID_LOG_ERROR, __VA_ARGS__)
