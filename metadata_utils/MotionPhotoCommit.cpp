// SPDX-License-Identifier: Apache-2.0
#include "MotionPhotoCommit.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "io/HEIFMetaWriter.h"
#include "io/ImageMetaReader.h"
#include "io/TrailingBoxes.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
/// The packet as the caller staged it, for a commit that fails: the next one starts over.
class PacketKeeper {
public:
    explicit PacketKeeper(MotionPhotoParts& photo)
        : parts(photo), contents(photo.view->getPacket()->copyContents()), wasDirty(photo.xmpEdit->isDirty()) {}
    ~PacketKeeper() {
        if (isDone)
            return;
        parts.view->getPacket()->exchange(std::move(contents));
        if (wasDirty)
            parts.xmpEdit->makeDirty();
        else
            parts.xmpEdit->setAside();
    }
    PacketKeeper(PacketKeeper const&) = delete;
    PacketKeeper& operator=(PacketKeeper const&) = delete;
    void release() { isDone = true; }

private:
    MotionPhotoParts& parts;
    XMPInfoImpl::Contents contents;
    bool wasDirty;
    bool isDone = false;
};

} // namespace

void MotionPhotoCommit::write() {
    Planned planned(parts.qrtEdit->staging());
    KeptBoxes::OneLook const boxes(parts.boxes);
    requireCommittable(*parts.outputFile);
    PacketKeeper packet(parts);
    mediator.reset();
    try {
        writeSteps(planned);
    } catch (...) {
        planned.reset();
        noteGrowth();
        throw;
    }
    packet.release();
    orgFileSize.reset();
    outside.toldOf.reset();
}

/// The trailer is looked at once for everything that is worked out before a step writes. A HEIC's steps stage records.
void MotionPhotoCommit::writeSteps(Planned& planned) {
    if (!orgFileSize)
        orgFileSize = parts.view->getFileSize();
    fields.emplace(parts, staged, outside);
    bool const isWithoutXMP = isVideoRemovalWithoutXMP();
    std::optional<checked::SpaceKeeper> space;
    if (!isWithoutXMP) {
        prepareCommit(planned);
        space.emplace(parts.outputFile, sizes().workSize(), ErrorAt());
    }
    auto const forgetPlan = [&, changes = parts.outputFile->changes()] {
        if (parts.isHEIC || parts.outputFile->changes() != changes)
            planned.reset();
    };
    forgetPlan();
    if (!isWithoutXMP)
        prepareImageType();
    LOGI("xmp-isDirty: %d, qrt-isDirty: %d", parts.xmpEdit->isDirty(), parts.qrtEdit->isDirty());
    if (parts.xmpEdit->isDirty() && !isWithoutXMP)
        parts.xmpEdit->commit(parts.outputFile);
    forgetPlan();
    for (auto const& extra : staged.extras)
        extra.second(parts.outputFile);
    forgetPlan();
    if (parts.qrtEdit->isDirty())
        parts.qrtEdit->commitPrepared(parts.outputFile);
    if (isWithoutXMP)
        parts.xmpEdit->setAside();
    else
        fields->completeCommit(*orgFileSize);
}

/// Room for a box or for XMP that was opened and could not be given back is nobody's: a second commit would take it for
/// a part of the image. What the trailer's editor has left it knows itself.
void MotionPhotoCommit::noteGrowth() noexcept {
    try {
        auto const& trailer = *parts.view->getTrailer();
        uint64_t known = trailer.getImageSize();
        if (trailer.getTrailerSize() > 0)
            known += uint64_t{trailer.boxHeaderSize()} + trailer.getTrailerSize();
        uint32_t const size = parts.outputFile->size();
        if (parts.isHEIC && !parts.qrtEdit->staging().isUnfinished() && size > known)
            sizeWithGrowth = size;
    } catch (std::exception const& e) {
        LOGE("fail to look at what a failed commit has left: %s", e.what());
    }
}

void MotionPhotoCommit::prepareCommit(Planned& planned) {
    if (mustRestoreTrailer()) {
        planned.reset();
        restoreTrailer();
        planned.emplace(parts.qrtEdit->staging());
    }
    fields->prepareXMP();
    fields->stageExpectedFields();
}

