// SPDX-License-Identifier: Apache-2.0
#include "HEIFBoxScan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace android::lumo::heif {

namespace {

constexpr uint32_t WINDOW = 4096;
constexpr uint32_t MAX_HEADER = 16;
constexpr uint32_t FULL_BOX_FIELDS = 4; ///< version and flags
/// A still has ten boxes at its top level, an image sequence some thousands.
constexpr size_t MAX_BOXES = 65536;
/// 64-bit header and the marker of a debug info.
constexpr uint32_t LOOK_AHEAD = MAX_HEADER + 4;
constexpr std::array IMAGE_BOXES = {boxType("ftyp"), boxType("styp"), boxType("meta"), boxType("mdat"),
                                    boxType("moov"), boxType("moof"), boxType("meco")};
constexpr std::array TRAILING_BOXES = {VIDEO_BOX, TRAILER_BOX};

bool isImage(TopLevelBox const& box) {
    return std::find(IMAGE_BOXES.begin(), IMAGE_BOXES.end(), box.type) != IMAGE_BOXES.end();
}

bool isTrailing(TopLevelBox const& box) {
    return box.debugInfo || std::find(TRAILING_BOXES.begin(), TRAILING_BOXES.end(), box.type) != TRAILING_BOXES.end();
}

bool beginsWithMarker(std::span<uint8_t const> start, BoxHeader const& header) {
    size_t const end = header.headerSize + sizeof DEBUG_INFO_MARKER;
    return header.size >= end && start.size() >= end &&
           BoxCursor(start.subspan(header.headerSize), 0, header.type).u32() == DEBUG_INFO_MARKER;
}

Error faultOf(BoxFault fault, BoxHeader const& header, size_t left) {
    if (fault == BoxFault::Truncated)
        return readerError().as(Error::Code::DAMAGED)("fail to get file payload[%d]: %s", static_cast<int>(left),
                                                      "box header cut off");
    return readerError().as(Error::Code::DAMAGED)("invalid chunk payload: %lu",
                                                  static_cast<unsigned long>(header.size));
}

TopLevelBox boxOf(BoxHeader const& header, uint32_t position, uint32_t left) {
    TopLevelBox box;
    box.type = header.type;
    box.position = position;
    box.size = static_cast<uint32_t>(std::min<uint64_t>(header.size, left));
    box.statedSize = static_cast<uint32_t>(std::min<uint64_t>(header.size, UINT32_MAX - position));
    box.headerSize = header.headerSize;
    box.toEnd = header.toEnd;
    return box;
}

} // namespace

ErrorAt readerError(int line) {
    return ErrorAt(line, "metadata_utils/io/HEIFMetaReader");
}

ErrorAt writerError(int line) {
    return ErrorAt(line, "metadata_utils/io/HEIFMetaWriter");
}

ByteWindow::ByteWindow(MediaFile const& source) : file(&source), total(source.size()) {}

ByteWindow::ByteWindow(std::span<uint8_t const> bytes)
    : held(bytes), total(static_cast<uint32_t>(std::min<size_t>(bytes.size(), UINT32_MAX))) {}

std::span<uint8_t const> ByteWindow::at(uint32_t position, uint32_t n) {
    bool const isTooLarge = n > MAX_REQUEST;
    if (isTooLarge || !rangeFits(position, n, total))
        throw readerError().as(isTooLarge ? Error::Code::TOO_BIG : Error::Code::DAMAGED)(
            "fail to get file payload[%d]: %s", static_cast<int>(std::min<uint32_t>(n, INT32_MAX)),
            isTooLarge ? "box too large" : "behind the end of the file");
    if (!holds(position, n))
        refill(position, n);
    return held.subspan(position - heldAt, n);
}

bool ByteWindow::holds(uint32_t position, uint32_t n) const {
    return position >= heldAt && rangeFits(position - heldAt, n, held.size());
}

std::span<uint8_t const> ByteWindow::upTo(uint32_t position, uint32_t n) {
    return at(position, std::min(n, total - std::min(position, total)));
}

void ByteWindow::refill(uint32_t position, uint32_t n) {
    held = {};
    size_t const wanted = std::min(std::max(n, WINDOW), total - position);
    if (wanted > capacity) {
        buffer.reset(new uint8_t[wanted]);
        capacity = wanted;
    }
    size_t count = 0;
    while (count < n) {
        ssize_t const got =
            pread64(file->getFd(), buffer.get() + count, wanted - count, static_cast<off64_t>(position + count));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            throw readerError().as(got < 0 ? Error::Code::READ_FAILED : Error::Code::DAMAGED,
                                   *file)("fail to get file payload[%d]: %s", static_cast<int>(got),
                                          got < 0 ? std::strerror(errno) : "end of file");
        count += static_cast<size_t>(got);
    }
    held = {buffer.get(), count};
    heldAt = position;
}

uint32_t TopLevel::endOfImage() const {
    auto const lastImage = std::find_if(boxes.rbegin(), boxes.rend(), isImage).base();
    auto const trailing = std::find_if(lastImage, boxes.end(), isTrailing);
    return trailing == boxes.end() ? fileSize : trailing->position;
}

TopLevelBox const* TopLevel::find(BoxType type) const {
    auto const box = std::find_if(boxes.begin(), boxes.end(), [&](auto const& each) { return each.type == type; });
    return box == boxes.end() ? nullptr : &*box;
}

TopLevel scanTopLevel(ByteWindow& window, BoxType until) {
    TopLevel found;
    found.fileSize = window.size();
    for (uint32_t position = 0; position < window.size();) {
        auto const start = window.upTo(position, LOOK_AHEAD);
        BoxHeader header;
        BoxFault const fault = decodeBoxHeader(start, window.size() - position, header);
        if (fault != BoxFault::None)
            found.damage = faultOf(fault, header, start.size());
        else if (found.boxes.size() == MAX_BOXES)
            found.damage = readerError().as(Error::Code::TOO_BIG)("more than %zu boxes at the top level", MAX_BOXES);
        if (found.damage && fault != BoxFault::BeyondEnd)
            break;
        found.boxes.push_back(boxOf(header, position, window.size() - position));
        found.boxes.back().debugInfo = header.type == boxType("free") && beginsWithMarker(start, header);
        if (until != 0 && header.type == until)
            break;
        position += found.boxes.back().size;
    }
    return found;
}

void visitMetaChildren(ByteWindow& window, TopLevelBox const& meta,
                       std::function<void(BoxType, uint32_t, uint32_t)> const& visit) {
    uint32_t position = meta.content() + std::min(FULL_BOX_FIELDS, meta.size - meta.headerSize);
    while (position < meta.end() && meta.end() - position >= BOX_HEADER_SIZE) {
        BoxCursor header(window.at(position, BOX_HEADER_SIZE), position, meta.type);
        uint32_t const size = header.u32();
        BoxType const type = header.u32();
        if (size < BOX_HEADER_SIZE)
            return;
        if (size > meta.end() - position)
            throw readerError().as(Error::Code::DAMAGED)("invalid chunk payload: %lu",
                                                         static_cast<unsigned long>(size));
        visit(type, position, size);
        position += size;
    }
}

TopLevel scanWhole(ByteWindow& window) {
    TopLevel topLevel = scanTopLevel(window);
    if (topLevel.damage)
        throw *topLevel.damage;
    return topLevel;
}

TopLevel scanWhole(MediaFile const& file) {
    ByteWindow window(file);
    return scanWhole(window);
}

} // namespace android::lumo::heif
