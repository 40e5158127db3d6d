// SPDX-License-Identifier: Apache-2.0
#include "XMPPacketLoad.h"

#include "XMPInfoImpl.h"
#include "XMPLimits.h"
#include "XMPPacketScan.h"

#include <algorithm>
#include <mutex>
#include <set>

namespace android::lumo {

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
    static std::string const directory = "Container:Directory", itemType = std::string(xmp_ns::CONTAINER) + "Item";
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

/// The toolkit keeps every namespace for ever. One that it takes in under a corrected text is known here by its own:
/// the same packet is no news however often it is read.
void countNamespaces(std::vector<std::string> const& namespaces) {
    static std::set<std::string> brought; // by packets, since the process began
    std::set<std::string> added;
    for (auto const& uri : namespaces) {
        if (!uri.empty() && XMPPacket::prefixOf(uri).empty())
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
    countNamespaces(refuseHostilePacket(text));
    packet->parse(text);
    nestTypedEntries(*packet);
    return packet;
}

} // namespace android::lumo
