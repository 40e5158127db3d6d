// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPEdit.h"
#include "XMPInfo.h"
#include "support/Faults.h"
#include "support/JpegBuilder.h"
#include "support/TempFile.h"

#include <functional>
#include <memory>
#include <numeric>
#include <set>
#include <string>

namespace android::lumo::test {

inline constexpr char const* TEST_NS = "urn:test:";

/// A packet of one rdf:Description with these attributes and elements; all prefixes the tests use are declared.
inline std::string packetOf(std::string const& attributes, std::string const& elements = {}) {
    std::string text = R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF )"
                       R"(xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#"><rdf:Description rdf:about="" )"
                       R"(xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:xmpNote="http://ns.adobe.com/xmp/note/" )";
    for (auto const& [prefix, uri] : {std::pair{"t", TEST_NS},
                                      {"Camera", xmp_ns::CAMERA}, // not the prefix the library registers
                                      {"Container", xmp_ns::CONTAINER},
                                      {"Item", xmp_ns::ITEM},
                                      {"hdrgm", xmp_ns::HDR_GAIN_MAP}})
        text += std::string("xmlns:") + prefix + "=\"" + uri + "\" ";
    return text + attributes + ">" + elements + "</rdf:Description></rdf:RDF></x:xmpmeta>";
}

inline std::string entryOf(std::string const& fields) {
    return R"(<rdf:li rdf:parseType="Resource"><Container:Item )" + fields + "/></rdf:li>";
}

inline std::string itemOf(std::string const& name, std::string const& mime, std::string const& more = {}) {
    return entryOf("Item:Semantic=\"" + name + "\" Item:Mime=\"" + mime + "\" " + more);
}

inline std::string directoryOf(std::string const& entries) {
    return "<Container:Directory><rdf:Seq>" + entries + "</rdf:Seq></Container:Directory>";
}

inline std::string arrayOf(std::string const& name, std::string const& form, std::string const& items) {
    return "<" + name + "><rdf:" + form + ">" + items + "</rdf:" + form + "></" + name + ">";
}

/// A camera's JPEG with this packet, or without XMP.
struct Photo {
    explicit Photo(std::string const& packet = {})
        : file((packet.empty() ? JpegBuilder().exif() : JpegBuilder().exif().xmp(packet)).build()) {}
    std::shared_ptr<XMPInfo> view() const { return XMPInfo::parse(file.open()); }

    TempFile file;
};

inline std::string textOf(XMPInfo const& view) {
    auto const bytes = view.serializeToBuffer();
    return {bytes.begin(), bytes.end()};
}

/// Properties with values, sorted (serialising moves them), and items in directory order with fields: what two views of
/// equal content agree on.
inline std::string contentOf(XMPInfo const& view) {
    std::set<std::string> properties;
    for (auto const& [schema, path] : view.getProperties())
        properties.insert(path + "=" + view.getProperty(schema, path) + "\n");
    std::string text = std::accumulate(properties.begin(), properties.end(), std::string());
    for (int32_t place = 1; !view.getItemNameAt(place).empty(); ++place) {
        auto const name = view.getItemNameAt(place);
        text += name + ":";
        for (auto const& field : view.getItemFieldNames(name))
            text += " " + field + "=" + view.getItemField(name, field);
        text += "\n";
    }
    return text;
}

/// What was refused as no XMP or too much of it; empty when nothing was.
inline std::string refusalOf(std::function<void()> const& action) {
    try {
        action();
    } catch (Error const& error) {
        EXPECT_TRUE(error.code() == Error::Code::XMP || error.code() == Error::Code::TOO_BIG) << error.what();
        return error.what();
    }
    return {};
}

} // namespace android::lumo::test
