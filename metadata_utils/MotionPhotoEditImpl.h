#pragma once

#include "ErrorAt.h"
#include "MPQRTEdit.h"
#include "MPXMPEdit.h"
#include "MotionPhotoEdit.h"
#include "MotionPhotoInfoImpl.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <unordered_map>

namespace android::lumo {

/// The editor's error for all files it is written in: whoever reads the message looks for the class.
inline ErrorAt photoEditError(int line = __builtin_LINE()) {
    return ErrorAt(line, "metadata_utils/MotionPhotoEditImpl");
}

/// The motion-photo editor.
///
/// What a commit upholds:
///  1. Everything foreseeable is refused before the first byte moves: an input that cannot be written, a result past 4
///  GiB.
///  2. The order is XMP, video box, trailer, XMP fix-up: what stands in front moves what stands behind, never the
///  reverse.
///  3. The XMP committed first already holds the fix-up's values, so the fix-up changes no sizes behind the video.
///  4. All of it works on one file, the output. For commit(target) that file gets the source's bytes first and the view
///  is
///     attached to it until the end, so both kinds of commit run the same steps on the same bytes. The source is not
///     written.
///  5. Afterwards the view describes its own file again, whatever happened.
class MotionPhotoEditImpl : public MotionPhotoEdit {
public:
    enum class ExtraType : int32_t { MOTION_PHOTO_VIDEO_BOX = 0 };
    /// What the sub-editors and container steps tell the mediator.
    enum class Event : int32_t {
        TRAILER_WRITTEN = 0,
        XMP_WRITTEN = 1,
        BEFORE_VIDEO_BOX = 2,
        CONTAINER_RESTRUCTURED = 3,
    };
    class Mediator;
    using Extra = std::function<void(std::shared_ptr<MediaFile> const&)>;

    explicit MotionPhotoEditImpl(std::shared_ptr<MotionPhotoInfo> const& info);
    ~MotionPhotoEditImpl() override;

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

    std::shared_ptr<MotionPhotoInfoImpl> const& getView() const { return impl; }

private:
    class OutputSession;

    /// Where a staged video's bytes come from, and how many they were when it was staged.
    struct StagedVideo {
        std::shared_ptr<MediaFile> file;
        std::shared_ptr<ByteBuffer> bytes;
        uint32_t length = 0;
        uint32_t size() const { return length; }
    };
    /// What the fix-up will find once the trailer is written.
    struct ExpectedVideo {
        uint32_t length = 0;                                ///< from the video's first byte to the file's end
        uint32_t padding = 0;                               ///< from the image's end to the video's first byte
        std::function<std::optional<int64_t>()> durationUs; ///< asked only when there is no timestamp
    };

    // Staging (MotionPhotoEditImpl.cpp).
    void stageVideo(StagedVideo video);
    void noteStagedVideo();
    void stageTrailerVideo(StagedVideo const& video);
    bool isHEIC() const;
    static bool belongsToVideo(QRTDataInfo const& record);
    void requireStillWithVideo() const;
    bool isOutputSource(std::shared_ptr<MediaFile> const& other) const;

    // The steps of a commit (MotionPhotoCommit.cpp).
    void prepareCommit();
    void requireCommittable();
    void requireBoxVideo() const;
    uint32_t expectedFileSize() const;
    void requireRoomForFields() const;
    void restoreTrailer();
    void prepareImageType();
    void prepareXMP();
    void prepareOutputFile();
    void completeCommit(size_t orgFileSize);
    void stageExpectedFields();
    std::optional<ExpectedVideo> expectedVideo();
    std::optional<int64_t> expectedDuration(QRTDataInfo const& record);
    void setVideoFields(uint32_t length, uint32_t padding);
    void setTimestampFromDuration(std::optional<int64_t> const& durationUs);
    std::optional<int64_t> tryDuration(std::function<int64_t()> const& duration) const;
    uint32_t videoPadding() const;
    void finish();
    bool containsMotionPhotoPropInXMP() const;
    void fillMotionPhotoPropInXMP();
    bool containsImageDataInXMP() const;
    void fillImageDataInXMP();

    // The HEIC video box (MotionPhotoBox.cpp).
    void stageVideoBox(StagedVideo const& video);
    void addMPVDBox(std::shared_ptr<MediaFile> const& target, StagedVideo const& video);
    void requireSpaceForBox(std::shared_ptr<MediaFile> const& target, uint32_t imageSize, uint32_t videoSize);
    uint32_t replaceMPVDBox(std::shared_ptr<MediaFile> const& target, uint32_t imageSize, StagedVideo const& video);
    uint32_t dropVideoBoxes(std::shared_ptr<MediaFile> const& target, uint32_t imageSize);
    void removeMPVDBox(std::shared_ptr<MediaFile> const& file);
    void writeVideoBox(std::shared_ptr<MediaFile> const& target, uint32_t position, StagedVideo const& video);
    void replaceMPDataByMPVDBox(uint32_t position, uint32_t length);
    void promoteVersionRecord();
    std::optional<ExpectedVideo> expectedBoxVideo(std::vector<QRTDataInfo> const& layout);

    // Taking over other photos' content (MotionPhotoTransfer.cpp).
    void copyRecords(MotionPhotoInfo const& source, std::filesystem::copy_options options);
    void copyPacket(MotionPhotoInfo const& source, std::filesystem::copy_options options, bool videoComesAlong);
    void resetXMPOfGainmap();
    void removeGainMapProperties();
    void restoreGainMap(XMPPacket const& own, std::set<std::string> const& names);
    void composeFromOutputSource();
    void adoptPacket(XMPInfoImpl const& prepared);

    std::shared_ptr<MediaFile> sourceFile;
    std::shared_ptr<MediaFile> outputFile;
    std::shared_ptr<MotionPhotoInfo> view;
    std::shared_ptr<MotionPhotoInfoImpl> impl; ///< the same view
    std::unique_ptr<MPQRTEdit> qrtEdit;
    std::unique_ptr<MPXMPEdit> xmpEdit;
    std::shared_ptr<Mediator> mediator;
    bool isMotionPhotoXMPRemoved = false;
    bool isImageDataXMPRemoved = false;
    bool isVideoStaged = false;
    std::optional<StagedVideo> stagedBox; ///< what an action under `extras` will write as the video box
    std::unordered_map<ExtraType, Extra> extras;
};

/// The relay between the editor and its sub-editors: whoever changed the file tells it, and it brings the others up to
/// date.
class MotionPhotoEditImpl::Mediator {
public:
    explicit Mediator(MotionPhotoEditImpl& owner) : editor(owner) {}

    void notify(void const* sender, Event event);
    /// A commit begins, perhaps on another file: the next size is news.
    void reset() { lastSize = 0; }

private:
    void onTrailerWritten(size_t size);
    void onXMPWritten(size_t size);

    size_t lastSize = 0; ///< the output's size when it last acted
    MotionPhotoEditImpl& editor;
};

} // namespace android::lumo
