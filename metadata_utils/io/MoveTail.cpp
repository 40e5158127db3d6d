// SPDX-License-Identifier: Apache-2.0
#include "MoveTail.h"

#include "CheckedFile.h"
#include "VideoPointer.h"

#include <algorithm>

namespace android::lumo {

void moveTail(std::shared_ptr<MediaFile> const& file, uint32_t from, int64_t distance, ErrorAt at) {
    if (distance == 0)
        return;
    VideoPointerKeeper keeper(file);
    if (distance > INT32_MAX)
        checked::requireSpace(*file, checked::sizeOf(uint64_t{file->size()} + static_cast<uint64_t>(distance), at), at);
    if (uint32_t const end = file->size(); end > from && end - from > checked::MOVE_BLOCK)
        checked::requireReadable(*file, from, end - from, checked::MOVE_BLOCK, at);
    for (int64_t moved = 0; moved != distance;) { // a shift counts in an int, a video may be longer
        int const leg = static_cast<int>(std::clamp<int64_t>(distance - moved, -INT32_MAX, INT32_MAX));
        checked::seek(*file, static_cast<uint32_t>(from + moved), at);
        if (leg > 0)
            file->shiftRightSafely(leg, checked::MOVE_BLOCK);
        else
            file->shiftLeftSafely(-leg, checked::MOVE_BLOCK, true);
        moved += leg;
    }
    keeper.moved(from, distance);
}

} // namespace android::lumo
