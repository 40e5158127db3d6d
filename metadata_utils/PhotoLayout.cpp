// SPDX-License-Identifier: Apache-2.0
#include "PhotoLayout.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MotionPhotoInfoImpl.h"
#include "MovieBoxes.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

using Source = MotionVideo::Source;
using Status = MotionVideo::Status;

std::string reasonOf(std::exception const& error) {
    std::string const text = error.what();
    auto const end = text.starts_with("[") ? text.find(']') : std::string::npos;
    auto const start = end == std::string::npos ? 0 : text.find_first_not_of(' ', end + 1);
    return start == std::string::npos ? text : text.substr(start);
}

namespace {

/// What the views take for a HEIC's XMP: a text that describes the picture is none. An item that cannot be told may be.
bool mayBePacket(std::shared_ptr<MediaFile> const& photo) {
    try {
        auto const item = HEIFMetaReader(photo, ParseMode::LAZY).getXMPItem();
        return !item || item->isPacket;
    } catch (std::runtime_error const&) {
        rethrowUnlessDamage();
        return true;
    }
}

} // namespace

PhotoLayout::PhotoLayout(std::shared_ptr<MediaFile> const& photo) : file(photo) {
    if (file == nullptr)
        throw ErrorAt()("no photo given");
    begin();
    readTrailer();
    readPacket();
}

PhotoLayout::PhotoLayout(MotionPhotoInfoImpl const& view) : file(view.getFile()) {
    begin();
    if (auto const& trailer = *view.getTrailer(); trailer.getTrailerSize() > 0) {
        auto const& stored = *trailer.getStored();
        tail = trailer::Tail{stored.version, trailer.getTailPosition(), stored.tailSize, {}};
        records = stored.records;
        for (auto& record : records) { // where they lie, whatever a pointer among them says
            tail->entries.push_back({record.getDataHeader(), record.offsetFromTail, record.payload});
            record.dataPosition = trailer::storedData(record, tail->position).position;
        }
    }
    if (view.getPacket()->getInFile().count() > 1)
        readPacket();
    else
        take(view.getPacket()->getMeta());
}

void PhotoLayout::begin() {
    fileSize = checked::addressableSize(*file);
    auto const type = file->mimeType();
    isHEIC = type == MediaDefs::MimeType::IMAGE_HEIC;
    if (!isHEIC && type != MediaDefs::MimeType::IMAGE_JPEG)
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("a photo is a JPEG or HEIC, not %s",
                                                     MediaDefs::mimeString(type).c_str());
    if (!isHEIC)
        return;
    heif::ByteWindow window(*file);
    topLevel = heif::scanTopLevel(window);
    if (auto const* box = topLevel.find(VIDEO_BOX))
        videoBox = *box;
}

void PhotoLayout::readTrailer() {
    try {
        tail = trailer::readTail(*file);
        if (!tail)
            return;
        ReadWindow window(*file);
        for (auto const& entry : tail->entries)
            records.push_back(trailer::readRecord(window, *tail, entry));
    } catch (std::runtime_error const& error) {
        rethrowUnlessDamage();
        trailerFault = reasonOf(error);
    }
}

/// A packet that no parser takes claims nothing.
void PhotoLayout::readPacket() {
    try {
        auto const view = std::make_shared<XMPInfoImpl>(file);
        view->takeOthersThatAgree(); // as an edit would write them
        take(view->getMeta());
    } catch (std::runtime_error const& error) {
        rethrowUnlessDamage();
        if (!isHEIC || mayBePacket(file))
            xmpFault = reasonOf(error);
    }
}

void PhotoLayout::take(std::shared_ptr<XMPPacket> const& read) {
    packet = read;
    claims = claims::read(*packet);
}

QRTDataInfo const* PhotoLayout::videoRecord() const {
    auto const found = std::find_if(records.begin(), records.end(), [](QRTDataInfo const& record) {
        return record.type == qrt::TYPE_MOTION_PHOTO_DATA;
    });
    return found == records.end() ? nullptr : &*found;
}

uint32_t PhotoLayout::trailerStart() const {
    if (!tail)
        return fileSize;
    bool const isBoxed = isHEIC && !topLevel.boxes.empty() && topLevel.boxes.back().type == TRAILER_BOX;
    return isBoxed ? topLevel.boxes.back().position : trailer::startOf(*tail);
}

bool PhotoLayout::hasHiddenTrailer() const {
    return isHEIC && !topLevel.damage && HEIFMetaWriter::isTrailerHidden(*file);
}

/// A box that goes beyond the file's end is listed, as far as it is there.
uint32_t PhotoLayout::boxFaultPosition() const {
    auto const& boxes = topLevel.boxes;
    if (boxes.empty())
        return 0;
    return boxes.back().end() < fileSize ? boxes.back().end() : boxes.back().position;
}

