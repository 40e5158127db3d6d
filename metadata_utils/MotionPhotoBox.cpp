// The video of a HEIC: a top-level box 'mpvd' behind the image, and a trailer record that points to its content.
//
//     offset  width  field
//     0       4      box size, big-endian: 8 + n
//     4       4      "mpvd"
//     8       n      the video
//
// A 16-byte header (size 1, then a 64-bit size) is read as well; 8 bytes are written. Behind the image are written
// debug info, video box, trailer box.
#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "MotionPhotoEditImpl.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"
#include "io/VideoPointer.h"

#include <algorithm>
#include <limits>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
constexpr char BOX_TYPE[] = "mpvd";
constexpr uint32_t BOX_HEADER_SIZE = 8;
constexpr uint32_t MAX_SHIFT = std::numeric_limits<int>::max();
constexpr uint32_t DEFAULT_XMP_ROOM = 1280;
constexpr uint32_t XMP_ROOM_STEP = 64;
/// The fields of a motion photo take no more, in XMP that has none of them.
constexpr uint32_t EXPECTED_FIELDS = 2048;
constexpr char POINTER_TAG[] = "mpv2";

struct Range {
    uint32_t begin = 0;
    uint32_t end = 0;
};

/// The video boxes behind the image, in file order: the file in hand is the only witness of where they are now.
std::vector<Range> videoBoxes(std::shared_ptr<MediaFile> const& file) {
    HEIFMetaReader reader(file, ParseMode::LAZY);
    uint32_t const endOfImage = reader.getEndOfImagePosition(true);
    std::vector<Range> boxes;
    for (auto const& box : reader.findBox({BOX_TYPE})) {
        if (box.position >= endOfImage)
            boxes.push_back({box.position, box.position + box.size});
    }
    return boxes;
}

ByteBuffer boxHeader(uint32_t videoSize) {
    ByteBuffer header(BOX_HEADER_SIZE);
    header.put<uint32_t>(__builtin_bswap32(checked::sizeOf(uint64_t{videoSize} + BOX_HEADER_SIZE)));
    return header.put(std::string(BOX_TYPE));
}

} // namespace

// Staging. ------------------------------------------------------------------------------------------------------------

/// The box is written at commit; until then a pointer to nothing keeps the record's place, so that the trailer's size
/// is known. Another record of that type under a different name would make the pointer ambiguous.
void MotionPhotoEditImpl::stageVideoBox(StagedVideo const& video) {
    std::erase_if(qrtEdit->impl().getRecordList(), [](auto const& record) {
        return record.type == qrt::TYPE_MOTION_PHOTO_DATA && record.name != qrt::NAME_MOTION_PHOTO_DATA;
    });
    replaceMPDataByMPVDBox(0, 0);
    stagedBox = video;
    extras[ExtraType::MOTION_PHOTO_VIDEO_BOX] = [this, video](auto const& output) { addMPVDBox(output, video); };
}

std::optional<MotionPhotoEditImpl::ExpectedVideo>
MotionPhotoEditImpl::expectedBoxVideo(std::vector<QRTDataInfo> const& layout) {
    if (!stagedBox && !impl->hasVideo())
        return std::nullopt;
    uint32_t const trailerSize =
        layout.front().offsetFromTail + trailer::tailSize(layout.size()) + trailer::BOX_HEADER_SIZE;
    ExpectedVideo expected;
    expected.padding = BOX_HEADER_SIZE;
    if (stagedBox) {
        expected.length = stagedBox->size() + trailerSize;
        expected.durationUs = [this] {
            QRTDataInfo video;
            video.dataFile = stagedBox->file;
            if (stagedBox->bytes != nullptr)
                video.data = *stagedBox->bytes;
            video.dataPayload = stagedBox->size();
            return expectedDuration(video);
        };
    } else {
        expected.length = static_cast<uint32_t>(getImageSize() - getVideoPosition()) + trailerSize;
        expected.durationUs = [this] { return tryDuration([this] { return getVideoDurationUs(); }); };
    }
    return expected;
}

