// SPDX-License-Identifier: Apache-2.0
#include "ErrorAt.h"
#include "Log.h"
#include "Text.h"
#include "XMPInfoImpl.h"

#include <algorithm>
#include <cctype>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "XMPInfoImpl";
constexpr char ITEM_PREFIX[] = "Item:";

} // namespace

XMPInfoImpl::XMPItemInfo::XMPItemInfo(std::shared_ptr<XMPPacket> const& packet, int32_t position)
    : meta(packet), index(position), structPath(structPathAt(position)), place(position) {}

std::string XMPInfoImpl::XMPItemInfo::structPathAt(int32_t place) {
    return "Container:Directory[" + std::to_string(place) + "]/Container:Item";
}

void XMPInfoImpl::XMPItemInfo::moveTo(int32_t newPlace) {
    structPath = structPathAt(newPlace);
    place = newPlace;
}

/// The field's path; a name that is more than one step, or none the toolkit takes, throws.
std::string XMPInfoImpl::XMPItemInfo::fieldPath(std::string const& field) const {
    auto const isPlain = [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; };
    if (!field.empty() && std::isdigit(static_cast<unsigned char>(field[0])) == 0 &&
        std::all_of(field.begin(), field.end(), isPlain))
        return structPath + "/" + ITEM_PREFIX + field;
    std::string path;
    toolkit([&] {
        SXMPUtils::ComposeStructFieldPath(xmp_ns::CONTAINER, structPath.c_str(), xmp_ns::ITEM,
                                          (ITEM_PREFIX + field).c_str(), &path);
    });
    return path;
}

std::string XMPInfoImpl::XMPItemInfo::getName() const {
    return meta->get(xmp_ns::CONTAINER, fieldPath("Semantic")).value_or("");
}

std::string XMPInfoImpl::XMPItemInfo::getMime() const {
    return meta->get(xmp_ns::CONTAINER, fieldPath("Mime")).value_or("");
}

std::string XMPInfoImpl::XMPItemInfo::get(std::string const& field) {
    auto const value = meta->get(xmp_ns::CONTAINER, fieldPath(field));
    if (value)
        fields.insert(field);
    return value.value_or("");
}

bool XMPInfoImpl::XMPItemInfo::contains(std::string const& field) const {
    return meta->has(xmp_ns::CONTAINER, fieldPath(field));
}

void XMPInfoImpl::XMPItemInfo::set(std::string const& field, std::string const& value) {
    meta->set(xmp_ns::CONTAINER, fieldPath(field), value);
    LOGI("set: structPath=%s", structPath.c_str());
    fields.insert(field);
}

void XMPInfoImpl::XMPItemInfo::remove(std::string const& field) {
    meta->remove(xmp_ns::CONTAINER, fieldPath(field));
    fields.erase(field);
}

std::vector<std::string> XMPInfoImpl::XMPItemInfo::getLeafPaths() const {
    std::vector<std::string> paths;
    if (!meta->has(xmp_ns::CONTAINER, structPath))
        return paths;
    auto const prefix = structPath + "/";
    meta->visitLeaves(xmp_ns::CONTAINER, structPath, [&](std::string const&, std::string const& path) {
        if (path.starts_with(prefix))
            paths.push_back(path.substr(prefix.size()));
    });
    return paths;
}

std::set<std::string> XMPInfoImpl::XMPItemInfo::getAllFields() {
    std::set<std::string> names;
    try {
        for (auto const& path : getLeafPaths())
            names.insert(path.substr(path.rfind(':') + 1));
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGE("fail to get item: %s", messageOf(e));
    }
    fields.insert(names.begin(), names.end());
    return names;
}

std::set<std::string> XMPInfoImpl::XMPItemInfo::getFieldsWith(std::string const& a, std::string const& b) const {
    auto names = fields;
    for (auto const& extra : {a, b}) {
        if (!fields.contains(extra) && !contains(extra))
            names.insert(extra);
    }
    return names;
}

std::string XMPInfoImpl::XMPItemInfo::toString() const {
    return "index=" + std::to_string(index) + ", path=" + structPath + ", fields=[" + join(fields) + "]";
}

} // namespace android::lumo
