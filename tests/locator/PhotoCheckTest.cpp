// SPDX-License-Identifier: Apache-2.0
#include "PhotoCheck.h"
#include "LocatorFixture.h"

#include <set>

namespace android::lumo::test {

namespace {

/// A photo, the ids that check reports, and those of what repair leaves; "=" where it leaves the file as it is.
using Sample = std::tuple<std::string, std::string, std::string>;

std::string idsOf(PhotoCheck const& check) {
    std::string text;
    for (auto const& finding : check.findings)
        text += (text.empty() ? "" : " ") + std::string(finding.rule->id);
    return text;
}

/// A HEIC with a video box, claims for it, and a trailer whose pointer is `shift` off.
std::string heic(std::string const& movie, int shift, std::string const& behind = {}, std::string const& version = {}) {
    auto const build = [&](size_t position) {
        std::vector<TrailerRecord> records{videoRecord(pointerTo(position, movie.size()))};
        if (!version.empty())
            records.push_back({2609, "MotionPhoto_Version", version});
        std::string const trailer = qrtdBox(trailerBytes(records));
        return heicWith(videoBox(movie) + trailer + behind,
                        itemOf("Primary", "image/heic", paddingOf(8)) +
                            videoItem(movie.size() + trailer.size() + behind.size()));
    };
    return build(build(0).find("mpvd") + 4 + static_cast<size_t>(shift));
}

/// A JPEG with a trailer and the XMP this library writes for it.
std::string withTrailer(std::string const& movie, std::string const& items = PRIMARY, std::string const& inFront = {}) {
    std::string const trailer = trailerBytes({{2608, "MotionPhoto_Data", movie}});
    return published(itemOf("Primary", "image/jpeg", paddingOf(24)) + items + videoItem(trailer.size() - 24),
                     inFront + trailer);
}

/// A HEIC with XMP that says nothing, and these boxes behind its image.
std::string heicOf(std::string const& tail) {
    return buildHeic({.xmp = packetOf("") + std::string(1500, ' '), .tail = tail});
}

std::string const NO_TRAILER = "QRTH" + little(0) + little(9) + little(12) + "QRTT";

std::vector<Sample> samples() {
    std::string const movie = clip(), big = clip(126'000), isom = clip(126'000, "isom");
    std::string const video = videoItem(movie.size());
    std::string const noMedia = heicBox("ftyp", "mp42" + bigEndian(0, 4)) + heicBox("moov", heicBox("free", ""));
    std::string const tornMovie = noMedia + heicBox("mdat", pattern(99)).substr(0, 60);
    std::string const played = bytesOf(std::string(SAMPLES_DIR) + "/clip.mp4"); // 2.5 s
    std::string const whole = published(PRIMARY, "", "");
    std::string const box = videoBox(movie);
    auto const pointing = [&](size_t behind) { // to a movie so far behind the first
        return trailerBytes({videoRecord(pointerTo(heicOf(box).find("mpvd") + 4 + behind, movie.size()))});
    };
    std::string const otherMoment = R"(Camera:MotionPhoto="1" Camera:MotionPhotoPresentationTimestampUs="soon")";
    TrailerRecord const record{2608, "MotionPhoto_Data", big}, twin{2608, "Twin", big};
    std::string const claimsNothing = JpegBuilder().build("scan", trailerBytes({record}));
    return {
        // Sound, or nothing to say.
        {whole, "", "="},
        {published(PRIMARY + video, movie), "", "="},
        {withTrailer(big, ""), "", "="},
        {heic(movie, 0), "", "="},
        // One rule each.
        {published(PRIMARY + videoItem(played.size()), played,
                   R"(Camera:MotionPhoto="1" Camera:MotionPhotoPresentationTimestampUs="90000000" )"),
         "moment-inside", "="},
        {whole.substr(0, whole.size() - 4), "jpeg-segments", "="},
        {heicOf("\1\2\3\4junk"), "heic-boxes", "="},
        {JpegBuilder().xmp("<x:xmpmeta").build(), "xmp-packet", "="},
        {buildHeic({.xmp = packetOf(""), .xmpExtents = 2}), "xmp-packet", "="},
        {published(PRIMARY + video, NO_TRAILER), "trailer-whole stale-claim", "="},
        {heic(movie, 0, heicBox("free", "cdif debug info")), "trailer-last directory-video", ""},
        {JpegBuilder().build("scan", trailerBytes({record, twin})), "trailer-one-video xmp-claim", "trailer-one-video"},
        {JpegBuilder().build("scan", trailerBytes({{2608, "V", pattern(126'000)}})), "trailer-video", "="},
        {JpegBuilder().build("scan", trailerBytes({{2608, "V", movie}})), "trailer-pointer-size xmp-claim", ""},
        {withTrailer(isom, ""), "trailer-brand", ""},
        {heic(movie, 0, "", "mpv1"), "trailer-version", ""},
        {claimsNothing, "xmp-claim", ""},
        {heic(movie, 8), "trailer-video", ""},
        {heicOf(box + heicBox("skip", pointing(0))), "trailer-box xmp-claim", "trailer-box"},
        {heicOf(box + box + qrtdBox(pointing(box.size()))), "pointer-box xmp-claim orphan-movie",
         "pointer-box orphan-movie"},
        {heicOf(videoBox(movie.substr(0, movie.size() - 2))), "movie-boxes", "="},
        {heicOf(box), "xmp-claim", ""},
        {published(PRIMARY + video, ""), "stale-claim", ""},
        {published(PRIMARY + video, movie, CLAIMED + microVideo("77")), "micro-video", ""},
        {published(PRIMARY + video, movie, otherMoment), "moment-number", ""},
        {published(entryOf("Item:Semantic=\"Primary\"") + video, movie), "directory-fields", "="},
        {published(video + PRIMARY, movie), "directory-order directory-order", "="},
        {published(PRIMARY + video +
                       itemOf("Extra", "video/mp4", "Item:Length=\"" + std::to_string(movie.size()) + "\""),
                   movie + movie),
         "directory-order", "="},
        {published(PRIMARY, movie, CLAIMED + microVideo(std::to_string(movie.size()))), "directory-video", ""},
        {published(itemOf("Primary", "image/jpeg", paddingOf(5)) + video, movie), "primary-padding", "="},
        {JpegBuilder().mpf(mpfIndex(99, GAIN_MAP.size(), 60)).build(), "mpf-image", "="},
        {published(PRIMARY + gainMapItem(), "no picture here, only as many bytes", ""), "gain-map", "="},
        {withTrailer(big, gainMapItem(), GAIN_MAP), "gain-map-padding", "="},
        {JpegBuilder().build("scan", movie), "orphan-movie", ""},
        {published(PRIMARY + video, tornMovie), "stale-claim torn-movie", "="},
        {JpegBuilder().build("scan", noMedia), "torn-movie", "="},
    };
}

} // namespace

TEST(PhotoCheck, NamesTheRuleThatAPhotoBreaksAndRepairMakesTheClaimsAgree) {
    std::set<std::string> met;
    for (auto const& [photo, expected, afterRepair] : samples()) {
        TempFile const file(photo), output;
        auto const check = PhotoCheck::run(file.open("r"));
        EXPECT_EQ(idsOf(check), expected);
        bool hasError = false;
        for (auto const& finding : check.findings) {
            met.insert(finding.rule->id);
            hasError |= finding.rule->severity == PhotoCheck::Severity::ERROR;
            EXPECT_FALSE(finding.expected.empty() || finding.found.empty()) << finding.rule->id;
        }
        EXPECT_EQ(check.verdict, hasError                ? PhotoCheck::Verdict::DAMAGED
                                 : check.video.isSound() ? PhotoCheck::Verdict::SOUND
                                                         : PhotoCheck::Verdict::NONE);
        auto const repair = Repair::run(file.open(), {}, output.open());
        EXPECT_EQ(repair.isChanged(), afterRepair != "=") << expected;
        EXPECT_EQ(idsOf(repair.after), afterRepair == "=" ? expected : afterRepair) << expected;
        EXPECT_EQ(output.bytes() == photo, afterRepair == "=") << expected;
        EXPECT_TRUE(file.bytes() == photo);
        Repair::run(file.open());
        EXPECT_TRUE(file.bytes() == output.bytes()) << expected;
    }
    std::string const document = bytesOf(std::string(SAMPLES_DIR) + "/../docs/rules.md");
    for (auto const& rule : PhotoCheck::rules()) {
        EXPECT_TRUE(met.contains(rule.id)) << rule.id << " has no sample";
        std::string const row = "| `" + std::string(rule.id) + "` | " + PhotoCheck::nameOf(rule.severity) + " | " +
                                (rule.isPublished ? "published" : "own") + " |";
        EXPECT_NE(document.find(row), std::string::npos) << row;
    }
}

TEST(PhotoCheck, RepairTakesAMovieThatNothingClaimsOutWhereItIsAsked) {
    std::string const movie = clip(), orphan = clip(99);
    std::string const inFront = published(PRIMARY + videoItem(movie.size()), orphan + movie);
    std::string const behind = published(PRIMARY + videoItem(movie.size(), paddingOf(orphan.size())), movie + orphan);
    for (auto const& [photo, place] :
         {std::pair(inFront, inFront.size() - movie.size() - orphan.size()),
          std::pair(behind, behind.size() - orphan.size()), std::pair(heic(movie, 0, videoBox(orphan)), size_t{0})}) {
        TempFile const file(photo);
        auto const repair = Repair::run(file.open(), {.dropOrphans = true});
        EXPECT_EQ(idsOf(repair.after), "");
        EXPECT_EQ(file.bytes().substr(repair.after.video.position, movie.size()), movie);
        EXPECT_EQ(file.bytes().find(orphan), std::string::npos);
        EXPECT_TRUE(place == 0 || repair.done.at(0).find(std::to_string(place)) != std::string::npos);
    }
}

} // namespace android::lumo::test
