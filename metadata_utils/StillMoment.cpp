// SPDX-License-Identifier: Apache-2.0
// The moment a clip of a live pair names for its still: a track of timed metadata with one sample.
//
//     moov / mvhd            time scale of the movie
//     moov / trak            one of several
//         edts / elst        an empty edit (media time -1) as long as the moment, then the sample
//         mdia / hdlr        'meta'
//         mdia / minf / stbl
//             stsd / mebx / keys   the key "...still-image-time" of the samples
#include "MotionClip.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MovieBoxes.h"

#include <algorithm>
#include <string_view>

namespace android::lumo {

namespace {

constexpr std::string_view KEY = "still-image-time";
constexpr int64_t MICROSECONDS = 1'000'000;
constexpr uint32_t MAX_TABLE = 64 * 1024; ///< of a box that is read whole
constexpr size_t MAX_TRACKS = 64;

/// Box within box; nothing where one is missing.
std::optional<movie::MovieBox> descend(MediaFile const& file, movie::MovieBox const& from,
                                       std::initializer_list<BoxType> path) {
    std::optional<movie::MovieBox> box = from;
    for (auto const type : path) {
        box = movie::findBox(file, box->content(), box->end(), type);
        if (!box)
            break;
    }
    return box;
}

ByteBuffer contentOf(MediaFile const& file, movie::MovieBox const& box) {
    return checked::readAt(file, box.content(), std::min(box.end() - box.content(), MAX_TABLE));
}

BoxCursor cursorOver(ByteBuffer const& bytes, movie::MovieBox const& box) {
    return {{bytes.data(), bytes.size()}, box.content(), box.type};
}

/// Units a second, from 'mvhd'.
uint32_t timeScaleOf(MediaFile const& file, movie::MovieBox const& header) {
    auto const bytes = contentOf(file, header);
    auto cursor = cursorOver(bytes, header);
    bool const isWide = readFullBoxHeader(cursor).version == 1;
    cursor.skip(isWide ? 16 : 8); // creation and modification time
    return cursor.u32();
}

bool namesStill(MediaFile const& file, movie::MovieBox const& track) {
    auto const handler = descend(file, track, {boxType("mdia"), boxType("hdlr")});
    auto const table = descend(file, track, {boxType("mdia"), boxType("minf"), boxType("stbl"), boxType("stsd")});
    if (!handler || !table)
        return false;
    auto const bytes = contentOf(file, *handler);
    auto cursor = cursorOver(bytes, *handler);
    cursor.skip(8); // version, flags, predefined
    if (cursor.u32() != boxType("meta"))
        return false;
    // The key is a text inside the description's boxes; nothing else there looks like it.
    auto const description = contentOf(file, *table);
    std::string_view const text(reinterpret_cast<char const*>(description.data()), description.size());
    return text.find("mebx") != std::string_view::npos && text.find(KEY) != std::string_view::npos;
}

/// The empty edits in front of the first real one, in units of the movie.
uint64_t delayOf(MediaFile const& file, movie::MovieBox const& track) {
    auto const list = descend(file, track, {boxType("edts"), boxType("elst")});
    if (!list)
        return 0;
    auto const bytes = contentOf(file, *list);
    auto cursor = cursorOver(bytes, *list);
    bool const isWide = readFullBoxHeader(cursor).version == 1;
    unsigned const width = isWide ? 8 : 4;
    uint64_t delay = 0;
    for (uint32_t left = cursor.u32(); left > 0; --left) {
        uint64_t const duration = cursor.number(width);
        uint64_t const mediaTime = cursor.number(width);
        cursor.skip(4); // rate
        if (mediaTime != (isWide ? UINT64_MAX : UINT32_MAX))
            break;
        delay += duration;
    }
    return delay;
}

/// The first sample is shown when the first real edit begins.
std::optional<int64_t> momentOf(MediaFile const& file, movie::MovieBox const& movie, movie::MovieBox const& track) {
    constexpr uint64_t LONGEST = uint64_t{1} << 40; // in any unit: what is longer is damage
    auto const header = descend(file, movie, {boxType("mvhd")});
    if (!header)
        return std::nullopt;
    uint32_t const scale = timeScaleOf(file, *header);
    uint64_t const delay = delayOf(file, track);
    if (scale == 0 || delay > LONGEST)
        return std::nullopt;
    return static_cast<int64_t>(delay) * MICROSECONDS / scale;
}

std::optional<int64_t> findMoment(MediaFile const& file, uint32_t position, uint32_t size) {
    auto const movie = movie::findBox(file, position, position + size, boxType("moov"));
    if (!movie)
        return std::nullopt;
    uint32_t from = movie->content();
    for (size_t count = 0; count < MAX_TRACKS; ++count) {
        auto const track = movie::findBox(file, from, movie->end(), boxType("trak"));
        if (!track)
            break;
        if (namesStill(file, *track))
            return momentOf(file, *movie, *track);
        from = track->end();
    }
    return std::nullopt;
}

} // namespace

std::optional<int64_t> stillMomentOf(std::shared_ptr<MediaFile> const& file, uint32_t position, uint32_t size) {
    if (file == nullptr)
        throw ErrorAt()("no video given");
    checked::requireAddressable(*file);
    if (!rangeFits(position, size, file->size()))
        return std::nullopt;
    try {
        return findMoment(*file, position, size);
    } catch (std::runtime_error const&) {
        rethrowUnlessDamage();
        return std::nullopt;
    }
}

std::optional<int64_t> stillMomentOf(std::shared_ptr<MediaFile> const& clip) {
    if (clip == nullptr)
        throw ErrorAt()("no video given");
    checked::requireAddressable(*clip);
    return stillMomentOf(clip, 0, clip->size());
}

} // namespace android::lumo
