// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPToolkit.h"
#include "support/HeicBuilder.h"
#include "support/TempFile.h"

#include <android/log.h>

/// For suites that run the library thousands of times, mostly to be refused.
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

/// The library's log would take most of the time.
inline bool const isLogSilent = (__android_log_set_minimum_priority(ANDROID_LOG_SILENT), true);

} // namespace android::lumo::test
