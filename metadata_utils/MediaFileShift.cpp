// SPDX-License-Identifier: Apache-2.0
#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "MediaFile.h"
#include "boxes/BigEndian.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <unistd.h>

// MediaFile's in-place moves. What holds while bytes move:
// 1. A chunk is read before anything is written over it: right shifts go from the end backwards, left shifts forwards.
// 2. No byte in front of the tail is moved, and no byte behind the old end counts as tail, even when the file has been
//    extended in advance.
// 3. A second attempt starts only from an untouched tail, and only when all of it can be read: what made the first one
//    fail may lie in its middle, and a smaller buffer would move what is in front of it.
// 4. What could not be read whole is not written.

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MediaFile";
/// Moving a file in chunks up to this size is refused as a caller's mistake.
constexpr uint32_t TOO_SMALL_BUFFER = 1024;
/// What is copied between two requests to write, where the disk is to begin at once. Of 12 MB the last byte is there a
/// tenth sooner than with pieces of 2 MB; smaller ones bring no more.
constexpr uint32_t EARLY_PIECE = 512 * 1024;

/// The class is one for its users, whichever file its code stands in.
ErrorAt error(int line = __builtin_LINE()) {
    return ErrorAt(line, "metadata_utils/MediaFile");
}

/// The whole buffer; a failed or short read throws.
void readChunk(MediaFile const& file, std::vector<uint8_t>& chunk) {
    size_t count = 0;
    ssize_t last = 1;
    while (count < chunk.size() && last != 0) {
        last = file.read(chunk.data() + count, static_cast<uint32_t>(chunk.size() - count));
        if (last < 0 && errno != EINTR)
            throw error().as(Error::Code::READ_FAILED, file)("fail to read bytes: %d, expected %zu", -1, chunk.size());
        count += static_cast<size_t>(std::max<ssize_t>(last, 0));
    }
    if (count == chunk.size())
        return;
    LOGE("fail to read bytes: read %zd, expected %zu", static_cast<ssize_t>(count), chunk.size());
    throw error().as(Error::Code::CHANGED, file)("fail to read bytes: %zd, expected %zu", static_cast<ssize_t>(count),
                                                 chunk.size());
}

using Strategy = MediaFile::ShiftStrategy;

/// The run of bytes that a shift moves, from the file's position to its end, and how far the shift has come.
struct Shift {
    uint32_t start = 0;
    uint32_t end = 0;
    uint32_t moved = 0;                  ///< bytes written at their new place
    uint32_t lowestWritten = UINT32_MAX; ///< lowest position that was written over
    bool isRetry = false;                ///< an attempt has failed

    uint32_t size() const { return end - start; }
};

/// Chunk after chunk as the strategy directs.
void move(MediaFile& file, Strategy const& strategy, uint32_t bufferSize, Shift& shift) {
    std::vector<uint8_t> chunk(std::min(bufferSize, shift.size()));
    if (shift.isRetry && shift.size() > bufferSize)
        checked::requireReadable(file, shift.start, shift.size(), bufferSize, error());
    uint32_t from = strategy.initialReadPosition();
    LOGD("bufferSize=%zu targetBytes=%zu targetPosition=%zu rwPosition=%zu", size_t{bufferSize}, size_t{shift.size()},
         size_t{shift.start}, size_t{from});
    while (shift.moved < shift.size()) {
        chunk.resize(std::min<size_t>(chunk.size(), shift.size() - shift.moved));
        if (file.position(from) != from)
            throw error().as(Error::Code::READ_FAILED, file)("Failed to set file position to %zu for reading",
                                                             size_t{from});
        readChunk(file, chunk);
        uint32_t const to = strategy.toWritePosition(from);
        if (file.position(to) != to)
            throw error().as(Error::Code::WRITE_FAILED, file)("Failed to set file position to %zu for writing",
                                                              size_t{to});
        size_t const written = checked::writeUpTo(file, chunk.data(), chunk.size());
        if (written > 0)
            shift.lowestWritten = std::min(shift.lowestWritten, to);
        shift.moved += static_cast<uint32_t>(written);
        if (written != chunk.size())
            throw error().as(checked::writeFailure(errno),
                             file)("fail to write bytes: %zd, expected %zu",
                                   written == 0 ? ssize_t{-1} : static_cast<ssize_t>(written), chunk.size());
        from = strategy.toNextReadPosition(to);
    }
    LOGI("shiftRightSafely X: targetBytes=%zu, writeBytes=%zd", size_t{shift.size()},
         static_cast<ssize_t>(shift.moved));
}

