// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <cstddef>

#include <sys/types.h>

/// Makes the library's system calls fail on demand. For test programs that link the target test_faults: every call with
/// which MediaFile reads or changes a file then passes here first.
namespace android::lumo::test {

/// CHANGE stands for every call that changes a file: all but READ. MEMORY is operator new of the whole program.
enum class Call { READ, WRITE, TRUNCATE, SENDFILE, ALLOCATE, CHANGE, MEMORY };

/// While it lives, `times` calls of one kind, from number `first` (counted from 0) on, go wrong. One at a time.
class Fault {
public:
    static constexpr size_t ALWAYS = static_cast<size_t>(-1);
    static constexpr ssize_t HALF = -2;    ///< of the bytes asked for
    static constexpr ssize_t NOTHING = -1; ///< the call fails

    /// The first call moves `bytes` bytes at most; with an error value, or when it moves none, calls fail with that.
    Fault(Call kind, ssize_t bytes, int error, size_t first, size_t times, off64_t badByte = NOWHERE);
    /// The calls fail with an errno value and change nothing.
    static Fault failing(Call call, int error, size_t first = 0, size_t times = ALWAYS) {
        return {call, NOTHING, error, first, times};
    }
    /// The calls move `bytes` bytes at most; with 0 they answer 0. Only calls that move bytes are counted.
    static Fault shortened(Call call, ssize_t bytes, size_t first = 0, size_t times = ALWAYS) {
        return {call, bytes, 0, first, times};
    }
    /// The byte at `position` of every file cannot be read or copied: EIO for each call that asks for it.
    static Fault badSector(off64_t position) { return {Call::READ, NOTHING, EIO, 0, ALWAYS, position}; }
    ~Fault();
    Fault(Fault const&) = delete;
    Fault& operator=(Fault const&) = delete;

    /// Calls of the kind so far, with the untouched ones.
    size_t calls() const { return count; }

    /// For the driver: the fault that hits this call, if any; a failure has an `error` and no `limit`.
    struct Hit {
        bool hits;
        ssize_t limit;
        int error;
    };
    static Hit on(Call call);
    /// The same for a call that moves `n` bytes from `offset` of a descriptor (-1: from where it stands).
    static Hit onMove(Call call, int fd, off64_t offset, size_t n);

    /// Nothing goes wrong or is counted while it lives: for what a test does between the library's calls.
    class Pause {
    public:
        Pause() { ++count; }
        ~Pause() { --count; }
        Pause(Pause const&) = delete;
        Pause& operator=(Pause const&) = delete;
        static inline int count = 0;
    };

private:
    static constexpr off64_t NOWHERE = -1;

    Call kind;
    ssize_t limit;
    int error;
    size_t first;
    size_t times;
    off64_t sector;
    size_t count = 0;
};

} // namespace android::lumo::test
