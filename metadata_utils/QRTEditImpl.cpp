// SPDX-License-Identifier: Apache-2.0
#include "QRTEditImpl.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "VideoFields.h"
#include "io/HEIFMetaWriter.h"

#include <algorithm>
#include <set>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "QRTEdit";
/// More data than this is left in the file it comes from until it is written.
constexpr uint32_t MAX_LOADED = 1024 * 1024;

/// Tell the put operations apart in the log.
enum CallSite : int { COPIED, MOVED, FROM_FILE };

StagedRecord::InMemory inMemory(ByteBuffer data, bool mayBeEmpty = false) {
    return {ByteSource(std::make_shared<ByteBuffer const>(std::move(data))), mayBeEmpty};
}

} // namespace

QRTEdit& QRTEdit::putData(int type, std::string const& name, std::string const& value) {
    return putData(type, name, ByteBuffer(std::vector<uint8_t>(value.begin(), value.end())));
}

QRTEditImpl::QRTEditImpl(std::shared_ptr<QRTInfoImpl> const& view) : info(view) {
    takeViewsRecords();
}

void QRTEditImpl::takeViewsRecords() {
    source = TrailerFile(source.getFile() != nullptr ? source.getFile() : info->getFile(), info->getStored());
    StagedRecords::List all;
    for (auto const& record : info->getRecordList())
        all.push_back(stagedForm(*info, record));
    records.assign(std::move(all));
}

/// A record of a view. One that stands in this editor's file stays there; data of another file that is large is left
/// there until it is written.
StagedRecord QRTEditImpl::stagedForm(QRTInfoImpl const& view, QRTDataInfo const& record) {
    bool const isStored = trailer::isStored(record);
    auto staged = StagedRecord::inFile(record);
    if (isStored && &view == info.get()) {
        source.places()[staged.identity] = info->getStored()->recordsSize() - record.offsetFromTail;
        return staged;
    }
    staged.subInfo = record.subInfo;
    MediaFile const& held = record.dataFile != nullptr ? *record.dataFile : *view.getFile();
    if (staged.subInfo.empty() && isStored) {
        auto const range = trailer::storedSubInfo(record, view.getTailPosition());
        staged.subInfo = checked::readAt(held, range.position, range.size);
    }
    bool const isLoaded = record.data.size() == record.dataPayload;
    if (!isLoaded && record.dataPayload > MAX_LOADED)
        staged.replaceData(
            StagedRecord::DataFile{ByteSource(record.dataFile != nullptr ? record.dataFile : view.getFile(),
                                              record.dataPosition, record.dataPayload),
                                   false});
    else
        staged.replaceData(
            inMemory(isLoaded ? record.data : checked::readAt(held, record.dataPosition, record.dataPayload), true));
    return staged;
}

// Staging. ------------------------------------------------------------------------------------------------------------

QRTEdit& QRTEditImpl::setOption(Option value) {
    order.option = value;
    return *this;
}

QRTEdit& QRTEditImpl::setPrimaryType(int type) {
    order.primaryType = type;
    return *this;
}

QRTEdit& QRTEditImpl::putData(int type, ByteBuffer const& data) {
    return put(records.find(type), data);
}

QRTEdit& QRTEditImpl::putData(int type, ByteBuffer&& data) {
    return put(records.find(type), std::move(data));
}

QRTEdit& QRTEditImpl::putData(std::string const& name, ByteBuffer&& data) {
    return put(records.find(name), std::move(data));
}

QRTEdit& QRTEditImpl::putData(std::string const&, ByteBuffer const&) {
    throw ErrorAt()("implement here");
}

QRTEdit& QRTEditImpl::putData(int type, std::string const& name, ByteBuffer const& data) {
    stage(type, name, ByteSource(std::make_shared<ByteBuffer const>(data)));
    return *this;
}

QRTEdit& QRTEditImpl::putData(int type, std::string const& name, ByteBuffer&& data) {
    LOGI("putData[%d]: %zu", MOVED, size_t{data.size()});
    replace(type, name, ByteSource(std::make_shared<ByteBuffer const>(std::move(data))));
    return *this;
}

