// SPDX-License-Identifier: Apache-2.0
#include "PhotoFixture.h"

namespace android::lumo::test {
namespace {

std::string const STILL = JpegBuilder().exif().build();

TEST(MotionPhotoReader, TheTrailerAloneDecides) {
    using F = MediaDefs::MotionPhotoFormat;
    auto const versioned = [](char const* version) {
        return trailerBytes({{2609, "MotionPhoto_Version", version}, videoRecord(videoOf(125001))});
    };
    std::tuple<char const*, std::string, bool, F, size_t> const cases[] = {
        {"no trailer", "", false, F::NONE, 0},
        {"other records only", trailerBytes({{2817, "Other", "x"}}), false, F::NONE, 0},
        {"long form", trailerBytes({videoRecord(videoOf(125001))}), true, F::MPV1, 125001},
        {"a byte shorter is a pointer", trailerBytes({videoRecord(videoOf(125000))}), true, F::MPV1, 0x6D703432},
        {"with version", versioned("mpv3"), true, F::MPV3, 125001},
        {"unknown version", versioned("mpv9"), true, F::MPV1, 125001},
        {"short version", versioned("mp"), true, F::MPV1, 125001},
        {"no video in it", trailerBytes({videoRecord(pattern(125001))}), false, F::MPV1, 125001},
        {"pointer", trailerBytes({videoRecord(pointerTo(4, 9))}), false, F::MPV2, 9},
        {"too short for a pointer", trailerBytes({videoRecord("mpv2")}), false, F::MPV2, 0},
        {"two pointers", trailerBytes({videoRecord(pointerTo(4, 9)), {2608, "b", pointerTo(0, 0)}}), false, F::MPV2, 9},
    };
    for (auto const& [what, trailer, valid, format, size] : cases) {
        SCOPED_TRACE(what);
        TempFile const file(STILL + trailer);
        auto const photo = parsePhoto(file.path(), "r");
        EXPECT_EQ(photo->isValid(), valid);
        EXPECT_EQ(photo->getQRTMotionPhotoVersion(), format);
        EXPECT_EQ(photo->getVideoSize(), size);
        EXPECT_EQ(photo->getImageSize(), STILL.size());
        EXPECT_EQ(photo->getXMPMotionPhotoVersion() + photo->getCaptureTimestampUs(), 0);
    }
}

TEST(MotionPhotoReader, AVideoWhoseSizeIsNegativeAsASignedNumberIsNoPointer) {
    // A hole of 2 GiB between the video's start and the tail.
    std::string const still = JpegBuilder().exif().xmp("", 4000).build(), empty = trailerBytes({videoRecord("")});
    uint32_t const head = 8 + 16, size = 0x80000000;
    TempFile const file(still + empty.substr(0, head) + videoOf(1000));
    std::filesystem::resize_file(file.path(), still.size() + head + size);
    std::ofstream(file.path(), std::ios::app | std::ios::binary)
        << empty.substr(head).replace(16, 8, little(head + size) + little(head + size));
    for (int times = 0; times < 2; ++times) {
        EXPECT_TRUE(parsePhoto(file.path())->isValid());
        EXPECT_EQ(parsePhoto(file.path())->getVideoSize(), size);
        commit(file, [](auto& e) { e.setPhotoPresentationTimestampUs(5); }); // the trailer stays where and as it is
    }
}

TEST(MotionPhotoReader, ExtractingCutsTheTargetAndWritesNothingWithoutAVideoInTheFile) {
    std::string const video = videoOf(130000);
    TempFile const photo(STILL + trailerBytes({videoRecord(video)})), still(STILL), target(pattern(200000));
    TempFile const outside(STILL + trailerBytes({videoRecord(pointerTo(30, STILL.size() + 80))}));
    auto const damaged = parsePhoto(outside.path());
    TempFile const pointer;
    EXPECT_EQ(damaged->getVideo(pointer.path()), 12U); // a JPEG's pointer is data
    EXPECT_EQ(pointer.bytes(), pointerTo(30, STILL.size() + 80));
    EXPECT_TRUE(failsWith("[metadata_utils/MotionPhotoInfoImpl:326] ", [&] { damaged->getVideo(); }));
    EXPECT_TRUE(failsWith("MotionPhotoInfoImpl:190] unable to create", [&] { damaged->getVideoDurationUs(); }));
    EXPECT_EQ(parsePhoto(still.path())->getVideo(target.path()), 0U);
    EXPECT_EQ(target.bytes().size(), 200000U);
    EXPECT_EQ(parsePhoto(photo.path())->getVideo(target.path()), video.size());
    EXPECT_EQ(target.bytes(), video);
    EXPECT_TRUE(failsWith("itself", [&] { parsePhoto(photo.path())->getVideo(photo.path()); }));
}

} // namespace
} // namespace android::lumo::test
