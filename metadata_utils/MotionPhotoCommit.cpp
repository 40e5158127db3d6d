// The commit of a motion photo, step by step; MotionPhotoEditImpl.h numbers what it upholds.
#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "MotionPhotoEditImpl.h"
#include "io/ImageMetaReader.h"
#include "io/JPEGSegments.h"

#include <algorithm>
#include <exception>
#include <sys/mman.h>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
constexpr char PRIMARY_ITEM[] = "Primary";
constexpr char MOTION_PHOTO_ITEM[] = "MotionPhoto";
constexpr char MOTION_PHOTO_PROPERTY[] = "MotionPhoto";
/// What XMP takes in a file besides its packet: identifier and rounding in a JPEG, boxes in a HEIC.
constexpr size_t XMP_OVERHEAD = 256;
constexpr size_t MIN_XMP_ROOM = 1280;
constexpr char TIMESTAMP_PROPERTY[] = "MotionPhotoPresentationTimestampUs";

/// A file in memory for the extractor to read a video that is not on disk. Throws where the system has none.
std::shared_ptr<MediaFile> memoryFile(ByteBuffer const& bytes) {
    int const fd = memfd_create("video", MFD_CLOEXEC);
    if (fd <= 0)
        throw photoEditError()("no memory file for the video");
    auto const file = std::make_shared<MediaFile>(fd); // has a descriptor of its own
    close(fd);
    checked::write(*file, bytes);
    return file;
}

} // namespace

/// Makes the output what the whole commit works on (invariant 4), and gives the view its own file back (invariant 5).
class MotionPhotoEditImpl::OutputSession {
public:
    OutputSession(MotionPhotoEditImpl& owner, std::shared_ptr<MediaFile> const& output) : editor(owner) {
        editor.outputFile = output;
    }

    void attach() {
        isAttached = true;
        staged = records();
        wasTrailerDirty = editor.qrtEdit->isDirty();
        editor.impl->attach(editor.outputFile);
        editor.qrtEdit->impl().attach(editor.outputFile);
    }

    /// The commit is done: what was staged is written, and the view reads its file again. After a commit into another
    /// file the editor starts over from the source.
    void settle() {
        bool const wasAttached = isAttached;
        detach();
        editor.impl->getTrailer()->load();
        if (wasAttached) {
            editor.impl->getPacket()->load();
            records() = QRTEditImpl(editor.impl->getTrailer()).getRecordList();
        }
        isSettled = true;
    }

    ~OutputSession() {
        if (isSettled)
            return;
        if (isAttached)
            restage();
        detach();
        try {
            editor.impl->getTrailer()->load();
        } catch (std::exception const& e) {
            LOGE("fail to load the trailer after a failed commit: %s", e.what());
        }
    }

    OutputSession(OutputSession const&) = delete;
    OutputSession& operator=(OutputSession const&) = delete;

private:
    std::vector<QRTDataInfo>& records() { return editor.qrtEdit->impl().getRecordList(); }
    /// What went into an output that was not finished is still to be written.
    void restage() {
        records() = std::move(staged);
        if (wasTrailerDirty)
            editor.qrtEdit->makeDirty();
        editor.xmpEdit->makeDirty();
    }
    void detach() {
        if (isAttached) {
            editor.impl->attach(editor.sourceFile);
            editor.qrtEdit->impl().attach(editor.sourceFile);
            editor.xmpEdit->renew(editor.view->getXMPInfo()->edit());
        }
        isAttached = false;
        editor.outputFile = editor.sourceFile;
    }

    MotionPhotoEditImpl& editor;
    std::vector<QRTDataInfo> staged; ///< as they were before the output was attached
    bool wasTrailerDirty = false;
    bool isAttached = false;
    bool isSettled = false;
};

void MotionPhotoEditImpl::commit(std::shared_ptr<MediaFile> const& target) {
    if (target == nullptr)
        throw photoEditError()("no target given");
    bool const isSource = MediaFile::isFdsDup(target->getFd(), sourceFile->getFd());
    outputFile = isSource ? sourceFile : target;
    commit();
}

