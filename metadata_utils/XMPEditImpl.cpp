// SPDX-License-Identifier: Apache-2.0
#include "XMPEditImpl.h"

#include "CheckedFile.h"
#include "Log.h"
#include "XMPCopy.h"
#include "XMPText.h"
#include "io/ImageMetaWriter.h"

#include <unordered_set>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "XMPEditImpl";
constexpr char DIRECTORY[] = "Container:Directory";

/// A target with an image of its own; what is no still at all, the writers refuse.
void requireSameType(MediaFile const& target, MediaFile const& source, ErrorAt at = ErrorAt()) {
    auto const type = target.mimeType(), expected = source.mimeType();
    if (type != expected && MediaDefs::mimeString(type).starts_with("image/"))
        throw at("target is of another type: %s, expected %s", MediaDefs::mimeString(type).c_str(),
                 MediaDefs::mimeString(expected).c_str());
}

} // namespace

XMPEditImpl::XMPEditImpl(std::shared_ptr<XMPInfoImpl> const& view)
    : file(view->getFile()), info(view), sourceFile(view->getFile()) {
    info->takeOthersThatAgree();
}

// Properties. ---------------------------------------------------------------------------------------------------------

XMPEdit& XMPEditImpl::setProperty(std::string const& schemaNS, std::string const& path, std::string const& value) {
    xmp_text::requireName(schemaNS);
    xmp_text::requirePath(path);
    xmp_text::requireValue(value, path);
    info->getMeta()->set(schemaNS, path, value);
    if (schemaNS == xmp_ns::CONTAINER)
        info->reindex();
    dirty = true;
    return *this;
}

XMPEdit& XMPEditImpl::removeProperty(std::string const& schemaNS, std::string const& name) {
    LOGI("removeProperty E: schemaNS=%s, propertyName=%s", schemaNS.c_str(), name.c_str());
    xmp_text::requireName(schemaNS);
    xmp_text::requirePath(name);
    info->getMeta()->remove(schemaNS, name);
    if (schemaNS == xmp_ns::CONTAINER)
        info->reindex();
    dirty = true;
    LOGI("removeProperty X");
    return *this;
}

// Items. --------------------------------------------------------------------------------------------------------------

XMPEdit& XMPEditImpl::setItem(std::string const& itemName, MediaDefs::MimeType mime) {
    if (info->getItems().contains(itemName)) {
        LOGI("already exist item, use exist one");
        return *this;
    }
    xmp_text::requireValue(itemName, "Item:Semantic");
    auto const mimeText = MediaDefs::mimeString(mime);
    auto const place = addItemEntry();
    auto const path = XMPInfoImpl::XMPItemInfo::structPathAt(place);
    auto const& meta = info->getMeta();
    meta->set(xmp_ns::CONTAINER, path + "/Item:Mime", mimeText);
    meta->set(xmp_ns::CONTAINER, path + "/Item:Semantic", itemName);
    info->itemInserted(itemName, place);
    dirty = true;
    return *this;
}

/// An empty entry of the directory; returns its place.
int32_t XMPEditImpl::addItemEntry() {
    auto const unread = info->getFirstUnread();
    if (unread == 0) {
        addArrayItem();
        return info->countDirectory();
    }
    info->getMeta()->insertStruct(xmp_ns::CONTAINER, DIRECTORY, unread);
    return unread;
}

void XMPEditImpl::addArrayItem() {
    info->getMeta()->appendStruct(xmp_ns::CONTAINER, DIRECTORY);
}

XMPEdit& XMPEditImpl::setItemField(std::string const& itemName, std::string const& fieldName,
                                   std::string const& value) {
    LOGI("setItemField: itemName=%s, fieldName=%s, fieldValue=%s", itemName.c_str(), fieldName.c_str(), value.c_str());
    auto* item = info->findItem(itemName);
    if (!item)
        throw ErrorAt()("no such item(%s) exist, add item first w/ addItem", itemName.c_str());
    setField(*item, itemName, fieldName, value);
    return *this;
}

XMPEdit& XMPEditImpl::replaceItemField(std::string const& itemName, std::string const& fieldName,
                                       std::string const& value) {
    if (auto* item = info->findItem(itemName))
        setField(*item, itemName, fieldName, value);
    return *this;
}

void XMPEditImpl::setField(XMPInfoImpl::XMPItemInfo& item, std::string const& itemName, std::string const& fieldName,
                           std::string const& value) {
    try {
        xmp_text::requireValue(value, fieldName);
        xmp_text::requireName(fieldName);
        item.set(fieldName, value);
        if (fieldName == "Semantic" && value != itemName)
            info->itemRenamed(itemName, value);
        else if (fieldName == "Mime" && item.getPlace() == info->getFirstUnread())
            info->updateXMPItems(); // the entry is complete, those behind it can be read
    } catch (Error const& e) {
        LOGI("err: %s", messageOf(e));
    }
    dirty = true;
}

XMPEdit& XMPEditImpl::removeItemField(std::string const& itemName, std::string const& fieldName) {
    auto* item = info->findItem(itemName);
    if (!item)
        return *this;
    xmp_text::requireName(fieldName);
    item->remove(fieldName);
    if (fieldName == "Semantic" || fieldName == "Mime")
        info->itemBroken(itemName, item->getPlace(), fieldName == "Semantic");
    dirty = true;
    return *this;
}

XMPEdit& XMPEditImpl::removeItem(std::string const& itemName) {
    auto const* item = info->findItem(itemName);
    if (!item)
        return *this;
    auto const index = item->getIndex();
    info->getMeta()->removeEntry(xmp_ns::CONTAINER, DIRECTORY, item->getPlace());
    info->itemRemoved(itemName);
    dirty = true;
    LOGI("remove %s[%d]", itemName.c_str(), index);
    return *this;
}

// Everything at once. -------------------------------------------------------------------------------------------------

XMPEdit& XMPEditImpl::removeAll() {
    LOGI("removeAll E");
    auto const byIndex = [](auto const& a, auto const& b) { return a.second.getIndex() < b.second.getIndex(); };
    auto const names = MediaDefs::getKeys(info->getItems(), byIndex);
    for (auto name = names.rbegin(); name != names.rend(); ++name)
        removeItem(*name);
    // Entries the index does not know, duplicates and broken ones, go with the array.
    info->getMeta()->remove(xmp_ns::CONTAINER, DIRECTORY);
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
    if (!isSource && mustCopy)
        copySource();
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

/// The whole source, over whatever a commit that failed has left.
void XMPEditImpl::copySource() {
    checked::requireAddressable(*sourceFile);
    info->requireUnchanged();
    targetXMP.reset();
    checked::truncate(*file, 0);
    checked::seek(*file, 0);
    checked::reserve(*file, sourceFile->size());
    checked::copy(sourceFile, file, 0, sourceFile->size());
}

void XMPEditImpl::commit(std::shared_ptr<MediaFile> const& target) {
    if (!target)
        throw ErrorAt()("no target given");
    checked::requireAddressable(*target);
    bool const isSource = checked::isSameFile(*target, *sourceFile);
    bool const isEmpty = target->size() == 0;
    if (!isEmpty && !isSource && !mustCopy)
        requireSameType(*target, *sourceFile);
    if (isEmpty || !checked::isSameFile(*target, *file)) {
        targetXMP.reset();
        mustCopy = isEmpty && !isSource;
    }
    file = target;
    commit();
}

} // namespace android::lumo
