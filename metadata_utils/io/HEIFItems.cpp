// SPDX-License-Identifier: Apache-2.0
#include "HEIFItems.h"

#include "ErrorAt.h"
#include "Log.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace android::lumo::heif {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaReader";
constexpr uint32_t FULL_BOX_FIELDS = 4; ///< version and flags
constexpr char XMP_CONTENT_TYPE[] = "application/rdf+xml";

uint64_t startOf(HEIFMetaReader::ItemLocation const& location) {
    return uint64_t{location.base} + location.offset;
}

constexpr unsigned INDEX_BYTES = 4;
constexpr size_t LOCATION_FIELDS = FULL_BOX_FIELDS + 2; ///< up to the widths of the others

[[noreturn, gnu::noinline, gnu::cold]] void refuseWidth() {
    throw readerError().as(Error::Code::DAMAGED)("iloc invalid size field");
}

/// A field of 0, 4 or 8 bytes, of which the low 32 bits are kept; `fits` tells whether the rest was zero.
inline uint32_t lowBits(uint64_t value, unsigned width, bool& fits) {
    if (!boxes::LocationReader::isRegular(width))
        refuseWidth();
    fits = fits && value <= UINT32_MAX;
    return static_cast<uint32_t>(value);
}

template<class Fields>
void readExtentFields(Fields& fields, boxes::ItemLocation const& head, unsigned indexWidth,
                      HEIFMetaReader::ItemLocation& location) {
    fields.skip(indexWidth);
    location.offset = lowBits(fields.number(head.offsetWidth), head.offsetWidth, location.isExact);
    location.length = lowBits(fields.number(head.lengthWidth), head.lengthWidth, location.isExact);
}

/// The one extent of an entry whose head was read last: an index of `indexWidth` bytes, offset and length.
inline HEIFMetaReader::ItemLocation readExtent(boxes::LocationReader& reader, boxes::ItemLocation const& head,
                                               unsigned indexWidth) {
    HEIFMetaReader::ItemLocation location;
    location.id = head.id;
    location.isExact = head.dataReference == 0 && head.indexWidth == indexWidth; // else it is read off its place
    location.base = lowBits(head.base, reader.baseWidth(), location.isExact);
    if (head.extentCount != 1)
        throw readerError().as(Error::Code::UNSUPPORTED)("multi extent not supported");
    unsigned const width = indexWidth + head.offsetWidth + head.lengthWidth;
    if (reader.rest().left() >= width) {
        TestedFields fields(reader.rest().take(width));
        readExtentFields(fields, head, indexWidth, location);
    } else {
        readExtentFields(reader.rest(), head, indexWidth, location); // throws at the field that is cut off
    }
    return location;
}

} // namespace

void Items::parse(ByteWindow& window, TopLevelBox const& meta, Locations wanted) {
    wantedLocations = wanted;
    fileSize = window.size();
    LOGI("meta box found: start=%ld, end=%ld", static_cast<long>(meta.content()), static_cast<long>(meta.end()));
    visitMetaChildren(window, meta, [&](BoxType type, uint32_t position, uint32_t size) {
        parseChild(window, type, position, size);
    });
    settleItemDataLocations();
}

void Items::parseChild(ByteWindow& window, BoxType type, uint32_t position, uint32_t size) {
    struct Parser {
        BoxType type;
        void (Items::*parse)(BoxView const& box);
    };
    static constexpr Parser PARSERS[] = {
        {boxType("iinf"), &Items::parseIINFBox},
        {boxType("iloc"), &Items::parseILOCBox},
        {boxType("iref"), &Items::parseIREFBox},
        {boxType("pitm"), &Items::parsePITMBox},
    };
    if (type == boxType("idat") && !itemData)
        itemData.emplace(position + BOX_HEADER_SIZE, size - BOX_HEADER_SIZE);
    for (auto const& [parsedType, parseBox] : PARSERS) {
        if (type != parsedType)
            continue;
        BoxCursor cursor(window.at(position, size), position, boxType("meta"));
        (this->*parseBox)(cursor.box());
    }
}

void Items::parseIINFBox(BoxView const& iinf) {
    boxes::ItemInfoReader reader(iinf);
    LOGI("entry count = %d", static_cast<int>(reader.count()));
    while (auto const item = reader.next()) {
        int const id = static_cast<int>(item->id);
        if (item->type == boxType("Exif"))
            exifIds.push_back(id);
        if (item->type == boxType("mime"))
            mimeIds.push_back(id);
        if (item->isXmp() && item->contentEncoding.empty() && item->protectionIndex == 0)
            packetIds.insert(id);
    }
}

void Items::passOver(boxes::LocationReader& reader, boxes::ItemLocation location) {
    uint32_t const width = location.indexWidth + location.offsetWidth + location.lengthWidth;
    location.extents = reader.rest().range(size_t{width} * location.extentCount);
    dividedIds.insert(location.id);
    for (unsigned i = 0; location.method() == boxes::ItemLocation::IN_FILE && width > 0 && i < location.extentCount;
         ++i)
        pieces.push_back(location.nextExtent());
}

