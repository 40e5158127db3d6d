// SPDX-License-Identifier: Apache-2.0
#include "ExifInfoImpl.h"

#include "ErrorAt.h"
#include "ExifEditImpl.h"

namespace android::lumo {

ExifInfo::~ExifInfo() = default;

std::shared_ptr<ExifInfo> ExifInfo::parse(std::shared_ptr<MediaFile> const& file) {
    if (!file)
        throw ErrorAt()("no file given");
    auto info = std::make_shared<ExifInfoImpl>(file);
    info->load();
    return info;
}

std::shared_ptr<ExifEdit> ExifInfoImpl::edit() {
    return std::make_shared<ExifEditImpl>(shared_from_this());
}

} // namespace android::lumo
