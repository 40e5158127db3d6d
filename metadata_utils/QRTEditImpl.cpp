// Staging: what the caller wants in the trailer, kept in `records` until commit, and the forwarded queries.
#include "QRTEditImpl.h"

#include "ErrorAt.h"
#include "Log.h"

#include <algorithm>
#include <set>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "QRTEdit";

/// Tell the put operations apart in the log.
enum CallSite : int { COPIED, MOVED, FROM_FILE };

template<class Matches>
QRTDataInfo& require(std::vector<QRTDataInfo>& records, Matches const& matches, ErrorAt at = ErrorAt()) {
    auto const found = std::find_if(records.begin(), records.end(), matches);
    if (found == records.end())
        throw at("%s", "");
    return *found;
}

template<class Matches>
void removeFirst(std::vector<QRTDataInfo>& records, Matches const& matches) {
    auto const found = std::find_if(records.begin(), records.end(), matches);
    if (found != records.end())
        records.erase(found);
}

/// A record of the view as it stands in the file: what a load callback made of its position and length, and data loaded
/// from there, are left out.
QRTDataInfo storedForm(QRTDataInfo const& record) {
    if (record.offsetFromTail == 0 || record.payload == 0)
        return record;
    auto const stored = trailer::storedData(record, 0);
    QRTDataInfo copy = trailer::withoutBytes(record);
    copy.dataPayload = stored.size;
    copy.subInfo = record.subInfo;
    if (record.data.size() == stored.size && record.dataPayload == stored.size)
        copy.data = record.data;
    return copy;
}

} // namespace

QRTEdit& QRTEdit::putData(int type, std::string const& name, std::string const& value) {
    return putData(type, name, ByteBuffer(std::vector<uint8_t>(value.begin(), value.end())));
}

QRTEditImpl::QRTEditImpl(std::shared_ptr<QRTInfoImpl> const& view)
    : info(view), sourceFile(view->getFile()), outputFile(view->getFile()) {
    for (auto const& record : view->getRecordList())
        records.push_back(storedForm(record));
}

// Queries describe the trailer as last loaded or committed. -----------------------------------------------------------

int QRTEditImpl::getVersion() const {
    return info->getVersion();
}

int QRTEditImpl::getDataCount() const {
    return info->getDataCount();
}

int QRTEditImpl::getSize() const {
    return info->getSize();
}

std::list<std::string> QRTEditImpl::getKeys() const {
    return info->getKeys();
}

std::list<std::pair<std::string, int>> QRTEditImpl::getKeysWithType() const {
    return info->getKeysWithType();
}

bool QRTEditImpl::containsKey(std::string const& name, bool ignoreCase) const {
    return info->containsKey(name, ignoreCase);
}

bool QRTEditImpl::containsType(int type) const {
    return info->containsType(type);
}

ByteBuffer QRTEditImpl::getData(int type) {
    return info->getData(type);
}

ByteBuffer QRTEditImpl::getData(std::string const& name) {
    return info->getData(name);
}

ByteBuffer QRTEditImpl::getData(int type, std::string const& name) {
    return info->getData(type, name);
}

std::list<ByteBuffer> QRTEditImpl::getAllData(int type) {
    return info->getAllData(type);
}

int QRTEditImpl::getPrimaryType() const {
    return primaryType != 0 ? primaryType : info->getPrimaryType();
}

std::pair<uint32_t, uint32_t> QRTEditImpl::getDataPositionLength(int type) const {
    return info->getDataPositionLength(type);
}

std::pair<uint32_t, uint32_t> QRTEditImpl::getDataPositionLength(std::string const& name) const {
    return info->getDataPositionLength(name);
}

std::pair<uint32_t, uint32_t> QRTEditImpl::getDataPositionLength(int type, std::string const& name) const {
    return info->getDataPositionLength(type, name);
}

void QRTEditImpl::transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) {
    info->transferTo(target, options);
}

std::shared_ptr<QRTEdit> QRTEditImpl::edit() {
    return shared_from_this();
}

// Staging. ------------------------------------------------------------------------------------------------------------

QRTEdit& QRTEditImpl::setOption(Option value) {
    option = value;
    return *this;
}

QRTEdit& QRTEditImpl::setPrimaryType(int type) {
    primaryType = type;
    return *this;
}

QRTEdit& QRTEditImpl::putData(int type, ByteBuffer const& data) {
    replaceData(require(records, ofType(type)), ByteBuffer(data));
    return *this;
}

QRTEdit& QRTEditImpl::putData(int type, ByteBuffer&& data) {
    replaceData(require(records, ofType(type)), std::move(data));
    return *this;
}

QRTEdit& QRTEditImpl::putData(std::string const& name, ByteBuffer&& data) {
    replaceData(require(records, named(name)), std::move(data));
    return *this;
}

QRTEdit& QRTEditImpl::putData(std::string const&, ByteBuffer const&) {
    throw ErrorAt()("implement here");
}

