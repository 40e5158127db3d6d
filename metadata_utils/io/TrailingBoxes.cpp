// SPDX-License-Identifier: Apache-2.0
#include "TrailingBoxes.h"

#include "CheckedFile.h"
#include "HEIFMetaReader.h"
#include "Log.h"
#include "MoveRest.h"
#include "TrailerLayout.h"
#include "boxes/ItemBoxes.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <limits>
#include <string>

namespace android::lumo::heif {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaWriter";
/// Only damage gives a file more than one; each costs a move of all that follows.
constexpr size_t MAX_DEBUG_INFOS = 16;
/// Likewise places with videos, other boxes between them.
constexpr size_t MAX_VIDEO_RUNS = 16;

/// Whether an item's bytes lie in [from, to); those of an item without a length lie where it begins.
bool reachesInto(FileRange item, uint32_t from, uint32_t to) {
    return item.position < to && (item.position >= from || item.length > from - item.position);
}

/// Throws when a location of the box names bytes of the file in [from, to).
void requireNoneIn(BoxView const& iloc, uint32_t from, uint32_t to) {
    boxes::LocationReader reader(iloc);
    while (auto location = reader.next()) {
        for (unsigned i = 0; location->method() == boxes::ItemLocation::IN_FILE && i < location->extentCount; ++i) {
            if (reachesInto(location->nextExtent(), from, to))
                throw ErrorAt().as(Error::Code::UNSUPPORTED)(
                    "item %u of the image has bytes behind %zu, where boxes would move", location->id, size_t{from});
        }
    }
}

} // namespace

TrailingBoxes::TrailingBoxes(std::shared_ptr<MediaFile> const& edited) : file(edited) {
    topLevel();
}

/// Scanned again only when asked: a change that is complete must not fail for a read that nobody needs.
TopLevel const& TrailingBoxes::topLevel() const {
    if (!known || knownChanges != file->changes()) {
        itemFree.reset();
        known = scanWhole(*file);
        knownChanges = file->changes();
    }
    return *known;
}

// What is there. ------------------------------------------------------------------------------------------------------

std::vector<TopLevelBox> TrailingBoxes::videos() const {
    std::vector<TopLevelBox> found;
    std::copy_if(topLevel().boxes.begin(), topLevel().boxes.end(), std::back_inserter(found),
                 [end = endOfImage()](auto const& box) { return box.type == VIDEO_BOX && box.position >= end; });
    return found;
}

/// Those that follow each other as one range: however many there are, what stands behind them moves once.
std::vector<FileRange> TrailingBoxes::videoRuns() const {
    std::vector<FileRange> runs;
    for (auto const& box : videos()) {
        if (!runs.empty() && runs.back().position + runs.back().length == box.position)
            runs.back().length += box.size;
        else
            runs.push_back({box.position, box.size});
    }
    if (runs.size() > MAX_VIDEO_RUNS)
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("videos in %zu places of one file", runs.size());
    return runs;
}

uint64_t TrailingBoxes::videosSize() const {
    uint64_t total = 0;
    for (auto const& box : videos())
        total += box.size;
    return total;
}

std::vector<TopLevelBox> TrailingBoxes::debugInfos() const {
    std::vector<TopLevelBox> found;
    std::copy_if(topLevel().boxes.rbegin(), topLevel().boxes.rend(), std::back_inserter(found),
                 [](auto const& box) { return box.debugInfo; });
    if (found.size() > MAX_DEBUG_INFOS)
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("%zu camera debug infos in one file", found.size());
    return found;
}

TopLevelBox const* TrailingBoxes::hiddenTrailer() const {
    auto const& boxes = topLevel().boxes;
    auto const last = std::find_if(boxes.rbegin(), boxes.rend(), [&, end = endOfImage()](auto const& box) {
        return box.type == TRAILER_BOX && box.position >= end && endsTrailer(box);
    });
    return last != boxes.rend() && last != boxes.rbegin() ? &*last : nullptr;
}