QRTEdit& QRTEditImpl::putData(int type, std::string const& name, std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no data file for record %s", name.c_str());
    stage(type, name, ByteSource(file));
    return *this;
}

QRTEdit& QRTEditImpl::put(StagedRecord* record, ByteBuffer data, int line) {
    if (record == nullptr)
        throw ErrorAt(line)("%s", "");
    replace(record->type, record->name, ByteSource(std::make_shared<ByteBuffer const>(std::move(data))));
    return *this;
}

void QRTEditImpl::stage(int type, std::string const& name, ByteSource const& data, bool mayBeEmpty) {
    LOGI("putData[%d]: %zu", data.getFile() == nullptr ? COPIED : FROM_FILE, size_t{data.size()});
    replace(type, name, data, mayBeEmpty);
}

/// Sub-info stays; what of it is only in the file is read now.
void QRTEditImpl::replace(int type, std::string const& name, ByteSource const& data, bool mayBeEmpty) {
    std::variant<StagedRecord::InFile, StagedRecord::InMemory, StagedRecord::DataFile> bytes;
    if (data.getFile() == nullptr)
        bytes = StagedRecord::InMemory{data, mayBeEmpty};
    else
        bytes = StagedRecord::DataFile{data, data.getPosition() == 0 && data.size() == data.getFile()->size()};
    if (auto* found = records.find(type, name)) {
        if (found->hasSubInfo && found->isInFile()) {
            found->subInfo = output().read(*found, info->boxHeaderSize(), found->headSize() - found->subInfoSize,
                                           found->subInfoSize);
        }
        found->replaceData(std::move(bytes));
        LOGI("update data: %s", found->toString().c_str());
        return;
    }
    StagedRecord record;
    record.type = type;
    record.name = name;
    record.replaceData(std::move(bytes));
    LOGI("add data: %s", record.toString().c_str());
    records.append(std::move(record));
}

void QRTEditImpl::settle(int type, std::string const& name, ByteBuffer const& data) {
    auto const* before = records.find(type, name);
    auto const identity = before != nullptr ? before->identity : 0;
    if (identity != 0)
        output().places().erase(identity);
    stage(type, name, ByteSource(std::make_shared<ByteBuffer const>(data)));
    if (identity != 0)
        records.find(type, name)->identity = identity;
}

QRTDataInfo QRTEditImpl::append(QRTInfoImpl const& view, QRTDataInfo const& record,
                                std::optional<ByteSource> const& pointed) {
    StagedRecord staged = stagedForm(view, record);
    if (pointed && pointed->getFile() != nullptr)
        staged.replaceData(StagedRecord::DataFile{*pointed, false});
    else if (pointed)
        staged.replaceData(StagedRecord::InMemory{*pointed});
    QRTDataInfo shown = staged.described();
    shown.payload = shown.size();
    shown.offsetFromTail = staged.isInFile() ? record.offsetFromTail : 0;
    shown.dataPosition = record.dataPosition;
    shown.subInfo = staged.subInfo;
    if (auto const* file = std::get_if<StagedRecord::DataFile>(&staged.source)) {
        shown.dataFile = file->data.getFile();
        shown.dataPosition = file->data.getPosition();
    } else if (!staged.isInFile()) {
        shown.data = *staged.data().getBuffer();
    }
    records.append(std::move(staged));
    return shown;
}

ByteSource QRTEditImpl::dataOf(QRTInfoImpl const& view, QRTDataInfo const& record) {
    if (&view == info.get())
        return ByteSource(std::make_shared<ByteBuffer const>(
            record.data.size() == record.dataPayload
                ? record.data
                : checked::readAt(*view.getFile(), record.dataPosition, record.dataPayload)));
    return stagedForm(view, record).data();
}

void QRTEditImpl::copy(QRTInfoImpl const& view, QRTDataInfo const& record) {
    ByteSource const data = dataOf(view, record);
    LOGI("add qrt on key=%s, type=%d, data=%lu", record.name.c_str(), record.type,
         static_cast<unsigned long>(data.size()));
    stage(record.type, record.name, data, true);
}

