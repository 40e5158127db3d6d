// SPDX-License-Identifier: Apache-2.0
#include "PublishedPhoto.h"
#include "LocatorFixture.h"
#include "MotionPhotoEdit.h"

namespace android::lumo::test {

namespace {

std::string heic(std::string const& movie, bool wide, bool xmp) {
    auto const items =
        itemOf("Primary", "image/heic", paddingOf(wide ? 16 : 8)) + videoItem(movie.size(), paddingOf(23));
    return heicWith(videoBox(movie, wide) + heicBox("free", "cdif debug info"), xmp ? items : "");
}

struct Form {
    char const* name;
    std::string photo;
    size_t padding = 0; ///< of the primary, in front of the video
    bool isLast = true; ///< nothing stands behind the video
};

/// Photos of every origin around one movie.
std::vector<Form> forms(std::string const& movie) {
    auto const older = microVideo(std::to_string(movie.size()));
    auto const video = videoItem(movie.size());
    return {
        {"directory", published(PRIMARY + video, movie)},
        {"both generations", published(PRIMARY + video, movie, CLAIMED + older)},
        {"older", JpegBuilder().exif().xmp(packetOf(older)).build("scan", movie)},
        {"padding", published(itemOf("Primary", "image/jpeg", paddingOf(4)) + video, "\1\2\3\4" + movie), 4},
        {"gain map", published(PRIMARY + gainMapItem() + video, GAIN_MAP + movie)},
        {"typed nodes", published(typedNodes(movie.size()), movie)},
        {"item behind", published(PRIMARY + video + gainMapItem(), movie + GAIN_MAP), 0, false},
        {"box", heic(movie, false, true)},
        {"wide box", heic(movie, true, true)},
        {"box without XMP", heic(movie, false, false)},
    };
}

/// The bytes without the packet, which is written anew, in whatever room it has.
std::string withoutXMP(std::string const& photo) {
    if (photo.starts_with("\xFF\xD8")) {
        std::string text;
        for (auto const& segment : othersOf(photo))
            text += std::string(1, static_cast<char>(segment.code)) + segment.payload;
        return text;
    }
    auto const start = std::min(photo.find("<x:xmpmeta"), photo.find("<rdf:RDF"));
    if (start == std::string::npos)
        return photo;
    auto const end = photo.find_first_not_of(" \n", photo[start + 1] == 'x' ? photo.find("</x:xmpmeta>") + 12
                                                                            : photo.find("</rdf:RDF>") + 10);
    return photo.substr(0, start) + photo.substr(end);
}

std::string without(std::string bytes, std::string const& part, size_t inFront) {
    auto const at = bytes.find(part);
    return at == std::string::npos ? bytes : bytes.erase(at - inFront, part.size() + inFront);
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

auto const REMOVE = [](auto const& photo, auto const& output) { published::removeVideo(photo, output); };
auto const TO_TRAILER = [](auto const& photo, auto const& output) { published::toTrailer(photo, output); };
auto const TO_PUBLISHED = [](auto const& photo, auto const& output) { published::toPublished(photo, false, output); };

} // namespace

TEST(PublishedPhoto, RemoveTakesTheVideoAndEveryClaimAndLeavesTheRest) {
    std::string const movie = clip(5000);
    for (auto const& [name, photo, padding, isLast] : forms(movie)) {
        std::string const still = edited(photo, REMOVE);
        EXPECT_EQ(textOf(locate(still)), "none none") << name;
        EXPECT_EQ(textOf(MotionVideo::scan(TempFile(still).open("r"))), "none none") << name;
        EXPECT_EQ(still.find("MotionPhoto"), std::string::npos) << name;
        EXPECT_EQ(still.find("MicroVideo"), std::string::npos) << name;
        bool const isHEIC = photo[0] == 0;
        std::string expected = without(photo, movie, padding);
        if (isHEIC) { // the box's header goes too
            auto const type = expected.find("mpvd");
            expected.erase(type - 4, photo.compare(type + 8, 4, "ftyp") == 0 ? 8 : 16);
        }
        EXPECT_TRUE(withoutXMP(still) == withoutXMP(expected)) << name;
        if (photo.find("Primary") != std::string::npos) {
            EXPECT_EQ(XMPInfo::parse(TempFile(still).open("r"))->getItemNameAt(1), "Primary") << name;
        }
        if (photo.find("GainMap") != std::string::npos) {
            EXPECT_TRUE(still.ends_with(GAIN_MAP)) << name;
            EXPECT_NE(still.find("GainMap"), std::string::npos) << name;
        }
    }
}

TEST(PublishedPhoto, ConvertsToATrailerThatTheViewsRecogniseAndBackToTheSameVideoAndImage) {
    for (auto const& movie : {clip(5000, "isom"), clip(126'000, "mp42"), clip(126'000, "iso5")}) {
        for (auto const& [name, photo, padding, isLast] : forms(movie)) {
            if (!isLast)
                continue;
            std::string const converted = edited(photo, TO_TRAILER);
            {
                TempFile const file(converted);
                auto const view = MotionPhotoInfo::parse(file.open("r"));
                EXPECT_TRUE(view->isValid()) << name;
                EXPECT_TRUE(textOf(locate(converted)).starts_with("trailer sound")) << name;
                EXPECT_EQ(locate(converted).momentUs, locate(photo).momentUs) << name;
                EXPECT_EQ(view->getXMPInfo()->getItemNameAt(1), "Primary") << name;
                EXPECT_EQ(view->getXMPInfo()->getItemField("MotionPhoto", "Length"),
                          std::to_string(converted.size() - view->getVideoPosition()))
                    << name;
                EXPECT_TRUE(edited(converted, TO_TRAILER) == converted) << name;
                EXPECT_EQ(textOf(locate(edited(converted, REMOVE))), "none none") << name;
            }
            std::string const back = edited(converted, TO_PUBLISHED);
            auto const found = locate(back);
            EXPECT_TRUE(found.isSound()) << name << ": " << textOf(found);
            EXPECT_TRUE(back.substr(found.position, found.size) == movie) << name;
            EXPECT_EQ(found.momentUs, locate(photo).momentUs) << name;
            if (photo[0] != 0) {
                EXPECT_TRUE(withoutXMP(back) == withoutXMP(photo)) << name;
                EXPECT_TRUE(back.ends_with(movie)) << name;
            }
            EXPECT_TRUE(edited(back, TO_PUBLISHED) == back) << name;
        }
    }
}

TEST(PublishedPhoto, AddsAClipToPhotosOfEveryOriginInThePlaceOfTheOldVideo) {
    std::string const movie = clip(5000, "isom"), next = clip(200'000, "avc1");
    for (auto const& [name, photo, padding, isLast] : forms(movie)) {
        TempFile const source(next);
        std::string const added = edited(photo, [&](auto const& file, auto const& output) {
            auto const used = published::addVideo(file, source.open("r"), {}, output);
            EXPECT_TRUE(used.isBrandChanged && used.brand == "avc1" && used.filler == 0);
        });
        auto const found = locate(added);
        EXPECT_TRUE(textOf(found).starts_with("trailer sound")) << name << ": " << textOf(found);
        EXPECT_EQ(added.substr(found.position + 12, found.size - 12), next.substr(12)) << name;
        EXPECT_EQ(added.find(movie.substr(24)), std::string::npos) << name << ": the old video is left";
        EXPECT_EQ(added.find("MicroVideo"), std::string::npos) << name;
        EXPECT_TRUE(MotionPhotoInfo::parse(TempFile(added).open("r"))->isValid()) << name;
    }
}

TEST(PublishedPhoto, PicturesOfTheIndexAreFoundWhenWhatStandsInFrontOfThemGoes) {
    std::string const movie = clip(5000);
    auto const photo = [&](size_t offset) {
        return JpegBuilder()
            .xmp(packetOf(CLAIMED, directoryOf(PRIMARY + videoItem(movie.size()) + gainMapItem())), 1500)
            .mpf(mpfTo(offset))
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
    std::string const withRecords = JpegBuilder().exif().build(
        "scan", trailerBytes({{1, "Scene", "sea"}, {2608, "MotionPhoto_Data", movie}, {7, "Mood", "blue"}}));
    std::string const plain = JpegBuilder().exif().build();
    auto const add = [](std::string const& bytes, published::AddOptions const& options = {}) -> Edit {
        return [=](auto const& file, auto const&) {
            TempFile const source(bytes);
            published::addVideo(file, source.open("r"), options);
        };
    };
    published::AddOptions early, strict;
    early.momentUs = -1;
    strict.clip.keepBrand = true;
    for (auto const& [photo, edit, text] : std::vector<std::tuple<std::string, Edit, std::string>>{
             {withRecords, TO_PUBLISHED, "records that would go: Scene Mood"},
             {published(PRIMARY + videoItem(movie.size()) + gainMapItem(), movie + GAIN_MAP), TO_TRAILER,
              "bytes stand behind the video"},
             {published(PRIMARY + videoItem(9), movie), TO_TRAILER, "no sound video to convert: no movie begins"},
             {plain, TO_PUBLISHED, "none is claimed"},
             {plain, REMOVE, "nothing in "},
             {plain, add("no movie at all"), "remux it"},
             {plain, add(movie.substr(0, movie.size() - 3)), "remux it"},
             {plain, add(movie, early), "lies outside the video"},
             {plain, add(clip(9, "isom"), strict), "major brand is \"isom\""},
         }) {
        TempFile const file(photo);
        EXPECT_TRUE(failsWith(text, [&, action = edit] { action(file.open(), nullptr); }));
        EXPECT_TRUE(file.bytes() == photo) << text;
    }
    TempFile const file(withRecords);
    EXPECT_EQ(published::toPublished(file.open(), true).dropped, (std::vector<std::string>{"Scene", "Mood"}));
    EXPECT_TRUE(file.bytes().ends_with(movie));
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
    auto const track = [](std::string const& key, uint32_t delay) {
        std::string const edits = bigEndian(1, 4) + bigEndian(delay, 4) + bigEndian(UINT32_MAX, 4) + bigEndian(0, 4);
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
             {track("x.y.location", 300) + track("x.y.still-image-time", 0), 0},
             {track("x.y.location", 300), std::nullopt},
             {track("x.y.still-image-time", 900).substr(0, 50), std::nullopt},
         }) {
        EXPECT_EQ(stillMomentOf(TempFile(movie(tracks)).open("r")), expected);
    }
}

} // namespace android::lumo::test
