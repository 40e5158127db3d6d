// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace motionphoto {

/// A text from a file or its name, safe for a terminal: control characters as \xNN.
std::string escaped(std::string const& text);

/// A number with a comma between groups of three digits.
std::string grouped(uint64_t number);

/// A time such as "1.2s", "1200ms", "1200000us" or "1.2" (seconds) in microseconds; throws a Failure (USAGE).
int64_t microseconds(std::string const& text);

/// What has to stand in front of a line on standard error: on a terminal the progress may stand where it begins.
char const* lineStart();

} // namespace motionphoto
