// SPDX-License-Identifier: Apache-2.0
#include "ByteBuffer.h"

#include "ErrorAt.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace android::lumo {

namespace {

constexpr uint32_t MAX_CAPACITY = 0x7FFFFFFF;
constexpr uint32_t HEX_BYTES_AT_MOST = 128;

/// The class is named by its header wherever it reports an error.
ErrorAt error(int line = __builtin_LINE()) {
    return ErrorAt(line, "metadata_utils/include/ByteBuffer");
}

} // namespace

ByteBuffer::ByteBuffer(uint32_t capacity) {
    if (capacity > MAX_CAPACITY)
        throw std::length_error("ByteBuffer capacity");
    bytes.reserve(capacity);
}

ByteBuffer::ByteBuffer(ByteBuffer&& other) noexcept : bytes(std::move(other.bytes)) {}

ByteBuffer::ByteBuffer(std::vector<uint8_t> const& content) : bytes(content) {}

ByteBuffer::ByteBuffer(std::vector<uint8_t>&& content) noexcept : bytes(std::move(content)) {}

ByteBuffer& ByteBuffer::operator=(ByteBuffer&& other) noexcept {
    if (this != &other)
        bytes = std::exchange(other.bytes, {});
    return *this;
}

ByteBuffer& ByteBuffer::put(std::string const& text) {
    append(text.data(), text.size());
    return *this;
}

ByteBuffer& ByteBuffer::put(ByteBuffer const& other) {
    append(other.data(), other.size());
    return *this;
}

ByteBuffer& ByteBuffer::put(ByteBuffer&& other) {
    append(other.data(), other.size());
    if (this != &other)
        other.clear();
    return *this;
}

/// The source may lie in this very buffer: it is copied before the old storage goes, and never into its own range.
void ByteBuffer::append(void const* source, size_t length) {
    if (length == 0)
        return;
    size_t const oldSize = bytes.size();
    if (oldSize > MAX_CAPACITY || length > MAX_CAPACITY - oldSize)
        throw std::length_error("ByteBuffer size");
    size_t const newSize = oldSize + length;
    auto const* first = static_cast<uint8_t const*>(source);
    if (newSize <= bytes.capacity()) {
        bytes.resize(newSize);
        std::memcpy(bytes.data() + oldSize, first, length);
        return;
    }
    std::vector<uint8_t> grown;
    grown.reserve(std::min<size_t>(std::max(newSize, 2 * bytes.capacity()), MAX_CAPACITY));
    grown.insert(grown.end(), bytes.begin(), bytes.end());
    grown.insert(grown.end(), first, first + length);
    bytes.swap(grown);
}

void ByteBuffer::copyOut(uint32_t index, void* target, size_t length) const {
    if (uint64_t{index} + length > bytes.size())
        throw error()("buffer read overflow");
    std::memcpy(target, bytes.data() + index, length);
}

ByteBuffer ByteBuffer::slice(uint32_t offset, uint32_t length) const {
    uint32_t const first = offset > MAX_CAPACITY ? 0 : offset;
    uint32_t const count = std::min(length, size());
    if (count == 0)
        return {};
    if (uint64_t{first} + count > bytes.size())
        throw error()("buffer read overflow");
    return ByteBuffer(std::vector<uint8_t>(bytes.data() + first, bytes.data() + first + count));
}

std::string ByteBuffer::toHexString(char const& filler) const {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    for (size_t i = size() > HEX_BYTES_AT_MOST ? size() - HEX_BYTES_AT_MOST : 0; i < bytes.size(); ++i) {
        if (bytes[i] == 0) {
            text += filler;
        } else {
            text += DIGITS[bytes[i] >> 4];
            text += DIGITS[bytes[i] & 15];
        }
    }
    return text;
}

std::string ByteBuffer::toString() const {
    return "size/capacity=" + std::to_string(size()) + "/" + std::to_string(capacity());
}

template<class T>
T ByteBuffer::toTypedData(std::function<unsigned char(unsigned char)> const& map) const {
    T mapped;
    mapped.reserve(bytes.size());
    for (uint8_t byte : bytes)
        mapped.push_back(static_cast<typename T::value_type>(map(byte)));
    return mapped;
}

template std::string ByteBuffer::toTypedData(std::function<unsigned char(unsigned char)> const& map) const;

} // namespace android::lumo
