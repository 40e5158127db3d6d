#include "io/JPEGMetaWriter.h"
#include "support/JpegBuilder.h"
#include "support/TempFile.h"

namespace android::lumo::test {
namespace {

/// What an existing segment's payload is taken for, whatever it is.
constexpr size_t ASSUMED_PAYLOAD = 0xFFE4 - 2;

std::vector<unsigned char> debugInfo(size_t size) {
    std::string const bytes = pattern(size, 9);
    return {bytes.begin(), bytes.end()};
}

TEST(JPEGDebugInfo, NewSegmentStandsWhereAskedWithLittleEndianHeader) {
    JpegBuilder const front = JpegBuilder().exif().segment(0xE0, "JFIF").xmp("<x/>");
    std::string const before = front.build(pattern(4000));
    std::string const segment = "\xE4\xFF\x03\x02" + pattern(0x0201, 9);
    TempFile const file(before);
    JPEGMetaWriter(file.open()).writeCameraDebugInfo(debugInfo(0x0201));
    EXPECT_TRUE(file.bytes() == std::string(before).insert(2, segment));

    // Given a place, behind the last APP1, where it covers nothing.
    TempFile const placed(before);
    auto const media = placed.open();
    media->position(2);
    JPEGMetaWriter(media).writeApp4(debugInfo(0x0201), 4711);
    EXPECT_TRUE(placed.bytes() == std::string(before).insert(front.open().size(), segment));
}

TEST(JPEGDebugInfo, DataOfTheAssumedSizeOverwrites) {
    TempFile const file(JpegBuilder().segment(0xE0, "JFIF").segment(0xE4, "old").build(pattern(70'000)));
    std::string expected = file.bytes();
    JPEGMetaWriter writer(file.open());
    EXPECT_EQ(writer.findAppSegment(0xFFE4), (std::pair<int64_t, int64_t>{10, ASSUMED_PAYLOAD}));
    writer.writeCameraDebugInfo(debugInfo(ASSUMED_PAYLOAD));
    EXPECT_TRUE(file.bytes() == expected.replace(14, ASSUMED_PAYLOAD, pattern(ASSUMED_PAYLOAD, 9)));
}

TEST(JPEGDebugInfo, SegmentFarFromStartIsCutByItsAssumedSize) {
    JpegBuilder const front = JpegBuilder().segment(0xE0, pattern(50'000)).segment(0xE0, pattern(50'000, 2));
    std::string const before = JpegBuilder(front).segment(0xE4, "old").build(pattern(3000));
    size_t const at = 2 + 2 * 50'004;
    size_t const cut = ASSUMED_PAYLOAD + 4;
    std::string const shorter = before.substr(0, at - cut) + before.substr(at);
    TempFile const file(before);
    for (int again = 0; again < 2; ++again) // then nothing is left to remove
        JPEGMetaWriter(file.open()).removeCameraDebugInfo();
    EXPECT_TRUE(file.bytes() == shorter);

    TempFile const replaced(before);
    JPEGMetaWriter(replaced.open()).writeCameraDebugInfo({1, 2, 3});
    EXPECT_TRUE(replaced.bytes() == std::string(shorter).insert(2, std::string("\xE4\xFF\5\0\1\2\3", 7)));
}

TEST(JPEGDebugInfo, RefusalsLeaveTheFileAsItWas) {
    std::string const withOld = JpegBuilder().segment(0xE4, "old").build(pattern(3000));
    struct Case {
        char const* what;
        std::string bytes;
        size_t size; ///< 0: removal
        char const* message;
    } const cases[] = {
        {"no segment holds it", JpegBuilder().build(), 65'534, "debug info of 65534 bytes does not fit a segment"},
        {"assumed size past the file's end", withOld, ASSUMED_PAYLOAD, "past the image's end"},
        {"assumed size does not fit in front", withOld, 10, "fail to shift"},
        {"removal of what does not fit in front", withOld, 0, "fail to shift"},
    };
    for (auto const& [what, bytes, size, message] : cases) {
        TempFile const file(bytes);
        JPEGMetaWriter writer(file.open());
        EXPECT_TRUE(failsWith(message, [&, n = size] {
            n == 0 ? writer.removeCameraDebugInfo() : writer.writeCameraDebugInfo(debugInfo(n));
        })) << what;
        EXPECT_TRUE(file.bytes() == bytes) << what;
    }
    TempFile const file(withOld);
    JPEGMetaWriter(file.open()).removeXMP();
    EXPECT_TRUE(failsWith("empty debug info", [&] { JPEGMetaWriter(file.open()).writeCameraDebugInfo({}); }));
    EXPECT_EQ(file.bytes(), withOld);
}

} // namespace
} // namespace android::lumo::test
