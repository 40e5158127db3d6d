// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoMediator.h"
#include "MotionPhotoParts.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace android::lumo {

/// A photo's video where it stands outside the trailer, in a HEIC's box or where a JPEG's pointer leads: in, out, and
/// the pointer that follows it.
class OutsideVideo {
public:
    OutsideVideo(MotionPhotoParts& photo, MotionPhotoEditImpl::Mediator& relay) : parts(photo), mediator(relay) {}

    void addMPVDBox(std::shared_ptr<MediaFile> const& file, VideoSource const& video);
    void removeMPVDBox(std::shared_ptr<MediaFile> const& file);
    void removePointedVideo(std::shared_ptr<MediaFile> const& file);
    /// The whole video in front of the trailer that the pointer leads to which the file has now.
    std::optional<Stretch> pointedVideo() const;
    /// The same. It goes with the pointer: throws when something else than the trailer stands behind it.
    std::optional<Stretch> pointedVideoLast() const;
    /// A removal has failed with the video written over in part: nobody would find what is left of it.
    bool isTorn() const { return isCutShort; }

    /// One that XMP or a box alone tells of, as the first of commits that fail has found it: the claims of a packet
    /// that such a commit has written may be for a trailer that never came.
    struct Told {
        uint32_t toImageEnd; ///< from its first byte
        uint32_t size;
    };
    std::optional<Told> toldOf;

private:
    void replaceMPDataByMPVDBox(uint32_t position, uint32_t length);
    void promoteVersionRecord();

    MotionPhotoParts& parts;
    MotionPhotoEditImpl::Mediator& mediator;
    bool isCutShort = false;
};

} // namespace android::lumo
