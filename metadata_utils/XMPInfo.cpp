// SPDX-License-Identifier: Apache-2.0
#include "XMPInfo.h"

#include "CheckedFile.h"
#include "XMPInfoImpl.h"

namespace android::lumo {

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

} // namespace android::lumo
