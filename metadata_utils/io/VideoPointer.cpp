// SPDX-License-Identifier: Apache-2.0
#include "VideoPointer.h"

#include "CheckedFile.h"
#include "Log.h"
#include "TrailerLayout.h"
#include "boxes/BigEndian.h"

#include <algorithm>
#include <exception>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "VideoPointer";
constexpr uint32_t TAG_SIZE = 4;
constexpr unsigned FIELD_SIZE = 4;
constexpr uint32_t LENGTH_OFFSET = TAG_SIZE + FIELD_SIZE;
constexpr char TAG_START[] = "mpv";

} // namespace

VideoPointer VideoPointer::read(ByteBuffer const& bytes) {
    return {std::string(bytes.data(), bytes.data() + TAG_SIZE), bigEndianAt<uint32_t>(bytes.data() + TAG_SIZE),
            bigEndianAt<uint32_t>(bytes.data() + LENGTH_OFFSET)};
}

std::optional<VideoPointer> VideoPointer::decode(ByteBuffer const& bytes) {
    if (bytes.size() < SIZE)
        return std::nullopt;
    auto const pointer = read(bytes);
    return pointer.tag.starts_with(TAG_START) ? std::optional(pointer) : std::nullopt;
}

ByteBuffer VideoPointer::encode() const {
    ByteBuffer bytes(SIZE);
    std::string field = tag;
    field.resize(TAG_SIZE, ' ');
    bytes.put(field).put(bigEndianBytes(position, FIELD_SIZE)).put(bigEndianBytes(length, FIELD_SIZE));
    return bytes;
}

void VideoPointer::encodeInto(ByteBuffer& bytes) const {
    ByteBuffer const pointer = encode();
    std::copy_n(pointer.data(), SIZE, bytes.data());
}

VideoPointerKeeper::VideoPointerKeeper(std::shared_ptr<MediaFile> const& edited) : file(edited) {
    try {
        auto const tail = trailer::readTail(*file);
        if (!tail)
            return;
        auto const entry = std::find_if(tail->entries.begin(), tail->entries.end(), [](auto const& candidate) {
            return trailer::typeOfHeader(candidate.header) == qrt::TYPE_MOTION_PHOTO_DATA;
        });
        if (entry == tail->entries.end())
            return;
        QRTDataInfo const record = trailer::readRecord(*file, *tail, *entry);
        if (!VideoPointer::mayStandIn(record.type, record.dataPayload))
            return;
        pointer = VideoPointer::decode(checked::readAt(*file, record.dataPosition, VideoPointer::SIZE));
        distanceFromEnd = file->size() - record.dataPosition;
    } catch (std::exception const& exception) {
        // A damaged trailer has no pointer that anybody could follow; about one that cannot be read nothing is known.
        rethrowUnlessDamage();
        LOGW("fail to find the video pointer: %s", exception.what());
    }
}

void VideoPointerKeeper::moved(uint32_t from, int64_t distance) {
    if (!pointer || pointer->position < from)
        return;
    int64_t const position = int64_t{pointer->position} + distance;
    if (position < 0 || position > int64_t{UINT32_MAX})
        return;
    pointer->position = static_cast<uint32_t>(position);
    checked::seek(*file, file->size() - distanceFromEnd);
    checked::write(*file, pointer->encode());
    LOGD("video pointer moved to %zu", size_t{pointer->position});
}

} // namespace android::lumo
