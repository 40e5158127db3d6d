// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"
#include "SplicedCopy.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace android::lumo::heif {

/// A HEIC's image part written anew, in memory but for what is the source's unchanged: there only headers of boxes are.
struct ImagePart {
    /// The source's bytes from `source` on stand at `position`.
    struct Unchanged {
        uint32_t position = 0;
        uint32_t source = 0;
        uint32_t length = 0;
    };

    /// Not zeroed: what is not written stays in the source.
    explicit ImagePart(uint32_t capacity) : bytes(new uint8_t[capacity]), size(capacity) {}

    std::span<uint8_t const> span() const { return {bytes.get(), size}; }
    /// At the file's position. `source` is the source's copy in memory: the file may be the source itself.
    void write(MediaFile& file, std::span<uint8_t const> source) const;
    /// In a copy of the source it stands in place of the old image part.
    void putInto(SplicedCopy& copy, uint32_t oldSize) const;

    std::unique_ptr<uint8_t[]> bytes;
    uint32_t size;
    std::vector<Unchanged> unchanged; ///< in order
};

} // namespace android::lumo::heif
