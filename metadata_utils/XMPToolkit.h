#pragma once

/// The XMP Toolkit's client interface over std::string. Its exception type crosses the library's border, so its type
/// information must be visible; the library's own translation units are compiled hidden.
#pragma GCC visibility push(default)
#define TXMP_STRING_TYPE std::string
#include <string>

#include <XMP.hpp>
#pragma GCC visibility pop

#include <memory>

namespace android::lumo {

using XMPPacket = SXMPMeta;

} // namespace android::lumo
