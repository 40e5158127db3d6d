#include "ByteBuffer.h"
#include "MediaDefs.h"
#include "Metadata.h"
#include "support/TempFile.h"

#include <gtest/gtest.h>

#include <map>
#include <numeric>

namespace android::lumo {

namespace {

using test::messageOf;

ByteBuffer bytesTo(uint8_t count) {
    std::vector<uint8_t> bytes(count);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return ByteBuffer(std::move(bytes));
}

std::string textOf(ByteBuffer const& buffer) {
    return buffer.toTypedData<std::string>([](unsigned char byte) { return byte; });
}

TEST(ByteBuffer, GrowsToTwiceItsCapacityOrToWhatIsNeeded) {
    ByteBuffer buffer(0);
    EXPECT_EQ(buffer.toString(), "size/capacity=0/0");
    EXPECT_EQ(ByteBuffer(16).toString(), "size/capacity=0/16");
    struct {
        size_t appended;
        char const* expected;
    } const steps[] = {{5, "5/5"}, {1, "6/10"}, {4, "10/10"}, {15, "25/25"}, {1, "26/50"}};
    for (auto const& [appended, expected] : steps)
        EXPECT_EQ(buffer.put(std::string(appended, 'x')).toString(), std::string("size/capacity=") + expected);
    buffer.clear();
    EXPECT_EQ(buffer.toString(), "size/capacity=0/50");
    EXPECT_THROW(ByteBuffer(0x80000000U), std::length_error);
}

TEST(ByteBuffer, AppendsItselfAndEmptiesWhatItTakes) {
    ByteBuffer buffer;
    buffer.put(std::string("ab"));
    EXPECT_EQ(textOf(buffer.put(buffer).put(buffer)), "abababab");
    ByteBuffer source;
    source.put(std::string("cd"));
    EXPECT_EQ(textOf(ByteBuffer(buffer).put(std::move(source))), "ababababcd");
    EXPECT_EQ(source.toString(), "size/capacity=0/2");
    ByteBuffer const moved = std::move(buffer);
    EXPECT_EQ(textOf(moved), "abababab");
    EXPECT_EQ(buffer.toString(), "size/capacity=0/0");
}

TEST(ByteBuffer, ReadsIntegersOnlyInsideTheContent) {
    ByteBuffer buffer;
    buffer.put(int32_t{-2}).put(uint32_t{0x01020304});
    EXPECT_EQ((buffer.get<int32_t, int32_t>(0)), -2);
    EXPECT_EQ((buffer.get<uint32_t, uint32_t>(4)), 0x01020304U);
    for (uint32_t index : {5U, 8U, 0xFFFFFFFFU}) {
        std::string const message = messageOf([&] { buffer.get<int32_t, int32_t>(index); });
        EXPECT_TRUE(message.starts_with("[metadata_utils/include/ByteBuffer:")) << message;
        EXPECT_TRUE(message.ends_with("] buffer read overflow")) << message;
    }
}

TEST(ByteBuffer, SlicesWhatLiesInsideTheContent) {
    ByteBuffer const ten = bytesTo(10);
    EXPECT_EQ(ten.slice(0, 1000).toHexString('.'), ten.toHexString('.'));
    EXPECT_EQ(ten.slice(7, 3).toHexString('.'), "070809");
    EXPECT_EQ(ten.slice(0x80000001, 2).toHexString('.'), ".01");
    EXPECT_TRUE(ten.slice(10, 0).empty());
    EXPECT_THROW(ten.slice(8, 3), std::runtime_error);
    EXPECT_THROW(ten.slice(1, 1000), std::runtime_error);
}

TEST(ByteBuffer, ShowsTheLast128BytesInHex) {
    EXPECT_EQ(ByteBuffer(std::vector<uint8_t>{0, 0xAB, 1}).toHexString('-'), "-ab01");
    std::string const shown = bytesTo(200).toHexString('-');
    EXPECT_EQ(shown.size(), 256U);
    EXPECT_TRUE(shown.starts_with("4849") && shown.ends_with("c6c7")) << shown;
}

TEST(MediaDefs, NamesEveryTypeAndRefusesOthers) {
    for (int value = 0; value < 9; ++value) {
        auto const type = static_cast<MediaDefs::MimeType>(value);
        EXPECT_EQ(MediaDefs::mimeTypeOf(MediaDefs::mimeString(type)), type);
    }
    EXPECT_EQ(MediaDefs::mimeString(MediaDefs::MimeType::AUDIO_MP4A_LATM), "audio/mp4a-latm");
    EXPECT_EQ(MediaDefs::mimeTypeOf("image/jpe"), MediaDefs::MimeType::NONE);
    EXPECT_EQ(MediaDefs::motionphotoFormatString({}), "");
    EXPECT_EQ(MediaDefs::motionphotoFormatString(MediaDefs::MotionPhotoFormat::MPV3), "mpv3");
    EXPECT_TRUE(messageOf([] {
                    MediaDefs::mimeString(static_cast<MediaDefs::MimeType>(9));
                }).ends_with("] unknown mime type: 9"));
    EXPECT_EQ(messageOf([] { MediaDefs::motionphotoFormatString(static_cast<MediaDefs::MotionPhotoFormat>(-1)); }),
              "[metadata_utils/include/MediaDefs:223] unknown motionPhotoFormat: -1");
}

TEST(MediaDefs, OrdersTheKeysOfAMapByItsEntries) {
    std::map<int, std::string> const map{{1, "c"}, {2, "a"}, {3, "b"}};
    auto const keys = MediaDefs::getKeys(map, [](auto const& a, auto const& b) { return a.second < b.second; });
    EXPECT_EQ(keys, (std::list<int>{2, 3, 1}));
}

TEST(Metadata, LoadsTheDataBehindTheIdentifier) {
    Metadata block{MediaDefs::MetaType::EXIF, 100, 50, 0, {}};
    EXPECT_EQ(block.toString(), "type=exif, position=100, payload=50, offset=0");
    EXPECT_EQ(block.toTypedData<std::string>(), "");
    block.loader = [](uint32_t position, uint32_t count) {
        std::string const text = std::to_string(position) + "+" + std::to_string(count);
        return std::vector<char>(text.begin(), text.end());
    };
    EXPECT_EQ(block.toTypedData<std::string>(), "100+50");
    block.offset = 29;
    EXPECT_EQ(block.toTypedData<std::string>(), "129+21");
    block.offset = 51;
    EXPECT_EQ(block.toTypedData<std::string>(), "");
    block.type = static_cast<MediaDefs::MetaType>(5);
    EXPECT_TRUE(messageOf([&] { block.toString(); }).ends_with("] unknown meta type: 5"));
}

} // namespace

} // namespace android::lumo
