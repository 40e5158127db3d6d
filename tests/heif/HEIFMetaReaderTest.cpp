// SPDX-License-Identifier: Apache-2.0
#include "io/HEIFMetaReader.h"
#include "HeicParts.h"

namespace android::lumo::test {
namespace {

using std::string_literals::operator""s;

std::string const XMP = heicXmp("camera", 400);

TEST(HEIFMetaReader, ExifBlockStartsAtItsIdentifierWhereTheItemHoldsOne) {
    std::string const item = bigEndian(6, 4) + "Exif\0\0II*"s;
    std::pair<uint32_t, std::string> const cases[] = {
        {6, "Exif\0\0II*"s}, {5, bigEndian(5, 4) + "Exif\0\0II*"s}, {8, "if\0\0II*"s}, {5000, ""}, {0xFFFFFFFF, ""}};
    for (auto const& [offset, block] : cases) { // stored in front of the item
        std::string bytes = buildHeic();
        bytes.replace(bytes.find(item), 4, bigEndian(offset, 4));
        TempFile const file(bytes);
        Metadata const exif = HEIFMetaReader(file.open("r"), ParseMode::LAZY).getExif();
        EXPECT_EQ(exif.toTypedData<std::string>().substr(0, block.size()), block) << offset;
        EXPECT_EQ(exif.payload == 0, block.empty()) << offset;
    }
}

TEST(HEIFMetaReader, ImageEndsAtTheFirstTrailingBoxBehindItsLastBox) {
    std::string const still = buildHeic();
    std::string const debugInfo = heicBox("free", "cdif+info");
    std::string const video = videoBox("ftypmp42 video", true);
    std::string const trailer = heicBox("qrtd", "records");
    std::string const plainFree = heicBox("free", "CDIF");
    // What belongs to the image, what stands behind it, and the size of the debug info in that.
    std::tuple<std::string, std::string, uint32_t> const cases[] = {
        {"", video + trailer, 0},
        {"", trailer, 0},
        {"", debugInfo + video, 5},
        {"", video + trailer + debugInfo, 5},
        {plainFree + heicBox("abcd", ""), video, 0},
        {plainFree + heicBox("free", "cdi"), "", 0},
        {video + debugInfo + heicBox("moov", ""), trailer, 5},
        {plainFree, bigEndian(1, 4) + "free" + bigEndian(22, 8) + "cdif42", 2},
        {"", bigEndian(0, 4) + "freecdif-all-the-rest", 13}, // to the end of the file
        {"", bigEndian(999, 4) + "freecdif-cut off", 8},     // longer than the file
    };
    for (auto const& [inside, behind, debugInfoSize] : cases) {
        SCOPED_TRACE(testing::PrintToString(inside + '|' + behind));
        TempFile const file(still + inside + behind);
        HEIFMetaReader reader(file.open("r"), ParseMode::LAZY);
        EXPECT_EQ(reader.getEndOfImagePosition(false), still.size() + inside.size());
        EXPECT_EQ(reader.getBuffer().size(), still.size() + inside.size()) << "the demuxer reads the image part alone";
        EXPECT_EQ(reader.getCameraDebugInfo().payload, debugInfoSize);
        size_t const type = (inside + behind).find("mpvd");
        EXPECT_EQ(reader.getExternalMetadataPosition({"mpvd"}), type == inside.npos ? 0 : still.size() + type - 4);
    }
}

TEST(HEIFMetaReader, MetadataInFrontOfDamageIsReadWhileTheWholeIsRefused) {
    std::pair<std::string, char const*> const cases[] = {
        {"abc", "fail to get file payload[3]: "},
        {"\0\0\0\7mpvd"s, "invalid chunk payload: 7"},
        {repeated(heicBox("free", ""), 65'536), "more than 65536 boxes"},
    };
    for (auto const& [tail, message] : cases) {
        TempFile const file(buildHeic({.xmp = XMP, .tail = heicBox("free", "cdif!") + tail}));
        HEIFMetaReader reader(file.open("r"), ParseMode::LAZY);
        EXPECT_EQ(reader.getXMP().toTypedData<std::string>(), XMP) << message;
        EXPECT_EQ(reader.getCameraDebugInfo().toTypedData<std::string>(), "!") << message;
        EXPECT_TRUE(failsWith(message, [&] { reader.getEndOfImagePosition(false); }));
    }
    TempFile const empty("");
    EXPECT_TRUE(failsWith("to get fd & size[err=", [&] { HEIFMetaReader(empty.open("r"), ParseMode::LAZY); }));
}

TEST(HEIFMetaReader, EditsFindXMPBehindLocationsThatEndTheSimpleSearch) {
    for (HeicOptions const& options :
         {HeicOptions{.xmp = "<packet/>", .tileExtents = 2}, HeicOptions{.xmp = "<packet/>", .indexWidth = 8}}) {
        TempFile const file(buildHeic(options));
        HEIFMetaReader reader(file.open("r"), ParseMode::LAZY);
        EXPECT_EQ(reader.findAllXMP().size(), 1U);
        EXPECT_EQ(reader.getXMPItem().value().refusal, "");
    }
}

} // namespace
} // namespace android::lumo::test
