#include "MPXMPEdit.h"

#include "Log.h"

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";

} // namespace

MPXMPEdit::MPXMPEdit(std::unique_ptr<XMPEdit> editor, std::function<void(MPXMPEdit*)> const& report)
    : wrapped(std::move(editor)), onCommitted(report) {}

std::shared_ptr<XMPInfoImpl> MPXMPEdit::xmpView() const {
    return XMPInfoImpl::of(*wrapped);
}

// Queries. ------------------------------------------------------------------------------------------------------------

bool MPXMPEdit::isEmpty() const {
    return wrapped->isEmpty();
}

bool MPXMPEdit::isNotEmpty() const {
    return wrapped->isNotEmpty();
}

bool MPXMPEdit::containsProperty(std::string const& name, bool ignoreCase) const {
    return wrapped->containsProperty(name, ignoreCase);
}

bool MPXMPEdit::containsItem(std::string const& name, bool ignoreCase) const {
    return wrapped->containsItem(name, ignoreCase);
}

bool MPXMPEdit::containsItemField(std::string const& itemName, std::string const& fieldName) const {
    return wrapped->containsItemField(itemName, fieldName);
}

std::list<std::string> MPXMPEdit::getPropertyNames() const {
    return wrapped->getPropertyNames();
}

std::list<std::string> MPXMPEdit::getItemNames() const {
    return wrapped->getItemNames();
}

std::string MPXMPEdit::getProperty(std::string const& schemaNS, std::string const& path) const {
    return wrapped->getProperty(schemaNS, path);
}

std::string MPXMPEdit::getItemField(std::string const& itemName, std::string const& fieldName) const {
    return wrapped->getItemField(itemName, fieldName);
}

std::string MPXMPEdit::getItemNameAt(int32_t index) const {
    return wrapped->getItemNameAt(index);
}

std::string MPXMPEdit::getLastItem() const {
    return wrapped->getLastItem();
}

std::vector<uint8_t> MPXMPEdit::serializeToBuffer() const {
    return wrapped->serializeToBuffer();
}

void MPXMPEdit::transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options options) {
    wrapped->transferTo(target, options);
}

std::unique_ptr<XMPEdit> MPXMPEdit::edit() {
    return wrapped->edit();
}

// Changes; each answers the wrapper, so that a chain ends in its commit.
// --------------------------------------------------

XMPEdit& MPXMPEdit::setProperty(std::string const& schemaNS, std::string const& path, std::string const& value) {
    wrapped->setProperty(schemaNS, path, value);
    return *this;
}

XMPEdit& MPXMPEdit::setItem(std::string const& itemName, MediaDefs::MimeType mime) {
    wrapped->setItem(itemName, mime);
    return *this;
}

XMPEdit& MPXMPEdit::setItemField(std::string const& itemName, std::string const& fieldName, std::string const& value) {
    wrapped->setItemField(itemName, fieldName, value);
    return *this;
}

XMPEdit& MPXMPEdit::putAll(std::shared_ptr<XMPInfo> const& source, std::filesystem::copy_options options) {
    wrapped->putAll(source, options);
    return *this;
}

XMPEdit& MPXMPEdit::removeProperty(std::string const& schemaNS, std::string const& name) {
    wrapped->removeProperty(schemaNS, name);
    return *this;
}

XMPEdit& MPXMPEdit::removeItemField(std::string const& itemName, std::string const& fieldName) {
    wrapped->removeItemField(itemName, fieldName);
    return *this;
}

XMPEdit& MPXMPEdit::removeItem(std::string const& itemName) {
    wrapped->removeItem(itemName);
    return *this;
}

XMPEdit& MPXMPEdit::removeAll() {
    wrapped->removeAll();
    return *this;
}

XMPEdit& MPXMPEdit::replaceItemField(std::string const& itemName, std::string const& fieldName,
                                     std::string const& value) {
    wrapped->replaceItemField(itemName, fieldName, value);
    return *this;
}

bool MPXMPEdit::isDirty() const {
    return isMarked || wrapped->isDirty();
}

void MPXMPEdit::commit() {
    wrapped->commit();
    isMarked = false;
    onCommitted(this);
}

void MPXMPEdit::commit(std::shared_ptr<MediaFile> const& target) {
    wrapped->commit(target);
    isMarked = false;
    onCommitted(this);
}

void MPXMPEdit::updateMotionPhotoInfo(std::shared_ptr<MediaFile> const& output, size_t size, size_t position) {
    if (position == 0 || position > size || !wrapped->containsItem("MotionPhoto", false))
        return;
    LOGI("update MotionPhoto::Length to %zu, size=%zu, pos=%zu", size - position, size, position);
    replaceItemField("MotionPhoto", "Length", std::to_string(size - position));
    commit(output);
}

} // namespace android::lumo
