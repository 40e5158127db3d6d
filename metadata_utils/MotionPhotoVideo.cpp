// SPDX-License-Identifier: Apache-2.0
// The video of a motion photo: where it lies, how long it plays, and its way into memory or another file.
#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "MotionPhotoInfoImpl.h"
#include "io/VideoPointer.h"

#include <media/stagefright/NuMediaExtractor.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <strings.h>

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoInfo";
/// Messages carry the view's name; this file is its second half.
constexpr char SOURCE[] = "metadata_utils/MotionPhotoInfoImpl";
constexpr char VIDEO_PREFIX[] = "video/";

/// The record of the video, its pointer resolved: by the load callback already, or from the record's data now.
struct Place {
    uint32_t position = 0;
    uint32_t size = 0;
};

bool isResolved(QRTDataInfo const& record, uint32_t tailPosition) {
    auto const stored = trailer::storedData(record, tailPosition);
    return stored.position != record.dataPosition || stored.size != record.dataPayload;
}

Place placeOf(QRTInfoImpl& trailer) {
    auto const& records = trailer.getRecordList();
    auto const record = std::find_if(records.begin(), records.end(), ofType(qrt::TYPE_MOTION_PHOTO_DATA));
    if (record == records.end())
        return {};
    // Unsigned: as a signed number a video of 2 GiB and more would be negative, and read into memory as a pointer.
    bool const isVideo = record->dataPayload > MAX_POINTER_RECORD_SIZE;
    if (isVideo || (trailer.boxHeaderSize() > 0 && isResolved(*record, trailer.getTailPosition())))
        return {record->dataPosition, record->dataPayload};
    auto const data = trailer.getData(qrt::TYPE_MOTION_PHOTO_DATA, record->name);
    if (data.size() < VideoPointer::SIZE)
        return {};
    auto const pointer = VideoPointer::read(data);
    return {pointer.position, pointer.length};
}

/// The extractor answers to what the system refuses with its errno, negative.
bool isRefusedRead(status_t status) {
    constexpr status_t FIRST_OF_FRAMEWORK = -1000;
    return status < 0 && status > FIRST_OF_FRAMEWORK && status != BAD_VALUE;
}

bool liesIn(Place const& place, uint32_t fileSize) {
    return place.size > 0 && place.position <= fileSize && place.size <= fileSize - place.position;
}

} // namespace

size_t MotionPhotoInfoImpl::getVideoPosition() const {
    return placeOf(*qrtInfo).position;
}

size_t MotionPhotoInfoImpl::getVideoSize() const {
    return placeOf(*qrtInfo).size;
}

bool MotionPhotoInfoImpl::hasVideo() const {
    return liesIn(placeOf(*qrtInfo), file->size());
}

size_t MotionPhotoInfoImpl::getAutoPlayVideoPosition() const {
    return qrtInfo->getDataPositionLength(qrt::TYPE_AUTO_PLAY_VIDEO).first;
}

size_t MotionPhotoInfoImpl::getAutoPlayVideoSize() const {
    return qrtInfo->getDataPositionLength(qrt::TYPE_AUTO_PLAY_VIDEO).second;
}

int64_t MotionPhotoInfoImpl::getVideoDurationUs() const {
    auto const place = placeOf(*qrtInfo);
    return videoDurationUs(*file, place.position, place.size);
}

int64_t videoDurationUs(MediaFile const& file, uint32_t position, uint32_t size) {
    sp<NuMediaExtractor> const extractor = new NuMediaExtractor(NuMediaExtractor::EntryPoint::OTHER);
    status_t const status =
        extractor->setDataSource(file.getFd(), static_cast<off64_t>(position), static_cast<off64_t>(size));
    if (status != OK) {
        ErrorAt const at(190, SOURCE);
        throw(isRefusedRead(status) ? at.as(Error::Code::READ_FAILED, file)
                                    : at)("unable to create extractor with error=%d", static_cast<int>(status));
    }
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        sp<AMessage> format;
        if (extractor->getTrackFormat(i, &format, 0) != OK || format == nullptr)
            throw ErrorAt(195, SOURCE)("%s", "");
        AString mime;
        if (!format->findString("mime", &mime))
            throw ErrorAt(195, SOURCE)("%s", "");
        if (strncasecmp(mime.c_str(), VIDEO_PREFIX, sizeof(VIDEO_PREFIX) - 1) != 0)
            continue;
        int64_t duration = 0;
        return format->findInt64("durationUs", &duration) ? duration : 0;
    }
    throw ErrorAt(205, SOURCE)("No video, track is invalid");
}

std::shared_ptr<ByteBuffer> MotionPhotoInfoImpl::loadVideo() const {
    auto const place = placeOf(*qrtInfo);
    if (place.size == 0)
        return std::make_shared<ByteBuffer>();
    if (!liesIn(place, file->size()))
        throw ErrorAt(326, SOURCE)("Failed to set file position to %zu", static_cast<size_t>(place.position));
    return std::make_shared<ByteBuffer>(checked::readAt(*file, place.position, place.size, ErrorAt(326, SOURCE)));
}

size_t MotionPhotoInfoImpl::getVideo(int fd) const {
    auto const target = std::make_shared<MediaFile>(fd);
    return transferVideo(target);
}

size_t MotionPhotoInfoImpl::getVideo(std::string const& path) const {
    auto const target = std::make_shared<MediaFile>(path, "rw");
    size_t const length = transferVideo(target);
    if (length > 0)
        checked::truncate(*target, static_cast<uint32_t>(length));
    return length;
}

/// The record's data where the trailer's view has it: the load resolved a HEIC's pointer, and a JPEG's is data.
size_t MotionPhotoInfoImpl::transferVideo(std::shared_ptr<MediaFile> const& target) const {
    auto const [position, size] = qrtInfo->getDataPositionLength(qrt::TYPE_MOTION_PHOTO_DATA);
    Place const place{position, size};
    if (place.size == 0)
        return 0;
    if (MediaFile::isFdsDup(file->getFd(), target->getFd()))
        throw ErrorAt()("the video's target is the motion photo itself: %s", target->toString().c_str());
    if (!liesIn(place, file->size()))
        throw ErrorAt()("video at %zu for %zu bytes lies outside the file of %zu", static_cast<size_t>(place.position),
                        static_cast<size_t>(place.size), static_cast<size_t>(file->size()));
    LOGD("copy video at %zu for %zu", static_cast<size_t>(place.position), static_cast<size_t>(place.size));
    checked::copy(file, target, place.position, place.size);
    return place.size;
}

} // namespace android::lumo
