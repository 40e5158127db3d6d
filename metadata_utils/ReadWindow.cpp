// SPDX-License-Identifier: Apache-2.0
#include "ReadWindow.h"

#include "CheckedFile.h"

namespace android::lumo {

std::span<uint8_t const> ReadWindow::at(uint32_t position, uint32_t n, bool isSoonFollowed, ErrorAt at) {
    uint64_t const end = uint64_t{position} + n;
    if (position < start || end > uint64_t{start} + bytes.size()) {
        start = position;
        if (!isSoonFollowed || n >= SIZE) {
            auto const exact = checked::readAt(file, position, n, at);
            bytes.assign(exact.data(), exact.data() + n);
        } else {
            bytes.resize(SIZE);
            bytes.resize(checked::readUpTo(file, position, bytes.data(), bytes.size(), at));
            if (bytes.size() < n)
                throw at.as(Error::Code::DAMAGED)("fail to read bytes: %zu, expected %zu", bytes.size(), size_t{n});
        }
    }
    return std::span<uint8_t const>(bytes).subspan(position - start, n);
}

} // namespace android::lumo
