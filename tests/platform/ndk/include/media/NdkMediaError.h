// SPDX-License-Identifier: Apache-2.0
/* Stand-ins for what the library calls of the NDK's media headers, by their published declarations. For compiling
 * alone. */
#pragma once

typedef enum { AMEDIA_OK = 0, AMEDIA_ERROR_INVALID_PARAMETER = -10002, AMEDIA_ERROR_IO = -10004 } media_status_t;
