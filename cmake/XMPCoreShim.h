// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include <XMP_Const.h>

/// The toolkit takes some properties ("tiff:Software", "exif:DateTimeDigitized") for other names of its own
/// ("xmp:CreatorTool", "xmp:CreateDate"): it renames what a packet holds, and drops it where both are there. Without
/// its table it leaves them as they are. To be called once, behind the toolkit's initialisation.
void xmpForgetAliases();

/// What stands at a path of a packet; valid until the packet changes.
struct XMPFound {
    enum class Answer { THERE, ABSENT, UNKNOWN };

    Answer answer = Answer::UNKNOWN;
    std::string const* value = nullptr;
    XMP_OptionBits form = 0;
    size_t children = 0;
    void const* node = nullptr;
};

/// Follows a path of plain steps ("GCamera:MotionPhoto", "Container:Directory[2]/Container:Item/Item:Mime",
/// "a:b/?rdf:type") down the packet's tree. The toolkit's own search finds the same, but takes each step apart, looks
/// up its namespace and verifies its letters first, which is most of the time a query takes. UNKNOWN: what it says of
/// any other path, or of a name it may not take, it has to say itself.
XMPFound xmpFind(XMPMetaRef packet, std::string_view schema, std::string_view path);

/// Sets a simple value at such a path and makes what is missing of the path's end, as the toolkit would. False, and
/// nothing done: it has to do it itself.
bool xmpSet(XMPMetaRef packet, std::string_view schema, std::string_view path, std::string const& value);

/// Gives each entry of an array that is a typed node of this type the form in which the node is a field of the entry:
/// its own fields go into one of that name. What the toolkit's calls would do by a path for each of them.
void xmpNestTyped(XMPMetaRef packet, std::string const& schema, std::string const& array, std::string const& type,
                  std::string const& field);

/// Calls `visit(schema, path)` for every simple value of the packet, or below the node found at `path`, without
/// qualifiers: what the toolkit's iterator shows, which searches for each node anew from the root.
using XMPVisit = std::function<void(std::string const& schema, std::string const& path)>;
void xmpVisitLeaves(XMPMetaRef packet, XMPVisit const& visit);
void xmpVisitLeaves(XMPFound const& found, std::string const& schema, std::string const& path, XMPVisit const& visit);
/// Calls `visit` for every field of the struct that was found: what a path for each would lead to.
using XMPVisitField = std::function<void(std::string const& name, std::string const& value, XMP_OptionBits form)>;
void xmpVisitFields(XMPFound const& found, XMPVisitField const& visit);
/// Calls `visit` for every value there is, qualifiers too.
void xmpVisitValues(XMPMetaRef packet, std::function<void(std::string const& value)> const& visit);
