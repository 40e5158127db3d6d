// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"
#include "QRTDataInfo.h"
#include "ReadWindow.h"
#include "Stretch.h"
#include "boxes/BoxBounds.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The one place that knows how the QRT trailer lies in a file; the view reads with it, the editor writes with it, and
/// the container writers find the video pointer with it. docs/trailer-format.md holds a worked example that a test
/// reads.
///
///     offset     width  field (unsigned 32-bit little-endian, from the first byte of "QRTH")
///     -R         R      the records, back to back
///     0          4      "QRTH"
///     4          4      version
///     8          4      record count n
///     12         12*n   directory: n times header word, offsetFromTail, payload
///     12 + 12*n  4      T = 12 + 12*n
///     16 + 12*n  4      "QRTT", the file's last bytes
///
/// In a HEIC file all of it is the body of the last box: 4 bytes big-endian box size, "qrtd", then the first record.
namespace android::lumo::trailer {

inline constexpr char START_MAGIC[] = "QRTH";
inline constexpr char END_MAGIC[] = "QRTT";
inline constexpr uint32_t MAGIC_SIZE = 4;
using lumo::BOX_HEADER_SIZE;
inline constexpr uint32_t DIRECTORY_ENTRY_SIZE = 12;
inline constexpr uint32_t RECORD_HEADER_SIZE = 8; ///< header word and name length
inline constexpr uint32_t SUB_INFO_LENGTH_SIZE = 4;
inline constexpr uint32_t TAIL_HEADER_SIZE = 12; ///< "QRTH", version, count
inline constexpr uint32_t TAIL_END_SIZE = 8;     ///< T and "QRTT"
/// A camera writes some ten. A record in memory takes many times its 20 bytes in the file.
inline constexpr uint32_t MAX_RECORDS = 16384;
/// Every name is kept in memory, more than once. Sub-info stays in the file.
inline constexpr uint32_t MAX_NAME_SIZE = 65536;

struct DirectoryEntry {
    uint32_t header = 0;
    uint32_t offsetFromTail = 0;
    uint32_t payload = 0;
};

struct Tail {
    uint32_t version = 0;
    uint32_t position = 0; ///< file position of "QRTH"
    uint32_t size = 0;     ///< "QRTH" to "QRTT": T + 8
    std::vector<DirectoryEntry> entries;
};

/// Type from the upper 16 bits, with their sign.
int32_t typeOfHeader(uint32_t header);
/// Bit 15, where readers look for the flag.
bool subInfoOfHeader(uint32_t header);

/// The header word as it is written, the flag in bit 0.
uint32_t headerOf(int32_t type, bool hasSubInfo);

/// The whole tail's size for a number of records.
uint32_t tailSize(size_t count);

/// Reads the tail at the file's end; nothing when the markers are not there (each absence is logged under "QRTInfo"). A
/// count whose directory does not fit between "QRTH" and the tail-size field throws, and so does an entry whose record
/// does not lie in front of the tail, or entries that claim more bytes than there are.
std::optional<Tail> readTail(MediaFile const& file);
std::optional<Tail> readTail(MediaFile const& file, uint32_t fileSize);

/// Where the first record stands: what is in front of it is the image (and, in a HEIC, the box header).
uint32_t startOf(Tail const& tail);

/// Reads the head of the record of one of the tail's entries (sub-info length, name) and fills in every position; data
/// and sub-info stay in the file. A name or sub-info outside the record, or a head that disagrees with the entry,
/// throws.
QRTDataInfo readRecord(MediaFile const& file, Tail const& tail, DirectoryEntry const& entry);
QRTDataInfo readRecord(ReadWindow& window, Tail const& tail, DirectoryEntry const& entry);
/// All of them, in directory order.
std::vector<QRTDataInfo> readRecords(MediaFile const& file, Tail const& tail);

/// Whether the record stands in a trailer, and is not one that was only staged.
inline bool isStored(QRTDataInfo const& record) {
    return record.offsetFromTail > 0 && record.payload > 0;
}

/// Where the data and the sub-info stored for a record lie, given the tail's position. Taken from the layout values
/// alone, because a load callback may have pointed dataPosition elsewhere.
Stretch storedData(QRTDataInfo const& record, uint32_t tailPosition);
Stretch storedSubInfo(QRTDataInfo const& record, uint32_t tailPosition);
/// Sets the positions of both.
void locate(QRTDataInfo& record, uint32_t tailPosition);

/// Bytes of a record in front of its data: fixed fields, name, sub-info.
uint32_t headSize(size_t nameSize, bool hasSubInfo, uint32_t subInfoSize);
uint32_t headSize(QRTDataInfo const& record);

/// A copy without data, sub-info and data file.
QRTDataInfo withoutBytes(QRTDataInfo const& record);

/// Appends the record's head and the given data, which is empty for one whose data another file holds.
void appendRecord(ByteBuffer& bytes, QRTDataInfo const& record, ByteBuffer const& data);
/// The line that logs show of a record whose data, of so many bytes, are in memory elsewhere.
std::string describe(QRTDataInfo const& record, size_t dataSize);

/// The tail's bytes, in the order of `records`, from their offsetFromTail and payload.
ByteBuffer serializeTail(uint32_t version, std::vector<QRTDataInfo> const& records);

/// What a file holds behind its image, as somebody last read or wrote it.
struct Stored {
    uint32_t version = 0;
    uint32_t size = 0; ///< records and tail, without a box header; 0: no trailer
    uint32_t tailSize = 0;
    std::vector<QRTDataInfo> records; ///< in directory order, without their bytes

    uint32_t recordsSize() const { return size - tailSize; }
    bool holdsSameAs(Stored const& other) const;
    /// Throws CHANGED unless the file ends in exactly this trailer; returns where its records begin, the file's end
    /// without one. In a HEIC (`box`) the trailer must be the last box.
    uint32_t requireIn(MediaFile const& file, uint32_t fileSize, bool box) const;
};

/// The box header in front of the first record of a HEIC's trailer.
std::string serializeBoxHeader(uint32_t recordsAndTail);

} // namespace android::lumo::trailer
