// SPDX-License-Identifier: Apache-2.0
// The editor's answers are its view's.
#include "XMPEditImpl.h"

namespace android::lumo {

bool XMPEditImpl::isEmpty() const {
    return info->isEmpty();
}

bool XMPEditImpl::isNotEmpty() const {
    return info->isNotEmpty();
}

bool XMPEditImpl::containsProperty(std::string const& name, bool ignoreCase) const {
    return info->containsProperty(name, ignoreCase);
}

bool XMPEditImpl::containsItem(std::string const& name, bool ignoreCase) const {
    return info->containsItem(name, ignoreCase);
}

bool XMPEditImpl::containsItemField(std::string const& itemName, std::string const& fieldName) const {
    return info->containsItemField(itemName, fieldName);
}

std::list<std::string> XMPEditImpl::getPropertyNames() const {
    return info->getPropertyNames();
}

std::list<std::string> XMPEditImpl::getItemNames() const {
    return info->getItemNames();
}

std::string XMPEditImpl::getProperty(std::string const& schemaNS, std::string const& path) const {
    return info->getProperty(schemaNS, path);
}

std::string XMPEditImpl::getItemField(std::string const& itemName, std::string const& fieldName) const {
    return info->getItemField(itemName, fieldName);
}

std::string XMPEditImpl::getItemNameAt(int32_t index) const {
    return info->getItemNameAt(index);
}

std::string XMPEditImpl::getLastItem() const {
    return info->getLastItem();
}

std::vector<uint8_t> XMPEditImpl::serializeToBuffer() const {
    return info->serializeToBuffer();
}

void XMPEditImpl::transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options options) {
    info->transferTo(target, options);
}

std::unique_ptr<XMPEdit> XMPEditImpl::edit() {
    return info->edit();
}

} // namespace android::lumo
