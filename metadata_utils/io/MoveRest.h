// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"
#include "MediaFile.h"
#include "VideoPointer.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace android::lumo {

/// Keeps the pointer of a file right while a container writer moves bytes: made before the move, told what moved after
/// it.
///
/// The pointer's place is remembered from the file's end, because every edit of a container leaves the trailer there.
class VideoPointerKeeper {
public:
    /// Looks for a trailer record 2608 of the short form; a file without one (or with a damaged trailer) needs
    /// nothing; one that cannot be read throws.
    explicit VideoPointerKeeper(std::shared_ptr<MediaFile> const& file);

    /// The bytes from `from` on have moved by `distance` (negative: towards the start): a pointer to one of them is
    /// rewritten in the file. May be called once for each move.
    void moved(uint32_t from, int64_t distance);

private:
    std::shared_ptr<MediaFile> file;
    std::optional<VideoPointer> pointer;
    uint32_t distanceFromEnd = 0;
};

/// Moves the bytes from `from` to the file's end by `distance`, and with them what points to them: the trailer's
/// pointer to a video. A positive distance opens a gap, which keeps its old bytes until the caller overwrites them; a
/// negative one closes the file over the bytes in front of `from` and cuts it. Memory stays bounded; the file's
/// position moves.
///
/// Refused before the first byte moves: a trailer or a pointer that cannot be read, bytes that cannot be read, a result
/// past 4 GiB or past what the disk has room for. What else in the file names a place behind `from` is the caller's to
/// ask for.
void moveRest(std::shared_ptr<MediaFile> const& file, uint32_t from, int64_t distance, ErrorAt at = ErrorAt());

} // namespace android::lumo
