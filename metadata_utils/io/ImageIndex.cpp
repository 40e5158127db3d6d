// SPDX-License-Identifier: Apache-2.0
#include "ImageIndex.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MoveRest.h"
#include "boxes/BoxBounds.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>

namespace android::lumo::image_index {

namespace {

constexpr uint32_t IDENTIFIER_SIZE = sizeof jpeg::IMAGE_INDEX_IDENTIFIER;
constexpr uint16_t TABLE_TAG = 0xB002;
constexpr uint32_t INDEX_ENTRY = 12;
constexpr uint32_t TABLE_ENTRY = 16;
constexpr uint32_t FIELD = 4;

/// Numbers of a segment's bytes in its own byte order; what lies outside reads as nothing.
class Numbers {
public:
    explicit Numbers(std::span<uint8_t const> source) : bytes(source), bigEndian(!bytes.empty() && bytes[0] == 'M') {}

    bool isBigEndian() const { return bigEndian; }
    std::optional<uint32_t> at(uint64_t offset, unsigned width) const {
        if (!rangeFits(offset, width, bytes.size()))
            return std::nullopt;
        auto const field = bytes.subspan(static_cast<size_t>(offset), width);
        std::string stored(field.begin(), field.end());
        if (!bigEndian)
            std::reverse(stored.begin(), stored.end());
        return static_cast<uint32_t>(bigEndianNumber(stored));
    }

private:
    std::span<uint8_t const> bytes;
    bool bigEndian;
};

/// Offset and size of the table.
std::optional<std::pair<uint32_t, uint32_t>> findTable(Numbers const& numbers) {
    auto const index = numbers.at(4, 4);
    auto const count = index ? numbers.at(*index, 2) : std::nullopt;
    for (uint32_t i = 0; count && i < *count; ++i) {
        uint64_t const entry = uint64_t{*index} + 2 + uint64_t{i} * INDEX_ENTRY;
        auto const tag = numbers.at(entry, 2);
        auto const size = numbers.at(entry + 4, 4);
        auto const offset = numbers.at(entry + 8, 4);
        if (!tag || !size || !offset)
            break;
        if (*tag == TABLE_TAG)
            return std::pair{*offset, *size};
    }
    return std::nullopt;
}

Index parse(std::span<uint8_t const> bytes, uint32_t base) {
    Numbers const numbers(bytes);
    Index index{{}, base, numbers.isBigEndian()};
    auto const table = findTable(numbers);
    for (uint32_t at = 0; table && at + TABLE_ENTRY <= table->second; at += TABLE_ENTRY) {
        uint64_t const entry = uint64_t{table->first} + at;
        auto const size = numbers.at(entry + 4, 4);
        auto const offset = numbers.at(entry + 8, 4);
        if (!size || !offset)
            return {};
        uint32_t const position = *offset == 0 ? 0 : base + *offset;
        index.images.push_back({*size, position, base + static_cast<uint32_t>(entry) + 8});
    }
    return index;
}

void write(MediaFile& file, Index const& index, uint32_t position, uint32_t value) {
    std::string stored = bigEndianBytes(value, FIELD);
    if (!index.isBigEndian)
        std::reverse(stored.begin(), stored.end());
    checked::seek(file, position);
    checked::write(file, stored);
}

/// Of the segment that holds it.
Index readFrom(MediaFile const& file, jpeg::Segment const& segment) {
    uint32_t const base = segment.payloadPosition() + IDENTIFIER_SIZE;
    uint32_t const size = segment.payload() - IDENTIFIER_SIZE;
    if (!rangeFits(base, size, file.size()))
        return {};
    auto const body = checked::readAt(file, base, size);
    return parse({body.data(), body.size()}, base);
}

/// The bytes of the JPEG's own picture: what the index says where a picture ends there, else up to the picture behind
/// where one ends there. Nothing without an index, or where neither holds.
std::optional<uint32_t> findOwnSize(MediaFile const& file, Index const& index) {
    if (index.images.empty() || index.images[0].position != 0)
        return std::nullopt;
    uint32_t next = 0;
    for (auto const& image : index.images)
        next = image.position != 0 && (next == 0 || image.position < next) ? image.position : next;
    for (uint32_t const end : {index.images[0].size, next}) {
        std::array<uint8_t, jpeg::MARKER_SIZE> last{};
        if (end > index.base && checked::readUpTo(file, end - last.size(), last.data(), last.size()) == last.size() &&
            bigEndianAt<uint16_t>(last.data()) == jpeg::END_OF_IMAGE)
            return end;
    }
    return std::nullopt;
}

std::optional<jpeg::Segment> findSegment(MediaFile const& file) {
    bool const mayHold = file.mimeType() == MediaDefs::MimeType::IMAGE_JPEG;
    return mayHold ? jpeg::mapSegments(file).imageIndex : std::nullopt;
}

} // namespace

Index read(MediaFile const& file) {
    auto const found = jpeg::mapSegments(file).imageIndex;
    return found ? readFrom(file, *found) : Index();
}

Keeper::Keeper(MediaFile const& file) : Keeper(file, findSegment(file)) {}

Keeper::Keeper(MediaFile const& file, std::optional<jpeg::Segment> const& found) {
    if (!found)
        return;
    index = readFrom(file, *found);
    ownSize = findOwnSize(file, index);
}

void Keeper::moved(MediaFile& file, uint32_t from, int64_t distance) const {
    int64_t const goneFrom = int64_t{from} + std::min<int64_t>(distance, 0);
    auto const isGone = [&](uint32_t position) { return position >= goneFrom && position < from; };
    auto const placeOf = [&](uint32_t position) { return int64_t{position} + (position >= from ? distance : 0); };
    if (isGone(index.base))
        return;
    int64_t const indexMoved = placeOf(index.base) - index.base;
    auto const put = [&](uint32_t field, int64_t value) {
        write(file, index, static_cast<uint32_t>(field + indexMoved), static_cast<uint32_t>(value));
    };
    bool const isResized = ownSize && (distance > 0 ? from < *ownSize : from <= *ownSize);
    if (isResized && distance != 0)
        put(index.images[0].offsetField - FIELD, int64_t{*ownSize} + distance);
    for (auto const& image : index.images) {
        if (image.position != 0 && !isGone(image.position) && placeOf(image.position) - image.position != indexMoved)
            put(image.offsetField, placeOf(image.position) - index.base - indexMoved);
    }
}

void leftOut(MediaFile& copy, MediaFile const& photo, Stretch const& stretch) {
    if (stretch.size > 0)
        Keeper(photo).moved(copy, stretch.end(), -int64_t{stretch.size});
}

void moveBytes(std::shared_ptr<MediaFile> const& file, uint32_t from, int64_t distance) {
    if (distance == 0)
        return;
    Keeper const index(*file);
    moveRest(file, from, distance);
    index.moved(*file, from, distance);
}

} // namespace android::lumo::image_index