/// Invariant 1. What only the container knows (a packet that fits no segment, a layout that cannot be written again) is
/// refused by the first container step, which checks before it moves anything.
void MotionPhotoCommit::requireCommittable(MediaFile const& output, bool isTrailerWritten) {
    checked::requireEditable(output);
    requireNothingLeft();
    if (isTrailerWritten)
        requireVideoStaysReadable();
    bool const writesTrailer = parts.qrtEdit->isDirty(), hasExtras = !staged.extras.empty();
    if (!writesTrailer && !hasExtras && !parts.xmpEdit->isDirty())
        return;
    if (staged.video)
        staged.video->requireReadable(output, "the video");
    if (writesTrailer)
        requireVideoStaysReadable();
    if (writesTrailer || hasExtras) { // a file that is no longer the one that was read, before all else
        auto const image = parts.qrtEdit->staging().plan().getGround().image;
        if (parts.isHEIC && hasExtras)
            parts.trailingBoxes()->requireVideosCanGo(image);
    }
    if (!parts.isHEIC && hasExtras)
        static_cast<void>(outside.pointedVideoLast());
    parts.view->getPacket()->requireUnchanged();
    CommitFields(parts, staged, outside).requireTimestamp();
    sizes().requireAddressable();
}

void MotionPhotoCommit::requireNothingLeft() const {
    if (outside.isTorn() || (sizeWithGrowth != 0 && parts.outputFile->size() == sizeWithGrowth))
        throw ErrorAt().as(Error::Code::CHANGED)(
            "the file has changed since it was read: a commit that failed has left "
            "unused bytes in it");
}

/// The flag of sub-info is written in another bit than it is read from: the record would read back with the sub-info
/// as its data's first bytes, and no video begins there.
void MotionPhotoCommit::requireVideoStaysReadable() const {
    auto const& records = parts.qrtEdit->staging().getStaged();
    bool const isLost = std::any_of(records.begin(), records.end(), [](auto const& record) {
        return record.type == qrt::TYPE_MOTION_PHOTO_DATA && record.hasSubInfo;
    });
    if (isLost)
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("the record of the video has sub-info: written again, its video "
                                                     "would not be found");
}

/// What the disk is asked for before the first byte moves. The room of the XMP is the one requireUnchanged() has found.
CommitSizes MotionPhotoCommit::sizes() {
    CommitSizes sizes(parts.outputFile->size());
    if (parts.xmpEdit->isDirty()) {
        auto const& room = parts.view->getPacket()->getInFile().getRoom();
        sizes.addXMP(parts.xmpEdit->serializeToBuffer().size() + room.identifier, room.size);
    }
    if (parts.isHEIC && !staged.extras.empty())
        sizes.exchangeBox(parts.trailingBoxes()->videosSize(),
                          staged.video ? uint64_t{heif::TrailingBoxes::VIDEO_HEADER_SIZE} + staged.video->size() : 0);
    if (parts.qrtEdit->isDirty())
        sizes.addTrailer(parts.qrtEdit->staging().plan());
    return sizes;
}

/// Nothing is left to be said of a video, and nothing else is asked for: a HEIC without XMP stays without, and needs no
/// room for any.
bool MotionPhotoCommit::isVideoRemovalWithoutXMP() {
    if (!parts.isHEIC || !staged.isMotionPhotoXMPRemoved || !parts.xmpEdit->isEmpty())
        return false;
    auto const& records = parts.qrtEdit->staging().getStaged();
    bool const onlyRemoves =
        std::all_of(records.begin(), records.end(), [](auto const& each) { return each.isInFile(); });
    return onlyRemoves && !parts.trailingBoxes()->isTrailerHidden() &&
           ImageMetaReader::of(parts.outputFile, ParseMode::LAZY)->findAllXMP().empty();
}

