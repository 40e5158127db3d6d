// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "QRTEdit.h"
#include "StagedRecord.h"
#include "io/TrailerLayout.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace android::lumo {

/// How a trailer will stand in a file, worked out before anything is written: a value, from the staged records, the
/// order asked for and the place where the image ends.
///
/// A record that the file holds already stays where it is when that is its place in the new trailer; else its bytes are
/// moved inside the file. Such moves never read what an earlier one has written over: first what is out of order is
/// copied behind the end, then what goes towards the start moves, front to back, then what goes towards the end, back
/// to front, then what was copied.
class TrailerPlan {
public:
    /// The file to write, as it stands.
    struct Ground {
        uint32_t image = 0; ///< bytes in front of the trailer and of its box header
        uint32_t boxHeader = 0;
        uint32_t fileSize = 0;
        uint32_t version = 0;
        bool hasTrailer = false; ///< a whole one
    };
    struct Order {
        QRTEdit::Option option = QRTEdit::Option::WRITE_IN_ORDER;
        int32_t primaryType = 0; ///< its first record becomes the directory's last; 0: none
    };
    struct Place {
        StagedRecord const* record = nullptr;
        uint32_t offsetFromTail = 0;
        uint32_t payload = 0;
        std::optional<uint32_t> was; ///< where the file holds it, from the trailer's first byte
        uint32_t start = 0;          ///< where it will stand, likewise

        uint32_t dataStart() const { return start + record->headSize(); }
    };
    struct Move {
        uint32_t from = 0; ///< file positions
        uint32_t to = 0;
        uint32_t size = 0;
    };
    /// Bytes that may differ from what the file has there.
    struct Patch {
        uint32_t position = 0;
        ByteBuffer bytes;
    };

    /// Refuses what no trailer can hold. `standing` are the places of those the file holds already; the records must
    /// outlive the plan.
    TrailerPlan(StagedRecords::List const& records, RecordPlaces const& standing, Order const& order,
                Ground const& ground);

    Ground const& getGround() const { return ground; }
    Order const& getOrder() const { return order; }
    /// In the order of their bytes.
    std::vector<Place> const& onDisk() const { return places; }
    std::vector<StagedRecord const*> inDirectoryOrder() const;
    std::vector<Move> const& getMoves() const { return moves; }
    /// Other bytes at the start of a kept record's data.
    std::optional<Patch> const& getPatch() const { return dataPatch; }
    uint32_t tailSize() const { return trailer::tailSize(places.size()); }
    uint32_t recordsSize() const { return total; }
    /// What of it comes from data files.
    struct FromFiles {
        size_t bytes = 0;
        size_t count = 0;
    };
    FromFiles fromFiles() const;
    /// Records and tail; 0 when no record is left.
    uint32_t trailerSize() const { return places.empty() ? 0 : total + tailSize(); }
    /// The first record's file position.
    uint32_t start() const { return ground.image + ground.boxHeader; }
    /// Bytes behind the image, with the box header.
    uint32_t behindImage() const { return places.empty() ? 0 : ground.boxHeader + trailerSize(); }
    uint32_t finalSize() const { return ground.image + behindImage(); }
    /// What the disk must have room for: the finished file, or what is copied behind its end on the way.
    uint32_t workSize() const { return std::max(finalSize(), scratchEnd); }
    /// No record has to be moved or written.
    bool allStand() const;

    /// The first record of the type on disk that holds what is asked for; null without one.
    Place const* find(int32_t type) const;
    /// Bytes from the image's end to a place's data, and from there to the file's end.
    uint32_t paddingOf(Place const& place) const { return ground.boxHeader + place.dataStart(); }
    uint32_t lengthFrom(Place const& place) const { return trailerSize() - place.dataStart(); }
    /// The same from the first of so many bytes that end where the image does.
    uint32_t lengthFrom(uint32_t inFront) const { return inFront + behindImage(); }
    /// How many more bytes will stand behind the image than do now.
    int64_t growth() const { return int64_t{behindImage()} - (ground.fileSize - ground.image); }
    /// Where bytes that stand `from` the trailer's first byte will stand; nothing when no kept record holds them.
    std::optional<uint32_t> newPlaceOf(uint32_t from) const;

    /// What the file will hold, in directory order.
    trailer::Stored stored() const;
    /// Where each staged record will stand.
    RecordPlaces newPlaces() const;
    /// Where those stand that the file held before, when so many moves are done and perhaps a next one was cut short. A
    /// record that such a move may have written over is left out.
    RecordPlaces keptPlaces(size_t movesDone, bool isNextCutShort) const;

    /// A record that the file holds is to have other bytes at its data's start.
    void patch(Place const& place, ByteBuffer bytes);

private:
    void layOut(StagedRecords::List const& records, RecordPlaces const& standing);
    void planMoves();
    void requireWithinLimits(StagedRecords::List const& records) const;

    Order order;
    Ground ground;
    std::vector<Place> places;
    std::vector<size_t> directory; ///< indices of `places`
    uint32_t total = 0;            ///< bytes of the records
    uint32_t scratchEnd = 0;
    std::vector<Move> moves;
    std::optional<Patch> dataPatch;
};

/// What a commit of a whole photo takes on the disk, summed up in the order in which it is written: XMP, video box,
/// trailer.
class CommitSizes {
public:
    /// The fields of a motion photo take no more, in XMP that has none of them.
    static constexpr uint32_t VIDEO_FIELDS = 2048;
    /// What XMP takes in a file besides its packet: identifier and rounding in a JPEG, boxes in a HEIC.
    static constexpr uint32_t XMP_OVERHEAD = 256;

    explicit CommitSizes(uint32_t fileSize) : size(fileSize), most(fileSize) {}

    /// XMP of so many bytes, with what the container says of it, is written; `room` is what it has now.
    void addXMP(uint64_t needed, uint64_t room);
    /// A HEIC's video box goes, or is not there, and one comes, or none.
    void exchangeBox(uint64_t old, uint64_t now);
    void addTrailer(TrailerPlan const& plan);

    /// The most bytes the file will have on the way. A size that needs no new space is not asked for, however little of
    /// it is left. Throws past 4 GiB.
    uint32_t workSize() const;
    /// Throws past 4 GiB, also where XMP that fits now should not do so any more with the video's fields.
    void requireAddressable() const;

private:
    uint64_t size;
    uint64_t most;
};

} // namespace android::lumo
