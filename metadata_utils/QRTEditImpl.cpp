#include "QRTEditImpl.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "TrailerWriter.h"
#include "VideoFields.h"
#include "io/VideoPointer.h"

#include <algorithm>

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
    source.file = view->getFile();
    takeViewsRecords();
}

void QRTEditImpl::takeViewsRecords() {
    source.trailer = info->getStored();
    std::vector<StagedRecord> all;
    for (auto const& record : info->getRecordList())
        all.push_back(stagedForm(*info, record));
    records.assign(std::move(all));
}

/// A record of a view. One that stands in this editor's file stays there; data of another file that is large is left
/// there until it is written.
StagedRecord QRTEditImpl::stagedForm(QRTInfoImpl const& view, QRTDataInfo const& record) {
    bool const isStored = record.offsetFromTail > 0 && record.payload > 0;
    if (isStored && &view == info.get()) {
        auto staged = StagedRecord::inFile(record);
        source.places[staged.identity] = info->getStored()->recordsSize() - record.offsetFromTail;
        return staged;
    }
    StagedRecord staged;
    staged.type = record.type;
    staged.name = record.name;
    staged.hasSubInfo = record.hasSubInfo;
    staged.subInfoSize = record.subInfoPayload;
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
    return put(records.findFirst([=](auto const& record) { return record.type == type; }), data);
}

QRTEdit& QRTEditImpl::putData(int type, ByteBuffer&& data) {
    return put(records.findFirst([=](auto const& record) { return record.type == type; }), std::move(data));
}

QRTEdit& QRTEditImpl::putData(std::string const& name, ByteBuffer&& data) {
    return put(records.findFirst([&](auto const& record) { return record.name == name; }), std::move(data));
}

QRTEdit& QRTEditImpl::putData(std::string const&, ByteBuffer const&) {
    throw ErrorAt()("implement here");
}

QRTEdit& QRTEditImpl::putData(int type, std::string const& name, ByteBuffer const& data) {
    LOGI("putData[%d]: %zu", COPIED, size_t{data.size()});
    stage(type, name, ByteSource(std::make_shared<ByteBuffer const>(data)));
    return *this;
}

QRTEdit& QRTEditImpl::putData(int type, std::string const& name, ByteBuffer&& data) {
    LOGI("putData[%d]: %zu", MOVED, size_t{data.size()});
    stage(type, name, ByteSource(std::make_shared<ByteBuffer const>(std::move(data))));
    return *this;
}

QRTEdit& QRTEditImpl::putData(int type, std::string const& name, std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no data file for record %s", name.c_str());
    ByteSource const data(file);
    LOGI("putData[%d]: %zu", FROM_FILE, size_t{data.size()});
    stage(type, name, data);
    return *this;
}

QRTEdit& QRTEditImpl::put(StagedRecord* record, ByteBuffer data, int line) {
    if (record == nullptr)
        throw ErrorAt(line)("%s", "");
    stage(record->type, record->name, ByteSource(std::make_shared<ByteBuffer const>(std::move(data))));
    return *this;
}

/// Sub-info stays; what of it is only in the file is read now.
void QRTEditImpl::stage(int type, std::string const& name, ByteSource const& data, bool mayBeEmpty) {
    std::variant<StagedRecord::InFile, StagedRecord::InMemory, StagedRecord::DataFile> bytes;
    if (data.getFile() == nullptr)
        bytes = StagedRecord::InMemory{data, mayBeEmpty};
    else
        bytes = StagedRecord::DataFile{data, data.getPosition() == 0 && data.size() == data.getFile()->size()};
    if (auto* found = records.find(type, name)) {
        if (found->hasSubInfo && found->isInFile()) {
            auto const ground = survey(output());
            uint32_t const head = found->headSize() - found->subInfoSize;
            found->subInfo = checked::readAt(*output().file,
                                             ground.image + ground.boxHeader + ground.places.at(found->identity) + head,
                                             found->subInfoSize);
        }
        found->replaceData(std::move(bytes));
        LOGI("update data: %s", found->described().toString().c_str());
        return;
    }
    StagedRecord record;
    record.type = type;
    record.name = name;
    record.replaceData(std::move(bytes));
    LOGI("add data: %s", record.described().toString().c_str());
    records.append(std::move(record));
}

