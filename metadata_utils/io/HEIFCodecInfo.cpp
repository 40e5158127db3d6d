// SPDX-License-Identifier: Apache-2.0
#include "HEIFCodecInfo.h"

#include "HEIFBoxScan.h"
#include "Log.h"
#include "boxes/PropertyBoxes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <new>
#include <vector>

namespace android::lumo::heif {

namespace {

constexpr char LOG_TAG[] = "HEIFMetaWriter";
constexpr std::array<uint8_t, 4> START_CODE = {0, 0, 0, 1};

void require(bool condition, int line) {
    if (!condition)
        throw writerError(line)("%s", "");
}

void addUnit(std::span<uint8_t const> unit, HBOXM_INFO_HEVC* hevcInfo) {
    switch ((unit.front() >> 1) & 0x3FU) {
    case boxes::NAL_VPS:
        return addVPS(hevcInfo, unit.data(), unit.size());
    case boxes::NAL_SPS:
        return addSPS(hevcInfo, unit.data(), unit.size());
    case boxes::NAL_PPS:
        return addPPS(hevcInfo, unit.data(), unit.size());
    default:
        throw writerError()("invalid nal unit type");
    }
}

void freeUnits(uint32_t& count, uint8_t** arrays) {
    std::for_each(arrays, arrays + count, [](uint8_t* unit) { delete[] unit; });
    count = 0;
}

} // namespace

size_t seekPrefix(std::span<uint8_t const> bytes) {
    auto const found = std::search(bytes.begin(), bytes.end(), START_CODE.begin(), START_CODE.end());
    return static_cast<size_t>(found - bytes.begin());
}

void handle_nal_unit(HBOXM_INFO_HEVC const* hevcInfo, uint8_t const* data, size_t size, uint32_t& count,
                     uint8_t** arrays, uint32_t* sizes, uint32_t max) {
    require(hevcInfo != nullptr, 53);
    require(data != nullptr, 54);
    require(size >= 1, 55);
    require(count < max, 56);
    auto* copy = new (std::nothrow) uint8_t[size];
    require(copy != nullptr, 59);
    std::memcpy(copy, data, size);
    arrays[count] = copy;
    sizes[count] = static_cast<uint32_t>(size);
    ++count;
}

void addVPS(HBOXM_INFO_HEVC* info, uint8_t const* data, size_t size) {
    require(info != nullptr, 53);
    handle_nal_unit(info, data, size, info->vps_count, info->vps, info->vps_size, HBOXM_MAX_VPS);
}

void addSPS(HBOXM_INFO_HEVC* info, uint8_t const* data, size_t size) {
    require(info != nullptr, 53);
    handle_nal_unit(info, data, size, info->sps_count, info->sps, info->sps_size, HBOXM_MAX_SPS);
}

void addPPS(HBOXM_INFO_HEVC* info, uint8_t const* data, size_t size) {
    require(info != nullptr, 53);
    handle_nal_unit(info, data, size, info->pps_count, info->pps, info->pps_size, HBOXM_MAX_PPS);
}

/// | width | name                                                             |
/// |-------|------------------------------------------------------------------|
/// | 4     | start code 00 00 00 01                                           |
/// | 2     | NAL unit header: 1 bit zero, 6 bits type, 9 bits layer and level |
/// | ...   | payload, up to the next start code or the end                    |
void addParameterSets(std::span<uint8_t const> bytes, HBOXM_INFO_HEVC* hevcInfo) {
    bytes = bytes.subspan(seekPrefix(bytes));
    while (!bytes.empty()) {
        bytes = bytes.subspan(START_CODE.size());
        if (bytes.empty())
            throw writerError()("no remain data size");
        size_t const size = seekPrefix(bytes);
        if (size == 0)
            throw writerError()(" 0 nal data size");
        addUnit(bytes.first(size), hevcInfo);
        bytes = bytes.subspan(size);
    }
}

void allocCodecInfo(HEIFMetaReader& reader, HBOXD_IMAGE_INFO const& imageInfo, HBOXM_INFO_HEVC* hevcInfo) {
    std::vector<uint8_t> data;
    try {
        reader.getMetadataInfo(static_cast<int>(imageInfo.id), HBOXD_ITEM_CODEC_SPECIFIC, &data);
    } catch (std::exception const& error) {
        rethrowUnlessDamage();
        LOGE("fail to get codec specific data: %s", error.what());
        data.clear();
    }
    if (data.empty())
        throw writerError()("fail to get codec specific data");
    addParameterSets(data, hevcInfo);
}

void deallocCodecInfo(HBOXM_INFO_HEVC* hevcInfo) {
    freeUnits(hevcInfo->vps_count, hevcInfo->vps);
    freeUnits(hevcInfo->sps_count, hevcInfo->sps);
    freeUnits(hevcInfo->pps_count, hevcInfo->pps);
}

CodecInfo::CodecInfo(HEIFMetaReader& reader, HBOXD_IMAGE_INFO const& imageInfo) {
    try {
        allocCodecInfo(reader, imageInfo, &info);
    } catch (...) {
        deallocCodecInfo(&info);
        throw;
    }
}

} // namespace android::lumo::heif
