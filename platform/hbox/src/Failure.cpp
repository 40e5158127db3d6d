// SPDX-License-Identifier: Apache-2.0
#include "Failure.h"

#include <cstdarg>
#include <cstdio>

namespace hbox {

namespace {

// A fixed buffer: recording "out of memory" must not allocate.
thread_local char lastError[256] = "";

} // namespace

Failure failure(HBOX_RESULT code, char const* format, ...) {
    char text[sizeof lastError];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return {code, text};
}

int32_t reportFailure(HBOX_RESULT code, char const* text) noexcept {
    std::snprintf(lastError, sizeof lastError, "%s", text);
    return code;
}

} // namespace hbox

extern "C" char const* hbox_last_error(void) {
    return hbox::lastError;
}
