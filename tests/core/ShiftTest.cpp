#include "MediaFile.h"
#include "support/Faults.h"
#include "support/TempFile.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>

namespace android::lumo {

namespace {

using test::Call;
using test::Fault;
using test::messageOf;
using test::pattern;
using test::TempFile;

/// Sizes and positions around the smallest buffer, the buffer and the distance.
struct ShiftCase {
    uint32_t size;
    uint32_t position;
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
            test::writeBytes(temp.path(), shifted);
            file->position(position + distance);
            file->shiftLeftSafely(shift, buffer, cut);
            EXPECT_EQ(temp.bytes(), cut ? original : original + shifted.substr(size));
        }
    }
}

TEST(Shift, RefusesDistancesThatLeaveTheFile) {
    TempFile const temp(pattern(3'000));
    auto const file = temp.open();
    struct {
        uint32_t position;
        int shift;
        bool right;
    } const cases[] = {{10, -1, true}, {10, -1, false}, {10, 11, false}, {3'001, 5, true}, {3'001, 5, false}};
    for (auto const& [position, shift, right] : cases) {
        file->position(position);
        EXPECT_THROW(right ? file->shiftRightSafely(shift, 0) : file->shiftLeftSafely(shift, 0, true),
                     std::runtime_error);
        EXPECT_EQ(temp.bytes(), pattern(3'000)) << position << " by " << shift;
    }
    for (uint64_t size : {uint64_t{0xFFFFFFFA}, uint64_t{0x100000000}}) {
        std::filesystem::resize_file(temp.path(), size);
        EXPECT_EQ(file->size(), size > UINT32_MAX ? 0U : size);
        file->position(0xFFFFFF00);
        EXPECT_THROW(file->shiftRightSafely(6, 0), std::runtime_error);
        EXPECT_EQ(std::filesystem::file_size(temp.path()), size);
    }
}

TEST(Shift, RefusesSmallBuffersWithoutTheSafeForms) {
    TempFile const temp(pattern(5'000));
    auto const file = temp.open();
    MediaFile::ShiftStrategy const inPlace{[] { return 0U; }, [](uint32_t read) { return read; },
                                           [](uint32_t written) { return written + 2'000; }};
    uint32_t buffer = 1'024;
    EXPECT_THAT(messageOf([&] { file->doShift(inPlace, buffer); }),
                testing::MatchesRegex("\\[metadata_utils/MediaFile:[0-9]+\\] fail to shift: buffer-size 1024 is less "
                                      "than minimum value 1024 byte"));
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
        right ? file->shiftRightSafely(100, 1'500) : file->shiftLeftSafely(100, 1'500, true);
    }
    EXPECT_EQ(temp.bytes(), pattern(5'000));
}

TEST(Shift, RetriesWithHalfTheBufferOnlyWhileNothingMoved) {
    constexpr size_t ALWAYS = Fault::ALWAYS;
    TempFile const temp;
    auto const file = temp.open();
    struct {
        Call call;
        size_t first;
        size_t times;
        uint32_t buffer;
        bool succeeds;
        size_t calls;
    } const cases[] = {
        {Call::WRITE, 0, 1, 0, true, 1 + 2},       // whole tail, then two halves
        {Call::READ, 0, 2, 0, true, 2 + 4},        // whole tail, half, then four quarters
        {Call::WRITE, 0, ALWAYS, 0, false, 4},     // 8000, 4000, 2000, (1000 to 1 refused), 8000
        {Call::READ, 0, ALWAYS, 0, false, 4},      //
        {Call::WRITE, 1, ALWAYS, 2'000, false, 2}, // a moved tail must not be moved again
        {Call::WRITE, 3, ALWAYS, 2'000, false, 4},
    };
    for (bool right : {true, false}) {
        for (auto const& [call, first, times, buffer, succeeds, calls] : cases) {
            SCOPED_TRACE((right ? "right, call " : "left, call ") + std::to_string(static_cast<int>(call)) + " from " +
                         std::to_string(first));
            test::writeBytes(temp.path(), pattern(9'000));
            file->position(1'000);
            {
                Fault const fault = Fault::failing(call, EIO, first, times);
                auto const shift = [&, size = buffer] {
                    right ? file->shiftRightSafely(10, size) : file->shiftLeftSafely(10, size, false);
                };
                if (succeeds)
                    shift();
                else
                    EXPECT_THROW(shift(), std::runtime_error);
                EXPECT_EQ(fault.calls(), calls);
            }
            EXPECT_TRUE(first > 0 || (temp.bytes() == pattern(9'000)) != succeeds);
        }
    }
}

TEST(Shift, LeavesTheFileAsItWasWhenTheDiskIsFull) {
    TempFile const temp(pattern(9'000));
    auto const file = temp.open();
    for (Call call : {Call::ALLOCATE, Call::WRITE}) { // the chunks that had moved lay behind the old end
        Fault const fault = Fault::failing(call, ENOSPC, call == Call::WRITE ? 2 : 0);
        file->position(1'000);
        std::string const message = messageOf([&] { file->shiftRightSafely(20'000, 2'000); });
        EXPECT_EQ(message.ends_with("] fail to reserve 29000 bytes: No space left on device"), call == Call::ALLOCATE);
        EXPECT_EQ(temp.bytes(), pattern(9'000));
    }
}

} // namespace

} // namespace android::lumo
