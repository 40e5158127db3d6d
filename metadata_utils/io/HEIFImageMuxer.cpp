// SPDX-License-Identifier: Apache-2.0
#include "HEIFImageMuxer.h"

#include "HEIFBoxScan.h"
#include "HEIFCodecInfo.h"
#include "HEIFMetaWriter.h"
#include "Log.h"

#include <algorithm>
#include <array>
#include <exception>
#include <new>

namespace android::lumo::heif {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaWriter";
constexpr uint32_t MAX_FRM_SIZE = 0x20000000;
constexpr std::array<uint32_t, 2> BRANDS = {HBOX_FOURCC('h', 'e', 'i', 'c'), HBOX_FOURCC('m', 'i', 'f', '1')};

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

ImageMuxer::ImageMuxer(HEIFMetaReader& source) : reader(source) {
    uint32_t const imageLength = reader.getEndOfImagePosition(false);
    HBOXM_CONFIG const config{BRANDS.data(), BRANDS.size(), reader.getDemuxer(), imageLength};
    int32_t result = HBOX_OK;
    muxer.reset(hboxm_create(&config, &result));
    if (muxer == nullptr || result != HBOX_OK)
        throw writerError().as(codeOf(reader, result, "fail to create hboxm"))("fail to create hboxm: err=%d",
                                                                               static_cast<int>(result));
}

void ImageMuxer::Deleter::operator()(hboxm_context* context) const {
    hboxm_delete(context);
}

ImagePart ImageMuxer::write(uint32_t room) {
    copyCover(std::max<uint32_t>(room, HBOXM_MIN_XMP_SIZE));
    stop();
    return dumpImage();
}

void ImageMuxer::copyCover(uint32_t xmpSize) {
    int const coverId = reader.getCoverImageId();
    requireOk(reader, hboxm_set_cover_image(muxer.get(), static_cast<uint32_t>(coverId)),
              "[HEIFMetaWriter]fail to set cover image");
    HBOXD_IMAGE_INFO const cover = reader.getImageInfo(coverId);
    if (cover.is_grid == 0 || cover.tile_count == 0)
        throw Error(Error::Code::UNSUPPORTED, "[HEIFController]not grid image or no item");
    copyImage(cover, reader.getItemIds(coverId, static_cast<int>(cover.tile_count)), xmpSize);
    copyThumbnail(coverId);
}

void ImageMuxer::copyImage(HBOXD_IMAGE_INFO const& imageInfo, std::vector<uint32_t> const& tiles, uint32_t xmpSize) {
    CodecInfo const codec(reader, imageInfo);
    LOGD("image %d is turned by %d degrees clockwise", static_cast<int>(imageInfo.id),
         static_cast<int>(HEIFMetaWriter::getClockWiseRotation(imageInfo.rotation)));
    HBOXM_IMAGE_INFO info{};
    info.id = imageInfo.id;
    info.width = imageInfo.width;
    info.height = imageInfo.height;
    info.rotation = imageInfo.rotation;
    if (imageInfo.is_grid != 0)
        info.grid = reader.getGridInfo(static_cast<int>(imageInfo.id));
    info.hevc = codec.get();
    info.tile_ids = tiles.data();
    info.tile_count = static_cast<uint32_t>(tiles.size());
    info.xmp_size = xmpSize;
    requireOk(reader, hboxm_set_image_info(muxer.get(), &info), "[HEIFMetaWriter]fail to set image info");
    copyImageFrames(imageInfo, tiles.empty() ? std::vector<uint32_t>{imageInfo.id} : tiles);
}

/// A tile that stands in several places is one item, put once. Lossless coding can exceed the usual frame size, so the
/// image's own size bounds a frame as well.
void ImageMuxer::copyImageFrames(HBOXD_IMAGE_INFO const& imageInfo, std::vector<uint32_t> ids) {
    uint32_t const imageSize = reader.getEndOfImagePosition(false);
    auto const maxSize = static_cast<int>(std::max(getMaxBufferSize(imageInfo), std::min(imageSize, MAX_FRM_SIZE)));
    if (!std::is_sorted(ids.begin(), ids.end()))
        std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    for (uint32_t const id : ids) {
#ifdef HBOXM_HAS_UNCHANGED
        reader.getImageFrameSize(static_cast<int>(id), maxSize);
        int32_t const result = hboxm_put_source_frm(muxer.get(), id);
#else
        std::vector<uint8_t> frame;
        reader.getImageFrame(static_cast<int>(id), frame, maxSize);
        int32_t const result = hboxm_put_frm(muxer.get(), id, frame.data(), static_cast<uint32_t>(frame.size()));
#endif
        if (result != HBOX_OK)
            throw writerError().as(codeOf(reader, result, "hboxm_put_frm"))("[HEIFMetaWriter]fail to set image frame");
    }
}

/// The muxer carries every item over in any case; a thumbnail it has a question about is no reason to stop.
void ImageMuxer::copyThumbnail(int coverId) {
    uint32_t id = 0;
    if (hboxd_get_image_id(reader.getDemuxer(), HBOXD_IMAGE_THUMBNAIL, static_cast<uint32_t>(coverId), &id) ==
        HBOX_ERR_NOT_FOUND) {
        LOGD("no thumbnail to copy");
        return;
    }
    try {
        HBOXD_IMAGE_INFO const thumbnail = reader.getThumbnailImageInfo(coverId);
        std::vector<uint32_t> tiles;
        if (thumbnail.tile_count != 0)
            tiles = reader.getItemIds(static_cast<int>(thumbnail.id), static_cast<int>(thumbnail.tile_count));
        copyImage(thumbnail, tiles, 0);
    } catch (std::exception const& exception) {
        rethrowUnlessDamage();
        LOGE("fail to copy thumbnail: %s", exception.what());
    }
}

uint32_t ImageMuxer::getMaxBufferSize(HBOXD_IMAGE_INFO const& imageInfo) {
    uint32_t const n = imageInfo.width * imageInfo.height, size = (3 * n) / 2 + (3 * n) / 10;
    if (size > MAX_FRM_SIZE)
        throw writerError(239).as(Error::Code::TOO_BIG)("max buffer size is larger than MAX_FRM_SIZE");
    return size;
}

void ImageMuxer::stop() {
    if (int32_t const result = hboxm_stop_muxing(muxer.get()); result != HBOX_OK)
        throw writerError().as(codeOf(reader, result, "hboxm_stop_muxing"))("fail to stop muxing");
}

ImagePart ImageMuxer::dumpImage() {
    int64_t const size = hboxm_get_outputbuffer_size(muxer.get());
    if (size > int64_t{UINT32_MAX})
        throw Error(Error::Code::TOO_BIG, "[HEIFController]invalid overflowed output buffer size");
    if (size < 0)
        requireOk(reader, static_cast<int32_t>(size), "[HEIFController]invalid minus output buffer size");
    auto const capacity = static_cast<uint32_t>(size);
    ImagePart image(capacity);
    uint32_t written = 0;
#ifdef HBOXM_HAS_UNCHANGED
    int32_t const result = hboxm_dump_changes_to_outputbuffer(muxer.get(), image.bytes.get(), capacity, &written);
    HBOXM_UNCHANGED range{};
    while (hboxm_get_unchanged(muxer.get(), static_cast<uint32_t>(image.unchanged.size()), &range) == HBOX_OK)
        image.unchanged.push_back({range.position, range.source, range.length});
#else
    int32_t const result = hboxm_dump_image_to_outputbuffer(muxer.get(), image.bytes.get(), capacity, &written);
#endif
    if (result != HBOX_OK || written != capacity)
        throw writerError().as(codeOf(reader, result, "hboxm_dump_image_to_outputbuffer"))("fail to write");
    return image;
}

uint32_t ImageMuxer::getMetadataOffset() {
    uint32_t offset = 0;
    requireOk(reader, hboxm_get_metadata_offset(muxer.get(), &offset, nullptr), "[HEIFController]not alloc xmp buffer");
    return offset;
}

} // namespace android::lumo::heif
