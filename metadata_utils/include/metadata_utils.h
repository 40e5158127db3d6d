#pragma once

#include "Export.h"

#include <string>

/// Entry points of the library as a whole.
namespace android::lumo::metadata_utils {

/// Logs the version once the library is loaded; needs no counterpart, there is nothing to tear down.
METADATA_UTILS_EXPORT void library_init();
/// 10000 for 1.0.0: major * 10000 + minor * 100 + patch.
METADATA_UTILS_EXPORT long getVersionCode();
/// "1.0.0".
METADATA_UTILS_EXPORT std::string getVersionString();

} // namespace android::lumo::metadata_utils
