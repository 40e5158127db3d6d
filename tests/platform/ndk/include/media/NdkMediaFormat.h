// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "NdkMediaError.h"

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
typedef struct AMediaFormat AMediaFormat;
extern char const* AMEDIAFORMAT_KEY_MIME;
extern char const* AMEDIAFORMAT_KEY_DURATION;
media_status_t AMediaFormat_delete(AMediaFormat*);
bool AMediaFormat_getInt64(AMediaFormat*, char const* name, int64_t* out);
bool AMediaFormat_getString(AMediaFormat*, char const* name, char const** out);
#ifdef __cplusplus
}
#endif
