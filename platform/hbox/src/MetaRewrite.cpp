// SPDX-License-Identifier: Apache-2.0
#include "MetaRewrite.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Failure.h"
#include "boxes/BoxWriter.h"

namespace hbox {

using android::lumo::FullBoxHeader;
using android::lumo::putBigEndian;
using android::lumo::readFullBoxHeader;

// --- 'iinf' ----------------------------------------------------------------------------------------------------------

namespace {

FullBoxHeader headerOf(BoxView const& box) {
    BoxCursor cursor = box.payload();
    return readFullBoxHeader(cursor);
}

/// | width  | name                                       |
/// |--------|--------------------------------------------|
/// | 12     | full box header 'infe', version 2 or 3     |
/// | 2 or 4 | item_ID                                    |
/// | 2      | item_protection_index = 0                  |
/// | 4      | item_type = 'mime'                         |
/// | 1      | item_name = ""                             |
/// | 20     | content_type = "application/rdf+xml"       |
void writeXmpItemInfo(BoxWriter& writer, uint32_t id) {
    static constexpr char CONTENT_TYPE[] = "application/rdf+xml"; // with its zero
    bool const wide = id > UINT16_MAX;
    size_t const infe = writer.beginFullBox(boxType("infe"), {static_cast<uint8_t>(wide ? 3 : 2), 0});
    writer.number(id, wide ? 4 : 2);
    writer.number(0, 2);
    writer.number(boxType("mime"), 4);
    writer.number(0, 1);
    writer.append({reinterpret_cast<uint8_t const*>(CONTENT_TYPE), sizeof CONTENT_TYPE});
    writer.endBox(infe);
}

} // namespace

std::vector<uint8_t> rewriteItemInfos(BoxView const& iinf, XmpTarget const& target) {
    ItemInfoReader reader(iinf);
    unsigned const countWidth = reader.version() == 0 ? 2 : 4;
    uint32_t const largest = reader.version() == 0 ? UINT16_MAX : UINT32_MAX;
    if (reader.count() == largest)
        throw failure(HBOX_ERR_UNSUPPORTED, "'iinf': no room for one more item");
    BoxCursor entries = reader.rest();
    reader.skipAll(); // whoever chose the target has read them
    BoxWriter writer;
    size_t const box = writer.beginFullBox(boxType("iinf"), headerOf(iinf));
    writer.number(reader.count() + 1, countWidth);
    writer.append(entries.take(reader.rest().offset() - entries.offset()));
    writeXmpItemInfo(writer, target.id);
    writer.append(entries.take(entries.left()));
    writer.endBox(box);
    return writer.finish();
}

// --- 'iref' ----------------------------------------------------------------------------------------------------------

namespace {

void writePrimaryFirst(BoxWriter& writer, Reference reference, uint32_t primary) {
    size_t const box = writer.beginBox(reference.type);
    writer.number(reference.from, reference.idWidth);
    writer.number(reference.count, 2);
    writer.number(primary, reference.idWidth);
    bool moved = false;
    for (unsigned i = 0; i < reference.count; ++i) {
        uint32_t const id = reference.nextId();
        if (id == primary && !moved)
            moved = true;
        else
            writer.number(id, reference.idWidth);
    }
    writer.endBox(box);
}

/// | width  | name                          |
/// |--------|-------------------------------|
/// | 8      | box header 'cdsc'             |
/// | 2 or 4 | from_item_ID: the XMP item    |
/// | 2      | reference_count = 1           |
/// | 2 or 4 | to_item_ID: the primary image |
void writeDescribes(BoxWriter& writer, XmpTarget const& target, unsigned idWidth) {
    size_t const cdsc = writer.beginBox(boxType("cdsc"));
    writer.number(target.id, idWidth);
    writer.number(1, 2);
    writer.number(target.primary, idWidth);
    writer.endBox(cdsc);
}

} // namespace

std::vector<uint8_t> rewriteReferences(std::optional<BoxView> const& iref, XmpTarget const& target) {
    bool const needsWide = std::max(target.id, target.primary) > UINT16_MAX;
    FullBoxHeader const header = iref ? headerOf(*iref) : FullBoxHeader{static_cast<uint8_t>(needsWide ? 1 : 0), 0};
    if (needsWide && header.version == 0)
        throw failure(HBOX_ERR_FORMAT, "'iref': 16-bit ids cannot name the primary item %u",
                      static_cast<unsigned>(target.primary));
    BoxWriter writer;
    size_t const box = writer.beginFullBox(boxType("iref"), header);
    if (iref) {
        ReferenceReader reader(*iref);
        while (auto const reference = reader.next()) {
            if (target.exists && reference->type == boxType("cdsc") && reference->from == target.id &&
                reference->refersTo(target.primary))
                writePrimaryFirst(writer, *reference, target.primary);
            else
                writer.append(reference->box.bytes);
        }
    }
    if (!target.exists)
        writeDescribes(writer, target, header.version == 0 ? 2 : 4);
    writer.endBox(box);
    return writer.finish();
}

// --- 'iloc' ----------------------------------------------------------------------------------------------------------

namespace {

constexpr size_t LONGEST_LOCATION = 18;

/// Writes one entry in the widths that every rewritten 'iloc' has and returns where its extent_offset stands.
///
/// | width  | name                                              |
/// |--------|---------------------------------------------------|
/// | 2 or 4 | item_ID                                           |
/// | 2      | reserved and construction_method (not version 0)  |
/// | 2      | data_reference_index = 0                          |
/// | 2      | extent_count: 0 or 1                              |
/// | 4      | extent_offset                                     |
/// | 4      | extent_length                                     |
size_t writeLocation(BoxWriter& writer, uint8_t version, ItemLocation const& location, uint64_t length) {
    std::array<uint8_t, LONGEST_LOCATION> entry;
    size_t end = 0;
    auto const add = [&](uint64_t value, size_t width) {
        putBigEndian(value, {entry.data() + end, width});
        end += width;
    };
    add(location.id, version == 2 ? 4 : 2);
    if (version > 0)
        add(location.construction, 2);
    add(0, 2);
    add(location.extentCount, 2);
    size_t const offsetAt = writer.size() + end;
    if (location.extentCount > 0) {
        add(0, 4);
        add(length, 4);
    }
    writer.append(std::span(entry).first(end));
    return offsetAt;
}

/// Throws for a location that cannot be written again as it is.
void requireSimple(ItemLocation const& location) {
    auto const id = static_cast<unsigned>(location.id);
    if (location.extentCount > 1)
        throw failure(HBOX_ERR_UNSUPPORTED, "item %u: %u extents", id, static_cast<unsigned>(location.extentCount));
    if (location.method() > 1)
        throw failure(HBOX_ERR_UNSUPPORTED, "item %u: construction method %u", id, location.method());
    if (location.dataReference != 0)
        throw failure(HBOX_ERR_UNSUPPORTED, "item %u: data reference %u", id,
                      static_cast<unsigned>(location.dataReference));
}

void requireDistinct(std::vector<uint32_t> ids) {
    if (!std::is_sorted(ids.begin(), ids.end())) // writers number their items in order
        std::sort(ids.begin(), ids.end());
    auto const twice = std::adjacent_find(ids.begin(), ids.end());
    if (twice != ids.end())
        throw failure(HBOX_ERR_FORMAT, "'iloc': item %u has two locations", static_cast<unsigned>(*twice));
}

ItemLocation xmpLocation(XmpTarget const& target) {
    ItemLocation location;
    location.id = target.id;
    location.extentCount = 1;
    return location;
}

} // namespace

NewLocations rewriteLocations(BoxView const& iloc, XmpTarget const& target) {
    LocationReader reader(iloc);
    uint8_t const version = reader.version();
    uint32_t const count = reader.count();
    NewLocations result;
    std::vector<uint32_t> ids;
    ids.reserve(count);
    result.entries.reserve(count);
    BoxWriter writer;
    writer.reserve((size_t{count} + 2) * LONGEST_LOCATION);
    size_t const box = writer.beginFullBox(boxType("iloc"), headerOf(iloc));
    writer.number(0x44, 1); // offset_size = 4, length_size = 4
    writer.number(0x00, 1); // base_offset_size = 0, index_size = 0
    size_t const countAt = writer.size();
    writer.number(0, version == 2 ? 4 : 2);
    bool placed = false;
    auto const writeXmp = [&] { result.xmpAt = writeLocation(writer, version, xmpLocation(target), 0); };
    while (auto location = reader.next()) {
        requireSimple(*location);
        ids.push_back(location->id);
        if (location->id == target.id) {
            placed = true;
            writeXmp();
            continue;
        }
        FileRange const extent = location->extentCount == 1 ? location->nextExtent() : FileRange{};
        size_t const at = writeLocation(writer, version, *location, extent.length);
        if (location->extentCount == 1)
            result.entries.push_back({at, location->id, location->method(), extent});
    }
    requireDistinct(std::move(ids));
    if (!placed && count == (version == 2 ? UINT32_MAX : UINT16_MAX))
        throw failure(HBOX_ERR_UNSUPPORTED, "'iloc': no room for one more item");
    if (!placed)
        writeXmp();
    writer.endBox(box);
    result.box = writer.finish();
    putBigEndian(count + (placed ? 0 : 1), std::span(result.box).subspan(countAt, version == 2 ? 4 : 2));
    return result;
}

void NewLocations::putOffset(size_t at, uint32_t offset) {
    putBigEndian(offset, std::span(box).subspan(at, 4));
}

void NewLocations::putRoom(FileRange room) {
    putBigEndian(room.position, std::span(box).subspan(xmpAt, 4));
    putBigEndian(room.length, std::span(box).subspan(xmpAt + 4, 4));
}

} // namespace hbox
