// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"
#include "QRTDataInfo.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace android::lumo {

/// The short form of trailer record 2608: a pointer to a video that lies elsewhere in the file.
///
///     offset  width  field (big-endian)
///     0       4      format tag, ASCII ("mpv2")
///     4       4      absolute file position of the video's first byte
///     8       4      length of the video in bytes
///
/// Bytes behind it, which others may have written, are kept.
struct VideoPointer {
    static constexpr char TAG[] = "mpv2";
    static constexpr uint32_t SIZE = 12;
    static constexpr uint32_t MAX_RECORD_SIZE = 125000; ///< a larger record is the video itself

    /// A record of this type and this many bytes of data is read as a pointer.
    static constexpr bool mayStandIn(int32_t type, uint32_t dataSize) {
        return type == qrt::TYPE_MOTION_PHOTO_DATA && dataSize >= SIZE && dataSize <= MAX_RECORD_SIZE;
    }

    std::string tag;
    uint32_t position = 0;
    uint32_t length = 0;

    /// What the first 12 of `bytes` say, whatever their tag; there must be as many.
    static VideoPointer read(ByteBuffer const& bytes);
    /// Nothing unless `bytes` begins with 12 bytes whose tag starts "mpv".
    static std::optional<VideoPointer> decode(ByteBuffer const& bytes);
    ByteBuffer encode() const;
    /// Replaces the pointer that `bytes` begins with.
    void encodeInto(ByteBuffer& bytes) const;
};

/// Keeps the pointer of a file right while a container writer moves bytes: made before the move, told what moved after
/// it.
///
/// The pointer's place is remembered from the file's end, because every edit of a container leaves the trailer there.
class VideoPointerKeeper {
public:
    /// Looks for a trailer record 2608 of the short form; a file without one (or with a damaged trailer) needs
    /// nothing; one that cannot be read throws.
    explicit VideoPointerKeeper(std::shared_ptr<MediaFile> const& file);

    /// The bytes from `from` on have moved by `distance` (negative: towards the start): a pointer to one of them is
    /// rewritten in the file. May be called once for each move.
    void moved(uint32_t from, int64_t distance);

private:
    std::shared_ptr<MediaFile> file;
    std::optional<VideoPointer> pointer;
    uint32_t distanceFromEnd = 0;
};

} // namespace android::lumo
