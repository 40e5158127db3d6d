// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteBuffer.h"
#include "Export.h"
#include "MediaDefs.h"

#include <array>
#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace android::lumo {

/// The library's only handle on a file: one descriptor it owns, its path for messages, and its detected type.
///
/// Offsets and sizes are unsigned 32-bit; a file of 4 GiB or more can be opened but not addressed (its size reads as
/// 0). Integers are read and written in the machine's order. Always held by a shared pointer. All operations move the
/// descriptor's one file position, so an object is used by one thread at a time; a descriptor made by dup shares it.
class METADATA_UTILS_EXPORT MediaFile : public std::enable_shared_from_this<MediaFile> {
public:
    /// Duplicates the descriptor; the caller keeps its own. 0 and negative numbers throw
    /// "Invalid file descriptor provided: %d".
    explicit MediaFile(int fd);
    /// Opens an existing file; it is never created. Mode "r" reads, "w" writes, "rw" does both, any other text reads.
    /// Throws "fail to open file %s" (READ_FAILED, whatever the mode).
    MediaFile(std::string const& path, std::string const& mode);
    ~MediaFile();
    MediaFile(MediaFile const&) = delete;
    MediaFile& operator=(MediaFile const&) = delete;

    /// True when both descriptors name the same file (device and inode); false, with a log line, when one cannot be
    /// asked.
    static bool isFdsDup(int a, int b);

    /// Whether it holds a descriptor; always, once made.
    bool isValid() const { return fd > 0; }
    /// The descriptor, which stays this object's: it must not be closed, and goes with it.
    int getFd() const { return fd; }
    /// The path it was opened with, "unknown" for a descriptor.
    std::string const& getPath() const { return path; }
    /// "fd=%d, path=%s".
    std::string toString() const;

    // Position and size. ------------------------------------------------------------------------------------------

    /// Seeks from the file's start and returns where it came to, 0 on error: callers compare it with what they asked
    /// for.
    uint32_t position(uint32_t offset) const;
    /// Where the file stands, in bytes from its start; 0 as well when the system does not tell, or past 4 GiB.
    uint32_t position() const;
    /// The file's size in bytes, 0 when it does not fit in 32 bits; the position is kept.
    uint32_t size() const;
    /// Moves forward; throws "Failed to skip %zu bytes to position %zu".
    void skipNBytes(uint32_t n) const;

    // Reading from the current position, advancing it. ------------------------------------------------------------

    /// One read call and its result: may be short, 0 or -1.
    ssize_t read(void* buffer, uint32_t n) const;
    /// One integer in the machine's order, converted to R. A short read throws "fail to read bytes: %zu, expected %zu".
    template<std::integral T, class R = T>
    R read() const {
        T value{};
        readWhole(&value, sizeof value);
        return static_cast<R>(value);
    }
    /// `n` elements of char or int32_t. Never allocates more than the file still holds; a short read is logged and
    /// gives a shorter vector, a failed one throws std::length_error.
    template<class T>
    std::vector<T> read(uint32_t n) const;
    /// The whole file. Read from offset 0 it leaves the position at the file's end, otherwise where it was.
    ByteBuffer readAllBytes() const;

    // Writing at the current position, advancing it. One write call and its result; nothing is retried. -------------

    /// The bytes of a text, without a terminator. The number written, or -1 with errno set.
    ssize_t write(std::string const& bytes);
    /// `count` copies of an integer in the machine's order.
    template<std::integral T>
    ssize_t write(T value, uint32_t count) {
        std::vector<T> const copies(count, value);
        return write(static_cast<void const*>(copies.data()), static_cast<uint32_t>(copies.size() * sizeof(T)));
    }
    /// The raw form the two above go through.
    ssize_t write(void const* bytes, uint32_t n);

    // Type detection from the first bytes. --------------------------------------------------------------------------

    /// True when the next bytes equal `expected`; a short read never matches.
    bool matched(std::string const& expected) const;
    /// The same with four bytes.
    bool matched(std::array<unsigned char, 4> const& expected) const;
    /// Compares the 8 bytes behind the 4-byte size of the box at the current position (type and major brand of a
    /// leading 'ftyp', ISO/IEC 14496-12) with each candidate in turn.
    template<class... Candidates>
    static bool isBoxHeaderTypeOf(std::shared_ptr<MediaFile> const& file, Candidates const&... candidates) {
        return isBoxHeaderTypeOf(file, std::vector<std::string>{candidates...});
    }
    /// The same with the candidates in a list.
    static bool isBoxHeaderTypeOf(std::shared_ptr<MediaFile> const& file, std::vector<std::string> const& candidates);
    /// Whether FF D8, a start of image, stands at the position (ISO/IEC 10918-1 B.1.1); throws where the file ends
    /// before that.
    static bool isJPEG(std::shared_ptr<MediaFile> const& file);
    /// Whether a box 'ftyp' of a HEIC's major brand stands at the position (ISO/IEC 23008-12).
    static bool isHEIC(std::shared_ptr<MediaFile> const& file);
    /// The same for the brand "mp42"; movies of other brands are known to MotionClip and MotionVideo.
    static bool isMP4Video(std::shared_ptr<MediaFile> const& file);
    /// The same for QuickTime's brand "qt  ".
    static bool isMOVVideo(std::shared_ptr<MediaFile> const& file);
    /// Runs `test` at `offset`; a standard exception of the seek or the test is logged and answers false.
    bool checkFileType(std::function<bool()> const& test, long offset) const;
    /// JPEG, HEIC, MP4 or QuickTime, found once and remembered; the position is kept. Another type throws
    /// "not supported or broken file type", a read that the system refuses an Error of its own.
    MediaDefs::MimeType mimeType() const;

