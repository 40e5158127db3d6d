// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ExifInfo.h"

#include <memory>
#include <string>

namespace android::lumo {

/// The Exif view with its fixed answers; keeps its file open and reads nothing from it.
class ExifInfoImpl : public ExifInfo, public std::enable_shared_from_this<ExifInfoImpl> {
public:
    explicit ExifInfoImpl(std::shared_ptr<MediaFile> const& viewed) : file(viewed) {}

    void load() {}

    int32_t getWidth() const override { return 0; }
    int32_t getHeight() const override { return 0; }
    int32_t getRotation() const override { return 0; }
    std::string getDateTimeTaken() const override { return {}; }
    std::string getXMP() const override { return {}; }
    ByteBuffer toByteBuffer() const override { return {}; }
    std::shared_ptr<ExifEdit> edit() override;

private:
    std::shared_ptr<MediaFile> file;
};

} // namespace android::lumo
