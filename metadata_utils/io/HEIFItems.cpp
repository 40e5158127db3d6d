#include "HEIFItems.h"

#include "ErrorAt.h"
#include "Log.h"

#include <algorithm>
#include <map>
#include <set>

namespace android::lumo::heif {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaReader";
constexpr uint32_t BOX_HEADER = 8;
constexpr uint32_t FULL_BOX_FIELDS = 4; ///< version and flags
constexpr char XMP_CONTENT_TYPE[] = "application/rdf+xml";

ErrorAt readerError(int line = __builtin_LINE()) {
    return ErrorAt(line, "metadata_utils/io/HEIFMetaReader");
}

uint64_t startOf(HEIFMetaReader::ItemLocation const& location) {
    return uint64_t{location.base} + location.offset;
}

/// The widths that the fields of 'iloc' may have: 0 (absent), 4 or 8 bytes.
bool isFieldSize(unsigned width) {
    return width == 0 || width == 4 || width == 8;
}

/// The head of 'iloc' that says how its entries are stored.
///
/// | offset | width  | name (big-endian)                                   |
/// |--------|--------|-----------------------------------------------------|
/// | 0      | 1 + 3  | version, flags                                      |
/// | 4      | 4 bits | offset size                                         |
/// | 4.5    | 4 bits | length size                                         |
/// | 5      | 4 bits | base offset size                                    |
/// | 5.5    | 4 bits | index size (versions 1 and 2)                       |
/// | 6      | 2 or 4 | item count (4 bytes in version 2)                   |
struct LocationFormat {
    uint8_t version = 0;
    unsigned offsetSize = 0;
    unsigned lengthSize = 0;
    unsigned baseSize = 0;
    unsigned indexSize = 0;
    uint32_t count = 0;

    explicit LocationFormat(BoxCursor& cursor) {
        version = readFullBoxHeader(cursor).version;
        if (cursor.left() < 2)
            throw readerError()("iloc read error");
        unsigned const sizes = cursor.u8();
        unsigned const more = cursor.u8();
        offsetSize = sizes >> 4;
        lengthSize = sizes & 15;
        baseSize = more >> 4;
        indexSize = hasMethod() ? more & 15 : 0;
        count = version == 2 ? cursor.u32() : cursor.u16();
    }

    bool hasMethod() const { return version == 1 || version == 2; }
    unsigned idSize() const { return version == 2 ? 4 : 2; }
    unsigned smallestEntry() const { return idSize() + (hasMethod() ? 2 : 0) + 2 + 2; }
};

/// A field of 0, 4 or 8 bytes, of which the low 32 bits are kept; `fits` tells whether the rest was zero.
uint32_t lowBits(BoxCursor& cursor, unsigned width, bool& fits) {
    if (!isFieldSize(width))
        throw readerError()("iloc invalid size field");
    uint64_t const value = cursor.number(width);
    fits = fits && value <= UINT32_MAX;
    return static_cast<uint32_t>(value);
}

constexpr unsigned METHOD_FILE = 0;
constexpr unsigned METHOD_ITEM_DATA = 1;
constexpr unsigned INDEX_BYTES = 4;

struct LocationEntry {
    HEIFMetaReader::ItemLocation location;
    unsigned method = METHOD_FILE;
};

/// One entry of 'iloc'.
///
/// | width       | name (big-endian)                                                   |
/// |-------------|---------------------------------------------------------------------|
/// | 2 or 4      | item id (4 bytes in version 2)                                      |
/// | 2           | construction method, low 4 bits (versions 1 and 2)                  |
/// | 2           | data reference index, 0: this file                                  |
/// | base size   | base offset                                                         |
/// | 2           | extent count, always 1 here                                         |
/// | 4           | extent index, only where the index size is not 0                    |
/// | offset size | extent offset                                                       |
/// | length size | extent length                                                       |
LocationEntry readLocation(BoxCursor& cursor, LocationFormat const& format) {
    LocationEntry entry;
    auto& location = entry.location;
    location.id = static_cast<uint32_t>(cursor.number(format.idSize()));
    if (format.hasMethod())
        entry.method = cursor.u16() & 15U;
    bool const isIndexPassedOver = format.indexSize == 0 || format.indexSize == INDEX_BYTES;
    location.isExact = cursor.u16() == 0 && isIndexPassedOver; // else what follows is read off its place
    location.base = lowBits(cursor, format.baseSize, location.isExact);
    if (cursor.u16() != 1)
        throw readerError()("multi extent not supported");
    if (format.indexSize != 0)
        cursor.skip(INDEX_BYTES); // whatever the index size: no writer uses another
    location.offset = lowBits(cursor, format.offsetSize, location.isExact);
    location.length = lowBits(cursor, format.lengthSize, location.isExact);
    return entry;
}

} // namespace

