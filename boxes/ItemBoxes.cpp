// SPDX-License-Identifier: Apache-2.0
#include "ItemBoxes.h"

namespace android::lumo::boxes {

// --- 'iinf' and 'infe' -----------------------------------------------------------------------------------------------

namespace {

constexpr unsigned OLD_FIELDS = 4;

BoxError unsupported(std::string const& what, int line = __builtin_LINE()) {
    return BoxError(line, what, BoxError::Kind::Unsupported);
}

std::optional<ItemInfo> readItemInfo(BoxView const& box) {
    BoxCursor cursor = box.payload();
    std::optional<ItemInfo> item(std::in_place); // filled where it is handed out
    ItemInfo& info = *item;
    info.version = readFullBoxHeader(cursor).version;
    if (info.version > 3 || (info.version < 2 && cursor.left() < OLD_FIELDS))
        return item;
    info.id = static_cast<uint32_t>(cursor.number(info.version == 3 ? 4 : 2)); // unsigned int(16 or 32) item_ID;
    info.protectionIndex = cursor.u16(); // unsigned int(16) item_protection_index;
    if (info.version < 2)
        return item;
    info.type = cursor.u32(); // unsigned int(32) item_type;
    cursor.text();            // utf8string item_name;
    if (info.type == boxType("mime")) {
        info.contentType = cursor.text();     // utf8string content_type;
        info.contentEncoding = cursor.text(); // utf8string content_encoding; // optional
    }
    return item;
}

} // namespace

ItemInfoReader::ItemInfoReader(BoxView const& iinf) : cursor(iinf.payload()) {
    boxVersion = readFullBoxHeader(cursor).version;
    entryCount = static_cast<uint32_t>(cursor.number(boxVersion == 0 ? 2 : 4)); // unsigned int(16 or 32) entry_count;
    cursor.requireEntries(entryCount, BOX_HEADER_SIZE);
    entriesLeft = entryCount;
}

std::optional<ItemInfo> ItemInfoReader::next() {
    while (entriesLeft > 0) {
        --entriesLeft;
        BoxView const box = cursor.box();
        if (box.type() == boxType("infe"))
            return readItemInfo(box);
    }
    return std::nullopt;
}

// --- 'iloc' ----------------------------------------------------------------------------------------------------------

LocationReader::LocationReader(BoxView const& iloc, Widths allowed) : cursor(iloc.payload()) {
    boxVersion = readFullBoxHeader(cursor).version;
    uint8_t const offsetAndLength = cursor.u8(); // unsigned int(4) offset_size; unsigned int(4) length_size;
    uint8_t const baseAndIndex = cursor.u8();    // unsigned int(4) base_offset_size; unsigned int(4) index_size;
    widths.offsetWidth = offsetAndLength >> 4;
    widths.lengthWidth = offsetAndLength & 0xF;
    widthOfBase = baseAndIndex >> 4;
    widths.indexWidth = hasMethod() ? baseAndIndex & 0xF : 0;
    if (allowed == Widths::Regular && boxVersion > 2)
        throw unsupported("'iloc': version " + std::to_string(boxVersion));
    for (unsigned const width : {widths.offsetWidth, widths.lengthWidth, widthOfBase, widths.indexWidth}) {
        if (allowed == Widths::Regular && !isRegular(width))
            throw unsupported("'iloc': field of " + std::to_string(width) + " bytes, 0, 4 or 8 expected");
    }
    itemCount = static_cast<uint32_t>(cursor.number(idWidth())); // unsigned int(16 or 32) item_count;
    cursor.requireEntries(itemCount, idWidth() + (hasMethod() ? 2U : 0U) + 2 + 2);
    itemsLeft = itemCount;
    firstEntry = cursor.offset();
}

std::optional<ItemLocation> LocationReader::nextHead() {
    if (itemsLeft == 0)
        return std::nullopt;
    --itemsLeft;
    std::optional<ItemLocation> entry(widths); // filled where it is handed out
    ItemLocation& location = *entry;
    BoxCursor fields = cursor;
    location.id = static_cast<uint32_t>(fields.number(idWidth())); // unsigned int(16 or 32) item_ID;
    if (hasMethod())
        location.construction = fields.u16();   // unsigned int(12) reserved; unsigned int(4) construction_method;
    location.dataReference = fields.u16();      // unsigned int(16) data_reference_index;
    location.base = fields.number(widthOfBase); // unsigned int(base_offset_size*8) base_offset;
    location.extentCount = fields.u16();        // unsigned int(16) extent_count;
    cursor = fields;
    return entry;
}

std::optional<ItemLocation> LocationReader::next() {
    auto location = nextHead();
    if (location) {
        uint64_t const extentWidth = location->indexWidth + location->offsetWidth + location->lengthWidth;
        location->extents = cursor.range(extentWidth * location->extentCount);
    }
    return location;
}

FileRange ItemLocation::nextExtent() {
    BoxCursor fields = extents;
    fields.skip(indexWidth);                            // unsigned int(index_size*8) item_reference_index;
    uint64_t const offset = fields.number(offsetWidth); // unsigned int(offset_size*8) extent_offset;
    uint64_t const length = fields.number(lengthWidth); // unsigned int(length_size*8) extent_length;
    extents = fields;
    if (offset > UINT64_MAX - base)
        throw BoxError(__LINE__, "'iloc': item " + std::to_string(id) + ": offset beyond 64 bits");
    return {base + offset, length};
}

// --- 'iref' and 'pitm' -----------------------------------------------------------------------------------------------

ReferenceReader::ReferenceReader(BoxView const& iref) : cursor(iref.payload()) {
    uint8_t const version = readFullBoxHeader(cursor).version;
    if (version > 1)
        throw unsupported("'iref': version " + std::to_string(version));
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

uint32_t readPrimaryId(BoxView const& pitm) {
    BoxCursor cursor = pitm.payload();
    uint8_t const version = readFullBoxHeader(cursor).version;
    return static_cast<uint32_t>(cursor.number(version == 0 ? 2 : 4)); // unsigned int(16 or 32) item_ID;
}

} // namespace android::lumo::boxes
