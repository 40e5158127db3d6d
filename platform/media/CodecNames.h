// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace android::media {

/// The platform's mime type for a sample entry in a track of this handler, both as four-character codes. An unknown
/// entry is named by the handler's kind ("video/x-unknown"), and "application/octet-stream" where that has none.
char const* mimeOf(uint32_t handler, uint32_t entry);

/// The mime type that an elementary stream descriptor's object type stands for, null for one without a name here.
char const* mimeOfObjectType(uint8_t objectType);

} // namespace android::media
