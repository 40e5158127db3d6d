// SPDX-License-Identifier: Apache-2.0
#include "QRTInfoImpl.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "QRTEditImpl.h"
#include "Text.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "QRTInfo";

/// Tell the queries apart in the log.
enum CallSite : int { BY_RECORD, BY_TYPE, BY_NAME, BY_TYPE_AND_NAME, ALL_OF_TYPE };

} // namespace

QRTInfo::~QRTInfo() = default;

std::shared_ptr<QRTInfo> QRTInfo::parse(std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no file to parse");
    return std::make_shared<QRTInfoImpl>(file, std::list<QRTInfoImpl::Listener>());
}

std::vector<QRTDataInfo> QRTInfo::getRecords() const {
    return QRTInfoImpl::of(*this)->getRecordList();
}

QRTInfoImpl::QRTInfoImpl(std::shared_ptr<MediaFile> const& viewed, std::list<Listener> const& callbacks)
    : file(viewed), listeners(callbacks) {
    load();
}

std::shared_ptr<QRTInfoImpl> QRTInfoImpl::of(QRTInfo const& info) {
    if (auto const* view = dynamic_cast<QRTInfoImpl const*>(&info))
        return std::const_pointer_cast<QRTInfoImpl>(view->shared_from_this());
    if (auto const* holder = dynamic_cast<QRTViewHolder const*>(&info))
        return holder->qrtView();
    throw ErrorAt()("a trailer view of another library");
}

// Loading. ------------------------------------------------------------------------------------------------------------

void QRTInfoImpl::load() {
    LOGI("load E");
    uint32_t const fileSize = checked::addressableSize(*file);
    checked::seek(*file, 0);
    auto const tail = trailer::readTail(*file, fileSize);
    if (!tail) {
        show({});
        imageSize = fileSize;
        stored = std::make_shared<trailer::Stored>();
        return;
    }

    uint32_t const start = trailer::startOf(*tail);
    uint32_t const farthest = tail->position - start;
    uint32_t const box = boxHeaderSize();
    uint32_t const image = start > box ? start - box : 0;
    if (image == 0)
        throw ErrorAt().as(Error::Code::DAMAGED, *file)("invalid image size: %zu", size_t{image});
    LOGI("lastImageSize=%zu, dataOffsetFromEnd=%d, qrtTailStartSignatureOffset=%d", size_t{image},
         static_cast<int>(farthest + tail->size), static_cast<int>(tail->size));

    auto found = trailer::readRecords(*file, *tail);
    auto const now = std::make_shared<trailer::Stored const>(
        trailer::Stored{tail->version, farthest + tail->size, tail->size, found});
    for (auto const& listener : listeners)
        listener(file, found);

    show(std::move(found));
    imageSize = image;
    stored = now;
    LOGI("load X");
}

/// By position and not by (type, name), which two records may share.
void QRTInfoImpl::loadAllData() {
    for (auto& record : records) {
        if (record.data.empty() && record.dataFile == nullptr)
            getData(record);
        if (record.hasSubInfo && record.subInfo.empty() && record.offsetFromTail > 0) {
            auto const range = trailer::storedSubInfo(record, getTailPosition());
            record.subInfo = checked::readAt(*file, range.position, range.size);
        }
    }
}

ByteBuffer QRTInfoImpl::getData(QRTDataInfo& record) {
    LOGI("getData[%d]", BY_RECORD);
    if (record.data.empty()) {
        LOGI("dataInfo: %s", record.toString().c_str());
        MediaFile const& held = record.dataFile != nullptr ? *record.dataFile : *file;
        checked::seek(held, record.dataPosition);
        // A callback may have pointed the record outside the file: as many bytes as there are, like any short read.
        uint32_t const fileSize = held.size();
        uint32_t const size = std::min(record.dataPayload, fileSize - std::min(fileSize, record.dataPosition));
        if (size < record.dataPayload)
            LOGI("fail to read bytes: %zd, expected %zu", static_cast<ssize_t>(size), size_t{record.dataPayload});
        record.data = checked::readAt(held, record.dataPosition, size);
    }
    return record.data;
}

// Queries. ------------------------------------------------------------------------------------------------------------

std::list<std::string> QRTInfoImpl::getKeys() const {
    std::list<std::string> keys;
    for (auto const& record : records)
        keys.push_back(record.name);
    return keys;
}

std::list<std::pair<std::string, int>> QRTInfoImpl::getKeysWithType() const {
    std::list<std::pair<std::string, int>> keys;
    for (auto const& record : records)
        keys.emplace_back(record.name, record.type);
    return keys;
}

bool QRTInfoImpl::containsKey(std::string const& name, bool ignoreCase) const {
    return (ignoreCase ? index.namedInAnyCase(records, name) : index.named(records, name)).count > 0;
}

ByteBuffer QRTInfoImpl::getData(int type) {
    LOGI("getData[%d]", BY_TYPE);
    return getSingle(index.ofType(records, type));
}

ByteBuffer QRTInfoImpl::getData(std::string const& name) {
    LOGI("getData[%d]", BY_NAME);
    return getSingle(index.named(records, name));
}

