// SPDX-License-Identifier: Apache-2.0
#include "VideoSource.h"

#include "CheckedFile.h"
#include "Log.h"
#include "MotionPhotoInfoImpl.h"

#include <exception>

#include <sys/mman.h>
#include <unistd.h>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";

/// A file in memory for the extractor to read a video that is not on disk. Throws where the system has none.
std::shared_ptr<MediaFile> memoryFile(ByteBuffer const& bytes) {
    int const fd = memfd_create("video", MFD_CLOEXEC);
    if (fd <= 0)
        throw ErrorAt()("no memory file for the video");
    auto const file = std::make_shared<MediaFile>(fd); // has a descriptor of its own
    close(fd);
    checked::write(*file, bytes);
    return file;
}

} // namespace

std::optional<int64_t> VideoSource::durationUs() const {
    try {
        if (getFile() != nullptr)
            return videoDurationUs(*getFile(), getPosition(), size());
        return videoDurationUs(*memoryFile(load()), 0, size());
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGW("fail to get the video's duration: %s", e.what());
        return std::nullopt;
    }
}

} // namespace android::lumo
