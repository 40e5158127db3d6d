#include "ItemBoxes.h"

#include "Failure.h"

namespace hbox {

using android::lumo::readFullBoxHeader;

// --- 'iinf' and 'infe'
// -------------------------------------------------------------------------------------------------

namespace {

constexpr unsigned SMALLEST_INFE = 12; // box header and full box header

ItemInfo readItemInfo(Box const& box) {
    BoxCursor cursor = box.payload();
    ItemInfo info;
    info.version = readFullBoxHeader(cursor).version;
    if (info.version > 3)
        throw failure(HBOX_ERR_UNSUPPORTED, "'infe' at %llu: version %u", static_cast<unsigned long long>(box.position),
                      static_cast<unsigned>(info.version));
    info.id = static_cast<uint32_t>(cursor.number(info.version == 3 ? 4 : 2)); // unsigned int(16 or 32) item_ID;
    info.protectionIndex = cursor.u16(); // unsigned int(16) item_protection_index;
    if (info.version < 2)
        return info;
    info.type = cursor.u32(); // unsigned int(32) item_type;
    cursor.text();            // utf8string item_name;
    if (info.type == boxType("mime")) {
        info.contentType = cursor.text();     // utf8string content_type;
        info.contentEncoding = cursor.text(); // utf8string content_encoding; // optional
    }
    return info;
}

} // namespace

ItemInfoReader::ItemInfoReader(Box const& iinf) : cursor(iinf.payload()) {
    boxVersion = readFullBoxHeader(cursor).version;
    entryCount = static_cast<uint32_t>(cursor.number(boxVersion == 0 ? 2 : 4)); // unsigned int(16 or 32) entry_count;
    cursor.requireEntries(entryCount, SMALLEST_INFE);
    entriesLeft = entryCount;
}

std::optional<ItemInfo> ItemInfoReader::next() {
    while (entriesLeft > 0) {
        --entriesLeft;
        Box const box = cursor.box();
        if (box.type() == boxType("infe"))
            return readItemInfo(box);
    }
    return std::nullopt;
}

// --- 'iloc'
// ------------------------------------------------------------------------------------------------------------

LocationReader::LocationReader(Box const& iloc) : cursor(iloc.payload()) {
    boxVersion = readFullBoxHeader(cursor).version;
    if (boxVersion > 2)
        throw failure(HBOX_ERR_UNSUPPORTED, "'iloc': version %u", static_cast<unsigned>(boxVersion));
    uint8_t const offsetAndLength = cursor.u8(); // unsigned int(4) offset_size; unsigned int(4) length_size;
    uint8_t const baseAndIndex = cursor.u8();    // unsigned int(4) base_offset_size; unsigned int(4) index_size;
    widths.offsetWidth = offsetAndLength >> 4;
    widths.lengthWidth = offsetAndLength & 0xF;
    baseWidth = baseAndIndex >> 4;
    widths.indexWidth = boxVersion == 0 ? 0 : baseAndIndex & 0xF;
    for (unsigned const width : {widths.offsetWidth, widths.lengthWidth, baseWidth, widths.indexWidth}) {
        if (width != 0 && width != 4 && width != 8)
            throw failure(HBOX_ERR_UNSUPPORTED, "'iloc': field of %u bytes, 0, 4 or 8 expected", width);
    }
    unsigned const idWidth = boxVersion == 2 ? 4 : 2;
    itemCount = static_cast<uint32_t>(cursor.number(idWidth)); // unsigned int(16 or 32) item_count;
    cursor.requireEntries(itemCount, idWidth + (boxVersion == 0 ? 0U : 2U) + 2 + baseWidth + 2);
    itemsLeft = itemCount;
    firstEntry = cursor.offset();
}

std::optional<ItemLocation> LocationReader::next() {
    if (itemsLeft == 0)
        return std::nullopt;
    --itemsLeft;
    ItemLocation location = widths;
    location.id = static_cast<uint32_t>(cursor.number(boxVersion == 2 ? 4 : 2)); // unsigned int(16 or 32) item_ID;
    if (boxVersion > 0)
        location.construction = cursor.u16(); // unsigned int(12) reserved; unsigned int(4) construction_method;
    location.dataReference = cursor.u16();    // unsigned int(16) data_reference_index;
    location.base = cursor.number(baseWidth); // unsigned int(base_offset_size*8) base_offset;
    location.extentCount = cursor.u16();      // unsigned int(16) extent_count;
    uint64_t const extentWidth = location.indexWidth + location.offsetWidth + location.lengthWidth;
    location.extents = cursor.range(extentWidth * location.extentCount);
    return location;
}

Extent ItemLocation::nextExtent() {
    extents.skip(indexWidth);                            // unsigned int(index_size*8) item_reference_index;
    uint64_t const offset = extents.number(offsetWidth); // unsigned int(offset_size*8) extent_offset;
    uint64_t const length = extents.number(lengthWidth); // unsigned int(length_size*8) extent_length;
    if (offset > UINT64_MAX - base)
        throw failure(HBOX_ERR_FORMAT, "'iloc': item %u: offset beyond 64 bits", static_cast<unsigned>(id));
    return {base + offset, length};
}

// --- 'iref' and 'pitm'
// -------------------------------------------------------------------------------------------------

ReferenceReader::ReferenceReader(Box const& iref) : cursor(iref.payload()) {
    uint8_t const version = readFullBoxHeader(cursor).version;
    if (version > 1)
        throw failure(HBOX_ERR_UNSUPPORTED, "'iref': version %u", static_cast<unsigned>(version));
    width = version == 0 ? 2 : 4;
}

std::optional<Reference> ReferenceReader::next() {
    if (cursor.left() == 0)
        return std::nullopt;
    Reference reference;
    reference.box = cursor.box();
    reference.type = reference.box.type();
    reference.idWidth = width;
    BoxCursor payload = reference.box.payload();
    reference.from = static_cast<uint32_t>(payload.number(width)); // unsigned int(16 or 32) from_item_ID;
    reference.count = payload.u16();                               // unsigned int(16) reference_count;
    reference.ids =
        payload.range(static_cast<uint64_t>(reference.count) * width); // unsigned int(16 or 32) to_item_ID[];
    return reference;
}

bool Reference::refersTo(uint32_t id) const {
    Reference copy = *this;
    for (unsigned i = 0; i < count; ++i) {
        if (copy.nextId() == id)
            return true;
    }
    return false;
}

uint32_t readPrimaryId(Box const& pitm) {
    BoxCursor cursor = pitm.payload();
    uint8_t const version = readFullBoxHeader(cursor).version;
    return static_cast<uint32_t>(cursor.number(version == 0 ? 2 : 4)); // unsigned int(16 or 32) item_ID;
}

} // namespace hbox
