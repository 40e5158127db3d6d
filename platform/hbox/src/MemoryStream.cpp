// SPDX-License-Identifier: Apache-2.0
#include "hbox.h"

#include <algorithm>
#include <cstring>

#include "Failure.h"

// The stream functions for a file held in memory. The position never leaves [0, size].

namespace {

HBOX_MEMORY_STREAM* stream(void* descriptor) {
    return static_cast<HBOX_MEMORY_STREAM*>(descriptor);
}

uint32_t clamped(HBOX_MEMORY_STREAM const& memory, uint32_t size) {
    return std::min(size, memory.size - std::min(memory.position, memory.size));
}

int32_t memoryOpen(void* descriptor) {
    if (!descriptor || (!stream(descriptor)->data && stream(descriptor)->size > 0))
        return HBOX_ERR_PARAMETER;
    stream(descriptor)->position = 0;
    return HBOX_OK;
}

int32_t memoryClose(void*) {
    return HBOX_OK;
}

int32_t memoryGetPosition(void* descriptor, uint32_t* position) {
    *position = stream(descriptor)->position;
    return HBOX_OK;
}

int32_t memorySetPosition(void* descriptor, uint32_t position) {
    if (position > stream(descriptor)->size)
        return HBOX_ERR_PARAMETER;
    stream(descriptor)->position = position;
    return HBOX_OK;
}

int32_t memoryRead(void* descriptor, void* buffer, uint32_t size, uint32_t* done) {
    HBOX_MEMORY_STREAM& memory = *stream(descriptor);
    *done = clamped(memory, size);
    if (*done > 0)
        std::memcpy(buffer, memory.data + memory.position, *done);
    memory.position += *done;
    return HBOX_OK;
}

int32_t memoryWrite(void* descriptor, void const* buffer, uint32_t size, uint32_t* done) {
    HBOX_MEMORY_STREAM& memory = *stream(descriptor);
    *done = clamped(memory, size);
    if (*done > 0)
        std::memcpy(memory.data + memory.position, buffer, *done);
    memory.position += *done;
    return HBOX_OK;
}

int32_t memorySkip(void* descriptor, uint32_t size) {
    HBOX_MEMORY_STREAM& memory = *stream(descriptor);
    if (clamped(memory, size) != size)
        return HBOX_ERR_PARAMETER;
    memory.position += size;
    return HBOX_OK;
}

int32_t memoryGetSize(void* descriptor, uint32_t* size) {
    *size = stream(descriptor)->size;
    return HBOX_OK;
}

} // namespace

extern "C" int32_t hbox_mfal_memory(HBOX_STREAM_CALLBACKS* callbacks) {
    return hbox::guarded([&] {
        hbox::requireArguments(callbacks);
        *callbacks = {memoryOpen, memoryClose, memoryGetPosition, memorySetPosition,
                      memoryRead, memoryWrite, memorySkip,        memoryGetSize};
    });
}