ByteBuffer QRTEditImpl::load(StagedRecord const& record) const {
    if (!record.isInFile())
        return record.data().load();
    return output().read(record, info->boxHeaderSize(), record.headSize(), record.dataSize);
}

bool QRTEditImpl::isSkipped(QRTDataInfo const& record, std::filesystem::copy_options options) const {
    bool const skipsExisting =
        (options & std::filesystem::copy_options::skip_existing) != std::filesystem::copy_options::none;
    if (!skipsExisting || !containsKey(record.name, true))
        return false;
    LOGI("skip for key=%s since it already exists!", record.name.c_str());
    return true;
}

std::vector<QRTDataInfo const*> QRTEditImpl::wantedOf(QRTInfoImpl const& view, std::filesystem::copy_options options,
                                                      bool (*isLeftOut)(QRTDataInfo const&)) const {
    std::set<std::pair<std::string, int>> keys;
    std::vector<QRTDataInfo const*> wanted;
    for (auto const& record : view.getRecordList()) {
        if (std::find(unsupportedKeys.begin(), unsupportedKeys.end(), record.name) != unsupportedKeys.end()) {
            LOGI("skip unsupported qrt on key=%s, type=%d", record.name.c_str(), record.type);
            continue;
        }
        if ((isLeftOut != nullptr && isLeftOut(record)) || isSkipped(record, options))
            continue;
        // By both, because two records may share a name. Of two that share both the second would be put over the first.
        if (!keys.emplace(record.name, record.type).second)
            throw ErrorAt()("two records of type %d have the name %s", record.type, record.name.c_str());
        wanted.push_back(&record);
    }
    return wanted;
}

QRTEdit& QRTEditImpl::putAll(std::shared_ptr<QRTInfo> const& from, std::filesystem::copy_options const& options) {
    auto const view = QRTInfoImpl::of(*from);
    for (auto const* record : wantedOf(*view, options)) { // staging leaves every view's list alone
        if (!isSkipped(*record, options))                 // one of the same name may have come before it
            copy(*view, *record);
    }
    return *this;
}

QRTEdit& QRTEditImpl::removeData(int type) {
    records.removeAll([=](auto const& record) { return record.type == type; });
    return *this;
}

QRTEdit& QRTEditImpl::removeData(std::string const& name) {
    records.remove(name);
    return *this;
}

QRTEdit& QRTEditImpl::removeData(int type, std::string const& name) {
    records.remove(type, name);
    return *this;
}

void QRTEditImpl::takeUpFound(std::function<bool(StagedRecord const&)> const& dropped) {
    StagedRecords::List const staged = records.all();
    takeViewsRecords();
    records.removeAll([&](auto const& found) {
        return dropped(found) || std::any_of(staged.begin(), staged.end(), [&](auto const& other) {
                   return other.type == found.type && other.name == found.name;
               });
    });
    for (auto const& record : staged)
        records.append(record);
}

bool QRTEditImpl::adopt(QRTEditImpl const& other, std::function<uint32_t(uint32_t)> const& recordPlace) {
    bool const isNew = order.option != other.order.option || order.primaryType != other.order.primaryType ||
                       isCutWhenEmpty != other.isCutWhenEmpty;
    order = other.order;
    isCutWhenEmpty = other.isCutWhenEmpty;
    return handed.take(other.getStaged(), records, [&](auto const& record) {
        auto const place = other.source.places().find(record.identity);
        if (record.isInFile() && place != other.source.places().end())
            source.places()[record.identity] = recordPlace(place->second);
    }) || isNew;
}

// Commit. -------------------------------------------------------------------------------------------------------------

bool QRTEditImpl::isSource(MediaFile const& file) const {
    return checked::isSameFile(file, *source.getFile());
}

