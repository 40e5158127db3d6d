// SPDX-License-Identifier: Apache-2.0
// Compiled with the toolkit's core: what its interface does not let a client ask for.
#include "public/include/XMP_Environment.h"

#include "XMPCore/source/XMPCore_Impl.hpp"
#include "XMPCore/source/XMPMeta.hpp"

#include "XMPCoreShim.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <string_view>

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

// Queries. ------------------------------------------------------------------------------------------------------------

using Answer = XMPFound::Answer;

static XMP_Node const& treeOf(XMPMetaRef packet) {
    return reinterpret_cast<XMPMeta const*>(packet)->tree;
}

static XMP_Node const* named(XMP_NodeOffspring const& nodes, std::string_view name) {
    auto const found =
        std::find_if(nodes.begin(), nodes.end(), [&](XMP_Node const* node) { return node->name == name; });
    return found == nodes.end() ? nullptr : *found;
}

static std::string_view prefixOf(std::string_view name) {
    return name.substr(0, name.find(':') + 1);
}

/// Letters that every name may have.
static bool isPlainName(std::string_view name) {
    auto const isPlain = [](unsigned char c) { return c < 0x80 && (std::isalnum(c) != 0 || c == '_'); };
    return !name.empty() && std::isdigit(static_cast<unsigned char>(name[0])) == 0 &&
           std::all_of(name.begin(), name.end(), isPlain);
}

/// A name of a namespace that the toolkit knows.
static bool isKnownName(std::string_view name) {
    auto const prefix = prefixOf(name);
    return !prefix.empty() && isPlainName(name.substr(prefix.size())) &&
           sRegisteredNamespaces->GetURI(std::string(prefix).c_str(), nullptr, nullptr);
}

/// Takes the next step, up to the next '/' or '[', off a path.
static std::string_view takeStep(std::string_view& path) {
    auto const end = std::find_if(path.begin(), path.end(), [](char c) { return c == '/' || c == '['; });
    auto const step = path.substr(0, static_cast<size_t>(end - path.begin()));
    path.remove_prefix(step.size());
    return step;
}

/// Takes "[12]" off a path; 0 for anything else.
static size_t takeIndex(std::string_view& path) {
    constexpr size_t MAX_DIGITS = 9;
    auto const end = path.find(']');
    if (end == std::string_view::npos || end < 2 || end > MAX_DIGITS)
        return 0;
    size_t number = 0;
    for (char const c : path.substr(1, end - 1)) {
        if (c < '0' || c > '9')
            return 0;
        number = number * 10 + static_cast<size_t>(c - '0');
    }
    path.remove_prefix(end + 1);
    return number;
}

/// What is not there: certain where its name is one that the toolkit takes, and all that follows it as well.
static XMPFound absent(bool isKnown, std::string_view rest) {
    while (isKnown && !rest.empty()) {
        if (rest[0] == '[') {
            isKnown = takeIndex(rest) != 0;
            continue;
        }
        rest.remove_prefix(rest.substr(0, 2) == "/?" ? 2 : 1);
        isKnown = isKnownName(takeStep(rest));
    }
    return {isKnown ? Answer::ABSENT : Answer::UNKNOWN};
}

/// A property's name without and its namespace's prefix, which the toolkit knows; both empty where it knows no such
/// namespace, or another prefix.
struct RootName {
    std::string_view prefix, local;

    bool isOf(std::string_view name) const {
        return name.size() == prefix.size() + local.size() && name.substr(0, prefix.size()) == prefix &&
               name.substr(prefix.size()) == local;
    }
};

static RootName rootName(XMP_Node const* namespaceNode, std::string_view schema, std::string_view name) {
    XMP_StringPtr known = nullptr;
    if (namespaceNode == nullptr &&
        (schema.empty() || !sRegisteredNamespaces->GetPrefix(std::string(schema).c_str(), &known, nullptr)))
        return {};
    std::string_view const prefix = namespaceNode != nullptr ? std::string_view(namespaceNode->value) : known;
    auto const given = prefixOf(name);
    if (!given.empty() && given != prefix)
        return {};
    return {prefix, name.substr(given.size())};
}

XMPFound xmpFind(XMPMetaRef packet, std::string_view schema, std::string_view path) {
    auto const* found = named(treeOf(packet).children, schema);
    std::string_view rest = path;
    auto const root = rootName(found, schema, takeStep(rest));
    if (root.prefix.empty())
        return {};
    if (found == nullptr)
        return absent(isPlainName(root.local), rest);
    auto const& roots = found->children;
    auto const place =
        std::find_if(roots.begin(), roots.end(), [&](auto const* node) { return root.isOf(node->name); });
    if (place == roots.end())
        return absent(isPlainName(root.local), rest);
    found = *place;
    while (!rest.empty()) {
        if (rest[0] == '[') {
            auto const index = takeIndex(rest);
            if (index == 0 || !XMP_PropIsArray(found->options))
                return {};
            if (index > found->children.size())
                return {Answer::ABSENT};
            found = found->children[index - 1];
            continue;
        }
        rest.remove_prefix(1);
        auto step = takeStep(rest);
        bool const isQualifier = step.substr(0, 1) == "?";
        step.remove_prefix(isQualifier ? 1 : 0);
        if (!isQualifier && !XMP_PropIsStruct(found->options))
            return {};
        found = named(isQualifier ? found->qualifiers : found->children, step);
        if (found == nullptr)
            return absent(isKnownName(step), rest);
    }
    return {Answer::THERE, &found->value, found->options, found->children.size(), found};
}

