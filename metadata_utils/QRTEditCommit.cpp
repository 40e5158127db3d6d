// How the trailer editor writes: the steps of a commit.
#include "CheckedFile.h"
#include "Error.h"
#include "Log.h"
#include "QRTEditImpl.h"
#include "io/VideoPointer.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "QRTEdit";
constexpr uint64_t MAX_BUFFER_SIZE = std::numeric_limits<int32_t>::max();

/// Messages carry the editor's name; this file is its second half.
ErrorAt error(int line = __builtin_LINE()) {
    return ErrorAt(line, "metadata_utils/QRTEditImpl");
}

bool stoodInFile(QRTDataInfo const& record) {
    return record.offsetFromTail > 0 && record.payload > 0;
}

/// A record that came whole may be empty; one that was staged may not.
bool isKnownToBeEmpty(QRTDataInfo const& record) {
    return record.payload > 0 && record.payload == trailer::headSize(record) && record.dataPayload == 0;
}

uint64_t sizeOf(QRTDataInfo const& record) {
    return uint64_t{trailer::headSize(record)} + record.dataPayload;
}

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
        throw error()("no file to write to");
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
    loadRecords();     // 1, 3
    requireWritable(); // 1
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

// Before the first write.
// -----------------------------------------------------------------------------------------------

/// Where the image ends now, and the trailer that stands behind it.
std::optional<trailer::Tail> QRTEditImpl::settle() {
    checked::requireAddressable(*sourceFile, error());
    info->adjustPosition(sourceFile->size());
    if (info->isDetached())
        return std::nullopt;
    auto tail = trailer::readTail(*sourceFile);
    requireDescribed(tail);
    return tail;
}

/// Nothing is written behind an image's end that only a stale view believes in.
void QRTEditImpl::requireDescribed(std::optional<trailer::Tail> const& tail) const {
    uint32_t const image = info->getImageSize();
    uint32_t const size = info->getTrailerSize();
    if (size == 0) {
        if (tail)
            throw error()("the file has got a trailer since it was read");
        return;
    }
    uint32_t const box = info->boxHeaderSize();
    bool const fits = image > 0 && uint64_t{image} + box + size == sourceFile->size();
    if (!fits || !tail || tail->position != info->getTailPosition() || tail->size != info->getTailSize())
        throw error()("the file's trailer is not the one that was read: %zu bytes expected behind an image of %zu",
                      size_t{size}, size_t{image});
    if (box > 0) {
        auto const header = checked::readAt(*sourceFile, image, box, error());
        if (header.slice(4, 4).toTypedData<std::string>([](unsigned char c) { return c; }) != trailer::BOX_TYPE)
            throw error()("no box of type %s in front of the trailer", trailer::BOX_TYPE);
    }
}

void QRTEditImpl::loadRecords() {
    auto const tail = settle();
    if (!tail)
        return;
    for (auto& record : records) {
        if (stoodInFile(record))
            loadStored(record, *tail);
    }
}

/// A pointer is read again even when it was loaded: whoever moves the video corrects the one in the file.
void QRTEditImpl::loadStored(QRTDataInfo& record, trailer::Tail const& tail) const {
    if (record.dataFile != nullptr || trailer::headSize(record) > record.payload)
        return;
    auto const data = trailer::storedData(record, tail.position);
    bool const isPointer = record.type == qrt::TYPE_MOTION_PHOTO_DATA && data.size == VideoPointer::SIZE;
    bool const needsData = record.data.empty() && data.size > 0;
    bool const needsSubInfo = record.hasSubInfo && record.subInfo.size() != record.subInfoPayload;
    if (!needsData && !needsSubInfo && !isPointer)
        return;
    bool const stands = std::any_of(tail.entries.begin(), tail.entries.end(), [&](auto const& entry) {
        return trailer::typeOfHeader(entry.header) == record.type && entry.offsetFromTail == record.offsetFromTail &&
               entry.payload == record.payload &&
               (record.hasSubInfo || trailer::readRecord(*sourceFile, tail, entry).name == record.name);
    });
    if (!stands) {
        if (needsData || needsSubInfo)
            throw error()("record %s no longer stands in the file's trailer", record.name.c_str());
        return;
    }
    LOGI("load data: %s", record.toString().c_str());
    record.data = checked::readAt(*sourceFile, data.position, data.size, error());
    record.dataPayload = data.size;
    auto const subInfo = trailer::storedSubInfo(record, tail.position);
    record.subInfo = checked::readAt(*sourceFile, subInfo.position, subInfo.size, error());
}

namespace {

void requireDataFile(QRTDataInfo const& record, MediaFile const& output) {
    MediaFile const& file = *record.dataFile;
    char const* name = record.name.c_str();
    if (!file.isValid())
        throw error()("no data: empty=%d, file=%p", 1, static_cast<void const*>(&file));
    checked::requireAddressable(file, error());
    if (MediaFile::isFdsDup(file.getFd(), output.getFd()))
        throw error()("the data file of record %s is the file to write: %s", name, file.toString().c_str());
    if (record.dataPayload == 0 || file.size() < record.dataPayload)
        throw error()("the data file of record %s has %zu bytes, expected %zu", name, size_t{file.size()},
                      std::max<size_t>(record.dataPayload, 1));
    checked::readAt(file, record.dataPayload - 1, 1, error()); // it can be read
}

} // namespace

