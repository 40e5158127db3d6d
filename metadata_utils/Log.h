#pragma once

#include <android/log.h>

/// Platform log with a class's tag. A source file defines `LOG_TAG` before its first use:
///     constexpr char LOG_TAG[] = "JPEGMetaReader";
/// and logs with LOGD (detail), LOGI (progress), LOGW (retries), LOGE (failed calls). Arguments are evaluated only when
/// the platform would write the line: a packet's text is never copied for a log nobody reads.
#define METADATA_UTILS_LOG(priority, ...)                                                                              \
    do {                                                                                                               \
        if (__android_log_is_loggable((priority), LOG_TAG, ANDROID_LOG_VERBOSE))                                       \
            static_cast<void>(__android_log_print((priority), LOG_TAG, __VA_ARGS__));                                  \
    } while (false)
#define LOGD(...) METADATA_UTILS_LOG(ANDROID_LOG_DEBUG, __VA_ARGS__)
#define LOGI(...) METADATA_UTILS_LOG(ANDROID_LOG_INFO, __VA_ARGS__)
#define LOGW(...) METADATA_UTILS_LOG(ANDROID_LOG_WARN, __VA_ARGS__)
#define LOGE(...) METADATA_UTILS_LOG(ANDROID_LOG_ERROR, __VA_ARGS__)
