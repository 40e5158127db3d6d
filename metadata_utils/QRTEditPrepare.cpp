// What the trailer editor does before the first write of a commit: everything that can be refused is refused here.
#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "QRTEditImpl.h"
#include "io/HEIFBoxScan.h"
#include "io/VideoPointer.h"

#include <algorithm>
#include <limits>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "QRTEdit";
constexpr uint64_t MAX_BUFFER_SIZE = std::numeric_limits<int32_t>::max();

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

void requireDataFile(QRTDataInfo const& record, MediaFile const& output) {
    MediaFile const& file = *record.dataFile;
    char const* name = record.name.c_str();
    if (!file.isValid())
        throw trailerEditError()("no data: empty=%d, file=%p", 1, static_cast<void const*>(&file));
    if (!record.data.empty())
        throw trailerEditError()("record %s has data in memory and in a file", name);
    checked::requireAddressable(file, trailerEditError());
    if (MediaFile::isFdsDup(file.getFd(), output.getFd()))
        throw trailerEditError()("the data file of record %s is the file to write: %s", name, file.toString().c_str());
    if (record.dataPayload == 0 || file.size() < record.dataPayload)
        throw trailerEditError()("the data file of record %s has %zu bytes, expected %zu", name, size_t{file.size()},
                                 std::max<size_t>(record.dataPayload, 1));
    checked::readAt(file, record.dataPayload - 1, 1, trailerEditError()); // it can be read
}

void requireInMemory(QRTDataInfo const& record) {
    bool const isLoadedLater = stoodInFile(record) && record.data.empty();
    if (record.data.empty() && !isLoadedLater && !isKnownToBeEmpty(record))
        throw trailerEditError()("no data: empty=%d, file=%p", 1, static_cast<void const*>(nullptr));
    if (record.data.size() != record.dataPayload && !isLoadedLater)
        throw trailerEditError()("record %s has %zu bytes of data, expected %zu", record.name.c_str(),
                                 size_t{record.data.size()}, size_t{record.dataPayload});
    if (record.hasSubInfo && record.subInfo.size() != record.subInfoPayload && !stoodInFile(record))
        throw trailerEditError()("record %s has %zu bytes of sub-info, expected %zu", record.name.c_str(),
                                 size_t{record.subInfo.size()}, size_t{record.subInfoPayload});
}

/// A trailer inside another box, one that runs to the file's end, would be cut out of it.
void requireOwnBox(MediaFile const& file, uint32_t position) {
    if (heif::scanWhole(file).boxes.back().position != position)
        throw trailerEditError()("the trailer stands inside another box");
}

/// Only what records hold is written again; a video that stands between them would go.
void requireNotBetweenRecords(QRTInfoImpl const& view, VideoPointer const& video) {
    uint32_t const position = video.position;
    uint32_t const tail = view.getTailPosition();
    if (video.length == 0 || position < view.getImageSize() + view.boxHeaderSize() || position >= tail)
        return;
    auto const& records = view.getRecordList();
    if (std::none_of(records.begin(), records.end(), [=](auto const& record) {
            uint32_t const start = tail - record.offsetFromTail;
            return position >= start && position - start < record.payload;
        }))
        throw trailerEditError()("the video at %zu stands in no record of the trailer", size_t{position});
}

} // namespace

/// Where the image ends now, and the trailer that stands behind it.
std::optional<trailer::Tail> QRTEditImpl::settle() {
    checked::requireAddressable(*sourceFile, trailerEditError());
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
            throw trailerEditError()("the file has got a trailer since it was read");
        return;
    }
    uint32_t const box = info->boxHeaderSize();
    bool const fits = image > 0 && uint64_t{image} + box + size == sourceFile->size();
    if (!fits || !tail || tail->position != info->getTailPosition() || tail->size != info->getTailSize())
        throw trailerEditError()(
            "the file's trailer is not the one that was read: %zu bytes expected behind an image of %zu", size_t{size},
            size_t{image});
    if (box > 0) {
        auto const header = checked::readAt(*sourceFile, image, box, trailerEditError());
        if (header.slice(4, 4).toTypedData<std::string>([](unsigned char c) { return c; }) != trailer::BOX_TYPE)
            throw trailerEditError()("no box of type %s in front of the trailer", trailer::BOX_TYPE);
        requireOwnBox(*sourceFile, image);
    }
}

