// SPDX-License-Identifier: Apache-2.0
#include "MotionVideo.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MotionPhotoInfoImpl.h"
#include "MovieBoxes.h"
#include "PhotoLayout.h"
#include "StillEnd.h"

#include <algorithm>
#include <string_view>

namespace android::lumo {

namespace {

constexpr uint32_t WINDOW = 1024 * 1024;
constexpr std::string_view FILE_TYPE = "ftyp";
constexpr uint32_t SIZE_FIELD = 4;
/// Each costs a walk over its boxes: what holds more is no photo.
constexpr size_t MAX_CANDIDATES = 64;
/// Brands of files that begin like a movie and are pictures.
constexpr std::string_view PICTURES[] = {"heic", "heix", "hevc", "mif1", "msf1", "avif", "avis"};

MotionVideo found(movie::Walk const& walk, uint32_t position) {
    MotionVideo video;
    video.source = MotionVideo::Source::SCAN;
    video.status = walk.isSound() ? MotionVideo::Status::SOUND : MotionVideo::Status::DAMAGED;
    video.position = position;
    video.size = walk.end - position;
    video.brand = walk.brand;
    video.reason = walk.fault;
    return video;
}

/// Walks over candidates until one is a whole movie; the first that at least begins like one is kept.
class Search {
public:
    Search(PhotoLayout const& photo, uint32_t searchLimit) : layout(photo), file(*photo.file), limit(searchLimit) {}

    /// False when the search is over.
    bool look(uint32_t position) {
        if (layout.isOtherItems(position))
            return true;
        auto const walk = movie::walkUnclaimed(file, position, limit);
        bool const isPicture = std::find(std::begin(PICTURES), std::end(PICTURES), walk.brand) != std::end(PICTURES);
        if (!walk.begins || isPicture)
            return ++candidates < MAX_CANDIDATES;
        if (walk.isSound() || best.status == MotionVideo::Status::NONE)
            best = found(walk, position);
        return !walk.isSound() && ++candidates < MAX_CANDIDATES;
    }
    MotionVideo const& result() const { return best; }

private:
    PhotoLayout const& layout;
    MediaFile const& file;
    uint32_t limit;
    size_t candidates = 0;
    MotionVideo best;
};

/// Every "ftyp" from `from` on, a window at a time; the windows overlap by what a type can be cut by.
void searchBytes(Search& search, MediaFile const& file, uint32_t from, uint32_t limit) {
    constexpr uint32_t OVERLAP = FILE_TYPE.size() - 1;
    uint32_t const least = from + SIZE_FIELD;
    while (uint64_t{from} + SIZE_FIELD + FILE_TYPE.size() <= limit) {
        uint32_t const n = std::min(WINDOW, limit - from);
        auto const bytes = checked::readAt(file, from, n);
        std::string_view const text(reinterpret_cast<char const*>(bytes.data()), bytes.size());
        for (size_t at = text.find(FILE_TYPE); at != std::string_view::npos; at = text.find(FILE_TYPE, at + 1)) {
            uint32_t const type = from + static_cast<uint32_t>(at);
            if (type >= least && !search.look(type - SIZE_FIELD))
                return;
        }
        if (n == limit - from)
            return;
        from += n - OVERLAP;
    }
}

/// A movie that was appended to a HEIC looks like boxes of the image; only its own 'ftyp' tells it.
uint32_t appendedMovie(heif::TopLevel const& topLevel) {
    auto const& boxes = topLevel.boxes;
    auto const isFileType = [](auto const& box) { return box.type == boxType("ftyp"); };
    auto const own = std::find_if(boxes.begin(), boxes.end(), isFileType);
    auto const next = own == boxes.end() ? own : std::find_if(own + 1, boxes.end(), isFileType);
    return next == boxes.end() ? topLevel.endOfImage() : std::min(next->position, topLevel.endOfImage());
}

} // namespace

MotionVideo MotionVideo::locate(std::shared_ptr<MediaFile> const& photo) {
    return PhotoLayout(photo).locate();
}

MotionVideo MotionVideo::locate(MotionPhotoInfo const& photo) {
    return PhotoLayout(MotionPhotoInfoImpl::of(photo)).locate();
}

MotionVideo MotionVideo::scan(std::shared_ptr<MediaFile> const& photo) {
    PhotoLayout const layout(photo);
    auto const claimed = layout.locate();
    // A movie in a trailer's record is the record's, of whatever type.
    uint32_t const limit = layout.tail ? trailer::startOf(*layout.tail) : layout.fileSize;
    std::optional<uint32_t> const from =
        layout.isHEIC ? std::optional(appendedMovie(layout.topLevel)) : findStillEnd(*photo);
    if (!from)
        return {};
    // A claimed movie is no find: the bytes in front of it and behind it are searched.
    uint32_t const end = claimed.isSound() ? std::clamp(claimed.position, *from, limit) : limit;
    Search search(layout, end);
    searchBytes(search, *photo, *from, end);
    if (search.result().isSound() || !claimed.isSound())
        return search.result();
    Search behind(layout, limit);
    searchBytes(behind, *photo, std::max(*from, claimed.position + claimed.size), limit);
    return behind.result().status != Status::NONE ? behind.result() : search.result();
}

MediaDefs::MimeType MotionVideo::mimeType() const {
    if (brand.empty())
        return MediaDefs::MimeType::NONE;
    return brand == "qt  " ? MediaDefs::MimeType::VIDEO_QUICKTIME : MediaDefs::MimeType::VIDEO_MP4;
}

void MotionVideo::copyTo(std::shared_ptr<MediaFile> const& photo, std::shared_ptr<MediaFile> const& target) const {
    if (photo == nullptr || target == nullptr || !isSound())
        throw ErrorAt()("no sound video to copy");
    if (checked::isSameFile(*photo, *target))
        throw ErrorAt()("the video's target is the photo itself: %s", target->toString().c_str());
    auto const now = movie::walk(*photo, position, size);
    if (!now.isSound() || now.brand != brand)
        throw ErrorAt().as(Error::Code::CHANGED, *photo)("the photo has changed since it was read: no video at %zu",
                                                         size_t{position});
    checked::copy(photo, target, position, size);
}

std::optional<int64_t> MotionVideo::durationUs(std::shared_ptr<MediaFile> const& photo) const {
    if (!isSound())
        return std::nullopt;
    try {
        auto const duration = videoDurationUs(*photo, position, size);
        return duration > 0 ? std::optional(duration) : std::nullopt; // one in fragments may leave it open
    } catch (std::runtime_error const&) {
        rethrowUnlessDamage();
        return std::nullopt;
    }
}

char const* MotionVideo::nameOf(Source source) {
    constexpr char const* NAMES[] = {"none", "trailer", "box", "directory", "micro-video", "scan"};
    auto const index = static_cast<size_t>(source);
    return index < std::size(NAMES) ? NAMES[index] : NAMES[0];
}

char const* MotionVideo::nameOf(Status status) {
    constexpr char const* NAMES[] = {"none", "sound", "damaged"};
    auto const index = static_cast<size_t>(status);
    return index < std::size(NAMES) ? NAMES[index] : NAMES[0];
}

} // namespace android::lumo
