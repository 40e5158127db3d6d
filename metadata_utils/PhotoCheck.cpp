// SPDX-License-Identifier: Apache-2.0
#include "PhotoCheck.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "PhotoLayout.h"
#include "StillEnd.h"
#include "TrailerForm.h"
#include "io/HEIFMetaWriter.h"
#include "io/ImageIndex.h"

#include <algorithm>
#include <cstring>

namespace android::lumo {

namespace {

using Severity = PhotoCheck::Severity;
using Source = MotionVideo::Source;

/// Collects what the rules find about one photo.
class Checker {
public:
    explicit Checker(std::shared_ptr<MediaFile> const& photo) : layout(photo) { result.video = layout.locate(); }

    PhotoCheck run() {
        checkContainer();
        checkTrailer();
        checkVideo();
        checkProperties();
        checkDirectory();
        checkPictures();
        checkOrphan();
        settle();
        return result;
    }

private:
    void add(char const* id, uint32_t offset, std::string const& expected, std::string const& found) {
        auto const& rules = PhotoCheck::rules();
        auto const rule =
            std::find_if(rules.begin(), rules.end(), [&](auto const& each) { return std::strcmp(each.id, id) == 0; });
        result.findings.push_back({&*rule, offset, expected, found});
    }
    bool isHere(char const* id) const { return result.has(id); }

    void checkContainer();
    void checkTrailer();
    void checkRecord(QRTDataInfo const& record);
    void checkVideo();
    void checkMoment();
    void checkProperties();
    void checkDirectory();
    void checkClaimOfDirectory(claims::Item const& item);
    void checkPadding();
    void checkPictures();
    void checkGainMap(claims::Item const& item, image_index::Index const& index);
    void checkOrphan();
    void settle();

    bool isPicture(uint64_t position) const;
    MotionVideo const& video() const { return result.video; }

