#include "support/Faults.h"

#include <algorithm>
#include <cerrno>

#include <unistd.h>

namespace android::lumo::test {

namespace {

Fault* active = nullptr;

/// Runs the real call with as many bytes as the fault leaves of `n`.
template<class Real>
ssize_t moved(Call call, size_t n, Real real) {
    auto const fault = Fault::on(call);
    if (!fault.hits)
        return real(n);
    if (fault.limit == -1) {
        errno = fault.error;
        return -1;
    }
    size_t const left = fault.limit == Fault::HALF ? (n + 1) / 2 : static_cast<size_t>(fault.limit);
    return left == 0 ? 0 : real(std::min(n, left));
}

} // namespace

Fault::Fault(Call call, ssize_t bytes, int errnoValue, size_t from, size_t howOften)
    : kind(call), limit(bytes), error(errnoValue), first(from), times(howOften) {
    active = this;
}

Fault::~Fault() {
    active = nullptr;
}

Fault::Hit Fault::on(Call call) {
    bool const isMeant =
        active != nullptr && (active->kind == call || (active->kind == Call::CHANGE && call != Call::READ));
    if (!isMeant || (active->error == 0 && (call == Call::TRUNCATE || call == Call::ALLOCATE)))
        return {};
    size_t const number = active->count++;
    bool const hits = number >= active->first && number - active->first < active->times;
    bool const isLater = active->error != 0 && number > active->first;
    return {hits, isLater ? -1 : active->limit, active->error};
}

} // namespace android::lumo::test

// The names the linker's --wrap gives to a call and to the C library's own.
extern "C" {

using android::lumo::test::Call;
using android::lumo::test::Fault;
using android::lumo::test::moved;

ssize_t __real_read(int fd, void* buffer, size_t n);
ssize_t __real_write(int fd, void const* bytes, size_t n);
ssize_t __real_sendfile64(int out, int in, off64_t* offset, size_t n);
int __real_ftruncate64(int fd, off64_t size);
int __real_posix_fallocate64(int fd, off64_t offset, off64_t n);
int __real_fallocate64(int fd, int mode, off64_t offset, off64_t n);

ssize_t __wrap_read(int fd, void* buffer, size_t n) {
    return moved(Call::READ, n, [&](size_t left) { return __real_read(fd, buffer, left); });
}

ssize_t __wrap_write(int fd, void const* bytes, size_t n) {
    return moved(Call::WRITE, n, [&](size_t left) { return __real_write(fd, bytes, left); });
}

ssize_t __wrap_sendfile64(int out, int in, off64_t* offset, size_t n) {
    return moved(Call::SENDFILE, n, [&](size_t left) { return __real_sendfile64(out, in, offset, left); });
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
