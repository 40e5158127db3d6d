// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "HEIFBoxScan.h"
#include "HEIFMetaReader.h"
#include "boxes/ItemBoxes.h"

#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace android::lumo::heif {

/// What the item boxes inside 'meta' say, as far as it takes to find an item that describes the primary one. Boxes are
/// read through cursors, so no child reads past its parent, and lists stay in proportion to the bytes they come from.
class Items {
public:
    using ItemLocation = HEIFMetaReader::ItemLocation;
    using ItemReference = HEIFMetaReader::ItemReference;

    /// SIMPLE takes the index of an extent for 4 bytes, and an item whose bytes stand in several pieces ends the
    /// search. ALL takes the index as wide as it is, and does not find such an item alone.
    enum class Locations { SIMPLE, ALL };

    /// Reads 'iinf', 'iloc', 'iref' and 'pitm' of a 'meta' box; throws on damage and keeps what was read in front of
    /// it.
    void parse(ByteWindow& window, TopLevelBox const& meta, Locations wanted = Locations::SIMPLE);
    /// False once an index was taken for 4 bytes that has another width.
    bool isIndexRead() const { return !isIndexMisread; }

    /// The first of the items, in the order of the references, that describes the primary item, before any other, and
    /// has its bytes in the file. Throws (UNSUPPORTED) for one that was passed over.
    std::optional<ItemLocation> findDescribing(std::vector<int> const& ids) const;
    /// The XMP of the primary item as an edit takes it: the first such 'mime' item, or else the first packet that
    /// describes the primary behind others. Whoever makes room for XMP takes that packet's item.
    std::optional<ItemLocation> findXMP() const;

    /// Whether the item is plain (neither encoded nor protected) application/rdf+xml.
    bool isPacket(ItemLocation const& location) const { return packetIds.contains(static_cast<int>(location.id)); }
    /// Why XMP must not be written over the item's bytes; empty when it may be: it is a packet and its
    /// bytes are nobody else's, inside a 'mdat' or 'idat'.
    std::string refusalToWrite(ItemLocation const& location, TopLevel const& topLevel) const;

    std::vector<int> mimeIds;
    std::vector<int> exifIds;
    std::optional<uint32_t> primaryId;
    std::vector<ItemReference> references;
    std::vector<ItemLocation> locations;
    /// The top level they stand in, once somebody has looked at all of it.
    std::optional<TopLevel> around;

private:
    void parseChild(ByteWindow& window, BoxType type, uint32_t position, uint32_t size);
    void parseIINFBox(BoxView const& iinf);
    void parseILOCBox(BoxView const& iloc);
    void passOver(boxes::LocationReader& reader, boxes::ItemLocation location);
    void parseIREFBox(BoxView const& iref);
    void parsePITMBox(BoxView const& pitm);
    void settleItemDataLocations();
    std::vector<int> describingFirst(std::vector<int> const& ids) const;
    std::optional<ItemLocation> firstInFile(std::vector<int> const& candidates) const;

    Locations wantedLocations = Locations::SIMPLE;
    bool isIndexMisread = false;
    uint32_t fileSize = 0;
    std::set<uint32_t> dividedIds;                         ///< items that were passed over
    std::vector<FileRange> pieces;                         ///< their bytes, of those in the file
    std::vector<std::pair<int, int>> furtherReferences;    ///< from an item to one that it does not describe first
    std::set<int> packetIds;                               ///< 'mime' items that are plain application/rdf+xml
    std::vector<ItemLocation> inItemData;                  ///< method 1: relative to 'idat', which may follow 'iloc'
    std::optional<std::pair<uint32_t, uint32_t>> itemData; ///< position and size of the content of 'idat'
};

/// Throws when XMP in an image held in memory would not be found at `offset`, with room for `size` bytes, or could not
/// be written there: no file is restructured for that. Returns the room there is.
uint32_t requireRoomIsFound(std::span<uint8_t const> image, uint32_t offset, uint32_t size);

} // namespace android::lumo::heif
