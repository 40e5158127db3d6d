// SPDX-License-Identifier: Apache-2.0
#include "VideoPointer.h"

#include "CheckedFile.h"
#include "boxes/BigEndian.h"

namespace android::lumo {

namespace {

constexpr uint32_t TAG_SIZE = 4;
constexpr unsigned FIELD_SIZE = 4;
constexpr uint32_t LENGTH_OFFSET = TAG_SIZE + FIELD_SIZE;
constexpr char TAG_START[] = "mpv";

} // namespace

std::optional<VideoPointer> VideoPointer::in(MediaFile const& file, int32_t type, Stretch const& data) {
    return mayStandIn(type, data.size) ? decode(checked::readAt(file, data.position, SIZE)) : std::nullopt;
}

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

} // namespace android::lumo
