// SPDX-License-Identifier: Apache-2.0
// A video that stands outside the trailer, in a HEIC's box or where a JPEG's pointer leads: in, out, and the pointer.
#include "ErrorAt.h"
#include "Log.h"
#include "MotionPhotoEditImpl.h"
#include "MotionPhotoMediator.h"
#include "PhotoLayout.h"
#include "VideoBox.h"
#include "io/MoveTail.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";

} // namespace

/// A box that is there already is replaced; what stood behind it stands in front of the new one, the trailer behind.
void MotionPhotoEditImpl::addMPVDBox(std::shared_ptr<MediaFile> const& file, VideoSource const& video) {
    mediator->notify(this, Event::BEFORE_VIDEO_BOX, file);
    video_box::takeOut(file);
    impl->getTrailer()->adjustPosition(file->size());
    uint32_t const position = qrtEdit->staging().plan().getGround().image;
    uint32_t const begin = video_box::write(file, position, video);
    impl->getTrailer()->adjustPosition(file->size());
    replaceMPDataByMPVDBox(begin, video.size());
    promoteVersionRecord();
    qrtEdit->makeDirty();
}

void MotionPhotoEditImpl::removeMPVDBox(std::shared_ptr<MediaFile> const& file) {
    mediator->notify(this, Event::BEFORE_VIDEO_BOX, file);
    video_box::takeOut(file);
    impl->getTrailer()->adjustPosition(file->size());
}

/// The pointer that the file has now leads to a whole video in front of the trailer.
bool MotionPhotoEditImpl::hasPointedVideo() const {
    auto const& trailer = *impl->getTrailer();
    auto const& records = trailer.getRecordList();
    auto const record = std::find_if(records.begin(), records.end(), ofType(qrt::TYPE_MOTION_PHOTO_DATA));
    if (isHEIC() || record == records.end() || !VideoPointer::mayStandIn(record->type, record->dataPayload))
        return false;
    uint64_t const end = uint64_t{getVideoPosition()} + getVideoSize();
    return getVideoPosition() > 0 && getVideoSize() > 0 && end <= trailer.getImageSize() &&
           VideoFields::standsAt(*outputFile, outputFile->size() - static_cast<uint32_t>(getVideoPosition()));
}

/// A video that a JPEG's pointer leads to goes with the pointer, when nothing but the trailer stands behind it.
void MotionPhotoEditImpl::requirePointedVideoLast() const {
    size_t const end = getVideoPosition() + getVideoSize();
    if (hasPointedVideo() && end != getImageSize())
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("other bytes stand between the video that ends at %zu and the "
                                                     "trailer",
                                                     end);
}

void MotionPhotoEditImpl::removePointedVideo(std::shared_ptr<MediaFile> const& file) {
    requirePointedVideoLast();
    if (!hasPointedVideo())
        return;
    auto const size = static_cast<uint32_t>(getVideoSize());
    moveTail(file, static_cast<uint32_t>(getVideoPosition()) + size, -int64_t{size});
    impl->getTrailer()->adjustPosition(file->size());
    qrtEdit->makeDirty();
}

/// A video that the trailer does not hold, told of by XMP or a HEIC's box: what counts from the file's end follows the
/// trailer, and an item that was only now added says where the video is.
void MotionPhotoEditImpl::stagePublishedFields() {
    PhotoLayout const layout(outputFile);
    auto const video = layout.locate();
    if (!video.isSound())
        return;
    int64_t growth = 0;
    if (qrtEdit->isDirty() && qrtEdit->staging().writesTrailer()) {
        auto const plan = qrtEdit->staging().plan();
        growth = int64_t{plan.behindImage()} - (plan.getGround().fileSize - plan.getGround().image);
    }
    auto& packet = *impl->getPacket()->getMeta();
    auto const held = claims::read(packet);
    bool const isNew = held.video() != nullptr && held.video()->lengthText.empty();
    if (isNew) {
        uint32_t const behind = layout.fileSize - video.position - video.size;
        claims::setField(packet, *held.video(), "Length", std::to_string(video.size));
        claims::setField(packet, *held.video(), "Padding", std::to_string(behind));
        if (layout.videoBox && held.primary() != nullptr)
            claims::setField(packet, *held.primary(), "Padding", std::to_string(layout.videoBox->headerSize));
    }
    bool const isCounted = isNew || layout.fromDirectory().isSound() || layout.fromMicroVideo().isSound();
    if (isNew || (isCounted && growth != 0))
        xmpEdit->followEnd(growth);
}

void MotionPhotoEditImpl::replaceMPDataByMPVDBox(uint32_t position, uint32_t length) {
    LOGI("replaceMPDataByMPVDBox");
    qrtEdit->staging().settle(qrt::TYPE_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_DATA,
                              VideoPointer{VideoPointer::TAG, position, length}.encode());
}

/// The pointer of a photo whose version record reads "mpv1" would never be resolved.
void MotionPhotoEditImpl::promoteVersionRecord() {
    auto const tag = [](auto format) { return MediaDefs::motionphotoFormatString(format); };
    auto const& staged = qrtEdit->staging().getStaged();
    auto const version = std::find_if(staged.begin(), staged.end(),
                                      [](auto const& record) { return record.type == qrt::TYPE_MOTION_PHOTO_VERSION; });
    if (version == staged.end())
        return;
    std::string const oldTag = tag(MediaDefs::MotionPhotoFormat::MPV1);
    std::string const newTag = tag(MediaDefs::MotionPhotoFormat::MPV3);
    auto const text = qrtEdit->staging().load(*version).toTypedData<std::string>([](unsigned char c) { return c; });
    if (text.starts_with(oldTag))
        qrtEdit->staging().settle(version->type, std::string(version->name),
                                  ByteBuffer(std::vector<uint8_t>(newTag.begin(), newTag.end())));
}

} // namespace android::lumo
