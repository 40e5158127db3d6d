// SPDX-License-Identifier: Apache-2.0
#include "CommitFields.h"

#include "ErrorAt.h"
#include "Log.h"
#include "MotionVideo.h"
#include "PhotoLayout.h"
#include "VideoClaims.h"
#include "VideoFields.h"
#include "io/TrailingBoxes.h"
#include "io/VideoPointer.h"

#include <string>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";

VideoSource videoOf(MotionPhotoInfoImpl const& view) {
    auto const [position, size] = view.videoPlace();
    return VideoSource(view.getFile(), position, size);
}

} // namespace

/// A moment behind the new video's end: one that the file had becomes the video's end, one that was set for this edit
/// is a mistake.
void CommitFields::requireTimestamp() const {
    if (!staged.isVideoReplaced)
        return;
    std::string const moment = VideoFields(*parts.xmpEdit).timestamp();
    bool const isRead =
        moment == staged.takenTimestamp || moment == staged.replacedTimestamp ||
        moment == XMPInfoImpl(parts.view->getFile()).getProperty(xmp_ns::CAMERA, VideoFields::TIMESTAMP);
    if (moment.empty() || (isRead && !staged.isTimestampSet))
        return;
    auto const duration = staged.video->durationUs();
    if (duration && parts.view->getCaptureTimestampUs() > *duration)
        throw ErrorAt()("the presentation timestamp %s lies behind the video's end at %lld us", moment.c_str(),
                        static_cast<long long>(*duration));
}

void CommitFields::prepareXMP() {
    VideoFields fields(*parts.xmpEdit);
    if (!fields.containsPrimary())
        fields.fillPrimary(parts.view->getImageMimeType());
    if (staged.isMotionPhotoXMPRemoved)
        return;
    if (staged.video && fields.contains() && !fields.isClaimed()) // "0": it had no video
        fields.dropWithdrawn();
    // The moment alone claimed a video that the first generation or a box has told of so far.
    auto const isTold = [&] {
        return fields.containsOffset() || (parts.isHEIC && parts.trailingBoxes()->videosSize() > 0);
    };
    bool const isNewClaim = staged.isTimestampSet && !fields.containsItem() && isTold();
    if (!fields.contains() || isNewClaim || (staged.video && !fields.isClaimed())) {
        fields.claim();
        fields.addItem();
    }
}

/// Only a commit that will write anything anyway is given the values, and only those that differ.
void CommitFields::stageExpectedFields() {
    if (staged.isMotionPhotoXMPRemoved || (!parts.qrtEdit->isDirty() && !parts.xmpEdit->isDirty()))
        return;
    VideoFields fields(*parts.xmpEdit);
    auto const expected = expectedVideo(Written::EVERYTHING);
    if (!expected && isRecordTakenOut()) {
        hasTakenClaimsOut = true;
        return fields.clear();
    }
    if (!expected)
        return stagePublishedFields();
    // A change of XMP alone leaves the video's moment as it is.
    bool const isMissing = parts.qrtEdit->isDirty() && fields.timestamp().empty();
    if (isMissing || isMomentOfReplaced(fields.timestamp())) {
        auto const duration = expected->durationUs();
        if (duration && (isMissing || parts.view->getCaptureTimestampUs() > *duration))
            takeMoment(*duration);
    }
    fields.setPlace(expected->length, expected->padding);
}

/// The video's own record goes, as any other: nothing may claim a video then.
bool CommitFields::isRecordTakenOut() const {
    bool const isInTrailer = !parts.isHEIC && parts.view->hasVideo() && !outside.pointedVideo();
    return isInTrailer && parts.qrtEdit->isDirty() &&
           parts.qrtEdit->staging().plan().find(qrt::TYPE_MOTION_PHOTO_DATA) == nullptr;
}

/// A moment of the old video, which means nothing behind the new one's end.
bool CommitFields::isMomentOfReplaced(std::string const& moment) const {
    if (moment.empty() || staged.isVideoReplaced)
        return !moment.empty();
    return moment == staged.replacedTimestamp && moment != staged.takenTimestamp && !staged.isTimestampSet;
}

void CommitFields::stageTrailerFields() {
    auto const expected = expectedVideo(Written::TRAILER);
    if (!expected)
        return followGrowth(Written::TRAILER, false);
    VideoFields fields(*parts.xmpEdit);
    if (!parts.xmpEdit->containsItem(VideoFields::ITEM, false))
        return;
    fields.setLength(expected->length);
    fields.correctPadding(expected->padding);
}

