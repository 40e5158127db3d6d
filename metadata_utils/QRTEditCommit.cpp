// How the trailer editor writes: the steps of a commit.
#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "QRTEditImpl.h"
#include "io/HEIFMetaWriter.h"
#include "io/VideoPointer.h"

#include <algorithm>
#include <tuple>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "QRTEdit";

/// Back to back, the first farthest from the tail.
void assignPlaces(std::vector<QRTDataInfo*> const& layout) {
    uint32_t position = 0;
    for (auto record = layout.rbegin(); record != layout.rend(); ++record) {
        (*record)->payload = (*record)->size();
        (*record)->offsetFromTail = position += (*record)->payload;
    }
}

/// The layout values that say where old bytes are, put back unless the commit succeeded in place.
class LayoutKeeper {
public:
    explicit LayoutKeeper(std::vector<QRTDataInfo>& staged) : records(staged) {
        for (auto const& record : staged)
            kept.emplace_back(record.offsetFromTail, record.payload);
    }
    ~LayoutKeeper() { putBack(); }
    LayoutKeeper(LayoutKeeper const&) = delete;
    LayoutKeeper& operator=(LayoutKeeper const&) = delete;
    void release() { kept.clear(); }
    void putBack() {
        for (size_t i = 0; i < kept.size(); ++i)
            std::tie(records[i].offsetFromTail, records[i].payload) = kept[i];
        kept.clear();
    }

private:
    std::vector<QRTDataInfo>& records;
    std::vector<std::pair<uint32_t, uint32_t>> kept;
};

} // namespace

void QRTEditImpl::commit(std::shared_ptr<MediaFile> const& target) {
    if (target == nullptr)
        throw trailerEditError()("no file to write to");
    outputFile = target;
    commit();
}

void QRTEditImpl::commit() {
    LOGI("commit E: %zu", records.size());
    if (records.empty()) {
        copySource();
        dirty = false;
        LOGI("commit X: no data, skip to commit");
        return;
    }
    requireWritable(outputFile); // 1
    loadRecords();               // 1, 3
    LayoutKeeper layout(records);
    Plan plan = makePlan();
    switch (option) {
    case Option::WRITE_IN_ORDER:
        writeInOrder(plan); // 2, 4
        break;
    case Option::WRITE_FAST:
        writeFast(plan); // 2, 4
        break;
    }
    if (!plan.written)
        copySource();
    if (isInPlace()) {
        layout.release();
        takeOver(plan);
    } else {
        layout.putBack();
        dropLoaded();
    }
    dirty = false;
    LOGI("commit X");
}

// Writing. ------------------------------------------------------------------------------------------------------------

/// The records lie on disk in the editor's order.
void QRTEditImpl::writeInOrder(Plan& plan) {
    LOGI("writeInOrder E: qrtTailSize=%zu", size_t{plan.tailSize});
    std::vector<Piece> pieces;
    std::vector<QRTDataInfo const*> pending;
    for (auto const* record : layOut(plan)) {
        if (record->dataFile == nullptr) {
            pending.push_back(record);
            continue;
        }
        if (!pending.empty())
            pieces.push_back({getQRTDataBuffer(pending), nullptr});
        pending.clear();
        pieces.push_back({record->toBuffer(), record});
    }
    if (!pending.empty())
        pieces.push_back({getQRTDataBuffer(pending), nullptr});
    pieces.push_back({trailer::serializeTail(static_cast<uint32_t>(info->getVersion()), plan.directory), nullptr});
    long const last = writePieces(pieces, plan);
    LOGI("writeInOrder X: qrt-tail-written-size=%ld", last);
}

