// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"
#include "XMPToolkit.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace android::lumo {

/// One packet in memory. Every call into the toolkit passes here: what it throws leaves as XMPError, a lack of memory
/// as std::bad_alloc.
///
/// Paths are the toolkit's, with registered prefixes; `schema` is the namespace URI of the top-level property.
class XMPPacket {
public:
    XMPPacket();
    /// For clone().
    struct Shared {
        std::shared_ptr<SXMPMeta> meta;
    };
    explicit XMPPacket(Shared of) : meta(std::move(of.meta)) {}
    XMPPacket(XMPPacket const&) = delete;
    XMPPacket& operator=(XMPPacket const&) = delete;

    /// The prefix ("Item:") a namespace has in this process; empty for one that no packet has used yet.
    static std::string prefixOf(std::string const& uri);

    /// A copy; neither sees a change of the other. They share the toolkit's tree until then, so that both belong to one
    /// thread.
    std::shared_ptr<XMPPacket> clone() const;
    /// Reads a whole packet into this empty one; a text that is not wholly XMP throws.
    void parse(std::string_view text);
    /// Compact, without packet wrapper and padding.
    std::string serialize() const;
    std::string dump() const;

    /// The value; nothing when absent, empty text for an array or a struct. `form` gets the toolkit's option bits.
    std::optional<std::string> get(std::string_view schema, std::string_view path,
                                   XMP_OptionBits* form = nullptr) const;
    bool has(std::string_view schema, std::string_view path) const;
    void set(std::string const& schema, std::string const& path, std::string const& value);
    void remove(std::string const& schema, std::string const& path);
    /// Replaces the property `to` with everything `from` holds at the path `from`.
    void copy(XMPPacket const& source, std::string const& schema, std::string const& from, std::string const& to);
    void copy(XMPPacket const& source, std::string const& schema, std::string const& path) {
        copy(source, schema, path, path);
    }

    /// Entries of an array; 0 when there is none.
    int32_t count(std::string_view schema, std::string_view array) const;
    /// A new empty struct in front of entry `place`, counted from 1.
    void insertStruct(std::string const& schema, std::string const& array, int32_t place);
    /// The same at the end; the array is made, an ordered one, when it is absent.
    void appendStruct(std::string const& schema, std::string const& array);
    /// Puts the fields of each entry that is a typed node of this type into a struct `field` of the entry. False: a
    /// toolkit without our shim has to be asked for it step by step.
    bool nestTyped(std::string const& schema, std::string const& array, std::string const& type,
                   std::string const& field);
    void removeEntry(std::string const& schema, std::string const& array, int32_t place);

    /// Namespace and prefixed name of every top-level property, each once.
    std::vector<std::pair<std::string, std::string>> properties() const;
    /// A text that two packets have in common where they hold the same at a property.
    std::string textOf(std::string const& schema, std::string const& name) const;
    /// Makes an empty struct at a path.
    void setStruct(std::string const& schema, std::string const& path);

    /// Every value there is, of properties, array items, fields and qualifiers.
    void visitValues(std::function<void(std::string const& value)> const& visit) const;
    /// Calls `visit(schema, path)` for every simple value, qualifiers left out, of the whole packet or of the property
    /// at a path.
    using Visit = std::function<void(std::string const& schema, std::string const& path)>;
    void visitLeaves(Visit const& visit) const;
    void visitLeaves(std::string const& schema, std::string const& path, Visit const& visit) const;
    /// Calls `visit` for every field of the struct at a path, with its prefixed name, value and form as get() answers
    /// them; false where no struct stands.
    using VisitField = std::function<void(std::string const& name, std::string const& value, XMP_OptionBits form)>;
    bool visitFields(std::string_view schema, std::string_view path, VisitField const& visit) const;

    /// Grows with everything that may change the packet.
    uint64_t changes() const { return changeCount; }

private:
    SXMPMeta& changing();

    std::shared_ptr<SXMPMeta> meta; ///< shared with copies until one of them changes
    uint64_t changeCount = 0;
};

/// Makes the toolkit ready, once a process: its initialisation, then the four namespaces. Throws XMPError, also when
/// one of them is registered under another prefix already: prefixed paths would not be found.
void prepareXMPToolkit();

/// The packet of a text; an empty or blank one gives an empty packet, one that is not wholly XMP throws (code XMP).
std::shared_ptr<XMPPacket> parseXMPPacket(std::string const& text);

/// Prefix to namespace URI of the four registered namespaces, and an empty entry for every other prefix that was looked
/// up.
std::map<std::string, std::string>& xmpNamespaces();
/// The look-up, of one thread at a time; an unknown prefix is entered.
std::string namespaceOfPrefix(std::string const& prefix);

} // namespace android::lumo
