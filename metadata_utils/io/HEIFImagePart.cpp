// SPDX-License-Identifier: Apache-2.0
#include "HEIFImagePart.h"

#include "CheckedFile.h"

namespace android::lumo::heif {

void ImagePart::write(MediaFile& file, std::span<uint8_t const> source) const {
    uint32_t done = 0;
    for (auto const& range : unchanged) {
        checked::write(file, bytes.get() + done, range.position - done);
        checked::write(file, source.subspan(range.source, range.length).data(), range.length);
        done = range.position + range.length;
    }
    checked::write(file, bytes.get() + done, size - done);
}

void ImagePart::putInto(SplicedCopy& copy, uint32_t oldSize) const {
    uint32_t done = 0, taken = 0;
    auto const putUpTo = [&](uint32_t position, uint32_t source) {
        copy.replace({taken, source - taken}, {bytes.get() + done, bytes.get() + position});
    };
    for (auto const& range : unchanged) {
        putUpTo(range.position, range.source);
        done = range.position + range.length;
        taken = range.source + range.length;
    }
    putUpTo(size, oldSize);
}

} // namespace android::lumo::heif
