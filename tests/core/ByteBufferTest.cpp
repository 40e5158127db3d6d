// SPDX-License-Identifier: Apache-2.0
#include "ByteBuffer.h"
#include "support/TempFile.h"

#include <numeric>

namespace android::lumo::test {
namespace {

std::string textOf(ByteBuffer const& buffer) {
    return buffer.toTypedData<std::string>([](unsigned char byte) { return byte; });
}

TEST(ByteBuffer, GrowsToTwiceItsCapacityOrToWhatIsNeeded) {
    ByteBuffer buffer(0);
    for (auto const& [appended, expected] : {std::pair{0, "0/0"}, {5, "5/5"}, {1, "6/10"}, {15, "21/21"}})
        EXPECT_EQ(buffer.put(std::string(static_cast<size_t>(appended), 'x')).toString(),
                  std::string("size/capacity=") + expected);
    buffer.clear();
    EXPECT_EQ(buffer.toString(), "size/capacity=0/21");
    EXPECT_THROW(ByteBuffer(0x80000000U), std::length_error);
}

TEST(ByteBuffer, AppendsItselfAndEmptiesWhatItTakes) {
    ByteBuffer buffer, source;
    buffer.put(std::string("ab"));
    EXPECT_EQ(textOf(buffer.put(buffer).put(buffer)), "abababab");
    source.put(std::string("cd"));
    EXPECT_EQ(textOf(ByteBuffer(buffer).put(std::move(source))), "ababababcd");
    EXPECT_EQ(source.toString(), "size/capacity=0/2");
    EXPECT_EQ(textOf(ByteBuffer(std::move(buffer))), "abababab");
    EXPECT_EQ(buffer.toString(), "size/capacity=0/0");
}

TEST(ByteBuffer, ReadsOnlyInsideTheContent) {
    ByteBuffer buffer;
    buffer.put(int32_t{-2}).put(uint32_t{0x01020304});
    EXPECT_EQ((buffer.get<int32_t, int32_t>(0)), -2);
    EXPECT_EQ((buffer.get<uint32_t, uint32_t>(4)), 0x01020304U);
    for (uint32_t index : {5U, 8U, 0xFFFFFFFFU})
        EXPECT_TRUE(failsWith("] buffer read overflow", [&] { buffer.get<int32_t, int32_t>(index); }));

    std::vector<uint8_t> bytes(200);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    ByteBuffer const ten({bytes.begin(), bytes.begin() + 10});
    EXPECT_EQ(ten.slice(0, 1000).toHexString('.'), ten.toHexString('.'));
    EXPECT_EQ(ByteBuffer(std::move(bytes)).slice(70, 129).toHexString('.').substr(0, 4), "4748"); // the last 128
    EXPECT_EQ(ten.slice(7, 3).toHexString('.'), "070809");
    EXPECT_EQ(ten.slice(0x80000001, 2).toHexString('.'), ".01");
    EXPECT_TRUE(ten.slice(10, 0).empty());
    EXPECT_THROW(ten.slice(8, 3), std::runtime_error);
    EXPECT_THROW(ten.slice(1, 1000), std::runtime_error);
}

} // namespace
} // namespace android::lumo::test
