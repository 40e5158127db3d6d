// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
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

/// Where a range of the source stands in the output. Throws when it was not carried over.
using Mover = std::function<uint32_t(ItemLocation const&, FileRange)>;

/// 'iloc' in the same version with 4-byte offsets and lengths and no base offset. The XMP item's location becomes
/// `room`. Throws Failure for what cannot be written again: several extents, construction method 2, data references.
std::vector<uint8_t> rewriteLocations(BoxView const& iloc, XmpTarget const& target, FileRange room, Mover const& move);

} // namespace hbox
