// SPDX-License-Identifier: Apache-2.0
#include "metadata_utils.h"

#include "Log.h"

namespace android::lumo::metadata_utils {

namespace {

constexpr char LOG_TAG[] = "libmetadata_utils";

} // namespace

void library_init() {
    LOGI("Library loaded - Version: %s[code: %ld]", getVersionString().c_str(), getVersionCode());
}

long getVersionCode() {
    return 10000;
}

std::string getVersionString() {
    return "1.0.0";
}

} // namespace android::lumo::metadata_utils
