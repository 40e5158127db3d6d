#pragma once

#include <cstdint>
#include <span>

namespace android::media {

/// Type codes are four bytes wide, so a code that crosses the edge of a piece needs this many bytes of its neighbour.
inline constexpr int kBoxFilterMargin = 3;

/// Overwrites the type code of every box that a reader of track headers has no use for with zeros, which is no box's
/// type, so that the demuxer steps over it.
///
/// The demuxer expands such boxes in memory: a 20-byte sample table may promise four thousand million samples. It also
/// finds boxes nested in places where no box belongs. Therefore the codes are blanked wherever they stand, without
/// regard to structure; a field that happens to spell one loses nothing that a track's format needs. The result for
/// each byte depends on its neighbours within `kBoxFilterMargin` alone.
void blankUnneededBoxes(std::span<uint8_t> bytes);

} // namespace android::media
