// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "boxes/BoxBounds.h"
#include "support/HeicBuilder.h"

using namespace android::lumo;
using namespace android::lumo::test;

namespace {

std::span<uint8_t const> bytesOf(std::string const& text) {
    return {reinterpret_cast<uint8_t const*>(text.data()), text.size()};
}

} // namespace

TEST(BoxBounds, RejectsRangesAndCountsWhenSumsWouldOverflow) {
    EXPECT_TRUE(rangeFits(10, 0, 10) && rangeFits(0, 10, 10));
    EXPECT_FALSE(rangeFits(1, 10, 10) || rangeFits(UINT64_MAX, 2, 10) || rangeFits(2, UINT64_MAX, 10));
    EXPECT_TRUE(countFits(2, 5, 10));
    EXPECT_FALSE(countFits(UINT64_MAX, 5, 10));
}

TEST(BoxBounds, NamesTheFaultWhenABoxHeaderDoesNotFit) {
    struct {
        std::string bytes;
        uint64_t left;
        BoxFault fault;
        uint64_t size;
    } const cases[] = {
        {bigEndian(8, 4) + "free", 8, BoxFault::None, 8},
        {bigEndian(9, 4) + "free", 8, BoxFault::BeyondEnd, 9},
        {bigEndian(7, 4) + "free", 100, BoxFault::TooSmall, 7},
        {bigEndian(0, 4) + "free", 100, BoxFault::None, 100},
        {bigEndian(1, 4) + "free" + bigEndian(16, 8), 16, BoxFault::None, 16},
        {bigEndian(1, 4) + "free" + bigEndian(15, 8), 16, BoxFault::TooSmall, 15},
        {bigEndian(1, 4) + "free" + bigEndian(UINT64_MAX, 8), 16, BoxFault::BeyondEnd, UINT64_MAX},
        {bigEndian(1, 4) + "free" + bigEndian(16, 4), 12, BoxFault::Truncated, 1},
        {"1234567", 7, BoxFault::Truncated, 0},
    };
    for (auto const& [bytes, left, fault, size] : cases) {
        BoxHeader header;
        EXPECT_EQ(decodeBoxHeader(bytesOf(bytes), left, header), fault) << size;
        EXPECT_EQ(header.size, size);
    }
}

TEST(BoxBounds, StopsWhenAChildOrAFieldReachesOverItsParent) {
    std::string const inner = heicBox("abcd", bigEndian(0x0102030405060708, 8));
    std::string const file = heicBox("outr", inner) + "more bytes behind";
    BoxCursor cursor(bytesOf(file), 1000, boxType("file"));
    BoxCursor child = cursor.box().payload().box().payload();
    EXPECT_EQ(child.offset(), 1016U);
    EXPECT_EQ(child.u16(), 0x0102U);
    EXPECT_EQ(child.u24(), 0x030405U);
    EXPECT_THROW(child.u32(), BoxError);
    EXPECT_THROW(child.requireEntries(4, 1), BoxError);
    EXPECT_THROW(child.skip(UINT64_MAX), BoxError);
}
