// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPEdit.h"
#include "XMPInfoImpl.h"

#include <map>
#include <string>
#include <utility>

/// What packets say, to be compared and said again: top-level properties and the directory's items.
namespace android::lumo::packets {

using ItemFields = std::map<std::string, std::string>;
using Property = std::pair<std::string, std::string>; ///< namespace URI, name

std::map<std::string, ItemFields> itemsOf(XMPInfo const& info);
/// Makes the item's fields exactly these; an item that is not there is added with its "Mime".
void setFields(XMPEdit& edit, std::string const& item, ItemFields const& fields);

/// Puts what was changed from one packet to another into a third, each property as a whole; with the motion, also what
/// the second says of a video and was not changed.
void merge(XMPInfo const& before, XMPInfo const& after, XMPEdit& into, bool withMotion);

} // namespace android::lumo::packets
