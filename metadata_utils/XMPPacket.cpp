// SPDX-License-Identifier: Apache-2.0
#include "XMPPacket.h"

#include "MotionNames.h"
#include "XMPInfo.h"
#include "XMPLimits.h"
#include "XMPPacketScan.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <set>
#include <string_view>

namespace android::lumo {

namespace {

/// The toolkit reports faults of a packet only here. Without an answer it keeps what it has understood so far, and a
/// commit of that would destroy the rest.
bool refuseToRecover(void*, XMP_ErrorSeverity, XMP_Int32, XMP_StringPtr) {
    return false;
}

XMP_Status appendText(void* text, XMP_StringPtr buffer, XMP_StringLen size) {
    static_cast<std::string*>(text)->append(buffer, size);
    return 0;
}

void visitAll(SXMPIterator& nodes, XMPPacket::Visit const& visit) {
    std::string schema, path;
    while (toolkit([&] { return nodes.Next(&schema, &path); }))
        visit(schema, path);
}

constexpr XMP_OptionBits LEAVES = kXMP_IterJustLeafNodes | kXMP_IterOmitQualifiers;
constexpr char const* NO_VALUE = nullptr;

} // namespace

XMPPacket::XMPPacket() try : meta(std::make_shared<SXMPMeta>()) {
} catch (XMP_Error const& error) {
    rethrowToolkitError(error, ErrorAt());
}

SXMPMeta& XMPPacket::changing() {
    ++changeCount;
    if (meta.use_count() > 1)
        meta = std::make_shared<SXMPMeta>(meta->Clone(0));
    return *meta;
}

std::string XMPPacket::prefixOf(std::string const& uri) {
    std::string prefix;
    return toolkit([&] { return SXMPMeta::GetNamespacePrefix(uri.c_str(), &prefix); }) ? prefix : std::string();
}

std::shared_ptr<XMPPacket> XMPPacket::clone() const {
    return std::make_shared<XMPPacket>(Shared{meta});
}

void XMPPacket::parse(std::string_view text) {
    constexpr XMP_Uns32 NOTIFY_ALWAYS = 0;
    toolkit([&] {
        changing().SetErrorCallback(refuseToRecover, nullptr, NOTIFY_ALWAYS);
        meta->ParseFromBuffer(text.data(), static_cast<XMP_StringLen>(text.size()), 0);
    });
}

std::string XMPPacket::serialize() const {
    std::string text;
    toolkit([&] { meta->SerializeToBuffer(&text, kXMP_OmitPacketWrapper | kXMP_UseCompactFormat, 0, "", "", 0); });
    return text;
}

std::string XMPPacket::dump() const {
    std::string text;
    toolkit([&] { meta->DumpObject(appendText, &text); });
    return text;
}

std::optional<std::string> XMPPacket::get(std::string_view schema, std::string_view path, XMP_OptionBits* form) const {
#ifdef METADATA_UTILS_XMP_SHIM
    auto const found = xmpFind(meta->GetInternalRef(), schema, path);
    if (found.answer == XMPFound::Answer::ABSENT)
        return std::nullopt;
    if (found.answer == XMPFound::Answer::THERE) {
        if (form != nullptr)
            *form = found.form;
        return *found.value;
    }
#endif
    std::string value;
    if (!toolkit(
            [&] { return meta->GetProperty(std::string(schema).c_str(), std::string(path).c_str(), &value, form); }))
        return std::nullopt;
    return value;
}

bool XMPPacket::has(std::string_view schema, std::string_view path) const {
#ifdef METADATA_UTILS_XMP_SHIM
    if (auto const found = xmpFind(meta->GetInternalRef(), schema, path); found.answer != XMPFound::Answer::UNKNOWN)
        return found.answer == XMPFound::Answer::THERE;
#endif
    return toolkit([&] { return meta->DoesPropertyExist(std::string(schema).c_str(), std::string(path).c_str()); });
}

void XMPPacket::set(std::string const& schema, std::string const& path, std::string const& value) {
    toolkit([&] {
#ifdef METADATA_UTILS_XMP_SHIM
        if (xmpSet(changing().GetInternalRef(), schema, path, value))
            return;
#endif
        changing().SetProperty(schema.c_str(), path.c_str(), value, 0);
    });
}

void XMPPacket::remove(std::string const& schema, std::string const& path) {
    toolkit([&] { changing().DeleteProperty(schema.c_str(), path.c_str()); });
}

void XMPPacket::copy(XMPPacket const& source, std::string const& schema, std::string const& from,
                     std::string const& to) {
    toolkit([&] {
        changing().DeleteProperty(schema.c_str(), to.c_str());
        SXMPUtils::DuplicateSubtree(*source.meta, meta.get(), schema.c_str(), from.c_str(), schema.c_str(), to.c_str());
    });
}

int32_t XMPPacket::count(std::string_view schema, std::string_view array) const {
#ifdef METADATA_UTILS_XMP_SHIM
    auto const found = xmpFind(meta->GetInternalRef(), schema, array);
    if (found.answer == XMPFound::Answer::THERE && XMP_PropIsArray(found.form))
        return static_cast<int32_t>(found.children);
    if (found.answer == XMPFound::Answer::ABSENT)
        return 0;
#endif
    return toolkit([&] { return meta->CountArrayItems(std::string(schema).c_str(), std::string(array).c_str()); });
}

void XMPPacket::insertStruct(std::string const& schema, std::string const& array, int32_t place) {
    toolkit([&] {
        changing().SetArrayItem(schema.c_str(), array.c_str(), place, NO_VALUE,
                                XMP_OptionBits{kXMP_PropValueIsStruct} | kXMP_InsertBeforeItem);
    });
}

void XMPPacket::appendStruct(std::string const& schema, std::string const& array) {
    toolkit([&] {
        changing().AppendArrayItem(schema.c_str(), array.c_str(), kXMP_PropArrayIsOrdered, NO_VALUE,
                                   kXMP_PropValueIsStruct);
    });
}

bool XMPPacket::nestTyped([[maybe_unused]] std::string const& schema, [[maybe_unused]] std::string const& array,
                          [[maybe_unused]] std::string const& type, [[maybe_unused]] std::string const& field) {
#ifdef METADATA_UTILS_XMP_SHIM
    xmpNestTyped(changing().GetInternalRef(), schema, array, type, field);
    return true;
#else
    return false;
#endif
}

void XMPPacket::removeEntry(std::string const& schema, std::string const& array, int32_t place) {
    toolkit([&] { changing().DeleteArrayItem(schema.c_str(), array.c_str(), place); });
}

std::vector<std::pair<std::string, std::string>> XMPPacket::properties() const {
    std::vector<std::pair<std::string, std::string>> found;
    visitLeaves([&](std::string const& schema, std::string const& path) {
        auto name = path.substr(0, path.find_first_of("[/"));
        if (!name.empty() && (found.empty() || found.back().second != name))
            found.emplace_back(schema, std::move(name));
    });
    return found;
}

std::string XMPPacket::textOf(std::string const& schema, std::string const& name) const {
    XMPPacket alone;
    alone.copy(*this, schema, name);
    return alone.serialize();
}

void XMPPacket::setStruct(std::string const& schema, std::string const& path) {
    toolkit([&] { changing().SetProperty(schema.c_str(), path.c_str(), NO_VALUE, kXMP_PropValueIsStruct); });
}

void XMPPacket::visitValues(std::function<void(std::string const& value)> const& visit) const {
#ifdef METADATA_UTILS_XMP_SHIM
    xmpVisitValues(meta->GetInternalRef(), visit);
#else
    auto nodes = toolkit([&] { return SXMPIterator(*meta); });
    std::string value;
    while (toolkit([&] { return nodes.Next(nullptr, nullptr, &value); }))
        visit(value);
#endif
}

void XMPPacket::visitLeaves(Visit const& visit) const {
#ifdef METADATA_UTILS_XMP_SHIM
    xmpVisitLeaves(meta->GetInternalRef(), visit);
#else
    auto leaves = toolkit([&] { return SXMPIterator(*meta, LEAVES); });
    visitAll(leaves, visit);
#endif
}

void XMPPacket::visitLeaves(std::string const& schema, std::string const& path, Visit const& visit) const {
#ifdef METADATA_UTILS_XMP_SHIM
    auto const found = xmpFind(meta->GetInternalRef(), schema, path);
    if (found.answer == XMPFound::Answer::ABSENT)
        return;
    if (found.answer == XMPFound::Answer::THERE)
        return xmpVisitLeaves(found, schema, path, visit);
#endif
    auto leaves = toolkit([&] { return SXMPIterator(*meta, schema.c_str(), path.c_str(), LEAVES); });
    visitAll(leaves, visit);
}

bool XMPPacket::visitFields(std::string_view schema, std::string_view path, VisitField const& visit) const {
#ifdef METADATA_UTILS_XMP_SHIM
    auto const found = xmpFind(meta->GetInternalRef(), schema, path);
    if (found.answer == XMPFound::Answer::THERE && XMP_PropIsStruct(found.form))
        xmpVisitFields(found, visit);
    if (found.answer != XMPFound::Answer::UNKNOWN)
        return found.answer == XMPFound::Answer::THERE && XMP_PropIsStruct(found.form);
#endif
    XMP_OptionBits form = 0;
    if (!get(schema, path, &form) || !XMP_PropIsStruct(form))
        return false;
    auto nodes = toolkit([&] {
        return SXMPIterator(*meta, std::string(schema).c_str(), std::string(path).c_str(),
                            kXMP_IterJustChildren | kXMP_IterJustLeafName | kXMP_IterOmitQualifiers);
    });
    std::string name, value;
    while (toolkit([&] { return nodes.Next(nullptr, &name, &value, &form); }))
        visit(name, value, form);
    return true;
}

// From a text. --------------------------------------------------------------------------------------------------------

namespace {

struct Namespace {
    char const* prefix;
    char const* uri;
};

constexpr Namespace NAMESPACES[] = {
    {"GCamera", xmp_ns::CAMERA},
    {"Container", xmp_ns::CONTAINER},
    {"Item", xmp_ns::ITEM},
    {"hdrgm", xmp_ns::HDR_GAIN_MAP},
};

/// Built when the library is loaded.
[[maybe_unused]] auto const& namespacesAtLoad = xmpNamespaces();

/// A directory's entry written as a typed node, <rdf:li><Container:Item .../></rdf:li>, is read as the item itself with
/// a type. It gets the ordinary form, in which the item is a field of the entry: as it is, no item would be seen, and a
/// commit would write a form that no reader of the format knows.
void nestTypedEntries(XMPPacket& packet) {
    static std::string const directory = motion_names::DIRECTORY_PATH,
                             itemType = std::string(xmp_ns::CONTAINER) + "Item";
    if (packet.nestTyped(xmp_ns::CONTAINER, directory, itemType, "Container:Item"))
        return;
    XMP_OptionBits form = 0;
    if (!packet.get(xmp_ns::CONTAINER, directory, &form) || !XMP_PropIsArray(form))
        return;
    auto const count = packet.count(xmp_ns::CONTAINER, directory);
    for (int32_t place = 1; place <= count; ++place) {
        auto const entry = [&](int32_t number) { return directory + "[" + std::to_string(number) + "]"; };
        if (packet.get(xmp_ns::CONTAINER, entry(place) + "/?rdf:type") != itemType)
            continue;
        packet.insertStruct(xmp_ns::CONTAINER, directory, place);
        auto const item = entry(place) + "/Container:Item", typed = entry(place + 1);
        packet.setStruct(xmp_ns::CONTAINER, item);
        std::vector<std::string> fields;
        packet.visitLeaves(xmp_ns::CONTAINER, typed, [&](std::string const&, std::string const& path) {
            auto field = path.substr(0, path.find_first_of("/[", typed.size() + 1));
            if (field != typed && (fields.empty() || fields.back() != field))
                fields.push_back(std::move(field));
        });
        for (auto const& field : fields) {
            XMP_OptionBits plain = 0;
            auto const value = packet.get(xmp_ns::CONTAINER, field, &plain);
            if (plain == 0 && value)
                packet.set(xmp_ns::CONTAINER, item + field.substr(typed.size()), *value);
            else
                packet.copy(packet, xmp_ns::CONTAINER, field, item + field.substr(typed.size()));
        }
        packet.removeEntry(xmp_ns::CONTAINER, directory, place + 1);
    }
}

/// The one lock around what packets bring to the look-up of prefixes.
std::mutex& lookUps() {
    static std::mutex lock;
    return lock;
}

/// Registered from the start on: most packets have no other.
bool isOurs(std::string_view uri) {
    return uri == kXMP_NS_RDF || uri == "adobe:ns:meta/" ||
           std::any_of(std::begin(NAMESPACES), std::end(NAMESPACES),
                       [&](auto const& entry) { return uri == entry.uri; });
}

/// The toolkit keeps every namespace for ever. One that it takes in under a corrected text is known here by its own:
/// the same packet is no news however often it is read.
void countNamespaces(std::vector<std::string> const& namespaces) {
    static std::set<std::string> brought; // by packets, since the process began
    std::set<std::string> added;
    for (auto const& uri : namespaces) {
        if (!uri.empty() && !isOurs(uri) && XMPPacket::prefixOf(uri).empty())
            added.insert(uri);
    }
    if (added.empty())
        return;
    std::lock_guard const lock(lookUps());
    std::erase_if(added, [](auto const& uri) { return brought.contains(uri); });
    if (!added.empty() && brought.size() + added.size() > xmp_limits::MAX_NEW_NAMESPACES)
        throw ErrorAt().as(Error::Code::TOO_BIG)("XMP brings namespaces, and this process has seen %zu already",
                                                 brought.size());
    brought.merge(added);
}

bool isReady = false; ///< under the lock of prepareXMPToolkit()

} // namespace

std::map<std::string, std::string>& xmpNamespaces() {
    static std::map<std::string, std::string> table = [] {
        std::map<std::string, std::string> built;
        for (auto const& entry : NAMESPACES)
            built.emplace(entry.prefix, entry.uri);
        return built;
    }();
    return table;
}

std::string namespaceOfPrefix(std::string const& prefix) {
    std::lock_guard const lock(lookUps());
    return xmpNamespaces()[prefix];
}

void prepareXMPToolkit() {
    // The toolkit locks its own state except for its start.
    static std::mutex start;
    std::lock_guard const lock(start);
    if (isReady)
        return;
    toolkit([] {
        if (!SXMPMeta::Initialize())
            throw XMP_Error(kXMPErr_InternalFailure, "the XMP toolkit cannot be initialised");
        for (auto const& entry : NAMESPACES) {
            if (std::string registered; !SXMPMeta::RegisterNamespace(entry.uri, entry.prefix, &registered))
                throw XMP_Error(kXMPErr_BadSchema, "a namespace is registered under another prefix already");
        }
#ifdef METADATA_UTILS_XMP_SHIM
        xmpForgetAliases();
#endif
    });
    isReady = true;
}

std::shared_ptr<XMPPacket> parseXMPPacket(std::string const& text) {
    constexpr std::string_view BLANKS("\0 \t\r\n", 5); // a room that was reserved and not written yet
    auto packet = std::make_shared<XMPPacket>();
    if (text.find_first_not_of(BLANKS) == std::string::npos)
        return packet;
    auto const scanned = refuseHostilePacket(text);
    countNamespaces(scanned.namespaces);
    auto const longer = withLongReferences(text);
    std::string_view whole = longer.empty() ? text : longer;
    whole.remove_suffix(scanned.room);
    packet->parse(longer.empty() && !scanned.dense.empty() ? scanned.dense : whole);
    nestTypedEntries(*packet);
    return packet;
}

} // namespace android::lumo
