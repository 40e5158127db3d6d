#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "hbox.h"
#include "metadata_utils/io/BoxBounds.h"

/// Item properties ('iprp') and entity groups ('grpl') (ISO/IEC 23008-12, 9.3; ISO/IEC 14496-12, 8.18).

namespace hbox {

using android::lumo::Box;
using android::lumo::BoxType;

/// The first property of `type` that 'iprp' associates with the item.
std::optional<Box> findProperty(Box const& iprp, uint32_t itemId, BoxType type);

struct PixelSize {
    uint32_t width = 0;
    uint32_t height = 0;
};
PixelSize readImageSpatialExtents(Box const& ispe);

HEIF_CCW_ROTATION readRotation(Box const& irot);

/// HEVC NAL unit types of parameter sets (ISO/IEC 23008-2, table 7-1).
enum NalType : uint8_t { NAL_VPS = 32, NAL_SPS = 33, NAL_PPS = 34 };

using NalVisitor = std::function<void(NalType, std::span<uint8_t const>)>;

/// Calls `visit` for each VPS, SPS and PPS of an 'hvcC', in stored order; other arrays (SEI) are passed over.
void forEachParameterSet(Box const& hvcC, NalVisitor const& visit);

/// The payload of a 'grid' item; its tile size is not stored there and stays 0.
HBOXM_GRID_INFO readGrid(std::span<uint8_t const> payload, uint64_t position);

/// Every item id that 'ipma' boxes name: an id used there must not be given to a new item.
void appendPropertyOwners(Box const& iprp, std::vector<uint32_t>& ids);

/// Group ids and entity ids: they share the items' number space.
void appendGroupIds(Box const& grpl, std::vector<uint32_t>& ids);

} // namespace hbox
