// SPDX-License-Identifier: Apache-2.0
#include "PhotoFixture.h"

#include <map>

#include <sys/resource.h>

namespace android::lumo::test {
namespace {

/// Stills and motion photos to start from, by what is special about them.
std::map<std::string, std::string> const& stills() {
    static std::map<std::string, std::string> const made = [] {
        std::string const packet = heicXmp("source");
        std::map<std::string, std::string> all{
            {"exif", JpegBuilder().exif().build()},
            {"tight xmp", JpegBuilder().exif().xmp(packet).build()},
            {"roomy xmp", JpegBuilder().exif().xmp(packet, 4000).build()},
            {"HEIC", buildHeic({.thumbnail = true})},
            {"HEIC, roomy xmp", buildHeic({.xmp = heicXmp("source", 3000), .tail = heicBox("free", "cdifinfo")})},
        };
        TempFile const video(videoOf(126000, 3));
        for (std::string const kind : {"exif", "HEIC"}) {
            TempFile const photo(all[kind]);
            commit(photo, [&](auto& e) { e.addVideo(video.open("r")).addQRTData(2817, "Other", filler(70, 'o')); });
            all[kind + " motion"] = photo.bytes();
        }
        return all;
    }();
    return made;
}

Edit const ADD = [](auto& e) {
    static TempFile const clip(bytesOf(SAMPLES_DIR "/clip.mp4"));
    e.addVideo(clip.open("r"));
};

TEST(MotionPhotoEditor, PacketsAroundTheRoomsSizeStayConsistent) {
    // The fields of the finished file may make a packet outgrow the room that the first commit opened.
    for (size_t size = 300; size < 420; ++size) {
        TempFile const photo(stills().at("exif"));
        commit(photo, [&](auto& e) {
            e.getXMPEdit().setProperty(TIFF, "Make", std::string(size, 'm'));
            ADD(e);
        });
        auto const segments = segmentsOf(photo.bytes());
        ASSERT_EQ(std::count_if(segments.begin(), segments.end(), [](auto& each) { return each.isXmp(); }), 1) << size;
        expectConsistent(photo.path());
    }
}

TEST(MotionPhotoEditor, WithoutAVideoNothingIsClaimed) {
    TempFile const motion(stills().at("exif motion")), plain(stills().at("exif")), video(videoOf(130000));
    auto const editor = parsePhoto(motion.path())->edit();
    editor->removeVideo(nullptr).commit();
    EXPECT_EQ(editor->getQRTMotionPhotoVersion(), MediaDefs::MotionPhotoFormat::NONE);
    parsePhoto(motion.path())->transferTo(plain.open(), std::filesystem::copy_options::none);
    EXPECT_EQ(parsePhoto(plain.path())->getXMPInfo()->getProperty(xmp_ns::CAMERA, "MotionPhoto"), "");
    editor->addVideo(video.open("r")).commit();
    expectConsistent(motion.path());

    // One that is staged to go is not there: skip_existing takes the other photo's.
    TempFile const taker(stills().at("exif motion"));
    commit(taker, [&](auto& e) {
        e.removeVideo(nullptr).addAll(parsePhoto(motion.path()), std::filesystem::copy_options::skip_existing);
    });
    EXPECT_EQ(parsePhoto(taker.path())->getVideoSize(), 130000U);

    // A target was given one and then not.
    TempFile const still(stills().at("exif")), target;
    auto const wavering = parsePhoto(still.path())->edit();
    wavering->addVideo(video.open("r")).commit(target.open());
    wavering->removeVideo(nullptr).commit(target.open());
    auto const packet = parsePhoto(target.path())->getXMPInfo();
    EXPECT_FALSE(packet->containsItem("MotionPhoto", false) || packet->containsProperty("GCamera:MotionPhoto", false));
}

TEST(MotionPhotoEditor, AMomentBehindANewVideosEndBecomesItsEndAndIsRefusedWhenItWasAskedFor) {
    TempFile const clip(bytesOf(SAMPLES_DIR "/clip.mp4")), photo(stills().at("exif"));
    commit(photo, [&](auto& e) { e.addVideo(clip.open("r")).setPhotoPresentationTimestampUs(99'000'000); });
    std::string const before = photo.bytes();
    EXPECT_TRUE(failsWith("lies behind the video's end", [&] {
        commit(photo, [&](auto& e) { e.replaceVideo(clip.open("r")).setPhotoPresentationTimestampUs(98'000'000); });
    }));
    EXPECT_EQ(photo.bytes(), before);
    Edit const replace = [&](auto&e) { e.replaceVideo(clip.open("r")); },
               add = [&](auto&e) { e.addVideo(clip.open("r")); }, loseMoment = [](auto&e) {
                   e.getXMPEdit().removeProperty(xmp_ns::CAMERA, "GCamera:MotionPhotoPresentationTimestampUs");
                   e.getXMPEdit().setProperty(TIFF, "Make", std::string(3000, 'm'));
               };
    // An older claim that was taken back leaves neither its moment nor its item, which stood in front.
    std::string const withdrawn =
        JpegBuilder()
            .xmp(packetOf("Camera:MotionPhoto='0' Camera:MotionPhotoPresentationTimestampUs='soon'",
                          directoryOf(itemOf("MotionPhoto", "video/mp4") + itemOf("Primary", "image/jpeg"))))
            .build();
    for (auto const& [start, edit] :
         {std::pair(before, replace), {before, add}, {before, loseMoment}, {withdrawn, add}}) {
        TempFile const edited(start);
        commit(edited, edit);
        auto const view = parsePhoto(edited.path());
        EXPECT_EQ(view->getCaptureTimestampUs(), view->getVideoDurationUs());
        expectConsistent(edited.path());
    }
}

TEST(MotionPhotoEditor, AVideoThatAPointerOfAJpegLeadsToGoesWithIt) {
    std::string const image = stills().at("roomy xmp"), old = videoOf(5000);
    TempFile const video(videoOf(130000, 2));
    for (auto const& [edit, trailer] :
         {std::pair<Edit, char const*>([](auto& e) { e.removeVideo(nullptr); }, ""),
          {[&](auto& e) { e.replaceVideo(video.open("r")); }, "2608 MotionPhoto_Data 130000;"}}) {
        TempFile const photo(image + old + trailerBytes({videoRecord(pointerTo(image.size(), old.size()))}));
        TempFile const far(photo.bytes().insert(image.size() + old.size(), "gap")), prepared(image), target;
        auto const bring = [&](TempFile const& from) {
            auto const editor = parsePhoto(from.path())->edit();
            editor->setOutputSource(prepared.open("r"));
            editor->commit(target.open());
        };
        EXPECT_TRUE(failsWith("does not come to a prepared still", [&] { bring(far); }));
        EXPECT_EQ(target.bytes(), "");
        bring(photo);
        EXPECT_TRUE(target.bytes().substr(parsePhoto(target.path())->getVideoPosition(), old.size()) == old);
        commit(photo, edit);
        EXPECT_EQ(trailerOf(photo.bytes()), trailer);
        EXPECT_EQ(photo.bytes().find(old), std::string::npos);
        EXPECT_EQ(parsePhoto(photo.path())->getImageSize(), image.size());
        expectConsistent(photo.path());
    }
}

TEST(MotionPhotoEditor, LengthsOfAVideoThatXmpAloneTellsOfFollowTheTrailer) {
    std::string const video = videoOf(4000);
    auto const length = [&](TempFile const& photo) {
        auto const text = parsePhoto(photo.path())->getXMPInfo()->getItemField("MotionPhoto", "Length");
        return photo.bytes().substr(photo.bytes().size() - std::stoul(text), video.size());
    };
    auto const items = itemOf("Primary", "image/jpeg") + itemOf("MotionPhoto", "video/mp4", R"(Item:Length="4000")");
    std::string const still =
        JpegBuilder().xmp(packetOf("Camera:MotionPhoto='1'", directoryOf(items)), 3000).build() + video;
    auto const add = [](QRTEdit& e) { e.putData(2900, "Note", std::string(50, 'n')); };
    TempFile const photo(still), bySubEditor(still), bare(still), target;
    commit(photo, [](auto& e) { e.addQRTData(2900, "Note", filler(33, 'n')); });
    EXPECT_TRUE(length(photo) == video);
    auto const editor = parsePhoto(bySubEditor.path())->edit();
    add(editor->getQRTEdit());
    editor->getXMPEdit().setProperty(TIFF, "Make", "staged");
    editor->getQRTEdit().commit(target.open());
    EXPECT_TRUE(length(target) == video);
    EXPECT_EQ(bySubEditor.bytes(), still);
    editor->getQRTEdit().commit(bySubEditor.open());
    EXPECT_TRUE(length(bySubEditor) == video);
    auto const alone = QRTInfo::parse(bare.open())->edit();
    add(*alone);
    EXPECT_TRUE(failsWith("would be wrong", [&] { alone->commit(); }));
    EXPECT_EQ(bare.bytes(), still);
    auto const edit = parsePhoto(bare.path())->edit();
    TempFile const prepared(stills().at("exif")), carried;
    edit->setOutputSource(prepared.open("r"));
    edit->commit(carried.open());
    EXPECT_TRUE(length(carried) == video);
}

TEST(MotionPhotoEditor, RefusesBeforeTheFirstByte) {
    TempFile const empty;
    for (auto const* name : {"exif", "exif motion", "HEIC, roomy xmp"}) {
        TempFile const photo(stills().at(name)), prepared(stills().at("exif")), video(videoOf(200000));
        std::tuple<char const*, Edit> const cases[] = {
            {"the video is empty", [&](auto& e) { e.addVideo(empty.open("r")); }},
            {"the video is the still itself", [&](auto& e) { e.addVideo(photo.open("r")); }},
            {"no video given", [&](auto& e) { e.addVideo(std::shared_ptr<MediaFile>()); }},
            {"", [&](auto& e) { e.addQRTData(2608, "V", std::shared_ptr<MediaFile>()); }},
            {"no target given", [&](auto& e) { e.commit(nullptr); }},
            {"the target is not empty", [&](auto& e) { e.commit(prepared.open()); }},
            {"not the file being edited", [&](auto& e) { e.removeVideo(prepared.open("r")); }},
            {"a prepared still needs another file",
             [&](auto& e) { e.setOutputSource(prepared.open("r")), e.commit(); }},
            {"", [&](auto& e) { e.addVideo(video.open("r")), e.commit(video.open()); }},
            {"", [&](auto& e) { e.addVideo(video.open("r")), writeBytes(video.path(), videoOf(150000)), e.commit(); }},
        };
        for (auto const& [text, edit] : cases)
            EXPECT_TRUE(failsWith(text, [&, &stage = edit] { stage(*parsePhoto(photo.path())->edit()); }));
        EXPECT_EQ(photo.bytes(), stills().at(name));
    }
    Edit const tooLong = [](auto& e) { e.getXMPEdit().setProperty(TIFF, "Make", std::string(70000, 'm')); };
    expectRefused({{stills().at("exif"), [&](auto& file) { commit(file, tooLong); }, "does not fit a segment"}});
}

TEST(MotionPhotoEditor, ForeseesTheSizeOfTheWholeFile) {
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    for (auto const* name : {"exif", "tight xmp", "HEIC", "HEIC, roomy xmp", "HEIC motion"}) {
        SCOPED_TRACE(name);
        TempFile const whole(stills().at(name));
        commit(whole, ADD);
        rlimit const low{whole.bytes().size() - 1, old.rlim_max}; // to write past it ends the process
        setrlimit(RLIMIT_FSIZE, &low);
        expectRefused({{stills().at(name), [](auto& file) { commit(file, ADD); }, ""}});
        setrlimit(RLIMIT_FSIZE, &old);
    }
    TrailerRecord const video{.type = 2608, .name = "MotionPhoto_Data", .data = videoOf(126000), .subInfo = "sub"};
    Edit const addsNote = [](auto& e) { e.getQRTEdit().putData(2902, "Note", "n").makeDirty(); };
    expectRefused({{stills().at("exif") + trailerBytes({video}), [&](auto& file) { commit(file, addsNote); },
                    "would not be found"}});
}

} // namespace
} // namespace android::lumo::test
