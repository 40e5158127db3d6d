#include "HEIFMetaReader.h"

#include "CheckedFile.h"
#include "HEIFItems.h"
#include "Log.h"
#include "hboxd.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
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

} // namespace

HEIFMetaReader::HEIFMetaReader(std::shared_ptr<MediaFile> const& source, ParseMode parseMode)
    : ImageMetaReader(source, parseMode), fileSize(source->isValid() ? source->size() : 0),
      items(std::make_unique<heif::Items>()) {
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
    items = std::make_unique<heif::Items>();
    auto found = std::make_unique<heif::Items>();
    bool isWhole = false;
    try {
        heif::ByteWindow window(*file);
        heif::TopLevel const topLevel = heif::scanTopLevel(window, boxType("meta"));
        if (auto const* meta = topLevel.find(boxType("meta")); meta != nullptr) {
            found->parse(window, *meta);
            isWhole = true;
        }
    } catch (std::exception const& exception) {
        rethrowUnlessDamage();
        LOGE("failed to parse metadata: %s", exception.what());
    }
    items = std::move(found);
    isParsed = true;
    return isWhole;
}

void HEIFMetaReader::requireParsed() {
    if (!isParsed)
        parseItems();
}

Metadata HEIFMetaReader::getXMP() {
    if (!isParsed)
        parseMetadata();
    return getMeta(items->mimeIds, MediaDefs::MetaType::XMP);
}

std::vector<Metadata> HEIFMetaReader::findAllXMP() {
    requireParsed();
    Metadata const xmp = getMeta(items->mimeIds, MediaDefs::MetaType::XMP);
    return xmp.type == MediaDefs::MetaType::NONE ? std::vector<Metadata>() : std::vector{xmp};
}

Metadata HEIFMetaReader::getMeta(std::vector<int> const& ids, MediaDefs::MetaType type) {
    auto const place = items->findDescribing(ids);
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
    Metadata exif = getMeta(items->exifIds, MediaDefs::MetaType::EXIF);
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
    heif::ByteWindow window(*file);
    heif::TopLevel const topLevel = heif::scanTopLevel(window);
    if (topLevel.damage && !topLevel.isCutOff())
        throw *topLevel.damage;
    endOfImage = topLevel.endOfImage();
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
        findBox({});
    return endOfImage;
}

std::optional<HEIFMetaReader::XMPItem> HEIFMetaReader::getXMPItem() {
    requireParsed();
    auto const place = items->findDescribing(items->mimeIds);
    if (!place)
        return std::nullopt;
    heif::ByteWindow window(*file);
    return XMPItem{place->base + place->offset, place->length, items->isPacket(*place),
                   items->refusalToWrite(*place, heif::scanTopLevel(window))};
}

uint32_t HEIFMetaReader::getFileSize() const {
    return fileSize;
}

} // namespace android::lumo
