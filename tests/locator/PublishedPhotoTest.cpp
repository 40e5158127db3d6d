// SPDX-License-Identifier: Apache-2.0
#include "PublishedPhoto.h"
#include "LocatorFixture.h"
#include "MotionPhotoEdit.h"
#include "PhotoCheck.h"
#include "io/ImageMetaWriter.h"
#include "support/Attempt.h"
#include "support/Faults.h"
#include "support/PhotoParts.h"

namespace android::lumo::test {

namespace {

/// What every edit keeps: image, debug info, and what stands behind the image but for `gone`.
std::string keptOf(std::string const& photo, std::string const& gone) {
    auto const parts = takeApart(photo);
    std::string behind = parts.behind, all = parts.debugInfo;
    if (auto const at = behind.find(gone); at != behind.npos)
        behind.erase(at, gone.size());
    for (auto const& part : parts.image)
        all += part + '|';
    return all + behind;
}

using Edit = std::function<void(std::shared_ptr<MediaFile> const&, std::shared_ptr<MediaFile> const&)>;

/// The result in place, which the result in another file has to equal.
std::string edited(std::string const& photo, Edit const& edit) {
    TempFile const inPlace(photo), source(photo), output("what it held before");
    edit(inPlace.open(), nullptr);
    edit(source.open("r"), output.open());
    EXPECT_EQ(source.bytes(), photo);
    EXPECT_TRUE(inPlace.bytes() == output.bytes());
    return inPlace.bytes();
}

Edit const REMOVE = [](auto const& photo, auto const& output) { published::removeVideo(photo, output); };
Edit const TO_TRAILER = [](auto const& photo, auto const& output) { published::toTrailer(photo, output); };
Edit const TO_PUBLISHED = [](auto const& photo, auto const& output) { published::toPublished(photo, false, output); };

} // namespace

TEST(PublishedPhoto, RemoveTakesTheVideoAndEveryClaimAndLeavesTheRest) {
    std::string const movie = clip(5000);
    for (auto const& [name, photo, source, padding, behind] : forms(movie)) {
        SCOPED_TRACE(name);
        std::string const still = edited(photo, REMOVE);
        EXPECT_EQ(textOf(locate(still)), "none none");
        EXPECT_EQ(textOf(MotionVideo::scan(TempFile(still).open("r"))), "none none");
        for (char const* claim : {"MotionPhoto", "MicroVideo", "mpvd"})
            EXPECT_EQ(still.find(claim), std::string::npos) << claim;
        EXPECT_EQ(keptOf(still, ""), keptOf(photo, photo.substr(photo.find(movie) - padding, padding + movie.size())));
        auto const view = XMPInfo::parse(TempFile(still).open("r"));
        for (char const* item : {"Primary", "GainMap"})
            EXPECT_EQ(view->containsItem(item, false), photo.find(item) != photo.npos) << item;
    }
}

/// A HEIC whose trailer other boxes hide: its record points to the video.
static std::string hiddenTrailer(std::string const& movie) {
    auto const items = itemOf("Primary", "image/heic", paddingOf(8)) + videoItem(movie.size());
    std::string const photo = heicWith(videoBox(movie), items);
    auto const pointer = "mpv2" + bigEndian(photo.find("mpvd") + 4, 4) + bigEndian(movie.size(), 4);
    return photo + qrtdBox(trailerBytes({{2608, "MotionPhoto_Data", pointer}})) + heicBox("free", "cdif debug info");
}

TEST(PublishedPhoto, RemoveTakesTheRecordOfAHiddenTrailer) {
    std::string const still = edited(hiddenTrailer(clip(5000)), REMOVE);
    EXPECT_EQ(still.find("MotionPhoto"), std::string::npos);
    EXPECT_EQ(still.find("mpvd"), std::string::npos);
}

TEST(PublishedPhoto, ConvertsToATrailerThatTheViewsRecogniseAndBackToTheSameVideoAndImage) {
    std::string const open = clip(5000, "isom") + bigEndian(0, 4) + "free"; // its last box ends where the file does
    for (auto const& movie : {open, clip(5000, "qt  "), clip(126'000, "mp42"), clip(126'000, "iso5")}) {
        auto photos = forms(movie);
        photos.push_back({"no primary", published(videoItem(movie.size()), movie), "directory"});
        photos.push_back({"primary behind", published(videoItem(movie.size()) + PRIMARY, movie), "directory"});
        auto const padded = itemOf("Primary", "image/jpeg", paddingOf(4)), video = videoItem(movie.size());
        photos.push_back({"own padding", published(padded + video, "mine" + movie), "directory"});
        photos.push_back({"own paddings",
                          published(padded + gainMapItem(paddingOf(3)) + video, "mine" + GAIN_MAP + "pad" + movie),
                          "directory"});
        for (auto const& [name, photo, source, padding, behind] : photos) {
            if (source == std::string("directory") && behind > 0)
                continue; // refused
            SCOPED_TRACE(name);
            std::string const converted = edited(photo, TO_TRAILER), back = edited(converted, TO_PUBLISHED);
            auto const view = MotionPhotoInfo::parse(TempFile(converted).open("r"));
            EXPECT_TRUE(view->isValid() && view->getXMPInfo()->getItemNameAt(1) == "Primary");
            if (movie.find("qt  ") == std::string::npos) { // which says so in its item
                // The head joins a padding of the photo's own; in front of a gain map that one stays as it is.
                bool const isOwn = std::string(name).find("padding") != std::string::npos;
                std::string const own = name == std::string("own paddings") ? "4" : "28";
                EXPECT_EQ(takeApart(converted).faults(), isOwn ? "Padding is " + own + ", not 24; " : "");
            }
            EXPECT_TRUE(textOf(locate(converted)).starts_with("trailer sound"));
            EXPECT_EQ(textOf(locate(edited(converted, REMOVE))), "none none");
            auto const found = locate(back);
            bool const isBox = source == std::string("box"); // whose header is Primary's padding
            for (auto const* item : {"Primary", "GainMap"}) {
                auto const paddingIn = [&](std::string const& each) {
                    auto const text = XMPInfo::parse(TempFile(each).open("r"))->getItemField(item, "Padding");
                    return text == "0" || isBox ? "" : text;
                };
                EXPECT_EQ(paddingIn(back), paddingIn(photo)) << item;
            }
            EXPECT_LE(PhotoCheck::run(TempFile(back).open("r")).findings.size(),
                      PhotoCheck::run(TempFile(photo).open("r")).findings.size());
            EXPECT_TRUE(back.substr(found.position, found.size) == movie) << textOf(found);
            for (auto const& [each, again] : {std::pair(converted, TO_TRAILER), {back, TO_PUBLISHED}}) {
                EXPECT_EQ(locate(each).momentUs, locate(photo).momentUs);
                EXPECT_EQ(keptOf(each, movie), keptOf(photo, movie));
                EXPECT_TRUE(edited(each, again) == each);
            }
        }
    }
}

TEST(PublishedPhoto, AddsAClipToPhotosOfEveryOriginInThePlaceOfTheOldVideo) {
    std::string const movie = clip(5000, "isom"), next = clip(200'000, "avc1");
    TempFile const file(next), sameSize(heicBox("ftyp", "mp42" + bigEndian(0, 4) + "mp42") +
                                        heicBox("mdat", pattern(200'000, 5)) + heicBox("moov", heicBox("skip", "")));
    auto photos = forms(movie);
    auto const none = entryOf("Item:Semantic='Primary'"), other = entryOf("Item:Semantic='Other' Item:Length='4'");
    photos.push_back({"items of no kind", published(none + other + other, "yourmine", ""), "none"});
    for (auto const& [name, photo, source, padding, behind] : photos) {
        std::string const added = edited(photo, [&](auto const& still, auto const& output) {
            auto const used = published::addVideo(still, file.open("r"), {}, output);
            EXPECT_TRUE(used.isBrandChanged && used.brand == "avc1" && used.filler == 0);
        });
        auto const found = locate(added);
        EXPECT_TRUE(textOf(found).starts_with("trailer sound")) << name << ": " << textOf(found);
        EXPECT_EQ(added.substr(found.position + 12, found.size - 12), next.substr(12)) << name;
        EXPECT_NE(edited(added, TO_PUBLISHED).find(next), std::string::npos) << name;
        EXPECT_EQ(added.find(movie.substr(24)), std::string::npos) << name << ": the old video is left";
        EXPECT_EQ(added.find("MicroVideo"), std::string::npos) << name;
        EXPECT_EQ(PhotoCheck::run(TempFile(added).open("r")).verdict, PhotoCheck::Verdict::SOUND) << name;
        EXPECT_TRUE(MotionPhotoInfo::parse(TempFile(added).open("r"))->isValid()) << name;
        TempFile const replaced(added);
        auto const edit = MotionPhotoInfo::parse(replaced.open())->edit();
        edit->replaceVideo(sameSize.open("r")); // what is noted about the clip before is not about this one
        edit->commit();
        EXPECT_NE(edited(replaced.bytes(), TO_PUBLISHED).find(sameSize.bytes()), std::string::npos) << name;
    }
}

TEST(PublishedPhoto, WhatCountsFromTheEndFollowsATrailerThatComesGrowsAndGoes) {
    for (auto const& [name, photo, source, padding, behind] : forms(clip(5000))) {
        SCOPED_TRACE(name);
        TempFile const file(photo);
        auto const expectFound = [&](TempFile const& written) {
            auto const check = PhotoCheck::run(written.open("r"));
            EXPECT_EQ(check.verdict, PhotoCheck::Verdict::SOUND);
            EXPECT_EQ(check.video.size, clip(5000).size());
        };
        if (source == std::string("box")) {
            auto const writer = ImageMetaWriter::of(file.open());
            writer->writeCameraDebugInfo({1, 2, 3});
            expectFound(file);
            writer->removeCameraDebugInfo();
            expectFound(file);
        }
        TempFile const moment(photo);
        auto const mover = MotionPhotoInfo::parse(moment.open())->edit();
        mover->setPhotoPresentationTimestampUs(7).commit();
        expectFound(moment);
        if (source != std::string("box")) {
            TempFile const prepared(JpegBuilder().exif().build()), carried("");
            auto const carrier = MotionPhotoInfo::parse(file.open())->edit();
            carrier->setOutputSource(prepared.open("r"));
            auto const carry = [&] { carrier->commit(carried.open()); };
            if (name == std::string("gain map behind")) // its place counts from the video's
                EXPECT_TRUE(failsWith("stands behind the video", carry));
            else
                carry(), expectFound(carried);
        }
        std::string longer = "sea";
        for (auto const &commit : std::vector<std::function<void(MotionPhotoEdit&, TempFile const&)>>{
                 [](auto&edit, auto const&) { edit.getQRTEdit().commit(); },
                 [](auto&edit, auto const&) { edit.commit(); },
                 [](auto&edit, auto const&output) { edit.getQRTEdit().commit(output.open()); },
                 [](auto&edit, auto const&output) { edit.commit(output.open()); }}) {
            TempFile const output("");
            auto const edit = MotionPhotoInfo::parse(file.open())->edit();
            edit->getQRTEdit().putData(1, "Scene", longer += longer).makeDirty();
            commit(*edit, output);
            expectFound(output.bytes().empty() ? file : output);
        }
        if (source != std::string("directory") || behind == 0) {
            TempFile const output("");
            EXPECT_TRUE(published::toTrailer(file.open("r"), output.open()).isChanged);
            EXPECT_TRUE(textOf(locate(output.bytes())).starts_with("trailer sound"));
            EXPECT_NE(output.bytes().find("Scene"), std::string::npos);
        }
        published::removeTrailer(file.open());
        EXPECT_EQ(takeApart(file.bytes()).trailer.records.size(), 0U);
        expectFound(file);
    }
}

TEST(PublishedPhoto, AStillThatGetsAnotherPhotosMotionGivesUpItsOwn) {
    std::string const movie = clip(126'000);
    TempFile const photo(JpegBuilder().exif().build("scan", trailerBytes({{2608, "MotionPhoto_Data", movie}})));
    for (auto const& form : forms(clip(5000))) {
        if (form.source == std::string("box"))
            continue;
        TempFile const still(form.photo), output("");
        auto const edit = MotionPhotoInfo::parse(photo.open())->edit();
        edit->setOutputSource(still.open("r"));
        edit->commit(output.open());
        auto const check = PhotoCheck::run(output.open("r"));
        EXPECT_EQ(check.video.size, movie.size()) << form.name;
        EXPECT_FALSE(check.orphan.isSound()) << form.name;
    }
}

TEST(PublishedPhoto, PicturesOfTheIndexAreFoundWhenWhatStandsInFrontOfThemGoes) {
    std::string const movie = clip(5000);
    auto const photo = [&](size_t offset) {
        return JpegBuilder()
            .xmp(packetOf(CLAIMED, directoryOf(PRIMARY + videoItem(movie.size()) + gainMapItem())), 1500)
            .mpf(mpfIndex(99, GAIN_MAP.size(), offset))
            .build("scan", movie + GAIN_MAP);
    };
    size_t const base = photo(0).find("MPF") + 4;
    std::string const still = edited(photo(photo(0).size() - GAIN_MAP.size() - base), REMOVE);
    size_t const field = still.find("MPF") + 4 + 26 + 16 + 8;
    size_t const offset = __builtin_bswap32(littleAt(still, field));
    EXPECT_EQ(still.substr(still.find("MPF") + 4 + offset), GAIN_MAP);
}

TEST(PublishedPhoto, RefusesWhatCannotBeAndLeavesTheFile) {
    std::string const movie = clip(130'000);
    std::string const note = "major_brand=isom length=5 stored=5"; // of a clip, but under another name
    std::string const withRecords = JpegBuilder().exif().build(
        "scan", trailerBytes({{1, "Scene", "sea"}, {2608, "MotionPhoto_Data", movie}, {7, "Mood", note}}));
    std::string const others = trailerBytes({{1, "Scene", "sea"}, {7, "Mood", note}});
    std::string const besideRecords = published(PRIMARY + videoItem(movie.size() + others.size()), movie + others);
    std::string const plain = JpegBuilder().exif().build(), single = buildHeic({.grid = false});
    auto const items = itemOf("Primary", "image/heic", paddingOf(8)) + videoItem(movie.size());
    std::string const tight = packetOf("Camera:MotionPhoto='1'", directoryOf(items)) + std::string(60, ' ');
    auto const add = [](std::string const& bytes, published::AddOptions const& options = {}) -> Edit {
        return [=](auto const& file, auto const&) {
            TempFile const source(bytes);
            published::addVideo(file, source.open("r"), options);
        };
    };
    published::AddOptions early, late, strict;
    early.momentUs = -1;
    late.momentUs = 1'000'000'000;
    strict.clip.keepBrand = true;
    for (auto const& [photo, edit, text] : std::vector<std::tuple<std::string, Edit, std::string>>{
             {withRecords, TO_PUBLISHED, "records that would go: Scene Mood"},
             {besideRecords, TO_PUBLISHED, "records that would go: Scene Mood"},
             {published(PRIMARY + videoItem(movie.size()) + gainMapItem(), movie + GAIN_MAP), TO_TRAILER,
              "bytes stand behind the video"},
             {published(PRIMARY + videoItem(movie.size(), paddingOf(4)), movie + "your"), TO_TRAILER,
              "4 bytes stand behind the video"},
             {published(PRIMARY + videoItem(9), movie), TO_TRAILER, "no sound video to convert: no movie begins"},
             {plain, TO_PUBLISHED, "none is claimed"},
             {single + videoBox(movie), TO_PUBLISHED, "cannot be written anew"},
             {single + qrtdBox(trailerBytes({videoRecord(movie)})), TO_PUBLISHED, "cannot be written anew"},
             {buildHeic({.grid = false, .xmp = tight, .tail = videoBox(movie)}), add(movie, late), "XMP has no room"},
             {hiddenTrailer(movie), TO_PUBLISHED, "boxes hide the HEIC's trailer"},
             {heicWith(videoBox(movie) + "junk behind"), TO_TRAILER, "boxes do not add up"},
             {plain, REMOVE, "nothing in "},
             {plain, add("no movie at all"), "remux it"},
             {plain, add(movie.substr(0, movie.size() - 3)), "remux it"},
             {plain, add(movie, early), "lies outside the video"},
             {plain, add(clip(9, "isom"), strict), "major brand is \"isom\""},
         })
        expectRefused({{photo, [action = edit](auto& file) { action(file.open(), nullptr); }, text}});
    for (auto const& photo : {withRecords, besideRecords}) {
        TempFile const file(photo);
        EXPECT_EQ(published::toPublished(file.open(), true).dropped, (std::vector<std::string>{"Scene", "Mood"}));
        EXPECT_TRUE(file.bytes().ends_with(movie));
    }
}

TEST(PublishedPhoto, BecomesPublishedFromTrailersThatOthersWrite) {
    std::string const movie = clip(130'000), jpeg = JpegBuilder().exif().build(), heic = heicWith("");
    for (auto const& [still, behind] :
         {std::pair(heic, qrtdBox(trailerBytes({videoRecord(movie)}))),
          {jpeg, movie + trailerBytes({videoRecord(pointerTo(jpeg.size(), movie.size()))})}}) {
        std::string const made = edited(still + behind, TO_PUBLISHED);
        EXPECT_TRUE(made.ends_with(movie));
        EXPECT_EQ(takeApart(made).image, takeApart(still).image);
        EXPECT_TRUE(PhotoCheck::run(TempFile(made).open("r")).findings.empty());
    }
}

/// Unless its bytes were being moved, a claim or a scan finds the movie whole after a change that failed.
TEST(PublishedPhoto, AnEditThatFailsLeavesTheMovieWithinReach) {
    std::string const movie = clip(6000);
    auto const all = forms(movie);
    for (auto const& photo : {all.front().photo, all.back().photo}) {
        for (auto const& edit : {REMOVE, TO_TRAILER}) {
            size_t torn = 0, calls = 0;
            for (size_t n = 0; n <= calls; ++n) {
                TempFile const file(photo);
                bool isDone = false;
                {
                    auto const fault = Fault::failing(Call::CHANGE, EIO, n, 1);
                    isDone = returns([&] { edit(file.open(), nullptr); });
                    calls = fault.calls();
                }
                bool const isWhole = file.bytes().find(movie.substr(12)) != std::string::npos;
                torn += isWhole ? 0 : 1;
                EXPECT_TRUE(isDone || !isWhole || locate(file.bytes()).isSound() ||
                            MotionVideo::scan(file.open("r")).isSound())
                    << n;
            }
            EXPECT_LE(torn, 2U + 1U); // and the one that went through
        }
    }
}

TEST(MotionClip, BecomesWhatTheViewsRecogniseAndIsNoPointer) {
    using enum MediaDefs::MimeType;
    std::string const openEnd =
        heicBox("ftyp", "isom" + bigEndian(0, 4)) + heicBox("moov", "") + bigEndian(0, 4) + "mdat" + pattern(20);
    for (auto const& [source, still, brand, filler] :
         std::vector<std::tuple<std::string, MediaDefs::MimeType, std::string, size_t>>{
             {clip(130'000), IMAGE_JPEG, "mp42", 0},
             {clip(130'000, "qt  "), IMAGE_JPEG, "qt  ", 0},
             {clip(130'000, "avc1"), IMAGE_JPEG, "mp42", 0},
             {clip(40), IMAGE_HEIC, "mp42", 0},
             {clip(40), IMAGE_JPEG, "mp42", 125'001 - clip(40).size()},
             {clip(125'000 - 44), IMAGE_JPEG, "mp42", 8}, // exactly 125,000: the least box
             {openEnd, IMAGE_JPEG, "mp42", 125'001 - openEnd.size()},
         }) {
        TempFile const file(source);
        auto const made = MotionClip::prepare(file.open("r"), still);
        EXPECT_EQ(made.filler, filler);
        auto const bytes = made.file->readAllBytes();
        std::string const text(reinterpret_cast<char const*>(bytes.data()), bytes.size());
        EXPECT_EQ(text.substr(8, 4), brand);
        EXPECT_EQ(text.size(), source.size() + filler);
        EXPECT_EQ(text.substr(12, 8), source.substr(12, 8));
        EXPECT_EQ(file.bytes(), source);
        EXPECT_EQ(made.file->getPath() == file.path(), filler == 0 && source.substr(8, 4) == brand);
        TempFile const whole(JpegBuilder().build("scan", text));
        EXPECT_EQ(MotionVideo::scan(whole.open("r")).size, text.size()); // its boxes add up
    }
}

TEST(MotionClip, NamesTheMomentOfItsStill) {
    auto const track = [](std::string const& key, uint32_t delay, uint32_t mediaTime = UINT32_MAX) {
        std::string const edits = bigEndian(1, 4) + bigEndian(delay, 4) + bigEndian(mediaTime, 4) + bigEndian(0, 4);
        std::string const keys = heicBox("mebx", std::string(8, '\0') + heicBox("keys", heicBox("keyd", "mdta" + key)));
        std::string const table = heicBox("stbl", heicFullBox("stsd", 0, 0, bigEndian(1, 4) + keys));
        std::string const handler = heicFullBox("hdlr", 0, 0, bigEndian(0, 4) + "meta");
        return heicBox("trak", heicBox("edts", heicFullBox("elst", 0, 0, edits)) +
                                   heicBox("mdia", handler + heicBox("minf", table)));
    };
    auto const movie = [](std::string const& tracks) {
        std::string const header = heicFullBox("mvhd", 0, 0, bigEndian(0, 8) + bigEndian(600, 4) + bigEndian(1200, 4));
        return heicBox("ftyp", "qt  " + bigEndian(0, 4)) + heicBox("moov", header + tracks);
    };
    for (auto const& [tracks, expected] : std::vector<std::pair<std::string, std::optional<int64_t>>>{
             {track("x.y.still-image-time", 900), 1'500'000},
             {track("x.y.still-image-time", 900, 0), 0}, // the edit shows something: no delay
             {track("x.y.location", 300) + track("x.y.still-image-time", 0), 0},
             {track("x.y.location", 300), std::nullopt},
             {track("x.y.still-image-time", 900).substr(0, 50), std::nullopt},
         }) {
        EXPECT_EQ(stillMomentOf(TempFile(movie(tracks)).open("r")), expected);
    }
}

} // namespace android::lumo::test
