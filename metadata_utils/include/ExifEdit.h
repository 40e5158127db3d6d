// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ExifInfo.h"

namespace android::lumo {

/// The Exif view's editor; it changes nothing and is never dirty.
class METADATA_UTILS_EXPORT ExifEdit : public ExifInfo {
public:
    /// False, fixed.
    virtual bool isDirty() const = 0;
    /// Does nothing, fixed: Exif blocks are kept byte for byte by every edit.
    virtual void commit() = 0;
    /// Does nothing, fixed.
    virtual void commit(MediaFile const& target) = 0;
};

} // namespace android::lumo
