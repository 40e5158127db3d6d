// SPDX-License-Identifier: Apache-2.0
#include "MovieReader.h"

#include "CodecNames.h"
#include "boxes/BoxBounds.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace android::media {
namespace {

using lumo::BoxCursor;
using lumo::BoxError;
using lumo::BoxFault;
using lumo::BoxHeader;
using lumo::BoxType;
using lumo::boxType;

// Enough for any camera's clip.
constexpr size_t kMaxTracks = 64;
// A day in fragments of a second; the walk of a hostile file of empty boxes ends here.
constexpr unsigned kMaxBoxes = 200'000;

/// A box's payload in the window.
struct BoxContent {
    uint64_t from = 0, end = 0;
    BoxType type = 0;
};

/// Rounded to the nearest; 0 when it cannot be told.
int64_t microseconds(uint64_t ticks, uint32_t ticksPerSecond) {
    constexpr uint64_t kMicro = 1'000'000;
    constexpr auto kMaxSeconds = static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) / kMicro - 1;
    uint64_t const rate = std::max<uint32_t>(ticksPerSecond, 1); // as players take a rate of 0
    if (ticks / rate > kMaxSeconds)
        return 0;
    return static_cast<int64_t>(ticks / rate * kMicro + (ticks % rate * kMicro + rate / 2) / rate);
}

/// The length that the header of a movie ("mvhd") or of a track's media ("mdhd") tells; both begin alike:
///
/// | version 0 | version 1 | name                                          |
/// |-----------|-----------|-----------------------------------------------|
/// | 0         | 0         | version (1 byte), flags (3)                   |
/// | 4         | 4         | creation and modification time (4 or 8 each)  |
/// | 12        | 20        | ticks a second (4)                            |
/// | 16        | 24        | duration in ticks (4 or 8), all ones: unknown |
struct Timing {
    uint32_t rate = 1;
    uint64_t ticks = 0;

    int64_t us() const { return microseconds(ticks, rate); }
};

class MovieReader {
public:
    explicit MovieReader(MovieWindow& source) : window(source) {}

    std::vector<Track> tracks();

private:
    std::optional<BoxContent> next(BoxContent& parent);
    std::optional<BoxContent> find(BoxContent parent, BoxType type);
    BoxContent require(BoxContent const& parent, BoxType type);
    BoxCursor fields(BoxContent const& box);

    Timing movieTiming(BoxContent const& movie);
    uint64_t editedTicks(BoxContent const& track);
    Track track(BoxContent const& box, Timing const& movie);
    std::string entryMime(BoxContent const& table, BoxType handler);
    uint8_t objectType(BoxContent const& entry);

    MovieWindow& window;
    unsigned walked = 0;
};

/// Takes the next child off the front of `parent`; none when it holds no more. Less than a header at the end is what
/// QuickTime closes lists with.
std::optional<BoxContent> MovieReader::next(BoxContent& parent) {
    uint64_t const left = parent.end - parent.from;
    if (left < 8)
        return {};
    BoxHeader header;
    if (lumo::decodeBoxHeader(window.read(parent.from, 16), left, header) != BoxFault::None)
        throw BoxError(__LINE__, "invalid box at " + std::to_string(parent.from));
    if (++walked > kMaxBoxes)
        throw BoxError(__LINE__, "more than " + std::to_string(kMaxBoxes) + " boxes");
    BoxContent const box{parent.from + header.headerSize, parent.from + header.size, header.type};
    parent.from = box.end;
    return box;
}

std::optional<BoxContent> MovieReader::find(BoxContent parent, BoxType type) {
    while (auto const child = next(parent)) {
        if (child->type == type)
            return child;
    }
    return {};
}

/// A box without which the movie cannot be understood.
BoxContent MovieReader::require(BoxContent const& parent, BoxType type) {
    if (auto const found = find(parent, type))
        return *found;
    throw BoxError(__LINE__, "no '" + lumo::boxTypeText(type) + "' in '" + lumo::boxTypeText(parent.type) + "'");
}

/// The payload's start: all of any box that is read here, unless it is padded. To be used before the next read.
BoxCursor MovieReader::fields(BoxContent const& box) {
    auto const size = static_cast<size_t>(std::min<uint64_t>(box.end - box.from, MovieWindow::PIECE));
    return {window.read(box.from, size), box.from, box.type};
}

