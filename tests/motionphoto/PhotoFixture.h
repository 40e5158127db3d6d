#pragma once

#include "MotionPhotoEdit.h"
#include "support/JpegBuilder.h"
#include "support/TempFile.h"

#include <cstring>
#include <memory>
#include <string>

/// What a motion photo's bytes say, read without the library's views, and the small stills the tests edit.
namespace android::lumo::test {

inline std::string sample(char const* name) {
    return bytesOf(std::string(SAMPLES_DIR) + "/" + name);
}

/// A video that the library recognises and no decoder will play, of any size.
inline std::string fakeVideo(size_t size, uint32_t seed = 7) {
    std::string bytes = pattern(size, seed);
    bytes.replace(0, 12, std::string("\0\0\0\x0C", 4) + "ftypmp42");
    return bytes;
}

inline std::shared_ptr<MotionPhotoInfo> parsePhoto(std::string const& path, std::string const& mode = "rw") {
    return MotionPhotoInfo::parse(test::open(path, mode));
}

inline uint32_t little32(std::string const& bytes, size_t at) {
    uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof(value));
    return value;
}

/// The bytes behind the file's image, cut at the tail's own numbers: "type name size;" for each record.
inline std::string trailerOf(std::string const& file) {
    if (file.size() < 8 || file.substr(file.size() - 4) != "QRTT")
        return "none";
    size_t const tail = file.size() - 8 - little32(file, file.size() - 8);
    if (file.substr(tail, 4) != "QRTH")
        return "damaged";
    std::string text;
    for (uint32_t i = 0; i < little32(file, tail + 8); ++i) {
        size_t const entry = tail + 12 + 12 * i;
        size_t const record = tail - little32(file, entry + 4);
        uint32_t const nameLength = little32(file, record + 4);
        text += std::to_string(little32(file, record) >> 16) + ' ' + file.substr(record + 8, nameLength) + ' ';
        text += std::to_string(little32(file, entry + 8) - 8 - nameLength) + ';';
    }
    return text;
}

/// Everything but the XMP, which edits are meant to change.
inline std::string imageWithoutXmp(std::string const& file) {
    std::string text;
    for (auto const& segment : segmentsOf(file)) {
        if (!segment.isXmp())
            text += std::string(1, static_cast<char>(segment.code)) + segment.payload;
    }
    return text;
}

/// The value of an attribute or element of the packet in the file's first XMP segment, empty when it is not there.
inline std::string xmpValue(std::string const& file, std::string const& name, size_t from = 0) {
    for (auto const& segment : segmentsOf(file)) {
        if (!segment.isXmp())
            continue;
        size_t const at = segment.payload.find(name + "=\"", from);
        if (at == std::string::npos)
            return {};
        size_t const begin = at + name.size() + 2;
        return segment.payload.substr(begin, segment.payload.find('"', begin) - begin);
    }
    return {};
}

} // namespace android::lumo::test
