// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"
#include "TrailerPlan.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace android::lumo {

/// Writes a planned trailer behind the image of a file.
///
/// What it upholds:
///  1. Before the first change every byte that will be needed has been had or read once, and the disk has the room.
///  2. Nothing in front of the image's end is written, but for the size of a HEIC's last box that had none.
///  3. The old trailer loses its end mark before any of its bytes change, and the new one gets its own last.
///  4. The boxes of a HEIC add up to the file at every step: on the way the trailer's box runs to the file's end.
///  5. What the file holds already is not written.
class TrailerWriter {
public:
    TrailerWriter(std::shared_ptr<MediaFile> const& output, TrailerPlan const& what);

    void write();
    /// What the file holds once it is written.
    std::shared_ptr<trailer::Stored const> const& getStored() const { return stored; }

    /// Whether a byte may have changed.
    bool hasBegun() const { return isBegun; }
    /// After a failure: which staged records can still be found in the file, and where.
    RecordPlaces whatStands() const { return plan.keptPlaces(movesDone, isMoving); }

private:
    void writeInOrder();
    void writeFast();
    void makeRoom();
    void writeRecords(size_t end);
    void writeEnd(ByteBuffer const& bytes);

    bool isWritten() const;
    std::vector<TrailerPlan::Patch> openPatches() const;
    void requireReadable() const;
    void openTrailer();
    void move(TrailerPlan::Move const& move);
    void seekTo(uint32_t position) const;
    bool isPending(size_t index) const;
    ByteBuffer pendingBytes(size_t first, size_t end, uint32_t room) const;
    void logLayout() const;
    void logPrimary() const;

    std::shared_ptr<MediaFile> file;
    TrailerPlan const& plan;
    std::shared_ptr<trailer::Stored const> const stored;
    ByteBuffer const tail;
    bool isBegun = false;
    size_t movesDone = 0;
    bool isMoving = false;
};

} // namespace android::lumo
