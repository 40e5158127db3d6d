// SPDX-License-Identifier: Apache-2.0
#include "XMPDirectory.h"

#include "ErrorAt.h"
#include "Log.h"
#include "MediaDefs.h"
#include "MotionNames.h"
#include "Text.h"
#include "XMPInfo.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "XMPInfoImpl";
constexpr char ITEM_PREFIX[] = "Item:";

/// Makes room once.
std::string joined(std::initializer_list<std::string_view> parts) {
    size_t size = 0;
    for (auto const part : parts)
        size += part.size();
    std::string text;
    text.reserve(size);
    for (auto const part : parts)
        text.append(part);
    return text;
}

} // namespace

// An item. ------------------------------------------------------------------------------------------------------------

XMPItemInfo::XMPItemInfo(std::shared_ptr<XMPPacket> const& packet, int32_t position)
    : meta(packet), index(position), structPath(structPathAt(position)), place(position) {}

std::string XMPItemInfo::structPathAt(int32_t place) {
    return joined({motion_names::DIRECTORY_PATH, "[", std::to_string(place), "]/Container:Item"});
}

void XMPItemInfo::moveTo(int32_t newPlace) {
    structPath = structPathAt(newPlace);
    place = newPlace;
}

/// The field's path; a name that is more than one step, or none the toolkit takes, throws.
std::string XMPItemInfo::fieldPath(std::string const& field) const {
    auto const isPlain = [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; };
    if (!field.empty() && std::isdigit(static_cast<unsigned char>(field[0])) == 0 &&
        std::all_of(field.begin(), field.end(), isPlain))
        return joined({structPath, "/", ITEM_PREFIX, field});
    std::string path;
    toolkit([&] {
        SXMPUtils::ComposeStructFieldPath(xmp_ns::CONTAINER, structPath.c_str(), xmp_ns::ITEM,
                                          (ITEM_PREFIX + field).c_str(), &path);
    });
    return path;
}

std::string XMPItemInfo::getName() const {
    return meta->get(xmp_ns::CONTAINER, fieldPath("Semantic")).value_or("");
}

std::string XMPItemInfo::getMime() const {
    return meta->get(xmp_ns::CONTAINER, fieldPath("Mime")).value_or("");
}

std::string XMPItemInfo::get(std::string const& field) {
    auto const value = meta->get(xmp_ns::CONTAINER, fieldPath(field));
    if (value)
        fields.insert(field);
    return value.value_or("");
}

bool XMPItemInfo::contains(std::string const& field) const {
    return meta->has(xmp_ns::CONTAINER, fieldPath(field));
}

void XMPItemInfo::set(std::string const& field, std::string const& value) {
    meta->set(xmp_ns::CONTAINER, fieldPath(field), value);
    LOGI("set: structPath=%s", structPath.c_str());
    fields.insert(field);
}

void XMPItemInfo::remove(std::string const& field) {
    meta->remove(xmp_ns::CONTAINER, fieldPath(field));
    fields.erase(field);
}

template<class Visit>
void XMPItemInfo::visitLeafPaths(Visit const& visit) const {
    auto const prefix = structPath + "/";
    meta->visitLeaves(xmp_ns::CONTAINER, structPath, [&](std::string const&, std::string_view path) {
        if (path.starts_with(prefix))
            visit(path.substr(prefix.size()));
    });
}

std::vector<std::string> XMPItemInfo::getLeafPaths() const {
    std::vector<std::string> paths;
    visitLeafPaths([&](std::string_view path) { paths.emplace_back(path); });
    return paths;
}

std::set<std::string> XMPItemInfo::getAllFields() {
    std::set<std::string> names;
    try {
        visitLeafPaths([&](std::string_view path) { names.emplace(path.substr(path.rfind(':') + 1)); });
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGE("fail to get item: %s", messageOf(e));
    }
    fields.insert(names.begin(), names.end());
    return names;
}

std::set<std::string> XMPItemInfo::getFieldsWith(std::string const& a, std::string const& b) const {
    auto names = fields;
    for (auto const& extra : {a, b}) {
        if (!fields.contains(extra) && !contains(extra))
            names.insert(extra);
    }
    return names;
}

std::string XMPItemInfo::toString() const {
    return "index=" + std::to_string(index) + ", path=" + structPath + ", fields=[" + join(fields) + "]";
}

// All of them. --------------------------------------------------------------------------------------------------------

