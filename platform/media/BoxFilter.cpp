#include "BoxFilter.h"

#include <algorithm>
#include <array>

namespace android::media {
namespace {

constexpr uint32_t code(char const (&type)[5]) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8 | static_cast<uint8_t>(type[i]);
    return value;
}

constexpr auto sorted(auto codes) {
    std::sort(codes.begin(), codes.end());
    return codes;
}

constexpr auto kUnneeded = sorted(std::to_array<uint32_t>({
    // tables with one entry per sample, chunk or edit
    code("stts"),
    code("ctts"),
    code("stsc"),
    code("stsz"),
    code("stz2"),
    code("stco"),
    code("co64"),
    code("stss"),
    code("stps"),
    code("sdtp"),
    code("sbgp"),
    code("sgpd"),
    code("elst"),
    // fragments, their index and their defaults (which make the demuxer disregard the movie's duration)
    code("moof"),
    code("traf"),
    code("trun"),
    code("sidx"),
    code("mfra"),
    code("tfra"),
    code("trex"),
    // encryption
    code("senc"),
    code("saiz"),
    code("saio"),
    code("pssh"),
    // metadata, and references to other tracks and files
    code("udta"),
    code("meta"),
    code("ilst"),
    code("keys"),
    code("----"),
    code("uuid"),
    code("iloc"),
    code("chpl"),
    code("tref"),
    code("dref"),
    // a compressed movie box, behind which all of these could hide
    code("cmov"),
}));

/// Nearly all bytes of a video end none of the codes, and this tells so without a search.
constexpr auto kLastBytes = [] {
    std::array<bool, 256> last{};
    for (uint32_t const type : kUnneeded)
        last[type & 0xFF] = true;
    return last;
}();

} // namespace

void blankUnneededBoxes(std::span<uint8_t> bytes) {
    uint32_t window = 0; // the last four bytes as they came, so that overlapping codes are all found
    for (size_t i = 0; i < bytes.size(); ++i) {
        window = window << 8 | bytes[i];
        if (kLastBytes[bytes[i]] && std::binary_search(kUnneeded.begin(), kUnneeded.end(), window))
            std::ranges::fill(bytes.subspan(i - 3, 4), uint8_t{0});
    }
}

} // namespace android::media
