// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace android::lumo {

/// Bytes of a file that follow each other, where the file can be addressed with 32 bits. What a box names, which may
/// lie anywhere, is a FileRange (boxes/BoxBounds.h).
struct Stretch {
    uint32_t position = 0;
    uint32_t size = 0;

    uint32_t end() const { return position + size; }
    bool meets(Stretch const& other) const { return position < other.end() && other.position < end(); }
};

} // namespace android::lumo