    // In-place shifting and transfer. ---------------------------------------------------------------------------

    /// Where a move reads and writes its chunks. Must not outlive the call that built it.
    struct ShiftStrategy {
        std::function<uint32_t()> initialReadPosition;                  ///< of the first chunk
        std::function<uint32_t(uint32_t readPosition)> toWritePosition; ///< where a chunk goes
        std::function<uint32_t(uint32_t writePosition)>
            toNextReadPosition; ///< of the chunk behind one that was written
    };

    /// Moves every byte from the current position to the file's end as the strategy directs. A `bufferSize` of 0
    /// becomes the whole tail; up to 1024 bytes are refused. A read or write that fails throws; bytes already moved
    /// stay moved.
    void doShift(ShiftStrategy const& strategy, uint32_t& bufferSize);
    /// Opens a gap of `shift` bytes at the current position; the file grows by it. The space is asked for first, so a
    /// full disk leaves the file as it was. The gap keeps its old bytes until the caller overwrites them. `bufferSize`
    /// bounds the memory used, 0 takes the whole tail at once. An attempt that fails before it moved a byte is retried
    /// with half the buffer.
    void shiftRightSafely(int shift, uint32_t bufferSize);
    /// Moves the bytes from the current position on `shift` bytes towards the start, over what stands there; with
    /// `truncate` the file is then cut by `shift`.
    void shiftLeftSafely(int shift, uint32_t bufferSize, bool truncate);
    /// Copies `size` bytes (0: the whole size) from `offset` of this file to the target's current position inside the
    /// kernel; this file's position is not moved. Returns the bytes copied, or the failed call's result: -1 with errno
    /// set, or 0 when this file ended early. What was copied before such an end is shown by the target's position
    /// alone.
    int64_t transferTo(std::shared_ptr<MediaFile> const& target, long offset, uint32_t size) const;
    /// For a file that will be synced: what is copied into it from now on goes to the disk while the copy goes on,
    /// which the sync then has less to wait for. Without a sync it would only keep the disk busy.
    void writeEarly() { isWrittenEarly = true; }

    /// Cuts or extends the file; the result of the system call.
    int truncate(uint32_t size);
    /// Makes sure that `size` bytes can be written, extending the file; 0 or an errno value. The file may be longer
    /// after a failure: the caller cuts it back.
    int reserve(uint32_t size);
    /// Asks for the disk space of a file of `size` bytes and leaves the file's size as it is, so that nothing is seen
    /// of it until the file grows or is next truncated, which gives the rest back; 0 or an errno value, EOPNOTSUPP
    /// where the file system cannot do it.
    int reserveBehindEnd(uint32_t size);
    /// For an edit of several steps: what was reserved for a file of `size` bytes stays this handle's, and growing to
    /// that asks for no space again, until releaseSpace() or the next cut.
    void holdSpace(uint32_t size) { heldSize = size; }
    /// The file size that space is held for, 0 for none.
    uint32_t heldSpace() const { return heldSize; }
    /// Gives back what of a file of `size` bytes it has not grown into.
    void releaseSpace(uint32_t size);

    /// Calls through this handle that changed the file so far: what was written, copied in, cut or grown. An edit that
    /// failed has left the file as it was where this number is what it was before.
    uint64_t changes() const { return changeCount; }

private:
    void readWhole(void* value, size_t size) const;
    std::string typeBytes() const;
    void startWriting(int64_t bytes) const;

    int fd;
    std::string path;
    mutable MediaDefs::MimeType cachedMimeType = MediaDefs::MimeType::NONE;
    uint64_t changeCount = 0;
    uint32_t heldSize = 0; ///< of the file that space is held for
    bool isWrittenEarly = false;
};

/// Opens a gap of `shift` bytes at `position` and writes a JPEG segment header into it: marker and length, both
/// big-endian. The caller fills the rest of the gap. Returns the result of the last write.
METADATA_UTILS_EXPORT ssize_t perform_file_shift_and_write(std::shared_ptr<MediaFile> const& file, uint32_t shift,
                                                           uint32_t position, uint16_t marker, uint16_t length);

} // namespace android::lumo
