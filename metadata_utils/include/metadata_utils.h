// SPDX-License-Identifier: Apache-2.0
/* Entry points of the library as a whole, and its interface for other languages. */
#pragma once

#include "Export.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#include <string>

namespace android::lumo::metadata_utils {

/// Logs the version once the library is loaded; needs no counterpart, there is nothing to tear down.
METADATA_UTILS_EXPORT void library_init();
/// 10000 for 1.0.0: major * 10000 + minor * 100 + patch.
METADATA_UTILS_EXPORT long getVersionCode();
/// "1.0.0".
METADATA_UTILS_EXPORT std::string getVersionString();

} // namespace android::lumo::metadata_utils

extern "C" {
#endif

/* The C interface: photos of JPEG and HEIC as opaque handles, read at once and edited in two steps.
 *
 * Every function that returns int returns MU_OK or a code below; mu_last_error() then says more. A handle belongs to
 * one thread at a time; different handles are independent. Strings are UTF-8 and NUL-terminated; those handed out live
 * until the next call on the same handle. Positions, sizes: bytes from the file's start. Nothing is written before
 * mu_commit*. */

typedef struct mu_photo mu_photo;

enum {
    MU_OK = 0,
    MU_REFUSED = 1,      /* a wrong argument, or nothing to do it with */
    MU_READ_FAILED = 2,  /* the system refused a read */
    MU_WRITE_FAILED = 3, /* the system refused a write, or took less than all of it */
    MU_NO_SPACE = 4,     /* disk, quota or file size limit; usually found before a byte moves */
    MU_DAMAGED = 5,      /* the bytes contradict themselves or their format */
    MU_UNSUPPORTED = 6,  /* sound, but of a kind this library does not read or cannot change */
    MU_TOO_BIG = 7,      /* past 32 bits, or past a limit that keeps memory and time bounded */
    MU_XMP = 8,          /* the packet, or what was asked of it, is no XMP */
    MU_CHANGED = 9,      /* the file is no longer the one that was read */
    MU_NO_MEMORY = 10,
    MU_INTERNAL = 11
};

/* The text of the last error on this thread, without end of line; "" when there was none. */
METADATA_UTILS_EXPORT char const* mu_last_error(void);
METADATA_UTILS_EXPORT int mu_last_error_code(void);
/* "1.0.0". */
METADATA_UTILS_EXPORT char const* mu_version(void);

/* Where the library's log lines go from now on, for the whole process: level 3 (detail) to 6 (failed calls), the class
 * that speaks, the line. May be called from any thread that uses the library. NULL: nowhere, which is also the state
 * after the first mu_open of a process that never called this. */
typedef void (*mu_log_function)(int level, char const* tag, char const* line, void* user);
METADATA_UTILS_EXPORT void mu_set_log(mu_log_function log, void* user);

/* Opening. A descriptor is duplicated, bytes are copied into a file in memory; a photo of theirs is writable when the
 * descriptor is, or always. The photo is looked at when something is asked of it, again after each commit. */
METADATA_UTILS_EXPORT int mu_open_path(char const* path, int writable, mu_photo** photo);
METADATA_UTILS_EXPORT int mu_open_descriptor(int fd, mu_photo** photo);
METADATA_UTILS_EXPORT int mu_open_memory(void const* bytes, size_t size, mu_photo** photo);
METADATA_UTILS_EXPORT void mu_close(mu_photo* photo);

/* The video. --------------------------------------------------------------------------------------------------------*/

enum {
    MU_SOURCE_NONE = 0,
    MU_SOURCE_TRAILER,
    MU_SOURCE_BOX,
    MU_SOURCE_DIRECTORY,
    MU_SOURCE_MICRO_VIDEO,
    MU_SOURCE_SCAN
};
enum { MU_STATUS_NONE = 0, MU_STATUS_SOUND = 1, MU_STATUS_DAMAGED = 2 };

typedef struct mu_video {
    int32_t source; /* what says where it is */
    int32_t status;
    uint32_t position;
    uint32_t size;
    int64_t moment_us;     /* of the still in the video; -1 where nothing names it */
    char const* mime_type; /* "video/mp4", "video/quicktime"; "none" without a movie */
    char const* reason;    /* of MU_STATUS_DAMAGED, else "" */
} mu_video;

METADATA_UTILS_EXPORT int mu_locate_video(mu_photo* photo, mu_video* video);
/* Looks for a movie behind the picture that nothing claims. Reads all that stands there. */
METADATA_UTILS_EXPORT int mu_scan_video(mu_photo* photo, mu_video* video);
/* Copies the video, as stored, to the descriptor's position or to a path, which must exist and is cut first. A photo
 * without a sound video gives MU_REFUSED. */
METADATA_UTILS_EXPORT int mu_copy_video_to_descriptor(mu_photo* photo, int fd);
METADATA_UTILS_EXPORT int mu_copy_video_to_path(mu_photo* photo, char const* path);

/* What the photo says. ----------------------------------------------------------------------------------------------*/

typedef struct mu_property {
    char const* schema; /* namespace URI */
    char const* path;   /* prefixed: "GCamera:MotionPhoto", "dc:creator[1]" */
    char const* value;
} mu_property;

/* The directory's item by its place: 0 to count - 1. */
typedef struct mu_item {
    char const* semantic;
    char const* mime_type;
    char const* length; /* as stored; "" when absent, as the next */
    char const* padding;
} mu_item;

typedef struct mu_record {
    int32_t type;
    char const* name;
    uint32_t position; /* of the data */
    uint32_t size;
} mu_record;

METADATA_UTILS_EXPORT int mu_count_properties(mu_photo* photo, size_t* count);
METADATA_UTILS_EXPORT int mu_get_property_at(mu_photo* photo, size_t index, mu_property* property);
/* "" for an absent one. */
METADATA_UTILS_EXPORT int mu_get_property(mu_photo* photo, char const* schema, char const* path, char const** value);
METADATA_UTILS_EXPORT int mu_count_items(mu_photo* photo, size_t* count);
METADATA_UTILS_EXPORT int mu_get_item_at(mu_photo* photo, size_t index, mu_item* item);
METADATA_UTILS_EXPORT int mu_count_records(mu_photo* photo, size_t* count);
METADATA_UTILS_EXPORT int mu_get_record_at(mu_photo* photo, size_t index, mu_record* record);
/* The first `capacity` bytes of a record's data, which holds `size`. */
METADATA_UTILS_EXPORT int mu_read_record(mu_photo* photo, size_t index, void* bytes, size_t capacity, size_t* size);

/* Editing: staged in the order of the calls, written by a commit. ---------------------------------------------------*/

/* A clip in place of the video there is; `moment_us` -1 for the clip's end. The clip is read at the commit and may be
 * closed before. */
METADATA_UTILS_EXPORT int mu_stage_video(mu_photo* photo, mu_photo* clip, int64_t moment_us);
METADATA_UTILS_EXPORT int mu_stage_removal(mu_photo* photo);
METADATA_UTILS_EXPORT int mu_stage_moment(mu_photo* photo, int64_t moment_us);
/* A NULL value removes the property. */
METADATA_UTILS_EXPORT int mu_stage_property(mu_photo* photo, char const* schema, char const* path, char const* value);
METADATA_UTILS_EXPORT int mu_stage_record(mu_photo* photo, int32_t type, char const* name, void const* bytes,
                                          size_t size);
/* To the form with a trailer, or to the published form that ends with its video; the latter is refused while records
 * other than the video's exist, unless they may be dropped. */
METADATA_UTILS_EXPORT int mu_stage_to_trailer(mu_photo* photo);
METADATA_UTILS_EXPORT int mu_stage_to_published(mu_photo* photo, int drop_records);

/* In place; into a file that exists (its content is replaced); into a descriptor; into memory, to be freed by mu_free.
 * A commit elsewhere never touches the photo, and what was staged stays staged; one in place spends it. A commit in
 * place that failed may have written what was staged first. */
METADATA_UTILS_EXPORT int mu_commit(mu_photo* photo);
METADATA_UTILS_EXPORT int mu_commit_to_path(mu_photo* photo, char const* path);
METADATA_UTILS_EXPORT int mu_commit_to_descriptor(mu_photo* photo, int fd);
METADATA_UTILS_EXPORT int mu_commit_to_memory(mu_photo* photo, void** bytes, size_t* size);
METADATA_UTILS_EXPORT void mu_free(void* bytes);

#ifdef __cplusplus
} /* extern "C" */
#endif