void MotionPhotoEditImpl::commit() {
    LOGI("commit: %p", static_cast<void*>(this));
    OutputSession session(*this, outputFile);
    size_t const orgFileSize = getFileSize();
    requireCommittable();
    if (outputFile != sourceFile) {
        prepareOutputFile();
        session.attach();
        if (outputSource != nullptr)
            impl->getTrailer()->load();
    }
    mediator->reset();
    prepareCommit();
    checked::SpaceKeeper const space(outputFile, expectedFileSize());
    prepareImageType();
    LOGI("xmp-isDirty: %d, qrt-isDirty: %d", xmpEdit->isDirty(), qrtEdit->isDirty());
    if (xmpEdit->isDirty())
        xmpEdit->commit(outputFile);
    for (auto const& extra : extras)
        extra.second(outputFile);
    if (qrtEdit->isDirty())
        qrtEdit->commit(outputFile);
    completeCommit(orgFileSize);
    session.settle();
    finish();
}

void MotionPhotoEditImpl::prepareCommit() {
    restoreTrailer();
    prepareXMP();
    stageExpectedFields();
}

/// About the size the output will have, so that a full disk is found before its first byte moves. A size that needs no
/// new space is not asked for, however little is left.
uint32_t MotionPhotoEditImpl::expectedFileSize() const {
    uint64_t const trailerSize = impl->getTrailer()->getTrailerSize();
    uint64_t size = uint64_t{outputFile->size()} - std::min<uint64_t>(outputFile->size(), trailerSize);
    if (qrtEdit->isDirty()) {
        auto const layout = qrtEdit->impl().plannedLayout();
        size += layout.empty() ? 0 : layout.front().offsetFromTail + trailer::tailSize(layout.size());
    } else {
        size += trailerSize;
    }
    if (xmpEdit->isDirty()) {
        auto const room = ImageMetaReader::of(outputFile, ParseMode::LAZY)->getXMP();
        size_t const needed = std::max(xmpEdit->serializeToBuffer().size() + room.offset, MIN_XMP_ROOM);
        size += room.payload < needed ? needed + XMP_OVERHEAD : 0;
    }
    if (isHEIC() && !extras.empty() && impl->hasVideo())
        size -= std::min<uint64_t>(size, getVideoSize());
    return checked::sizeOf(size + (stagedBox ? stagedBox->size() : 0));
}

/// Invariant 1. What only the container knows (a packet that fits no segment, a layout that cannot be written again) is
/// refused by the first container step, which checks before it moves anything.
void MotionPhotoEditImpl::requireCommittable() {
    checked::requireAddressable(*sourceFile);
    if (outputSource != nullptr && outputFile == sourceFile)
        throw photoEditError()("a prepared still needs another file to be written to, not the source");
    if (outputFile != sourceFile && outputSource != nullptr &&
        MediaFile::isFdsDup(outputFile->getFd(), outputSource->getFd()))
        throw photoEditError()("the prepared still is the output itself: %s", outputSource->toString().c_str());
    if (!qrtEdit->isDirty() && !xmpEdit->isDirty() && extras.empty())
        return;
    if (qrtEdit->isDirty()) {
        qrtEdit->impl().requireWritable(outputFile);
        qrtEdit->impl().loadRecords(); // a trailer that has changed since it was read is found while XMP is as it was
    }

    uint64_t size = uint64_t{getFileSize()} + jpeg::MAX_SEGMENT_LENGTH + jpeg::MARKER_SIZE;
    for (auto const& record : qrtEdit->impl().plannedLayout())
        size += record.payload;
    if (stagedBox) {
        requireBoxVideo();
        size += stagedBox->size();
    }
    checked::sizeOf(size - std::min<uint64_t>(size, impl->getTrailer()->getTrailerSize()));
}