/// A number of 32 or 64 bits in which all ones stand for "unknown", which is 0 here.
uint64_t knownTicks(BoxCursor& cursor, unsigned width) {
    uint64_t const ticks = cursor.number(width);
    return ticks == std::numeric_limits<uint64_t>::max() >> (64 - 8 * width) ? 0 : ticks;
}

Timing readTiming(BoxCursor cursor) {
    unsigned const width = lumo::readFullBoxHeader(cursor).version == 1 ? 8 : 4;
    cursor.skip(2 * width);
    Timing timing;
    timing.rate = cursor.u32();
    timing.ticks = knownTicks(cursor, width);
    return timing;
}

/// A movie whose samples lie in fragments tells 0 in its header and the whole length in "mvex"/"mehd", or nowhere:
///
/// | offset | width  | name                     |
/// |--------|--------|--------------------------|
/// | 0      | 4      | version, flags           |
/// | 4      | 4 or 8 | duration in movie ticks  |
Timing MovieReader::movieTiming(BoxContent const& movie) {
    Timing timing = readTiming(fields(require(movie, boxType("mvhd"))));
    if (timing.ticks == 0) {
        auto const fragments = find(movie, boxType("mvex"));
        if (auto const length = fragments ? find(*fragments, boxType("mehd")) : std::nullopt) {
            BoxCursor cursor = fields(*length);
            timing.ticks = knownTicks(cursor, lumo::readFullBoxHeader(cursor).version == 1 ? 8 : 4);
        }
    }
    return timing;
}

/// How long the edits of a track show its media, in ticks of the movie; 0 without any. "edts" holds one "elst":
///
/// | offset | width  | name                                                     |
/// |--------|--------|----------------------------------------------------------|
/// | 0      | 4      | version, flags                                           |
/// | 4      | 4      | number of edits, each:                                   |
/// | 0      | 4 or 8 | length in movie ticks (8 in version 1)                   |
/// | 4 or 8 | 4 or 8 | where it begins in the media; all ones: nothing is shown |
/// | then   | 4      | rate                                                     |
uint64_t MovieReader::editedTicks(BoxContent const& track) {
    auto const edits = find(track, boxType("edts"));
    auto const list = edits ? find(*edits, boxType("elst")) : std::nullopt;
    if (!list)
        return 0;
    BoxCursor cursor = fields(*list);
    unsigned const width = lumo::readFullBoxHeader(cursor).version == 1 ? 8 : 4;
    uint64_t const nowhere = std::numeric_limits<uint64_t>::max() >> (64 - 8 * width);
    uint64_t total = 0;
    uint64_t left = cursor.u32();
    if (left * (2 * width + 4) >
        cursor.left()) // longer than is read of a box, or than it is: no sum of it is the length
        return 0;
    for (; left > 0; --left) {
        uint64_t const ticks = cursor.number(width);
        bool const isShown = cursor.number(width) != nowhere;
        cursor.skip(4);
        total += isShown ? std::min(ticks, std::numeric_limits<uint64_t>::max() - total) : 0;
    }
    return total;
}

/// What the elementary stream descriptor in an entry ("esds", in QuickTime's sounds inside "wave") says the samples
/// are, 0 when there is none. Each descriptor is a tag, its length in seven bits a byte, and its fields:
///
/// | tag  | fields                                                                                            |
/// |------|---------------------------------------------------------------------------------------------------|
/// | 0x03 | stream id (2), flags (1); with flag 0x80 another id (2), 0x40 a text (1 + n), 0x20 a third id (2) |
/// | 0x04 | object type (1), ...                                                                              |
uint8_t MovieReader::objectType(BoxContent const& entry) {
    auto stream = find(entry, boxType("esds"));
    if (auto const wave = stream ? std::nullopt : find(entry, boxType("wave")))
        stream = find(*wave, boxType("esds"));
    if (!stream)
        return 0;
    BoxCursor cursor = fields(*stream);
    auto const tag = [&cursor] {
        uint8_t const found = cursor.u8();
        for (int i = 0; i < 4 && (cursor.u8() & 0x80) != 0; ++i)
            continue;
        return found;
    };
    lumo::readFullBoxHeader(cursor);
    if (tag() != 0x03)
        return 0;
    cursor.skip(2);
    uint8_t const flags = cursor.u8();
    cursor.skip(flags & 0x80 ? 2 : 0);
    cursor.skip(flags & 0x40 ? cursor.u8() : 0);
    cursor.skip(flags & 0x20 ? 2 : 0);
    return tag() == 0x04 ? cursor.u8() : uint8_t{0};
}