void Items::parse(ByteWindow& window, TopLevelBox const& meta) {
    fileSize = window.size();
    uint32_t const end = meta.end();
    LOGI("meta box found: start=%ld, end=%ld", static_cast<long>(meta.content()), static_cast<long>(end));
    uint32_t position = meta.content() + std::min(FULL_BOX_FIELDS, meta.size - meta.headerSize);
    while (position < end && end - position >= BOX_HEADER) {
        BoxCursor header(window.at(position, BOX_HEADER), position, meta.type);
        uint32_t const size = header.u32();
        BoxType const type = header.u32();
        if (size < BOX_HEADER)
            break;
        if (size > end - position)
            throw readerError()("invalid chunk payload: %lu", static_cast<unsigned long>(size));
        parseChild(window, type, position, size);
        position += size;
    }
    settleItemDataLocations();
}

void Items::parseChild(ByteWindow& window, BoxType type, uint32_t position, uint32_t size) {
    struct Parser {
        BoxType type;
        void (Items::*parse)(BoxCursor payload);
    };
    static constexpr Parser PARSERS[] = {
        {boxType("iinf"), &Items::parseIINFBox},
        {boxType("iloc"), &Items::parseILOCBox},
        {boxType("iref"), &Items::parseIREFBox},
        {boxType("pitm"), &Items::parsePITMBox},
    };
    if (type == boxType("idat") && !itemData)
        itemData.emplace(position + BOX_HEADER, size - BOX_HEADER);
    for (auto const& [parsedType, parseBox] : PARSERS) {
        if (type != parsedType)
            continue;
        boxes[boxTypeText(type)] = {boxTypeText(type), position, size};
        BoxCursor cursor(window.at(position, size), position, boxType("meta"));
        (this->*parseBox)(cursor.box().payload());
    }
}

/// | offset | width  | name (big-endian)                              |
/// |--------|--------|------------------------------------------------|
/// | 0      | 1 + 3  | version, flags                                 |
/// | 4      | 2 or 4 | entry count (2 bytes in version 0)             |
/// | then   | ...    | entries, boxes 'infe'                          |
void Items::parseIINFBox(BoxCursor payload) {
    uint8_t const version = readFullBoxHeader(payload).version;
    uint32_t const count = version == 0 ? payload.u16() : payload.u32();
    LOGI("entry count = %d", static_cast<int>(count));
    payload.requireEntries(count, BOX_HEADER);
    for (uint32_t i = 0; i < count; ++i) {
        lumo::Box const entry = payload.box();
        if (entry.type() == boxType("infe"))
            parseInfe(entry.payload());
    }
}

/// | offset | width  | name (big-endian)                                                          |
/// |--------|--------|----------------------------------------------------------------------------|
/// | 0      | 1 + 3  | version (2 or 3; older ones have no item type and are passed over), flags  |
/// | 4      | 2 or 4 | item id (4 bytes in version 3)                                             |
/// | then   | 2      | protection index                                                           |
/// | then   | 4      | item type                                                                  |
/// | then   | ...    | zero-terminated: item name; for 'mime' content type and content encoding   |
void Items::parseInfe(BoxCursor entry) {
    uint8_t const version = readFullBoxHeader(entry).version;
    if (version != 2 && version != 3)
        return;
    int const id = static_cast<int>(version == 2 ? entry.u16() : entry.u32());
    uint16_t const protection = entry.u16();
    BoxType const type = entry.u32();
    if (type == boxType("Exif"))
        exifIds.push_back(id);
    if (type != boxType("mime"))
        return;
    mimeIds.push_back(id);
    entry.text();
    bool const isPacket = entry.text() == XMP_CONTENT_TYPE;
    if (isPacket && entry.text().empty() && protection == 0)
        packetIds.insert(id);
}

