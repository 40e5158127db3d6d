// SPDX-License-Identifier: Apache-2.0
#include "HEIFMetaWriter.h"

#include "CheckedFile.h"
#include "HEIFImageMuxer.h"
#include "HEIFImagePart.h"
#include "HEIFItems.h"
#include "Log.h"
#include "MoveRest.h"
#include "SplicedCopy.h"
#include "TrailingBoxes.h"

#include <algorithm>
#include <optional>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaWriter";
constexpr uint8_t BLANK = 0x20;

void requireFits(size_t packet, uint32_t room, int line = __builtin_LINE()) {
    if (packet > room)
        throw ErrorAt(line).as(Error::Code::TOO_BIG)("xmpBuffer size must be smaller than xmpBox size");
}

bool isHEIC(MediaFile const& file) {
    return file.mimeType() == MediaDefs::MimeType::IMAGE_HEIC;
}

} // namespace

HEIFMetaWriter::HEIFMetaWriter(std::shared_ptr<MediaFile> const& target)
    : ImageMetaWriter(target), reader(std::make_unique<HEIFMetaReader>(target, ParseMode::LAZY)) {}

HEIFMetaWriter::~HEIFMetaWriter() = default;

/// What a reader has found is out of date once bytes have moved.
void HEIFMetaWriter::rescan() {
    muxer.reset();
    reader = std::make_unique<HEIFMetaReader>(file, ParseMode::LAZY);
}

uint32_t HEIFMetaWriter::xmpRoom() {
    rescan();
    auto const item = reader->getXMPItem();
    return item && item->refusal.empty() ? item->length : 0;
}

void HEIFMetaWriter::writeXMP(std::shared_ptr<XMPInfo> const& info) {
    LOGI("writeXMP...E");
    if (info == nullptr)
        throw ErrorAt()("no XMP given");
    checked::requireEditable(*file);
    std::vector<uint8_t> packet = info->serializeToBuffer();
    rescan();
    auto item = reader->getXMPItem();
    if (!item || (item->length == 0 && item->isPacket)) {
        requireFits(packet.size(), MIN_XMP_ROOM);
        reserveXMP(MIN_XMP_ROOM);
        item = reader->getXMPItem();
    }
    if (!item || !item->refusal.empty())
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("XMP cannot be written in place: %s",
                                                     item ? item->refusal.c_str() : "no room");
    requireFits(packet.size(), item->length);
    size_t const length = packet.size();
    packet.resize(item->length, BLANK);
    if (!checked::holds(*file, item->position, packet.data(), packet.size())) {
        checked::seek(*file, item->position);
        checked::write(*file, packet.data(), packet.size());
    }
    LOGI("XMP written. Data: %zu bytes, Padding: %zu bytes.", length, packet.size() - length);
    LOGI("writeXMP...X");
}

void HEIFMetaWriter::removeXMP() {
    LOGI("removeXMP called - performing dummy operations.");
}

void HEIFMetaWriter::writeXMP(std::vector<unsigned char> const& packet) {
    LOGI("writeXMP called with buffer size: %zu - performing dummy operations.", packet.size());
    LOGW("XMP writing not actually implemented. Dummy success status: %s", "true");
}

// Room for XMP. -------------------------------------------------------------------------------------------------------
//
// ImageMuxer writes what changes of the image part again into memory, and the new one takes the old one's place.
//
//     source                          result
//     +--------------------+          +--------------------+
//     | image part         |          | image part, with   |
//     |                    |   --->   | room for XMP       |
//     +--------------------+          |                    |
//     | appended data      |          +--------------------+
//     +--------------------+          | appended data      |   byte for byte, but for the pointer to the video
//                                     +--------------------+
//
// What holds:
// 1. The file is not touched before the new boxes lie in memory, complete, our own reader has found the room among
// them, and what stays of the old ones has been read once without a failure.
// 2. The appended data moves first: it needs the space, so a full disk is found while every byte still stands.
// 3. The pointer to the video is corrected in the same operation that moves the video.

Metadata HEIFMetaWriter::reserveXMP(unsigned int size) {
    checked::requireEditable(*file);
    rescan();
    uint32_t const inputSize = reader->getFileSize();
    if (reader->getExternalMetadataPosition({boxTypeText(TRAILER_BOX), "free", boxTypeText(VIDEO_BOX)}) == 0)
        LOGD("no external metadata box given");
    uint32_t const imageLength = reader->getEndOfImagePosition(false); // that look has found it
    auto image = imageWithRoom(size);
    replaceImagePart(imageLength, image);
    rescan();
    Metadata const room{MediaDefs::MetaType::XMP, image.roomPosition, image.roomSize, 0, checked::loaderOf(file)};
    LOGI("reserve_xmp done: input-size=%ld, reserved-size=%d, output-size=%lu, xmp-offset=%ld",
         static_cast<long>(inputSize), static_cast<int>(size), static_cast<unsigned long>(image.size),
         static_cast<long>(room.position));
    return room;
}

void HEIFMetaWriter::requireRoomCanBeMade(unsigned int size) {
    rescan();
    imageWithRoom(size);
    rescan();
}

uint32_t HEIFMetaWriter::putXMPIn(SplicedCopy& copy, std::vector<uint8_t> packet, bool isWanted) {
    auto const needed = std::max(static_cast<uint32_t>(packet.size()), 1U);
    uint32_t const room = xmpRoom();
    if (room >= needed) {
        packet.resize(room, BLANK);
        if (isWanted)
            copy.replace({reader->getXMPItem()->position, room}, {packet.begin(), packet.end()});
        return room;
    }
    uint32_t const oldSize = reader->getEndOfImagePosition(false); // of the look that xmpRoom() has taken
    auto const image = imageWithRoom(roomFor(needed));
    packet.resize(std::max<size_t>(image.roomSize, packet.size()), BLANK);
    if (isWanted)
        std::copy(packet.begin(), packet.end(), image.bytes.get() + image.roomPosition);
    image.putInto(copy, oldSize);
    return image.roomSize;
}

