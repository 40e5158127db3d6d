// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteBuffer.h"
#include "ErrorAt.h"
#include "MediaFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace android::lumo {

/// Bytes that are staged now and written at commit: a buffer, or a run of another file, which is not read before and
/// must not change until then. Copies share the buffer.
class ByteSource {
public:
    ByteSource() = default;
    explicit ByteSource(std::shared_ptr<ByteBuffer const> bytes);
    /// All of the file, as long as it is now.
    explicit ByteSource(std::shared_ptr<MediaFile> const& file);
    ByteSource(std::shared_ptr<MediaFile> const& file, uint32_t position, uint32_t length);

    uint32_t size() const { return length; }
    std::shared_ptr<MediaFile> const& getFile() const { return file; }
    /// Where a file's run begins.
    uint32_t getPosition() const { return position; }
    /// The buffer; null for bytes of a file.
    std::shared_ptr<ByteBuffer const> const& getBuffer() const { return buffer; }

    /// Throws unless all bytes can be had and none of them is about to be written over; `what` begins the message.
    void requireReadable(MediaFile const& output, std::string const& what, ErrorAt at = ErrorAt()) const;
    /// Writes all bytes at the target's position.
    void copyTo(std::shared_ptr<MediaFile> const& target, ErrorAt at = ErrorAt()) const;
    /// All bytes, in memory.
    ByteBuffer load(ErrorAt at = ErrorAt()) const;

private:
    std::shared_ptr<ByteBuffer const> buffer;
    std::shared_ptr<MediaFile> file;
    uint32_t position = 0;
    uint32_t length = 0;
};

/// A video that is staged: its bytes, and how long it plays.
class VideoSource : public ByteSource {
public:
    using ByteSource::ByteSource;
    VideoSource() = default;
    explicit VideoSource(ByteSource const& bytes) : ByteSource(bytes) {}

    /// Microseconds, 0 when the video names none; nothing when it cannot be played.
    std::optional<int64_t> durationUs() const;
};

} // namespace android::lumo
