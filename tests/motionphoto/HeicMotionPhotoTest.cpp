// SPDX-License-Identifier: Apache-2.0
#include "PhotoFixture.h"

namespace android::lumo::test {
namespace {

/// The boxes behind a still of `size` bytes.
std::string boxesBehind(std::string const& file, size_t size) {
    std::string text;
    for (auto const& box : boxesIn(file, size, file.size()))
        text += (file.compare(box.content, 4, "cdif") == 0 ? "cdif" : box.type) + " ";
    return text;
}

/// What, behind the image before; the edit; the boxes behind it then, and the video's size.
using Layout = std::tuple<char const*, std::string, Edit, char const*, size_t>;

TEST(HeicMotionPhoto, WhateverStandsBehindTheImageIsPutInOrder) {
    std::string const still = buildHeic({.xmp = heicXmp("s", 3000)}), video = videoOf(4000, 8);
    std::string const plain = videoBox(video), wide = videoBox(video, true);
    auto const trailer = [&](size_t position, char const* version = "mpv3") {
        return qrtdBox(
            trailerBytes({videoRecord(pointerTo(position, video.size())), {2609, "MotionPhoto_Version", version}}));
    };
    size_t const content = still.size() + trailer(0).size() + 8;
    TempFile const other(videoOf(6000, 9));
    Edit const replace = [&](auto& e) { e.replaceVideo(other.open("r")); };
    Edit const remove = [](auto& e) { e.removeVideo(nullptr); };
    for (auto const& [what, behindImage, edit, boxes, size] : {
             Layout{"replace", plain + trailer(still.size() + 8), replace, "mpvd qrtd ", 6000},
             Layout{"replace behind a wide header", wide + trailer(still.size() + 16), replace, "mpvd qrtd ", 6000},
             Layout{"remove", plain + trailer(still.size() + 8), remove, "", 0},
             Layout{"remove behind a wide header", wide + trailer(still.size() + 16), remove, "", 0},
             Layout{"a version that hides the pointer", qrtdBox(trailerBytes({{2609, "MotionPhoto_Version", "mpv1"}})),
                    [&](auto& e) { e.addVideo(other.open("r")); }, "mpvd qrtd ", 6000},
             Layout{"a trailer hidden behind other boxes", trailer(content) + plain + heicBox("free", "cdif12345"),
                    [](auto& e) { e.addQRTData(2900, "Note", filler(4, 'n')); }, "mpvd cdif qrtd ", 4000},
             Layout{"the same when only XMP is changed", trailer(content) + plain,
                    [](auto& e) { e.setPhotoPresentationTimestampUs(5); }, "mpvd qrtd ", 4000},
         }) {
        SCOPED_TRACE(what);
        TempFile const file(still + behindImage);
        commit(file, edit);
        expectConsistent(file.path());
        EXPECT_EQ(boxesBehind(file.bytes(), still.size()), boxes);
        auto const photo = parsePhoto(file.path());
        EXPECT_EQ(photo->getVideoSize(), size);
        EXPECT_EQ(photo->getQRTMotionPhotoVersion(),
                  size > 0 ? MediaDefs::MotionPhotoFormat::MPV3 : MediaDefs::MotionPhotoFormat::NONE);
    }
}

TEST(HeicMotionPhoto, ASingleImageWithoutXmpLosesItsVideoAndGetsNone) {
    std::string const still = buildHeic({.grid = false}), video = videoOf(4000, 8);
    std::string const trailer = trailerBytes({videoRecord(pointerTo(still.size() + 8, video.size()))});
    TempFile const file(still + heicBox("mpvd", video) + qrtdBox(trailer));
    auto const editor = parsePhoto(file.path())->edit();
    editor->removeVideo(nullptr).commit();
    EXPECT_EQ(file.bytes(), still);
    editor->commit();
    EXPECT_EQ(file.bytes(), still);
}

} // namespace
} // namespace android::lumo::test
