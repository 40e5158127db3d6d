// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Error.h"

#include <memory>
#include <string>

namespace android::lumo {

class MediaFile;

/// Builds an Error whose text is "[source:line] " and a message.
///
/// `throw ErrorAt()("expected %zu, found %zu", a, b)` names the line it stands on. A fixed number belongs to the
/// message where callers look for it: `throw ErrorAt(326)("...")`. As a default argument (`ErrorAt at = ErrorAt()`) it
/// names the caller's line, so that a shared check reports the place that asked for it. `ErrorAt().as(code, file)`
/// says whose fault it is; without it the error is one of REFUSED.
class ErrorAt {
public:
    explicit ErrorAt(int atLine = __builtin_LINE(), char const* inFile = __builtin_FILE())
        : line(atLine), file(inFile) {}

    ErrorAt as(Error::Code errorCode) const;
    ErrorAt as(Error::Code errorCode, MediaFile const& blamed) const;

    __attribute__((format(printf, 2, 3))) Error operator()(char const* format, ...) const;

private:
    int line;
    char const* file;
    Error::Code code = Error::Code::REFUSED;
    MediaFile const* culprit = nullptr; ///< outlives the expression that throws
};

/// For a handler that takes damage for an answer ("no trailer", "no pointer"): throws on what says nothing about the
/// file's bytes, a read the system refused and a lack of memory. Called inside the handler.
void rethrowUnlessDamage();

} // namespace android::lumo
