// SPDX-License-Identifier: Apache-2.0
// A photo from one form to the other: with a trailer, for this library's views, or ending with its video.
//
//     JPEG published    image, padding, gain map ...                       video
//     JPEG with trailer image, padding, gain map ...  head of record 2608  video, filler  record Info  tail
//     HEIC published    image  mpvd [video]  other boxes
//     HEIC with trailer image  mpvd [video]  other boxes  qrtd [record 2608: pointer, record Info, tail]
#include "PublishedPhoto.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MotionPhotoEdit.h"
#include "MovieBoxes.h"
#include "MovieNote.h"
#include "PublishedEdit.h"
#include "StillEnd.h"
#include "Text.h"
#include "TrailerForm.h"
#include "XMPEditImpl.h"
#include "boxes/BoxBounds.h"
#include "io/HEIFMetaWriter.h"
#include "io/ImageIndex.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo::published {

namespace {

std::string textOf(ByteBuffer const& bytes) {
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

/// The trailer that a photo gets: record 2608 and, where the movie was changed, the note.
struct NewTrailer {
    QRTDataInfo video;
    QRTDataInfo note;
    bool hasNote = false;
    uint32_t version = 0;

    void layOut() {
        video.type = qrt::TYPE_MOTION_PHOTO_DATA;
        video.name = qrt::NAME_MOTION_PHOTO_DATA;
        note.type = MovieNote::TYPE;
        note.name = qrt::NAME_MOTION_PHOTO_INFO;
        note.dataPayload = note.data.size();
        note.payload = note.offsetFromTail = hasNote ? note.size() : 0;
        video.payload = video.size();
        video.offsetFromTail = video.payload + note.payload;
    }
    uint32_t tailSize() const { return trailer::tailSize(hasNote ? 2 : 1); }
    /// Record, note and tail.
    uint32_t size() const { return video.offsetFromTail + tailSize(); }
    uint32_t headSize() const { return video.payload - video.dataPayload; }
    /// The video's record in front of a movie that stands in the file already.
    ByteBuffer head() const {
        ByteBuffer bytes;
        trailer::appendRecord(bytes, video, video.data);
        return bytes;
    }
    /// All that stands behind the video's data.
    ByteBuffer rest() {
        ByteBuffer bytes;
        std::vector<QRTDataInfo> records{trailer::withoutBytes(video)};
        if (hasNote) {
            trailer::appendRecord(bytes, note, note.data);
            records.push_back(trailer::withoutBytes(note));
        }
        return bytes.put(trailer::serializeTail(version, records));
    }
};

/// What becomes of a movie so that the views take it for one.
struct Change {
    bool brand = false;
    uint32_t filler = 0;
    bool closesLastBox = false; ///< of size 0, which ends where the file does
};

Change changeFor(PhotoLayout const& layout, MotionVideo const& video) {
    Change change;
    change.brand = !movie::isRecognised(video.brand);
    if (layout.isHEIC || video.size > VideoPointer::MAX_RECORD_SIZE)
        return change;
    change.filler = std::max(VideoPointer::MAX_RECORD_SIZE + 1 - video.size, BOX_HEADER_SIZE);
    change.closesLastBox = movie::walk(*layout.file, video.position, video.size).last.toEnd;
    return change;
}

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

/// A trailer that stands where nobody looks for it would go on claiming the video.
void requireNoHiddenTrailer(PhotoLayout const& layout) {
    if (layout.hasHiddenTrailer())
        throw ErrorAt().as(Error::Code::DAMAGED,
                           *layout.file)("other boxes hide the HEIC's trailer; repair brings it to the end");
}

// To a trailer. -------------------------------------------------------------------------------------------------------

void requireConvertible(PhotoLayout const& layout, MotionVideo const& video) {
    if (!video.isSound())
        throw ErrorAt().as(video.status == MotionVideo::Status::NONE ? Error::Code::REFUSED : Error::Code::DAMAGED,
                           *layout.file)("no sound video to convert: %s",
                                         video.reason.empty() ? "none is claimed" : video.reason.c_str());
    if (layout.topLevel.damage)
        throw ErrorAt().as(Error::Code::DAMAGED, *layout.file)("the HEIC's boxes do not add up: %s",
                                                               layout.boxFault().c_str());
    requireNoHiddenTrailer(layout);
    if (layout.videoRecord() != nullptr)
        throw ErrorAt().as(Error::Code::DAMAGED,
                           *layout.file)("the trailer's record of the video does not lead to it; repair sets it right");
    if (layout.tail)
        throw ErrorAt().as(Error::Code::UNSUPPORTED,
                           *layout.file)("the photo has a trailer already, without the video: only into another file "
                                         "it can be written anew");
    if (layout.isHEIC && video.source != MotionVideo::Source::BOX)
        throw ErrorAt().as(Error::Code::UNSUPPORTED, *layout.file)("the video at %zu stands in no box of its own",
                                                                   size_t{video.position});
    uint32_t const end = video.position + video.size;
    auto const* item = layout.claims.video();
    bool const isLast = layout.isHEIC || end == layout.fileSize ||
                        (item != nullptr && video.source == MotionVideo::Source::DIRECTORY &&
                         end + item->padding == layout.fileSize && isFiller(*layout.file, end, layout.fileSize - end));
    if (!isLast)
        throw ErrorAt().as(Error::Code::UNSUPPORTED, *layout.file)(
            "%zu bytes stand behind the video: in front of a trailer it has to be the last",
            size_t{layout.fileSize - end});
}

NewTrailer planTrailer(PhotoLayout const& layout, MotionVideo const& video, Change const& change) {
    NewTrailer planned;
    planned.video.dataPayload = layout.isHEIC ? VideoPointer::SIZE : video.size + change.filler;
    planned.hasNote = change.brand || change.filler > 0;
    if (planned.hasNote)
        planned.note.data =
            ByteBuffer().put(MovieNote{video.brand, video.size, video.size + change.filler, change.closesLastBox,
                                       MovieNote::markOf(*layout.file, video.position, video.size)}
                                 .text());
    planned.layOut();
    return planned;
}

Fields fieldsWithTrailer(PhotoLayout const& layout, MotionVideo const& video, Change const& change,
                         NewTrailer const& planned) {
    Fields fields;
    fields.mime = MediaDefs::mimeString(change.brand ? MediaDefs::MimeType::VIDEO_MP4 : video.mimeType());
    if (layout.isHEIC) {
        fields.length = uint64_t{layout.fileSize} - video.position + planned.size() + trailer::BOX_HEADER_SIZE;
        fields.primaryPadding = layout.videoBox->headerSize;
    } else {
        fields.length = uint64_t{planned.video.dataPayload} + planned.size() - planned.video.payload;
        // Between picture and video the head joins what is there; in front of a gain map it has no place.
        bool const isOwn = isPrimaryPaddingOwn(layout, video.position);
        if (!isOwn || layout.claims.inFrontOfVideo() == nullptr)
            fields.primaryPadding = planned.headSize() + (isOwn ? layout.claims.primary()->padding : 0);
        fields.addedInFront = planned.headSize();
    }
    return fields;
}

/// Of a movie's last box; 0 says that it ends where the movie does.
void setSizeOfLastBox(MediaFile& file, uint32_t position, uint32_t size, bool isOpen) {
    auto const last = movie::walk(file, position, size).last;
    writeAt(file, last.position, bigEndianBytes(isOpen ? 0 : last.size, sizeof last.size));
}

void putTrailerIntoJPEG(MediaFile& file, uint32_t position, uint32_t size, Change const& change, NewTrailer& planned) {
    writeAt(file, position, textOf(planned.head()));
    uint32_t const video = position + planned.headSize();
    uint32_t end = video + size;
    if (change.filler > 0) {
        if (change.closesLastBox)
            setSizeOfLastBox(file, video, size, false);
        writeAt(file, end, boxHeader(change.filler, boxType("free")));
        checked::fill(file, 0, change.filler - BOX_HEADER_SIZE);
        end += change.filler;
    }
    if (change.brand)
        writeAt(file, video + movie::BRAND_OFFSET, movie::RECOGNISED_BRAND);
    writeAt(file, end, textOf(planned.rest()));
}

void putTrailerIntoHEIC(std::shared_ptr<MediaFile> const& file, Change const& change, NewTrailer& planned) {
    HEIFMetaWriter::closeLastBox(file);
    PhotoLayout const now(file); // room for the XMP may have moved the box
    uint32_t const position = now.videoBox->content();
    planned.video.data = VideoPointer{VideoPointer::TAG, position, now.videoBox->end() - position}.encode();
    if (change.brand)
        writeAt(*file, position + movie::BRAND_OFFSET, movie::RECOGNISED_BRAND);
    writeAt(*file, now.fileSize,
            trailer::serializeBoxHeader(planned.size()) + textOf(planned.head()) + textOf(planned.rest()));
}

/// Into the file itself, or an output; a trailer that there was has gone, and leaves its version.
Conversion putTrailer(PhotoLayout const& layout, MotionVideo const& video, uint32_t version,
                      std::shared_ptr<MediaFile> const& output) {
    requireConvertible(layout, video);
    Conversion done;
    auto const change = changeFor(layout, video);
    auto planned = planTrailer(layout, video, change);
    planned.version = version;
    auto const fields = fieldsWithTrailer(layout, video, change, planned);
    done.isXMPWritten = takesFields(layout, fields);

    auto const file = begin(layout.file, output);
    // In a JPEG the planned record counts the video, which is there already.
    uint64_t const grown = uint64_t{layout.fileSize} + planned.size() - (layout.isHEIC ? 0 : video.size) +
                           trailer::BOX_HEADER_SIZE + (done.isXMPWritten ? xmpGrowth(layout, fields) : 0);
    checked::SpaceKeeper const space(file, checked::sizeOf(grown));
    if (done.isXMPWritten)
        writeXMP(file, [&](auto const& view) { setFields(view, file->mimeType(), fields); });
    if (layout.isHEIC) {
        putTrailerIntoHEIC(file, change, planned);
    } else {
        uint32_t const position = file->size() - (layout.fileSize - video.position);
        if (position + video.size < file->size())
            checked::truncate(*file, position + video.size); // padding behind the video
        image_index::moveBytes(file, position, planned.headSize());
        putTrailerIntoJPEG(*file, position, video.size, change, planned);
    }
    done.isChanged = true;
    done.brand = change.brand ? video.brand : "";
    done.filler = change.filler;
    return done;
}

// From a trailer. -----------------------------------------------------------------------------------------------------

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
    uint32_t start = 0;  ///< where the video will begin, before XMP moves it
    uint32_t length = 0; ///< of the video as it was
    uint32_t behind = 0; ///< boxes of a HEIC that stay behind it
    uint32_t cut = 0;    ///< bytes that go at the file's end
    Fields fields;
};

Back planBack(PhotoLayout const& layout, MotionVideo const& video, std::optional<MovieNote> const& note) {
    uint32_t const end = video.position + video.size;
    uint32_t const trailerStart = trailer::startOf(*layout.tail);
    Back back;
    back.length = note && endsWithFiller(*layout.file, video, note->length) ? note->length : video.size;
    if (layout.isHEIC) {
        auto const& last = layout.topLevel.boxes.back();
        if (last.type != TRAILER_BOX || end > last.position)
            throw ErrorAt().as(Error::Code::UNSUPPORTED, *layout.file)(
                end > last.position ? "the video stands inside the trailer, and in no box of its own"
                                    : "the trailer stands in no box of its own");
        back.start = video.position;
        back.behind = last.position - end;
        back.cut = layout.fileSize - last.position;
        back.length = video.size; // a box has no filler
    } else {
        if (video.position < trailerStart)
            throw ErrorAt().as(Error::Code::UNSUPPORTED, *layout.file)("the video at %zu stands inside the image",
                                                                       size_t{video.position});
        back.start = trailerStart;
        back.cut = layout.fileSize - (video.position + back.length);
    }
    back.fields.length = back.length;
    back.fields.itemPadding = back.behind;
    back.fields.addedInFront = -int64_t{countedHead(layout, video)};
    back.fields.primaryPadding = primaryPaddingBack(layout, video, back.start, back.fields.addedInFront);
    back.fields.mime = MediaDefs::mimeString(video.mimeType());
    return back;
}

} // namespace

