// SPDX-License-Identifier: Apache-2.0
#include <media/stagefright/foundation/AString.h>

#include <cstring>

#include <strings.h>

namespace android {

bool AString::startsWithIgnoreCase(char const* prefix) const {
    return strncasecmp(mText.c_str(), prefix, strlen(prefix)) == 0;
}

} // namespace android
