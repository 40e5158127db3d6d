// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Failure.h"
#include "FileRights.h"

#include "Error.h"
#include "MotionPhotoEdit.h"
#include "MotionVideo.h"
#include "io/ImageMetaReader.h"

#include <cstdint>
#include <memory>
#include <string>

namespace motionphoto {

/// REPLACE: only read, but the result takes its place.
enum class Access { READ, READ_WRITE, REPLACE };

/// Opens a file for the library. Throws a Failure that tells what stands there when it is no regular file or may not be
/// opened so, or when another process edits it: whoever is to change it holds it until the file is closed.
std::shared_ptr<android::lumo::MediaFile> openFile(std::string const& path, Access access);

/// `size` bytes at a place of the file, fewer where it ends; a Failure where the system refuses.
std::string readAt(android::lumo::MediaFile const& file, uint64_t at, uint64_t size);

/// What is read of a still to begin with.
enum class Look { VIDEO, WHOLE_VIEW };

/// A still: the open file and what its video is, whoever wrote it.
struct Photo {
    std::shared_ptr<android::lumo::MediaFile> file;
    FileState opened;                                       ///< as it was before anything was read of it
    std::shared_ptr<android::lumo::MotionPhotoInfo> parsed; ///< none unless the whole view was asked for
    android::lumo::MotionVideo video;

    /// Throws a Failure that names what the file is when it is no JPEG and no HEIC.
    Photo(std::string const& path, Access access, Look look = Look::VIDEO);

    std::string const& path() const { return file->getPath(); }
    uint64_t size() const { return static_cast<uint64_t>(opened.size); }
    bool hasClaim() const { return video.status != android::lumo::MotionVideo::Status::NONE; }
    /// The view of the library's own trailer, XMP and all.
    std::shared_ptr<android::lumo::MotionPhotoInfo> view() const;
    /// What of the file could not be read, so that it may hold what was not found; empty for a whole one.
    std::string damage() const;
    /// A Failure about what is not there, unless damage may hide it.
    [[noreturn]] void failAbsent(std::string const& text) const;
    /// A Failure where damage may hide what was not found.
    void requireReadable() const;
    /// A Failure unless something speaks of a video (NO_MOTION_PHOTO) and it is whole (BAD_INPUT).
    void requireVideo() const;
    /// The ending of a file of its own for the video.
    char const* clipEnding() const;
};

/// A clip for the photo; throws a Failure for one that is also something else here.
std::shared_ptr<android::lumo::MediaFile> openVideo(std::string const& path, Photo const& photo);

bool isSameFile(std::string const& a, std::string const& b);

/// The photo's bytes into an empty output.
void copyWhole(Photo const& photo, std::shared_ptr<android::lumo::MediaFile> const& output);

/// Throws in a person's words what a HEIC is mostly refused for, where the library tells of boxes: its XMP needs room.
void requireOtherThanRoom(Photo const& photo, android::lumo::Error const& refusal);

/// Where a HEIC's boxes stop adding up, in a person's words; empty where they do, and for what cannot be looked at.
std::string tornBoxesOf(std::string const& path);

/// Views take the first text that describes a HEIC's picture for its XMP, of whatever type: what to say of another one
/// that they cannot read, empty for XMP and for what cannot be looked at.
std::string otherTextIn(std::string const& path);

/// Finds the blocks of a still's metadata. What the system refuses to read throws, it is no absent block.
std::unique_ptr<android::lumo::ImageMetaReader> blocksOf(std::shared_ptr<android::lumo::MediaFile> const& still);

} // namespace motionphoto
