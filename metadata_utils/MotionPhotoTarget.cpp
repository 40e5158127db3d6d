// SPDX-License-Identifier: Apache-2.0
#include "MotionPhotoTarget.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MotionVideo.h"
#include "PacketMerge.h"
#include "PhotoCopy.h"
#include "PhotoLayout.h"
#include "PublishedPhoto.h"
#include "VideoClaims.h"
#include "VideoFields.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"
#include "io/MoveRest.h"

#include <algorithm>
#include <optional>

namespace android::lumo {

namespace {

/// Bytes of a still that are the image: everything in front of its video box and trailer.
uint32_t imageLength(std::shared_ptr<MediaFile> const& still) {
    if (still->mimeType() == MediaDefs::MimeType::IMAGE_HEIC)
        return HEIFMetaReader(still, ParseMode::LAZY).getEndOfImagePosition(true);
    return QRTInfoImpl(still, {}).getImageSize();
}

/// Where what comes along begins: behind the image, or with the video that a JPEG's pointer leads to and that the image
/// ends with. Its trailer's pointer follows; both have to be there.
uint32_t startOfMotion(MotionPhotoEditImpl const& owner) {
    auto const& view = *owner.getView();
    auto const& photo = *view.getFile();
    uint32_t const image = imageLength(view.getFile());
    bool const isInImage = view.getVideoSize() > 0 && view.getVideoPosition() < image;
    auto const start = static_cast<uint32_t>(view.getVideoPosition());
    bool const isJPEG = photo.mimeType() == MediaDefs::MimeType::IMAGE_JPEG;
    if (isJPEG && view.getVideoSize() == 0) { // the packet alone may tell of one, and of bytes behind it
        auto const items = claims::read(*view.getPacket()->getMeta()).items;
        if (auto const length = VideoFields::find(photo, *view.getPacket())) {
            if (!items.empty() && !items.back().isVideo() && !items.back().isPrimary())
                throw ErrorAt().as(Error::Code::UNSUPPORTED, photo)(
                    "the item %s stands behind the video, which does not come to a prepared still without it",
                    items.back().semantic.c_str());
            return std::min(photo.size() - *length, image);
        }
    }
    bool const endsImage = isInImage && view.getVideoPosition() + view.getVideoSize() == image;
    if (endsImage && isJPEG && VideoFields::standsAt(photo, photo.size() - start))
        return start;
    if (isInImage)
        throw ErrorAt().as(Error::Code::UNSUPPORTED, photo)(
            "the video at %zu lies in front of the image's end at %zu and does not come to a prepared still",
            static_cast<size_t>(view.getVideoPosition()), size_t{image});
    if (photo.mimeType() == MediaDefs::MimeType::IMAGE_HEIC && HEIFMetaWriter::isTrailerHidden(photo))
        throw ErrorAt().as(Error::Code::UNSUPPORTED, photo)(
            "other boxes stand behind the trailer: a commit into the photo itself brings it to the end first");
    return image;
}

} // namespace

void MotionPhotoTarget::commit(MotionPhotoEditImpl& owner, std::shared_ptr<MediaFile> const& prepared) {
    bool const isFirst = editor == nullptr || prepared != still;
    std::optional<PhotoCopy> copy;
    std::optional<QRTEditImpl::OnePlan> planned(owner.getQRTEdit().staging());
    std::optional<KeptBoxes::OneLook> boxes(owner.getBoxes());
    owner.requireCommittable(*file, isFirst && prepared != nullptr);
    if (isFirst) {
        editor = nullptr;
        still = prepared;
        if (still != nullptr)
            composePhoto(owner);
        else
            copy.emplace(owner).writeTo(file);
        auto const none =
            copy ? std::make_shared<XMPPacket>() : nullptr; // the copy's view is handed the owner's packet
        editor = std::make_shared<MotionPhotoEditImpl>(std::make_shared<MotionPhotoInfoImpl>(file, none));
    }
    planned.reset();
    boxes.reset();
    try {
        handOver(owner, isFirst, copy ? &*copy : nullptr);
        editor->commit();
    } catch (...) {
        if (isFirst)
            editor = nullptr;
        throw;
    }
}

void MotionPhotoTarget::composePhoto(MotionPhotoEditImpl const& owner) {
    auto const& photo = owner.getView()->getFile();
    if (checked::isSameFile(*file, *still))
        throw ErrorAt()("the prepared still is the output itself: %s", still->toString().c_str());
    if (still->mimeType() != photo->mimeType())
        throw ErrorAt()("the prepared still is of another type: %s, expected %s",
                        MediaDefs::mimeString(still->mimeType()).c_str(),
                        MediaDefs::mimeString(photo->mimeType()).c_str());
    XMPInfoImpl(still).requireUnchanged(); // it may be refused for its packet
    uint32_t const from = startOfMotion(owner);
    bool const hadVideo = takeStillWithoutVideo();
    uint32_t const imageSize = imageLength(hadVideo ? file : still);
    uint32_t const appended = photo->size() - from;
    uint32_t const total = checked::sizeOf(uint64_t{imageSize} + appended);

    checked::requireSpace(*file, total);
    if (!hadVideo) {
        checked::seek(*file, 0);
        checked::copy(still, file, 0, imageSize);
    }
    checked::truncate(*file, imageSize);
    if (photo->mimeType() == MediaDefs::MimeType::IMAGE_HEIC)
        HEIFMetaWriter::closeLastBox(file);
    checked::seek(*file, imageSize);
    checked::copy(photo, file, from, appended);
    VideoPointerKeeper(file).moved(from, int64_t{imageSize} - int64_t{from});
}

/// The prepared still may be a published photo itself, with the video that the photo's now replaces: it goes, and what
/// claims it. False, and nothing written, where there is none.
bool MotionPhotoTarget::takeStillWithoutVideo() {
    auto const video = MotionVideo::locate(still);
    if (!video.isSound() || video.source == MotionVideo::Source::TRAILER)
        return false;
    published::removeVideo(still, file);
    return true;
}

/// The packet of a plain copy becomes the owner's. Into a prepared still's own packet go the motion and what was
/// edited, into one that was committed here before only what was edited since.
void MotionPhotoTarget::handOver(MotionPhotoEditImpl& owner, bool isFirst, PhotoCopy const* copy) {
    auto const& packet = owner.getView()->getPacket();
    auto& xmpEdit = editor->getXMPEdit();
    bool const isNewVideo = isFirst || owner.getVideoEdit() != handedVideo;
    if (!isFirst && isNewVideo && !owner.hasStagedVideo()) { // only this file's packet may claim one
        VideoFields(xmpEdit).clear();
        xmpEdit.makeDirty();
    }
    if (isFirst && still == nullptr) {
        auto const ahead = copy != nullptr ? copy->packetAhead() : PacketAhead();
        editor->getView()->getPacket()->adopt(ahead.packet != nullptr ? ahead.packet : packet->getMeta()->clone(),
                                              ahead.bytes);
        if (copy != nullptr)
            editor->knowRoom(copy->getRoom());
        if (copy != nullptr && copy->holdsPacket())
            editor->getView()->getPacket()->trustFile();
        else if (owner.isXMPStaged() || ahead.isChanged)
            xmpEdit.makeDirty();
    } else if (isFirst) {
        VideoFields fields(xmpEdit);
        if (!fields.containsPrimary())
            fields.fillPrimary(owner.getImageMimeType()); // the directory begins with the image
        auto const before = std::make_shared<XMPInfoImpl>(owner.getView()->getFile());
        before->takeOthersThatAgree();
        packets::merge(*before, *packet, xmpEdit, true);
        if (auto const box = PhotoLayout(file).videoBox; box && fields.containsItem())
            fields.correctPadding(box->headerSize);
        xmpEdit.makeDirty();
    } else if (handedPacket->serializeToBuffer() != packet->serializeToBuffer()) {
        packets::merge(*handedPacket, *packet, xmpEdit, false);
        xmpEdit.makeDirty();
    }
    editor->adopt(owner, isFirst, isNewVideo,
                  [copy](uint32_t place) { return copy != nullptr ? copy->recordPlace(place) : place; });
    if (isFirst && still != nullptr) // the trailer is news for it
        editor->getQRTEdit().makeDirty();
    handedPacket = std::make_shared<XMPInfoImpl>(owner.getView()->getFile(), packet->getMeta()->clone());
    handedVideo = owner.getVideoEdit();
}

} // namespace android::lumo
