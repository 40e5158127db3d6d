// SPDX-License-Identifier: Apache-2.0
#include "MoveRest.h"

#include "CheckedFile.h"
#include "Log.h"
#include "TrailerLayout.h"

#include <algorithm>
#include <exception>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "VideoPointer";

} // namespace

VideoPointerKeeper::VideoPointerKeeper(std::shared_ptr<MediaFile> const& edited) : file(edited) {
    try {
        auto const tail = trailer::readTail(*file);
        if (!tail)
            return;
        auto const entry = std::find_if(tail->entries.begin(), tail->entries.end(), [](auto const& candidate) {
            return trailer::typeOfHeader(candidate.header) == qrt::TYPE_MOTION_PHOTO_DATA;
        });
        if (entry == tail->entries.end())
            return;
        QRTDataInfo const record = trailer::readRecord(*file, *tail, *entry);
        pointer = VideoPointer::in(*file, record.type, {record.dataPosition, record.dataPayload});
        distanceFromEnd = file->size() - record.dataPosition;
    } catch (std::exception const& exception) {
        // A damaged trailer has no pointer that anybody could follow; about one that cannot be read nothing is known.
        rethrowUnlessDamage();
        LOGW("fail to find the video pointer: %s", exception.what());
    }
}

void VideoPointerKeeper::moved(uint32_t from, int64_t distance) {
    if (!pointer || pointer->position < from)
        return;
    int64_t const position = int64_t{pointer->position} + distance;
    if (position < 0 || position > int64_t{UINT32_MAX})
        return;
    pointer->position = static_cast<uint32_t>(position);
    checked::seek(*file, file->size() - distanceFromEnd);
    checked::write(*file, pointer->encode());
    LOGD("video pointer moved to %zu", size_t{pointer->position});
}

void moveRest(std::shared_ptr<MediaFile> const& file, uint32_t from, int64_t distance, ErrorAt at) {
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
