// SPDX-License-Identifier: Apache-2.0
#include "HEIFImageStream.h"

#include "CheckedFile.h"

#include <algorithm>
#include <cstring>

namespace android::lumo::heif {

namespace {

/// What is longer is not read through the window.
constexpr uint32_t SMALL = 64;

ImageStream* stream(void* descriptor) {
    return static_cast<ImageStream*>(descriptor);
}

} // namespace

ImageStream::ImageStream(std::shared_ptr<MediaFile> const& source, uint32_t size)
    : file(source), window(*source), total(size) {}

void ImageStream::rethrowFailure() const {
    if (failure != nullptr)
        std::rethrow_exception(failure);
}

int32_t ImageStream::read(void* buffer, uint32_t n, uint32_t& done) {
    done = std::min(n, total - position);
    try {
        if (done <= SMALL || window.holds(position, done)) {
            auto const bytes = window.at(position, done);
            std::copy(bytes.begin(), bytes.end(), static_cast<uint8_t*>(buffer));
        } else {
            checked::readExactly(*file, position, buffer, done);
        }
    } catch (...) {
        failure = std::current_exception();
        done = 0;
        return HBOX_ERR_STREAM;
    }
    position += done;
    return HBOX_OK;
}

HBOX_STREAM_CALLBACKS ImageStream::callbacks() {
    HBOX_STREAM_CALLBACKS table{};
    table.open = [](void* descriptor) -> int32_t {
        stream(descriptor)->position = 0;
        return HBOX_OK;
    };
    table.close = [](void*) -> int32_t { return HBOX_OK; };
    table.get_position = [](void* descriptor, uint32_t* place) -> int32_t {
        *place = stream(descriptor)->position;
        return HBOX_OK;
    };
    table.set_position = [](void* descriptor, uint32_t place) -> int32_t {
        if (place > stream(descriptor)->total)
            return HBOX_ERR_PARAMETER;
        stream(descriptor)->position = place;
        return HBOX_OK;
    };
    table.read = [](void* descriptor, void* buffer, uint32_t n, uint32_t* done) -> int32_t {
        return stream(descriptor)->read(buffer, n, *done);
    };
    table.write = [](void*, void const*, uint32_t, uint32_t* done) -> int32_t { // the file is nobody's to write here
        *done = 0;
        return HBOX_ERR_UNSUPPORTED;
    };
    table.skip = [](void* descriptor, uint32_t n) -> int32_t {
        auto& self = *stream(descriptor);
        if (n > self.total - self.position)
            return HBOX_ERR_PARAMETER;
        self.position += n;
        return HBOX_OK;
    };
    table.get_size = [](void* descriptor, uint32_t* size) -> int32_t {
        *size = stream(descriptor)->total;
        return HBOX_OK;
    };
    return table;
}

} // namespace android::lumo::heif