/// Whether a trailer's last four bytes end the box.
bool TrailingBoxes::endsTrailer(TopLevelBox const& box) const {
    std::string magic(trailer::MAGIC_SIZE, '\0');
    bool const isLargeEnough = box.size >= box.headerSize + magic.size();
    return isLargeEnough &&
           checked::readUpTo(*file, box.end() - magic.size(), magic.data(), magic.size()) == magic.size() &&
           magic == trailer::END_MAGIC;
}

bool TrailingBoxes::hasTrailer() const {
    try {
        return trailer::readTail(*file).has_value();
    } catch (std::exception const& exception) {
        rethrowUnlessDamage();
        LOGW("no trailer that reads: %s", exception.what());
        return false;
    }
}

/// In its box, or as a movie that was appended without one.
bool TrailingBoxes::hasVideoInFrontOf(uint32_t position) const {
    size_t movies = 0;
    for (auto const& box : topLevel().boxes)
        movies += box.position < position && (box.type == VIDEO_BOX || box.type == boxType("ftyp")) ? 1 : 0;
    return movies > 1; // the first is the image's own 'ftyp'
}

/// Whether XMP speaks of a video; of one that cannot be read, better so.
bool TrailingBoxes::isVideoCounted() const {
    auto const item = HEIFMetaReader(file, ParseMode::LAZY).getXMPItem();
    if (!item || !item->refusal.empty())
        return item.has_value();
    auto const bytes = checked::readAt(*file, item->position, item->length);
    std::string packet; // of two or four bytes a character as of one: the names are ASCII
    std::copy_if(bytes.data(), bytes.data() + bytes.size(), std::back_inserter(packet),
                 [](uint8_t byte) { return byte != 0; });
    return packet.find("MotionPhoto") != packet.npos || packet.find("MicroVideo") != packet.npos;
}

bool TrailingBoxes::mustStay(TopLevelBox const& box) const {
    return box.position < endOfImage() || (hasVideoInFrontOf(box.position) && isVideoCounted());
}

/// The box that a debug info comes in front of; none when the file's end is free.
TopLevelBox const* TrailingBoxes::firstMovable() const {
    auto const& boxes = topLevel().boxes;
    auto const first = std::find_if(boxes.begin(), boxes.end(), [end = endOfImage()](auto const& box) {
        return box.position >= end && (box.type == VIDEO_BOX || box.type == TRAILER_BOX);
    });
    bool const isMovable = first != boxes.end() && ((boxes.back().type == TRAILER_BOX && hasTrailer()) ||
                                                    (first->type == VIDEO_BOX && isVideoCounted()));
    return isMovable ? &*first : nullptr;
}

void TrailingBoxes::requireNoItemIn(uint32_t from, uint32_t to) const {
    ByteWindow window(*file);
    try {
        for (auto const& box : topLevel().boxes) {
            if (box.type != boxType("meta"))
                continue;
            visitMetaChildren(window, box, [&](BoxType type, uint32_t position, uint32_t size) {
                if (type == boxType("iloc"))
                    requireNoneIn(BoxCursor(window.at(position, size), position, box.type).box(), from, to);
            });
        }
    } catch (BoxError const& error) {
        throw ErrorAt().as(Error::Code::DAMAGED, *file)("nothing behind the image can move: %s", error.reason());
    }
}

/// A commit asks before it begins and again for each step.
void TrailingBoxes::requireNoItemBehind(uint32_t from) const {
    uint32_t const end = fileSize();
    if (itemFree && from >= *itemFree)
        return;
    requireNoItemIn(from, end);
    itemFree = from;
}

// Order. --------------------------------------------------------------------------------------------------------------

void TrailingBoxes::closeLast() {
    if (topLevel().boxes.empty() || !topLevel().boxes.back().toEnd)
        return;
    auto& box = known->boxes.back();
    checked::seek(*file, box.position);
    checked::write(*file, bigEndianBytes(box.size, sizeof box.size));
    box.toEnd = false;
    knownChanges = file->changes();
}

