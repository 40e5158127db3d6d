// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace android::lumo {

/// An owned, growable run of bytes: what a record of a still's trailer, a packet or a video is while it is in memory.
///
/// Sizes are bytes and stay below 2^31: put() sees to it, and who hands in a vector does. Integers go in and come out
/// in the machine's own order; callers swap big-endian fields. A moved-from buffer is empty (size 0, capacity 0). Not
/// synchronised.
class METADATA_UTILS_EXPORT ByteBuffer {
public:
    /// Empty, without storage.
    ByteBuffer() noexcept = default;
    /// An empty buffer with room for `capacity` bytes; 0 reserves nothing.
    explicit ByteBuffer(uint32_t capacity);
    /// A copy has storage of its own.
    ByteBuffer(ByteBuffer const& other) = default;
    /// Takes the storage over.
    ByteBuffer(ByteBuffer&& other) noexcept;
    /// The bytes of a vector, copied. Not explicit: what a vector of bytes becomes is no question.
    ByteBuffer(std::vector<uint8_t> const& bytes);
    /// The bytes of a vector, taken over.
    ByteBuffer(std::vector<uint8_t>&& bytes) noexcept;
    /// As the copy.
    ByteBuffer& operator=(ByteBuffer const& other) = default;
    /// Gives its own storage back, then takes over that of `other`.
    ByteBuffer& operator=(ByteBuffer&& other) noexcept;
    ~ByteBuffer() = default;

    /// The first byte; valid until the buffer grows, is assigned to or goes.
    uint8_t const* data() const noexcept { return bytes.data(); }
    /// The same, for writing below size().
    uint8_t* data() noexcept { return bytes.data(); }
    /// Bytes in use.
    uint32_t size() const noexcept { return static_cast<uint32_t>(bytes.size()); }
    /// Bytes allocated; never less than size().
    uint32_t capacity() const noexcept { return static_cast<uint32_t>(bytes.capacity()); }
    /// Whether size() is 0.
    bool empty() const noexcept { return bytes.empty(); }

    /// Size becomes 0, the storage stays.
    void clear() noexcept { bytes.clear(); }

    /// Appends at the end and returns the buffer, for chaining. Growth at least doubles the capacity, up to 2^31 - 1
    /// bytes; beyond that std::length_error is thrown and the buffer is unchanged. The move form also empties its
    /// source.
    ByteBuffer& put(std::string const& text);
    /// The same with the bytes of a buffer, which may be this one.
    ByteBuffer& put(ByteBuffer const& other);
    /// The same, and empties `other`.
    ByteBuffer& put(ByteBuffer&& other);
    /// Appends the value's bytes in the machine's order.
    template<std::integral T>
    ByteBuffer& put(T value) {
        append(&value, sizeof value);
        return *this;
    }

    /// The value at byte `index`, in the machine's order, as an R. A value that does not lie wholly inside the content
    /// is "buffer read overflow".
    template<std::integral T, class R = T>
    R get(uint32_t index) const {
        T value;
        copyOut(index, &value, sizeof value);
        return static_cast<R>(value);
    }

    /// A copy of min(length, size()) bytes from `offset`; an offset above 2^31 - 1 counts as 0. The length is clamped
    /// to the whole size, so the caller keeps offset + length inside the buffer; bytes that would lie behind the
    /// content are "buffer read overflow".
    ByteBuffer slice(uint32_t offset, uint32_t length) const;

    /// The last 128 bytes at most, for logs: two lower-case hex digits for each non-zero byte, `filler` for a zero
    /// byte.
    std::string toHexString(char const& filler) const;
    /// "size/capacity=<size>/<capacity>".
    std::string toString() const;
    /// A string of `map` applied to each byte in order. Instantiated for std::string.
    template<class T>
    T toTypedData(std::function<unsigned char(unsigned char)> const& map) const;

private:
    void append(void const* source, size_t length);
    void copyOut(uint32_t index, void* target, size_t length) const;

    std::vector<uint8_t> bytes;
};

} // namespace android::lumo
