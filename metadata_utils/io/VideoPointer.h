// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"
#include "QRTDataInfo.h"
#include "Stretch.h"

#include <cstdint>
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

    /// What stands in these bytes of the file, the data of a record of that type; nothing where it is no pointer.
    static std::optional<VideoPointer> in(MediaFile const& file, int32_t type, Stretch const& data);
    /// What the first 12 of `bytes` say, whatever their tag; there must be as many.
    static VideoPointer read(ByteBuffer const& bytes);
    /// Nothing unless `bytes` begins with 12 bytes whose tag starts "mpv".
    static std::optional<VideoPointer> decode(ByteBuffer const& bytes);
    ByteBuffer encode() const;
};

} // namespace android::lumo
