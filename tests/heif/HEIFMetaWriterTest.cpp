#include "io/HEIFMetaWriter.h"
#include "HeicParts.h"
#include "XMPInfo.h"
#include "io/ImageMetaReader.h"
#include "support/HeicPicture.h"

#include <gmock/gmock.h>

namespace android::lumo::test {
namespace {

using std::string_literals::operator""s;
using testing::HasSubstr;
using Mdat = HeicOptions::Mdat;

std::string const XMP = heicXmp("camera", 400);

std::shared_ptr<XMPInfo> viewOf(std::string const& packet) {
    TempFile const file(buildHeic({.xmp = packet}));
    return XMPInfo::parse(file.open("r"));
}

TEST(HEIFLayouts, AreReadAndGetRoomWhileTheRestIsKept) {
    struct Case {
        HeicOptions options;
        std::string tail;
        std::string expectedTail;
    } const cases[] = {
        {{}, "", ""},
        {{.thumbnail = true, .xmp = XMP}, "VT", "VT"},
        {{.alpha = true, .groups = true, .rotation = 3}, "WT", "WT"},
        {{.xmp = XMP, .ilocVersion = 0}, "V", "V"},
        {{.xmp = XMP, .ilocVersion = 2, .primaryId = 70'000}, "VT", "VT"},
        {{.xmp = XMP, .fieldWidth = 8, .indexWidth = 4}, "", ""},
        {{.xmp = XMP, .baseOffset = true, .mdat = Mdat::Wide, .metaLast = true}, "DVT", "DVT"},
        {{.xmp = XMP, .xmpInIdat = true, .mdat = Mdat::Wide}, "T", "T"},
        {{.xmp = XMP, .mdat = Mdat::ToEnd}, "", ""},
        {{.xmp = XMP, .freeBoxes = true, .unknownBoxes = true, .behindMdat = heicBox("free", "x")}, "VPT", "VPT"},
        {{.rows = 16, .columns = 32, .fieldWidth = 8}, "VT", "VT"}, // narrower locations: the image gets shorter
        {{.xmp = XMP}, "TVD", "VDT"},                               // a hidden trailer comes last
    };
    int row = 0;
    for (auto const& [options, tail, expectedTail] : cases) {
        SCOPED_TRACE(row++);
        HeicFile const heic = buildHeicFile(options);
        std::string const before = HeicParts{heic.bytes}.build("I" + tail);
        TempFile const file(before);
        for (ParseMode const mode : {ParseMode::LAZY, ParseMode::EAGER}) {
            auto const reader = ImageMetaReader::of(file.open("r"), mode);
            EXPECT_EQ(reader->getXMP().toTypedData<std::string>(), options.xmp.value_or(""));
            EXPECT_THAT(reader->getExif().toTypedData<std::string>(), testing::StartsWith("Exif\0\0II*"s));
        }
        HEIFMetaWriter writer(file.open());
        EXPECT_EQ(writer.reserveXMP(1280).payload, 1280U);
        EXPECT_EQ(writer.xmpRoom(), 1280U);
        std::string const after = file.bytes();
        size_t const newImage = after.size() - (before.size() - heic.bytes.size());
        EXPECT_TRUE(after == HeicParts{after.substr(0, newImage)}.build("I" + expectedTail));

        HeicOptions decodable = options;
        decodable.indexWidth = 0; // libheif 1.15 does not read item reference indices
        HeicPicture const was = readHeicPicture(buildHeic(decodable));
        HeicPicture const is = readHeicPicture(after);
        EXPECT_EQ(was.images, is.images);
        EXPECT_EQ(was.metadata, is.metadata);
        ASSERT_EQ(is.xmp.size(), 1U);
        std::string const kept = options.xmp.value_or("<x:xmpmeta");
        EXPECT_THAT(is.xmp.front(), testing::StartsWith(kept.substr(0, kept.find_last_not_of(' ') + 1)));
    }
}

TEST(HEIFWriteXMP, PacketFillsItsRoomWithBlanks) {
    auto const view = viewOf(heicXmp("written"));
    std::vector<uint8_t> const packet = view->serializeToBuffer();
    for (HeicOptions const& options :
         {HeicOptions{}, HeicOptions{.xmp = XMP}, HeicOptions{.xmp = XMP, .xmpInIdat = true}}) {
        TempFile const file(HeicParts{buildHeic(options)}.build("IVT"));
        HeicPicture const before = readHeicPicture(file.bytes());
        size_t const room = options.xmp ? XMP.size() : 1280;
        HEIFMetaWriter(file.open()).writeXMP(view);
        HeicPicture const after = readHeicPicture(file.bytes());
        std::string const blanks(room - packet.size(), ' ');
        EXPECT_EQ(after.xmp, std::vector{std::string(packet.begin(), packet.end()) + blanks});
        EXPECT_EQ(after.images, before.images);
        TrailerFile const trailer = readTrailer(file.bytes());
        EXPECT_EQ(trailer.records.at(0).data.substr(4, 4), bigEndian(trailer.image.size() - 8 - HEIC_VIDEO.size(), 4));
    }
}

TEST(HEIFMetaWriter, RefusalsLeaveTheFileAsItWas) {
    std::string shared = buildHeic({.xmp = XMP}); // the Exif item's length reaches over the packet
    size_t const exif = shared.find(bigEndian(24, 4), shared.find("iloc"));
    ASSERT_LT(exif, shared.find("iinf"));
    shared.replace(exif, 4, bigEndian(30, 4));
    auto const reserve = [](HEIFMetaWriter& writer) { writer.reserveXMP(1280); };
    auto const writing = [](std::shared_ptr<XMPInfo> const& view) {
        return [view](HEIFMetaWriter& writer) { writer.writeXMP(view); };
    };
    auto const small = writing(viewOf(heicXmp("small"))), large = writing(viewOf(heicXmp(std::string(1500, 'x'))));
    struct Case {
        std::string bytes;
        std::function<void(HEIFMetaWriter&)> edit;
        char const* message;
    } const cases[] = {
        {buildHeic({.grid = false}), reserve, "[HEIFController]not grid image or no item"},
        {buildHeic({.tileExtents = 2}), reserve, "[HEIFMetaWriter]fail to set image info: "},
        {buildHeic({.tileShift = 1 << 20}), reserve, "item 1"},
        {buildHeic({.rows = 23, .columns = 23}), reserve, "fail to get item ids: err=-7"},
        {buildHeic({.beforeMdat = heicBox("mpvd", "ftyp")}), reserve, "box 'mpvd'"},
        {buildHeic({.xmp = XMP, .mimeFirst = "text"}), reserve, "not plain application/rdf+xml"},
        {buildHeic({.xmp = XMP, .xmpEncoding = "deflate"}), reserve, "not plain application/rdf+xml"},
        {buildHeic({.tail = "abc"}), reserve, "fail to get file payload"},
        {buildHeic({.extraMeta = heicFullBox("pitm", 0, 0, bigEndian(1, 2))}), reserve, "would not be found"},
        {buildHeic({.xmp = XMP}), large, "xmpBuffer size must be smaller than xmpBox size"},
        {buildHeic(), large, "xmpBuffer size must be smaller than xmpBox size"},
        {buildHeic({.grid = false}), small, "not grid image"},
        {buildHeic({.mimeFirst = std::string(999, 't')}), small, "not plain"},
        {buildHeic({.xmp = XMP, .xmpEncoding = "deflate"}), small, "not plain"},
        {shared, small, "belong to another item"},
        {buildHeic({.xmp = XMP}), writing(nullptr), "no XMP given"},
    };
    for (auto const& [bytes, edit, message] : cases) {
        TempFile const file(bytes);
        HEIFMetaWriter writer(file.open());
        EXPECT_THAT(messageOf([&, &made = edit] { made(writer); }), HasSubstr(message));
        EXPECT_TRUE(file.bytes() == bytes) << message;
    }
}

TEST(HEIFWriteXMP, RoomIsWhatCanBeWrittenInPlace) {
    auto const roomIn = [](HeicOptions const& options) {
        return HEIFMetaWriter(TempFile(buildHeic(options)).open("r")).xmpRoom();
    };
    EXPECT_EQ(roomIn({.xmp = XMP}), 400U);
    EXPECT_EQ(roomIn({.xmp = XMP, .mimeFirst = "text"}), 0U);
    EXPECT_EQ(roomIn({.xmp = XMP, .xmpEncoding = "deflate"}), 0U);
}

TEST(HEIFMetaWriter, RotationIsTurnedClockwise) {
    EXPECT_EQ(HEIFMetaWriter::getClockWiseRotation(1), 270U);
    EXPECT_EQ(HEIFMetaWriter::getClockWiseRotation(3), 90U);
    for (int const angle : {-1, 4})
        EXPECT_EQ(messageOf([&] { HEIFMetaWriter::getClockWiseRotation(angle); }),
                  "[metadata_utils/io/HEIFMetaWriter:255] invalid heif rotation type");
}

} // namespace
} // namespace android::lumo::test
