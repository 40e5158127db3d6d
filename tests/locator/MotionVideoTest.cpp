// SPDX-License-Identifier: Apache-2.0
#include "Error.h"
#include "LocatorFixture.h"
#include "support/Faults.h"

namespace android::lumo::test {

namespace {

/// Other prefixes and the namespaces of the other format.
std::string inOtherSpelling(std::string packet) {
    for (auto const& [from, spelling] : {std::pair{"Container:", "GContainer:"},
                                         {"xmlns:Container", "xmlns:GContainer"},
                                         {"photos/1.0/container/item/", "photos/dd/1.0/item/"},
                                         {"photos/1.0/container/", "photos/dd/1.0/container/"}}) {
        std::string const to = spelling;
        for (size_t at = 0; (at = packet.find(from, at)) != std::string::npos; at += to.size())
            packet.replace(at, std::char_traits<char>::length(from), to);
    }
    return packet;
}

} // namespace

TEST(MotionVideo, FindsTheMovieWhereAClaimHolds) {
    std::string const movie = clip(), size = std::to_string(movie.size());
    std::string const openEnd =
        heicBox("ftyp", "isom" + bigEndian(0, 4)) + heicBox("moov", "") + bigEndian(0, 4) + "mdat" + pattern(20);
    auto const other = inOtherSpelling(packetOf(CLAIMED, directoryOf(PRIMARY + videoItem(movie.size()))));
    std::vector<Form> cases = forms(movie);
    cases.insert(cases.end(),
                 {{"padding behind", published(PRIMARY + videoItem(movie.size(), paddingOf(5)), movie + "12345"),
                   "directory", 0, 5},
                  {"other namespaces", JpegBuilder().xmp(other).build("scan", movie), "directory"},
                  {"a last box of size 0", published(PRIMARY + videoItem(openEnd.size()), openEnd), "directory"},
                  {"older offset where the directory is wrong",
                   published(PRIMARY + videoItem(movie.size() - 1), movie, CLAIMED + microVideo(size)), "micro-video"},
                  {"trailer", JpegBuilder().build("scan", trailerBytes({{2608, "MotionPhoto_Data", clip(125'000)}})),
                   "trailer", 0, 32}});
    for (auto const& [name, photo, source, padding, behind] : cases) {
        auto const found = locate(photo);
        size_t const end = photo.size() - behind, position = photo.rfind("ftyp") - 4;
        EXPECT_EQ(textOf(found),
                  std::string(source) + " sound " + std::to_string(position) + "+" + std::to_string(end - position))
            << name;
    }
    EXPECT_EQ(locate(published(PRIMARY + videoItem(movie.size()), movie)).momentUs, 500'000);
    EXPECT_EQ(locate(published(PRIMARY, movie, microVideo(size))).momentUs, 250);
}

/// Whatever read fails, the answer is never "none" or "unknown".
TEST(MotionVideo, AReadThatFailsIsNoAnswer) {
    TempFile const played(bytesOf(SAMPLES_DIR "/clip.mp4"));
    auto const movie = played.open("r");
    MotionVideo video;
    video.status = MotionVideo::Status::SOUND;
    video.size = static_cast<uint32_t>(movie->size());
    EXPECT_TRUE(video.durationUs(movie));
    {
        auto const fault = Fault::badSector(static_cast<off64_t>(played.bytes().find("mvhd")));
        EXPECT_THROW(video.durationUs(movie), Error);
    }
    auto const all = forms(clip(6000));
    for (auto const& photo : {all.front().photo, all.back().photo}) {
        TempFile const file(photo);
        auto const media = file.open("r");
        for (auto* const ask : {&MotionVideo::locate, &MotionVideo::scan}) {
            std::string const expected = textOf(ask(media));
            for (size_t n = 0; n < photo.size(); n += 37) { // every part of the file has its turn
                auto const fault = Fault::badSector(static_cast<off64_t>(n));
                try {
                    EXPECT_EQ(textOf(ask(media)), expected) << n;
                } catch (Error const& error) {
                    EXPECT_EQ(error.code(), Error::Code::READ_FAILED) << n << ": " << error.what();
                }
            }
        }
    }
}

TEST(MotionVideo, SaysWhyAClaimDoesNotHold) {
    std::string const movie = clip();
    std::string const size = std::to_string(movie.size());
    std::string const noMovie = heicBox("ftyp", "mp42" + bigEndian(0, 4)) + heicBox("mdat", "1234");
    for (auto const& [photo, expected] : std::vector<std::pair<std::string, std::string>>{
             {published(PRIMARY, ""), "directory damaged: GCamera:MotionPhoto is 1, and nothing says"},
             {published(PRIMARY, "", microVideo("")), "micro-video damaged: MicroVideoOffset is no distance"},
             {published(PRIMARY + videoItem(movie.size()), movie, "Camera:MotionPhoto=\"0\" "), "none none"},
             {published(PRIMARY, movie, microVideo(size, "0")), "none none"},
             {published(PRIMARY + videoItem(99'999), movie), "directory damaged: a video 99999 bytes from the end"},
             {published(PRIMARY + itemOf("MotionPhoto", "video/mp4"), movie),
              "directory damaged: the item MotionPhoto"},
             {published(PRIMARY + videoItem(movie.size() - 1), movie), "directory damaged: no movie begins"},
             {published(PRIMARY + videoItem(movie.size() + 2), movie + "xx"), "directory damaged: box header cut off"},
             {published(PRIMARY + videoItem(noMovie.size()), noMovie), "directory damaged: no 'moov'"},
             {JpegBuilder().build("scan", trailerBytes({{2608, "MotionPhoto_Data", pattern(200)}})),
              "trailer damaged: no movie begins"},
             {JpegBuilder().build("scan", trailerBytes({{2608, "V", "mpv2" + bigEndian(9, 4) + bigEndian(99, 4)}})),
              "trailer damaged: 99 bytes at 9 are claimed"},
             {JpegBuilder().build("scan", "QRTH" + little(0) + little(9) + little(12) + "QRTT"), "trailer damaged: "},
         })
        EXPECT_TRUE(textOf(locate(photo)).starts_with(expected)) << textOf(locate(photo)) << ", expected " << expected;
}

TEST(MotionVideo, ScanFindsAMovieThatNothingClaims) {
    std::string const movie = clip();
    std::string const stale = published(PRIMARY + videoItem(movie.size() + 7), "1234" + movie + "behind it");
    std::string const thumbnail = JpegBuilder().exif("II*" + movie).build("scan \xFF\xD0 more");
    for (auto const& photo : {JpegBuilder().build("scan", movie), stale, heicWith(movie)}) {
        auto const found = MotionVideo::scan(TempFile(photo).open("r"));
        EXPECT_EQ(textOf(found),
                  "scan sound " + std::to_string(photo.rfind("ftyp") - 4) + "+" + std::to_string(movie.size()));
    }
    std::string const autoPlay = JpegBuilder().build("scan", trailerBytes({{2611, "MotionPhoto_AutoPlay", movie}}));
    for (auto const& claimed : {thumbnail, autoPlay})
        EXPECT_EQ(textOf(MotionVideo::scan(TempFile(claimed).open("r"))), "none none");
    std::string const both = published(PRIMARY + videoItem(movie.size()), clip(9) + movie);
    EXPECT_EQ(MotionVideo::scan(TempFile(both).open("r")).size, clip(9).size());
    std::string const far = JpegBuilder().build("scan", pattern(1'048'570) + movie); // across two windows
    EXPECT_TRUE(MotionVideo::scan(TempFile(far).open("r")).isSound());
}

TEST(MotionVideo, FindsTheMoviesOfRealPhotosWhereAnotherReaderFindsThem) {
    std::string const folder = std::string(SHARED_DATA_DIR) + "/motionphoto/";
    if (!std::filesystem::exists(folder))
        GTEST_SKIP() << "no samples at " << folder;
    // Offsets and sizes as recorded with the samples.
    for (auto const& [name, expected] : std::vector<std::pair<char const*, char const*>>{
             {"motion_photo.jpeg", "directory sound 30821+122562"},
             {"motion_photo_still.jpeg", "directory damaged: a video 122562 bytes from the end is claimed of a file of "
                                         "30821"},
             {"pixel-motion-photo-shortened.jpg", "directory sound 131582+8730"},
             {"sample_MP.heic", "box sound 28869+28803"},
             {"sample_still_photo.heic", "none none"},
             {"synthetic/grid_mpvd32.heic", "box sound 9288+28118"},
             {"synthetic/grid_mpvd32_no_xmp.heic", "box sound 6709+28118"},
             {"synthetic/grid_mpvd64.heic", "box sound 9297+28118"},
             {"synthetic/jpeg_microvideo_legacy.jpg", "micro-video sound 3958+28118"},
             {"synthetic/jpeg_motionphoto_v1.jpg", "directory sound 4414+28118"},
             {"synthetic/jpeg_motionphoto_v1_padding24.jpg", "directory sound 4439+28118"},
             {"synthetic/jpeg_video_appended_no_xmp.jpg", "none none"},
             {"synthetic/ultrahdr_plus_motionphoto.jpg", "directory sound 118175+28118"},
         })
        EXPECT_EQ(textOf(MotionVideo::locate(test::open(folder + name, "r"))), expected) << name;
    auto const orphan = MotionVideo::scan(test::open(folder + "synthetic/jpeg_video_appended_no_xmp.jpg", "r"));
    EXPECT_EQ(textOf(orphan), "scan sound 3578+28118");
}

} // namespace android::lumo::test
