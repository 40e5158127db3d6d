// SPDX-License-Identifier: Apache-2.0
#include "PropertyBoxes.h"

namespace android::lumo::boxes {

namespace {

struct Association {
    uint32_t itemId;
    BoxCursor indices;
    uint8_t indexWidth;
};

/// Calls `visit` for each entry of an 'ipma'; a true answer ends the walk and is passed on.
///
/// An entry: unsigned int(16 or 32) item_ID; unsigned int(8) association_count; then per association
/// bit(1) essential; unsigned int(7 or 15) property_index; // 1-based place in 'ipco'
template<class Visit>
bool forEachAssociation(BoxView const& ipma, Visit&& visit) {
    BoxCursor cursor = ipma.payload();
    auto const [version, flags] = readFullBoxHeader(cursor);
    unsigned const idWidth = version == 0 ? 2 : 4;
    uint8_t const indexWidth = (flags & 1) != 0 ? 2 : 1;
    uint32_t const count = cursor.u32(); // unsigned int(32) entry_count;
    cursor.requireEntries(count, idWidth + 1);
    for (uint32_t i = 0; i < count; ++i) {
        Association entry{static_cast<uint32_t>(cursor.number(idWidth)), {}, indexWidth};
        uint8_t const associations = cursor.u8();
        entry.indices = cursor.range(static_cast<uint64_t>(associations) * indexWidth);
        if (visit(entry))
            return true;
    }
    return false;
}

/// The properties an 'ipma' can name, in order: index i names the i-1st. An index has 15 bits, which bounds the list.
std::vector<BoxView> listProperties(BoxView const& ipco) {
    std::vector<BoxView> properties;
    BoxCursor cursor = ipco.payload();
    while (cursor.left() > 0 && properties.size() < 0x7FFF)
        properties.push_back(cursor.box());
    return properties;
}

} // namespace

std::optional<BoxView> findProperty(BoxView const& iprp, uint32_t itemId, BoxType type) {
    std::vector<BoxView> properties;
    std::optional<BoxView> found;
    BoxCursor children = iprp.payload();
    while (children.left() > 0 && !found) {
        BoxView const child = children.box(); // 'ipco' stands first, then one or more 'ipma'
        if (child.type() == boxType("ipco") && properties.empty())
            properties = listProperties(child);
        if (child.type() != boxType("ipma"))
            continue;
        forEachAssociation(child, [&](Association& entry) {
            unsigned const mask = entry.indexWidth == 2 ? 0x7FFFU : 0x7FU;
            while (entry.itemId == itemId && entry.indices.left() > 0 && !found) {
                unsigned const index = static_cast<unsigned>(entry.indices.number(entry.indexWidth)) & mask;
                if (index > 0 && index <= properties.size() && properties[index - 1].type() == type)
                    found = properties[index - 1];
            }
            return entry.itemId == itemId;
        });
    }
    return found;
}

PixelSize readImageSpatialExtents(BoxView const& ispe) {
    BoxCursor cursor = ispe.payload();
    readFullBoxHeader(cursor);
    uint32_t const width = cursor.u32();  // unsigned int(32) image_width;
    uint32_t const height = cursor.u32(); // unsigned int(32) image_height;
    return {width, height};
}

uint8_t readRotation(BoxView const& irot) {
    // unsigned int(6) reserved; unsigned int(2) angle;
    return irot.payload().u8() & 3;
}

void forEachParameterSet(BoxView const& hvcC, NalVisitor const& visit) {
    BoxCursor cursor = hvcC.payload();
    cursor.skip(22);                     // configurationVersion to lengthSizeMinusOne (ISO/IEC 14496-15, 8.3.3.1)
    unsigned const arrays = cursor.u8(); // unsigned int(8) numOfArrays;
    for (unsigned i = 0; i < arrays; ++i) {
        uint8_t const type =
            cursor.u8() & 0x3F; // bit(1) array_completeness; bit(1) reserved; unsigned int(6) NAL_unit_type;
        unsigned const units = cursor.u16(); // unsigned int(16) numNalus;
        for (unsigned j = 0; j < units; ++j) {
            auto const unit =
                cursor.take(cursor.u16()); // unsigned int(16) nalUnitLength; bit(8*nalUnitLength) nalUnit;
            if (type == NAL_VPS || type == NAL_SPS || type == NAL_PPS)
                visit(static_cast<NalType>(type), unit);
        }
    }
}

GridFields readGrid(std::span<uint8_t const> payload, uint64_t position) {
    BoxCursor cursor(payload, position, boxType("grid"));
    if (uint8_t const version = cursor.u8(); version != 0) // unsigned int(8) version = 0;
        throw BoxError(__LINE__, "grid: version " + std::to_string(version), BoxError::Kind::Unsupported);
    unsigned const width = (cursor.u8() & 1) != 0 ? 4 : 2; // unsigned int(8) flags; // 1: 32-bit sizes
    GridFields grid;
    grid.rows = cursor.u8() + 1U;                              // unsigned int(8) rows_minus_one;
    grid.columns = cursor.u8() + 1U;                           // unsigned int(8) columns_minus_one;
    grid.width = static_cast<uint32_t>(cursor.number(width));  // unsigned int(16 or 32) output_width;
    grid.height = static_cast<uint32_t>(cursor.number(width)); // unsigned int(16 or 32) output_height;
    return grid;
}

void appendPropertyOwners(BoxView const& iprp, std::vector<uint32_t>& ids) {
    BoxCursor children = iprp.payload();
    while (children.left() > 0) {
        BoxView const child = children.box();
        if (child.type() != boxType("ipma"))
            continue;
        forEachAssociation(child, [&](Association const& entry) {
            ids.push_back(entry.itemId);
            return false;
        });
    }
}

void appendGroupIds(BoxView const& grpl, std::vector<uint32_t>& ids) {
    BoxCursor groups = grpl.payload();
    while (groups.left() > 0) {
        BoxCursor group = groups.box().payload();
        readFullBoxHeader(group);
        ids.push_back(group.u32());         // unsigned int(32) group_id;
        uint32_t const count = group.u32(); // unsigned int(32) num_entities_in_group;
        group.requireEntries(count, 4);
        for (uint32_t i = 0; i < count; ++i)
            ids.push_back(group.u32()); // unsigned int(32) entity_id;
    }
}

} // namespace android::lumo::boxes
