// SPDX-License-Identifier: Apache-2.0
#include "TrailerWriter.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "io/HEIFMetaWriter.h"

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "QRTEdit";
constexpr uint32_t BLOCK = 1024 * 1024;
/// A box that runs to the file's end.
constexpr char OPEN_BOX[] = {0, 0, 0, 0};

} // namespace

void TrailerWriter::write() {
    if (isWritten())
        return;
    requireReadable(); // 1
    checked::SpaceKeeper const space(file, plan.workSize());
    checked::requireSpace(*file, plan.workSize()); // 1
    openTrailer();                                 // 2, 3, 4
    isMoving = !plan.getMoves().empty();
    for (auto const& each : plan.getMoves()) {
        move(each);
        isMoving = ++movesDone < plan.getMoves().size();
    }
    writeRecords();
    writeTail(); // 3, 4
}

bool TrailerWriter::isWritten() const {
    if (!plan.getGround().hasTrailer || !plan.allStand() || plan.finalSize() != plan.getGround().fileSize)
        return false;
    ByteBuffer const bytes = tail();
    return checked::holds(*file, plan.start() + plan.recordsSize(), bytes.data(), bytes.size()) &&
           std::all_of(plan.getPatches().begin(), plan.getPatches().end(), [this](auto const& patch) {
               return checked::holds(*file, patch.position, patch.bytes.data(), patch.bytes.size());
           });
}

/// What will be moved is read once while all of it is where it was.
void TrailerWriter::requireReadable() const {
    for (auto const& [from, to, size] : plan.getMoves()) {
        uint32_t const end = std::min(from + size, plan.getGround().fileSize);
        for (uint32_t at = from; at < end; at += BLOCK)
            checked::readAt(*file, at, std::min(BLOCK, end - at));
    }
}

void TrailerWriter::openTrailer() {
    auto const& ground = plan.getGround();
    if (ground.boxHeader > 0 && !ground.hasTrailer && ground.fileSize == ground.image)
        HEIFMetaWriter::closeLastBox(file);
    isBegun = true;
    if (ground.boxHeader > 0 && ground.hasTrailer) {
        checked::seek(*file, ground.image);
        checked::write(*file, OPEN_BOX, sizeof(OPEN_BOX));
    }
    if (ground.hasTrailer)
        checked::truncate(*file, ground.fileSize - trailer::TAIL_END_SIZE);
    checked::reserve(*file, plan.workSize());
}

/// Inside one file, in blocks that never overtake what is still to be read.
void TrailerWriter::move(TrailerPlan::Move const& move) {
    bool const goesLeft = move.to < move.from;
    for (uint32_t done = 0; done < move.size;) {
        uint32_t const n = std::min(BLOCK, move.size - done);
        uint32_t const at = goesLeft ? done : move.size - done - n;
        ByteBuffer const block = checked::readAt(*file, move.from + at, n);
        checked::seek(*file, move.to + at);
        checked::write(*file, block);
        done += n;
    }
}

/// The batch's bytes that the file does not hold yet.
ByteBuffer TrailerWriter::pendingBytes(size_t first, size_t end) const {
    uint32_t size = 0;
    for (size_t i = first; i < end; ++i)
        size += plan.onDisk()[i].payload;
    LOGI("getQRTDataBuffer: memoryWriteSize=%zu", size_t{size});
    bool const isLast = plan.getOrder().option == QRTEdit::Option::WRITE_FAST && end == plan.onDisk().size();
    ByteBuffer bytes(size + (isLast ? plan.tailSize() : 0));
    for (size_t i = first; i < end; ++i) {
        auto const& record = *plan.onDisk()[i].record;
        LOGI("put %s[%zu] on %s", record.name.c_str(), static_cast<size_t>(record.size()), bytes.toString().c_str());
        bytes.put(record.head()).put(*record.data().getBuffer());
        LOGI("acc: %s", bytes.toString().c_str());
    }
    return bytes;
}

void TrailerWriter::writeRecords() {
    auto const& ground = plan.getGround();
    if (ground.boxHeader > 0) {
        if (file->size() > plan.finalSize())
            checked::truncate(*file, plan.finalSize()); // 4
        checked::seek(*file, ground.image);
        checked::write(*file, trailer::serializeBoxHeader(plan.trailerSize()));
    }
    auto const& places = plan.onDisk();
    auto const isInMemory = [](auto const& place) {
        return !place.was && std::holds_alternative<StagedRecord::InMemory>(place.record->source);
    };
    auto const seekTo = [this](uint32_t position) {
        if (file->position(position) != position)
            throw ErrorAt(__LINE__, "metadata_utils/QRTEditImpl")
                .as(Error::Code::READ_FAILED, *file)("Failed to set outputFile position to %zu", size_t{position});
    };
    for (size_t i = 0; i < places.size();) {
        auto const& place = places[i];
        uint32_t const position = plan.start() + place.start;
        if (place.was) {
            ++i;
            continue;
        }
        seekTo(position);
        if (!isInMemory(place)) {
            checked::write(*file, place.record->head());
            place.record->data().copyTo(file);
            ++i;
            continue;
        }
        size_t end = i;
        while (end < places.size() && isInMemory(places[end]))
            ++end;
        ByteBuffer bytes = pendingBytes(i, end);
        if (plan.getOrder().option == QRTEdit::Option::WRITE_FAST && end == places.size()) {
            lastBatchStart = position;
            lastBatch = std::move(bytes);
        } else {
            checked::write(*file, bytes);
        }
        i = end;
    }
    for (auto const& patch : plan.getPatches()) {
        if (checked::holds(*file, patch.position, patch.bytes.data(), patch.bytes.size()))
            continue;
        seekTo(patch.position);
        checked::write(*file, patch.bytes);
    }
}

ByteBuffer TrailerWriter::tail() const {
    auto const stored = plan.stored();
    return trailer::serializeTail(stored.version, stored.records);
}

void TrailerWriter::writeTail() {
    ByteBuffer const bytes = tail();
    bool const hasBatch = !lastBatch.empty();
    checked::seek(*file, hasBatch ? lastBatchStart : plan.start() + plan.recordsSize());
    if (hasBatch)
        lastBatch.put(bytes);
    checked::write(*file, hasBatch ? lastBatch : bytes);
    LOGI("qrt-tail-written-size=%ld", static_cast<long>(hasBatch ? lastBatch.size() : bytes.size()));
    if (file->size() != plan.finalSize())
        checked::truncate(*file, plan.finalSize());
}

} // namespace android::lumo
