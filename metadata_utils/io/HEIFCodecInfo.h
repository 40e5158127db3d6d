// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "HEIFMetaReader.h"
#include "hboxm.h"

#include <cstddef>
#include <cstdint>
#include <span>

/// An image's HEVC parameter sets, taken from the demuxer's byte stream (ITU-T H.265 annex B) and handed to the muxer
/// one by one. Messages carry the writer's source name.
namespace android::lumo::heif {

/// The position of the next start code 00 00 00 01, or the number of bytes when there is none.
size_t seekPrefix(std::span<uint8_t const> bytes);

/// Copies one NAL unit behind the units the arrays hold already. Throws, without changing anything, on a missing record
/// or unit, an empty unit, and full arrays (`max` units).
void handle_nal_unit(HBOXM_INFO_HEVC const* hevcInfo, uint8_t const* data, size_t size, uint32_t& count,
                     uint8_t** arrays, uint32_t* sizes, uint32_t max);

void addVPS(HBOXM_INFO_HEVC* hevcInfo, uint8_t const* data, size_t size);
void addSPS(HBOXM_INFO_HEVC* hevcInfo, uint8_t const* data, size_t size);
void addPPS(HBOXM_INFO_HEVC* hevcInfo, uint8_t const* data, size_t size);

/// Sorts the units of a byte stream into the record: VPS, SPS and PPS; any other type throws.
void addParameterSets(std::span<uint8_t const> bytes, HBOXM_INFO_HEVC* hevcInfo);

/// Fills the record with copies of the image's parameter sets; deallocCodecInfo frees them, after a failure too.
void allocCodecInfo(HEIFMetaReader& reader, HBOXD_IMAGE_INFO const& imageInfo, HBOXM_INFO_HEVC* hevcInfo);
void deallocCodecInfo(HBOXM_INFO_HEVC* hevcInfo);

/// The parameter sets of one image for as long as the muxer may ask for them.
class CodecInfo {
public:
    CodecInfo(HEIFMetaReader& reader, HBOXD_IMAGE_INFO const& imageInfo);
    ~CodecInfo() { deallocCodecInfo(&info); }
    CodecInfo(CodecInfo const&) = delete;
    CodecInfo& operator=(CodecInfo const&) = delete;

    HBOXM_INFO_HEVC const* get() const { return &info; }

private:
    HBOXM_INFO_HEVC info{};
};

} // namespace android::lumo::heif
