// SPDX-License-Identifier: Apache-2.0
#include "Error.h"
#include "MediaFile.h"
#include "io/MoveRest.h"
#include "support/Faults.h"
#include "support/TempFile.h"

#include <cerrno>
#include <cstdlib>

namespace android::lumo::test {
namespace {

void shiftSafely(MediaFile& file, bool right, int shift, uint32_t buffer, bool cut = true) {
    right ? file.shiftRightSafely(shift, buffer) : file.shiftLeftSafely(shift, buffer, cut);
}

/// Sizes and positions, distances, and buffers around the smallest, the buffer and the distance.
constexpr std::tuple<uint32_t, uint32_t, int, uint32_t> SHIFT_CASES[] = {
    {5'000, 100, 10, 0},         {10'000, 4'000, 10, 2'048}, {10'000, 100, 10, 2'048}, {10'000, 0, 10, 4'096},
    {10'000, 100, 7'000, 2'048}, {10'000, 100, 1, 1'025},    {10'000, 100, 90, 1'024}, {10'000, 100, 10, 1},
    {10'000, 100, 10, 9'900},    {10'000, 100, 10, 9'899},   {10'000, 100, 9, 80'000}, {2'000, 976, 50, 0},
    {2'000, 975, 50, 0},         {2'000, 1'999, 50, 4'096},  {2'000, 2'000, 50, 0},    {2'000, 700, 0, 0},
    {2'000, 100, 50, UINT32_MAX}};

TEST(Shift, MovesTheTailRightAndBackAgainThroughShortAndInterruptedReads) {
    for (auto const& [size, position, shift, buffer] : SHIFT_CASES) {
        SCOPED_TRACE(std::to_string(size) + " at " + std::to_string(position) + " by " + std::to_string(shift) +
                     " buffer " + std::to_string(buffer));
        std::string const original = pattern(size);
        TempFile const temp(original);
        auto const file = temp.open();
        auto const distance = static_cast<uint32_t>(shift);
        file->position(position);
        {
            Fault const fault = Fault::shortened(Call::READ, 700);
            file->shiftRightSafely(shift, buffer);
        }
        std::string const shifted = temp.bytes();
        ASSERT_EQ(shifted.size(), size + distance);
        EXPECT_EQ(shifted.substr(position + distance), original.substr(position));
        uint32_t const kept = std::min(position + distance, size);
        EXPECT_EQ(shifted.substr(0, kept), original.substr(0, kept));
        for (bool cut : {false, true}) {
            writeBytes(temp.path(), shifted);
            file->position(position + distance);
            Fault const fault = Fault::failing(Call::READ, EINTR, 0, 1);
            file->shiftLeftSafely(shift, buffer, cut);
            EXPECT_EQ(temp.bytes(), cut ? original : original + shifted.substr(size));
        }
    }
}

TEST(Shift, RefusesDistancesThatLeaveTheFileAndSmallBuffersWithoutTheSafeForms) {
    TempFile const temp(pattern(3'000));
    auto const file = temp.open();
    using Case = std::tuple<uint32_t, int, bool>;
    for (auto const& [position, shift, right] :
         {Case{10, -1, true}, {10, -1, false}, {10, 11, false}, {3'001, 5, true}, {3'001, 5, false}}) {
        file->position(position);
        EXPECT_THROW(shiftSafely(*file, right, shift, 0), Error) << position << " by " << shift;
    }
    MediaFile::ShiftStrategy const inPlace{[] { return 0U; }, [](uint32_t read) { return read; },
                                           [](uint32_t written) { return written + 2'000; }};
    uint32_t buffer = 1'024;
    file->position(0);
    EXPECT_TRUE(failsWith("fail to shift: buffer-size 1024 is less than minimum value 1024 byte",
                          [&] { file->doShift(inPlace, buffer); }));
    buffer = 0;
    file->doShift(inPlace, buffer);
    EXPECT_EQ(buffer, 3'000U);
    EXPECT_EQ(temp.bytes(), pattern(3'000));
}

TEST(Shift, OpensAGapForASegment) {
    TempFile const temp(pattern(3'000));
    EXPECT_EQ(perform_file_shift_and_write(temp.open(), 20, 100, 0xFFE1, 0x0102), 2);
    EXPECT_EQ(temp.bytes(), pattern(3'000).insert(100, "\xFF\xE1\1\2" + pattern(120).substr(104)));
}

TEST(Shift, RetriesWithHalfTheBufferOnlyWhileNothingMoved) {
    TempFile const temp;
    auto const file = temp.open();
    std::tuple<Call, size_t, size_t, uint32_t, size_t> const cases[] = {
        {Call::WRITE, 0, 1, 0, 1 + 2},             // whole tail, then two halves
        {Call::READ, 0, 2, 0, 2 + 2 * 4},          // whole tail, half, then four quarters, read once before
        {Call::WRITE, 0, Fault::ALWAYS, 0, 4},     // 8000, 4000, 2000, (1000 to 1 refused), 8000
        {Call::WRITE, 3, Fault::ALWAYS, 2'000, 4}, // a moved tail must not be moved again
    };
    for (bool right : {true, false}) {
        for (auto const& [call, first, times, buffer, calls] : cases) {
            writeBytes(temp.path(), pattern(9'000));
            file->position(1'000);
            Fault const fault = Fault::failing(call, EIO, first, times);
            bool throws = false;
            try {
                shiftSafely(*file, right, 10, buffer, false);
            } catch (Error const&) {
                throws = true;
            }
            EXPECT_EQ(throws, times == Fault::ALWAYS);
            EXPECT_EQ(fault.calls(), calls);
            if (first > 0)
                EXPECT_EQ(temp.bytes().size(), right ? 9'010U : 9'000U); // nothing that moved is cut off
            else
                EXPECT_EQ(temp.bytes() == pattern(9'000), throws);
        }
    }
}

TEST(Shift, LeavesTheFileAsItWas) {
    constexpr uint32_t SIZE = 2'500'000, WHOLE = 0;
    TempFile const temp(pattern(SIZE));
    auto const file = temp.open();
    std::tuple<Fault (*)(), uint32_t> const cases[] = {
        {[] { return Fault::badSector(1'500); }, WHOLE},
        {[] { return Fault::badSector(1'200'000); }, WHOLE},
        {[] { return Fault::badSector(SIZE - 1); }, WHOLE},
        {[] { return Fault::shortened(Call::READ, 0); }, 5'000},
        {[] { return Fault::failing(Call::WRITE, ENOSPC, 2); }, 5'000}, // in the file's new end
    };
    for (auto const& [make, buffer] : cases)
        for (int const distance : {20'000, -900}) {
            Fault const fault = make();
            file->position(1'000);
            if (distance > 0 || buffer == WHOLE) {
                EXPECT_THROW(shiftSafely(*file, distance > 0, std::abs(distance), buffer), Error);
            }
            if (buffer == WHOLE) {
                EXPECT_THROW(moveRest(file, 1'000, distance), Error);
            }
            EXPECT_TRUE(temp.bytes() == pattern(SIZE)) << &make - &std::get<0>(cases[0]) << " by " << distance;
        }
}

} // namespace
} // namespace android::lumo::test
