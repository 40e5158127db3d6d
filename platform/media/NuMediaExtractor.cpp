// SPDX-License-Identifier: Apache-2.0
// What is the same wherever the tracks come from; setDataSource() is HostDataSource.cpp's or NdkDataSource.cpp's.
#include <media/stagefright/NuMediaExtractor.h>

#include <cerrno>

namespace android {

NuMediaExtractor::NuMediaExtractor(EntryPoint) {}
NuMediaExtractor::~NuMediaExtractor() = default;

size_t NuMediaExtractor::countTracks() const {
    return mTrackFormats.size();
}

status_t NuMediaExtractor::getTrackFormat(size_t index, sp<AMessage>* format, uint32_t) const {
    format->clear();
    if (!mHasSource)
        return BAD_VALUE;
    if (index >= mTrackFormats.size())
        return -ERANGE;
    *format = mTrackFormats[index];
    return OK;
}

} // namespace android
