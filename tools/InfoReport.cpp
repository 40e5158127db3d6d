// SPDX-License-Identifier: Apache-2.0
#include "InfoReport.h"

#include <algorithm>

namespace motionphoto {

using namespace android::lumo;

namespace {

/// A directory has a handful of items; this many places are looked at when some of them are not indexed.
constexpr int32_t MAX_DIRECTORY_PLACES = 10'000;

InfoReport::MotionPhoto motionPhotoOf(Photo const& photo, MotionPhotoInfo const& view) {
    auto const& located = photo.video;
    InfoReport::MotionPhoto motion;
    motion.valid = located.isSound();
    motion.source = MotionVideo::nameOf(located.source);
    motion.reason = located.reason;
    motion.xmpVersion = view.getXMPMotionPhotoVersion();
    motion.presentationTimestampUs = located.momentUs;
    motion.video.position = located.position;
    motion.video.size = located.size;
    motion.video.durationUs = located.durationUs(photo.file);
    if (motion.valid)
        motion.video.mimeType = MediaDefs::mimeString(located.mimeType());
    if (located.source != MotionVideo::Source::TRAILER)
        return motion;
    motion.format = MediaDefs::motionphotoFormatString(view.getQRTMotionPhotoVersion());
    // The view's own answer wraps around when a damaged record points into the image.
    auto const padding = view.getImageVideoPadding();
    motion.video.padding = padding <= photo.size() ? padding : 0;
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
    auto const block = blocksOf(file)->getCameraDebugInfo();
    if (block.type == MediaDefs::MetaType::NONE)
        return std::nullopt;
    return InfoReport::Block{block.position, block.payload};
}

} // namespace

InfoReport gather(Photo const& photo) {
    auto const view = photo.view();
    InfoReport report;
    report.file = photo.path();
    report.mimeType = MediaDefs::mimeString(view->getImageMimeType());
    report.fileSize = photo.size();
    report.imageSize = view->getImageSize();
    auto const trailer = view->getQRTInfo();
    if (trailer->getSize() > 0)
        report.trailer = trailerOf(*trailer);
    if (photo.hasClaim())
        report.motionPhoto = motionPhotoOf(photo, *view);
    else
        report.damage = photo.damage();
    auto const xmp = view->getXMPInfo();
    for (auto const& [schema, path] : xmp->getProperties())
        report.properties.push_back({schema, path, xmp->getProperty(schema, path)});
    report.items = itemsOf(*xmp);
    report.debugInfo = debugInfoOf(photo.file);
    return report;
}

} // namespace motionphoto
