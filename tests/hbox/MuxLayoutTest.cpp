#include <gtest/gtest.h>

#include <algorithm>

#include "HboxRun.h"
#include "support/HeicBuilder.h"
#include "support/HeicPicture.h"

using namespace android::lumo::test;
using namespace hbox::test;
using std::string_literals::operator""s;

namespace {

struct Layout {
    char const* name;
    HeicOptions options;
};

using Mdat = HeicOptions::Mdat;

Layout const LAYOUTS[] = {
    {"plain", {}},
    {"ilocVersion0", {.ilocVersion = 0}},
    {"ilocVersion2", {.ilocVersion = 2}},
    {"wideIds", {.xmp = heicXmp("old"), .ilocVersion = 2, .primaryId = 70000}},
    {"wideIdsNewXmp", {.ilocVersion = 2, .primaryId = 70000}},
    {"wideFieldsBaseIndex", {.ilocVersion = 1, .fieldWidth = 8, .indexWidth = 4, .baseOffset = true}},
    {"gridInMdat", {.gridInIdat = false}},
    {"wideMdat", {.mdat = Mdat::Wide}},
    {"mdatToEnd", {.xmp = heicXmp("old", 600), .mdat = Mdat::ToEnd}},
    {"metaLast", {.thumbnail = true, .xmp = heicXmp("old"), .metaLast = true}},
    {"freeAndUnknown", {.freeBoxes = true, .unknownBoxes = true, .behindMdat = heicBox("free", "behind")}},
    {"everyItem", {.thumbnail = true, .alpha = true, .groups = true, .xmp = heicXmp("old", 900), .mimeFirst = "text"}},
    {"rotated", {.columns = 1, .rotation = 1}},
    {"xmpInIdat", {.xmp = heicXmp("old"), .xmpInIdat = true}},
    {"xmpLongerThanTheRoom", {.xmp = heicXmp(std::string(2000, 'x'))}},
    {"noMetadataAtAll", {.exif = false}},
    {"manyTiles", {.rows = 6, .columns = 8, .tail = heicBox("mpvd", "video")}},
};

size_t occurrences(std::string const& text, std::string const& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

std::string trimmed(std::string text) {
    return text.erase(text.find_last_not_of(' ') + 1);
}

std::string withoutMeta(std::string image) {
    size_t const at = image.find("meta\0\0\0\0"s) - 4;
    size_t size = 0;
    for (size_t i = at; i < at + 4; ++i)
        size = size << 8 | static_cast<unsigned char>(image.at(i));
    return image.erase(at, size);
}

/// Outside 'meta' the old packet's bytes are blanked, an 'mdat' to the end gets its size, and then comes the room.
void expectBoxesKept(std::string const& before, MuxResult const& made, std::string const& oldXmp) {
    std::string expected = withoutMeta(before);
    if (size_t const at = expected.find(oldXmp); at != expected.npos)
        std::fill_n(expected.begin() + static_cast<ptrdiff_t>(at), oldXmp.size(), ' ');
    if (size_t const at = expected.find("\0\0\0\0mdat"s); at != expected.npos)
        expected.replace(at, 4, bigEndian(expected.size() - at, 4));
    EXPECT_TRUE(withoutMeta(made.image) == expected + heicBox("mdat", made.image.substr(made.roomOffset)));
}

void expectItemsKept(std::string const& before, std::string const& after, HeicFile const& file) {
    Demuxer const old(before);
    Demuxer const made(after);
    ASSERT_EQ(made.frame(1).size(), 32U);
    for (uint32_t id = 1; id <= file.largestId; id = id == 64 ? std::max(file.largestId, id + 1) : id + 1) {
        if (id != file.xmpId) {
            EXPECT_EQ(made.frame(id), old.frame(id)) << "item " << id;
        }
    }
}

} // namespace

TEST(MuxLayout, KeepsItemsBoxesAndPixelsWhenXmpIsReserved) {
    for (Layout const& layout : LAYOUTS) {
        for (uint32_t const wanted : {static_cast<uint32_t>(HBOXM_MIN_XMP_SIZE), 1280U}) {
            SCOPED_TRACE(std::string(layout.name) + " " + std::to_string(wanted));
            HeicFile const file = buildHeicFile(layout.options);
            MuxResult const made = reserve(file.bytes, file.imageLength, wanted);
            ASSERT_EQ(made.error, HBOX_OK) << made.text;

            std::string const oldXmp = layout.options.xmp.value_or("");
            std::string const packet = trimmed(oldXmp);
            EXPECT_EQ(made.roomSize, std::max<size_t>(wanted, packet.size()));
            EXPECT_EQ(made.roomOffset + made.roomSize, made.image.size());
            expectBoxesKept(file.bytes.substr(0, file.imageLength), made, oldXmp);
            expectItemsKept(file.bytes, made.image, file);

            HeicOptions decodable = layout.options;
            decodable.indexWidth = 0; // libheif 1.15 does not read item reference indices
            HeicPicture const before = readHeicPicture(buildHeic(decodable));
            HeicPicture after = readHeicPicture(made.image);
            ASSERT_EQ(after.xmp.size(), 1U) << "never two XMP items";
            EXPECT_EQ(after.xmp[0], made.image.substr(made.roomOffset, made.roomSize));
            EXPECT_EQ(trimmed(after.xmp[0]).compare(0, 10, "<x:xmpmeta"), 0);
            if (!packet.empty()) {
                EXPECT_EQ(trimmed(after.xmp[0]), packet);
                EXPECT_EQ(occurrences(made.image, packet), 1U) << "the old bytes are blanked";
            }
            after.xmp = before.xmp;
            EXPECT_TRUE(after == before) << "pixels or metadata differ";
        }
    }
}

TEST(MuxLayout, KeepsOnePacketWhenRoomIsReservedAgain) {
    MuxResult const first = reserve(buildHeic(), buildHeicFile().imageLength, 200);
    MuxResult const second = reserve(first.image, static_cast<uint32_t>(first.image.size()), 5000);
    ASSERT_EQ(second.error, HBOX_OK) << second.text;
    EXPECT_EQ(second.image.size(), first.image.size() + 8 + 5000);
    EXPECT_EQ(occurrences(second.image, "x:xmpmeta xmlns"), 1U);
    EXPECT_EQ(readHeicPicture(second.image).xmp.size(), 1U);
}

TEST(MuxLayout, LeavesSharedBytesWhenAnotherItemUsesTheOldPacket) {
    std::string const packet = heicXmp("shared");
    HeicFile const file = buildHeicFile({.exif = false, .xmp = packet});
    std::string shared = file.bytes;
    auto const extentOf = [&](uint32_t id) {
        return shared.find(bigEndian(id, 2) + bigEndian(0, 4) + bigEndian(1, 2)) + 8;
    };
    shared.replace(extentOf(1), 8, shared.substr(extentOf(file.xmpId), 8)); // the first tile is where the packet is
    MuxResult const made = reserve(shared, file.imageLength, 1280);
    ASSERT_EQ(made.error, HBOX_OK) << made.text;
    EXPECT_EQ(Demuxer(made.image).frame(1), packet);

    HeicFile const rest = buildHeicFile({.thumbnail = true, .exif = false, .xmp = packet, .xmpInIdat = true});
    std::string toEnd = rest.bytes; // the thumbnail takes all of 'idat': an extent without a length
    auto const entry = [&](uint32_t method) {
        return bigEndian(rest.thumbnailId, 2) + bigEndian(method << 16, 4) + bigEndian(1, 2);
    };
    toEnd.replace(toEnd.find(entry(0)), 16, entry(1) + std::string(8, '\0'));
    EXPECT_EQ(occurrences(reserve(toEnd, rest.imageLength, 1280).image, packet), 2U) << "in 'idat' and in the room";
}

TEST(MuxLayout, PicksAFreeIdWhenTheLargestIsTaken) {
    struct {
        HeicOptions options;
        uint32_t expected;
    } const cases[] = {
        {{.exif = false}, 6},                            // tiles 1 to 4, grid 5
        {{.groups = true}, 901},                         // groups share the items' numbers
        {{.exif = false, .primaryId = 65535}, 5},        // 16 bits are full: the lowest free one
        {{.ilocVersion = 2, .primaryId = 70000}, 70001}, // 32 bits all over
        {{.exif = false,
          .extraMeta = heicBox("grpl", heicFullBox("ster", 0, 0, bigEndian(65535, 4) + bigEndian(0, 4)))},
         6},
    };
    for (auto const& [options, expected] : cases) {
        HeicFile const file = buildHeicFile(options);
        MuxResult const made = reserve(file.bytes, file.imageLength, 300);
        ASSERT_EQ(made.error, HBOX_OK) << made.text;
        EXPECT_EQ(Demuxer(made.image).frame(expected), made.image.substr(made.roomOffset)) << expected;
    }
}
