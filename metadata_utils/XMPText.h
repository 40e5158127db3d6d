// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"

#include <string>
#include <string_view>

/// What may go into a packet: checked before the toolkit is asked to change it, because a value it refuses leaves an
/// empty property behind, and one that XML cannot carry makes a packet that no parser reads back.
namespace android::lumo::xmp_text {

/// Valid UTF-8 (RFC 3629) of characters that XML 1.0 allows (its production 2, Char).
bool isXMLText(std::string_view text);

/// Throws "value of %s is not UTF-8 text that XML can carry", as the two below an XMPError: what the toolkit throws for
/// text that is not UTF-8. A control character, which it would make a blank of, is refused as well.
void requireValue(std::string const& value, std::string const& name, ErrorAt at = ErrorAt());

/// For names of namespaces and fields: throws on text as above. What else makes a name good is the toolkit's to judge.
void requireName(std::string const& name, ErrorAt at = ErrorAt());
/// For property paths: throws also on more steps than a packet may be nested deep.
void requirePath(std::string const& path, ErrorAt at = ErrorAt());

} // namespace android::lumo::xmp_text