void moveInChunks(MediaFile& file, Strategy const& strategy, uint32_t& bufferSize, Shift& shift) {
    if (bufferSize == 0) {
        bufferSize = shift.size();
        LOGD("update bufferSize to %zu[size=%zu, pos=%zu]", size_t{bufferSize}, size_t{shift.end}, size_t{shift.start});
    }
    if (bufferSize <= TOO_SMALL_BUFFER)
        throw error()("fail to shift: buffer-size %zu is less than minimum value 1024 byte", size_t{bufferSize});
    move(file, strategy, bufferSize, shift);
}

/// What a safe shift is about to move; an impossible one throws.
Shift shiftOf(MediaFile const& file, char const* name, int distance, bool towardsStart) {
    Shift const shift{checked::positionOf(file, error()), checked::addressableSize(file, error())};
    if (distance < 0 || shift.start > shift.end || (towardsStart && static_cast<uint32_t>(distance) > shift.start))
        throw error()("fail to shift: %s by %d at %zu of %zu", name, distance, size_t{shift.start}, size_t{shift.end});
    return shift;
}

/// Halves the buffer after each attempt that failed without moving a byte, down to the last one with a buffer of 0,
/// which stands for all that is shifted. A tail too short for chunks is moved in one piece, and a smaller buffer would
/// not help it.
void moveSafely(MediaFile& file, char const* name, int distance, Strategy const& strategy, uint32_t& bufferSize,
                Shift& shift) {
    bool const onePiece = shift.size() <= TOO_SMALL_BUFFER;
    for (bool isLast = onePiece;; isLast = bufferSize == 0) {
        LOGI("%s E: doShift=%d, bufferSize=%zu", name, distance, size_t{bufferSize});
        bufferSize = onePiece ? shift.size() : std::min(bufferSize, shift.size());
        try {
            return onePiece ? move(file, strategy, bufferSize, shift) : moveInChunks(file, strategy, bufferSize, shift);
        } catch (std::exception const& exception) {
            if (isLast || shift.moved > 0)
                throw;
            LOGW("Exception in %s, retrying with smaller buffer: %s", name, exception.what());
        }
        bufferSize /= 2;
        shift.isRetry = true;
    }
}

} // namespace

void MediaFile::doShift(ShiftStrategy const& strategy, uint32_t& bufferSize) {
    Shift shift{checked::positionOf(*this, error()), checked::addressableSize(*this, error())};
    shift.end = std::max(shift.start, shift.end);
    moveInChunks(*this, strategy, bufferSize, shift);
}

void MediaFile::shiftRightSafely(int by, uint32_t bufferSize) {
    Shift shift = shiftOf(*this, "shiftRightSafely", by, false);
    uint32_t const distance = static_cast<uint32_t>(by);
    uint32_t const newSize = checked::sizeOf(uint64_t{shift.end} + distance, error());
    if (distance == 0)
        return;
    ShiftStrategy const backwards{
        [&] { return shift.end - bufferSize; },
        [&](uint32_t read) { return read + distance; },
        [&](uint32_t written) {
            uint32_t const read = written - distance;
            return read - shift.start > bufferSize ? read - bufferSize : shift.start;
        },
    };
    if (shift.size() == 0)
        return checked::reserve(*this, newSize, error());
    checked::requireSpace(*this, newSize, error()); // the file grows with the first write, the tail's end in it
    try {
        moveSafely(*this, "shiftRightSafely", by, backwards, bufferSize, shift);
    } catch (...) {
        if (shift.lowestWritten >= shift.end)
            truncate(shift.end);
        throw;
    }
}

