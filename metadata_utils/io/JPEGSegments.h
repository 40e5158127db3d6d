// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"
#include "MediaDefs.h"
#include "MediaFile.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// A JPEG's segments up to the start of scan (ISO/IEC 10918-1 B.1.1), for its reader and its writer.
///
///     offset  width  field (big-endian)
///     0       2      start of image, FF D8
///     2       ...    segments: fill bytes FF, marker (FF, code), 2-byte length L (counts itself), L - 2 payload bytes
///     ...     2      start of scan, FF DA: the scanned part ends here
namespace android::lumo::jpeg {

inline constexpr uint32_t MARKER_SIZE = 2;
inline constexpr uint32_t LENGTH_SIZE = 2;
inline constexpr uint32_t HEADER_SIZE = MARKER_SIZE + LENGTH_SIZE;
inline constexpr uint16_t APP0 = 0xFFE0;
inline constexpr uint16_t APP1 = 0xFFE1;
inline constexpr uint16_t APP2 = 0xFFE2;
inline constexpr uint16_t APP4 = 0xFFE4;
inline constexpr uint16_t START_OF_SCAN = 0xFFDA;
inline constexpr uint16_t END_OF_IMAGE = 0xFFD9;
inline constexpr uint32_t MAX_SEGMENT_LENGTH = 65535; ///< the length field counts itself
/// The APP1 identifier of an XMP packet, without its terminating NUL (ISO 16684-1, embedding in JPEG).
inline constexpr char XMP_IDENTIFIER[] = "http://ns.adobe.com/xap/1.0/";
inline constexpr uint32_t XMP_IDENTIFIER_SIZE = sizeof(XMP_IDENTIFIER); ///< with the NUL: 29
/// The four bytes that the payload of an MPF index begins with (CIPA DC-007).
inline constexpr char IMAGE_INDEX_IDENTIFIER[] = "MPF";
inline constexpr uint32_t IDENTIFYING_BYTES = 32; ///< of a payload, enough to tell what it is

/// What the camera debug info's segment begins with where this library has put it: marker and length in little-endian
/// order, so that no reader takes it for a segment.
std::string debugInfoHeader(uint32_t dataSize);
/// The bytes of such a segment behind the marker; nothing where `header` is no such header.
std::optional<uint32_t> debugInfoLength(std::span<uint8_t const, HEADER_SIZE> header);

/// A segment whose header has been read; its payload may reach past the file's end.
struct Segment {
    uint32_t position = 0; ///< of the marker
    uint16_t marker = 0;
    uint16_t length = LENGTH_SIZE; ///< counts itself

    uint32_t payloadPosition() const { return position + HEADER_SIZE; }
    uint32_t payload() const { return length - LENGTH_SIZE; }
    uint32_t size() const { return MARKER_SIZE + length; }
    uint32_t end() const { return position + size(); }
    int32_t number() const { return marker & 7; } ///< of an APP1 to APP4
};

/// The one walk over the segments. Reads a block at a time, so that its cost is bounded by the file's size however
/// short the segments are, and leaves the file's position alone. A read that the system refuses throws READ_FAILED.
class SegmentScanner {
public:
    explicit SegmentScanner(MediaFile const& source, uint32_t start = MARKER_SIZE) : file(source), position(start) {}

    /// The next segment; nothing in front of the scan's or the image's end, where no segment can be, or where the file
    /// ends.
    std::optional<Segment> next();
    /// The next APP1 to APP4 whose number is wanted; `besides` is one that is taken along and not told in the log.
    std::optional<Segment> nextApp(std::vector<int> const& wanted, int besides = 0);
    /// The first bytes of the payload of the segment that was found last.
    std::string payloadStart(Segment const& segment);

private:
    std::span<uint8_t const> bytesAt(uint32_t from, uint32_t n);

    MediaFile const& file;
    uint32_t position;
    uint32_t windowStart = 0;
    uint32_t windowSize = 0;
    std::array<uint8_t, 4096> window;
};

/// What an APP1 carries, and where in its payload the data begin: XMP behind its identifier, Exif with it.
std::pair<MediaDefs::MetaType, uint64_t> resolveApp1(std::string const& payloadStart);

/// Seeks behind the start of image; "Failed to set file position to JPEG_MARKER_SIZE".
void seekBehindStart(MediaFile const& file, ErrorAt at = ErrorAt());

/// The segments that decide where XMP room can be opened.
struct SegmentMap {
    struct Block {
        MediaDefs::MetaType type = MediaDefs::MetaType::NONE;
        Segment segment;
    };
    std::vector<Block> blocks; ///< APP1, in file order: XMP, Exif, and NONE for what is neither
    /// The first APP2 "MPF". It counts the places of the images behind this one from its own place, so that whatever
    /// changes the distance in between loses them; changes in front of it move both alike.
    std::optional<Segment> imageIndex;

    uint32_t count(MediaDefs::MetaType type) const;
};

SegmentMap mapSegments(MediaFile const& file);

/// One place where segments go and room for another comes.
struct Change {
    uint32_t position = 0; ///< in the file as it is before the first change
    uint32_t removed = 0;
    uint32_t inserted = 0; ///< a segment with its header

    int64_t growth() const { return int64_t{inserted} - int64_t{removed}; }
};

/// The changes, in file order, that take every XMP segment out and open room for `payload` bytes behind each Exif
/// segment, or behind the start of image when there is none. Refused before a byte moves: a payload that does not fit a
/// segment, a segment that reaches past the image's end, the loss of the images of an MPF index, a file that would grow
/// past 4 GiB or past what the disk has room for. The file is unchanged afterwards.
std::vector<Change> planRoom(MediaFile& file, SegmentMap const& segments, uint32_t payload);

/// The same changes without a look at the file, for a segment of `size` bytes.
std::vector<Change> changesFor(SegmentMap const& segments, uint32_t size);

/// Whether they would move the images of an MPF index away from where it says.
bool loseImages(SegmentMap const& segments, std::vector<Change> const& changes);

/// Throws when [position, position + size) does not lie in the image: a length that reaches past the file's end, or
/// over the trailer, which would be overwritten or no longer end the file.
void requireInImage(MediaFile const& file, uint64_t position, uint64_t size, ErrorAt at = ErrorAt());

/// The same for the last segment that the changes of an XMP packet take up.
void requireInImage(MediaFile const& file, SegmentMap const& segments, ErrorAt at = ErrorAt());

} // namespace android::lumo::jpeg