    PhotoLayout layout;
    std::optional<uint32_t> stillEnd;
    PhotoCheck result;
};

std::string number(uint64_t value) {
    return std::to_string(value);
}

std::string range(uint32_t position, uint32_t size) {
    return number(size) + " bytes at " + number(position);
}

// The container and the trailer. --------------------------------------------------------------------------------------

void Checker::checkContainer() {
    stillEnd = findStillEnd(*layout.file);
    if (!layout.isHEIC && !stillEnd)
        add("jpeg-segments", layout.fileSize, "segments and scans up to an end of image", "none");
    if (layout.isHEIC && layout.topLevel.damage)
        add("heic-boxes", layout.boxFaultPosition(), "boxes up to the file's end", layout.boxFault());
    if (!layout.xmpFault.empty())
        add("xmp-packet", 0, "an XMP packet", layout.xmpFault);
}

void Checker::checkTrailer() {
    if (!layout.trailerFault.empty())
        add("trailer-whole", layout.fileSize, "records and directory that fit the file", layout.trailerFault);
    if (layout.hasHiddenTrailer())
        add("trailer-last", layout.topLevel.find(TRAILER_BOX)->position, "the trailer's box last", "boxes behind it");
    if (layout.tail && layout.isHEIC && !layout.topLevel.boxes.empty()) {
        auto const& last = layout.topLevel.boxes.back();
        if (last.type != TRAILER_BOX)
            add("trailer-box", layout.tail->position, "a box 'qrtd' around the trailer",
                "box '" + boxTypeText(last.type) + "'");
    }
    auto const isVideo = [](auto const& record) { return record.type == qrt::TYPE_MOTION_PHOTO_DATA; };
    auto const count = std::count_if(layout.records.begin(), layout.records.end(), isVideo);
    if (count > 1)
        add("trailer-one-video", layout.tail->position, "one record 2608", number(static_cast<uint64_t>(count)));
    if (auto const* record = layout.videoRecord())
        checkRecord(*record);
}

void Checker::checkRecord(QRTDataInfo const& record) {
    auto const claim = layout.fromTrailer();
    auto const stored = trailer::storedData(record, layout.tail->position);
    if (!claim.isSound()) {
        add("trailer-video", stored.position, "a whole movie", claim.reason);
        return;
    }
    auto const form = published::TrailerForm::of(layout, claim);
    if (form.isShort)
        add("trailer-pointer-size", stored.position, "a pointer, or more than 125000 bytes", number(stored.size));
    if (form.isOtherBrand)
        add("trailer-brand", claim.position, "\"mp42\" or \"qt  \"", "\"" + claim.brand + "\"");
    if (!form.version.empty())
        add("trailer-version", form.versionPosition, "\"" + form.version + "\"", "\"" + form.versionFound + "\"");
    if (!layout.videoBox)
        return;
    uint32_t const size = layout.videoBox->size - layout.videoBox->headerSize;
    if (claim.position != layout.videoBox->content() || claim.size != size)
        add("pointer-box", stored.position, range(layout.videoBox->content(), size), range(claim.position, claim.size));
}

// The video and the properties. ---------------------------------------------------------------------------------------

void Checker::checkVideo() {
    if (layout.videoBox) {
        if (auto const claim = layout.fromBox(); !claim.isSound())
            add("movie-boxes", layout.videoBox->content(), "a movie that fills its box", claim.reason);
    }
    if (video().isSound())
        checkMoment();
}

/// What no extractor opens plays nowhere: its duration is not asked for.
void Checker::checkMoment() {
    if (!video().momentUs)
        return;
    auto const duration = video().durationUs(layout.file);
    if (duration && *video().momentUs > *duration)
        add("moment-inside", video().position, "up to " + number(static_cast<uint64_t>(*duration)) + " us",
            number(static_cast<uint64_t>(*video().momentUs)) + " us");
}

void Checker::checkProperties() {
    auto const& claims = layout.claims;
    bool const isClaimed = claims.motionPhoto == "1" || claims.microVideo == "1";
    if (video().isSound() && !isClaimed)
        add("xmp-claim", 0, "GCamera:MotionPhoto 1",
            claims.motionPhoto.empty() ? "none" : "\"" + claims.motionPhoto + "\"");
    if (!video().isSound() && isClaimed)
        add("stale-claim", 0, "a video", video().reason.empty() ? "nothing but properties" : video().reason);
    if (!claims.timestamp.empty() && claims.timestamp != "-1" && !claims::parseNumber(claims.timestamp))
        add("moment-number", 0, "microseconds, or -1", "\"" + claims.timestamp + "\"");
    if (claims.microVideo != "1" || !video().isSound())
        return;
    uint64_t const distance = uint64_t{layout.fileSize} - video().position;
    if (claims::parseNumber(claims.microVideoOffset) != distance)
        add("micro-video", 0, number(distance), "\"" + claims.microVideoOffset + "\"");
}

// The directory. ------------------------------------------------------------------------------------------------------

void Checker::checkDirectory() {
    auto const& items = layout.claims.items;
    if (items.empty()) {
        if (video().isSound() && layout.claims.motionPhoto == "1")
            add("directory-video", 0, "an item MotionPhoto", "no directory");
        return;
    }
    for (auto const& item : items) {
        if (item.semantic.empty() || item.mime.empty())
            add("directory-fields", 0, "Semantic and Mime", "item " + number(static_cast<uint64_t>(item.place)));
    }
    if (!items.front().isPrimary())
        add("directory-order", 0, "Primary first", items.front().semantic);
    auto const* item = layout.claims.video();
    if (item == nullptr) {
        if (video().isSound() && layout.claims.motionPhoto == "1") // the older format has no item
            add("directory-video", 0, "an item MotionPhoto", "none");
        return;
    }
    if (item->place != items.back().place)
        add("directory-order", 0, "MotionPhoto last", items.back().semantic);
    checkClaimOfDirectory(*item);
    checkPadding();
}

/// With a trailer "Length" runs to the file's end; without one the claim has to hold by itself.
void Checker::checkClaimOfDirectory(claims::Item const& item) {
    if (!video().isSound()) {
        if (!isHere("stale-claim") && layout.claims.motionPhoto != "0") // which withdraws the claim
            add("stale-claim", 0, "a video", layout.fromDirectory().reason);
        return;
    }
    uint64_t const distance = layout.claims.distanceFromEnd(item);
    uint64_t const expected = uint64_t{layout.fileSize} - video().position;
    bool const runsToEnd = layout.tail && item.length == expected;
    if (distance != expected) {
        add("directory-video", static_cast<uint32_t>(layout.fileSize - std::min<uint64_t>(distance, layout.fileSize)),
            number(expected) + " bytes from the end", number(distance));
    } else if (video().source != Source::TRAILER && item.length != video().size && !runsToEnd) {
        add("directory-video", video().position, "Length " + number(video().size), number(item.length));
    }
}

void Checker::checkPadding() {
    auto const* primary = layout.claims.primary();
    if (primary == nullptr || !video().isSound())
        return;
    uint64_t expected = 0, other = 0;
    if (layout.isHEIC) {
        expected = layout.videoBox ? layout.videoBox->headerSize : 0;
        other = 8; // what this library's editor claims for every box
    } else {
        auto const* item = layout.claims.video();
        for (auto const& each : layout.claims.items)
            other += !each.isPrimary() && item != nullptr && each.place < item->place ? each.length + each.padding : 0;
        uint64_t const gap = video().position - std::min(stillEnd.value_or(0), video().position);
        other = expected = gap - std::min(other, gap);
        if (video().source == Source::TRAILER && layout.tail)
            expected = video().position - std::min(trailer::startOf(*layout.tail), video().position);
    }
    if (!layout.isHEIC && primary->padding > 0 && isPicture(stillEnd.value_or(0) + primary->padding))
        return; // the photo's own, in front of a gain map
    if (primary->padding != expected && primary->padding != other)
        add("primary-padding", 0, number(expected), number(primary->padding));
}

// Pictures behind the primary. ----------------------------------------------------------------------------------------

bool Checker::isPicture(uint64_t position) const {
    return position > 0 && beginsPicture(*layout.file, position);
}

void Checker::checkPictures() {
    if (layout.isHEIC)
        return;
    auto const index = image_index::read(*layout.file);
    for (auto const& image : index.images) {
        if (image.position != 0 &&
            (!isPicture(image.position) || !rangeFits(image.position, image.size, layout.fileSize)))
            add("mpf-image", image.offsetField, "a JPEG at " + number(image.position), "none");
    }
    for (auto const& item : layout.claims.items) {
        if (item.semantic == "GainMap" && item.length > 0)
            checkGainMap(item, index);
    }
}

/// Readers add up the items from the picture's end, count them from the file's end, or follow the MPF index.
void Checker::checkGainMap(claims::Item const& item, image_index::Index const& index) {
    uint64_t forward = stillEnd.value_or(0);
    for (auto const& each : layout.claims.items)
        forward += !each.isPrimary() && each.place < item.place ? each.length + each.padding : 0;
    auto const* primary = layout.claims.primary();
    uint64_t const padding = primary != nullptr ? primary->padding : 0;
    uint64_t const distance = layout.claims.distanceFromEnd(item);
    bool const isAdded = isPicture(forward + padding);
    bool const isBehind = isPicture(forward);
    bool const isCounted = distance < layout.fileSize && isPicture(layout.fileSize - distance);
    bool const isIndexed = std::any_of(index.images.begin(), index.images.end(),
                                       [&](auto const& image) { return isPicture(image.position); });
    auto const place = static_cast<uint32_t>(std::min<uint64_t>(forward, layout.fileSize));
    if (!isAdded && isBehind)
        add("gain-map-padding", place, "no Padding in front of the gain map", number(padding));
    else if (!isAdded && !isCounted && !isIndexed)
        add("gain-map", place, "a JPEG", "none, counted from the picture, the file's end, or by the MPF index");
}

// The whole. ----------------------------------------------------------------------------------------------------------

void Checker::checkOrphan() {
    auto const found = MotionVideo::scan(layout.file);
    bool const isJudged = video().isSound() || (video().position == found.position && found.position != 0);
    if (found.isSound()) {
        result.orphan = found;
        add("orphan-movie", found.position, "a claim", range(found.position, found.size));
    } else if (found.status == MotionVideo::Status::DAMAGED && !isJudged) {
        add("torn-movie", found.position, "a whole movie, to claim or to take out", found.reason);
    }
}

void Checker::settle() {
    auto& findings = result.findings;
    std::stable_sort(findings.begin(), findings.end(), [](auto const& a, auto const& b) { return a.rule < b.rule; });
    bool const hasErrors = std::any_of(findings.begin(), findings.end(),
                                       [](auto const& each) { return each.rule->severity == Severity::ERROR; });
    result.verdict = hasErrors           ? PhotoCheck::Verdict::DAMAGED
                     : video().isSound() ? PhotoCheck::Verdict::SOUND
                                         : PhotoCheck::Verdict::NONE;
}

} // namespace

PhotoCheck PhotoCheck::run(std::shared_ptr<MediaFile> const& photo) {
    return Checker(photo).run();
}

bool PhotoCheck::has(char const* ruleId) const {
    return std::any_of(findings.begin(), findings.end(),
                       [&](auto const& each) { return std::strcmp(each.rule->id, ruleId) == 0; });
}

std::vector<PhotoCheck::Rule> const& PhotoCheck::rules() {
    static std::vector<Rule> const table{
        {"jpeg-segments", Severity::ERROR, true, "a JPEG's segments and scans add up to an end of image"},
        {"heic-boxes", Severity::ERROR, true, "a HEIC's top-level boxes add up to the file's end"},
        {"xmp-packet", Severity::ERROR, true, "the XMP packet can be parsed"},
        {"trailer-whole", Severity::ERROR, false, "the trailer's directory and records fit the file"},
        {"trailer-last", Severity::ERROR, false, "no box stands behind the trailer's box"},
        {"trailer-box", Severity::ERROR, false, "a HEIC's trailer fills a last box 'qrtd'"},
        {"trailer-one-video", Severity::ERROR, false, "one record 2608 at most"},
        {"trailer-video", Severity::ERROR, false, "record 2608 is a whole movie or a pointer to one"},
        {"trailer-pointer-size", Severity::ERROR, false, "a movie inside record 2608 has more than 125,000 bytes"},
        {"trailer-brand", Severity::ERROR, false, "the movie's major brand is one that the views recognise"},
        {"trailer-version", Severity::ERROR, false,
         "a HEIC's record 2609 says \"mpv1\" where the video stands in record 2608, and nowhere else"},
        {"pointer-box", Severity::ERROR, false, "the trailer's pointer leads to the content of the box 'mpvd'"},
        {"movie-boxes", Severity::ERROR, true, "the movie's boxes end where its box 'mpvd' ends"},
        {"stale-claim", Severity::ERROR, true, "a video that the XMP claims is there, whole"},
        {"xmp-claim", Severity::WARNING, true, "a photo with a video says GCamera:MotionPhoto 1"},
        {"micro-video", Severity::ERROR, true, "GCamera:MicroVideoOffset is the video's distance from the file's end"},
        {"moment-number", Severity::WARNING, true, "the presentation timestamp is a number of microseconds, or -1"},
        {"moment-inside", Severity::WARNING, true, "the presentation timestamp lies inside the video"},
        {"directory-fields", Severity::WARNING, true, "every directory item has Semantic and Mime"},
        {"directory-order", Severity::WARNING, true, "the item Primary comes first, MotionPhoto last"},
        {"directory-video", Severity::ERROR, true,
         "the item MotionPhoto leads to the video, counted from the file's end"},
        {"primary-padding", Severity::NOTE, true, "Primary's Padding is the bytes between picture and next item"},
        {"mpf-image", Severity::ERROR, true, "every picture of the MPF index is a JPEG inside the file"},
        {"gain-map", Severity::ERROR, true, "the gain map is found where readers look for it"},
        {"gain-map-padding", Severity::NOTE, false,
         "no Padding of this library's trailer is claimed in front of a gain map"},
        {"orphan-movie", Severity::WARNING, false, "every whole movie behind the picture is claimed"},
        {"torn-movie", Severity::ERROR, false, "a movie that begins behind the picture is whole"},
    };
    return table;
}

char const* PhotoCheck::nameOf(Severity severity) {
    constexpr char const* NAMES[] = {"note", "warning", "error"};
    auto const index = static_cast<size_t>(severity);
    return index < std::size(NAMES) ? NAMES[index] : NAMES[0];
}

} // namespace android::lumo
