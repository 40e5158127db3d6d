// SPDX-License-Identifier: Apache-2.0
#include "HEIFMetaWriter.h"

#include "CheckedFile.h"
#include "HEIFCodecInfo.h"
#include "HEIFImagePart.h"
#include "HEIFItems.h"
#include "Log.h"
#include "MoveTail.h"
#include "SplicedCopy.h"
#include "TrailingBoxes.h"

#include <algorithm>
#include <array>
#include <exception>
#include <new>
#include <optional>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaWriter";
constexpr uint8_t BLANK = 0x20;
constexpr uint32_t MAX_FRM_SIZE = 0x20000000;
constexpr std::array<uint32_t, 2> BRANDS = {HBOX_FOURCC('h', 'e', 'i', 'c'), HBOX_FOURCC('m', 'i', 'f', '1')};

void requireFits(size_t packet, uint32_t room, int line = __builtin_LINE()) {
    if (packet > room)
        throw ErrorAt(line).as(Error::Code::TOO_BIG)("xmpBuffer size must be smaller than xmpBox size");
}

/// An answer of the muxer that ends the rewrite; what it objects to goes to the log.
Error::Code codeOf(HEIFMetaReader const& reader, int32_t result, char const* text) {
    reader.rethrowReadFailure();
    if (result == HBOX_ERR_MEMORY)
        throw std::bad_alloc();
    LOGE("%s", text);
    LOGE("err=%d, %s", static_cast<int>(result), hbox_last_error());
    return result == HBOX_ERR_FORMAT ? Error::Code::DAMAGED : Error::Code::UNSUPPORTED;
}

void requireOk(HEIFMetaReader const& reader, int32_t result, char const* text) {
    if (result != HBOX_OK)
        throw Error(codeOf(reader, result, text), text);
}

} // namespace

HEIFMetaWriter::HEIFMetaWriter(std::shared_ptr<MediaFile> const& target)
    : ImageMetaWriter(target), reader(std::make_unique<HEIFMetaReader>(target, ParseMode::LAZY)) {}

HEIFMetaWriter::~HEIFMetaWriter() {
    deinit();
}

