#pragma once

#include <stdexcept>

namespace android::lumo {

/// Builds the library's one kind of error: a std::runtime_error whose text is "[source:line] " and a message.
///
/// `throw ErrorAt()("expected %zu, found %zu", a, b)` names the line it stands on. A fixed number belongs to the
/// message where callers look for it: `throw ErrorAt(326)("...")`. As a default argument (`ErrorAt at = ErrorAt()`) it
/// names the caller's line, so that a shared check reports the place that asked for it.
class ErrorAt {
public:
    explicit ErrorAt(int atLine = __builtin_LINE(), char const* inFile = __builtin_FILE())
        : line(atLine), file(inFile) {}

    __attribute__((format(printf, 2, 3))) std::runtime_error operator()(char const* format, ...) const;

private:
    int line;
    char const* file;
};

} // namespace android::lumo
