// SPDX-License-Identifier: Apache-2.0
// Compiled with the toolkit's core: what its interface does not let a client ask for.
#include "public/include/XMP_Environment.h"

#include "XMPCore/source/XMPCore_Impl.hpp"

#include <algorithm>

/// The toolkit takes some properties ("tiff:Software", "exif:DateTimeDigitized") for other names of its own
/// ("xmp:CreatorTool", "xmp:CreateDate"): it renames what a packet holds, and drops it where both are there. Without
/// its table it leaves them as they are. To be called once, behind the toolkit's initialisation.
void xmpForgetAliases() {
    if (sRegisteredAliasMap != nullptr)
        sRegisteredAliasMap->clear();
}

// The two functions below take the place of the core's own, which the build renames: those give the second of two
// languages the text of the default one, whenever a packet is read or written.

static bool hasLanguage(XMP_Node const* item) {
    return !item->qualifiers.empty() && item->qualifiers[0]->name == "xml:lang";
}

/// The default language comes first.
void NormalizeLangArray(XMP_Node* array) {
    auto& items = array->children;
    if (!std::all_of(items.begin(), items.end(), hasLanguage))
        XMP_Throw("an array of languages has an item without one", kXMPErr_BadXMP);
    auto const byDefault = std::find_if(items.begin(), items.end(),
                                        [](XMP_Node const* item) { return item->qualifiers[0]->value == "x-default"; });
    if (byDefault != items.end())
        std::iter_swap(items.begin(), byDefault);
}

/// An array of alternatives in which each item is a text with a language is one of languages.
void DetectAltText(XMP_Node* array) {
    auto const isText = [](XMP_Node const* item) {
        return (item->options & kXMP_PropCompositeMask) == 0 && (item->options & kXMP_PropHasLang) != 0;
    };
    auto const& items = array->children;
    if (items.empty() || !std::all_of(items.begin(), items.end(), isText))
        return;
    array->options |= kXMP_PropArrayIsAltText;
    NormalizeLangArray(array);
}
