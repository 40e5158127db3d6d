#include "CheckedFile.h"
#include "support/Faults.h"
#include "support/TempFile.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace android::lumo::test {
namespace {

using testing::EndsWith;

TEST(CheckedFile, ReportsTheCallersLine) {
    auto const file = TempFile().open();
    int const line = __LINE__ + 1;
    auto const beyondTheEnd = [&] { checked::readAt(*file, 0, 1); };
    EXPECT_EQ(messageOf(beyondTheEnd),
              "[tests/core/CheckedFileTest:" + std::to_string(line) + "] fail to read bytes: 0, expected 1");
}

TEST(CheckedFile, CopiesARangeWithoutMovingTheSource) {
    TempFile const from(pattern(200'000));
    TempFile const to(pattern(50, 2));
    auto const source = from.open("r"), target = to.open();
    source->position(3);
    std::pair<Fault (*)(), size_t> const ways[] = {
        {[] { return Fault::shortened(Call::SENDFILE, 40'000); }, 5}, // in pieces
        {[] { return Fault::failing(Call::SENDFILE, EINTR, 0, 1); }, 2},
        {[] { return Fault::failing(Call::SENDFILE, EINVAL); }, 1}, // through memory
    };
    for (auto const& [make, calls] : ways) {
        target->position(10);
        Fault const fault = make();
        checked::copy(source, target, 1'000, 199'000);
        EXPECT_EQ(fault.calls(), calls);
        EXPECT_EQ(to.bytes(), pattern(50, 2).substr(0, 10) + pattern(200'000).substr(1'000));
        EXPECT_EQ(source->position(), 3U);
        writeBytes(to.path(), pattern(50, 2));
    }
}

TEST(CheckedFile, EndsACopyThatCannotBeWhole) {
    TempFile const from(pattern(100'000)), to;
    auto const source = from.open("r"), target = to.open();
    for (uint32_t size : {100'001U, UINT32_MAX})
        EXPECT_THROW(checked::copy(source, target, 1, size), std::runtime_error);
    checked::copy(source, target, 100'000, 0);
    EXPECT_EQ(to.bytes(), "");
    EXPECT_THAT(messageOf([&] { target->transferTo(source, 0, 0); }), EndsWith("] invalid size: 0"));
    Fault const fault = Fault::shortened(Call::SENDFILE, 0);
    errno = EINTR; // left by some earlier call
    EXPECT_EQ(source->transferTo(target, 0, 0), 0);
    EXPECT_THAT(messageOf([&] { checked::copy(source, target, 0, 10); }),
                EndsWith("] fail to copy bytes: 0, expected 10"));
}

TEST(CheckedFile, ReservesTheWholeSizeOrNothing) {
    TempFile const temp("0123456789");
    auto const file = temp.open();
    file->position(4);
    for (int unsupported : {EOPNOTSUPP, EINVAL}) {
        Fault const fault = Fault::failing(Call::ALLOCATE, unsupported);
        checked::reserve(*file, 100'000);
        EXPECT_EQ(temp.bytes(), "0123456789" + std::string(99'990, '\0'));
        EXPECT_EQ(file->position(), 4U);
        checked::truncate(*file, 10);
    }
    Fault const fault = Fault::failing(Call::ALLOCATE, ENOSPC);
    EXPECT_THROW(checked::reserve(*file, 100'000), std::runtime_error);
    EXPECT_EQ(temp.bytes(), "0123456789");
}

} // namespace
} // namespace android::lumo::test
