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

std::pair<uint32_t, uint32_t> placeOf(QRTDataInfo const* record) {
    return record != nullptr ? std::pair(record->dataPosition, record->dataPayload) : std::pair(0U, 0U);
}

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
    checked::requireAddressable(*file);
    uint32_t const fileSize = file->size();
    checked::seek(*file, 0);
    auto const tail = trailer::readTail(*file);
    if (!tail)
        return clear(fileSize);

    uint32_t const start = trailer::startOf(*tail);
    uint32_t const farthest = tail->position - start;
    uint32_t const box = boxHeaderSize();
    uint32_t const image = start > box ? start - box : 0;
    if (image == 0)
        throw ErrorAt()("invalid image size: %zu", size_t{image});
    LOGI("lastImageSize=%zu, dataOffsetFromEnd=%d, qrtTailStartSignatureOffset=%d", size_t{image},
         static_cast<int>(farthest + tail->size), static_cast<int>(tail->size));

    std::vector<QRTDataInfo> found;
    found.reserve(tail->entries.size());
    for (auto const& entry : tail->entries)
        found.push_back(trailer::readRecord(*file, *tail, entry));
    for (auto const& listener : listeners)
        listener(file, found);

    records = std::move(found);
    imageSize = image;
    qrtSize = farthest + tail->size;
    version = static_cast<int32_t>(tail->version);
    tailSize = tail->size;
    detached = false;
    LOGI("load X");
}

/// By position and not by (type, name), which two records may share.
void QRTInfoImpl::loadAllData() {
    for (auto& record : records) {
        if (record.data.empty() && record.dataFile == nullptr)
            getData(record);
        if (record.hasSubInfo && record.subInfo.empty() && qrtSize > 0)
            loadSubInfo(record);
    }
}

void QRTInfoImpl::loadSubInfo(QRTDataInfo& record) const {
    auto const range = trailer::storedSubInfo(record, getTailPosition());
    record.subInfo = checked::readAt(*file, range.position, range.size);
}

ByteBuffer QRTInfoImpl::getData(QRTDataInfo& record) {
    LOGI("getData[%d]", BY_RECORD);
    if (record.data.empty()) {
        LOGI("dataInfo: %s", record.toString().c_str());
        checked::seek(*file, record.dataPosition);
        // A callback may have pointed the record outside the file: as many bytes as there are, like any short read.
        uint32_t const fileSize = file->size();
        uint32_t const held = std::min(record.dataPayload, fileSize - std::min(fileSize, record.dataPosition));
        if (held < record.dataPayload)
            LOGI("fail to read bytes: %zd, expected %zu", static_cast<ssize_t>(held), size_t{record.dataPayload});
        record.data = checked::readAt(*file, record.dataPosition, held);
    }
    return record.data;
}

// Queries. ------------------------------------------------------------------------------------------------------------

int QRTInfoImpl::getVersion() const {
    return version;
}

int QRTInfoImpl::getDataCount() const {
    return static_cast<int>(records.size());
}

int QRTInfoImpl::getSize() const {
    return static_cast<int>(qrtSize);
}

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
    if (!ignoreCase)
        return findFirst(named(name)) != nullptr;
    // A name may be as long as the file: it is lowered only where it can match.
    return findFirst([key = lowered(name)](auto const& record) {
               return record.name.size() == key.size() && lowered(record.name) == key;
           }) != nullptr;
}

bool QRTInfoImpl::containsType(int type) const {
    return findFirst(ofType(type)) != nullptr;
}

ByteBuffer QRTInfoImpl::getData(int type) {
    LOGI("getData[%d]", BY_TYPE);
    auto* record = findSingle(ofType(type));
    return record != nullptr ? getData(*record) : ByteBuffer();
}

ByteBuffer QRTInfoImpl::getData(std::string const& name) {
    LOGI("getData[%d]", BY_NAME);
    auto* record = findSingle(named(name));
    return record != nullptr ? getData(*record) : ByteBuffer();
}

