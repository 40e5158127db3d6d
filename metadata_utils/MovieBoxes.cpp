// SPDX-License-Identifier: Apache-2.0
#include "MovieBoxes.h"

#include "CheckedFile.h"

#include <algorithm>
#include <array>
#include <span>

namespace android::lumo::movie {

namespace {

/// A fragmented clip of a minute has some hundred boxes.
constexpr size_t MAX_BOXES = 65536;
constexpr uint32_t MAX_HEADER = 16;
constexpr uint32_t BRAND_SIZE = 4;
/// Header, major brand, minor version.
constexpr uint32_t MIN_FILE_TYPE = 16;
constexpr std::array MOVIE_BOXES = {boxType("ftyp"), boxType("moov"), boxType("mdat"), boxType("free"), boxType("skip"),
                                    boxType("wide"), boxType("udta"), boxType("uuid"), boxType("meta"), boxType("moof"),
                                    boxType("mfra"), boxType("sidx"), boxType("ssix"), boxType("styp"), boxType("prft"),
                                    boxType("pdin"), boxType("emsg"), boxType("pnot"), boxType("PICT")};

std::string at(uint32_t position) {
    return " at " + std::to_string(position);
}

/// The first bytes of boxes. Those that a movie begins with stand side by side.
class Heads {
public:
    explicit Heads(MediaFile const& read) : file(read) {}

    std::span<uint8_t const> at(uint32_t position, uint32_t n) {
        if (position < start || position - start + n > held) {
            start = position;
            held = static_cast<uint32_t>(checked::readUpTo(file, position, bytes.data(), bytes.size()));
        }
        if (held < n)
            throw ErrorAt().as(Error::Code::DAMAGED)("fail to read bytes: %zu, expected %zu", size_t{held}, size_t{n});
        return std::span<uint8_t const>(bytes).subspan(position - start, n);
    }

private:
    MediaFile const& file;
    std::array<uint8_t, 4 * MAX_HEADER> bytes;
    uint32_t start = 0, held = 0;
};

std::optional<MovieBox> boxIn(Heads& heads, uint32_t position, uint32_t end, std::string& reason) {
    uint32_t const left = position < end ? end - position : 0;
    BoxHeader header;
    switch (decodeBoxHeader(heads.at(position, std::min(left, MAX_HEADER)), left, header)) {
    case BoxFault::None:
        return MovieBox{header.type, position, static_cast<uint32_t>(header.size), header.headerSize, header.toEnd};
    case BoxFault::Truncated:
        reason = "box header cut off" + at(position) + ": " + std::to_string(left) + " bytes left";
        break;
    case BoxFault::TooSmall:
    case BoxFault::BeyondEnd:
        reason = "box '" + boxTypeText(header.type) + "'" + at(position) + " has " + std::to_string(header.size) +
                 " bytes, " + std::to_string(left) + " are left";
        break;
    }
    return std::nullopt;
}

/// Takes the next box into the walk; false, with a fault, where it cannot.
bool step(Heads& heads, Walk& walk, uint32_t end) {
    std::string reason;
    auto const box = boxIn(heads, walk.end, end, reason);
    if (!box) {
        walk.fault = walk.begins ? reason : "no movie begins" + at(walk.end) + ": " + reason;
        return false;
    }
    if (!walk.begins) {
        if (box->type != boxType("ftyp") || box->size < MIN_FILE_TYPE || box->toEnd) {
            walk.fault = "no movie begins" + at(walk.end) + ": box '" + boxTypeText(box->type) + "' of " +
                         std::to_string(box->size) + " bytes, expected 'ftyp'";
            return false;
        }
        auto const brand = heads.at(box->content(), BRAND_SIZE);
        walk.brand.assign(brand.begin(), brand.end());
        walk.begins = true;
    }
    walk.hasMovie |= box->type == boxType("moov");
    walk.hasMedia |= box->type == boxType("mdat") || box->type == boxType("moof");
    walk.last = *box;
    walk.end = box->end();
    return true;
}

bool mayStandInMovie(BoxType type) {
    return std::find(MOVIE_BOXES.begin(), MOVIE_BOXES.end(), type) != MOVIE_BOXES.end();
}

/// Whether a movie's next box begins here and does not fit: the file was cut. A filler that does not takes nothing of
/// the movie with it.
bool isCutOff(MediaFile const& file, uint32_t position, uint32_t limit) {
    constexpr std::array FILLERS = {boxType("free"), boxType("skip"), boxType("wide")};
    ByteBuffer const head = checked::readAt(file, position, std::min(limit - position, MAX_HEADER));
    BoxHeader header;
    return decodeBoxHeader({head.data(), head.size()}, limit - position, header) == BoxFault::BeyondEnd &&
           mayStandInMovie(header.type) && std::find(FILLERS.begin(), FILLERS.end(), header.type) == FILLERS.end();
}

} // namespace

std::optional<MovieBox> boxAt(MediaFile const& file, uint32_t position, uint32_t end, std::string& reason) {
    Heads heads(file);
    return boxIn(heads, position, end, reason);
}

std::optional<MovieBox> findBox(MediaFile const& file, uint32_t from, uint32_t end, BoxType type) {
    std::string ignored;
    Heads heads(file);
    for (size_t count = 0; from < end && count < MAX_BOXES; ++count) {
        auto const box = boxIn(heads, from, end, ignored);
        if (!box || box->type == type)
            return box;
        from = box->end();
    }
    return std::nullopt;
}

Walk walk(MediaFile const& file, uint32_t position, uint32_t size) {
    return walk(file, position, size, file.size());
}

Walk walk(MediaFile const& file, uint32_t position, uint32_t size, uint32_t fileSize) {
    Walk walk;
    walk.end = position;
    if (!rangeFits(position, size, fileSize)) {
        walk.fault =
            std::to_string(size) + " bytes" + at(position) + " do not lie in a file of " + std::to_string(fileSize);
        return walk;
    }
    uint32_t const end = position + size;
    Heads heads(file);
    size_t count = 0;
    while ((walk.end < end || !walk.begins) && count++ < MAX_BOXES) {
        if (!step(heads, walk, end))
            return walk;
    }
    if (walk.end < end)
        walk.fault = "more than " + std::to_string(MAX_BOXES) + " boxes";
    else if (!walk.hasMovie)
        walk.fault = "no 'moov' in the movie" + at(position);
    return walk;
}

Walk walkUnclaimed(MediaFile const& file, uint32_t position, uint32_t limit) {
    Walk found;
    found.end = position;
    Heads heads(file);
    for (size_t count = 0; found.end < limit && count < MAX_BOXES; ++count) {
        Walk next = found;
        bool const isMore = step(heads, next, limit) && mayStandInMovie(next.last.type) &&
                            (count == 0 || next.last.type != boxType("ftyp"));
        if (!isMore) {
            found.fault = found.hasMovie && !isCutOff(file, found.end, limit) ? "" : next.fault;
            break;
        }
        found = next;
    }
    if (found.fault.empty() && !(found.hasMovie && found.hasMedia))
        found.fault = std::string(found.hasMovie ? "no media" : "no 'moov'") + " in the movie" + at(position);
    return found;
}

} // namespace android::lumo::movie
