// SPDX-License-Identifier: Apache-2.0
#include "ByteSource.h"

#include "CheckedFile.h"
#include "Log.h"
#include "MemoryFile.h"
#include "MotionPhotoInfoImpl.h"

#include <algorithm>
#include <exception>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";

} // namespace

ByteSource::ByteSource(std::shared_ptr<ByteBuffer const> bytes)
    : buffer(std::move(bytes)), length(buffer != nullptr ? buffer->size() : 0) {}

ByteSource::ByteSource(std::shared_ptr<MediaFile> const& whole)
    : file(whole), length(whole != nullptr ? whole->size() : 0) {}

ByteSource::ByteSource(std::shared_ptr<MediaFile> const& of, uint32_t from, uint32_t size)
    : file(of), position(from), length(size) {}

void ByteSource::requireReadable(MediaFile const& output, std::string const& what, ErrorAt at) const {
    if (file == nullptr) {
        uint32_t const held = buffer != nullptr ? buffer->size() : 0;
        if (held != length)
            throw at.as(Error::Code::CHANGED)("%s has %zu bytes, expected %zu", what.c_str(), size_t{held},
                                              size_t{length});
        return;
    }
    uint32_t const size = checked::addressableSize(*file, at);
    if (checked::isSameFile(*file, output, at))
        throw at("%s is the file to write: %s", what.c_str(), file->toString().c_str());
    uint32_t const held = size - std::min(size, position);
    if (length == 0 || held < length)
        throw at.as(Error::Code::CHANGED, *file)("%s has %zu bytes, expected %zu", what.c_str(), size_t{held},
                                                 std::max<size_t>(length, 1));
    checked::readAt(*file, position + length - 1, 1, at); // it can be read
}

void ByteSource::copyTo(std::shared_ptr<MediaFile> const& target, ErrorAt at) const {
    if (file != nullptr)
        checked::copy(file, target, position, length, at);
    else if (buffer != nullptr)
        checked::write(*target, *buffer, at);
}

ByteBuffer ByteSource::load(ErrorAt at) const {
    if (file != nullptr)
        return checked::readAt(*file, position, length, at);
    return buffer != nullptr ? *buffer : ByteBuffer();
}

std::optional<int64_t> VideoSource::durationUs() const {
    try {
        if (getFile() != nullptr)
            return videoDurationUs(*getFile(), getPosition(), size());
        ByteBuffer const bytes = load();
        return videoDurationUs(*memoryFile(bytes.data(), bytes.size()), 0, size()); // the extractor reads files
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGW("fail to get the video's duration: %s", e.what());
        return std::nullopt;
    }
}

} // namespace android::lumo
