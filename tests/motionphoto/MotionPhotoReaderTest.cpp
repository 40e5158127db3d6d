#include "PhotoFixture.h"

#include "CheckedFile.h"

#include <filesystem>
#include <fstream>
#include <vector>

namespace android::lumo::test {
namespace {

std::string little(uint32_t value) {
    return {reinterpret_cast<char const*>(&value), sizeof(value)};
}

std::string big(uint32_t value) {
    return little(__builtin_bswap32(value));
}

struct Record {
    uint32_t type;
    std::string name;
    std::string data;
};

/// A trailer written by hand: records, "QRTH", version, count, directory, tail size, "QRTT".
std::string trailer(std::vector<Record> const& records) {
    std::string body;
    for (auto const& r : records)
        body += little(r.type << 16) + little(static_cast<uint32_t>(r.name.size())) + r.name + r.data;
    std::string tail = "QRTH" + little(0) + little(static_cast<uint32_t>(records.size()));
    uint32_t offset = static_cast<uint32_t>(body.size());
    for (auto const& r : records) {
        uint32_t const size = static_cast<uint32_t>(8 + r.name.size() + r.data.size());
        tail += little(r.type << 16) + little(offset) + little(size);
        offset -= size;
    }
    return body + tail + little(static_cast<uint32_t>(tail.size())) + "QRTT";
}

std::string const STILL = JpegBuilder().exif().build();

TEST(MotionPhotoReader, TheTrailerAloneDecides) {
    struct Case {
        char const* what;
        std::string trailer;
        bool valid;
        MediaDefs::MotionPhotoFormat format;
        size_t size;
    };
    using F = MediaDefs::MotionPhotoFormat;
    std::string const video = fakeVideo(125001);
    Case const cases[] = {
        {"no trailer", "", false, F::NONE, 0},
        {"other records only", trailer({{2817, "Other", "x"}}), false, F::NONE, 0},
        {"long form", trailer({{2608, "MotionPhoto_Data", video}}), true, F::MPV1, 125001},
        {"with version", trailer({{2609, "MotionPhoto_Version", "mpv3"}, {2608, "MotionPhoto_Data", video}}), true,
         F::MPV3, 125001},
        {"unknown version", trailer({{2609, "MotionPhoto_Version", "mpv9"}, {2608, "MotionPhoto_Data", video}}), true,
         F::MPV1, 125001},
        {"short version", trailer({{2609, "MotionPhoto_Version", "mp"}, {2608, "MotionPhoto_Data", video}}), true,
         F::MPV1, 125001},
        {"no video in it", trailer({{2608, "MotionPhoto_Data", pattern(125001)}}), false, F::MPV1, 125001},
        {"pointer", trailer({{2608, "MotionPhoto_Data", "mpv2" + big(4) + big(9)}}), false, F::MPV2, 9},
        {"too short for a pointer", trailer({{2608, "MotionPhoto_Data", "mpv2"}}), false, F::MPV2, 0},
        {"two pointers",
         trailer({{2608, "MotionPhoto_Data", "mpv2" + big(4) + big(9)}, {2608, "b", "mpv2" + big(0) + big(0)}}), false,
         F::MPV2, 9},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        TempFile const file(STILL + c.trailer);
        auto const photo = parsePhoto(file.path(), "r");
        EXPECT_EQ(photo->isValid(), c.valid);
        EXPECT_EQ(photo->getQRTMotionPhotoVersion(), c.format);
        EXPECT_EQ(photo->getVideoSize(), c.size);
        EXPECT_EQ(photo->getImageSize(), STILL.size());
        EXPECT_EQ(photo->getXMPMotionPhotoVersion(), 0);
        EXPECT_EQ(photo->getCaptureTimestampUs(), 0);
    }
}

TEST(MotionPhotoReader, VideosOfUpTo125000BytesAreReadAsPointers) {
    for (size_t const size : {124999U, 125000U, 125001U}) {
        std::string const video = fakeVideo(size);
        TempFile const file(STILL + trailer({{2608, "MotionPhoto_Data", video}}));
        size_t const expected = size > 125000 ? size : __builtin_bswap32(little32(video, 8));
        EXPECT_EQ(parsePhoto(file.path())->getVideoSize(), expected) << size;
    }
    // Nor is one whose size is negative as a signed number: a hole of 2 GiB between the video's start and the tail.
    std::string const still = JpegBuilder().exif().xmp("", 4000).build();
    std::string empty = trailer({{2608, "MotionPhoto_Data", ""}});
    uint32_t const head = 8 + 16, size = 0x80000000;
    TempFile const file(still + empty.substr(0, head) + fakeVideo(1000));
    std::filesystem::resize_file(file.path(), still.size() + head + size);
    std::ofstream(file.path(), std::ios::app | std::ios::binary)
        << empty.substr(head).replace(16, 8, little(head + size) + little(head + size));
    auto const photo = parsePhoto(file.path());
    EXPECT_TRUE(photo->isValid());
    EXPECT_EQ(photo->getVideoSize(), size);
    auto const edit = photo->edit();
    edit->setPhotoPresentationTimestampUs(5).commit(); // the trailer stays where and as it is
    EXPECT_EQ(parsePhoto(file.path())->getVideoSize(), size);
}

TEST(MotionPhotoReader, AVideoOutsideTheFileIsRefusedAndNothingWritten) {
    TempFile const file(STILL + trailer({{2608, "MotionPhoto_Data", "mpv2" + big(10) + big(0xFFFFFFF0)}}));
    TempFile const target("untouched");
    auto const photo = parsePhoto(file.path());
    EXPECT_NE(messageOf([&] { photo->getVideo(target.path()); }).find("lies outside the file"), std::string::npos);
    EXPECT_NE(messageOf([&] { photo->getVideo(); }).find("[metadata_utils/MotionPhotoInfoImpl:326] "),
              std::string::npos);
    EXPECT_NE(messageOf([&] { photo->getVideoDurationUs(); }).find("MotionPhotoInfoImpl:190] unable to create"),
              std::string::npos);
    EXPECT_EQ(target.bytes(), "untouched");
}

TEST(MotionPhotoReader, ExtractingCutsTheTargetAndWritesNothingWithoutAVideo) {
    std::string const video = fakeVideo(130000);
    TempFile const photo(STILL + trailer({{2608, "MotionPhoto_Data", video}}));
    TempFile const still(STILL);
    TempFile const target(pattern(200000));
    EXPECT_EQ(parsePhoto(still.path())->getVideo(target.path()), 0U);
    EXPECT_EQ(target.bytes().size(), 200000U);
    EXPECT_EQ(parsePhoto(photo.path())->getVideo(target.path()), video.size());
    EXPECT_EQ(target.bytes(), video);
    EXPECT_NE(messageOf([&] { parsePhoto(photo.path())->getVideo(photo.path()); }).find("itself"), std::string::npos);
}

TEST(MotionPhotoReader, WhatIsNotProvidedSaysSo) {
    TempFile const file(STILL);
    auto const photo = parsePhoto(file.path());
    auto const source = [](int line) { return "[metadata_utils/MotionPhotoInfoImpl:" + std::to_string(line) + "] "; };
    EXPECT_EQ(messageOf([&] { photo->getVideoMimeType(); }), source(170) + "implement video-info");
    EXPECT_EQ(messageOf([&] { photo->getNumTracksOfVideo(); }), source(175) + "implement video-info");
    EXPECT_EQ(messageOf([&] { photo->getVideoBitrate(); }), source(214) + "implement video-info");
    EXPECT_EQ(messageOf([&] { photo->getTrackDurationsOfVideo(); }), source(219) + "implement video-info");
    EXPECT_EQ(messageOf([&] { photo->getAutoPlayVideoBitrate(); }), source(255) + "implement auto-play-video-info");
    EXPECT_EQ(messageOf([&] { photo->getCropRect(); }), source(311) + "implement video-info");
}

} // namespace
} // namespace android::lumo::test
