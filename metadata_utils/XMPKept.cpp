// SPDX-License-Identifier: Apache-2.0
#include "XMPKept.h"

#include "Text.h"
#include "XMPInfo.h"

#include <expat.h>

#include <exception>
#include <memory>
#include <new>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace android::lumo {

namespace {

constexpr char SEPARATOR = '\n'; ///< between namespace and name, as the parser reports them
constexpr std::string_view RDF = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";
constexpr std::string_view XML = "http://www.w3.org/XML/1998/namespace";

std::pair<std::string_view, std::string_view> split(std::string_view name) {
    auto const end = name.rfind(SEPARATOR);
    return end == std::string_view::npos ? std::pair(std::string_view(), name)
                                         : std::pair(name.substr(0, end), name.substr(end + 1));
}

/// Namespaces and names of the top-level properties, and all values, of a packet's text.
class Contents {
public:
    std::vector<std::pair<std::string, std::string>> names;
    struct Value {
        int count = 0;
        std::string text; ///< as one of them is written
    };
    std::unordered_map<std::string, Value> values; ///< lowered: the toolkit rewrites the letters of languages
    int roots = 0;

    /// False when it is no XML in this encoding (none: what the text itself says).
    bool read(std::string const& text, char const* encoding) {
        std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> const owner(XML_ParserCreateNS(encoding, SEPARATOR),
                                                                            XML_ParserFree);
        if (owner == nullptr)
            throw std::bad_alloc();
        parser = owner.get();
        XML_SetUserData(parser, this);
        XML_SetElementHandler(
            parser,
            [](void* self, char const* name, char const** attributes) {
                handle(self, [&](Contents& contents) { contents.start(name, attributes); });
            },
            [](void* self, char const*) { handle(self, [](Contents& contents) { contents.end(); }); });
        XML_SetCharacterDataHandler(parser, [](void* self, char const* bytes, int size) {
            handle(self, [&](Contents& contents) { contents.content.append(bytes, static_cast<size_t>(size)); });
        });
        bool const isXML = XML_Parse(parser, text.data(), static_cast<int>(text.size()), XML_TRUE) == XML_STATUS_OK;
        if (failure != nullptr)
            std::rethrow_exception(failure);
        return isXML;
    }

private:
    /// No exception passes through the parser's own code.
    template<class Handler>
    static void handle(void* self, Handler const& handler) {
        auto& contents = *static_cast<Contents*>(self);
        try {
            handler(contents);
        } catch (...) {
            contents.failure = std::current_exception();
            XML_StopParser(contents.parser, XML_FALSE);
        }
    }

    void start(std::string_view name, char const** attributes) {
        ++depth;
        isLeaf = true;
        content.clear();
        auto const [space, local] = split(name);
        if (space == RDF && local == "RDF") {
            ++roots;
            rootDepth = depth;
            return;
        }
        if (rootDepth == 0)
            return;
        if (depth == rootDepth + 2)
            names.emplace_back(space, local);
        // What a directory's entry is becomes the name of the item (nestTypedEntries).
        bool const isItemType = space == RDF && local == "type" && attributes[0] != nullptr &&
                                std::string(xmp_ns::CONTAINER) + "Item" == attributes[1];
        for (; *attributes != nullptr && !isItemType; attributes += 2)
            attribute(attributes[0], attributes[1]);
    }

    void attribute(std::string_view name, std::string_view value) {
        auto const [space, local] = split(name);
        bool const isSyntax = space == RDF && local != "resource" && local != "value" && local != "type";
        if (isSyntax || (space == XML && local != "lang"))
            return;
        if (depth == rootDepth + 1 && space != XML)
            names.emplace_back(space, local);
        keep(value);
    }

    void end() {
        if (isLeaf && rootDepth != 0)
            keep(content);
        isLeaf = false;
        if (depth == rootDepth)
            rootDepth = 0;
        --depth;
    }

    void keep(std::string_view value) {
        if (value.find_first_not_of(" \t\r\n") == std::string_view::npos)
            return;
        auto& known = values[lowered(std::string(value))];
        if (known.count++ == 0)
            known.text = value;
    }

    XML_Parser parser = nullptr; ///< while it reads
    std::exception_ptr failure;  ///< of a handler
    std::string content;         ///< of the element that began last
    bool isLeaf = false;         ///< it has no elements inside so far
    int depth = 0;
    int rootDepth = 0; ///< of the rdf:RDF that is open, 0 outside
};

/// Asks for top-level properties by the very name.
class Listed {
public:
    explicit Listed(XMPPacket const& of) : packet(of) {
#ifndef METADATA_UTILS_XMP_SHIM
        for (auto const& [schema, path] : packet.properties())
            names.emplace(schema, path.substr(path.find(':') + 1));
#endif
    }

    /// Without the shim the toolkit says of an alias that it is there when its base is; its list has the names.
    bool has(std::string const& schema, std::string const& name) const {
#ifdef METADATA_UTILS_XMP_SHIM
        return packet.has(schema, name);
#else
        return packet.has(schema, name) && names.contains({schema, name});
#endif
    }

private:
    XMPPacket const& packet;
#ifndef METADATA_UTILS_XMP_SHIM
    std::set<std::pair<std::string, std::string>> names;
#endif
};

} // namespace

std::string lostByParsing(std::string const& text, XMPPacket const& packet) {
    Contents contents;
    if (!contents.read(text, nullptr)) {
        contents = {};
        if (!contents.read(text, "ISO-8859-1")) // the toolkit takes single bytes of it among UTF-8
            return "characters that are no XML";
    }
    if (contents.roots > 1)
        return "a second rdf:RDF";
    Listed const listed(packet);
    for (auto const& [space, name] : contents.names) {
        bool isThere = false;
        try {
            isThere = listed.has(space, name);
        } catch (Error const&) {
            // A namespace or name the toolkit does not take.
        }
        if (!isThere)
            return "the property " + space + name;
    }
    packet.visitValues([&](std::string const& value) {
        if (auto const found = contents.values.find(lowered(value)); found != contents.values.end())
            --found->second.count;
    });
    for (auto const& [key, value] : contents.values) {
        if (value.count > 0)
            return "the value \"" + value.text.substr(0, 40) + "\"";
    }
    return {};
}

} // namespace android::lumo
