// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "HEIFBoxScan.h"
#include "MediaFile.h"
#include "boxes/BoxBounds.h"
#include "boxes/ItemBoxes.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace android::lumo::heif {

/// Takes a metadata item out of a HEIC, as if it had never been there:
///
///     iinf   its 'infe'
///     iref   the references from it; the box with the last of them
///     iloc   its location; those of the others follow their bytes, in the fields they have
///     mdat   its bytes, or 'idat'; the box where it holds nothing else
///
/// All other bytes stay, those behind move up, and with them the trailer's pointer to a video.
class ItemRemoval {
public:
    /// For the XMP item whose bytes these are. Nothing where something else of the image is tied to it (a reference to
    /// it, a property, a group, a location that takes its bytes), or not all that counts bytes of the file is known
    /// here (tracks, a second 'meta', extents without a length, a box without a size): then it is to stay.
    static std::optional<ItemRemoval> ofXMP(std::shared_ptr<MediaFile> const& file, FileRange bytes);

    ItemRemoval(ItemRemoval&&) = default; // no copy: the boxes lie in the bytes that are held

    /// Changes the file. Nothing is rolled back: after a failed write bytes already moved stay moved.
    void carryOut() const;

private:
    /// A number that changes, in the boxes as they are.
    struct Field {
        uint64_t position;
        unsigned width;
        uint64_t value;
    };

    ItemRemoval(std::shared_ptr<MediaFile> const& edited, FileRange bytes) : file(edited), data(bytes) {}

    bool plan();
    bool readMeta();
    bool findItem();
    bool isTiedToOthers() const;
    bool planItemInfos();
    bool planReferences();
    bool planData();
    bool planLocations();
    bool planLocation(boxes::ItemLocation location, BoxCursor fieldsFromBase, unsigned baseWidth);
    void planSizes();

    BoxView const* child(BoxType type) const;
    bool isCut(FileRange range) const;
    uint64_t newPlace(uint64_t position) const;
    std::vector<uint8_t> newMeta() const;

    std::shared_ptr<MediaFile> file;
    FileRange data; ///< of the item
    uint32_t id = 0;
    uint32_t primary = 0;
    TopLevelBox media; ///< the 'mdat' around them; of size 0 where they stand in 'idat'
    std::vector<uint8_t> metaBytes;
    BoxView meta;
    std::vector<BoxView> children;
    std::vector<FileRange> cuts;
    std::vector<Field> fields;
};

} // namespace android::lumo::heif
