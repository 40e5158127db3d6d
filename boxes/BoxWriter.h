// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "BoxBounds.h"

namespace android::lumo::boxes {

/// Builds box bytes in memory: big-endian fields and boxes whose size is filled in when they end.
class BoxWriter {
public:
    void number(uint64_t value, unsigned width) {
        bytes.resize(bytes.size() + width);
        putBigEndian(value, std::span(bytes).last(width));
    }
    void reserve(size_t size) { bytes.reserve(size); }
    size_t size() const { return bytes.size(); }
    void append(std::span<uint8_t const> source) { bytes.insert(bytes.end(), source.begin(), source.end()); }

    /// Starts a box and returns its place for endBox.
    size_t beginBox(BoxType type) {
        size_t const start = bytes.size();
        number(0, 4); // unsigned int(32) size; // see endBox
        number(type, 4);
        return start;
    }
    size_t beginFullBox(BoxType type, FullBoxHeader const& header) {
        size_t const start = beginBox(type);
        number(header.version, 1);
        number(header.flags, 3);
        return start;
    }
    /// The sources' sizes have 32 bits and an edit adds less than the checks of the finished length leave.
    void endBox(size_t start) { putBigEndian(bytes.size() - start, std::span(bytes).subspan(start, 4)); }

    std::vector<uint8_t> finish() { return std::move(bytes); }

private:
    std::vector<uint8_t> bytes;
};

} // namespace android::lumo::boxes
