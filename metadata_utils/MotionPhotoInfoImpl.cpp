// SPDX-License-Identifier: Apache-2.0
#include "MotionPhotoInfoImpl.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "MotionNames.h"
#include "MotionPhotoEditImpl.h"
#include "io/TrailingBoxes.h"
#include "io/VideoPointer.h"

#include <media/stagefright/NuMediaExtractor.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <strings.h>

#include <algorithm>
#include <exception>
#include <stdexcept>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoInfo";
constexpr uint32_t TAG_SIZE = 4;
constexpr char VIDEO_PREFIX[] = "video/";

using Format = MediaDefs::MotionPhotoFormat;

QRTDataInfo* findType(std::vector<QRTDataInfo>& records, int32_t type) {
    auto found = std::find_if(records.begin(), records.end(), [=](auto const& r) { return r.type == type; });
    return found == records.end() ? nullptr : &*found;
}

std::string readTag(MediaFile const& file, uint32_t position, int line) {
    if (file.position(position) != position)
        throw ErrorAt(line)("Failed to set file position to %ld", static_cast<long>(position));
    std::string tag(TAG_SIZE, '\0');
    tag.resize(checked::readUpTo(file, position, tag.data(), tag.size()));
    return tag;
}

Format formatOf(std::string const& tag) {
    for (auto format : {Format::NONE, Format::MPV1, Format::MPV2, Format::MPV3, Format::MPV4}) {
        if (tag == MediaDefs::motionphotoFormatString(format))
            return format;
    }
    return Format::NONE;
}

bool isResolved(QRTDataInfo const& record, uint32_t tailPosition) {
    auto const stored = trailer::storedData(record, tailPosition);
    return stored.position != record.dataPosition || stored.size != record.dataPayload;
}

/// The record of the video, its pointer resolved: by the load callback already, or from the record's data now.
Stretch placeOf(QRTInfoImpl& trailer) {
    auto const* record = trailer.find(qrt::TYPE_MOTION_PHOTO_DATA);
    if (record == nullptr)
        return {};
    // Unsigned: as a signed number a video of 2 GiB and more would be negative, and read into memory as a pointer.
    bool const isVideo = record->dataPayload > VideoPointer::MAX_RECORD_SIZE;
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

bool liesIn(Stretch const& place, uint32_t fileSize) {
    return place.size > 0 && place.position <= fileSize && place.size <= fileSize - place.position;
}

} // namespace

MotionPhotoInfo::~MotionPhotoInfo() = default;

std::shared_ptr<MotionPhotoInfo> MotionPhotoInfo::parse(std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no file given");
    return std::make_shared<MotionPhotoInfoImpl>(file);
}

std::shared_ptr<ByteBuffer> MotionPhotoInfo::getVideo() const {
    return MotionPhotoInfoImpl::of(*this).loadVideo();
}

MotionPhotoInfoImpl const& MotionPhotoInfoImpl::of(MotionPhotoInfo const& info) {
    if (auto const* edit = dynamic_cast<MotionPhotoEditImpl const*>(&info))
        return *edit->getView();
    auto const* view = dynamic_cast<MotionPhotoInfoImpl const*>(&info);
    if (view == nullptr)
        throw ErrorAt()("a motion photo of another library");
    return *view;
}

MotionPhotoInfoImpl::MotionPhotoInfoImpl(std::shared_ptr<MediaFile> const& still,
                                         std::shared_ptr<XMPPacket> const& packet)
    : file(still) {
    // The trailer reader, handed out to callers, may outlive this object: the callback shares what it sets.
    std::list<QRTInfoImpl::Listener> const listeners{
        [format = motionPhotoFormat](std::shared_ptr<MediaFile>& viewed, std::vector<QRTDataInfo>& records) {
            *format = parseExtraOfMotionPhotoFromQRT(*viewed, records);
        }};
    qrtInfo = std::make_shared<QRTInfoImpl>(still, listeners);
    xmpInfo = packet == nullptr ? std::make_shared<XMPInfoImpl>(still) : std::make_shared<XMPInfoImpl>(still, packet);
    exifInfo = std::make_shared<ExifInfoImpl>(still);
}

