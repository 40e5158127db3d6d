// SPDX-License-Identifier: Apache-2.0
/* @file
 * Entry points of the library as a whole, and its interface for other languages. */
#pragma once

#include "Export.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#include <string>

/* Clients of the C interface may be of any C++. */
namespace android {
namespace lumo {
namespace metadata_utils {

/// Logs the version once the library is loaded; needs no counterpart, there is nothing to tear down.
METADATA_UTILS_EXPORT void library_init();
/// 10000 for 1.0.0: major * 10000 + minor * 100 + patch.
METADATA_UTILS_EXPORT long getVersionCode();
/// "1.0.0".
METADATA_UTILS_EXPORT std::string getVersionString();

} // namespace metadata_utils
} // namespace lumo
} // namespace android

extern "C" {
#endif

/* The C interface: photos of JPEG and HEIC as opaque handles, read at once and edited in two steps.
 *
 * Every function that returns int returns MU_OK or a code below; mu_last_error() then says more. A handle belongs to
 * one thread at a time; different handles are independent. Strings are UTF-8 and NUL-terminated; those handed out live
 * until the next call on the same handle. Positions, sizes: bytes from the file's start. Nothing is written before
 * mu_commit*. */

/* A file of a still or a clip, and what is staged for it. From mu_open* to mu_close. */
typedef struct mu_photo mu_photo;

/* What functions answer. The numbers stay. */
enum {
    MU_OK = 0,           /* done */
    MU_REFUSED = 1,      /* a wrong argument, or nothing to do it with */
    MU_READ_FAILED = 2,  /* the system refused a read */
    MU_WRITE_FAILED = 3, /* the system refused a write, or took less than all of it */
    MU_NO_SPACE = 4,     /* disk, quota or file size limit; usually found before a byte moves */
    MU_DAMAGED = 5,      /* the bytes contradict themselves or their format */
    MU_UNSUPPORTED = 6,  /* sound, but of a kind this library does not read or cannot change */
    MU_TOO_BIG = 7,      /* past 32 bits, or past a limit that keeps memory and time bounded */
    MU_XMP = 8,          /* the packet, or what was asked of it, is no XMP */
    MU_CHANGED = 9,      /* the file is no longer the one that was read */
    MU_NO_MEMORY = 10,   /* an allocation failed */
    MU_INTERNAL = 11     /* none of the above: a fault of this library */
};

/* The text of the last error on this thread, without end of line; "" when there was none. It lives until the thread's
 * next call that fails. */
METADATA_UTILS_EXPORT char const* mu_last_error(void);
/* Its code, one of those above; MU_OK when there was none. A call that succeeds leaves both as they are. */
METADATA_UTILS_EXPORT int mu_last_error_code(void);
/* "1.0.0". */
METADATA_UTILS_EXPORT char const* mu_version(void);

/* A line of the log: level 3 (detail) to 6 (failed calls), the class that speaks, the line without its end, and what
 * mu_set_log was given. Called from any thread that uses the library. */
typedef void (*mu_log_function)(int level, char const* tag, char const* line, void* user);
/* Where the library's log lines go from now on, for the whole process. NULL: nowhere, which is also the state after the
 * first mu_open of a process that never called this. */
METADATA_UTILS_EXPORT void mu_set_log(mu_log_function log, void* user);

/* Opens a file that exists: a still, or a clip for mu_stage_video. Its type is looked at now (MU_UNSUPPORTED for
 * others), the rest when something is asked of it, again after each commit. `*photo` is NULL after a failure. */
METADATA_UTILS_EXPORT int mu_open_path(char const* path, int writable, mu_photo** photo);
/* The same by a descriptor, which is duplicated: the caller keeps its own, and both share one position. A commit in
 * place needs one that is open for reading and writing. */
METADATA_UTILS_EXPORT int mu_open_descriptor(int fd, mu_photo** photo);
/* The same with a copy of bytes, in a file in memory; always writable. */
METADATA_UTILS_EXPORT int mu_open_memory(void const* bytes, size_t size, mu_photo** photo);
/* Gives the handle back with all strings it handed out; what was staged and not committed is gone. NULL is no error. */
METADATA_UTILS_EXPORT void mu_close(mu_photo* photo);

/* The video. --------------------------------------------------------------------------------------------------------*/

/* What says where the video is; MotionVideo.h explains each. */
enum {
    MU_SOURCE_NONE = 0,        /* nothing */
    MU_SOURCE_TRAILER = 1,     /* a record of this library's trailer */
    MU_SOURCE_BOX = 2,         /* a HEIC's box 'mpvd' */
    MU_SOURCE_DIRECTORY = 3,   /* the published directory in the XMP */
    MU_SOURCE_MICRO_VIDEO = 4, /* the older offset in the XMP */
    MU_SOURCE_SCAN = 5         /* mu_scan_video */
};
/* Whether a video is there. */
enum {
    MU_STATUS_NONE = 0,   /* nothing speaks of one */
    MU_STATUS_SOUND = 1,  /* a whole movie */
    MU_STATUS_DAMAGED = 2 /* something speaks of one that is not there, or not whole */
};

/* Where a photo's video is. */
typedef struct mu_video {
    int32_t source;        /* MU_SOURCE_* */
    int32_t status;        /* MU_STATUS_* */
    uint32_t position;     /* its first byte */
    uint32_t size;         /* its bytes */
    int64_t moment_us;     /* of the still in the video; -1 where nothing names it */
    char const* mime_type; /* "video/mp4", "video/quicktime"; "none" without a movie */
    char const* reason;    /* of MU_STATUS_DAMAGED; of MU_STATUS_NONE what could not be read; else "" */
} mu_video;

/* Asks what the photo claims, and whether a movie is there. A photo without one is MU_OK too: see the status. */
METADATA_UTILS_EXPORT int mu_locate_video(mu_photo* photo, mu_video* video);
/* Looks for a movie behind the picture that nothing claims. Reads all that stands there. */
METADATA_UTILS_EXPORT int mu_scan_video(mu_photo* photo, mu_video* video);
/* Copies the video, as stored, to the descriptor's position. A photo without a sound video gives MU_REFUSED. After a
 * failure part of it may have been written. */
METADATA_UTILS_EXPORT int mu_copy_video_to_descriptor(mu_photo* photo, int fd);
/* The same to a file that exists; what it held stays until the video and room for it are found. */
METADATA_UTILS_EXPORT int mu_copy_video_to_path(mu_photo* photo, char const* path);

/* What the photo says. ----------------------------------------------------------------------------------------------*/

/* A simple property or an array's item. */
typedef struct mu_property {
    char const* schema; /* namespace URI */
    char const* path;   /* prefixed: "GCamera:MotionPhoto", "dc:creator[1]" */
    char const* value;  /* text as stored, without markup */
} mu_property;

/* The directory's item by its place: 0 to count - 1. */
typedef struct mu_item {
    char const* semantic;  /* "Primary", "MotionPhoto", "GainMap" */
    char const* mime_type; /* as stored; "" when absent, as the next two */
    char const* length;    /* bytes of the item; of the primary one only some writers give it */
    char const* padding;   /* bytes between this item and the next */
} mu_item;

/* A record of the trailer: docs/trailer-format.md. */
typedef struct mu_record {
    int32_t type;      /* -32768 to 32767 */
    char const* name;  /* up to its first NUL */
    uint32_t position; /* of the data */
    uint32_t size;     /* of the data */
} mu_record;

/* How many there are; indices go from 0 to count - 1, and another one is MU_REFUSED. */
METADATA_UTILS_EXPORT int mu_count_properties(mu_photo* photo, size_t* count);
/* In the packet's order, without the directory. */
METADATA_UTILS_EXPORT int mu_get_property_at(mu_photo* photo, size_t index, mu_property* property);
/* By namespace URI and prefixed path; "" for an absent one. */
METADATA_UTILS_EXPORT int mu_get_property(mu_photo* photo, char const* schema, char const* path, char const** value);
/* As mu_count_properties, for the directory. */
METADATA_UTILS_EXPORT int mu_count_items(mu_photo* photo, size_t* count);
/* In the directory's order. */
METADATA_UTILS_EXPORT int mu_get_item_at(mu_photo* photo, size_t index, mu_item* item);
/* As mu_count_properties, for the trailer. */
METADATA_UTILS_EXPORT int mu_count_records(mu_photo* photo, size_t* count);
/* In the order of the trailer's directory. */
METADATA_UTILS_EXPORT int mu_get_record_at(mu_photo* photo, size_t index, mu_record* record);
/* The first `capacity` bytes of a record's data, which holds `size`. */
METADATA_UTILS_EXPORT int mu_read_record(mu_photo* photo, size_t index, void* bytes, size_t capacity, size_t* size);

/* Editing: staged in the order of the calls, written by a commit. Whatever an edit can be refused for is found before a
 * byte of the photo or the output changes, for all that are staged: several are first tried on a temporary copy (beside
 * the file that is written, or in the system's temporary folder, or in memory). Properties that are staged one behind
 * the other are one edit. ------------------------------------------------------------------------------------------*/

/* A clip in place of the video there is; `moment_us` -1 for the clip's end. The clip is read at the commit and may be
 * closed before; its file can be no output. */
METADATA_UTILS_EXPORT int mu_stage_video(mu_photo* photo, mu_photo* clip, int64_t moment_us);
/* The video with everything that speaks of it; MU_REFUSED at the commit when nothing does. */
METADATA_UTILS_EXPORT int mu_stage_removal(mu_photo* photo);
/* The still's moment in the video, 0 or more; at the commit MU_REFUSED without a sound video, and behind its end. */
METADATA_UTILS_EXPORT int mu_stage_moment(mu_photo* photo, int64_t moment_us);
/* By namespace URI and prefixed path. A NULL value removes the property. */
METADATA_UTILS_EXPORT int mu_stage_property(mu_photo* photo, char const* schema, char const* path, char const* value);
/* Bytes are copied now, 1 or more. A record of that type (-32768 to 32767) and name is replaced. */
METADATA_UTILS_EXPORT int mu_stage_record(mu_photo* photo, int32_t type, char const* name, void const* bytes,
                                          size_t size);
/* To the form with a trailer; keeps everything. */
METADATA_UTILS_EXPORT int mu_stage_to_trailer(mu_photo* photo);
/* To the published form that ends with its video; refused while records other than the video's exist, unless they may
 * be dropped. */
METADATA_UTILS_EXPORT int mu_stage_to_published(mu_photo* photo, int drop_records);

/* Carries out what is staged, in place, and spends it: an edit that was written is not staged any more. A refusal
 * leaves the photo as it was and everything staged. After a read or write that failed the rest is staged; what the file
 * then holds is told in docs/failure-states.md. */
METADATA_UTILS_EXPORT int mu_commit(mu_photo* photo);
/* Into another file, which exists and whose content is replaced. The photo is only read, and what is staged stays. A
 * refusal leaves what the file held, a write that failed a file that is no whole photo. One that is empty before gets
 * the result directly and is emptied again after a failure; otherwise the result is made in a temporary file first. */
METADATA_UTILS_EXPORT int mu_commit_to_path(mu_photo* photo, char const* path);
/* The same by a descriptor that is open for reading and writing. */
METADATA_UTILS_EXPORT int mu_commit_to_descriptor(mu_photo* photo, int fd);
/* The same into memory: `*bytes` is freed by mu_free, and NULL after a failure. */
METADATA_UTILS_EXPORT int mu_commit_to_memory(mu_photo* photo, void** bytes, size_t* size);
/* Gives back what mu_commit_to_memory gave; NULL is no error. */
METADATA_UTILS_EXPORT void mu_free(void* bytes);

#ifdef __cplusplus
} /* extern "C" */
#endif
