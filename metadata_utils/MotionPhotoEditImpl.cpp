// SPDX-License-Identifier: Apache-2.0
#include "MotionPhotoEditImpl.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "MotionPhotoCommit.h"
#include "MotionPhotoCopy.h"
#include "MotionPhotoMediator.h"
#include "MotionPhotoTarget.h"
#include "VideoFields.h"
#include "io/TrailingBoxes.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
} // namespace

MotionPhotoEditImpl::MotionPhotoEditImpl(std::shared_ptr<MotionPhotoInfo> const& info) : view(info) {
    parts.view = std::dynamic_pointer_cast<MotionPhotoInfoImpl>(info);
    if (parts.view == nullptr)
        throw ErrorAt()("a motion-photo editor needs the library's own view");
    parts.outputFile = parts.view->getFile();
    parts.isHEIC = parts.view->getImageMimeType() == MediaDefs::MimeType::IMAGE_HEIC;
    mediator = std::make_shared<Mediator>(parts);
    getQRTEdit();
    getXMPEdit();
    inPlace = std::make_unique<MotionPhotoCommit>(parts, staged, *mediator);
}

MotionPhotoEditImpl::~MotionPhotoEditImpl() = default;

MPQRTEdit& MotionPhotoEditImpl::getQRTEdit() {
    if (parts.qrtEdit == nullptr)
        parts.qrtEdit = std::make_unique<MPQRTEdit>(
            view->getQRTInfo()->edit(), [this](MediaFile const& file) { inPlace->prepareTrailer(file); },
            [relay = mediator](MPQRTEdit* sender) {
                relay->notify(sender, Event::TRAILER_WRITTEN, sender->staging().getOutput());
            });
    return *parts.qrtEdit;
}

MPXMPEdit& MotionPhotoEditImpl::getXMPEdit() {
    if (parts.xmpEdit == nullptr)
        parts.xmpEdit = std::make_unique<MPXMPEdit>(view->getXMPInfo()->edit(), [relay = mediator](MPXMPEdit* sender) {
            relay->notify(sender, Event::XMP_WRITTEN, sender->getOutput());
        });
    return *parts.xmpEdit;
}

/// The file a caller names as the one being edited.
bool MotionPhotoEditImpl::isSource(MediaFile const& file) const {
    return checked::isSameFile(file, *parts.view->getFile());
}

/// What is staged counts: a video staged for removal is not there any more.
bool MotionPhotoEditImpl::hasVideoAfterwards() const {
    return staged.video || (!staged.isMotionPhotoXMPRemoved && getVideoSize() > 0);
}

MotionPhotoEdit& MotionPhotoEditImpl::setPhotoPresentationTimestampUs(long timestampUs) {
    VideoFields fields(*parts.xmpEdit);
    if (!fields.contains())
        fields.claim();
    fields.setTimestamp(timestampUs);
    staged.isTimestampSet = true;
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
    if (type == qrt::TYPE_MOTION_PHOTO_DATA && parts.isHEIC) {
        stageVideo(VideoSource(data));
        parts.qrtEdit->putData(qrt::TYPE_MOTION_PHOTO_VERSION, qrt::NAME_MOTION_PHOTO_VERSION,
                               MediaDefs::motionphotoFormatString(MediaDefs::MotionPhotoFormat::MPV3));
    } else {
        parts.qrtEdit->staging().stage(type, key, data);
        if (type == qrt::TYPE_MOTION_PHOTO_DATA)
            noteVideoEdit(VideoSource(data));
    }
    parts.qrtEdit->makeDirty();
}

MotionPhotoEdit& MotionPhotoEditImpl::addQRTInfo(std::shared_ptr<QRTInfo> const& info) {
    if (info == nullptr)
        throw ErrorAt()("no trailer given");
    auto const other = QRTInfoImpl::of(*info);
    auto const records = other->getRecordList(); // a copy: it may be this view's own list that grows
    for (auto const& record : records) {
        auto const pointed = pointedVideo(*other, record);
        bool const isVideo = record.type == qrt::TYPE_MOTION_PHOTO_DATA;
        if (isVideo && parts.isHEIC) {
            stageRecord(record.type, record.name, pointed ? *pointed : parts.qrtEdit->staging().dataOf(*other, record));
            continue;
        }
        auto shown = parts.qrtEdit->staging().append(*other, record, pointed);
        if (isVideo)
            noteVideoEdit(shown.dataFile != nullptr ? VideoSource(shown.dataFile, shown.dataPosition, shown.dataPayload)
                                                    : VideoSource(std::make_shared<ByteBuffer const>(shown.data)));
        parts.view->getTrailer()->append(std::move(shown));
    }
    parts.qrtEdit->makeDirty();
    return *this;
}

