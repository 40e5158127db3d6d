// SPDX-License-Identifier: Apache-2.0
#include "hboxm.h"

#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "Failure.h"
#include "MuxPlan.h"
#include "Source.h"

// The C interface of the muxer: compares what it is given with the source and keeps the order of calls. The output
// itself is hbox::MuxPlan.

struct hboxm_context {
    hbox::Source const& source;
    uint32_t imageLength;
    std::optional<uint32_t> cover;
    std::optional<hbox::MuxPlan> plan; ///< made when the cover's info is set
    std::vector<uint32_t> awaited;     ///< frames of the cover that were not put yet; sorted from the last one down
    bool stopped = false;
};

namespace hbox {

namespace {

void requireSame(bool same, uint32_t id, char const* what) {
    if (!same)
        throw failure(HBOX_ERR_MISMATCH, "item %u: the %s differs from the source's", static_cast<unsigned>(id), what);
}

void requireSameGrid(HBOXM_GRID_INFO const& given, HBOXM_GRID_INFO const& stored, uint32_t id) {
    requireSame(given.rows == stored.rows && given.columns == stored.columns && given.width == stored.width &&
                    given.height == stored.height && given.tile_width == stored.tile_width &&
                    given.tile_height == stored.tile_height,
                id, "grid");
}

/// Parameter sets of one type, given and stored, compared one by one.
class ParameterSets {
public:
    ParameterSets(uint8_t* const* units, uint32_t const* unitSizes, uint32_t unitCount, uint32_t maximum)
        : data(units), sizes(unitSizes), count(unitCount) {
        if (count > maximum)
            throw failure(HBOX_ERR_PARAMETER, "%u parameter sets, at most %u", static_cast<unsigned>(count),
                          static_cast<unsigned>(maximum));
    }

