// SPDX-License-Identifier: Apache-2.0
#include "MovieWindow.h"

#include <algorithm>
#include <cerrno>

#include <unistd.h>

namespace android::media {

std::span<uint8_t const> MovieWindow::read(uint64_t from, size_t count) {
    if (from >= size)
        return {};
    count = static_cast<size_t>(std::min<uint64_t>({count, PIECE, size - from}));
    if (from < pieceFrom || from - pieceFrom > pieceSize || count > pieceSize - (from - pieceFrom))
        fetch(from);
    auto const rest = std::span<uint8_t const>(piece).first(pieceSize).subspan(static_cast<size_t>(from - pieceFrom));
    return rest.first(std::min(count, rest.size()));
}

void MovieWindow::fetch(uint64_t from) {
    pieceFrom = from;
    pieceSize = 0;
    size_t const wanted = static_cast<size_t>(std::min<uint64_t>(PIECE, size - from));
    while (pieceSize < wanted) {
        auto const at = offset + static_cast<off64_t>(from + pieceSize);
        ssize_t const got = pread64(fd, piece.data() + pieceSize, wanted - pieceSize, at);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw ReadFailure{errno};
        if (got == 0)
            break;
        pieceSize += static_cast<size_t>(got);
    }
}

} // namespace android::media
