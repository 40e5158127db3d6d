// SPDX-License-Identifier: Apache-2.0
#include "XMPEditImpl.h"

#include "CheckedFile.h"
#include "Log.h"
#include "MotionNames.h"
#include "XMPCopy.h"
#include "XMPError.h"
#include "io/ImageMetaWriter.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "XMPEditImpl";
using motion_names::DIRECTORY_PATH;

// What may go into a packet: checked before the toolkit is asked to change it, because a value it refuses leaves an
// empty property behind, and one that XML cannot carry makes a packet that no parser reads back.

/// Steps of a property path. Each nests up to two elements in the packet, whose reader follows 100 in large packets.
constexpr auto MAX_PATH_STEPS = 40;

bool isXMLChar(uint32_t c) {
    if (c < 0x20)
        return c == '\t' || c == '\n' || c == '\r';
    return c <= 0xD7FF || (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

/// Bytes of the sequence that `lead` begins, 0 when no sequence begins so.
size_t sequenceLength(uint8_t lead) {
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

/// The character of a sequence of `length` bytes; one that is malformed or longer than needed gives no XML character.
uint32_t decode(std::string_view bytes, size_t length) {
    constexpr uint32_t LEAD_BITS[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    constexpr uint32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};
    auto c = static_cast<uint8_t>(bytes[0]) & LEAD_BITS[length];
    for (size_t i = 1; i < length; ++i) {
        auto const next = static_cast<uint8_t>(bytes[i]);
        if ((next & 0xC0) != 0x80)
            return 0;
        c = c << 6 | (next & 0x3F);
    }
    return c >= SMALLEST[length] ? c : 0;
}

/// What the toolkit throws for such text; it keeps the pointer to its message.
XMPError refusal(Error const& error, XMP_Int32 id, char const* reason) {
    return {error.what(), XMP_Error(id, reason)};
}

constexpr char NO_TEXT[] = "not UTF-8 text that XML can carry";

/// Valid UTF-8 (RFC 3629) of characters that XML 1.0 allows (its production 2, Char).
bool isXMLText(std::string_view text) {
    while (!text.empty()) {
        auto const length = sequenceLength(static_cast<uint8_t>(text[0]));
        if (length == 0 || length > text.size() || !isXMLChar(decode(text, length)))
            return false;
        text.remove_prefix(length);
    }
    return true;
}

/// Throws "value of %s is not UTF-8 text that XML can carry", as the two below an XMPError: what the toolkit throws for
/// text that is not UTF-8. A control character, which it would make a blank of, is refused as well.
void requireValue(std::string const& value, std::string const& name, ErrorAt at = ErrorAt()) {
    if (!isXMLText(value))
        throw refusal(at("value of %s is %s", name.c_str(), NO_TEXT), kXMPErr_BadUnicode, NO_TEXT);
}

/// For names of namespaces and fields: throws on text as above. What else makes a name good is the toolkit's to judge.
void requireName(std::string const& name, ErrorAt at = ErrorAt()) {
    if (!isXMLText(name))
        throw refusal(at("name is %s", NO_TEXT), kXMPErr_BadUnicode, NO_TEXT);
}

/// For property paths: throws also on more steps than a packet may be nested deep.
void requirePath(std::string const& path, ErrorAt at = ErrorAt()) {
    requireName(path, at);
    if (std::count_if(path.begin(), path.end(), [](char c) { return c == '/' || c == '['; }) > MAX_PATH_STEPS)
        throw refusal(at("property path has too many steps"), kXMPErr_BadXPath, "too many steps");
}

/// A target with an image of its own; what is no still at all, the writers refuse.
void requireSameType(MediaFile const& target, MediaFile const& source, ErrorAt at = ErrorAt()) {
    auto const type = target.mimeType(), expected = source.mimeType();
    if (type != expected && MediaDefs::mimeString(type).starts_with("image/"))
        throw at("target is of another type: %s, expected %s", MediaDefs::mimeString(type).c_str(),
                 MediaDefs::mimeString(expected).c_str());
}

} // namespace

XMPEditImpl::XMPEditImpl(std::shared_ptr<XMPInfoImpl> const& view) : file(view->getFile()), info(view) {
    info->takeOthersThatAgree();
}

// Properties. ---------------------------------------------------------------------------------------------------------

XMPEdit& XMPEditImpl::setProperty(std::string const& schemaNS, std::string const& path, std::string const& value) {
    requireName(schemaNS);
    requirePath(path);
    requireValue(value, path);
    info->getMeta()->set(schemaNS, path, value);
    if (schemaNS == xmp_ns::CONTAINER)
        info->reindex();
    dirty = true;
    return *this;
}

XMPEdit& XMPEditImpl::removeProperty(std::string const& schemaNS, std::string const& name) {
    LOGI("removeProperty E: schemaNS=%s, propertyName=%s", schemaNS.c_str(), name.c_str());
    requireName(schemaNS);
    requirePath(name);
    info->getMeta()->remove(schemaNS, name);
    if (schemaNS == xmp_ns::CONTAINER)
        info->reindex();
    dirty = true;
    LOGI("removeProperty X");
    return *this;
}

// Items. --------------------------------------------------------------------------------------------------------------

XMPEdit& XMPEditImpl::setItem(std::string const& itemName, MediaDefs::MimeType mime) {
    if (info->getDirectory().all().contains(itemName)) {
        LOGI("already exist item, use exist one");
        return *this;
    }
    requireValue(itemName, "Item:Semantic");
    auto const mimeText = MediaDefs::mimeString(mime);
    auto const place = addItemEntry();
    auto const path = XMPInfoImpl::XMPItemInfo::structPathAt(place);
    auto const& meta = info->getMeta();
    meta->set(xmp_ns::CONTAINER, path + "/Item:Mime", mimeText);
    meta->set(xmp_ns::CONTAINER, path + "/Item:Semantic", itemName);
    info->getDirectory().inserted(itemName, place);
    dirty = true;
    return *this;
}

/// An empty entry of the directory; returns its place.
int32_t XMPEditImpl::addItemEntry() {
    auto const unread = info->getDirectory().getFirstUnread();
    if (unread == 0) {
        addArrayItem();
        return info->getDirectory().count();
    }
    info->getMeta()->insertStruct(xmp_ns::CONTAINER, DIRECTORY_PATH, unread);
    return unread;
}

void XMPEditImpl::addArrayItem() {
    info->getMeta()->appendStruct(xmp_ns::CONTAINER, DIRECTORY_PATH);
}

XMPEdit& XMPEditImpl::setItemField(std::string const& itemName, std::string const& fieldName,
                                   std::string const& value) {
    LOGI("setItemField: itemName=%s, fieldName=%s, fieldValue=%s", itemName.c_str(), fieldName.c_str(), value.c_str());
    auto* item = info->getDirectory().find(itemName);
    if (!item)
        throw ErrorAt()("no such item(%s) exist, add item first w/ addItem", itemName.c_str());
    setField(*item, itemName, fieldName, value);
    return *this;
}

XMPEdit& XMPEditImpl::replaceItemField(std::string const& itemName, std::string const& fieldName,
                                       std::string const& value) {
    if (auto* item = info->getDirectory().find(itemName))
        setField(*item, itemName, fieldName, value);
    return *this;
}

void XMPEditImpl::setField(XMPInfoImpl::XMPItemInfo& item, std::string const& itemName, std::string const& fieldName,
                           std::string const& value) {
    try {
        requireValue(value, fieldName);
        requireName(fieldName);
        item.set(fieldName, value);
        if (fieldName == "Semantic" && value != itemName)
            info->getDirectory().renamed(itemName, value);
        else if (fieldName == "Mime" && item.getPlace() == info->getDirectory().getFirstUnread())
            info->updateXMPItems(); // the entry is complete, those behind it can be read
    } catch (Error const& e) {
        LOGI("err: %s", messageOf(e));
    }
    dirty = true;
}

XMPEdit& XMPEditImpl::removeItemField(std::string const& itemName, std::string const& fieldName) {
    auto* item = info->getDirectory().find(itemName);
    if (!item)
        return *this;
    requireName(fieldName);
    item->remove(fieldName);
    if (fieldName == "Semantic" || fieldName == "Mime")
        info->getDirectory().broken(itemName, item->getPlace(), fieldName == "Semantic");
    dirty = true;
    return *this;
}

XMPEdit& XMPEditImpl::removeItem(std::string const& itemName) {
    auto const* item = info->getDirectory().find(itemName);
    if (!item)
        return *this;
    auto const index = item->getIndex();
    info->getMeta()->removeEntry(xmp_ns::CONTAINER, DIRECTORY_PATH, item->getPlace());
    info->getDirectory().removed(itemName);
    dirty = true;
    LOGI("remove %s[%d]", itemName.c_str(), index);
    return *this;
}

// Everything at once. -------------------------------------------------------------------------------------------------

XMPEdit& XMPEditImpl::removeAll() {
    LOGI("removeAll E");
    auto const byIndex = [](auto const& a, auto const& b) { return a.second.getIndex() < b.second.getIndex(); };
    auto const names = MediaDefs::getKeys(info->getDirectory().all(), byIndex);
    for (auto name = names.rbegin(); name != names.rend(); ++name)
        removeItem(*name);
    // Entries the index does not know, duplicates and broken ones, go with the array.
    info->getMeta()->remove(xmp_ns::CONTAINER, DIRECTORY_PATH);
    info->reindex();
    dirty = true;

    std::unordered_set<std::string> removed;
    for (auto const& path : info->getPropertyNames()) {
        auto const colon = path.find(':');
        auto const prefix = path.substr(0, colon);
        auto const name = path.substr(colon + 1, path.find('[') - colon - 1); // of an array, the whole
        if (removed.insert(prefix + ":" + name).second)
            removeProperty(namespaceOfPrefix(prefix), name);
    }
    LOGI("removeAll X");
    return *this;
}

XMPEdit& XMPEditImpl::putAll(std::shared_ptr<XMPInfo> const& source, std::filesystem::copy_options options) {
    LOGI("putAll");
    if (!source)
        throw ErrorAt()("no XMP given");
    auto const view = XMPInfoImpl::of(*source);
    using std::filesystem::copy_options;
    XMPCopy copy(*view, *this, (options & copy_options::skip_existing) != copy_options::none);
    copy.properties();
    copy.items();
    dirty = true;
    return *this;
}

// Into the file. ------------------------------------------------------------------------------------------------------

void XMPEditImpl::commit() {
    LOGI("commit E");
    checked::requireAddressable(*file);
    checked::requireEditable(*file);
    bool const isSource = info->getInFile().isThisFile(*file);
    if (!isSource && mustCopy) {
        targetXMP.reset();
        info->getInFile().copyFileTo(file);
    }
    if (!isSource && targetXMP == nullptr)
        targetXMP = std::make_unique<XMPInFile>(file); // its own XMP is what the caller wants replaced
    auto& known = isSource ? info->getInFile() : *targetXMP;
    known.requireUnchanged();
    known.requireRoomToRetry([&] { return info->serializeToBuffer().size(); });
    info->getInFile().requireKeepable();
    auto const writer = ImageMetaWriter::of(file);
    known.write(*file, info->getSerialized(), [&] { writer->writeXMP(std::static_pointer_cast<XMPInfo>(info)); });
    mustCopy = false;
    dirty = false;
    LOGI("commit X");
}

void XMPEditImpl::commit(std::shared_ptr<MediaFile> const& target) {
    if (!target)
        throw ErrorAt()("no target given");
    checked::requireAddressable(*target);
    bool const isSource = checked::isSameFile(*target, *info->getFile());
    bool const isEmpty = target->size() == 0;
    if (!isEmpty && !isSource && !mustCopy)
        requireSameType(*target, *info->getFile());
    if (isEmpty || !checked::isSameFile(*target, *file)) {
        targetXMP.reset();
        mustCopy = isEmpty && !isSource;
    }
    file = target;
    commit();
}

} // namespace android::lumo
