#include "PhotoFixture.h"
#include "support/HeicPicture.h"

#include <map>

namespace android::lumo::test {
namespace {

/// Stills and motion photos to start from, by what is special about them.
std::map<std::string, std::string> const& stills() {
    static std::map<std::string, std::string> const made = [] {
        std::string const packet = heicXmp("source");
        std::map<std::string, std::string> all{
            {"bare", JpegBuilder().build()},
            {"exif", JpegBuilder().exif().build()},
            {"tight xmp", JpegBuilder().exif().xmp(packet).build()},
            {"roomy xmp", JpegBuilder().exif().xmp(packet, 4000).build()},
            {"two xmp", JpegBuilder().exif().xmp(packet).segment(0xE0, "JFIF").xmp(packet).build()},
            {"bytes behind", JpegBuilder().exif().build("scan", pattern(3000))},
            {"HEIC", buildHeic({.thumbnail = true})},
            {"HEIC, roomy xmp", buildHeic({.xmp = heicXmp("source", 3000), .tail = heicBox("free", "cdifinfo")})},
        };
        TempFile const video(fakeVideo(126000, 3));
        for (std::string const kind : {"exif", "HEIC"}) {
            TempFile const photo(all[kind]);
            commit(photo, [&](auto& e) { e.addVideo(video.open("r")).addQRTData(2817, "Other", filler(70, 'o')); });
            all[kind + " motion"] = photo.bytes();
        }
        return all;
    }();
    return made;
}

/// The operations a caller combines; the videos outlive the commit.
std::map<std::string, Edit> const& operations() {
    static TempFile const clip(sample("clip.mp4")), other(fakeVideo(190000, 5));
    static std::map<std::string, Edit> const all{
        {"add", [](auto& e) { e.addVideo(clip.open("r")); }},
        {"add from memory", [](auto& e) { e.addVideo(std::make_shared<ByteBuffer>(clip.open("r")->readAllBytes())); }},
        {"replace", [](auto& e) { e.replaceVideo(other.open("r")); }},
        {"add twice", [](auto& e) { e.addVideo(other.open("r")).addVideo(clip.open("r")); }},
        {"remove", [](auto& e) { e.removeVideo(nullptr); }},
        {"remove then add", [](auto& e) { e.removeVideo(nullptr).addVideo(clip.open("r")); }},
        {"remove then record 2608",
         [](auto& e) { e.removeVideo(nullptr).addQRTData(2608, "MotionPhoto_Data", clip.open("r")); }},
        {"record 2608", [](auto& e) { e.addQRTData(2608, "MotionPhoto_Data", clip.open("r")->readAllBytes()); }},
        {"own trailer again", [](auto& e) { e.addQRTInfo(e.getQRTInfo()); }},
        {"record", [](auto& e) { e.addQRTData(2900, "Note", filler(33, 'n')); }},
        {"records around",
         [](auto& e) {
             e.addQRTData(2900, "A", filler(500, 'a')).addVideo(clip.open("r"));
             e.addQRTData(2901, "B", filler(600, 'b'));
         }},
        {"fast order",
         [](auto& e) {
             e.addQRTData(2900, "A", filler(500, 'a')).addVideo(clip.open("r"));
             e.getQRTEdit().setOption(QRTEdit::Option::WRITE_FAST);
         }},
        {"timestamp", [](auto& e) { e.setPhotoPresentationTimestampUs(1234567); }},
        {"much xmp", [](auto& e) { e.getXMPEdit().setProperty(TIFF, "ImageDescription", std::string(3000, 'd')); }},
        {"big record only in the directory",
         [](auto& e) { e.getQRTEdit().putData(2902, "Big", std::string(2000, 'x')).makeDirty(); }},
    };
    return all;
}

void expectSameImage(std::string const& file, std::string const& still) {
    if (!still.starts_with("\xFF\xD8")) {
        auto const was = readHeicPicture(still), is = readHeicPicture(file);
        EXPECT_EQ(is.images, was.images);
        EXPECT_EQ(is.metadata, was.metadata);
        EXPECT_EQ(boxesOf(file).find("cdif") == std::string::npos, boxesOf(still).find("cdif") == std::string::npos);
        return;
    }
    auto was = othersOf(still), is = othersOf(file);
    for (auto* segments : {&was, &is})
        segments->back().payload.resize(segments->back().payload.find("\xFF\xD9"));
    EXPECT_TRUE(is == was) << treeOf(file);
}

void expectSameView(MotionPhotoInfo& view, TempFile const& file) {
    auto const fresh = parsePhoto(file.path(), "r");
    EXPECT_EQ(view.isValid(), fresh->isValid());
    EXPECT_EQ(view.getVideoPosition(), fresh->getVideoPosition());
    EXPECT_EQ(view.getVideoSize(), fresh->getVideoSize());
    EXPECT_EQ(view.getImageSize(), fresh->getImageSize());
}

TEST(MotionPhotoEditor, InPlaceAndIntoATargetGiveTheSameFileForEveryOperation) {
    for (auto const& [stillName, still] : stills()) {
        for (auto const& [name, edit] : operations()) {
            SCOPED_TRACE(stillName + ", " + name);
            TempFile const inPlace(still), source(still), target, second;
            auto const view = parsePhoto(inPlace.path()), sourceView = parsePhoto(source.path(), "r");
            auto const editor = view->edit(), sourceEditor = sourceView->edit();
            edit(*editor);
            EXPECT_EQ(inPlace.bytes(), still); // staging writes nothing
            editor->commit();
            edit(*sourceEditor);
            sourceEditor->commit(target.open());
            EXPECT_EQ(target.bytes(), inPlace.bytes());
            EXPECT_EQ(source.bytes(), still);
            expectSameImage(inPlace.bytes(), still);
            expectConsistent(inPlace.path());
            // The views are up to date without a new parse: one with its edited file, the other with the source.
            expectSameView(*view, inPlace);
            expectSameView(*sourceView, source);
            // What was staged stays for another target; the first one has it all.
            sourceEditor->commit(second.open());
            EXPECT_EQ(second.bytes(), target.bytes());
            for (auto const& again : {target.open(), std::shared_ptr<MediaFile>()}) {
                again != nullptr ? sourceEditor->commit(again) : sourceEditor->commit();
                EXPECT_EQ(target.bytes(), second.bytes());
            }
            EXPECT_EQ(source.bytes(), still);
        }
    }
}

TEST(MotionPhotoEditor, OtherRecordsSurviveEveryVideoOperation) {
    for (auto const& [name, trailer] : {std::pair("add", "2608 MotionPhoto_Data 219772;2817 Other 70;"),
                                        {"replace", "2608 MotionPhoto_Data 190000;2817 Other 70;"},
                                        {"add twice", "2608 MotionPhoto_Data 219772;2817 Other 70;"},
                                        {"remove", "2817 Other 70;"},
                                        {"remove then add", "2817 Other 70;2608 MotionPhoto_Data 219772;"}}) {
        TempFile const photo(stills().at("exif motion"));
        commit(photo, operations().at(name));
        EXPECT_EQ(trailerOf(photo.bytes()), trailer) << name;
        auto const view = parsePhoto(photo.path());
        EXPECT_EQ(view->getXMPInfo()->getItemField("Primary", "Padding") == "0", !view->isValid()) << name;
    }
}

TEST(MotionPhotoEditor, PacketsAroundTheRoomsSizeStayConsistent) {
    // The fields of the finished file may make a packet outgrow the room that the first commit opened.
    for (size_t size = 300; size < 420; ++size) {
        TempFile const photo(stills().at("exif"));
        commit(photo, [&](auto& e) {
            e.getXMPEdit().setProperty(TIFF, "Make", std::string(size, 'm'));
            operations().at("add")(e);
        });
        auto const segments = segmentsOf(photo.bytes());
        ASSERT_EQ(std::count_if(segments.begin(), segments.end(), [](auto& each) { return each.isXmp(); }), 1) << size;
        expectConsistent(photo.path());
    }
}

TEST(MotionPhotoEditor, AChangeOfXmpAloneDescribesTheTrailerInTheOrderItWasWritten) {
    TempFile const photo(stills().at("exif"));
    for (auto const* name : {"fast order", "timestamp"}) {
        commit(photo, operations().at(name));
        expectConsistent(photo.path());
    }
}

TEST(MotionPhotoEditor, RefusesBeforeTheFirstByte) {
    TempFile const empty;
    for (auto const* name : {"exif", "exif motion", "HEIC, roomy xmp"}) {
        TempFile const photo(stills().at(name)), prepared(stills().at("exif")), video(fakeVideo(200000));
        struct Case {
            char const* text;
            Edit edit;
        } const cases[] = {
            {"the video is empty", [&](auto& e) { e.addVideo(empty.open("r")); }},
            {"the video is the still itself", [&](auto& e) { e.addVideo(photo.open("r")); }},
            {"no video given", [&](auto& e) { e.addVideo(std::shared_ptr<MediaFile>()); }},
            {"no target given", [&](auto& e) { e.commit(nullptr); }},
            {"not the file being edited", [&](auto& e) { e.removeVideo(prepared.open("r")); }},
            {"a prepared still needs another file",
             [&](auto& e) { e.setOutputSource(prepared.open("r")), e.commit(); }},
            {"", [&](auto& e) { e.addVideo(video.open("r")), e.commit(video.open()); }},
            {"",
             [&](auto& e) { e.addVideo(video.open("r")), writeBytes(video.path(), fakeVideo(150000)), e.commit(); }},
        };
        for (auto const& [text, edit] : cases) {
            auto const editor = parsePhoto(photo.path())->edit();
            EXPECT_TRUE(failsWith(text, [&, stage = edit] { stage(*editor); }));
            EXPECT_EQ(photo.bytes(), stills().at(name)) << text;
        }
    }
    TempFile const photo(stills().at("exif"));
    EXPECT_TRUE(failsWith("does not fit a segment", [&] {
        commit(photo, [](auto& e) { e.getXMPEdit().setProperty(TIFF, "Make", std::string(70000, 'm')); });
    }));
    EXPECT_EQ(photo.bytes(), stills().at("exif"));
}

} // namespace
} // namespace android::lumo::test
