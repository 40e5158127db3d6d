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

    static std::shared_ptr<ExifInfo> parse(std::shared_ptr<MediaFile> const& file);

    virtual int32_t getWidth() const = 0;
    virtual int32_t getHeight() const = 0;
    virtual int32_t getRotation() const = 0;
    virtual std::string getDateTimeTaken() const = 0;
    virtual std::string getXMP() const = 0;
    virtual ByteBuffer toByteBuffer() const = 0;
    virtual std::shared_ptr<ExifEdit> edit() = 0;
};

} // namespace android::lumo