/// Puts each entry under its name, over what is known; stops at one that lacks a field every item has.
XMPDirectory::XMPDirectory(std::shared_ptr<XMPPacket> const& packet, Items const& known) : meta(packet), items(known) {
    LOGI("updateXMPItems E");
    try {
        auto const count = packet->count(xmp_ns::CONTAINER, motion_names::DIRECTORY_PATH);
        LOGI("arrSize=%d", count);
        std::set<std::string> seen;
        for (int32_t place = 1; place <= count; ++place) {
            firstUnread = place;
            XMPItemInfo item(packet, place);
            std::optional<std::string> name;
            bool hasMime = false;
            packet->visitFields(xmp_ns::CONTAINER, item.getStructPath(),
                                [&](std::string const& field, std::string const& value, XMP_OptionBits) {
                                    if (field == "Item:Semantic")
                                        name = value;
                                    hasMime |= field == "Item:Mime";
                                });
            if (!name)
                throw ErrorAt().as(Error::Code::XMP)("fail to get item field");
            hasDuplicates |= !seen.insert(*name).second;
            item.setFound();
            LOGI("fieldValue=%s, struct path: %s", name->c_str(), item.getStructPath().c_str());
            items.insert_or_assign(*name, std::move(item));
            if (!hasMime)
                throw ErrorAt().as(Error::Code::XMP)("Mime should be given");
            firstUnread = 0;
        }
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGI("fail to parse xmp items: %s", messageOf(e));
    }
    LOGI("updateXMPItems X");
}

XMPDirectory XMPDirectory::in(std::shared_ptr<XMPPacket> const& copy) const {
    XMPDirectory other = *this;
    other.meta = copy;
    for (auto& entry : other.items)
        entry.second.moveInto(copy);
    return other;
}

int32_t XMPDirectory::count() const {
    return meta->count(xmp_ns::CONTAINER, motion_names::DIRECTORY_PATH);
}

std::optional<std::string> XMPDirectory::nameAt(int32_t place) const {
    try {
        return meta->get(xmp_ns::CONTAINER, XMPItemInfo::structPathAt(place) + "/Item:Semantic");
    } catch (Error const&) {
        return std::nullopt; // an entry that is no struct has no name
    }
}

XMPItemInfo* XMPDirectory::find(std::string const& name) {
    auto const found = items.find(name);
    if (found == items.end())
        return nullptr;
    auto& item = found->second;
    auto const recorded = item.getPlace();
    if (item.isFound())
        return &item;
    auto const moveTo = [&](int32_t place) {
        if (place != recorded)
            item.moveTo(place);
        item.setFound();
        return &item;
    };
    if (nameAt(recorded) == name)
        return moveTo(recorded);
    // Removals move items towards the front, so the nearest place in front comes first.
    for (auto place = recorded - 1; place > 0; --place) {
        if (nameAt(place) == name)
            return moveTo(place);
    }
    for (auto place = recorded + 1; place <= count(); ++place) {
        if (nameAt(place) == name)
            return moveTo(place);
    }
    return nullptr;
}

std::list<std::string> XMPDirectory::namesInOrder() {
    for (auto const& entry : items)
        find(entry.first); // corrects the place
    return MediaDefs::getKeys(items,
                              [](auto const& a, auto const& b) { return a.second.getPlace() < b.second.getPlace(); });
}

void XMPDirectory::inserted(std::string const& name, int32_t place) {
    if (firstUnread != 0) {
        ++firstUnread;
        for (auto& entry : items)
            entry.second.makeWayAt(place);
    }
    items.insert_or_assign(name, XMPItemInfo(meta, place));
}

void XMPDirectory::removed(std::string const& name) {
    auto const found = items.find(name);
    if (found == items.end())
        return;
    auto const place = found->second.getPlace();
    if (place == firstUnread) {
        items.erase(found);
        readOn(); // what stood behind it can be read now
        return;
    }
    if (place < firstUnread)
        --firstUnread;
    if (hasDuplicates) {
        for (auto i = firstUnread != 0 ? firstUnread - 1 : count(); i > 0; --i) {
            if (nameAt(i) == name) {
                found->second = XMPItemInfo(meta, i);
                return;
            }
        }
    }
    items.erase(found);
}

void XMPDirectory::broken(std::string const& name, int32_t place, bool isNameless) {
    firstUnread = firstUnread == 0 ? place : std::min(place, firstUnread);
    if (isNameless)
        items.erase(name);
}

void XMPDirectory::renamed(std::string const& oldName, std::string const& newName) {
    auto node = items.extract(oldName);
    if (node && !items.contains(newName)) {
        items.insert_or_assign(newName, std::move(node.mapped()));
        return;
    }
    // Of two entries of a name the later one counts.
    hasDuplicates = true;
    for (auto place = count(); place > 0; --place) {
        if (nameAt(place) == newName) {
            items.insert_or_assign(newName, XMPItemInfo(meta, place));
            return;
        }
    }
}

} // namespace android::lumo
