// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteSource.h"
#include "KeptBoxes.h"
#include "MPQRTEdit.h"
#include "MPXMPEdit.h"
#include "MotionPhotoInfoImpl.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

namespace android::lumo {

/// A photo that is edited, for the editor and its helpers: its view, and the editors of its trailer and its packet.
struct MotionPhotoParts {
    std::shared_ptr<MotionPhotoInfoImpl> view;
    std::shared_ptr<MediaFile> outputFile; ///< the view's file, perhaps through another descriptor
    std::unique_ptr<MPQRTEdit> qrtEdit;
    std::unique_ptr<MPXMPEdit> xmpEdit;
    bool isHEIC = false;
    KeptBoxes boxes; ///< of a HEIC

    /// Those of the output.
    std::shared_ptr<heif::TrailingBoxes> trailingBoxes() { return boxes.of(outputFile); }
};

/// What is asked of the photo's video, and of what the packet says of it, beside the staged records and packet.
struct StagedMotion {
    enum class ExtraType : int32_t { MOTION_PHOTO_VIDEO_BOX = 0 };
    using Extra = std::function<void(std::shared_ptr<MediaFile> const&)>;

    std::optional<VideoSource> video;
    bool isMotionPhotoXMPRemoved = false; ///< no claim of a video is made, by this commit or a later one
    bool isVideoReplaced = false;
    bool isTimestampSet = false;
    std::string takenTimestamp;    ///< from another photo
    std::string replacedTimestamp; ///< of the video that `video` takes the place of, as the file has it
    bool isXMPSetAside = false;    ///< written into targets only
    bool isTrailerSetAside = false;
    std::unordered_map<ExtraType, Extra> extras; ///< deferred changes of the file

    /// A commit into the photo itself has returned.
    void spend() {
        StagedMotion kept;
        kept.isMotionPhotoXMPRemoved = isMotionPhotoXMPRemoved;
        *this = std::move(kept);
    }
};

/// Records that go with the video.
inline bool belongsToVideo(StagedRecord const& record) {
    constexpr char const* NAMES[] = {qrt::NAME_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_VERSION,
                                     qrt::NAME_MOTION_PHOTO_INFO, qrt::NAME_MOTION_PHOTO_AUTO_PLAY,
                                     qrt::NAME_LONG_EXPOSURE_INFO};
    return record.type == qrt::TYPE_MOTION_PHOTO_DATA || record.type == qrt::TYPE_MOTION_PHOTO_VERSION ||
           std::find(std::begin(NAMES), std::end(NAMES), record.name) != std::end(NAMES);
}

} // namespace android::lumo
