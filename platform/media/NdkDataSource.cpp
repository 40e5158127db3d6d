// SPDX-License-Identifier: Apache-2.0
// In an app the tracks are read by the extractor that the NDK offers, once, as the source is set: nothing of the NDK's
// is held afterwards.
#include <media/stagefright/NuMediaExtractor.h>

#include <cerrno>
#include <memory>

#include <media/NdkMediaExtractor.h>
#include <media/NdkMediaFormat.h>
#include <media/stagefright/MediaErrors.h>

namespace android {

namespace {

using Extractor = std::unique_ptr<AMediaExtractor, decltype(&AMediaExtractor_delete)>;
using Format = std::unique_ptr<AMediaFormat, decltype(&AMediaFormat_delete)>;

status_t statusOf(media_status_t status) {
    switch (status) {
    case AMEDIA_OK:
        return OK;
    case AMEDIA_ERROR_IO:
        return -EIO;
    case AMEDIA_ERROR_INVALID_PARAMETER:
        return BAD_VALUE;
    default: // the container's kind, or damage: the NDK does not tell them apart
        return ERROR_UNSUPPORTED;
    }
}

/// Null for a track that does not say what it is.
sp<AMessage> messageOf(AMediaFormat* format) {
    char const* mime = nullptr; // the format's
    if (!AMediaFormat_getString(format, AMEDIAFORMAT_KEY_MIME, &mime) || mime == nullptr)
        return nullptr;
    sp<AMessage> message(new AMessage);
    message->setString("mime", mime);
    int64_t durationUs = 0;
    if (AMediaFormat_getInt64(format, AMEDIAFORMAT_KEY_DURATION, &durationUs) && durationUs > 0)
        message->setInt64("durationUs", durationUs);
    return message;
}

} // namespace

status_t NuMediaExtractor::setDataSource(int fd, off64_t offset, off64_t size) {
    if (mHasSource || offset < 0 || size < 0)
        return BAD_VALUE;
    Extractor const extractor(AMediaExtractor_new(), &AMediaExtractor_delete);
    if (extractor == nullptr)
        return -ENOMEM;
    if (status_t const status = statusOf(AMediaExtractor_setDataSourceFd(extractor.get(), fd, offset, size));
        status != OK)
        return status;
    std::vector<sp<AMessage>> formats;
    for (size_t index = 0; index < AMediaExtractor_getTrackCount(extractor.get()); ++index) {
        Format const format(AMediaExtractor_getTrackFormat(extractor.get(), index), &AMediaFormat_delete);
        sp<AMessage> const message = format != nullptr ? messageOf(format.get()) : nullptr;
        if (message == nullptr)
            return ERROR_UNSUPPORTED;
        formats.push_back(message);
    }
    mTrackFormats = std::move(formats);
    mHasSource = true;
    return OK;
}

} // namespace android
