// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <expat.h>

#include <cctype>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

/// Reads an XMP packet without the library's toolkit: every simple value with its path, so that two packets can be
/// compared by what they say, whatever form they are written in.
namespace android::lumo::test {

struct XmlNode {
    std::string name, text; ///< the name with its namespace in front
    std::map<std::string, std::string> attributes;
    std::vector<std::unique_ptr<XmlNode>> children;
    XmlNode* parent = nullptr;
};

inline std::string const RDF = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";

inline std::unique_ptr<XmlNode> parseXml(std::string const& text) {
    auto root = std::make_unique<XmlNode>();
    auto* open = root.get();
    std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> const parser(XML_ParserCreateNS(nullptr, 0),
                                                                         XML_ParserFree);
    XML_SetUserData(parser.get(), &open);
    XML_SetElementHandler(
        parser.get(),
        [](void* data, char const* name, char const** attributes) {
            auto*& node = *static_cast<XmlNode**>(data);
            node->children.push_back(std::make_unique<XmlNode>(XmlNode{name, {}, {}, {}, node}));
            node = node->children.back().get();
            for (; *attributes != nullptr; attributes += 2)
                node->attributes[attributes[0]] = attributes[1];
        },
        [](void* data, char const*) {
            auto*& node = *static_cast<XmlNode**>(data);
            node = node->parent;
        });
    XML_SetCharacterDataHandler(parser.get(), [](void* data, char const* bytes, int size) {
        (*static_cast<XmlNode**>(data))->text.append(bytes, static_cast<size_t>(size));
    });
    if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) != XML_STATUS_OK)
        throw std::runtime_error("no XML");
    return root;
}

/// "path = value" of all a node says; the node is a property, a field or an item.
inline void gather(XmlNode const& node, std::string const& path, std::set<std::string>& found) {
    auto const isRdf = [](std::string const& name, char const* local) { return name == RDF + local; };
    auto const before = found.size();
    for (auto const& [name, value] : node.attributes) {
        if (name.ends_with("namespacelang")) {
            std::string lowered = value;
            for (char& c : lowered)
                c = static_cast<char>(std::tolower(c));
            found.insert(path + "?lang = " + lowered);
        } else if (isRdf(name, "resource") || isRdf(name, "value")) {
            found.insert(path + " = " + value);
        } else if (!name.starts_with(RDF)) {
            found.insert(path + "/" + name + " = " + value);
        }
    }
    bool const hasAttributes = found.size() > before;
    int item = 0;
    for (auto const& child : node.children) {
        if (isRdf(child->name, "li"))
            gather(*child, path + "[" + std::to_string(++item) + "]", found);
        else if (isRdf(child->name, "value"))
            gather(*child, path, found);
        else if (child->name.starts_with(RDF) && !isRdf(child->name, "type")) // Description, Bag, Seq, Alt
            gather(*child, path + (isRdf(child->name, "Description") ? "" : child->name.substr(RDF.size())), found);
        else
            gather(*child, path + "/" + child->name, found);
    }
    bool const isBlank = node.text.find_first_not_of(" \t\r\n") == std::string::npos;
    if (node.children.empty() && (!isBlank || !hasAttributes))
        found.insert(path + " = " + (isBlank ? "" : node.text));
}

/// What the nodes say that are, or hold, an rdf:Description.
inline void gatherBelow(XmlNode const& node, std::set<std::string>& found) {
    if (node.name == RDF + "Description")
        return gather(node, "", found);
    for (auto const& child : node.children)
        gatherBelow(*child, found);
}

/// What the packet says; an item written as a typed node counts as the field of an entry that it usually is.
inline std::set<std::string> statementsOf(std::string const& packet) {
    std::set<std::string> found;
    gatherBelow(*parseXml(packet), found);
    return found;
}

} // namespace android::lumo::test
