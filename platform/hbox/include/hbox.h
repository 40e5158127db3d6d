// SPDX-License-Identifier: Apache-2.0
#ifndef HBOX_H
#define HBOX_H

/*
 * What the HEIF demuxer (hboxd.h) and muxer (hboxm.h) share: error codes, the stream they read through, and the records
 * both speak of. HEIF is ISO/IEC 23008-12, its boxes are ISO/IEC 14496-12.
 *
 * Every function returns HBOX_OK or a negative code and lets no exception out. A handle belongs to one thread at a
 * time; different handles are independent.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum HBOX_RESULT {
    HBOX_OK = 0,
    HBOX_ERR_PARAMETER = -1,   /* null pointer, unknown kind, value out of range */
    HBOX_ERR_MEMORY = -2,      /* an allocation failed */
    HBOX_ERR_STREAM = -3,      /* a stream callback failed or came up short */
    HBOX_ERR_FORMAT = -4,      /* the file contradicts the standard or itself */
    HBOX_ERR_UNSUPPORTED = -5, /* a legal layout that is not handled */
    HBOX_ERR_NOT_FOUND = -6,   /* no such item, box, property or reference */
    HBOX_ERR_BUFFER = -7,      /* the given capacity is too small; the needed one is reported */
    HBOX_ERR_MISMATCH = -8,    /* what was given to the muxer differs from the source */
    HBOX_ERR_STATE = -9        /* called out of order */
} HBOX_RESULT;

/* One sentence on why the last failing call on this thread failed: names box, item, offset. Never null; stays valid
 * until the thread's next failing call. */
char const* hbox_last_error(void);

/* A file held in memory. The memory is the caller's and outlives every handle that reads it. */
typedef struct HBOX_MEMORY_STREAM {
    uint8_t* data;     /* the first byte */
    uint32_t size;     /* bytes */
    uint32_t position; /* of the next read */
} HBOX_MEMORY_STREAM;

/* How a handle reads a file. `descriptor` is the caller's own. Each callback returns HBOX_OK or a negative code. read
 * and write report in `done` how much they moved: less than asked only at the end of the stream. */
typedef struct HBOX_STREAM_CALLBACKS {
    int32_t (*open)(void* descriptor);                             /* before anything else */
    int32_t (*close)(void* descriptor);                            /* after everything else */
    int32_t (*get_position)(void* descriptor, uint32_t* position); /* bytes from the start */
    int32_t (*set_position)(void* descriptor, uint32_t position);  /* a position behind the end is an error */
    int32_t (*read)(void* descriptor, void* buffer, uint32_t size, uint32_t* done);        /* advances */
    int32_t (*write)(void* descriptor, void const* buffer, uint32_t size, uint32_t* done); /* advances */
    int32_t (*skip)(void* descriptor, uint32_t size);      /* advances without reading */
    int32_t (*get_size)(void* descriptor, uint32_t* size); /* bytes in all */
} HBOX_STREAM_CALLBACKS;

/* Fills the table with the functions for an HBOX_MEMORY_STREAM. write overwrites bytes and never enlarges the stream.
 */
int32_t hbox_mfal_memory(HBOX_STREAM_CALLBACKS* callbacks);

/* Rotation to apply to the decoded picture, counter-clockwise: the angle field of 'irot'. */
typedef enum HEIF_CCW_ROTATION {
    HEIF_CCW_ROTATION_0 = 0,
    HEIF_CCW_ROTATION_90 = 1,
    HEIF_CCW_ROTATION_180 = 2,
    HEIF_CCW_ROTATION_270 = 3,
    HEIF_CCW_ROTATION_WIDTH = 0x7FFFFFFF /* no rotation: makes every 32-bit value one the type can hold */
} HEIF_CCW_ROTATION;

/* A grid image. Sizes in pixels, before rotation; the tiles may reach over the picture's right and lower edge. */
typedef struct HBOXM_GRID_INFO {
    uint32_t rows;        /* 1 to 256 */
    uint32_t columns;     /* 1 to 256 */
    uint32_t width;       /* of the whole picture */
    uint32_t height;      /* of the whole picture */
    uint32_t tile_width;  /* of each tile */
    uint32_t tile_height; /* of each tile */
} HBOXM_GRID_INFO;

/* A four-character code as the number the interface takes: HBOX_FOURCC('d', 'i', 'm', 'g'). */
#define HBOX_FOURCC(a, b, c, d)                                                                                        \
    ((uint32_t)(uint8_t)(a) << 24 | (uint32_t)(uint8_t)(b) << 16 | (uint32_t)(uint8_t)(c) << 8 | (uint32_t)(uint8_t)(d))

#ifdef __cplusplus
}
#endif

#endif
