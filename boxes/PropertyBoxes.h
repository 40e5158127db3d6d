// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "BoxBounds.h"

/// Item properties ('iprp') and entity groups ('grpl') (ISO/IEC 23008-12, 9.3; ISO/IEC 14496-12, 8.18).

namespace android::lumo::boxes {

/// The first property of `type` that 'iprp' associates with the item.
std::optional<BoxView> findProperty(BoxView const& iprp, uint32_t itemId, BoxType type);

struct PixelSize {
    uint32_t width = 0;
    uint32_t height = 0;
};
PixelSize readImageSpatialExtents(BoxView const& ispe);

/// Quarter turns counter-clockwise, 0 to 3.
uint8_t readRotation(BoxView const& irot);

/// HEVC NAL unit types of parameter sets (ISO/IEC 23008-2, table 7-1).
enum NalType : uint8_t { NAL_VPS = 32, NAL_SPS = 33, NAL_PPS = 34 };

using NalVisitor = std::function<void(NalType, std::span<uint8_t const>)>;

/// Calls `visit` for each VPS, SPS and PPS of an 'hvcC', in stored order; other arrays (SEI) are passed over.
void forEachParameterSet(BoxView const& hvcC, NalVisitor const& visit);

struct GridFields {
    uint32_t rows = 0;
    uint32_t columns = 0;
    uint32_t width = 0; ///< of the picture, before rotation
    uint32_t height = 0;
};
/// The payload of a 'grid' item.
GridFields readGrid(std::span<uint8_t const> payload, uint64_t position);

/// Every item id that 'ipma' boxes name: an id used there must not be given to a new item.
void appendPropertyOwners(BoxView const& iprp, std::vector<uint32_t>& ids);

/// Group ids and entity ids: they share the items' number space.
void appendGroupIds(BoxView const& grpl, std::vector<uint32_t>& ids);

} // namespace android::lumo::boxes
