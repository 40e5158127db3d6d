// SPDX-License-Identifier: Apache-2.0
#include "TrailerPlan.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "io/ImageMetaWriter.h"

#include <algorithm>
#include <limits>
#include <map>
#include <numeric>

namespace android::lumo {

namespace {

constexpr uint64_t MAX_BUFFER_SIZE = std::numeric_limits<int32_t>::max();

/// Moves of neighbours by the same distance become one.
void appendMove(std::vector<TrailerPlan::Move>& moves, TrailerPlan::Move const& move) {
    if (!moves.empty() && moves.back().from + moves.back().size == move.from &&
        moves.back().to + moves.back().size == move.to)
        moves.back().size += move.size;
    else
        moves.push_back(move);
}

/// The places that can move without being read after they were written over: those whose order does not change and
/// that share no bytes. The largest are asked first, so that what is out of order is small.
std::vector<size_t> inOrder(std::vector<TrailerPlan::Place> const& places) {
    std::vector<size_t> bySize;
    bool areInOrder = true;
    for (size_t i = 0; i < places.size(); ++i) {
        if (!places[i].was)
            continue;
        areInOrder = areInOrder &&
                     (bySize.empty() || *places[bySize.back()].was + places[bySize.back()].payload <= *places[i].was);
        bySize.push_back(i);
    }
    if (areInOrder)
        return bySize;
    auto const stands = [&](size_t i) { return *places[i].was == places[i].start; };
    std::stable_sort(bySize.begin(), bySize.end(), [&](size_t a, size_t b) {
        return std::pair(stands(a), places[a].payload) > std::pair(stands(b), places[b].payload);
    });
    std::map<uint32_t, size_t> chain; ///< old place to index
    for (size_t const i : bySize) {
        auto const next = chain.lower_bound(*places[i].was);
        bool const fitsNext = next == chain.end() || (*places[i].was + places[i].payload <= next->first &&
                                                      places[i].start < places[next->second].start);
        bool const fitsLast = next == chain.begin() || [&] {
            auto const& last = places[std::prev(next)->second];
            return *last.was + last.payload <= *places[i].was && last.start < places[i].start;
        }();
        if (fitsNext && fitsLast)
            chain.emplace(*places[i].was, i);
    }
    std::vector<size_t> found;
    for (auto const& [was, i] : chain)
        found.push_back(i);
    return found;
}

} // namespace

TrailerPlan::TrailerPlan(StagedRecords::List const& records, RecordPlaces const& standing, Order const& wanted,
                         Ground const& file)
    : order(wanted), ground(file) {
    requireWithinLimits(records);
    layOut(records, standing);
    planMoves();
}

void TrailerPlan::requireWithinLimits(StagedRecords::List const& records) const {
    if (records.size() > trailer::MAX_RECORDS)
        throw ErrorAt().as(Error::Code::TOO_BIG)("record count %zu is above %zu", records.size(),
                                                 size_t{trailer::MAX_RECORDS});
    uint64_t inMemory = trailer::tailSize(records.size());
    uint64_t inFiles = ground.image + ground.boxHeader;
    for (auto const& record : records) {
        bool const isInMemory = std::holds_alternative<StagedRecord::InMemory>(record.source);
        (isInMemory ? inMemory : inFiles) += record.size();
    }
    if (inMemory > MAX_BUFFER_SIZE)
        throw ErrorAt().as(Error::Code::TOO_BIG)("records of %llu bytes in memory are too big",
                                                 static_cast<unsigned long long>(inMemory));
    checked::sizeOf(inMemory + inFiles); // else the 32-bit sizes of the layout wrap around
}

/// Back to back, the first farthest from the tail.
void TrailerPlan::layOut(StagedRecords::List const& records, RecordPlaces const& standing) {
    std::vector<size_t> wanted(records.size()); ///< indices of `records`, in directory order
    std::iota(wanted.begin(), wanted.end(), size_t{0});
    auto disk = wanted;
    if (order.primaryType >= 1) {
        auto const found =
            std::find_if(wanted.begin(), wanted.end(), [&](size_t i) { return records[i].type == order.primaryType; });
        if (found != wanted.end())
            std::rotate(found, found + 1, wanted.end());
    }
    if (order.option == QRTEdit::Option::WRITE_FAST)
        std::stable_partition(disk.begin(), disk.end(), [&](size_t i) { return records[i].isFileBacked(); });
    else
        disk = wanted;

    std::vector<size_t> placeOf(records.size());
    places.reserve(records.size());
    for (size_t const i : disk) {
        auto const& record = records[i];
        Place place{&record, 0, static_cast<uint32_t>(record.size()), std::nullopt, total};
        if (auto const found = standing.find(record.identity); found != standing.end())
            place.was = found->second;
        placeOf[i] = places.size();
        places.push_back(place);
        total += place.payload;
    }
    for (auto& place : places)
        place.offsetFromTail = total - place.start;
    directory.reserve(records.size());
    for (size_t const i : wanted)
        directory.push_back(placeOf[i]);
}

void TrailerPlan::planMoves() {
    auto const kept = inOrder(places);
    std::vector<bool> isKept(places.size());
    for (size_t const i : kept)
        isKept[i] = true;
    uint64_t scratch = std::max(ground.fileSize, finalSize());
    std::vector<Move> back;
    for (size_t i = 0; i < places.size(); ++i) {
        if (!places[i].was || isKept[i])
            continue;
        auto const behind = checked::sizeOf(scratch);
        moves.push_back({start() + *places[i].was, behind, places[i].payload});
        back.push_back({behind, start() + places[i].start, places[i].payload});
        scratch += places[i].payload;
    }
    scratchEnd = back.empty() ? 0 : checked::sizeOf(scratch);
    std::vector<Move> right;
    for (size_t const i : kept) {
        auto const& place = places[i];
        if (*place.was == place.start)
            continue;
        bool const goesLeft = place.start < *place.was;
        appendMove(goesLeft ? moves : right, {start() + *place.was, start() + place.start, place.payload});
    }
    moves.insert(moves.end(), right.rbegin(), right.rend());
    moves.insert(moves.end(), back.begin(), back.end());
}

bool TrailerPlan::allStand() const {
    return moves.empty() &&
           std::all_of(places.begin(), places.end(), [](auto const& place) { return place.was.has_value(); });
}

TrailerPlan::FromFiles TrailerPlan::fromFiles() const {
    FromFiles found;
    for (auto const& place : places) {
        if (place.record->isFileBacked()) {
            found.bytes += place.payload;
            ++found.count;
        }
    }
    return found;
}

std::vector<StagedRecord const*> TrailerPlan::inDirectoryOrder() const {
    std::vector<StagedRecord const*> found;
    for (size_t const i : directory)
        found.push_back(places[i].record);
    return found;
}

TrailerPlan::Place const* TrailerPlan::find(int32_t type) const {
    for (size_t const i : directory) {
        if (places[i].record->type == type)
            return &places[i];
    }
    return nullptr;
}

std::optional<uint32_t> TrailerPlan::newPlaceOf(uint32_t from) const {
    for (auto const& place : places) {
        if (place.was && from >= *place.was + place.record->headSize() && from - *place.was < place.payload)
            return place.start + (from - *place.was);
    }
    return std::nullopt;
}

trailer::Stored TrailerPlan::stored() const {
    trailer::Stored stored{ground.version, trailerSize(), places.empty() ? 0 : tailSize(), {}};
    for (size_t const i : directory) {
        QRTDataInfo info = places[i].record->described();
        info.dataFile = nullptr;
        info.offsetFromTail = places[i].offsetFromTail;
        info.payload = places[i].payload;
        stored.records.push_back(std::move(info));
    }
    return stored;
}

RecordPlaces TrailerPlan::newPlaces() const {
    RecordPlaces found;
    for (auto const& place : places)
        found[place.record->identity] = place.start;
    return found;
}

RecordPlaces TrailerPlan::keptPlaces(size_t movesDone, bool isNextCutShort) const {
    RecordPlaces found;
    for (auto const& place : places) {
        if (!place.was)
            continue;
        uint32_t at = start() + *place.was;
        auto const isIn = [&](Move const& move) { return at >= move.from && at - move.from < move.size; };
        for (size_t i = 0; i < movesDone; ++i) {
            if (isIn(moves[i]))
                at = moves[i].to + (at - moves[i].from);
        }
        if (isNextCutShort && isIn(moves[movesDone])) {
            auto const& [from, to, size] = moves[movesDone];
            if (std::max(from, to) - std::min(from, to) < size)
                continue; // it moved over itself
        }
        found[place.record->identity] = at - start();
    }
    return found;
}

void TrailerPlan::patch(Place const& place, ByteBuffer bytes) {
    dataPatch = {start() + place.dataStart(), std::move(bytes)};
}

// The whole commit. ---------------------------------------------------------------------------------------------------

void CommitSizes::addXMP(uint64_t needed, uint64_t room) {
    uint64_t const least = std::max<uint64_t>(needed, ImageMetaWriter::MIN_XMP_ROOM);
    size += room < least ? least + XMP_OVERHEAD : 0;
    most = std::max(most, size);
}

void CommitSizes::exchangeBox(uint64_t old, uint64_t now) {
    size = size - std::min(size, old) + now;
    most = std::max(most, size);
}

void CommitSizes::addTrailer(TrailerPlan const& plan) {
    most = std::max(most, size + plan.workSize() - std::min(plan.getGround().fileSize, plan.workSize()));
}

uint32_t CommitSizes::workSize() const {
    return checked::sizeOf(most);
}

void CommitSizes::requireAddressable() const {
    checked::sizeOf(uint64_t{workSize()} + XMP_OVERHEAD + ImageMetaWriter::MIN_XMP_ROOM);
}

} // namespace android::lumo
