// Every query of the motion-photo editor is answered by the view it was made from.
#include "MotionPhotoEditImpl.h"

namespace android::lumo {

bool MotionPhotoEditImpl::isValid() const {
    return view->isValid();
}

MediaDefs::MotionPhotoFormat MotionPhotoEditImpl::getQRTMotionPhotoVersion() const {
    return view->getQRTMotionPhotoVersion();
}

int32_t MotionPhotoEditImpl::getXMPMotionPhotoVersion() const {
    return view->getXMPMotionPhotoVersion();
}

MediaDefs::MimeType MotionPhotoEditImpl::getImageMimeType() const {
    return view->getImageMimeType();
}

size_t MotionPhotoEditImpl::getFileSize() const {
    return view->getFileSize();
}

size_t MotionPhotoEditImpl::getImageSize() const {
    return view->getImageSize();
}

int32_t MotionPhotoEditImpl::getImageWidth() const {
    return view->getImageWidth();
}

int32_t MotionPhotoEditImpl::getImageHeight() const {
    return view->getImageHeight();
}

int32_t MotionPhotoEditImpl::getImageRotation() const {
    return view->getImageRotation();
}

std::string MotionPhotoEditImpl::getDateTimeTaken() const {
    return view->getDateTimeTaken();
}

long MotionPhotoEditImpl::getCaptureTimestampUs() const {
    return view->getCaptureTimestampUs();
}

MediaDefs::MimeType MotionPhotoEditImpl::getVideoMimeType() const {
    return view->getVideoMimeType();
}

int32_t MotionPhotoEditImpl::getNumTracksOfVideo() const {
    return view->getNumTracksOfVideo();
}

int64_t MotionPhotoEditImpl::getVideoDurationUs() const {
    return view->getVideoDurationUs();
}

int32_t MotionPhotoEditImpl::getVideoBitrate() const {
    return view->getVideoBitrate();
}

size_t MotionPhotoEditImpl::getVideoPosition() const {
    return view->getVideoPosition();
}

size_t MotionPhotoEditImpl::getVideoSize() const {
    return view->getVideoSize();
}

int32_t MotionPhotoEditImpl::getAutoPlayVideoBitrate() const {
    return view->getAutoPlayVideoBitrate();
}

size_t MotionPhotoEditImpl::getAutoPlayVideoPosition() const {
    return view->getAutoPlayVideoPosition();
}

size_t MotionPhotoEditImpl::getAutoPlayVideoSize() const {
    return view->getAutoPlayVideoSize();
}

std::vector<int64_t> MotionPhotoEditImpl::getTrackDurationsOfVideo() const {
    return view->getTrackDurationsOfVideo();
}

std::string MotionPhotoEditImpl::getExtraInfo() const {
    return view->getExtraInfo();
}

size_t MotionPhotoEditImpl::getImageVideoPadding() const {
    return view->getImageVideoPadding();
}

std::shared_ptr<XMPInfo> MotionPhotoEditImpl::getXMPInfo() const {
    return view->getXMPInfo();
}

std::shared_ptr<QRTInfo> MotionPhotoEditImpl::getQRTInfo() const {
    return view->getQRTInfo();
}

std::shared_ptr<ExifInfo> MotionPhotoEditImpl::getExifInfo() const {
    return view->getExifInfo();
}

size_t MotionPhotoEditImpl::getVideo(int fd) const {
    return view->getVideo(fd);
}

size_t MotionPhotoEditImpl::getVideo(std::string const& path) const {
    return view->getVideo(path);
}

MotionPhotoInfo::CropRect MotionPhotoEditImpl::getCropRect() const {
    return view->getCropRect();
}

void MotionPhotoEditImpl::transferTo(std::shared_ptr<MediaFile> const& target,
                                     std::filesystem::copy_options const& options) {
    view->transferTo(target, options);
}

std::shared_ptr<MotionPhotoEdit> MotionPhotoEditImpl::edit() {
    return view->edit();
}

} // namespace android::lumo