QRTEdit& QRTEditImpl::putData(int type, std::string const& name, ByteBuffer const& data) {
    LOGI("putData[%d]: %zu", COPIED, size_t{data.size()});
    return stage(type, name, [&](QRTDataInfo& record) { replaceData(record, ByteBuffer(data)); });
}

QRTEdit& QRTEditImpl::putData(int type, std::string const& name, ByteBuffer&& data) {
    LOGI("putData[%d]: %zu", MOVED, size_t{data.size()});
    return stage(type, name, [&](QRTDataInfo& record) { replaceData(record, std::move(data)); });
}

QRTEdit& QRTEditImpl::putData(int type, std::string const& name, std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no data file for record %s", name.c_str());
    uint32_t const size = file->size();
    LOGI("putData[%d]: %zu", FROM_FILE, size_t{size});
    return stage(type, name, [&](QRTDataInfo& record) {
        replaceData(record, ByteBuffer());
        record.dataFile = file;
        record.dataPayload = size;
    });
}

/// Fills the record that matches both, or a new one behind all others.
QRTEdit& QRTEditImpl::stage(int type, std::string const& name, std::function<void(QRTDataInfo&)> const& fill) {
    auto const found = std::find_if(records.begin(), records.end(), matching(type, name));
    if (found != records.end()) {
        fill(*found);
        LOGI("update data: %s", found->toString().c_str());
        return *this;
    }
    QRTDataInfo record;
    record.type = type;
    record.name = name;
    fill(record);
    LOGI("add data: %s", record.toString().c_str());
    records.push_back(std::move(record));
    return *this;
}

/// `data` and `dataFile` exclude each other, and what the file holds is no longer this record.
void QRTEditImpl::replaceData(QRTDataInfo& record, ByteBuffer&& data) {
    if (record.hasSubInfo && record.subInfo.empty() && record.offsetFromTail > 0)
        loadStored(record, settle()); // the sub-info stays
    record.dataPayload = data.size();
    record.data = std::move(data);
    record.dataFile = nullptr;
    record.offsetFromTail = 0;
    record.payload = 0;
    record.dataPosition = 0;
    record.subInfoPosition = 0;
}

QRTDataInfo const& QRTEditImpl::appendRecord(QRTDataInfo record) {
    if (record.hasSubInfo && record.subInfo.size() != record.subInfoPayload)
        throw ErrorAt()("sub-info of record %s is not in memory", record.name.c_str());
    if (record.data.empty() && record.payload > trailer::headSize(record))
        throw ErrorAt()("data of record %s is not in memory", record.name.c_str());
    record.dataFile = nullptr;
    record.dataPayload = record.data.size();
    record.offsetFromTail = 0;
    record.payload = record.size();
    records.push_back(std::move(record));
    return records.back();
}

QRTEdit& QRTEditImpl::putAll(std::shared_ptr<QRTInfo> const& source, std::filesystem::copy_options const& options) {
    bool const skipsExisting =
        (options & std::filesystem::copy_options::skip_existing) != std::filesystem::copy_options::none;
    std::set<std::pair<std::string, int>> wanted;
    std::list<std::pair<std::string, int>> keys = source->getKeysWithType();
    std::erase_if(keys, [&](auto const& key) {
        auto const& [name, type] = key;
        if (std::find(unsupportedKeys.begin(), unsupportedKeys.end(), name) != unsupportedKeys.end()) {
            LOGI("skip unsupported qrt on key=%s, type=%d", name.c_str(), type);
            return true;
        }
        if (skipsExisting && containsKey(name, true)) {
            LOGI("skip for key=%s since it already exists!", name.c_str());
            return true;
        }
        // By both, because two records may share a name. Two that share both cannot be told apart here.
        if (!wanted.insert(key).second)
            throw ErrorAt()("two records of type %d have the name %s", type, name.c_str());
        return false;
    });
    for (auto const& [name, type] : keys) {
        ByteBuffer data = source->getData(type, name);
        LOGI("add qrt on key=%s, type=%d, data=%lu", name.c_str(), type, static_cast<unsigned long>(data.size()));
        bool const isEmpty = data.empty();
        putData(type, name, std::move(data));
        if (isEmpty) { // on purpose: that is how it stands in the other trailer
            auto& record = require(records, matching(type, name));
            record.payload = record.size();
        }
    }
    return *this;
}

QRTEdit& QRTEditImpl::removeData(int type) {
    std::erase_if(records, ofType(type));
    return *this;
}

QRTEdit& QRTEditImpl::removeData(std::string const& name) {
    removeFirst(records, named(name));
    return *this;
}

QRTEdit& QRTEditImpl::removeData(int type, std::string const& name) {
    removeFirst(records, matching(type, name));
    return *this;
}

void QRTEditImpl::attach(std::shared_ptr<MediaFile> const& file) {
    info->attach(file);
    sourceFile = file;
    outputFile = file;
}

} // namespace android::lumo