void QRTEditImpl::commit(std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no file to write to");
    if (isSource(*file)) {
        elsewhere.reset();
        source.useHandle(file);
        return commit();
    }
    checked::requireEditable(*file);
    auto const& photo = source.getFile();
    checked::requireAddressable(*photo);
    uint32_t const size = photo->size();
    checked::requireSpace(*file, records.empty() ? size : std::max(size, plan(source, *file).workSize()));
    elsewhere = source.copiedTo(file);
    checked::seek(*file, 0);
    checked::copy(photo, file, 0, size);
    checked::truncate(*file, size);
    elsewhere->setMade(true);
    commit();
}

void QRTEditImpl::commit() {
    LOGI("commit E: %zu", records.all().size());
    if (!writesTrailer()) {
        dirty = false;
        LOGI("commit X: no data, skip to commit");
        return;
    }
    checked::requireEditable(*output().getFile());
    auto const planned = plan();
    kept.reset(); // from here on the file is another
    if (records.empty() || order.option == Option::WRITE_IN_ORDER || order.option == Option::WRITE_FAST) {
        output().write(planned);
        if (!elsewhere)
            takeOver(planned.getGround().image); // the plan's records are others now
    } else if (!elsewhere) {
        showStaged();
    }
    dirty = false;
    LOGI("commit X");
}

TrailerPlan QRTEditImpl::plan() {
    if (!kept)
        return plan(output(), *output().getFile());
    if (!*kept)
        kept->emplace(plan(output(), *output().getFile()));
    return **kept;
}

/// What is to stand behind the image of `from`, which goes into that file or a copy of it.
TrailerPlan QRTEditImpl::plan(TrailerFile const& from, MediaFile const& into) {
    auto const& seen = *info->getStored();
    auto const ground = from.survey(info->boxHeaderSize());
    if (&from == &source && !seen.holdsSameAs(*source.getStored()))
        throw ErrorAt().as(Error::Code::CHANGED)("the trailer has changed since it was read: its view has others now");
    if (&from == &source && !source.isUnfinished()) {
        if (!ground.hasTrailer && ground.image < info->getImageSize())
            throw ErrorAt().as(Error::Code::CHANGED)("the file of %zu bytes has changed since it was read",
                                                     size_t{ground.image});
        info->adjustPosition(ground.fileSize);
    }
    TrailerPlan planned(records.all(), from.places(), order, ground);
    for (auto const& record : records.all())
        record.requireWritable(into);
    from.requireKept(records.all());
    from.followPointer(planned);
    if (!ownerKeepsFields && &from == &source) { // a copy was asked about before it was made
        VideoFields::requireKept(source.getFile(), planned);
        if (!source.isUnfinished())
            requireNotHidden(*source.getFile());
    }
    return planned;
}

void QRTEditImpl::requireNotHidden(MediaFile const& file, ErrorAt at) {
    if (HEIFMetaWriter::isTrailerHidden(file))
        throw at.as(Error::Code::UNSUPPORTED, file)("other boxes stand behind a trailer, and a second one would hide "
                                                    "it for good: edit the whole photo in place");
}

/// In the editor's own file every record now stands, in the order of the directory. The view may fail to look at them:
/// then they stay staged, and a commit again finds them written.
void QRTEditImpl::takeOver(uint32_t image) {
    info->takeOver(source.getStored(), image);
    if (order.primaryType >= 1)
        records.makeLast(records.find(order.primaryType));
    records.settle();
}

/// An option that writes nothing shows what is staged all the same.
void QRTEditImpl::showStaged() {
    std::vector<QRTDataInfo> shown;
    auto const& stored = info->getStored();
    for (auto const& record : records.all()) {
        QRTDataInfo form = record.described();
        auto const place = source.places().find(record.identity);
        if (place != source.places().end()) {
            form.payload = form.size();
            form.offsetFromTail = stored->recordsSize() - place->second;
            trailer::locate(form, info->getTailPosition());
        } else if (auto const* memory = std::get_if<StagedRecord::InMemory>(&record.source)) {
            form.data = *memory->data.getBuffer();
        }
        shown.push_back(std::move(form));
    }
    info->show(std::move(shown));
}

} // namespace android::lumo