// Before the XMP is written. ------------------------------------------------------------------------------------------

/// An image part that cannot be written again is found before the trailer moves; what the XMP will need exactly is
/// known only afterwards.
void MotionPhotoEditImpl::requireRoomForFields() const {
    uint32_t const need = static_cast<uint32_t>(xmpEdit->serializeToBuffer().size()) + EXPECTED_FIELDS;
    HEIFMetaWriter writer(outputFile);
    if (writer.xmpRoom() < need)
        writer.requireRoomCanBeMade(std::max(DEFAULT_XMP_ROOM, need));
}

/// A trailer that other boxes hide comes to the file's end. Until then neither view nor editor knew its records: they
/// are taken in now, in front of what is staged, except those that the staged changes replace or remove.
void MotionPhotoEditImpl::restoreTrailer() {
    if (!isHEIC() || !HEIFMetaWriter::isTrailerHidden(*outputFile))
        return;
    requireRoomForFields();
    HEIFMetaWriter::restoreTrailerOrder(outputFile);
    mediator->notify(this, Event::CONTAINER_RESTRUCTURED);
    auto& staged = qrtEdit->impl().getRecordList();
    auto hidden = QRTEditImpl(impl->getTrailer()).getRecordList();
    std::erase_if(hidden, [&](auto const& record) {
        return (isMotionPhotoXMPRemoved && belongsToVideo(record)) ||
               std::any_of(staged.begin(), staged.end(),
                           [&](auto const& other) { return other.type == record.type && other.name == record.name; });
    });
    staged.insert(staged.begin(), hidden.begin(), hidden.end());
}

/// A HEIC's XMP has a room of fixed size. What is staged must fit, so the image is written again with a larger room
/// when it does not; the trailer then stands elsewhere and is read again.
void MotionPhotoEditImpl::prepareImageType() {
    if (!isHEIC() || (!xmpEdit->isDirty() && !qrtEdit->isDirty() && extras.empty()))
        return;
    uint32_t const need = static_cast<uint32_t>(xmpEdit->serializeToBuffer().size());
    HEIFMetaWriter writer(outputFile);
    uint32_t const room = writer.xmpRoom();
    if (room >= std::max(need, 1U))
        return;
    uint32_t const rounded = (need + XMP_ROOM_STEP - 1) / XMP_ROOM_STEP * XMP_ROOM_STEP;
    bool const isSource = outputFile == sourceFile;
    if (isSource)
        impl->getPacket()->requireUnchanged();
    writer.reserveXMP(std::max(DEFAULT_XMP_ROOM, rounded));
    if (isSource)
        impl->getPacket()->roomOpened();
    mediator->notify(this, Event::CONTAINER_RESTRUCTURED);
}

// Writing. ------------------------------------------------------------------------------------------------------------

/// The trailer is in memory from the first step on and written again behind the box by the trailer's own commit; a
/// failure in between leaves the image whole and the trailer lost. A box that is there already is replaced.
void MotionPhotoEditImpl::addMPVDBox(std::shared_ptr<MediaFile> const& target, StagedVideo const& video) {
    mediator->notify(this, Event::BEFORE_VIDEO_BOX);
    HEIFMetaWriter::closeLastBox(target);
    uint32_t const imageSize = static_cast<uint32_t>(getImageSize());
    requireSpaceForBox(target, imageSize, video.size());
    uint32_t const position = replaceMPVDBox(target, imageSize, video);
    LOGI("write video on %zu for %zu", static_cast<size_t>(position + BOX_HEADER_SIZE),
         static_cast<size_t>(video.size()));
    replaceMPDataByMPVDBox(position + BOX_HEADER_SIZE, video.size());
    promoteVersionRecord();
}

