// SPDX-License-Identifier: Apache-2.0
#ifndef HBOXM_H
#define HBOXM_H

/*
 * The HEIF muxer: writes a source's image part again with room for XMP.
 *
 * It carries the source's boxes over and edits three of them ('iinf', 'iref', 'iloc'), so that whatever it does not
 * know survives. What a caller hands in (grid, parameter sets, frames) is compared with the source: a difference is
 * HBOX_ERR_MISMATCH, never a changed picture. The source is only read.
 *
 * Order of calls: create, set_cover_image, set_image_info for the cover, put_frm (or put_source_frm) for each of its
 * tiles, stop_muxing, then the output functions: the whole image, or what changed and where the rest comes from. Other
 * images (a thumbnail) may be set and put in between; they are checked likewise.
 */

#include "hboxd.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct hboxm_context* HBOXM_HANDLE;

enum { HBOXM_MAX_VPS = 16, HBOXM_MAX_SPS = 16, HBOXM_MAX_PPS = 64 };

/* HEVC parameter sets, without start codes. */
typedef struct HBOXM_INFO_HEVC {
    uint32_t vps_count;               /* at most HBOXM_MAX_VPS */
    uint32_t sps_count;               /* at most HBOXM_MAX_SPS */
    uint32_t pps_count;               /* at most HBOXM_MAX_PPS */
    uint8_t* vps[HBOXM_MAX_VPS];      /* video parameter sets */
    uint8_t* sps[HBOXM_MAX_SPS];      /* sequence parameter sets */
    uint8_t* pps[HBOXM_MAX_PPS];      /* picture parameter sets */
    uint32_t vps_size[HBOXM_MAX_VPS]; /* bytes of each */
    uint32_t sps_size[HBOXM_MAX_SPS]; /* bytes of each */
    uint32_t pps_size[HBOXM_MAX_PPS]; /* bytes of each */
} HBOXM_INFO_HEVC;

/* An image that is to be muxed, as the source has it. */
typedef struct HBOXM_IMAGE_INFO {
    uint32_t id;                 /* of the item in the source */
    uint32_t width;              /* pixels before rotation */
    uint32_t height;             /* likewise */
    HEIF_CCW_ROTATION rotation;  /* of 'irot' */
    HBOXM_GRID_INFO grid;        /* all zero for an image that is no grid */
    HBOXM_INFO_HEVC const* hevc; /* parameter sets of its tiles */
    uint32_t const* tile_ids;    /* tile_count ids, row by row */
    uint32_t tile_count;         /* 0 for an image that is no grid */
    uint32_t xmp_size; /* bytes to reserve for XMP, at least HBOXM_MIN_XMP_SIZE; the cover's counts, others give 0 */
} HBOXM_IMAGE_INFO;

/* What the empty XMP packet takes. */
enum { HBOXM_MIN_XMP_SIZE = 128 };

/* What a muxer is made over. */
typedef struct HBOXM_CONFIG {
    uint32_t const* brands; /* brand_count four-character codes; the source's own 'ftyp' is kept as it is */
    uint32_t brand_count;   /* of brands */
    HBOXD_HANDLE source;    /* outlives the muxer */
    uint32_t image_length;  /* the source's bytes that belong to the image: where the appended data begins */
} HBOXM_CONFIG;

HBOXM_HANDLE hboxm_create(HBOXM_CONFIG const* config, int32_t* error);
int32_t hboxm_delete(HBOXM_HANDLE handle);

/* `id` must be the source's primary item. */
int32_t hboxm_set_cover_image(HBOXM_HANDLE handle, uint32_t id);

/* For the cover this is also where a source that cannot be written again is refused (HBOX_ERR_UNSUPPORTED, or
 * HBOX_ERR_FORMAT for a damaged one; hbox_last_error tells what). */
int32_t hboxm_set_image_info(HBOXM_HANDLE handle, HBOXM_IMAGE_INFO const* info);
int32_t hboxm_put_frm(HBOXM_HANDLE handle, uint32_t id, void const* data, uint32_t size);
int32_t hboxm_stop_muxing(HBOXM_HANDLE handle);

/* Bytes of the new image part, at most UINT32_MAX; negative: an error code. */
int64_t hboxm_get_outputbuffer_size(HBOXM_HANDLE handle);

/* Writes the whole new image part, which stands at the start of the file, and reports its size. */
int32_t hboxm_dump_image_to_outputbuffer(HBOXM_HANDLE handle, void* buffer, uint32_t capacity, uint32_t* size);

/* A library that lacks the next three does not define this. */
#define HBOXM_HAS_UNCHANGED 1

/* Puts a frame as the source has it, without its bytes: nothing is read, and there is nothing to compare. */
int32_t hboxm_put_source_frm(HBOXM_HANDLE handle, uint32_t id);

/* hboxm_dump_image_to_outputbuffer without the ranges that are the source's unchanged: of those it writes the first
 * bytes of the boxes alone, so that the boxes can be followed. */
int32_t hboxm_dump_changes_to_outputbuffer(HBOXM_HANDLE handle, void* buffer, uint32_t capacity, uint32_t* size);

/* A range of the output that is the source's, unchanged but for its place. */
typedef struct HBOXM_UNCHANGED {
    uint32_t position; /* in the output */
    uint32_t source;   /* in the source */
    uint32_t length;   /* bytes */
} HBOXM_UNCHANGED;

/* The large ones, in order; HBOX_ERR_NOT_FOUND behind the last. */
int32_t hboxm_get_unchanged(HBOXM_HANDLE handle, uint32_t index, HBOXM_UNCHANGED* range);

/* The XMP room in the output: first byte and length. The length is the reserved one, or that of the source's XMP packet
 * where it is longer: the room begins with that packet, or with an empty one. `size` may be null. */
int32_t hboxm_get_metadata_offset(HBOXM_HANDLE handle, uint32_t* offset, uint32_t* size);

#ifdef __cplusplus
}
#endif

#endif
