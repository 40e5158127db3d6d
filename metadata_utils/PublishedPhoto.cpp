// SPDX-License-Identifier: Apache-2.0
// The video of a photo out, and a clip in.
#include "PublishedPhoto.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MotionPhotoEditImpl.h"
#include "MotionPhotoInfoImpl.h"
#include "PublishedEdit.h"
#include "ScratchFile.h"
#include "XMPEditImpl.h"
#include "XMPInFile.h"
#include "io/HEIFItemRemoval.h"
#include "io/HEIFMetaReader.h"
#include "io/ImageIndex.h"
#include "io/JPEGSegments.h"
#include "io/TrailingBoxes.h"

#include <algorithm>

namespace android::lumo::published {

namespace {

constexpr uint32_t END_OF_IMAGE_SIZE = 2;
/// Trailer, fields and rounding that come with a clip.
constexpr uint32_t OVERHEAD = 4096;

/// The bytes a published video takes, counted from the file's end: XMP in front of them may move them, never the end.
struct Cut {
    uint32_t size = 0;
    uint32_t behind = 0; ///< bytes of the file behind it
    bool takesPrimaryPadding = false;
    uint64_t left = 0;      ///< bytes that the video's item counted and that stay: they are not the video's
    bool isBox = false;     ///< a HEIC's video box behind the image
    bool isBlanked = false; ///< one among the boxes of the image: nothing may move there, it becomes 'free', of zeros

