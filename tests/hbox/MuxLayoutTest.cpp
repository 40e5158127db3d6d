#include <gtest/gtest.h>

#include <algorithm>

#include "HboxRun.h"
#include "support/HeicBuilder.h"
#include "support/HeicPicture.h"

using namespace android::lumo::test;
using namespace hbox::test;

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

struct TopBox {
    std::string type;
    std::string bytes;
};

/// Top-level boxes with 32-bit sizes or the 64-bit form; the size-0 form gets its size, as the muxer gives it.
std::vector<TopBox> topBoxes(std::string const& file) {
    auto const number = [&](size_t at, size_t width) {
        uint64_t value = 0;
        for (size_t i = 0; i < width; ++i)
            value = value << 8 | static_cast<unsigned char>(file.at(at + i));
        return value;
    };
    std::vector<TopBox> boxes;
    for (size_t at = 0; at < file.size(); at += boxes.back().bytes.size()) {
        uint64_t size = number(at, 4);
        boxes.push_back({file.substr(at + 4, 4), {}});
        if (size == 1)
            size = number(at + 8, 8);
        bool const toEnd = size == 0;
        boxes.back().bytes = file.substr(at, toEnd ? file.npos : static_cast<size_t>(size));
        if (toEnd)
            boxes.back().bytes.replace(0, 4, bigEndian(file.size() - at, 4));
        EXPECT_TRUE(toEnd || boxes.back().bytes.size() == size) << "the boxes do not add up";
        if (boxes.back().bytes.empty())
            break;
    }
    return boxes;
}

size_t occurrences(std::string const& text, std::string const& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

std::string trimmed(std::string text) {
    return text.erase(text.find_last_not_of(' ') + 1);
}

/// All boxes but 'meta' are the source's, the old packet's bytes apart; then comes the room.
void expectBoxesKept(std::string const& before, std::string const& after, std::string const& oldXmp) {
    auto const old = topBoxes(before);
    auto const made = topBoxes(after);
    ASSERT_EQ(made.size(), old.size() + 1);
    EXPECT_EQ(made.back().type, "mdat");
    for (size_t i = 0; i < old.size(); ++i) {
        EXPECT_EQ(made[i].type, old[i].type);
        std::string expected = old[i].bytes;
        if (size_t const at = oldXmp.empty() ? expected.npos : expected.find(oldXmp); at != expected.npos)
            std::fill_n(expected.begin() + static_cast<ptrdiff_t>(at), oldXmp.size(), ' ');
        if (old[i].type != "meta") {
            EXPECT_EQ(made[i].bytes, expected) << old[i].type;
        }
    }
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
            expectBoxesKept(file.bytes.substr(0, file.imageLength), made.image, oldXmp);
            expectItemsKept(file.bytes, made.image, file);

            HeicPicture before;
            HeicPicture after;
            HeicOptions decodable = layout.options;
            decodable.indexWidth = 0; // libheif 1.15 does not read item reference indices
            ASSERT_NO_THROW(before = readHeicPicture(buildHeic(decodable)));
            ASSERT_NO_THROW(after = readHeicPicture(made.image));
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

TEST(MuxLayout, DecodesToTheTilesGreyValues) {
    MuxResult const made = reserve(buildHeic(), buildHeicFile().imageLength, 1280);
    std::string const rgb = readHeicPicture(made.image).images.at(0);
    size_t const start = rgb.find('\n') + 1;
    for (size_t tile = 0; tile < 4; ++tile) {
        size_t const pixel = (tile / 2 * 64 * 128 + tile % 2 * 64) * 3;
        EXPECT_EQ(static_cast<uint8_t>(rgb.at(start + pixel)), HEIC_TILE_GREY[tile]);
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
    HeicOptions options{.exif = false, .xmp = heicXmp("shared")};
    HeicFile const file = buildHeicFile(options);
    std::string shared = file.bytes; // the first tile's location becomes the XMP item's
    std::string const entry = bigEndian(1, 2) + bigEndian(0, 4) + bigEndian(1, 2);
    std::string const xmpEntry = bigEndian(file.xmpId, 2) + bigEndian(0, 4) + bigEndian(1, 2);
    size_t const from = shared.find(xmpEntry) + 8;
    shared.replace(shared.find(entry) + 8, 8, shared.substr(from, 8));
    MuxResult const made = reserve(shared, file.imageLength, 1280);
    ASSERT_EQ(made.error, HBOX_OK) << made.text;
    EXPECT_EQ(Demuxer(made.image).frame(1), *options.xmp);
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