ByteBuffer QRTInfoImpl::getData(int type, std::string const& name) {
    LOGI("getData[%d]: type=%d, name=%s", BY_TYPE_AND_NAME, type, name.c_str());
    auto const found = index.matching(records, type, name);
    return found.count > 0 ? getData(records[found.first]) : ByteBuffer();
}

ByteBuffer QRTInfoImpl::getSingle(RecordIndex::Found found) {
    if (found.count > 1)
        throw ErrorAt()("%s", "");
    return found.count > 0 ? getData(records[found.first]) : ByteBuffer();
}

std::list<ByteBuffer> QRTInfoImpl::getAllData(int type) {
    LOGI("getData[%d]", ALL_OF_TYPE);
    std::list<ByteBuffer> all;
    for (auto& record : records) {
        if (record.type == type)
            all.push_back(getData(record));
    }
    return all;
}

QRTDataInfo const* QRTInfoImpl::find(int type) const {
    auto const found = index.ofType(records, type);
    return found.count > 0 ? &records[found.first] : nullptr;
}

std::pair<uint32_t, uint32_t> QRTInfoImpl::placeOf(RecordIndex::Found found) const {
    if (found.count == 0)
        return {0, 0};
    return {records[found.first].dataPosition, records[found.first].dataPayload};
}

std::pair<uint32_t, uint32_t> QRTInfoImpl::getDataPositionLength(int type) const {
    return placeOf(index.ofType(records, type));
}

std::pair<uint32_t, uint32_t> QRTInfoImpl::getDataPositionLength(std::string const& name) const {
    return placeOf(index.named(records, name));
}

std::pair<uint32_t, uint32_t> QRTInfoImpl::getDataPositionLength(int type, std::string const& name) const {
    return placeOf(index.matching(records, type, name));
}

int QRTInfoImpl::getTypeFromHeader(int header) {
    return trailer::typeOfHeader(static_cast<uint32_t>(header));
}

bool QRTInfoImpl::hasSubInfoOnHeader(int header) {
    return trailer::subInfoOfHeader(static_cast<uint32_t>(header));
}

// Into other files. ---------------------------------------------------------------------------------------------------

void QRTInfoImpl::transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) {
    auto const self = shared_from_this();
    auto const editor = QRTInfo::parse(target)->edit();
    editor->putAll(self, options);
    editor->commit();
}

std::shared_ptr<QRTEdit> QRTInfoImpl::edit() {
    return std::make_shared<QRTEditImpl>(shared_from_this());
}

// Where the trailer lies. ---------------------------------------------------------------------------------------------

/// A file of no known type is no HEIC: its trailer is read all the same.
uint32_t QRTInfoImpl::boxHeaderSize() const {
    try {
        return file->mimeType() == MediaDefs::MimeType::IMAGE_HEIC ? trailer::BOX_HEADER_SIZE : 0;
    } catch (std::runtime_error const& e) {
        rethrowUnlessDamage();
        LOGD("trailer without a box: %s", e.what());
        return 0;
    }
}

uint32_t QRTInfoImpl::getTailPosition() const {
    return stored->size > 0 ? imageSize + boxHeaderSize() + stored->recordsSize() : imageSize;
}

void QRTInfoImpl::adjustPosition(uint32_t fileSize) {
    if (fileSize == 0)
        throw ErrorAt()("%s", "");
    uint32_t const old = imageSize;
    imageSize = stored->size > 0 ? fileSize - stored->size - boxHeaderSize() : fileSize;
    uint32_t const delta = imageSize - old;
    if (delta == 0)
        return;
    LOGI("adjustPosition: image-size changed from %zu to %zu, update each data position w/ %zu", size_t{old},
         size_t{imageSize}, size_t{delta});
    for (auto& record : records) {
        if (record.dataFile != nullptr)
            continue; // stands in another file
        record.dataPosition += delta;
        bool const isStored = trailer::isStored(record);
        uint32_t const size = isStored ? trailer::storedData(record, 0).size : 0;
        if (VideoPointer::mayStandIn(record.type, size) && record.data.size() == size)
            record.data.clear();
    }
}

void QRTInfoImpl::takeOver(std::shared_ptr<trailer::Stored const> written, uint32_t image) {
    stored = std::move(written);
    imageSize = image;
    auto now = stored->records;
    uint32_t const tail = getTailPosition();
    for (auto& record : now)
        trailer::locate(record, tail);
    if (listeners.empty())
        return show(std::move(now));
    show(now);
    try {
        for (auto const& listener : listeners)
            listener(file, now);
        show(std::move(now));
    } catch (std::exception const& e) {
        rethrowUnlessDamage();
        LOGE("fail to look at the new records: %s", e.what());
    }
}

void QRTInfoImpl::show(std::vector<QRTDataInfo> shown) {
    index.forget();
    records = std::move(shown);
}

void QRTInfoImpl::append(QRTDataInfo record) {
    index.forget(); // the others may move
    records.push_back(std::move(record));
}

} // namespace android::lumo
