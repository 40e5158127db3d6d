// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// JPEG files for tests, written and taken apart without the library's help. Names are the segments' codes: 0xE1 for
/// APP1.
namespace android::lumo::test {

inline std::string bigEndian16(size_t value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

inline std::string const XMP_ID{"http://ns.adobe.com/xap/1.0/\0", 29};
inline std::string const EXTENDED_XMP_ID{"http://ns.adobe.com/xmp/extension/\0", 35};
inline std::string const EXIF_ID{"Exif\0\0", 6};
inline std::string const MPF_ID{"MPF\0", 4};

/// An MPF index of two pictures: `own` is what it says of the first one's size, `size` and `offset` of the second, and
/// `table` where the entries stand.
inline std::string mpfIndex(uint32_t own, size_t size, size_t offset, uint32_t table = 26, bool big = true) {
    std::string index = big ? std::string("MM\0*", 4) : std::string("II*\0", 4);
    auto const add = [&](size_t width, std::vector<size_t> const& values) {
        for (size_t const value : values)
            for (size_t i = 0; i < width; ++i)
                index += static_cast<char>(value >> 8 * (big ? width - 1 - i : i));
    };
    add(4, {8});
    add(2, {1, 0xB002, 7});
    add(4, {32, table, 0, 0x30000, own, 0, 0, 0, size, offset, 0});
    return index;
}

/// Builds a file from its start of image on; the scan, the end of image and bytes behind it follow the segments.
class JpegBuilder {
public:
    JpegBuilder& segment(uint8_t code, std::string_view payload) {
        return raw("\xFF")
            .raw({reinterpret_cast<char const*>(&code), 1})
            .raw(bigEndian16(payload.size() + 2))
            .raw(payload);
    }
    JpegBuilder& exif(std::string_view data = "II*") { return segment(0xE1, EXIF_ID + std::string(data)); }
    /// `room` is the payload's size with the identifier; what the packet leaves is blanked. 0 fits the packet.
    JpegBuilder& xmp(std::string packet, size_t room = 0) {
        packet.insert(0, XMP_ID);
        packet.resize(std::max(packet.size(), room), ' ');
        return segment(0xE1, packet);
    }
    JpegBuilder& mpf(std::string_view index = "MM*") { return segment(0xE2, MPF_ID + std::string(index)); }
    /// Bytes between segments: fill bytes, or what does not belong there.
    JpegBuilder& raw(std::string_view bytes) {
        text += bytes;
        return *this;
    }

    /// SOI and the segments, without an end.
    std::string const& open() const { return text; }
    /// The whole file; `trailing` stands behind the end of image.
    std::string build(std::string_view scan = "scan data", std::string_view trailing = {}) const {
        JpegBuilder whole = *this;
        whole.segment(0xDA, "header").raw(scan).raw("\xFF\xD9").raw(trailing);
        return whole.text;
    }

private:
    std::string text = "\xFF\xD8";
};

/// A segment of a file taken apart; the start of scan is the last, and its payload is all the rest.
struct JpegSegment {
    uint8_t code;
    size_t position; ///< of the marker
    std::string payload;

    bool operator==(JpegSegment const& other) const { return code == other.code && payload == other.payload; }
    bool isXmp() const { return code == 0xE1 && payload.starts_with(XMP_ID); }
};

inline std::vector<JpegSegment> segmentsOf(std::string const& file) {
    std::vector<JpegSegment> segments;
    auto const byte = [&](size_t at) { return static_cast<uint8_t>(file[at]); };
    for (size_t at = 2; at + 4 <= file.size() && byte(at) == 0xFF;) {
        if (byte(at + 1) == 0xFF) {
            ++at;
            continue;
        }
        if (byte(at + 1) == 0xDA) {
            segments.push_back({0xDA, at, file.substr(at + 2)});
            break;
        }
        size_t const length = size_t{byte(at + 2)} << 8 | byte(at + 3);
        segments.push_back({byte(at + 1), at, file.substr(at + 4, length - 2)});
        at += 2 + length;
    }
    return segments;
}

/// One segment a line, for messages and comparisons: code, payload size, printable start. "E1 1280 http://ns.ad".
inline std::string treeOf(std::string const& file) {
    constexpr char DIGITS[] = "0123456789ABCDEF";
    std::string text;
    for (auto const& segment : segmentsOf(file)) {
        text += {DIGITS[segment.code >> 4], DIGITS[segment.code & 15], ' '};
        text += std::to_string(segment.payload.size()) + ' ';
        for (char const c : segment.payload.substr(0, 12))
            text += c >= 0x20 && c < 0x7F ? c : '.';
        text += '\n';
    }
    return text;
}

} // namespace android::lumo::test
