// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "BoxBounds.h"

/// Pull readers for the item boxes inside 'meta' (ISO/IEC 14496-12, 8.11; ISO/IEC 23008-12, 9.3).
///
/// Each reader checks its entry count against the bytes left, then hands out one entry at a time straight from the
/// box's bytes: nothing is collected, so a hostile count costs no memory. What next() points to is the reader's own,
/// for the caller to change, until the next entry takes its place; null behind the last one. All throw BoxError, for a
/// damaged entry or for a legal form that is not handled.

namespace android::lumo::boxes {

struct ItemInfo {
    uint8_t version = 0; ///< of the 'infe'; 0 and 1 carry no item type; above 3 nothing is read
    uint32_t id = 0;
    uint16_t protectionIndex = 0; ///< 0: not protected
    BoxType type = 0;
    std::string_view contentType; ///< of a 'mime' item
    std::string_view contentEncoding;

    bool isXmp() const { return type == boxType("mime") && contentType == "application/rdf+xml"; }
};

/// 'iinf': a full box, the count (16 bits in version 0, else 32), then that many 'infe' boxes.
class ItemInfoReader {
public:
    explicit ItemInfoReader(BoxView const& iinf);

    ItemInfo* next();
    /// Passes over all entries that are left, without a look into them.
    void skipAll();

    uint8_t version() const { return boxVersion; }
    uint32_t count() const { return entryCount; }
    BoxCursor const& rest() const { return cursor; } ///< what stands behind the entries read so far

private:
    BoxCursor cursor;
    uint8_t boxVersion;
    uint32_t entryCount;
    uint32_t entriesLeft;
    ItemInfo entry;
};

struct ItemLocation {
    uint32_t id = 0;
    uint16_t construction = 0; ///< the whole 16-bit field: 12 reserved bits, 4 bits of method; 0 in version 0
    uint16_t dataReference = 0;
    uint64_t base = 0;
    uint16_t extentCount = 0;
    BoxCursor extents; ///< the stored extents
    uint8_t offsetWidth = 0;
    uint8_t lengthWidth = 0;
    uint8_t indexWidth = 0;

    static constexpr unsigned IN_FILE = 0, IN_ITEM_DATA = 1; ///< methods: what positions count from
    unsigned method() const { return construction & 0xFU; }
    /// The next extent of `extents`, its position counted from the start of the file or of 'idat': base added.
    FileRange nextExtent();
};

/// 'iloc'.
class LocationReader {
public:
    /// Regular: versions 0 to 2 with fields of 0, 4 or 8 bytes, all else throws. Any: for who looks at the widths.
    enum class Widths { Regular, Any };
    explicit LocationReader(BoxView const& iloc, Widths allowed = Widths::Regular);

    ItemLocation* next();
    /// The same up to the extents, which rest() begins with then.
    ItemLocation* nextHead();
    BoxCursor& rest() { return cursor; }

    static constexpr bool isRegular(unsigned width) { return width == 0 || width == 4 || width == 8; }
    unsigned baseWidth() const { return widthOfBase; }
    uint8_t version() const { return boxVersion; }
    uint32_t count() const { return itemCount; }
    /// The next entry's place; skipping a fresh reader by it makes that entry the next again.
    uint32_t place() const { return static_cast<uint32_t>(cursor.offset() - firstEntry); }
    void skip(uint32_t place) { cursor.skip(place); }

private:
    bool hasMethod() const { return boxVersion == 1 || boxVersion == 2; }
    unsigned idWidth() const { return boxVersion == 2 ? 4 : 2; }
    template<class Fields>
    void readHead(Fields& fields);

    BoxCursor cursor;
    uint64_t firstEntry;
    uint8_t boxVersion;
    ItemLocation entry; ///< carries the field widths that every entry shares
    uint8_t widthOfBase;
    unsigned headWidth; ///< of an entry up to its extents
    uint32_t itemCount;
    uint32_t itemsLeft;
};

struct Reference {
    BoxView box;
    BoxType type = 0;
    uint32_t from = 0;
    uint16_t count = 0;
    BoxCursor ids; ///< the to-ids
    uint8_t idWidth = 2;

    /// The next id of `ids`.
    uint32_t nextId() { return static_cast<uint32_t>(ids.number(idWidth)); }
    bool refersTo(uint32_t id) const;
};

/// 'iref': a full box and reference boxes to its end; ids take 16 bits in version 0, 32 in version 1.
class ReferenceReader {
public:
    explicit ReferenceReader(BoxView const& iref);

    std::optional<Reference> next();

    uint8_t idWidth() const { return width; }

private:
    BoxCursor cursor;
    uint8_t width;
};

/// 'pitm': the primary item's id.
uint32_t readPrimaryId(BoxView const& pitm);

} // namespace android::lumo::boxes