    bool matchesNext(std::span<uint8_t const> stored) {
        if (next == count || !data[next] || sizes[next] != stored.size())
            return false;
        bool const same = std::equal(stored.begin(), stored.end(), data[next]);
        ++next;
        return same;
    }
    bool allMatched() const { return next == count; }

private:
    uint8_t* const* data;
    uint32_t const* sizes;
    uint32_t count;
    uint32_t next = 0;
};

void requireSameParameterSets(HBOXM_INFO_HEVC const& given, BoxView const& hvcC, uint32_t id) {
    std::array sets{ParameterSets(given.vps, given.vps_size, given.vps_count, HBOXM_MAX_VPS),
                    ParameterSets(given.sps, given.sps_size, given.sps_count, HBOXM_MAX_SPS),
                    ParameterSets(given.pps, given.pps_size, given.pps_count, HBOXM_MAX_PPS)};
    forEachParameterSet(hvcC, [&](NalType type, std::span<uint8_t const> stored) {
        requireSame(sets[static_cast<size_t>(type - NAL_VPS)].matchesNext(stored), id, "HEVC parameter set");
    });
    for (auto const& set : sets)
        requireSame(set.allMatched(), id, "number of HEVC parameter sets");
}

void requireSameImage(Source const& source, HBOXM_IMAGE_INFO const& given) {
    auto const stored = source.imageInfo(given.id);
    requireSame(given.width == stored.width && given.height == stored.height, given.id, "size");
    requireSame(given.rotation == stored.rotation, given.id, "rotation");
    requireSameGrid(given.grid, stored.is_grid ? source.gridInfo(given.id) : HBOXM_GRID_INFO{}, given.id);
    requireArguments(given.hevc);
    requireSameParameterSets(*given.hevc, source.decoderConfiguration(given.id), given.id);
    if (given.tile_count > 0)
        requireArguments(given.tile_ids);
    auto const& tiles = source.referencesFrom(given.id, boxType("dimg"));
    bool const sameTiles = std::equal(given.tile_ids, given.tile_ids + given.tile_count, tiles.begin(), tiles.end());
    requireSame(sameTiles, given.id, "list of tiles");
}

void setCoverInfo(hboxm_context& muxer, HBOXM_IMAGE_INFO const& info) {
    auto const stored = muxer.source.imageInfo(info.id);
    if (!stored.is_grid)
        throw failure(HBOX_ERR_UNSUPPORTED, "item %u is no grid", static_cast<unsigned>(info.id));
    if (uint64_t const cells = static_cast<uint64_t>(info.grid.rows) * info.grid.columns; cells != info.tile_count)
        throw failure(HBOX_ERR_FORMAT, "grid %u: %u tiles for %llu cells", static_cast<unsigned>(info.id),
                      static_cast<unsigned>(info.tile_count), static_cast<unsigned long long>(cells));
    if (info.xmp_size < HBOXM_MIN_XMP_SIZE)
        throw failure(HBOX_ERR_PARAMETER, "XMP room of %u bytes, at least %d", static_cast<unsigned>(info.xmp_size),
                      static_cast<int>(HBOXM_MIN_XMP_SIZE));
    muxer.plan = planOutput(muxer.source, muxer.imageLength, info.xmp_size);
    muxer.awaited = {info.tile_ids, info.tile_ids + info.tile_count};
    std::reverse(muxer.awaited.begin(), muxer.awaited.end()); // writers number their tiles in order
    if (!std::is_sorted(muxer.awaited.begin(), muxer.awaited.end(), std::greater<>()))
        std::sort(muxer.awaited.begin(), muxer.awaited.end(), std::greater<>());
    muxer.awaited.erase(std::unique(muxer.awaited.begin(), muxer.awaited.end()), muxer.awaited.end());
}

/// Who puts frames in the order of their ids takes them off the end.
void noteFrame(hboxm_context& muxer, uint32_t id) {
    if (!muxer.awaited.empty() && muxer.awaited.back() == id)
        return muxer.awaited.pop_back();
    auto const isBehind = [](uint32_t wanted, uint32_t other) { return wanted > other; };
    auto const place = std::lower_bound(muxer.awaited.begin(), muxer.awaited.end(), id, isBehind);
    if (place != muxer.awaited.end() && *place == id)
        muxer.awaited.erase(place);
}

void requireSameBytes(Source const& source, uint32_t id, std::span<uint8_t const> given) {
    std::array<uint8_t, 16384> stored;
    auto const& ranges = source.ranges(id);
    for (FileRange range : ranges) {
        while (range.length > 0) {
            auto const part =
                std::span(stored).first(static_cast<size_t>(std::min<uint64_t>(range.length, stored.size())));
            source.stream().read(range.position, part);
            requireSame(given.size() >= part.size() && std::equal(part.begin(), part.end(), given.begin()), id,
                        "frame");
            given = given.subspan(part.size());
            range = {range.position + part.size(), range.length - part.size()};
        }
    }
    requireSame(given.empty(), id, "frame length");
}

void requireState(bool right, char const* text) {
    if (!right)
        throw failure(HBOX_ERR_STATE, "%s", text);
}

MuxPlan const& finished(HBOXM_HANDLE handle) {
    requireArguments(handle);
    requireState(handle->stopped, "muxing was not stopped");
    return *handle->plan;
}

void dump(HBOXM_HANDLE handle, void* buffer, uint32_t capacity, uint32_t* size, OutputLayout::Parts parts) {
    auto const& layout = finished(handle).layout;
    requireArguments(buffer, size);
    *size = static_cast<uint32_t>(layout.size()); // the plan keeps it within 32 bits
    if (capacity < layout.size())
        throw failure(HBOX_ERR_BUFFER, "buffer of %u bytes, %u needed", static_cast<unsigned>(capacity),
                      static_cast<unsigned>(*size));
    layout.write(handle->source.stream(), {static_cast<uint8_t*>(buffer), static_cast<size_t>(layout.size())}, parts);
}

} // namespace

} // namespace hbox

using hbox::failure;
using hbox::guarded;
using hbox::requireArguments;
using hbox::requireState;

extern "C" HBOXM_HANDLE hboxm_create(HBOXM_CONFIG const* config, int32_t* error) {
    HBOXM_HANDLE handle = nullptr;
    int32_t const result = guarded([&] {
        requireArguments(config);
        requireArguments(config->source, config->brands);
        if (config->brand_count == 0)
            throw failure(HBOX_ERR_PARAMETER, "no brand");
        handle = new hboxm_context{*config->source, config->image_length, {}, {}, {}};
    });
    if (error)
        *error = result;
    return handle;
}

