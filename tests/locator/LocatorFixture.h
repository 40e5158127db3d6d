// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionVideo.h"
#include "support/HeicBuilder.h"
#include "support/TrailerBuilder.h"
#include "xmp/XMPFixture.h"

#include <filesystem>

/// Photos of the published formats, a few hundred bytes each, and the real samples where they are.
namespace android::lumo::test {

/// A movie by its boxes; no decoder will play it.
inline std::string clip(size_t mediaSize = 40, std::string const& brand = "mp42") {
    return heicBox("ftyp", brand + bigEndian(0, 4) + brand) + heicBox("mdat", pattern(mediaSize, 9)) +
           heicBox("moov", heicBox("free", ""));
}

inline std::string videoItem(size_t length, std::string const& more = {}) {
    return itemOf("MotionPhoto", "video/mp4", "Item:Length=\"" + std::to_string(length) + "\" " + more);
}

inline std::string const PRIMARY = itemOf("Primary", "image/jpeg");
inline std::string const CLAIMED = R"(Camera:MotionPhoto="1" Camera:MotionPhotoVersion="1" )"
                                   R"(Camera:MotionPhotoPresentationTimestampUs="500000" )";

inline std::string paddingOf(size_t bytes) {
    return "Item:Padding=\"" + std::to_string(bytes) + "\"";
}

/// The properties of the older format.
inline std::string microVideo(std::string const& offset, char const* flag = "1") {
    return std::string("Camera:MicroVideo=\"") + flag + "\" Camera:MicroVideoOffset=\"" + offset +
           "\" Camera:MicroVideoPresentationTimestampUs=\"250\" ";
}

/// The directory's entries as typed nodes: the item itself is the entry.
inline std::string typedNodes(size_t length) {
    return R"(<rdf:li><Container:Item Item:Semantic="Primary" Item:Mime="image/jpeg"/></rdf:li>)"
           R"(<rdf:li><Container:Item Item:Semantic="MotionPhoto" Item:Mime="video/mp4" Item:Length=")" +
           std::to_string(length) + "\"/></rdf:li>";
}

inline std::string const GAIN_MAP = JpegBuilder().build("gain map");

inline std::string gainMapItem(std::string const& more = {}) {
    return itemOf("GainMap", "image/jpeg", "Item:Length=\"" + std::to_string(GAIN_MAP.size()) + "\" " + more);
}

/// A HEIC with these boxes behind its image, and XMP of these items in a room with so much to spare.
inline std::string heicWith(std::string const& tail, std::string const& items = {}, size_t spare = 700) {
    HeicOptions options;
    options.tail = tail;
    if (!items.empty())
        options.xmp = packetOf(CLAIMED, directoryOf(items)) + std::string(spare, ' ');
    return buildHeic(options);
}

/// A JPEG with these directory entries; `behind` stands behind its picture.
inline std::string published(std::string const& items, std::string const& behind,
                             std::string const& attributes = CLAIMED) {
    return JpegBuilder().exif().xmp(packetOf(attributes, directoryOf(items)), 1500).build("scan data", behind);
}

/// A photo of some origin.
struct Form {
    char const* name;
    std::string photo;
    char const* source;
    size_t padding = 0; ///< of the primary, in front of the video
    size_t behind = 0;  ///< bytes behind the video
};

/// Photos of every published origin around one movie.
inline std::vector<Form> forms(std::string const& movie) {
    auto const older = microVideo(std::to_string(movie.size()));
    auto const video = videoItem(movie.size());
    std::string const info = heicBox("free", "cdif debug info");
    auto const heic = [&](bool wide, bool xmp) {
        auto const items =
            itemOf("Primary", "image/heic", paddingOf(wide ? 16 : 8)) + videoItem(movie.size(), paddingOf(info.size()));
        return heicWith(videoBox(movie, wide) + info, xmp ? items : "", wide ? 0 : 700);
    };
    auto const padded = itemOf("Primary", "image/jpeg", paddingOf(4));
    auto const claim = packetOf(CLAIMED, directoryOf(PRIMARY + video)), other = packetOf("dc:source=\"x\"");
    return {
        {"directory", published(PRIMARY + video, movie), "directory"},
        {"both generations", published(PRIMARY + video, movie, CLAIMED + older), "directory"},
        {"older", JpegBuilder().exif().xmp(packetOf(older)).build("scan", movie), "micro-video"},
        {"padding", published(padded + video, std::string(4, '\0') + movie), "directory", 4},
        {"others' bytes called padding",
         published(padded + videoItem(movie.size(), paddingOf(4)), "mine" + movie + "your"), "directory", 0, 4},
        {"gain map in front", published(PRIMARY + gainMapItem(paddingOf(3)) + video, GAIN_MAP + "pad" + movie),
         "directory"},
        {"gain map behind", published(PRIMARY + video + gainMapItem(), movie + GAIN_MAP), "directory", 0,
         GAIN_MAP.size()},
        {"two packets", JpegBuilder().exif().xmp(claim, 1500).xmp(other).build("scan", movie), "directory"},
        {"typed nodes", published(typedNodes(movie.size()), movie), "directory"},
        {"box", heic(false, true), "box", 0, info.size()},
        {"wide box", heic(true, true), "box", 0, info.size()},
        {"box without XMP", heic(false, false), "box", 0, info.size()},
    };
}

inline MotionVideo locate(std::string const& bytes) {
    return MotionVideo::locate(TempFile(bytes).open("r"));
}

/// "source status position+size" for tables; damage with its reason.
inline std::string textOf(MotionVideo const& video) {
    std::string const text = std::string(MotionVideo::nameOf(video.source)) + " " + MotionVideo::nameOf(video.status);
    return video.isSound() ? text + " " + std::to_string(video.position) + "+" + std::to_string(video.size)
                           : text + (video.reason.empty() ? "" : ": " + video.reason);
}

} // namespace android::lumo::test
