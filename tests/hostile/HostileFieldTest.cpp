#include "MotionPhotoEdit.h"
#include "hboxd.h"
#include "io/HEIFMetaReader.h"
#include "io/ImageMetaReader.h"
#include "io/ImageMetaWriter.h"
#include "support/Attempt.h"
#include "support/JpegBuilder.h"
#include "support/Memory.h"
#include "support/TrailerBuilder.h"

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

bool isContainer(std::string_view type) {
    for (char const* container : {"meta", "iprp", "ipco", "iinf", "iref", "grpl"}) {
        if (type == container)
            return true;
    }
    return false;
}

/// Sizes of all boxes, down into the containers; in the tables of 'meta' every two and four bytes may be a number.
void addBoxFields(std::string const& file, size_t begin, size_t end, std::vector<Field>& fields) {
    for (size_t at = begin; at + 8 <= end;) {
        size_t size = __builtin_bswap32(littleAt(file, at));
        bool const isWide = size == 1;
        if (isWide)
            size = __builtin_bswap32(littleAt(file, at + 12));
        std::string const type = file.substr(at + 4, 4);
        fields.push_back({at, 4, true, 8});
        if (isWide)
            fields.push_back({at + 8, 8, true, 16});
        bool const isTable = type == "iloc" || type == "iinf" || type == "infe" || type == "iref" || type == "pitm" ||
                             type == "ipma" || type == "dimg" || type == "cdsc" || type == "thmb" || type == "ispe";
        for (size_t number = at + 8; isTable && number + 4 <= at + size; number += 2) {
            fields.push_back({number, 2, true, 1});
            fields.push_back({number, 4, true, 1});
            if (type == "iloc" && number + 8 <= at + size)
                fields.push_back({number, 8, true, 1});
        }
        size_t const head = type == "iinf" ? 14 : type == "iprp" || type == "ipco" ? 8 : 12;
        if (isContainer(type))
            addBoxFields(file, at + head, at + size, fields);
        at += size == 0 ? end : size;
    }
}

