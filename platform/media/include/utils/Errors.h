// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <cstdint>

namespace android {

/// What the platform's calls answer: 0 or a negative number, an errno where there is one.
using status_t = int32_t;

enum : status_t {
    OK = 0,
    BAD_VALUE = -EINVAL,
};

} // namespace android
