// SPDX-License-Identifier: Apache-2.0
#include "HEIFImagePart.h"

#include "CheckedFile.h"

#include <algorithm>
#include <utility>

namespace android::lumo::heif {

namespace {

/// What was read is still in a second-level cache when it is written.
constexpr uint32_t BLOCK = 128 * 1024;

/// What is unchanged, as bytes that follow each other: read before it is written over, and given out later.
class SourceAhead {
public:
    SourceAhead(MediaFile const& source, std::vector<ImagePart::Unchanged> const& unchanged)
        : file(source), next(unchanged.begin()), end(unchanged.end()) {}

    /// Reads all that stands in front of `place` in the source.
    void readUpTo(uint32_t place) {
        while (next != end && next->source + taken < place)
            read(std::min(next->length - taken, place - next->source - taken));
    }

    /// The next `n` bytes, valid until the next call; what stands in front of `place` is read then.
    std::span<uint8_t const> give(uint32_t n, uint32_t place) {
        std::copy(bytes.get() + given, bytes.get() + held, bytes.get());
        held -= given;
        given = 0;
        readUpTo(place);
        while (held < n)
            read(std::min<uint32_t>(next->length - taken, static_cast<uint32_t>(n - held)));
        given = n;
        return {bytes.get(), n};
    }

private:
    void read(uint32_t n) {
        makeRoomFor(held + n);
        checked::readExactly(file, next->source + taken, bytes.get() + held, n);
        held += n;
        taken += n;
        if (taken == next->length) {
            ++next;
            taken = 0;
        }
    }

    void makeRoomFor(size_t n) {
        if (n <= capacity)
            return;
        std::unique_ptr<uint8_t[]> larger(new uint8_t[n]);
        std::copy_n(bytes.get(), held, larger.get());
        bytes = std::move(larger);
        capacity = n;
    }

    MediaFile const& file;
    std::vector<ImagePart::Unchanged>::const_iterator next, end;
    uint32_t taken = 0;               ///< of the next range
    std::unique_ptr<uint8_t[]> bytes; ///< not zeroed
    size_t capacity = 0, held = 0, given = 0;
};

} // namespace

void ImagePart::requireReadable(MediaFile const& source) const {
    for (auto const& range : unchanged)
        checked::requireReadable(source, range.source, range.length, BLOCK, ErrorAt());
}

void ImagePart::load(MediaFile const& source) {
    for (auto const& range : unchanged)
        checked::readExactly(source, range.source, bytes.get() + range.position, range.length);
    unchanged.clear();
}

void ImagePart::writeOver(MediaFile& file) const {
    SourceAhead source(file, unchanged);
    uint32_t done = 0;
    auto const writeOwn = [&](uint32_t end) {
        source.readUpTo(end);
        checked::write(file, bytes.get() + done, end - done);
        done = end;
    };
    for (auto const& range : unchanged) {
        writeOwn(range.position);
        for (uint32_t const end = range.position + range.length; done < end;) {
            uint32_t const n = std::min(BLOCK, end - done);
            checked::write(file, source.give(n, done + n).data(), n);
            done += n;
        }
    }
    writeOwn(size);
}

void ImagePart::putInto(SplicedCopy& copy, uint32_t oldSize) const {
    uint32_t done = 0, taken = 0;
    auto const putUpTo = [&](uint32_t position, uint32_t source) {
        copy.replace({taken, source - taken}, {reinterpret_cast<char const*>(bytes.get() + done), position - done});
    };
    for (auto const& range : unchanged) {
        putUpTo(range.position, range.source);
        done = range.position + range.length;
        taken = range.source + range.length;
    }
    putUpTo(size, oldSize);
}

} // namespace android::lumo::heif
