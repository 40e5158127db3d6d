// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace android::lumo {

struct ScannedPacket {
    std::vector<std::string> namespaces; ///< that it declares
    /// Bytes at its end that say nothing: the blanks in which an edit may write, and the mark of the end behind them.
    /// The toolkit takes longer to read them than most packets.
    size_t room = 0;
    /// The packet without its room and without the blanks beside elements, which say nothing either; empty for a packet
    /// that has none or is big.
    std::string dense;
};

/// Looks a packet's text over before the toolkit sees it and refuses what would cost more than the packet is worth: a
/// document type (entities grow without bound), and whatever is past the limits of XMPLimits.h.
///
/// Follows the XML tokens in UTF-8 (or any other encoding that extends ASCII) and UTF-16 of both byte orders, told
/// apart as the parser behind the toolkit does it; that parser refuses every other encoding. A text that is no XML
/// passes: finding the fault is the parser's.
ScannedPacket refuseHostilePacket(std::string_view packet);

/// The toolkit takes every reference of one or two hexadecimal digits ("&#x27;") for one of a control character and
/// reads a blank; one of more digits it reads. The text with more of them, empty when it has none. What does stand for
/// a control character stays, and so does a section that is no markup.
std::string withLongReferences(std::string const& text);

} // namespace android::lumo
