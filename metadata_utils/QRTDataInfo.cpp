// SPDX-License-Identifier: Apache-2.0
#include "QRTDataInfo.h"

#include "ErrorAt.h"
#include "TrailerLayout.h"

namespace android::lumo {

namespace {

std::string described(ByteBuffer const& bytes) {
    return bytes.empty() ? "empty" : "[data-size=" + std::to_string(bytes.size()) + "]";
}

/// Sizes show as the signed numbers that log readers are used to.
std::string number(uint32_t value) {
    return std::to_string(static_cast<int32_t>(value));
}

} // namespace

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
    std::string const numbers = ", offsetFromTail=" + number(offsetFromTail) + ", payload=" + number(payload) +
                                ", data-payload=" + number(dataPayload) + ", data=" + described(data) + ", dataFile=[" +
                                (dataFile != nullptr ? dataFile->toString() : std::string()) +
                                "], hasSubInfo=" + (hasSubInfo ? "1" : "0") +
                                ", subInfoPayload=" + number(subInfoPayload) + ", subInfo=" + described(subInfo);
    std::string text = "type=" + std::to_string(type) + ", name=";
    text.reserve(text.size() + name.size() + numbers.size()); // a name may be as long as the file: one copy is enough
    text.append(name).append(numbers);
    return text;
}

} // namespace android::lumo