/// A pointer names bytes of the file it stands in: what it points to comes along, not the pointer. A view of a HEIC
/// has resolved it already.
std::optional<ByteSource> MotionPhotoEditImpl::pointedVideo(QRTInfoImpl const& trailer,
                                                            QRTDataInfo const& record) const {
    auto const& file = trailer.getFile();
    bool const isStored = trailer::isStored(record);
    if (record.type != qrt::TYPE_MOTION_PHOTO_DATA || !isStored)
        return std::nullopt;
    auto const stored = trailer::storedData(record, trailer.getTailPosition());
    auto const pointer = VideoPointer::in(*file, record.type, stored);
    if (!pointer)
        return std::nullopt;
    ByteSource const data(file, pointer->position, pointer->length);
    return isSource(*file) ? ByteSource(std::make_shared<ByteBuffer const>(data.load())) : data;
}

MotionPhotoEdit& MotionPhotoEditImpl::addXMPInfo(std::shared_ptr<XMPInfo> const& info) {
    if (info == nullptr)
        throw ErrorAt()("no XMP given");
    info->copyTo(*parts.xmpEdit);
    staged.takenTimestamp = VideoFields(*parts.xmpEdit).timestamp();
    parts.xmpEdit->makeDirty();
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
            video.requireReadable(*parts.outputFile, "the video");
    }
    MotionPhotoCopy copy(*source, *parts.view, *parts.qrtEdit, *parts.xmpEdit);
    copy.records(options);
    copy.packet(options, videoComesAlong, getImageMimeType());
    staged.takenTimestamp = VideoFields(*parts.xmpEdit).timestamp();
    if (videoComesAlong)
        stageVideo(video);
    else if (!hasVideoAfterwards())
        staged.isMotionPhotoXMPRemoved = true;
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
    parts.qrtEdit->staging().removeWhere([](auto const& record) {
        return record.type == qrt::TYPE_MOTION_PHOTO_DATA && record.name != qrt::NAME_MOTION_PHOTO_DATA;
    });
    if (parts.isHEIC) { // until the box is written, the pointer to the old one keeps the record's place
        bool const hasBox = parts.view->hasVideo() && heif::TrailingBoxes(parts.outputFile).videosSize() > 0;
        VideoPointer const old{VideoPointer::TAG, hasBox ? static_cast<uint32_t>(getVideoPosition()) : 0,
                               hasBox ? static_cast<uint32_t>(getVideoSize()) : 0};
        parts.qrtEdit->putData(qrt::TYPE_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_DATA, old.encode());
    } else {
        if (video.size() <= VideoPointer::MAX_RECORD_SIZE)
            LOGW("a video of %zu bytes will be read as a pointer, %zu is the largest such record", size_t{video.size()},
                 size_t{VideoPointer::MAX_RECORD_SIZE});
        parts.qrtEdit->staging().stage(qrt::TYPE_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_DATA, video);
    }
    noteVideoEdit(video);
    parts.qrtEdit->makeDirty();
}