/// What will become the video box is looked at while old box and trailer still stand.
void MotionPhotoEditImpl::requireBoxVideo() const {
    auto const& file = stagedBox->file;
    if (file != nullptr && MediaFile::isFdsDup(file->getFd(), outputFile->getFd()))
        throw photoEditError()("the video is the file to write: %s", file->toString().c_str());
    if (file != nullptr)
        checked::requireAddressable(*file);
    uint32_t const held = file != nullptr ? file->size() : stagedBox->bytes->size();
    if (held < stagedBox->size() || (file == nullptr && held != stagedBox->size()))
        throw photoEditError()("the video has %zu bytes, expected %zu", size_t{held}, size_t{stagedBox->size()});
    if (file != nullptr)
        checked::readAt(*file, stagedBox->size() - 1, 1); // it can be read
}

/// The target gets the source's bytes once; every later step edits that copy. What it held before is replaced.
void MotionPhotoEditImpl::prepareOutputFile() {
    if (outputSource != nullptr)
        return composeFromOutputSource();
    uint32_t const size = sourceFile->size();
    checked::seek(*outputFile, 0);
    checked::reserve(*outputFile, size);
    checked::copy(sourceFile, outputFile, 0, size);
    checked::truncate(*outputFile, size);
}

// XMP. ----------------------------------------------------------------------------------------------------------------

bool MotionPhotoEditImpl::containsMotionPhotoPropInXMP() const {
    return xmpEdit->containsProperty("GCamera:MotionPhoto", false);
}

void MotionPhotoEditImpl::fillMotionPhotoPropInXMP() {
    xmpEdit->setProperty(xmp_ns::CAMERA, MOTION_PHOTO_PROPERTY, "1");
    xmpEdit->setProperty(xmp_ns::CAMERA, "MotionPhotoVersion", "1");
}

bool MotionPhotoEditImpl::containsImageDataInXMP() const {
    return xmpEdit->containsItem(PRIMARY_ITEM, false);
}

void MotionPhotoEditImpl::fillImageDataInXMP() {
    xmpEdit->setItem(PRIMARY_ITEM, getImageMimeType());
    xmpEdit->setItemField(PRIMARY_ITEM, "Padding", "0");
}

void MotionPhotoEditImpl::prepareXMP() {
    if (!isImageDataXMPRemoved && !containsImageDataInXMP())
        fillImageDataInXMP();
    if (isMotionPhotoXMPRemoved)
        return;
    bool const isDenied =
        isVideoStaged && xmpEdit->getProperty(xmp_ns::CAMERA, MOTION_PHOTO_PROPERTY) != "1"; // "0": it had no video
    if (!containsMotionPhotoPropInXMP() || isDenied) {
        fillMotionPhotoPropInXMP();
        xmpEdit->setItem(MOTION_PHOTO_ITEM, MediaDefs::MimeType::VIDEO_MP4);
    }
}

/// Invariant 3. Only a commit that will write anything anyway is given the values, and only those that differ.
void MotionPhotoEditImpl::stageExpectedFields() {
    if (isMotionPhotoXMPRemoved || (!qrtEdit->isDirty() && !xmpEdit->isDirty()))
        return;
    auto const expected = expectedVideo();
    if (!expected)
        return;
    // A change of XMP alone leaves the video's moment as it is.
    if (qrtEdit->isDirty() && xmpEdit->getProperty(xmp_ns::CAMERA, TIMESTAMP_PROPERTY).empty())
        setTimestampFromDuration(expected->durationUs());
    setVideoFields(expected->length, expected->padding);
}

void MotionPhotoEditImpl::setVideoFields(uint32_t length, uint32_t padding) {
    auto const set = [this](char const* item, char const* field, std::string const& value) {
        if (xmpEdit->getItemField(item, field) != value)
            xmpEdit->replaceItemField(item, field, value);
    };
    set(PRIMARY_ITEM, "Padding", std::to_string(padding));
    xmpEdit->setItem(MOTION_PHOTO_ITEM, MediaDefs::MimeType::VIDEO_MP4);
    set(MOTION_PHOTO_ITEM, "Length", std::to_string(length));
    set(MOTION_PHOTO_ITEM, "Padding", "0");
}

