// SPDX-License-Identifier: Apache-2.0
// A photo with a trailer becomes one that ends with its video. PublishedConvert.cpp draws both.
//
// Trailers of others may hold a HEIC's video, or point to one behind a JPEG's picture: those become published as well.
#include "PublishedPhoto.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MovieBoxes.h"
#include "MovieNote.h"
#include "PublishedEdit.h"
#include "StillEnd.h"
#include "Text.h"
#include "boxes/BoxBounds.h"
#include "io/ImageIndex.h"

#include <algorithm>

namespace android::lumo::published {

namespace {

/// Records of others than the video, which go with the trailer.
std::vector<std::string> otherRecords(PhotoLayout const& layout) {
    std::vector<std::string> names;
    for (auto const& record : layout.records) {
        bool const isOwn = record.type == qrt::TYPE_MOTION_PHOTO_DATA || record.type == qrt::TYPE_MOTION_PHOTO_VERSION;
        if (!isOwn && !MovieNote::in(*layout.file, record))
            names.push_back(record.name);
    }
    return names;
}

std::optional<MovieNote> noteIn(PhotoLayout const& layout, MotionVideo const& video) {
    for (auto const& record : layout.records) {
        auto const note = MovieNote::in(*layout.file, record);
        bool const isItsBrand = note && (video.brand == movie::RECOGNISED_BRAND || video.brand == note->brand);
        if (isItsBrand && note->stored == video.size && note->length <= note->stored &&
            note->isAbout(*layout.file, video.position))
            return note;
    }
    return std::nullopt;
}

/// Whether nothing but one 'free' box of zeros stands behind the movie that was.
bool endsWithFiller(MediaFile const& file, MotionVideo const& video, uint32_t length) {
    std::string ignored;
    uint32_t const end = video.position + video.size;
    auto const box = length < video.size ? movie::boxAt(file, video.position + length, end, ignored) : std::nullopt;
    return box && box->type == boxType("free") && box->end() == end && isFiller(file, box->position, box->size);
}

/// Bytes between the picture's end and the first thing the directory names behind it; `shift` is added to the padding
/// of the last in front of the video. What the photo has there of its own, in front of its video, is no padding.
std::optional<uint64_t> primaryPaddingOf(PhotoLayout const& layout, uint32_t start, int64_t shift) {
    if (layout.isHEIC)
        return layout.videoBox ? std::optional<uint64_t>(layout.videoBox->headerSize) : std::nullopt;
    auto const* video = layout.claims.video();
    int64_t between = layout.claims.inFrontOfVideo() != nullptr ? shift : 0;
    for (auto const& item : layout.claims.items) {
        if (!item.isPrimary() && video != nullptr && item.place < video->place)
            between += static_cast<int64_t>(std::min<uint64_t>(layout.fileSize, item.length) +
                                            std::min<uint64_t>(layout.fileSize, item.padding));
    }
    auto const end = findStillEnd(*layout.file);
    bool const isOwn = end && *end < start && layout.claims.inFrontOfVideo() == nullptr;
    if (!end || (isOwn && !isFiller(*layout.file, *end, start - *end)))
        return 0;
    return static_cast<uint64_t>(std::max<int64_t>(0, int64_t{start} - *end - between));
}

/// What Primary's padding will be: the photo's own, without the trailer's head, where that can be told.
std::optional<uint64_t> primaryPaddingBack(PhotoLayout const& layout, MotionVideo const& video, uint32_t start,
                                           int64_t shift) {
    bool const isOwn = isPrimaryPaddingOwn(layout, video.position);
    if (isOwn && layout.claims.inFrontOfVideo() == nullptr)
        return layout.claims.primary()->padding - (video.position - start);
    return isOwn || isPrimaryPaddingOwn(layout, start) ? std::nullopt : primaryPaddingOf(layout, start, shift);
}

struct Back {
    uint32_t start = 0;   ///< where the video will begin, before XMP moves it
    uint32_t length = 0;  ///< of the video as it was
    uint32_t behind = 0;  ///< what stays behind it: boxes of a HEIC, other items of a JPEG
    uint32_t cut = 0;     ///< bytes that go at the file's end
    bool getsBox = false; ///< the video of a HEIC that its trailer held: the trailer's box becomes the video's
    Fields fields;
};

/// In a HEIC the video stands in its box, or in the trailer's.
void planBackOfHEIC(PhotoLayout const& layout, MotionVideo const& video, Back& back) {
    auto const& last = layout.topLevel.boxes.back();
    uint32_t const end = video.position + video.size;
    if (last.type != TRAILER_BOX)
        throw ErrorAt().as(Error::Code::DAMAGED, *layout.file)("the trailer stands in no box of its own");
    back.getsBox = end > last.position;
    if (back.getsBox && layout.videoBox)
        throw ErrorAt().as(Error::Code::DAMAGED, *layout.file)(
            "the trailer holds a video, and a box at %zu another one", size_t{layout.videoBox->position});
    if (back.getsBox && video.position < last.content())
        throw ErrorAt().as(Error::Code::DAMAGED, *layout.file)("the video at %zu reaches into the trailer",
                                                               size_t{video.position});
    back.start = back.getsBox ? last.position + BOX_HEADER_SIZE : video.position;
    back.behind = back.getsBox ? 0 : last.position - end;
    back.cut = layout.fileSize - (back.getsBox ? video.position + back.length : last.position);
    if (!back.getsBox)
        back.length = video.size; // a box has no filler
}

/// In a JPEG it stands in the trailer, or between picture and trailer.
void planBackOfJPEG(PhotoLayout const& layout, MotionVideo const& video, Back& back) {
    uint32_t const end = video.position + video.size, trailerStart = trailer::startOf(*layout.tail);
    bool const isPointed = video.position < trailerStart;
    if (isPointed && (end > trailerStart || findStillEnd(*layout.file).value_or(end) > video.position))
        throw ErrorAt().as(Error::Code::DAMAGED, *layout.file)("the video at %zu stands inside the image",
                                                               size_t{video.position});
    back.start = isPointed ? video.position : trailerStart;
    back.behind = isPointed ? trailerStart - end : 0;
    if (back.behind > 0)
        back.length = video.size; // its filler is not the last
    back.cut = layout.fileSize - (back.behind > 0 ? trailerStart : video.position + back.length);
}

/// What stays behind the video and no item of the directory has is its padding.
uint64_t paddingOf(PhotoLayout const& layout, uint64_t behind) {
    auto const* video = layout.claims.video();
    for (auto const& item : layout.claims.items) {
        if (video != nullptr && item.place > video->place)
            behind -= std::min(behind, item.length + item.padding);
    }
    return behind;
}

Back planBack(PhotoLayout const& layout, MotionVideo const& video, std::optional<MovieNote> const& note) {
    Back back;
    back.length = note && endsWithFiller(*layout.file, video, note->length) ? note->length : video.size;
    layout.isHEIC ? planBackOfHEIC(layout, video, back) : planBackOfJPEG(layout, video, back);
    back.fields.length = back.length;
    back.fields.itemPadding = paddingOf(layout, back.behind);
    back.fields.addedInFront = -int64_t{countedHead(layout, video)};
    back.fields.primaryPadding = back.getsBox ? std::optional<uint64_t>(BOX_HEADER_SIZE)
                                              : primaryPaddingBack(layout, video, back.start, back.fields.addedInFront);
    back.fields.mime = MediaDefs::mimeString(video.mimeType());
    return back;
}

} // namespace

Conversion toPublished(std::shared_ptr<MediaFile> const& photo, bool dropRecords,
                       std::shared_ptr<MediaFile> const& output) {
    PhotoLayout const layout(photo);
    auto const video = layout.locate();
    if (!video.isSound())
        throw ErrorAt().as(video.status == MotionVideo::Status::NONE ? Error::Code::REFUSED : Error::Code::DAMAGED,
                           *photo)("no sound video to convert: %s",
                                   video.reason.empty() ? "none is claimed" : video.reason.c_str());
    requireNoHiddenTrailer(layout);
    Conversion done;
    done.dropped = otherRecords(layout);
    if (!done.dropped.empty() && !dropRecords)
        throw ErrorAt().as(Error::Code::REFUSED, *photo)("the trailer holds records that would go: %s",
                                                         join(done.dropped).c_str());
    if (video.source != MotionVideo::Source::TRAILER) {
        bool const claims = layout.claims.motionPhoto != "1" && layout.claims.microVideo != "1";
        if (claims)
            requireTakesFields(layout, fieldsFor(layout, video));
        done.isChanged = claims || layout.tail;
        if (layout.tail)
            removeTrailer(photo, output);
        auto const file = layout.tail && isElsewhere(*photo, output) ? output : begin(photo, output);
        if (claims) {
            PhotoLayout const now(file);
            writeXMP(file, [&](auto const& view) { setFields(view, file->mimeType(), fieldsFor(now, now.locate())); });
        }
        return done;
    }
    auto const note = noteIn(layout, video);
    auto const back = planBack(layout, video, note);
    requireTakesFields(layout, back.fields);

    auto const file = begin(photo, output);
    writeXMP(file, [&](auto const& view) { setFields(view, file->mimeType(), back.fields); });
    uint32_t const size = file->size();
    uint32_t const position = size - (layout.fileSize - video.position);
    checked::truncate(*file, size - back.cut);
    if (note)
        writeAt(*file, position + movie::BRAND_OFFSET, note->brand);
    if (note && note->isOpen && back.length < video.size)
        setSizeOfLastBox(*file, position, back.length, true);
    int64_t const distance = int64_t{back.start} - int64_t{video.position};
    auto const box = static_cast<uint32_t>(position + distance - BOX_HEADER_SIZE);
    auto const writeBox = [&] {
        if (back.getsBox)
            writeAt(*file, box, boxHeader(file->size() - box, VIDEO_BOX));
    };
    writeBox(); // so that the boxes add up while the video moves in it
    image_index::moveBytes(file, position, distance);
    writeBox();
    done.isChanged = true;
    done.brand = note && note->brand != video.brand ? video.brand : "";
    done.filler = video.size - back.length;
    return done;
}

} // namespace android::lumo::published
