#include "XMPPacketLoad.h"

#include "XMPInfoImpl.h"
#include "XMPPacketScan.h"

#include <mutex>

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

void initializeToolkit() {
    // The toolkit locks its own state except for this call.
    static std::mutex once;
    std::lock_guard const lock(once);
    if (!XMPPacket::Initialize())
        throw XMP_Error(kXMPErr_InternalFailure, "the XMP toolkit cannot be initialised");
}

/// The toolkit reports faults of a packet only here. Without an answer it keeps what it has understood so far, and a
/// commit of that would destroy the rest.
bool refuseToRecover(void*, XMP_ErrorSeverity, XMP_Int32, XMP_StringPtr) {
    return false;
}

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

void prepareXMPToolkit() {
    initializeToolkit();
    for (auto const& entry : NAMESPACES) {
        std::string registered;
        if (!XMPPacket::RegisterNamespace(entry.uri, entry.prefix, &registered))
            throw XMP_Error(kXMPErr_BadSchema, "a namespace is registered under another prefix already");
    }
}

std::shared_ptr<XMPPacket> parseXMPPacket(std::string const& text) {
    constexpr std::string_view BLANKS("\0 \t\r\n", 5); // a room that was reserved and not written yet
    constexpr XMP_Uns32 NOTIFY_ALWAYS = 0;
    auto packet = std::make_shared<XMPPacket>();
    packet->SetErrorCallback(refuseToRecover, nullptr, NOTIFY_ALWAYS);
    if (text.find_first_not_of(BLANKS) == std::string::npos)
        return packet;
    if (text.size() > 0x7FFFFFFF)
        throw XMP_Error(kXMPErr_BadXML, "packet is too big");
    refuseHostilePacket(text);
    packet->ParseFromBuffer(text.data(), static_cast<XMP_StringLen>(text.size()), 0);
    return packet;
}

} // namespace android::lumo
