#pragma once

#include "Failure.h"

#include "MotionPhotoEdit.h"

#include <cstdint>
#include <memory>
#include <string>

namespace motionphoto {

enum class Access { READ, READ_WRITE };

/// Opens a file for the library. Throws a Failure that tells what stands there when it is no regular file or may not be
/// opened so.
std::shared_ptr<android::lumo::MediaFile> openFile(std::string const& path, Access access);

/// A still: the open file and the view of it.
struct Photo {
    std::shared_ptr<android::lumo::MediaFile> file;
    std::shared_ptr<android::lumo::MotionPhotoInfo> view;

    /// Throws a Failure that names what the file is when it is no JPEG and no HEIC.
    Photo(std::string const& path, Access access);

    std::string const& path() const { return file->getPath(); }
    bool isJpeg() const { return view->getImageMimeType() == android::lumo::MediaDefs::MimeType::IMAGE_JPEG; }
    uint64_t videoSize() const {
        return guarded(path(), [&]() -> uint64_t { return view->getVideoSize(); });
    }
    /// A record claims a video, be it damaged.
    bool claimsVideo() const;
    void requireMotionPhoto() const;
};

/// A clip that may go into the photo; throws a Failure that says why another may not.
std::shared_ptr<android::lumo::MediaFile> openVideo(std::string const& path, Photo const& photo);

/// "mp4" or "mov", by the brand of the movie that begins at the position.
char const* endingOfMovieAt(std::shared_ptr<android::lumo::MediaFile> const& file, uint64_t position);

bool isSameFile(std::string const& a, std::string const& b);

} // namespace motionphoto
