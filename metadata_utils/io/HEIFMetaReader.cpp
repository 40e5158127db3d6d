// SPDX-License-Identifier: Apache-2.0
#include "HEIFMetaReader.h"

#include "CheckedFile.h"
#include "HEIFImageStream.h"
#include "HEIFItems.h"
#include "Log.h"
#include "hboxd.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaReader";
constexpr uint32_t MARKER_SIZE = 4;
constexpr uint32_t EXIF_IDENTIFIER_SIZE = 6;
constexpr uint32_t EXIF_OFFSET_SIZE = 4;

HEIFMetaReader::Box publicBox(heif::TopLevelBox const& box) {
    return {boxTypeText(box.type), box.position, box.statedSize};
}

/// What stands in errno after other calls says nothing about this file.
Error noSize(MediaFile const& file) {
    struct stat64 status {};
    errno = 0;
    auto code = Error::Code::DAMAGED;
    if (fstat64(file.getFd(), &status) == 0 && status.st_size > off64_t{UINT32_MAX}) {
        errno = EFBIG;
        code = Error::Code::TOO_BIG;
    } else if (errno != 0 || lseek64(file.getFd(), 0, SEEK_CUR) < 0) {
        code = Error::Code::READ_FAILED;
    }
    return ErrorAt().as(code, file)("fail to get fd & size[err=%d, %s]: fd=%d, size=%zu", errno, std::strerror(errno),
                                    file.getFd(), size_t{0});
}

std::string joined(std::list<HEIFMetaReader::Box> const& boxes) {
    std::string text;
    for (auto const& box : boxes)
        text += (text.empty() ? "" : " ") + box.type + "[" + std::to_string(box.position) + ", " +
                std::to_string(box.size) + "]";
    return text;
}

uint32_t endOfImageIn(heif::TopLevel const& topLevel) {
    if (topLevel.damage && !topLevel.isCutOff())
        throw *topLevel.damage;
    return topLevel.endOfImage();
}

/// A look at the whole top level, kept with the items until they are read again.
heif::TopLevel const& topLevelOf(heif::Items& items, MediaFile const& file, bool rescan = false) {
    if (rescan || !items.around) {
        items.around.reset();
        heif::ByteWindow window(file);
        items.around = heif::scanTopLevel(window);
    }
    return *items.around;
}

/// The caller's message with the demuxer's code; its reason goes to the log. A file that could not be read is thrown.
Error failure(HEIFMetaReader const& reader, char const* message, int32_t error, int line = __builtin_LINE()) {
    reader.rethrowReadFailure();
    if (error == HBOX_ERR_MEMORY)
        throw std::bad_alloc();
    LOGE("%s: %s", message, hbox_last_error());
    auto const code = error == HBOX_ERR_FORMAT ? Error::Code::DAMAGED : Error::Code::UNSUPPORTED;
    return ErrorAt(line).as(code)("%s: err=%d", message, error);
}

uint32_t imageId(HEIFMetaReader& reader, HBOXD_IMAGE which, int base, char const* message,
                 int line = __builtin_LINE()) {
    uint32_t id = 0;
    int32_t const error = hboxd_get_image_id(reader.getDemuxer(), which, static_cast<uint32_t>(base), &id);
    if (error != HBOX_OK)
        throw failure(reader, message, error, line);
    return id;
}

} // namespace

HEIFMetaReader::HEIFMetaReader(std::shared_ptr<MediaFile> const& source, ParseMode parseMode)
    : ImageMetaReader(source, parseMode), fileSize(source->isValid() ? source->size() : 0),
      items(std::make_shared<heif::Items>()), allItems(items) {
    if (fileSize == 0)
        throw noSize(*file);
    if (mode != ParseMode::EAGER)
        return;
    if (!parseItems())
        throw ErrorAt().as(Error::Code::DAMAGED, *file)("fail to parse");
    init();
}

HEIFMetaReader::~HEIFMetaReader() {
    deinit();
}

// The metadata. -------------------------------------------------------------------------------------------------------

bool HEIFMetaReader::parseMetadata() {
    try {
        return parseItems();
    } catch (std::exception const& exception) {
        LOGE("failed to parse metadata: %s", exception.what());
        return false;
    }
}

/// Damage is an answer, and what was read in front of it stays; of boxes that could not be read nothing is kept.
bool HEIFMetaReader::parseItems() {
    LOGI("parseMetadata");
    isParsed = false;
    items = std::make_shared<heif::Items>();
    allItems = items;
    auto const found = std::make_shared<heif::Items>(), all = std::make_shared<heif::Items>();
    bool const isWhole = readItems(*found, false), isAll = isWhole && found->isIndexRead();
    if (!isAll)
        readItems(*all, true);
    items = found;
    allItems = isAll ? found : all;
    isParsed = true;
    return isWhole;
}