ByteBuffer QRTInfoImpl::getData(int type, std::string const& name) {
    LOGI("getData[%d]: type=%d, name=%s", BY_TYPE_AND_NAME, type, name.c_str());
    auto const record = std::find_if(records.begin(), records.end(), matching(type, name));
    return record != records.end() ? getData(*record) : ByteBuffer();
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

int QRTInfoImpl::getPrimaryType() const {
    return records.empty() ? 0 : records.back().type;
}

std::pair<uint32_t, uint32_t> QRTInfoImpl::getDataPositionLength(int type) const {
    return placeOf(findFirst(ofType(type)));
}

std::pair<uint32_t, uint32_t> QRTInfoImpl::getDataPositionLength(std::string const& name) const {
    return placeOf(findFirst(named(name)));
}

std::pair<uint32_t, uint32_t> QRTInfoImpl::getDataPositionLength(int type, std::string const& name) const {
    return placeOf(findFirst(matching(type, name)));
}

int QRTInfoImpl::getTypeFromHeader(int header) {
    return trailer::typeOfHeader(static_cast<uint32_t>(header));
}

bool QRTInfoImpl::hasSubInfoOnHeader(int header) {
    return trailer::subInfoOfHeader(static_cast<uint32_t>(header));
}

QRTDataInfo* QRTInfoImpl::findSingle(std::function<bool(QRTDataInfo const&)> const& matches) {
    auto const first = std::find_if(records.begin(), records.end(), matches);
    if (first == records.end())
        return nullptr;
    if (std::find_if(first + 1, records.end(), matches) != records.end())
        throw ErrorAt()("%s", "");
    return &*first;
}

QRTDataInfo const* QRTInfoImpl::findFirst(std::function<bool(QRTDataInfo const&)> const& matches) const {
    auto const first = std::find_if(records.begin(), records.end(), matches);
    return first != records.end() ? &*first : nullptr;
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
        LOGD("trailer without a box: %s", e.what());
        return 0;
    }
}

uint32_t QRTInfoImpl::getTailPosition() const {
    return qrtSize > 0 ? imageSize + boxHeaderSize() + qrtSize - tailSize : imageSize;
}

void QRTInfoImpl::adjustPosition(uint32_t fileSize) {
    if (fileSize == 0)
        throw ErrorAt()("%s", "");
    uint32_t const old = imageSize;
    imageSize = qrtSize > 0 ? fileSize - qrtSize - boxHeaderSize() : fileSize;
    uint32_t const delta = imageSize - old;
    if (delta == 0)
        return;
    LOGI("adjustPosition: image-size changed from %zu to %zu, update each data position w/ %zu", size_t{old},
         size_t{imageSize}, size_t{delta});
    for (auto& record : records) {
        record.dataPosition += delta;
        uint32_t const stored = record.payload > 0 ? trailer::storedData(record, 0).size : 0;
        bool const isPointer = VideoPointer::mayStandIn(record.type, stored) && record.data.size() == stored;
        if (isPointer && qrtSize > 0)
            record.data.clear();
    }
}

/// The bytes are written: a callback that fails leaves its records as they stand in the file.
void QRTInfoImpl::setTrailer(std::vector<QRTDataInfo> const& written, uint32_t recordsAndTail, uint32_t newTailSize) {
    records = written;
    qrtSize = recordsAndTail;
    tailSize = newTailSize;
    detached = false;
    try {
        auto seen = written;
        for (auto const& listener : listeners)
            listener(file, seen);
        records = std::move(seen);
    } catch (std::exception const& e) {
        LOGE("fail to look at the new records: %s", e.what());
    }
}

void QRTInfoImpl::clear(uint32_t fileSize) {
    records.clear();
    imageSize = fileSize;
    qrtSize = 0;
    version = 0;
    tailSize = 0;
    detached = false;
}

} // namespace android::lumo
