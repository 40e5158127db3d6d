// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>

namespace android::lumo {

/// Bytes of a file that follow each other, where the file can be addressed with 32 bits. What a box names, which may
/// lie anywhere, is a FileRange (boxes/BoxBounds.h).
struct Stretch {
    uint32_t position = 0;
    uint32_t size = 0;

    uint32_t end() const { return position + size; }
    bool meets(Stretch const& other) const { return position < other.end() && other.position < end(); }
};

/// Many of them; those that share bytes are one.
class Stretches {
public:
    bool meet(Stretch const& other) const {
        auto const next = starts.upper_bound(other.position);
        return next != starts.end() && next->second < other.end();
    }
    void add(Stretch const& added) {
        uint32_t start = added.position, end = added.end();
        for (auto next = starts.upper_bound(added.position); next != starts.end() && next->second < added.end();
             next = starts.erase(next)) {
            start = std::min(start, next->second);
            end = std::max(end, next->first);
        }
        starts[end] = start;
    }

private:
    std::map<uint32_t, uint32_t> starts; ///< by end
};

} // namespace android::lumo
