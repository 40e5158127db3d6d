// SPDX-License-Identifier: Apache-2.0
#include "XMPInfoImpl.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "Text.h"
#include "XMPCopy.h"
#include "XMPEditImpl.h"

#include <algorithm>
#include <optional>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "XMPInfoImpl";
constexpr char DIRECTORY[] = "Container:Directory";

/// Whether the name is one of the list; with `ignoreCase` all of them are lowered first.
bool holds(std::list<std::string> const& names, std::string const& name, bool ignoreCase) {
    if (!ignoreCase)
        return std::find(names.begin(), names.end(), name) != names.end();
    auto const wanted = lowered(name);
    return std::any_of(names.begin(), names.end(), [&](auto const& each) { return lowered(each) == wanted; });
}

} // namespace

XMPInfoImpl::XMPInfoImpl(std::shared_ptr<MediaFile> const& viewed) : file(viewed) {
    prepareXMPToolkit();
    load();
}

XMPInfoImpl::XMPInfoImpl(std::shared_ptr<MediaFile> const& viewed, std::shared_ptr<XMPPacket> const& packet)
    : file(viewed), inFile(std::make_unique<XMPInFile>(viewed)) {
    adopt(packet);
}

std::shared_ptr<XMPInfoImpl> XMPInfoImpl::of(XMPInfo const& info) {
    auto const* holder = dynamic_cast<XMPViewHolder const*>(&info);
    if (!holder)
        throw ErrorAt()("no XMP view of this library");
    return holder->xmpView();
}

std::shared_ptr<XMPInfoImpl> XMPInfoImpl::xmpView() const {
    return std::const_pointer_cast<XMPInfoImpl>(shared_from_this());
}

void XMPInfoImpl::load() {
    LOGI("load E");
    auto found = std::make_unique<XMPInFile>(file);
    auto const& text = found->packet();
    LOGI("xmp: %s", text.c_str());
    adopt(parseXMPPacket(text));
    inFile = std::move(found);
    areOthersIn = false;
    LOGI("load X");
}

void XMPInfoImpl::requireUnchanged(ErrorAt at) {
    inFile->requireUnchanged(at);
    inFile->requireKeepable(at);
}

void XMPInfoImpl::takeOthers() {
    if (areOthersIn || inFile->count() < 2)
        return;
    inFile->requireKeepable();
    auto merged = copyContents();
    auto const count = countDirectory();
    inFile->mergeInto(*merged.packet);
    if (merged.packet->count(xmp_ns::CONTAINER, DIRECTORY) != count)
        merged.directory = readDirectory(merged.packet, {});
    exchange(std::move(merged));
    areOthersIn = true;
}

void XMPInfoImpl::takeOthersThatAgree() {
    try {
        takeOthers();
    } catch (Error const& error) {
        rethrowUnlessDamage();
        LOGI("the file's other packets stay out: %s", error.what());
    }
}

XMPInfoImpl::Contents XMPInfoImpl::copyContents() const {
    Contents copied{meta->clone(), directory};
    for (auto& entry : copied.directory.items)
        entry.second.moveInto(copied.packet);
    return copied;
}

XMPInfoImpl::Contents XMPInfoImpl::exchange(Contents contents) noexcept {
    std::swap(meta, contents.packet);
    std::swap(directory, contents.directory);
    return contents;
}

// The index of the directory. -----------------------------------------------------------------------------------------

void XMPInfoImpl::adopt(std::shared_ptr<XMPPacket> const& packet) {
    exchange({packet, readDirectory(packet, {})});
}

void XMPInfoImpl::reindex() {
    directory = readDirectory(meta, {});
}

void XMPInfoImpl::updateXMPItems() {
    directory = readDirectory(meta, directory.items);
}

/// Puts each entry under its name, over what is known; stops at one that lacks a field every item has.
XMPInfoImpl::Directory XMPInfoImpl::readDirectory(std::shared_ptr<XMPPacket> const& packet, ItemIndex const& known) {
    LOGI("updateXMPItems E");
    Directory read{known, 0, false};
    try {
        auto const count = packet->count(xmp_ns::CONTAINER, DIRECTORY);
        LOGI("arrSize=%d", count);
        std::set<std::string> seen;
        for (int32_t place = 1; place <= count; ++place) {
            read.firstUnread = place;
            auto const name = packet->get(xmp_ns::CONTAINER, XMPItemInfo::structPathAt(place) + "/Item:Semantic");
            if (!name)
                throw ErrorAt().as(Error::Code::XMP)("fail to get item field");
            read.hasDuplicates |= !seen.insert(*name).second;
            auto const& item = read.items.insert_or_assign(*name, XMPItemInfo(packet, place)).first->second;
            LOGI("fieldValue=%s, struct path: %s", name->c_str(), item.getStructPath().c_str());
            if (!item.contains("Mime"))
                throw ErrorAt().as(Error::Code::XMP)("Mime should be given");
            read.firstUnread = 0;
        }
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGI("fail to parse xmp items: %s", messageOf(e));
    }
    LOGI("updateXMPItems X");
    return read;
}