void QRTEditImpl::requireWritable() const {
    uint64_t inMemory = trailer::tailSize(records.size());
    for (auto const& record : records) {
        char const* name = record.name.c_str();
        if (record.type != static_cast<int16_t>(record.type))
            throw error()("type %d of record %s does not fit the 16 bits a header has for it", record.type, name);
        if (record.hasSubInfo && record.subInfo.size() != record.subInfoPayload)
            throw error()("record %s has %zu bytes of sub-info, expected %zu", name, size_t{record.subInfo.size()},
                          size_t{record.subInfoPayload});
        if (record.data.empty() && record.dataFile != nullptr)
            requireDataFile(record, *outputFile);
        else if (record.data.empty() && !isKnownToBeEmpty(record))
            throw error()("no data: empty=%d, file=%p", 1, static_cast<void const*>(nullptr));
        else if (record.data.size() != record.dataPayload || record.dataFile != nullptr)
            throw error()("record %s has %zu bytes of data, expected %zu", name, size_t{record.data.size()},
                          size_t{record.dataPayload});
        inMemory += trailer::headSize(record) + uint64_t{record.data.size()};
    }
    if (inMemory > MAX_BUFFER_SIZE)
        throw error()("records of %llu bytes in memory are too big", static_cast<unsigned long long>(inMemory));
}

QRTEditImpl::Plan QRTEditImpl::makePlan() {
    Plan plan;
    plan.tailSize = trailer::tailSize(records.size());
    uint64_t size = uint64_t{info->getImageSize()} + info->boxHeaderSize() + plan.tailSize;
    for (auto& record : records) {
        plan.directory.push_back(&record);
        size += sizeOf(record);
    }
    plan.finalSize = checked::sizeOf(size, error());
    plan.recordsAndTail = plan.finalSize - info->getImageSize() - info->boxHeaderSize();
    findPointerIntoTrailer(plan);
    return plan;
}

void QRTEditImpl::findPointerIntoTrailer(Plan& plan) {
    auto const isPointer = [](auto const& record) {
        return record.type == qrt::TYPE_MOTION_PHOTO_DATA && stoodInFile(record) &&
               record.data.size() == VideoPointer::SIZE;
    };
    auto const record = std::find_if(records.begin(), records.end(), isPointer);
    auto const pointer = record != records.end() ? VideoPointer::decode(record->data) : std::nullopt;
    if (!pointer || info->getTrailerSize() == 0)
        return;
    for (auto const& other : records) {
        if (!stoodInFile(other))
            continue;
        auto const data = trailer::storedData(other, info->getTailPosition());
        if (pointer->position < data.position || pointer->position - data.position >= data.size)
            continue;
        plan.pointer = &*record;
        plan.pointedTo = &other;
        plan.pointedOffset = pointer->position - data.position;
    }
}

// Writing.
// --------------------------------------------------------------------------------------------------------------

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
    ByteBuffer last = getQRTDataBuffer(inMemory);
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
        plan.pointer->data = moved.encode();
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
    std::vector<QRTDataInfo> planned;
    for (auto const& record : records) {
        planned.push_back(trailer::withoutBytes(record));
        planned.back().dataFile = record.dataFile;
    }
    Order directory;
    for (auto& record : planned)
        directory.push_back(&record);
    Order const layout = diskOrder(directory);
    assignPlaces(layout);
    std::vector<QRTDataInfo> ordered;
    for (auto const* record : layout)
        ordered.push_back(*record);
    return ordered;
}

ByteBuffer QRTEditImpl::getQRTDataBuffer(std::vector<QRTDataInfo const*> const& batch) const {
    uint32_t memoryWriteSize = 0;
    for (auto const* record : batch)
        memoryWriteSize += record->size();
    LOGI("getQRTDataBuffer: memoryWriteSize=%zu", size_t{memoryWriteSize});
    ByteBuffer buffer(memoryWriteSize);
    for (auto const* record : batch) {
        LOGI("put %s[%zu] on %s", record->name.c_str(), size_t{record->size()}, buffer.toString().c_str());
        trailer::appendRecord(buffer, *record); // a length of 0 is written too
        LOGI("acc: %s", buffer.toString().c_str());
    }
    return buffer;
}

/// Returns the bytes of the last piece.
long QRTEditImpl::writePieces(std::vector<Piece> const& pieces, Plan& plan) {
    checked::reserve(*outputFile, plan.finalSize, error());
    copySource();
    uint32_t const image = info->getImageSize();
    if (outputFile->position(image) != image)
        throw error()("Failed to set outputFile position to %zu", size_t{image});
    if (info->boxHeaderSize() > 0)
        checked::write(*outputFile, trailer::serializeBoxHeader(plan.recordsAndTail), error());
    for (auto const& piece : pieces) {
        checked::write(*outputFile, piece.bytes, error());
        if (piece.fileBacked != nullptr)
            checked::copy(piece.fileBacked->dataFile, outputFile, 0, piece.fileBacked->dataPayload, error());
    }
    checked::truncate(*outputFile, plan.finalSize, error());
    plan.written = true;
    return static_cast<long>(pieces.back().bytes.size());
}

bool QRTEditImpl::isInPlace() const {
    return outputFile == sourceFile || MediaFile::isFdsDup(sourceFile->getFd(), outputFile->getFd());
}

/// An output other than the source starts as its copy.
void QRTEditImpl::copySource() {
    if (isInPlace())
        return;
    checked::requireAddressable(*sourceFile, error());
    uint32_t const size = sourceFile->size();
    checked::seek(*outputFile, 0, error());
    checked::copy(sourceFile, outputFile, 0, size, error());
    checked::truncate(*outputFile, size, error());
}

// After the last write.
// -------------------------------------------------------------------------------------------------

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
        if (stoodInFile(record))
            record.data = ByteBuffer();
    }
}

void QRTEditImpl::cutTrailer() {
    settle();
    if (info->getTrailerSize() == 0)
        return;
    uint32_t const image = info->getImageSize();
    checked::truncate(*outputFile, image, error());
    if (isInPlace())
        info->clear(image);
}

} // namespace android::lumo
