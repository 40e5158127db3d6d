// Staging: what the caller wants changed, kept in the sub-editors until commit.
#include "MotionPhotoEditImpl.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
constexpr char MOTION_PHOTO_ITEM[] = "MotionPhoto";
/// Records that go with the video, in the order they are removed.
constexpr char const* VIDEO_RECORDS[] = {qrt::NAME_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_VERSION,
                                         qrt::NAME_MOTION_PHOTO_INFO, qrt::NAME_MOTION_PHOTO_AUTO_PLAY,
                                         qrt::NAME_LONG_EXPOSURE_INFO};

} // namespace

MotionPhotoEditImpl::MotionPhotoEditImpl(std::shared_ptr<MotionPhotoInfo> const& info)
    : view(info), impl(std::dynamic_pointer_cast<MotionPhotoInfoImpl>(info)) {
    if (impl == nullptr)
        throw ErrorAt()("a motion-photo editor needs the library's own view");
    sourceFile = impl->getFile();
    outputFile = sourceFile;
    mediator = std::make_shared<Mediator>(*this);
    extras.max_load_factor(1.0F);
    getQRTEdit();
    getXMPEdit();
}

MotionPhotoEditImpl::~MotionPhotoEditImpl() = default;

MPQRTEdit& MotionPhotoEditImpl::getQRTEdit() {
    if (qrtEdit == nullptr)
        qrtEdit = std::make_unique<MPQRTEdit>(view->getQRTInfo()->edit(), [relay = mediator](MPQRTEdit* sender) {
            relay->notify(sender, Event::TRAILER_WRITTEN);
        });
    return *qrtEdit;
}

MPXMPEdit& MotionPhotoEditImpl::getXMPEdit() {
    if (xmpEdit == nullptr)
        xmpEdit = std::make_unique<MPXMPEdit>(view->getXMPInfo()->edit(), [relay = mediator](MPXMPEdit* sender) {
            relay->notify(sender, Event::XMP_WRITTEN);
        });
    return *xmpEdit;
}

bool MotionPhotoEditImpl::isHEIC() const {
    return getImageMimeType() == MediaDefs::MimeType::IMAGE_HEIC;
}

MotionPhotoEdit& MotionPhotoEditImpl::setPhotoPresentationTimestampUs(long timestampUs) {
    if (!containsMotionPhotoPropInXMP())
        fillMotionPhotoPropInXMP();
    xmpEdit->setProperty(xmp_ns::CAMERA, "MotionPhotoPresentationTimestampUs", std::to_string(timestampUs));
    return *this;
}

// Records. ------------------------------------------------------------------------------------------------------------