int32_t XMPInfoImpl::countDirectory() const {
    return meta->count(xmp_ns::CONTAINER, DIRECTORY);
}

/// The "Item:Semantic" of the entry that stands at a place now.
std::optional<std::string> XMPInfoImpl::itemNameAt(int32_t place) const {
    try {
        return meta->get(xmp_ns::CONTAINER, XMPItemInfo::structPathAt(place) + "/Item:Semantic");
    } catch (Error const&) {
        return std::nullopt; // an entry that is no struct has no name
    }
}

XMPInfoImpl::XMPItemInfo* XMPInfoImpl::findItem(std::string const& name) const {
    auto const found = directory.items.find(name);
    if (found == directory.items.end())
        return nullptr;
    auto& item = found->second;
    auto const recorded = item.getPlace();
    if (itemNameAt(recorded) == name)
        return &item;
    auto const moveTo = [&](int32_t place) {
        item.moveTo(place);
        return &item;
    };
    // Removals move items towards the front, so the nearest place in front comes first.
    for (auto place = recorded - 1; place > 0; --place) {
        if (itemNameAt(place) == name)
            return moveTo(place);
    }
    for (auto place = recorded + 1; place <= countDirectory(); ++place) {
        if (itemNameAt(place) == name)
            return moveTo(place);
    }
    return nullptr;
}

std::list<std::string> XMPInfoImpl::getItemNamesInOrder() const {
    for (auto const& entry : directory.items)
        findItem(entry.first); // corrects the place
    return MediaDefs::getKeys(directory.items,
                              [](auto const& a, auto const& b) { return a.second.getPlace() < b.second.getPlace(); });
}

void XMPInfoImpl::itemInserted(std::string const& name, int32_t place) {
    if (directory.firstUnread != 0) {
        ++directory.firstUnread;
        for (auto& entry : directory.items)
            entry.second.makeWayAt(place);
    }
    directory.items.insert_or_assign(name, XMPItemInfo(meta, place));
}

void XMPInfoImpl::itemRemoved(std::string const& name) {
    auto const found = directory.items.find(name);
    if (found == directory.items.end())
        return;
    auto const place = found->second.getPlace();
    if (place == directory.firstUnread) {
        directory.items.erase(found);
        updateXMPItems(); // what stood behind it can be read now
        return;
    }
    if (place < directory.firstUnread)
        --directory.firstUnread;
    if (directory.hasDuplicates) {
        for (auto i = directory.firstUnread != 0 ? directory.firstUnread - 1 : countDirectory(); i > 0; --i) {
            if (itemNameAt(i) == name) {
                found->second = XMPItemInfo(meta, i);
                return;
            }
        }
    }
    directory.items.erase(found);
}

void XMPInfoImpl::itemBroken(std::string const& name, int32_t place, bool isNameless) {
    directory.firstUnread = directory.firstUnread == 0 ? place : std::min(place, directory.firstUnread);
    if (isNameless)
        directory.items.erase(name);
}

void XMPInfoImpl::itemRenamed(std::string const& oldName, std::string const& newName) {
    auto node = directory.items.extract(oldName);
    if (node && !directory.items.contains(newName)) {
        directory.items.insert_or_assign(newName, std::move(node.mapped()));
        return;
    }
    // Of two entries of a name the later one counts.
    directory.hasDuplicates = true;
    for (auto place = countDirectory(); place > 0; --place) {
        if (itemNameAt(place) == newName) {
            directory.items.insert_or_assign(newName, XMPItemInfo(meta, place));
            return;
        }
    }
}

// Queries. ------------------------------------------------------------------------------------------------------------

bool XMPInfoImpl::isEmpty() const {
    return getPropertyNames().empty() && getItemNames().empty();
}

bool XMPInfoImpl::isNotEmpty() const {
    return !isEmpty();
}

bool XMPInfoImpl::containsProperty(std::string const& name, bool ignoreCase) const {
    return holds(getPropertyNames(), name, ignoreCase);
}

