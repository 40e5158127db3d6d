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
    });
    isReady = true;
}

std::shared_ptr<XMPPacket> parseXMPPacket(std::string const& text) {
    constexpr std::string_view BLANKS("\0 \t\r\n", 5); // a room that was reserved and not written yet
    auto packet = std::make_shared<XMPPacket>();
    if (text.find_first_not_of(BLANKS) == std::string::npos)
        return packet;
    refuseHostilePacket(text);
    packet->parse(text);
    return packet;
}

} // namespace android::lumo
