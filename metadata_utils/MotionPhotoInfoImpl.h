// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ExifInfoImpl.h"
#include "MotionPhotoInfo.h"
#include "QRTInfoImpl.h"
#include "XMPInfoImpl.h"
#include "io/VideoPointer.h"

#include <memory>
#include <vector>

namespace android::lumo {

/// The motion-photo view: three readers of one file, and the video's place as trailer record 2608 tells it.
///
///     data of record 2608     what it is
///     more than 125000 bytes  the video itself (JPEG)
///     up to 125000 bytes      a VideoPointer, 12 bytes; in a HEIC it is resolved when the trailer is loaded
class MotionPhotoInfoImpl : public MotionPhotoInfo, public std::enable_shared_from_this<MotionPhotoInfoImpl> {
public:
    /// With a packet its XMP view answers from that one instead of the file's.
    explicit MotionPhotoInfoImpl(std::shared_ptr<MediaFile> const& still,
                                 std::shared_ptr<XMPPacket> const& packet = nullptr);

    /// The view behind any MotionPhotoInfo: itself, or the one an editor works on.
    static MotionPhotoInfoImpl const& of(MotionPhotoInfo const& info);

    bool isValid() const override;
    MediaDefs::MotionPhotoFormat getQRTMotionPhotoVersion() const override;
    int32_t getXMPMotionPhotoVersion() const override;
    MediaDefs::MimeType getImageMimeType() const override;
    size_t getFileSize() const override;
    size_t getImageSize() const override;
    int32_t getImageWidth() const override;
    int32_t getImageHeight() const override;
    int32_t getImageRotation() const override;
    std::string getDateTimeTaken() const override;
    long getCaptureTimestampUs() const override;
    MediaDefs::MimeType getVideoMimeType() const override;
    int32_t getNumTracksOfVideo() const override;
    int64_t getVideoDurationUs() const override;
    int32_t getVideoBitrate() const override;
    size_t getVideoPosition() const override;
    size_t getVideoSize() const override;
    int32_t getAutoPlayVideoBitrate() const override;
    size_t getAutoPlayVideoPosition() const override;
    size_t getAutoPlayVideoSize() const override;
    std::vector<int64_t> getTrackDurationsOfVideo() const override;
    std::string getExtraInfo() const override;
    size_t getImageVideoPadding() const override;
    std::shared_ptr<XMPInfo> getXMPInfo() const override;
    std::shared_ptr<QRTInfo> getQRTInfo() const override;
    std::shared_ptr<ExifInfo> getExifInfo() const override;
    using MotionPhotoInfo::getVideo;
    size_t getVideo(int fd) const override;
    size_t getVideo(std::string const& path) const override;
    CropRect getCropRect() const override;
    void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) override;
    std::shared_ptr<MotionPhotoEdit> edit() override;

    /// The video in memory; its range must lie in the file.
    std::shared_ptr<ByteBuffer> loadVideo() const;

    std::shared_ptr<MediaFile> const& getFile() const { return file; }
    std::shared_ptr<QRTInfoImpl> const& getTrailer() const { return qrtInfo; }
    std::shared_ptr<XMPInfoImpl> const& getPacket() const { return xmpInfo; }
    /// Where the video stands; nothing of it is read, its pointer apart.
    Stretch videoPlace() const;
    /// Whether a video stands at getVideoPosition() for getVideoSize() bytes, as far as the file's length tells.
    bool hasVideo() const;

private:
    static MediaDefs::MotionPhotoFormat parseExtraOfMotionPhotoFromQRT(MediaFile const& viewed,
                                                                       std::vector<QRTDataInfo>& records);
    size_t transferVideo(std::shared_ptr<MediaFile> const& target) const;

    std::shared_ptr<MediaFile> file;
    std::shared_ptr<QRTInfoImpl> qrtInfo;
    std::shared_ptr<XMPInfoImpl> xmpInfo;
    std::shared_ptr<ExifInfoImpl> exifInfo;
    std::shared_ptr<MediaDefs::MotionPhotoFormat> motionPhotoFormat =
        std::make_shared<MediaDefs::MotionPhotoFormat>(MediaDefs::MotionPhotoFormat::NONE);
};

/// The duration in microseconds of the first video track between two offsets of a file, 0 when the track names none.
/// Throws when the platform's extractor cannot open it or finds no video.
int64_t videoDurationUs(MediaFile const& file, uint32_t position, uint32_t size);

} // namespace android::lumo
