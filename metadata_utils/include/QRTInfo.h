// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteBuffer.h"
#include "Export.h"
#include "MediaFile.h"
#include "QRTDataInfo.h"

#include <cstdint>
#include <filesystem>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace android::lumo {

class QRTEdit;

/// The QRT trailer of a still, read-only: typed, named records at the end of the file, closed by a tail that runs from
/// "QRTH" to "QRTT" (in a HEIC file the body of a last box 'qrtd'). docs/trailer-format.md draws it.
///
/// Made by parse(), which reads the tail and the record heads and no data; held by a shared pointer, keeps its file
/// open. A file without the markers gives an empty view. Operations move the file's shared position; one thread at a
/// time.
class METADATA_UTILS_EXPORT QRTInfo {
public:
    virtual ~QRTInfo();

    /// Throws an Error: DAMAGED for a trailer that contradicts itself, TOO_BIG for a file of 4 GiB and more,
    /// READ_FAILED when the system refuses a read.
    static std::shared_ptr<QRTInfo> parse(std::shared_ptr<MediaFile> const& file);

    /// The format's number in the tail; 0 as well without a trailer.
    virtual int getVersion() const = 0;
    /// The number of records.
    virtual int getDataCount() const = 0;
    /// Bytes of records and tail, without the HEIC box header; 0 without a trailer.
    virtual int getSize() const = 0;
    /// Record names in directory order.
    virtual std::list<std::string> getKeys() const = 0;
    /// (name, type) of each record, in directory order.
    virtual std::list<std::pair<std::string, int>> getKeysWithType() const = 0;
    /// With `ignoreCase` the letters 'A' to 'Z' of both sides are lowered first.
    virtual bool containsKey(std::string const& name, bool ignoreCase) const = 0;
    /// Whether there is a record of the type.
    virtual bool containsType(int type) const = 0;
    /// The data of the one record that matches, loaded now and kept; empty when none does. Two or more matches throw.
    virtual ByteBuffer getData(int type) = 0;
    /// The same by name.
    virtual ByteBuffer getData(std::string const& name) = 0;
    /// The data of the first record that matches both.
    virtual ByteBuffer getData(int type, std::string const& name) = 0;
    /// The data of every record of the type, in order.
    virtual std::list<ByteBuffer> getAllData(int type) = 0;
    /// The type of the last record, 0 when there is none.
    virtual int getPrimaryType() const = 0;
    /// (file position, bytes) of the first match's data; (0, 0) when none matches.
    virtual std::pair<uint32_t, uint32_t> getDataPositionLength(int type) const = 0;
    /// The same by name.
    virtual std::pair<uint32_t, uint32_t> getDataPositionLength(std::string const& name) const = 0;
    /// The same by both.
    virtual std::pair<uint32_t, uint32_t> getDataPositionLength(int type, std::string const& name) const = 0;
    /// Copies this trailer's records into another file and commits it there. With skip_existing, records whose name the
    /// target has (in any letter case) stay as they are. On failure see QRTEdit::commit.
    virtual void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) = 0;
    /// A new editor over a copy of the records.
    virtual std::shared_ptr<QRTEdit> edit() = 0;

    /// The records in directory order with their positions; data only where it was loaded before.
    std::vector<QRTDataInfo> getRecords() const;
};

} // namespace android::lumo
