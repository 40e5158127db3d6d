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

    /// Not zeroed, so that what is not written takes no memory.
    explicit ImagePart(uint32_t capacity) : bytes(new uint8_t[capacity]), size(capacity) {}

    std::span<uint8_t const> span() const { return {bytes.get(), size}; }
    /// Throws when the source does not give what is unchanged.
    void requireReadable(MediaFile const& source) const;
    /// Takes it into memory.
    void load(MediaFile const& source);
    /// Over the source itself, which is not changed yet, from the file's position on, which is its start. What is
    /// written over is read just before.
    void writeOver(MediaFile& file) const;
    /// In a copy of the source it stands in place of the old image part.
    void putInto(SplicedCopy& copy, uint32_t oldSize) const;

    std::unique_ptr<uint8_t[]> bytes;
    uint32_t size;
    std::vector<Unchanged> unchanged;        ///< in the order of both
    uint32_t roomPosition = 0, roomSize = 0; ///< for XMP, where a reader finds it
};

} // namespace android::lumo::heif