/// What a reader has found is out of date once bytes have moved.
void HEIFMetaWriter::rescan() {
    deinit();
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
// The muxer writes what changes of the image part again into memory, and the new one takes the old one's place.
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
    uint32_t const imageLength = reader->getEndOfImagePosition(true);
    auto image = imageWithRoom(size);
    replaceImagePart(imageLength, image);
    rescan();
    auto const rooms = reader->findAllXMP();
    Metadata const room = rooms.empty() ? Metadata() : rooms.front();
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

void HEIFMetaWriter::putXMPIn(SplicedCopy& copy, std::vector<uint8_t> packet, bool isWanted) {
    auto const needed = std::max(static_cast<uint32_t>(packet.size()), 1U);
    uint32_t const room = xmpRoom();
    if (room >= needed) {
        packet.resize(room, BLANK);
        if (isWanted)
            copy.replace({reader->getXMPItem()->position, room}, {packet.begin(), packet.end()});
        return;
    }
    uint32_t const oldSize = reader->getEndOfImagePosition(true);
    auto const image = imageWithRoom(roomFor(needed));
    uint32_t size = 0;
    uint32_t const offset = getMetadataOffset(&size);
    packet.resize(std::max<size_t>(size, packet.size()), BLANK);
    if (isWanted)
        std::copy(packet.begin(), packet.end(), image.bytes.get() + offset);
    image.putInto(copy, oldSize);
}

/// The new image part, in memory but for what the source's has unchanged.
heif::ImagePart HEIFMetaWriter::imageWithRoom(unsigned int size) {
    if (size > INT32_MAX)
        throw ErrorAt().as(Error::Code::TOO_BIG)("room of %zu bytes for XMP is too large", size_t{size});
    heif::scanWhole(*file);
    requireReplaceableXMP();
    init();
    copyCover(std::max<uint32_t>(size, HBOXM_MIN_XMP_SIZE));
    stop();
    auto image = dumpImage();
    heif::requireRoomIsFound(image.span(), getMetadataOffset(), size);
    return image;
}

/// A 'mime' item of another kind that stands where XMP is looked for would go on hiding the room.
void HEIFMetaWriter::requireReplaceableXMP() {
    auto const item = reader->getXMPItem();
    if (item && !item->isPacket)
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("no room for XMP can be made: %s", item->refusal.c_str());
}

// The muxer's work. ---------------------------------------------------------------------------------------------------

void HEIFMetaWriter::init() {
    uint32_t const imageLength = reader->getEndOfImagePosition(false);
    HBOXM_CONFIG const config{BRANDS.data(), BRANDS.size(), reader->getDemuxer(), imageLength};
    int32_t error = HBOX_OK;
    muxer = hboxm_create(&config, &error);
    if (muxer == nullptr || error != HBOX_OK)
        throw ErrorAt().as(codeOf(*reader, error, "fail to create hboxm"))("fail to create hboxm: err=%d",
                                                                           static_cast<int>(error));
}

void HEIFMetaWriter::deinit() {
    if (muxer != nullptr)
        hboxm_delete(muxer);
    muxer = nullptr;
}

void HEIFMetaWriter::copyCover(uint32_t xmpSize) {
    int const coverId = reader->getCoverImageId();
    requireOk(*reader, hboxm_set_cover_image(muxer, static_cast<uint32_t>(coverId)),
              "[HEIFMetaWriter]fail to set cover image");
    HBOXD_IMAGE_INFO const cover = reader->getImageInfo(coverId);
    if (cover.is_grid == 0 || cover.tile_count == 0)
        throw Error(Error::Code::UNSUPPORTED, "[HEIFController]not grid image or no item");
    copyImage(cover, reader->getItemIds(coverId, static_cast<int>(cover.tile_count)), xmpSize);
    copyThumbnail(coverId);
}

void HEIFMetaWriter::copyImage(HBOXD_IMAGE_INFO const& imageInfo, std::vector<uint32_t> const& tiles,
                               uint32_t xmpSize) {
    heif::CodecInfo const codec(*reader, imageInfo);
    LOGD("image %d is turned by %d degrees clockwise", static_cast<int>(imageInfo.id),
         static_cast<int>(getClockWiseRotation(imageInfo.rotation)));
    HBOXM_IMAGE_INFO info{};
    info.id = imageInfo.id;
    info.width = imageInfo.width;
    info.height = imageInfo.height;
    info.rotation = imageInfo.rotation;
    if (imageInfo.is_grid != 0)
        info.grid = reader->getGridInfo(static_cast<int>(imageInfo.id));
    info.hevc = codec.get();
    info.tile_ids = tiles.data();
    info.tile_count = static_cast<uint32_t>(tiles.size());
    info.xmp_size = xmpSize;
    requireOk(*reader, hboxm_set_image_info(muxer, &info), "[HEIFMetaWriter]fail to set image info");
    copyImageFrames(imageInfo, tiles.empty() ? std::vector<uint32_t>{imageInfo.id} : tiles);
}

/// A tile that stands in several places is one item, put once. Lossless coding can exceed the usual frame size, so the
/// image's own size bounds a frame as well.
void HEIFMetaWriter::copyImageFrames(HBOXD_IMAGE_INFO const& imageInfo, std::vector<uint32_t> ids) {
    uint32_t const imageSize = reader->getEndOfImagePosition(false);
    auto const maxSize = static_cast<int>(std::max(getMaxBufferSize(imageInfo), std::min(imageSize, MAX_FRM_SIZE)));
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    for (uint32_t const id : ids) {
#ifdef HBOXM_HAS_UNCHANGED
        reader->getImageFrameSize(static_cast<int>(id), maxSize);
        int32_t const result = hboxm_put_source_frm(muxer, id);
#else
        std::vector<uint8_t> frame;
        reader->getImageFrame(static_cast<int>(id), frame, maxSize);
        int32_t const result = hboxm_put_frm(muxer, id, frame.data(), static_cast<uint32_t>(frame.size()));
#endif
        if (result != HBOX_OK)
            throw ErrorAt().as(codeOf(*reader, result, "hboxm_put_frm"))("[HEIFMetaWriter]fail to set image frame");
    }
}

/// The muxer carries every item over in any case; a thumbnail it has a question about is no reason to stop.
void HEIFMetaWriter::copyThumbnail(int coverId) {
    try {
        HBOXD_IMAGE_INFO const thumbnail = reader->getThumbnailImageInfo(coverId);
        std::vector<uint32_t> tiles;
        if (thumbnail.tile_count != 0)
            tiles = reader->getItemIds(static_cast<int>(thumbnail.id), static_cast<int>(thumbnail.tile_count));
        copyImage(thumbnail, tiles, 0);
    } catch (std::exception const& exception) {
        rethrowUnlessDamage();
        LOGE("fail to copy thumbnail: %s", exception.what());
    }
}

uint32_t HEIFMetaWriter::getMaxBufferSize(HBOXD_IMAGE_INFO const& imageInfo) {
    uint32_t const n = imageInfo.width * imageInfo.height, size = (3 * n) / 2 + (3 * n) / 10;
    if (size > MAX_FRM_SIZE)
        throw ErrorAt(239).as(Error::Code::TOO_BIG)("max buffer size is larger than MAX_FRM_SIZE");
    return size;
}

void HEIFMetaWriter::stop() {
    if (int32_t const result = hboxm_stop_muxing(muxer); result != HBOX_OK)
        throw ErrorAt().as(codeOf(*reader, result, "hboxm_stop_muxing"))("fail to stop muxing");
}

heif::ImagePart HEIFMetaWriter::dumpImage() {
    int64_t const size = hboxm_get_outputbuffer_size(muxer);
    if (size > int64_t{UINT32_MAX})
        throw Error(Error::Code::TOO_BIG, "[HEIFController]invalid overflowed output buffer size");
    if (size < 0)
        requireOk(*reader, static_cast<int32_t>(size), "[HEIFController]invalid minus output buffer size");
    auto const capacity = static_cast<uint32_t>(size);
    heif::ImagePart image(capacity);
    uint32_t written = 0;
#ifdef HBOXM_HAS_UNCHANGED
    int32_t const result = hboxm_dump_changes_to_outputbuffer(muxer, image.bytes.get(), capacity, &written);
    HBOXM_UNCHANGED range{};
    while (hboxm_get_unchanged(muxer, static_cast<uint32_t>(image.unchanged.size()), &range) == HBOX_OK)
        image.unchanged.push_back({range.position, range.source, range.length});
#else
    int32_t const result = hboxm_dump_image_to_outputbuffer(muxer, image.bytes.get(), capacity, &written);
#endif
    if (result != HBOX_OK || written != capacity)
        throw ErrorAt().as(codeOf(*reader, result, "hboxm_dump_image_to_outputbuffer"))("fail to write");
    return image;
}

uint32_t HEIFMetaWriter::getMetadataOffset(uint32_t* size) {
    uint32_t offset = 0;
    requireOk(*reader, hboxm_get_metadata_offset(muxer, &offset, size), "[HEIFController]not alloc xmp buffer");
    return offset;
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
        moveTail(file, imageLength, distance);
    if (file->position(0) != 0)
        throw ErrorAt(406).as(Error::Code::READ_FAILED, *file)("Failed to reset file position to 0");
    image.writeOver(*file);
    if (file->size() != newSize)
        checked::truncate(*file, newSize);
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
