// SPDX-License-Identifier: Apache-2.0
// A photo from one form to the other: with a trailer, for this library's views, or ending with its video
// (PublishedBack.cpp).
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
        if (!isOwn || !hasItemInFront(layout))
            fields.primaryPadding = planned.headSize() + (isOwn ? layout.claims.primary()->padding : 0);
        fields.addedInFront = planned.headSize();
    }
    return fields;
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

} // namespace android::lumo::published
