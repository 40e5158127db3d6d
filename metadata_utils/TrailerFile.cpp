// SPDX-License-Identifier: Apache-2.0
#include "TrailerFile.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "io/HEIFMetaWriter.h"
#include "io/VideoPointer.h"

#include <algorithm>
#include <cstring>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "QRTEdit";
/// A box that runs to the file's end.
constexpr char OPEN_BOX[] = {0, 0, 0, 0};

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

} // namespace

TrailerFile TrailerFile::copiedTo(std::shared_ptr<MediaFile> const& copy) const {
    TrailerFile made = *this;
    made.file = copy;
    made.isWhole = false;
    return made;
}

TrailerPlan::Ground TrailerFile::survey(uint32_t boxHeader) const {
    uint32_t const fileSize = checked::addressableSize(*file);
    if (!isWhole)
        throw ErrorAt()("the copy that this editor was to write is not complete");
    TrailerPlan::Ground ground;
    ground.boxHeader = boxHeader;
    ground.fileSize = fileSize;
    ground.version = stored->version;
    if (unfinished && endsUnfinished(fileSize, boxHeader > 0)) {
        if (ground.fileSize <= *unfinished)
            throw ErrorAt().as(Error::Code::CHANGED)("the file has changed since it was read: %zu bytes are left",
                                                     size_t{ground.fileSize});
        ground.image = ground.fileSize - *unfinished;
        return ground;
    }
    uint32_t const start = stored->requireIn(*file, fileSize, boxHeader > 0);
    ground.hasTrailer = stored->size > 0;
    ground.image = start - (ground.hasTrailer ? boxHeader : 0);
    if (ground.image == 0)
        throw ErrorAt().as(Error::Code::CHANGED)("the file has changed since it was read: it is empty");
    return ground;
}

/// The file ends in what a failed commit left, not in the trailer that stood there before.
bool TrailerFile::endsUnfinished(uint32_t fileSize, bool box) const {
    try {
        if (stored->size == 0)
            return !trailer::readTail(*file, fileSize);
        stored->requireIn(*file, fileSize, box);
        return false;
    } catch (std::exception const&) {
        rethrowUnlessDamage();
        return true;
    }
}

void TrailerFile::followPointer(TrailerPlan& planned) const {
    auto const* place = planned.find(qrt::TYPE_MOTION_PHOTO_DATA);
    if (place == nullptr || !place->was || !planned.getGround().hasTrailer)
        return;
    uint32_t const data = planned.start() + *place->was + place->record->headSize();
    auto pointer = VideoPointer::in(*file, place->record->type, {data, place->record->dataSize});
    if (!pointer || pointer->length == 0 || pointer->position < planned.start() ||
        pointer->position - planned.start() >= stored->recordsSize())
        return;
    uint32_t const from = pointer->position - planned.start();
    if (std::none_of(stored->records.begin(), stored->records.end(), [&](auto const& record) {
            uint32_t const start = stored->recordsSize() - record.offsetFromTail;
            return from >= start && from - start < record.payload;
        }))
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("the video at %zu stands in no record of the trailer",
                                                     size_t{pointer->position});
    auto const now = planned.newPlaceOf(from);
    if (!now || *now == from)
        return;
    pointer->position = planned.start() + *now;
    planned.patch(*place, pointer->encode());
}

void TrailerFile::requireKept(StagedRecords::List const& records) const {
    for (auto const& record : records) {
        if (record.isInFile())
            static_cast<void>(placeOf(record));
    }
}

uint32_t TrailerFile::placeOf(StagedRecord const& record) const {
    auto const found = standing.find(record.identity);
    if (found == standing.end())
        throw ErrorAt().as(Error::Code::CHANGED)("record %s no longer stands in the file's trailer",
                                                 record.name.c_str());
    return found->second;
}

ByteBuffer TrailerFile::read(StagedRecord const& record, uint32_t boxHeader, uint32_t offset, uint32_t n) const {
    auto const ground = survey(boxHeader);
    return checked::readAt(*file, ground.image + boxHeader + placeOf(record) + offset, n);
}

void TrailerFile::write(TrailerPlan const& planned) {
    TrailerWriter writer(file, planned);
    try {
        writer.write();
    } catch (...) {
        if (writer.hasBegun()) {
            standing = writer.whatStands();
            uint32_t const size = file->size();
            unfinished = size - std::min(size, planned.getGround().image);
        }
        throw;
    }
    standing = planned.newPlaces();
    stored = writer.getStored();
    unfinished.reset();
}

