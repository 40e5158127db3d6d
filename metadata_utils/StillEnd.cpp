// SPDX-License-Identifier: Apache-2.0
#include "StillEnd.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "io/HEIFBoxScan.h"

#include <algorithm>
#include <cstring>

namespace android::lumo {

namespace {

constexpr uint32_t WINDOW = 64 * 1024;
constexpr uint8_t MARK = 0xFF;
constexpr uint8_t START_OF_IMAGE = 0xD8;
constexpr uint8_t END_OF_IMAGE = 0xD9;
constexpr uint8_t FIRST_RESTART = 0xD0;
constexpr uint8_t LAST_RESTART = 0xD7;
constexpr uint8_t TEMPORARY = 0x01; ///< TEM, without a length
constexpr uint8_t START_OF_SCAN = 0xDA;
constexpr uint8_t APP4 = 0xE4;

/// The file's bytes from a position on, read a window at a time and never backwards.
class Bytes {
public:
    explicit Bytes(MediaFile const& source) : file(source), total(source.size()) {}

    uint32_t position() const { return at; }
    bool isOver() const { return at >= total; }
    uint8_t next() {
        if (at - start >= window.size())
            fill();
        return window.data()[at++ - start];
    }
    bool skip(uint32_t n) {
        bool const fits = n <= total - at;
        at = fits ? at + n : total;
        return fits;
    }
    /// To the next FF, or the end.
    void seekMark() {
        while (!isOver()) {
            if (at - start >= window.size())
                fill();
            uint8_t const* from = window.data() + (at - start);
            size_t const left = window.size() - (at - start);
            if (auto const* found = static_cast<uint8_t const*>(std::memchr(from, MARK, left))) {
                at += static_cast<uint32_t>(found - from);
                return;
            }
            at += static_cast<uint32_t>(left);
        }
    }

private:
    void fill() {
        start = at;
        window = checked::readAt(file, at, std::min(WINDOW, total - at));
    }

    MediaFile const& file;
    uint32_t total;
    uint32_t at = 0;
    uint32_t start = 0;
    ByteBuffer window;
};

bool hasNoLength(uint8_t code) {
    return code == 0 || code == TEMPORARY || code == START_OF_IMAGE || (code >= FIRST_RESTART && code <= LAST_RESTART);
}

/// Behind the two length bytes of a segment; false where the file ends inside it. The camera debug info's segment has
/// its length the other way round.
bool passSegment(Bytes& bytes, bool littleEndian) {
    if (bytes.isOver())
        return false;
    uint32_t const first = bytes.next();
    if (bytes.isOver())
        return false;
    uint32_t const second = bytes.next();
    uint32_t const length = littleEndian ? second << 8 | first : first << 8 | second;
    return length >= 2 && bytes.skip(length - 2);
}

std::optional<uint32_t> endOfJPEG(MediaFile const& file) {
    Bytes bytes(file);
    bytes.skip(2);
    bool inScan = false;
    while (!bytes.isOver()) {
        if (inScan)
            bytes.seekMark();
        if (bytes.isOver())
            return std::nullopt;
        uint8_t const first = bytes.next();
        if (bytes.isOver())
            return std::nullopt;
        if (first != MARK && first != APP4)
            continue; // bytes between segments that belong to none: decoders pass them as well
        uint8_t code = bytes.next();
        while (first == MARK && code == MARK && !bytes.isOver())
            code = bytes.next(); // fill bytes
        if (code == END_OF_IMAGE)
            return bytes.position();
        bool const isReversed = first == APP4 && code == MARK && !inScan;
        if (!isReversed && (first == APP4 || hasNoLength(code)))
            continue;
        if (!passSegment(bytes, isReversed))
            return std::nullopt;
        inScan |= code == START_OF_SCAN;
    }
    return std::nullopt;
}

} // namespace

std::optional<uint32_t> findStillEnd(MediaFile const& file) {
    checked::requireAddressable(file);
    if (file.mimeType() == MediaDefs::MimeType::IMAGE_JPEG)
        return endOfJPEG(file);
    heif::ByteWindow window(file);
    return heif::scanTopLevel(window).endOfImage();
}

bool beginsPicture(MediaFile const& file, uint64_t position) {
    constexpr uint8_t START[] = {MARK, START_OF_IMAGE};
    return position < file.size() && checked::holds(file, static_cast<uint32_t>(position), START, sizeof START);
}

} // namespace android::lumo
