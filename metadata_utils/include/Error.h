// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace android::lumo {

/// What the library throws: a text "[source:line] " and a message, and a code that says whose fault it is.
///
/// Three further types leave the library: std::bad_alloc, the standard library's own errors of a caller's mistake
/// (std::bad_weak_ptr, std::bad_function_call, std::length_error), and XMPError, which is an Error as well.
class METADATA_UTILS_EXPORT Error : public std::runtime_error {
public:
    /// Whose fault it is; the numbers are those of the C interface (metadata_utils.h).
    enum class Code : int32_t {
        REFUSED = 1,     ///< the request does not fit this file or this object: a wrong argument, nothing to do it with
        READ_FAILED = 2, ///< the system refused a read; nothing is known about the bytes there
        WRITE_FAILED = 3, ///< the system refused a write, or took less than all of it
        NO_SPACE = 4,     ///< the disk, a quota or a file size limit has no room; usually found before a byte moves
        DAMAGED = 5,      ///< the bytes were read and contradict themselves or their format
        UNSUPPORTED = 6,  ///< sound, but of a kind this library does not read or cannot change
        TOO_BIG = 7,      ///< past 32 bits, or past a limit that keeps memory and time bounded
        XMP = 8,          ///< the packet, or what was asked of it, is no XMP
        CHANGED = 9,      ///< the file is no longer the one that was read
    };

    /// `text` with "[source:line] " in front, `path` as path() answers it.
    Error(Code code, std::string const& text, std::string const& path = {});
    ~Error() override;

    /// What callers decide by; texts may change.
    Code code() const { return reason; }
    /// The file whose read or write failed, as it was opened ("unknown" for a descriptor); empty where no one file is
    /// to blame.
    std::string const& path() const { return culprit; }

private:
    Code reason;
    std::string culprit;
};

} // namespace android::lumo
