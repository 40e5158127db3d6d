#include "io/JPEGMetaWriter.h"
#include "XMPInfoImpl.h"
#include "support/JpegBuilder.h"
#include "support/TrailerBuilder.h"
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

TEST(JPEGMetaWriter, PutsPacketBehindStartOfImageWhenThereIsNoExif) {
    for (std::string const& packet : {std::string(1, 'p'), std::string(1251, 'p')}) {
        TempFile const file(JpegBuilder().segment(0xDB, "q").build());
        writeBytesOf(file, packet);
        EXPECT_EQ(file.bytes(), JpegBuilder().xmp(packet, 1280).segment(0xDB, "q").build());
    }
}

TEST(JPEGMetaWriter, PutsPacketWhereExifAndOldPacketsTellAndKeepsTheRest) {
    struct Case {
        char const* what;
        JpegBuilder input;
        size_t packet;
        char const* tree;
    } const cases[] = {
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
        {"packet behind index large enough", JpegBuilder().exif().mpf().xmp("<old/>", 1280), 10,
         "E1 9 Exif..II*\nE2 7 MPF.MM*\nE1 1280 http://ns.ad\n"},
    };
    std::string const longerThanOneMove = pattern(1'500'000, 2);
    for (auto const& [what, input, size, tree] : cases) {
        std::string const before = input.build(pattern(2000), longerThanOneMove);
        TempFile const file(before);
        std::string const packet = "<new>" + std::string(size - 5, 'n');
        writeView(file, packet);
        std::string const after = file.bytes();
        EXPECT_TRUE(treeOf(after).starts_with(tree)) << what << '\n' << treeOf(after);
        EXPECT_TRUE(othersOf(after) == othersOf(before)) << what << '\n' << treeOf(after);
        auto const read = ImageMetaReader::of(file.open("r"), ParseMode::EAGER)->getXMP().toTypedData<std::string>();
        EXPECT_TRUE(read == packet + std::string(read.size() - packet.size(), ' ')) << what;
        writeView(file, packet);
        EXPECT_TRUE(file.bytes() == after) << what << ": written again";
    }
}

TEST(JPEGMetaWriter, RefusalsLeaveTheFileAsItWas) {
    JpegBuilder const plain = JpegBuilder().exif();
    JpegBuilder manyExif;
    for (int i = 0; i < 65; ++i)
        manyExif.exif();
    struct Case {
        char const* what;
        std::string bytes;
        void (*write)(TempFile const&, std::string const&);
        size_t packet;
        char const* message;
    } const cases[] = {
        {"no segment holds it", plain.build(), writeView, 65'480, "XMP of 65536 bytes does not fit a segment"},
        {"blocks rounded down", plain.build(), writeBytesOf, 8192 - 29, "8192 bytes does not fit its room of 1280"},
        {"blocks rounded up", plain.build(), writeBytesOf, 85'953 - 29, "85953 bytes does not fit its room of 1344"},
        {"longer than the room found", JpegBuilder().xmp("", 1300).build(), writeBytesOf, 1272, "room of 1300"},
        {"packet behind index", JpegBuilder().mpf().xmp("<old/>").build(), writeView, 10, "MPF index at 2"},
        {"Exif behind index", JpegBuilder().mpf().exif().build(), writeView, 10, "MPF index at 2"},
        {"one of two packets behind index", JpegBuilder().xmp("", 1500).mpf().xmp("", 1500).build(), writeView, 10,
         "MPF index at 1506"},
        {"room cut off", JpegBuilder().xmp("", 2000).open().substr(0, 1500), writeView, 10, "past the image's end"},
        {"Exif cut off", JpegBuilder().exif(pattern(99)).open().substr(0, 50), writeView, 10, "past the image's end"},
        {"too many Exif", manyExif.build(), writeView, 10, "65 XMP and Exif segments are too many"},
    };
    for (auto const& [what, bytes, write, size, message] : cases) {
        TempFile const file(bytes);
        EXPECT_TRUE(failsWith(message, [&, act = write, n = size] { act(file, std::string(n, 'p')); })) << what;
        EXPECT_TRUE(file.bytes() == bytes) << what;
    }
}

// The pointer to a video. ---------------------------------------------------------------------------------------------

constexpr uint32_t VIDEO_SIZE = 3000;

uint32_t swapped(size_t value) {
    return __builtin_bswap32(static_cast<uint32_t>(value));
}

/// A still whose trailer points to the video in front of it; more bytes may follow the pointer.
std::string stillWithPointer(JpegBuilder const& image, std::string const& more = "") {
    std::string const still = image.build("scan");
    std::string const pointer = "mpv2" + little(swapped(still.size())) + little(swapped(VIDEO_SIZE));
    return still + pattern(VIDEO_SIZE, 7) + trailerBytes({{2608, "MotionPhoto_Data", pointer + more}});
}

std::string videoOf(TempFile const& file) {
    std::string const pointer = readTrailer(file.bytes()).records.at(0).data;
    return file.bytes().substr(swapped(littleAt(pointer, 4)), swapped(littleAt(pointer, 8)));
}

TEST(JPEGMetaWriter, PointerFollowsTheVideo) {
    for (JpegBuilder const& image : {JpegBuilder(), JpegBuilder().exif().xmp("<old/>"), JpegBuilder().exif().exif(),
                                     JpegBuilder().xmp("<large/>", 60'000).xmp("<two/>")}) {
        TempFile const file(stillWithPointer(image, image.open().size() > 50'000 ? "more" : ""));
        ASSERT_EQ(videoOf(file), pattern(VIDEO_SIZE, 7));
        writeView(file, std::string(4000, 'p'));
        EXPECT_TRUE(videoOf(file) == pattern(VIDEO_SIZE, 7)) << treeOf(file.bytes());
        ImageMetaWriter::of(file.open())->writeCameraDebugInfo({1, 2, 3});
        EXPECT_TRUE(videoOf(file) == pattern(VIDEO_SIZE, 7)) << treeOf(file.bytes());
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
