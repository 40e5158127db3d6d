#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "hboxm.h"

/// The demuxer and the muxer driven as a writer drives them: in memory, each step checked.
namespace hbox::test {

/// A demuxer over its own copy of a file. `handle` is null when the file was refused; `error` then tells why.
class Demuxer {
public:
    explicit Demuxer(std::string file) : bytes(std::move(file)) {
        HBOX_STREAM_CALLBACKS callbacks;
        hbox_mfal_memory(&callbacks);
        stream = {reinterpret_cast<uint8_t*>(bytes.data()), static_cast<uint32_t>(bytes.size()), 0};
        handle = hboxd_create(&callbacks, &stream, &error);
    }
    ~Demuxer() {
        if (handle)
            hboxd_delete(handle);
    }
    Demuxer(Demuxer const&) = delete;

    /// An item's stored bytes.
    int32_t frame(uint32_t id, std::string& out) const {
        uint32_t size = 0;
        int32_t result = hboxd_get_image_frm(handle, id, nullptr, 0, &size);
        out.resize(result == HBOX_OK ? size : 0);
        return result != HBOX_OK ? result : hboxd_get_image_frm(handle, id, out.data(), size, &size);
    }
    std::string frame(uint32_t id) const {
        std::string bytesOfItem;
        return frame(id, bytesOfItem) == HBOX_OK ? bytesOfItem : hbox_last_error();
    }

    HBOXD_HANDLE handle = nullptr;
    int32_t error = HBOX_OK;

private:
    std::string bytes;
    HBOX_MEMORY_STREAM stream{};
};

/// What a caller collects about the cover before it muxes: all of it from the source.
struct CoverInfo {
    HBOXM_IMAGE_INFO image{};
    HBOXM_INFO_HEVC hevc{};
    std::vector<uint32_t> tiles = std::vector<uint32_t>(512);
    std::string parameterSets;

    int32_t collect(HBOXD_HANDLE source, uint32_t xmpSize) {
        HBOXD_IMAGE_INFO info{};
        uint32_t size = sizeof image.grid;
        uint32_t count = 512;
        int32_t result = HBOX_OK;
        auto const ok = [&](int32_t answer) { return (result = answer) == HBOX_OK; };
        if (ok(hboxd_get_image_id(source, HBOXD_IMAGE_COVER, 0, &image.id)) &&
            ok(hboxd_get_info_image(source, image.id, &info)) &&
            ok(hboxd_get_info_item(source, image.id, HBOXD_ITEM_GRID, &image.grid, &size)) &&
            ok(hboxd_get_list_referenceto(source, image.id, HBOX_FOURCC('d', 'i', 'm', 'g'), tiles.data(), &count)) &&
            ok(hboxd_get_info_item(source, image.id, HBOXD_ITEM_CODEC_SPECIFIC, nullptr, &size))) {
            parameterSets.resize(size);
            if (ok(hboxd_get_info_item(source, image.id, HBOXD_ITEM_CODEC_SPECIFIC, parameterSets.data(), &size)))
                splitParameterSets();
        }
        tiles.resize(count <= 512 ? count : 0);
        image.width = info.width;
        image.height = info.height;
        image.rotation = info.rotation;
        image.hevc = &hevc;
        image.tile_ids = tiles.data();
        image.tile_count = static_cast<uint32_t>(tiles.size());
        image.xmp_size = xmpSize;
        return result;
    }

private:
    void splitParameterSets() {
        std::string const prefix("\0\0\0\1", 4);
        size_t end = 0;
        for (size_t at = 0; at + 4 < parameterSets.size(); at = end) {
            end = std::min(parameterSets.find(prefix, at + 4), parameterSets.size());
            auto* unit = reinterpret_cast<uint8_t*>(parameterSets.data()) + at + 4;
            auto const put = [&](uint8_t** units, uint32_t* sizes, uint32_t& count, uint32_t maximum) {
                if (count == maximum)
                    return;
                units[count] = unit;
                sizes[count++] = static_cast<uint32_t>(end - at - 4);
            };
            int const type = unit[0] >> 1 & 0x3F;
            if (type == 32)
                put(hevc.vps, hevc.vps_size, hevc.vps_count, HBOXM_MAX_VPS);
            if (type == 33)
                put(hevc.sps, hevc.sps_size, hevc.sps_count, HBOXM_MAX_SPS);
            if (type == 34)
                put(hevc.pps, hevc.pps_size, hevc.pps_count, HBOXM_MAX_PPS);
        }
    }
};

class Muxer {
public:
    Muxer(Demuxer const& source, uint32_t imageLength) {
        uint32_t const brands[] = {HBOX_FOURCC('h', 'e', 'i', 'c'), HBOX_FOURCC('m', 'i', 'f', '1')};
        HBOXM_CONFIG const config{brands, 2, source.handle, imageLength};
        handle = hboxm_create(&config, nullptr);
    }
    ~Muxer() { hboxm_delete(handle); }
    Muxer(Muxer const&) = delete;

    HBOXM_HANDLE handle;
};

struct MuxResult {
    int32_t error = HBOX_OK;
    std::string text; ///< of the error
    std::string image;
    uint32_t roomOffset = 0;
    uint32_t roomSize = 0;
};

/// The whole way from a file to its new image part.
inline MuxResult reserve(std::string const& file, uint32_t imageLength, uint32_t xmpSize) {
    Demuxer const source(file);
    if (!source.handle)
        return {source.error, hbox_last_error(), {}};
    Muxer const muxer(source, imageLength);
    CoverInfo cover;
    MuxResult made;
    auto const ok = [&](int32_t answer) { return (made.error = answer) == HBOX_OK; };
    bool goesOn = ok(cover.collect(source.handle, xmpSize)) &&
                  ok(hboxm_set_cover_image(muxer.handle, cover.image.id)) &&
                  ok(hboxm_set_image_info(muxer.handle, &cover.image));
    std::string frame;
    for (size_t i = 0; goesOn && i < cover.tiles.size(); ++i)
        goesOn = ok(source.frame(cover.tiles[i], frame)) &&
                 ok(hboxm_put_frm(muxer.handle, cover.tiles[i], frame.data(), static_cast<uint32_t>(frame.size())));
    if (!goesOn || !ok(hboxm_stop_muxing(muxer.handle))) {
        made.text = hbox_last_error();
        return made;
    }
    made.image.resize(static_cast<size_t>(std::max<int64_t>(hboxm_get_outputbuffer_size(muxer.handle), 0)));
    auto size = static_cast<uint32_t>(made.image.size());
    if (ok(hboxm_dump_image_to_outputbuffer(muxer.handle, made.image.data(), size, &size)))
        ok(hboxm_get_metadata_offset(muxer.handle, &made.roomOffset, &made.roomSize));
    return made;
}

} // namespace hbox::test
