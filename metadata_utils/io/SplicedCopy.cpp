// SPDX-License-Identifier: Apache-2.0
#include "SplicedCopy.h"

#include "CheckedFile.h"

#include <algorithm>
#include <iterator>

namespace android::lumo {

SplicedCopy::SplicedCopy(std::shared_ptr<MediaFile> const& file) : source(file), sourceSize(file->size()) {}

void SplicedCopy::replace(Stretch const& old, std::string const& bytes) {
    auto const place = splices.try_emplace(old.position).first;
    place->second.removed += old.size;
    place->second.bytes += bytes;
    int64_t moved = place == splices.begin() ? 0 : std::prev(place)->second.moved;
    for (auto each = place; each != splices.end(); ++each)
        each->second.moved = moved += growthOf(each->second);
}

bool SplicedCopy::touches(Stretch const& stretch) const {
    return std::any_of(splices.begin(), splices.end(), [&](auto const& each) {
        return stretch.meets({each.first, each.second.removed});
    });
}

uint32_t SplicedCopy::size() const {
    return newPlace(sourceSize);
}

uint32_t SplicedCopy::newPlace(uint32_t position) const {
    auto last = splices.upper_bound(position); // behind the last one in front of the byte or in place of it
    if (last != splices.begin() && std::prev(last)->first == position && std::prev(last)->second.removed > 0)
        --last; // what was put in front of the byte, not in place of it, moves it
    int64_t moved = 0;
    if (last != splices.begin()) {
        auto const& [start, splice] = *--last;
        moved = splice.moved;
        if (uint32_t const inside = position - start; inside < splice.removed)
            moved += std::min<int64_t>(0, static_cast<int64_t>(splice.bytes.size()) - inside) - growthOf(splice);
    }
    return checked::sizeOf(static_cast<uint64_t>(int64_t{position} + moved));
}

void SplicedCopy::writeTo(std::shared_ptr<MediaFile> const& target, ErrorAt at) const {
    uint32_t const total = size();
    checked::requireSpace(*target, total, at);
    checked::seek(*target, 0, at);
    uint32_t from = 0;
    auto const copyUpTo = [&](uint32_t end) {
        if (end > from)
            checked::copy(source, target, from, end - from, at);
    };
    for (auto const& [start, splice] : splices) {
        copyUpTo(start);
        if (!splice.bytes.empty())
            checked::write(*target, splice.bytes, at);
        from = start + splice.removed;
    }
    copyUpTo(sourceSize);
    checked::truncate(*target, total, at);
}

} // namespace android::lumo
