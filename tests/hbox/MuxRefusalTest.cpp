#include <gtest/gtest.h>

#include <functional>

#include "HboxRun.h"
#include "support/HeicBuilder.h"

using namespace android::lumo::test;
using namespace hbox::test;

namespace {

using Mdat = HeicOptions::Mdat;

void expectRefused(MuxResult const& made, int32_t error, std::string const& text) {
    EXPECT_EQ(made.error, error) << made.text;
    EXPECT_NE(made.text.find(text), std::string::npos) << made.text;
    EXPECT_TRUE(made.image.empty());
}

} // namespace

TEST(MuxRefusal, SaysWhyWhenTheSourceCannotBeWrittenAgain) {
    std::string const entity = bigEndian(0xFFFF, 4) + bigEndian(0, 4);
    struct {
        HeicOptions options;
        int32_t error;
        char const* text;
    } const cases[] = {
        {{.grid = false}, HBOX_ERR_NOT_FOUND, "no grid"},
        {{.beforeMdat = heicBox("moov", "x")}, HBOX_ERR_UNSUPPORTED, "'moov'"},
        {{.beforeMdat = heicBox("moof", "x")}, HBOX_ERR_UNSUPPORTED, "'moof'"},
        {{.behindMdat = heicBox("meco", "x")}, HBOX_ERR_UNSUPPORTED, "'meco'"},
        {{.beforeMdat = heicBox("mpvd", "video")}, HBOX_ERR_UNSUPPORTED, "'mpvd'"},
        {{.beforeMdat = heicBox("qrtd", "trailer")}, HBOX_ERR_UNSUPPORTED, "'qrtd'"},
        {{.behindMdat = heicFullBox("meta", 0, 0, "")}, HBOX_ERR_UNSUPPORTED, "2 'meta' boxes"},
        {{.fieldWidth = 2}, HBOX_ERR_UNSUPPORTED, "field of 2 bytes"},
        {{.indexWidth = 2}, HBOX_ERR_UNSUPPORTED, "field of 2 bytes"},
        {{.tileExtents = 2}, HBOX_ERR_UNSUPPORTED, "item 1: 2 extents"},
        {{.tileMethod = 2}, HBOX_ERR_UNSUPPORTED, "item 1: construction method 2"},
        {{.tileDataReference = 1}, HBOX_ERR_UNSUPPORTED, "item 1: data reference 1"},
        {{.tileShift = 1 << 20}, HBOX_ERR_FORMAT, "item 1"},
        {{.tileShift = 140, .tail = std::string(64, 't')}, HBOX_ERR_FORMAT, "outside the image part"},
        {{.mdat = Mdat::ToEnd, .tail = heicBox("mpvd", "video")}, HBOX_ERR_FORMAT, "beyond the image part"},
        {{.beforeMdat = "abc"}, HBOX_ERR_FORMAT, "invalid size"},
        {{.behindMdat = "stray"}, HBOX_ERR_FORMAT, "no box header"},
        {{.behindMdat = bigEndian(100, 4) + "free"}, HBOX_ERR_FORMAT, "box 'free'"},
        {{.xmp = heicXmp("packed"), .xmpEncoding = "deflate"}, HBOX_ERR_UNSUPPORTED, "encoded"},
        {{.extraMeta = heicFullBox("iinf", 0, 0, bigEndian(0, 2))}, HBOX_ERR_FORMAT, "2 'iinf'"},
        {{.extraMeta = bigEndian(0, 4) + "free"}, HBOX_ERR_FORMAT, "has no size"},
        {{.extraMeta = "stray"}, HBOX_ERR_FORMAT, "header cut off"},
        {{.extraMeta = heicBox("grpl", heicFullBox("altr", 0, 0, entity.substr(0, 4) + bigEndian(9, 4)))},
         HBOX_ERR_FORMAT,
         "9 entries"},
    };
    for (auto const& [options, error, text] : cases) {
        SCOPED_TRACE(text);
        HeicFile const file = buildHeicFile(options);
        expectRefused(reserve(file.bytes, file.imageLength, 1280), error, text);
    }
}

