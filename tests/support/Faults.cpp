// SPDX-License-Identifier: Apache-2.0
#include "support/Faults.h"

#include <algorithm>
#include <cerrno>

#include <unistd.h>

namespace android::lumo::test {

namespace {

Fault* active = nullptr;

/// Runs the real call with as many bytes as the fault leaves of `n`.
template<class Real>
ssize_t moved(Call call, int from, off64_t offset, size_t n, Real real) {
    auto const fault = Fault::onMove(call, from, offset, n);
    if (!fault.hits)
        return real(n);
    if (fault.limit == Fault::NOTHING) {
        errno = fault.error;
        return -1;
    }
    size_t const left = fault.limit == Fault::HALF ? (n + 1) / 2 : static_cast<size_t>(fault.limit);
    return left == 0 ? 0 : real(std::min(n, left));
}

} // namespace

Fault::Fault(Call call, ssize_t bytes, int errnoValue, size_t from, size_t howOften, off64_t badByte)
    : kind(call), limit(bytes), error(errnoValue), first(from), times(howOften), sector(badByte) {
    active = this;
}

Fault::~Fault() {
    active = nullptr;
}

Fault::Hit Fault::on(Call call) {
    bool const isChange = call != Call::READ && call != Call::MEMORY;
    bool const isMeant = active != nullptr && Pause::count == 0 && active->sector == NOWHERE &&
                         (active->kind == call || (active->kind == Call::CHANGE && isChange));
    if (!isMeant || (active->error == 0 && (call == Call::TRUNCATE || call == Call::ALLOCATE)))
        return {};
    size_t const number = active->count++;
    bool const hits = number >= active->first && number - active->first < active->times;
    bool const isLater = active->error != 0 && number > active->first;
    return {hits, isLater ? NOTHING : active->limit, active->error};
}

Fault::Hit Fault::onMove(Call call, int fd, off64_t offset, size_t n) {
    if (active == nullptr || active->sector == NOWHERE)
        return on(call);
    off64_t const from = offset >= 0 ? offset : lseek64(fd, 0, SEEK_CUR);
    bool const hits = Pause::count == 0 && call != Call::WRITE && from <= active->sector &&
                      active->sector - from < static_cast<off64_t>(n);
    active->count += hits;
    return {hits, NOTHING, EIO};
}

} // namespace android::lumo::test

// The names the linker's --wrap gives to a call and to the C library's own.
extern "C" {

using android::lumo::test::Call;
using android::lumo::test::Fault;
using android::lumo::test::moved;

ssize_t __real_read(int fd, void* buffer, size_t n);
ssize_t __real_pread64(int fd, void* buffer, size_t n, off64_t offset);
ssize_t __real_write(int fd, void const* bytes, size_t n);
ssize_t __real_pwrite64(int fd, void const* bytes, size_t n, off64_t offset);
ssize_t __real_sendfile64(int out, int in, off64_t* offset, size_t n);
ssize_t __real_copy_file_range(int in, off64_t* from, int out, off64_t* to, size_t n, unsigned flags);
int __real_ftruncate64(int fd, off64_t size);
int __real_posix_fallocate64(int fd, off64_t offset, off64_t n);
int __real_fallocate64(int fd, int mode, off64_t offset, off64_t n);

ssize_t __wrap_read(int fd, void* buffer, size_t n) {
    return moved(Call::READ, fd, -1, n, [&](size_t left) { return __real_read(fd, buffer, left); });
}

ssize_t __wrap_pread64(int fd, void* buffer, size_t n, off64_t offset) {
    return moved(Call::READ, fd, offset, n, [&](size_t left) { return __real_pread64(fd, buffer, left, offset); });
}

ssize_t __wrap_write(int fd, void const* bytes, size_t n) {
    return moved(Call::WRITE, fd, -1, n, [&](size_t left) { return __real_write(fd, bytes, left); });
}

ssize_t __wrap_pwrite64(int fd, void const* bytes, size_t n, off64_t offset) {
    return moved(Call::WRITE, fd, offset, n, [&](size_t left) { return __real_pwrite64(fd, bytes, left, offset); });
}

ssize_t __wrap_sendfile64(int out, int in, off64_t* offset, size_t n) {
    off64_t const from = offset != nullptr ? *offset : -1;
    return moved(Call::SENDFILE, in, from, n, [&](size_t left) { return __real_sendfile64(out, in, offset, left); });
}

ssize_t __wrap_copy_file_range(int in, off64_t* from, int out, off64_t* to, size_t n, unsigned flags) {
    return moved(Call::SENDFILE, in, from != nullptr ? *from : -1, n,
                 [&](size_t left) { return __real_copy_file_range(in, from, out, to, left, flags); });
}

int __wrap_ftruncate64(int fd, off64_t size) {
    auto const fault = Fault::on(Call::TRUNCATE);
    if (!fault.hits)
        return __real_ftruncate64(fd, size);
    errno = fault.error;
    return -1;
}

/// A full disk leaves the part that still fitted, as the real one does.
int __wrap_posix_fallocate64(int fd, off64_t offset, off64_t n) {
    auto const fault = Fault::on(Call::ALLOCATE);
    if (!fault.hits)
        return __real_posix_fallocate64(fd, offset, n);
    if (fault.error == ENOSPC)
        static_cast<void>(__real_ftruncate64(fd, offset + n / 2));
    return fault.error;
}

int __wrap_fallocate64(int fd, int mode, off64_t offset, off64_t n) {
    auto const fault = Fault::on(Call::ALLOCATE);
    if (!fault.hits)
        return __real_fallocate64(fd, mode, offset, n);
    errno = fault.error;
    return -1;
}
}