/// Where the video will lie, from the trailer alone: neither number depends on the image in front of it.
std::optional<CommitFields::ExpectedVideo> CommitFields::expectedVideo(Written written) const {
    ExpectedVideo expected;
    expected.durationUs = [this]() -> std::optional<int64_t> {
        return staged.video ? staged.video->durationUs() : videoOf(*parts.view).durationUs();
    };
    bool const writesTrailer = written == Written::TRAILER || parts.qrtEdit->isDirty();
    if (!writesTrailer) { // it stays as it was written, in that order or another
        if (!parts.view->hasVideo() || (!parts.isHEIC && outside.pointedVideo()))
            return std::nullopt;
        expected.length = parts.outputFile->size() - static_cast<uint32_t>(parts.view->getVideoPosition());
        expected.padding = static_cast<uint32_t>(parts.view->getImageVideoPadding());
        return expected;
    }
    auto const plan = parts.qrtEdit->staging().plan();
    auto const* place = plan.find(qrt::TYPE_MOTION_PHOTO_DATA);
    if (place == nullptr)
        return std::nullopt;
    if (place->record->dataSize > VideoPointer::MAX_RECORD_SIZE) {
        expected.length = plan.lengthFrom(*place);
        expected.padding =
            parts.isHEIC ? static_cast<uint32_t>(parts.view->getImageVideoPadding()) : plan.paddingOf(*place);
        return expected;
    }
    bool const writesBox = written == Written::EVERYTHING && staged.video;
    if (!parts.isHEIC || (!writesBox && !parts.view->hasVideo()))
        return std::nullopt;
    uint32_t const inFront = writesBox ? staged.video->size()
                                       : plan.getGround().image - static_cast<uint32_t>(parts.view->getVideoPosition());
    expected.length = plan.lengthFrom(inFront);
    expected.padding = heif::TrailingBoxes::VIDEO_HEADER_SIZE;
    return expected;
}

/// A video that the trailer does not hold, told of by XMP or a HEIC's box: what counts from the file's end follows the
/// trailer, unless it does already, and an item that was only now added says where the video is.
void CommitFields::stagePublishedFields() {
    auto& packet = *parts.view->getPacket()->getMeta();
    auto const held = claims::read(packet);
    bool const isNew = held.video() != nullptr && held.video()->lengthText.empty();
    if (isNew && !describeNewItem(packet, held))
        return;
    followGrowth(Written::EVERYTHING, isNew);
}

/// A length counts a trailer directly behind the video, as it does when the trailer comes later. False without a video.
bool CommitFields::describeNewItem(XMPPacket& packet, claims::Claims const& held) {
    PhotoLayout const layout(parts.outputFile);
    uint32_t const imageEnd =
        parts.qrtEdit->isDirty() ? parts.qrtEdit->staging().plan().getGround().image : layout.trailerStart();
    auto& found = outside.toldOf;
    if (!found) {
        auto video = layout.locate();
        if (!video.isSound()) // of a prepared still the file does not say it yet
            video = MotionVideo::locate(*parts.view);
        if (!video.isSound() || video.position > imageEnd)
            return false;
        found = {imageEnd - video.position, video.size};
    }
    uint32_t const toEnd = layout.fileSize - imageEnd + found->toImageEnd;
    uint32_t const length = found->size == found->toImageEnd ? toEnd : found->size;
    claims::setField(packet, *held.video(), motion_names::LENGTH, std::to_string(length));
    claims::setField(packet, *held.video(), motion_names::PADDING, std::to_string(toEnd - length));
    if (!held.microVideoOffset.empty())
        packet.set(xmp_ns::CAMERA, motion_names::MICRO_VIDEO_OFFSET, std::to_string(toEnd));
    if (layout.videoBox && held.primary() != nullptr)
        claims::setField(packet, *held.primary(), motion_names::PADDING, std::to_string(layout.videoBox->headerSize));
    return true;
}

void CommitFields::followGrowth(Written written, bool isNew) {
    int64_t growth = 0;
    bool const isAsked = written == Written::TRAILER || parts.qrtEdit->isDirty();
    if (isAsked && parts.qrtEdit->staging().writesTrailer()) {
        auto const plan = parts.qrtEdit->staging().plan();
        growth = plan.growth();
    }
    if (isNew || (growth != 0 && VideoFields::find(*parts.outputFile, *parts.xmpEdit)))
        parts.xmpEdit->followEnd(growth);
}

void CommitFields::completeCommit(size_t orgFileSize) {
    size_t const fileSize = parts.view->getFileSize();
    LOGI("completeCommit: isMotionPhotoXMPRemoved=%d, orgFileSize=%zu, fileSize=%zu", staged.isMotionPhotoXMPRemoved,
         orgFileSize, fileSize);
    if (staged.isMotionPhotoXMPRemoved || fileSize == orgFileSize)
        return;
    LOGI("size is changed %zu > %zu, update xmp mp info", orgFileSize, fileSize);
    if (!parts.view->hasVideo())
        return;
    VideoFields fields(*parts.xmpEdit);
    if (fields.timestamp().empty()) {
        if (auto const duration = videoOf(*parts.view).durationUs())
            takeMoment(*duration);
    }
    if (isMomentTaken)
        LOGI("set presentation timestampUs= %ld", parts.view->getCaptureTimestampUs());
    // A pointer of a JPEG may lead to a video in front of the image's end; no bytes lie between them then.
    size_t const padding = parts.view->getImageVideoPadding();
    fields.setPlace(static_cast<uint32_t>(fileSize - parts.view->getVideoPosition()),
                    padding <= fileSize ? static_cast<uint32_t>(padding) : 0);
    if (parts.xmpEdit->isDirty())
        parts.xmpEdit->commit(parts.outputFile);
}

void CommitFields::takeMoment(int64_t durationUs) {
    VideoFields fields(*parts.xmpEdit);
    fields.setTimestamp(durationUs);
    fields.claim();
    isMomentTaken = true;
}

} // namespace android::lumo
