// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"

#include <algorithm>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace android::lumo {

/// When a container reader scans its file.
enum class ParseMode : int32_t {
    EAGER = 0, ///< when it is made; a failed scan fails the construction
    LAZY = 1,  ///< on the first request for a block, and again as long as nothing was found
};

/// The library's shared vocabulary: file types, kinds of metadata blocks, motion-photo formats, and their texts.
class METADATA_UTILS_EXPORT MediaDefs {
public:
    /// What a file, or a track in it, is; mimeString() has the texts.
    enum class MimeType : int32_t {
        NONE = 0,
        IMAGE_JPEG = 1,
        IMAGE_HEIC = 2,
        IMAGE_AVIF = 3,
        AUDIO_MP4A_LATM = 4,
        VIDEO_AVC = 5,
        VIDEO_HEVC = 6,
        VIDEO_MP4 = 7,
        VIDEO_QUICKTIME = 8,
    };

    /// What a block found in a container is.
    enum class MetaType : int32_t {
        NONE = 0,
        XMP = 1,
        EXIF = 2,
        QRT = 3,  ///< the trailer of typed records
        CDIF = 4, ///< camera debug info
    };

    /// How a motion photo stores its video; the text is the content of the trailer's version record.
    enum class MotionPhotoFormat : int32_t { NONE = 0, MPV1 = 1, MPV2 = 2, MPV3 = 3, MPV4 = 4 };

    /// "image/jpeg" and so on, "none" for NONE. A value outside the enumeration throws "unknown mime type: %d".
    static std::string mimeString(MimeType type);
    /// The type whose mimeString is exactly `text`; NONE when there is none.
    static MimeType mimeTypeOf(std::string const& text);
    /// "mpv1" to "mpv4", empty for NONE. Another value throws "unknown motionPhotoFormat: %d".
    static std::string motionphotoFormatString(MotionPhotoFormat format);
    /// The printed name of a kind of block: "none", "xmp", "exif", "qrt", "cdif"; another value throws "unknown meta
    /// type: %d".
    static std::string metaTypeString(MetaType type);

    /// The keys of `map`, ordered by `compare` over the map's (key, value) entries.
    template<class Map, class Compare>
    static std::list<typename Map::key_type> getKeys(Map const& map, Compare compare) {
        std::vector<typename Map::const_pointer> entries;
        entries.reserve(map.size());
        for (auto const& entry : map)
            entries.push_back(&entry);
        std::sort(entries.begin(), entries.end(), [&](auto const* a, auto const* b) { return compare(*a, *b); });
        std::list<typename Map::key_type> keys;
        for (auto const* entry : entries)
            keys.push_back(entry->first);
        return keys;
    }
};

} // namespace android::lumo
