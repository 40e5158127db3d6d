#pragma once

#include "ErrorAt.h"
#include "JPEGMetaReader.h"

#include <cstdint>
#include <optional>
#include <vector>

/// What a JPEG's writer must know of the segments before it moves one (ISO/IEC 10918-1 B.1.1; the MPF index: CIPA
/// DC-007).
namespace android::lumo::jpeg {

inline constexpr uint16_t APP2 = 0xFFE2;
inline constexpr uint32_t HEADER_SIZE = MARKER_SIZE + LENGTH_SIZE;

inline uint16_t bigEndian(uint8_t const* bytes) {
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

/// Seeks behind the start of image; "Failed to set file position to JPEG_MARKER_SIZE".
void seekBehindStart(MediaFile const& file, ErrorAt at = ErrorAt());

/// A segment with its header.
struct Segment {
    MediaDefs::MetaType type = MediaDefs::MetaType::NONE;
    uint32_t position = 0; ///< of the marker
    uint32_t size = 0;     ///< marker, length and payload
};

/// The segments that decide where XMP room can be opened.
struct SegmentMap {
    std::vector<Segment> blocks; ///< XMP and Exif, in file order
    /// The first APP2 "MPF". It counts the places of the images behind this one from its own place, so that whatever
    /// changes the distance in between loses them; changes in front of it move both alike.
    std::optional<uint32_t> imageIndex;

    uint32_t count(MediaDefs::MetaType type) const;
};

/// Scans the segments up to the scan; moves the file's position.
SegmentMap mapSegments(MediaFile const& file, JPEGMetaReader& reader);

/// Refuses, before a byte moves, what could not be carried through: every XMP segment is to go, and room for `payload`
/// bytes is to be opened behind each Exif segment, or behind the start of image when there is none. Throws when the
/// payload does not fit a segment, a segment reaches past the image's end, the images of an MPF index would be lost, or
/// the file would grow past 4 GiB or past what its file system can hold. The file is unchanged afterwards.
void requireRoomFor(MediaFile& file, SegmentMap const& segments, uint32_t payload);

/// Throws when [position, position + size) does not lie in the image: a length that reaches past the file's end, or
/// over the trailer, which would be overwritten or no longer end the file.
void requireInImage(MediaFile const& file, uint64_t position, uint64_t size, ErrorAt at = ErrorAt());

} // namespace android::lumo::jpeg
