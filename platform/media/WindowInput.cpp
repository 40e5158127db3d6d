#include "WindowInput.h"

#include "BoxFilter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <unistd.h>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace android::media {
namespace {

constexpr int kBufferSize = 16 * 1024;

// Headers are read once, or twice when the movie box is sought in vain; stepping over a box costs at most one buffer.
constexpr off64_t kPasses = 4;
constexpr off64_t kSpareReads = 1024 * 1024;

off64_t readAllowance(off64_t size) {
    return size < (INT64_MAX - kSpareReads) / kPasses ? size * kPasses + kSpareReads : INT64_MAX;
}

} // namespace

WindowInput::WindowInput(int fd, off64_t offset, off64_t size)
    : mFd(fd), mOffset(offset), mSize(size), mReadable(readAllowance(size)),
      mPiece(static_cast<size_t>(kBufferSize + 2 * kBoxFilterMargin)) {
    auto* const buffer = static_cast<uint8_t*>(av_malloc(kBufferSize));
    if (buffer == nullptr)
        return;
    mContext = avio_alloc_context(buffer, kBufferSize, 0, this, onRead, nullptr, onSeek);
    if (mContext == nullptr)
        av_free(buffer);
}

WindowInput::~WindowInput() {
    if (mContext != nullptr)
        av_freep(&mContext->buffer); // libavformat may have replaced the one it was given
    avio_context_free(&mContext);
}

int WindowInput::onRead(void* self, uint8_t* buffer, int capacity) {
    return static_cast<WindowInput*>(self)->read(buffer, capacity);
}

int64_t WindowInput::onSeek(void* self, int64_t distance, int whence) {
    auto& input = *static_cast<WindowInput*>(self);
    if (whence & AVSEEK_SIZE)
        return input.mSize;
    // libavformat turns all other movements into absolute ones.
    if ((whence & ~AVSEEK_FORCE) != SEEK_SET || distance < 0)
        return AVERROR(EINVAL);
    return input.mPosition = std::min<int64_t>(distance, input.mSize);
}

int WindowInput::read(uint8_t* buffer, int capacity) {
    off64_t const wanted = std::min<off64_t>({mSize - mPosition, capacity, kBufferSize});
    if (wanted <= 0 || mReadable <= 0)
        return AVERROR_EOF;

    off64_t const before = std::min<off64_t>(kBoxFilterMargin, mPosition);
    off64_t const after = std::min<off64_t>(kBoxFilterMargin, mSize - mPosition - wanted);
    ssize_t const got = fetch(mPosition - before, static_cast<size_t>(before + wanted + after));
    if (got < 0) {
        mError = errno;
        return AVERROR(errno);
    }
    off64_t const usable = std::min<off64_t>(got - before, wanted);
    if (usable <= 0)
        return AVERROR_EOF; // the file was cut meanwhile

    blankUnneededBoxes(std::span(mPiece).first(static_cast<size_t>(got)));
    memcpy(buffer, mPiece.data() + before, static_cast<size_t>(usable));
    mPosition += usable;
    mReadable -= usable;
    return static_cast<int>(usable);
}

ssize_t WindowInput::fetch(off64_t from, size_t count) {
    size_t done = 0;
    while (done < count) {
        ssize_t const got =
            pread64(mFd, mPiece.data() + done, count - done, mOffset + from + static_cast<off64_t>(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

} // namespace android::media