bool HEIFMetaReader::readItems(heif::Items& found, bool wantsAll) const {
    try {
        heif::ByteWindow window(*file);
        heif::TopLevel const topLevel = heif::scanTopLevel(window, boxType("meta"));
        auto const* meta = topLevel.find(boxType("meta"));
        if (meta != nullptr)
            found.parse(window, *meta, wantsAll ? heif::Items::Locations::ALL : heif::Items::Locations::SIMPLE);
        return meta != nullptr;
    } catch (std::exception const& exception) {
        rethrowUnlessDamage();
        LOGE("failed to parse metadata: %s", exception.what());
        return false;
    }
}

void HEIFMetaReader::requireParsed() {
    if (!isParsed)
        parseItems();
}

Metadata HEIFMetaReader::getXMP() {
    if (!isParsed)
        parseMetadata();
    return getMeta(items->findDescribing(items->mimeIds), MediaDefs::MetaType::XMP);
}

std::vector<Metadata> HEIFMetaReader::findAllXMP() {
    requireParsed();
    Metadata const xmp = getMeta(allItems->findXMP(), MediaDefs::MetaType::XMP);
    return xmp.type == MediaDefs::MetaType::NONE ? std::vector<Metadata>() : std::vector{xmp};
}

Metadata HEIFMetaReader::getMeta(std::optional<ItemLocation> const& place, MediaDefs::MetaType type) const {
    if (!place)
        return {};
    return {type, place->base + place->offset, place->length, 0, loader};
}

/// The Exif item as stored.
///
/// | offset | width | name                                                                     |
/// |--------|-------|--------------------------------------------------------------------------|
/// | 0      | 4     | N, big-endian: bytes between this field and the TIFF header              |
/// | 4      | N     | ends with the six bytes "Exif", 0, 0 where N is 6 or more                |
/// | 4 + N  | ...   | TIFF header and directories                                              |
Metadata HEIFMetaReader::getExif() {
    requireParsed();
    Metadata exif = getMeta(items->findDescribing(items->exifIds), MediaDefs::MetaType::EXIF);
    if (exif.payload < EXIF_OFFSET_SIZE)
        return exif;
    ByteBuffer const field = checked::readAt(*file, exif.position, EXIF_OFFSET_SIZE);
    uint32_t const headerOffset = BoxCursor({field.data(), field.size()}, exif.position, boxType("Exif")).u32();
    if (headerOffset < EXIF_IDENTIFIER_SIZE)
        return exif;
    uint32_t const skipped = headerOffset - (EXIF_IDENTIFIER_SIZE - EXIF_OFFSET_SIZE);
    if (skipped > exif.payload) {
        LOGW("Exif header offset %zu lies outside its item of %zu bytes", size_t{headerOffset}, size_t{exif.payload});
        return {};
    }
    exif.position += skipped;
    exif.payload -= skipped;
    return exif;
}

Metadata HEIFMetaReader::getCameraDebugInfo() {
    LOGI("getCameraDebugInfo");
    heif::ByteWindow window(*file);
    heif::TopLevel const topLevel = heif::scanTopLevel(window);
    if (topLevel.damage)
        LOGW("damaged behind %zu boxes: %s", topLevel.boxes.size(), topLevel.damage->what());
    if (topLevel.find(boxType("free")) == nullptr) {
        LOGI("no free box found");
        return {};
    }
    for (auto const& box : topLevel.boxes) {
        if (box.type != boxType("free"))
            continue;
        auto const position = static_cast<unsigned long>(box.position);
        LOGI("box type: %s, pos: %lu, size: %lu", "free", position, static_cast<unsigned long>(box.size));
        if (!box.debugInfo)
            continue;
        LOGI("camera debug info found, pos: %lu, size: %lu", position, static_cast<unsigned long>(box.size));
        uint32_t const header = box.headerSize + MARKER_SIZE;
        return {MediaDefs::MetaType::CDIF, box.position + header, box.size - header, 0, loader};
    }
    return {};
}

// The top level. ------------------------------------------------------------------------------------------------------

std::list<HEIFMetaReader::Box> HEIFMetaReader::findBox(std::vector<std::string> const& types) {
    auto const& topLevel = topLevelOf(*items, *file, true);
    endOfImage = endOfImageIn(topLevel);
    std::list<Box> found;
    for (auto const& box : topLevel.boxes) {
        if (std::find(types.begin(), types.end(), boxTypeText(box.type)) != types.end())
            found.push_back(publicBox(box));
    }
    return found;
}

uint32_t HEIFMetaReader::getExternalMetadataPosition(std::vector<std::string> const& types) {
    auto const found = findBox(types);
    if (found.empty())
        return 0;
    LOGI("external meta found: %s", joined(found).c_str());
    return found.front().position;
}

