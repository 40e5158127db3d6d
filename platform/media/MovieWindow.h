// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include <sys/types.h>

namespace android::media {

/// A read that the system refused.
struct ReadFailure {
    int error; ///< errno
};

/// A range of an open file, read in pieces of at most `PIECE` bytes: a movie's headers lie close together, so that most
/// of them come out of the piece at hand. Reads with explicit positions: the descriptor's own never moves.
class MovieWindow {
public:
    static constexpr size_t PIECE = 4096;

    MovieWindow(int descriptor, off64_t start, uint64_t length) : fd(descriptor), offset(start), size(length) {}

    uint64_t length() const { return size; }

    /// The `count` (at most `PIECE`) bytes at `from`, counted from the window's start; valid until the next call. Fewer
    /// where the window, or a file that was cut meanwhile, ends before. Throws ReadFailure.
    std::span<uint8_t const> read(uint64_t from, size_t count);

private:
    void fetch(uint64_t from);

    int const fd;
    off64_t const offset;
    uint64_t const size;
    std::array<uint8_t, PIECE> piece{};
    uint64_t pieceFrom = 0;
    size_t pieceSize = 0;
};

} // namespace android::media
