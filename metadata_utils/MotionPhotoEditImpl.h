// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoEdit.h"
#include "MotionPhotoParts.h"
#include "io/SplicedCopy.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace android::lumo {

class MotionPhotoCommit;
class MotionPhotoTarget;
struct PacketAhead;

/// The motion-photo editor.
class MotionPhotoEditImpl : public MotionPhotoEdit {
public:
    using ExtraType = StagedMotion::ExtraType;
    /// What the sub-editors and container steps tell the mediator.
    enum class Event : int32_t {
        TRAILER_WRITTEN = 0,
        XMP_WRITTEN = 1,
        BEFORE_VIDEO_BOX = 2,
        CONTAINER_RESTRUCTURED = 3,
    };
    class Mediator;
    using Extra = StagedMotion::Extra;

    explicit MotionPhotoEditImpl(std::shared_ptr<MotionPhotoInfo> const& info);
    ~MotionPhotoEditImpl() override;

    // Every query is answered by the view.
    bool isValid() const override { return view->isValid(); }
    MediaDefs::MotionPhotoFormat getQRTMotionPhotoVersion() const override { return view->getQRTMotionPhotoVersion(); }
    int32_t getXMPMotionPhotoVersion() const override { return view->getXMPMotionPhotoVersion(); }
    MediaDefs::MimeType getImageMimeType() const override { return view->getImageMimeType(); }
    size_t getFileSize() const override { return view->getFileSize(); }
    size_t getImageSize() const override { return view->getImageSize(); }
    int32_t getImageWidth() const override { return view->getImageWidth(); }
    int32_t getImageHeight() const override { return view->getImageHeight(); }
    int32_t getImageRotation() const override { return view->getImageRotation(); }
    std::string getDateTimeTaken() const override { return view->getDateTimeTaken(); }
    long getCaptureTimestampUs() const override { return view->getCaptureTimestampUs(); }
    MediaDefs::MimeType getVideoMimeType() const override { return view->getVideoMimeType(); }
    int32_t getNumTracksOfVideo() const override { return view->getNumTracksOfVideo(); }
    int64_t getVideoDurationUs() const override { return view->getVideoDurationUs(); }
    int32_t getVideoBitrate() const override { return view->getVideoBitrate(); }
    size_t getVideoPosition() const override { return view->getVideoPosition(); }
    size_t getVideoSize() const override { return view->getVideoSize(); }
    int32_t getAutoPlayVideoBitrate() const override { return view->getAutoPlayVideoBitrate(); }
    size_t getAutoPlayVideoPosition() const override { return view->getAutoPlayVideoPosition(); }
    size_t getAutoPlayVideoSize() const override { return view->getAutoPlayVideoSize(); }
    std::vector<int64_t> getTrackDurationsOfVideo() const override { return view->getTrackDurationsOfVideo(); }
    std::string getExtraInfo() const override { return view->getExtraInfo(); }
    size_t getImageVideoPadding() const override { return view->getImageVideoPadding(); }
    std::shared_ptr<XMPInfo> getXMPInfo() const override { return view->getXMPInfo(); }
    std::shared_ptr<QRTInfo> getQRTInfo() const override { return view->getQRTInfo(); }
    std::shared_ptr<ExifInfo> getExifInfo() const override { return view->getExifInfo(); }
    using MotionPhotoInfo::getVideo;
    size_t getVideo(int fd) const override { return view->getVideo(fd); }
    size_t getVideo(std::string const& path) const override { return view->getVideo(path); }
    CropRect getCropRect() const override { return view->getCropRect(); }
    void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) override {
        view->transferTo(target, options);
    }
    std::shared_ptr<MotionPhotoEdit> edit() override { return view->edit(); }

    MotionPhotoEdit& setPhotoPresentationTimestampUs(long timestampUs) override;
    MotionPhotoEdit& addQRTData(int type, std::string const& key, ByteBuffer const& data) override;
    MotionPhotoEdit& addQRTData(int type, std::string const& key, std::shared_ptr<MediaFile> const& file) override;
    MotionPhotoEdit& addQRTInfo(std::shared_ptr<QRTInfo> const& info) override;
    MotionPhotoEdit& addXMPInfo(std::shared_ptr<XMPInfo> const& info) override;
    MotionPhotoEdit& addVideo(std::shared_ptr<MediaFile> const& video) override;
    MotionPhotoEdit& addVideo(std::shared_ptr<ByteBuffer> const& video) override;
    MotionPhotoEdit& addAll(std::shared_ptr<MotionPhotoInfo> const& source,
                            std::filesystem::copy_options const& options) override;
    MotionPhotoEdit& replaceVideo(std::shared_ptr<MediaFile> const& video) override;
    MotionPhotoEdit& removeVideo(std::shared_ptr<MediaFile> const& file) override;
    MPQRTEdit& getQRTEdit() override;
    MPXMPEdit& getXMPEdit() override;
    void commit() override;
    void commit(std::shared_ptr<MediaFile> const& target) override;

    std::shared_ptr<MotionPhotoInfoImpl> const& getView() const { return parts.view; }
    KeptBoxes& getBoxes() { return parts.boxes; }

    // For a commit into another file. ---------------------------------------------------------------------------------

    /// What was last staged about the video; another address is another video.
    using VideoEdit = std::shared_ptr<Extra const>;
    VideoEdit const& getVideoEdit() const { return videoEdit; }
    bool hasStagedVideo() const { return staged.video.has_value(); }
    /// Bytes that hold a video no trailer and no box knows: they do not come along into another file.
    void leaveOut(Stretch const& video) { leftOut = video; }
    Stretch const& getLeftOut() const { return leftOut; }
    /// What a commit in place would write first; what is staged stays as it is.
    PacketAhead packetAhead();
    /// Throws what a commit into `output` would refuse of what is staged, and of a trailer that is written there
    /// anyway.
    void requireCommittable(MediaFile const& output, bool isTrailerWritten);
    /// The photo is a copy, just made with room for so many bytes of XMP.
    void knowRoom(uint32_t size);
    /// Stages what `other` has staged, whose file this one's is a copy of; the packet is the caller's affair. After the
    /// first time only what is new counts. `recordPlace` says where in this file's trailer a record of the other's
    /// stands.
    void adopt(MotionPhotoEditImpl const& other, bool isFirst, bool isNewVideo,
               std::function<uint32_t(uint32_t)> const& recordPlace);
    /// Whether the packet has changes that the photo's own file has not got yet.
    bool isXMPStaged() const { return parts.xmpEdit->isDirty() || staged.isXMPSetAside; }

private:
    void stageRecord(int type, std::string const& key, ByteSource const& data);
    void stageVideo(VideoSource const& video);
    void noteVideoEdit(std::optional<VideoSource> const& video);
    std::optional<ByteSource> pointedVideo(QRTInfoImpl const& trailer, QRTDataInfo const& record) const;
    void requireStillWithVideo() const;
    bool isSource(MediaFile const& file) const;
    bool hasVideoAfterwards() const;

    void commitInPlace();

    std::shared_ptr<MotionPhotoInfo> view;
    MotionPhotoParts parts; ///< of the same view
    std::shared_ptr<Mediator> mediator;
    StagedMotion staged;
    std::unique_ptr<MotionPhotoCommit> inPlace;
    VideoEdit videoEdit;
    Stretch leftOut;
    std::vector<std::shared_ptr<MotionPhotoTarget>> targets;
    std::shared_ptr<MotionPhotoTarget> otherFile; ///< the one that commits go to; null: the source
};

} // namespace android::lumo
