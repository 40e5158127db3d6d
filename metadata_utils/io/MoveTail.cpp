// SPDX-License-Identifier: Apache-2.0
#include "MoveTail.h"

#include "CheckedFile.h"
#include "VideoPointer.h"

#include <cstdlib>

namespace android::lumo {

namespace {

/// A still can be followed by any amount of video.
constexpr uint32_t BUFFER = 1024 * 1024;

} // namespace

void moveTail(std::shared_ptr<MediaFile> const& file, uint32_t from, int64_t distance, ErrorAt at) {
    if (distance == 0)
        return;
    if (std::llabs(distance) > INT32_MAX)
        throw at.as(Error::Code::TOO_BIG, *file)("bytes at %zu cannot move by %lld", size_t{from},
                                                 static_cast<long long>(distance));
    VideoPointerKeeper keeper(file);
    if (uint32_t const end = file->size(); end > from && end - from > BUFFER)
        checked::requireReadable(*file, from, end - from, BUFFER, at);
    checked::seek(*file, from, at);
    if (distance > 0)
        file->shiftRightSafely(static_cast<int>(distance), BUFFER);
    else
        file->shiftLeftSafely(static_cast<int>(-distance), BUFFER, true);
    keeper.moved(from, distance);
}

} // namespace android::lumo
