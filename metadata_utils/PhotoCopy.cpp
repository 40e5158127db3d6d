// SPDX-License-Identifier: Apache-2.0
#include "PhotoCopy.h"

#include "CheckedFile.h"
#include "io/HEIFMetaWriter.h"
#include "io/ImageIndex.h"
#include "io/JPEGMetaWriter.h"
#include "io/TrailingBoxes.h"

#include <algorithm>
#include <string>
#include <vector>

namespace android::lumo {

namespace {

/// What is smaller is dropped in place.
constexpr uint32_t LEAST_LEFT_OUT = 4096;

std::string emptyBox(heif::TopLevelBox const& box) {
    return box.headerSize == BOX_HEADER_SIZE ? boxHeader(box.headerSize, box.type)
                                             : boxHeader(1, box.type) + bigEndianBytes(box.headerSize, 8);
}

} // namespace

PhotoCopy::PhotoCopy(MotionPhotoEditImpl& owner)
    : photo(owner.getView()->getFile()), isHEIC(photo->mimeType() == MediaDefs::MimeType::IMAGE_HEIC), copy(photo) {
    auto& staging = owner.getQRTEdit().staging();
    if (staging.getOutput() != photo || (isHEIC && owner.getBoxes().of(photo)->isTrailerHidden()))
        return;
    auto const plan = staging.plan();
    auto const& stored = *owner.getView()->getTrailer()->getStored();
    trailerStart = plan.start();
    pointer = plan.getGround().hasTrailer ? findPointer(stored) : std::nullopt;
    if (isHEIC || !pointer) // the fields of a JPEG's are worked out in two steps
        putXMP(owner);
    leftOut = owner.getLeftOut();
    if (leftOut.size > 0)
        copy.replace(leftOut);
    if (owner.getVideoEdit() != nullptr) {
        if (isHEIC)
            leaveOutBoxes(*owner.getBoxes().of(photo));
        if (plan.getGround().hasTrailer)
            leaveOutRecords(plan, stored);
    }
    if (pointer)
        followPointer();
}

void PhotoCopy::writeTo(std::shared_ptr<MediaFile> const& target) {
    copy.writeTo(target);
    image_index::leftOut(*target, *photo, leftOut);
}

uint32_t PhotoCopy::recordPlace(uint32_t inPhoto) const {
    return trailerStart == 0 ? inPhoto : copy.newPlace(trailerStart + inPhoto) - copy.newPlace(trailerStart);
}

void PhotoCopy::putXMP(MotionPhotoEditImpl& owner) {
    ahead = owner.packetAhead();
    if (ahead.packet == nullptr)
        return;
    if (isHEIC)
        room = HEIFMetaWriter(photo).putXMPIn(copy, ahead.bytes, ahead.isChanged);
    isPacketIn = ahead.isChanged && (isHEIC || JPEGMetaWriter(photo).putXMPIn(copy, ahead.bytes));
}

/// Their headers stay: what stood behind a box stands in front of the one that comes for it.
void PhotoCopy::leaveOutBoxes(heif::TrailingBoxes const& boxes) {
    for (auto const& box : boxes.videos()) {
        if (box.size > LEAST_LEFT_OUT)
            copy.replace({box.position, box.size}, emptyBox(box));
    }
}

/// The data of records that the plan no longer has. Records that share bytes with others stay whole, and all do where
/// one has sub-info: the flag of it is written in another bit than it is read from, so that a new tail would not fit
/// it.
void PhotoCopy::leaveOutRecords(TrailerPlan const& plan, trailer::Stored const& stored) {
    auto const hasSubInfo = [](QRTDataInfo const& record) { return record.hasSubInfo; };
    if (std::any_of(stored.records.begin(), stored.records.end(), hasSubInfo))
        return;
    Stretches taken;
    for (auto const& place : plan.onDisk()) {
        if (place.was)
            taken.add({*place.was, place.payload});
    }
    std::vector<QRTDataInfo> records = stored.records;
    std::vector<Stretch> left;
    for (auto& record : records) {
        uint32_t const head = trailer::headSize(record);
        Stretch const data{stored.recordsSize() - record.offsetFromTail + head, record.payload - head};
        if (data.size < LEAST_LEFT_OUT || taken.meet(data))
            continue;
        taken.add(data);
        left.push_back(data);
        record.payload = head;
    }
    if (left.empty())
        return;
    std::sort(left.begin(), left.end(), [](auto const& a, auto const& b) { return a.position < b.position; });
    for (auto const& data : left)
        copy.replace({trailerStart + data.position, data.size});
    uint32_t const tail = trailerStart + stored.recordsSize();
    for (auto& record : records)
        record.offsetFromTail = copy.newPlace(tail) - copy.newPlace(tail - record.offsetFromTail);
    auto const bytes = trailer::serializeTail(stored.version, records);
    copy.replace({tail, stored.tailSize}, std::string(bytes.data(), bytes.data() + bytes.size()));
    if (isHEIC)
        copy.replace({trailerStart - BOX_HEADER_SIZE, BOX_HEADER_SIZE},
                     trailer::serializeBoxHeader(recordPlace(stored.recordsSize()) + bytes.size()));
}

std::optional<PhotoCopy::Pointer> PhotoCopy::findPointer(trailer::Stored const& stored) const {
    auto const record = std::find_if(stored.records.begin(), stored.records.end(), ofType(qrt::TYPE_MOTION_PHOTO_DATA));
    if (record == stored.records.end())
        return std::nullopt;
    auto const data = trailer::storedData(*record, trailerStart + stored.recordsSize());
    auto const video = VideoPointer::in(*photo, record->type, data);
    return video ? std::optional(Pointer{{data.position, data.size}, *video}) : std::nullopt;
}

/// The pointer of a video that comes along leads to its new place.
void PhotoCopy::followPointer() {
    auto const& [data, video] = *pointer;
    if (copy.touches(data) || video.position > photo->size() || copy.newPlace(video.position) == video.position)
        return;
    auto moved = video;
    moved.position = copy.newPlace(video.position);
    auto const bytes = moved.encode();
    copy.replace({data.position, VideoPointer::SIZE}, std::string(bytes.data(), bytes.data() + bytes.size()));
}

} // namespace android::lumo
