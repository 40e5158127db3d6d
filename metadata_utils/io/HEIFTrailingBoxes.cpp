// The boxes behind the image: camera debug info in and out, and their order. The trailer is looked for at the file's
// last bytes, so nothing may come behind its box.
#include "HEIFMetaWriter.h"

#include "CheckedFile.h"
#include "HEIFBoxScan.h"
#include "Log.h"
#include "TrailerLayout.h"
#include "VideoPointer.h"

#include <algorithm>
#include <exception>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaWriter";
constexpr char SOURCE[] = "metadata_utils/io/HEIFMetaWriter";
/// Size, "free", "cdif".
constexpr uint32_t DEBUG_INFO_HEADER = 12;
/// Only damage gives a file more than one; each costs a move of all that follows.
constexpr size_t MAX_DEBUG_INFOS = 16;
constexpr uint32_t MOVE_BUFFER = 1024 * 1024;

ErrorAt writerError(int line = __builtin_LINE()) {
    return ErrorAt(line, SOURCE);
}

bool isHEIC(MediaFile const& file) {
    return file.mimeType() == MediaDefs::MimeType::IMAGE_HEIC;
}

bool readsTrailer(MediaFile const& file) {
    try {
        return trailer::readTail(file).has_value();
    } catch (std::exception const& exception) {
        rethrowUnlessDamage();
        LOGW("no trailer that reads: %s", exception.what());
        return false;
    }
}

std::string bigEndian(uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

std::string debugInfoHeader(size_t dataSize) {
    return bigEndian(static_cast<uint32_t>(dataSize) + DEBUG_INFO_HEADER) + "freecdif";
}

/// Last first, so that removing one leaves the places of the others.
std::vector<heif::TopLevelBox> debugInfosFromBehind(heif::TopLevel const& topLevel) {
    std::vector<heif::TopLevelBox> found;
    std::copy_if(topLevel.boxes.rbegin(), topLevel.boxes.rend(), std::back_inserter(found),
                 [](auto const& box) { return box.debugInfo; });
    if (found.size() > MAX_DEBUG_INFOS)
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("%zu camera debug infos in one file", found.size());
    return found;
}

/// In front of the image's last box nothing can move: the image's offsets would be wrong. The box becomes plain
/// padding.
void blankOut(MediaFile& file, heif::TopLevelBox const& box) {
    checked::seek(file, box.content());
    checked::fill(file, 0, box.size - box.headerSize);
}

/// The trailer's box that others hide, with boxes behind it that cannot come last; null when there is none.
heif::TopLevelBox const* hiddenTrailer(heif::TopLevel const& topLevel) {
    auto const& boxes = topLevel.boxes;
    uint32_t const endOfImage = topLevel.endOfImage();
    auto const last = std::find_if(boxes.rbegin(), boxes.rend(), [&](auto const& box) {
        return box.type == TRAILER_BOX && box.position >= endOfImage;
    });
    bool const isHidden = last != boxes.rend() && std::any_of(boxes.rbegin(), last, [](auto const& box) {
                              return box.type == VIDEO_BOX || box.debugInfo;
                          });
    return isHidden ? &*last : nullptr;
}

/// Where a debug info goes that must not hide the trailer; nothing when the file's end is free.
std::optional<uint32_t> placeBeforeTrailer(MediaFile const& file, heif::TopLevel const& topLevel) {
    auto const& boxes = topLevel.boxes;
    if (boxes.back().type != TRAILER_BOX || !readsTrailer(file))
        return std::nullopt;
    uint32_t const endOfImage = topLevel.endOfImage();
    auto const first = std::find_if(boxes.begin(), boxes.end(), [&](auto const& box) {
        return box.position >= endOfImage && (box.type == VIDEO_BOX || box.type == TRAILER_BOX);
    });
    return first->position;
}

/// The new debug info fits the file's 32 bits and the disk, also if the old one goes first.
void requireSpaceFor(MediaFile& file, heif::TopLevel const& topLevel, size_t dataSize) {
    uint64_t needed = uint64_t{topLevel.fileSize} + DEBUG_INFO_HEADER + dataSize;
    if (dataSize > INT32_MAX - DEBUG_INFO_HEADER)
        throw ErrorAt().as(Error::Code::TOO_BIG)("camera debug info of %zu bytes is too large", dataSize);
    checked::sizeOf(needed);
    for (auto const& box : topLevel.boxes)
        needed -= box.debugInfo && box.position >= topLevel.endOfImage() ? box.size : 0;
    checked::requireSpace(file, static_cast<uint32_t>(needed));
}

} // namespace

// Order. --------------------------------------------------------------------------------------------------------------

void HEIFMetaWriter::closeLastBox(std::shared_ptr<MediaFile> const& file) {
    if (!isHEIC(*file))
        return;
    heif::TopLevel const topLevel = heif::scanWhole(*file);
    if (topLevel.boxes.empty() || !topLevel.boxes.back().toEnd)
        return;
    auto const& box = topLevel.boxes.back();
    checked::seek(*file, box.position);
    checked::write(*file, bigEndian(box.size));
}

bool HEIFMetaWriter::isTrailerHidden(MediaFile const& file) {
    return isHEIC(file) && hiddenTrailer(heif::scanWhole(file)) != nullptr;
}