extern "C" int32_t hboxm_delete(HBOXM_HANDLE handle) {
    return guarded([&] {
        requireArguments(handle);
        delete handle;
    });
}

extern "C" int32_t hboxm_set_cover_image(HBOXM_HANDLE handle, uint32_t id) {
    return guarded([&] {
        requireArguments(handle);
        requireState(!handle->plan, "the cover's info is set already");
        hbox::requireSame(id == handle->source.primaryId(), id, "cover");
        handle->cover = id;
    });
}

extern "C" int32_t hboxm_set_image_info(HBOXM_HANDLE handle, HBOXM_IMAGE_INFO const* info) {
    return guarded([&] {
        requireArguments(handle, info);
        requireState(handle->cover.has_value() && !handle->stopped, "no cover set, or muxing was stopped");
        hbox::requireSameImage(handle->source, *info);
        if (info->id == *handle->cover)
            hbox::setCoverInfo(*handle, *info);
    });
}

extern "C" int32_t hboxm_put_frm(HBOXM_HANDLE handle, uint32_t id, void const* data, uint32_t size) {
    return guarded([&] {
        requireArguments(handle, data);
        requireState(handle->plan && !handle->stopped, "no cover info set, or muxing was stopped");
        hbox::requireSameBytes(handle->source, id, {static_cast<uint8_t const*>(data), size});
        hbox::noteFrame(*handle, id);
    });
}

extern "C" int32_t hboxm_put_source_frm(HBOXM_HANDLE handle, uint32_t id) {
    return guarded([&] {
        requireArguments(handle);
        requireState(handle->plan && !handle->stopped, "no cover info set, or muxing was stopped");
        auto const& ranges = handle->source.ranges(id);
        if (ranges.empty() || ranges.front().length == 0)
            throw failure(HBOX_ERR_PARAMETER, "item %u has no bytes", static_cast<unsigned>(id));
        hbox::noteFrame(*handle, id);
    });
}

extern "C" int32_t hboxm_stop_muxing(HBOXM_HANDLE handle) {
    return guarded([&] {
        requireArguments(handle);
        requireState(handle->plan.has_value(), "no cover info set");
        requireState(handle->awaited.empty(), "a frame of the cover was not put");
        handle->stopped = true;
    });
}

extern "C" int64_t hboxm_get_outputbuffer_size(HBOXM_HANDLE handle) {
    int64_t size = 0;
    int32_t const result = guarded([&] { size = static_cast<int64_t>(hbox::finished(handle).layout.size()); });
    return result < 0 ? result : size;
}

extern "C" int32_t hboxm_dump_image_to_outputbuffer(HBOXM_HANDLE handle, void* buffer, uint32_t capacity,
                                                    uint32_t* size) {
    return guarded([&] { hbox::dump(handle, buffer, capacity, size, hbox::OutputLayout::Parts::ALL); });
}

extern "C" int32_t hboxm_dump_changes_to_outputbuffer(HBOXM_HANDLE handle, void* buffer, uint32_t capacity,
                                                      uint32_t* size) {
    return guarded([&] { hbox::dump(handle, buffer, capacity, size, hbox::OutputLayout::Parts::CHANGES); });
}

extern "C" int32_t hboxm_get_unchanged(HBOXM_HANDLE handle, uint32_t index, HBOXM_UNCHANGED* range) {
    return guarded([&]() -> std::optional<hbox::Failure> {
        auto const& ranges = hbox::finished(handle).layout.unchanged();
        requireArguments(range);
        if (index >= ranges.size()) // how a caller learns that it has them all
            return failure(HBOX_ERR_NOT_FOUND, "%u unchanged ranges", static_cast<unsigned>(ranges.size()));
        auto const& [position, source, length] = ranges[index];
        *range = {static_cast<uint32_t>(position), static_cast<uint32_t>(source), static_cast<uint32_t>(length)};
        return std::nullopt;
    });
}

extern "C" int32_t hboxm_get_metadata_offset(HBOXM_HANDLE handle, uint32_t* offset, uint32_t* size) {
    return guarded([&] {
        auto const& room = hbox::finished(handle).room;
        requireArguments(offset);
        *offset = static_cast<uint32_t>(room.position);
        if (size)
            *size = static_cast<uint32_t>(room.length);
    });
}