uint32_t HEIFMetaReader::getEndOfImagePosition(bool rescan) {
    if (rescan || endOfImage == 0)
        endOfImage = endOfImageIn(topLevelOf(*items, *file, rescan));
    return endOfImage;
}

std::optional<HEIFMetaReader::XMPItem> HEIFMetaReader::getXMPItem() {
    requireParsed();
    auto const place = allItems->findXMP();
    if (!place)
        return std::nullopt;
    return XMPItem{place->base + place->offset, place->length, allItems->isPacket(*place),
                   allItems->refusalToWrite(*place, topLevelOf(*items, *file))};
}

uint32_t HEIFMetaReader::getFileSize() const {
    return fileSize;
}

// The images. ---------------------------------------------------------------------------------------------------------

void HEIFMetaReader::init() {
    uint32_t imageLength = endOfImage;
    if (imageLength == 0)
        imageLength = topLevelOf(*items, *file).endOfImage();
    stream = std::make_unique<heif::ImageStream>(file, imageLength);
    auto const callbacks = heif::ImageStream::callbacks();
    int32_t error = HBOX_OK;
    demuxer = hboxd_create(&callbacks, stream.get(), &error);
    if (demuxer == nullptr || error != HBOX_OK) {
        deinit();
        throw failure(*this, "fail to create hboxd", error);
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
    if (buffer.empty()) {
        heif::ByteWindow window(*file);
        buffer = checked::readAt(*file, 0, heif::scanTopLevel(window).endOfImage());
    }
    return buffer;
}

void HEIFMetaReader::rethrowReadFailure() const {
    if (stream != nullptr)
        stream->rethrowFailure();
}

int HEIFMetaReader::getCoverImageId() {
    return static_cast<int>(imageId(*this, HBOXD_IMAGE_COVER, 0, "fail to get cover image id"));
}

HBOXD_IMAGE_INFO HEIFMetaReader::getImageInfo(int id) {
    HBOXD_IMAGE_INFO info{};
    if (int32_t const error = hboxd_get_info_image(getDemuxer(), static_cast<uint32_t>(id), &info); error != HBOX_OK)
        throw failure(*this, "fail to get image info", error);
    return info;
}

void HEIFMetaReader::getMetadataInfo(int id, int kind, std::vector<uint8_t>* bytes) {
    if (bytes == nullptr)
        throw ErrorAt()("no metadata buffer given");
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
        throw failure(*this, "fail to get meta-data", error);
    bytes->resize(size);
}

HBOXM_GRID_INFO HEIFMetaReader::getGridInfo(int id) {
    HBOXM_GRID_INFO grid{};
    uint32_t size = sizeof grid;
    int32_t const error = hboxd_get_info_item(getDemuxer(), static_cast<uint32_t>(id), HBOXD_ITEM_GRID, &grid, &size);
    if (error != HBOX_OK)
        throw failure(*this, "fail to get grid-info", error);
    return grid;
}

std::vector<uint32_t> HEIFMetaReader::getItemIds(int id, int maxCount) {
    std::vector<uint32_t> ids(static_cast<size_t>(std::max(maxCount, 0)));
    auto count = static_cast<uint32_t>(ids.size());
    uint32_t const derivedFrom = HBOX_FOURCC('d', 'i', 'm', 'g');
    int32_t const error =
        hboxd_get_list_referenceto(getDemuxer(), static_cast<uint32_t>(id), derivedFrom, ids.data(), &count);
    if (error != HBOX_OK)
        throw failure(*this, "fail to get item ids", error);
    ids.resize(count);
    return ids;
}

void HEIFMetaReader::getImageFrame(int id, std::vector<uint8_t>& frame, int maxSize) {
    uint32_t size = getImageFrameSize(id, maxSize);
    frame.resize(size);
    int32_t const error = hboxd_get_image_frm(demuxer, static_cast<uint32_t>(id), frame.data(), size, &size);
    if (error != HBOX_OK)
        throw failure(*this, "fail to get image frame", error);
    frame.resize(size);
}

uint32_t HEIFMetaReader::getImageFrameSize(int id, int maxSize) {
    uint32_t size = 0;
    int32_t error = hboxd_get_image_frm(getDemuxer(), static_cast<uint32_t>(id), nullptr, 0, &size);
    if (error == HBOX_OK && size > static_cast<uint32_t>(std::max(maxSize, 0)))
        error = HBOX_ERR_BUFFER;
    if (error != HBOX_OK)
        throw failure(*this, "fail to get image frame", error);
    return size;
}

int HEIFMetaReader::getThumbnailImageId(int coverId) {
    return static_cast<int>(imageId(*this, HBOXD_IMAGE_THUMBNAIL, coverId, "fail to get thumbnail image id"));
}

HBOXD_IMAGE_INFO HEIFMetaReader::getThumbnailImageInfo(int coverId) {
    return getImageInfo(getThumbnailImageId(coverId));
}

} // namespace android::lumo
