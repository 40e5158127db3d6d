#pragma once

#include "XMPToolkit.h"

#include <memory>
#include <string>

namespace android::lumo {

/// Makes the toolkit ready for a view: its process-wide initialisation (it counts calls), then the four namespaces.
/// Throws XMP_Error, also when one of them is registered under another prefix already: prefixed paths would not be
/// found.
void prepareXMPToolkit();

/// The packet of a text; an empty or blank one gives an empty packet, one that is not wholly XMP throws XMP_Error.
std::shared_ptr<XMPPacket> parseXMPPacket(std::string const& text);

} // namespace android::lumo
