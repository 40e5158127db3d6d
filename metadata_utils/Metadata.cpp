// SPDX-License-Identifier: Apache-2.0
#include "Metadata.h"

namespace android::lumo {

std::string Metadata::toString() const {
    return "type=" + MediaDefs::metaTypeString(type) + ", position=" + std::to_string(position) +
           ", payload=" + std::to_string(payload) + ", offset=" + std::to_string(offset);
}

template<class T>
T Metadata::toTypedData() const {
    if (!loader || payload <= offset || uint64_t{position} + payload > UINT32_MAX)
        return {};
    auto const bytes = loader(position + offset, payload - offset);
    return T(bytes.begin(), bytes.end());
}

template std::string Metadata::toTypedData() const;

} // namespace android::lumo