/// A copy at the end comes first, so that the trailer is never out of the file.
bool HEIFMetaWriter::restoreTrailerOrder(std::shared_ptr<MediaFile> const& file) {
    if (!isHEIC(*file))
        return false;
    heif::TopLevel const topLevel = heif::scanWhole(*file);
    auto const* trailer = hiddenTrailer(topLevel);
    if (trailer == nullptr)
        return false;
    uint32_t const grown = checked::sizeOf(uint64_t{topLevel.fileSize} + trailer->size);
    if (trailer->size > INT32_MAX)
        throw ErrorAt().as(Error::Code::TOO_BIG)("trailer of %zu bytes is too large to be moved",
                                                 size_t{trailer->size});
    checked::requireSpace(*file, grown);
    closeLastBox(file);
    checked::seek(*file, topLevel.fileSize);
    checked::copy(file, file, trailer->position, trailer->size);
    VideoPointerKeeper keeper(file);
    checked::seek(*file, trailer->end());
    file->shiftLeftSafely(static_cast<int>(trailer->size), MOVE_BUFFER, true);
    keeper.moved(trailer->end(), -int64_t{trailer->size});
    return true;
}

// Camera debug info. --------------------------------------------------------------------------------------------------

void HEIFMetaWriter::writeCameraDebugInfo(std::vector<unsigned char> const& data) {
    if (data.empty())
        throw ErrorAt(474, SOURCE)("empty camera debug info");
    heif::TopLevel topLevel = heif::scanWhole(*file);
    debugInfosFromBehind(topLevel);
    if (topLevel.boxes.back().type != TRAILER_BOX && readsTrailer(*file))
        throw ErrorAt().as(Error::Code::UNSUPPORTED)(
            "the trailer stands in no box of its own, a debug info would hide it");
    requireSpaceFor(*file, topLevel, data.size());
    if (restoreTrailerOrder(file))
        topLevel = heif::scanWhole(*file);
    for (auto const& box : debugInfosFromBehind(topLevel)) {
        if (box.position < topLevel.endOfImage())
            blankOut(*file, box);
        else
            shiftOut(box);
    }
    if (auto const place = placeBeforeTrailer(*file, heif::scanWhole(*file)))
        insertFreeCdif(data, *place);
    else
        appendFreeCdif(data);
}

void HEIFMetaWriter::shiftOut(heif::TopLevelBox const& box) {
    VideoPointerKeeper keeper(file);
    checked::seek(*file, box.end(), ErrorAt(483, SOURCE));
    file->shiftLeftSafely(static_cast<int>(box.size), MOVE_BUFFER, true);
    keeper.moved(box.end(), -int64_t{box.size});
}

void HEIFMetaWriter::appendFreeCdif(std::vector<unsigned char> const& data) {
    LOGI("append free cdif: size=%zu", data.size());
    closeLastBox(file);
    uint32_t const end = file->size();
    checked::reserve(*file, checked::sizeOf(uint64_t{end} + DEBUG_INFO_HEADER + data.size()));
    try {
        if (file->position(end) != end)
            throw ErrorAt(532, SOURCE).as(Error::Code::READ_FAILED, *file)("failed to seek to end");
        checked::write(*file, debugInfoHeader(data.size()));
        checked::write(*file, data.data(), data.size());
    } catch (...) {
        file->truncate(end);
        throw;
    }
}

void HEIFMetaWriter::insertFreeCdif(std::vector<unsigned char> const& data, uint32_t position) {
    LOGI("insert free cdif: size=%zu, pos=%zu", data.size(), size_t{position});
    VideoPointerKeeper keeper(file);
    auto const distance = static_cast<int>(DEBUG_INFO_HEADER + data.size());
    checked::seek(*file, position);
    file->shiftRightSafely(distance, MOVE_BUFFER);
    checked::seek(*file, position);
    checked::write(*file, debugInfoHeader(data.size()));
    keeper.moved(position, distance);
    checked::seek(*file, position + DEBUG_INFO_HEADER);
    checked::write(*file, data.data(), data.size());
}

void HEIFMetaWriter::removeCameraDebugInfo() {
    LOGI("remove camera debug info");
    heif::TopLevel topLevel = heif::scanWhole(*file);
    if (debugInfosFromBehind(topLevel).empty()) {
        LOGI("no camera debug info to remove");
        return;
    }
    if (restoreTrailerOrder(file))
        topLevel = heif::scanWhole(*file);
    for (auto const& box : debugInfosFromBehind(topLevel)) {
        if (box.position < topLevel.endOfImage())
            blankOut(*file, box);
        else
            cutOut(box);
    }
}

void HEIFMetaWriter::cutOut(heif::TopLevelBox const& box) {
    uint32_t const end = file->size();
    if (box.end() == end) {
        checked::truncate(*file, box.position);
        LOGI("Camera debug info removed by truncation at end of file.");
        return;
    }
    VideoPointerKeeper keeper(file);
    auto const seekTo = [this](uint32_t position, int line) {
        if (file->position(position) != position)
            throw ErrorAt(line, SOURCE)
                .as(Error::Code::READ_FAILED, *file)("failed to seek to %d", static_cast<int>(position));
    };
    std::vector<uint8_t> tail(std::min(end - box.end(), MOVE_BUFFER));
    for (uint32_t from = box.end(); from < end;) {
        uint32_t const n = std::min<uint32_t>(end - from, static_cast<uint32_t>(tail.size()));
        seekTo(from, __LINE__);
        if (ssize_t const got = file->read(tail.data(), n); got != static_cast<ssize_t>(n))
            throw writerError().as(Error::Code::READ_FAILED, *file)("failed to read tailBuffer, readyBytes=%d",
                                                                    static_cast<int>(got));
        seekTo(from - box.size, __LINE__);
        checked::write(*file, tail.data(), n);
        from += n;
    }
    checked::truncate(*file, end - box.size);
    LOGI("Camera debug info removed by tail rewrite.");
    keeper.moved(box.end(), -int64_t{box.size});
}

} // namespace android::lumo
