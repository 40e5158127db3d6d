// SPDX-License-Identifier: Apache-2.0
#include "CheckedFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace android::lumo::checked {

namespace {

constexpr uint32_t BLOCK = 64 * 1024;
constexpr uint32_t SMALL_READ = 4096;
/// From here on it pays to open another file for the kernel to read into.
constexpr uint32_t LARGE_READ = 256 * 1024;
/// One kernel copy's result must fit the 32-bit target's ssize_t.
constexpr uint32_t MAX_TRANSFER = 0x40000000;

uint64_t sizeOnDisk(MediaFile const& file, ErrorAt at) {
    struct stat64 status;
    if (fstat64(file.getFd(), &status) != 0)
        throw at.as(Error::Code::READ_FAILED, file)("fail to ask for the file size: %s", std::strerror(errno));
    return static_cast<uint64_t>(status.st_size);
}

/// A descriptor that takes any bytes and keeps none, or -1. In a root directory put together by hand the name may be an
/// ordinary file's.
int openNowhere() {
    int const fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    struct stat64 status;
    if (fd < 0 || (fstat64(fd, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3)))
        return fd;
    close(fd);
    return -1;
}

/// Reads bytes that nobody wants to have: the kernel brings the file's pages into memory and copies none of them.
/// Returns how many it could read, fewer than `n` also where it has no such way.
uint32_t readForNobody(MediaFile const& file, uint32_t position, uint32_t n) {
    int const nowhere = openNowhere();
    if (nowhere < 0)
        return 0;
    uint32_t done = 0;
    auto from = static_cast<off64_t>(position);
    for (ssize_t got = 1; got > 0 && done < n; done += static_cast<uint32_t>(std::max<ssize_t>(got, 0)))
        got = sendfile64(nowhere, file.getFd(), &from, n - done);
    close(nowhere);
    return done;
}

/// For pairs of files that the kernel cannot copy between. Returns the bytes copied.
uint32_t copyThroughMemory(MediaFile const& source, MediaFile& target, uint32_t offset, uint32_t size) {
    std::vector<uint8_t> block(std::min(size, BLOCK));
    uint32_t copied = 0;
    while (copied < size) {
        size_t const wanted = std::min<size_t>(size - copied, block.size());
        size_t const got = readUpTo(source, uint64_t{offset} + copied, block.data(), wanted);
        size_t const written = writeUpTo(target, block.data(), got);
        copied += static_cast<uint32_t>(written);
        if (written < wanted)
            break;
    }
    return copied;
}

/// One kernel copy to the target's position, `start`. A file system that cannot do it answers nothing; otherwise the
/// bytes that arrived, `size` on success.
std::optional<uint32_t> copyInKernel(std::shared_ptr<MediaFile> const& source, std::shared_ptr<MediaFile> const& target,
                                     uint32_t offset, uint32_t start, uint32_t size, ErrorAt at) {
    int64_t const result = source->transferTo(target, static_cast<long>(offset), size);
    if (result >= 0 && static_cast<uint32_t>(result) == size)
        return size;
    int const failure = errno;
    uint32_t const copied = positionOf(*target, at) - start;
    if (result < 0 && copied == 0 && (failure == EINVAL || failure == ENOSYS || failure == EOPNOTSUPP))
        return std::nullopt;
    return copied;
}

[[noreturn]] void refuseSpace(MediaFile const& file, uint32_t size, char const* reason, Error::Code code, ErrorAt at) {
    throw at.as(code, file)("fail to reserve %zu bytes: %s", size_t{size}, reason);
}

/// A write past the limit would end the process.
void requireBelowSizeLimit(MediaFile const& file, uint32_t size, ErrorAt at) {
    rlimit64 limit;
    if (getrlimit64(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM64_INFINITY && size > limit.rlim_cur)
        refuseSpace(file, size, "above the limit on the size of files", Error::Code::NO_SPACE, at);
}

/// For file systems that cannot keep space. One that does not tell its own size is not held against anybody.
void requireFreeSpace(MediaFile const& file, uint32_t size, uint32_t more, ErrorAt at) {
    struct statvfs64 disk;
    if (fstatvfs64(file.getFd(), &disk) != 0 || disk.f_blocks == 0 || disk.f_frsize == 0)
        return;
    if (more / disk.f_frsize >= disk.f_bavail)
        refuseSpace(file, size, std::strerror(ENOSPC), Error::Code::NO_SPACE, at);
}

/// Space behind the file's end; false where the file system cannot keep any, or no more is needed. A failure gives back
/// what it got.
bool keepSpace(MediaFile& file, uint32_t size, ErrorAt at) {
    uint32_t const oldSize = addressableSize(file, at);
    requireBelowSizeLimit(file, size, at);
    if (size <= oldSize || size <= file.heldSpace())
        return false;
    int const failure = file.reserveBehindEnd(size);
    if (failure == 0)
        return true;
    if (failure == EOPNOTSUPP) {
        requireFreeSpace(file, size, size - oldSize, at);
        return false;
    }
    file.truncate(oldSize);
    refuseSpace(file, size, std::strerror(failure), writeFailure(failure), at);
}

/// Why a copy ended `copied` bytes from `offset`: the kernel's one errno value stands for both files, so what is left
/// of the source is read once more.
[[noreturn]] void refuseCopy(MediaFile const& source, MediaFile const& target, uint32_t offset, uint32_t copied,
                             uint32_t size, ErrorAt at) {
    ErrorAt failure = at.as(writeFailure(errno), target);
    try {
        requireReadable(source, offset + copied, size - copied, BLOCK, at);
    } catch (Error const& error) {
        failure = at.as(error.code(), source);
    }
    throw failure("fail to copy bytes: %zd, expected %zu", static_cast<ssize_t>(copied), size_t{size});
}

} // namespace

Error::Code writeFailure(int failure) {
    bool const isFull = failure == ENOSPC || failure == EDQUOT || failure == EFBIG;
    return isFull ? Error::Code::NO_SPACE : Error::Code::WRITE_FAILED;
}

void seek(MediaFile const& file, uint32_t position, ErrorAt at) {
    if (file.position(position) != position)
        throw at.as(Error::Code::READ_FAILED, file)("Failed to set file position to %zu", size_t{position});
}

uint32_t positionOf(MediaFile const& file, ErrorAt at) {
    off64_t const position = lseek64(file.getFd(), 0, SEEK_CUR);
    if (position < 0)
        throw at.as(Error::Code::READ_FAILED, file)("fail to ask for the file position: %s", std::strerror(errno));
    return sizeOf(static_cast<uint64_t>(position), at);
}

size_t writeUpTo(MediaFile& file, void const* bytes, size_t n) {
    size_t count = 0;
    while (count < n) {
        auto const wanted = static_cast<uint32_t>(std::min<size_t>(n - count, MAX_TRANSFER));
        void const* next = static_cast<char const*>(bytes) + count;
        ssize_t const written = file.write(next, wanted);
        if (written == 0 || (written < 0 && errno != EINTR))
            break;
        count += static_cast<size_t>(std::max<ssize_t>(written, 0));
    }
    return count;
}

void write(MediaFile& file, void const* bytes, size_t n, ErrorAt at) {
    if (size_t const written = writeUpTo(file, bytes, n); written != n)
        throw at.as(writeFailure(errno), file)("fail to write bytes: %zd, expected %zu",
                                               written == 0 ? ssize_t{-1} : static_cast<ssize_t>(written), n);
}

void write(MediaFile& file, std::string const& bytes, ErrorAt at) {
    write(file, bytes.data(), bytes.size(), at);
}

void write(MediaFile& file, ByteBuffer const& bytes, ErrorAt at) {
    write(file, bytes.data(), bytes.size(), at);
}

void fill(MediaFile& file, uint8_t value, uint32_t count, ErrorAt at) {
    std::vector<uint8_t> const block(std::min(count, BLOCK), value);
    for (uint32_t left = count; left > 0;) {
        uint32_t const n = std::min(left, BLOCK);
        write(file, block.data(), n, at);
        left -= n;
    }
}

void copy(std::shared_ptr<MediaFile> const& source, std::shared_ptr<MediaFile> const& target, uint32_t offset,
          uint32_t size, ErrorAt at) {
    uint64_t const held = sizeOnDisk(*source, at);
    if (offset > held || size > held - offset)
        throw at.as(Error::Code::DAMAGED, *source)("fail to copy bytes: %zd, expected %zu",
                                                   static_cast<ssize_t>(held - std::min<uint64_t>(offset, held)),
                                                   size_t{size});
    uint32_t const start = positionOf(*target, at);
    sizeOf(uint64_t{start} + size, at);
    uint32_t copied = 0;
    while (copied < size) {
        uint32_t const wanted = std::min(size - copied, MAX_TRANSFER);
        auto const inKernel = copyInKernel(source, target, offset + copied, start + copied, wanted, at);
        uint32_t const got = inKernel ? *inKernel : copyThroughMemory(*source, *target, offset + copied, wanted);
        copied += got;
        if (got != wanted)
            refuseCopy(*source, *target, offset, copied, size, at);
    }
}

std::shared_ptr<MediaFile> owning(int fd) {
    std::shared_ptr<MediaFile> file;
    try {
        file = std::make_shared<MediaFile>(fd);
    } catch (...) {
        close(fd);
        throw;
    }
    close(fd);
    return file;
}

bool isSameFile(MediaFile const& a, MediaFile const& b, ErrorAt at) {
    if (&a == &b)
        return true;
    struct stat64 first;
    struct stat64 second;
    for (auto const& [file, status] : {std::pair(&a, &first), std::pair(&b, &second)}) {
        if (fstat64(file->getFd(), status) != 0)
            throw at.as(Error::Code::READ_FAILED, *file)("fail to ask which file it is: %s", std::strerror(errno));
    }
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

void truncate(MediaFile& file, uint32_t size, ErrorAt at) {
    if (file.truncate(size) != 0)
        throw at.as(writeFailure(errno), file)("fail to truncate to %zu: %s", size_t{size}, std::strerror(errno));
}

void requireEditable(MediaFile const& file, ErrorAt at) {
    int const flags = fcntl(file.getFd(), F_GETFL);
    if (flags < 0)
        throw at.as(Error::Code::READ_FAILED, file)("fail to ask how the file is opened: %s", std::strerror(errno));
    if ((flags & O_ACCMODE) != O_RDWR)
        throw at.as(Error::Code::REFUSED, file)("file is not open for both reading and writing");
    if ((flags & O_APPEND) != 0)
        throw at.as(Error::Code::REFUSED, file)("file is open for appending, nothing in it can be changed");
    requireAddressable(file, at);
}

void reserve(MediaFile& file, uint32_t size, ErrorAt at) {
    uint32_t const oldSize = addressableSize(file, at);
    requireBelowSizeLimit(file, size, at);
    if (size <= oldSize)
        return;
    int const failure = file.reserve(size);
    if (failure == 0)
        return;
    truncate(file, oldSize, at);
    refuseSpace(file, size, std::strerror(failure), writeFailure(failure), at);
}

void requireSpace(MediaFile& file, uint32_t size, ErrorAt at) {
    keepSpace(file, size, at);
}

SpaceKeeper::SpaceKeeper(std::shared_ptr<MediaFile> const& edited, uint32_t size, ErrorAt at) : keptSize(size) {
    if (!keepSpace(*edited, size, at))
        return;
    file = edited;
    file->holdSpace(size);
}

SpaceKeeper::~SpaceKeeper() {
    if (file != nullptr)
        file->releaseSpace(keptSize);
}

size_t readUpTo(MediaFile const& file, uint64_t position, void* buffer, size_t n, ErrorAt at) {
    size_t count = 0;
    while (count < n) {
        ssize_t const got = pread64(file.getFd(), static_cast<char*>(buffer) + count, n - count,
                                    static_cast<off64_t>(position + count));
        if (got < 0 && errno != EINTR)
            throw at.as(Error::Code::READ_FAILED, file)("fail to read bytes: %zu, expected %zu: %s", count, n,
                                                        std::strerror(errno));
        if (got == 0)
            break;
        count += static_cast<size_t>(std::max<ssize_t>(got, 0));
    }
    return count;
}

void readAgain(MediaFile const& file, uint64_t position, void* buffer, size_t n, ErrorAt at) {
    if (size_t const count = readUpTo(file, position, buffer, n, at); count != n)
        throw at.as(Error::Code::CHANGED, file)("fail to read bytes: %zu, expected %zu", count, n);
}

void requireReadable(MediaFile const& file, uint32_t position, uint32_t n, uint32_t block, ErrorAt at) {
    uint32_t done = n >= LARGE_READ ? readForNobody(file, position, n) : 0;
    done -= done < n ? done % block : 0; // what it ended at is read once more, and reported
    std::vector<uint8_t> bytes(std::min(n - done, block));
    while (done < n) {
        size_t const wanted = std::min<size_t>(n - done, bytes.size());
        readAgain(file, uint64_t{position} + done, bytes.data(), wanted, at);
        done += static_cast<uint32_t>(wanted);
    }
}

void readExactly(MediaFile const& file, uint32_t position, void* buffer, size_t n, ErrorAt at) {
    if (size_t const count = readUpTo(file, position, buffer, n, at); count != n)
        throw at.as(Error::Code::DAMAGED)("fail to read bytes: %zu, expected %zu", count, n);
}

Metadata::Loader loaderOf(std::shared_ptr<MediaFile> const& file) {
    return [file](uint32_t position, uint32_t count) {
        seek(*file, position);
        return file->read<char>(count);
    };
}

ByteBuffer readAt(MediaFile const& file, uint32_t position, uint32_t n, ErrorAt at) {
    // What is small is read without asking for the file's size; what is not is not allocated before it is known to fit.
    uint64_t const held = n > SMALL_READ ? sizeOnDisk(file, at) : UINT64_MAX;
    uint64_t const left = held - std::min<uint64_t>(position, held);
    std::vector<uint8_t> bytes(n <= left ? n : 0);
    size_t const count = n <= left ? readUpTo(file, position, bytes.data(), n, at) : static_cast<size_t>(left);
    if (count != n)
        throw at.as(Error::Code::DAMAGED)("fail to read bytes: %zu, expected %zu", count, size_t{n});
    return ByteBuffer(std::move(bytes));
}

bool holds(MediaFile const& file, uint32_t position, void const* bytes, size_t n) {
    std::vector<uint8_t> block(std::min<size_t>(n, BLOCK));
    for (size_t done = 0; done < n; done += block.size()) {
        size_t const wanted = std::min(n - done, block.size());
        if (readUpTo(file, uint64_t{position} + done, block.data(), wanted, ErrorAt()) != wanted ||
            std::memcmp(block.data(), static_cast<uint8_t const*>(bytes) + done, wanted) != 0)
            return false;
    }
    return true;
}

uint32_t sizeOf(uint64_t size, ErrorAt at) {
    if (size > MAX_FILE_SIZE)
        throw at.as(Error::Code::TOO_BIG)("file would grow past 4 GiB: %llu bytes",
                                          static_cast<unsigned long long>(size));
    return static_cast<uint32_t>(size);
}

void requireAddressable(MediaFile const& file, ErrorAt at) {
    addressableSize(file, at);
}

uint32_t addressableSize(MediaFile const& file, ErrorAt at) {
    uint64_t const size = sizeOnDisk(file, at);
    if (size > MAX_FILE_SIZE)
        throw at.as(Error::Code::TOO_BIG, file)("file of %llu bytes is too big, 4 GiB cannot be addressed",
                                                static_cast<unsigned long long>(size));
    return size > 0 ? static_cast<uint32_t>(size) : file.size(); // a device's end is found by seeking
}

} // namespace android::lumo::checked
