#include "JPEGSegments.h"

#include "CheckedFile.h"
#include "TrailerLayout.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace android::lumo::jpeg {

namespace {

/// The four bytes that an MPF index begins with.
constexpr char INDEX_IDENTIFIER[] = "MPF";

/// Each block costs a move of everything behind it: a file with more of them than any camera writes is refused.
constexpr size_t MAX_BLOCKS = 64;

/// Reads the APP2 segment at the current position, leaves the position behind it and tells whether it is an MPF index.
bool passImageIndex(MediaFile const& file, uint32_t position) {
    std::array<uint8_t, HEADER_SIZE + sizeof INDEX_IDENTIFIER> bytes{};
    bool const whole = file.read(bytes.data(), bytes.size()) == ssize_t{bytes.size()};
    uint32_t const length = bigEndian(bytes.data() + MARKER_SIZE);
    checked::seek(file, position + MARKER_SIZE + length);
    return whole && length >= LENGTH_SIZE + sizeof INDEX_IDENTIFIER &&
           std::memcmp(bytes.data() + HEADER_SIZE, INDEX_IDENTIFIER, sizeof INDEX_IDENTIFIER) == 0;
}

/// At the trailer's first record. A damaged trailer is none.
uint32_t endOfImage(MediaFile const& file) {
    try {
        if (auto const tail = trailer::readTail(file))
            return trailer::startOf(*tail);
    } catch (std::exception const&) {
        rethrowUnlessDamage();
        // Whoever edits the trailer will say so.
    }
    return file.size();
}

/// The sizes a file passes through while segments go and rooms open.
class Rehearsal {
public:
    Rehearsal(uint32_t fileSize, std::optional<uint32_t> index) : size(fileSize), peak(fileSize), imageIndex(index) {}

    void change(uint32_t position, int64_t bytes) {
        size += bytes;
        peak = std::max(peak, size);
        if (imageIndex && position > *imageIndex)
            behindIndex += bytes;
    }

    int64_t peakSize() const { return peak; }
    int64_t changeBehindIndex() const { return behindIndex; }

private:
    int64_t size;
    int64_t peak;
    int64_t behindIndex = 0;
    std::optional<uint32_t> imageIndex;
};

} // namespace

void seekBehindStart(MediaFile const& file, ErrorAt at) {
    if (file.position(MARKER_SIZE) != MARKER_SIZE)
        throw at("Failed to set file position to JPEG_MARKER_SIZE");
}

uint32_t SegmentMap::count(MediaDefs::MetaType type) const {
    return static_cast<uint32_t>(
        std::count_if(blocks.begin(), blocks.end(), [&](Segment const& block) { return block.type == type; }));
}

SegmentMap mapSegments(MediaFile const& file, JPEGMetaReader& reader) {
    SegmentMap segments;
    seekBehindStart(file);
    for (;;) {
        auto const [n, at] = reader.findNextAppNMarker({1, 2});
        if (at < 1)
            return segments;
        auto const position = static_cast<uint32_t>(at);
        if (n == 2) {
            if (passImageIndex(file, position) && !segments.imageIndex)
                segments.imageIndex = position;
            continue;
        }
        Metadata const meta = reader.parseMetadata(APP1);
        if (meta.type == MediaDefs::MetaType::XMP || meta.type == MediaDefs::MetaType::EXIF)
            segments.blocks.push_back({meta.type, position, meta.payload + HEADER_SIZE});
        file.skipNBytes(meta.payload);
    }
}

void requireInImage(MediaFile const& file, uint64_t position, uint64_t size, ErrorAt at) {
    uint32_t const end = endOfImage(file);
    if (position > end || size > end - position)
        throw at("segment of %zu bytes at %zu reaches past the image's end at %zu", static_cast<size_t>(size),
                 static_cast<size_t>(position), size_t{end});
}

void requireRoomFor(MediaFile& file, SegmentMap const& segments, uint32_t payload) {
    if (uint64_t{payload} + LENGTH_SIZE > MAX_SEGMENT_LENGTH)
        throw ErrorAt()("XMP of %zu bytes does not fit a segment", size_t{payload});
    checked::requireAddressable(file);
    if (segments.blocks.size() > MAX_BLOCKS)
        throw ErrorAt()("%zu XMP and Exif segments are too many to rewrite", segments.blocks.size());
    uint32_t const size = file.size();
    Rehearsal rehearsal(size, segments.imageIndex);
    int64_t const room = int64_t{payload} + HEADER_SIZE;
    Segment const last = segments.blocks.empty() ? Segment() : segments.blocks.back();
    requireInImage(file, last.position, last.size);
    for (Segment const& block : segments.blocks) {
        rehearsal.change(block.position, block.type == MediaDefs::MetaType::XMP ? -int64_t{block.size} : room);
    }
    if (segments.count(MediaDefs::MetaType::EXIF) == 0)
        rehearsal.change(MARKER_SIZE, room);
    if (rehearsal.changeBehindIndex() != 0)
        throw ErrorAt()(
            "no room for XMP of %zu bytes: moving segments behind the MPF index at %zu would lose its images",
            size_t{payload}, size_t{*segments.imageIndex});
    uint32_t const peak = checked::sizeOf(static_cast<uint64_t>(rehearsal.peakSize()));
    checked::requireSpace(file, peak);
}

} // namespace android::lumo::jpeg
