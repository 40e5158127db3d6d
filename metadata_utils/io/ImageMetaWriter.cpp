// SPDX-License-Identifier: Apache-2.0
#include "ImageMetaWriter.h"

#include "ErrorAt.h"
#include "HEIFMetaWriter.h"
#include "JPEGMetaWriter.h"

namespace android::lumo {

ImageMetaWriter::ImageMetaWriter(std::shared_ptr<MediaFile> const& target) : file(target) {}

ImageMetaWriter::~ImageMetaWriter() = default;

std::unique_ptr<ImageMetaWriter> ImageMetaWriter::of(std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no file given");
    auto const type = file->mimeType();
    switch (type) {
    // One line for each container that can be written.
    case MediaDefs::MimeType::IMAGE_JPEG:
        return std::make_unique<JPEGMetaWriter>(file);
    case MediaDefs::MimeType::IMAGE_HEIC:
        return std::make_unique<HEIFMetaWriter>(file);
    default:
        throw ErrorAt().as(Error::Code::UNSUPPORTED, *file)("unsupported type: %d", static_cast<int>(type));
    }
}

} // namespace android::lumo
