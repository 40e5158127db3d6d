// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "HEIFBoxScan.h"
#include "MediaFile.h"
#include "hbox.h"

#include <cstdint>
#include <exception>
#include <memory>

namespace android::lumo::heif {

/// What the demuxer and the muxer read through: the image part of a file, as a stream of `size` bytes. Headers of boxes
/// come from one small window; coded images are never read unless somebody asks for them.
class ImageStream {
public:
    ImageStream(std::shared_ptr<MediaFile> const& file, uint32_t size);
    ImageStream(ImageStream const&) = delete; // its address is the stream's descriptor
    ImageStream& operator=(ImageStream const&) = delete;

    uint32_t size() const { return total; }
    /// For this object's address as the descriptor.
    static HBOX_STREAM_CALLBACKS callbacks();
    /// Throws what kept a read from succeeding: the libraries pass a code on, and no reason.
    void rethrowFailure() const;

private:
    int32_t read(void* buffer, uint32_t n, uint32_t& done);

    std::shared_ptr<MediaFile> file;
    ByteWindow window;
    uint32_t total;
    uint32_t position = 0;
    std::exception_ptr failure;
};

} // namespace android::lumo::heif