std::string PhotoLayout::boxFault() const {
    return "no whole box at " + std::to_string(boxFaultPosition()) + " of " + std::to_string(fileSize) +
           " bytes: damaged, or cut off";
}

bool PhotoLayout::isOtherItems(uint32_t position) const {
    auto const* video = claims.video();
    return std::any_of(claims.items.begin(), claims.items.end(), [&](claims::Item const& item) {
        uint64_t const fromEnd = claims.distanceFromEnd(item);
        bool const isOther = !item.isPrimary() && (video == nullptr || item.place != video->place);
        return isOther && fromEnd <= fileSize && position >= fileSize - fromEnd &&
               position - (fileSize - fromEnd) < item.length;
    });
}

MotionVideo PhotoLayout::damaged(Source source, std::string const& reason) const {
    MotionVideo video;
    video.source = source;
    video.status = Status::DAMAGED;
    video.reason = reason;
    video.momentUs = claims.momentUs();
    return video;
}

MotionVideo PhotoLayout::examine(Source source, uint64_t position, uint64_t size) const {
    if (position == 0 || size == 0 || !rangeFits(position, size, fileSize))
        return damaged(source, std::to_string(size) + " bytes at " + std::to_string(position) +
                                   " are claimed of a file of " + std::to_string(fileSize));
    auto const from = static_cast<uint32_t>(position);
    auto const length = static_cast<uint32_t>(size);
    auto const walk = movie::walk(*file, from, length, fileSize);
    MotionVideo video = damaged(source, walk.fault);
    video.status = walk.isSound() ? Status::SOUND : Status::DAMAGED;
    video.position = from;
    video.size = length;
    video.brand = walk.brand;
    return video;
}

/// A length that counts the trailer too ends where the trailer begins: no movie reaches into one that is not its own.
MotionVideo PhotoLayout::examineFromEnd(Source source, uint64_t distance, uint64_t size) const {
    if (distance > fileSize)
        return damaged(source, "a video " + std::to_string(distance) + " bytes from the end is claimed of a file of " +
                                   std::to_string(fileSize));
    uint64_t const position = fileSize - distance, end = trailerStart();
    return examine(source, position, position < end ? std::min(size, end - position) : size);
}

/// The record's bytes are the video, or a pointer to it: as the views read it, but a movie that stands where only a
/// pointer is expected is found all the same.
MotionVideo PhotoLayout::fromTrailer() const {
    if (!trailerFault.empty())
        return damaged(Source::TRAILER, trailerFault);
    auto const* record = videoRecord();
    if (record == nullptr)
        return {};
    auto const stored = trailer::storedData(*record, tail->position);
    if (auto const pointer = VideoPointer::in(*file, record->type, stored))
        return examine(Source::TRAILER, pointer->position, pointer->length);
    return examine(Source::TRAILER, stored.position, stored.size);
}

MotionVideo PhotoLayout::fromBox() const {
    if (!videoBox)
        return {};
    return examine(Source::BOX, videoBox->content(), videoBox->size - videoBox->headerSize);
}

MotionVideo PhotoLayout::fromDirectory() const {
    auto const* item = claims.video();
    if (item == nullptr && claims.motionPhoto == "1")
        return damaged(Source::DIRECTORY, "GCamera:MotionPhoto is 1, and nothing says where a video is");
    if (item == nullptr || claims.motionPhoto == "0")
        return {};
    if (item->length == 0)
        return damaged(Source::DIRECTORY, "the item MotionPhoto has no Length: \"" + item->lengthText + "\"");
    return examineFromEnd(Source::DIRECTORY, claims.distanceFromEnd(*item), item->length);
}

MotionVideo PhotoLayout::fromMicroVideo() const {
    auto const offset = claims::parseNumber(claims.microVideoOffset);
    if (claims.microVideo != "1")
        return {};
    if (!offset || *offset == 0)
        return damaged(Source::MICRO_VIDEO, "MicroVideoOffset is no distance: \"" + claims.microVideoOffset + "\"");
    return examineFromEnd(Source::MICRO_VIDEO, *offset, *offset);
}

MotionVideo PhotoLayout::locate() const {
    MotionVideo first;
    for (auto const claim : {&PhotoLayout::fromTrailer, &PhotoLayout::fromBox, &PhotoLayout::fromDirectory,
                             &PhotoLayout::fromMicroVideo}) {
        auto const video = (this->*claim)();
        if (video.isSound())
            return video;
        if (first.status == Status::NONE)
            first = video;
    }
    if (first.status == Status::NONE && topLevel.damage)
        first.reason = "its boxes do not add up: " + boxFault();
    else if (first.status == Status::NONE && !xmpFault.empty())
        first.reason = "its XMP cannot be read: " + xmpFault;
    return first;
}

} // namespace android::lumo
