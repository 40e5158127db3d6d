// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Error.h"

/// The one public header that includes the XMP Toolkit SDK, for clients that look at what the toolkit reported. They
/// have the SDK's public/include in their path, which is not installed with this library; others catch Error.
#pragma GCC visibility push(default)
#ifndef UNIX_ENV
#define UNIX_ENV 1
#endif
#include <XMP_Const.h>
#pragma GCC visibility pop

namespace android::lumo {

/// What the XMP Toolkit SDK reported: caught as Error (code XMP), as std::exception, or as the toolkit's own type with
/// its number and message. The library throws no other XMP_Error.
class METADATA_UTILS_EXPORT XMPError : public Error, public XMP_Error {
public:
    /// The library's text, and what the toolkit threw.
    XMPError(std::string const& text, XMP_Error const& reported);
    ~XMPError() override;
    /// Errors are copied where they are thrown.
    XMPError(XMPError const&) = default;
    XMPError& operator=(XMPError const&) = delete;
};

} // namespace android::lumo
