// SPDX-License-Identifier: Apache-2.0
#include "OutsideVideo.h"

#include "ErrorAt.h"
#include "Log.h"
#include "VideoFields.h"
#include "io/MoveRest.h"
#include "io/TrailingBoxes.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";

} // namespace

/// A box that is there already is replaced; what stood behind it stands in front of the new one, the trailer behind.
void OutsideVideo::addMPVDBox(std::shared_ptr<MediaFile> const& file, VideoSource const& video) {
    std::optional<QRTEditImpl::OnePlan> planned(parts.qrtEdit->staging());
    mediator.notify(this, MotionPhotoEditImpl::Event::BEFORE_VIDEO_BOX, file);
    if (parts.boxes.of(file)->takeVideosOut())
        planned.reset();
    parts.view->getTrailer()->adjustPosition(file->size());
    uint32_t const position = parts.qrtEdit->staging().plan().getGround().image;
    planned.reset();
    uint32_t const begin = parts.boxes.of(file)->putVideo(position, video.size(), [&] { video.copyTo(file); });
    LOGI("write video on %zu for %zu", size_t{begin}, size_t{video.size()});
    parts.view->getTrailer()->adjustPosition(file->size());
    replaceMPDataByMPVDBox(begin, video.size());
    promoteVersionRecord();
    parts.qrtEdit->makeDirty();
}

void OutsideVideo::removeMPVDBox(std::shared_ptr<MediaFile> const& file) {
    mediator.notify(this, MotionPhotoEditImpl::Event::BEFORE_VIDEO_BOX, file);
    parts.boxes.of(file)->takeVideosOut();
    parts.view->getTrailer()->adjustPosition(file->size());
}

std::optional<Stretch> OutsideVideo::pointedVideo() const {
    auto const& trailer = *parts.view->getTrailer();
    auto const* record = trailer.find(qrt::TYPE_MOTION_PHOTO_DATA);
    if (parts.isHEIC || record == nullptr || !VideoPointer::mayStandIn(record->type, record->dataPayload))
        return std::nullopt;
    Stretch const video = parts.view->videoPlace();
    bool const liesInImage =
        video.position > 0 && video.size > 0 && uint64_t{video.position} + video.size <= trailer.getImageSize();
    if (!liesInImage || !VideoFields::standsAt(*parts.outputFile, parts.outputFile->size() - video.position))
        return std::nullopt;
    return video;
}

std::optional<Stretch> OutsideVideo::pointedVideoLast() const {
    auto const video = pointedVideo();
    if (video && video->end() != parts.view->getImageSize())
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("other bytes stand between the video that ends at %zu and the "
                                                     "trailer",
                                                     size_t{video->end()});
    return video;
}

void OutsideVideo::removePointedVideo(std::shared_ptr<MediaFile> const& file) {
    auto const video = pointedVideoLast();
    if (!video)
        return;
    uint64_t const changes = file->changes();
    try {
        moveRest(file, video->end(), -int64_t{video->size});
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