/// A full disk is found while old video and trailer still stand.
void MotionPhotoEditImpl::requireSpaceForBox(std::shared_ptr<MediaFile> const& target, uint32_t imageSize,
                                             uint32_t videoSize) {
    uint64_t needed = uint64_t{imageSize} + BOX_HEADER_SIZE + videoSize + trailer::BOX_HEADER_SIZE;
    auto const layout = qrtEdit->impl().plannedLayout();
    for (auto const& record : layout)
        needed += record.payload;
    checked::requireSpace(*target, checked::sizeOf(needed + trailer::tailSize(layout.size())));
}

/// What stood behind an old box stands in front of the new one. Returns the new box's position.
uint32_t MotionPhotoEditImpl::replaceMPVDBox(std::shared_ptr<MediaFile> const& target, uint32_t imageSize,
                                             StagedVideo const& video) {
    uint32_t const position = dropVideoBoxes(target, imageSize);
    writeVideoBox(target, position, video);
    return position;
}

/// Takes every video box out and the old trailer off; what else stands behind the image moves up. The trailer goes
/// first: it names a video that is about to be written over. Returns the new end.
uint32_t MotionPhotoEditImpl::dropVideoBoxes(std::shared_ptr<MediaFile> const& target, uint32_t imageSize) {
    auto const boxes = videoBoxes(target);
    for (auto const& box : boxes) {
        if (box.end < imageSize && box.end - box.begin > MAX_SHIFT)
            throw photoEditError()("a video box of %zu bytes in front of other boxes is too big to be taken out",
                                   size_t{box.end - box.begin});
    }
    checked::truncate(*target, imageSize);
    for (auto box = boxes.rbegin(); box != boxes.rend(); ++box) {
        if (box->end > imageSize)
            continue;
        if (box->end == target->size()) {
            checked::truncate(*target, box->begin);
            continue;
        }
        checked::seek(*target, box->end, photoEditError());
        target->shiftLeftSafely(static_cast<int>(box->end - box->begin), 0, true);
    }
    return target->size();
}

/// The room comes first, so that the boxes add up to the file at every step; a box that cannot be finished is taken
/// off again.
void MotionPhotoEditImpl::writeVideoBox(std::shared_ptr<MediaFile> const& target, uint32_t position,
                                        StagedVideo const& video) {
    checked::reserve(*target, checked::sizeOf(uint64_t{position} + BOX_HEADER_SIZE + video.size()));
    try {
        checked::seek(*target, position, photoEditError(661));
        checked::write(*target, boxHeader(video.size()));
        if (video.file != nullptr)
            checked::copy(video.file, target, 0, video.size());
        else
            checked::write(*target, *video.bytes);
    } catch (...) {
        target->truncate(position);
        throw;
    }
}

/// The trailer is written again from memory by its own commit, like when a box is added.
void MotionPhotoEditImpl::removeMPVDBox(std::shared_ptr<MediaFile> const& file) {
    if (videoBoxes(file).empty())
        return;
    mediator->notify(this, Event::BEFORE_VIDEO_BOX);
    dropVideoBoxes(file, static_cast<uint32_t>(getImageSize()));
}

void MotionPhotoEditImpl::replaceMPDataByMPVDBox(uint32_t position, uint32_t length) {
    LOGI("replaceMPDataByMPVDBox");
    qrtEdit->putData(qrt::TYPE_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_DATA,
                     VideoPointer{POINTER_TAG, position, length}.encode());
}

/// The pointer of a photo whose version record reads "mpv1" would never be resolved.
void MotionPhotoEditImpl::promoteVersionRecord() {
    auto const oldTag = MediaDefs::motionphotoFormatString(MediaDefs::MotionPhotoFormat::MPV1);
    auto const newTag = MediaDefs::motionphotoFormatString(MediaDefs::MotionPhotoFormat::MPV3);
    qrtEdit->impl().loadRecords();
    for (auto& record : qrtEdit->impl().getRecordList()) {
        if (record.type != qrt::TYPE_MOTION_PHOTO_VERSION)
            continue;
        auto const text = record.data.toTypedData<std::string>([](unsigned char c) { return c; });
        if (text.starts_with(oldTag))
            qrtEdit->putData(record.type, record.name, newTag);
        return;
    }
}

} // namespace android::lumo