/// File-backed records first; all that is in memory, tail included, goes out in one write.
void QRTEditImpl::writeFast(Plan& plan) {
    LOGI("writeFast E: qrtTailSize=%zu", size_t{plan.tailSize});
    std::vector<Piece> pieces;
    std::vector<QRTDataInfo const*> inMemory;
    uint32_t fileWriteSize = 0;
    for (auto const* record : layOut(plan)) {
        if (record->dataFile == nullptr) {
            inMemory.push_back(record);
            continue;
        }
        fileWriteSize += record->payload;
        pieces.push_back({record->toBuffer(), record});
    }
    LOGI("fileWriteSize=%zu[%zu], memoryWriteSize=%zu[%zu]", size_t{fileWriteSize}, pieces.size(),
         size_t{plan.recordsAndTail - plan.tailSize - fileWriteSize}, inMemory.size());
    ByteBuffer last = getQRTDataBuffer(inMemory, plan.tailSize);
    LOGI("write start header E");
    last.put(trailer::serializeTail(static_cast<uint32_t>(info->getVersion()), plan.directory));
    LOGI("write start header X: ver=%d, size=%zu", info->getVersion(), records.size());
    LOGI("write tail header X: %zu", size_t{info->getImageSize()});
    pieces.push_back({std::move(last), nullptr});
    long const written = writePieces(pieces, plan);
    LOGI("writeFast X: qrt-tail-written-size=%ld", written);
}

QRTEditImpl::Order QRTEditImpl::layOut(Plan& plan) {
    Order const layout = diskOrder(plan.directory);
    updateAllQRTData(layout);
    if (plan.pointer != nullptr) {
        uint32_t const tail = plan.finalSize - plan.tailSize;
        auto moved = *VideoPointer::decode(plan.pointer->data);
        moved.position = trailer::storedData(*plan.pointedTo, tail).position + plan.pointedOffset;
        moved.encodeInto(plan.pointer->data);
    }
    return layout;
}

/// The order on disk; the directory's order gets the primary type last.
QRTEditImpl::Order QRTEditImpl::diskOrder(Order& directory) const {
    if (option != Option::WRITE_FAST) {
        movePrimaryTypeToLast(directory);
        return directory;
    }
    Order layout = directory;
    std::stable_partition(layout.begin(), layout.end(), [](auto const* record) { return record->dataFile != nullptr; });
    movePrimaryTypeToLast(directory);
    return layout;
}

void QRTEditImpl::movePrimaryTypeToLast(Order& directory) const {
    if (primaryType < 1)
        return;
    LOGI("move primary type %d to last", primaryType);
    auto const found = std::find_if(directory.begin(), directory.end(),
                                    [&](auto const* record) { return record->type == primaryType; });
    if (found != directory.end())
        std::rotate(found, found + 1, directory.end());
}

/// Hands the places out by type, which reaches only the first record of each; then every record gets its own, from
/// which the directory is written, so that two records of one type both read back.
void QRTEditImpl::updateAllQRTData(Order const& layout) {
    LOGI("updateAllQRTData E");
    uint32_t position = 0;
    for (auto const* record : layout)
        position += record->size();
    LOGI("position=%zu", size_t{position});
    for (auto const* record : layout) {
        auto const first =
            std::find_if(records.begin(), records.end(), [&](auto const& other) { return other.type == record->type; });
        first->offsetFromTail = position;
        first->payload = record->size();
        position -= record->size();
    }
    assignPlaces(layout);
    LOGI("updateAllQRTData X");
}

std::vector<QRTDataInfo> QRTEditImpl::plannedLayout() const {
    std::vector<QRTDataInfo> planned = records;
    Order directory;
    for (auto& record : planned)
        directory.push_back(&record);
    Order const layout = diskOrder(directory);
    assignPlaces(layout);
    std::vector<QRTDataInfo> ordered;
    for (auto* record : layout)
        ordered.push_back(std::move(*record));
    return ordered;
}

ByteBuffer QRTEditImpl::getQRTDataBuffer(std::vector<QRTDataInfo const*> const& batch, uint32_t more) const {
    uint32_t memoryWriteSize = 0;
    for (auto const* record : batch)
        memoryWriteSize += record->size();
    LOGI("getQRTDataBuffer: memoryWriteSize=%zu", size_t{memoryWriteSize});
    ByteBuffer buffer(memoryWriteSize + more);
    for (auto const* record : batch) {
        LOGI("put %s[%zu] on %s", record->name.c_str(), size_t{record->size()}, buffer.toString().c_str());
        trailer::appendRecord(buffer, *record); // a length of 0 is written too
        LOGI("acc: %s", buffer.toString().c_str());
    }
    return buffer;
}

