// SPDX-License-Identifier: Apache-2.0
// Staging: what the caller wants changed, kept in the sub-editors until commit.
#include "MotionPhotoEditImpl.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "MotionPhotoCopy.h"
#include "MotionPhotoMediator.h"
#include "MotionPhotoTarget.h"
#include "VideoBox.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
/// Records that go with the video.
constexpr char const* VIDEO_RECORDS[] = {qrt::NAME_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_VERSION,
                                         qrt::NAME_MOTION_PHOTO_INFO, qrt::NAME_MOTION_PHOTO_AUTO_PLAY,
                                         qrt::NAME_LONG_EXPOSURE_INFO};

} // namespace

MotionPhotoEditImpl::MotionPhotoEditImpl(std::shared_ptr<MotionPhotoInfo> const& info)
    : view(info), impl(std::dynamic_pointer_cast<MotionPhotoInfoImpl>(info)) {
    if (impl == nullptr)
        throw ErrorAt()("a motion-photo editor needs the library's own view");
    sourceFile = impl->getFile();
    outputFile = sourceFile;
    mediator = std::make_shared<Mediator>(*this);
    extras.max_load_factor(1.0F);
    getQRTEdit();
    getXMPEdit();
}

MotionPhotoEditImpl::~MotionPhotoEditImpl() = default;

MPQRTEdit& MotionPhotoEditImpl::getQRTEdit() {
    if (qrtEdit == nullptr)
        qrtEdit = std::make_unique<MPQRTEdit>(view->getQRTInfo()->edit(), [relay = mediator](MPQRTEdit* sender) {
            relay->notify(sender, Event::TRAILER_WRITTEN, sender->staging().getOutput());
        });
    return *qrtEdit;
}

MPXMPEdit& MotionPhotoEditImpl::getXMPEdit() {
    if (xmpEdit == nullptr)
        xmpEdit = std::make_unique<MPXMPEdit>(view->getXMPInfo()->edit(), [relay = mediator](MPXMPEdit* sender) {
            relay->notify(sender, Event::XMP_WRITTEN, sender->getOutput());
        });
    return *xmpEdit;
}

/// The file a caller names as the one being edited.
bool MotionPhotoEditImpl::isSource(MediaFile const& file) const {
    return MediaFile::isFdsDup(file.getFd(), sourceFile->getFd());
}

bool MotionPhotoEditImpl::belongsToVideo(StagedRecord const& record) {
    return record.type == qrt::TYPE_MOTION_PHOTO_DATA || record.type == qrt::TYPE_MOTION_PHOTO_VERSION ||
           std::find(std::begin(VIDEO_RECORDS), std::end(VIDEO_RECORDS), record.name) != std::end(VIDEO_RECORDS);
}

/// What is staged counts: a video staged for removal is not there any more.
bool MotionPhotoEditImpl::hasVideoAfterwards() const {
    return stagedVideo || (!isMotionPhotoXMPRemoved && getVideoSize() > 0);
}

MotionPhotoEdit& MotionPhotoEditImpl::setPhotoPresentationTimestampUs(long timestampUs) {
    VideoFields fields(*xmpEdit);
    if (!fields.contains())
        fields.claim();
    fields.setTimestamp(timestampUs);
    isTimestampSet = true;
    return *this;
}

// Records. ------------------------------------------------------------------------------------------------------------

