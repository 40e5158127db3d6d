// SPDX-License-Identifier: Apache-2.0
#ifndef HBOXD_H
#define HBOXD_H

/*
 * The HEIF demuxer: the items of a file's first 'meta' box, as they are stored.
 *
 * Opening reads the 'meta' box into memory and looks no further into it: each question parses what it needs, so a file
 * with one odd box still answers the others. Nothing is decoded and nothing is ever written.
 *
 * Sizes and counts go both ways: the capacity in, the needed (or used) one out. A null buffer only asks for the size; a
 * capacity that is too small gives HBOX_ERR_BUFFER and leaves the buffer alone.
 */

#include "hbox.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct hboxd_context* HBOXD_HANDLE;

typedef enum HBOXD_IMAGE {
    HBOXD_IMAGE_COVER = 0,    /* the primary item ('pitm') */
    HBOXD_IMAGE_THUMBNAIL = 1 /* the first item with a 'thmb' reference to the base image */
} HBOXD_IMAGE;

typedef enum HBOXD_ITEM_INFO {
    HBOXD_ITEM_CODEC_SPECIFIC =
        0,                  /* VPS, SPS, PPS of 'hvcC', each behind 00 00 00 01; for a grid those of its first tile */
    HBOXD_ITEM_GRID = 1,    /* HBOXM_GRID_INFO */
    HBOXD_ITEM_LOCATION = 2 /* HBOXD_LOCATION */
} HBOXD_ITEM_INFO;

/* An image item. */
typedef struct HBOXD_IMAGE_INFO {
    uint32_t id;                /* of the item */
    uint32_t type;              /* item type: HBOX_FOURCC('g', 'r', 'i', 'd'), 'hvc1', ... */
    uint32_t is_grid;           /* 1 for a grid, else 0 */
    uint32_t width;             /* of 'ispe', in pixels before rotation; 0 when the item has none */
    uint32_t height;            /* likewise */
    HEIF_CCW_ROTATION rotation; /* of 'irot'; HEIF_CCW_ROTATION_0 without one */
    uint32_t tile_count;        /* images the grid is put together from; 0 for others */
} HBOXD_IMAGE_INFO;

/* Where an item's bytes stand. position and length describe the first extent; both are 0 when extent_count is 0. */
typedef struct HBOXD_LOCATION {
    uint32_t construction_method; /* 0: the file, 1: 'idat' (its start is counted into the position), 2: another item */
    uint32_t extent_count;        /* pieces the item is stored in */
    uint32_t position;            /* from the start of the file; 0 for method 2 */
    uint32_t length;              /* bytes */
} HBOXD_LOCATION;

/* Opens the file behind `callbacks` and `descriptor`, which must stay valid until hboxd_delete. Returns null and a
 * negative *error when the file cannot be read or has no whole 'meta' box in front of the first damaged one. */
HBOXD_HANDLE hboxd_create(HBOX_STREAM_CALLBACKS const* callbacks, void* descriptor, int32_t* error);
int32_t hboxd_delete(HBOXD_HANDLE handle);

/* `base_id` is looked at for thumbnails only. */
int32_t hboxd_get_image_id(HBOXD_HANDLE handle, HBOXD_IMAGE which, uint32_t base_id, uint32_t* id);
int32_t hboxd_get_info_image(HBOXD_HANDLE handle, uint32_t id, HBOXD_IMAGE_INFO* info);
int32_t hboxd_get_info_item(HBOXD_HANDLE handle, uint32_t id, HBOXD_ITEM_INFO kind, void* buffer, uint32_t* size);

/* The ids that item `id` refers to by references of `type` ('dimg': a grid's tiles, row by row), in stored order. */
int32_t hboxd_get_list_referenceto(HBOXD_HANDLE handle, uint32_t id, uint32_t type, uint32_t* ids, uint32_t* count);

/* The item's stored bytes, its extents joined: for an HEVC tile one coded frame of length-prefixed NAL units. */
int32_t hboxd_get_image_frm(HBOXD_HANDLE handle, uint32_t id, void* buffer, uint32_t capacity, uint32_t* size);

#ifdef __cplusplus
}
#endif

#endif