PacketAhead MotionPhotoCommit::packetAhead() {
    bool const isStaged = parts.qrtEdit->isDirty() || parts.xmpEdit->isDirty() || !staged.extras.empty();
    if (!isStaged || staged.isXMPSetAside || staged.isTrailerSetAside || isVideoRemovalWithoutXMP())
        return {};
    PacketKeeper const keeper(parts);
    CommitFields ahead(parts, staged, outside);
    ahead.prepareXMP();
    ahead.stageExpectedFields();
    if (!parts.isHEIC && !parts.xmpEdit->isDirty())
        return {};
    return {parts.view->getPacket()->getMeta(), parts.xmpEdit->serializeToBuffer(), parts.xmpEdit->isDirty()};
}

/// What counts from the file's end, or from the image's, is corrected in the packet when the trailer is written; in
/// another file the room for it is made then.
void MotionPhotoCommit::prepareTrailer(MediaFile const& file) {
    if (!parts.qrtEdit->staging().writesTrailer())
        return;
    checked::requireEditable(file);
    requireNothingLeft();
    parts.view->getPacket()->getInFile().requireNotTorn();
    requireVideoStaysReadable();
    static_cast<void>(parts.qrtEdit->staging().plan()); // a file that is no longer the one that was read
    PacketKeeper const keeper(parts);
    try {
        prepareTrailerSteps(file);
    } catch (...) {
        noteGrowth();
        throw;
    }
}

void MotionPhotoCommit::prepareTrailerSteps(MediaFile const& file) {
    bool const isElsewhere = !checked::isSameFile(file, *parts.outputFile);
    if (isElsewhere) { // which gets nothing of what is staged for the packet
        QRTEditImpl::requireNotHidden(*parts.outputFile);
        parts.view->getPacket()->adopt(parts.view->getPacket()->packetInFile()->clone());
    } else if (mustRestoreTrailer()) {
        restoreTrailer();
    }
    CommitFields(parts, staged, outside).stageTrailerFields();
    if (!parts.xmpEdit->isDirty())
        return;
    parts.view->getPacket()->requireUnchanged();
    if (isElsewhere)
        return requireRoomFor(static_cast<uint32_t>(parts.xmpEdit->serializeToBuffer().size()));
    checked::SpaceKeeper const space(parts.outputFile, sizes().workSize());
    mediator.makeRoom();
}

// A HEIC's container. -------------------------------------------------------------------------------------------------

/// An image part that cannot be written again is found before the trailer moves; what the XMP will need exactly is
/// known only afterwards.
void MotionPhotoCommit::requireRoomFor(uint32_t packetSize) const {
    if (!parts.isHEIC)
        return;
    HEIFMetaWriter writer(parts.outputFile);
    if (writer.xmpRoom() < packetSize)
        writer.requireRoomCanBeMade(std::max(ImageMetaWriter::MIN_XMP_ROOM, packetSize));
}

bool MotionPhotoCommit::mustRestoreTrailer() const {
    return parts.isHEIC && (isTrailerFound || parts.trailingBoxes()->isTrailerHidden());
}

/// A trailer that other boxes hide comes to the file's end. Until then neither view nor editor knew its records: they
/// are taken in now, in front of what is staged, except those that the staged changes replace or remove. A commit that
/// fails in between leaves that to the next one.
void MotionPhotoCommit::restoreTrailer() {
    if (HEIFMetaWriter::isTrailerHidden(*parts.outputFile)) {
        requireRoomFor(static_cast<uint32_t>(parts.xmpEdit->serializeToBuffer().size()) + CommitSizes::VIDEO_FIELDS);
        isTrailerFound = true;
        HEIFMetaWriter::restoreTrailerOrder(parts.outputFile);
    }
    mediator.notify(this, MotionPhotoEditImpl::Event::CONTAINER_RESTRUCTURED, parts.outputFile);
    parts.qrtEdit->staging().takeUpFound(
        [this](auto const& record) { return staged.isMotionPhotoXMPRemoved && belongsToVideo(record); });
    parts.qrtEdit->makeDirty();
    isTrailerFound = false;
}

void MotionPhotoCommit::prepareImageType() {
    if (parts.xmpEdit->isDirty() || parts.qrtEdit->isDirty() || !staged.extras.empty())
        mediator.makeRoom();
}

} // namespace android::lumo
