#pragma once

#include <string_view>

namespace android::lumo {

/// Looks a packet's text over before the toolkit sees it and refuses what would cost the toolkit more
/// than the packet is worth: a document type (entities grow without bound), elements nested so deep that its recursion
/// outgrows a thread's stack, names so many that its searches, whose time grows with their square, take minutes.
///
/// Follows the XML tokens in UTF-8 (or any other encoding that extends ASCII) and UTF-16 of both byte orders, told
/// apart as the parser behind the toolkit does it; that parser refuses every other encoding. A text that is no XML
/// passes: finding the fault is the parser's.
void refuseHostilePacket(std::string_view packet);

} // namespace android::lumo
