#pragma once

#include <cstdint>
#include <vector>

#include <sys/types.h>

struct AVIOContext;

namespace android::media {

/// A range of an open file, presented to libavformat as a whole file with the unneeded boxes blanked.
///
/// Reads with explicit positions, so that the descriptor's own position never moves. The range must lie inside the
/// file. The sum of what is read is bounded by a small multiple of the range: a demuxer that a hostile file sends back
/// and forth comes to an end. Not movable, since the context points back here.
class WindowInput {
public:
    WindowInput(int fd, off64_t offset, off64_t size);
    ~WindowInput();
    WindowInput(WindowInput const&) = delete;
    WindowInput& operator=(WindowInput const&) = delete;

    /// Owned by this object; null when memory ran out.
    AVIOContext* context() const { return mContext; }

    /// The errno of the first read that failed, 0 when none did.
    int error() const { return mError; }

private:
    static int onRead(void* self, uint8_t* buffer, int capacity);
    static int64_t onSeek(void* self, int64_t distance, int whence);

    int read(uint8_t* buffer, int capacity);
    ssize_t fetch(off64_t from, size_t count);

    int const mFd;
    off64_t const mOffset;
    off64_t const mSize;
    off64_t mPosition = 0; // relative to mOffset
    off64_t mReadable;     // what may still be read, over all passes
    int mError = 0;
    std::vector<uint8_t> mPiece;
    AVIOContext* mContext = nullptr;
};

} // namespace android::media
