// SPDX-License-Identifier: Apache-2.0
#include "PublishedEdit.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MovieBoxes.h"
#include "ScratchFile.h"
#include "StillEnd.h"
#include "VideoFields.h"
#include "XMPEditImpl.h"
#include "XMPInfoImpl.h"
#include "io/HEIFMetaWriter.h"
#include "io/ImageIndex.h"
#include "io/ImageMetaReader.h"
#include "io/JPEGMetaWriter.h"
#include "io/MoveRest.h"

#include <algorithm>

namespace android::lumo::published {

namespace {

constexpr uint32_t MIN_XMP_ROOM = ImageMetaWriter::MIN_XMP_ROOM;
using motion_names::MOTION_PHOTO;
using motion_names::PRIMARY;
constexpr uint32_t XMP_OVERHEAD = CommitSizes::XMP_OVERHEAD;

/// The entry that stays, or a new one at the directory's end.
void requireEntries(XMPInfoImpl& view, XMPEdit& edit, MediaDefs::MimeType still, std::string const& mime) {
    auto const held = claims::read(*view.getMeta());
    auto const* video = held.video();
    bool const isKept = video != nullptr && video->containerNS == xmp_ns::CONTAINER;
    if (!isKept) {
        claims::remove(*view.getMeta());
        view.reindex();
    }
    claims::putPrimaryFirst(*view.getMeta(), MediaDefs::mimeString(still));
    view.reindex();
    if (held.primary() == nullptr || held.primary()->containerNS != xmp_ns::CONTAINER)
        edit.setItem(PRIMARY, still);
    if (!isKept) {
        VideoFields(edit).fillKinds(); // those in front of it
        edit.setItem(MOTION_PHOTO, MediaDefs::mimeTypeOf(mime));
    }
}

Error noRoom(MediaFile const& file, uint32_t size, std::exception const& reason) {
    return ErrorAt().as(Error::Code::UNSUPPORTED,
                        file)("the HEIC's XMP has no room for %zu bytes, and only an image of several tiles can be "
                              "given more: %s",
                              size_t{size}, reasonOf(reason).c_str());
}

/// A HEIC's XMP may have no room for claims, and none that can be made: then it goes without, if it had none before.
bool canWriteXMP(PhotoLayout const& layout, uint32_t size) {
    if (!layout.isHEIC)
        return true;
    HEIFMetaWriter writer(layout.file);
    if (writer.xmpRoom() >= size)
        return true;
    try {
        writer.requireRoomCanBeMade(std::max(MIN_XMP_ROOM, size));
        return true;
    } catch (std::runtime_error const& error) {
        rethrowUnlessDamage();
        if (layout.claims.any())
            throw noRoom(*layout.file, size, error);
        return false;
    }
}

/// Bytes behind the video that no item of the directory accounts for.
uint64_t paddingBehind(PhotoLayout const& layout, MotionVideo const& video) {
    uint64_t behind = uint64_t{layout.fileSize} - video.position - video.size;
    auto const* claimed = layout.claims.video();
    for (auto const& item : layout.claims.items) {
        if (claimed != nullptr && item.place > claimed->place)
            behind -= std::min(behind, item.length + item.padding);
    }
    return behind;
}

std::shared_ptr<XMPInfoImpl> openXMP(std::shared_ptr<MediaFile> const& file) {
    auto const view = std::make_shared<XMPInfoImpl>(file);
    view->takeOthers();
    claims::nestTypedNodes(*view->getMeta());
    view->reindex();
    return view;
}

uint32_t sizeWith(PhotoLayout const& layout, Fields const& fields) {
    auto const view = openXMP(layout.file);
    setFields(view, layout.file->mimeType(), fields);
    return static_cast<uint32_t>(view->serializeToBuffer().size());
}

/// Where one look at the photo tells all about its packet.
bool putXMPIn(SplicedCopy& copy, std::shared_ptr<MediaFile> const& photo, PacketChange const& change) {
    auto const view = openXMP(photo);
    view->requireUnchanged();
    change(view);
    auto const packet = view->serializeToBuffer();
    if (photo->mimeType() == MediaDefs::MimeType::IMAGE_JPEG)
        return JPEGMetaWriter(photo).putXMPIn(copy, packet);
    HEIFMetaWriter writer(photo);
    bool const fits = packet.size() <= writer.xmpRoom();
    if (fits)
        writer.putXMPIn(copy, packet, true);
    return fits;
}

} // namespace

bool isElsewhere(MediaFile const& photo, std::shared_ptr<MediaFile> const& output) {
    return output != nullptr && !checked::isSameFile(photo, *output);
}

std::shared_ptr<MediaFile> begin(std::shared_ptr<MediaFile> const& photo, std::shared_ptr<MediaFile> const& output,
                                 Stretch const& leftOut, PacketChange* change) {
    if (output == nullptr || checked::isSameFile(*photo, *output)) {
        checked::requireEditable(*photo);
        return photo;
    }
    checked::requireEditable(*output);
    SplicedCopy copy(photo);
    if (leftOut.size > 0)
        copy.replace(leftOut);
    if (change != nullptr && *change && putXMPIn(copy, photo, *change))
        *change = nullptr;
    copy.writeTo(output);
    if (uint32_t const end = leftOut.end(); leftOut.size > 0 && end < photo->size()) {
        VideoPointerKeeper(output).moved(end, -int64_t{leftOut.size});
        image_index::leftOut(*output, *photo, leftOut);
    }
    return output;
}

Fields fieldsFor(PhotoLayout const& layout, MotionVideo const& video) {
    Fields fields;
    uint32_t const toEnd = layout.fileSize - video.position;
    fields.mime = MediaDefs::mimeString(video.mimeType());
    fields.length = video.size;
    fields.itemPadding = paddingBehind(layout, video);
    if (layout.videoBox && video.source != MotionVideo::Source::SCAN)
        fields.primaryPadding = layout.videoBox->headerSize;
    if (video.source == MotionVideo::Source::TRAILER) {
        fields.length = toEnd;
        fields.itemPadding = 0;
        uint32_t const start = trailer::startOf(*layout.tail);
        if (!layout.isHEIC && !isPrimaryPaddingOwn(layout, start) && !isPrimaryPaddingOwn(layout, video.position))
            fields.primaryPadding = video.position - std::min(video.position, start);
    }
    return fields;
}

void setFields(std::shared_ptr<XMPInfoImpl> const& view, MediaDefs::MimeType still, Fields const& fields) {
    XMPPacket& packet = *view->getMeta();
    auto const before = claims::read(packet);
    XMPEditImpl edit(view);
    requireEntries(*view, edit, still, fields.mime);
    claims::removeOlder(packet);
    edit.setProperty(xmp_ns::CAMERA, MOTION_PHOTO, "1");
    edit.setProperty(xmp_ns::CAMERA, motion_names::VERSION, "1");
    auto const& moment = before.timestamp.empty() ? before.microVideoTimestamp : before.timestamp;
    if (fields.momentUs || !moment.empty())
        edit.setProperty(xmp_ns::CAMERA, motion_names::TIMESTAMP,
                         fields.momentUs ? std::to_string(*fields.momentUs) : moment);

    auto const now = claims::read(packet);
    auto const* video = now.video();
    auto const* primary = now.primary();
    if (video == nullptr || primary == nullptr)
        throw ErrorAt().as(Error::Code::XMP)("the directory takes no item %s", MOTION_PHOTO);
    if (video->semantic != MOTION_PHOTO)
        claims::setField(packet, *video, "Semantic", MOTION_PHOTO);
    if (video->mime.empty())
        claims::setField(packet, *video, "Mime", fields.mime);
    claims::setField(packet, *video, motion_names::LENGTH, std::to_string(fields.length));
    claims::setField(packet, *video, motion_names::PADDING, std::to_string(fields.itemPadding));
    if (fields.primaryPadding)
        claims::setField(packet, *primary, motion_names::PADDING, std::to_string(*fields.primaryPadding));
    for (auto const& item : now.items) {
        if (fields.addedInFront == 0 || item.place + 1 != video->place || item.isPrimary())
            continue;
        auto const padding = std::max<int64_t>(0, static_cast<int64_t>(item.padding) + fields.addedInFront);
        claims::setField(packet, item, motion_names::PADDING, padding == 0 ? "" : std::to_string(padding));
    }
    view->reindex();
    if (!view->containsItem(MOTION_PHOTO, false)) // what views do not find they cannot keep right
        VideoFields(edit).fillKinds();
}

bool takesFields(PhotoLayout const& layout, Fields const& fields) {
    return canWriteXMP(layout, sizeWith(layout, fields));
}

void requireTakesFields(PhotoLayout const& layout, Fields const& fields) {
    if (!takesFields(layout, fields))
        throw ErrorAt().as(Error::Code::UNSUPPORTED, *layout.file)(
            "there is no room for the XMP that a motion photo needs, and the image (a single one, or tiles in pieces) "
            "cannot be written anew to make some");
}

uint32_t xmpGrowth(PhotoLayout const& layout, Fields const& fields) {
    uint32_t const size = sizeWith(layout, fields) + XMP_OVERHEAD;
    auto const room = layout.isHEIC ? HEIFMetaWriter(layout.file).xmpRoom()
                                    : ImageMetaReader::of(layout.file, ParseMode::LAZY)->getXMP().payload;
    return room >= size ? 0 : std::max(MIN_XMP_ROOM, size) + XMP_OVERHEAD;
}

void writeXMP(std::shared_ptr<MediaFile> const& file, PacketChange const& change) {
    auto const view = openXMP(file);
    change(view);
    if (file->mimeType() == MediaDefs::MimeType::IMAGE_HEIC) {
        // An item has the room it was written with: more is made before the packet is written.
        auto const size = static_cast<uint32_t>(view->serializeToBuffer().size());
        HEIFMetaWriter writer(file);
        if (writer.xmpRoom() < size) {
            try {
                writer.reserveXMP(std::max(MIN_XMP_ROOM, size));
            } catch (Error const& error) {
                throw error.code() == Error::Code::UNSUPPORTED ? noRoom(*file, size, error) : error;
            }
            view->roomOpened();
        }
    }
    XMPEditImpl(view).commit();
}

bool isFiller(MediaFile const& file, uint32_t position, uint32_t size) {
    std::string ignored;
    if (!rangeFits(position, size, file.size()))
        return false;
    uint32_t const end = position + size;
    auto const box = size > 0 ? movie::boxAt(file, position, end, ignored) : std::nullopt;
    uint32_t from = box && box->type == boxType("free") && box->end() == end ? box->content() : position;
    while (from < end) {
        auto const bytes = checked::readAt(file, from, std::min(checked::MOVE_BLOCK, end - from));
        if (std::any_of(bytes.data(), bytes.data() + bytes.size(), [](auto byte) { return byte != 0; }))
            return false;
        from += static_cast<uint32_t>(bytes.size());
    }
    return true;
}

uint32_t countedHead(PhotoLayout const& layout, MotionVideo const& video) {
    auto const* item = layout.claims.inFrontOfVideo();
    uint32_t const start = layout.trailerStart();
    if (layout.isHEIC || item == nullptr || video.position < start || item->padding < video.position - start)
        return 0;
    // A picture tells which of the two places its padding leads to.
    auto const isPictureInFrontOf = [&](uint64_t end) {
        uint64_t const size = item->padding + item->length;
        return size < end && item->length >= 2 && beginsPicture(*layout.file, end - size);
    };
    bool const isOwn = isPictureInFrontOf(start) && !isPictureInFrontOf(video.position);
    return isOwn ? 0 : video.position - start;
}

bool hasItemInFront(PhotoLayout const& layout) {
    auto const& items = layout.claims.items;
    return layout.claims.video() != nullptr
               ? layout.claims.inFrontOfVideo() != nullptr
               : std::any_of(items.begin(), items.end(), [](auto const& item) { return !item.isPrimary(); });
}

bool isPrimaryPaddingOwn(PhotoLayout const& layout, uint32_t position) {
    auto const* primary = layout.claims.primary();
    if (layout.isHEIC || primary == nullptr || primary->padding == 0 || primary->padding > layout.fileSize)
        return false;
    auto const end = findStillEnd(*layout.file);
    uint64_t const place = end.value_or(0) + primary->padding;
    if (!end || !hasItemInFront(layout))
        return end && place == position;
    return beginsPicture(*layout.file, place);
}

void commit(MotionPhotoEdit& edit, MediaFile const& photo, std::shared_ptr<MediaFile> const& output) {
    if (!isElsewhere(photo, output))
        return edit.commit();
    checked::requireEditable(*output);
    if (output->size() == 0)
        return edit.commit(output);
    auto const result = scratchBeside(*output); // what it holds stays until nothing can be refused any more
    edit.commit(result);
    SplicedCopy(result).writeTo(output);
}

void requireNoHiddenTrailer(PhotoLayout const& layout) {
    if (layout.hasHiddenTrailer())
        throw ErrorAt().as(Error::Code::DAMAGED,
                           *layout.file)("other boxes hide the HEIC's trailer; repair brings it to the end");
}

void setSizeOfLastBox(MediaFile& file, uint32_t position, uint32_t size, bool isOpen) {
    auto const last = movie::walk(file, position, size).last;
    writeAt(file, last.position, bigEndianBytes(isOpen ? 0 : last.size, sizeof last.size));
}

void writeAt(MediaFile& file, uint32_t position, std::string const& bytes) {
    checked::seek(file, position);
    checked::write(file, bytes);
}

} // namespace android::lumo::published
