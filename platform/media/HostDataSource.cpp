// SPDX-License-Identifier: Apache-2.0
// On the host the tracks are read by a reader of our own.
#include <media/stagefright/NuMediaExtractor.h>

#include "MovieReader.h"
#include "boxes/BoxBounds.h"

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>

#include <media/stagefright/MediaErrors.h>

namespace android {

status_t NuMediaExtractor::setDataSource(int fd, off64_t offset, off64_t size) {
    struct stat64 info = {};
    if (mHasSource || offset < 0 || size < 0)
        return BAD_VALUE;
    if (fstat64(fd, &info) != 0)
        return -errno;
    if (!S_ISREG(info.st_mode) || offset > info.st_size)
        return BAD_VALUE;

    media::MovieWindow window(fd, offset, static_cast<uint64_t>(std::min<off64_t>(size, info.st_size - offset)));
    try {
        for (media::Track const& track : media::readTracks(window)) {
            sp<AMessage> format(new AMessage);
            format->setString("mime", track.mime.c_str());
            if (track.durationUs > 0)
                format->setInt64("durationUs", track.durationUs);
            mTrackFormats.push_back(format);
        }
    } catch (media::ReadFailure const& e) {
        return -e.error;
    } catch (lumo::BoxError const&) {
        return ERROR_UNSUPPORTED;
    }
    mHasSource = true;
    return OK;
}

} // namespace android
