#include "io/JPEGMetaWriter.h"
#include "TrailerLayout.h"
#include "XMPEdit.h"
#include "io/VideoPointer.h"
#include "support/Faults.h"
#include "support/JpegBuilder.h"
#include "support/TempFile.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace android::lumo::test {
namespace {

using testing::HasSubstr;

/// A view that is nothing but its packet.
class Packet : public XMPInfo {
public:
    explicit Packet(std::string const& text) : bytes(text.begin(), text.end()) {}
    std::vector<uint8_t> serializeToBuffer() const override { return bytes; }

    bool isEmpty() const override { return false; }
    bool isNotEmpty() const override { return true; }
    bool containsProperty(std::string const&, bool) const override { return false; }
    bool containsItem(std::string const&, bool) const override { return false; }
    bool containsItemField(std::string const&, std::string const&) const override { return false; }
    std::list<std::string> getPropertyNames() const override { return {}; }
    std::list<std::string> getItemNames() const override { return {}; }
    std::string getProperty(std::string const&, std::string const&) const override { return {}; }
    std::string getItemField(std::string const&, std::string const&) const override { return {}; }
    std::string getItemNameAt(int32_t) const override { return {}; }
    std::string getLastItem() const override { return {}; }
    void transferTo(std::shared_ptr<MediaFile> const&, std::filesystem::copy_options) override {}
    std::unique_ptr<XMPEdit> edit() override { return nullptr; }

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

/// Everything but the XMP and blank rooms.
std::vector<JpegSegment> withoutXmp(std::string const& file) {
    auto segments = segmentsOf(file);
    std::erase_if(segments, [](JpegSegment const& segment) {
        return segment.code == 0xE1 && (segment.isXmp() || segment.payload.find_first_not_of(' ') == std::string::npos);
    });
    return segments;
}

TEST(JPEGMetaWriter, PutsPacketBehindStartOfImageWhenThereIsNoExif) {
    JpegBuilder const rest = JpegBuilder().segment(0xDB, pattern(5000));
    for (size_t const size : {size_t{1}, size_t{1251}}) {
        TempFile const file(rest.build(pattern(3000)));
        std::string const packet(size, 'p');
        writeBytesOf(file, packet);
        EXPECT_EQ(file.bytes(), JpegBuilder().xmp(packet, 1280).segment(0xDB, pattern(5000)).build(pattern(3000)));
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
        EXPECT_TRUE(withoutXmp(after) == withoutXmp(before)) << what << '\n' << treeOf(after);
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
        {"room cut off", JpegBuilder().xmp("", 2000).open().substr(0, 1500), writeView, 10, "past the file's end"},
        {"small packet cut off", JpegBuilder().xmp("", 200).open().substr(0, 100), writeView, 10,
         "past the file's end"},
        {"Exif cut off", JpegBuilder().exif(pattern(99)).open().substr(0, 50), writeView, 10, "past the file's end"},
        {"too many Exif", manyExif.build(), writeView, 10, "65 XMP and Exif segments are too many"},
    };
    for (auto const& [what, bytes, write, size, message] : cases) {
        TempFile const file(bytes);
        EXPECT_THAT(messageOf([&, act = write, n = size] { act(file, std::string(n, 'p')); }), HasSubstr(message))
            << what;
        EXPECT_TRUE(file.bytes() == bytes) << what;
    }
}

TEST(JPEGMetaWriter, FailedCallNeverEndsInSuccess) {
    std::string const before = JpegBuilder().xmp("<old/>", 100).exif().exif().build(pattern(3000));
    {
        TempFile const file(before);
        auto const full = Fault::failing(Call::ALLOCATE, ENOSPC);
        EXPECT_THAT(messageOf([&] { writeView(file, "<new/>"); }), HasSubstr("fail to reserve"));
        EXPECT_TRUE(file.bytes() == before);
    }
    size_t failures = 0;
    for (bool hit = true; hit; ++failures) {
        TempFile const file(before);
        auto const fault = Fault::failing(Call::WRITE, EIO, failures);
        try {
            writeView(file, "<new/>");
            hit = false;
        } catch (std::runtime_error const&) {
        }
        EXPECT_EQ(hit, fault.calls() > failures);
    }
    EXPECT_GT(failures, 5U);
}

// The pointer to a video. ---------------------------------------------------------------------------------------------

constexpr uint32_t VIDEO_SIZE = 3000;

/// A still whose trailer points to the video in front of it.
std::string stillWithPointer(JpegBuilder const& image) {
    std::string still = image.build("scan");
    QRTDataInfo record;
    record.type = qrt::TYPE_MOTION_PHOTO_DATA;
    record.name = qrt::NAME_MOTION_PHOTO_DATA;
    record.data = VideoPointer{"mpv2", static_cast<uint32_t>(still.size()), VIDEO_SIZE}.encode();
    record.dataPayload = record.data.size();
    record.payload = record.offsetFromTail = record.size();
    still += pattern(VIDEO_SIZE, 7);
    for (ByteBuffer const& bytes : {record.toBuffer(), trailer::serializeTail(0, {&record})})
        still.append(reinterpret_cast<char const*>(bytes.data()), bytes.size());
    return still;
}

std::string videoOf(TempFile const& file) {
    std::string const bytes = file.bytes();
    size_t const at = bytes.rfind("mpv2");
    auto const number = [&](size_t from) {
        size_t value = 0;
        for (size_t i = from; i < from + 4; ++i)
            value = value << 8 | static_cast<uint8_t>(bytes[i]);
        return value;
    };
    return at == std::string::npos ? std::string() : bytes.substr(number(at + 4), number(at + 8));
}

TEST(JPEGMetaWriter, PointerFollowsTheVideo) {
    for (JpegBuilder const& image : {JpegBuilder(), JpegBuilder().exif().xmp("<old/>"), JpegBuilder().exif().exif(),
                                     JpegBuilder().xmp("<large/>", 60'000).xmp("<two/>")}) {
        TempFile const file(stillWithPointer(image));
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
