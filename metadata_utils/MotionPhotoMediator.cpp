// SPDX-License-Identifier: Apache-2.0
#include "MotionPhotoMediator.h"

#include "CheckedFile.h"
#include "Log.h"
#include "VideoFields.h"
#include "io/HEIFMetaWriter.h"

#include <algorithm>
#include <utility>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";

} // namespace

MotionPhotoEditImpl::Mediator::Mediator(MotionPhotoParts& photo) : parts(photo) {
    lastBehind = behindImage();
}

uint32_t MotionPhotoEditImpl::Mediator::behindImage() const {
    auto const& trailer = *parts.view->getTrailer();
    return trailer.getTrailerSize() > 0 ? trailer.getTrailerSize() + trailer.boxHeaderSize() : 0;
}

bool MotionPhotoEditImpl::Mediator::isOutput(MediaFile const& file) const {
    return checked::isSameFile(file, *parts.outputFile);
}

void MotionPhotoEditImpl::Mediator::notify(void const* sender, Event event, std::shared_ptr<MediaFile> const& file) {
    size_t const size = file->size();
    LOGI("notify: sender=%p, event=%d, lastSize=%zu, newSize=%zu", sender, static_cast<int>(event), lastSize, size);
    switch (event) {
    case Event::TRAILER_WRITTEN:
        return onTrailerWritten(file, size);
    case Event::XMP_WRITTEN:
        return isOutput(*file) ? onXMPWritten(size) : void();
    case Event::BEFORE_VIDEO_BOX: // what has to make way is moved inside the file; nothing is taken into memory
        static_cast<void>(parts.qrtEdit->staging().plan());
        return;
    case Event::CONTAINER_RESTRUCTURED:
        parts.view->getTrailer()->load();
        return;
    }
}

/// Lengths that count from the file's end follow. They may be wrong although the size is as before: a record in front
/// of the video gave its bytes to one behind it. A trailer that a sub-editor wrote into another file is described
/// there; what is staged for this one stays staged.
void MotionPhotoEditImpl::Mediator::onTrailerWritten(std::shared_ptr<MediaFile> const& file, size_t size) {
    if (!isOutput(*file)) {
        auto const copy = std::make_shared<MotionPhotoEditImpl>(MotionPhotoInfo::parse(file));
        copy->mediator->lastBehind = lastBehind;
        return copy->mediator->onTrailerWritten(file, size);
    }
    size_t const position = parts.view->getVideoPosition();
    auto const length = VideoFields::lengthOf(*parts.xmpEdit);
    bool const isOwn = position > 0 && position <= size;
    bool const isStale = length && *length != size - position;
    bool const isNews = size != lastSize;
    int64_t const growth = int64_t{behindImage()} - lastBehind;
    auto const before = std::pair(lastSize, lastBehind);
    lastSize = size;
    lastBehind = behindImage();
    try {
        if (isOwn && (isNews || isStale)) {
            parts.xmpEdit->updateMotionPhotoInfo(size, position, parts.view->getImageVideoPadding());
            commitXMP(file);
        } else if (!isOwn && (owesFields || growth != 0)) {
            followEnd(file, growth);
        }
    } catch (...) {
        lastSize = before.first; // the next commit is news again
        if (!owesFields)
            lastBehind = before.second;
        throw;
    }
}

/// A video that XMP alone tells of. What a commit that failed has not written is in the packet already.
void MotionPhotoEditImpl::Mediator::followEnd(std::shared_ptr<MediaFile> const& file, int64_t growth) {
    bool const isFound = VideoFields::find(*file, *parts.xmpEdit).has_value();
    if (!owesFields && (isFound || !VideoFields::find(*file, *parts.xmpEdit, growth)))
        return;
    if (!isFound)
        parts.xmpEdit->followEnd(growth);
    owesFields = true;
    commitXMP(file);
    owesFields = false;
}

void MotionPhotoEditImpl::Mediator::commitXMP(std::shared_ptr<MediaFile> const& file) {
    if (!parts.xmpEdit->isDirty())
        return;
    makeRoom();
    parts.xmpEdit->commit(file);
}

void MotionPhotoEditImpl::Mediator::knowRoom(uint32_t size) {
    room = size;
    roomChanges = parts.outputFile->changes();
}

void MotionPhotoEditImpl::Mediator::makeRoom() {
    if (!parts.isHEIC)
        return;
    uint32_t const need = std::max(static_cast<uint32_t>(parts.xmpEdit->serializeToBuffer().size()), 1U);
    if (room >= need && roomChanges == parts.outputFile->changes())
        return;
    HEIFMetaWriter writer(parts.outputFile);
    if (writer.xmpRoom() >= need)
        return;
    parts.view->getPacket()->requireUnchanged();
    writer.reserveXMP(HEIFMetaWriter::roomFor(need));
    parts.view->getPacket()->roomOpened();
    notify(this, Event::CONTAINER_RESTRUCTURED, parts.outputFile);
}

void MotionPhotoEditImpl::Mediator::onXMPWritten(size_t size) {
    if (size == lastSize)
        return;
    lastSize = size;
    parts.view->getTrailer()->adjustPosition(static_cast<uint32_t>(size));
}

} // namespace android::lumo
