// SPDX-License-Identifier: Apache-2.0
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/NuMediaExtractor.h>

#include "support/HeicBuilder.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace android {
namespace {

constexpr auto& big = lumo::test::bigEndian;
constexpr auto& box = lumo::test::heicBox;
constexpr auto& fullBox = lumo::test::heicFullBox;
auto const zeros = [](size_t count) { return std::string(count, '\0'); };
std::string const kDamaged = std::to_string(ERROR_UNSUPPORTED);

std::string timing(char const* type, uint32_t ticks) { // 1000 a second
    return fullBox(type, 0, 0, zeros(8) + big(1000, 4) + big(ticks, 4) + zeros(80));
}

struct Movie {
    std::string entry = box("avc1", zeros(78)), handler = "vide", time = timing("mdhd", 2000), more = {}, edits = {};
    uint32_t movieTicks = 5000;

    std::string bytes() const {
        std::string const table = box("minf", box("stbl", fullBox("stsd", 0, 0, big(1, 4) + entry)));
        std::string const kind = fullBox("hdlr", 0, 0, zeros(4) + handler + zeros(13));
        std::string const track = box("trak", edits + box("mdia", time + kind + table));
        return box("ftyp", "mp42" + zeros(4)) + box("moov", timing("mvhd", movieTicks) + track + more);
    }
};

/// "mime@durationUs" of every track ("-" for no duration), or the status.
std::string tracksIn(int fd, off64_t offset = 0, off64_t size = INT64_MAX) {
    sp<NuMediaExtractor> const extractor(new NuMediaExtractor(NuMediaExtractor::EntryPoint::OTHER));
    if (status_t const status = extractor->setDataSource(fd, offset, size); status != OK)
        return extractor->countTracks() == 0 ? std::to_string(status) : "an error that left tracks";
    std::string out;
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        sp<AMessage> format;
        AString mime;
        EXPECT_TRUE(extractor->getTrackFormat(i, &format) == OK && format->findString("mime", &mime));
        int64_t us = 0;
        bool const isKnown = format->findInt64("durationUs", &us);
        out += (i == 0 ? "" : " ") + std::string(mime.c_str()) + "@" + (isKnown ? std::to_string(us) : "-");
    }
    return out;
}

int fileOf(std::string const& content) {
    int const fd = memfd_create("media", 0);
    EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    return fd;
}

TEST(Extractor, AnswersAsAnotherReaderDoesForRealClips) {
    std::pair<char const*, char const*> const clips[] = {
        {SAMPLES_DIR "/clip.mp4", "video/avc@2500000 audio/mp4a-latm@2500000"},
        {SHARED_DATA_DIR "/mp4/ed_hevc.mp4", "video/hevc@1120000 audio/mp4a-latm@1000000"},
        {SHARED_DATA_DIR "/mp4/fixture-imovie.mp4", "audio/mp4a-latm@41959 video/avc@66655"},
        {SHARED_DATA_DIR "/mp4/fixture.mov", "video/avc@99000"},
        {SHARED_DATA_DIR "/mp4/sample_no_bframes.mp4", "audio/mp4a-latm@1044900 video/avc@1001000"},
        {SHARED_DATA_DIR "/mp4/synthetic/qt_hevc_aac_2s_big.mov", "video/hevc@3000000 audio/mp4a-latm@3000000"},
    };
    for (auto const& [name, tracks] : clips) {
        int const fd = open(name, O_RDONLY);
        EXPECT_TRUE(fd < 0 ? name != clips[0].first : tracksIn(fd) == tracks) << name;
    }
    std::map<std::string, std::string> const mimes{
        {"h264", "video/avc"}, {"hevc", "video/hevc"}, {"aac", "audio/mp4a-latm"}};
    if (std::system("ffprobe -version > /dev/null 2>&1") != 0 || !std::filesystem::exists(SHARED_DATA_DIR "/mp4"))
        return; // no second opinion, or no clips of others
    for (auto const& entry : std::filesystem::recursive_directory_iterator(SHARED_DATA_DIR "/mp4")) {
        auto const& path = entry.path();
        if (path.extension() != ".mp4" && path.extension() != ".mov")
            continue;
        // One track a line: "h264,2.500000".
        std::string const show = "ffprobe -v error -show_entries stream=codec_name,duration -of csv=p=0 ";
        std::unique_ptr<FILE, int (*)(FILE*)> const peer(popen((show + "'" + path.string() + "'").c_str(), "r"),
                                                         pclose);
        std::istringstream ours(tracksIn(open(path.c_str(), O_RDONLY)));
        // What cuts inside a picture it counts by pictures, we as the file says; it rounds twice.
        double const close = path.filename() == "ed_hevc.mp4" ? 0.041 : 0.000'002;
        char codec[16], mime[32];
        double seconds = 0, us = 0;
        size_t tracks = 0;
        for (; std::fscanf(peer.get(), "%15[^,],%lf ", codec, &seconds) == 2; ++tracks) {
            std::string track;
            ours >> track;
            ASSERT_EQ(std::sscanf(track.c_str(), "%31[^@]@%lf", mime, &us), 2) << path;
            EXPECT_EQ(std::string(mime), mimes.at(codec)) << path;
            EXPECT_NEAR(us / 1e6, seconds, close) << path;
        }
        EXPECT_TRUE(tracks > 0 && (ours >> std::ws).eof()) << path;
    }
}