void QRTEditImpl::settle(int type, std::string const& name, ByteBuffer const& data) {
    auto const* before = records.find(type, name);
    auto const identity = before != nullptr ? before->identity : nullptr;
    if (identity != nullptr)
        output().places.erase(identity);
    stage(type, name, ByteSource(std::make_shared<ByteBuffer const>(data)));
    if (identity != nullptr)
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
    LOGI("add qrt on key=%s, type=%d, data=%lu", record.name.c_str(), record.type,
         static_cast<unsigned long>(record.dataPayload));
    stage(record.type, record.name, dataOf(view, record), true);
}

ByteBuffer QRTEditImpl::load(StagedRecord const& record) const {
    if (!record.isInFile())
        return record.data().load();
    auto const ground = survey(output());
    auto const place = ground.places.find(record.identity);
    if (place == ground.places.end())
        throw ErrorAt().as(Error::Code::CHANGED)("record %s no longer stands in the file's trailer",
                                                 record.name.c_str());
    return checked::readAt(*output().file, ground.image + ground.boxHeader + place->second + record.headSize(),
                           record.dataSize);
}

QRTEdit& QRTEditImpl::putAll(std::shared_ptr<QRTInfo> const& from, std::filesystem::copy_options const& options) {
    bool const skipsExisting =
        (options & std::filesystem::copy_options::skip_existing) != std::filesystem::copy_options::none;
    auto const view = QRTInfoImpl::of(*from);
    std::set<std::pair<std::string, int>> wanted;
    std::vector<QRTDataInfo const*> found; // in the view, which an editor of another file does not change
    for (auto const& record : view->getRecordList()) {
        if (std::find(unsupportedKeys.begin(), unsupportedKeys.end(), record.name) != unsupportedKeys.end()) {
            LOGI("skip unsupported qrt on key=%s, type=%d", record.name.c_str(), record.type);
            continue;
        }
        if (skipsExisting && containsKey(record.name, true)) {
            LOGI("skip for key=%s since it already exists!", record.name.c_str());
            continue;
        }
        // By both, because two records may share a name. Two that share both cannot be told apart here.
        if (!wanted.emplace(record.name, record.type).second)
            throw ErrorAt()("two records of type %d have the name %s", record.type, record.name.c_str());
        found.push_back(&record);
    }
    for (auto const* record : found)
        copy(*view, *record);
    return *this;
}

QRTEdit& QRTEditImpl::removeData(int type) {
    records.removeAll([=](auto const& record) { return record.type == type; });
    return *this;
}

QRTEdit& QRTEditImpl::removeData(std::string const& name) {
    records.removeFirst([&](auto const& record) { return record.name == name; });
    return *this;
}

QRTEdit& QRTEditImpl::removeData(int type, std::string const& name) {
    records.removeFirst([&](auto const& record) { return record.type == type && record.name == name; });
    return *this;
}

void QRTEditImpl::takeUpFound(std::function<bool(StagedRecord const&)> const& dropped) {
    std::vector<StagedRecord> const staged = records.all();
    takeViewsRecords();
    records.removeAll([&](auto const& found) {
        return dropped(found) || std::any_of(staged.begin(), staged.end(), [&](auto const& other) {
                   return other.type == found.type && other.name == found.name;
               });
    });
    for (auto const& record : staged)
        records.append(record);
}

bool QRTEditImpl::adopt(QRTEditImpl const& other) {
    bool isNew = order.option != other.order.option || order.primaryType != other.order.primaryType ||
                 isCutWhenEmpty != other.isCutWhenEmpty;
    order = other.order;
    isCutWhenEmpty = other.isCutWhenEmpty;
    std::map<StagedRecord::Identity, StagedRecord> mine;
    std::vector<StagedRecord> all;
    for (auto const& record : records.all()) {
        mine.emplace(record.identity, record);
        if (!adopted.empty() && !adopted.contains(record.identity))
            all.push_back(record); // found here only
    }
    size_t const before = records.all().size();
    for (auto const& record : other.getStaged()) {
        auto const known = mine.find(record.identity);
        bool const isKnown = known != mine.end() && adopted.contains(record.identity);
        isNew = isNew || !isKnown;
        all.push_back(isKnown ? known->second : record);
        auto const place = other.source.places.find(record.identity);
        if (!isKnown && record.isInFile() && place != other.source.places.end())
            source.places[record.identity] = place->second;
        adopted.insert(record.identity);
    }
    isNew = isNew || all.size() != before;
    records.assign(std::move(all));
    return isNew;
}

