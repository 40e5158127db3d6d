// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "XmpTarget.h"

/// The three children of 'meta' that are written again. Each function returns the whole new box.

namespace hbox {

/// 'iinf' with one more 'infe' behind the others; those stay byte for byte.
std::vector<uint8_t> rewriteItemInfos(BoxView const& iinf, XmpTarget const& target);

/// 'iref' with one more 'cdsc' reference behind the others; a new 'iref' where there is none. An existing reference of
/// the XMP item names the primary first, where readers look for it.
std::vector<uint8_t> rewriteReferences(std::optional<BoxView> const& iref, XmpTarget const& target);

/// 'iloc' in the same version with 4-byte offsets and lengths and no base offset. Its length is known before the places
/// are: they are put in later.
struct NewLocations {
    struct Entry {
        size_t at; ///< of the offset, in the box
        uint32_t id;
        unsigned method;
        FileRange source; ///< what stands there, as the old 'iloc' says
    };

    std::vector<uint8_t> box;   ///< with zeros for all offsets
    std::vector<Entry> entries; ///< of all items with bytes, but for the XMP item
    size_t xmpAt = 0;           ///< of the XMP item's offset, which its length follows

    void putOffset(size_t at, uint32_t offset);
    void putRoom(FileRange room);
};

/// Throws Failure for what cannot be written again: several extents, construction method 2, data references.
NewLocations rewriteLocations(BoxView const& iloc, XmpTarget const& target);

} // namespace hbox
