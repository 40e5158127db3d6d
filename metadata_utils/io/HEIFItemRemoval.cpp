// SPDX-License-Identifier: Apache-2.0
#include "HEIFItemRemoval.h"

#include "CheckedFile.h"
#include "Log.h"
#include "MoveRest.h"
#include "boxes/PropertyBoxes.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace android::lumo::heif {

namespace {

constexpr char LOG_TAG[] = "HEIFItemRemoval";
constexpr unsigned SIZE_BYTES = 4;  ///< of a box
constexpr unsigned COUNT_BYTES = 2; ///< of an item's extents, which follow its base offset

FileRange rangeOf(BoxView const& box) {
    return {box.position, box.bytes.size()};
}

uint64_t endOf(FileRange range) {
    return range.position + range.length;
}

bool holds(FileRange outer, FileRange inner) {
    return inner.position >= outer.position && rangeFits(inner.position - outer.position, inner.length, outer.length);
}

/// Boxes whose content names places in the file.
bool countsBytes(BoxType type) {
    constexpr BoxType TYPES[] = {boxType("moov"), boxType("moof"), boxType("meco"), boxType("sidx"), boxType("mfra")};
    return std::find(std::begin(TYPES), std::end(TYPES), type) != std::end(TYPES);
}

void writeNumber(MediaFile& file, uint64_t position, unsigned width, uint64_t value) {
    checked::seek(file, static_cast<uint32_t>(position));
    checked::write(file, bigEndianBytes(value, width));
}

} // namespace

std::optional<ItemRemoval> ItemRemoval::ofXMP(std::shared_ptr<MediaFile> const& file, FileRange bytes) {
    try {
        ItemRemoval removal(file, bytes);
        return removal.plan() ? std::optional(std::move(removal)) : std::nullopt;
    } catch (BoxError const& error) {
        LOGW("the item stays: %s", error.what());
        return std::nullopt;
    }
}

bool ItemRemoval::plan() {
    if (!readMeta() || !findItem() || isTiedToOthers() || !planItemInfos() || !planReferences() || !planData() ||
        !planLocations())
        return false;
    planSizes();
    return true;
}

// What is there. ------------------------------------------------------------------------------------------------------

bool ItemRemoval::readMeta() {
    ByteWindow window(*file);
    auto const topLevel = scanWhole(window);
    TopLevelBox const* found = nullptr;
    for (auto const& box : topLevel.boxes) {
        bool const isMeta = box.type == boxType("meta");
        if (countsBytes(box.type) || (isMeta && (found != nullptr || box.toEnd)))
            return false;
        if (isMeta)
            found = &box;
        if (box.type == boxType("mdat") && holds({box.content(), box.size - box.headerSize}, data))
            media = box;
    }
    if (found == nullptr)
        return false;
    auto const bytes = window.at(found->position, found->size);
    metaBytes.assign(bytes.begin(), bytes.end());
    meta = BoxCursor(metaBytes, found->position, found->type).box();
    BoxCursor payload = meta.payload();
    readFullBoxHeader(payload);
    while (payload.left() > 0) {
        children.push_back(payload.box());
        if (children.back().header.toEnd)
            return false;
    }
    return true;
}

BoxView const* ItemRemoval::child(BoxType type) const {
    auto const found =
        std::find_if(children.begin(), children.end(), [&](auto const& box) { return box.type() == type; });
    return found == children.end() ? nullptr : &*found;
}

/// The one packet whose bytes these are.
bool ItemRemoval::findItem() {
    for (auto const type : {boxType("iinf"), boxType("iloc"), boxType("pitm"), boxType("iref")}) {
        auto const isIt = [&](auto const& box) { return box.type() == type; };
        if (std::count_if(children.begin(), children.end(), isIt) != 1)
            return false;
    }
    primary = boxes::readPrimaryId(*child(boxType("pitm")));
    auto const* idat = child(boxType("idat"));
    std::vector<uint32_t> found;
    boxes::LocationReader reader(*child(boxType("iloc")));
    while (auto location = reader.next()) {
        if (location->extentCount != 1 || location->dataReference != 0 ||
            location->method() > boxes::ItemLocation::IN_ITEM_DATA)
            continue;
        FileRange extent = location->nextExtent();
        extent.position +=
            location->method() == boxes::ItemLocation::IN_ITEM_DATA && idat != nullptr ? idat->payload().offset() : 0;
        if (extent.position == data.position && extent.length == data.length)
            found.push_back(location->id);
    }
    id = found.empty() ? 0 : found.front();
    return found.size() == 1 && id != primary;
}

