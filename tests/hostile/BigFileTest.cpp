// SPDX-License-Identifier: Apache-2.0
#include "MotionPhotoEdit.h"
#include "PublishedPhoto.h"
#include "support/Attempt.h"
#include "support/JpegBuilder.h"
#include "support/TrailerBuilder.h"

// Sparse files around 2 and 4 GiB: right, or refused with every byte as before.
namespace android::lumo::test {
namespace {

constexpr uint64_t TWO_GIB = uint64_t{1} << 31, FOUR_GIB = uint64_t{1} << 32;

std::string partOf(std::string const& path, uint64_t position, size_t size) {
    std::ifstream in(path, std::ios::binary);
    std::string bytes(size, '\0');
    in.seekg(static_cast<std::streamoff>(position)).read(bytes.data(), static_cast<std::streamsize>(size));
    bytes.resize(static_cast<size_t>(in.gcount()));
    return bytes;
}

/// A still of `size` bytes, nearly all of them a hole, whose last bytes are "end". Its XMP has room for what is added.
void makeStill(std::string const& path, bool isHeic, uint64_t size, char const* box = "free") {
    std::string const packet = heicXmp("big", 3000);
    std::string head = isHeic ? buildHeic({.xmp = packet}) : JpegBuilder().exif().xmp(packet, 4000).build();
    if (isHeic)
        head += bigEndian(1, 4) + box + bigEndian(size - head.size(), 8);
    writeBytes(path, head);
    std::filesystem::resize_file(path, size - 3);
    std::ofstream(path, std::ios::binary | std::ios::app) << "end";
}

class BigFile : public testing::TestWithParam<bool> {};

TEST_P(BigFile, TakesAVideoThatCanBeAddressedOrStaysAsItIs) {
    constexpr size_t VIDEO = 125'100;
    std::string const video = videoOf(VIDEO);
    TempFile const videoFile(video);
    TempDir const dir;
    std::string const path = dir.file("still");
    for (auto const& [what, size, isRefused] : {std::tuple{"up to 2 GiB", TWO_GIB - 1000, false},
                                                {"from 2 GiB", TWO_GIB, false},
                                                {"behind 3 GiB", TWO_GIB / 2 * 3 + 5, false},
                                                {"up to 4 GiB", FOUR_GIB - VIDEO - 70'000, false},
                                                {"past 4 GiB", FOUR_GIB - VIDEO, true},
                                                {"4 GiB less one", FOUR_GIB - 1, true},
                                                {"4 GiB", FOUR_GIB, true},
                                                {"6 GiB", FOUR_GIB + TWO_GIB, true}}) {
        SCOPED_TRACE(what);
        makeStill(path, GetParam(), size);
        std::string const head = partOf(path, 0, 10'000);
        auto const edit = [&](auto stage) {
            auto const editor = MotionPhotoInfo::parse(test::open(path))->edit();
            stage(*editor);
            editor->commit();
        };
        if (isRefused) {
            EXPECT_THROW(edit([&](auto& editor) { editor.addVideo(videoFile.open("r")); }), std::runtime_error);
            EXPECT_TRUE(partOf(path, 0, 10'000) == head);
        } else {
            edit([&](auto& editor) { editor.addVideo(videoFile.open("r")); });
            auto const photo = MotionPhotoInfo::parse(test::open(path, "r"));
            EXPECT_TRUE(photo->isValid() && partOf(path, photo->getVideoPosition(), VIDEO) == video);
            EXPECT_EQ(photo->getVideo()->size(), VIDEO);
            edit([&](auto& editor) { editor.removeVideo(nullptr); });
        }
        EXPECT_EQ(std::filesystem::file_size(path), size);
        EXPECT_EQ(partOf(path, size - 3, 4), "end");
    }
}

TEST_P(BigFile, OtherFileIsNoVideoFrom4GiB) {
    TempDir const dir;
    std::string const path = dir.file("still");
    std::string const before = GetParam() ? buildHeic() : JpegBuilder().exif().build();
    for (uint64_t const size : {FOUR_GIB - 1, FOUR_GIB, FOUR_GIB + 125'100}) {
        writeBytes(path, before);
        TempFile const video(bigEndian(12, 4) + "ftypmp42");
        std::filesystem::resize_file(video.path(), size);
        auto const editor = MotionPhotoInfo::parse(test::open(path))->edit();
        EXPECT_THROW((editor->addVideo(video.open("r")), editor->commit()), std::runtime_error) << size;
        EXPECT_TRUE(bytesOf(path) == before) << size;
    }
}

TEST_P(BigFile, VideoBoxOfMoreThan2GiBGoes) {
    TempDir const dir;
    std::string const path = dir.file("photo");
    makeStill(path, true, TWO_GIB + 5000, "mpvd");
    std::string const trailer = trailerBytes({{.type = 2900, .name = "Note", .data = "n"}});
    std::ofstream(path, std::ios::binary | std::ios::app) << (GetParam() ? heicBox("qrtd", trailer) : "");
    published::removeVideo(test::open(path));
    EXPECT_FALSE(MotionVideo::locate(test::open(path)).isSound());
    EXPECT_LT(std::filesystem::file_size(path), 40'000u);
    EXPECT_EQ(QRTInfo::parse(test::open(path))->getDataCount(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(, BigFile, testing::Bool(), [](auto const& kind) { return kind.param ? "HEIC" : "JPEG"; });

} // namespace
} // namespace android::lumo::test
