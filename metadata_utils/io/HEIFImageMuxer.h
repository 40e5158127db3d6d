// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "HEIFImagePart.h"
#include "HEIFMetaReader.h"

#include <cstdint>
#include <memory>
#include <vector>

struct hboxm_context;

namespace android::lumo::heif {

/// The platform's muxer over a reader's image, and what it has to be told of that: the cover with its tiles, and the
/// thumbnail. The reader must outlive it.
class ImageMuxer {
public:
    explicit ImageMuxer(HEIFMetaReader& source);

    /// The new image part, with room for so many bytes of XMP, and for the least that is made. Once.
    ImagePart write(uint32_t room);
    /// Where the room stands in it.
    uint32_t getMetadataOffset();

private:
    void copyCover(uint32_t xmpSize);
    void copyImage(HBOXD_IMAGE_INFO const& imageInfo, std::vector<uint32_t> const& tiles, uint32_t xmpSize);
    void copyImageFrames(HBOXD_IMAGE_INFO const& imageInfo, std::vector<uint32_t> ids);
    void copyThumbnail(int coverId);
    static uint32_t getMaxBufferSize(HBOXD_IMAGE_INFO const& imageInfo);
    void stop();
    ImagePart dumpImage();

    HEIFMetaReader& reader;
    struct Deleter {
        void operator()(hboxm_context* context) const;
    };
    std::unique_ptr<hboxm_context, Deleter> muxer;
};

} // namespace android::lumo::heif
