// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteBuffer.h"
#include "ExifInfo.h"
#include "Export.h"
#include "MediaDefs.h"
#include "MediaFile.h"
#include "QRTInfo.h"
#include "XMPInfo.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace android::lumo {

class MotionPhotoEdit;

/// A still (JPEG or HEIC) that may carry a video: one view over its trailer, XMP and Exif.
///
/// The trailer alone decides whether there is a video and where: record 2608 holds the video itself (JPEG) or a 12-byte
/// pointer to it (HEIC). XMP only adds the version and the presentation timestamp. docs/motion-photo-jpeg.md draws the
/// file. Made by parse(), held by a shared pointer; queries read the file again and move its shared position, so one
/// thread at a time. Positions and sizes are bytes from the file's start.
class METADATA_UTILS_EXPORT MotionPhotoInfo {
public:
    /// A crop rectangle: its edges, in pixels of the still.
    struct CropRect {
        int32_t left;   ///< from the picture's left
        int32_t top;    ///< from its top
        int32_t right;  ///< from its left
        int32_t bottom; ///< from its top
    };

    virtual ~MotionPhotoInfo();

    /// Throws an Error when the file is of another type, too big or damaged.
    static std::shared_ptr<MotionPhotoInfo> parse(std::shared_ptr<MediaFile> const& file);

    /// Record 2608 exists and an MP4 or QuickTime video begins at its data.
    virtual bool isValid() const = 0;
    /// How the trailer says that the video is stored (record 2609); NONE without it.
    virtual MediaDefs::MotionPhotoFormat getQRTMotionPhotoVersion() const = 0;
    /// "GCamera:MotionPhotoVersion"; 0 when absent or no number.
    virtual int32_t getXMPMotionPhotoVersion() const = 0;
    /// The still's container, IMAGE_JPEG or IMAGE_HEIC.
    virtual MediaDefs::MimeType getImageMimeType() const = 0;
    /// Bytes of the whole file, as it is now.
    virtual size_t getFileSize() const = 0;
    /// Bytes in front of the trailer.
    virtual size_t getImageSize() const = 0;
    /// 0, fixed; see ExifInfo::getWidth for what to ask instead, here and below.
    virtual int32_t getImageWidth() const = 0;
    /// 0, fixed.
    virtual int32_t getImageHeight() const = 0;
    /// 0, fixed.
    virtual int32_t getImageRotation() const = 0;
    /// Empty, fixed.
    virtual std::string getDateTimeTaken() const = 0;
    /// "GCamera:MotionPhotoPresentationTimestampUs", microseconds into the video; 0 when absent or no number.
    virtual long getCaptureTimestampUs() const = 0;
    /// Not provided: throws "implement video-info". Instead: MotionVideo::mimeType.
    virtual MediaDefs::MimeType getVideoMimeType() const = 0;
    /// Not provided: throws "implement video-info". Instead: getVideo() and a reader of movies.
    virtual int32_t getNumTracksOfVideo() const = 0;
    /// The first video track's duration in microseconds, 0 when it names none. Throws when the video cannot be opened.
    virtual int64_t getVideoDurationUs() const = 0;
    /// Not provided: throws "implement video-info". Instead, on average: 8,000,000 * getVideoSize() /
    /// getVideoDurationUs() bits a second.
    virtual int32_t getVideoBitrate() const = 0;
    /// The video's first byte; 0 without one. For a pointer record that is where it points to, and every record of the
    /// video of at least 12 and up to 125,000 bytes is read as a pointer: whether a video stands there, isValid()
    /// tells.
    virtual size_t getVideoPosition() const = 0;
    /// Bytes of the video; 0 without one. As getVideoPosition() a number that nobody has checked.
    virtual size_t getVideoSize() const = 0;
    /// Not provided: throws "implement auto-play-video-info". Its bytes: getAutoPlayVideoPosition() and -Size().
    virtual int32_t getAutoPlayVideoBitrate() const = 0;
    /// First byte of the short second video (record 2611); 0 without one.
    virtual size_t getAutoPlayVideoPosition() const = 0;
    /// Its bytes; 0 without one.
    virtual size_t getAutoPlayVideoSize() const = 0;
    /// Not provided: throws "implement video-info". The first video track's: getVideoDurationUs().
    virtual std::vector<int64_t> getTrackDurationsOfVideo() const = 0;
    /// The text of record "MotionPhoto_Info"; empty when missing.
    virtual std::string getExtraInfo() const = 0;
    /// Bytes between the image's end and the video's first byte: record and name in a JPEG, the box header (8) in a
    /// HEIC. Where a JPEG's pointer leads in front of the image's end, or without a video, the difference wraps around.
    virtual size_t getImageVideoPadding() const = 0;
    /// The views this one is made of, kept up to date by its editors; never null. First that of the XMP.
    virtual std::shared_ptr<XMPInfo> getXMPInfo() const = 0;
    /// That of the trailer.
    virtual std::shared_ptr<QRTInfo> getQRTInfo() const = 0;
    /// That of the Exif.
    virtual std::shared_ptr<ExifInfo> getExifInfo() const = 0;
    /// Copies the data of the trailer's record 2608 to the descriptor's position, or to the start of an existing file
    /// that is then cut to its length: the video, but for a JPEG whose record points to one, which gives the record's
    /// own bytes; getVideo() and MotionVideo::copyTo() follow it. Returns the length; without a record nothing is
    /// written and 0 returned. A short copy throws.
    virtual size_t getVideo(int fd) const = 0;
    /// The same into an existing file, from its start.
    virtual size_t getVideo(std::string const& path) const = 0;
    /// Not provided: throws "implement video-info"; no record of the trailer holds one.
    virtual CropRect getCropRect() const = 0;
    /// Takes this motion photo's content over into another still and commits it there; see MotionPhotoEdit::addAll.
    virtual void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) = 0;
    /// A new editor, which keeps this view. Editors of one view see each other's XMP; docs/failure-states.md says
    /// which of their commits is refused.
    virtual std::shared_ptr<MotionPhotoEdit> edit() = 0;

    /// The video in memory; empty without one.
    std::shared_ptr<ByteBuffer> getVideo() const;
};

} // namespace android::lumo
