// SPDX-License-Identifier: Apache-2.0
#include "FuzzSupport.h"
#include "io/ImageMetaWriter.h"
#include "support/Attempt.h"
#include "support/Memory.h"
#include "support/PhotoParts.h"
#include "support/TempFile.h"
#include "support/Time.h"
#include "xmp/XMPFixture.h"

#include <set>

namespace android::lumo::test {
namespace {

constexpr size_t SPARE_MEMORY = 16 * 1024 * 1024;

using Sample = std::pair<char const*, std::string>; ///< its name and bytes

std::string motionTrailer(size_t videoAt, size_t videoSize) {
    return trailerBytes({videoRecord(pointerTo(videoAt, videoSize)),
                         {2609, "MotionPhoto_Version", "mpv3"},
                         {2817, "Other", pattern(40), "sub-info"}});
}

Sample jpegSample() {
    std::string const video = videoOf(300);
    std::string const still = JpegBuilder().exif().xmp(heicXmp("jpeg"), 1280).segment(0xE2, "ICC").build("scan", video);
    return {"JPEG", still + motionTrailer(still.size() - video.size(), video.size())};
}

Sample heicSample(char const* name, HeicOptions const& options, bool wideVideo = false) {
    std::string const image = buildHeic(options), video = videoOf(300), box = videoBox(video, wideVideo);
    return {name, image + box + qrtdBox(motionTrailer(image.size() + box.size() - video.size(), video.size()))};
}

std::vector<Sample> samples() {
    HeicOptions const wide{.rows = 1,
                           .columns = 1,
                           .thumbnail = true,
                           .groups = true,
                           .xmp = heicXmp("wide", 1500),
                           .ilocVersion = 2,
                           .fieldWidth = 8,
                           .indexWidth = 4,
                           .primaryId = 70'000,
                           .mdat = HeicOptions::Mdat::Wide};
    return {jpegSample(), heicSample("HEIC", {.rows = 1, .xmp = heicXmp("heic", 1500), .baseOffset = true}),
            heicSample("HEIC without XMP", {.grid = false, .exif = false, .ilocVersion = 0}),
            heicSample("wide HEIC", wide, true)};
}

// What is tried with each file. ---------------------------------------------------------------------------------------

/// Whatever the bytes are, all of it ends well or in an error that has changed nothing.
void tryEverything(std::string const& bytes, bool isWhole) {
    using namespace fuzz;
    try {
        MemoryFile still(bytes);
        askEverything(still);
        editVideo(still, VideoEdit::Add);
        still.assign(bytes);
        if (isWhole)
            editVideo(still, VideoEdit::Remove);
        std::vector<unsigned char> const data(99, 'd');
        for (auto const& write : std::initializer_list<std::function<void(ImageMetaWriter&)>>{
                 [&](auto& writer) { writer.writeCameraDebugInfo(data); },
                 [](auto& writer) { writer.removeCameraDebugInfo(); }, [](auto& writer) { writer.reserveXMP(2000); }}) {
            still.assign(bytes);
            bool const isDone = goesThrough([&] { write(*ImageMetaWriter::of(still.open())); });
            EXPECT_TRUE(isDone || !isWhole || still.bytes() == bytes) << "changed by a refusal";
        }
    } catch (std::logic_error const& error) {
        ADD_FAILURE() << error.what();
    }
}

/// The same, in memory and time as such a file may take.
void examine(std::string const& bytes, bool isWhole = true) {
    static auto const longest = 100 * timeOf([] { tryEverything(jpegSample().second, true); });
    size_t const before = heldBytes();
    takeMostBytes();
    EXPECT_TRUE(takesLess(longest, [&] { tryEverything(bytes, isWhole); }));
    EXPECT_LE(takeMostBytes() - before, 4 * bytes.size() + SPARE_MEMORY);
}

std::string inOrder(std::string number, bool isBig) {
    if (!isBig)
        std::reverse(number.begin(), number.end());
    return number;
}

/// Lengths, counts and offsets are taken to be wherever bytes, read as a number, say something that lies in the file.
/// Little-endian numbers are the trailer's; the lower half of a number is not tried again by itself.
TEST(HostileField, EveryNumberOfEveryFormatGivesAnErrorOrASensibleResult) {
    for (auto const& [name, sample] : samples()) {
        size_t const trailer = sample.rfind(videoOf(300)) + 300;
        std::set<std::string> tried{sample};
        examine(sample);
        for (auto const& [width, isBig] : {std::pair(2U, true), {4U, true}, {4U, false}, {8U, true}}) {
            uint64_t const top = uint64_t{1} << (width * 8 - 1);
            for (size_t at = isBig ? 0 : trailer; at + width <= sample.size(); ++at) {
                std::string const number = inOrder(sample.substr(at, width), isBig);
                bool const isHalf = width == 2 && at >= 2 && sample.substr(at - 2, 2) == bigEndian(0, 2);
                if (isHalf || number > bigEndian(sample.size(), width) || number == bigEndian(0, width))
                    continue;
                uint64_t const left = sample.size() - at;
                std::vector<uint64_t> values{0, 7, left, left + 1, UINT64_MAX};
                if (width > 2)
                    values.insert(values.end(), {top - 1, top});
                for (uint64_t const value : values) {
                    SCOPED_TRACE(std::string(name) + ": " + std::to_string(value) + " at " + std::to_string(at));
                    std::string bytes = sample;
                    if (tried.insert(bytes.replace(at, width, inOrder(bigEndian(value, width), isBig))).second)
                        examine(bytes);
                }
            }
        }
    }
}

TEST(HostileField, TruncationsGiveAnErrorOrASensibleResult) {
    for (auto const& sample : samples()) {
        for (size_t size = 0; size < sample.second.size(); size += 3) {
            SCOPED_TRACE(std::string(sample.first) + " cut at " + std::to_string(size));
            examine(sample.second.substr(0, size), false);
        }
    }
}

TEST(HostileField, NumbersInXmpAreNoPositions) {
    for (char const* number : {"-1", "0", "4294967295", "99999999999999999999", "x"}) {
        SCOPED_TRACE(number);
        auto const is = [&](char const* name) { return std::string(name) + "=\"" + number + "\" "; };
        auto const packet =
            packetOf(is("Camera:MotionPhoto") + is("Camera:MotionPhotoPresentationTimestampUs"),
                     directoryOf(itemOf("MotionPhoto", "video/mp4", is("Item:Length") + is("Item:Padding"))));
        examine(JpegBuilder().exif().xmp(packet).build());
        examine(buildHeic({.xmp = packet}));
    }
}

TEST(CorruptSamples, GiveAnErrorOrASensibleResult) {
    std::filesystem::path const folder = SHARED_DATA_DIR "/corrupt";
    if (!std::filesystem::exists(folder))
        GTEST_SKIP() << "no " << folder;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(folder)) {
        SCOPED_TRACE(entry.path().string());
        if (!entry.is_regular_file())
            continue;
        std::string const bytes = bytesOf(entry.path());
        std::string const still = JpegBuilder().exif().build();
        examine(bytes);
        examine(still + bytes + motionTrailer(still.size(), bytes.size())); // as the video of a still
    }
}

} // namespace
} // namespace android::lumo::test