/// A copy at the end comes first, so that the trailer is never out of the file.
bool TrailingBoxes::bringTrailerToEnd() {
    auto const* hidden = hiddenTrailer();
    if (hidden == nullptr)
        return false;
    TopLevelBox const trailer = *hidden;
    uint32_t const oldSize = fileSize();
    requireNoItemBehind(trailer.position);
    if (trailer.size > std::numeric_limits<int>::max())
        throw ErrorAt().as(Error::Code::TOO_BIG)("trailer of %zu bytes is too large to be moved", size_t{trailer.size});
    checked::requireSpace(*file, checked::sizeOf(uint64_t{oldSize} + trailer.size));
    closeLast();
    uint64_t changes = file->changes();
    try {
        checked::seek(*file, oldSize);
        checked::copy(file, file, trailer.position, trailer.size);
        changes = file->changes();
        moveRest(file, trailer.end(), -int64_t{trailer.size});
    } catch (...) {
        if (file->changes() == changes || file->size() < oldSize + trailer.size)
            file->truncate(oldSize);
        throw;
    }
    known.reset();
    return true;
}

void TrailingBoxes::takeOut(TopLevelBox const& box) {
    takeRangeOut({box.position, box.size});
}

void TrailingBoxes::takeRangeOut(FileRange boxes) {
    requireNoItemBehind(static_cast<uint32_t>(boxes.position));
    moveRest(file, static_cast<uint32_t>(boxes.position + boxes.length), -static_cast<int64_t>(boxes.length));
    known.reset();
}

bool TrailingBoxes::takeVideosBehindOut() {
    auto const runs = videoRuns();
    std::for_each(runs.rbegin(), runs.rend(), [&](FileRange run) { takeRangeOut(run); });
    return !runs.empty();
}

void TrailingBoxes::blankOut(TopLevelBox const& box) {
    std::string const type = bigEndianBytes(boxType("free"), sizeof box.type);
    checked::seek(*file, box.position + static_cast<uint32_t>(type.size())); // the size stands in front
    checked::write(*file, type);
    checked::seek(*file, box.content());
    checked::fill(*file, 0, box.size - box.headerSize);
    known.reset();
}

bool TrailingBoxes::takeVideosOut() {
    auto const boxes = topLevel().boxes;
    uint32_t const end = endOfImage();
    bool isAny = takeVideosBehindOut();
    for (auto box = boxes.rbegin(); box != boxes.rend(); ++box) {
        if (box->type != VIDEO_BOX || box->position >= end)
            continue;
        blankOut(*box);
        isAny = true;
    }
    return isAny;
}

void TrailingBoxes::requireVideosCanGo(uint32_t from) const {
    uint32_t const end = endOfImage();
    for (auto const& box : topLevel().boxes) {
        if (box.type == VIDEO_BOX && box.position < end)
            requireNoItemIn(box.position, box.end());
    }
    requireVideosBehindCanGo(from);
}

void TrailingBoxes::requireVideosBehindCanGo(uint32_t from) const {
    auto const runs = videoRuns();
    requireNoItemBehind(runs.empty() ? from : std::min(from, static_cast<uint32_t>(runs.front().position)));
}

/// The room comes first, so that the boxes add up to the file at every step.
uint32_t TrailingBoxes::putVideo(uint32_t position, uint32_t size, std::function<void()> const& write) {
    requireNoItemBehind(position);
    closeLast();
    uint32_t const boxSize = checked::sizeOf(uint64_t{VIDEO_HEADER_SIZE} + size);
    uint32_t const end = checked::sizeOf(uint64_t{position} + boxSize);
    known.reset();
    if (position == file->size())
        checked::reserve(*file, end);
    else
        moveRest(file, position, boxSize);
    try {
        checked::seek(*file, position, ErrorAt(661, "metadata_utils/MotionPhotoEditImpl"));
        checked::write(*file, boxHeader(boxSize, VIDEO_BOX));
        write();
    } catch (...) {
        try {
            moveRest(file, end, -int64_t{boxSize});
        } catch (std::exception const& e) {
            LOGE("fail to take an unfinished video box out: %s", e.what());
        }
        throw;
    }
    return position + VIDEO_HEADER_SIZE;
}

