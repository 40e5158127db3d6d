// SPDX-License-Identifier: Apache-2.0
// The commit of a motion photo, step by step; MotionPhotoEditImpl.h numbers what it upholds.
#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "MotionPhotoEditImpl.h"
#include "MotionPhotoMediator.h"
#include "MotionPhotoTarget.h"
#include "VideoBox.h"
#include "io/HEIFMetaWriter.h"
#include "io/ImageMetaReader.h"

#include <algorithm>
#include <optional>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
/// What XMP takes in a file besides its packet: identifier and rounding in a JPEG, boxes in a HEIC.
constexpr size_t XMP_OVERHEAD = 256;
constexpr uint32_t MIN_XMP_ROOM = ImageMetaWriter::MIN_XMP_ROOM;
/// The fields of a motion photo take no more, in XMP that has none of them.
constexpr uint32_t EXPECTED_FIELDS = 2048;

} // namespace

/// The packet as the caller staged it, for a commit that fails: the next one starts over.
class MotionPhotoEditImpl::PacketKeeper {
public:
    explicit PacketKeeper(MotionPhotoEditImpl& owner)
        : editor(owner), contents(owner.impl->getPacket()->copyContents()), wasDirty(owner.xmpEdit->isDirty()) {}
    ~PacketKeeper() {
        if (isDone)
            return;
        editor.impl->getPacket()->exchange(std::move(contents));
        if (wasDirty)
            editor.xmpEdit->makeDirty();
        else
            editor.xmpEdit->setAside();
    }
    PacketKeeper(PacketKeeper const&) = delete;
    PacketKeeper& operator=(PacketKeeper const&) = delete;
    void release() { isDone = true; }

private:
    MotionPhotoEditImpl& editor;
    XMPInfoImpl::Contents contents;
    bool wasDirty;
    bool isDone = false;
};

