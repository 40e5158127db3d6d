// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPPacket.h"

#include <string>

namespace android::lumo {

/// Compares a packet's text, read by an XML parser, with what the toolkit has made of it: names the first thing that is
/// not there any more, empty when everything is.
///
/// The toolkit takes an rdf:about of a certain form for an instance ID and overwrites the one there is, reads one of
/// several rdf:RDF, renames or drops aliases, repairs and moves properties of certain names, and puts blanks in place
/// of characters it does not like. All of that is harmless as long as the packet is only looked at.
std::string lostByParsing(std::string const& text, XMPPacket const& packet);

} // namespace android::lumo