/// The new image part, in memory but for what the source's has unchanged.
heif::ImagePart HEIFMetaWriter::imageWithRoom(unsigned int size) {
    if (size > INT32_MAX)
        throw ErrorAt().as(Error::Code::TOO_BIG)("room of %zu bytes for XMP is too large", size_t{size});
    heif::scanWhole(*file);
    requireReplaceableXMP();
    muxer = std::make_unique<heif::ImageMuxer>(*reader);
    auto image = muxer->write(size);
    image.roomPosition = muxer->getMetadataOffset();
    image.roomSize = heif::requireRoomIsFound(image.span(), image.roomPosition, size);
    return image;
}

/// A 'mime' item of another kind that stands where XMP is looked for would go on hiding the room.
void HEIFMetaWriter::requireReplaceableXMP() {
    auto const item = reader->getXMPItem();
    if (item && !item->isPacket)
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("no room for XMP can be made: %s", item->refusal.c_str());
}

// The file. -----------------------------------------------------------------------------------------------------------

/// Invariants 1 to 3. Where the image part becomes shorter, what follows it moves over what is still to be read of it:
/// then that is taken into memory.
void HEIFMetaWriter::replaceImagePart(uint32_t imageLength, heif::ImagePart& image) {
    uint32_t const fileSize = file->size();
    int64_t const distance = int64_t{image.size} - int64_t{imageLength};
    uint32_t const newSize = checked::sizeOf(static_cast<uint64_t>(int64_t{fileSize} + distance));
    if (distance < 0)
        image.load(*file);
    image.requireReadable(*file);
    heif::TrailingBoxes(file).bringTrailerToEnd(); // a hidden one must not come back later with a wrong pointer
    if (imageLength == fileSize)
        checked::reserve(*file, newSize);
    else
        moveRest(file, imageLength, distance);
    if (file->position(0) != 0)
        throw ErrorAt(406).as(Error::Code::READ_FAILED, *file)("Failed to reset file position to 0");
    image.writeOver(*file);
    if (file->size() != newSize)
        checked::truncate(*file, newSize);
}

// What stands behind the image.
// -----------------------------------------------------------------------------------------

void HEIFMetaWriter::closeLastBox(std::shared_ptr<MediaFile> const& file) {
    if (isHEIC(*file))
        heif::TrailingBoxes(file).closeLast();
}

bool HEIFMetaWriter::isTrailerHidden(MediaFile const& file) {
    auto const shared = std::const_pointer_cast<MediaFile>(file.shared_from_this());
    return isHEIC(file) && heif::TrailingBoxes(shared).isTrailerHidden();
}

bool HEIFMetaWriter::restoreTrailerOrder(std::shared_ptr<MediaFile> const& file) {
    return isHEIC(*file) && heif::TrailingBoxes(file).bringTrailerToEnd();
}

// Camera debug info. --------------------------------------------------------------------------------------------------

/// Of those there are, the first behind the image is replaced and the others go.
void HEIFMetaWriter::writeCameraDebugInfo(std::vector<unsigned char> const& data) {
    if (data.empty())
        throw ErrorAt(474)("empty camera debug info");
    checked::requireEditable(*file);
    heif::TrailingBoxes boxes(file);
    boxes.requireRoomForDebugInfo(data.size());
    boxes.bringTrailerToEnd();
    std::optional<heif::TopLevelBox> old;
    for (auto const& box : boxes.debugInfos()) {
        checked::seek(*file, box.end(), ErrorAt(483));
        if (boxes.mustStay(box)) {
            boxes.blankOut(box);
        } else {
            if (old)
                boxes.takeOut(*old);
            old = box;
        }
    }
    boxes.putDebugInfo(data, old ? &*old : nullptr);
}

void HEIFMetaWriter::removeCameraDebugInfo() {
    LOGI("remove camera debug info");
    checked::requireEditable(*file);
    heif::TrailingBoxes boxes(file);
    boxes.requireDebugInfosCanGo();
    if (boxes.debugInfos().empty())
        LOGI("no camera debug info to remove");
    else
        boxes.bringTrailerToEnd();
    for (auto const& box : boxes.debugInfos()) {
        if (boxes.mustStay(box))
            boxes.blankOut(box);
        else
            cutOut(boxes, box);
    }
}

void HEIFMetaWriter::cutOut(heif::TrailingBoxes& boxes, heif::TopLevelBox const& box) {
    bool const isLast = box.end() == file->size();
    for (uint32_t const place : {box.end(), box.position}) {
        if (file->position(place) != place)
            throw ErrorAt().as(Error::Code::READ_FAILED, *file)("failed to seek to %d", static_cast<int>(place));
    }
    try {
        boxes.takeOut(box);
    } catch (Error const& error) {
        LOGE("%s", error.what());
        if (error.code() != Error::Code::READ_FAILED)
            throw;
        throw ErrorAt().as(Error::Code::READ_FAILED, *file)("failed to read tailBuffer, readyBytes=%d", -1);
    }
    LOGI("Camera debug info removed by %s.", isLast ? "truncation at end of file" : "tail rewrite");
}

uint32_t HEIFMetaWriter::getClockWiseRotation(int heifCcwRotation) {
    if (heifCcwRotation < 0 || heifCcwRotation > 3)
        throw ErrorAt(255)("invalid heif rotation type");
    return static_cast<uint32_t>((4 - heifCcwRotation) % 4 * 90);
}

} // namespace android::lumo
