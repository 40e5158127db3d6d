// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "hboxd.h"
#include "support/HeicBuilder.h"

using namespace android::lumo::test;

namespace {

/// A demuxer over its own copy of a file.
class Demuxer {
public:
    explicit Demuxer(std::string file) : bytes(std::move(file)) {
        HBOX_STREAM_CALLBACKS callbacks;
        hbox_mfal_memory(&callbacks);
        stream = {reinterpret_cast<uint8_t*>(bytes.data()), static_cast<uint32_t>(bytes.size()), 0};
        handle = hboxd_create(&callbacks, &stream, nullptr);
    }
    ~Demuxer() { hboxd_delete(handle); }
    Demuxer(Demuxer const&) = delete;

    HBOXD_HANDLE handle = nullptr;

private:
    std::string bytes;
    HBOX_MEMORY_STREAM stream{};
};

} // namespace

TEST(Demuxer, DescribesCoverTilesAndThumbnailWhenThePrimaryIsAGrid) {
    HeicFile const file = buildHeicFile({.rows = 2, .columns = 3, .thumbnail = true, .rotation = 3});
    Demuxer const source(file.bytes);
    uint32_t id = 0, count = 6, size = sizeof(HBOXM_GRID_INFO);
    ASSERT_EQ(hboxd_get_image_id(source.handle, HBOXD_IMAGE_COVER, 0, &id), HBOX_OK);
    EXPECT_EQ(id, file.primaryId);
    HBOXD_IMAGE_INFO image{};
    ASSERT_EQ(hboxd_get_info_image(source.handle, id, &image), HBOX_OK);
    EXPECT_TRUE(image.is_grid && image.width == 192 && image.height == 128 && image.tile_count == 6);
    EXPECT_EQ(image.rotation, HEIF_CCW_ROTATION_270);
    HBOXM_GRID_INFO grid{};
    ASSERT_EQ(hboxd_get_info_item(source.handle, id, HBOXD_ITEM_GRID, &grid, &size), HBOX_OK);
    EXPECT_TRUE(grid.rows == 2 && grid.columns == 3 && grid.width == 192 && grid.height == 128);
    EXPECT_TRUE(grid.tile_width == 64 && grid.tile_height == 64);
    std::vector<uint32_t> tiles(6);
    hboxd_get_list_referenceto(source.handle, id, HBOX_FOURCC('d', 'i', 'm', 'g'), tiles.data(), &count);
    EXPECT_EQ(tiles, (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
    ASSERT_EQ(hboxd_get_image_id(source.handle, HBOXD_IMAGE_THUMBNAIL, id, &id), HBOX_OK);
    EXPECT_EQ(id, file.thumbnailId);
}