/// What is staged last about the video wins. With one there will be its XMP, whatever was removed before.
void MotionPhotoEditImpl::noteVideoEdit(std::optional<VideoSource> const& video) {
    staged.extras.clear();
    staged.video = video;
    staged.isMotionPhotoXMPRemoved = !video;
    staged.isVideoReplaced = false;
    staged.replacedTimestamp.clear();
    if (video && parts.view->hasVideo())
        staged.replacedTimestamp =
            parts.view->getPacket()->packetInFile()->get(xmp_ns::CAMERA, VideoFields::TIMESTAMP).value_or("");
    parts.qrtEdit->staging().dropSubInfo(qrt::TYPE_MOTION_PHOTO_DATA);
    parts.qrtEdit->staging().cutWhenEmpty(!video);
    if (parts.isHEIC && video)
        staged.extras[ExtraType::MOTION_PHOTO_VIDEO_BOX] = [this, video](auto const& file) {
            inPlace->outsideVideo().addMPVDBox(file, *video);
        };
    else if (parts.isHEIC)
        staged.extras[ExtraType::MOTION_PHOTO_VIDEO_BOX] = [this](auto const& file) {
            inPlace->outsideVideo().removeMPVDBox(file);
        };
    else
        staged.extras[ExtraType::MOTION_PHOTO_VIDEO_BOX] = [this](auto const& file) {
            inPlace->outsideVideo().removePointedVideo(file);
        };
    videoEdit = std::make_shared<Extra const>(staged.extras[ExtraType::MOTION_PHOTO_VIDEO_BOX]);
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
    staged.isVideoReplaced = true;
    parts.xmpEdit->replaceItemField(VideoFields::ITEM, motion_names::LENGTH, std::to_string(bytes->size()));
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::removeVideo(std::shared_ptr<MediaFile> const& file) {
    bool const isEdited = file == nullptr || isSource(*file) || (otherFile != nullptr && otherFile->isFile(*file));
    if (!isEdited)
        throw ErrorAt()("not the file being edited: %s", file->toString().c_str());
    parts.qrtEdit->staging().removeWhere(belongsToVideo);
    parts.qrtEdit->makeDirty();
    VideoFields(*parts.xmpEdit).clear();
    noteVideoEdit(std::nullopt);
    return *this;
}

// Commit. -------------------------------------------------------------------------------------------------------------

void MotionPhotoEditImpl::commit(std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no target given");
    if (isSource(*file)) {
        parts.outputFile = file;
        otherFile = nullptr;
        return commit();
    }
    auto known = std::find_if(targets.begin(), targets.end(), [&](auto const& each) { return each->isFile(*file); });
    if (known == targets.end()) {
        if (file->size() > 0)
            throw ErrorAt()("the target is not empty, and not one this editor wrote: %s", file->toString().c_str());
        known = targets.insert(known, std::make_shared<MotionPhotoTarget>(file));
    }
    otherFile = *known;
    commit();
}

void MotionPhotoEditImpl::commit() {
    if (parts.qrtEdit->staging().leaveTarget()) // of a commit of its own, which spent nothing
        parts.qrtEdit->makeDirty();
    if (otherFile == nullptr)
        return commitInPlace();
    LOGI("commit: %p", static_cast<void*>(this));
    otherFile->commit(*this, outputSource);
    staged.isXMPSetAside = isXMPStaged();
    staged.isTrailerSetAside = staged.isTrailerSetAside || parts.qrtEdit->isDirty();
    parts.xmpEdit->setAside();
    parts.qrtEdit->cleanDirty();
}

void MotionPhotoEditImpl::commitInPlace() {
    LOGI("commit: %p", static_cast<void*>(this));
    if (outputSource != nullptr)
        throw ErrorAt()("a prepared still needs another file to be written to, not the source");
    if (staged.isXMPSetAside)
        parts.xmpEdit->makeDirty();
    if (staged.isTrailerSetAside || staged.video)
        parts.qrtEdit->makeDirty();
    inPlace->write();
    staged.isMotionPhotoXMPRemoved = staged.isMotionPhotoXMPRemoved || inPlace->hasEndedClaims();
    staged.spend();
    videoEdit.reset();
    targets.clear();
}

void MotionPhotoEditImpl::requireCommittable(MediaFile const& output, bool isTrailerWritten) {
    inPlace->requireCommittable(output, isTrailerWritten);
}

void MotionPhotoEditImpl::knowRoom(uint32_t size) {
    mediator->knowRoom(size);
}

PacketAhead MotionPhotoEditImpl::packetAhead() {
    return inPlace->packetAhead();
}

// For the editor of another file. -------------------------------------------------------------------------------------

void MotionPhotoEditImpl::adopt(MotionPhotoEditImpl const& other, bool isFirst, bool isNewVideo,
                                std::function<uint32_t(uint32_t)> const& recordPlace) {
    bool const isStaged = other.parts.qrtEdit->isDirty() || other.staged.isTrailerSetAside;
    bool const isNew = parts.qrtEdit->staging().adopt(other.parts.qrtEdit->staging(), recordPlace);
    if (isStaged && (isNew || isFirst))
        parts.qrtEdit->makeDirty();
    if (isNewVideo && other.videoEdit != nullptr) {
        noteVideoEdit(other.staged.video);
        staged.isVideoReplaced = other.staged.isVideoReplaced;
        staged.replacedTimestamp = other.staged.replacedTimestamp;
    }
    staged.isMotionPhotoXMPRemoved = other.staged.isMotionPhotoXMPRemoved;
    staged.isTimestampSet = other.staged.isTimestampSet;
    staged.takenTimestamp = other.staged.takenTimestamp;
}

} // namespace android::lumo
