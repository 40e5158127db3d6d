// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteSource.h"
#include "MediaFile.h"

#include <cstdint>
#include <memory>

/// The video of a HEIC: a top-level box 'mpvd' behind the image, and a trailer record that points to its content.
///
///     offset  width  field
///     0       4      box size, big-endian: 8 + n
///     4       4      "mpvd"
///     8       n      the video
///
/// A 16-byte header (size 1, then a 64-bit size) is read as well; 8 bytes are written. Behind the image are written
/// debug info, video box, trailer box. A trailer box stays whole while others move: it moves with the bytes behind
/// them.
namespace android::lumo::video_box {

inline constexpr uint32_t HEADER_SIZE = 8;

/// Bytes of the box that a video gets, and of all video boxes behind the image.
uint64_t sizeFor(VideoSource const& video);
uint64_t totalSize(std::shared_ptr<MediaFile> const& file);

/// Throws when an item of the image has bytes in or behind what a change of the video moves.
void requireMovable(std::shared_ptr<MediaFile> const& file, uint32_t trailerStart);
/// Takes every video box out; what stands behind moves up. False when there was none.
bool takeOut(std::shared_ptr<MediaFile> const& file);
/// Opens room at `position`, in front of what stands there, and writes the box. One that cannot be finished is taken
/// out again. Returns where the video begins.
uint32_t write(std::shared_ptr<MediaFile> const& file, uint32_t position, VideoSource const& video);

} // namespace android::lumo::video_box
