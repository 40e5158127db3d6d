#include "trailer/TrailerFixture.h"

#include <filesystem>
#include <functional>
#include <sstream>

namespace android::lumo::test {
namespace {

/// The bytes of a document's block of hex, without offsets and remarks.
std::string exampleOf(std::string const& path) {
    std::string text = bytesOf(path), line, bytes;
    text = text.substr(text.find("```hex\n") + 7);
    std::istringstream lines(text.substr(0, text.find("```")));
    while (std::getline(lines, line)) {
        std::istringstream numbers(line.substr(4, line.find('|') - 4));
        for (int value = 0; numbers >> std::hex >> value;)
            bytes += static_cast<char>(value);
    }
    return bytes;
}

TEST(TrailerReader, ReadsTheExampleOfTheFormatDocument) {
    std::string const bytes = exampleOf(SAMPLES_DIR "/../docs/trailer-format.md");
    EXPECT_EQ(bytes, bytes.substr(0, 4) + trailerBytes({{2609, "Tag", "mpv2"}}));
    TempFile file(bytes);
    auto const view = viewOf(file);
    EXPECT_EQ(view->getImageSize(), 4U);
    EXPECT_EQ(view->getKeysWithType(), (std::list<std::pair<std::string, int>>{{"Tag", 2609}}));
    EXPECT_EQ(textOf(view->getData(2609)), "mpv2");
}

TEST(TrailerReader, FindsNothingWhereTheMarkersAreMissing) {
    std::string const whole = JPEG_IMAGE + trailerBytes({{1, "a", "b"}});
    std::vector<std::string> files{
        "", "abc", "QRTT", "abcQRTT", JPEG_IMAGE + little(0) + "QRTT", JPEG_IMAGE + little(30) + "QRTT"};
    for (size_t size = 0; size < whole.size(); size += 3)
        files.push_back(whole.substr(0, size));
    for (auto const& bytes : files) {
        TempFile file(bytes);
        auto const view = viewOf(file);
        EXPECT_EQ(view->getDataCount(), 0);
        EXPECT_EQ(view->getSize(), 0);
        EXPECT_EQ(view->getImageSize(), bytes.size());
        EXPECT_EQ(view->getPrimaryType(), 0);
        EXPECT_TRUE(view->getData(1).empty());
    }
}

TEST(TrailerReader, ReadsRecordsOfEveryForm) {
    std::string const longName(100, 'n');
    std::vector<TrailerRecord> const records{
        {2608, "Video", pattern(5000)}, {-3, longName, "x"}, {7, "Sub", "data", "about it"}, {8, "Empty", ""},
        {2608, "Video", "a second"},    {9, "", "no name"},
    };
    for (auto const& still : STILLS) {
        std::string const bytes = still.with(records, 5);
        TempFile file(bytes);
        auto const view = viewOf(file);
        auto const truth = readTrailer(bytes);
        EXPECT_EQ(view->getVersion(), 5);
        EXPECT_EQ(view->getImageSize(), still.image.size());
        EXPECT_EQ(static_cast<size_t>(view->getSize()), trailerBytes(records).size());
        EXPECT_EQ(view->getTailPosition(), bytes.rfind("QRTH"));
        EXPECT_EQ(view->getPrimaryType(), 9);
        ASSERT_EQ(view->getDataCount(), 6);
        view->loadAllData();
        for (size_t i = 0; i < records.size(); ++i) {
            auto const& record = view->getRecordList()[i];
            EXPECT_EQ((TrailerRecord{record.type, record.name, textOf(record.data),
                                     record.hasSubInfo ? std::optional(textOf(record.subInfo)) : std::nullopt}),
                      records[i]);
            EXPECT_EQ(record.dataPosition, truth.dataPositions[i]);
            EXPECT_EQ(record.size(), record.payload);
        }
        EXPECT_THROW(view->getData(2608), std::runtime_error);
        EXPECT_EQ(view->getAllData(2608).size(), 2U);
        EXPECT_EQ(view->getDataPositionLength("Sub"), std::pair(truth.dataPositions[2], 4U));
        EXPECT_EQ(view->getDataPositionLength(1), std::pair(0U, 0U));
        EXPECT_TRUE(view->containsKey("vIDEO", true));
        EXPECT_FALSE(view->containsKey("vIDEO", false));
    }
}

TEST(TrailerReader, KeepsItsRecordsWhenAFieldIsHostile) {
    // Image 100, "first" at 100 (8 + 5 + 20), "second" at 133 (12 + 6 + 6 + 10), tail at 167 with 36 + 8 bytes.
    std::vector<TrailerRecord> const records{{7, "first", pattern(20)}, {8, "second", pattern(10), "subsub"}};
    std::string const good = JPEG_IMAGE + trailerBytes(records);
    struct Field {
        char const* name;
        size_t at;
        uint32_t limit;
        char const* outcome; ///< of 0, 1, limit, limit + 1, 2^31, 2^32 - 1: Reads, None, Error
    };
    for (auto const& field : {
             Field{"tail size", 203, 203, "NNNNNN"},
             Field{"count", 175, 2, "RRREEE"},
             Field{"directory header", 179, 7 << 16, "EERREE"},
             Field{"offset", 183, 167, "EEEEEE"},                  // at the limit no image is left
             Field{"offset, some image left", 183, 166, "EEEEEE"}, // another record's bytes stand there
             Field{"payload", 187, 67, "EEREEE"},
             Field{"record header", 100, 7 << 16, "EERREE"},
             Field{"name length", 104, 25, "RRREEE"},
             Field{"name length in front of sub-info", 137, 16, "RRREEE"},
             Field{"sub-info length", 141, 16, "RRREEE"},
         }) {
        uint32_t const values[] = {0, 1, field.limit, field.limit + 1, 1U << 31, UINT32_MAX};
        for (size_t i = 0; i < std::size(values); ++i) {
            SCOPED_TRACE(std::string(field.name) + " = " + std::to_string(values[i]));
            TempFile file(good);
            auto const view = viewOf(file);
            std::string bytes = good;
            writeBytes(file.path(), bytes.replace(field.at, 4, little(values[i])));
            if (field.outcome[i] == 'E') {
                EXPECT_TRUE(messageOf([&] { view->load(); }).starts_with("[metadata_utils/QRTInfoImpl:"));
                EXPECT_EQ(view->getKeys(), (std::list<std::string>{"first", "second"}));
                EXPECT_EQ(view->getImageSize(), 100U);
                continue;
            }
            ASSERT_NO_THROW(view->load());
            EXPECT_EQ(view->getSize() == 0, field.outcome[i] == 'N');
            for (auto const& record : view->getRecords())
                EXPECT_LE(uint64_t{record.dataPosition} + record.dataPayload, view->getTailPosition());
        }
    }
}

TEST(TrailerReader, RefusesWhatCannotBeATrailer) {
    std::vector<TrailerRecord> const one{{1, "a", "bc"}}, tooMany(16'385);
    std::string overlapping =
        JPEG_IMAGE + trailerBytes({{1, "a", pattern(40)}, {1, "a", pattern(40)}, {1, "a", pattern(40)}});
    for (size_t i = 0; i < 3; ++i) // all three name the bytes of all
        overlapping.replace(JPEG_IMAGE.size() + 147 + 16 + 12 * i, 8, little(147) + little(147));
    for (auto const& [bytes, message] : {std::pair(trailerBytes(one), "invalid image size: 0"),
                                         {overlapping, "records of 441 bytes in all do not fit"},
                                         {JPEG_IMAGE + trailerBytes(tooMany), "record count 16385 is above 16384"}}) {
        std::string const text = messageOf([&, b = bytes] { QRTInfo::parse(TempFile(b).open()); });
        EXPECT_TRUE(text.find(message) != std::string::npos) << text;
    }
    TempFile huge("\xFF\xD8");
    std::filesystem::resize_file(huge.path(), uint64_t{1} << 32);
    EXPECT_TRUE(messageOf([&] { QRTInfo::parse(huge.open()); }).find("4 GiB") != std::string::npos);
}

TEST(TrailerReader, LetsACallbackPointRecordsElsewhereAndSurvivesOneThatThrows) {
    TempFile file(HEIC_IMAGE + qrtdBox(trailerBytes({{2608, "Video", "pointer"}})));
    bool fails = false;
    uint32_t length = 20;
    auto const view = viewOf(file, {[&](auto&, auto& records) {
                                 if (fails)
                                     throw std::runtime_error("no");
                                 records[0].dataPosition = 30;
                                 records[0].dataPayload = length;
                             }});
    EXPECT_EQ(textOf(view->getData(2608)), HEIC_IMAGE.substr(30, 20));
    fails = true;
    EXPECT_THROW(view->load(), std::runtime_error);
    EXPECT_EQ(view->getDataPositionLength(2608), std::pair(30U, 20U));
    fails = false;
    length = UINT32_MAX; // more than the file holds
    view->load();
    EXPECT_EQ(textOf(view->getData(2608)), file.bytes().substr(30));
}

TEST(TrailerReader, FollowsAnImageThatGrewAndWrapsOneThatShrank) {
    TempFile file(JPEG_IMAGE + trailerBytes({{1, "a", "data"}, {2608, "b", "mpv2" + std::string(8, '\1')}}));
    auto const view = viewOf(file);
    uint32_t const size = static_cast<uint32_t>(file.bytes().size());
    uint32_t const position = view->getDataPositionLength(1).first;
    EXPECT_EQ(view->getData(2608).size(), 12U);
    view->adjustPosition(size + 1000);
    EXPECT_EQ(view->getImageSize(), 1100U);
    EXPECT_EQ(view->getDataPositionLength(1).first, position + 1000);
    EXPECT_TRUE(view->getRecordList()[1].data.empty()); // a pointer moved in the file is read again
    view->adjustPosition(size - 100);
    EXPECT_EQ(view->getImageSize(), 0U);
    EXPECT_EQ(view->getDataPositionLength(1).first, position - 100);
    view->adjustPosition(1);
    EXPECT_EQ(view->getImageSize(), 1 - (size - 100));
    EXPECT_THROW(view->adjustPosition(0), std::runtime_error);
}

TEST(TrailerReader, ForgetsATrailerThatIsGone) {
    TempFile file(JPEG_IMAGE + trailerBytes({{1, "a", "data"}}, 3));
    auto const view = viewOf(file);
    writeBytes(file.path(), JPEG_IMAGE);
    view->load();
    EXPECT_EQ(view->getDataCount() + view->getVersion(), 0);
    EXPECT_EQ(view->getTailPosition(), JPEG_IMAGE.size());
}

TEST(TrailerRecord, IsSerialisedWithoutTheBytesOfItsFile) {
    TempFile video(pattern(50));
    QRTDataInfo record;
    record.name = "Name";
    EXPECT_TRUE(messageOf([&] { static_cast<void>(record.toBuffer()); }).ends_with("] no data: empty=1, file=(nil)"));
    record.dataFile = video.open("r");
    record.dataPayload = 50;
    EXPECT_EQ(record.size(), 62U);
    EXPECT_EQ(textOf(record.toBuffer()), recordBytes({0, "Name", ""}));
}

} // namespace
} // namespace android::lumo::test
