// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPPacket.h"

#include <memory>
#include <string>

namespace android::lumo {

/// Makes the toolkit ready, once a process: its initialisation, then the four namespaces. Throws XMPError, also when
/// one of them is registered under another prefix already: prefixed paths would not be found.
void prepareXMPToolkit();

/// The packet of a text; an empty or blank one gives an empty packet, one that is not wholly XMP throws (code XMP).
std::shared_ptr<XMPPacket> parseXMPPacket(std::string const& text);

} // namespace android::lumo
