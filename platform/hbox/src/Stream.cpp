// SPDX-License-Identifier: Apache-2.0
#include "Stream.h"

#include "Failure.h"

namespace hbox {

using android::lumo::rangeFits;

namespace {

void check(int32_t result, char const* operation) {
    if (result < 0)
        throw failure(HBOX_ERR_STREAM, "stream: %s failed with %d", operation, static_cast<int>(result));
}

} // namespace

Stream::Stream(HBOX_STREAM_CALLBACKS const& table, void* caller) : callbacks(table), descriptor(caller) {
    if (!callbacks.open || !callbacks.close || !callbacks.set_position || !callbacks.read || !callbacks.get_size)
        throw failure(HBOX_ERR_PARAMETER, "stream: callback missing");
    check(callbacks.open(descriptor), "open");
    int32_t const result = callbacks.get_size(descriptor, &length);
    if (result < 0) {
        callbacks.close(descriptor);
        check(result, "get size");
    }
}

Stream::~Stream() {
    callbacks.close(descriptor);
}

void Stream::read(uint64_t position, std::span<uint8_t> out) const {
    if (!rangeFits(position, out.size(), length))
        throw failure(HBOX_ERR_STREAM, "stream: %zu bytes at %llu wanted, the size is %u", out.size(),
                      static_cast<unsigned long long>(position), static_cast<unsigned>(length));
    if (out.empty())
        return;
    check(callbacks.set_position(descriptor, static_cast<uint32_t>(position)), "set position");
    uint32_t done = 0;
    check(callbacks.read(descriptor, out.data(), static_cast<uint32_t>(out.size()), &done), "read");
    if (done != out.size())
        throw failure(HBOX_ERR_STREAM, "stream: %u of %zu bytes read at %llu", static_cast<unsigned>(done), out.size(),
                      static_cast<unsigned long long>(position));
}

std::vector<uint8_t> Stream::read(uint64_t position, uint64_t size) const {
    if (!rangeFits(position, size, length))
        throw failure(HBOX_ERR_STREAM, "stream: %llu bytes at %llu wanted, the size is %u",
                      static_cast<unsigned long long>(size), static_cast<unsigned long long>(position),
                      static_cast<unsigned>(length));
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    read(position, bytes);
    return bytes;
}

} // namespace hbox
