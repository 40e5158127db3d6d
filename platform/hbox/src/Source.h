// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "Stream.h"
#include "boxes/ItemBoxes.h"
#include "boxes/PropertyBoxes.h"
#include "hboxd.h"

namespace hbox {

using android::lumo::BoxCursor;
using android::lumo::BoxType;
using android::lumo::boxType;
using android::lumo::BoxView;
using android::lumo::FileRange;
using namespace android::lumo::boxes;

/// Throws HBOX_ERR_FORMAT with the box's place when `fault` is one.
void requireSoundHeader(android::lumo::BoxFault fault, android::lumo::BoxHeader const& header, uint64_t position);

/// Reads the header of the top-level box at `position` of a part of the file that ends at `end`.
android::lumo::BoxHeader readTopLevelHeader(Stream const& stream, uint64_t position, uint64_t end);

/// A HEIF file as the demuxer and the muxer see it: a stream and its first 'meta' box in memory, parsed when asked.
///
/// Damaged parts that a question does not touch do not matter to it. All questions throw Failure or BoxError.
class Source {
public:
    /// Reads the first 'meta' box. Throws HBOX_ERR_NOT_FOUND when the file has none.
    Source(HBOX_STREAM_CALLBACKS const& callbacks, void* descriptor);

    Stream const& stream() const { return file; }
    BoxView const& meta() const { return metaBox; }

    /// A cursor over the children of 'meta'.
    BoxCursor metaChildren() const;
    /// The first child of 'meta' of that type; children behind a damaged one are not found.
    std::optional<BoxView> findChild(BoxType type) const;
    BoxView child(BoxType type) const; ///< throws HBOX_ERR_NOT_FOUND

    uint32_t primaryId() const { return readPrimaryId(child(boxType("pitm"))); }
    ItemInfo item(uint32_t id) const;
    std::optional<ItemLocation> findLocation(uint32_t id) const;
    /// All entries of 'iinf', by id. Throws on damage, which item() does only where it matters to the item.
    std::vector<ItemInfo> const& allItems() const;
    /// The ids in 'iloc', ascending and each once. Throws on damage likewise.
    std::vector<uint32_t> locatedIds() const;
    /// An item's bytes in the file, one range per extent, compared with the bytes that exist. Valid until the next
    /// question of this kind: a rewrite asks twice for each of some thousand tiles.
    std::vector<FileRange> const& ranges(uint32_t id) const;
    /// The content of 'idat', from which method 1 counts. Throws HBOX_ERR_NOT_FOUND when there is none.
    FileRange itemData() const;
    /// Ids that `id` refers to by `type`, in stored order.
    std::vector<uint32_t> const& referencesFrom(uint32_t id, BoxType type) const;
    std::optional<BoxView> property(uint32_t id, BoxType type) const;

    HBOXD_IMAGE_INFO imageInfo(uint32_t id) const;
    HBOXM_GRID_INFO gridInfo(uint32_t id) const;
    /// The 'hvcC' of the item, or of a grid's first tile.
    BoxView decoderConfiguration(uint32_t id) const;

private:
    /// 'iloc' sorted by id, made when first asked: a grid asks once per tile.
    struct LocationIndex {
        struct Place {
            uint32_t id;
            uint32_t place; ///< LocationReader::place
            /// The bytes of an entry with one extent in this file, counted from its start, as nearly all are.
            std::optional<FileRange> simple;

            bool operator<(Place const& other) const { return std::pair(id, place) < std::pair(other.id, other.place); }
        };

        LocationReader reader;     ///< in front of the first entry
        std::vector<Place> places; ///< sorted
        size_t behindLast = 0;     ///< of `places`: who goes on in their order finds at once
        std::optional<android::lumo::BoxError> damage;
    };

    /// Entries of 'iinf' by id, likewise. What stood in front of damage answers.
    struct ItemIndex {
        std::vector<ItemInfo> items;
        std::optional<android::lumo::BoxError> damage;
    };

    PixelSize pixelSize(uint32_t id) const;
    ItemIndex const& itemIndex() const;
    LocationIndex& locationIndex() const;
    LocationIndex::Place const* findPlace(uint32_t id) const;
    ItemLocation locationAt(LocationIndex::Place const& place) const;

    Stream file;
    std::vector<uint8_t> metaBytes;
    BoxView metaBox;
    mutable std::optional<LocationIndex> locations;
    mutable std::optional<ItemIndex> items;
    mutable std::optional<FileRange> idat; ///< found once: every item may stand in it
    // The last answers: the demuxer's user asks for what the muxer then compares with the source.
    mutable std::vector<FileRange> lastRanges;
    mutable std::optional<uint32_t> lastRangesOf; ///< the item that they belong to
    mutable std::vector<uint32_t> lastReferences;
    mutable std::optional<std::pair<uint32_t, BoxType>> lastReferencesOf;
    mutable std::optional<HBOXD_IMAGE_INFO> lastImage;
    mutable std::optional<std::pair<uint32_t, HBOXM_GRID_INFO>> lastGrid; ///< with the item's id
};

} // namespace hbox

/// The demuxer's handle.
struct hboxd_context : hbox::Source {
    using hbox::Source::Source;
};
