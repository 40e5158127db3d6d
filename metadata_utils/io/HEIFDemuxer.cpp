// The image questions of HEIFMetaReader, which the platform's demuxer answers.
#include "HEIFMetaReader.h"

#include "CheckedFile.h"
#include "Log.h"
#include "hboxd.h"

#include <algorithm>
#include <new>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaReader";

/// The messages are the reader's, whichever of its source files they come from.
ErrorAt readerError(int line = __builtin_LINE()) {
    return ErrorAt(line, "metadata_utils/io/HEIFMetaReader");
}

/// The caller's message with the demuxer's code; its reason goes to the log.
Error failure(char const* message, int32_t error, int line = __builtin_LINE()) {
    if (error == HBOX_ERR_MEMORY)
        throw std::bad_alloc();
    LOGE("%s: %s", message, hbox_last_error());
    auto const code = error == HBOX_ERR_FORMAT ? Error::Code::DAMAGED : Error::Code::UNSUPPORTED;
    return readerError(line).as(code)("%s: err=%d", message, error);
}

uint32_t imageId(hboxd_context* demuxer, HBOXD_IMAGE which, int base, char const* message, int line) {
    uint32_t id = 0;
    if (int32_t const error = hboxd_get_image_id(demuxer, which, static_cast<uint32_t>(base), &id); error != HBOX_OK)
        throw failure(message, error, line);
    return id;
}

} // namespace

void HEIFMetaReader::init() {
    checked::seek(*file, 0);
    buffer = file->readAllBytes();
    if (buffer.empty())
        return;
    HBOX_STREAM_CALLBACKS callbacks{};
    if (int32_t const error = hbox_mfal_memory(&callbacks); error != HBOX_OK)
        throw readerError()("fail to mfal init: err=%d", error);
    stream = std::make_unique<HBOX_MEMORY_STREAM>(HBOX_MEMORY_STREAM{buffer.data(), buffer.size(), 0});
    int32_t error = HBOX_OK;
    demuxer = hboxd_create(&callbacks, stream.get(), &error);
    if (demuxer == nullptr || error != HBOX_OK) {
        deinit();
        throw failure("fail to create hboxd", error);
    }
}

void HEIFMetaReader::deinit() {
    if (demuxer != nullptr)
        hboxd_delete(demuxer);
    demuxer = nullptr;
}

hboxd_context* HEIFMetaReader::getDemuxer() {
    if (demuxer == nullptr)
        init();
    return demuxer;
}

ByteBuffer const& HEIFMetaReader::getBuffer() {
    if (buffer.empty())
        init();
    return buffer;
}

int HEIFMetaReader::getCoverImageId() {
    return static_cast<int>(imageId(getDemuxer(), HBOXD_IMAGE_COVER, 0, "fail to get cover image id", __LINE__));
}

HBOXD_IMAGE_INFO HEIFMetaReader::getImageInfo(int id) {
    HBOXD_IMAGE_INFO info{};
    if (int32_t const error = hboxd_get_info_image(getDemuxer(), static_cast<uint32_t>(id), &info); error != HBOX_OK)
        throw failure("fail to get image info", error);
    return info;
}

void HEIFMetaReader::getMetadataInfo(int id, int kind, std::vector<uint8_t>* bytes) {
    if (bytes == nullptr)
        throw readerError()("no metadata buffer given");
    auto const item = static_cast<uint32_t>(id);
    auto const what = static_cast<HBOXD_ITEM_INFO>(kind);
    uint32_t size = 0;
    int32_t error = hboxd_get_info_item(getDemuxer(), item, what, nullptr, &size);
    if (error == HBOX_OK && size > getFileSize())
        error = HBOX_ERR_FORMAT;
    if (error == HBOX_OK) {
        bytes->resize(size);
        error = hboxd_get_info_item(demuxer, item, what, bytes->data(), &size);
    }
    if (error != HBOX_OK)
        throw failure("fail to get meta-data", error);
    bytes->resize(size);
}

HBOXM_GRID_INFO HEIFMetaReader::getGridInfo(int id) {
    HBOXM_GRID_INFO grid{};
    uint32_t size = sizeof grid;
    int32_t const error = hboxd_get_info_item(getDemuxer(), static_cast<uint32_t>(id), HBOXD_ITEM_GRID, &grid, &size);
    if (error != HBOX_OK)
        throw failure("fail to get grid-info", error);
    return grid;
}

std::vector<uint32_t> HEIFMetaReader::getItemIds(int id, int maxCount) {
    std::vector<uint32_t> ids(static_cast<size_t>(std::max(maxCount, 0)));
    auto count = static_cast<uint32_t>(ids.size());
    uint32_t const derivedFrom = HBOX_FOURCC('d', 'i', 'm', 'g');
    int32_t const error =
        hboxd_get_list_referenceto(getDemuxer(), static_cast<uint32_t>(id), derivedFrom, ids.data(), &count);
    if (error != HBOX_OK)
        throw failure("fail to get item ids", error);
    ids.resize(count);
    return ids;
}

void HEIFMetaReader::getImageFrame(int id, std::vector<uint8_t>& frame, int maxSize) {
    auto const item = static_cast<uint32_t>(id);
    uint32_t size = 0;
    int32_t error = hboxd_get_image_frm(getDemuxer(), item, nullptr, 0, &size);
    if (error == HBOX_OK && size > static_cast<uint32_t>(std::max(maxSize, 0)))
        error = HBOX_ERR_BUFFER;
    if (error == HBOX_OK) {
        frame.resize(size);
        error = hboxd_get_image_frm(demuxer, item, frame.data(), size, &size);
    }
    if (error != HBOX_OK)
        throw failure("fail to get image frame", error);
    frame.resize(size);
}

int HEIFMetaReader::getThumbnailImageId(int coverId) {
    return static_cast<int>(
        imageId(getDemuxer(), HBOXD_IMAGE_THUMBNAIL, coverId, "fail to get thumbnail image id", __LINE__));
}

HBOXD_IMAGE_INFO HEIFMetaReader::getThumbnailImageInfo(int coverId) {
    return getImageInfo(getThumbnailImageId(coverId));
}

} // namespace android::lumo
