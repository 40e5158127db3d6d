// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "JPEGSegments.h"
#include "MediaFile.h"
#include "Stretch.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

/// The MPF index of a JPEG that holds several pictures (CIPA DC-007, 5.2): where readers of gain maps look for them.
///
///     offset  width  field of the APP2 segment (byte order of its own)
///     0       4      "MPF\0"
///     4       8      header: "II*\0" or "MM\0*", offset of the index, counted from here as all others
///     ...            index: 2-byte count, entries of 12 bytes (tag, type, count, value); tag B002 names the table
///     ...     16*n   table: 4 attributes, 4 size, 4 offset (0 for the first picture), 4 dependent pictures
namespace android::lumo::image_index {

struct Image {
    uint32_t size = 0;
    uint32_t position = 0;    ///< in the file; may lie outside a file that was cut
    uint32_t offsetField = 0; ///< where the table holds the offset; the size stands in front of it
};

struct Index {
    std::vector<Image> images; ///< the first is the JPEG's own picture
    uint32_t base = 0;         ///< what the offsets count from
    bool isBigEndian = false;
};

/// The first index in front of the scan, behind a debug info at the image's start too; empty without one, or where it
/// is damaged.
Index read(MediaFile const& file);

/// Keeps the index of a JPEG right while bytes move: made before the move, told what moved after it.
class Keeper {
public:
    /// A file that is no JPEG needs nothing.
    explicit Keeper(MediaFile const& file);
    /// Of the index whose segment has been found, if there is one.
    Keeper(MediaFile const& file, std::optional<jpeg::Segment> const& found);

    /// Bytes of the file, which may be a copy, have moved by `distance` from `from` on, over those in front of them
    /// where it is negative: the index is corrected where it stands now. What is wrong of another picture's offset is
    /// written, and the size of the JPEG's own where it is known; a picture that was cut into or is gone keeps what the
    /// index says of it. Once.
    void moved(MediaFile& file, uint32_t from, int64_t distance) const;

private:
    Index index;
    std::optional<uint32_t> ownSize; ///< bytes of the JPEG's own picture
};

/// For a copy of the photo that was made without a stretch of it.
void leftOut(MediaFile& copy, MediaFile const& photo, Stretch const& stretch);

/// Moves the bytes from `from` on and corrects what points to them: the trailer's pointer to a video (moveRest), and
/// the index of a JPEG.
void moveBytes(std::shared_ptr<MediaFile> const& file, uint32_t from, int64_t distance);

} // namespace android::lumo::image_index
