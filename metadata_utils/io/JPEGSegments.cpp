// SPDX-License-Identifier: Apache-2.0
#include "JPEGSegments.h"

#include "CheckedFile.h"
#include "Log.h"
#include "TrailerLayout.h"
#include "boxes/BigEndian.h"

#include <algorithm>

namespace android::lumo::jpeg {

namespace {

/// What the search has to say it says as the reader.
constexpr char LOG_TAG[] = "JPEGMetaReader";

constexpr uint16_t LAST_NON_MARKER = 0xFEFF; ///< the highest two bytes that do not begin with FF
constexpr uint16_t FILL = 0xFFFF;

/// Each block costs a move of everything behind it: a file with more of them than any camera writes is refused.
constexpr size_t MAX_BLOCKS = 64;

bool isImageIndex(std::string const& payloadStart) {
    return payloadStart.starts_with(std::string(IMAGE_INDEX_IDENTIFIER, sizeof IMAGE_INDEX_IDENTIFIER));
}

/// At the trailer's first record. A damaged trailer is none.
uint32_t endOfImage(MediaFile const& file) {
    uint32_t const fileSize = file.size();
    try {
        if (auto const tail = trailer::readTail(file, fileSize))
            return trailer::startOf(*tail);
    } catch (std::exception const&) {
        rethrowUnlessDamage();
        // Whoever edits the trailer will say so.
    }
    return fileSize;
}

void logShort(size_t found, uint32_t expected) {
    LOGE("fail to find next appN marker: fail to read bytes: %zu, expected %zu", found, size_t{expected});
}

std::string joined(std::vector<int> const& numbers) {
    std::string text;
    for (int const number : numbers)
        text.append(text.empty() ? "" : " ").append(std::to_string(number));
    return text;
}

/// Changes that touch are one: what stands behind both then moves once.
void add(std::vector<Change>& changes, Change const& change) {
    if (!changes.empty() && changes.back().position + changes.back().removed == change.position) {
        changes.back().removed += change.removed;
        changes.back().inserted += change.inserted;
    } else {
        changes.push_back(change);
    }
}

uint16_t littleEndianAt(uint8_t const* bytes) {
    return static_cast<uint16_t>(bytes[1] << 8 | bytes[0]);
}

/// Nothing behind a debug info that was written at the image's start is found, but an index there has to stay right.
std::optional<Segment> findIndexBehindDebugInfo(MediaFile const& file) {
    uint32_t position = MARKER_SIZE;
    std::array<uint8_t, HEADER_SIZE> header{};
    for (size_t i = 0; i < MAX_BLOCKS; ++i) {
        bool const isWhole = checked::readUpTo(file, position, header.data(), header.size()) == header.size();
        auto const length = isWhole ? debugInfoLength(header) : std::nullopt;
        if (!length)
            break;
        position += MARKER_SIZE + *length;
    }
    if (position == MARKER_SIZE)
        return std::nullopt;
    SegmentScanner scanner(file, position);
    while (auto const segment = scanner.nextApp({2})) {
        if (isImageIndex(scanner.payloadStart(*segment)))
            return segment;
    }
    return std::nullopt;
}

} // namespace

std::string debugInfoHeader(uint32_t dataSize) {
    std::string header = bigEndianBytes(dataSize + LENGTH_SIZE, LENGTH_SIZE) + bigEndianBytes(APP4, MARKER_SIZE);
    std::reverse(header.begin(), header.end());
    return header;
}

std::optional<uint32_t> debugInfoLength(std::span<uint8_t const, HEADER_SIZE> header) {
    uint32_t const length = littleEndianAt(header.data() + MARKER_SIZE);
    return littleEndianAt(header.data()) == APP4 && length >= LENGTH_SIZE ? std::optional(length) : std::nullopt;
}

// The search. ---------------------------------------------------------------------------------------------------------

/// The bytes at `from`, which never goes back; fewer where the file ends.
std::span<uint8_t const> SegmentScanner::bytesAt(uint32_t from, uint32_t n) {
    if (uint64_t{from} - windowStart + n > windowSize) {
        windowStart = from;
        windowSize = static_cast<uint32_t>(checked::readUpTo(file, from, window.data(), window.size()));
    }
    uint32_t const offset = from - windowStart;
    return {window.data() + offset, std::min(windowSize - offset, n)};
}

std::optional<Segment> SegmentScanner::next() {
    auto bytes = bytesAt(position, HEADER_SIZE);
    while (position <= INT32_MAX && bytes.size() >= MARKER_SIZE && bigEndianAt<uint16_t>(bytes.data()) == FILL)
        bytes = bytesAt(++position, HEADER_SIZE);
    if (bytes.size() < MARKER_SIZE) {
        logShort(bytes.size(), MARKER_SIZE);
        return std::nullopt;
    }
    uint16_t const marker = bigEndianAt<uint16_t>(bytes.data());
    if (marker <= LAST_NON_MARKER)
        LOGI("invalid marker: 0x%x", marker);
    if (marker <= LAST_NON_MARKER || marker == START_OF_SCAN || marker == END_OF_IMAGE)
        return std::nullopt;
    if (bytes.size() < HEADER_SIZE) {
        logShort(bytes.size() - MARKER_SIZE, LENGTH_SIZE);
        return std::nullopt;
    }
    Segment const segment{position, marker, bigEndianAt<uint16_t>(bytes.data() + MARKER_SIZE)};
    LOGD("marker: 0x%x, len: %zu", marker, size_t{segment.length});
    if (segment.length < LENGTH_SIZE || position > INT32_MAX)
        return std::nullopt;
    position = segment.end();
    return segment;
}

std::optional<Segment> SegmentScanner::nextApp(std::vector<int> const& wanted, int besides) {
    LOGI("findNextAppNMarker E: %s", joined(wanted).c_str());
    while (auto const segment = next()) {
        if (segment->marker <= APP0 || segment->marker > APP4)
            continue;
        LOGD("appN: %d", segment->number());
        if (segment->number() == besides || std::find(wanted.begin(), wanted.end(), segment->number()) != wanted.end())
            return segment;
    }
    LOGI("findNextAppNMarker X");
    return std::nullopt;
}

std::string SegmentScanner::payloadStart(Segment const& segment) {
    auto const bytes = bytesAt(segment.payloadPosition(), std::min(segment.payload(), IDENTIFYING_BYTES));
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

std::pair<MediaDefs::MetaType, uint64_t> resolveApp1(std::string const& payloadStart) {
    if (payloadStart.starts_with(XMP_IDENTIFIER)) {
        LOGD("found xmp");
        return {MediaDefs::MetaType::XMP, XMP_IDENTIFIER_SIZE};
    }
    if (payloadStart.starts_with("Exif")) {
        LOGD("found exif");
        return {MediaDefs::MetaType::EXIF, 0};
    }
    return {MediaDefs::MetaType::NONE, 0};
}

void seekBehindStart(MediaFile const& file, ErrorAt at) {
    if (file.position(MARKER_SIZE) != MARKER_SIZE)
        throw at.as(Error::Code::READ_FAILED, file)("Failed to set file position to JPEG_MARKER_SIZE");
}

// Room for XMP. -------------------------------------------------------------------------------------------------------

uint32_t SegmentMap::count(MediaDefs::MetaType type) const {
    return static_cast<uint32_t>(
        std::count_if(blocks.begin(), blocks.end(), [&](Block const& block) { return block.type == type; }));
}

SegmentMap mapSegments(MediaFile const& file) {
    SegmentMap segments;
    SegmentScanner scanner(file);
    while (auto const segment = scanner.nextApp({1}, 2)) {
        std::string const start = scanner.payloadStart(*segment);
        if (segment->marker == APP2) {
            if (!segments.imageIndex && isImageIndex(start))
                segments.imageIndex = segment;
        } else {
            segments.blocks.push_back({resolveApp1(start).first, *segment});
        }
    }
    if (segments.blocks.empty() && !segments.imageIndex)
        segments.imageIndex = findIndexBehindDebugInfo(file);
    return segments;
}

void requireInImage(MediaFile const& file, uint64_t position, uint64_t size, ErrorAt at) {
    uint32_t const end = endOfImage(file);
    if (position > end || size > end - position)
        throw at.as(Error::Code::DAMAGED)("segment of %zu bytes at %zu reaches past the image's end at %zu",
                                          static_cast<size_t>(size), static_cast<size_t>(position), size_t{end});
}

void requireInImage(MediaFile const& file, SegmentMap const& segments, ErrorAt at) {
    auto const isRewritten = [](auto const& block) { return block.type != MediaDefs::MetaType::NONE; };
    if (auto const last = std::find_if(segments.blocks.rbegin(), segments.blocks.rend(), isRewritten);
        last != segments.blocks.rend())
        requireInImage(file, last->segment.position, last->segment.size(), at);
}

std::vector<Change> changesFor(SegmentMap const& segments, uint32_t room) {
    std::vector<Change> changes;
    if (segments.count(MediaDefs::MetaType::EXIF) == 0)
        add(changes, {MARKER_SIZE, 0, room});
    for (auto const& [type, segment] : segments.blocks) {
        if (type == MediaDefs::MetaType::XMP)
            add(changes, {segment.position, segment.size(), 0});
        else if (type == MediaDefs::MetaType::EXIF)
            add(changes, {segment.end(), 0, room});
    }
    return changes;
}

bool loseImages(SegmentMap const& segments, std::vector<Change> const& changes) {
    int64_t behindIndex = 0;
    for (Change const& change : changes) {
        if (segments.imageIndex && change.position > segments.imageIndex->position)
            behindIndex += change.growth();
    }
    return behindIndex != 0;
}

std::vector<Change> planRoom(MediaFile& file, SegmentMap const& segments, uint32_t payload) {
    if (uint64_t{payload} + LENGTH_SIZE > MAX_SEGMENT_LENGTH)
        throw ErrorAt().as(Error::Code::TOO_BIG)("XMP of %zu bytes does not fit a segment", size_t{payload});
    checked::requireEditable(file);
    if (uint32_t const rewritten = segments.count(MediaDefs::MetaType::EXIF) + segments.count(MediaDefs::MetaType::XMP);
        rewritten > MAX_BLOCKS)
        throw ErrorAt().as(Error::Code::TOO_BIG)("%zu XMP and Exif segments are too many to rewrite",
                                                 size_t{rewritten});
    requireInImage(file, segments);
    auto changes = changesFor(segments, payload + HEADER_SIZE);
    int64_t size = file.size();
    int64_t peak = size;
    for (Change const& change : changes) {
        size += change.growth();
        peak = std::max(peak, size);
    }
    if (loseImages(segments, changes))
        throw ErrorAt().as(Error::Code::UNSUPPORTED)(
            "no room for XMP of %zu bytes: moving segments behind the MPF index at %zu would lose its images",
            size_t{payload}, size_t{segments.imageIndex->position});
    checked::requireSpace(file, checked::sizeOf(static_cast<uint64_t>(peak)));
    return changes;
}

} // namespace android::lumo::jpeg
