// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"
#include "MediaFile.h"

#include <cstdint>
#include <memory>

namespace android::lumo {

/// Moves the bytes from `from` to the file's end by `distance`, and with them what points to them: the trailer's
/// pointer to a video. A positive distance opens a gap, which keeps its old bytes until the caller overwrites them; a
/// negative one closes the file over the bytes in front of `from` and cuts it. Memory stays bounded; the file's
/// position moves.
///
/// Refused before the first byte moves: a trailer or a pointer that cannot be read, bytes that cannot be read, a result
/// past 4 GiB or past what the disk has room for. What else in the file names a place behind `from` is the caller's to
/// ask for.
void moveTail(std::shared_ptr<MediaFile> const& file, uint32_t from, int64_t distance, ErrorAt at = ErrorAt());

} // namespace android::lumo
