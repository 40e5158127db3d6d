#include <media/stagefright/NuMediaExtractor.h>

#include "WindowInput.h"
#include "support/HeicBuilder.h"

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

extern "C" {
#include <libavformat/avio.h>
}

namespace android {
namespace {

constexpr auto& big = lumo::test::bigEndian;
constexpr auto& box = lumo::test::heicBox;

/// A file in memory that knows its descriptor.
class MemoryFile {
public:
    explicit MemoryFile(std::string const& content) : fd(memfd_create("media", 0)) {
        EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    }
    ~MemoryFile() { close(fd); }
    MemoryFile(MemoryFile const&) = delete;
    MemoryFile& operator=(MemoryFile const&) = delete;

    int const fd;
};

/// Numbers of 32 bits.
std::string words(std::initializer_list<uint32_t> values) {
    std::string out;
    for (uint32_t const value : values)
        out += big(value, 4);
    return out;
}

std::string fullBox(char const* type, std::string const& body) {
    return lumo::test::heicFullBox(type, 0, 0, body);
}

struct Movie {
    char const* entry = "avc1";
    char const* handler = "vide";
    uint32_t ticks = 2000, movieTicks = 5000; // 1000 a second
    std::string inEntry = {}, inTable = {}, inMovie = {}, behind = {};
};

/// An MP4 file with the headers of one track and no samples.
std::string movieOf(Movie const& m) {
    std::string const zeros(80, '\0');
    size_t const fields = m.handler == std::string("soun") ? 28 : 78;
    std::string const entry = box(m.entry, zeros.substr(0, 6) + big(1, 2) + zeros.substr(8, fields - 8) + m.inEntry);
    std::string const table = box("stbl", fullBox("stsd", big(1, 4) + entry) + m.inTable);
    std::string const header = fullBox("mdhd", words({0, 0, 1000, m.ticks, 0}));
    std::string const handler = fullBox("hdlr", big(0, 4) + m.handler + zeros.substr(0, 13));
    std::string const movie = fullBox("mvhd", words({0, 0, 1000, m.movieTicks}) + zeros);
    std::string const track = fullBox("tkhd", words({0, 0, 1}) + zeros.substr(0, 68));
    return box("ftyp", "mp42" + big(0, 4) + "mp42") +
           box("moov", movie + box("trak", track + box("mdia", header + handler + box("minf", table))) + m.inMovie) +
           m.behind;
}

/// An audio entry's description, which tells that the samples are MP3.
std::string const kElementaryStream =
    fullBox("esds", big(0x0315, 2) + big(1, 3) + big(0x040d6b, 3) + std::string(12, '\0') + big(0x060102, 3));

std::string clip() {
    std::ifstream in(SAMPLES_DIR "/clip.mp4", std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// "mime@durationUs" of every track ("-" for no duration), or "error".
std::string tracksOf(int fd, off64_t offset, off64_t size) {
    sp<NuMediaExtractor> const extractor(new NuMediaExtractor(NuMediaExtractor::EntryPoint::OTHER));
    if (extractor->setDataSource(fd, offset, size) != OK)
        return extractor->countTracks() == 0 ? "error" : "an error that left tracks";
    std::string out;
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        sp<AMessage> format;
        AString mime;
        EXPECT_EQ(extractor->getTrackFormat(i, &format), OK);
        EXPECT_TRUE(format->findString("mime", &mime));
        int64_t us = 0;
        out.append(i == 0 ? "" : " ").append(mime.c_str()).append("@");
        out += format->findInt64("durationUs", &us) ? std::to_string(us) : "-";
    }
    return out;
}

std::string tracksOf(std::string const& content) {
    MemoryFile const file(content);
    return tracksOf(file.fd, 0, static_cast<off64_t>(content.size()));
}

constexpr char kClipTracks[] = "video/avc@2500000 audio/mp4a-latm@2523220"; // 44.1 kHz: with the encoder's delay

TEST(Extractor, ReadsItsWindowAloneWhenOtherMediaLieAround) {
    // Both neighbours are whole, valid movies that would be taken if the window leaked.
    std::string const other = movieOf({.entry = "hvc1", .ticks = 7000});
    std::string const middle = clip();
    MemoryFile const file(other + middle + other);
    auto const at = static_cast<off64_t>(other.size());
    auto const size = static_cast<off64_t>(middle.size());
    lseek(file.fd, 5, SEEK_SET);

    EXPECT_EQ(tracksOf(file.fd, at, size), kClipTracks);
    EXPECT_EQ(tracksOf(file.fd, at + size, INT64_MAX), "video/hevc@7000000"); // as far as the file goes
    EXPECT_EQ(tracksOf(file.fd, at, size / 2), "error");                      // its movie box lies behind
    EXPECT_EQ(tracksOf(file.fd, at + 1, size - 1), "error");
    EXPECT_EQ(lseek(file.fd, 0, SEEK_CUR), 5);
}

TEST(Extractor, NamesTracksAsThePlatformDoes) {
    struct {
        Movie movie;
        char const* tracks;
    } const cases[] = {
        {{.entry = "hev1"}, "video/hevc@2000000"},
        {{.entry = "dvh9"}, "video/x-unknown@2000000"},
        {{.entry = "Opus", .handler = "soun"}, "audio/opus@2000000"},
        {{.entry = "sowt", .handler = "soun"}, "audio/raw@2000000"},
        {{.entry = "mett", .handler = "meta"}, "application/octet-stream@2000000"},
        {{.ticks = 0}, "video/avc@5000000"},          // the movie's duration stands in
        {{.ticks = UINT32_MAX}, "video/avc@5000000"}, // "unknown"
        {{.ticks = 0, .movieTicks = 0}, "video/avc@-"},
    };
    for (auto const& [movie, tracks] : cases)
        EXPECT_EQ(tracksOf(movieOf(movie)), tracks) << movie.entry;
}

TEST(Extractor, AnswersMisuseWithAStatusAndNoTracks) {
    std::string const content = clip();
    MemoryFile const file(content);
    auto const size = static_cast<off64_t>(content.size());
    sp<NuMediaExtractor> const extractor(new NuMediaExtractor(NuMediaExtractor::EntryPoint::OTHER));
    sp<AMessage> format(new AMessage);
    EXPECT_EQ(extractor->getTrackFormat(0, &format), BAD_VALUE);
    EXPECT_EQ(format, nullptr);
    EXPECT_EQ(extractor->setDataSource(-1, 0, size), -EBADF);
    for (off64_t const offset : {off64_t{-1}, size + 1})
        EXPECT_EQ(extractor->setDataSource(file.fd, offset, 1), BAD_VALUE);
    EXPECT_NE(extractor->setDataSource(file.fd, size, 0), OK);
    EXPECT_EQ(extractor->setDataSource(file.fd, 0, size), OK); // the failures left it fresh
    EXPECT_EQ(extractor->setDataSource(file.fd, 0, size), BAD_VALUE);
    EXPECT_EQ(extractor->getTrackFormat(2, &format), -ERANGE);
}

TEST(Extractor, AnswersWithTracksOrAnErrorWhenHeadersAreCutOrCorrupt) {
    std::string const whole = movieOf({.entry = "mp4a", .handler = "soun", .inEntry = kElementaryStream});
    ASSERT_EQ(tracksOf(whole), "audio/mpeg@2000000");
    int errors = 0;
    for (size_t at = 0; at < whole.size(); ++at) {
        EXPECT_EQ(tracksOf(whole.substr(0, at)), "error") << at;
        for (char value : {'\0', '\1', '\x7f', '\xff'}) {
            std::string damaged = whole;
            damaged[at] = value;
            std::string const found = tracksOf(damaged);
            EXPECT_NE(found, "an error that left tracks") << at;
            errors += found == "error";
        }
    }
    EXPECT_GT(errors, 50); // the damage does reach the demuxer
}

TEST(Extractor, StaysSmallWhenAFewBytesPromiseMillionsOfSamples) {
    constexpr uint32_t kMany = 60'000'000;
    std::string const tables = fullBox("stts", words({1, kMany, 1000})) + fullBox("stsz", words({2, kMany})) +
                               fullBox("stsc", words({1, 1, kMany, 1})) + fullBox("stco", words({1, 0}));
    std::string const lies[] = {
        movieOf({.inTable = tables}),
        movieOf({.inEntry = tables}), // where no table belongs, but the demuxer finds it
        movieOf({.inMovie = box("mvex", fullBox("trex", words({1, 1, 1, 1, 0}))),
                 .behind = box("moof", box("traf", fullBox("tfhd", words({1})) + fullBox("trun", words({kMany}))))}),
    };
    rusage before = {}, after = {};
    getrusage(RUSAGE_SELF, &before);
    for (std::string const& lie : lies)
        EXPECT_EQ(tracksOf(lie), "video/avc@2000000");
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024) << "KiB";
}

TEST(Extractor, BlanksUnneededBoxesAcrossTheEdgesOfItsReads) {
    for (size_t shift = 0; shift < 4; ++shift) { // reads end in front of a code and after 1, 2, 3 of its bytes
        std::string content(shift, 'x');
        while (content.size() < 100'000)
            content += "trunstsz";
        MemoryFile const file(content);
        media::WindowInput input(file.fd, 0, static_cast<off64_t>(content.size()));
        std::vector<unsigned char> seen(content.size());
        ASSERT_EQ(avio_read(input.context(), seen.data(), static_cast<int>(seen.size())),
                  static_cast<int>(seen.size()));
        EXPECT_EQ(static_cast<size_t>(std::ranges::count(seen, 0)), content.size() - shift) << shift;
    }
}

} // namespace
} // namespace android
