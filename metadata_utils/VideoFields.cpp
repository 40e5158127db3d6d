// SPDX-License-Identifier: Apache-2.0
#include "VideoFields.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "StillEnd.h"
#include "VideoClaims.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
namespace names = motion_names;
/// Bytes of which nothing is known.
constexpr char UNKNOWN_KIND[] = "application/octet-stream";

std::optional<uint32_t> numberOf(std::string const& text) {
    auto const value = claims::parseNumber(text);
    bool const isLength = value && *value > 0 && *value <= UINT32_MAX;
    return isLength ? std::optional(static_cast<uint32_t>(*value)) : std::nullopt;
}

/// The items whose bytes in the file begin a JPEG picture, and a JPEG's gain map, which is one wherever it stands.
std::set<std::string> namesOfPictures(XMPInfoImpl const& view) {
    std::set<std::string> names;
    MediaFile const& file = *view.getFile();
    if (file.mimeType() == MediaDefs::MimeType::IMAGE_JPEG)
        names.insert("GainMap");
    uint32_t const size = file.size();
    auto const held = claims::read(*view.packetInFile());
    uint64_t distance = 0;
    for (auto item = held.items.rbegin(); item != held.items.rend() && distance <= size; ++item) {
        if (item->length > size || item->padding > size)
            break;
        distance += item->length + item->padding;
        if (item->length > 0 && distance <= size && beginsPicture(file, size - distance))
            names.insert(item->semantic);
    }
    return names;
}

/// Whether the bytes that a JPEG's primary claims behind it are the photo's own: they lead to another picture, a gain
/// map, that the directory names next. What the trailer has in front of the video comes behind that one.
bool isPaddingOwn(XMPInfoImpl const& view) {
    auto const held = claims::read(*view.getMeta());
    auto const* primary = held.primary();
    if (primary == nullptr || primary->padding == 0)
        return false;
    bool const isPictureNext = std::any_of(held.items.begin(), held.items.end(), [&](auto const& item) {
        return item.place == primary->place + 1 && !item.isVideo();
    });
    MediaFile const& file = *view.getFile();
    if (!isPictureNext || file.mimeType() != MediaDefs::MimeType::IMAGE_JPEG)
        return false;
    auto const end = findStillEnd(file);
    return end && primary->padding < file.size() && beginsPicture(file, *end + primary->padding);
}

} // namespace

/// As views list it: a value, or an array or a struct of nothing.
bool VideoFields::holds(std::string const& name) const {
    XMP_OptionBits form = 0;
    if (!view.getMeta()->get(xmp_ns::CAMERA, name, &form))
        return false;
    return (form & kXMP_PropCompositeMask) == 0 || view.containsProperty("GCamera:" + name, false);
}

bool VideoFields::isClaimed() const {
    return view.getProperty(xmp_ns::CAMERA, names::MOTION_PHOTO) == "1";
}

void VideoFields::claim() {
    packet.setProperty(xmp_ns::CAMERA, names::MOTION_PHOTO, "1");
    packet.setProperty(xmp_ns::CAMERA, names::VERSION, "1");
}

void VideoFields::addItem() {
    if (!containsItem())
        fillKinds();
    packet.setItem(ITEM, MediaDefs::MimeType::VIDEO_MP4);
}

std::string VideoFields::timestamp() const {
    return view.getProperty(xmp_ns::CAMERA, TIMESTAMP);
}

void VideoFields::setTimestamp(int64_t us) {
    packet.setProperty(xmp_ns::CAMERA, TIMESTAMP, std::to_string(us));
    if (!view.getProperty(xmp_ns::CAMERA, names::MICRO_VIDEO_TIMESTAMP).empty())
        packet.setProperty(xmp_ns::CAMERA, names::MICRO_VIDEO_TIMESTAMP, std::to_string(us));
}

void VideoFields::setPlace(uint32_t length, uint32_t padding) {
    setPrimaryPadding(view.getItemField(PRIMARY_ITEM, names::PADDING), padding);
    addItem();
    setLength(length);
    if (view.getItemField(ITEM, names::PADDING) != "0")
        packet.replaceItemField(ITEM, names::PADDING, "0");
}

