// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "PhotoLayout.h"
#include "PublishedPhoto.h"

#include <memory>
#include <string>

/// A trailer that names a sound video which this library's views do not recognise all the same: other writers' form.
namespace android::lumo::published {

struct TrailerForm {
    bool isShort = false; ///< record 2608 holds the movie, in so few bytes that they are read as a pointer's
    bool isOtherBrand = false;
    /// What record 2609 of a HEIC has to begin with instead: "mpv1" says that the video stands in record 2608, any
    /// other of the tags that it is pointed to. Empty where that is right.
    std::string version;
    std::string versionFound;
    uint32_t versionPosition = 0;

    /// Of a video that the trailer names and that is sound.
    static TrailerForm of(PhotoLayout const& layout, MotionVideo const& video);
    bool isRecognised() const { return !isShort && !isOtherBrand && version.empty(); }
};

/// Gives the photo, or the output, the form that the views recognise: a short movie is put in as a clip is, with a
/// 'free' box behind it in a JPEG and in a box of its own in a HEIC; a brand becomes "mp42" and is noted; record 2609
/// says where the video stands. A photo that is recognised stays as it is.
Conversion recognise(std::shared_ptr<MediaFile> const& photo, std::shared_ptr<MediaFile> const& output = nullptr);

} // namespace android::lumo::published
