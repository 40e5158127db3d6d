#include "TrackFormat.h"

#include <algorithm>
#include <iterator>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

namespace android::media {
namespace {

struct PlatformName {
    AVCodecID codec;
    char const* mime;
};

constexpr PlatformName kPlatformNames[] = {
    {AV_CODEC_ID_H264, "video/avc"},
    {AV_CODEC_ID_HEVC, "video/hevc"},
    {AV_CODEC_ID_AV1, "video/av01"},
    {AV_CODEC_ID_VP8, "video/x-vnd.on2.vp8"},
    {AV_CODEC_ID_VP9, "video/x-vnd.on2.vp9"},
    {AV_CODEC_ID_MPEG4, "video/mp4v-es"},
    {AV_CODEC_ID_H263, "video/3gpp"},
    {AV_CODEC_ID_MPEG1VIDEO, "video/mpeg2"}, // the platform's decoder of the one reads the other
    {AV_CODEC_ID_MPEG2VIDEO, "video/mpeg2"},
    {AV_CODEC_ID_MJPEG, "video/mjpeg"},
    {AV_CODEC_ID_RAWVIDEO, "video/raw"},
    {AV_CODEC_ID_AAC, "audio/mp4a-latm"},
    {AV_CODEC_ID_AMR_NB, "audio/3gpp"},
    {AV_CODEC_ID_AMR_WB, "audio/amr-wb"},
    {AV_CODEC_ID_MP3, "audio/mpeg"},
    {AV_CODEC_ID_MP2, "audio/mpeg-L2"},
    {AV_CODEC_ID_MP1, "audio/mpeg-L1"},
    {AV_CODEC_ID_OPUS, "audio/opus"},
    {AV_CODEC_ID_VORBIS, "audio/vorbis"},
    {AV_CODEC_ID_FLAC, "audio/flac"},
    {AV_CODEC_ID_ALAC, "audio/alac"},
    {AV_CODEC_ID_AC3, "audio/ac3"},
    {AV_CODEC_ID_EAC3, "audio/eac3"},
    {AV_CODEC_ID_PCM_ALAW, "audio/g711-alaw"},
    {AV_CODEC_ID_PCM_MULAW, "audio/g711-mlaw"},
    {AV_CODEC_ID_MOV_TEXT, "text/3gpp-tt"},
};

std::string mimeOf(AVCodecParameters const& codec) {
    auto const* const known = std::ranges::find(kPlatformNames, codec.codec_id, &PlatformName::codec);
    if (known != std::end(kPlatformNames))
        return known->mime;

    std::string const name = codec.codec_id == AV_CODEC_ID_NONE ? "x-unknown" : avcodec_get_name(codec.codec_id);
    switch (codec.codec_type) {
    case AVMEDIA_TYPE_VIDEO:
        return "video/" + name;
    case AVMEDIA_TYPE_AUDIO:
        return name.starts_with("pcm_") ? "audio/raw" : "audio/" + name;
    case AVMEDIA_TYPE_SUBTITLE:
        return "text/" + name;
    default:
        return "application/octet-stream";
    }
}

/// The track's own duration in µs, or the whole file's, or 0 when neither is told.
int64_t durationUsOf(AVFormatContext const& file, AVStream const& stream) {
    // A media header says "unknown" with all bits set: as 32 bits in its short form, -1 in its long form.
    bool const told = stream.duration > 0 && stream.duration != UINT32_MAX;
    int64_t const ownUs = told ? av_rescale_q(stream.duration, stream.time_base, AV_TIME_BASE_Q) : 0;
    return ownUs > 0 ? ownUs : std::max<int64_t>(file.duration, 0);
}

} // namespace

sp<AMessage> describeTrack(AVFormatContext const& file, AVStream const& stream) {
    sp<AMessage> format(new AMessage);
    format->setString("mime", mimeOf(*stream.codecpar).c_str());
    if (int64_t const durationUs = durationUsOf(file, stream); durationUs > 0)
        format->setInt64("durationUs", durationUs);
    return format;
}

} // namespace android::media
