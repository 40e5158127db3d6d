#include "HEIFMetaWriter.h"

#include "CheckedFile.h"
#include "Log.h"
#include "TrailingBoxes.h"

#include <array>
#include <optional>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaWriter";
constexpr uint32_t DEFAULT_XMP_ROOM = 1280;
constexpr uint8_t BLANK = 0x20;

void requireFits(size_t packet, uint32_t room, int line = __builtin_LINE()) {
    if (packet > room)
        throw ErrorAt(line).as(Error::Code::TOO_BIG)("xmpBuffer size must be smaller than xmpBox size");
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
    std::vector<uint8_t> packet = info->serializeToBuffer();
    rescan();
    auto item = reader->getXMPItem();
    if (!item || (item->length == 0 && item->isPacket)) {
        requireFits(packet.size(), DEFAULT_XMP_ROOM);
        reserveXMP(DEFAULT_XMP_ROOM);
        item = reader->getXMPItem();
    }
    if (!item || !item->refusal.empty())
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("XMP cannot be written in place: %s",
                                                     item ? item->refusal.c_str() : "no room");
    requireFits(packet.size(), item->length);
    size_t const length = packet.size();
    packet.resize(item->length, BLANK);
    checked::requireEditable(*file);
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
        if (box.position < boxes.endOfImage()) {
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
        if (box.position < boxes.endOfImage())
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

// The order of the boxes behind the image. ----------------------------------------------------------------------------

namespace {

bool isHEIC(MediaFile const& file) {
    return file.mimeType() == MediaDefs::MimeType::IMAGE_HEIC;
}

} // namespace

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

uint32_t HEIFMetaWriter::getClockWiseRotation(int heifCcwRotation) {
    static constexpr std::array<uint32_t, 4> CLOCKWISE = {0, 270, 180, 90};
    if (heifCcwRotation < 0 || static_cast<size_t>(heifCcwRotation) >= CLOCKWISE.size())
        throw ErrorAt(255)("invalid heif rotation type");
    return CLOCKWISE[static_cast<size_t>(heifCcwRotation)];
}

} // namespace android::lumo
