// SPDX-License-Identifier: Apache-2.0
#include "ItemBoxes.h"

namespace android::lumo::boxes {

// --- 'iinf' and 'infe' -----------------------------------------------------------------------------------------------

namespace {

constexpr unsigned OLD_FIELDS = 4;

BoxError unsupported(std::string const& what, int line = __builtin_LINE()) {
    return BoxError(line, what, BoxError::Kind::Unsupported);
}

unsigned idWidth(ItemInfo const& info) {
    return info.version == 3 ? 4 : 2;
}

template<class Fields>
void readFixedFields(Fields& fields, ItemInfo& info) {
    info.id = static_cast<uint32_t>(fields.number(idWidth(info)));  // unsigned int(16 or 32) item_ID;
    info.protectionIndex = static_cast<uint16_t>(fields.number(2)); // unsigned int(16) item_protection_index;
    if (info.version >= 2)
        info.type = static_cast<BoxType>(fields.number(sizeof(BoxType))); // unsigned int(32) item_type;
}

void readItemInfo(BoxCursor cursor, ItemInfo& info) {
    info = {};
    info.version = readFullBoxHeader(cursor).version;
    if (info.version > 3 || (info.version < 2 && cursor.left() < OLD_FIELDS))
        return;
    size_t const fixed = idWidth(info) + 2 + (info.version < 2 ? 0 : sizeof(BoxType));
    if (cursor.left() >= fixed) {
        TestedFields fields(cursor.take(fixed));
        readFixedFields(fields, info);
    } else {
        readFixedFields(cursor, info); // throws at the field that is cut off
    }
    if (info.version < 2)
        return;
    cursor.text(); // utf8string item_name;
    if (info.type == boxType("mime")) {
        info.contentType = cursor.text();     // utf8string content_type;
        info.contentEncoding = cursor.text(); // utf8string content_encoding; // optional
    }
}

} // namespace

ItemInfoReader::ItemInfoReader(BoxView const& iinf) : cursor(iinf.payload()) {
    boxVersion = readFullBoxHeader(cursor).version;
    entryCount = static_cast<uint32_t>(cursor.number(boxVersion == 0 ? 2 : 4)); // unsigned int(16 or 32) entry_count;
    cursor.requireEntries(entryCount, BOX_HEADER_SIZE);
    entriesLeft = entryCount;
}

ItemInfo* ItemInfoReader::next() {
    while (entriesLeft > 0) {
        --entriesLeft;
        BoxView const box = cursor.box();
        if (box.type() != boxType("infe"))
            continue;
        readItemInfo(box.payload(), entry);
        return &entry;
    }
    return nullptr;
}

void ItemInfoReader::skipAll() {
    for (; entriesLeft > 0; --entriesLeft)
        cursor.box();
}

// --- 'iloc' ----------------------------------------------------------------------------------------------------------

LocationReader::LocationReader(BoxView const& iloc, Widths allowed) : cursor(iloc.payload()) {
    boxVersion = readFullBoxHeader(cursor).version;
    uint8_t const offsetAndLength = cursor.u8(); // unsigned int(4) offset_size; unsigned int(4) length_size;
    uint8_t const baseAndIndex = cursor.u8();    // unsigned int(4) base_offset_size; unsigned int(4) index_size;
    entry.offsetWidth = offsetAndLength >> 4;
    entry.lengthWidth = offsetAndLength & 0xF;
    widthOfBase = baseAndIndex >> 4;
    entry.indexWidth = hasMethod() ? baseAndIndex & 0xF : 0;
    if (allowed == Widths::Regular && boxVersion > 2)
        throw unsupported("'iloc': version " + std::to_string(boxVersion));
    for (unsigned const width : {entry.offsetWidth, entry.lengthWidth, widthOfBase, entry.indexWidth}) {
        if (allowed == Widths::Regular && !isRegular(width))
            throw unsupported("'iloc': field of " + std::to_string(width) + " bytes, 0, 4 or 8 expected");
    }
    itemCount = static_cast<uint32_t>(cursor.number(idWidth())); // unsigned int(16 or 32) item_count;
    unsigned const leastWidth = idWidth() + (hasMethod() ? 2U : 0U) + 2 + 2;
    cursor.requireEntries(itemCount, leastWidth);
    headWidth = leastWidth + widthOfBase;
    itemsLeft = itemCount;
    firstEntry = cursor.offset();
}

template<class Fields>
void LocationReader::readHead(Fields& fields) {
    entry.id = static_cast<uint32_t>(fields.number(idWidth())); // unsigned int(16 or 32) item_ID;
    if (hasMethod())
        entry.construction = static_cast<uint16_t>(fields.number(2)); // 12 bits reserved; 4 bits construction_method;
    entry.dataReference = static_cast<uint16_t>(fields.number(2));    // unsigned int(16) data_reference_index;
    entry.base = fields.number(widthOfBase);                          // unsigned int(base_offset_size*8) base_offset;
    entry.extentCount = static_cast<uint16_t>(fields.number(2));      // unsigned int(16) extent_count;
}

ItemLocation* LocationReader::nextHead() {
    if (itemsLeft == 0)
        return nullptr;
    --itemsLeft;
    if (cursor.left() >= headWidth) {
        TestedFields fields(cursor.take(headWidth));
        readHead(fields);
    } else {
        BoxCursor fields = cursor; // throws at the field that is cut off
        readHead(fields);
    }
    return &entry;
}

ItemLocation* LocationReader::next() {
    if (nextHead() == nullptr)
        return nullptr;
    uint64_t const extentWidth = uint64_t{entry.indexWidth} + entry.offsetWidth + entry.lengthWidth;
    entry.extents = cursor.range(extentWidth * entry.extentCount);
    return &entry;
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
