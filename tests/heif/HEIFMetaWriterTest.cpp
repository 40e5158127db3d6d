// SPDX-License-Identifier: Apache-2.0
#include "io/HEIFMetaWriter.h"
#include "HeicParts.h"
#include "PublishedPhoto.h"
#include "XMPInfo.h"
#include "XMPPacket.h"
#include "hbox.h"
#include "io/ImageMetaReader.h"
#include "support/HeicPicture.h"
#include "support/PhotoParts.h"

namespace android::lumo::test {
namespace {

using std::string_literals::operator""s;
using Mdat = HeicOptions::Mdat;

std::string const XMP = heicXmp("camera", 400);

std::shared_ptr<XMPInfo> viewOf(std::string const& packet) {
    TempFile const file(buildHeic({.xmp = packet}));
    return XMPInfo::parse(file.open("r"));
}

std::string reserved(std::string const& bytes, uint32_t size) {
    TempFile const file(bytes);
    HEIFMetaWriter(file.open()).reserveXMP(size);
    return file.bytes();
}

std::string withoutMeta(std::string image) {
    size_t const at = image.find("meta\0\0\0\0"s) - 4;
    return image.erase(at, __builtin_bswap32(littleAt(image, at)));
}

/// Outside 'meta' the old packet's bytes are blanked, an 'mdat' to the end gets its size, and then comes the room.
std::string imageOutsideMeta(std::string const& before, std::string const& oldXmp, std::string const& room) {
    std::string expected = withoutMeta(before);
    if (size_t const at = expected.find(oldXmp); at != expected.npos)
        expected.replace(at, oldXmp.size(), oldXmp.size(), ' ');
    if (size_t const at = expected.find("\0\0\0\0mdat"s); at != expected.npos)
        expected.replace(at, 4, bigEndian(expected.size() - at, 4));
    return expected + heicBox("mdat", room);
}

TEST(HEIFLayouts, AreReadAndGetRoomWhileTheRestIsKept) {
    std::tuple<HeicOptions, std::string, std::string> const cases[] = {
        {{}, "", ""},
        {{.thumbnail = true, .xmp = XMP}, "VT", "VT"},
        {{.filler = 70'000, .thumbnail = true, .xmp = XMP}, "VT", "VT"}, // long enough to stay in the file
        {{.columns = 1, .alpha = true, .groups = true, .rotation = 3}, "WT", "WT"},
        {{.xmp = XMP, .ilocVersion = 0}, "V", "V"},
        {{.xmp = XMP, .ilocVersion = 2, .primaryId = 70'000}, "VT", "VT"},
        {{.ilocVersion = 2, .primaryId = 70'000}, "", ""},
        {{.xmp = XMP, .fieldWidth = 8, .indexWidth = 4, .baseOffset = true}, "", ""},
        {{.xmp = XMP, .baseOffset = true, .gridInIdat = false, .mdat = Mdat::Wide, .metaLast = true}, "DVT", "DVT"},
        {{.xmp = XMP, .xmpInIdat = true, .mdat = Mdat::Wide}, "T", "T"},
        {{.xmp = XMP, .mdat = Mdat::ToEnd}, "", ""},
        {{.xmp = XMP, .furtherBoxes = true, .behindMdat = heicBox("free", "x")}, "VPT", "VPT"},
        {{.exif = false, .xmp = heicXmp(std::string(2000, 'x'))}, "V", "V"}, // more than the room asked for
        {{.rows = 23, .columns = 23, .filler = 200, .fieldWidth = 8},
         "VT",
         "VT"},                                            // narrower locations: the image gets shorter
        {{.rows = 56, .columns = 56, .xmp = XMP}, "", ""}, // a list of items longer than what is copied at a time
        {{.xmp = XMP}, "TVD", "VDT"},                      // a hidden trailer comes last
    };
    int row = 0;
    for (auto const& [options, tail, expectedTail] : cases) {
        SCOPED_TRACE(row++);
        std::string const image = buildHeic(options), oldXmp = options.xmp.value_or("");
        std::string const before = HeicParts{image}.build("I" + tail);
        TempFile const file(before);
        for (ParseMode const mode : {ParseMode::LAZY, ParseMode::EAGER})
            EXPECT_EQ(ImageMetaReader::of(file.open("r"), mode)->getXMP().toTypedData<std::string>(), oldXmp);
        std::string const after = reserved(before, 1280);
        std::string const newImage = after.substr(0, after.size() - (before.size() - image.size()));
        EXPECT_TRUE(after == HeicParts{newImage}.build("I" + expectedTail));

        HeicOptions decodable = options;
        decodable.indexWidth = 0; // libheif 1.15 does not read item reference indices
        EXPECT_EQ(decodedImages(after), decodedImages(buildHeic(decodable)));
        auto const is = takeApart(after, true); // a pointer may have no video
        EXPECT_EQ(is.image, takeApart(before, true).image);
        ASSERT_EQ(is.packets.size(), 1U);
        std::string const packet = oldXmp.substr(0, oldXmp.find_last_not_of(' ') + 1);
        EXPECT_EQ(is.packet().size(), std::max<size_t>(1280, packet.size()));
        EXPECT_TRUE(is.packet().starts_with(options.xmp ? packet : "<x:xmpmeta")) << is.packet();
        EXPECT_TRUE(packet.empty() || newImage.find(packet) == newImage.rfind(packet)) << "the old packet is left";
        EXPECT_TRUE(withoutMeta(newImage) == imageOutsideMeta(image, oldXmp, is.packet()));

        TempFile const undone(after);
        auto const room = undone.open();
        EXPECT_FALSE(options.xmp && published::removeEmptyXMP(room)) << "it holds something";
        if (!options.xmp) { // as if there had never been room, but for wider locations
            HEIFMetaWriter(room).writeXMP(XMPInfo::parse(room));
            EXPECT_TRUE(published::removeEmptyXMP(room));
            EXPECT_TRUE(undone.bytes() == HeicParts{image}.build("I" + expectedTail) || options.fieldWidth > 4);
        }
        HeicOptions without = options, empty = options;
        without.xmp.reset();
        empty.xmp = XMPPacket().serialize();
        TempFile const emptied(HeicParts{buildHeic(empty)}.build("I" + expectedTail));
        EXPECT_TRUE(published::removeEmptyXMP(emptied.open()));
        EXPECT_TRUE(emptied.bytes() == HeicParts{buildHeic(without)}.build("I" + expectedTail));
    }
}

TEST(HEIFReserveXMP, LeavesSharedBytesWhenAnotherItemUsesTheOldPacket) {
    std::string const packet = heicXmp("shared");
    std::string tile = buildHeic({.exif = false, .xmp = packet}); // tiles 1 to 4, grid 5, XMP 6
    auto const extentOf = [&](uint32_t id) {
        return tile.find(bigEndian(id, 2) + bigEndian(0, 4) + bigEndian(1, 2)) + 8;
    };
    tile.replace(extentOf(1), 8, tile.substr(extentOf(6), 8)); // the first tile is where the packet is

    // The thumbnail, 6, takes all of 'idat': an extent without a length.
    std::string toEnd = buildHeic({.thumbnail = true, .exif = false, .xmp = packet, .xmpInIdat = true});
    auto const entry = [](uint32_t method) { return bigEndian(6, 2) + bigEndian(method << 16, 4) + bigEndian(1, 2); };
    toEnd.replace(toEnd.find(entry(0)), 16, entry(1) + std::string(8, '\0'));
    for (std::string const& shared : {tile, toEnd}) {
        std::string const after = reserved(shared, 1280);
        EXPECT_EQ(after.find(packet) - shared.find(packet), after.find("mdat") - shared.find("mdat"));
        EXPECT_NE(after.find(packet), after.rfind(packet)) << "at the old place and in the room";
    }
}

TEST(HEIFReserveXMP, PicksAFreeIdWhenTheLargestIsTaken) {
    std::string const group = heicBox("grpl", heicFullBox("ster", 0, 0, bigEndian(65535, 4) + bigEndian(0, 4)));
    std::pair<HeicOptions, int> const cases[] = {
        {{.exif = false}, 6},                             // tiles 1 to 4, grid 5
        {{.groups = true}, 901},                          // groups share the items' numbers
        {{.exif = false, .primaryId = 65535}, 5},         // 16 bits are full: the lowest free one
        {{.ilocVersion = 2, .primaryId = 70000}, 70'001}, // 32 bits all over
        {{.exif = false, .extraMeta = group}, 6},
    };
    for (auto const& [options, expected] : cases) {
        std::string const after = reserved(buildHeic(options), 300);
        HEIFMetaReader reader(TempFile(after).open("r"), ParseMode::LAZY);
        std::vector<uint8_t> packet;
        reader.getImageFrame(expected, packet, 300);
        EXPECT_EQ(std::string(packet.begin(), packet.end()), after.substr(after.size() - 300)) << expected;
    }
}

TEST(HEIFWriteXMP, PacketFillsItsRoomWithBlanks) {
    auto const view = viewOf(heicXmp("written"));
    std::vector<uint8_t> const packet = view->serializeToBuffer();
    for (HeicOptions const& options :
         {HeicOptions{}, HeicOptions{.xmp = XMP}, HeicOptions{.xmp = XMP, .xmpInIdat = true}}) {
        TempFile const file(HeicParts{buildHeic(options)}.build("IVT"));
        auto const before = takeApart(file.bytes());
        size_t const room = options.xmp ? XMP.size() : 1280;
        HEIFMetaWriter(file.open()).writeXMP(view);
        auto const after = takeApart(file.bytes());
        std::string const blanks(room - packet.size(), ' ');
        EXPECT_EQ(after.packets, std::vector{std::string(packet.begin(), packet.end()) + blanks});
        EXPECT_EQ(after.image, before.image);
        EXPECT_EQ(after.video, before.video);
        EXPECT_EQ(HEIFMetaWriter(file.open("r")).xmpRoom(), room);
    }
    for (HeicOptions const& refused :
         {HeicOptions{.xmp = XMP, .mimeFirst = "text"}, HeicOptions{.xmp = XMP, .xmpEncoding = "deflate"}})
        EXPECT_EQ(HEIFMetaWriter(TempFile(buildHeic(refused)).open("r")).xmpRoom(), 0U);
}

TEST(HEIFMetaWriter, RefusalsLeaveTheFileAsItWas) {
    std::string shared = buildHeic({.xmp = XMP}); // the Exif item's length reaches over the packet
    size_t const exif = shared.find(bigEndian(24, 4), shared.find("iloc"));
    ASSERT_LT(exif, shared.find("iinf"));
    shared.replace(exif, 4, bigEndian(30, 4));
    std::string const group = heicFullBox("altr", 0, 0, bigEndian(0xFFFF, 4) + bigEndian(9, 4));
    auto const reserve = [](auto& file) {
        try {
            HEIFMetaWriter(file.open()).reserveXMP(1280);
        } catch (std::runtime_error const& error) { // the muxer's own reason goes to the log
            throw std::runtime_error(error.what() + std::string("|") + hbox_last_error());
        }
    };
    auto const writing = [](std::shared_ptr<XMPInfo> const& view) {
        return [view](auto& file) { HEIFMetaWriter(file.open()).writeXMP(view); };
    };
    auto const small = writing(viewOf(heicXmp("small"))), large = writing(viewOf(heicXmp(std::string(1500, 'x'))));
    expectRefused({
        {buildHeic({.grid = false}), reserve, "[HEIFController]not grid image or no item"},
        {buildHeic({.behindMdat = heicBox("meco", "x")}), reserve, "box 'meco'"},
        {buildHeic({.beforeMdat = heicBox("mpvd", "ftyp")}), reserve, "box 'mpvd'"},
        {buildHeic({.behindMdat = heicFullBox("meta", 0, 0, "")}), reserve, "2 'meta' boxes"},
        {buildHeic({.indexWidth = 2}), reserve, "err=-5"},
        {buildHeic({.tileExtents = 2}), reserve, "[HEIFMetaWriter]fail to set image info|"},
        {buildHeic({.tileMethod = 2}), reserve, "item 1: construction method 2"},
        {buildHeic({.tileDataReference = 1}), reserve, "item 1: data reference 1"},
        {buildHeic({.tileShift = 140, .tail = heicBox("mpvd", std::string(64, 'v'))}), reserve, "outside the image"},
        {buildHeic({.xmp = XMP, .xmpEncoding = "deflate"}), reserve, "not plain application/rdf+xml"},
        {buildHeic({.tail = "abc"}), reserve, "fail to get file payload"},
        {buildHeic({.extraMeta = heicFullBox("pitm", 0, 0, bigEndian(1, 2))}), reserve, "would not be found"},
        {buildHeic({.extraMeta = heicFullBox("iinf", 0, 0, bigEndian(0, 2))}), reserve, "2 'iinf'"},
        {buildHeic({.extraMeta = bigEndian(0, 4) + "free"}), reserve, "has no size"},
        {buildHeic({.extraMeta = heicBox("grpl", group)}), reserve, "9 entries"},
        {buildHeic({.xmp = XMP}), large, "xmpBuffer size must be smaller than xmpBox size"},
        {buildHeic(), large, "xmpBuffer size must be smaller than xmpBox size"},
        {buildHeic({.mimeFirst = std::string(999, 't')}), small, "not plain"},
        {shared, small, "belong to another item"},
        {buildHeic({.xmp = XMP}), writing(nullptr), "no XMP given"},
    });
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
