#include "MediaFile.h"
#include "support/Faults.h"
#include "support/TempFile.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace android::lumo::test {
namespace {

void shiftSafely(MediaFile& file, bool right, int shift, uint32_t buffer, bool cut = true) {
    right ? file.shiftRightSafely(shift, buffer) : file.shiftLeftSafely(shift, buffer, cut);
}

/// Sizes and positions around the smallest buffer, the buffer and the distance.
struct ShiftCase {
    uint32_t size, position;
    int shift;
    uint32_t buffer;
};

constexpr ShiftCase SHIFT_CASES[] = {{5'000, 100, 10, 0},      {10'000, 4'000, 10, 2'048},  {10'000, 100, 10, 2'048},
                                     {10'000, 0, 10, 4'096},   {10'000, 100, 7'000, 2'048}, {10'000, 100, 1, 1'025},
                                     {10'000, 100, 90, 1'024}, {10'000, 100, 10, 1},        {10'000, 100, 10, 9'900},
                                     {10'000, 100, 10, 9'899}, {10'000, 100, 9, 80'000},    {2'000, 976, 50, 0},
                                     {2'000, 975, 50, 0},      {2'000, 1'999, 50, 4'096},   {2'000, 2'000, 50, 0},
                                     {2'000, 700, 0, 0},       {2'000, 100, 50, UINT32_MAX}};

TEST(Shift, MovesTheTailRightAndBackAgain) {
    for (auto const& [size, position, shift, buffer] : SHIFT_CASES) {
        SCOPED_TRACE(std::to_string(size) + " at " + std::to_string(position) + " by " + std::to_string(shift) +
                     " buffer " + std::to_string(buffer));
        std::string const original = pattern(size);
        TempFile const temp(original);
        auto const file = temp.open();
        auto const distance = static_cast<uint32_t>(shift);
        file->position(position);
        file->shiftRightSafely(shift, buffer);
        std::string const shifted = temp.bytes();
        ASSERT_EQ(shifted.size(), size + distance);
        EXPECT_EQ(shifted.substr(position + distance), original.substr(position));
        uint32_t const kept = std::min(position + distance, size);
        EXPECT_EQ(shifted.substr(0, kept), original.substr(0, kept));
        for (bool cut : {false, true}) {
            writeBytes(temp.path(), shifted);
            file->position(position + distance);
            file->shiftLeftSafely(shift, buffer, cut);
            EXPECT_EQ(temp.bytes(), cut ? original : original + shifted.substr(size));
        }
    }
}

TEST(Shift, RefusesDistancesThatLeaveTheFile) {
    TempFile const temp(pattern(3'000));
    auto const file = temp.open();
    using Case = std::tuple<uint32_t, int, bool>;
    for (auto const& [position, shift, right] :
         {Case{10, -1, true}, {10, -1, false}, {10, 11, false}, {3'001, 5, true}, {3'001, 5, false}}) {
        file->position(position);
        EXPECT_THROW(shiftSafely(*file, right, shift, 0), std::runtime_error);
        EXPECT_EQ(temp.bytes(), pattern(3'000)) << position << " by " << shift;
    }
}

TEST(Shift, RefusesSmallBuffersWithoutTheSafeForms) {
    TempFile const temp(pattern(5'000));
    auto const file = temp.open();
    MediaFile::ShiftStrategy const inPlace{[] { return 0U; }, [](uint32_t read) { return read; },
                                           [](uint32_t written) { return written + 2'000; }};
    uint32_t buffer = 1'024;
    EXPECT_TRUE(failsWith("[metadata_utils/MediaFile:", [&] { file->doShift(inPlace, buffer); }));
    EXPECT_TRUE(failsWith("fail to shift: buffer-size 1024 is less than minimum value 1024 byte",
                          [&] { file->doShift(inPlace, buffer); }));
    buffer = 0;
    file->doShift(inPlace, buffer);
    EXPECT_EQ(buffer, 5'000U);
    EXPECT_EQ(temp.bytes(), pattern(5'000));
}

TEST(Shift, GoesOnAfterShortAndInterruptedReads) {
    TempFile const temp(pattern(5'000));
    auto const file = temp.open();
    for (bool right : {true, false}) {
        Fault const fault = right ? Fault::shortened(Call::READ, 700) : Fault::failing(Call::READ, EINTR, 1, 1);
        file->position(right ? 1'000 : 1'100);
        shiftSafely(*file, right, 100, 1'500);
    }
    EXPECT_EQ(temp.bytes(), pattern(5'000));
}

TEST(Shift, RetriesWithHalfTheBufferOnlyWhileNothingMoved) {
    TempFile const temp;
    auto const file = temp.open();
    struct {
        Call call;
        size_t first, times;
        uint32_t buffer;
        size_t calls;
    } const cases[] = {
        {Call::WRITE, 0, 1, 0, 1 + 2},             // whole tail, then two halves
        {Call::READ, 0, 2, 0, 2 + 2 * 4},          // whole tail, half, then four quarters, read once before
        {Call::WRITE, 0, Fault::ALWAYS, 0, 4},     // 8000, 4000, 2000, (1000 to 1 refused), 8000
        {Call::WRITE, 3, Fault::ALWAYS, 2'000, 4}, // a moved tail must not be moved again
    };
    for (bool right : {true, false}) {
        for (auto const& [call, first, times, buffer, calls] : cases) {
            SCOPED_TRACE(std::to_string(right) + " from " + std::to_string(first) + " times " + std::to_string(times));
            writeBytes(temp.path(), pattern(9'000));
            file->position(1'000);
            {
                Fault const fault = Fault::failing(call, EIO, first, times);
                auto const shift = [&, size = buffer] { shiftSafely(*file, right, 10, size, false); };
                if (times == Fault::ALWAYS)
                    EXPECT_THROW(shift(), std::runtime_error);
                else
                    shift();
                EXPECT_EQ(fault.calls(), calls);
            }
            EXPECT_TRUE(first > 0 || (temp.bytes() == pattern(9'000)) == (times == Fault::ALWAYS));
        }
    }
}

TEST(Shift, LeavesTheFileAsItWasWhileOnlyItsNewEndWasWritten) {
    TempFile const temp(pattern(9'000));
    auto const file = temp.open();
    Fault const fault = Fault::failing(Call::WRITE, ENOSPC, 2);
    file->position(1'000);
    EXPECT_THROW(file->shiftRightSafely(20'000, 2'000), std::runtime_error);
    EXPECT_EQ(temp.bytes(), pattern(9'000));
}

} // namespace
} // namespace android::lumo::test