Conversion toTrailer(std::shared_ptr<MediaFile> const& photo, std::shared_ptr<MediaFile> const& output) {
    PhotoLayout const layout(photo);
    auto const video = layout.locate();
    if (video.isSound() && video.source == MotionVideo::Source::TRAILER)
        return recognise(photo, output);
    bool const hasOther =
        video.isSound() && layout.tail && layout.trailerFault.empty() && layout.videoRecord() == nullptr;
    if (!hasOther || !isElsewhere(*photo, output))
        return putTrailer(layout, video, 0, output);
    removeTrailer(photo, output);
    PhotoLayout const without(output);
    auto done = putTrailer(without, without.locate(), layout.tail->version, nullptr);
    auto const edit = MotionPhotoInfo::parse(output)->edit();
    edit->addQRTInfo(QRTInfo::parse(photo)); // other records come behind those of the video
    edit->commit();
    recognise(output); // a record 2609 among them
    return done;
}

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
        bool const isClaimed = layout.claims.motionPhoto == "1" || layout.claims.microVideo == "1";
        done.isXMPWritten = isClaimed || takesFields(layout, fieldsFor(layout, video));
        bool const claims = !isClaimed && done.isXMPWritten;
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
    done.isXMPWritten = takesFields(layout, back.fields);

    auto const file = begin(photo, output);
    if (done.isXMPWritten)
        writeXMP(file, [&](auto const& view) { setFields(view, file->mimeType(), back.fields); });
    uint32_t const size = file->size();
    uint32_t const position = size - (layout.fileSize - video.position);
    checked::truncate(*file, size - back.cut);
    if (note)
        writeAt(*file, position + movie::BRAND_OFFSET, note->brand);
    if (note && note->isOpen && back.length < video.size)
        setSizeOfLastBox(*file, position, back.length, true);
    image_index::moveBytes(file, position, int64_t{back.start} - int64_t{video.position});
    done.isChanged = true;
    done.brand = note && note->brand != video.brand ? video.brand : "";
    done.filler = video.size - back.length;
    return done;
}

} // namespace android::lumo::published
