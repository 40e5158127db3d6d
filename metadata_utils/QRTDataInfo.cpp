// SPDX-License-Identifier: Apache-2.0
#include "QRTDataInfo.h"

#include "ErrorAt.h"
#include "io/TrailerLayout.h"

namespace android::lumo {

uint32_t QRTDataInfo::getDataHeader() const {
    return trailer::headerOf(type, hasSubInfo);
}

uint32_t QRTDataInfo::size() const {
    return trailer::headSize(*this) + dataPayload;
}

bool QRTDataInfo::hasData() const {
    return !data.empty() || (dataFile != nullptr && dataFile->isValid());
}

ByteBuffer QRTDataInfo::toBuffer() const {
    if (!hasData())
        throw ErrorAt(__LINE__, "metadata_utils/QRTInfoImpl")("no data: empty=%d, file=%p", data.empty() ? 1 : 0,
                                                              static_cast<void const*>(dataFile.get()));
    ByteBuffer bytes(trailer::headSize(*this) + data.size());
    trailer::appendRecord(bytes, *this, data);
    return bytes;
}

std::string QRTDataInfo::toString() const {
    return trailer::describe(*this, data.size());
}

} // namespace android::lumo
