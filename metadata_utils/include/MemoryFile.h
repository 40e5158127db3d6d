// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"
#include "MediaFile.h"

#include <cstddef>
#include <memory>

namespace android::lumo {

/// A file in memory that holds these bytes, for services that have no file: every view and editor takes it. It goes
/// with its last handle. Throws NO_SPACE or WRITE_FAILED where the system has no memory files or no room; TOO_BIG from
/// 4 GiB on. (Linux 3.17, Android API 30.)
METADATA_UTILS_EXPORT std::shared_ptr<MediaFile> memoryFile(void const* bytes, size_t size);

} // namespace android::lumo
