// SPDX-License-Identifier: Apache-2.0
#include "ImageMetaReader.h"

#include "CheckedFile.h"
#include "HEIFMetaReader.h"
#include "JPEGMetaReader.h"

namespace android::lumo {

ImageMetaReader::ImageMetaReader(std::shared_ptr<MediaFile> const& source, ParseMode parseMode)
    : file(source), mode(parseMode), loader(checked::loaderOf(source)) {}

ImageMetaReader::~ImageMetaReader() = default;

std::unique_ptr<ImageMetaReader> ImageMetaReader::of(std::shared_ptr<MediaFile> const& file, ParseMode mode) {
    if (file == nullptr)
        throw ErrorAt()("no file given");
    auto const type = file->mimeType();
    switch (type) {
    // One line for each container that can be read.
    case MediaDefs::MimeType::IMAGE_JPEG:
        return std::make_unique<JPEGMetaReader>(file, mode);
    case MediaDefs::MimeType::IMAGE_HEIC:
        return std::make_unique<HEIFMetaReader>(file, mode);
    default:
        throw ErrorAt().as(Error::Code::UNSUPPORTED, *file)("unsupported type: %d", static_cast<int>(type));
    }
}

} // namespace android::lumo
