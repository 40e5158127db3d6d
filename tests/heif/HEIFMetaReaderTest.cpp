#include "io/HEIFMetaReader.h"
#include "HeicParts.h"
#include "hboxd.h"

#include <gmock/gmock.h>

#include <fstream>
#include <unistd.h>

namespace android::lumo::test {
namespace {

using std::string_literals::operator""s;
using testing::HasSubstr;

std::string const XMP = heicXmp("camera", 400);

TEST(HEIFMetaReader, ExifBlockStartsAtItsIdentifierWhereTheItemHoldsOne) {
    std::string const item = bigEndian(6, 4) + "Exif\0\0II*"s;
    struct Case {
        uint32_t offset; ///< stored in front of the item
        std::string block;
    } const cases[] = {
        {6, "Exif\0\0II*"s}, {5, bigEndian(5, 4) + "Exif\0\0II*"s}, {8, "if\0\0II*"s}, {5000, ""}, {0xFFFFFFFF, ""},
    };
    std::string const plain = buildHeic();
    for (auto const& [offset, block] : cases) {
        std::string bytes = plain;
        bytes.replace(bytes.find(item), 4, bigEndian(offset, 4));
        TempFile const file(bytes);
        Metadata const exif = HEIFMetaReader(file.open("r"), ParseMode::LAZY).getExif();
        EXPECT_EQ(exif.toTypedData<std::string>().substr(0, block.size()), block) << offset;
        EXPECT_EQ(exif.payload == 0, block.empty()) << offset;
    }
}

TEST(HEIFMetaReader, ImageEndsAtTheFirstTrailingBoxBehindItsLastBox) {
    std::string const debugInfo = heicBox("free", "cdif+info");
    std::string const video = bigEndian(1, 4) + "mpvd" + bigEndian(30, 8) + "ftypmp42 video";
    std::string const trailer = heicBox("qrtd", "records");
    std::string const plainFree = heicBox("free", "CDIF");
    struct Case {
        char const* what;
        std::string inside; ///< belongs to the image
        std::string behind;
        uint32_t debugInfoSize;
    } const cases[] = {
        {"nothing", "", "", 0},
        {"video and trailer", "", video + trailer, 0},
        {"trailer alone", "", trailer, 0},
        {"debug info", "", debugInfo + video, 5},
        {"debug info last", "", video + trailer + debugInfo, 5},
        {"plain free and unknown boxes", plainFree + heicBox("abcd", ""), video, 0},
        {"only plain boxes", plainFree + heicBox("free", "cdi"), "", 0},
        {"trailing boxes in front of an image box", video + debugInfo + heicBox("moov", ""), trailer, 5},
        {"free with a wide header", bigEndian(1, 4) + "free" + bigEndian(20, 8) + "none",
         bigEndian(1, 4) + "free" + bigEndian(22, 8) + "cdif42", 2},
        {"size to the end of the file", "", bigEndian(0, 4) + "freecdif-all-the-rest", 13},
    };
    for (auto const& [what, inside, behind, debugInfoSize] : cases) {
        std::string const image = buildHeic() + inside;
        TempFile const file(image + behind);
        HEIFMetaReader reader(file.open("r"), ParseMode::LAZY);
        EXPECT_EQ(reader.getEndOfImagePosition(false), image.size()) << what;
        EXPECT_EQ(reader.getCameraDebugInfo().payload, debugInfoSize) << what;
        size_t const first = (inside + behind).find("mpvd");
        uint32_t const expected =
            first == std::string::npos ? 0 : static_cast<uint32_t>(buildHeic().size() + first - 4);
        EXPECT_EQ(reader.getExternalMetadataPosition({"mpvd"}), expected) << what;
    }
}

TEST(HEIFMetaReader, MetadataInFrontOfDamageIsReadWhileTheWholeIsRefused) {
    struct Case {
        char const* what;
        std::string tail;
        char const* message;
    } const cases[] = {
        {"stray bytes", "abc", "fail to get file payload[3]: "},
        {"cut-off box", "\0\0\1\0mpvd"s, "invalid chunk payload: 256"},
        {"size below its header", "\0\0\0\7mpvd"s, "invalid chunk payload: 7"},
        {"wide size below its header", bigEndian(1, 4) + "mpvd" + bigEndian(15, 8), "invalid chunk payload: 15"},
        {"wide size beyond everything", bigEndian(1, 4) + "mpvd" + bigEndian(UINT64_MAX, 8), "invalid chunk payload"},
        {"cut-off wide size", bigEndian(1, 4) + "mpvd\0\0"s, "fail to get file payload"},
        {"no end of boxes", repeated(65'536, heicBox("free", "")), "more than 65536 boxes"},
    };
    for (auto const& [what, tail, message] : cases) {
        TempFile const file(buildHeic({.xmp = XMP, .tail = heicBox("free", "cdif!") + tail}));
        HEIFMetaReader reader(file.open("r"), ParseMode::LAZY);
        EXPECT_EQ(reader.getXMP().toTypedData<std::string>(), XMP) << what;
        EXPECT_EQ(reader.getCameraDebugInfo().toTypedData<std::string>(), "!") << what;
        EXPECT_THAT(messageOf([&] { reader.getEndOfImagePosition(false); }), HasSubstr(message)) << what;
    }
}

TEST(HEIFMetaReader, EveryCutOffFileAnswers) {
    std::string const whole = buildHeic({.xmp = XMP, .fieldWidth = 8});
    TempFile const file(whole);
    for (size_t size = whole.size() - 1; size > 0; --size) {
        std::filesystem::resize_file(file.path(), size);
        HEIFMetaReader reader(file.open("r"), ParseMode::LAZY);
        std::string const packet = reader.getXMP().toTypedData<std::string>();
        EXPECT_TRUE(packet.empty() || packet == XMP) << size;
        EXPECT_EQ(reader.getCameraDebugInfo().payload, 0U) << size;
        std::vector<uint8_t> frame;
        EXPECT_THROW(HEIFMetaReader(file.open("r"), ParseMode::EAGER).getImageFrame(1, frame, 1), std::runtime_error)
            << size;
    }
    TempFile const empty("");
    EXPECT_THAT(messageOf([&] { HEIFMetaReader(empty.open("r"), ParseMode::LAZY); }),
                HasSubstr("fail to get fd & size[err="));
}

TEST(HEIFMetaReader, VideoIsReadForImageQuestionsOnly) {
    std::string const image = buildHeic({.xmp = XMP});
    constexpr uint32_t VIDEO = 64 * 1024 * 1024;
    TempFile const file(image + bigEndian(VIDEO, 4) + "mpvd");
    ASSERT_EQ(truncate(file.path().c_str(), static_cast<off_t>(image.size() + VIDEO)), 0);
    auto const bytesRead = [] {
        std::ifstream io("/proc/self/io");
        std::string name;
        uint64_t count = 0;
        io >> name >> count;
        return count;
    };
    uint64_t const before = bytesRead();
    if (before == 0)
        GTEST_SKIP() << "the system does not count reads";
    auto const media = file.open("r");
    HEIFMetaReader reader(media, ParseMode::LAZY);
    EXPECT_EQ(reader.getXMP().toTypedData<std::string>(), XMP);
    EXPECT_GT(reader.getExif().payload, 0U);
    EXPECT_EQ(reader.getCameraDebugInfo().payload, 0U);
    EXPECT_EQ(reader.getEndOfImagePosition(true), image.size());
    EXPECT_LT(bytesRead() - before, 100'000U);
    EXPECT_EQ(reader.getCoverImageId(), 5); // the demuxer takes its copy, once
    EXPECT_EQ(reader.getImageInfo(5).tile_count, 4U);
    EXPECT_LT(bytesRead() - before, VIDEO + 1'000'000U);
}

TEST(HEIFMetaReader, ImageQuestionsWithoutAnAnswerAreErrors) {
    HeicFile const heic = buildHeicFile();
    TempFile const file(heic.bytes);
    HEIFMetaReader reader(file.open("r"), ParseMode::LAZY);
    EXPECT_EQ(reader.getBuffer().size(), heic.bytes.size());
    int const cover = static_cast<int>(heic.primaryId);
    std::vector<uint8_t> frame;
    struct Case {
        std::function<void()> question;
        char const* message;
    } const cases[] = {
        {[&] { reader.getImageInfo(99); }, "fail to get image info: err=-6"},
        {[&] { reader.getGridInfo(1); }, "fail to get grid-info: err="},
        {[&] { reader.getItemIds(cover, 3); }, "fail to get item ids: err=-7"},
        {[&] { reader.getImageFrame(1, frame, 31); }, "fail to get image frame: err=-7"},
        {[&] { reader.getMetadataInfo(99, HBOXD_ITEM_LOCATION, &frame); }, "fail to get meta-data: err="},
        {[&] { reader.getMetadataInfo(1, HBOXD_ITEM_LOCATION, nullptr); }, "no metadata buffer given"},
        {[&] { reader.getThumbnailImageId(1); }, "fail to get thumbnail image id: err=-6"},
    };
    for (auto const& [question, message] : cases)
        EXPECT_THAT(messageOf(question),
                    testing::AllOf(HasSubstr("[metadata_utils/io/HEIFMetaReader:"), HasSubstr(message)));
}

} // namespace
} // namespace android::lumo::test
