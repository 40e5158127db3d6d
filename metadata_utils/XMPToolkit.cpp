// SPDX-License-Identifier: Apache-2.0
// The one instantiation of the toolkit's client templates.
#include "XMPToolkit.h"

#include "XMPError.h"

#include <new>
#include <string_view>

#pragma GCC visibility push(default)
#include <XMP.incl_cpp>
#pragma GCC visibility pop

namespace android::lumo {

XMPError::XMPError(std::string const& text, XMP_Error const& reported) : Error(Code::XMP, text), XMP_Error(reported) {}

XMPError::~XMPError() = default;

void rethrowToolkitError(XMP_Error const& error, ErrorAt at) {
    std::string_view const message = error.GetErrMsg() != nullptr ? error.GetErrMsg() : "no reason given";
    // The toolkit catches the standard library's exceptions inside and keeps their texts only.
    if (error.GetID() == kXMPErr_NoMemory ||
        (error.GetID() == kXMPErr_StdException && message == std::bad_alloc().what()))
        throw std::bad_alloc();
    throw XMPError(at.as(Error::Code::XMP)("%s", message.data()).what(), error);
}

char const* messageOf(std::exception const& error) {
    auto const* reported = dynamic_cast<XMP_Error const*>(&error);
    return reported != nullptr && reported->GetErrMsg() != nullptr ? reported->GetErrMsg() : error.what();
}

} // namespace android::lumo
