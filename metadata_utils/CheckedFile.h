// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteBuffer.h"
#include "ErrorAt.h"
#include "MediaFile.h"
#include "Metadata.h"

#include <cstdint>
#include <memory>
#include <string>

/// The checked forms of MediaFile's single calls. Editors and writers change files only through these, so that no
/// commit reports success with bytes missing. Each reports the caller's line.
namespace android::lumo::checked {

/// Largest file that 32-bit offsets can address.
inline constexpr uint64_t MAX_FILE_SIZE = 0xFFFFFFFFU;

/// Bytes that are moved at once: a still can be followed by any amount of video.
inline constexpr uint32_t MOVE_BLOCK = 1024 * 1024;

/// Where a long has 32 bits, the upper half of the offsets arrives as negative numbers. -1 stays negative: no file that
/// can be addressed has a byte there.
constexpr int64_t offsetFrom(long offset) {
    bool const isUpperHalf = sizeof(long) == sizeof(uint32_t) && offset < -1;
    return isUpperHalf ? int64_t{static_cast<uint32_t>(offset)} : int64_t{offset};
}

/// "Failed to set file position to %zu".
void seek(MediaFile const& file, uint32_t position, ErrorAt at = ErrorAt());

/// Where the next byte is read or written; what MediaFile answers with 0 throws "fail to ask for the file position:
/// %s".
uint32_t positionOf(MediaFile const& file, ErrorAt at = ErrorAt());

/// Writes until all bytes are written or a call fails, and returns how many were; short writes and EINTR go on.
size_t writeUpTo(MediaFile& file, void const* bytes, size_t n);
/// Writes all bytes; short writes and EINTR go on, a failure throws "fail to write bytes: %zd, expected %zu".
void write(MediaFile& file, void const* bytes, size_t n, ErrorAt at = ErrorAt());
void write(MediaFile& file, std::string const& bytes, ErrorAt at = ErrorAt());
void write(MediaFile& file, ByteBuffer const& bytes, ErrorAt at = ErrorAt());
/// `count` times the same byte.
void fill(MediaFile& file, uint8_t value, uint32_t count, ErrorAt at = ErrorAt());

/// What an errno value says about a write that was refused: no room, or a failure.
Error::Code writeFailure(int failure);

/// Copies exactly `size` bytes (0 copies nothing) from `offset` of `source` to the target's current position, inside
/// the kernel where it can. A range outside the source throws before anything is written, a copy that ends short
/// afterwards: "fail to copy bytes: %zd, expected %zu", with the code and the path of the file that failed. Both may be
/// descriptors of one file as long as the ranges do not overlap.
void copy(std::shared_ptr<MediaFile> const& source, std::shared_ptr<MediaFile> const& target, uint32_t offset,
          uint32_t size, ErrorAt at = ErrorAt());

/// What every edit in place asks first: a file of less than 4 GiB whose descriptor reads and writes anywhere. One
/// opened for appending would write everything at the file's end.
void requireEditable(MediaFile const& file, ErrorAt at = ErrorAt());

/// A file over a descriptor that is the caller's own: it is closed in any case, the file has another.
std::shared_ptr<MediaFile> owning(int fd);

/// Whether two descriptors are of one file. One that cannot be asked throws: it is not another file for that.
bool isSameFile(MediaFile const& a, MediaFile const& b, ErrorAt at = ErrorAt());

/// Cuts the file; "fail to truncate to %zu: %s".
void truncate(MediaFile& file, uint32_t size, ErrorAt at = ErrorAt());

/// Reserves the file's future size before the first write of an edit. A failure cuts the file back to its old size and
/// throws "fail to reserve %zu bytes: %s"; a size that fits already does nothing.
void reserve(MediaFile& file, uint32_t size, ErrorAt at = ErrorAt());

/// Finds a full disk, or a limit on the size of files, before an edit whose later steps need the file to have up to
/// `size` bytes; throws what reserve() throws. Whoever looks at the file sees no change. The space is kept until the
/// file is next cut, where the file system can keep it; elsewhere the file system is asked how much is free.
void requireSpace(MediaFile& file, uint32_t size, ErrorAt at = ErrorAt());

/// requireSpace() for a whole edit in place: the space is kept for its steps, and what they did not use goes back when
/// the object ends.
class SpaceKeeper {
public:
    SpaceKeeper(std::shared_ptr<MediaFile> const& file, uint32_t size, ErrorAt at = ErrorAt());
    ~SpaceKeeper();
    SpaceKeeper(SpaceKeeper const&) = delete;
    SpaceKeeper& operator=(SpaceKeeper const&) = delete;

private:
    std::shared_ptr<MediaFile> file; ///< none when there is nothing to give back
    uint32_t keptSize;
};

/// Fills the buffer from `position` as far as the file goes and returns the bytes read; the file's position stays. A
/// read that the system refuses throws READ_FAILED.
size_t readUpTo(MediaFile const& file, uint64_t position, void* buffer, size_t n, ErrorAt at = ErrorAt());

/// Fills the buffer from `position`; "fail to read bytes: %zu, expected %zu" where the file ends before.
void readExactly(MediaFile const& file, uint32_t position, void* buffer, size_t n, ErrorAt at = ErrorAt());

/// Fills the buffer from `position` with bytes that were there when the file was read; CHANGED where the file ends
/// before, "fail to read bytes: %zu, expected %zu".
void readAgain(MediaFile const& file, uint64_t position, void* buffer, size_t n, ErrorAt at = ErrorAt());

/// Reads a range once, up to `block` bytes at a time, so that a move of it will not end halfway: bytes that cannot be
/// read throw READ_FAILED, a file that has become shorter CHANGED.
void requireReadable(MediaFile const& file, uint32_t position, uint32_t n, uint32_t block, ErrorAt at = ErrorAt());

/// Reads a block of the file for whoever found it; fewer bytes come back where the file ends.
Metadata::Loader loaderOf(std::shared_ptr<MediaFile> const& file);

/// Exactly `n` bytes from `position`; the range must lie in the file, else "fail to read bytes: %zu, expected %zu". The
/// file's position stays.
ByteBuffer readAt(MediaFile const& file, uint32_t position, uint32_t n, ErrorAt at = ErrorAt());

/// Whether these bytes stand at `position` already: what need not be written cannot fail to be written.
bool holds(MediaFile const& file, uint32_t position, void const* bytes, size_t n);

/// The sum as a 32-bit file size; "file would grow past 4 GiB: %llu bytes" when it does not fit.
uint32_t sizeOf(uint64_t size, ErrorAt at = ErrorAt());

/// Throws "file of %llu bytes is too big, 4 GiB cannot be addressed" for a file that 32-bit offsets cannot reach.
void requireAddressable(MediaFile const& file, ErrorAt at = ErrorAt());
/// The same, and the file's size.
uint32_t addressableSize(MediaFile const& file, ErrorAt at = ErrorAt());

} // namespace android::lumo::checked
