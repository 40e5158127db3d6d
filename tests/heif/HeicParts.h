#pragma once

#include "support/HeicBuilder.h"
#include "support/TempFile.h"
#include "support/TrailerBuilder.h"

#include <string>

/// HEIC files put together from parts, one letter each, in file order.
namespace android::lumo::test {

inline std::string repeated(size_t times, std::string const& part) {
    std::string all;
    for (; times > 0; --times)
        all += part;
    return all;
}

inline std::string const HEIC_VIDEO = bigEndian(24, 4) + "ftypmp42" + pattern(5000, 7);

struct HeicParts {
    std::string image = buildHeic();
    std::string debugInfo = "old info";

    /// I image, V video box, W video box with a wide header, T trailer (pointing to the video, if there is one), B a
    /// trailer box without a trailer in it, N a trailer whose 12 bytes of video are no pointer, D debug info, P plain
    /// free box.
    std::string build(std::string const& letters) const {
        size_t const box = std::min(letters.find('V'), letters.find('W'));
        size_t position = 0;
        if (box != std::string::npos)
            position = bytes(letters.substr(0, box), 0).size() + (letters[box] == 'W' ? 16 : 8);
        return bytes(letters, position);
    }

private:
    std::string bytes(std::string const& letters, size_t videoAt) const {
        std::string all;
        for (char const letter : letters)
            all += part(letter, videoAt);
        return all;
    }

    std::string part(char letter, size_t videoAt) const {
        std::string const pointer = "mpv2" + bigEndian(videoAt, 4) + bigEndian(HEIC_VIDEO.size(), 4);
        switch (letter) {
        case 'I':
            return image;
        case 'V':
            return heicBox("mpvd", HEIC_VIDEO);
        case 'W':
            return bigEndian(1, 4) + "mpvd" + bigEndian(HEIC_VIDEO.size() + 16, 8) + HEIC_VIDEO;
        case 'T':
            return qrtdBox(trailerBytes({{2608, "MotionPhoto_Data", pointer},
                                         {2609, "MotionPhoto_Version", "mpv3"},
                                         {1, "Other", pattern(99)}}));
        case 'B':
            return heicBox("qrtd", "no trailer");
        case 'N':
            return qrtdBox(
                trailerBytes({{2608, "MotionPhoto_Data", "mp4 " + bigEndian(1 << 20, 4) + bigEndian(9, 4)}}));
        case 'D':
            return heicBox("free", "cdif" + debugInfo);
        default:
            return heicBox("free", "plain");
        }
    }
};

} // namespace android::lumo::test
