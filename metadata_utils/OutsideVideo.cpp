// SPDX-License-Identifier: Apache-2.0
#include "OutsideVideo.h"

#include "ErrorAt.h"
#include "Log.h"
#include "VideoBox.h"
#include "VideoFields.h"
#include "io/MoveTail.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";

} // namespace

/// A box that is there already is replaced; what stood behind it stands in front of the new one, the trailer behind.
void OutsideVideo::addMPVDBox(std::shared_ptr<MediaFile> const& file, VideoSource const& video) {
    mediator.notify(this, MotionPhotoEditImpl::Event::BEFORE_VIDEO_BOX, file);
    video_box::takeOut(file);
    parts.view->getTrailer()->adjustPosition(file->size());
    uint32_t const position = parts.qrtEdit->staging().plan().getGround().image;
    uint32_t const begin = video_box::write(file, position, video);
    parts.view->getTrailer()->adjustPosition(file->size());
    replaceMPDataByMPVDBox(begin, video.size());
    promoteVersionRecord();
    parts.qrtEdit->makeDirty();
}

void OutsideVideo::removeMPVDBox(std::shared_ptr<MediaFile> const& file) {
    mediator.notify(this, MotionPhotoEditImpl::Event::BEFORE_VIDEO_BOX, file);
    video_box::takeOut(file);
    parts.view->getTrailer()->adjustPosition(file->size());
}

/// The pointer that the file has now leads to a whole video in front of the trailer.
bool OutsideVideo::hasPointedVideo() const {
    auto const& trailer = *parts.view->getTrailer();
    auto const& records = trailer.getRecordList();
    auto const record = std::find_if(records.begin(), records.end(), ofType(qrt::TYPE_MOTION_PHOTO_DATA));
    if (parts.isHEIC() || record == records.end() || !VideoPointer::mayStandIn(record->type, record->dataPayload))
        return false;
    uint64_t const end = uint64_t{parts.view->getVideoPosition()} + parts.view->getVideoSize();
    return parts.view->getVideoPosition() > 0 && parts.view->getVideoSize() > 0 && end <= trailer.getImageSize() &&
           VideoFields::standsAt(*parts.outputFile,
                                 parts.outputFile->size() - static_cast<uint32_t>(parts.view->getVideoPosition()));
}

/// A video that a JPEG's pointer leads to goes with the pointer, when nothing but the trailer stands behind it.
void OutsideVideo::requirePointedVideoLast() const {
    size_t const end = parts.view->getVideoPosition() + parts.view->getVideoSize();
    if (hasPointedVideo() && end != parts.view->getImageSize())
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("other bytes stand between the video that ends at %zu and the "
                                                     "trailer",
                                                     end);
}

void OutsideVideo::removePointedVideo(std::shared_ptr<MediaFile> const& file) {
    requirePointedVideoLast();
    if (!hasPointedVideo())
        return;
    auto const size = static_cast<uint32_t>(parts.view->getVideoSize());
    uint64_t const changes = file->changes();
    try {
        moveTail(file, static_cast<uint32_t>(parts.view->getVideoPosition()) + size, -int64_t{size});
    } catch (...) {
        isCutShort = file->changes() != changes;
        throw;
    }
    parts.view->getTrailer()->adjustPosition(file->size());
    parts.qrtEdit->makeDirty();
}

void OutsideVideo::replaceMPDataByMPVDBox(uint32_t position, uint32_t length) {
    LOGI("replaceMPDataByMPVDBox");
    parts.qrtEdit->staging().settle(qrt::TYPE_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_DATA,
                                    VideoPointer{VideoPointer::TAG, position, length}.encode());
}

/// The pointer of a photo whose version record reads "mpv1" would never be resolved.
void OutsideVideo::promoteVersionRecord() {
    auto const tag = [](auto format) { return MediaDefs::motionphotoFormatString(format); };
    auto const& staged = parts.qrtEdit->staging().getStaged();
    auto const version = std::find_if(staged.begin(), staged.end(),
                                      [](auto const& record) { return record.type == qrt::TYPE_MOTION_PHOTO_VERSION; });
    if (version == staged.end())
        return;
    std::string const oldTag = tag(MediaDefs::MotionPhotoFormat::MPV1);
    std::string const newTag = tag(MediaDefs::MotionPhotoFormat::MPV3);
    auto const text =
        parts.qrtEdit->staging().load(*version).toTypedData<std::string>([](unsigned char c) { return c; });
    if (text.starts_with(oldTag))
        parts.qrtEdit->staging().settle(version->type, std::string(version->name),
                                        ByteBuffer(std::vector<uint8_t>(newTag.begin(), newTag.end())));
}

} // namespace android::lumo
