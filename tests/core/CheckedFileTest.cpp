// SPDX-License-Identifier: Apache-2.0
#include "CheckedFile.h"
#include "io/MoveRest.h"
#include "support/Faults.h"
#include "support/TempFile.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {
constexpr uint32_t FREE = 100 * 4'096;
}

/// In place of the C library's: a disk with little room.
extern "C" int fstatvfs64(int, struct statvfs64* disk) noexcept {
    *disk = {};
    disk->f_frsize = 4'096;
    disk->f_blocks = 1'000;
    disk->f_bavail = FREE / disk->f_frsize;
    return 0;
}

namespace android::lumo::test {
namespace {

using enum Error::Code;

/// Code and culprit of the Error that `action` throws.
std::pair<Error::Code, std::string> failureOf(std::function<void()> const& action) {
    try {
        action();
    } catch (Error const& error) {
        return {error.code(), error.path()};
    }
    ADD_FAILURE() << "no Error was thrown";
    return {};
}

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
        {[] { return Fault::failing(Call::SENDFILE, EXDEV, 0, 1); }, 2}, // by the second call
        {[] { return Fault::failing(Call::SENDFILE, EOPNOTSUPP); }, 2},  // through memory
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

TEST(CheckedFile, NamesTheFileThatEndsACopy) {
    TempFile const from(pattern(100'000)), to;
    auto const source = from.open("r"), target = to.open();
    for (uint32_t size : {100'000U, UINT32_MAX})
        EXPECT_EQ(failureOf([&] { checked::copy(source, target, 1, size); }), std::pair(DAMAGED, from.path()));
    checked::copy(source, target, 100'000, 0);
    EXPECT_EQ(to.bytes(), "");
    EXPECT_TRUE(failsWith("] invalid size: 0", [&] { target->transferTo(source, 0, 0); }));
    std::tuple<Fault (*)(), Error::Code, TempFile const&> const cases[] = {
        {[] { return Fault::badSector(70'000); }, READ_FAILED, from},
        {[] { return Fault::failing(Call::SENDFILE, ENOSPC); }, NO_SPACE, to},
        {[] { return Fault::failing(Call::SENDFILE, EIO); }, WRITE_FAILED, to},
        {[] { return Fault::shortened(Call::SENDFILE, 0); }, WRITE_FAILED, to},
    };
    for (auto const& [make, code, culprit] : cases) {
        Fault const fault = make();
        errno = EINTR; // left by some earlier call
        EXPECT_EQ(failureOf([&] { checked::copy(source, target, 0, 100'000); }), std::pair(code, culprit.path()));
    }
}

TEST(CheckedFile, ReservesTheWholeSizeOrNothing) {
    TempFile const temp("0123456789");
    auto const file = temp.open();
    file->position(4);
    for (int unsupported : {EOPNOTSUPP, EINVAL}) {
        Fault const fault = Fault::failing(Call::ALLOCATE, unsupported);
        checked::requireSpace(*file, FREE);
        EXPECT_EQ(failureOf([&] { checked::requireSpace(*file, FREE + 4'096); }).first, NO_SPACE);
        EXPECT_EQ(temp.bytes(), "0123456789");
        checked::reserve(*file, 100'000);
        EXPECT_EQ(temp.bytes(), "0123456789" + std::string(99'990, '\0'));
        EXPECT_EQ(file->position(), 4U);
        checked::truncate(*file, 10);
    }
    Fault const fault = Fault::failing(Call::ALLOCATE, ENOSPC);
    uint64_t const before = file->changes();
    for (auto const& ask : {checked::reserve, checked::requireSpace})
        EXPECT_EQ(failureOf([&] { ask(*file, 100'000, ErrorAt()); }), std::pair(NO_SPACE, temp.path()));
    EXPECT_EQ(temp.bytes(), "0123456789");
    EXPECT_EQ(file->changes(), before + 1); // what a full disk took is given back
}

TEST(CheckedFile, ForeseesALimitOnTheSizeOfFiles) {
    TempFile const temp(pattern(5'000));
    auto const file = temp.open();
    rlimit old;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    rlimit const low{4'000, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &low), 0); // to pass it ends the process
    checked::requireSpace(*file, 4'000);
    std::function<void()> const cases[] = {[&] { checked::requireSpace(*file, 4'001); },
                                           [&] { checked::reserve(*file, 6'000); }, [&] { moveRest(file, 100, 10); },
                                           [&] { moveRest(file, 100, -10); }};
    for (auto const& action : cases)
        EXPECT_EQ(failureOf(action), std::pair(NO_SPACE, temp.path()));
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(temp.bytes(), pattern(5'000));
}

TEST(CheckedFile, RefusesDescriptorsThatCannotWriteAnywhere) {
    TempFile const temp;
    checked::requireEditable(*temp.open());
    for (int flags : {O_RDONLY, O_WRONLY, O_RDWR | O_APPEND}) {
        int const fd = ::open(temp.path().c_str(), flags);
        EXPECT_EQ(failureOf([&] { checked::requireEditable(MediaFile(fd)); }).first, REFUSED) << flags;
        close(fd);
    }
}

} // namespace
} // namespace android::lumo::test
