// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoMediator.h"
#include "MotionPhotoParts.h"

#include <cstdint>
#include <memory>

namespace android::lumo {

/// A photo's video where it stands outside the trailer, in a HEIC's box or where a JPEG's pointer leads: in, out, and
/// the pointer that follows it.
class OutsideVideo {
public:
    OutsideVideo(MotionPhotoParts& photo, MotionPhotoEditImpl::Mediator& relay) : parts(photo), mediator(relay) {}

    void addMPVDBox(std::shared_ptr<MediaFile> const& file, VideoSource const& video);
    void removeMPVDBox(std::shared_ptr<MediaFile> const& file);
    void removePointedVideo(std::shared_ptr<MediaFile> const& file);
    bool hasPointedVideo() const;
    void requirePointedVideoLast() const;

private:
    void replaceMPDataByMPVDBox(uint32_t position, uint32_t length);
    void promoteVersionRecord();

    MotionPhotoParts& parts;
    MotionPhotoEditImpl::Mediator& mediator;
};

} // namespace android::lumo
