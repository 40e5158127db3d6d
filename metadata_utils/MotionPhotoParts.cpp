// SPDX-License-Identifier: Apache-2.0
#include "MotionPhotoParts.h"

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char const* VIDEO_RECORDS[] = {qrt::NAME_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_VERSION,
                                         qrt::NAME_MOTION_PHOTO_INFO, qrt::NAME_MOTION_PHOTO_AUTO_PLAY,
                                         qrt::NAME_LONG_EXPOSURE_INFO};

} // namespace

void StagedMotion::spend() {
    StagedMotion kept;
    kept.isMotionPhotoXMPRemoved = isMotionPhotoXMPRemoved;
    kept.isImageDataXMPRemoved = isImageDataXMPRemoved;
    *this = std::move(kept);
}

bool belongsToVideo(StagedRecord const& record) {
    return record.type == qrt::TYPE_MOTION_PHOTO_DATA || record.type == qrt::TYPE_MOTION_PHOTO_VERSION ||
           std::find(std::begin(VIDEO_RECORDS), std::end(VIDEO_RECORDS), record.name) != std::end(VIDEO_RECORDS);
}

} // namespace android::lumo