void QRTEditImpl::loadRecords() {
    auto const tail = settle();
    for (auto& record : records) {
        if (stoodInFile(record))
            loadStored(record, tail);
    }
}

/// By position: two records may share type and name. A pointer is read again even when it was loaded, because whoever
/// moves the video corrects the one in the file.
void QRTEditImpl::loadStored(QRTDataInfo& record, std::optional<trailer::Tail> const& tail) const {
    if (record.dataFile != nullptr)
        return;
    if (trailer::headSize(record) > record.payload)
        throw trailerEditError()("record %s has outgrown the %zu bytes it has in the file", record.name.c_str(),
                                 size_t{record.payload});
    uint32_t const size = trailer::storedData(record, 0).size;
    bool const isPointer = VideoPointer::mayStandIn(record.type, size);
    bool const isMissing =
        record.data.size() != size || (record.hasSubInfo && record.subInfo.size() != record.subInfoPayload);
    if (!isMissing && !isPointer)
        return;
    if (!tail || !standsIn(*tail, record)) {
        if (isMissing)
            throw trailerEditError()("record %s no longer stands in the file's trailer", record.name.c_str());
        return;
    }
    LOGI("load data: %s", record.toString().c_str());
    auto const data = trailer::storedData(record, tail->position);
    auto const subInfo = trailer::storedSubInfo(record, tail->position);
    record.data = checked::readAt(*sourceFile, data.position, data.size, trailerEditError());
    record.dataPayload = data.size;
    record.subInfo = checked::readAt(*sourceFile, subInfo.position, subInfo.size, trailerEditError());
}

/// A record this editor wrote with sub-info reads back under another name.
bool QRTEditImpl::standsIn(trailer::Tail const& tail, QRTDataInfo const& record) const {
    return std::any_of(tail.entries.begin(), tail.entries.end(), [&](auto const& entry) {
        return trailer::typeOfHeader(entry.header) == record.type && entry.offsetFromTail == record.offsetFromTail &&
               entry.payload == record.payload &&
               (record.hasSubInfo || trailer::readRecord(*sourceFile, tail, entry).name == record.name);
    });
}

void QRTEditImpl::requireWritable(std::shared_ptr<MediaFile> const& output) const {
    if (records.size() > trailer::MAX_RECORDS)
        throw trailerEditError()("record count %zu is above %zu", records.size(), size_t{trailer::MAX_RECORDS});
    uint64_t inMemory = trailer::tailSize(records.size());
    uint64_t inFiles = 0;
    for (auto const& record : records) {
        if (record.type != static_cast<int16_t>(record.type))
            throw trailerEditError()("type %d of record %s does not fit the 16 bits a header has for it", record.type,
                                     record.name.c_str());
        inMemory += sizeOf(record);
        if (record.dataFile == nullptr) {
            requireInMemory(record);
        } else {
            requireDataFile(record, *output);
            inMemory -= record.dataPayload;
            inFiles += record.dataPayload;
        }
    }
    if (inMemory > MAX_BUFFER_SIZE)
        throw trailerEditError()("records of %llu bytes in memory are too big",
                                 static_cast<unsigned long long>(inMemory));
    checked::sizeOf(inMemory + inFiles, trailerEditError()); // else the 32-bit sizes of the layout wrap around
}

QRTEditImpl::Plan QRTEditImpl::makePlan() {
    Plan plan;
    plan.tailSize = trailer::tailSize(records.size());
    uint64_t size = uint64_t{info->getImageSize()} + info->boxHeaderSize() + plan.tailSize;
    for (auto& record : records) {
        plan.directory.push_back(&record);
        size += sizeOf(record);
    }
    plan.finalSize = checked::sizeOf(size, trailerEditError());
    plan.recordsAndTail = plan.finalSize - info->getImageSize() - info->boxHeaderSize();
    findPointerIntoTrailer(plan);
    return plan;
}

void QRTEditImpl::findPointerIntoTrailer(Plan& plan) {
    auto const isPointer = [](auto const& record) {
        return stoodInFile(record) && VideoPointer::mayStandIn(record.type, record.data.size());
    };
    auto const record = std::find_if(records.begin(), records.end(), isPointer);
    auto const pointer = record != records.end() ? VideoPointer::decode(record->data) : std::nullopt;
    if (!pointer || info->getTrailerSize() == 0)
        return;
    requireNotBetweenRecords(*info, *pointer);
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

} // namespace android::lumo
