// SPDX-License-Identifier: Apache-2.0
#include "CodecNames.h"

#include "boxes/BoxBounds.h"

#include <iterator>
#include <string_view>

namespace android::media {
namespace {

using lumo::bigEndianNumber;
using lumo::boxType;

enum class Kind { Video, Audio, Text };

struct CodecName {
    Kind kind;
    char const* mime;
    std::string_view entries; ///< codes of four characters, one behind the other
};

using namespace std::string_view_literals;

/// QuickTime uses some codes twice ("raw " is a picture and a sound), which the track's handler tells apart.
constexpr CodecName kCodecs[] = {
    {Kind::Video, "video/avc", "avc1avc2avc3avc4"sv},
    {Kind::Video, "video/hevc", "hvc1hev1hvc2hev2"sv},
    {Kind::Video, "video/vvc", "vvc1vvi1"sv},
    {Kind::Video, "video/av01", "av01"sv},
    {Kind::Video, "video/apv", "apv1"sv},
    {Kind::Video, "video/dolby-vision", "dvh1dvhedva1dvavdav1"sv},
    {Kind::Video, "video/x-vnd.on2.vp8", "vp08"sv},
    {Kind::Video, "video/x-vnd.on2.vp9", "vp09"sv},
    {Kind::Video, "video/mp4v-es", "mp4v"sv},
    {Kind::Video, "video/3gpp", "s263h263H263"sv},
    {Kind::Video, "video/mpeg2", "m1v1mp1vmpegm2v1mp2v"sv}, // the platform's decoder of MPEG-2 reads MPEG-1
    {Kind::Video, "video/x-motion-jpeg", "jpegmjpamjpbmjpgMJPG"sv},
    {Kind::Video, "video/raw", "raw yuv22vuyyuvsv210I420uncv"sv},
    {Kind::Video, "video/prores", "apcoapcsapcnapchap4hap4x"sv}, // no name of the platform's own
    {Kind::Audio, "audio/mp4a-latm", "mp4a"sv},
    {Kind::Audio, "audio/mpeg", ".mp3mp3 ms\0\x55"sv},
    {Kind::Audio, "audio/mpeg-L2", ".mp2"sv},
    {Kind::Audio, "audio/3gpp", "samr"sv},
    {Kind::Audio, "audio/amr-wb", "sawb"sv},
    {Kind::Audio, "audio/ac3", "ac-3"sv},
    {Kind::Audio, "audio/eac3", "ec-3"sv},
    {Kind::Audio, "audio/ac4", "ac-4"sv},
    {Kind::Audio, "audio/opus", "Opus"sv},
    {Kind::Audio, "audio/flac", "fLaC"sv},
    {Kind::Audio, "audio/alac", "alac"sv},
    {Kind::Audio, "audio/mha1", "mha1mha2"sv},
    {Kind::Audio, "audio/mhm1", "mhm1mhm2"sv},
    {Kind::Audio, "audio/vnd.dts", "dtsc"sv},
    {Kind::Audio, "audio/vnd.dts.hd", "dtshdtsldtse"sv},
    {Kind::Audio, "audio/vnd.dts.uhd", "dtsxdtsy"sv},
    {Kind::Audio, "audio/qcelp", "sqcpQclp"sv},
    {Kind::Audio, "audio/g711-alaw", "alaw"sv},
    {Kind::Audio, "audio/g711-mlaw", "ulaw"sv},
    {Kind::Audio, "audio/raw", "sowttwoslpcmipcmfpcmin24in32fl32fl64raw NONE"sv},
    {Kind::Text, "text/3gpp-tt", "tx3gtext"sv},
    {Kind::Text, "text/vtt", "wvtt"sv},
    {Kind::Text, "text/cea-608", "c608"sv},
    {Kind::Text, "text/cea-708", "c708"sv},
    {Kind::Text, "application/ttml+xml", "stpp"sv},
};

constexpr bool names(CodecName const& codec, uint32_t entry) {
    for (size_t i = 0; i + 4 <= codec.entries.size(); i += 4) {
        if (bigEndianNumber(codec.entries.substr(i, 4)) == entry)
            return true;
    }
    return false;
}

} // namespace

char const* mimeOf(uint32_t handler, uint32_t entry) {
    bool const isVideo = handler == boxType("vide");
    bool const isAudio = handler == boxType("soun");
    for (CodecName const& codec : kCodecs) {
        bool const contradicts = (isVideo && codec.kind == Kind::Audio) || (isAudio && codec.kind == Kind::Video);
        if (!contradicts && names(codec, entry))
            return codec.mime;
    }
    if (isVideo)
        return "video/x-unknown";
    if (isAudio)
        return "audio/x-unknown";
    for (uint32_t const text : {boxType("text"), boxType("sbtl"), boxType("subt"), boxType("subp"), boxType("clcp")}) {
        if (handler == text)
            return "text/x-unknown";
    }
    return "application/octet-stream";
}

char const* mimeOfObjectType(uint8_t objectType) {
    switch (objectType) {
    case 0x20:
        return "video/mp4v-es";
    case 0x21:
        return "video/avc";
    case 0x23:
        return "video/hevc";
    case 0x40: // AAC, and its MPEG-2 profiles
    case 0x66:
    case 0x67:
    case 0x68:
        return "audio/mp4a-latm";
    case 0x60: // MPEG-2 profiles, and MPEG-1
    case 0x61:
    case 0x62:
    case 0x63:
    case 0x64:
    case 0x65:
    case 0x6A:
        return "video/mpeg2";
    case 0x69: // layer 3 with MPEG-2's lower sampling rates
    case 0x6B:
        return "audio/mpeg";
    case 0x6C:
        return "video/x-motion-jpeg";
    case 0xA5:
        return "audio/ac3";
    case 0xA6:
        return "audio/eac3";
    case 0xA9:
        return "audio/vnd.dts";
    case 0xAD:
        return "audio/opus";
    case 0xDD:
        return "audio/vorbis";
    case 0xE1:
        return "audio/qcelp";
    default:
        return nullptr;
    }
}

} // namespace android::media
