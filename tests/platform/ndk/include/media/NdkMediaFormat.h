// SPDX-License-Identifier: Apache-2.0
/* Stand-ins for what the library calls of the NDK's media headers, by their published declarations. For compiling C++
 * alone. */
#pragma once

#include <stdint.h>

extern "C" {
typedef enum { AMEDIA_OK = 0, AMEDIA_ERROR_INVALID_PARAMETER = -10002, AMEDIA_ERROR_IO = -10004 } media_status_t;
typedef struct AMediaFormat AMediaFormat;
extern char const* AMEDIAFORMAT_KEY_MIME;
extern char const* AMEDIAFORMAT_KEY_DURATION;
media_status_t AMediaFormat_delete(AMediaFormat*);
bool AMediaFormat_getInt64(AMediaFormat*, char const* name, int64_t* out);
bool AMediaFormat_getString(AMediaFormat*, char const* name, char const** out);
}