// The debug info. -----------------------------------------------------------------------------------------------------

/// It fits the file's 32 bits and the disk, also if the old one goes first.
void TrailingBoxes::requireRoomForDebugInfo(size_t size) const {
    if (size > std::numeric_limits<int>::max() - DEBUG_INFO_HEADER_SIZE)
        throw ErrorAt().as(Error::Code::TOO_BIG)("camera debug info of %zu bytes is too large", size);
    if ((topLevel().boxes.empty() || topLevel().boxes.back().type != TRAILER_BOX) && hasTrailer())
        throw ErrorAt().as(Error::Code::UNSUPPORTED)(
            "the trailer stands in no box of its own, a debug info would hide it");
    uint64_t needed = uint64_t{fileSize()} + DEBUG_INFO_HEADER_SIZE + size;
    checked::sizeOf(needed);
    for (auto const& box : debugInfos())
        needed -= box.position >= endOfImage() ? box.size : 0;
    auto const* next = firstMovable();
    if (next != nullptr)
        requireNoItemBehind(next->position);
    if (hasVideoInFrontOf(next != nullptr ? next->position : fileSize()) && isVideoCounted())
        throw ErrorAt().as(Error::Code::UNSUPPORTED)(
            "nothing can be put behind a video that XMP counts from the file's end, nor in front of it");
    requireDebugInfosCanGo();
    checked::requireSpace(*file, static_cast<uint32_t>(needed));
}

void TrailingBoxes::requireDebugInfosCanGo() const {
    if (auto const* trailer = hiddenTrailer())
        requireNoItemBehind(trailer->position);
    for (auto const& box : debugInfos()) {
        if (box.position < endOfImage())
            requireNoItemIn(box.position, box.end());
        else
            requireNoItemBehind(box.position);
    }
}

void TrailingBoxes::putDebugInfo(std::span<uint8_t const> data, TopLevelBox const* old) {
    auto const* next = firstMovable();
    auto const size = static_cast<uint32_t>(DEBUG_INFO_HEADER_SIZE + data.size());
    bool const takesPlace = old != nullptr && next != nullptr && old->end() == next->position;
    if (old != nullptr && !takesPlace) {
        takeOut(*old);
        next = firstMovable();
    }
    if (next == nullptr)
        return appendDebugInfo(data);
    uint32_t const oldSize = takesPlace ? old->size : 0;
    uint32_t const position = next->position - oldSize;
    LOGI("append free cdif: size=%zu", data.size());
    LOGI("insert free cdif: size=%zu, pos=%zu", data.size(), size_t{position});
    moveRest(file, next->position, int64_t{size} - oldSize);
    writeDebugInfo(data, position);
    known.reset();
}

void TrailingBoxes::appendDebugInfo(std::span<uint8_t const> data) {
    LOGI("append free cdif: size=%zu", data.size());
    closeLast();
    uint32_t const end = fileSize();
    checked::reserve(*file, checked::sizeOf(uint64_t{end} + DEBUG_INFO_HEADER_SIZE + data.size()));
    try {
        if (file->position(end) != end)
            throw writerError(532).as(Error::Code::READ_FAILED, *file)("failed to seek to end");
        writeDebugInfo(data, end);
    } catch (...) {
        file->truncate(end);
        throw;
    }
    known.reset();
}

void TrailingBoxes::writeDebugInfo(std::span<uint8_t const> data, uint32_t position) {
    checked::seek(*file, position);
    checked::write(*file, boxHeader(DEBUG_INFO_HEADER_SIZE + data.size(), boxType("free")) +
                              bigEndianBytes(DEBUG_INFO_MARKER, sizeof DEBUG_INFO_MARKER));
    checked::write(*file, data.data(), data.size());
}

} // namespace android::lumo::heif
