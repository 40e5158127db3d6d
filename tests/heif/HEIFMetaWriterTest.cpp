#include "io/HEIFMetaWriter.h"
#include "HeicParts.h"
#include "XMPInfo.h"
#include "io/HEIFMetaReader.h"
#include "support/Faults.h"
#include "support/HeicPicture.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace android::lumo::test {
namespace {

using testing::HasSubstr;
using Mdat = HeicOptions::Mdat;

std::string const XMP = heicXmp("camera", 400);

std::shared_ptr<XMPInfo> viewOf(std::string const& packet) {
    TempFile const file(buildHeic({.xmp = packet}));
    return XMPInfo::parse(file.open("r"));
}

std::string itemBytes(HEIFMetaReader& reader, uint32_t id) {
    std::vector<uint8_t> bytes;
    reader.getImageFrame(static_cast<int>(id), bytes, INT32_MAX);
    return {bytes.begin(), bytes.end()};
}

TEST(HEIFReserve, ImageAndAppendedDataAreKeptInEveryLayout) {
    struct Case {
        char const* what;
        HeicOptions options;
        char const* tail;
        char const* expectedTail;
    } const cases[] = {
        {"nothing appended", {}, "", ""},
        {"packet to be kept", {.thumbnail = true, .xmp = XMP}, "VT", "VT"},
        {"alpha, groups, rotation", {.alpha = true, .groups = true, .rotation = 3}, "WT", "WT"},
        {"locations of version 0", {.xmp = XMP, .ilocVersion = 0}, "V", "V"},
        {"locations of version 2, wide ids", {.xmp = XMP, .ilocVersion = 2, .primaryId = 70'000}, "VT", "VT"},
        {"base offset, 'meta' last", {.baseOffset = true, .metaLast = true}, "DVT", "DVT"},
        {"packet in 'idat'", {.xmp = XMP, .xmpInIdat = true, .mdat = Mdat::Wide}, "T", "T"},
        {"'mdat' to the end", {.mdat = Mdat::ToEnd}, "", ""},
        {"plain boxes in the image",
         {.freeBoxes = true, .unknownBoxes = true, .behindMdat = heicBox("free", "x")},
         "VPT",
         "VPT"},
        {"hidden trailer", {.xmp = XMP}, "TVD", "VDT"},
    };
    for (auto const& [what, options, tail, expectedTail] : cases) {
        HeicFile const heic = buildHeicFile(options);
        std::string const before = HeicParts{heic.bytes}.build("I" + std::string(tail));
        TempFile const file(before);
        HEIFMetaWriter writer(file.open());
        Metadata const room = writer.reserveXMP(1280);
        EXPECT_EQ(room.payload, 1280U) << what;
        EXPECT_EQ(writer.xmpRoom(), 1280U) << what;
        std::string const after = file.bytes();
        size_t const newImage = after.size() - (before.size() - heic.bytes.size());
        EXPECT_TRUE(after == HeicParts{after.substr(0, newImage)}.build("I" + std::string(expectedTail))) << what;

        HeicPicture const was = readHeicPicture(before);
        HeicPicture const is = readHeicPicture(after);
        EXPECT_EQ(was.images, is.images) << what;
        EXPECT_EQ(was.metadata, is.metadata) << what;
        EXPECT_EQ(is.xmp.size(), 1U) << what;
        std::string const kept = options.xmp ? *options.xmp : "<x:xmpmeta";
        EXPECT_THAT(is.xmp.front(), testing::StartsWith(kept.substr(0, kept.find_last_not_of(' ') + 1))) << what;
        TempFile const source(before);
        HEIFMetaReader oldReader(source.open("r"), ParseMode::LAZY);
        HEIFMetaReader newReader(file.open("r"), ParseMode::LAZY);
        for (uint32_t id = 1; id <= 4; ++id)
            EXPECT_EQ(itemBytes(oldReader, id), itemBytes(newReader, id)) << what << id;
    }
}

TEST(HEIFReserve, RefusalsLeaveTheFileAsItWas) {
    struct Case {
        char const* what;
        HeicOptions options;
        char const* message;
    } const cases[] = {
        {"no grid", {.grid = false}, "[HEIFController]not grid image or no item"},
        {"two extents", {.tileExtents = 2}, "[HEIFMetaWriter]fail to set image info: "},
        {"tile in another item", {.tileMethod = 2}, "[HEIFMetaWriter]fail to set image info: "},
        {"tile in another file", {.tileDataReference = 1}, "[HEIFMetaWriter]fail to set image info: "},
        {"tile outside the image", {.tileShift = 1 << 20}, "item 1"},
        {"more tiles than are handled", {.rows = 23, .columns = 23}, "fail to get item ids: err=-7"},
        {"movie", {.behindMdat = heicBox("moov", "")}, "box 'moov'"},
        {"video inside the image", {.beforeMdat = heicBox("mpvd", "ftyp")}, "box 'mpvd'"},
        {"two 'meta' boxes", {.behindMdat = heicFullBox("meta", 0, 0, "")}, "2 'meta' boxes"},
        {"text in front of the XMP", {.xmp = XMP, .mimeFirst = "text"}, "not plain application/rdf+xml"},
        {"compressed XMP", {.xmp = XMP, .xmpEncoding = "deflate"}, "not plain application/rdf+xml"},
        {"stray bytes", {.tail = "abc"}, "fail to get file payload"},
    };
    for (auto const& [what, options, message] : cases) {
        TempFile const file(buildHeic(options));
        std::string const before = file.bytes();
        HEIFMetaWriter writer(file.open());
        EXPECT_THAT(messageOf([&] { writer.reserveXMP(1280); }), HasSubstr(message)) << what;
        EXPECT_TRUE(file.bytes() == before) << what;
    }
}

TEST(HEIFReserve, FullDiskLeavesTheFileAsItWasAndNoFailedWriteSucceeds) {
    for (char const* letters : {"I", "IVT", "ITV"}) {
        std::string const before = HeicParts().build(letters);
        TempFile const file(before);
        {
            Fault const full = Fault::failing(Call::ALLOCATE, ENOSPC);
            EXPECT_THAT(messageOf([&] { HEIFMetaWriter(file.open()).reserveXMP(1280); }), HasSubstr("fail to reserve"));
        }
        EXPECT_TRUE(file.bytes() == before) << letters;
        size_t failures = 0;
        for (bool done = false; !done; ++failures) {
            TempFile const other(before);
            Fault const fault = Fault::failing(Call::WRITE, EIO, failures);
            try {
                HEIFMetaWriter(other.open()).reserveXMP(1280);
                done = true;
            } catch (std::runtime_error const&) {
            }
            EXPECT_EQ(done, fault.calls() <= failures) << letters;
        }
        EXPECT_GT(failures, 1U);
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

TEST(HEIFWriteXMP, RefusalsLeaveTheFileAsItWas) {
    auto const small = viewOf(heicXmp("small"));
    auto const large = viewOf(heicXmp(std::string(1500, 'x')));
    std::string const tooLong = "xmpBuffer size must be smaller than xmpBox size";
    std::string shared = buildHeic({.xmp = XMP}); // the Exif item's length reaches over the packet
    size_t const exif = shared.find(bigEndian(24, 4), shared.find("iloc"));
    ASSERT_LT(exif, shared.find("iinf"));
    shared.replace(exif, 4, bigEndian(30, 4));
    struct Case {
        char const* what;
        std::string bytes;
        std::shared_ptr<XMPInfo> view;
        std::string message;
    } const cases[] = {
        {"longer than the room", buildHeic({.xmp = XMP}), large, tooLong},
        {"longer than new room would be", buildHeic(), large, tooLong},
        {"no room can be made", buildHeic({.grid = false}), small, "not grid image"},
        {"another type", buildHeic({.mimeFirst = std::string(999, 't')}), small, "not plain"},
        {"compressed", buildHeic({.xmp = XMP, .xmpEncoding = "deflate"}), small, "not plain"},
        {"bytes of two items", shared, small, "belong to another item"},
        {"no view", buildHeic({.xmp = XMP}), nullptr, "no XMP given"},
    };
    for (auto const& [what, bytes, view, message] : cases) {
        TempFile const file(bytes);
        HEIFMetaWriter writer(file.open());
        EXPECT_THAT(messageOf([&, &info = view] { writer.writeXMP(info); }), HasSubstr(message)) << what;
        EXPECT_TRUE(file.bytes() == bytes) << what;
    }
}

TEST(HEIFWriteXMP, RoomIsWhatCanBeWrittenInPlace) {
    struct Case {
        HeicOptions options;
        uint32_t room;
    } const cases[] = {
        {{.xmp = XMP}, 400},
        {{}, 0},
        {{.xmp = XMP, .mimeFirst = "text"}, 0},
        {{.xmp = XMP, .xmpEncoding = "deflate"}, 0},
    };
    for (auto const& [options, room] : cases) {
        TempFile const file(buildHeic(options));
        EXPECT_EQ(HEIFMetaWriter(file.open("r")).xmpRoom(), room);
    }
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
