// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteBuffer.h"
#include "Export.h"
#include "MediaFile.h"

#include <cstdint>
#include <memory>
#include <string>

namespace android::lumo {

/// One typed, named record of the QRT trailer, by value: what the trailer reader found, or what an editor is to write.
///
/// On disk (all integers unsigned 32-bit little-endian, no padding):
///
///     offset  width  field
///     0       4      header word: type << 16 | (hasSubInfo ? 1 : 0); a reader takes the sub-info flag from bit 15
///     4       4      name length N
///     8       4      sub-info length S, only with sub-info
///     8 | 12  N      name, no terminator
///     then    S      sub-info, only with sub-info
///     then    D      data
///
/// The writer's and the reader's place of the sub-info flag differ in this format, on purpose: a record written with
/// sub-info reads back as one without, its name length field unchanged and the sub-info length in front of the name.
struct METADATA_UTILS_EXPORT QRTDataInfo {
    int32_t type = 0;            ///< only the low 16 bits survive the header word
    std::string name;            ///< bytes as stored; the names in use are ASCII
    bool hasSubInfo = false;     ///< as the reader takes it from the header word; see above
    uint32_t offsetFromTail = 0; ///< bytes from the record's first byte to the trailer's "QRTH"
    uint32_t payload = 0;        ///< the record's bytes on disk, header word to last data byte
    ByteBuffer data;             ///< the data while in memory; empty when not loaded or when it comes from dataFile
    std::shared_ptr<MediaFile> dataFile; ///< a file whose first dataPayload bytes are the data (a video)
    uint32_t dataPayload = 0;            ///< bytes of data
    uint32_t dataPosition = 0;           ///< file position of the first data byte
    ByteBuffer subInfo;                  ///< bytes between name and data; empty without
    uint32_t subInfoPayload = 0;         ///< their number
    uint32_t subInfoPosition = 0;        ///< file position of their first

    /// The header word as the writer puts it.
    uint32_t getDataHeader() const;
    /// Bytes on disk, from dataPayload (so it holds for data in a file as well).
    uint32_t size() const;
    /// True when there is something to write as data: bytes in memory or a valid file.
    bool hasData() const;
    /// The record's bytes without a data file's content, which the writer copies behind them. Throws
    /// "no data: empty=%d, file=%p" when there is neither data nor a valid data file.
    ByteBuffer toBuffer() const;
    /// One line for logs.
    std::string toString() const;
};

/// Record types and names the library itself uses.
namespace qrt {

inline constexpr int32_t TYPE_MOTION_PHOTO_DATA = 2608;                    ///< the video, or a pointer to it
inline constexpr int32_t TYPE_MOTION_PHOTO_VERSION = 2609;                 ///< "mpv1" to "mpv4"
inline constexpr int32_t TYPE_AUTO_PLAY_VIDEO = 2611;                      ///< a second, short video
inline constexpr char NAME_MOTION_PHOTO_DATA[] = "MotionPhoto_Data";       ///< of type 2608
inline constexpr char NAME_MOTION_PHOTO_VERSION[] = "MotionPhoto_Version"; ///< of type 2609
inline constexpr char NAME_MOTION_PHOTO_INFO[] =
    "MotionPhoto_Info"; ///< text: how the video was made, or what it was before
inline constexpr char NAME_MOTION_PHOTO_AUTO_PLAY[] = "MotionPhoto_AutoPlay"; ///< of type 2611
inline constexpr char NAME_LONG_EXPOSURE_INFO[] =
    "Long_Exposure_Effect_Info";                             ///< of a picture made from the video's frames
inline constexpr char NAME_3D_PHOTO_INFO[] = "3DPhoto_Info"; ///< is never carried to another photo

} // namespace qrt

} // namespace android::lumo
