// SPDX-License-Identifier: Apache-2.0
#include "MuxPlan.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "Failure.h"
#include "MetaRewrite.h"
#include "boxes/BoxWriter.h"
#include "hboxm.h"

namespace hbox {

using android::lumo::BoxHeader;
using android::lumo::boxTypeText;
using android::lumo::rangeFits;

namespace {

/// The smallest packet that XMP parsers accept; blanks alone they do not.
constexpr std::string_view EMPTY_PACKET = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\""
                                          "http://www.w3.org/1999/02/22-rdf-syntax-ns#\"/></x:xmpmeta>";
static_assert(EMPTY_PACKET.size() <= HBOXM_MIN_XMP_SIZE);

class Planner {
public:
    Planner(Source const& from, uint64_t length) : source(from), imageLength(length), target(chooseXmpTarget(from)) {}

    MuxPlan plan(uint32_t xmpSize) {
        layOutTopLevel();
        layOutRoom(xmpSize);
        placeItems();
        blankOldPacket();
        return std::move(result);
    }

private:
    void layOutTopLevel();
    void layOutBox(BoxHeader const& header, uint64_t position);
    void layOutMeta();
    void layOutMetaChild(BoxView const& child);
    void layOutRoom(uint32_t xmpSize);
    void placeItems();
    void blankOldPacket();

    uint32_t movedTo(NewLocations::Entry const& entry) const;
    std::vector<uint8_t> roomPacket() const;
    bool sharesBytes(FileRange range) const;
    void notePayload(FileRange payload);