std::string motionTrailer(size_t videoAt, size_t videoSize) {
    return trailerBytes({{2608, "MotionPhoto_Data", "mpv2" + bigEndian(videoAt, 4) + bigEndian(videoSize, 4)},
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

class Examination {
public:
    /// Whatever the bytes are, all of it ends well or in an error.
    void examine(std::string const& bytes, bool isWhole = true) {
        size_t const before = heldBytes();
        takeMostBytes();
        std::clock_t const start = std::clock();
        writeBytes(still, bytes);
        query();
        edit(bytes, isWhole);
        EXPECT_LE(takeMostBytes() - before, 4 * bytes.size() + SPARE_MEMORY);
        EXPECT_LE(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, SPARE_SECONDS);
    }

private:
    void query() const {
        auto const file = test::open(still, "r");
        returns([&] { ImageMetaReader::of(file, ParseMode::EAGER)->getExif(); });
        returns([&] { ImageMetaReader::of(file, ParseMode::LAZY)->getCameraDebugInfo(); });
        returns([&] { XMPInfo::parse(file)->serializeToBuffer(); });
        returns([&] {
            HEIFMetaReader reader(file, ParseMode::LAZY);
            std::vector<uint8_t> frame;
            auto const cover = reader.getCoverImageId();
            returns([&] { reader.getThumbnailImageInfo(cover); });
            for (auto const id : reader.getItemIds(cover, 16))
                returns([&] { reader.getImageFrame(static_cast<int>(id), frame, 1 << 20); });
        });
        returns([&] {
            auto const trailer = QRTInfo::parse(file);
            for (auto const& record : trailer->getRecords())
                returns([&] { trailer->getData(record.type, record.name); });
        });
        returns([&] {
            auto const photo = MotionPhotoInfo::parse(file);
            for (auto const& ask : std::initializer_list<std::function<void()>>{
                     [&] { photo->isValid(); }, [&] { photo->getVideo(); }, [&] { photo->getVideoDurationUs(); },
                     [&] { photo->getVideo(target); }, [&] { photo->getExtraInfo(); },
                     [&] { photo->getImageVideoPadding(); }})
                returns(ask);
        });
    }

    /// In place a refusal changes nothing; into a target it changes the target alone.
    void edit(std::string const& bytes, bool isWhole) {
        auto const removed = [](auto& editor) { editor.removeVideo(nullptr); };
        auto const added = [&](auto& editor) { editor.addVideo(test::open(video, "r")); };
        bool const canAdd = commits(added, true);
        EXPECT_TRUE(bytesOf(still) == bytes) << "source touched";
        if (canAdd)
            expectVideo(target);
        if (isWhole && commits(removed, true)) {
            EXPECT_FALSE(QRTInfo::parse(test::open(target))->containsType(2608));
        }
        EXPECT_TRUE(commits(added, false) == canAdd) << "in place it is otherwise than into a target";
        if (canAdd)
            expectVideo(still);
        else
            EXPECT_TRUE(bytesOf(still) == bytes) << "changed by a refusal";
        if (isWhole)
            expectRefusalsChangeNothing(bytes);
    }

    void expectRefusalsChangeNothing(std::string const& bytes) {
        std::vector<unsigned char> const data(99, 'd');
        for (auto const& write : std::initializer_list<std::function<void(ImageMetaWriter&)>>{
                 [&](auto& writer) { writer.writeCameraDebugInfo(data); },
                 [](auto& writer) { writer.removeCameraDebugInfo(); }, [](auto& writer) { writer.reserveXMP(2000); }}) {
            writeBytes(still, bytes);
            bool const isDone = returns([&] { write(*ImageMetaWriter::of(test::open(still))); });
            EXPECT_TRUE(isDone || bytesOf(still) == bytes) << "changed by a refusal";
        }
    }

    bool commits(std::function<void(MotionPhotoEdit&)> const& stage, bool intoTarget) {
        writeBytes(target, "");
        return returns([&] {
            auto const editor = MotionPhotoInfo::parse(test::open(still))->edit();
            stage(*editor);
            intoTarget ? editor->commit(test::open(target)) : editor->commit();
        });
    }

    void expectVideo(std::string const& path) const {
        bool const isThere = returns([&] {
            auto const photo = MotionPhotoInfo::parse(test::open(path, "r"));
            auto const found = photo->getVideo();
            EXPECT_TRUE(photo->isValid());
            EXPECT_TRUE(std::string(found->data(), found->data() + found->size()) == videoBytes);
        });
        EXPECT_TRUE(isThere) << "what was written cannot be read";
    }

    TempDir dir;
    std::string still = dir.file("still");
    std::string target = dir.file("target");
    std::string video = dir.file("video");
    std::string videoBytes = videoOf(125'001);
    bool isVideoWritten = (writeBytes(video, videoBytes), true);
};

/// As they stand in the field, each once.
std::set<std::string> hostileValues(Field const& field, size_t fileSize) {
    uint64_t const left = fileSize - field.at;
    std::vector<uint64_t> values{0, 1, field.header - 1, left, left + 1, UINT64_MAX};
    for (unsigned const bit : {15U, 31U, 63U}) {
        bool const isNarrow = bit == 15 && field.width > 2;
        for (uint64_t const value : {(uint64_t{1} << bit) - 1, uint64_t{1} << bit, (uint64_t{1} << bit) + 1}) {
            if (bit / 8 < field.width && !isNarrow)
                values.push_back(value);
        }
    }
    values.push_back(UINT32_MAX);
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
    Examination examination;
    for (auto const& sample : samples()) {
        examination.examine(sample.bytes);
        for (auto const& field : sample.fields) {
            for (std::string const& value : hostileValues(field, sample.bytes.size())) {
                std::string bytes = sample.bytes;
                bytes.replace(field.at, field.width, value);
                SCOPED_TRACE(std::string(sample.name) + ": " + testing::PrintToString(value) + " at " +
                             std::to_string(field.at) + ", in front of " + sample.bytes.substr(field.at, 12));
                if (bytes != sample.bytes)
                    examination.examine(bytes);
            }
        }
    }
}

TEST(HostileField, EveryTruncationGivesAnErrorOrASensibleResult) {
    Examination examination;
    for (auto const& sample : samples()) {
        for (size_t size = 0; size < sample.bytes.size(); ++size) {
            SCOPED_TRACE(std::string(sample.name) + " cut at " + std::to_string(size));
            examination.examine(sample.bytes.substr(0, size), false);
        }
    }
}

TEST(HostileField, NumbersInXmpAreNoPositions) {
    Examination examination;
    for (char const* number : {"-1", "0", "4294967295", "99999999999999999999", "x"}) {
        SCOPED_TRACE(number);
        std::string packet = heicXmp("numbers");
        std::string const item = std::string("<Container:Item Item:Mime=\"video/mp4\" Item:Semantic=\"MotionPhoto\" ") +
                                 "Item:Length=\"" + number + "\" Item:Padding=\"" + number + "\"/>";
        packet.replace(packet.find("\"/>"), 3,
                       std::string("\" xmlns:GCamera=\"") + xmp_ns::CAMERA + "\" xmlns:Container=\"" +
                           xmp_ns::CONTAINER + "\" xmlns:Item=\"" + xmp_ns::ITEM + "\" GCamera:MotionPhoto=\"" +
                           number + "\" GCamera:MotionPhotoPresentationTimestampUs=\"" + number +
                           "\"><Container:Directory><rdf:Seq><rdf:li rdf:parseType=\"Resource\">" + item +
                           "</rdf:li></rdf:Seq></Container:Directory></rdf:Description>");
        examination.examine(JpegBuilder().exif().xmp(packet).build());
        examination.examine(buildHeic({.xmp = packet}));
    }
}

TEST(CorruptSamples, GiveAnErrorOrASensibleResult) {
    std::filesystem::path const folder = SHARED_DATA_DIR "/corrupt";
    if (!std::filesystem::exists(folder))
        GTEST_SKIP() << "no " << folder;
    Examination examination;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(folder)) {
        SCOPED_TRACE(entry.path().string());
        if (!entry.is_regular_file())
            continue;
        std::string const bytes = bytesOf(entry.path());
        std::string const still = JpegBuilder().exif().build();
        examination.examine(bytes);
        examination.examine(still + bytes + motionTrailer(still.size(), bytes.size())); // as the video of a still
    }
}

} // namespace
} // namespace android::lumo::test