void VideoFields::setLength(uint32_t length) {
    std::string const value = std::to_string(length);
    if (view.getItemField(ITEM, names::LENGTH) != value)
        packet.replaceItemField(ITEM, names::LENGTH, value);
    std::string const offset = view.getProperty(xmp_ns::CAMERA, names::MICRO_VIDEO_OFFSET);
    if (!offset.empty() && offset != value)
        packet.setProperty(xmp_ns::CAMERA, names::MICRO_VIDEO_OFFSET, value);
}

void VideoFields::correctPadding(uint32_t padding) {
    auto const held = view.getItemField(PRIMARY_ITEM, names::PADDING);
    if (!held.empty())
        setPrimaryPadding(held, padding);
}

/// `held` is what it has now; bytes of the photo's own stay named.
void VideoFields::setPrimaryPadding(std::string const& held, uint32_t padding) {
    std::string const value = std::to_string(padding);
    bool const namesBytes = !held.empty() && held != "0";
    if (held != value && !(namesBytes && isPaddingOwn(view)))
        packet.replaceItemField(PRIMARY_ITEM, names::PADDING, value);
}

void VideoFields::follow(size_t size, size_t position, size_t padding) {
    if (position == 0 || position > size || !containsItem())
        return;
    LOGI("update MotionPhoto::Length to %zu, size=%zu, pos=%zu", size - position, size, position);
    setLength(static_cast<uint32_t>(size - position));
    if (padding <= size) // a JPEG's pointer may lead into the image
        correctPadding(static_cast<uint32_t>(padding));
}

void VideoFields::clear() {
    for (auto const* name : names::CURRENT)
        packet.removeProperty(xmp_ns::CAMERA, name);
    for (auto const* name : names::OLDER) {
        if (!view.getProperty(xmp_ns::CAMERA, name).empty())
            packet.removeProperty(xmp_ns::CAMERA, name);
    }
    while (view.containsItemField(ITEM, "Semantic")) // a damaged directory may name it twice
        packet.removeItem(ITEM);
    if (view.getDirectory().getFirstUnread() != 0) { // it may name it where no view reads
        claims::remove(*view.getMeta());
        view.reindex();
    }
    if (!isPaddingOwn(view))
        packet.replaceItemField(PRIMARY_ITEM, names::PADDING, "0");
}

bool VideoFields::containsPrimary() const {
    return view.containsItem(PRIMARY_ITEM, false) && !view.getItemField(PRIMARY_ITEM, "Mime").empty();
}

void VideoFields::fillPrimary(MediaDefs::MimeType mime) {
    if (view.containsItem(PRIMARY_ITEM, false)) {
        packet.setItemField(PRIMARY_ITEM, "Mime", MediaDefs::mimeString(mime));
        return;
    }
    if (!view.getItemNames().empty()) { // behind another item it would be no picture
        claims::putPrimaryFirst(*view.getMeta(), MediaDefs::mimeString(mime));
        view.reindex();
    }
    packet.setItem(PRIMARY_ITEM, mime);
    packet.setItemField(PRIMARY_ITEM, names::PADDING, "0");
}

void VideoFields::fillKinds() {
    auto const& directory = view.getDirectory();
    auto const first = directory.getFirstUnread();
    auto const name = first != 0 ? directory.nameAt(first) : std::nullopt;
    if (!name)
        return;
    auto const pictures = namesOfPictures(view);
    auto const kindOf = [&](std::string const& item) -> std::string {
        if (item == PRIMARY_ITEM)
            return MediaDefs::mimeString(view.getFile()->mimeType());
        if (item == ITEM)
            return MediaDefs::mimeString(MediaDefs::MimeType::VIDEO_MP4);
        return pictures.contains(item) ? MediaDefs::mimeString(MediaDefs::MimeType::IMAGE_JPEG) : UNKNOWN_KIND;
    };
    for (auto place = first + 1; place <= directory.count(); ++place) {
        auto const kind = XMPItemInfo::structPathAt(place) + "/Item:Mime";
        if (auto const behind = directory.nameAt(place); behind && !view.getMeta()->has(xmp_ns::CONTAINER, kind))
            view.getMeta()->set(xmp_ns::CONTAINER, kind, kindOf(*behind));
    }
    packet.setItemField(*name, "Mime", kindOf(*name)); // with it the rest is read
}