/// The mime type of the first entry in a track's table of sample descriptions, "stsd":
///
/// | offset | width | name                                                                             |
/// |--------|-------|----------------------------------------------------------------------------------|
/// | 0      | 4     | version, flags                                                                   |
/// | 4      | 4     | number of entries; each is a box whose type is the codec                         |
///
/// An entry's payload: reserved (6), data reference (2), and for pictures 70, for sounds 20 bytes of fields, the first
/// of which is a version (2): QuickTime's sounds of version 1 and 2 have 16 and 36 bytes more. Then come boxes.
std::string MovieReader::entryMime(BoxContent const& table, BoxType handler) {
    constexpr uint64_t kPicture = 78, kSound = 28, kMore1 = 16, kMore2 = 36;
    BoxCursor head = fields(table);
    uint8_t const tableVersion = lumo::readFullBoxHeader(head).version;
    BoxContent entries{table.from + 8, table.end, table.type};
    auto const entry = head.u32() > 0 ? next(entries) : std::nullopt;
    if (!entry)
        throw BoxError(__LINE__, "track without a sample description");

    BoxCursor cursor = fields(*entry);
    cursor.skip(8);
    uint64_t fixed = 0;
    if (handler == boxType("vide")) {
        fixed = kPicture;
    } else if (handler == boxType("soun")) {
        uint16_t const version = cursor.u16();
        bool const isLonger = tableVersion == 0; // the ISO format's version 1 has no more fields
        fixed = kSound + (isLonger && version == 1 ? kMore1 : isLonger && version == 2 ? kMore2 : 0);
    } else {
        return mimeOf(handler, entry->type);
    }
    if (fixed > entry->end - entry->from)
        throw BoxError(__LINE__, "sample description cut off");
    BoxContent const inside{entry->from + fixed, entry->end, entry->type};

    BoxType codec = entry->type;
    if (codec == boxType("encv") || codec == boxType("enca")) { // encrypted: "sinf"/"frma" names the codec
        auto const scheme = find(inside, boxType("sinf"));
        if (auto const original = scheme ? find(*scheme, boxType("frma")) : std::nullopt)
            codec = fields(*original).u32();
    }
    char const* named = nullptr;
    if (codec == boxType("mp4a") || codec == boxType("mp4v"))
        named = mimeOfObjectType(objectType(inside));
    return named != nullptr ? named : mimeOf(handler, codec);
}

/// A track: "mdia" holds its timing "mdhd", its handler "hdlr" and, in "minf"/"stbl", what its samples are. It lasts as
/// long as its edits, where they show less than all of it. The handler:
///
/// | offset | width | name                                                      |
/// |--------|-------|-----------------------------------------------------------|
/// | 0      | 4     | version, flags                                            |
/// | 4      | 4     | 0; QuickTime's "mhlr"                                     |
/// | 8      | 4     | kind of media: "vide", "soun", "meta", ...                |
Track MovieReader::track(BoxContent const& box, Timing const& movie) {
    BoxContent const media = require(box, boxType("mdia"));
    int64_t const mediaUs = readTiming(fields(require(media, boxType("mdhd")))).us();
    int64_t const wholeUs = mediaUs > 0 ? mediaUs : movie.us();
    int64_t const shownUs = microseconds(editedTicks(box), movie.rate);
    BoxCursor cursor = fields(require(media, boxType("hdlr")));
    cursor.skip(8);
    BoxType const handler = cursor.u32();
    BoxContent const samples = require(require(media, boxType("minf")), boxType("stbl"));
    bool const isCut = shownUs > 0 && (wholeUs == 0 || shownUs < wholeUs);
    return {entryMime(require(samples, boxType("stsd")), handler), isCut ? shownUs : wholeUs};
}

/// The movie's headers stand in the first "moov", one "trak" a track; what lies behind it is not looked at.
std::vector<Track> MovieReader::tracks() {
    BoxContent movie = require({0, window.length(), boxType("file")}, boxType("moov"));
    Timing const timing = movieTiming(movie);
    std::vector<Track> found;
    while (auto const child = next(movie)) {
        if (child->type != boxType("trak"))
            continue;
        if (found.size() == kMaxTracks)
            throw BoxError(__LINE__, "more than " + std::to_string(kMaxTracks) + " tracks");
        found.push_back(track(*child, timing));
    }
    return found;
}

} // namespace

std::vector<Track> readTracks(MovieWindow& window) {
    return MovieReader(window).tracks();
}

} // namespace android::media
