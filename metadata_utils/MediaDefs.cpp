// SPDX-License-Identifier: Apache-2.0
#include "MediaDefs.h"

#include "ErrorAt.h"

namespace android::lumo {

namespace {

struct MimeName {
    MediaDefs::MimeType type;
    char const* text;
};

constexpr MimeName MIME_NAMES[] = {
    {MediaDefs::MimeType::NONE, "none"},
    {MediaDefs::MimeType::IMAGE_JPEG, "image/jpeg"},
    {MediaDefs::MimeType::IMAGE_HEIC, "image/heic"},
    {MediaDefs::MimeType::IMAGE_AVIF, "image/avif"},
    {MediaDefs::MimeType::AUDIO_MP4A_LATM, "audio/mp4a-latm"},
    {MediaDefs::MimeType::VIDEO_AVC, "video/avc"},
    {MediaDefs::MimeType::VIDEO_HEVC, "video/hevc"},
    {MediaDefs::MimeType::VIDEO_MP4, "video/mp4"},
    {MediaDefs::MimeType::VIDEO_QUICKTIME, "video/quicktime"},
};

constexpr int UNKNOWN_FORMAT_LINE = 223;

/// The class is named by its header wherever it reports an error.
ErrorAt error(int line = __builtin_LINE()) {
    return ErrorAt(line, "metadata_utils/include/MediaDefs");
}

} // namespace

std::string MediaDefs::mimeString(MimeType type) {
    for (auto const& name : MIME_NAMES)
        if (name.type == type)
            return name.text;
    throw error()("unknown mime type: %d", static_cast<int>(type));
}

MediaDefs::MimeType MediaDefs::mimeTypeOf(std::string const& text) {
    for (auto const& name : MIME_NAMES)
        if (text == name.text)
            return name.type;
    return MimeType::NONE;
}

std::string MediaDefs::motionphotoFormatString(MotionPhotoFormat format) {
    switch (format) {
    case MotionPhotoFormat::NONE:
        return "";
    case MotionPhotoFormat::MPV1:
        return "mpv1";
    case MotionPhotoFormat::MPV2:
        return "mpv2";
    case MotionPhotoFormat::MPV3:
        return "mpv3";
    case MotionPhotoFormat::MPV4:
        return "mpv4";
    }
    throw error(UNKNOWN_FORMAT_LINE)("unknown motionPhotoFormat: %d", static_cast<int>(format));
}

std::string MediaDefs::metaTypeString(MetaType type) {
    switch (type) {
    case MetaType::NONE:
        return "none";
    case MetaType::XMP:
        return "xmp";
    case MetaType::EXIF:
        return "exif";
    case MetaType::QRT:
        return "qrt";
    case MetaType::CDIF:
        return "cdif";
    }
    throw error()("unknown meta type: %d", static_cast<int>(type));
}

} // namespace android::lumo
