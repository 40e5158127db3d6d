// SPDX-License-Identifier: Apache-2.0
// A client with a copy of the toolkit of its own, in which the library's namespaces go by other prefixes. A program
// without a test framework, so that it can be built with any standard library.

#define TXMP_STRING_TYPE std::string
#include "XMPError.h"
#include "XMPInfo.h"

#include <XMP.hpp>
#include <XMP.incl_cpp>

#include <cstdio>
#include <cstring>
#include <fstream>

#include <unistd.h>

using namespace android::lumo;

namespace {

int failures = 0;

void expect(bool holds, char const* what) {
    if (!holds)
        std::fprintf(stderr, "not so: %s\n", what);
    failures += holds ? 0 : 1;
}

std::shared_ptr<XMPInfo> parse(std::string const& packet) {
    auto const path = "/tmp/toolkit_client." + std::to_string(getpid());
    std::string const payload = std::string("http://ns.adobe.com/xap/1.0/") + '\0' + packet;
    std::ofstream(path, std::ios::binary) << "\xFF\xD8\xFF\xE1" << static_cast<char>((payload.size() + 2) >> 8)
                                          << static_cast<char>(payload.size() + 2) << payload << "\xFF\xD9";
    auto const file = std::make_shared<MediaFile>(path, "r");
    unlink(path.c_str());
    return XMPInfo::parse(file);
}

template<class Type>
bool throws(char const* packet) {
    try {
        parse(packet);
    } catch (Type const&) {
        return true;
    } catch (...) {
    }
    return false;
}

} // namespace

int main() {
    expect(SXMPMeta::Initialize(), "the client's toolkit starts");
    SXMPMeta::RegisterNamespace(xmp_ns::CAMERA, "Foreign", nullptr);
    auto const view = parse("<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#' xmlns:c='" +
                            std::string(xmp_ns::CAMERA) + "'><rdf:Description c:MotionPhoto='1'/></rdf:RDF>");
    expect(view->getProperty(xmp_ns::CAMERA, "GCamera:MotionPhoto") == "1", "the library has its own prefixes");
    std::string prefix;
    SXMPMeta::GetNamespacePrefix(xmp_ns::CAMERA, &prefix);
    expect(prefix == "Foreign:", "the client keeps its own");

    char const* const broken = "<rdf:RDF";
    expect(throws<XMP_Error>(broken), "caught as the toolkit's error");
    expect(throws<XMPError>(broken) && throws<Error>(broken) && throws<std::runtime_error>(broken), "and as ours");
    char const* const refused = "<!DOCTYPE x>"; // by the library, before the toolkit sees it
    expect(throws<Error>(refused) && !throws<XMP_Error>(refused), "our own refusals are none of the toolkit's");
    return failures == 0 ? 0 : 1;
}