/// Finds the format, and points record 2608 of a HEIC to the video its pointer names. The length a pointer needs is
/// checked here; whether it points into the file is for those who follow it.
Format MotionPhotoInfoImpl::parseExtraOfMotionPhotoFromQRT(MediaFile const& viewed, std::vector<QRTDataInfo>& records) {
    LOGI("parseExtraOfMotionPhotoFromQRT");
    Format format = Format::NONE;
    if (auto const* version = findType(records, qrt::TYPE_MOTION_PHOTO_VERSION)) {
        auto const tag = readTag(viewed, version->dataPosition, 61);
        format = version->dataPayload >= TAG_SIZE ? formatOf(tag) : Format::NONE;
    }
    if (auto* video = findType(records, qrt::TYPE_MOTION_PHOTO_DATA)) {
        auto const tag = readTag(viewed, video->dataPosition, 72);
        if (format == Format::NONE)
            format = tag == MediaDefs::motionphotoFormatString(Format::MPV2) ? Format::MPV2 : Format::MPV1;
        bool const pointed = viewed.mimeType() == MediaDefs::MimeType::IMAGE_HEIC && format != Format::MPV1;
        if (pointed && video->dataPayload >= VideoPointer::SIZE) {
            auto const pointer = VideoPointer::read(checked::readAt(viewed, video->dataPosition, VideoPointer::SIZE));
            video->dataPosition = pointer.position;
            video->dataPayload = pointer.length;
        }
    }
    LOGI("version=%s", MediaDefs::motionphotoFormatString(format).c_str());
    return format;
}

// What kind of motion photo it is. ------------------------------------------------------------------------------------

bool MotionPhotoInfoImpl::isValid() const {
    uint32_t const position = qrtInfo->getDataPositionLength(qrt::TYPE_MOTION_PHOTO_DATA).first;
    checked::seek(*file, position, ErrorAt(109));
    bool const mp4 = file->checkFileType([&] { return MediaFile::isMP4Video(file); }, static_cast<long>(position));
    checked::seek(*file, position, ErrorAt(112));
    bool const mov = file->checkFileType([&] { return MediaFile::isMOVVideo(file); }, static_cast<long>(position));
    return mp4 || mov;
}

MediaDefs::MotionPhotoFormat MotionPhotoInfoImpl::getQRTMotionPhotoVersion() const {
    static_cast<void>(qrtInfo->getVersion()); // the trailer's own version says nothing about the video's format
    return *motionPhotoFormat;
}

int32_t MotionPhotoInfoImpl::getXMPMotionPhotoVersion() const {
    try {
        return std::stoi(xmpInfo->getProperty(xmp_ns::CAMERA, motion_names::VERSION));
    } catch (std::exception const& e) {
        LOGI("fail to get MotionPhotoFormat from xmp: %s", e.what());
        return 0;
    }
}

long MotionPhotoInfoImpl::getCaptureTimestampUs() const {
    try {
        return std::stol(xmpInfo->getProperty(xmp_ns::CAMERA, motion_names::TIMESTAMP));
    } catch (std::exception const& e) {
        LOGI("fail to get presentation timestamp us: %s", e.what());
        return 0;
    }
}

// The still. ----------------------------------------------------------------------------------------------------------

MediaDefs::MimeType MotionPhotoInfoImpl::getImageMimeType() const {
    return file->mimeType();
}

size_t MotionPhotoInfoImpl::getFileSize() const {
    return file->size();
}

size_t MotionPhotoInfoImpl::getImageSize() const {
    return qrtInfo->getImageSize();
}

int32_t MotionPhotoInfoImpl::getImageWidth() const {
    return exifInfo->getWidth();
}

int32_t MotionPhotoInfoImpl::getImageHeight() const {
    return exifInfo->getHeight();
}

int32_t MotionPhotoInfoImpl::getImageRotation() const {
    return exifInfo->getRotation();
}

std::string MotionPhotoInfoImpl::getDateTimeTaken() const {
    return exifInfo->getDateTimeTaken();
}

// Not provided. -------------------------------------------------------------------------------------------------------

MediaDefs::MimeType MotionPhotoInfoImpl::getVideoMimeType() const {
    throw ErrorAt(170)("implement video-info");
}

int32_t MotionPhotoInfoImpl::getNumTracksOfVideo() const {
    throw ErrorAt(175)("implement video-info");
}

int32_t MotionPhotoInfoImpl::getVideoBitrate() const {
    throw ErrorAt(214)("implement video-info");
}

