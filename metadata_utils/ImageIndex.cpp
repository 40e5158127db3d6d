#include "ImageIndex.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "boxes/BoxBounds.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>

namespace android::lumo::image_index {

namespace {

constexpr uint32_t SEGMENT_HEADER = 4;
constexpr char IDENTIFIER[] = "MPF"; ///< and its NUL
constexpr uint32_t IDENTIFIER_SIZE = sizeof IDENTIFIER;
constexpr uint8_t APP2 = 0xE2;
constexpr uint8_t START_OF_SCAN = 0xDA;
constexpr uint16_t TABLE_TAG = 0xB002;
constexpr uint32_t INDEX_ENTRY = 12;
constexpr uint32_t TABLE_ENTRY = 16;
constexpr size_t MAX_SEGMENTS = 4096;

/// Numbers of a segment's bytes in its own byte order; what lies outside reads as nothing.
class Numbers {
public:
    explicit Numbers(std::span<uint8_t const> source) : bytes(source), bigEndian(!bytes.empty() && bytes[0] == 'M') {}

    bool isBigEndian() const { return bigEndian; }
    std::optional<uint32_t> at(uint64_t offset, unsigned width) const {
        if (!rangeFits(offset, width, bytes.size()))
            return std::nullopt;
        uint32_t value = 0;
        for (unsigned i = 0; i < width; ++i)
            value = value << 8 | bytes[static_cast<size_t>(offset) + (bigEndian ? i : width - 1 - i)];
        return value;
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

} // namespace

Index read(MediaFile const& file) {
    uint32_t const fileSize = file.size();
    uint32_t at = 2;
    for (size_t count = 0; count < MAX_SEGMENTS && rangeFits(at, SEGMENT_HEADER + IDENTIFIER_SIZE, fileSize); ++count) {
        auto const head = checked::readAt(file, at, SEGMENT_HEADER + IDENTIFIER_SIZE);
        uint8_t const* bytes = head.data();
        if (bytes[0] == 0xFF && bytes[1] == 0xFF) {
            ++at;
            continue;
        }
        uint32_t const length = static_cast<uint32_t>(bytes[2] << 8 | bytes[3]);
        if (bytes[0] != 0xFF || bytes[1] == START_OF_SCAN || length < 2 || !rangeFits(at, length + 2, fileSize))
            break;
        bool const isIndex = bytes[1] == APP2 && length >= 2 + IDENTIFIER_SIZE &&
                             std::memcmp(bytes + SEGMENT_HEADER, IDENTIFIER, IDENTIFIER_SIZE) == 0;
        if (isIndex) {
            uint32_t const base = at + SEGMENT_HEADER + IDENTIFIER_SIZE;
            auto const body = checked::readAt(file, base, length - 2 - IDENTIFIER_SIZE);
            return parse({body.data(), body.size()}, base);
        }
        at += 2 + length;
    }
    return {};
}

void moved(MediaFile& file, Index const& index, uint32_t from, int64_t distance) {
    for (auto const& image : index.images) {
        if (image.position == 0 || image.position < from)
            continue;
        auto const offset = static_cast<uint32_t>(int64_t{image.position} + distance - int64_t{index.base});
        uint32_t const stored = index.isBigEndian ? __builtin_bswap32(offset) : offset;
        checked::seek(file, image.offsetField);
        checked::write(file, &stored, sizeof stored);
    }
}

} // namespace android::lumo::image_index
