// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPToolkit.h"
#include "support/HeicBuilder.h"
#include "support/TempFile.h"

#include <android/log.h>

/// What suites give the library to work with, and run it for thousands of times, mostly to be refused.
namespace android::lumo::test {

/// True when the action returned; the toolkit's error is no std::exception. It allocates nothing of its own.
template<class Action>
bool returns(Action const& action) {
    try {
        action();
        return true;
    } catch (std::exception const&) {
    } catch (XMP_Error const&) {
    }
    return false;
}

/// A video that the library recognises and no decoder will play.
inline std::string videoOf(size_t size, uint32_t seed = 3) {
    return bigEndian(24, 4) + "ftypmp42" + pattern(size - 12, seed);
}

inline constexpr char TIFF[] = "http://ns.adobe.com/tiff/1.0/";

inline ByteBuffer filler(size_t size, uint8_t value) {
    return ByteBuffer(std::vector<uint8_t>(size, value));
}

/// The library's log would take most of the time.
inline bool const isLogSilent = (__android_log_set_minimum_priority(ANDROID_LOG_SILENT), true);

} // namespace android::lumo::test
