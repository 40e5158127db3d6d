// Room for XMP: the muxer writes the image part again into memory, and the new one takes the old one's place.
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
// 1. The file is not touched before the new image part lies in memory, complete, and our own reader has found the room
// in it.
// 2. The appended data moves first: it needs the space, so a full disk is found while every byte still stands.
// 3. The pointer to the video is corrected in the same operation that moves the video.
#include "HEIFMetaWriter.h"

#include "CheckedFile.h"
#include "HEIFCodecInfo.h"
#include "HEIFItems.h"
#include "Log.h"
#include "MoveTail.h"
#include "TrailingBoxes.h"

#include <algorithm>
#include <array>
#include <exception>
#include <new>
#include <set>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaWriter";
constexpr char SOURCE[] = "metadata_utils/io/HEIFMetaWriter";
constexpr uint32_t MAX_FRM_SIZE = 0x20000000;
constexpr int MAX_ITEM_IDS = 512;
constexpr std::array<uint32_t, 2> BRANDS = {HBOX_FOURCC('h', 'e', 'i', 'c'), HBOX_FOURCC('m', 'i', 'f', '1')};

ErrorAt writerError(int line = __builtin_LINE()) {
    return ErrorAt(line, SOURCE);
}

/// An answer of the muxer that ends the rewrite; what it objects to goes to the log.
Error::Code codeOf(int32_t result, char const* text) {
    if (result == HBOX_ERR_MEMORY)
        throw std::bad_alloc();
    LOGE("%s: err=%d, %s", text, static_cast<int>(result), hbox_last_error());
    return result == HBOX_ERR_FORMAT ? Error::Code::DAMAGED : Error::Code::UNSUPPORTED;
}

void requireOk(int32_t result, char const* text) {
    if (result != HBOX_OK)
        throw Error(codeOf(result, text), text);
}

/// Invariant 1: what our reader would not find, or could not write into, is not worth restructuring a file for.
void requireRoomIsFound(std::vector<uint8_t> const& image, uint32_t offset, uint32_t size) {
    heif::ByteWindow window{std::span<uint8_t const>(image)};
    heif::TopLevel const topLevel = heif::scanWhole(window);
    auto const* meta = topLevel.find(boxType("meta"));
    heif::Items items;
    if (meta != nullptr)
        items.parse(window, *meta);
    auto const place = items.findDescribing(items.mimeIds);
    if (!place || place->base + place->offset != offset || place->length < size)
        throw ErrorAt().as(Error::Code::UNSUPPORTED)(
            "room for XMP would not be found in the image: another item comes first");
    if (std::string const refusal = items.refusalToWrite(*place, topLevel); !refusal.empty())
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("room for XMP could not be used: %s", refusal.c_str());
}

} // namespace

Metadata HEIFMetaWriter::reserveXMP(unsigned int size) {
    checked::requireEditable(*file);
    rescan();
    uint32_t const inputSize = reader->getFileSize();
    if (reader->getExternalMetadataPosition({"qrtd", "free", "mpvd"}) == 0)
        LOGD("no external metadata box given");
    uint32_t const imageLength = reader->getEndOfImagePosition(true);
    std::vector<uint8_t> const image = imageWithRoom(size);
    rescan(); // gives the source's copy back before anything else needs memory

    replaceImagePart(imageLength, image);
    rescan();
    auto const rooms = reader->findAllXMP();
    Metadata const room = rooms.empty() ? Metadata() : rooms.front();
    LOGI("reserve_xmp done: input-size=%ld, reserved-size=%d, output-size=%lu, xmp-offset=%ld",
         static_cast<long>(inputSize), static_cast<int>(size), static_cast<unsigned long>(image.size()),
         static_cast<long>(room.position));
    return room;
}

void HEIFMetaWriter::requireRoomCanBeMade(unsigned int size) {
    rescan();
    imageWithRoom(size);
    rescan();
}

/// The new image part, in memory.
std::vector<uint8_t> HEIFMetaWriter::imageWithRoom(unsigned int size) {
    if (size > INT32_MAX)
        throw ErrorAt().as(Error::Code::TOO_BIG)("room of %zu bytes for XMP is too large", size_t{size});
    requireReplaceableXMP();
    init(reader->getEndOfImagePosition(true));
    copyCover(std::max<uint32_t>(size, HBOXM_MIN_XMP_SIZE));
    stop();
    std::vector<uint8_t> image = dumpImage();
    requireRoomIsFound(image, getMetadataOffset(), size);
    return image;
}

/// A 'mime' item of another kind that stands where XMP is looked for would go on hiding the room.
void HEIFMetaWriter::requireReplaceableXMP() {
    auto const item = reader->getXMPItem();
    if (item && !item->isPacket)
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("no room for XMP can be made: %s", item->refusal.c_str());
}

// The muxer's work. ---------------------------------------------------------------------------------------------------

void HEIFMetaWriter::init(uint32_t imageLength) {
    HBOXM_CONFIG const config{BRANDS.data(), BRANDS.size(), reader->getDemuxer(), imageLength};
    int32_t error = HBOX_OK;
    muxer = hboxm_create(&config, &error);
    if (muxer == nullptr || error != HBOX_OK)
        throw ErrorAt().as(codeOf(error, "fail to create hboxm"))("fail to create hboxm: err=%d",
                                                                  static_cast<int>(error));
}

void HEIFMetaWriter::deinit() {
    if (muxer != nullptr)
        hboxm_delete(muxer);
    muxer = nullptr;
}