/// The node at a path; one whose last steps alone are missing is made, with structs above it. Null for what the toolkit
/// has to look at.
static XMP_Node* findOrMake(XMPMetaRef packet, std::string_view schema, std::string_view path, XMP_OptionBits form) {
    auto const found = xmpFind(packet, schema, path);
    if (found.answer == Answer::THERE)
        return const_cast<XMP_Node*>(static_cast<XMP_Node const*>(found.node));
    auto const slash = path.rfind('/');
    auto const step = path.substr(slash + 1); // all of it without a slash
    if (found.answer == Answer::UNKNOWN || step.find_first_of("?[") != std::string_view::npos)
        return nullptr;
    bool const isRoot = slash == std::string_view::npos;
    auto* parent = isRoot ? const_cast<XMP_Node*>(named(treeOf(packet).children, schema))
                          : findOrMake(packet, schema, path.substr(0, slash), kXMP_PropValueIsStruct);
    if (parent == nullptr)
        return nullptr;
    std::string const prefix = isRoot && prefixOf(step).empty() ? parent->value : std::string();
    auto made = std::make_unique<XMP_Node>(parent, prefix + std::string(step), form);
    parent->children.push_back(made.get());
    return made.release();
}

bool xmpSet(XMPMetaRef packet, std::string_view schema, std::string_view path, std::string const& value) {
    auto* node = findOrMake(packet, schema, path, 0);
    if (node == nullptr || (node->options & kXMP_PropCompositeMask) != 0)
        return false;
    node->SetValue(value.c_str());
    return true;
}

void xmpNestTyped(XMPMetaRef packet, std::string const& schema, std::string const& array, std::string const& type,
                  std::string const& field) {
    auto const found = xmpFind(packet, schema, array);
    if (found.answer != Answer::THERE || !XMP_PropIsArray(found.form))
        return;
    for (auto* entry : static_cast<XMP_Node const*>(found.node)->children) {
        auto const* typeOf = named(entry->qualifiers, "rdf:type");
        if (typeOf == nullptr || typeOf->value != type || XMP_PropIsArray(entry->options))
            continue;
        auto item = std::make_unique<XMP_Node>(entry, field, kXMP_PropValueIsStruct);
        item->children.reserve(1); // the entry's, after the exchange
        item->children.swap(entry->children);
        for (auto* each : item->children)
            each->parent = item.get();
        entry->children.push_back(item.release());
        entry->RemoveQualifiers();
        entry->value.clear();
        entry->options = kXMP_PropValueIsStruct;
    }
}

/// `path` is the node's; it is as before afterwards.
static void visitLeaves(XMP_Node const& node, std::string const& schema, std::string& path, XMPVisit const& visit) {
    if (node.children.empty())
        return visit(schema, path);
    auto const size = path.size();
    bool const isArray = XMP_PropIsArray(node.options);
    for (size_t i = 0; i < node.children.size(); ++i) {
        if (isArray)
            path.append("[").append(std::to_string(i + 1)).append("]");
        else
            path.append("/").append(node.children[i]->name);
        visitLeaves(*node.children[i], schema, path, visit);
        path.resize(size);
    }
}

void xmpVisitLeaves(XMPFound const& found, std::string const& schema, std::string const& path, XMPVisit const& visit) {
    std::string here = path;
    visitLeaves(*static_cast<XMP_Node const*>(found.node), schema, here, visit);
}

void xmpVisitLeaves(XMPMetaRef packet, XMPVisit const& visit) {
    for (auto const* schema : treeOf(packet).children) {
        for (auto const* property : schema->children) {
            std::string path = property->name;
            visitLeaves(*property, schema->name, path, visit);
        }
    }
}

void xmpVisitFields(XMPFound const& found, XMPVisitField const& visit) {
    for (auto const* field : static_cast<XMP_Node const*>(found.node)->children)
        visit(field->name, field->value, field->options);
}

static void visitValues(XMP_Node const& node, std::function<void(std::string const& value)> const& visit) {
    visit(node.value);
    for (auto const* nodes : {&node.children, &node.qualifiers}) {
        for (auto const* each : *nodes)
            visitValues(*each, visit);
    }
}

void xmpVisitValues(XMPMetaRef packet, std::function<void(std::string const& value)> const& visit) {
    for (auto const* schema : treeOf(packet).children) {
        for (auto const* property : schema->children)
            visitValues(*property, visit);
    }
}