// Writing.
// -------------------------------------------------------------------------------------------------------------

TrailerWriter::TrailerWriter(std::shared_ptr<MediaFile> const& output, TrailerPlan const& what)
    : file(output), plan(what), stored(std::make_shared<trailer::Stored const>(what.stored())),
      tail(trailer::serializeTail(stored->version, stored->records)) {}

void TrailerWriter::write() {
    plan.getOrder().option == QRTEdit::Option::WRITE_FAST ? writeFast() : writeInOrder();
}

/// The records, then the tail.
void TrailerWriter::writeInOrder() {
    LOGI("writeInOrder E: qrtTailSize=%zu", size_t{plan.tailSize()});
    logPrimary();
    logLayout();
    size_t written = 0;
    if (!isWritten()) {
        requireReadable();                                       // 1
        checked::SpaceKeeper const space(file, plan.workSize()); // 1
        makeRoom();
        writeRecords(plan.onDisk().size());
        for (auto const* record : plan.inDirectoryOrder())
            LOGI("write item on %s", record->name.c_str());
        seekTo(plan.start() + plan.recordsSize());
        writeEnd(tail);
        written = tail.size();
    }
    LOGI("writeInOrder X: qrt-tail-written-size=%ld", static_cast<long>(written));
}

/// The last records in memory go out with the tail.
void TrailerWriter::writeFast() {
    LOGI("writeFast E: qrtTailSize=%zu", size_t{plan.tailSize()});
    logLayout();
    auto const& places = plan.onDisk();
    auto const fromFiles = plan.fromFiles();
    LOGI("fileWriteSize=%zu[%zu], memoryWriteSize=%zu[%zu]", fromFiles.bytes, fromFiles.count,
         size_t{plan.recordsSize()} - fromFiles.bytes, places.size() - fromFiles.count);
    size_t written = 0;
    if (!isWritten()) {
        size_t first = places.size();
        while (first > 0 && isPending(first - 1))
            --first;
        ByteBuffer bytes = pendingBytes(first, places.size(), tail.size());
        LOGI("write start header E");
        LOGI("write start header X: ver=%d, size=%zu", static_cast<int>(stored->version), places.size());
        logPrimary();
        bytes.put(tail);
        LOGI("write tail header X: %zu", size_t{plan.getGround().image});
        requireReadable();                                       // 1
        checked::SpaceKeeper const space(file, plan.workSize()); // 1
        makeRoom();
        writeRecords(first);
        seekTo(plan.start() + (first < places.size() ? places[first].start : plan.recordsSize()));
        writeEnd(bytes);
        written = bytes.size();
    }
    LOGI("writeFast X: qrt-tail-written-size=%ld", static_cast<long>(written));
}

/// What the file holds already comes to its place, and the rest can follow.
void TrailerWriter::makeRoom() {
    openTrailer(); // 2, 3, 4
    isMoving = !plan.getMoves().empty();
    for (auto const& each : plan.getMoves()) {
        move(each);
        isMoving = ++movesDone < plan.getMoves().size();
    }
    if (plan.getGround().boxHeader == 0)
        return;
    if (file->size() > plan.finalSize())
        checked::truncate(*file, plan.finalSize()); // 4
    seekTo(plan.getGround().image);
    checked::write(*file, trailer::serializeBoxHeader(plan.trailerSize()));
}

bool TrailerWriter::isWritten() const {
    if (!plan.getGround().hasTrailer || !plan.allStand() || plan.finalSize() != plan.getGround().fileSize)
        return false;
    return checked::holds(*file, plan.start() + plan.recordsSize(), tail.data(), tail.size()) && openPatches().empty();
}

/// What of the kept records the file has not got: readers ignore most bits of a header word, and take the flag of
/// sub-info from another than is written.
std::vector<TrailerPlan::Patch> TrailerWriter::openPatches() const {
    std::vector<TrailerPlan::Patch> open;
    ReadWindow window(*file);
    for (auto const& place : plan.onDisk()) {
        if (!place.was)
            continue;
        uint32_t const position = plan.start() + place.start;
        uint32_t const header = trailer::headerOf(place.record->type, place.record->hasSubInfo);
        auto const held = window.at(position, sizeof header, place.payload < ReadWindow::SIZE);
        if (std::memcmp(held.data(), &header, sizeof header) != 0)
            open.push_back({position, ByteBuffer(sizeof header).put(header)});
    }
    auto const& patch = plan.getPatch();
    if (patch && !checked::holds(*file, patch->position, patch->bytes.data(), patch->bytes.size()))
        open.push_back(*patch);
    return open;
}