    Stretch stretchOf(MediaFile const& photo) const { return {photo.size() - behind - size, size}; }
};

/// Whether the padding that the primary claims lies between the picture's last two bytes and the video, and is
/// nobody's.
bool isPaddingOfPrimary(PhotoLayout const& layout, claims::Item const& video, uint32_t position) {
    auto const* primary = layout.claims.primary();
    if (layout.isHEIC || primary == nullptr || primary->place + 1 != video.place || primary->padding == 0 ||
        primary->padding > position - std::min(position, END_OF_IMAGE_SIZE))
        return false;
    auto const end = position - static_cast<uint32_t>(primary->padding) - END_OF_IMAGE_SIZE;
    auto const bytes = checked::readAt(*layout.file, end, END_OF_IMAGE_SIZE);
    return bytes.data()[0] == 0xFF && bytes.data()[1] == 0xD9 &&
           isFiller(*layout.file, end + END_OF_IMAGE_SIZE, static_cast<uint32_t>(primary->padding));
}

/// The box with its header, whatever it holds.
Cut planBoxCut(PhotoLayout const& layout) {
    auto const& box = *layout.videoBox;
    bool const isBehind = box.position >= layout.topLevel.endOfImage();
    if (isBehind)
        heif::TrailingBoxes(layout.file).requireVideosBehindCanGo(box.position);
    return {box.size, layout.fileSize - box.end(), false, 0, isBehind, !isBehind};
}

Cut planCut(PhotoLayout const& layout, MotionVideo const& video) {
    if (layout.videoBox)
        return planBoxCut(layout);
    if (!video.isSound())
        return {};
    uint32_t start = video.position;
    uint32_t end = video.position + video.size;
    Cut cut;
    if (auto const* item = layout.claims.video(); item != nullptr && video.source == MotionVideo::Source::DIRECTORY) {
        uint32_t const last = std::max(end, layout.trailerStart()); // a padding may count the trailer
        auto const padding = static_cast<uint32_t>(std::min<uint64_t>(item->padding, last - end));
        end += isFiller(*layout.file, end, padding) ? padding : 0;
        uint64_t const counted = item->length + item->padding, trailer = layout.fileSize - layout.trailerStart();
        cut.left = counted - std::min(counted, uint64_t{end} - start + trailer); // what is a trailer's is no padding
        cut.takesPrimaryPadding = isPaddingOfPrimary(layout, *item, start);
        start -= cut.takesPrimaryPadding ? static_cast<uint32_t>(layout.claims.primary()->padding) : 0;
    }
    if (layout.isHEIC && end != layout.fileSize)
        throw ErrorAt().as(Error::Code::UNSUPPORTED,
                           *layout.file)("the video at %zu stands in no box of its own and %zu bytes behind it",
                                         size_t{video.position}, size_t{layout.fileSize - end});
    cut.size = end - start;
    cut.behind = layout.fileSize - end;
    return cut;
}

void blank(MediaFile& file, uint32_t position, uint32_t size) {
    writeAt(file, position + sizeof(uint32_t), "free");
    checked::fill(file, 0, size - static_cast<uint32_t>(2 * sizeof(uint32_t)));
}

/// What stays of the bytes that the video's item counted stands behind the item in front of it, and is counted there.
/// Padding of a picture that nothing follows leads nowhere; a HEIC's was the header of the box.
void settlePadding(XMPPacket& packet, int32_t place, Cut const& cut, bool isHEIC) {
    auto const now = claims::read(packet);
    auto const set = [&](claims::Item const& item, uint64_t padding) {
        if (padding != item.padding)
            claims::setField(packet, item, motion_names::PADDING, std::to_string(padding));
    };
    for (auto const& item : now.items) {
        bool const isLast = item.place == now.items.back().place;
        if (item.isPrimary() && (isHEIC || isLast))
            set(item, 0);
        else if (item.place + 1 == place)
            set(item, (cut.takesPrimaryPadding ? 0 : item.padding) + cut.left);
    }
}

PacketChange dropClaimsOf(PhotoLayout const& layout, Cut const& cut) {
    if (!layout.claims.any())
        return nullptr;
    auto const* video = layout.claims.video();
    int32_t const place = video != nullptr ? video->place : 0;
    return [cut, place, isHEIC = layout.isHEIC](auto const& view) {
        claims::remove(*view->getMeta());
        settlePadding(*view->getMeta(), place, cut, isHEIC);
        view->reindex();
    };
}

/// The claims first: a movie that nothing claims is found by a scan, a claim that leads nowhere misleads readers. Into
/// another file both are done on the way, as far as they can be.
void takeOut(PhotoLayout const& layout, Cut const& cut, std::shared_ptr<MediaFile> const& output) {
    auto change = dropClaimsOf(layout, cut);
    bool const isLeftOut = isElsewhere(*layout.file, output) && !cut.isBlanked;
    auto const file = begin(layout.file, output, isLeftOut ? cut.stretchOf(*layout.file) : Stretch(), &change);
    if (change)
        writeXMP(file, change);
    if (cut.isBox)
        return void(heif::TrailingBoxes(file).takeVideosBehindOut());
    if (cut.size == 0 || isLeftOut)
        return;
    uint32_t const end = file->size() - cut.behind;
    if (cut.isBlanked)
        blank(*file, end - cut.size, cut.size);
    else if (cut.behind == 0)
        checked::truncate(*file, end - cut.size);
    else
        image_index::moveBytes(file, end, -int64_t{cut.size});
}

/// A trailer is the motion-photo editor's own; what it holds of the video goes with it.
bool isForEditor(PhotoLayout const& layout) {
    return layout.videoRecord() != nullptr || !layout.trailerFault.empty() || layout.hasHiddenTrailer();
}

/// All claims out of the editor's packet, whatever form they have; it puts its own in. `head`: bytes that go with them
/// from the padding of the entry at a place.
void dropClaims(MotionPhotoEdit& edit, int32_t place = 0, uint32_t head = 0) {
    auto const view = XMPInfoImpl::of(edit.getXMPEdit());
    view->takeOthers();
    claims::nestTypedNodes(*view->getMeta());
    for (auto const& item : claims::read(*view->getMeta()).items) {
        if (head > 0 && item.place == place && item.padding >= head)
            claims::setField(*view->getMeta(), item, motion_names::PADDING,
                             item.padding == head ? "" : std::to_string(item.padding - head));
    }
    claims::remove(*view->getMeta());
    view->reindex();
    edit.getXMPEdit().removeProperty(xmp_ns::CAMERA,
                                     motion_names::MOTION_PHOTO); // so that the editor knows of the change
}

void removeByEditor(PhotoLayout const& layout, std::shared_ptr<MediaFile> const& output) {
    auto const edit = MotionPhotoInfo::parse(layout.file)->edit();
    auto const video = layout.fromTrailer();
    auto const head = video.isSound() ? countedHead(layout, video) : 0;
    edit->removeVideo(layout.file);
    if (layout.claims.any())
        dropClaims(*edit, head > 0 ? layout.claims.inFrontOfVideo()->place : 0, head);
    commit(*edit, *layout.file, output);
}

void requireInside(int64_t momentUs, std::optional<int64_t> const& durationUs) {
    if (momentUs < 0 || (durationUs && momentUs > *durationUs))
        throw ErrorAt()("the moment %lld us lies outside the video of %lld us", static_cast<long long>(momentUs),
                        static_cast<long long>(durationUs.value_or(0)));
}

/// All that adding can be refused for while the photo is as it was.
void requireAddable(PhotoLayout const& layout, MotionClip const& clip, AddOptions const& options,
                    std::shared_ptr<MediaFile> const& clipSource, std::shared_ptr<MediaFile> const& output) {
    for (auto const& other : {layout.file, output}) {
        if (other != nullptr && checked::isSameFile(*other, *clipSource))
            throw ErrorAt()("the video is the photo itself: %s", other->toString().c_str());
    }
    if (options.momentUs) {
        auto const duration = VideoSource(clip.file).durationUs();
        requireInside(*options.momentUs, duration == 0 ? std::nullopt : duration); // one in fragments may leave it open
        if (static_cast<long>(*options.momentUs) != *options.momentUs)             // 32 bits on some platforms
            throw ErrorAt().as(Error::Code::TOO_BIG)("a moment of %lld us", static_cast<long long>(*options.momentUs));
    }
    // About the fields the editor will write; it refuses the rest itself, but only when the old video may be gone.
    if (layout.isHEIC) {
        Fields fields{clip.file->size(), 0, 8, 0};
        fields.momentUs = options.momentUs ? options.momentUs : VideoSource(clip.file).durationUs();
        requireTakesFields(layout, fields);
    }
    uint32_t const needed = checked::sizeOf(uint64_t{layout.fileSize} + clip.file->size() + OVERHEAD);
    if (output == nullptr)
        checked::requireSpace(*layout.file, needed - std::min(needed, layout.locate().size));
}

/// What the packet of the new video would be refused for, found on the still alone while the old one is there.
void rehearsePacket(PhotoLayout const& layout, Cut const& cut) {
    auto const still = scratchBeside(*layout.file);
    PacketChange const drop = dropClaimsOf(layout, cut);
    begin(layout.file, still, cut.stretchOf(*layout.file));
    writeXMP(still, [&](auto const& view) {
        if (drop)
            drop(view);
        setFields(view, still->mimeType(), {UINT32_MAX, 0, layout.fileSize, 0});
        XMPEditImpl(view).setProperty(xmp_ns::CAMERA, motion_names::TIMESTAMP, std::to_string(UINT32_MAX));
    });
}

} // namespace

MotionVideo removeVideo(std::shared_ptr<MediaFile> const& photo, std::shared_ptr<MediaFile> const& output) {
    PhotoLayout const layout(photo);
    auto const video = layout.locate();
    if (video.status == MotionVideo::Status::NONE && !layout.claims.any())
        throw ErrorAt().as(video.reason.empty() ? Error::Code::REFUSED : Error::Code::DAMAGED,
                           *photo)("nothing in %s speaks of a video%s%s", photo->getPath().c_str(),
                                   video.reason.empty() ? "" : ", as far as it can be read: ", video.reason.c_str());
    if (isForEditor(layout)) {
        removeByEditor(layout, output);
        return video;
    }
    takeOut(layout, planCut(layout, video), output);
    return video;
}

MotionClip addVideo(std::shared_ptr<MediaFile> const& photo, std::shared_ptr<MediaFile> const& clip,
                    AddOptions const& options, std::shared_ptr<MediaFile> const& output) {
    PhotoLayout const layout(photo);
    auto const prepared = MotionClip::prepare(clip, photo->mimeType(), options.clip);
    requireAddable(layout, prepared, options, clip, output);
    // The editor takes a HEIC's box out itself, in the commit that writes the new one, and leaves out of another file
    // what it is told to.
    bool const isKnownToEditor = isForEditor(layout) || layout.videoBox.has_value();
    auto const cut = isKnownToEditor ? Cut() : planCut(layout, layout.locate());
    bool const byEditor = isKnownToEditor || isElsewhere(*photo, output);
    if (!byEditor) {
        rehearsePacket(layout, cut);
        takeOut(layout, cut, nullptr);
    }
    auto const edit = MotionPhotoInfo::parse(photo)->edit();
    if (!isKnownToEditor && byEditor)
        dynamic_cast<MotionPhotoEditImpl&>(*edit).leaveOut(cut.stretchOf(*photo));
    if (byEditor && layout.claims.any())
        dropClaims(*edit);
    prepared.stage(*edit);
    if (options.momentUs)
        edit->setPhotoPresentationTimestampUs(static_cast<long>(*options.momentUs));
    commit(*edit, *photo, output);
    return prepared;
}

void setMoment(std::shared_ptr<MediaFile> const& photo, int64_t momentUs, std::shared_ptr<MediaFile> const& output) {
    PhotoLayout const layout(photo);
    auto const video = layout.locate();
    if (!video.isSound())
        throw ErrorAt()("no sound video to name a moment of in %s", photo->getPath().c_str());
    requireInside(momentUs, video.durationUs(photo));
    auto const fields = fieldsFor(layout, video);
    bool const isClaimed = layout.claims.motionPhoto == "1" || layout.claims.microVideo == "1";
    if (!isClaimed)
        requireTakesFields(layout, fields);
    auto const file = begin(photo, output);
    writeXMP(file, [&](auto const& view) {
        if (!isClaimed)
            setFields(view, file->mimeType(), fields);
        XMPEditImpl edit(view);
        if (layout.claims.motionPhoto == "1" || !isClaimed)
            edit.setProperty(xmp_ns::CAMERA, motion_names::TIMESTAMP, std::to_string(momentUs));
        if (layout.claims.microVideo == "1")
            edit.setProperty(xmp_ns::CAMERA, motion_names::MICRO_VIDEO_TIMESTAMP, std::to_string(momentUs));
    });
}

void removeTrailer(std::shared_ptr<MediaFile> const& photo, std::shared_ptr<MediaFile> const& output) {
    PhotoLayout const layout(photo);
    if (!layout.tail || layout.videoRecord() != nullptr)
        throw ErrorAt().as(Error::Code::REFUSED, *photo)(
            layout.tail ? "the trailer of %s holds the video" : "%s has no trailer", photo->getPath().c_str());
    uint32_t const size = layout.fileSize - layout.trailerStart();
    bool const isCounted = layout.fromDirectory().isSound() || layout.fromMicroVideo().isSound();
    auto const file = begin(photo, output);
    if (isCounted) {
        writeXMP(file, [&](auto const& view) {
            claims::followEnd(*view->getMeta(), -int64_t{size});
            view->reindex();
        });
    }
    checked::truncate(*file, file->size() - size);
}

namespace {

bool removeSegment(std::shared_ptr<MediaFile> const& photo) {
    auto const segments = jpeg::mapSegments(*photo);
    auto const isXMP = [](auto const& block) { return block.type == MediaDefs::MetaType::XMP; };
    auto const found = std::find_if(segments.blocks.begin(), segments.blocks.end(), isXMP);
    if (segments.count(MediaDefs::MetaType::XMP) != 1)
        return false;
    checked::requireEditable(*photo);
    jpeg::requireInImage(*photo, found->segment.position, found->segment.size());
    image_index::moveBytes(photo, found->segment.end(), -int64_t{found->segment.size()});
    return true;
}

bool removeXMPItem(std::shared_ptr<MediaFile> const& photo) {
    auto const item = HEIFMetaReader(photo, ParseMode::LAZY).getXMPItem();
    if (!item || !item->refusal.empty())
        return false;
    auto const removal = heif::ItemRemoval::ofXMP(photo, {item->position, item->length});
    if (removal)
        removal->carryOut();
    return removal.has_value();
}

} // namespace

/// Empty is what this library writes of an empty packet, blanks behind it: whatever else stands there stays.
bool removeEmptyXMP(std::shared_ptr<MediaFile> const& photo) {
    if (photo == nullptr)
        return false;
    bool const isJPEG = photo->mimeType() == MediaDefs::MimeType::IMAGE_JPEG;
    if (!isJPEG && photo->mimeType() != MediaDefs::MimeType::IMAGE_HEIC)
        return false;
    XMPInFile const inFile(photo);
    auto const packet = inFile.packet();
    bool const isEmpty = packet.ends_with("</x:xmpmeta>") && XMPPacket().serialize().starts_with(packet);
    return isEmpty && inFile.count() == 1 && (isJPEG ? removeSegment(photo) : removeXMPItem(photo));
}

} // namespace android::lumo::published
