// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Errors.h>

namespace android {

/// Status codes of the media framework, next to those of utils/Errors.h.
enum : status_t {
    /// The data source is no media file of a supported kind, or is damaged in a place that matters.
    ERROR_UNSUPPORTED = -1010,
};

} // namespace android
