// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

/// Numbers whose bytes stand with the highest first, as boxes, segments and our own records have them: the one home of
/// their reading and writing.
namespace android::lumo {

/// As wide as the bytes are, up to eight. The usual widths apart, so that each is one load.
constexpr uint64_t bigEndianNumber(std::span<uint8_t const> bytes) {
    if (bytes.size() == 4)
        return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | uint32_t{bytes[3]};
    if (bytes.size() == 2)
        return uint32_t{bytes[0]} << 8 | uint32_t{bytes[1]};
    uint64_t value = 0;
    for (uint8_t const byte : bytes)
        value = value << 8 | byte;
    return value;
}

/// The same of characters.
constexpr uint64_t bigEndianNumber(std::string_view bytes) {
    uint64_t value = 0;
    for (char const byte : bytes)
        value = value << 8 | static_cast<uint8_t>(byte);
    return value;
}

/// The number at `bytes`, as wide as its type.
template<class Number>
Number bigEndianAt(uint8_t const* bytes) {
    return static_cast<Number>(bigEndianNumber(std::span(bytes, sizeof(Number))));
}

/// Fills `bytes` with the number's lowest ones. The usual widths apart, so that each is one store.
constexpr void putBigEndian(uint64_t value, std::span<uint8_t> bytes) {
    if (bytes.size() == 4) {
        bytes[0] = static_cast<uint8_t>(value >> 24);
        bytes[1] = static_cast<uint8_t>(value >> 16);
        bytes[2] = static_cast<uint8_t>(value >> 8);
        bytes[3] = static_cast<uint8_t>(value);
        return;
    }
    for (size_t i = bytes.size(); i-- > 0; value >>= 8)
        bytes[i] = static_cast<uint8_t>(value);
}

/// The number in `width` bytes.
inline std::string bigEndianBytes(uint64_t value, unsigned width) {
    std::string bytes(width, '\0');
    putBigEndian(value, {reinterpret_cast<uint8_t*>(bytes.data()), bytes.size()});
    return bytes;
}

} // namespace android::lumo
