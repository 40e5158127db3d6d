// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"
#include "MediaDefs.h"
#include "MediaFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace android::lumo {

class MotionPhotoInfo;

/// Where a still's video is, whoever wrote the photo, and what in the file says so.
///
/// MotionPhotoInfo knows photos with this library's trailer; this one knows the published formats as well. It asks, in
/// this order:
///
///     TRAILER      record 2608 of the QRT trailer: the video, or a pointer to it (docs/trailer-format.md)
///     BOX          the first top-level 'mpvd' box of a HEIC, header of 8 or 16 bytes (Motion Photo format 1.0, HEIC)
///     DIRECTORY    the item "MotionPhoto" of the XMP "Container:Directory": its Length bytes lie in front of its own
///                  Padding and the lengths and paddings of the items behind it, counted from the file's end (Motion
///                  Photo format 1.0; Dynamic Depth format 1.0). "GCamera:MotionPhoto" 0 withdraws it.
///     MICRO_VIDEO  "GCamera:MicroVideoOffset": bytes from the video's first to the file's end, with "MicroVideo" 1
///                  (the format before Motion Photo 1.0)
///
/// It believes none of them: at the place there must begin a movie ('ftyp' of any brand, ISO/IEC 14496-12 or QuickTime)
/// with a 'moov' whose top-level boxes end where the claim ends; a last box of size 0 ends there too. The first claim
/// that holds is the answer. When none holds, the first that was made is, with the status DAMAGED.
///
/// Memory is bounded whatever the file's size: box headers, the XMP packet and the trailer's directory are read, never
/// the video. A read that the system refuses throws Error READ_FAILED, a file that is neither JPEG nor HEIC or has 4
/// GiB and more is refused; damage inside the file is an answer. Nothing is written; the file's position moves, so one
/// thread at a time. The answer is a plain value and describes the file as it was.
struct METADATA_UTILS_EXPORT MotionVideo {
    /// What says where the video is: the claims above in their order, or scan().
    enum class Source : int32_t { NONE = 0, TRAILER = 1, BOX = 2, DIRECTORY = 3, MICRO_VIDEO = 4, SCAN = 5 };
    /// Whether a movie was found.
    enum class Status : int32_t {
        NONE = 0,    ///< nothing speaks of a video
        SOUND = 1,   ///< a whole movie stands at `position`
        DAMAGED = 2, ///< something speaks of a video that is not there or not whole: see `reason`
    };

    Source source = Source::NONE; ///< NONE where nothing claims a video
    Status status = Status::NONE; ///< SOUND is the only one under which there are bytes to take
    uint32_t position = 0;        ///< of the video's first byte; 0 where a damaged claim lies outside the file
    uint32_t size = 0;            ///< bytes of the video, without padding or anything behind it
    /// The still's moment in the video in microseconds, from the XMP; nothing where it names none.
    std::optional<int64_t> momentUs;
    std::string brand; ///< major brand of the movie ("mp42", "qt  "); empty where none begins
    /// Of a damaged claim, without "[source:line] "; under NONE what of the file could not be read, if anything: there
    /// a claim may have been.
    std::string reason;

    /// Whether position and size name a whole movie.
    bool isSound() const { return status == Status::SOUND; }
    /// video/quicktime for the brand "qt  ", else video/mp4; none without a movie.
    MediaDefs::MimeType mimeType() const;

    /// What the photo's claims come to.
    static MotionVideo locate(std::shared_ptr<MediaFile> const& photo);
    /// The same for a view or an editor of the photo: what it has read is not read again, so that the answer knows of
    /// what is staged in its XMP.
    static MotionVideo locate(MotionPhotoInfo const& photo);
    /// The first movie behind the picture that nothing claims, or which only a damaged claim names: behind the end of
    /// image of a JPEG, among or behind the top-level boxes of a HEIC, in front of the trailer's records, and outside
    /// what other items of the directory take. Reads everything behind the picture through a window. Its size is where
    /// the movie's boxes end.
    static MotionVideo scan(std::shared_ptr<MediaFile> const& photo);

    /// Copies the video as it stands in the photo to the target's current position, inside the kernel where it can.
    /// Throws REFUSED unless it is sound, CHANGED when the photo no longer holds it there.
    void copyTo(std::shared_ptr<MediaFile> const& photo, std::shared_ptr<MediaFile> const& target) const;

    /// Microseconds that its first video track lasts; nothing where the movie does not tell, or there is none.
    std::optional<int64_t> durationUs(std::shared_ptr<MediaFile> const& photo) const;

    /// "trailer", "box", "directory", "micro-video", "scan", "none".
    static char const* nameOf(Source source);
    /// "sound", "damaged", "none".
    static char const* nameOf(Status status);
};

} // namespace android::lumo
