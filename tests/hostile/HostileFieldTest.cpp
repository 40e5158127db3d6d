// SPDX-License-Identifier: Apache-2.0
#include "FuzzSupport.h"
#include "io/ImageMetaWriter.h"
#include "support/Attempt.h"
#include "support/Memory.h"
#include "support/PhotoParts.h"
#include "support/TempFile.h"
#include "xmp/XMPFixture.h"

#include <ctime>
#include <functional>
#include <set>

namespace android::lumo::test {
namespace {

constexpr size_t SPARE_MEMORY = 16 * 1024 * 1024;
constexpr double SPARE_SECONDS = 5; ///< of processor time; for a whole file of a few KB, emulated as well

/// A length, count or offset somewhere in a file.
struct Field {
    size_t at;
    unsigned width;
    bool isBig;
    uint64_t header; ///< of the thing whose length it is
};

struct Sample {
    char const* name;
    std::string bytes;
    std::vector<Field> fields;
};

// Where the numbers stand. --------------------------------------------------------------------------------------------

void addTrailerFields(std::string const& file, std::vector<Field>& fields) {
    auto const add = [&](size_t at, uint64_t header) { fields.push_back({at, 4, false, header}); };
    size_t const tail = file.rfind("QRTH");
    add(file.size() - 8, 12);
    add(tail + 8, 1);
    for (uint32_t i = 0; i < littleAt(file, tail + 8); ++i) {
        size_t const entry = tail + 12 + 12 * i;
        size_t const record = tail - littleAt(file, entry + 4);
        add(entry, 0);
        add(entry + 4, 8);
        add(entry + 8, 8);
        add(record, 0);
        add(record + 4, 1);
        add(record + 8, 1); // the sub-info's length, or the name
    }
    size_t const pointer = file.find("mpv2");
    fields.push_back({pointer + 4, 4, true, 8});
    fields.push_back({pointer + 8, 4, true, 8});
}

/// Sizes of all boxes, down into the containers; in the tables of 'meta' every two and four bytes may be a number.
void addBoxFields(std::string const& file, size_t begin, size_t end, std::vector<Field>& fields) {
    static std::map<std::string, size_t> const containers{{"meta", 12}, {"iprp", 8},  {"ipco", 8},
                                                          {"iinf", 14}, {"iref", 12}, {"grpl", 8}};
    static std::set<std::string> const tables{"iloc", "iinf", "infe", "iref", "pitm",
                                              "ipma", "dimg", "cdsc", "thmb", "ispe"};
    for (auto const& box : boxesIn(file, begin, end)) {
        fields.push_back({box.start, 4, true, 8});
        if (box.content == box.start + 16)
            fields.push_back({box.start + 8, 8, true, 16});
        for (size_t at = box.content; tables.contains(box.type) && at + 4 <= box.end; at += 2) {
            fields.push_back({at, 2, true, 1});
            fields.push_back({at, 4, true, 1});
            if (box.type == "iloc" && at + 8 <= box.end)
                fields.push_back({at, 8, true, 1});
        }
        if (auto const found = containers.find(box.type); found != containers.end())
            addBoxFields(file, box.start + found->second, box.end, fields);
    }
}

std::string motionTrailer(size_t videoAt, size_t videoSize) {
    return trailerBytes({videoRecord(pointerTo(videoAt, videoSize)),
                         {2609, "MotionPhoto_Version", "mpv3"},
                         {2817, "Other", pattern(40), "sub-info"}});
}

Sample jpegSample() {
    std::string const video = videoOf(300);
    std::string const still = JpegBuilder().exif().xmp(heicXmp("jpeg"), 1280).segment(0xE2, "ICC").build("scan", video);
    Sample sample{"JPEG", still + motionTrailer(still.size() - video.size(), video.size()), {}};
    for (auto const& segment : segmentsOf(still))
        sample.fields.push_back({segment.position + 2, 2, true, 2});
    addTrailerFields(sample.bytes, sample.fields);
    return sample;
}

Sample heicSample(char const* name, HeicOptions const& options, bool wideVideo = false) {
    std::string const image = buildHeic(options);
    std::string const video = videoOf(300);
    size_t const header = wideVideo ? 16 : 8;
    std::string const box =
        wideVideo ? bigEndian(1, 4) + "mpvd" + bigEndian(video.size() + 16, 8) + video : heicBox("mpvd", video);
    Sample sample{name, image + box + qrtdBox(motionTrailer(image.size() + header, video.size())), {}};
    addBoxFields(sample.bytes, 0, sample.bytes.size(), sample.fields);
    addTrailerFields(sample.bytes, sample.fields);
    return sample;
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
void examine(std::string const& bytes, bool isWhole = true) {
    using namespace fuzz;
    size_t const before = heldBytes();
    takeMostBytes();
    std::clock_t const start = std::clock();
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
    EXPECT_LE(takeMostBytes() - before, 4 * bytes.size() + SPARE_MEMORY);
    EXPECT_LE(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, SPARE_SECONDS);
}

/// As they stand in the field, each once; of a table's numbers only the outermost.
std::set<std::string> hostileValues(Field const& field, size_t fileSize) {
    uint64_t const left = fileSize - field.at, top = uint64_t{1} << (field.width * 8 - 1);
    std::vector<uint64_t> values{0, 1, left + 1, top, UINT64_MAX};
    if (field.header > 1)
        values.insert(values.end(), {field.header - 1, left, top - 1, top + 1, 0x7FFFFFFF, 0x80000000, UINT32_MAX});
    std::set<std::string> numbers;
    for (uint64_t const value : values) {
        std::string number = bigEndian(value, field.width);
        if (!field.isBig)
            std::reverse(number.begin(), number.end());
        numbers.insert(number);
    }
    return numbers;
}

TEST(HostileField, EveryNumberOfEveryFormatGivesAnErrorOrASensibleResult) {
    for (auto const& sample : samples()) {
        examine(sample.bytes);
        for (auto const& field : sample.fields) {
            for (std::string const& value : hostileValues(field, sample.bytes.size())) {
                std::string bytes = sample.bytes;
                bytes.replace(field.at, field.width, value);
                SCOPED_TRACE(std::string(sample.name) + ": " + testing::PrintToString(value) + " at " +
                             std::to_string(field.at) + ", in front of " + sample.bytes.substr(field.at, 12));
                if (bytes != sample.bytes)
                    examine(bytes);
            }
        }
    }
}

TEST(HostileField, TruncationsGiveAnErrorOrASensibleResult) {
    for (auto const& sample : samples()) {
        for (size_t size = 0; size < sample.bytes.size(); size += 3) {
            SCOPED_TRACE(std::string(sample.name) + " cut at " + std::to_string(size));
            examine(sample.bytes.substr(0, size), false);
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