/// What will be moved is read once while all of it is where it was.
void TrailerWriter::requireReadable() const {
    for (auto const& [from, to, size] : plan.getMoves()) {
        uint32_t const end = std::min(from + size, plan.getGround().fileSize); // what comes there on the way is no read
        if (from < end)
            checked::requireReadable(*file, from, end - from, checked::MOVE_BLOCK);
    }
}

void TrailerWriter::openTrailer() {
    auto const& ground = plan.getGround();
    if (ground.boxHeader > 0 && !ground.hasTrailer && ground.fileSize == ground.image)
        HEIFMetaWriter::closeLastBox(file);
    isBegun = true;
    if (ground.boxHeader > 0 && ground.hasTrailer) {
        seekTo(ground.image);
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
        uint32_t const n = std::min(checked::MOVE_BLOCK, move.size - done);
        uint32_t const at = goesLeft ? done : move.size - done - n;
        ByteBuffer const block = checked::readAt(*file, move.from + at, n);
        seekTo(move.to + at);
        checked::write(*file, block);
        done += n;
    }
}

void TrailerWriter::seekTo(uint32_t position) const {
    if (file->position(position) != position)
        throw ErrorAt(__LINE__, "metadata_utils/QRTEditImpl")
            .as(Error::Code::READ_FAILED, *file)("Failed to set outputFile position to %zu", size_t{position});
}

/// It is in memory, and the file does not hold it yet.
bool TrailerWriter::isPending(size_t index) const {
    auto const& place = plan.onDisk()[index];
    return !place.was && std::holds_alternative<StagedRecord::InMemory>(place.record->source);
}

/// Records in memory as one piece, with `room` behind them.
ByteBuffer TrailerWriter::pendingBytes(size_t first, size_t end, uint32_t room) const {
    uint32_t size = 0;
    for (size_t i = first; i < end; ++i)
        size += plan.onDisk()[i].payload;
    LOGI("getQRTDataBuffer: memoryWriteSize=%zu", size_t{size});
    ByteBuffer bytes(size + room);
    for (size_t i = first; i < end; ++i) {
        auto const& record = *plan.onDisk()[i].record;
        LOGI("put %s[%zu] on %s", record.name.c_str(), static_cast<size_t>(record.size()), bytes.toString().c_str());
        record.appendTo(bytes);
        LOGI("acc: %s", bytes.toString().c_str());
    }
    return bytes;
}

/// Those in front of `end` that the file does not hold, each behind the last: neighbours in memory in one write.
void TrailerWriter::writeRecords(size_t end) {
    auto const& places = plan.onDisk();
    for (size_t i = 0; i < end;) {
        size_t const first = i++;
        if (places[first].was)
            continue;
        seekTo(plan.start() + places[first].start);
        if (isPending(first)) {
            while (i < end && isPending(i))
                ++i;
            checked::write(*file, pendingBytes(first, i, 0));
        } else {
            ByteBuffer head(places[first].record->headSize());
            places[first].record->appendTo(head);
            checked::write(*file, head);
            places[first].record->data().copyTo(file);
        }
    }
    for (auto const& patch : openPatches()) {
        seekTo(patch.position);
        checked::write(*file, patch.bytes);
    }
}

/// At the file's position; the tail stands last in it.
void TrailerWriter::writeEnd(ByteBuffer const& bytes) {
    checked::write(*file, bytes); // 3, 4
    if (file->size() != plan.finalSize())
        checked::truncate(*file, plan.finalSize());
}

// The log.

void TrailerWriter::logLayout() const {
    LOGI("updateAllQRTData E");
    LOGI("position=%zu", size_t{plan.recordsSize()});
    LOGI("updateAllQRTData X");
}

void TrailerWriter::logPrimary() const {
    if (plan.getOrder().primaryType >= 1)
        LOGI("move primary type %d to last", plan.getOrder().primaryType);
}

} // namespace android::lumo