void Items::parseILOCBox(BoxCursor payload) {
    LocationFormat const format(payload);
    payload.requireEntries(format.count, format.smallestEntry());
    for (uint32_t i = 0; i < format.count; ++i) {
        LocationEntry const entry = readLocation(payload, format);
        if (entry.method == METHOD_FILE)
            locations.push_back(entry.location);
        else if (entry.method == METHOD_ITEM_DATA)
            inItemData.push_back(entry.location);
    }
}

/// | offset | width  | name (big-endian)                                                               |
/// |--------|--------|---------------------------------------------------------------------------------|
/// | 0      | 1 + 3  | version, flags                                                                  |
/// | then   | ...    | references, boxes of the reference's type:                                      |
/// | 8      | 2 or 4 | from-item id (2 bytes in version 0 of 'iref')                                   |
/// | then   | 2      | number of to-items, 1 or more                                                   |
/// | then   | ...    | to-item ids of the same width, of which the first is kept                       |
void Items::parseIREFBox(BoxCursor payload) {
    unsigned const idSize = readFullBoxHeader(payload).version == 0 ? 2 : 4;
    while (payload.left() >= BOX_HEADER) {
        uint32_t const size = payload.u32();
        BoxType const type = payload.u32();
        if (size < BOX_HEADER)
            return;
        BoxCursor reference = payload.range(size - BOX_HEADER);
        if (type != boxType("cdsc") || reference.left() < 2 * idSize + 2)
            continue;
        int const from = static_cast<int>(reference.number(idSize));
        if (reference.u16() != 0)
            references.push_back({from, {static_cast<int>(reference.number(idSize))}});
    }
}

void Items::parsePITMBox(BoxCursor payload) {
    uint8_t const version = readFullBoxHeader(payload).version;
    primaryId = version == 0 ? payload.u16() : payload.u32();
}

/// Method 1 counts from the content of 'idat': from here on the position is the file's. A range outside it is nowhere.
void Items::settleItemDataLocations() {
    for (ItemLocation location : inItemData) {
        if (!itemData || !rangeFits(startOf(location), location.length, itemData->second))
            continue;
        location.base += itemData->first;
        locations.push_back(location);
    }
    inItemData.clear();
}

std::optional<Items::ItemLocation> Items::findDescribing(std::vector<int> const& ids) const {
    if (!primaryId)
        return std::nullopt;
    // Ordered: a file can choose its ids so that hashes collide.
    std::set<int> const wanted(ids.begin(), ids.end());
    std::map<uint32_t, ItemLocation const*> places;
    for (auto const& location : locations)
        places.emplace(location.id, &location);
    for (auto const& reference : references) {
        if (!wanted.contains(reference.from) || static_cast<uint32_t>(reference.to.front()) != *primaryId)
            continue;
        auto const place = places.find(static_cast<uint32_t>(reference.from));
        if (place == places.end())
            continue;
        if (rangeFits(startOf(*place->second), place->second->length, fileSize))
            return *place->second;
        LOGW("item %d lies outside the file", reference.from);
    }
    return std::nullopt;
}

std::string Items::refusalToWrite(ItemLocation const& location, TopLevel const& topLevel) const {
    if (!isPacket(location))
        return std::string("its item is not plain ") + XMP_CONTENT_TYPE;
    if (!location.isExact)
        return "its item is not located in this file by a 32-bit offset";
    uint64_t const start = startOf(location);
    auto const holds = [&](uint64_t begin, uint64_t size) {
        return start >= begin && rangeFits(start - begin, location.length, size);
    };
    auto const inMedia = [&](auto const& box) {
        return box.type == boxType("mdat") && holds(box.content(), box.size - box.headerSize);
    };
    bool const inBoxes = std::any_of(topLevel.boxes.begin(), topLevel.boxes.end(), inMedia);
    if (!inBoxes && !(itemData && holds(itemData->first, itemData->second)))
        return "its bytes lie neither in 'mdat' nor in 'idat'";
    auto const shares = [&](ItemLocation const& other) {
        bool const isItself = other.id == location.id && startOf(other) == start && other.length == location.length;
        return !isItself && startOf(other) < start + location.length && start < startOf(other) + other.length;
    };
    return std::any_of(locations.begin(), locations.end(), shares) ? "its bytes belong to another item as well" : "";
}

} // namespace android::lumo::heif
