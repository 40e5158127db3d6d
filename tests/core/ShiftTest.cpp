#include "MediaFile.h"
#include "support/Faults.h"
#include "support/TempFile.h"

#include <gtest/gtest.h>

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
        file->position(position + distance);
        file->shiftLeftSafely(shift, buffer, true);
        EXPECT_EQ(temp.bytes(), original);
    }
}

TEST(Shift, MovesChunksNoLargerThanTheBuffer) {
    auto const file = TempFile(pattern(10'000)).open();
    for (bool right : {true, false}) {
        Fault const counter = Fault::shortened(Call::WRITE, 2'048);
        file->position(4'010);
        right ? file->shiftRightSafely(10, 2'048) : file->shiftLeftSafely(10, 2'048, true);
        EXPECT_EQ(counter.calls(), 3U);
    }
}

TEST(Shift, CutsOnlyWhenAsked) {
    TempFile const temp("0123456789");
    auto const file = temp.open();
    file->position(4);
    file->shiftLeftSafely(2, 0, false);
    EXPECT_EQ(temp.bytes(), "0145678989");
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
}

TEST(Shift, RefusesToGrowPast4GiB) {
    TempFile const temp;
    for (uint64_t size : {uint64_t{0xFFFFFFFA}, uint64_t{0x100000000}}) {
        std::filesystem::resize_file(temp.path(), size);
        auto const file = temp.open();
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
    std::string const message = messageOf([&] { file->doShift(inPlace, buffer); });
    EXPECT_TRUE(message.starts_with("[metadata_utils/MediaFile:")) << message;
    EXPECT_TRUE(message.ends_with("] fail to shift: buffer-size 1024 is less than minimum value 1024 byte")) << message;
    buffer = 0;
    file->position(0);
    file->doShift(inPlace, buffer);
    EXPECT_EQ(buffer, 5'000U);
    buffer = 2'000;
    file->position(0);
    file->doShift(inPlace, buffer);
    EXPECT_EQ(temp.bytes(), pattern(5'000));
}

TEST(Shift, GoesOnAfterShortAndInterruptedCalls) {
    for (Call call : {Call::READ, Call::WRITE}) {
        TempFile const temp(pattern(5'000));
        auto const file = temp.open();
        file->position(1'000);
        {
            Fault const fault = Fault::shortened(call, 700);
            file->shiftRightSafely(100, 1'500);
        }
        file->position(1'100);
        {
            Fault const fault = Fault::failing(call, EINTR, 1, 1);
            file->shiftLeftSafely(100, 1'500, true);
        }
        EXPECT_EQ(temp.bytes(), pattern(5'000));
    }
}

TEST(Shift, RetriesWithHalfTheBufferOnlyWhileNothingMoved) {
    TempFile const temp(pattern(9'000));
    auto const file = temp.open();
    struct {
        Call call;
        size_t times;
        bool succeeds;
        size_t calls;
    } const cases[] = {
        {Call::WRITE, 1, true, 1 + 2},          // whole tail, then two halves
        {Call::READ, 2, true, 2 + 4},           // whole tail, half, then four quarters
        {Call::WRITE, Fault::ALWAYS, false, 4}, // 8000, 4000, 2000, (1000 to 1 refused), 8000
        {Call::READ, Fault::ALWAYS, false, 4},
    };
    for (bool right : {true, false}) {
        for (auto const& [call, times, succeeds, calls] : cases) {
            SCOPED_TRACE((right ? "right, call " : "left, call ") + std::to_string(static_cast<int>(call)));
            test::writeBytes(temp.path(), pattern(9'000));
            file->position(1'000);
            {
                Fault const fault = Fault::failing(call, EIO, 0, times);
                auto const shift = [&] { right ? file->shiftRightSafely(10, 0) : file->shiftLeftSafely(10, 0, false); };
                if (succeeds)
                    shift();
                else
                    EXPECT_THROW(shift(), std::runtime_error);
                EXPECT_EQ(fault.calls(), calls);
            }
            EXPECT_EQ(temp.bytes() == pattern(9'000), !succeeds);
        }
    }
}

TEST(Shift, NeverSucceedsWhenACallFailsMidway) {
    for (bool right : {true, false}) {
        for (size_t nth = 1; nth < 4; ++nth) {
            TempFile const temp(pattern(9'000));
            auto const file = temp.open();
            file->position(1'000);
            Fault const fault = Fault::failing(Call::WRITE, ENOSPC, nth);
            EXPECT_THROW(right ? file->shiftRightSafely(10, 2'000) : file->shiftLeftSafely(10, 2'000, true),
                         std::runtime_error);
            EXPECT_EQ(fault.calls(), nth + 1) << "a moved tail must not be moved again";
        }
    }
}

TEST(Shift, LeavesTheFileAsItWasWhenTheDiskIsFull) {
    TempFile const temp(pattern(9'000));
    auto const file = temp.open();
    {
        Fault const fault = Fault::failing(Call::ALLOCATE, ENOSPC);
        file->position(1'000);
        std::string const message = messageOf([&] { file->shiftRightSafely(20'000, 2'000); });
        EXPECT_TRUE(message.ends_with("] fail to reserve 29000 bytes: No space left on device")) << message;
        EXPECT_EQ(fault.calls(), 1U);
    }
    EXPECT_EQ(temp.bytes(), pattern(9'000));
    Fault const fault = Fault::failing(Call::WRITE, EIO, 2);
    file->position(1'000);
    EXPECT_THROW(file->shiftRightSafely(20'000, 2'000), std::runtime_error);
    EXPECT_EQ(temp.bytes(), pattern(9'000)) << "the chunks that had moved lay behind the old end";
}

TEST(Shift, OpensAGapForASegmentHeader) {
    TempFile const temp("\xFF\xD8tail");
    EXPECT_EQ(perform_file_shift_and_write(temp.open(), 6, 2, 0xFFE1, 0x0104), 2);
    EXPECT_EQ(temp.bytes().substr(0, 6), "\xFF\xD8\xFF\xE1\x01\x04");
    EXPECT_EQ(temp.bytes().substr(8), "tail");
}

} // namespace

} // namespace android::lumo
