// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MovieWindow.h"

#include <cstdint>
#include <string>
#include <vector>

namespace android::media {

struct Track {
    std::string mime;
    int64_t durationUs = 0; ///< 0 when the file does not say
};

/// The tracks of the MP4 or QuickTime movie that the window holds, in the file's order. Throws ReadFailure, and
/// lumo::BoxError when there is no whole movie box in it or one of the headers that are read is damaged.
std::vector<Track> readTracks(MovieWindow& window);

} // namespace android::media