bool XMPInfoImpl::containsItem(std::string const& name, bool ignoreCase) const {
    auto names = getItemNames();
    auto wanted = name;
    if (ignoreCase) {
        for (auto& each : names)
            each = lowered(each);
        wanted = lowered(name);
        LOGI("names: %zu", names.size());
    }
    LOGI("containsItem[ignoreCase=%d]: name=%s / %s", ignoreCase ? 1 : 0, wanted.c_str(), join(names).c_str());
    return holds(names, wanted, false);
}

bool XMPInfoImpl::containsItemField(std::string const& itemName, std::string const& fieldName) const {
    return !getItemField(itemName, fieldName).empty();
}

std::list<std::pair<std::string, std::string>> XMPInfoImpl::getProperties() const {
    constexpr std::string_view DIRECTORY_PREFIX = "Container";
    std::list<std::pair<std::string, std::string>> properties;
    try {
        meta->visitLeaves([&](std::string const& schema, std::string const& path) {
            // A schema without properties has no path; two or more prefixes are a field of a struct.
            if (!path.empty() && !path.starts_with(DIRECTORY_PREFIX) && std::count(path.begin(), path.end(), ':') == 1)
                properties.emplace_back(schema, path);
        });
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGE("%s", messageOf(e));
    }
    return properties;
}

std::list<std::string> XMPInfoImpl::getPropertyNames() const {
    LOGI("getPropertyNames E");
    std::list<std::string> names;
    for (auto& property : getProperties())
        names.push_back(std::move(property.second));
    LOGI("getPropertyNames X: %zu", names.size());
    return names;
}

std::list<std::string> XMPInfoImpl::getItemNames() const {
    LOGI("getItemNames E: %zu", directory.items.size());
    std::list<std::string> names;
    for (auto const& entry : directory.items)
        names.push_back(entry.first);
    LOGI("getItemNames X: %zu", names.size());
    return names;
}

std::string XMPInfoImpl::getProperty(std::string const& schemaNS, std::string const& path) const {
    try {
        return meta->get(schemaNS, path).value_or("");
    } catch (Error const& e) {
        LOGI("error: %s", messageOf(e));
        return {};
    }
}

std::string XMPInfoImpl::getItemField(std::string const& itemName, std::string const& fieldName) const {
    try {
        if (auto* item = findItem(itemName))
            return item->get(fieldName);
        LOGI("%s is not given", itemName.c_str());
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGI("fail to get field: %s", messageOf(e));
    }
    return {};
}

std::set<std::string> XMPInfoImpl::getItemFieldNames(std::string const& itemName) const {
    auto* item = findItem(itemName);
    return item ? item->getAllFields() : std::set<std::string>{};
}

std::string XMPInfoImpl::getItemNameAt(int32_t index) const {
    for (auto const& entry : directory.items) {
        if (entry.second.getIndex() != index)
            continue;
        auto const* item = findItem(entry.first);
        return item ? item->getName() : std::string{};
    }
    return {};
}

std::string XMPInfoImpl::getLastItem() const {
    auto const count = countDirectory();
    auto const name = getItemNameAt(count);
    auto const* item = findItem(name);
    if (count == 0 || (item && item->getPlace() == count))
        return name;
    // A removal in front has left the recorded positions behind: the packet says which item is the last.
    auto const last = itemNameAt(count);
    return last && directory.items.contains(*last) ? *last : std::string{};
}

/// The toolkit writes namespaces without escaping them, and nests deeper than it is let read. Every writer gets its
/// packet here: one that nobody could read again is refused before a byte of a file changes.
std::vector<uint8_t> XMPInfoImpl::serializeToBuffer() const {
    auto text = meta->serialize();
    if (text == serialized)
        return {text.begin(), text.end()};
    try {
        parseXMPPacket(text);
    } catch (Error const& error) {
        throw ErrorAt().as(Error::Code::XMP)("XMP that could not be read again: %s", messageOf(error));
    }
    serialized = std::move(text);
    return {serialized.begin(), serialized.end()};
}

std::string XMPInfoImpl::dump() const {
    return meta->dump();
}

// Into other views. ---------------------------------------------------------------------------------------------------

std::unique_ptr<XMPEdit> XMPInfoImpl::edit() {
    return std::make_unique<XMPEditImpl>(shared_from_this());
}

void XMPInfoImpl::transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options options) {
    auto const editor = XMPInfo::parse(target)->edit();
    editor->putAll(shared_from_this(), options);
    editor->commit();
}

void XMPInfoImpl::copyTo(XMPInfo& target) const {
    auto const editor = target.edit();
    XMPCopy copy(*this, *editor, false);
    copy.properties();
    copy.itemsAsRemembered();
}

} // namespace android::lumo