/// By a property or a group: nothing but XMP's own boxes may name it.
bool ItemRemoval::isTiedToOthers() const {
    std::vector<uint32_t> ids;
    for (auto const& box : children) {
        if (box.type() == boxType("iprp"))
            boxes::appendPropertyOwners(box, ids);
        if (box.type() == boxType("grpl"))
            boxes::appendGroupIds(box, ids);
    }
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// What goes. ----------------------------------------------------------------------------------------------------------

bool ItemRemoval::planItemInfos() {
    auto const& iinf = *child(boxType("iinf"));
    boxes::ItemInfoReader reader(iinf);
    BoxCursor entries = reader.rest();
    unsigned const width = reader.version() == 0 ? 2 : 4;
    uint64_t const countAt = entries.offset() - width;
    size_t found = 0;
    while (auto const info = reader.next()) {
        BoxView entry = entries.box();
        while (entries.offset() < reader.rest().offset())
            entry = entries.box(); // behind one of another type
        if (info->id != id)
            continue;
        cuts.push_back(rangeOf(entry));
        found += info->isXmp() ? 1 : 2;
        if (found > 1)
            return false;
    }
    fields.push_back({countAt, width, reader.count() - uint64_t{1}});
    return found == 1;
}

bool ItemRemoval::planReferences() {
    auto const& iref = *child(boxType("iref"));
    boxes::ReferenceReader reader(iref);
    std::vector<FileRange> own;
    size_t others = 0;
    while (auto const reference = reader.next()) {
        if (reference->refersTo(id))
            return false;
        if (reference->from != id) {
            ++others;
            continue;
        }
        if (reference->type != boxType("cdsc") || !reference->refersTo(primary))
            return false;
        own.push_back(rangeOf(reference->box));
    }
    if (own.size() != 1)
        return false;
    if (others == 0)
        own = {rangeOf(iref)};
    cuts.insert(cuts.end(), own.begin(), own.end());
    return true;
}

/// The box goes where these are all it holds.
bool ItemRemoval::planData() {
    auto const* idat = child(boxType("idat"));
    FileRange box{media.position, media.size}, content{media.content(), media.size - media.headerSize};
    if (media.size == 0 && idat != nullptr) {
        box = rangeOf(*idat);
        content = {idat->payload().offset(), idat->payload().left()};
    }
    if (data.length == 0 || !holds(content, data))
        return false;
    cuts.push_back(content.length == data.length ? box : data);
    return true;
}

// What follows. -------------------------------------------------------------------------------------------------------

bool ItemRemoval::planLocations() {
    auto const& iloc = *child(boxType("iloc"));
    boxes::LocationReader heads(iloc);
    BoxCursor const first = heads.rest();
    unsigned const countWidth = heads.version() == 2 ? 4 : 2;
    fields.push_back({first.offset() - countWidth, countWidth, heads.count() - uint64_t{1}});

    // The item's own entry is cut first: where the others' bytes come to stand depends on it.
    std::vector<std::pair<boxes::ItemLocation, BoxCursor>> others;
    boxes::LocationReader reader(iloc);
    while (true) {
        BoxCursor entry = reader.rest();
        heads.nextHead();
        auto const location = reader.next();
        if (!location)
            break;
        uint64_t const extentsAt = heads.rest().offset();
        heads.rest().skip(reader.rest().offset() - extentsAt);
        if (location->id == id) {
            cuts.push_back({entry.offset(), reader.rest().offset() - entry.offset()});
            continue;
        }
        entry.skip(extentsAt - COUNT_BYTES - heads.baseWidth() - entry.offset());
        others.emplace_back(*location, entry);
    }
    return others.size() + 1 == heads.count() && std::all_of(others.begin(), others.end(), [&](auto const& each) {
               return planLocation(each.first, each.second, heads.baseWidth());
           });
}

/// Where bytes of other files are meant, or of other items, nothing moves.
bool ItemRemoval::planLocation(boxes::ItemLocation location, BoxCursor entry, unsigned baseWidth) {
    if (location.dataReference != 0 || location.method() > boxes::ItemLocation::IN_ITEM_DATA)
        return true;
    auto const* idat = child(boxType("idat"));
    bool const isInside = location.method() == boxes::ItemLocation::IN_ITEM_DATA;
    if (isInside && idat == nullptr)
        return location.extentCount == 0;
    uint64_t const origin = isInside ? idat->payload().offset() : 0;
    auto const moved = [&](uint64_t place) { return newPlace(origin + place) - newPlace(origin); };
    uint64_t const base = moved(location.base);
    if (baseWidth > 0)
        fields.push_back({entry.offset(), baseWidth, base});
    entry.skip(baseWidth + COUNT_BYTES);
    for (unsigned i = 0; i < location.extentCount; ++i) {
        FileRange const extent = location.nextExtent();
        if (extent.length == 0 || extent.position > UINT32_MAX || isCut({origin + extent.position, extent.length}))
            return false;
        entry.skip(location.indexWidth);
        if (location.offsetWidth > 0)
            fields.push_back({entry.offset(), location.offsetWidth, moved(extent.position) - base});
        else if (moved(extent.position) != base)
            return false;
        entry.skip(location.offsetWidth + location.lengthWidth);
    }
    return true;
}

/// Of every box that something was cut out of and that is not gone itself.
void ItemRemoval::planSizes() {
    auto const follow = [&](uint64_t position, uint32_t headerSize, uint64_t oldSize) {
        bool const isLarge = headerSize > 2 * SIZE_BYTES;
        uint64_t const size = newPlace(position + oldSize) - newPlace(position);
        if (size > 0 && size < oldSize)
            fields.push_back({position + (isLarge ? 2 * SIZE_BYTES : 0), isLarge ? 2 * SIZE_BYTES : SIZE_BYTES, size});
    };
    for (auto const& box : children)
        follow(box.position, box.header.headerSize, box.bytes.size());
    follow(meta.position, meta.header.headerSize, meta.bytes.size());
    if (!media.toEnd)
        follow(media.position, media.headerSize, media.size);
}

bool ItemRemoval::isCut(FileRange range) const {
    return std::any_of(cuts.begin(), cuts.end(), [&](FileRange const& each) {
        return range.position < endOf(each) && each.position < endOf(range);
    });
}

/// Of a byte that is cut the place of the first one behind it.
uint64_t ItemRemoval::newPlace(uint64_t position) const {
    uint64_t gone = 0;
    for (auto const& each : cuts)
        gone += each.position < position ? std::min(each.length, position - each.position) : 0;
    return position - gone;
}

// The file. -----------------------------------------------------------------------------------------------------------

std::vector<uint8_t> ItemRemoval::newMeta() const {
    std::vector<uint8_t> bytes = metaBytes;
    for (auto const& field : fields) {
        if (!holds(rangeOf(meta), {field.position, field.width}))
            continue;
        auto const at = static_cast<size_t>(field.position - meta.position);
        putBigEndian(field.value, std::span(bytes).subspan(at, field.width));
    }
    std::vector<FileRange> inside;
    std::copy_if(cuts.begin(), cuts.end(), std::back_inserter(inside),
                 [&](auto const& each) { return holds(rangeOf(meta), each); });
    std::sort(inside.begin(), inside.end(), [](auto const& a, auto const& b) { return a.position > b.position; });
    for (auto const& each : inside) {
        auto const from = bytes.begin() + static_cast<ptrdiff_t>(each.position - meta.position);
        bytes.erase(from, from + static_cast<ptrdiff_t>(each.length));
    }
    return bytes;
}

/// From the file's end on, so that the places in front are those that were planned with.
void ItemRemoval::carryOut() const {
    checked::requireEditable(*file);
    auto const bytes = newMeta();
    auto const metaEnd = static_cast<uint32_t>(endOf(rangeOf(meta)));
    auto const writeMeta = [&] {
        checked::seek(*file, static_cast<uint32_t>(meta.position));
        checked::write(*file, bytes.data(), bytes.size());
        moveRest(file, metaEnd, static_cast<int64_t>(bytes.size()) - static_cast<int64_t>(metaBytes.size()));
    };
    bool const isMediaBehind = media.position > meta.position;
    if (media.size > 0 && !isMediaBehind)
        writeMeta();
    for (auto const& field : fields) {
        if (!holds(rangeOf(meta), {field.position, field.width}))
            writeNumber(*file, field.position, field.width, field.value);
    }
    for (auto const& each : cuts) {
        if (!holds(rangeOf(meta), each))
            moveRest(file, static_cast<uint32_t>(endOf(each)), -static_cast<int64_t>(each.length));
    }
    if (media.size == 0 || isMediaBehind)
        writeMeta();
}

} // namespace android::lumo::heif