void HEIFMetaWriter::copyCover(uint32_t xmpSize) {
    int const coverId = reader->getCoverImageId();
    requireOk(hboxm_set_cover_image(muxer, static_cast<uint32_t>(coverId)), "[HEIFMetaWriter]fail to set cover image");
    HBOXD_IMAGE_INFO const cover = reader->getImageInfo(coverId);
    if (cover.is_grid == 0 || cover.tile_count == 0)
        throw Error(Error::Code::UNSUPPORTED, "[HEIFController]not grid image or no item");
    copyImage(cover, reader->getItemIds(coverId, MAX_ITEM_IDS), xmpSize);
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
    requireOk(hboxm_set_image_info(muxer, &info), "[HEIFMetaWriter]fail to set image info");
    copyImageFrames(imageInfo, tiles.empty() ? std::vector<uint32_t>{imageInfo.id} : tiles);
}

/// A tile that stands in several places is one item, read once. Lossless coding can exceed the usual frame size, so the
/// file's own size bounds a frame as well.
void HEIFMetaWriter::copyImageFrames(HBOXD_IMAGE_INFO const& imageInfo, std::vector<uint32_t> const& ids) {
    uint32_t const maxSize = std::max(getMaxBufferSize(imageInfo), std::min(reader->getFileSize(), MAX_FRM_SIZE));
    std::vector<uint8_t> frame;
    for (uint32_t const id : std::set<uint32_t>(ids.begin(), ids.end())) {
        reader->getImageFrame(static_cast<int>(id), frame, static_cast<int>(maxSize));
        auto const size = static_cast<uint32_t>(frame.size());
        if (int32_t const result = hboxm_put_frm(muxer, id, frame.data(), size); result != HBOX_OK)
            throw writerError().as(codeOf(result, "hboxm_put_frm"))("[HEIFMetaWriter]fail to set image frame");
    }
}

/// The muxer carries every item over in any case; a thumbnail it has a question about is no reason to stop.
void HEIFMetaWriter::copyThumbnail(int coverId) {
    try {
        HBOXD_IMAGE_INFO const thumbnail = reader->getThumbnailImageInfo(coverId);
        std::vector<uint32_t> tiles;
        if (thumbnail.tile_count != 0)
            tiles = reader->getItemIds(static_cast<int>(thumbnail.id), MAX_ITEM_IDS);
        copyImage(thumbnail, tiles, 0);
    } catch (std::exception const& exception) {
        rethrowUnlessDamage();
        LOGE("fail to copy thumbnail: %s", exception.what());
    }
}

uint32_t HEIFMetaWriter::getMaxBufferSize(HBOXD_IMAGE_INFO const& imageInfo) {
    uint32_t const n = imageInfo.width * imageInfo.height;
    uint32_t const size = (3 * n) / 2 + (3 * n) / 10;
    if (size > MAX_FRM_SIZE)
        throw ErrorAt(239, SOURCE).as(Error::Code::TOO_BIG)("max buffer size is larger than MAX_FRM_SIZE");
    return size;
}

void HEIFMetaWriter::stop() {
    if (int32_t const result = hboxm_stop_muxing(muxer); result != HBOX_OK)
        throw writerError().as(codeOf(result, "hboxm_stop_muxing"))("fail to stop muxing");
}

std::vector<uint8_t> HEIFMetaWriter::dumpImage() {
    int64_t const size = hboxm_get_outputbuffer_size(muxer);
    if (size > int64_t{UINT32_MAX})
        throw Error(Error::Code::TOO_BIG, "[HEIFController]invalid overflowed output buffer size");
    if (size < 0)
        requireOk(static_cast<int32_t>(size), "[HEIFController]invalid minus output buffer size");
    std::vector<uint8_t> image(static_cast<size_t>(size));
    uint32_t written = 0;
    auto const capacity = static_cast<uint32_t>(image.size());
    int32_t const result = hboxm_dump_image_to_outputbuffer(muxer, image.data(), capacity, &written);
    if (result != HBOX_OK || written != capacity)
        throw writerError().as(codeOf(result, "hboxm_dump_image_to_outputbuffer"))("fail to write");
    return image;
}

uint32_t HEIFMetaWriter::getMetadataOffset() {
    uint32_t offset = 0;
    requireOk(hboxm_get_metadata_offset(muxer, &offset, nullptr), "[HEIFController]not alloc xmp buffer");
    return offset;
}

// The file. -----------------------------------------------------------------------------------------------------------

/// Invariants 2 and 3.
void HEIFMetaWriter::replaceImagePart(uint32_t imageLength, std::vector<uint8_t> const& image) {
    uint32_t const fileSize = file->size();
    int64_t const distance = static_cast<int64_t>(image.size()) - int64_t{imageLength};
    uint32_t const newSize = checked::sizeOf(static_cast<uint64_t>(int64_t{fileSize} + distance));
    heif::TrailingBoxes(file).bringTrailerToEnd(); // a hidden one must not come back later with a wrong pointer
    if (imageLength == fileSize)
        checked::reserve(*file, newSize);
    else
        moveTail(file, imageLength, distance);
    write(image);
    if (file->size() != newSize)
        checked::truncate(*file, newSize);
}

void HEIFMetaWriter::write(std::vector<uint8_t> const& image) {
    if (file->position(0) != 0)
        throw ErrorAt(406, SOURCE).as(Error::Code::READ_FAILED, *file)("Failed to reset file position to 0");
    checked::write(*file, image.data(), image.size());
}

} // namespace android::lumo