// Commit. -------------------------------------------------------------------------------------------------------------

bool QRTEditImpl::isSource(MediaFile const& file) const {
    return MediaFile::isFdsDup(file.getFd(), source.file->getFd());
}

void QRTEditImpl::commit(std::shared_ptr<MediaFile> const& file) {
    if (file == nullptr)
        throw ErrorAt()("no file to write to");
    if (isSource(*file)) {
        elsewhere.reset();
        source.file = file;
    } else {
        checked::requireEditable(*file);
        Output copy = source;
        copy.file = file;
        uint32_t space = source.file->size();
        if (!records.empty())
            space = std::max(space, plan(copy).workSize());
        checked::requireAddressable(*source.file);
        checked::requireSpace(*file, space);
        elsewhere = copy;
        elsewhere->trailer = nullptr;
        uint32_t const size = source.file->size();
        checked::seek(*file, 0);
        checked::copy(source.file, file, 0, size);
        checked::truncate(*file, size);
        elsewhere->trailer = source.trailer;
    }
    commit();
}

void QRTEditImpl::commit() {
    LOGI("commit E: %zu", records.all().size());
    if (records.empty() && !isCutWhenEmpty) {
        dirty = false;
        LOGI("commit X: no data, skip to commit");
        return;
    }
    checked::requireEditable(*output().file);
    auto const planned = plan(output());
    bool const isWriteInOrder = order.option == Option::WRITE_IN_ORDER;
    if (records.empty() || isWriteInOrder || order.option == Option::WRITE_FAST) {
        LOGI("%s E: qrtTailSize=%zu", isWriteInOrder ? "writeInOrder" : "writeFast", size_t{planned.tailSize()});
        write(planned);
        LOGI("%s X", isWriteInOrder ? "writeInOrder" : "writeFast");
    } else if (!elsewhere) {
        showStaged();
    }
    dirty = false;
    LOGI("commit X");
}

TrailerPlan QRTEditImpl::plan(Output const& into) {
    // A target that is about to become the source's copy is looked at there.
    bool const isThere = &into == &output();
    MediaFile const& file = isThere ? *into.file : *source.file;
    auto const ground = survey(isThere ? into : source);
    if (isThere && !elsewhere && !into.unfinished)
        info->adjustPosition(file.size());
    TrailerPlan planned(records.all(), order, ground);
    for (auto const& record : records.all()) {
        record.requireWritable(*into.file);
        if (record.isInFile() && !ground.places.contains(record.identity))
            throw ErrorAt().as(Error::Code::CHANGED)("record %s no longer stands in the file's trailer",
                                                     record.name.c_str());
    }
    followPointer(planned, file);
    if (!ownerKeepsFields && &file == source.file.get()) // a copy was asked about before it was made
        VideoFields::requireKept(source.file, planned);
    return planned;
}

/// Where the image ends now, and which records stand behind it. Nothing is written behind an image's end that only a
/// stale view believes in.
TrailerPlan::Ground QRTEditImpl::survey(Output const& into) const {
    checked::requireAddressable(*into.file);
    if (into.trailer == nullptr)
        throw ErrorAt()("the copy that this editor was to write is not complete");
    bool const isOwn = &into == &source;
    if (isOwn && info->getStored() != into.trailer && !info->getStored()->holdsSameAs(*into.trailer))
        throw ErrorAt().as(Error::Code::CHANGED)("the trailer has changed since it was read: the view has others "
                                                 "records now");
    TrailerPlan::Ground ground;
    ground.boxHeader = info->boxHeaderSize();
    ground.fileSize = into.file->size();
    ground.version = into.trailer->version;
    ground.places = into.places;
    if (into.unfinished && isUnfinished(into)) {
        if (ground.fileSize <= *into.unfinished)
            throw ErrorAt().as(Error::Code::CHANGED)("the file has changed since a commit failed");
        ground.image = ground.fileSize - *into.unfinished;
        return ground;
    }
    uint32_t const start = into.trailer->requireIn(*into.file, ground.boxHeader > 0);
    ground.hasTrailer = into.trailer->size > 0;
    ground.image = start - (ground.hasTrailer ? ground.boxHeader : 0);
    if (ground.image == 0 || (isOwn && !ground.hasTrailer && ground.image < info->getImageSize()))
        throw ErrorAt().as(Error::Code::CHANGED)("the file has %zu bytes and has changed since it was read",
                                                 size_t{ground.image});
    return ground;
}

