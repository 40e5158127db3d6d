// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "Source.h"

namespace hbox {

/// The item that is to hold the primary image's XMP: the one it has, or a new one.
struct XmpTarget {
    uint32_t primary = 0;
    uint32_t id = 0;
    bool exists = false;             ///< the source has the item, with its 'infe' and its reference
    std::optional<FileRange> stored; ///< where its bytes stand in the source
};

/// Finds the XMP item ('mime', "application/rdf+xml") that describes ('cdsc') the primary image, or picks a free id.
///
/// An id must be free among items, groups, references and property associations, and fit the id fields of the boxes it
/// will be written to: the largest used plus 1, else the lowest free one. Throws Failure when the item cannot be
/// written (encoded, protected, outside the file), or no id is left.
XmpTarget chooseXmpTarget(Source const& source);

} // namespace hbox
