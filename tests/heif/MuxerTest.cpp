#include "HeicParts.h"
#include "io/HEIFCodecInfo.h"

#include <functional>

// What a writer that tells the muxer the truth, and in order, never reaches.
namespace android::lumo::test {
namespace {

/// A muxer and what it is to be told, all of it from the source.
struct MuxRun {
    MuxRun(HeicFile const& heic, uint32_t imageLength, uint32_t xmpSize = 1280) : file(heic.bytes) {
        uint32_t const brand = HBOX_FOURCC('h', 'e', 'i', 'c');
        HBOXM_CONFIG const config{&brand, 1, reader.getDemuxer(), imageLength};
        handle = hboxm_create(&config, nullptr);
        image = {cover.id,     cover.width, cover.height, cover.rotation, reader.getGridInfo(id), &hevc,
                 tiles.data(), 4,           xmpSize};
    }
    ~MuxRun() { hboxm_delete(handle); }
    MuxRun(MuxRun const&) = delete;

    int32_t setCover() const { return hboxm_set_cover_image(handle, image.id); }
    int32_t setImage() const { return hboxm_set_image_info(handle, &image); }

    TempFile file;
    HEIFMetaReader reader{file.open("r"), ParseMode::LAZY};
    int id = reader.getCoverImageId();
    HBOXD_IMAGE_INFO cover = reader.getImageInfo(id);
    heif::CodecInfo codec{reader, cover};
    HBOXM_INFO_HEVC hevc = *codec.get();
    std::vector<uint32_t> tiles = reader.getItemIds(id, 4);
    HBOXM_IMAGE_INFO image{};
    HBOXM_HANDLE handle = nullptr;
};

TEST(Muxer, RefusesAWrongLengthOrRoomAndAnEncodedPacket) {
    struct {
        HeicOptions options;
        uint32_t longer, xmpSize;
        int32_t error;
        char const* text;
    } const cases[] = {
        {{}, 0, HBOXM_MIN_XMP_SIZE - 1, HBOX_ERR_PARAMETER, "XMP room"},
        {{}, 0, UINT32_MAX - 8, HBOX_ERR_UNSUPPORTED, "32-bit"},
        {{}, 1, 1280, HBOX_ERR_PARAMETER, "image length"},
        {{}, UINT32_MAX, 1280, HBOX_ERR_FORMAT, "'mdat'"},
        {{.mdat = HeicOptions::Mdat::ToEnd, .tail = "video"}, 0, 1280, HBOX_ERR_FORMAT, "beyond the image part"},
        {{.xmp = heicXmp("x"), .xmpEncoding = "deflate"}, 0, 1280, HBOX_ERR_UNSUPPORTED, "encoded"},
    };
    for (auto const& [options, longer, xmpSize, error, text] : cases) {
        HeicFile const heic = buildHeicFile(options);
        MuxRun const run(heic, heic.imageLength + longer, xmpSize);
        ASSERT_EQ(run.setCover(), HBOX_OK);
        EXPECT_EQ(run.setImage(), error) << text;
        EXPECT_NE(std::string(hbox_last_error()).find(text), std::string::npos) << hbox_last_error();
    }
}

TEST(Muxer, RefusesAPictureThatIsNotTheSources) {
    std::function<void(MuxRun&)> const changes[] = {
        [](MuxRun& run) { run.image.width += 1; },
        [](MuxRun& run) { run.image.rotation = HEIF_CCW_ROTATION_0; },
        [](MuxRun& run) { run.image.grid.rows = 1; },
        [](MuxRun& run) { run.image.grid.tile_width = 32; },
        [](MuxRun& run) { std::swap(run.tiles[0], run.tiles[1]); },
        [](MuxRun& run) { run.image.tile_count -= 1; },
        [](MuxRun& run) { run.hevc.sps[0][5] ^= 1; },
        [](MuxRun& run) { run.hevc.pps_size[0] -= 1; },
        [](MuxRun& run) { run.hevc.vps_count = 0; },
    };
    HeicFile const heic = buildHeicFile({.rotation = 3});
    for (auto const& change : changes) {
        MuxRun run(heic, heic.imageLength);
        ASSERT_EQ(run.setCover(), HBOX_OK);
        change(run);
        EXPECT_EQ(run.setImage(), HBOX_ERR_MISMATCH) << hbox_last_error();
    }
}

TEST(Muxer, RefusesStepsOutOfOrderAndFramesThatAreNotTheSources) {
    HeicFile const heic = buildHeicFile();
    MuxRun run(heic, heic.imageLength);
    auto const put = [&](uint32_t tile, uint32_t frameOf, uint32_t size = 32) {
        std::vector<uint8_t> frame;
        run.reader.getImageFrame(static_cast<int>(frameOf), frame, 32);
        return hboxm_put_frm(run.handle, tile, frame.data(), size);
    };
    EXPECT_EQ(run.setImage(), HBOX_ERR_STATE);
    EXPECT_EQ(hboxm_set_cover_image(run.handle, 1), HBOX_ERR_MISMATCH);
    ASSERT_EQ(run.setCover(), HBOX_OK);
    EXPECT_EQ(put(1, 1), HBOX_ERR_STATE);
    ASSERT_EQ(run.setImage(), HBOX_OK);
    EXPECT_EQ(put(2, 1), HBOX_ERR_MISMATCH);
    EXPECT_EQ(put(1, 1, 31), HBOX_ERR_MISMATCH);
    EXPECT_TRUE(put(1, 1) == HBOX_OK && put(2, 2) == HBOX_OK && put(3, 3) == HBOX_OK);
    EXPECT_EQ(hboxm_stop_muxing(run.handle), HBOX_ERR_STATE);
    EXPECT_EQ(hboxm_get_outputbuffer_size(run.handle), HBOX_ERR_STATE);
    EXPECT_EQ(put(4, 4), HBOX_OK);
    ASSERT_EQ(hboxm_stop_muxing(run.handle), HBOX_OK);
    uint32_t size = 0;
    char small[16];
    EXPECT_EQ(hboxm_dump_image_to_outputbuffer(run.handle, small, sizeof small, &size), HBOX_ERR_BUFFER);
    EXPECT_EQ(size, hboxm_get_outputbuffer_size(run.handle));
}

} // namespace
} // namespace android::lumo::test