void MediaFile::shiftLeftSafely(int by, uint32_t bufferSize, bool cut) {
    Shift shift = shiftOf(*this, "shiftLeftSafely", by, true);
    uint32_t const distance = static_cast<uint32_t>(by);
    if (distance == 0)
        return;
    checked::requireSpace(*this, shift.end - distance, error());
    ShiftStrategy const forwards{
        [&] { return shift.start; },
        [&](uint32_t read) { return read - distance; },
        [&](uint32_t written) { return written + distance + bufferSize; },
    };
    moveSafely(*this, "shiftLeftSafely", by, forwards, bufferSize, shift);
    if (cut)
        checked::truncate(*this, shift.end - distance, error());
}

namespace {

/// One copy by the kernel: by copy_file_range, with which a file system may share the blocks or let its server copy
/// them, and between files for which there is no such way by sendfile. Inside one handle's file no blocks are shared:
/// what is written over one of the two later would need space that nobody has asked for.
ssize_t copyOnce(int target, int source, off64_t& from, size_t n) {
#if !defined(__ANDROID__) || __ANDROID_API__ >= 34
    if (target == source)
        return sendfile64(target, source, &from, n);
    ssize_t const copied = copy_file_range(source, &from, target, nullptr, n, 0);
    constexpr std::array CANNOT = {EXDEV, EINVAL, ENOSYS, EOPNOTSUPP, EBADF /* open for appending */};
    bool const cannot = copied < 0 && std::find(CANNOT.begin(), CANNOT.end(), errno) != CANNOT.end();
    if (copied != 0 && !cannot) // some kernels answer 0 for files without a size of their own
        return copied;
#endif
    return sendfile64(target, source, &from, n);
}

} // namespace

/// Lets the disk begin with the bytes in front of the position. Only a request: what it cannot do, a later sync does.
void MediaFile::startWriting(int64_t bytes) const {
    if (off64_t const end = lseek64(fd, 0, SEEK_CUR); end >= bytes)
        static_cast<void>(sync_file_range(fd, end - bytes, bytes, SYNC_FILE_RANGE_WRITE));
}

int64_t MediaFile::transferTo(std::shared_ptr<MediaFile> const& target, long offset, uint32_t bytes) const {
    uint32_t const wanted = bytes == 0 ? size() : bytes;
    if (wanted == 0)
        throw error()("invalid size: %zu", size_t{wanted});
    off64_t from = checked::offsetFrom(offset);
    bool const isEarly = target->isWrittenEarly && wanted >= EARLY_PIECE;
    uint32_t sent = 0;
    while (sent < wanted) {
        uint32_t const left = wanted - sent;
        ssize_t const n = copyOnce(target->fd, fd, from, isEarly ? std::min(left, EARLY_PIECE) : left);
        if (n > 0) {
            if (isEarly)
                target->startWriting(n);
            sent += static_cast<uint32_t>(n);
            ++target->changeCount;
        } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
            int const failure = n == 0 ? ENODATA : errno;
            LOGE("sendfile failed: %s", std::strerror(failure));
            errno = failure;
            return n;
        }
    }
    return sent;
}

ssize_t perform_file_shift_and_write(std::shared_ptr<MediaFile> const& file, uint32_t shift, uint32_t position,
                                     uint16_t marker, uint16_t length) {
    checked::seek(*file, position, error());
    file->shiftRightSafely(static_cast<int>(shift), checked::MOVE_BLOCK);
    checked::seek(*file, position, error());
    checked::write(*file, bigEndianBytes(marker, sizeof marker), error());
    checked::write(*file, bigEndianBytes(length, sizeof length), error());
    return sizeof length;
}

} // namespace android::lumo
