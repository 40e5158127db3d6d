#include "InfoReport.h"

#include "io/ImageMetaReader.h"

#include <algorithm>
#include <exception>

namespace motionphoto {

using namespace android::lumo;

namespace {

/// A directory has a handful of items; this many places are looked at when some of them are not indexed.
constexpr int32_t MAX_DIRECTORY_PLACES = 10'000;

std::optional<std::string> videoTypeAt(std::shared_ptr<MediaFile> const& file, uint64_t position) {
    struct Container {
        bool (*test)(std::shared_ptr<MediaFile> const&);
        MediaDefs::MimeType type;
    };
    static constexpr Container CONTAINERS[] = {
        {MediaFile::isMP4Video, MediaDefs::MimeType::VIDEO_MP4},
        {MediaFile::isMOVVideo, MediaDefs::MimeType::VIDEO_QUICKTIME},
    };
    auto const start = static_cast<uint32_t>(position);
    for (auto const& container : CONTAINERS) {
        if (file->position(start) == start && container.test(file))
            return MediaDefs::mimeString(container.type);
    }
    return std::nullopt;
}

std::optional<int64_t> durationOf(MotionPhotoInfo const& photo) {
    try {
        return photo.getVideoDurationUs();
    } catch (std::exception const&) {
        return std::nullopt;
    }
}

InfoReport::MotionPhoto motionPhotoOf(std::shared_ptr<MediaFile> const& file, MotionPhotoInfo const& photo) {
    InfoReport::MotionPhoto motion;
    motion.valid = photo.isValid();
    motion.format = MediaDefs::motionphotoFormatString(photo.getQRTMotionPhotoVersion());
    motion.xmpVersion = photo.getXMPMotionPhotoVersion();
    motion.presentationTimestampUs = photo.getCaptureTimestampUs();
    auto& video = motion.video;
    video.position = photo.getVideoPosition();
    video.size = photo.getVideoSize();
    video.mimeType = videoTypeAt(file, video.position);
    if (video.mimeType)
        video.durationUs = durationOf(photo);
    // The view's own answer wraps around when a damaged record points into the image.
    auto const padding = photo.getImageVideoPadding();
    video.padding = padding <= photo.getFileSize() ? padding : 0;
    return motion;
}

InfoReport::Trailer trailerOf(QRTInfo const& trailer) {
    InfoReport::Trailer result{trailer.getVersion(), trailer.getSize(), {}};
    for (auto const& record : trailer.getRecords())
        result.records.push_back({record.type, record.name, record.dataPosition, record.dataPayload});
    return result;
}

InfoReport::Item itemOf(XMPInfo const& xmp, std::string const& name) {
    InfoReport::Item item{name, xmp.getItemField(name, "Mime"), {}};
    for (auto const& field : xmp.getItemFieldNames(name)) {
        if (field != "Semantic" && field != "Mime")
            item.fields.emplace_back(field, xmp.getItemField(name, field));
    }
    return item;
}

std::vector<InfoReport::Item> itemsOf(XMPInfo const& xmp) {
    // Places may be missing: of several items with one name only the last is indexed.
    auto names = xmp.getItemNames();
    names.remove("");
    std::vector<InfoReport::Item> items;
    for (int32_t place = 1; items.size() < names.size() && place <= MAX_DIRECTORY_PLACES; ++place) {
        if (auto const name = xmp.getItemNameAt(place); !name.empty())
            items.push_back(itemOf(xmp, name));
    }
    return items;
}

std::optional<InfoReport::Block> debugInfoOf(std::shared_ptr<MediaFile> const& file) {
    auto const block = ImageMetaReader::of(file, ParseMode::LAZY)->getCameraDebugInfo();
    if (block.type == MediaDefs::MetaType::NONE)
        return std::nullopt;
    return InfoReport::Block{block.position, block.payload};
}

} // namespace

InfoReport gather(std::shared_ptr<MediaFile> const& file, MotionPhotoInfo const& photo) {
    InfoReport report;
    report.file = file->getPath();
    report.mimeType = MediaDefs::mimeString(photo.getImageMimeType());
    report.fileSize = photo.getFileSize();
    report.imageSize = photo.getImageSize();
    auto const trailer = photo.getQRTInfo();
    if (trailer->getSize() > 0)
        report.trailer = trailerOf(*trailer);
    if (trailer->containsType(qrt::TYPE_MOTION_PHOTO_DATA))
        report.motionPhoto = motionPhotoOf(file, photo);
    auto const xmp = photo.getXMPInfo();
    for (auto const& [schema, path] : xmp->getProperties())
        report.properties.push_back({schema, path, xmp->getProperty(schema, path)});
    report.items = itemsOf(*xmp);
    report.debugInfo = debugInfoOf(file);
    return report;
}

} // namespace motionphoto
