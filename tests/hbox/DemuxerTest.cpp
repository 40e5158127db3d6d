#include <gtest/gtest.h>

#include "HboxRun.h"
#include "support/HeicBuilder.h"

using namespace android::lumo::test;
using namespace hbox::test;

namespace {

HBOXD_IMAGE_INFO imageInfo(Demuxer const& source, uint32_t id) {
    HBOXD_IMAGE_INFO info{};
    EXPECT_EQ(hboxd_get_info_image(source.handle, id, &info), HBOX_OK) << hbox_last_error();
    return info;
}

} // namespace

TEST(Demuxer, DescribesCoverTilesAndThumbnailWhenThePrimaryIsAGrid) {
    HeicFile const file = buildHeicFile({.rows = 2, .columns = 3, .thumbnail = true, .rotation = 3});
    Demuxer const source(file.bytes);
    uint32_t id = 0;
    ASSERT_EQ(hboxd_get_image_id(source.handle, HBOXD_IMAGE_COVER, 0, &id), HBOX_OK);
    EXPECT_EQ(id, file.primaryId);
    auto const cover = imageInfo(source, id);
    EXPECT_EQ(cover.type, HBOX_FOURCC('g', 'r', 'i', 'd'));
    EXPECT_TRUE(cover.is_grid && cover.width == 192 && cover.height == 128 && cover.tile_count == 6);
    EXPECT_EQ(cover.rotation, HEIF_CCW_ROTATION_270);

    CoverInfo collected;
    ASSERT_EQ(collected.collect(source.handle, 1280), HBOX_OK);
    EXPECT_EQ(collected.tiles, (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
    auto const& grid = collected.image.grid;
    EXPECT_TRUE(grid.rows == 2 && grid.columns == 3 && grid.width == 192 && grid.height == 128);
    EXPECT_TRUE(grid.tile_width == 64 && grid.tile_height == 64);
    EXPECT_TRUE(collected.hevc.vps_count == 1 && collected.hevc.sps_count == 1 && collected.hevc.pps_count == 1);
    EXPECT_EQ(collected.hevc.vps_size[0], 24U);

    ASSERT_EQ(hboxd_get_image_id(source.handle, HBOXD_IMAGE_THUMBNAIL, id, &id), HBOX_OK);
    EXPECT_EQ(id, file.thumbnailId);
    EXPECT_EQ(imageInfo(source, id).width, 64U);
    EXPECT_EQ(hboxd_get_image_id(source.handle, HBOXD_IMAGE_THUMBNAIL, 1, &id), HBOX_ERR_NOT_FOUND);
}

TEST(Demuxer, AnswersWhatItCanWhenThePrimaryIsNoGridOrOddlyStored) {
    HeicFile const file =
        buildHeicFile({.grid = false, .xmp = heicXmp("x"), .ilocVersion = 2, .xmpInIdat = true, .tileExtents = 3});
    Demuxer const source(file.bytes);
    ASSERT_NE(source.handle, nullptr);
    EXPECT_FALSE(imageInfo(source, file.primaryId).is_grid);
    EXPECT_EQ(source.frame(1), Demuxer(buildHeic()).frame(1)) << "extents are joined";
    EXPECT_EQ(source.frame(file.xmpId), heicXmp("x"));
    HBOXD_LOCATION location{};
    uint32_t size = sizeof location;
    EXPECT_EQ(hboxd_get_info_item(source.handle, file.xmpId, HBOXD_ITEM_LOCATION, &location, &size), HBOX_OK);
    EXPECT_EQ(location.construction_method, 1U);
    EXPECT_EQ(file.bytes.substr(location.position, location.length), heicXmp("x")) << "counted from the file's start";
    char type[32] = "";
    size = sizeof type;
    EXPECT_EQ(hboxd_get_info_item(source.handle, file.xmpId, HBOXD_ITEM_MIME, type, &size), HBOX_OK);
    EXPECT_STREQ(type, "application/rdf+xml");
    EXPECT_EQ(hboxd_get_info_item(source.handle, 1, HBOXD_ITEM_GRID, nullptr, &size), HBOX_ERR_NOT_FOUND);
}

TEST(Demuxer, ReportsTheNeededSizeWhenTheCapacityIsTooSmall) {
    Demuxer const source(buildHeic());
    char buffer[31] = {'?'};
    uint32_t size = 0;
    EXPECT_EQ(hboxd_get_image_frm(source.handle, 1, buffer, sizeof buffer, &size), HBOX_ERR_BUFFER);
    EXPECT_EQ(size, 32U);
    size = sizeof buffer;
    EXPECT_EQ(hboxd_get_info_item(source.handle, 1, HBOXD_ITEM_CODEC_SPECIFIC, buffer, &size), HBOX_ERR_BUFFER);
    EXPECT_GT(size, 70U);
    EXPECT_EQ(buffer[0], '?');
    uint32_t ids[3];
    uint32_t count = 3;
    EXPECT_EQ(hboxd_get_list_referenceto(source.handle, 5, HBOX_FOURCC('d', 'i', 'm', 'g'), ids, &count),
              HBOX_ERR_BUFFER);
    EXPECT_EQ(count, 4U);
}

TEST(Demuxer, RefusesFilesWhenNoWholeMetaBoxIsThere) {
    std::string const whole = buildHeic();
    struct {
        std::string file;
        int32_t error;
    } const cases[] = {
        {"", HBOX_ERR_NOT_FOUND},
        {heicBox("ftyp", "heic"), HBOX_ERR_NOT_FOUND},
        {whole.substr(0, 100), HBOX_ERR_FORMAT},
        {heicBox("free", "") + bigEndian(7, 4) + "meta", HBOX_ERR_FORMAT},
        {bigEndian(1, 4) + "free" + bigEndian(15, 8), HBOX_ERR_FORMAT},
    };
    for (auto const& [file, error] : cases) {
        Demuxer const source(file);
        EXPECT_EQ(source.handle, nullptr);
        EXPECT_EQ(source.error, error) << hbox_last_error();
    }
    EXPECT_EQ(hboxd_delete(nullptr), HBOX_ERR_PARAMETER);
}
