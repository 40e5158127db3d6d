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

/// Whether the name is one of the list; with `ignoreCase` all of them are lowered first.
bool holds(std::list<std::string> const& names, std::string const& name, bool ignoreCase) {
    if (!ignoreCase)
        return std::find(names.begin(), names.end(), name) != names.end();
    auto const wanted = lowered(name);
    return std::any_of(names.begin(), names.end(), [&](auto const& each) { return lowered(each) == wanted; });
}

} // namespace

XMPInfo::~XMPInfo() = default;

std::shared_ptr<XMPInfo> XMPInfo::parse(std::shared_ptr<MediaFile> const& file) {
    if (!file)
        throw ErrorAt()("no file given");
    checked::requireAddressable(*file);
    return std::make_shared<XMPInfoImpl>(file);
}

std::list<std::pair<std::string, std::string>> XMPInfo::getProperties() const {
    return XMPInfoImpl::of(*this)->getProperties();
}

std::set<std::string> XMPInfo::getItemFieldNames(std::string const& itemName) const {
    return XMPInfoImpl::of(*this)->getItemFieldNames(itemName);
}

void XMPInfo::copyTo(XMPInfo& target) const {
    XMPInfoImpl::of(*this)->copyTo(target);
}

std::string XMPInfo::dump() const {
    return XMPInfoImpl::of(*this)->dump();
}

XMPInfoImpl::XMPInfoImpl(std::shared_ptr<MediaFile> const& viewed) : file(viewed) {
    prepareXMPToolkit();
    load();
}

XMPInfoImpl::XMPInfoImpl(std::shared_ptr<MediaFile> const& viewed, std::shared_ptr<XMPPacket> const& packet)
    : file(viewed), areOthersIn(true) {
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
    found->noteParsed(meta->clone());
    inFile = std::move(found);
    areOthersIn = false;
    LOGI("load X");
}

void XMPInfoImpl::requireUnchanged(ErrorAt at) {
    if (inFile != nullptr)
        inFile->requireUnchanged(at);
    getInFile().requireKeepable(at);
}

void XMPInfoImpl::trustFile() {
    isFileTrusted = true;
    if (inFile != nullptr)
        inFile->trust();
}

XMPInFile& XMPInfoImpl::getInFile() const {
    if (inFile == nullptr) {
        inFile = std::make_unique<XMPInFile>(file);
        if (isFileTrusted)
            inFile->trust();
    }
    return *inFile;
}

void XMPInfoImpl::takeOthers() {
    if (areOthersIn || getInFile().count() < 2)
        return;
    inFile->requireKeepable();
    auto merged = copyContents();
    auto const count = directory.count();
    inFile->mergeInto(*merged.packet);
    if (merged.directory.count() != count)
        merged.directory = XMPDirectory(merged.packet);
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
    auto const copied = meta->clone();
    return {copied, directory.in(copied)};
}

XMPInfoImpl::Contents XMPInfoImpl::exchange(Contents contents) noexcept {
    std::swap(meta, contents.packet);
    std::swap(directory, contents.directory);
    return contents;
}

// The index of the directory. -----------------------------------------------------------------------------------------

void XMPInfoImpl::adopt(std::shared_ptr<XMPPacket> const& packet, std::vector<uint8_t> const& text) {
    exchange({packet, XMPDirectory(packet)});
    if (!text.empty())
        noteSerialized({text.begin(), text.end()});
}

void XMPInfoImpl::reindex() {
    directory = XMPDirectory(meta);
}

void XMPInfoImpl::updateXMPItems() {
    directory.readOn();
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
    LOGI("getItemNames E: %zu", directory.all().size());
    std::list<std::string> names;
    for (auto const& entry : directory.all())
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
        if (auto* item = directory.find(itemName))
            return item->get(fieldName);
        LOGI("%s is not given", itemName.c_str());
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGI("fail to get field: %s", messageOf(e));
    }
    return {};
}

std::set<std::string> XMPInfoImpl::getItemFieldNames(std::string const& itemName) const {
    auto* item = directory.find(itemName);
    return item ? item->getAllFields() : std::set<std::string>{};
}

std::string XMPInfoImpl::getItemNameAt(int32_t index) const {
    for (auto const& entry : directory.all()) {
        if (entry.second.getIndex() != index)
            continue;
        return directory.find(entry.first) ? entry.first : std::string{};
    }
    return {};
}

std::string XMPInfoImpl::getLastItem() const {
    auto const count = directory.count();
    auto const name = getItemNameAt(count);
    auto const* item = directory.find(name);
    if (count == 0 || (item && item->getPlace() == count))
        return name;
    // A removal in front has left the recorded positions behind: the packet says which item is the last.
    auto const last = directory.nameAt(count);
    return last && directory.all().contains(*last) ? *last : std::string{};
}

/// The toolkit writes namespaces without escaping them, and nests deeper than it is let read. Every writer gets its
/// packet here: one that nobody could read again is refused before a byte of a file changes.
std::vector<uint8_t> XMPInfoImpl::serializeToBuffer() const {
    if (isSerialized())
        return {serialized.begin(), serialized.end()};
    auto text = meta->serialize();
    if (text != serialized) {
        try {
            parseXMPPacket(text);
        } catch (Error const& error) {
            throw ErrorAt().as(Error::Code::XMP)("XMP that could not be read again: %s", messageOf(error));
        }
    }
    noteSerialized(std::move(text));
    return {serialized.begin(), serialized.end()};
}

bool XMPInfoImpl::isSerialized() const {
    return serializedPacket.lock() == meta && serializedChanges == meta->changes();
}

void XMPInfoImpl::noteSerialized(std::string text) const {
    serialized = std::move(text);
    serializedPacket = meta;
    serializedChanges = meta->changes();
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
