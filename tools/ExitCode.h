// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace motionphoto {

/// What the tool's exit code says. A run over several files ends with the highest of theirs.
enum class ExitCode : int {
    DONE = 0,
    NO_MOTION_PHOTO = 1, ///< the file carries no video where one is needed
    USAGE = 2,
    BAD_INPUT = 3,    ///< unreadable, damaged or unsupported input
    WRITE_FAILED = 4, ///< with -o, OUT is as it was before
};

} // namespace motionphoto
