// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"

#include <cstdint>
#include <optional>

namespace android::lumo {

/// Where the picture of a still ends and whatever was appended begins.
///
/// In a JPEG behind the end of image of its first picture (ISO/IEC 10918-1 B.1.1.2): the scans are followed marker by
/// marker through a window, so that thumbnails in segments, restart markers and the scans of a progressive picture do
/// not end it. Nothing when the file ends first. In a HEIC the start of the first trailing box behind the image's last.
std::optional<uint32_t> findStillEnd(MediaFile const& file);

/// Whether a JPEG picture begins there, a gain map for one. No place outside the file begins one.
bool beginsPicture(MediaFile const& file, uint64_t position);

} // namespace android::lumo
