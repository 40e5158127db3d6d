// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoEdit.h"
#include "support/HeicBuilder.h"
#include "support/TrailerBuilder.h"
#include "xmp/XMPFixture.h"

/// What motion photo tests start from, and what must hold of every motion photo.
namespace android::lumo::test {

inline constexpr char TIFF[] = "http://ns.adobe.com/tiff/1.0/";

inline std::string sample(char const* name) {
    return bytesOf(std::string(SAMPLES_DIR) + "/" + name);
}

/// A video that the library recognises and no decoder will play, of any size.
inline std::string fakeVideo(size_t size, uint32_t seed = 7) {
    return bigEndian(12, 4) + "ftypmp42" + pattern(size - 12, seed);
}

inline TrailerRecord videoRecord(std::string const& data) {
    return {2608, "MotionPhoto_Data", data};
}

inline std::string pointerTo(size_t position, size_t size) {
    return "mpv2" + bigEndian(position, 4) + bigEndian(size, 4);
}

inline ByteBuffer filler(size_t size, uint8_t value) {
    return ByteBuffer(std::vector<uint8_t>(size, value));
}

inline std::shared_ptr<MotionPhotoInfo> parsePhoto(std::string const& path, std::string const& mode = "rw") {
    return MotionPhotoInfo::parse(test::open(path, mode));
}

using Edit = std::function<void(MotionPhotoEdit&)>;

inline void commit(TempFile const& file, Edit const& stage) {
    auto const edit = parsePhoto(file.path())->edit();
    stage(*edit);
    edit->commit();
}

/// "type name size;" for each record.
inline std::string trailerOf(std::string const& file) {
    if (!file.ends_with("QRTT"))
        return "none";
    std::string text;
    for (auto const& record : readTrailer(file).records)
        text += std::to_string(record.type) + ' ' + record.name + ' ' + std::to_string(record.data.size()) + ';';
    return text;
}

/// Type and size of every top-level box of a HEIC, "(damaged)" when they do not add up to the file.
inline std::string boxesOf(std::string const& file) {
    std::string text;
    size_t at = 0, size = 0;
    for (; at + 8 <= file.size(); at += size) {
        size = __builtin_bswap32(littleAt(file, at));
        if (size < 8 || size > file.size() - at)
            break;
        text += file.substr(at + (file.compare(at + 8, 4, "cdif") == 0 ? 8 : 4), 4) + " ";
    }
    return at == file.size() ? text : text + "(damaged)";
}

/// Trailer, XMP, box and view agree.
inline void expectConsistent(std::string const& path) {
    std::string const file = bytesOf(path);
    auto const photo = parsePhoto(path, "r");
    auto const xmp = photo->getXMPInfo();
    ASSERT_EQ(photo->isValid(), photo->getVideoSize() > 0);
    size_t const position = photo->getVideoPosition();
    if (photo->isValid()) {
        EXPECT_EQ(file.substr(position + 4, 4), "ftyp");
        EXPECT_EQ(xmp->getProperty(xmp_ns::CAMERA, "MotionPhoto"), "1");
        EXPECT_EQ(xmp->getItemField("MotionPhoto", "Length"), std::to_string(file.size() - position));
        EXPECT_EQ(xmp->getItemField("MotionPhoto", "Padding"), "0");
        EXPECT_EQ(xmp->getItemField("Primary", "Padding"), std::to_string(photo->getImageVideoPadding()));
        EXPECT_EQ(xmp->getItemNameAt(1), "Primary");
    }
    if (file.starts_with("\xFF\xD8"))
        return;
    std::string const boxes = boxesOf(file);
    EXPECT_EQ(boxes.find("damaged"), std::string::npos) << boxes;
    EXPECT_EQ(boxes.find("mpvd") != std::string::npos, photo->isValid()) << boxes;
    EXPECT_EQ(boxes.find("qrtd") != std::string::npos, boxes.ends_with("qrtd ")) << boxes;
    EXPECT_EQ(boxes.find("mpvd"), boxes.rfind("mpvd")) << boxes;
    EXPECT_TRUE(!photo->isValid() || file.substr(position - 8, 8) == bigEndian(photo->getVideoSize() + 8, 4) + "mpvd");
}

} // namespace android::lumo::test
