// SPDX-License-Identifier: Apache-2.0
#include "VideoSource.h"

#include "CheckedFile.h"
#include "Log.h"
#include "MemoryFile.h"
#include "MotionPhotoInfoImpl.h"

#include <exception>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";

} // namespace

std::optional<int64_t> VideoSource::durationUs() const {
    try {
        if (getFile() != nullptr)
            return videoDurationUs(*getFile(), getPosition(), size());
        ByteBuffer const bytes = load();
        return videoDurationUs(*memoryFile(bytes.data(), bytes.size()), 0, size()); // the extractor reads files
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGW("fail to get the video's duration: %s", e.what());
        return std::nullopt;
    }
}

} // namespace android::lumo
