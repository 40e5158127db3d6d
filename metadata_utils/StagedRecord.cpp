// SPDX-License-Identifier: Apache-2.0
#include "StagedRecord.h"

#include "CheckedFile.h"
#include "ErrorAt.h"

#include <algorithm>
#include <atomic>
#include <unordered_map>

namespace android::lumo {

namespace {

StagedRecord::Identity newIdentity() {
    static std::atomic<StagedRecord::Identity> last = 0;
    return ++last;
}

} // namespace

StagedRecord StagedRecord::inFile(QRTDataInfo const& stored) {
    StagedRecord record;
    record.type = stored.type;
    record.name = stored.name;
    record.hasSubInfo = stored.hasSubInfo;
    record.subInfoSize = stored.subInfoPayload;
    record.dataSize = trailer::storedData(stored, 0).size;
    record.identity = newIdentity();
    return record;
}

bool StagedRecord::isFileBacked() const {
    if (isInFile())
        return wasFileBacked;
    auto const* file = std::get_if<DataFile>(&source);
    return file != nullptr && file->isWholeFile;
}

void StagedRecord::replaceData(std::variant<InFile, InMemory, DataFile> bytes) {
    source = std::move(bytes);
    dataSize = data().size();
    identity = newIdentity();
}

ByteSource const& StagedRecord::data() const {
    if (auto const* memory = std::get_if<InMemory>(&source))
        return memory->data;
    return std::get<DataFile>(source).data;
}

void StagedRecord::requireWritable(MediaFile const& output) const {
    if (type != static_cast<int16_t>(type))
        throw ErrorAt()("type %d of record %s does not fit the 16 bits a header has for it", type, name.c_str());
    if (name.size() > trailer::MAX_NAME_SIZE)
        throw ErrorAt().as(Error::Code::TOO_BIG)("record name of %zu bytes is above %zu", name.size(),
                                                 size_t{trailer::MAX_NAME_SIZE});
    if (isInFile())
        return;
    if (hasSubInfo && subInfo.size() != subInfoSize)
        throw ErrorAt()("record %s has %zu bytes of sub-info, expected %zu", name.c_str(), size_t{subInfo.size()},
                        size_t{subInfoSize});
    auto const* memory = std::get_if<InMemory>(&source);
    if (memory != nullptr && dataSize == 0 && !memory->mayBeEmpty)
        throw ErrorAt(__LINE__, "metadata_utils/QRTInfoImpl")("no data: empty=%d, file=%p", 1,
                                                              static_cast<void const*>(nullptr));
    data().requireReadable(output, (memory != nullptr ? "record " : "the data file of record ") + name);
}

QRTDataInfo StagedRecord::described() const {
    QRTDataInfo info;
    info.type = type;
    info.name = name;
    info.hasSubInfo = hasSubInfo;
    info.subInfoPayload = subInfoSize;
    info.dataPayload = dataSize;
    if (isFileBacked() && !isInFile())
        info.dataFile = data().getFile();
    return info;
}

std::string StagedRecord::toString() const {
    return trailer::describe(described(), std::holds_alternative<InMemory>(source) ? dataSize : 0);
}

void StagedRecord::appendTo(ByteBuffer& bytes) const {
    QRTDataInfo info = described();
    info.subInfo = subInfo;
    static ByteBuffer const NOTHING;
    auto const* memory = std::get_if<InMemory>(&source);
    trailer::appendRecord(bytes, info, memory != nullptr ? *memory->data.getBuffer() : NOTHING);
}

// The list. -----------------------------------------------------------------------------------------------------------

StagedRecords::List const& StagedRecords::all() const {
    if (gone > 0)
        sweep([](auto const& record) { return record.isGone(); });
    return records;
}

void StagedRecords::assign(List all) {
    index.forget();
    records = std::move(all);
    gone = 0;
}

void StagedRecords::remove(RecordIndex::Found const& found) {
    if (found.count == 0)
        return;
    StagedRecord& record = records[found.first];
    record.identity = 0;
    record.source = StagedRecord::InFile(); // the name is still the index's
    record.subInfo = ByteBuffer();
    index.leaveOut(records, found.first);
    if (++gone > records.size() / 2)
        all();
}

void StagedRecords::makeLast(StagedRecord const* found) {
    if (found == nullptr)
        return;
    index.forget();
    auto const place = std::find_if(records.begin(), records.end(), [=](auto const& each) { return &each == found; });
    std::rotate(place, place + 1, records.end());
}

void StagedRecords::dropSubInfo(int type) {
    for (auto& record : records) {
        if (record.type != type || record.isInFile())
            continue;
        record.hasSubInfo = false;
        record.subInfoSize = 0;
        record.subInfo = ByteBuffer();
    }
}

void StagedRecords::settle() {
    for (auto& record : records) {
        record.wasFileBacked = record.isFileBacked();
        record.source = StagedRecord::InFile();
        record.subInfo = ByteBuffer();
    }
}

// Handed on. ----------------------------------------------------------------------------------------------------------

bool HandedRecords::take(StagedRecords::List const& theirs, StagedRecords& mine,
                         std::function<void(StagedRecord const&)> const& isNew) {
    bool isAnyNew = false;
    std::unordered_map<StagedRecord::Identity, StagedRecord const*> before;
    StagedRecords::List all;
    for (auto const& record : mine.all()) {
        before.emplace(record.identity, &record);
        if (wasHanded && !known.contains(record.identity))
            all.push_back(record); // found here only
    }
    for (auto const& record : theirs) {
        auto const found = before.find(record.identity);
        bool const isKnown = found != before.end() && known.contains(record.identity);
        isAnyNew = isAnyNew || !isKnown || !found->second->isInFile();
        all.push_back(isKnown ? *found->second : record);
        if (!isKnown)
            isNew(record);
        known.insert(record.identity);
    }
    isAnyNew = isAnyNew || all.size() != mine.all().size();
    wasHanded = true;
    mine.assign(std::move(all));
    return isAnyNew;
}

} // namespace android::lumo