void MotionPhotoEditImpl::setTimestampFromDuration(std::optional<int64_t> const& durationUs) {
    if (!durationUs)
        return;
    LOGI("set presentation timestampUs= %lld", static_cast<long long>(*durationUs));
    xmpEdit->setProperty(xmp_ns::CAMERA, TIMESTAMP_PROPERTY, std::to_string(*durationUs));
    fillMotionPhotoPropInXMP();
}

/// Where the video will lie, from the trailer alone: neither number depends on the image in front of it.
std::optional<MotionPhotoEditImpl::ExpectedVideo> MotionPhotoEditImpl::expectedVideo() {
    auto const layout = qrtEdit->impl().plannedLayout();
    auto const video = std::find_if(layout.begin(), layout.end(), ofType(qrt::TYPE_MOTION_PHOTO_DATA));
    if (video == layout.end())
        return std::nullopt;
    if (video->dataPayload <= MAX_POINTER_RECORD_SIZE)
        return isHEIC() ? expectedBoxVideo(layout) : std::nullopt;
    ExpectedVideo expected;
    if (!qrtEdit->isDirty()) { // the trailer stays as it was written, in that order or another
        expected.length = outputFile->size() - static_cast<uint32_t>(getVideoPosition());
        expected.padding = static_cast<uint32_t>(getImageVideoPadding());
        return expected;
    }
    uint32_t const recordHead = video->payload - video->dataPayload;
    uint32_t const inFront = layout.front().offsetFromTail - video->offsetFromTail;
    expected.length = video->offsetFromTail - recordHead + trailer::tailSize(layout.size());
    expected.padding = isHEIC() ? static_cast<uint32_t>(getImageVideoPadding()) : inFront + recordHead;
    expected.durationUs = [this, record = *video] { return expectedDuration(record); };
    return expected;
}

/// A duration that cannot be read leaves the timestamp out.
std::optional<int64_t> MotionPhotoEditImpl::expectedDuration(QRTDataInfo const& record) {
    return tryDuration([&] {
        if (record.dataFile != nullptr)
            return videoDurationUs(*record.dataFile, 0, record.dataPayload);
        if (!record.data.empty())
            return videoDurationUs(*memoryFile(record.data), 0, record.dataPayload);
        return getVideoDurationUs();
    });
}

std::optional<int64_t> MotionPhotoEditImpl::tryDuration(std::function<int64_t()> const& duration) const {
    try {
        return duration();
    } catch (std::exception const& e) {
        LOGW("fail to get the video's duration: %s", e.what());
        return std::nullopt;
    }
}

/// The values are read off the finished file; nothing here may fail for a reason that could be foreseen.
void MotionPhotoEditImpl::completeCommit(size_t orgFileSize) {
    size_t const fileSize = getFileSize();
    LOGI("completeCommit: isMotionPhotoXMPRemoved=%d, orgFileSize=%zu, fileSize=%zu", isMotionPhotoXMPRemoved,
         orgFileSize, fileSize);
    if (isMotionPhotoXMPRemoved || fileSize == orgFileSize)
        return;
    LOGI("size is changed %zu > %zu, update xmp mp info", orgFileSize, fileSize);
    if (!impl->hasVideo())
        return;
    if (xmpEdit->getProperty(xmp_ns::CAMERA, TIMESTAMP_PROPERTY).empty())
        setTimestampFromDuration(tryDuration([this] { return getVideoDurationUs(); }));
    setVideoFields(static_cast<uint32_t>(fileSize - getVideoPosition()), videoPadding());
    xmpEdit->commit(outputFile);
}

/// A pointer of a JPEG may lead to a video in front of the image's end; no bytes lie between them then.
uint32_t MotionPhotoEditImpl::videoPadding() const {
    size_t const padding = getImageVideoPadding();
    return padding <= getFileSize() ? static_cast<uint32_t>(padding) : 0;
}

void MotionPhotoEditImpl::finish() {
    extras.clear();
    stagedBox.reset();
    isMotionPhotoXMPRemoved = false;
    isVideoStaged = false;
    qrtEdit->cutWhenEmpty(false);
}

} // namespace android::lumo
