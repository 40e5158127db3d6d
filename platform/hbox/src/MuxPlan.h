// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "OutputLayout.h"
#include "XmpTarget.h"

namespace hbox {

/// The finished layout of a new image part.
struct MuxPlan {
    OutputLayout layout;
    FileRange room; ///< the XMP room in the output
};

/// Plans the image part of `source` (its first `imageLength` bytes) with at least `xmpSize` bytes of room for XMP.
///
///   source                        output
///   +------+                      +------+
///   | ftyp |  -------------->     | ftyp |   byte for byte
///   +------+                      +------+
///   | meta |  -------------->     | meta |   children byte for byte, but for 'iinf', 'iref', 'iloc'
///   +------+                      +------+
///   | mdat |  -------------->     | mdat |   byte for byte; an old XMP packet becomes blanks
///   +------+                      +------+
///   : tail :                      | mdat |   the room: the old packet or an empty one, then blanks
///                                 +------+
///
/// The order of the source's boxes stays, whatever it is. A last box of size 0 gets its size, because something now
/// follows it. Nothing is written here: a source that cannot be carried over is refused by a Failure.
MuxPlan planOutput(Source const& source, uint64_t imageLength, uint32_t xmpSize);

} // namespace hbox
