// SPDX-License-Identifier: Apache-2.0
#include "trailer/TrailerFixture.h"

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
    std::vector<TrailerRecord> const records{{2609, "Tag", "mpv2"}};
    EXPECT_EQ(bytes, bytes.substr(0, 4) + trailerBytes(records));
    TempFile const file(bytes);
    EXPECT_EQ(recordsOf(*viewOf(file)), records);
}

TEST(TrailerReader, FindsNothingWhereTheMarkersAreMissingAndForgetsWhatWasThere) {
    std::string const whole = STILLS[0].with({A}, 3);
    for (std::string const& bytes :
         {std::string(), std::string("QRTT"), std::string("abcQRTT"), JPEG_IMAGE, JPEG_IMAGE + little(0) + "QRTT",
          JPEG_IMAGE + little(30) + "QRTT", whole.substr(1, whole.size() - 2)}) {
        TempFile const file(whole);
        auto const view = viewOf(file);
        writeBytes(file.path(), bytes);
        view->load();
        EXPECT_EQ(view->getDataCount() + view->getSize() + view->getVersion() + view->getPrimaryType(), 0);
        EXPECT_EQ(view->getImageSize(), bytes.size());
        EXPECT_EQ(view->getTailPosition(), bytes.size());
        EXPECT_TRUE(view->getData(1).empty());
    }
}

TEST(TrailerReader, ReadsRecordsOfEveryForm) {
    std::vector<TrailerRecord> const records{
        {2608, "Video", pattern(5000)}, {-3, std::string(100, 'n'), "x"},
        {7, "Sub", "data", "about it"}, EMPTY,
        {2608, "Video", "a second"},    {9, "", "no name"},
    };
    for (auto const& still : STILLS) {
        TempFile const file(still.with(records, 5));
        auto const view = viewOf(file);
        expectRead(*view, file.bytes());
        EXPECT_EQ(recordsOf(*view), records);
        EXPECT_EQ(view->getImageSize(), still.image.size());
        EXPECT_EQ(static_cast<size_t>(view->getSize()), trailerBytes(records).size());
        EXPECT_EQ(view->getPrimaryType(), 9);
        EXPECT_THROW(view->getData(2608), std::runtime_error);
        EXPECT_EQ(view->getAllData(2608).size(), 2U);
        EXPECT_EQ(view->getDataPositionLength(1), std::pair(0U, 0U));
        EXPECT_TRUE(view->containsKey("vIDEO", true));
        EXPECT_FALSE(view->containsKey("vIDEO", false));
    }
}

TEST(TrailerReader, TakesTheGreatestNumbersThatFitAndKeepsItsRecordsAtOthers) {
    // Image 100, "first" at 100 (8 + 5 + 20), "second" at 133 (12 + 6 + 6 + 10), tail at 167 with 36 + 8 bytes.
    std::string const good = STILLS[0].with({{7, "first", pattern(20)}, {8, "second", pattern(10), "subsub"}});
    for (auto const& [name, at, fits, doesNot] : {std::tuple("count", 175U, 2U, 3U),
                                                  {"type of the record", 100, 7 << 16, 8 << 16},
                                                  {"offset, to another record", 183, 67, 34},
                                                  {"payload", 187, 67, 68},
                                                  {"name length", 104, 25, 26},
                                                  {"name length in front of sub-info", 137, 16, 17},
                                                  {"sub-info length", 141, 16, 17}}) {
        SCOPED_TRACE(name);
        TempFile const file(good);
        auto const view = viewOf(file);
        writeBytes(file.path(), std::string(good).replace(at, 4, little(doesNot)));
        EXPECT_TRUE(failsWith("[metadata_utils/QRTInfoImpl:", [&] { view->load(); }));
        EXPECT_EQ(view->getKeys(), (std::list<std::string>{"first", "second"}));
        EXPECT_EQ(view->getImageSize(), 100U);
        writeBytes(file.path(), std::string(good).replace(at, 4, little(fits)));
        EXPECT_NO_THROW(view->load());
    }
}

TEST(TrailerReader, RefusesWhatCannotBeATrailer) {
    TrailerRecord const large{1, "a", pattern(40)};
    std::string overlapping = STILLS[0].with({large, large, large});
    for (size_t i = 0; i < 3; ++i) // all three name the bytes of all
        overlapping.replace(JPEG_IMAGE.size() + 147 + 16 + 12 * i, 8, little(147) + little(147));
    for (auto const& [bytes, message] :
         {std::pair(trailerBytes({A}), "invalid image size: 0"),
          {overlapping, "records of 441 bytes in all do not fit"},
          {STILLS[0].with({{1, std::string(65'537, 'n'), "x"}}), "length 65537 is above 65536"},
          {STILLS[0].with(std::vector<TrailerRecord>(16'385)), "record count 16385 is above 16384"}})
        EXPECT_TRUE(failsWith(message, [&, b = bytes] { QRTInfo::parse(TempFile(b).open()); }));
}

TEST(TrailerReader, LetsACallbackPointRecordsElsewhereAndWritesThemAsTheyWereStored) {
    TrailerRecord const pointer{2608, "Video", pointerTo(30, 20)};
    TempFile const file(STILLS[1].with({pointer, A}));
    uint32_t length = 20; // 0: it fails
    auto const view = viewOf(file, {[&](auto&, auto& records) {
                                 records[0].dataPosition = 30;
                                 records[0].dataPayload = length > 0 ? length : throw std::runtime_error("no");
                             }});
    for (auto const& expected : {std::vector{pointer, A}, {pointer, A, B}}) {
        EXPECT_EQ(readTrailer(file.bytes()).records, expected);
        EXPECT_EQ(textOf(view->getData(2608)), HEIC_IMAGE.substr(30, 20)); // the video itself is in memory now
        if (expected.size() == 2)
            view->edit()->putData(2, "B", B.data).commit();
    }
    length = 0;
    EXPECT_THROW(view->load(), std::runtime_error);
    EXPECT_EQ(view->getDataPositionLength(2608), std::pair(30U, 20U));
    length = UINT32_MAX; // more than the file holds
    view->load();
    EXPECT_EQ(textOf(view->getData(2608)), file.bytes().substr(30));
}

TEST(TrailerReader, FollowsAnImageThatGrewAndWrapsOneThatShrank) {
    TempFile const file(STILLS[0].with({A, {2608, "b", "mpv2" + std::string(8, '\1')}}));
    auto const view = viewOf(file);
    auto const size = static_cast<uint32_t>(file.bytes().size());
    uint32_t const position = view->getDataPositionLength(1).first;
    view->loadAllData();
    for (uint32_t const grownBy : {1000U, -100U, 1 - size}) {
        view->adjustPosition(size + grownBy);
        EXPECT_EQ(view->getImageSize(), 100 + grownBy);
        EXPECT_EQ(view->getDataPositionLength(1).first, position + grownBy);
        EXPECT_TRUE(view->getRecordList()[1].data.empty()); // a pointer moved in the file is read again
    }
    EXPECT_THROW(view->adjustPosition(0), std::runtime_error);
}

} // namespace
} // namespace android::lumo::test
