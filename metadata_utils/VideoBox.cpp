// SPDX-License-Identifier: Apache-2.0
#include "VideoBox.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "boxes/BoxWriter.h"
#include "io/MoveTail.h"
#include "io/TrailingBoxes.h"

namespace android::lumo::video_box {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";

std::vector<uint8_t> header(uint32_t videoSize) {
    boxes::BoxWriter bytes;
    bytes.number(checked::sizeOf(uint64_t{videoSize} + HEADER_SIZE), 4);
    bytes.number(VIDEO_BOX, 4);
    return bytes.finish();
}

} // namespace

uint64_t sizeFor(VideoSource const& video) {
    return uint64_t{HEADER_SIZE} + video.size();
}

uint64_t totalSize(std::shared_ptr<MediaFile> const& file) {
    uint64_t total = 0;
    for (auto const& box : heif::TrailingBoxes(file).videos())
        total += box.size;
    return total;
}

bool takeOut(std::shared_ptr<MediaFile> const& file) {
    return heif::TrailingBoxes(file).takeVideosOut();
}

void requireMovable(std::shared_ptr<MediaFile> const& file, uint32_t trailerStart) {
    heif::TrailingBoxes(file).requireVideosCanGo(trailerStart);
}

/// The room comes first, so that the boxes add up to the file at every step.
uint32_t write(std::shared_ptr<MediaFile> const& file, uint32_t position, VideoSource const& video) {
    heif::TrailingBoxes trailing(file);
    trailing.requireNoItemBehind(position);
    trailing.closeLast();
    uint32_t const size = checked::sizeOf(sizeFor(video));
    uint32_t const end = checked::sizeOf(uint64_t{position} + size);
    if (position == file->size())
        checked::reserve(*file, end);
    else
        moveTail(file, position, size);
    try {
        checked::seek(*file, position, ErrorAt(661, "metadata_utils/MotionPhotoEditImpl"));
        checked::write(*file, header(video.size()).data(), HEADER_SIZE);
        video.copyTo(file);
    } catch (...) {
        try {
            moveTail(file, end, -int64_t{size});
        } catch (std::exception const& e) {
            LOGE("fail to take an unfinished video box out: %s", e.what());
        }
        throw;
    }
    LOGI("write video on %zu for %zu", size_t{position + HEADER_SIZE}, size_t{video.size()});
    return position + HEADER_SIZE;
}

} // namespace android::lumo::video_box