/// The file ends in what a failed commit left, not in the trailer that stood there before.
bool QRTEditImpl::isUnfinished(Output const& into) const {
    try {
        if (into.trailer->size == 0)
            return !trailer::readTail(*into.file);
        into.trailer->requireIn(*into.file, info->boxHeaderSize() > 0);
        return false;
    } catch (std::exception const&) {
        rethrowUnlessDamage();
        return true;
    }
}

/// A video pointer into the data of another record follows it. Only what records hold is kept: a video that stands
/// between them would go.
void QRTEditImpl::followPointer(TrailerPlan& planned, MediaFile const& file) const {
    auto const* place = planned.find(qrt::TYPE_MOTION_PHOTO_DATA);
    bool const mayPoint =
        place != nullptr && place->was && VideoPointer::mayStandIn(place->record->type, place->record->dataSize);
    if (!mayPoint || !planned.getGround().hasTrailer)
        return;
    uint32_t const data = planned.start() + *place->was + place->record->headSize();
    auto pointer = VideoPointer::decode(checked::readAt(file, data, VideoPointer::SIZE));
    auto const& stored = *output().trailer;
    if (!pointer || pointer->length == 0 || pointer->position < planned.start() ||
        pointer->position - planned.start() >= stored.recordsSize())
        return;
    uint32_t const from = pointer->position - planned.start();
    if (std::none_of(stored.records.begin(), stored.records.end(), [&](auto const& record) {
            uint32_t const start = stored.recordsSize() - record.offsetFromTail;
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

void QRTEditImpl::write(TrailerPlan const& planned) {
    auto& into = output();
    TrailerWriter writer(into.file, planned);
    try {
        writer.write();
    } catch (...) {
        if (writer.hasBegun()) {
            into.places = writer.whatStands();
            uint32_t const size = into.file->size();
            into.unfinished = size - std::min(size, planned.getGround().image);
        }
        throw;
    }
    takeOver(planned);
}

/// In the editor's own file every record now stands; its bytes are no longer kept in memory.
void QRTEditImpl::takeOver(TrailerPlan const& planned) {
    auto& into = output();
    into.places = planned.newPlaces();
    into.trailer = std::make_shared<trailer::Stored const>(planned.stored());
    into.unfinished.reset();
    if (elsewhere)
        return;
    std::vector<StagedRecord> all;
    for (auto const* entry : planned.inDirectoryOrder()) {
        auto record = StagedRecord(*entry);
        record.source = StagedRecord::InFile();
        record.subInfo = ByteBuffer();
        all.push_back(std::move(record));
    }
    uint32_t const image = planned.getGround().image;
    records.assign(std::move(all)); // the plan's records are gone
    info->takeOver(into.trailer, image);
}

/// An option that writes nothing shows what is staged all the same.
void QRTEditImpl::showStaged() {
    std::vector<QRTDataInfo> shown;
    auto const& stored = info->getStored();
    for (auto const& record : records.all()) {
        QRTDataInfo form = record.described();
        auto const place = source.places.find(record.identity);
        if (place != source.places.end()) {
            form.payload = form.size();
            form.offsetFromTail = stored->recordsSize() - place->second;
        } else if (auto const* memory = std::get_if<StagedRecord::InMemory>(&record.source)) {
            form.data = *memory->data.getBuffer();
        }
        shown.push_back(std::move(form));
    }
    info->show(std::move(shown));
}

} // namespace android::lumo
