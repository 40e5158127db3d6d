// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteBuffer.h"
#include "Export.h"
#include "MediaFile.h"

#include <cstdint>
#include <memory>
#include <string>

namespace android::lumo {

class ExifEdit;

/// The Exif view of a still: an interface with fixed answers. Nothing is read from the file; every query answers zero
/// or empty until an Exif implementation stands behind it.
class METADATA_UTILS_EXPORT ExifInfo {
public:
    virtual ~ExifInfo();

    /// Keeps the file open and reads nothing of it; throws on a null pointer alone.
    static std::shared_ptr<ExifInfo> parse(std::shared_ptr<MediaFile> const& file);

    /// 0, fixed. The pixels of a HEIC: HEIFMetaReader::getImageInfo.
    virtual int32_t getWidth() const = 0;
    /// 0, fixed; as getWidth().
    virtual int32_t getHeight() const = 0;
    /// 0, fixed. The rotation of a HEIC: HEIFMetaReader::getImageInfo; a JPEG's stands in its Exif block.
    virtual int32_t getRotation() const = 0;
    /// Empty, fixed. Where the XMP repeats it: XMPInfo::getProperty, "exif:DateTimeOriginal".
    virtual std::string getDateTimeTaken() const = 0;
    /// Empty, fixed. The packet: XMPInfo::parse.
    virtual std::string getXMP() const = 0;
    /// Empty, fixed. The Exif block as it stands in the file: ImageMetaReader::getExif.
    virtual ByteBuffer toByteBuffer() const = 0;
    /// An editor over this view, which it keeps.
    virtual std::shared_ptr<ExifEdit> edit() = 0;
};

} // namespace android::lumo
