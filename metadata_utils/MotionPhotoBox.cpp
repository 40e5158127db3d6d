// The video of a HEIC: a top-level box 'mpvd' behind the image, and a trailer record that points to its content.
//
//     offset  width  field
//     0       4      box size, big-endian: 8 + n
//     4       4      "mpvd"
//     8       n      the video
//
// A 16-byte header (size 1, then a 64-bit size) is read as well; 8 bytes are written. The order behind the image is
// debug info, video box, trailer box.
#include "CheckedFile.h"
#include "Error.h"
#include "Log.h"
#include "MotionPhotoEditImpl.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
constexpr char BOX_TYPE[] = "mpvd";
constexpr uint32_t BOX_HEADER_SIZE = 8;
constexpr uint32_t DEFAULT_XMP_ROOM = 1280;
constexpr uint32_t XMP_ROOM_STEP = 64;
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

/// A trailer that other boxes hide comes to the file's end. Until then neither view nor editor knew its records: they
/// are taken in now, in front of what is staged, except those that the staged changes replace or remove.
void MotionPhotoEditImpl::restoreTrailer() {
    if (!isHEIC() || !HEIFMetaWriter::restoreTrailerOrder(outputFile))
        return;
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
    writer.reserveXMP(std::max(DEFAULT_XMP_ROOM, rounded));
    mediator->notify(this, Event::CONTAINER_RESTRUCTURED);
}

// Writing. ------------------------------------------------------------------------------------------------------------

/// The trailer is in memory from the first step on and written again behind the box by the trailer's own commit; a
/// failure in between leaves the image whole and the trailer lost.
void MotionPhotoEditImpl::addMPVDBox(std::shared_ptr<MediaFile> const& target, StagedVideo const& video) {
    mediator->notify(this, Event::BEFORE_VIDEO_BOX);
    HEIFMetaWriter::closeLastBox(target);
    uint32_t const imageSize = static_cast<uint32_t>(getImageSize());
    reserveVideoBox(target, imageSize, video.size());
    uint32_t const position = dropVideoBoxes(target, imageSize);
    checked::seek(*target, position, ErrorAt(661));
    checked::write(*target, boxHeader(video.size()));
    if (video.file != nullptr)
        checked::copy(video.file, target, 0, video.size());
    else
        checked::write(*target, *video.bytes);
    checked::truncate(*target, target->position());
    LOGI("write video on %zu for %zu", static_cast<size_t>(position + BOX_HEADER_SIZE),
         static_cast<size_t>(video.size()));
    replaceMPDataByMPVDBox(position + BOX_HEADER_SIZE, video.size());
    promoteVersionRecord();
}

/// A full disk is found before the first byte moves. The file's size goes back at once: only the space was asked for.
void MotionPhotoEditImpl::reserveVideoBox(std::shared_ptr<MediaFile> const& target, uint32_t imageSize,
                                          uint32_t videoSize) {
    uint64_t needed = uint64_t{imageSize} + BOX_HEADER_SIZE + videoSize + trailer::BOX_HEADER_SIZE;
    auto const layout = qrtEdit->impl().plannedLayout();
    for (auto const& record : layout)
        needed += record.payload;
    uint32_t const before = target->size();
    checked::reserve(*target, checked::sizeOf(needed + trailer::tailSize(layout.size())));
    checked::truncate(*target, before);
}

/// Takes every video box out and the old trailer off; what else stands behind the image moves up. Returns the new end.
uint32_t MotionPhotoEditImpl::dropVideoBoxes(std::shared_ptr<MediaFile> const& target, uint32_t imageSize) {
    auto const boxes = videoBoxes(target);
    checked::truncate(*target, imageSize);
    for (auto box = boxes.rbegin(); box != boxes.rend(); ++box) {
        if (box->end > imageSize)
            continue;
        checked::seek(*target, box->end);
        target->shiftLeftSafely(static_cast<int>(box->end - box->begin), 0, true);
    }
    return target->size();
}

/// The trailer behind the box moves up with everything else; its own commit settles where it then stands.
void MotionPhotoEditImpl::removeMPVDBox(std::shared_ptr<MediaFile> const& file) {
    auto const boxes = videoBoxes(file);
    for (auto box = boxes.rbegin(); box != boxes.rend(); ++box) {
        uint32_t const size = box->end - box->begin;
        if (box->end == file->size()) {
            checked::truncate(*file, box->begin);
            continue;
        }
        checked::seek(*file, box->end);
        file->shiftLeftSafely(static_cast<int>(size), 0, true);
    }
}

void MotionPhotoEditImpl::replaceVideo(std::shared_ptr<MediaFile> const& target,
                                       std::shared_ptr<ByteBuffer> const& video) {
    if (videoBoxes(target).size() == 1)
        replaceMPVDBox(target, *video);
    else
        addMPVDBox(target, {nullptr, video});
}

/// What stands behind the box is kept in memory while the box is written over; it is the trailer, never a video.
void MotionPhotoEditImpl::replaceMPVDBox(std::shared_ptr<MediaFile> const& file, ByteBuffer const& video) {
    Range const box = videoBoxes(file).front();
    uint32_t const oldSize = file->size();
    uint32_t const behind = oldSize - box.end;
    uint32_t const newSize = checked::sizeOf(uint64_t{box.begin} + BOX_HEADER_SIZE + video.size() + behind);
    ByteBuffer const tail = checked::readAt(*file, box.end, behind);
    checked::reserve(*file, std::max(oldSize, newSize));
    checked::seek(*file, box.begin);
    checked::write(*file, boxHeader(video.size()));
    checked::write(*file, video);
    checked::write(*file, tail);
    checked::truncate(*file, newSize);
    replaceMPDataByMPVDBox(box.begin + BOX_HEADER_SIZE, video.size());
    promoteVersionRecord();
    mediator->notify(this, Event::CONTAINER_RESTRUCTURED);
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
