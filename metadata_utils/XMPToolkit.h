// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The XMP Toolkit's client interface over std::string. Its exception type crosses the library's border, so its type
/// information must be visible; the library's own translation units are compiled hidden.
#pragma GCC visibility push(default)
#define TXMP_STRING_TYPE std::string
#include <string>

#include <XMP.hpp>
#pragma GCC visibility pop

#ifdef METADATA_UTILS_XMP_SHIM
#include "cmake/XMPCoreShim.h"
#endif

#include "ErrorAt.h"

namespace android::lumo {

/// Inside a handler of the toolkit's error: throws it on as XMPError, or as the std::bad_alloc it stands for.
[[noreturn]] void rethrowToolkitError(XMP_Error const& error, ErrorAt at);

/// Runs one call into the toolkit.
template<class Call>
auto toolkit(Call const& call, ErrorAt at = ErrorAt()) {
    try {
        return call();
    } catch (XMP_Error const& error) {
        rethrowToolkitError(error, at);
    }
}

/// The message of the toolkit alone, where one log line asks for it; any other error's whole text.
char const* messageOf(std::exception const& error);

} // namespace android::lumo