std::vector<int64_t> MotionPhotoInfoImpl::getTrackDurationsOfVideo() const {
    throw ErrorAt(219)("implement video-info");
}

int32_t MotionPhotoInfoImpl::getAutoPlayVideoBitrate() const {
    throw ErrorAt(255)("implement auto-play-video-info");
}

MotionPhotoInfo::CropRect MotionPhotoInfoImpl::getCropRect() const {
    throw ErrorAt(311)("implement video-info");
}

// The readers, and what leads on from here. ---------------------------------------------------------------------------

std::string MotionPhotoInfoImpl::getExtraInfo() const {
    return qrtInfo->getData(qrt::NAME_MOTION_PHOTO_INFO).toTypedData<std::string>([](unsigned char c) { return c; });
}

size_t MotionPhotoInfoImpl::getImageVideoPadding() const {
    switch (getImageMimeType()) {
    case MediaDefs::MimeType::IMAGE_HEIC:
        return heif::TrailingBoxes::VIDEO_HEADER_SIZE;
    case MediaDefs::MimeType::IMAGE_JPEG:
        return static_cast<uint32_t>(getVideoPosition() - getImageSize());
    default:
        return 0;
    }
}

std::shared_ptr<XMPInfo> MotionPhotoInfoImpl::getXMPInfo() const {
    return xmpInfo;
}

std::shared_ptr<QRTInfo> MotionPhotoInfoImpl::getQRTInfo() const {
    return qrtInfo;
}

std::shared_ptr<ExifInfo> MotionPhotoInfoImpl::getExifInfo() const {
    return exifInfo;
}

void MotionPhotoInfoImpl::transferTo(std::shared_ptr<MediaFile> const& target,
                                     std::filesystem::copy_options const& options) {
    auto const self = shared_from_this();
    auto const editor = MotionPhotoInfo::parse(target)->edit();
    editor->addAll(self, options);
    editor->commit();
}

std::shared_ptr<MotionPhotoEdit> MotionPhotoInfoImpl::edit() {
    return std::make_shared<MotionPhotoEditImpl>(shared_from_this());
}

// The video. ----------------------------------------------------------------------------------------------------------

Stretch MotionPhotoInfoImpl::videoPlace() const {
    return placeOf(*qrtInfo);
}

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
        ErrorAt const at(190);
        throw(isRefusedRead(status) ? at.as(Error::Code::READ_FAILED, file)
                                    : at)("unable to create extractor with error=%d", static_cast<int>(status));
    }
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        sp<AMessage> format;
        if (extractor->getTrackFormat(i, &format, 0) != OK || format == nullptr)
            throw ErrorAt(195)("%s", "");
        AString mime;
        if (!format->findString("mime", &mime))
            throw ErrorAt(195)("%s", "");
        if (strncasecmp(mime.c_str(), VIDEO_PREFIX, sizeof(VIDEO_PREFIX) - 1) != 0)
            continue;
        int64_t duration = 0;
        return format->findInt64("durationUs", &duration) ? duration : 0;
    }
    throw ErrorAt(205)("No video, track is invalid");
}

std::shared_ptr<ByteBuffer> MotionPhotoInfoImpl::loadVideo() const {
    auto const place = placeOf(*qrtInfo);
    if (place.size == 0)
        return std::make_shared<ByteBuffer>();
    if (!liesIn(place, file->size()))
        throw ErrorAt(326)("Failed to set file position to %zu", static_cast<size_t>(place.position));
    return std::make_shared<ByteBuffer>(checked::readAt(*file, place.position, place.size, ErrorAt(326)));
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
    Stretch const place{position, size};
    if (place.size == 0)
        return 0;
    if (checked::isSameFile(*file, *target))
        throw ErrorAt()("the video's target is the motion photo itself: %s", target->toString().c_str());
    if (!liesIn(place, file->size()))
        throw ErrorAt()("video at %zu for %zu bytes lies outside the file of %zu", static_cast<size_t>(place.position),
                        static_cast<size_t>(place.size), static_cast<size_t>(file->size()));
    LOGD("copy video at %zu for %zu", static_cast<size_t>(place.position), static_cast<size_t>(place.size));
    checked::copy(file, target, place.position, place.size);
    return place.size;
}

} // namespace android::lumo
