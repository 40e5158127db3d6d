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
    /// A crop rectangle in pixels of the still.
    struct CropRect {
        int32_t left, top, right, bottom;
    };

    virtual ~MotionPhotoInfo();

    /// Throws an Error when the file is of another type, too big or damaged.
    static std::shared_ptr<MotionPhotoInfo> parse(std::shared_ptr<MediaFile> const& file);

    /// Record 2608 exists and an MP4 or QuickTime video begins at its data.
    virtual bool isValid() const = 0;
    virtual MediaDefs::MotionPhotoFormat getQRTMotionPhotoVersion() const = 0;
    /// "GCamera:MotionPhotoVersion"; 0 when absent or no number.
    virtual int32_t getXMPMotionPhotoVersion() const = 0;
    virtual MediaDefs::MimeType getImageMimeType() const = 0;
    virtual size_t getFileSize() const = 0;
    /// Bytes in front of the trailer.
    virtual size_t getImageSize() const = 0;
    virtual int32_t getImageWidth() const = 0;
    virtual int32_t getImageHeight() const = 0;
    virtual int32_t getImageRotation() const = 0;
    virtual std::string getDateTimeTaken() const = 0;
    /// "GCamera:MotionPhotoPresentationTimestampUs", microseconds into the video; 0 when absent or no number.
    virtual long getCaptureTimestampUs() const = 0;
    /// Not provided: throws "implement video-info".
    virtual MediaDefs::MimeType getVideoMimeType() const = 0;
    /// Not provided: throws "implement video-info".
    virtual int32_t getNumTracksOfVideo() const = 0;
    /// The first video track's duration in microseconds, 0 when it names none. Throws when the video cannot be opened.
    virtual int64_t getVideoDurationUs() const = 0;
    /// Not provided: throws "implement video-info".
    virtual int32_t getVideoBitrate() const = 0;
    /// 0 without a video, both of them.
    virtual size_t getVideoPosition() const = 0;
    virtual size_t getVideoSize() const = 0;
    /// Not provided: throws "implement auto-play-video-info".
    virtual int32_t getAutoPlayVideoBitrate() const = 0;
    virtual size_t getAutoPlayVideoPosition() const = 0;
    virtual size_t getAutoPlayVideoSize() const = 0;
    /// Not provided: throws "implement video-info".
    virtual std::vector<int64_t> getTrackDurationsOfVideo() const = 0;
    /// The text of record "MotionPhoto_Info"; empty when missing.
    virtual std::string getExtraInfo() const = 0;
    /// Bytes between the image's end and the video's first byte: record and name in a JPEG, the box header (8) in a
    /// HEIC.
    virtual size_t getImageVideoPadding() const = 0;
    virtual std::shared_ptr<XMPInfo> getXMPInfo() const = 0;
    virtual std::shared_ptr<QRTInfo> getQRTInfo() const = 0;
    virtual std::shared_ptr<ExifInfo> getExifInfo() const = 0;
    /// Copies the video to the descriptor's position, or to the start of an existing file that is then cut to the
    /// video's length. Returns the video's length; without a video nothing is written and 0 returned. A short copy
    /// throws.
    virtual size_t getVideo(int fd) const = 0;
    virtual size_t getVideo(std::string const& path) const = 0;
    /// Not provided: throws "implement video-info".
    virtual CropRect getCropRect() const = 0;
    /// Takes this motion photo's content over into another still and commits it there; see MotionPhotoEdit::addAll.
    virtual void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) = 0;
    virtual std::shared_ptr<MotionPhotoEdit> edit() = 0;

    /// The video in memory; empty without one.
    std::shared_ptr<ByteBuffer> getVideo() const;
};

} // namespace android::lumo