TEST(MuxRefusal, SaysWhyWhenTheRoomOrTheLengthIsWrong) {
    HeicFile const file = buildHeicFile();
    expectRefused(reserve(file.bytes, file.imageLength, HBOXM_MIN_XMP_SIZE - 1), HBOX_ERR_PARAMETER, "XMP room");
    expectRefused(reserve(file.bytes, file.imageLength, UINT32_MAX - 8), HBOX_ERR_UNSUPPORTED, "32-bit");
    expectRefused(reserve(file.bytes, file.imageLength + 1, 1280), HBOX_ERR_PARAMETER, "image length");
    expectRefused(reserve(file.bytes, file.imageLength - 1, 1280), HBOX_ERR_FORMAT, "'mdat'");
    expectRefused(reserve(file.bytes, 0, 1280), HBOX_ERR_UNSUPPORTED, "0 'meta' boxes");
    std::string const early = buildHeic({.tileShift = -8}); // the header of 'mdat' is carried over as well
    EXPECT_EQ(reserve(early, file.imageLength, 1280).error, HBOX_OK);
}

TEST(MuxRefusal, ReportsMismatchWhenTheImageInfoIsNotTheSources) {
    HeicFile const file = buildHeicFile({.rotation = 3});
    std::function<void(CoverInfo&)> const changes[] = {
        [](CoverInfo& info) { info.image.width += 1; },
        [](CoverInfo& info) { info.image.rotation = HEIF_CCW_ROTATION_0; },
        [](CoverInfo& info) { info.image.grid.rows = 1; },
        [](CoverInfo& info) { info.image.grid.tile_width = 32; },
        [](CoverInfo& info) { std::swap(info.tiles[0], info.tiles[1]); },
        [](CoverInfo& info) { info.image.tile_count -= 1; },
        [](CoverInfo& info) { info.hevc.sps[0][5] ^= 1; },
        [](CoverInfo& info) { info.hevc.pps_size[0] -= 1; },
        [](CoverInfo& info) { info.hevc.vps_count = 0; },
    };
    Demuxer const source(file.bytes);
    Muxer const muxer(source, file.imageLength);
    ASSERT_EQ(hboxm_set_cover_image(muxer.handle, file.primaryId), HBOX_OK);
    EXPECT_EQ(hboxm_set_cover_image(muxer.handle, 1), HBOX_ERR_MISMATCH);
    for (auto const& change : changes) {
        CoverInfo info;
        ASSERT_EQ(info.collect(source.handle, 1280), HBOX_OK);
        change(info);
        EXPECT_EQ(hboxm_set_image_info(muxer.handle, &info.image), HBOX_ERR_MISMATCH) << hbox_last_error();
    }
}

TEST(MuxRefusal, ReportsMismatchOrStateWhenFramesAreWrongOrMissing) {
    HeicFile const file = buildHeicFile();
    Demuxer const source(file.bytes);
    Muxer const muxer(source, file.imageLength);
    CoverInfo info;
    ASSERT_EQ(info.collect(source.handle, 1280), HBOX_OK);
    EXPECT_EQ(hboxm_set_image_info(muxer.handle, &info.image), HBOX_ERR_STATE);
    ASSERT_EQ(hboxm_set_cover_image(muxer.handle, file.primaryId), HBOX_OK);
    EXPECT_EQ(hboxm_put_frm(muxer.handle, 1, "x", 1), HBOX_ERR_STATE);
    ASSERT_EQ(hboxm_set_image_info(muxer.handle, &info.image), HBOX_OK);
    std::string frame = source.frame(1);
    auto const put = [&](uint32_t id, std::string const& bytes) {
        return hboxm_put_frm(muxer.handle, id, bytes.data(), static_cast<uint32_t>(bytes.size()));
    };
    EXPECT_EQ(put(2, frame), HBOX_ERR_MISMATCH);
    EXPECT_EQ(put(1, frame + "x"), HBOX_ERR_MISMATCH);
    EXPECT_EQ(put(1, frame.substr(1)), HBOX_ERR_MISMATCH);
    for (uint32_t id = 1; id <= 3; ++id)
        EXPECT_EQ(put(id, source.frame(id)), HBOX_OK);
    EXPECT_EQ(hboxm_stop_muxing(muxer.handle), HBOX_ERR_STATE);
    EXPECT_EQ(hboxm_get_outputbuffer_size(muxer.handle), HBOX_ERR_STATE);
    EXPECT_EQ(put(4, source.frame(4)), HBOX_OK);
    ASSERT_EQ(hboxm_stop_muxing(muxer.handle), HBOX_OK);
    uint32_t size = 0;
    char small[16];
    EXPECT_EQ(hboxm_dump_image_to_outputbuffer(muxer.handle, small, sizeof small, &size), HBOX_ERR_BUFFER);
    EXPECT_EQ(size, hboxm_get_outputbuffer_size(muxer.handle));
}