MotionPhotoEdit& MotionPhotoEditImpl::addQRTData(int type, std::string const& key, ByteBuffer const& data) {
    if (type == qrt::TYPE_MOTION_PHOTO_DATA && isHEIC()) {
        stageVideo({nullptr, std::make_shared<ByteBuffer>(data)});
        qrtEdit->putData(qrt::TYPE_MOTION_PHOTO_VERSION, qrt::NAME_MOTION_PHOTO_VERSION,
                         MediaDefs::motionphotoFormatString(MediaDefs::MotionPhotoFormat::MPV3));
    } else {
        qrtEdit->putData(type, key, data);
        if (type == qrt::TYPE_MOTION_PHOTO_DATA)
            noteStagedVideo();
    }
    qrtEdit->makeDirty();
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::addQRTData(int type, std::string const& key,
                                                 std::shared_ptr<MediaFile> const& file) {
    if (type == qrt::TYPE_MOTION_PHOTO_DATA && isHEIC()) {
        stageVideo({file, nullptr});
        qrtEdit->putData(qrt::TYPE_MOTION_PHOTO_VERSION, qrt::NAME_MOTION_PHOTO_VERSION,
                         MediaDefs::motionphotoFormatString(MediaDefs::MotionPhotoFormat::MPV3));
    } else {
        qrtEdit->putData(type, key, file);
        if (type == qrt::TYPE_MOTION_PHOTO_DATA)
            noteStagedVideo();
    }
    qrtEdit->makeDirty();
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::addQRTInfo(std::shared_ptr<QRTInfo> const& info) {
    if (info == nullptr)
        throw ErrorAt()("no trailer given");
    auto const other = QRTInfoImpl::of(*info);
    other->loadAllData();
    // By index and up to the count it has now: it may be this view's own list that grows.
    for (size_t i = 0, count = other->getRecordList().size(); i < count; ++i) {
        auto record = other->getRecordList()[i];
        // A pointer names bytes of the file it stands in: what it points to comes along, not the pointer.
        auto const pointer = VideoPointer::mayStandIn(record.type, record.data.size())
                                 ? VideoPointer::decode(record.data)
                                 : std::nullopt;
        if (pointer) {
            record.data = checked::readAt(*other->getFile(), pointer->position, pointer->length);
            record.dataPayload = record.data.size();
        }
        if (record.type == qrt::TYPE_MOTION_PHOTO_DATA && isHEIC()) {
            addQRTData(record.type, record.name, record.data);
            continue;
        }
        if (record.type == qrt::TYPE_MOTION_PHOTO_DATA)
            noteStagedVideo();
        // In the staged form: the other file's positions mean nothing here.
        impl->getTrailer()->getRecordList().push_back(qrtEdit->impl().appendRecord(record));
    }
    qrtEdit->makeDirty();
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::addXMPInfo(std::shared_ptr<XMPInfo> const& info) {
    if (info == nullptr)
        throw ErrorAt()("no XMP given");
    info->copyTo(*xmpEdit);
    xmpEdit->makeDirty();
    return *this;
}

// The video. ----------------------------------------------------------------------------------------------------------

/// Only JPEG and HEIC stills have a place for a video.
void MotionPhotoEditImpl::requireStillWithVideo() const {
    auto const type = getImageMimeType();
    if (type != MediaDefs::MimeType::IMAGE_JPEG && type != MediaDefs::MimeType::IMAGE_HEIC)
        throw ErrorAt(476)("not implemented yet");
}

void MotionPhotoEditImpl::stageVideo(StagedVideo video) {
    requireStillWithVideo();
    if (video.file == nullptr && video.bytes == nullptr)
        throw ErrorAt()("no video given");
    video.length = video.file != nullptr ? video.file->size() : video.bytes->size();
    if (video.size() == 0)
        throw ErrorAt()("the video is empty");
    if (video.file != nullptr && MediaFile::isFdsDup(video.file->getFd(), sourceFile->getFd()))
        throw ErrorAt()("the video is the still itself: %s", video.file->toString().c_str());
    if (isHEIC())
        stageVideoBox(video);
    else
        stageTrailerVideo(video);
    noteStagedVideo();
    qrtEdit->makeDirty();
}

/// Whatever was removed before, there will be a video, and its XMP with it.
void MotionPhotoEditImpl::noteStagedVideo() {
    isVideoStaged = true;
    isMotionPhotoXMPRemoved = false;
    qrtEdit->cutWhenEmpty(false);
}

/// One record 2608 holds the video; another of that type under a different name would make it ambiguous.
void MotionPhotoEditImpl::stageTrailerVideo(StagedVideo const& video) {
    if (video.size() <= MAX_POINTER_RECORD_SIZE)
        LOGW("a video of %zu bytes will be read as a pointer, %zu is the largest such record",
             static_cast<size_t>(video.size()), static_cast<size_t>(MAX_POINTER_RECORD_SIZE));
    auto& records = qrtEdit->impl().getRecordList();
    std::erase_if(records, [](auto const& record) {
        return record.type == qrt::TYPE_MOTION_PHOTO_DATA && record.name != qrt::NAME_MOTION_PHOTO_DATA;
    });
    if (video.file != nullptr)
        qrtEdit->putData(qrt::TYPE_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_DATA, video.file);
    else
        qrtEdit->putData(qrt::TYPE_MOTION_PHOTO_DATA, qrt::NAME_MOTION_PHOTO_DATA, *video.bytes);
}

MotionPhotoEdit& MotionPhotoEditImpl::addVideo(std::shared_ptr<MediaFile> const& video) {
    stageVideo({video, nullptr});
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::addVideo(std::shared_ptr<ByteBuffer> const& video) {
    stageVideo({nullptr, video});
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::replaceVideo(std::shared_ptr<MediaFile> const& video) {
    requireStillWithVideo();
    if (video == nullptr)
        throw ErrorAt()("no video given");
    if (MediaFile::isFdsDup(video->getFd(), sourceFile->getFd()))
        throw ErrorAt()("the video is the still itself: %s", video->toString().c_str());
    auto const bytes = std::make_shared<ByteBuffer>(video->readAllBytes());
    stageVideo({nullptr, bytes});
    xmpEdit->replaceItemField(MOTION_PHOTO_ITEM, "Length", std::to_string(bytes->size()));
    return *this;
}

MotionPhotoEdit& MotionPhotoEditImpl::removeVideo(std::shared_ptr<MediaFile> const& file) {
    if (file != nullptr && !isOutputSource(file))
        throw ErrorAt()("not the file being edited: %s", file->toString().c_str());
    extras.clear();
    stagedBox.reset();
    if (isHEIC())
        extras[ExtraType::MOTION_PHOTO_VIDEO_BOX] = [this](auto const& output) { removeMPVDBox(output); };

    for (auto const* name : VIDEO_RECORDS) {
        auto& records = qrtEdit->impl().getRecordList();
        auto const named = [&](auto const& record) { return record.name == name; };
        while (std::any_of(records.begin(), records.end(), named))
            qrtEdit->removeData(name);
    }
    qrtEdit->removeData(qrt::TYPE_MOTION_PHOTO_DATA);
    qrtEdit->removeData(qrt::TYPE_MOTION_PHOTO_VERSION);
    qrtEdit->cutWhenEmpty(true);
    qrtEdit->makeDirty();

    for (auto const* property : {"MotionPhoto", "MotionPhotoVersion", "MotionPhotoPresentationTimestampUs"})
        xmpEdit->removeProperty(xmp_ns::CAMERA, property);
    while (xmpEdit->containsItemField(MOTION_PHOTO_ITEM, "Semantic")) // a damaged directory may name it twice
        xmpEdit->removeItem(MOTION_PHOTO_ITEM);
    xmpEdit->replaceItemField("Primary", "Padding", "0");
    isMotionPhotoXMPRemoved = true;
    isVideoStaged = false;
    return *this;
}

bool MotionPhotoEditImpl::belongsToVideo(QRTDataInfo const& record) {
    return record.type == qrt::TYPE_MOTION_PHOTO_DATA || record.type == qrt::TYPE_MOTION_PHOTO_VERSION ||
           std::find(std::begin(VIDEO_RECORDS), std::end(VIDEO_RECORDS), record.name) != std::end(VIDEO_RECORDS);
}

/// The file a caller names as the one being edited: the source, or the output a commit already goes to.
bool MotionPhotoEditImpl::isOutputSource(std::shared_ptr<MediaFile> const& other) const {
    return MediaFile::isFdsDup(other->getFd(), sourceFile->getFd()) ||
           MediaFile::isFdsDup(other->getFd(), outputFile->getFd());
}

// The relay. ----------------------------------------------------------------------------------------------------------

void MotionPhotoEditImpl::Mediator::notify(void const* sender, Event event) {
    size_t const size = editor.outputFile->size();
    LOGI("notify: sender=%p, event=%d, lastSize=%zu, newSize=%zu", sender, static_cast<int>(event), lastSize, size);
    auto const& trailer = editor.impl->getTrailer();
    switch (event) {
    case Event::TRAILER_WRITTEN:
        return onTrailerWritten(size);
    case Event::XMP_WRITTEN:
        return onXMPWritten(size);
    case Event::BEFORE_VIDEO_BOX:
        editor.qrtEdit->impl().loadRecords();
        trailer->setSize(0);
        return;
    case Event::CONTAINER_RESTRUCTURED:
        trailer->load();
        return;
    }
}

/// The "Length" may be wrong although the size is as before: a record in front of the video gave its bytes to one
/// behind it.
void MotionPhotoEditImpl::Mediator::onTrailerWritten(size_t size) {
    size_t const position = editor.getVideoPosition();
    bool const hasItem = editor.xmpEdit->containsItem(MOTION_PHOTO_ITEM, false);
    bool const isStale = hasItem && position > 0 && position <= size &&
                         editor.xmpEdit->getItemField(MOTION_PHOTO_ITEM, "Length") != std::to_string(size - position);
    if (size == lastSize && !isStale)
        return;
    lastSize = size;
    editor.xmpEdit->updateMotionPhotoInfo(editor.outputFile, size, position);
}

void MotionPhotoEditImpl::Mediator::onXMPWritten(size_t size) {
    if (size == lastSize)
        return;
    lastSize = size;
    editor.impl->getTrailer()->adjustPosition(static_cast<uint32_t>(size));
}

} // namespace android::lumo
