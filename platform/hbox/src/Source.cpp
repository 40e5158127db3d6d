// SPDX-License-Identifier: Apache-2.0
#include "Source.h"

#include <algorithm>
#include <array>

#include "Failure.h"

namespace hbox {

using android::lumo::BoxFault;
using android::lumo::BoxHeader;
using android::lumo::boxTypeText;
using android::lumo::rangeFits;

void requireSoundHeader(BoxFault fault, BoxHeader const& header, uint64_t position) {
    auto const at = static_cast<unsigned long long>(position);
    if (fault == BoxFault::Truncated)
        throw failure(HBOX_ERR_FORMAT, "no box header at %llu", at);
    if (fault != BoxFault::None)
        throw failure(HBOX_ERR_FORMAT, "box '%s' at %llu: invalid size %llu", boxTypeText(header.type).c_str(), at,
                      static_cast<unsigned long long>(header.size));
}

BoxHeader readTopLevelHeader(Stream const& stream, uint64_t position, uint64_t end) {
    std::array<uint8_t, 16> bytes{};
    size_t const available = static_cast<size_t>(std::min<uint64_t>(bytes.size(), end - position));
    stream.read(position, std::span(bytes).first(available));
    BoxHeader header;
    BoxFault const fault = decodeBoxHeader(std::span(bytes).first(available), end - position, header);
    requireSoundHeader(fault, header, position);
    return header;
}

Source::Source(HBOX_STREAM_CALLBACKS const& callbacks, void* descriptor) : file(callbacks, descriptor) {
    uint64_t position = 0;
    while (position < file.size()) {
        BoxHeader const header = readTopLevelHeader(file, position, file.size());
        if (header.type == boxType("meta")) {
            metaBytes = file.read(position, header.size);
            metaBox = {header, position, metaBytes};
            return;
        }
        position += header.size;
    }
    throw failure(HBOX_ERR_NOT_FOUND, "no 'meta' box");
}

BoxCursor Source::metaChildren() const {
    BoxCursor cursor = metaBox.payload();
    android::lumo::readFullBoxHeader(cursor);
    return cursor;
}

std::optional<BoxView> Source::findChild(BoxType type) const {
    BoxCursor cursor = metaChildren();
    while (cursor.left() >= 8) {
        BoxView const box = cursor.box();
        if (box.type() == type)
            return box;
    }
    return std::nullopt;
}

BoxView Source::child(BoxType type) const {
    auto const box = findChild(type);
    if (!box)
        throw failure(HBOX_ERR_NOT_FOUND, "no '%s' box", boxTypeText(type).c_str());
    return *box;
}

ItemInfo Source::item(uint32_t id) const {
    auto const& [infos, damage] = itemIndex();
    auto const found = std::lower_bound(infos.begin(), infos.end(), id,
                                        [](ItemInfo const& info, uint32_t wanted) { return info.id < wanted; });
    if (found != infos.end() && found->id == id)
        return *found;
    if (damage)
        throw *damage;
    throw failure(HBOX_ERR_NOT_FOUND, "no item %u", static_cast<unsigned>(id));
}

Source::ItemIndex const& Source::itemIndex() const {
    if (items)
        return *items;
    ItemInfoReader reader(child(boxType("iinf")));
    ItemIndex index;
    index.items.reserve(reader.count());
    try {
        while (auto const info = reader.next())
            index.items.push_back(*info);
    } catch (android::lumo::BoxError const& error) {
        index.damage = error;
    }
    auto const comesFirst = [](ItemInfo const& one, ItemInfo const& other) { return one.id < other.id; };
    if (!std::is_sorted(index.items.begin(), index.items.end(), comesFirst))
        std::stable_sort(index.items.begin(), index.items.end(), comesFirst); // of two with one id the first answers
    return items.emplace(std::move(index));
}

std::vector<ItemInfo> const& Source::allItems() const {
    auto const& [infos, damage] = itemIndex();
    if (damage)
        throw *damage;
    return infos;
}

namespace {

/// None also for an offset that has no meaning: who asks for the item hears of it.
std::optional<FileRange> simpleRange(ItemLocation& location) {
    bool const isSimple = location.method() == ItemLocation::IN_FILE && location.dataReference == 0 &&
                          location.extentCount == 1 && location.base <= UINT32_MAX && location.offsetWidth <= 4;
    return isSimple ? std::optional(location.nextExtent()) : std::nullopt;
}

} // namespace

Source::LocationIndex& Source::locationIndex() const {
    if (locations)
        return *locations;
    LocationIndex index{LocationReader(child(boxType("iloc"))), {}, 0, {}};
    try {
        LocationReader reader = index.reader;
        index.places.reserve(reader.count());
        uint32_t place = reader.place();
        while (auto* const location = reader.next()) {
            index.places.push_back({location->id, place, simpleRange(*location)});
            place = reader.place();
        }
    } catch (android::lumo::BoxError const& error) {
        if (index.places.empty())
            throw; // else the entries in front of the damage still answer
        index.damage = error;
    }
    if (!std::is_sorted(index.places.begin(), index.places.end()))
        std::sort(index.places.begin(), index.places.end());
    return locations.emplace(std::move(index));
}

/// Null where there is none.
Source::LocationIndex::Place const* Source::findPlace(uint32_t id) const {
    auto& index = locationIndex();
    auto const& places = index.places;
    size_t found = index.behindLast;
    bool const isNext = found < places.size() && places[found].id == id && (found == 0 || places[found - 1].id != id);
    if (!isNext) {
        auto const isBefore = [](auto const& place, uint32_t wanted) { return place.id < wanted; };
        auto const place = std::lower_bound(places.begin(), places.end(), id, isBefore);
        if (place == places.end() || place->id != id)
            return nullptr;
        found = static_cast<size_t>(place - places.begin());
    }
    index.behindLast = found + 1;
    return &places[found];
}

std::optional<ItemLocation> Source::findLocation(uint32_t id) const {
    auto const* place = findPlace(id);
    return place != nullptr ? std::optional(locationAt(*place)) : std::nullopt;
}

ItemLocation Source::locationAt(LocationIndex::Place const& place) const {
    LocationReader reader = locationIndex().reader;
    reader.skip(place.place);
    return *reader.next();
}

std::vector<uint32_t> Source::locatedIds() const {
    auto const& index = locationIndex();
    if (index.damage)
        throw *index.damage;
    std::vector<uint32_t> ids;
    ids.reserve(index.places.size());
    for (auto const& place : index.places) {
        if (ids.empty() || ids.back() != place.id)
            ids.push_back(place.id);
    }
    return ids;
}

FileRange Source::itemData() const {
    if (!idat) {
        BoxCursor const content = child(boxType("idat")).payload();
        idat = FileRange{content.offset(), content.left()};
    }
    return *idat;
}

std::vector<FileRange> const& Source::ranges(uint32_t id) const {
    if (lastRangesOf == id)
        return lastRanges;
    lastRangesOf.reset();
    lastRanges.clear();
    auto const* place = findPlace(id);
    if (place != nullptr && place->simple && rangeFits(place->simple->position, place->simple->length, file.size())) {
        lastRanges.push_back(*place->simple);
        lastRangesOf = id;
        return lastRanges;
    }
    auto const name = static_cast<unsigned>(id);
    auto location = place != nullptr ? std::optional(locationAt(*place)) : std::nullopt;
    if (!location)
        throw failure(HBOX_ERR_NOT_FOUND, "item %u has no location", name);
    if (location->dataReference != 0 || location->method() > 1)
        throw failure(HBOX_ERR_UNSUPPORTED, "item %u: construction method %u, data reference %u", name,
                      location->method(), static_cast<unsigned>(location->dataReference));
    FileRange const container =
        location->method() == ItemLocation::IN_ITEM_DATA ? itemData() : FileRange{0, file.size()};
    uint64_t total = 0;
    for (unsigned i = 0; i < location->extentCount; ++i) {
        FileRange const extent = location->nextExtent();
        if (!rangeFits(extent.position, extent.length, container.length))
            throw failure(HBOX_ERR_FORMAT, "item %u: extent of %llu bytes at %llu, %llu bytes exist", name,
                          static_cast<unsigned long long>(extent.length),
                          static_cast<unsigned long long>(extent.position),
                          static_cast<unsigned long long>(container.length));
        total += extent.length; // at most 65535 lengths of 32 bits: no overflow
        if (total > file.size())
            throw failure(HBOX_ERR_FORMAT, "item %u: extents overlap", name);
        if (extent.length > 0 || i == 0)
            lastRanges.push_back({container.position + extent.position, extent.length});
    }
    lastRangesOf = id;
    return lastRanges;
}

std::vector<uint32_t> const& Source::referencesFrom(uint32_t id, BoxType type) const {
    std::pair const wanted(id, type);
    if (lastReferencesOf == wanted)
        return lastReferences;
    lastReferencesOf.reset();
    lastReferences.clear();
    if (auto const iref = findChild(boxType("iref"))) {
        ReferenceReader reader(*iref);
        while (auto reference = reader.next()) {
            if (reference->type != type || reference->from != id)
                continue;
            lastReferences.reserve(lastReferences.size() + reference->count);
            BoxCursor stored = reference->ids;
            for (unsigned i = 0; i < reference->count; ++i)
                lastReferences.push_back(static_cast<uint32_t>(stored.number(reference->idWidth)));
        }
    }
    lastReferencesOf = wanted;
    return lastReferences;
}

std::optional<BoxView> Source::property(uint32_t id, BoxType type) const {
    auto const iprp = findChild(boxType("iprp"));
    return iprp ? findProperty(*iprp, id, type) : std::nullopt;
}

PixelSize Source::pixelSize(uint32_t id) const {
    auto const ispe = property(id, boxType("ispe"));
    return ispe ? readImageSpatialExtents(*ispe) : PixelSize{};
}

HBOXD_IMAGE_INFO Source::imageInfo(uint32_t id) const {
    if (lastImage && lastImage->id == id)
        return *lastImage;
    HBOXD_IMAGE_INFO info{};
    info.id = id;
    info.type = item(id).type;
    info.is_grid = info.type == boxType("grid");
    auto const size = pixelSize(id);
    info.width = size.width;
    info.height = size.height;
    if (auto const irot = property(id, boxType("irot")))
        info.rotation = static_cast<HEIF_CCW_ROTATION>(readRotation(*irot));
    if (info.is_grid)
        info.tile_count = static_cast<uint32_t>(referencesFrom(id, boxType("dimg")).size());
    lastImage = info;
    return info;
}

HBOXM_GRID_INFO Source::gridInfo(uint32_t id) const {
    if (lastGrid && lastGrid->first == id)
        return lastGrid->second;
    if (item(id).type != boxType("grid"))
        throw failure(HBOX_ERR_NOT_FOUND, "item %u is no grid", static_cast<unsigned>(id));
    auto const& stored = ranges(id);
    uint64_t const position = stored.empty() ? 0 : stored.front().position;
    uint64_t const length = stored.empty() ? 0 : stored.front().length;
    GridFields const fields = readGrid(file.read(position, std::min<uint64_t>(length, 12)), position);
    auto const& tiles = referencesFrom(id, boxType("dimg"));
    if (tiles.empty())
        throw failure(HBOX_ERR_FORMAT, "grid %u has no tiles", static_cast<unsigned>(id));
    auto const tile = pixelSize(tiles.front());
    HBOXM_GRID_INFO const grid{fields.rows, fields.columns, fields.width, fields.height, tile.width, tile.height};
    lastGrid.emplace(id, grid);
    return grid;
}

BoxView Source::decoderConfiguration(uint32_t id) const {
    uint32_t coded = id;
    if (item(id).type == boxType("grid")) {
        auto const& tiles = referencesFrom(id, boxType("dimg"));
        coded = tiles.empty() ? id : tiles.front();
    }
    auto const hvcC = property(coded, boxType("hvcC"));
    if (!hvcC)
        throw failure(HBOX_ERR_NOT_FOUND, "item %u has no HEVC configuration", static_cast<unsigned>(id));
    return *hvcC;
}

} // namespace hbox