void VideoFields::dropWithdrawn() {
    while (view.containsItemField(ITEM, "Semantic"))
        packet.removeItem(ITEM);
    if (!claims::parseNumber(timestamp()))
        packet.removeProperty(xmp_ns::CAMERA, TIMESTAMP);
}

VideoFields::Claim VideoFields::getClaim() const {
    Claim claim;
    auto const take = [&](char const* name) {
        if (holds(name))
            claim[name] = view.getProperty(xmp_ns::CAMERA, name);
    };
    for (auto const* name : names::CURRENT)
        take(name);
    for (auto const* name : names::OLDER)
        take(name);
    return claim;
}

void VideoFields::setClaim(Claim const& claim) {
    for (auto const& [name, value] : getClaim()) {
        if (!claim.contains(name))
            packet.removeProperty(xmp_ns::CAMERA, name);
    }
    for (auto const& [name, value] : claim)
        packet.setProperty(xmp_ns::CAMERA, name, value);
}

std::optional<uint32_t> VideoFields::lengthOf(XMPInfo const& info) {
    if (auto const length = numberOf(info.getItemField(ITEM, names::LENGTH)))
        return length;
    return numberOf(info.getProperty(xmp_ns::CAMERA, names::MICRO_VIDEO_OFFSET));
}

bool VideoFields::standsAt(MediaFile const& file, uint32_t length) {
    constexpr char VIDEO_START[] = "ftyp"; // behind the box's size
    constexpr uint32_t TYPE_OFFSET = 4;
    uint32_t const size = file.size();
    if (length < 2 * TYPE_OFFSET || length > size)
        return false;
    auto const bytes = checked::readAt(file, size - length + TYPE_OFFSET, TYPE_OFFSET);
    return std::memcmp(bytes.data(), VIDEO_START, TYPE_OFFSET) == 0;
}

std::optional<uint32_t> VideoFields::find(MediaFile const& file, XMPInfo const& packet, int64_t growth) {
    for (uint64_t const distance : claims::read(*XMPInfoImpl::of(packet)->getMeta()).distances()) {
        int64_t const length = static_cast<int64_t>(distance) + growth;
        if (length >= 0 && length <= int64_t{file.size()} && standsAt(file, static_cast<uint32_t>(length)))
            return static_cast<uint32_t>(length);
    }
    return std::nullopt;
}

void VideoFields::requireKept(std::shared_ptr<MediaFile> const& file, TrailerPlan const& planned) {
    std::vector<uint64_t> distances;
    try {
        XMPInfoImpl held(file);
        held.takeOthersThatAgree();
        distances = claims::read(*held.getMeta()).distances();
    } catch (...) {
        rethrowUnlessDamage();
        LOGD("no XMP that could say where a video is");
    }
    uint32_t const size = file->size();
    for (uint64_t const distance : distances) {
        if (distance > size || !standsAt(*file, static_cast<uint32_t>(distance)))
            continue;
        uint32_t const position = size - static_cast<uint32_t>(distance);
        std::optional<uint32_t> now = position;
        if (position >= planned.getGround().image) {
            now = planned.newPlaceOf(position - planned.start());
            if (now)
                *now += planned.start();
        }
        if (!now || planned.finalSize() - *now != distance)
            throw ErrorAt()(
                "the XMP finds the video %llu bytes in front of the file's end and would be wrong: edit the "
                "trailer through the motion photo",
                static_cast<unsigned long long>(distance));
    }
}

} // namespace android::lumo
