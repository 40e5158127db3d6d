// SPDX-License-Identifier: Apache-2.0
#include "io/JPEGMetaWriter.h"
#include "XMPInfoImpl.h"
#include "io/MoveRest.h"
#include "support/Faults.h"
#include "support/PhotoParts.h"
#include "xmp/XMPFixture.h"

namespace android::lumo::test {
namespace {

/// A view that is nothing but its packet.
class Packet : public XMPInfoImpl {
public:
    explicit Packet(std::string const& text)
        : XMPInfoImpl(TempFile(JpegBuilder().build()).open()), bytes(text.begin(), text.end()) {}
    std::vector<uint8_t> serializeToBuffer() const override { return bytes; }

private:
    std::vector<uint8_t> bytes;
};

void writeView(TempFile const& file, std::string const& packet) {
    std::shared_ptr<XMPInfo> const info = std::make_shared<Packet>(packet);
    ImageMetaWriter::of(file.open())->writeXMP(info);
}

void writeBytesOf(TempFile const& file, std::string const& packet) {
    ImageMetaWriter::of(file.open())->writeXMP(std::vector<unsigned char>(packet.begin(), packet.end()));
}

/// What an existing debug info's payload is taken for, whatever it is.
constexpr size_t ASSUMED_PAYLOAD = 0xFFE4 - 2;

void writeDebugInfo(TempFile const& file, std::string const& data) {
    JPEGMetaWriter(file.open()).writeCameraDebugInfo({data.begin(), data.end()});
}

void removeDebugInfo(TempFile const& file, std::string const&) {
    JPEGMetaWriter(file.open()).removeCameraDebugInfo();
}

std::pair<std::vector<std::string>, std::string> keptOf(std::string const& file) {
    auto const parts = takeApart(file);
    return {parts.image, parts.behind};
}

TEST(JPEGMetaWriter, PutsPacketWhereExifAndOldPacketsTellAndKeepsTheRest) {
    std::tuple<char const*, JpegBuilder, size_t, char const*> const cases[] = {
        {"no Exif", JpegBuilder().segment(0xDB, "q"), 1251, "E1 1280 http://ns.ad\nDB 1 q\n"},
        {"old packet too small", JpegBuilder().exif().xmp("<old/>").segment(0xE2, "ICC"), 10,
         "E1 9 Exif..II*\nE1 1280 http://ns.ad\nE2 3 ICC\n"},
        {"old packet in front of Exif", JpegBuilder().xmp("<old/>").segment(0xE0, "JFIF").exif(), 10,
         "E0 4 JFIF\nE1 9 Exif..II*\nE1 1280 http://ns.ad\n"},
        {"old packet large enough", JpegBuilder().segment(0xE0, "JFIF").xmp("<old/>", 4000).exif(), 3900,
         "E0 4 JFIF\nE1 4000 http://ns.ad\nE1 9 Exif..II*\n"},
        {"next 64 bytes", JpegBuilder().xmp("<old/>", 4000), 3972, "E1 4032 http://ns.ad\n"},
        {"two old packets", JpegBuilder().xmp("<a/>", 2000).segment(0xE0, "JFIF").xmp("<b/>", 2000), 10,
         "E1 1280 http://ns.ad\nE0 4 JFIF\n"},
        {"two Exif", JpegBuilder().exif("1").segment(0xE0, "JFIF").exif("2").xmp("<old/>"), 2000,
         "E1 7 Exif..1\nE1 2048             \nE0 4 JFIF\nE1 7 Exif..2\nE1 2048 http://ns.ad\n"},
        {"extended packet", JpegBuilder().exif().xmp("<old/>").segment(0xE1, EXTENDED_XMP_ID + pattern(3000)), 10,
         "E1 9 Exif..II*\nE1 1280 http://ns.ad\nE1 3035 http://ns.ad\n"},
        {"fill bytes", JpegBuilder().raw("\xFF\xFF").exif().raw("\xFF").xmp("<old/>").raw("\xFF"), 10,
         "E1 9 Exif..II*\nE1 1280 http://ns.ad\n"},
        {"index behind", JpegBuilder().exif().xmp("<old/>").mpf(), 10,
         "E1 9 Exif..II*\nE1 1280 http://ns.ad\nE2 7 MPF.MM*\n"},
        {"packet behind index just large enough", JpegBuilder().exif().mpf().xmp("<old/>", 1097), 1097 - 29,
         "E1 9 Exif..II*\nE2 7 MPF.MM*\nE1 1097 http://ns.ad\n"},
        {"largest segment", JpegBuilder().xmp("<old/>", 65'533), 65'533 - 29, "E1 65533 http://ns.ad\n"},
    };
    std::string const longerThanOneMove = pattern(1'500'000, 2);
    for (auto const& [what, input, size, tree] : cases) {
        std::string const before = input.build(pattern(2000), longerThanOneMove);
        TempFile const file(before);
        std::string const packet = "<new>" + std::string(size - 5, 'n');
        writeView(file, packet);
        std::string const after = file.bytes();
        EXPECT_TRUE(treeOf(after).starts_with(tree)) << what << '\n' << treeOf(after);
        EXPECT_TRUE(keptOf(after) == keptOf(before)) << what << '\n' << treeOf(after);
        auto const read = ImageMetaReader::of(file.open("r"), ParseMode::EAGER)->getXMP().toTypedData<std::string>();
        EXPECT_TRUE(read == packet + std::string(read.size() - packet.size(), ' ')) << what;
        Fault const fault = Fault::failing(Call::CHANGE, EIO);
        writeView(file, packet); // changes nothing
    }
}

TEST(JPEGMetaWriter, RefusalsLeaveTheFileAsItWas) {
    JpegBuilder const plain = JpegBuilder().exif();
    std::string const withOld = JpegBuilder().segment(0xE4, "old").build(pattern(3000));
    JpegBuilder manyExif;
    for (int i = 0; i < 65; ++i)
        manyExif.exif();
    auto const of = [](auto act, size_t n) { return [=](auto& file) { act(file, std::string(n, 'p')); }; };
    expectRefused({
        {plain.build(), of(writeView, 65'480), "XMP of 65536 bytes does not fit a segment"},      // no segment holds it
        {plain.build(), of(writeBytesOf, 8192 - 29), "8192 bytes does not fit its room of 1280"}, // blocks rounded down
        {plain.build(), of(writeBytesOf, 85'953 - 29),
         "85953 bytes does not fit its room of 1344"},                                   // blocks rounded up
        {JpegBuilder().xmp("", 1300).build(), of(writeBytesOf, 1272), "room of 1300"},   // longer than the room found
        {JpegBuilder().mpf().xmp("<old/>").build(), of(writeView, 7), "MPF index at 2"}, // packet behind index
        {JpegBuilder().mpf().exif().mpf().build(), of(writeView, 10), "MPF index at 2"}, // Exif behind index
        {JpegBuilder().xmp("", 1500).mpf().xmp("", 1500).build(), of(writeView, 10),
         "MPF index at 1506"}, // one of two packets behind index
        {JpegBuilder().xmp("", 2000).open().substr(0, 1500), of(writeView, 10), "past the image's end"}, // room cut off
        {JpegBuilder().exif(pattern(99)).open().substr(0, 50), of(writeView, 10),
         "past the image's end"},                                                       // Exif cut off
        {manyExif.build(), of(writeView, 10), "65 XMP and Exif segments are too many"}, // too many Exif
        {plain.build(), of(writeDebugInfo, 65'534),
         "65534 bytes does not fit a segment"},                                 // no segment holds debug info
        {plain.build(), of(writeDebugInfo, 0), "empty debug info"},             // no debug info
        {withOld, of(writeDebugInfo, ASSUMED_PAYLOAD), "past the image's end"}, // assumed size past the file's end
        {withOld, of(writeDebugInfo, 10), "fail to shift"},                     // assumed size does not fit in front
        {withOld, of(removeDebugInfo, 0), "fail to shift"},                     // nor when it is to be removed
    });
}

TEST(JPEGMetaWriter, RoomBehindExifIsOfItsType) {
    auto const room = [](JpegBuilder const& image) {
        return ImageMetaWriter::of(TempFile(image.build()).open())->reserveXMP(1280).toString();
    };
    EXPECT_EQ(room(JpegBuilder().xmp("<x/>")), "type=xmp, position=6, payload=1280, offset=0");
    EXPECT_EQ(room(JpegBuilder().exif("")), "type=exif, position=16, payload=1280, offset=0");
}

TEST(JPEGMetaWriter, RefusesToGrowPastWhatCanBeAddressedOrWhatIsNotOpenForWriting) {
    TempFile const file(JpegBuilder().build());
    EXPECT_TRUE(failsWith("not open for both", [&] { ImageMetaWriter::of(file.open("r"))->reserveXMP(1280); }));
    file.open()->truncate(UINT32_MAX - 1000);
    for (auto const write : {writeView, writeDebugInfo})
        EXPECT_TRUE(failsWith("file would grow past 4 GiB", [&] { write(file, std::string(1000, 'x')); }));
    EXPECT_EQ(file.open()->size(), UINT32_MAX - 1000);
}

// Camera debug info. --------------------------------------------------------------------------------------------------

TEST(JPEGMetaWriter, DebugInfoStandsWhereAskedAndIsTakenForItsAssumedSize) {
    JpegBuilder const front = JpegBuilder().exif().segment(0xE0, "JFIF").xmp("<x/>");
    std::string const still = front.build(pattern(4000)), data = pattern(0x0201, 9);
    std::string const segment = "\xE4\xFF\x03\x02" + data;
    std::string const old = JpegBuilder().segment(0xE0, "JFIF").segment(0xE4, "old").build(pattern(70'000));
    std::string const whole = pattern(ASSUMED_PAYLOAD, 9);
    std::string const far =
        JpegBuilder().segment(0xE0, pattern(50'000)).segment(0xE0, pattern(50'000, 2)).segment(0xE4, "").build();
    size_t const farAt = 2 + 2 * 50'004, cut = ASSUMED_PAYLOAD + 4;
    std::string const shorter = far.substr(0, farAt - cut) + far.substr(farAt);
    auto const placeBehindApp1 = [](TempFile const& file, std::string const& bytes) {
        auto const media = file.open();
        media->position(2);
        JPEGMetaWriter(media).writeApp4({bytes.begin(), bytes.end()}, 4711);
    };
    std::tuple<char const*, std::string const&, void (*)(TempFile const&, std::string const&), std::string,
               std::string> const cases[] = {
        {"new, little-endian header", still, writeDebugInfo, data, std::string(still).insert(2, segment)},
        {"new, place given", still, placeBehindApp1, data, std::string(still).insert(front.open().size(), segment)},
        {"as long as the old is taken for", old, writeDebugInfo, whole,
         std::string(old).replace(14, ASSUMED_PAYLOAD, whole)},
        {"replaced", far, writeDebugInfo, data, std::string(shorter).insert(2, segment)},
        {"removed", far, removeDebugInfo, "", shorter},
        {"nothing to remove", shorter, removeDebugInfo, "", shorter},
    };
    for (auto const& [what, before, act, bytes, after] : cases) {
        TempFile const file(before);
        act(file, bytes);
        EXPECT_TRUE(file.bytes() == after) << what;
    }
    TempFile const file(old);
    JPEGMetaWriter writer(file.open());
    writer.removeXMP(); // does nothing
    EXPECT_EQ(writer.findAppSegment(0xFFE4), (std::pair<int64_t, int64_t>{10, ASSUMED_PAYLOAD}));
    EXPECT_TRUE(file.bytes() == old);
}

// The MPF index. ------------------------------------------------------------------------------------------------------

/// A picture with another behind it and an index of both; `own` is what the index says of the first one's size.
std::string twoPictures(bool big, JpegBuilder const& front, uint32_t own, uint32_t table = 26) {
    auto const withIndex = [&](size_t offset) {
        return JpegBuilder(front).mpf(mpfIndex(own, 50, offset, table, big)).build(pattern(3000));
    };
    return withIndex(withIndex(0).size() - front.open().size() - 8) + JpegBuilder().build();
}

TEST(JPEGMetaWriter, MpfIndexNamesTheSizeOfTheGrownPicture) {
    JpegBuilder const front = JpegBuilder().exif();
    auto const first = static_cast<uint32_t>(twoPictures(true, front, 0).size() - JpegBuilder().build().size());
    std::tuple<uint32_t, uint32_t, uint32_t> const cases[] = {
        {first, 26, first + 1284}, {first - 97, 26, first + 1284}, {UINT32_MAX, 26, first + 1284},
        {1, 26, first + 1284},     {first, 5000, first},           {first, UINT32_MAX - 8, first},
    };
    for (bool big : {true, false})
        for (auto const& [own, table, after] : cases) {
            TempFile const file(twoPictures(big, front, own, table));
            writeView(file, "<x/>");
            EXPECT_TRUE(file.bytes() == twoPictures(big, JpegBuilder(front).xmp("<x/>", 1280), after, table))
                << big << ' ' << own << ' ' << table;
        }
    TempFile const file(twoPictures(true, front, first));
    writeDebugInfo(file, "abc");
    writeDebugInfo(file, "defgh"); // hidden behind the first, the index is found all the same
    EXPECT_EQ(file.bytes(),
              twoPictures(true, front, first + 16).insert(2, std::string("\xE4\xFF\x07\0defgh\xE4\xFF\x05\0abc", 16)));
}

// The pointer to a video. ---------------------------------------------------------------------------------------------

std::string const VIDEO = pattern(3000, 7);

/// A still whose trailer points to the video in front of it; more bytes may follow the pointer.
std::string stillWithPointer(JpegBuilder const& image, std::string const& more = "") {
    std::string const still = image.build("scan");
    return still + VIDEO + trailerBytes({videoRecord(pointerTo(still.size(), VIDEO.size()) + more)});
}

TEST(JPEGMetaWriter, PointerFollowsTheVideo) {
    for (JpegBuilder const& image : {JpegBuilder(), JpegBuilder().exif().xmp("<old/>"), JpegBuilder().exif().exif(),
                                     JpegBuilder().xmp("<large/>", 60'000).xmp("<two/>")}) {
        TempFile const file(stillWithPointer(image, image.open().size() > 50'000 ? "more" : ""));
        for (std::function<void()> const& move : std::initializer_list<std::function<void()>>{
                 [] {}, [&] { writeView(file, std::string(4000, 'p')); }, [&] { writeDebugInfo(file, "123"); },
                 [&] { moveRest(file.open(), static_cast<uint32_t>(file.bytes().find(VIDEO)), 10); }}) {
            move();
            EXPECT_TRUE(takeApart(file.bytes()).video == VIDEO) << treeOf(file.bytes());
        }
    }
}

TEST(JPEGMetaWriter, DamagedTrailerDoesNotKeepPacketFromBeingWritten) {
    std::string damaged = stillWithPointer(JpegBuilder());
    damaged[damaged.rfind("QRTH") + 8] = '\x7F';
    TempFile const file(damaged);
    writeView(file, "<new/>");
    EXPECT_EQ(file.bytes(), damaged.insert(2, JpegBuilder().xmp("<new/>", 1280).open().substr(2)));
}

} // namespace
} // namespace android::lumo::test
