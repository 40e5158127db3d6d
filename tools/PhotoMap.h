// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Photo.h"

#include <cstdint>
#include <string>
#include <vector>

namespace motionphoto {

/// What a run of a photo's bytes is.
struct Region {
    enum class Kind { HEADER, METADATA, IMAGE, VIDEO, TRAILER, OTHER };
    Kind kind = Kind::OTHER;
    std::string name;
    uint64_t position = 0;
    uint64_t size = 0;
};

/// All bytes of the photo in file order, without gaps: a JPEG's segments and scans (ISO/IEC 10918-1 B.1.1) or a HEIC's
/// top-level boxes (ISO/IEC 14496-12 4.2), then what stands behind the picture.
std::vector<Region> mapOf(Photo const& photo);

} // namespace motionphoto
