#pragma once

#include <cstddef>

#include <sys/types.h>

/// Makes the library's system calls fail on demand. For test programs that link the target test_faults: every call with
/// which MediaFile reads or changes a file then passes here first.
namespace android::lumo::test {

/// CHANGE stands for every call that changes a file: all but READ.
enum class Call { READ, WRITE, TRUNCATE, SENDFILE, ALLOCATE, CHANGE };

/// While it lives, `times` calls of one kind, from number `first` (counted from 0) on, go wrong. One at a time.
class Fault {
public:
    static constexpr size_t ALWAYS = static_cast<size_t>(-1);
    static constexpr ssize_t HALF = -2; ///< of the bytes asked for

    /// The calls fail with an errno value and change nothing.
    static Fault failing(Call call, int error, size_t first = 0, size_t times = ALWAYS) {
        return {call, -1, error, first, times};
    }
    /// The calls move `bytes` bytes at most; with 0 they answer 0. Only calls that move bytes are counted.
    static Fault shortened(Call call, ssize_t bytes, size_t first = 0, size_t times = ALWAYS) {
        return {call, bytes, 0, first, times};
    }
    /// One call moves `bytes` bytes and all later ones fail, as on a disk that fills up. A call that moves none fails
    /// at once.
    static Fault cutShort(Call call, ssize_t bytes, int error, size_t first = 0) {
        return {call, bytes, error, first, ALWAYS};
    }
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

private:
    Fault(Call kind, ssize_t bytes, int errnoValue, size_t from, size_t howOften);

    Call kind;
    ssize_t limit;
    int error;
    size_t first;
    size_t times;
    size_t count = 0;
};

} // namespace android::lumo::test