void Items::parseILOCBox(BoxView const& iloc) {
    if (iloc.payload().left() < LOCATION_FIELDS)
        throw readerError().as(Error::Code::DAMAGED)("iloc read error");
    boxes::LocationReader reader(iloc, boxes::LocationReader::Widths::Any);
    locations.reserve(locations.size() + reader.count());
    while (auto const head = reader.nextHead()) {
        if (head->extentCount != 1 && wantedLocations == Locations::ALL) {
            passOver(reader, *head);
            continue;
        }
        unsigned indexWidth = head->indexWidth;
        if (indexWidth != 0 && wantedLocations == Locations::SIMPLE)
            indexWidth = INDEX_BYTES; // no writer uses another
        isIndexMisread |= indexWidth != head->indexWidth;
        ItemLocation const location = readExtent(reader, *head, indexWidth);
        if (head->method() == boxes::ItemLocation::IN_FILE)
            locations.push_back(location);
        else if (head->method() == boxes::ItemLocation::IN_ITEM_DATA)
            inItemData.push_back(location);
    }
}

/// Unlike the other reader of references this one ends at a size below 8, and keeps the first to-item apart: it alone
/// is what the item describes for all but an edit.
///
/// | offset | width  | name (big-endian)                                                               |
/// |--------|--------|---------------------------------------------------------------------------------|
/// | 0      | 1 + 3  | version, flags                                                                  |
/// | then   | ...    | references, boxes of the reference's type:                                      |
/// | 8      | 2 or 4 | from-item id (2 bytes in version 0 of 'iref')                                   |
/// | then   | 2      | number of to-items, 1 or more                                                   |
/// | then   | ...    | to-item ids of the same width                                                   |
void Items::parseIREFBox(BoxView const& iref) {
    BoxCursor payload = iref.payload();
    unsigned const idSize = readFullBoxHeader(payload).version == 0 ? 2 : 4;
    while (payload.left() >= BOX_HEADER_SIZE) {
        uint32_t const size = payload.u32();
        BoxType const type = payload.u32();
        if (size < BOX_HEADER_SIZE)
            return;
        BoxCursor reference = payload.range(size - BOX_HEADER_SIZE);
        if (type != boxType("cdsc") || reference.left() < 2 * idSize + 2)
            continue;
        int const from = static_cast<int>(reference.number(idSize));
        unsigned const count = reference.u16();
        if (count != 0)
            references.push_back({from, {static_cast<int>(reference.number(idSize))}});
        for (unsigned i = 1; i < count && reference.left() >= idSize; ++i)
            furtherReferences.emplace_back(from, static_cast<int>(reference.number(idSize)));
    }
}

void Items::parsePITMBox(BoxView const& pitm) {
    primaryId = boxes::readPrimaryId(pitm);
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
    return firstInFile(describingFirst(ids));
}

std::optional<Items::ItemLocation> Items::findXMP() const {
    std::vector<int> candidates = describingFirst(mimeIds);
    for (auto const& [from, to] : furtherReferences) {
        if (primaryId && static_cast<uint32_t>(to) == *primaryId && packetIds.contains(from))
            candidates.push_back(from);
    }
    return firstInFile(candidates);
}

std::vector<int> Items::describingFirst(std::vector<int> const& ids) const {
    std::vector<int> describing;
    // Ordered: a file can choose its ids so that hashes collide. Files have them in order as a rule.
    std::set<int> const wanted(ids.begin(), ids.end());
    for (auto const& reference : references) {
        if (primaryId && static_cast<uint32_t>(reference.to.front()) == *primaryId && wanted.contains(reference.from))
            describing.push_back(reference.from);
    }
    return describing;
}

std::optional<Items::ItemLocation> Items::firstInFile(std::vector<int> const& candidates) const {
    if (candidates.empty())
        return std::nullopt;
    // Of two with one id the first counts. The candidates are one or two as a rule, and the items thousands.
    std::map<uint32_t, ItemLocation const*> places;
    for (int const id : candidates)
        places.emplace(id, nullptr);
    uint32_t const lowest = places.begin()->first, highest = places.rbegin()->first;
    for (auto const& location : locations) {
        if (location.id < lowest || location.id > highest)
            continue;
        if (auto const place = places.find(location.id); place != places.end() && place->second == nullptr)
            place->second = &location;
    }
    for (int const id : candidates) {
        if (dividedIds.contains(static_cast<uint32_t>(id)))
            throw readerError().as(Error::Code::UNSUPPORTED)("item %d stands in several pieces", id);
        auto const* place = places[static_cast<uint32_t>(id)];
        if (place == nullptr)
            continue;
        if (rangeFits(startOf(*place), place->length, fileSize))
            return *place;
        LOGW("item %d lies outside the file", id);
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
    auto const overlaps = [&](FileRange const& piece) {
        if (piece.position >= start)
            return piece.position < start + location.length;
        return piece.length == 0 || piece.length > start - piece.position; // without a length: to the end
    };
    bool const isShared =
        std::any_of(locations.begin(), locations.end(), shares) || std::any_of(pieces.begin(), pieces.end(), overlaps);
    return isShared ? "its bytes belong to another item as well" : "";
}

uint32_t requireRoomIsFound(std::span<uint8_t const> image, uint32_t offset, uint32_t size) {
    ByteWindow window(image);
    TopLevel const topLevel = scanWhole(window);
    auto const* meta = topLevel.find(boxType("meta"));
    Items items;
    try {
        if (meta != nullptr)
            items.parse(window, *meta);
    } catch (BoxError const& error) {
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("room for XMP would not be found in the image: %s",
                                                     error.reason());
    }
    auto const place = items.findDescribing(items.mimeIds);
    if (!place || place->base + place->offset != offset || place->length < size)
        throw ErrorAt().as(Error::Code::UNSUPPORTED)(
            "room for XMP would not be found in the image: another item comes first");
    if (std::string const refusal = items.refusalToWrite(*place, topLevel); !refusal.empty())
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("room for XMP could not be used: %s", refusal.c_str());
    return place->length;
}

} // namespace android::lumo::heif