void MotionPhotoEditImpl::commit(std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no target given");
    if (isSource(*file)) {
        outputFile = file;
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
    if (otherFile == nullptr)
        return commitInPlace();
    LOGI("commit: %p", static_cast<void*>(this));
    otherFile->commit(*this, outputSource);
    isXMPSetAside = isXMPStaged();
    isTrailerSetAside = isTrailerSetAside || qrtEdit->isDirty();
    xmpEdit->setAside();
    qrtEdit->cleanDirty();
}

void MotionPhotoEditImpl::commitInPlace() {
    LOGI("commit: %p", static_cast<void*>(this));
    if (outputSource != nullptr)
        throw ErrorAt()("a prepared still needs another file to be written to, not the source");
    if (isXMPSetAside)
        xmpEdit->makeDirty();
    if (isTrailerSetAside || stagedVideo)
        qrtEdit->makeDirty();
    requireCommittable(*outputFile);
    PacketKeeper packet(*this);
    mediator->reset();
    try {
        writeInPlace();
    } catch (...) {
        noteGrowth();
        throw;
    }
    packet.release();
    finish();
}

void MotionPhotoEditImpl::writeInPlace() {
    size_t const orgFileSize = getFileSize();
    isMomentTaken = false;
    bool const isWithoutXMP = isVideoRemovalWithoutXMP();
    std::optional<checked::SpaceKeeper> space;
    if (!isWithoutXMP) {
        prepareCommit();
        space.emplace(outputFile, expectedFileSize());
        prepareImageType();
    }
    LOGI("xmp-isDirty: %d, qrt-isDirty: %d", xmpEdit->isDirty(), qrtEdit->isDirty());
    if (xmpEdit->isDirty() && !isWithoutXMP)
        xmpEdit->commit(outputFile);
    for (auto const& extra : extras)
        extra.second(outputFile);
    if (qrtEdit->isDirty())
        qrtEdit->commit(outputFile);
    if (isWithoutXMP)
        xmpEdit->setAside();
    else
        completeCommit(orgFileSize);
}

/// Room for a box or for XMP that was opened and could not be given back is nobody's: a second commit would take it for
/// a part of the image. What the trailer's editor has left it knows itself.
void MotionPhotoEditImpl::noteGrowth() noexcept {
    try {
        auto const& trailer = *impl->getTrailer();
        uint64_t known = trailer.getImageSize();
        if (trailer.getTrailerSize() > 0)
            known += uint64_t{trailer.boxHeaderSize()} + trailer.getTrailerSize();
        uint32_t const size = outputFile->size();
        if (isHEIC() && !qrtEdit->staging().isUnfinished() && size > known)
            sizeWithGrowth = size;
    } catch (std::exception const& e) {
        LOGE("fail to look at what a failed commit has left: %s", e.what());
    }
}

void MotionPhotoEditImpl::prepareCommit() {
    restoreTrailer();
    prepareXMP();
    stageExpectedFields();
}

/// Invariant 1. What only the container knows (a packet that fits no segment, a layout that cannot be written again) is
/// refused by the first container step, which checks before it moves anything.
void MotionPhotoEditImpl::requireCommittable(MediaFile const& output) {
    checked::requireEditable(output);
    if (sizeWithGrowth != 0 && outputFile->size() == sizeWithGrowth)
        throw ErrorAt().as(Error::Code::CHANGED)(
            "the file has changed since it was read: a commit that failed has left "
            "unused bytes in it");
    if (!qrtEdit->isDirty() && !xmpEdit->isDirty() && extras.empty())
        return;
    if (stagedVideo)
        stagedVideo->requireReadable(output, "the video");
    if (qrtEdit->isDirty() || !extras.empty())
        static_cast<void>(qrtEdit->staging().plan()); // a file that is no longer the one that was read, before all else
    if (isHEIC() && !extras.empty())
        video_box::requireMovable(outputFile, qrtEdit->staging().plan().getGround().image);
    if (!isHEIC() && !extras.empty())
        requirePointedVideoLast();
    impl->getPacket()->requireUnchanged();
    requireTimestamp();
    checked::sizeOf(uint64_t{expectedFileSize()} + XMP_OVERHEAD + MIN_XMP_ROOM);
}

/// A moment behind the new video's end: one that the file had becomes the video's end, one that was set for this edit
/// is a mistake.
void MotionPhotoEditImpl::requireTimestamp() const {
    if (!isVideoReplaced)
        return;
    std::string const staged = VideoFields(*xmpEdit).timestamp();
    bool const isRead = staged == takenTimestamp ||
                        staged == XMPInfoImpl(sourceFile).getProperty(xmp_ns::CAMERA, VideoFields::TIMESTAMP);
    if (staged.empty() || (isRead && !isTimestampSet))
        return;
    auto const duration = stagedVideo->durationUs();
    if (duration && getCaptureTimestampUs() > *duration)
        throw ErrorAt()("the presentation timestamp %s lies behind the video's end at %lld us", staged.c_str(),
                        static_cast<long long>(*duration));
}

/// The most bytes the output will have on the way, so that a full disk is found before its first byte moves. A size
/// that needs no new space is not asked for, however little is left.
uint32_t MotionPhotoEditImpl::expectedFileSize() {
    uint64_t size = outputFile->size();
    uint64_t most = size;
    if (xmpEdit->isDirty()) {
        auto const room = ImageMetaReader::of(outputFile, ParseMode::LAZY)->getXMP();
        size_t const needed = std::max<size_t>(xmpEdit->serializeToBuffer().size() + room.offset, MIN_XMP_ROOM);
        size += room.payload < needed ? needed + XMP_OVERHEAD : 0;
    }
    most = std::max(most, size);
    if (isHEIC() && !extras.empty()) {
        size -= std::min(size, video_box::totalSize(outputFile));
        size += stagedVideo ? video_box::sizeFor(*stagedVideo) : 0;
        most = std::max(most, size);
    }
    if (qrtEdit->isDirty()) {
        auto const plan = qrtEdit->staging().plan();
        most = std::max(most, size + plan.workSize() - std::min(plan.getGround().fileSize, plan.workSize()));
    }
    return checked::sizeOf(most);
}

// XMP. ----------------------------------------------------------------------------------------------------------------

/// Nothing is left to be said of a video, and nothing else is asked for: a HEIC without XMP stays without, and needs no
/// room for any.
bool MotionPhotoEditImpl::isVideoRemovalWithoutXMP() {
    if (!isHEIC() || !isMotionPhotoXMPRemoved || !xmpEdit->isEmpty())
        return false;
    auto const& staged = qrtEdit->staging().getStaged();
    bool const onlyRemoves =
        std::all_of(staged.begin(), staged.end(), [](auto const& each) { return each.isInFile(); });
    return onlyRemoves && !HEIFMetaWriter::isTrailerHidden(*outputFile) &&
           ImageMetaReader::of(outputFile, ParseMode::LAZY)->findAllXMP().empty();
}

void MotionPhotoEditImpl::prepareXMP() {
    VideoFields fields(*xmpEdit);
    if (!isImageDataXMPRemoved && !fields.containsPrimary())
        fields.fillPrimary(getImageMimeType());
    if (isMotionPhotoXMPRemoved)
        return;
    if (!fields.contains() || (stagedVideo && !fields.isClaimed())) { // "0": it had no video
        fields.claim();
        fields.addItem();
    }
}

/// Invariant 3. Only a commit that will write anything anyway is given the values, and only those that differ.
void MotionPhotoEditImpl::stageExpectedFields() {
    if (isMotionPhotoXMPRemoved || (!qrtEdit->isDirty() && !xmpEdit->isDirty()))
        return;
    VideoFields fields(*xmpEdit);
    auto const expected = expectedVideo();
    if (!expected)
        return stagePublishedFields();
    // A change of XMP alone leaves the video's moment as it is.
    bool const isMissing = qrtEdit->isDirty() && fields.timestamp().empty();
    if (isMissing || (isVideoReplaced && !fields.timestamp().empty())) {
        auto const duration = expected->durationUs();
        if (duration && (isMissing || getCaptureTimestampUs() > *duration)) {
            fields.setTimestamp(*duration);
            fields.claim();
            isMomentTaken = true;
        }
    }
    fields.setPlace(expected->length, expected->padding);
}

/// Where the video will lie, from the trailer alone: neither number depends on the image in front of it.
std::optional<MotionPhotoEditImpl::ExpectedVideo> MotionPhotoEditImpl::expectedVideo() {
    ExpectedVideo expected;
    expected.durationUs = [this]() -> std::optional<int64_t> {
        auto const held =
            VideoSource(sourceFile, static_cast<uint32_t>(getVideoPosition()), static_cast<uint32_t>(getVideoSize()));
        return stagedVideo ? stagedVideo->durationUs() : held.durationUs();
    };
    if (!qrtEdit->isDirty()) { // the trailer stays as it was written, in that order or another
        if (!impl->hasVideo() || (!isHEIC() && hasPointedVideo()))
            return std::nullopt;
        expected.length = outputFile->size() - static_cast<uint32_t>(getVideoPosition());
        expected.padding = static_cast<uint32_t>(getImageVideoPadding());
        return expected;
    }
    auto const plan = qrtEdit->staging().plan();
    auto const* place = plan.find(qrt::TYPE_MOTION_PHOTO_DATA);
    if (place == nullptr)
        return std::nullopt;
    if (place->record->dataSize > MAX_POINTER_RECORD_SIZE) {
        expected.length = plan.lengthFrom(*place);
        expected.padding = isHEIC() ? static_cast<uint32_t>(getImageVideoPadding()) : plan.paddingOf(*place);
        return expected;
    }
    if (!isHEIC() || (!stagedVideo && !impl->hasVideo()))
        return std::nullopt;
    uint32_t const inFront =
        stagedVideo ? stagedVideo->size() : plan.getGround().image - static_cast<uint32_t>(getVideoPosition());
    expected.length = inFront + plan.behindImage();
    expected.padding = video_box::HEADER_SIZE;
    return expected;
}

MotionPhotoEditImpl::PacketAhead MotionPhotoEditImpl::packetAhead() {
    bool const isStaged = qrtEdit->isDirty() || xmpEdit->isDirty() || !extras.empty();
    if (!isStaged || isXMPSetAside || isTrailerSetAside || isVideoRemovalWithoutXMP())
        return {};
    PacketKeeper const keeper(*this);
    prepareXMP();
    stageExpectedFields();
    if (!isHEIC() && !xmpEdit->isDirty())
        return {};
    return {impl->getPacket()->getMeta(), xmpEdit->serializeToBuffer(), xmpEdit->isDirty()};
}

/// The values are read off the finished file; nothing here may fail for a reason that could be foreseen.
void MotionPhotoEditImpl::completeCommit(size_t orgFileSize) {
    size_t const fileSize = getFileSize();
    LOGI("completeCommit: isMotionPhotoXMPRemoved=%d, orgFileSize=%zu, fileSize=%zu", isMotionPhotoXMPRemoved,
         orgFileSize, fileSize);
    if (isMotionPhotoXMPRemoved || fileSize == orgFileSize)
        return;
    LOGI("size is changed %zu > %zu, update xmp mp info", orgFileSize, fileSize);
    if (!impl->hasVideo())
        return;
    VideoFields fields(*xmpEdit);
    if (fields.timestamp().empty()) {
        VideoSource const video(sourceFile, static_cast<uint32_t>(getVideoPosition()),
                                static_cast<uint32_t>(getVideoSize()));
        if (auto const duration = video.durationUs()) {
            fields.setTimestamp(*duration);
            fields.claim();
            isMomentTaken = true;
        }
    }
    if (isMomentTaken)
        LOGI("set presentation timestampUs= %ld", getCaptureTimestampUs());
    // A pointer of a JPEG may lead to a video in front of the image's end; no bytes lie between them then.
    size_t const padding = getImageVideoPadding();
    fields.setPlace(static_cast<uint32_t>(fileSize - getVideoPosition()),
                    padding <= fileSize ? static_cast<uint32_t>(padding) : 0);
    if (xmpEdit->isDirty())
        xmpEdit->commit(outputFile);
}

/// Without a video no claim is made, by this commit or a later one.
void MotionPhotoEditImpl::finish() {
    extras.clear();
    stagedVideo.reset();
    videoEdit.reset();
    isVideoReplaced = false;
    isTimestampSet = false;
    takenTimestamp.clear();
    isXMPSetAside = false;
    isTrailerSetAside = false;
    targets.clear();
}

// A HEIC's container. -------------------------------------------------------------------------------------------------

/// An image part that cannot be written again is found before the trailer moves; what the XMP will need exactly is
/// known only afterwards.
void MotionPhotoEditImpl::requireRoomForFields() const {
    uint32_t const need = static_cast<uint32_t>(xmpEdit->serializeToBuffer().size()) + EXPECTED_FIELDS;
    HEIFMetaWriter writer(outputFile);
    if (writer.xmpRoom() < need)
        writer.requireRoomCanBeMade(std::max(MIN_XMP_ROOM, need));
}

/// A trailer that other boxes hide comes to the file's end. Until then neither view nor editor knew its records: they
/// are taken in now, in front of what is staged, except those that the staged changes replace or remove. A commit that
/// fails in between leaves that to the next one.
void MotionPhotoEditImpl::restoreTrailer() {
    if (isHEIC() && HEIFMetaWriter::isTrailerHidden(*outputFile)) {
        requireRoomForFields();
        isTrailerFound = true;
        HEIFMetaWriter::restoreTrailerOrder(outputFile);
    }
    if (!isTrailerFound)
        return;
    mediator->notify(this, Event::CONTAINER_RESTRUCTURED, outputFile);
    qrtEdit->staging().takeUpFound(
        [this](auto const& record) { return isMotionPhotoXMPRemoved && belongsToVideo(record); });
    qrtEdit->makeDirty();
    isTrailerFound = false;
}

/// A HEIC's XMP has a room of fixed size. What is staged must fit, so the image is written again with a larger room
/// when it does not; the trailer then stands elsewhere and is read again.
void MotionPhotoEditImpl::prepareImageType() {
    if (!isHEIC() || (!xmpEdit->isDirty() && !qrtEdit->isDirty() && extras.empty()))
        return;
    uint32_t const need = static_cast<uint32_t>(xmpEdit->serializeToBuffer().size());
    HEIFMetaWriter writer(outputFile);
    uint32_t const room = writer.xmpRoom();
    if (room >= std::max(need, 1U))
        return;
    impl->getPacket()->requireUnchanged();
    writer.reserveXMP(HEIFMetaWriter::roomFor(need));
    impl->getPacket()->roomOpened();
    mediator->notify(this, Event::CONTAINER_RESTRUCTURED, outputFile);
}

} // namespace android::lumo
