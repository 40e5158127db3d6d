#include "ErrorAt.h"
#include "Log.h"
#include "Text.h"
#include "XMPInfoImpl.h"

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "XMPInfoImpl";
constexpr char ITEM_PREFIX[] = "Item:";

} // namespace

XMPInfoImpl::XMPItemInfo::XMPItemInfo(std::shared_ptr<XMPPacket> const& packet, int32_t position)
    : meta(packet), index(position), structPath(structPathAt(position)), place(position) {}

std::string XMPInfoImpl::XMPItemInfo::structPathAt(int32_t place) {
    std::string itemPath;
    // Composed from the prefixed name: the toolkit takes the array's name over as it is given.
    SXMPUtils::ComposeArrayItemPath(xmp_ns::CONTAINER, "Container:Directory", place, &itemPath);
    return itemPath + "/Container:Item";
}

void XMPInfoImpl::XMPItemInfo::moveTo(int32_t newPlace) {
    structPath = structPathAt(newPlace);
    place = newPlace;
}

std::string XMPInfoImpl::XMPItemInfo::getName() const {
    std::string value;
    meta->GetStructField(xmp_ns::CONTAINER, structPath.c_str(), xmp_ns::ITEM, "Item:Semantic", &value, nullptr);
    return value;
}

std::string XMPInfoImpl::XMPItemInfo::getMime() const {
    std::string value;
    meta->GetStructField(xmp_ns::CONTAINER, structPath.c_str(), xmp_ns::ITEM, "Item:Mime", &value, nullptr);
    return value;
}

std::string XMPInfoImpl::XMPItemInfo::get(std::string const& field) {
    std::string value;
    auto const name = ITEM_PREFIX + field;
    if (meta->GetStructField(xmp_ns::CONTAINER, structPath.c_str(), xmp_ns::ITEM, name.c_str(), &value, nullptr))
        fields.insert(field);
    return value;
}

bool XMPInfoImpl::XMPItemInfo::contains(std::string const& field) const {
    auto const name = ITEM_PREFIX + field;
    return meta->DoesStructFieldExist(xmp_ns::CONTAINER, structPath.c_str(), xmp_ns::ITEM, name.c_str());
}

void XMPInfoImpl::XMPItemInfo::set(std::string const& field, std::string const& value) {
    auto const name = ITEM_PREFIX + field;
    meta->SetStructField(xmp_ns::CONTAINER, structPath.c_str(), xmp_ns::ITEM, name.c_str(), value);
    LOGI("set: structPath=%s", structPath.c_str());
    fields.insert(field);
}

void XMPInfoImpl::XMPItemInfo::remove(std::string const& field) {
    auto const name = ITEM_PREFIX + field;
    meta->DeleteStructField(xmp_ns::CONTAINER, structPath.c_str(), xmp_ns::ITEM, name.c_str());
    fields.erase(field);
}

std::vector<std::string> XMPInfoImpl::XMPItemInfo::getLeafPaths() const {
    std::vector<std::string> paths;
    if (!meta->DoesPropertyExist(xmp_ns::CONTAINER, structPath.c_str()))
        return paths;
    // The item's own subtree instead of the whole packet: directories of many items stay quick.
    SXMPIterator leaves(*meta, xmp_ns::CONTAINER, structPath.c_str(), kXMP_IterJustLeafNodes | kXMP_IterOmitQualifiers);
    auto const prefix = structPath + "/";
    for (std::string schema, path; leaves.Next(&schema, &path);) {
        if (path.starts_with(prefix))
            paths.push_back(path.substr(prefix.size()));
    }
    return paths;
}

std::set<std::string> XMPInfoImpl::XMPItemInfo::getAllFields() {
    std::set<std::string> names;
    try {
        for (auto const& path : getLeafPaths())
            names.insert(path.substr(path.rfind(':') + 1));
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGE("fail to get item: %s", e.what());
    } catch (XMP_Error const& e) {
        LOGE("fail to get item: %s", e.GetErrMsg());
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