/// Returns the bytes of the last piece.
long QRTEditImpl::writePieces(std::vector<Piece> const& pieces, Plan& plan) {
    checked::SpaceKeeper const space(outputFile, plan.finalSize, trailerEditError()); // a failure gives it back
    prepareOutput(plan);
    uint32_t const image = info->getImageSize();
    if (outputFile->position(image) != image)
        throw trailerEditError()("Failed to set outputFile position to %zu", size_t{image});
    if (info->boxHeaderSize() > 0)
        checked::write(*outputFile, trailer::serializeBoxHeader(plan.recordsAndTail), trailerEditError());
    for (auto const& piece : pieces) {
        checked::write(*outputFile, piece.bytes, trailerEditError());
        if (piece.fileBacked != nullptr)
            checked::copy(piece.fileBacked->dataFile, outputFile, 0, piece.fileBacked->dataPayload, trailerEditError());
    }
    if (outputFile->size() != plan.finalSize)
        checked::truncate(*outputFile, plan.finalSize, trailerEditError());
    plan.written = true;
    return static_cast<long>(pieces.back().bytes.size());
}

/// A full disk is found before anything changes. Then the old trailer loses its end mark, so that nobody reads old
/// entries over new bytes; in a HEIC all of it goes, because the boxes must add up to the file at every step. A HEIC
/// whose last box runs to the file's end would swallow the trailer.
void QRTEditImpl::prepareOutput(Plan const& plan) {
    checked::requireSpace(*outputFile, plan.finalSize, trailerEditError());
    copySource();
    bool const hasTrailer = info->getTrailerSize() > 0;
    if (info->boxHeaderSize() > 0)
        checked::truncate(*outputFile, info->getImageSize(), trailerEditError());
    else if (hasTrailer)
        checked::truncate(*outputFile, outputFile->size() - trailer::TAIL_END_SIZE, trailerEditError());
    if (info->boxHeaderSize() > 0 && !hasTrailer)
        HEIFMetaWriter::closeLastBox(outputFile);
    checked::reserve(*outputFile, plan.finalSize, trailerEditError());
}

bool QRTEditImpl::isInPlace() const {
    return outputFile == sourceFile || MediaFile::isFdsDup(sourceFile->getFd(), outputFile->getFd());
}

/// An output other than the source starts as its copy.
void QRTEditImpl::copySource() {
    if (isInPlace())
        return;
    checked::requireAddressable(*sourceFile, trailerEditError());
    uint32_t const size = sourceFile->size();
    checked::seek(*outputFile, 0, trailerEditError());
    checked::copy(sourceFile, outputFile, 0, size, trailerEditError());
    checked::truncate(*outputFile, size, trailerEditError());
}

// After the last write. -----------------------------------------------------------------------------------------------

/// The view's records are the editor's from now on, and all of them stand in the file: nothing is kept in memory.
void QRTEditImpl::takeOver(Plan const& plan) {
    std::vector<QRTDataInfo> taken;
    for (auto* record : plan.directory)
        taken.push_back(plan.written ? trailer::withoutBytes(*record) : std::move(*record));
    records = std::move(taken);
    updateEachDataPosition(plan.tailSize);
    if (plan.written)
        info->setTrailer(records, plan.recordsAndTail, plan.tailSize);
    else
        info->getRecordList() = records; // an option that writes nothing
}

uint32_t QRTEditImpl::updateEachDataPosition(uint32_t qrtTailSize) {
    uint32_t const size = outputFile->size();
    for (auto& record : records) {
        uint32_t const position = size + trailer::RECORD_HEADER_SIZE - (qrtTailSize + record.offsetFromTail) +
                                  static_cast<uint32_t>(record.name.size());
        record.dataPosition = position;
        if (record.hasSubInfo) {
            record.subInfoPosition = position + trailer::SUB_INFO_LENGTH_SIZE;
            record.dataPosition = record.subInfoPosition + record.subInfoPayload;
        }
    }
    return size + trailer::RECORD_HEADER_SIZE;
}

/// The source still holds what was loaded from it.
void QRTEditImpl::dropLoaded() {
    if (info->isDetached())
        return;
    for (auto& record : records) {
        if (record.offsetFromTail > 0)
            record.data = ByteBuffer();
    }
}

void QRTEditImpl::cutTrailer() {
    settle();
    if (info->getTrailerSize() == 0)
        return;
    uint32_t const image = info->getImageSize();
    checked::truncate(*outputFile, image, trailerEditError());
    if (isInPlace())
        info->clear(image);
}

} // namespace android::lumo
