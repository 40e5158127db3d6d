// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"
#include "StagedRecord.h"
#include "TrailerPlan.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace android::lumo {

/// A file that a trailer editor writes, and what the editor knows of its end: the trailer as it was last read or
/// written, and which staged records stand in it.
class TrailerFile {
public:
    TrailerFile() = default;
    TrailerFile(std::shared_ptr<MediaFile> const& of, std::shared_ptr<trailer::Stored const> const& known)
        : file(of), stored(known) {}

    std::shared_ptr<MediaFile> const& getFile() const { return file; }
    /// The same file through another descriptor.
    void useHandle(std::shared_ptr<MediaFile> const& handle) { file = handle; }
    std::shared_ptr<trailer::Stored const> const& getStored() const { return stored; }
    RecordPlaces& places() { return standing; }
    RecordPlaces const& places() const { return standing; }
    bool isUnfinished() const { return unfinished.has_value(); }

    /// The source's copy in another file, once it is made; until then it cannot be written.
    TrailerFile copiedTo(std::shared_ptr<MediaFile> const& copy) const;
    void setMade(bool isMade) { isWhole = isMade; }

    /// Where the image ends now and which records stand behind it. Throws CHANGED when the trailer is not the known
    /// one; nothing is written behind an image's end that only a stale view believes in.
    TrailerPlan::Ground survey(uint32_t boxHeader) const;
    /// Lets a video pointer into the data of another record follow it. Only what records hold is kept: a video that
    /// stands between them would go, and throws.
    void followPointer(TrailerPlan& planned) const;
    /// Throws when a record is to stay whose bytes are no longer there.
    void requireKept(StagedRecords::List const& records) const;
    /// `n` bytes of a record that stands here, `offset` behind its first.
    ByteBuffer read(StagedRecord const& record, uint32_t boxHeader, uint32_t offset, uint32_t n) const;

    /// Writes the trailer. A failure is remembered: how many bytes behind the image are not finished, and what of the
    /// records can still be found there.
    void write(TrailerPlan const& planned);

private:
    bool endsUnfinished(uint32_t fileSize, bool box) const;
    uint32_t placeOf(StagedRecord const& record) const;

    std::shared_ptr<MediaFile> file;
    std::shared_ptr<trailer::Stored const> stored;
    RecordPlaces standing;
    std::optional<uint32_t> unfinished; ///< bytes behind the image that a failed commit left
    bool isWhole = true;
};

} // namespace android::lumo
