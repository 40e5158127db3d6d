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

/// A JPEG with these directory entries; `behind` stands behind its picture.
inline std::string published(std::string const& items, std::string const& behind,
                             std::string const& attributes = CLAIMED) {
    return JpegBuilder().exif().xmp(packetOf(attributes, directoryOf(items)), 1500).build("scan data", behind);
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
