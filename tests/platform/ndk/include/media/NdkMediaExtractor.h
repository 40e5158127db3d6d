// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "NdkMediaFormat.h"

#include <sys/types.h>

extern "C" {
typedef struct AMediaExtractor AMediaExtractor;
AMediaExtractor* AMediaExtractor_new(void);
media_status_t AMediaExtractor_delete(AMediaExtractor*);
media_status_t AMediaExtractor_setDataSourceFd(AMediaExtractor*, int fd, off64_t offset, off64_t length);
size_t AMediaExtractor_getTrackCount(AMediaExtractor*);
AMediaFormat* AMediaExtractor_getTrackFormat(AMediaExtractor*, size_t index);
}
