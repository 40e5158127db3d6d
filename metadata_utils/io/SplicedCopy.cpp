// SPDX-License-Identifier: Apache-2.0
#include "SplicedCopy.h"

#include "CheckedFile.h"

#include <algorithm>

namespace android::lumo {

SplicedCopy::SplicedCopy(std::shared_ptr<MediaFile> const& file) : source(file), sourceSize(file->size()) {}

void SplicedCopy::replace(Stretch const& old, std::string const& bytes) {
    auto& splice = splices[old.position];
    splice.removed += old.size;
    splice.bytes += bytes;
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
    int64_t moved = 0;
    for (auto const& [start, splice] : splices) {
        if (start > position || (start == position && splice.removed > 0))
            break; // what was put in front of the byte, not in place of it, moves it
        auto const put = static_cast<int64_t>(splice.bytes.size());
        if (position - start < splice.removed) {
            moved += std::min<int64_t>(0, put - int64_t{position - start});
            break;
        }
        moved += put - int64_t{splice.removed};
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