TEST(Extractor, NamesTracksAsThePlatformDoesAndRefusesDamage) {
    auto const sound = [](char const* type, std::string const& inside, unsigned version = 0, size_t more = 0) {
        return Movie{.entry = box(type, zeros(8) + big(version, 2) + zeros(18 + more) + inside), .handler = "soun"};
    };
    auto const picture = [](char const* type, std::string const& in) { return Movie{box(type, zeros(78) + in)}; };
    auto const timed = [](std::string const& time, uint32_t movie) { return Movie{.time = time, .movieTicks = movie}; };
    auto const with = [](std::string const& more) { return Movie{.more = more}; };
    auto const edited = [](uint32_t count) { // of one tick each
        std::string list;
        for (uint32_t i = 0; i < count; ++i)
            list += big(1, 4) + zeros(8);
        return Movie{.edits = box("edts", fullBox("elst", 0, 0, big(count, 4) + list))};
    };
    std::string const mp3 = fullBox("esds", 0, 0, "\x03\x80\x10" + zeros(2) + "\x60\x01t" + zeros(2) + "\x04\x0D\x6B");
    std::string const huge = fullBox("mdhd", 1, 0, zeros(16) + big(1, 4) + big(1ULL << 62, 8));
    Movie fragments{
        .time = timing("mdhd", 0), .more = box("mvex", fullBox("mehd", 1, 0, big(9000, 8))), .movieTicks = 0};
    std::string many;
    while (many.size() < 1'600'000)
        many += box("free", {});
    std::pair<Movie, std::string> const cases[] = {
        {picture("hev1", {}), "video/hevc@2000000"},
        {picture("raw ", {}), "video/raw@2000000"},
        {picture("encv", box("sinf", box("frma", "vp09"))), "video/x-vnd.on2.vp9@2000000"},
        {sound("mp4a", mp3), "audio/mpeg@2000000"},
        {sound("mp4a", box("wave", mp3), 1, 16), "audio/mpeg@2000000"}, // QuickTime's forms
        {sound("mp4a", mp3, 2, 36), "audio/mpeg@2000000"},
        {{.entry = box("mebx", zeros(8)), .handler = "meta"}, "application/octet-stream@2000000"},
        {timed(timing("mdhd", 0), 5000), "video/avc@5000000"}, // the movie's duration stands in
        {timed(timing("mdhd", UINT32_MAX), 5000), "video/avc@5000000"},
        {timed(timing("mdhd", 0), 0), "video/avc@-"},
        {timed(huge, 5000), "video/avc@5000000"},
        {fragments, "video/avc@9000000"},
        {edited(300), "video/avc@300000"},
        {edited(400), "video/avc@2000000"},    // more than is read
        {with(zeros(4)), "video/avc@2000000"}, // as QuickTime closes lists
        {with(many), kDamaged},
        {with(box("trak", {})), kDamaged},
        {timed(fullBox("mdhd", 0, 0, zeros(8)), 0), kDamaged},
        {{.entry = {}}, kDamaged},
        {{.entry = box("avc1", zeros(77))}, kDamaged},
        {sound("mp4a", fullBox("esds", 0, 0, "\x03\x10" + zeros(2) + "\x40\xFF")), kDamaged},
    };
    for (auto const& [movie, tracks] : cases)
        EXPECT_EQ(tracksIn(fileOf(movie.bytes())), tracks) << &tracks - &cases[0].second;
}

TEST(Extractor, ReadsItsWindowAloneAndTellsWhatTheSystemRefuses) {
    // Both neighbours are whole, valid movies that would be taken if the window leaked.
    std::string const other = Movie{.time = timing("mdhd", 7000)}.bytes(), middle = Movie{}.bytes();
    int const fd = fileOf(other + middle + other);
    auto const at = static_cast<off64_t>(other.size()), size = static_cast<off64_t>(middle.size());
    EXPECT_EQ(tracksIn(fd, at, size), "video/avc@2000000");
    EXPECT_EQ(tracksIn(fd, at + size), "video/avc@7000000"); // as far as the file goes
    for (off64_t cut = 0; cut < size; ++cut)
        EXPECT_EQ(tracksIn(fd, at, cut), kDamaged) << cut;
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 3 * size); // where writing left it
    EXPECT_EQ(tracksIn(open(("/proc/self/fd/" + std::to_string(fd)).c_str(), O_WRONLY)), std::to_string(-EBADF));
    for (off64_t const offset : {off64_t{-1}, 3 * size + 1})
        EXPECT_EQ(tracksIn(fd, offset, 1), std::to_string(BAD_VALUE));
}

} // namespace
} // namespace android
