// SPDX-License-Identifier: Apache-2.0
#include "ContentIdentifier.h"

#include "Photo.h"

#include "Error.h"

#include "boxes/BigEndian.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

namespace motionphoto {

using namespace android::lumo;

namespace {

/// A run of bytes that is never read past its end: what lies outside reads as empty or 0.
struct Bytes {
    std::string_view text;
    bool isLittle = false;

    Bytes from(uint64_t offset, uint64_t size = UINT64_MAX) const {
        if (offset > text.size())
            return {{}, isLittle};
        uint64_t const left = std::min<uint64_t>(size, text.size() - offset);
        return {text.substr(static_cast<size_t>(offset), static_cast<size_t>(left)), isLittle};
    }
    uint32_t number(uint64_t offset, unsigned width) const {
        if (offset > text.size() || text.size() - offset < width)
            return 0;
        std::string field(text.substr(static_cast<size_t>(offset), width));
        if (isLittle)
            std::reverse(field.begin(), field.end());
        return static_cast<uint32_t>(bigEndianNumber(field));
    }
};

std::string untilZero(std::string_view text) {
    return std::string(text.substr(0, text.find('\0')));
}

// Still: TIFF directories. A directory at an offset is a 2-byte count and entries of 12 bytes: tag 2, type 2, count 4,
// value or its offset 4.

constexpr uint32_t EXIF_DIRECTORY = 0x8769, MAKER_NOTE = 0x927C, IDENTIFIER = 0x0011;
constexpr std::string_view EXIF_START{"Exif\0\0", 6};
constexpr std::string_view MAKER{"Apple iOS\0\0\1", 12};
constexpr uint32_t MAKER_DIRECTORY = 14; ///< behind the maker's name and the byte order

struct Entry {
    uint32_t count = 0;
    uint32_t value = 0;
};

std::optional<Entry> find(Bytes const& tiff, uint32_t directory, uint32_t tag) {
    uint32_t const count = tiff.number(directory, 2);
    for (uint32_t i = 0; i < count; ++i) {
        uint64_t const at = uint64_t{directory} + 2 + uint64_t{i} * 12;
        if (tiff.number(at, 2) == tag)
            return Entry{tiff.number(at + 4, 4), tiff.number(at + 8, 4)};
    }
    return std::nullopt;
}

std::string identifierInExif(std::string_view block) {
    // A HEIC's block begins with the offset of the TIFF header, a JPEG's with "Exif".
    auto const start = block.find(EXIF_START);
    Bytes tiff{start < 16 ? block.substr(start + EXIF_START.size()) : block.size() > 4 ? block.substr(4) : block};
    tiff.isLittle = tiff.text.starts_with("II");
    auto const exif = find(tiff, tiff.number(4, 4), EXIF_DIRECTORY);
    auto const note = exif ? find(tiff, exif->value, MAKER_NOTE) : std::nullopt;
    if (!note)
        return "";
    Bytes maker = tiff.from(note->value, note->count);
    if (!maker.text.starts_with(MAKER))
        return "";
    maker.isLittle = maker.text.substr(MAKER.size()).starts_with("II");
    auto const entry = find(maker, MAKER_DIRECTORY, IDENTIFIER);
    return entry ? untilZero(maker.from(entry->value, entry->count).text) : "";
}

// Clip: boxes of size 4, type 4, content. -----------------------------------------------------------------------------

constexpr std::string_view KEY = "com.apple.quicktime.content.identifier";
constexpr uint64_t MAX_METADATA = 1 << 20;
constexpr uint32_t BOX_HEADER = 8;

/// The content of the first box of that type.
Bytes box(Bytes const& parent, std::string_view type) {
    for (size_t at = 0; parent.text.size() - at >= BOX_HEADER;) {
        uint32_t const size = parent.number(at, 4);
        if (size < BOX_HEADER || size > parent.text.size() - at)
            break;
        if (parent.text.substr(at + 4, 4) == type)
            return parent.from(at + BOX_HEADER, size - BOX_HEADER);
        at += size;
    }
    return {};
}

std::string identifierInMetadata(Bytes const& meta) {
    // 'keys': version and flags 4, count 4, then keys: size 4, namespace 4, name.
    Bytes const keys = box(meta, "keys");
    uint64_t at = 8;
    for (uint32_t index = 1; index <= keys.number(4, 4); ++index) {
        uint32_t const size = keys.number(at, 4);
        if (size < BOX_HEADER)
            break;
        if (keys.from(at + BOX_HEADER, size - BOX_HEADER).text == KEY) {
            // 'data': type 4, locale 4, value.
            return std::string(box(box(box(meta, "ilst"), bigEndianBytes(index, 4)), "data").from(8).text);
        }
        at += size;
    }
    return "";
}

/// A stretch of the file: where it begins and ends.
/// Of a box's content: its first byte, and the one behind it.
using Bounds = std::pair<uint64_t, uint64_t>;

/// The content of the first box of that type in a place.
std::optional<Bounds> find(MediaFile const& file, std::optional<Bounds> const& place, std::string_view type) {
    for (uint64_t from = place ? place->first : 1, end = place ? place->second : 0; from + BOX_HEADER <= end;) {
        auto const header = readAt(file, from, 2 * BOX_HEADER);
        Bytes const bytes{header};
        uint64_t size = bytes.number(0, 4), head = BOX_HEADER;
        if (size == 1) {
            size = uint64_t{bytes.number(8, 4)} << 32 | bytes.number(12, 4);
            head = 2 * BOX_HEADER;
        } else if (size == 0) {
            size = end - from;
        }
        if (size < head || size > end - from)
            break;
        if (bytes.text.substr(4, 4) == type)
            return Bounds(from + head, from + size);
        from += size;
    }
    return std::nullopt;
}

std::string identifierIn(MediaFile const& file, std::optional<Bounds> const& meta) {
    if (!meta || meta->second - meta->first > MAX_METADATA)
        return "";
    auto const content = readAt(file, meta->first, meta->second - meta->first);
    // QuickTime's metadata box begins with boxes, that of ISO base media files with version and flags.
    Bytes const all{content};
    return identifierInMetadata(all.number(0, 4) == 0 ? all.from(4) : all);
}

} // namespace

std::string contentIdentifierOfStill(std::shared_ptr<MediaFile> const& still) {
    try {
        auto const block = blocksOf(still)->getExif();
        return identifierInExif(block.toTypedData<std::string>());
    } catch (Error const& error) {
        if (error.code() == Error::Code::READ_FAILED)
            throw;
        return ""; // its other commands say what is wrong with it
    }
}

std::string contentIdentifierOfClip(std::shared_ptr<MediaFile> const& clip) {
    auto const movie = find(*clip, Bounds(0, clip->size()), "moov");
    auto const identifier = identifierIn(*clip, find(*clip, movie, "meta"));
    return identifier.empty() ? identifierIn(*clip, find(*clip, find(*clip, movie, "udta"), "meta")) : identifier;
}

} // namespace motionphoto