    Source const& source;
    uint64_t imageLength;
    XmpTarget target;
    MuxPlan result;
    BoxView iloc;
    size_t ilocPiece = 0;
    NewLocations locations;
    unsigned metaBoxes = 0;
    bool packetInPayload = false; ///< the old packet stands inside an 'mdat' or 'idat'
};

// --- the source's boxes ----------------------------------------------------------------------------------------------

void Planner::layOutTopLevel() {
    if (imageLength > source.stream().size())
        throw failure(HBOX_ERR_PARAMETER, "image length %llu, the file has %llu bytes",
                      static_cast<unsigned long long>(imageLength),
                      static_cast<unsigned long long>(source.stream().size()));
    for (uint64_t position = 0; position < imageLength;) {
        BoxHeader const header = readTopLevelHeader(source.stream(), position, imageLength);
        layOutBox(header, position);
        position += header.size;
    }
    if (metaBoxes != 1)
        throw failure(HBOX_ERR_UNSUPPORTED, "%u 'meta' boxes in the image part, 1 expected", metaBoxes);
}

void Planner::layOutBox(BoxHeader const& header, uint64_t position) {
    // Boxes with file offsets of their own, and appended data that the image part must not reach over.
    for (auto const type :
         {boxType("moov"), boxType("moof"), boxType("meco"), android::lumo::VIDEO_BOX, android::lumo::TRAILER_BOX}) {
        if (header.type == type)
            throw failure(HBOX_ERR_UNSUPPORTED, "box '%s' at %llu in the image part", boxTypeText(type).c_str(),
                          static_cast<unsigned long long>(position));
    }
    if (header.toEnd && imageLength != source.stream().size())
        throw failure(HBOX_ERR_FORMAT, "box '%s' at %llu runs to the end of the file, beyond the image part",
                      boxTypeText(header.type).c_str(), static_cast<unsigned long long>(position));
    if (header.type == boxType("meta")) {
        if (++metaBoxes == 1)
            layOutMeta();
        return;
    }
    FileRange const payload{position + header.headerSize, header.size - header.headerSize};
    if (header.type == boxType("mdat"))
        notePayload(payload);
    if (!header.toEnd)
        return result.layout.copy({position, header.size});
    BoxWriter explicitSize;
    explicitSize.number(header.size, 4); // fits: the whole file has a 32-bit size
    explicitSize.number(header.type, 4);
    result.layout.add(explicitSize.finish());
    result.layout.copy(payload);
}

void Planner::notePayload(FileRange payload) {
    if (target.stored && target.stored->position >= payload.position &&
        rangeFits(target.stored->position - payload.position, target.stored->length, payload.length))
        packetInPayload = true;
}

// --- 'meta' ----------------------------------------------------------------------------------------------------------

void Planner::layOutMeta() {
    BoxView const& meta = source.meta();
    uint64_t const start = result.layout.size();
    size_t const headerPiece = result.layout.add(std::vector<uint8_t>(8));
    BoxCursor children = source.metaChildren();
    uint64_t const childrenAt = children.offset();
    result.layout.copyStructure(
        {meta.position + meta.header.headerSize, childrenAt - meta.position - meta.header.headerSize});
    unsigned counts[3] = {};
    while (children.left() > 0) {
        BoxView const child = children.box();
        if (child.header.toEnd)
            throw failure(HBOX_ERR_FORMAT, "box '%s' in 'meta' has no size", boxTypeText(child.type()).c_str());
        counts[0] += child.type() == boxType("iinf");
        counts[1] += child.type() == boxType("iloc");
        counts[2] += child.type() == boxType("iref");
        layOutMetaChild(child);
    }
    if (counts[0] != 1 || counts[1] != 1 || counts[2] > 1)
        throw failure(HBOX_ERR_FORMAT, "'meta' has %u 'iinf', %u 'iloc', %u 'iref' boxes", counts[0], counts[1],
                      counts[2]);
    if (counts[2] == 0)
        result.layout.add(rewriteReferences(std::nullopt, target));
    BoxWriter header;
    header.number(result.layout.size() - start, 4);
    header.number(boxType("meta"), 4);
    result.layout.replace(headerPiece, header.finish());
}

void Planner::layOutMetaChild(BoxView const& child) {
    if (child.type() == boxType("iinf") && !target.exists) {
        result.layout.add(rewriteItemInfos(child, target));
    } else if (child.type() == boxType("iref")) {
        result.layout.add(rewriteReferences(child, target));
    } else if (child.type() == boxType("iloc")) {
        iloc = child;
        locations = rewriteLocations(iloc, target);
        ilocPiece = result.layout.add(locations.box);
    } else {
        if (child.type() == boxType("idat"))
            notePayload({child.payload().offset(), child.payload().left()});
        result.layout.copyStructure({child.position, child.bytes.size()});
    }
}

// --- the room --------------------------------------------------------------------------------------------------------

/// What the room begins with: the packet the image has, so that making room loses no metadata, else an empty one.
std::vector<uint8_t> Planner::roomPacket() const {
    std::vector<uint8_t> packet;
    if (target.stored)
        packet = source.stream().read(target.stored->position, target.stored->length);
    while (!packet.empty() &&
           std::string_view(" \t\r\n\0", 5).find(static_cast<char>(packet.back())) != std::string_view::npos)
        packet.pop_back();
    if (packet.empty())
        packet.assign(EMPTY_PACKET.begin(), EMPTY_PACKET.end());
    return packet;
}

/// An 'mdat' of 8 bytes of header and the room.
void Planner::layOutRoom(uint32_t xmpSize) {
    std::vector<uint8_t> packet = roomPacket();
    uint64_t const packetSize = packet.size();
    uint64_t const roomSize = std::max<uint64_t>(xmpSize, packetSize);
    if (result.layout.size() + 8 + roomSize > UINT32_MAX)
        throw failure(HBOX_ERR_UNSUPPORTED, "the image part would grow beyond 32-bit offsets");
    BoxWriter header;
    header.number(8 + roomSize, 4);
    header.number(boxType("mdat"), 4);
    result.layout.add(header.finish());
    result.room = {result.layout.size(), roomSize};
    result.layout.add(std::move(packet));
    result.layout.addBlanks(roomSize - packetSize);
}

// --- offsets ---------------------------------------------------------------------------------------------------------

void Planner::placeItems() {
    for (auto const& entry : locations.entries)
        locations.putOffset(entry.at, movedTo(entry));
    locations.putRoom(result.room);
    result.layout.replace(ilocPiece, std::move(locations.box));
}

/// Where the item's range stands in the output. Throws when it was not carried over.
uint32_t Planner::movedTo(NewLocations::Entry const& entry) const {
    auto const id = static_cast<unsigned>(entry.id);
    FileRange const range = entry.source;
    if (entry.method == ItemLocation::IN_ITEM_DATA) {
        if (!rangeFits(range.position, range.length, source.itemData().length))
            throw failure(HBOX_ERR_FORMAT, "item %u: bytes outside 'idat'", id);
        return static_cast<uint32_t>(range.position);
    }
    if (range.length == 0) // the standard's "to the end of the file", which the room changes
        throw failure(HBOX_ERR_UNSUPPORTED, "item %u: extent without a length", id);
    auto const position = result.layout.moved(range);
    if (!position)
        throw failure(HBOX_ERR_FORMAT,
                      "item %u: %llu bytes at %llu lie outside the image part or in a box that changes", id,
                      static_cast<unsigned long long>(range.length), static_cast<unsigned long long>(range.position));
    return static_cast<uint32_t>(*position);
}

// --- the old packet --------------------------------------------------------------------------------------------------

/// Whether another item uses bytes of the range.
bool Planner::sharesBytes(FileRange range) const {
    auto const idat = source.findChild(boxType("idat"));
    LocationReader reader(iloc);
    while (auto location = reader.next()) {
        if (location->id == target.id || location->extentCount == 0)
            continue;
        FileRange const extent = location->nextExtent();
        uint64_t const start =
            extent.position + (location->method() == ItemLocation::IN_ITEM_DATA && idat ? idat->payload().offset() : 0);
        bool const reaches = extent.length == 0 || range.position < start + extent.length; // 0: to the end of 'idat'
        if (start < range.position + range.length && reaches)
            return true;
    }
    return false;
}

/// Two packets in one file would leave old metadata to whoever searches the bytes for it.
void Planner::blankOldPacket() {
    if (!packetInPayload || sharesBytes(*target.stored))
        return;
    if (auto const position = result.layout.moved(*target.stored))
        result.layout.blank({*position, target.stored->length});
}

} // namespace

MuxPlan planOutput(Source const& source, uint64_t imageLength, uint32_t xmpSize) {
    return Planner(source, imageLength).plan(xmpSize);
}

} // namespace hbox
