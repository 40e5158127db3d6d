// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"

#include <memory>
#include <string>

namespace android::lumo {

/// An empty file without a name in this folder, gone with its last handle. Without a folder: in the system's temporary
/// one, or in memory where there is none (a device has none). Throws WRITE_FAILED.
std::shared_ptr<MediaFile> scratchFile(std::string const& folder);

/// The same beside `file`, where a copy of it is most likely to find room; elsewhere when its folder takes none.
std::shared_ptr<MediaFile> scratchBeside(MediaFile const& file);

} // namespace android::lumo
