#include "PhotoFixture.h"

#include "support/HeicBuilder.h"

#include <functional>
#include <map>

namespace android::lumo::test {
namespace {

using std::filesystem::copy_options;
using Edit = std::function<void(MotionPhotoEdit&)>;

/// Stills and motion photos to start from, by what is special about them.
std::map<std::string, std::string> const& stills() {
    static std::map<std::string, std::string> const made = [] {
        std::string const packet =
            R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
            R"(<rdf:Description rdf:about="" xmlns:tiff="http://ns.adobe.com/tiff/1.0/" tiff:Make="Maker"/></rdf:RDF></x:xmpmeta>)";
        std::map<std::string, std::string> all{
            {"bare", JpegBuilder().build()},
            {"exif", JpegBuilder().exif().build()},
            {"tight xmp", JpegBuilder().exif().xmp(packet).build()},
            {"roomy xmp", JpegBuilder().exif().xmp(packet, 4000).build()},
            {"two xmp", JpegBuilder().exif().xmp(packet).segment(0xE0, "JFIF").xmp(packet).build()},
            {"bytes behind", JpegBuilder().exif().build("scan", pattern(3000))},
        };
        TempFile photo(all["exif"]);
        TempFile video(fakeVideo(126000, 3));
        auto const edit = parsePhoto(photo.path())->edit();
        edit->addVideo(video.open("r")).addQRTData(2817, "Other", ByteBuffer(std::vector<uint8_t>(70, 'o')));
        edit->commit();
        all["motion"] = photo.bytes();
        return all;
    }();
    return made;
}

/// The operations a caller combines; the videos outlive the commit.
std::map<std::string, Edit> const& operations() {
    static TempFile const clip(sample("clip.mp4"));
    static TempFile const other(fakeVideo(190000, 5));
    static std::map<std::string, Edit> const all{
        {"add", [](auto& e) { e.addVideo(clip.open("r")); }},
        {"add from memory", [](auto& e) { e.addVideo(std::make_shared<ByteBuffer>(clip.open("r")->readAllBytes())); }},
        {"replace", [](auto& e) { e.replaceVideo(other.open("r")); }},
        {"add twice", [](auto& e) { e.addVideo(other.open("r")).addVideo(clip.open("r")); }},
        {"remove", [](auto& e) { e.removeVideo(nullptr); }},
        {"remove then add", [](auto& e) { e.removeVideo(nullptr).addVideo(clip.open("r")); }},
        {"remove then record 2608",
         [](auto& e) { e.removeVideo(nullptr).addQRTData(2608, "MotionPhoto_Data", clip.open("r")); }},
        {"own trailer again", [](auto& e) { e.addQRTInfo(e.getQRTInfo()); }},
        {"record", [](auto& e) { e.addQRTData(2900, "Note", ByteBuffer(std::vector<uint8_t>(33, 'n'))); }},
        {"records around",
         [](auto& e) {
             e.addQRTData(2900, "A", ByteBuffer(std::vector<uint8_t>(500, 'a'))).addVideo(clip.open("r"));
             e.addQRTData(2901, "B", ByteBuffer(std::vector<uint8_t>(600, 'b')));
         }},
        {"fast order",
         [](auto& e) {
             e.addQRTData(2900, "A", ByteBuffer(std::vector<uint8_t>(500, 'a'))).addVideo(clip.open("r"));
             e.getQRTEdit().setOption(QRTEdit::Option::WRITE_FAST);
         }},
        {"timestamp", [](auto& e) { e.setPhotoPresentationTimestampUs(1234567); }},
        {"much xmp",
         [](auto& e) {
             e.getXMPEdit().setProperty("http://ns.adobe.com/tiff/1.0/", "ImageDescription", std::string(3000, 'd'));
         }},
        {"big record only in the directory",
         [](auto& e) { e.getQRTEdit().putData(2902, "Big", std::string(2000, 'x')).makeDirty(); }},
    };
    return all;
}

/// Trailer, XMP and view of the file agree with its bytes.
void expectConsistent(std::string const& path) {
    std::string const bytes = bytesOf(path);
    auto const photo = parsePhoto(path, "r");
    if (photo->getVideoSize() == 0)
        return;
    ASSERT_TRUE(photo->isValid());
    size_t const position = photo->getVideoPosition();
    EXPECT_EQ(bytes.substr(position + 4, 4), "ftyp");
    EXPECT_EQ(xmpValue(bytes, "GCamera:MotionPhoto"), "1");
    EXPECT_EQ(photo->getXMPInfo()->getItemField("MotionPhoto", "Length"), std::to_string(bytes.size() - position));
    EXPECT_EQ(photo->getXMPInfo()->getItemField("MotionPhoto", "Padding"), "0");
    EXPECT_EQ(photo->getXMPInfo()->getItemField("Primary", "Padding"), std::to_string(photo->getImageVideoPadding()));
    EXPECT_EQ(photo->getXMPInfo()->getItemNameAt(1), "Primary");
}

TEST(MotionPhotoEditor, InPlaceAndIntoATargetGiveTheSameFileForEveryOperation) {
    for (auto const& [stillName, still] : stills()) {
        for (auto const& [name, edit] : operations()) {
            SCOPED_TRACE(stillName + ", " + name);
            TempFile const inPlace(still), source(still), target;
            auto const view = parsePhoto(inPlace.path());
            auto const editor = view->edit();
            edit(*editor);
            editor->commit();
            auto const sourceView = parsePhoto(source.path(), "r");
            auto const sourceEditor = sourceView->edit();
            edit(*sourceEditor);
            sourceEditor->commit(target.open());

            EXPECT_EQ(target.bytes(), inPlace.bytes());
            EXPECT_EQ(source.bytes(), still);
            EXPECT_EQ(imageWithoutXmp(inPlace.bytes()).substr(0, imageWithoutXmp(still).find("\xFF\xD9")),
                      imageWithoutXmp(still).substr(0, imageWithoutXmp(still).find("\xFF\xD9")));
            expectConsistent(inPlace.path());
            // The views are up to date without a new parse: one with its edited file, the other with the source.
            auto const fresh = parsePhoto(inPlace.path(), "r");
            EXPECT_EQ(view->isValid(), fresh->isValid());
            EXPECT_EQ(view->getVideoPosition(), fresh->getVideoPosition());
            EXPECT_EQ(view->getVideoSize(), fresh->getVideoSize());
            EXPECT_EQ(view->getImageSize(), fresh->getImageSize());
            auto const untouched = parsePhoto(source.path(), "r");
            EXPECT_EQ(sourceView->getVideoPosition(), untouched->getVideoPosition());
            EXPECT_EQ(sourceView->getXMPInfo()->serializeToBuffer(), untouched->getXMPInfo()->serializeToBuffer());
            // So does the editor, whose next commit begins from the source.
            TempFile const second;
            sourceEditor->addQRTData(2950, "Again", ByteBuffer(std::vector<uint8_t>(3, 'a'))).commit(second.open());
            EXPECT_EQ(trailerOf(second.bytes()), (stillName == "motion" ? trailerOf(still) : "") + "2950 Again 3;");
        }
    }
}

TEST(MotionPhotoEditor, AddExtractRemoveGivesBackVideoAndImage) {
    TempFile const photo(sample("still.jpg"));
    std::string const clip = sample("clip.mp4");
    TempFile const video(clip), out;
    auto const edit = parsePhoto(photo.path())->edit();
    edit->addVideo(video.open("r"));
    edit->commit();
    EXPECT_EQ(trailerOf(photo.bytes()), "2608 MotionPhoto_Data " + std::to_string(clip.size()) + ";");
    auto const view = parsePhoto(photo.path());
    EXPECT_EQ(view->getVideo(out.path()), clip.size());
    EXPECT_EQ(out.bytes(), clip);
    EXPECT_EQ(view->getCaptureTimestampUs(), view->getVideoDurationUs());
    EXPECT_GT(view->getVideoDurationUs(), 1000000);

    auto const remover = view->edit();
    remover->removeVideo(nullptr);
    remover->commit();
    std::string const after = photo.bytes();
    EXPECT_EQ(trailerOf(after), "none");
    EXPECT_EQ(imageWithoutXmp(after), imageWithoutXmp(sample("still.jpg")));
    EXPECT_EQ(xmpValue(after, "GCamera:MotionPhoto"), "");
    EXPECT_EQ(parsePhoto(photo.path())->getXMPInfo()->getItemField("Primary", "Padding"), "0");
}

TEST(MotionPhotoEditor, OtherRecordsSurviveEveryVideoOperation) {
    std::string const other = ";2817 Other 70;";
    std::map<std::string, std::string> const expected{
        {"add", "2608 MotionPhoto_Data 219772" + other},
        {"replace", "2608 MotionPhoto_Data 190000" + other},
        {"add twice", "2608 MotionPhoto_Data 219772" + other},
        {"remove", other.substr(1)},
        {"remove then add", other.substr(1) + "2608 MotionPhoto_Data 219772;"},
    };
    for (auto const& [name, trailer] : expected) {
        TempFile const photo(stills().at("motion"));
        auto const editor = parsePhoto(photo.path())->edit();
        operations().at(name)(*editor);
        editor->commit();
        EXPECT_EQ(trailerOf(photo.bytes()), trailer) << name;
    }
}

TEST(MotionPhotoEditor, PacketsAroundTheRoomsSizeStayConsistent) {
    // The fields of the finished file may make a packet outgrow the room that the first commit opened.
    for (size_t filler = 300; filler < 420; ++filler) {
        TempFile const photo(stills().at("exif"));
        TempFile const video(sample("clip.mp4"));
        auto const editor = parsePhoto(photo.path())->edit();
        editor->getXMPEdit().setProperty("http://ns.adobe.com/tiff/1.0/", "Make", std::string(filler, 'm'));
        editor->addVideo(video.open("r"));
        editor->commit();
        size_t segments = 0;
        for (auto const& segment : segmentsOf(photo.bytes()))
            segments += segment.isXmp();
        ASSERT_EQ(segments, 1U) << filler;
        expectConsistent(photo.path());
    }
}

TEST(MotionPhotoEditor, AChangeOfXmpAloneDescribesTheTrailerInTheOrderItWasWritten) {
    TempFile const photo(stills().at("exif"));
    for (auto const* name : {"fast order", "timestamp"}) {
        auto const editor = parsePhoto(photo.path())->edit();
        operations().at(name)(*editor);
        editor->commit();
        expectConsistent(photo.path());
    }
}

TEST(MotionPhotoEditor, RefusesBeforeTheFirstByte) {
    std::string const still = stills().at("exif");
    TempFile const photo(still), empty, prepared(still);
    struct Case {
        char const* text;
        Edit edit;
    };
    Case const cases[] = {
        {"the video is empty", [&](auto& e) { e.addVideo(empty.open("r")); }},
        {"the video is the still itself", [&](auto& e) { e.addVideo(photo.open("r")); }},
        {"no video given", [&](auto& e) { e.addVideo(std::shared_ptr<MediaFile>()); }},
        {"no target given", [&](auto& e) { e.commit(nullptr); }},
        {"not the file being edited", [&](auto& e) { e.removeVideo(prepared.open("r")); }},
        {"a prepared still needs another file",
         [&](auto& e) {
             e.setOutputSource(prepared.open("r"));
             e.commit();
         }},
        {"does not fit a segment",
         [&](auto& e) {
             e.getXMPEdit().setProperty("http://ns.adobe.com/tiff/1.0/", "Make", std::string(70000, 'm'));
             e.commit();
         }},
    };
    for (auto const& c : cases) {
        auto const editor = parsePhoto(photo.path())->edit();
        std::string const message = messageOf([&] { c.edit(*editor); });
        EXPECT_NE(message.find(c.text), std::string::npos) << message;
        EXPECT_EQ(photo.bytes(), still) << c.text;
    }
}

TEST(MotionPhotoEditor, AVideoThatShrankOrIsTheTargetIsRefused) {
    for (auto const& still : {stills().at("motion"), buildHeic({.xmp = heicXmp("s", 3000)})}) {
        TempFile const photo(still), video(fakeVideo(200000));
        auto const editor = parsePhoto(photo.path())->edit();
        editor->addVideo(video.open("r"));
        EXPECT_NE(messageOf([&] { editor->commit(video.open()); }), "");
        EXPECT_EQ(video.bytes(), fakeVideo(200000));
        std::filesystem::resize_file(video.path(), 150000);
        EXPECT_NE(messageOf([&] { editor->commit(); }), "");
        EXPECT_EQ(photo.bytes(), still);
    }
}

} // namespace
} // namespace android::lumo::test
