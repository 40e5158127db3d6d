// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/HeicBuilder.h"
#include "support/TempFile.h"
#include "support/TrailerBuilder.h"

#include <map>
#include <string>

/// HEIC files put together from parts, one letter each, in file order.
namespace android::lumo::test {

inline std::string const HEIC_VIDEO = bigEndian(24, 4) + "ftypmp42" + pattern(5000, 7);

struct HeicParts {
    std::string image = buildHeic();
    std::string debugInfo = "old info";

    /// I image, V video box, W video box with a wide header, T trailer (pointing to the video, if there is one), B a
    /// trailer box without a trailer in it, N a trailer whose 12 bytes of video are no pointer, D debug info, P plain
    /// free box.
    std::string build(std::string const& letters) const {
        size_t const box = letters.find_first_of("VW");
        size_t video = 0;
        if (box != letters.npos)
            video = build(letters.substr(0, box)).size() + (letters[box] == 'W' ? 16 : 8);
        std::string const noPointer = "mp4 " + bigEndian(1 << 20, 4) + bigEndian(9, 4);
        std::map<char, std::string> const parts{
            {'I', image},
            {'V', videoBox(HEIC_VIDEO)},
            {'W', videoBox(HEIC_VIDEO, true)},
            {'T', qrtdBox(trailerBytes({videoRecord(pointerTo(video, HEIC_VIDEO.size())),
                                        {2609, "MotionPhoto_Version", "mpv3"},
                                        {1, "Other", pattern(99)}}))},
            {'B', heicBox("qrtd", "no trailer")},
            {'N', qrtdBox(trailerBytes({videoRecord(noPointer)}))},
            {'D', heicBox("free", "cdif" + debugInfo)},
            {'P', heicBox("free", "plain")},
        };
        std::string all;
        for (char const letter : letters)
            all += parts.at(letter);
        return all;
    }
};

} // namespace android::lumo::test