MotionPhotoEdit& MotionPhotoEditImpl::addQRTData(int type, std::string const& key, ByteBuffer const& data) {
    stageRecord(type, key, ByteSource(std::make_shared<ByteBuffer const>(data)));
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::addQRTData(int type, std::string const& key,
                                                 std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no data file for record %s", key.c_str());
    stageRecord(type, key, ByteSource(file));
    return *this;
}

/// A video goes where the still has its place for one.
void MotionPhotoEditImpl::stageRecord(int type, std::string const& key, ByteSource const& data) {
    if (type == qrt::TYPE_MOTION_PHOTO_DATA && isHEIC()) {
        stageVideo(VideoSource(data));
        qrtEdit->putData(qrt::TYPE_MOTION_PHOTO_VERSION, qrt::NAME_MOTION_PHOTO_VERSION,
                         MediaDefs::motionphotoFormatString(MediaDefs::MotionPhotoFormat::MPV3));
    } else {
        qrtEdit->staging().stage(type, key, data);
        if (type == qrt::TYPE_MOTION_PHOTO_DATA)
            noteVideoEdit(VideoSource(data));
    }
    qrtEdit->makeDirty();
}

MotionPhotoEdit& MotionPhotoEditImpl::addQRTInfo(std::shared_ptr<QRTInfo> const& info) {
    if (info == nullptr)
        throw ErrorAt()("no trailer given");
    auto const other = QRTInfoImpl::of(*info);
    auto const records = other->getRecordList(); // a copy: it may be this view's own list that grows
    for (auto const& record : records) {
        auto const pointed = pointedVideo(*other, record);
        bool const isVideo = record.type == qrt::TYPE_MOTION_PHOTO_DATA;
        if (isVideo && isHEIC()) {
            stageRecord(record.type, record.name, pointed ? *pointed : qrtEdit->staging().dataOf(*other, record));
            continue;
        }
        auto shown = qrtEdit->staging().append(*other, record, pointed);
        if (isVideo)
            noteVideoEdit(shown.dataFile != nullptr ? VideoSource(shown.dataFile, shown.dataPosition, shown.dataPayload)
                                                    : VideoSource(std::make_shared<ByteBuffer const>(shown.data)));
        impl->getTrailer()->append(std::move(shown));
    }
    qrtEdit->makeDirty();
    return *this;
}

/// A pointer names bytes of the file it stands in: what it points to comes along, not the pointer. A view of a HEIC
/// has resolved it already.
std::optional<ByteSource> MotionPhotoEditImpl::pointedVideo(QRTInfoImpl const& trailer,
                                                            QRTDataInfo const& record) const {
    auto const& file = trailer.getFile();
    bool const isStored = record.offsetFromTail > 0 && record.payload > 0;
    if (record.type != qrt::TYPE_MOTION_PHOTO_DATA || !isStored)
        return std::nullopt;
    auto const stored = trailer::storedData(record, trailer.getTailPosition());
    if (!VideoPointer::mayStandIn(record.type, stored.size))
        return std::nullopt;
    auto const pointer = VideoPointer::decode(checked::readAt(*file, stored.position, VideoPointer::SIZE));
    if (!pointer)
        return std::nullopt;
    ByteSource const data(file, pointer->position, pointer->length);
    return isSource(*file) ? ByteSource(std::make_shared<ByteBuffer const>(data.load())) : data;
}

MotionPhotoEdit& MotionPhotoEditImpl::addXMPInfo(std::shared_ptr<XMPInfo> const& info) {
    if (info == nullptr)
        throw ErrorAt()("no XMP given");
    info->copyTo(*xmpEdit);
    takenTimestamp = VideoFields(*xmpEdit).timestamp();
    xmpEdit->makeDirty();
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::addAll(std::shared_ptr<MotionPhotoInfo> const& source,
                                             std::filesystem::copy_options const& options) {
    if (source == nullptr)
        throw ErrorAt()("no motion photo given");
    bool const skipsExisting =
        (options & std::filesystem::copy_options::skip_existing) != std::filesystem::copy_options::none;
    bool const videoComesAlong = source->getVideoSize() > 0 && !(skipsExisting && hasVideoAfterwards());
    VideoSource video;
    if (videoComesAlong) {
        auto const& from = MotionPhotoInfoImpl::of(*source);
        video = VideoSource(from.getFile(), static_cast<uint32_t>(source->getVideoPosition()),
                            static_cast<uint32_t>(source->getVideoSize()));
        if (isSource(*from.getFile()))
            video = VideoSource(std::make_shared<ByteBuffer const>(video.load()));
        else
            video.requireReadable(*outputFile, "the video");
    }
    MotionPhotoCopy copy(*source, *impl, *qrtEdit, *xmpEdit);
    copy.records(options);
    copy.packet(options, videoComesAlong, getImageMimeType());
    takenTimestamp = VideoFields(*xmpEdit).timestamp();
    if (videoComesAlong)
        stageVideo(video);
    else if (!hasVideoAfterwards())
        isMotionPhotoXMPRemoved = true;
    return *this;
}

// The video. ----------------------------------------------------------------------------------------------------------

/// Only JPEG and HEIC stills have a place for a video.
void MotionPhotoEditImpl::requireStillWithVideo() const {
    auto const type = getImageMimeType();
    if (type != MediaDefs::MimeType::IMAGE_JPEG && type != MediaDefs::MimeType::IMAGE_HEIC)
        throw ErrorAt(476).as(Error::Code::UNSUPPORTED)("not implemented yet");
}

/// One record 2608 holds the video or points to it; another of that type under a different name would make it
/// ambiguous.
void MotionPhotoEditImpl::stageVideo(VideoSource const& video) {
    requireStillWithVideo();
    if (video.getFile() == nullptr && video.getBuffer() == nullptr)
        throw ErrorAt()("no video given");
    if (video.size() == 0)
        throw ErrorAt()("the video is empty");
    if (video.getFile() != nullptr && isSource(*video.getFile()))
        throw ErrorAt()("the video is the still itself: %s", video.getFile()->toString().c_str());
    qrtEdit->staging().removeWhere([](auto const& record) {
        return record.type == qrt::TYPE_MOTION_PHOTO_DATA && record.name != qrt::NAME_MOTION_PHOTO_DATA;
    });
    if (isHEIC()) { // until the box is written, the pointer to the old one keeps the record's place
        bool const hasBox = impl->hasVideo() && video_box::totalSize(outputFile) > 0;
        VideoPointer const old{VideoPointer::TAG, hasBox ? static_cast<uint32_t>(getVideoPosition()) : 0,
                               hasBox ? static_cast<uint32_t>(getVideoSize()) : 0};
        qrtEdit->putData(qrt::TYPE_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_DATA, old.encode());
    } else {
        if (video.size() <= MAX_POINTER_RECORD_SIZE)
            LOGW("a video of %zu bytes will be read as a pointer, %zu is the largest such record", size_t{video.size()},
                 size_t{MAX_POINTER_RECORD_SIZE});
        qrtEdit->staging().stage(qrt::TYPE_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_DATA, video);
    }
    noteVideoEdit(video);
    qrtEdit->makeDirty();
}

/// What is staged last about the video wins. With one there will be its XMP, whatever was removed before.
void MotionPhotoEditImpl::noteVideoEdit(std::optional<VideoSource> const& video) {
    extras.clear();
    stagedVideo = video;
    isMotionPhotoXMPRemoved = !video;
    isVideoReplaced = false;
    qrtEdit->staging().cutWhenEmpty(!video);
    if (isHEIC() && video)
        extras[ExtraType::MOTION_PHOTO_VIDEO_BOX] = [this, video](auto const& file) { addMPVDBox(file, *video); };
    else if (isHEIC())
        extras[ExtraType::MOTION_PHOTO_VIDEO_BOX] = [this](auto const& file) { removeMPVDBox(file); };
    else
        extras[ExtraType::MOTION_PHOTO_VIDEO_BOX] = [this](auto const& file) { removePointedVideo(file); };
    videoEdit = std::make_shared<Extra const>(extras[ExtraType::MOTION_PHOTO_VIDEO_BOX]);
}

MotionPhotoEdit& MotionPhotoEditImpl::addVideo(std::shared_ptr<MediaFile> const& video) {
    stageVideo(VideoSource(video));
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::addVideo(std::shared_ptr<ByteBuffer> const& video) {
    stageVideo(VideoSource(std::shared_ptr<ByteBuffer const>(video)));
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::replaceVideo(std::shared_ptr<MediaFile> const& video) {
    requireStillWithVideo();
    if (video == nullptr)
        throw ErrorAt()("no video given");
    if (isSource(*video))
        throw ErrorAt()("the video is the still itself: %s", video->toString().c_str());
    auto const bytes = std::make_shared<ByteBuffer const>(video->readAllBytes());
    stageVideo(VideoSource(bytes));
    isVideoReplaced = true;
    xmpEdit->replaceItemField(VideoFields::ITEM, "Length", std::to_string(bytes->size()));
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::removeVideo(std::shared_ptr<MediaFile> const& file) {
    bool const isEdited = file == nullptr || isSource(*file) || (otherFile != nullptr && otherFile->isFile(*file));
    if (!isEdited)
        throw ErrorAt()("not the file being edited: %s", file->toString().c_str());
    qrtEdit->staging().removeWhere(belongsToVideo);
    qrtEdit->makeDirty();
    VideoFields(*xmpEdit).clear();
    noteVideoEdit(std::nullopt);
    return *this;
}

// For the editor of another file. -------------------------------------------------------------------------------------

void MotionPhotoEditImpl::adopt(MotionPhotoEditImpl const& other, bool isFirst, bool isNewVideo,
                                std::function<uint32_t(uint32_t)> const& recordPlace) {
    bool const isStaged = other.qrtEdit->isDirty() || other.isTrailerSetAside;
    if (qrtEdit->staging().adopt(other.qrtEdit->staging(), recordPlace) || (isFirst && isStaged))
        qrtEdit->makeDirty();
    if (isNewVideo && other.videoEdit != nullptr) {
        noteVideoEdit(other.stagedVideo);
        isVideoReplaced = other.isVideoReplaced;
    }
    isMotionPhotoXMPRemoved = other.isMotionPhotoXMPRemoved;
    isImageDataXMPRemoved = other.isImageDataXMPRemoved;
    isTimestampSet = other.isTimestampSet;
    takenTimestamp = other.takenTimestamp;
}

} // namespace android::lumo
