#include "PhotoFixture.h"

#include "io/ImageMetaReader.h"
#include "io/ImageMetaWriter.h"
#include "support/HeicBuilder.h"
#include "support/HeicPicture.h"
#include "support/TrailerBuilder.h"

#include <functional>
#include <map>

namespace android::lumo::test {
namespace {

using Edit = std::function<void(std::string const& path)>;

uint32_t bigAt(std::string const& bytes, size_t at) {
    return __builtin_bswap32(littleAt(bytes, at));
}

/// Type and size of every top-level box, "(damaged)" when they do not add up to the file.
std::string boxesOf(std::string const& file) {
    std::string text;
    size_t at = 0;
    while (at + 8 <= file.size()) {
        uint64_t size = bigAt(file, at);
        if (size == 1)
            size = uint64_t{bigAt(file, at + 8)} << 32 | bigAt(file, at + 12);
        if (size == 0)
            size = file.size() - at;
        if (size < 8 || size > file.size() - at)
            return text + "(damaged)";
        std::string const type = file.substr(at + 4, 4);
        bool const isDebugInfo = type == "free" && file.substr(at + 8, 4) == "cdif";
        text += (isDebugInfo ? "cdif" : type) + " ";
        at += static_cast<size_t>(size);
    }
    return at == file.size() ? text : text + "(damaged)";
}

/// Starting points: every mix of XMP, debug info, a video and other trailer records.
std::map<std::string, std::string> startingPoints() {
    std::map<std::string, std::string> all;
    for (int mix = 0; mix < 16; ++mix) {
        std::string name;
        HeicOptions options;
        options.thumbnail = true;
        if (mix & 1) {
            options.xmp = heicXmp("source", (mix & 2) != 0 ? 0U : 2000U);
            name += "xmp ";
        }
        TempFile const file(buildHeic(options));
        if (mix & 8) {
            TempFile const video(fakeVideo(3000, 11));
            auto const edit = parsePhoto(file.path())->edit();
            edit->addVideo(video.open("r"));
            edit->commit();
            name += "video ";
        }
        if (mix & 4) {
            auto const edit = QRTInfo::parse(file.open())->edit();
            edit->putData(2900, "Note", std::string("kept")).commit();
            name += "record ";
        }
        if (mix & 2) {
            ImageMetaWriter::of(file.open())->writeCameraDebugInfo({1, 2, 3, 4, 5});
            name += "debug ";
        }
        all[name + std::to_string(mix)] = file.bytes();
    }
    return all;
}

Edit committed(std::function<void(MotionPhotoEdit&)> const& stage) {
    return [stage](std::string const& path) {
        auto const edit = parsePhoto(path)->edit();
        stage(*edit);
        edit->commit();
    };
}

std::map<std::string, Edit> edits() {
    static TempFile const video(fakeVideo(5000, 3)), other(fakeVideo(140000, 4));
    return {
        {"add", committed([](auto& e) { e.addVideo(video.open("r")); })},
        {"add record 2608",
         committed([](auto& e) { e.addQRTData(2608, "MotionPhoto_Data", other.open("r")->readAllBytes()); })},
        {"replace", committed([](auto& e) { e.replaceVideo(other.open("r")); })},
        {"remove", committed([](auto& e) { e.removeVideo(nullptr); })},
        {"remove then add", committed([](auto& e) { e.removeVideo(nullptr).addVideo(video.open("r")); })},
        {"record", committed([](auto& e) { e.addQRTData(2901, "More", ByteBuffer(std::vector<uint8_t>(40, 'm'))); })},
        {"timestamp", committed([](auto& e) { e.setPhotoPresentationTimestampUs(99); })},
        {"debug info in",
         [](auto const& path) {
             ImageMetaWriter::of(test::open(path))->writeCameraDebugInfo(std::vector<unsigned char>(77, 'd'));
         }},
        {"debug info out", [](auto const& path) { ImageMetaWriter::of(test::open(path))->removeCameraDebugInfo(); }},
        {"bare xmp",
         [](auto const& path) {
             auto const edit = XMPInfo::parse(test::open(path))->edit();
             edit->setProperty("http://ns.adobe.com/tiff/1.0/", "Make", "M").commit();
         }},
        {"bare trailer",
         [](auto const& path) {
             auto const edit = MotionPhotoInfo::parse(test::open(path))->getQRTInfo()->edit();
             edit->putData(2902, "Bare", std::string("bare")).commit();
         }},
    };
}

/// Boxes add up, one video box at most, the trailer last, pointer, box and "Length" agree.
void expectConsistent(std::string const& path, bool lengthIsKept) {
    std::string const file = bytesOf(path);
    std::string const boxes = boxesOf(file);
    EXPECT_EQ(boxes.find("damaged"), std::string::npos) << boxes;
    EXPECT_EQ(boxes.find("mpvd"), boxes.rfind("mpvd")) << boxes;
    if (boxes.find("qrtd") != std::string::npos) {
        EXPECT_EQ(boxes.find("qrtd"), boxes.size() - 5) << boxes;
    }
    auto const photo = parsePhoto(path, "r");
    EXPECT_EQ(photo->isValid(), boxes.find("mpvd") != std::string::npos) << boxes;
    if (!photo->isValid())
        return;
    size_t const position = photo->getVideoPosition();
    EXPECT_EQ(file.substr(position - 4, 8), std::string("mpvd") + file.substr(position, 4));
    EXPECT_EQ(bigAt(file, position - 8), photo->getVideoSize() + 8);
    if (lengthIsKept) {
        EXPECT_EQ(photo->getXMPInfo()->getItemField("MotionPhoto", "Length"), std::to_string(file.size() - position));
    }
}

TEST(HeicMotionPhoto, EveryEditOfEveryStateKeepsThePictureAndTheRest) {
    for (auto const& [stateName, state] : startingPoints()) {
        auto const picture = readHeicPicture(state);
        for (auto const& [name, edit] : edits()) {
            SCOPED_TRACE(stateName + ", " + name);
            TempFile const file(state);
            std::string refusal;
            try {
                edit(file.path());
            } catch (std::runtime_error const& e) {
                refusal = e.what();
            }
            if (!refusal
                     .empty()) { // a packet that outgrows its room is the one thing a bare commit does not provide for
                EXPECT_EQ(name, "bare xmp");
                EXPECT_NE(refusal.find("xmpBuffer size must be smaller"), std::string::npos) << refusal;
                EXPECT_EQ(file.bytes(), state);
                continue;
            }
            auto after = readHeicPicture(file.bytes());
            EXPECT_EQ(after.images, picture.images);
            EXPECT_EQ(after.metadata, picture.metadata);
            EXPECT_LE(after.xmp.size(), 1U);
            bool const isMotionCommit =
                name.find("bare") == std::string::npos && name.find("debug") == std::string::npos;
            expectConsistent(file.path(), isMotionCommit);
            if (state.find("kept") != std::string::npos) {
                EXPECT_EQ(parsePhoto(file.path())->getQRTInfo()->getData("Note").size(), 4U);
            }
            bool const hasDebugInfo = boxesOf(file.bytes()).find("cdif") != std::string::npos;
            bool const hadDebugInfo = boxesOf(state).find("cdif") != std::string::npos;
            EXPECT_EQ(hasDebugInfo, name == "debug info in" || (hadDebugInfo && name != "debug info out"));
        }
    }
}

TEST(HeicMotionPhoto, InPlaceAndIntoATargetGiveTheSameFile) {
    TempFile const video(fakeVideo(5000, 3));
    std::map<std::string, std::function<void(MotionPhotoEdit&)>> const stages{
        {"add", [&](auto& e) { e.addVideo(video.open("r")); }},
        {"replace", [&](auto& e) { e.replaceVideo(video.open("r")); }},
        {"remove", [&](auto& e) { e.removeVideo(nullptr); }},
        {"record", [&](auto& e) { e.addQRTData(2901, "More", ByteBuffer(std::vector<uint8_t>(40, 'm'))); }},
    };
    for (auto const& [stateName, state] : startingPoints()) {
        for (auto const& [name, stage] : stages) {
            SCOPED_TRACE(stateName + ", " + name);
            TempFile const inPlace(state), source(state), target;
            auto const view = parsePhoto(inPlace.path());
            auto const edit = view->edit();
            stage(*edit);
            EXPECT_EQ(inPlace.bytes(), state); // staging writes nothing
            edit->commit();
            auto const sourceEdit = parsePhoto(source.path(), "r")->edit();
            stage(*sourceEdit);
            sourceEdit->commit(target.open());
            EXPECT_EQ(target.bytes(), inPlace.bytes());
            EXPECT_EQ(source.bytes(), state);
            auto const fresh = parsePhoto(inPlace.path(), "r");
            EXPECT_EQ(view->isValid(), fresh->isValid());
            EXPECT_EQ(view->getVideoPosition(), fresh->getVideoPosition());
            EXPECT_EQ(view->getVideoSize(), fresh->getVideoSize());
        }
    }
}

TEST(HeicMotionPhoto, AVideoBoxOfAnyHeaderIsReplacedAndRemoved) {
    std::string const video = fakeVideo(4000, 8);
    std::string const wide = bigEndian(1, 4) + "mpvd" + bigEndian(16 + video.size(), 8) + video;
    for (std::string const& box : {heicBox("mpvd", video), wide}) {
        HeicOptions options;
        options.xmp = heicXmp("s", 3000);
        std::string const still = buildHeic(options);
        std::string const pointer =
            "mpv3" + bigEndian(still.size() + box.size() - video.size(), 4) + bigEndian(video.size(), 4);
        std::string const trailer =
            qrtdBox(trailerBytes({{2608, "MotionPhoto_Data", pointer}, {2609, "MotionPhoto_Version", "mpv3"}}));
        TempFile const file(still + box + trailer), other(fakeVideo(6000, 9));
        ASSERT_EQ(parsePhoto(file.path())->getVideoSize(), video.size());
        auto const edit = parsePhoto(file.path())->edit();
        edit->replaceVideo(other.open("r"));
        edit->commit();
        expectConsistent(file.path(), true);
        EXPECT_EQ(parsePhoto(file.path())->getVideoSize(), 6000U);
        EXPECT_EQ(parsePhoto(file.path())->getQRTMotionPhotoVersion(), MediaDefs::MotionPhotoFormat::MPV3);
        auto const remover = parsePhoto(file.path())->edit();
        remover->removeVideo(nullptr);
        remover->commit();
        EXPECT_EQ(boxesOf(file.bytes()), boxesOf(still));
    }
}

TEST(HeicMotionPhoto, AVersionThatHidesThePointerIsPromoted) {
    std::string const still = buildHeic({.xmp = heicXmp("s", 3000)});
    TempFile const file(still + qrtdBox(trailerBytes({{2609, "MotionPhoto_Version", "mpv1"}}))), video(fakeVideo(7000));
    auto const edit = parsePhoto(file.path())->edit();
    edit->addVideo(video.open("r"));
    edit->commit();
    expectConsistent(file.path(), true);
    EXPECT_EQ(parsePhoto(file.path())->getQRTMotionPhotoVersion(), MediaDefs::MotionPhotoFormat::MPV3);
    EXPECT_EQ(parsePhoto(file.path())->getVideoSize(), 7000U);
}

TEST(HeicMotionPhoto, ATrailerHiddenBehindOtherBoxesIsPutInOrder) {
    std::string const still = buildHeic({.xmp = heicXmp("s", 3000)});
    std::string const video = fakeVideo(4000, 8);
    std::string const record = std::string(12, 'p');
    size_t const trailerSize = qrtdBox(trailerBytes({{2608, "MotionPhoto_Data", record}})).size();
    std::string const pointer = "mpv2" + bigEndian(still.size() + trailerSize + 8, 4) + bigEndian(video.size(), 4);
    TempFile const file(still + qrtdBox(trailerBytes({{2608, "MotionPhoto_Data", pointer}})) + heicBox("mpvd", video) +
                        heicBox("free", "cdif12345"));
    auto const edit = parsePhoto(file.path())->edit();
    edit->addQRTData(2900, "Note", ByteBuffer(std::vector<uint8_t>(4, 'n')));
    edit->commit();
    expectConsistent(file.path(), true);
    EXPECT_EQ(parsePhoto(file.path())->getVideoSize(), video.size());
}

} // namespace
} // namespace android::lumo::test
