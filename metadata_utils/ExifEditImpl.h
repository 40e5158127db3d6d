// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ExifEdit.h"

#include <memory>
#include <string>

namespace android::lumo {

/// The Exif editor: answers what its view answers, changes nothing.
class ExifEditImpl : public ExifEdit {
public:
    explicit ExifEditImpl(std::shared_ptr<ExifInfo> const& view) : info(view) {}

    int32_t getWidth() const override { return info->getWidth(); }
    int32_t getHeight() const override { return info->getHeight(); }
    int32_t getRotation() const override { return info->getRotation(); }
    std::string getDateTimeTaken() const override { return info->getDateTimeTaken(); }
    std::string getXMP() const override { return info->getXMP(); }
    ByteBuffer toByteBuffer() const override { return info->toByteBuffer(); }
    std::shared_ptr<ExifEdit> edit() override { return info->edit(); }
    bool isDirty() const override { return false; }
    void commit() override {}
    void commit(MediaFile const& target) override;

private:
    std::shared_ptr<ExifInfo> info;
};

} // namespace android::lumo
