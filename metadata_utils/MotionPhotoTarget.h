// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "CheckedFile.h"
#include "MediaFile.h"
#include "MotionPhotoEditImpl.h"

#include <memory>

namespace android::lumo {

class PhotoCopy;

/// Another file that an editor commits into: a copy of the photo, with a view and an editor of its own, which is
/// handed what the photo's editor has staged and commits in place.
///
/// The copy's editor is kept: a later commit is handed only what was staged since. The photo and its editor stay as
/// they are. A first commit that fails is begun again from the photo.
class MotionPhotoTarget {
public:
    explicit MotionPhotoTarget(std::shared_ptr<MediaFile> const& output) : file(output) {}

    bool isFile(MediaFile const& other) const { return checked::isSameFile(*file, other); }
    /// With a prepared still the copy begins with its image, followed by what stands behind the image of the photo.
    void commit(MotionPhotoEditImpl& owner, std::shared_ptr<MediaFile> const& prepared);

private:
    bool takeStillWithoutVideo();
    void composePhoto(MotionPhotoEditImpl const& owner);
    void handOver(MotionPhotoEditImpl& owner, bool isFirst, PhotoCopy const* copy);

    std::shared_ptr<MediaFile> file;
    std::shared_ptr<MediaFile> still; ///< the prepared one
    std::shared_ptr<MotionPhotoEditImpl> editor;
    std::shared_ptr<XMPInfoImpl> handedPacket; ///< as the owner had it
    MotionPhotoEditImpl::VideoEdit handedVideo;
};

} // namespace android::lumo
