#include "support/Faults.h"
#include "trailer/TrailerFixture.h"

#include <cerrno>
#include <filesystem>
#include <functional>

namespace android::lumo::test {
namespace {

TrailerRecord const A{1, "A", "first"}, B{2, "B", pattern(3000)};

/// Files a refused edit may name.
struct Files {
    Still still;
    TempFile file{still.with({A, B})};
    TempFile video{pattern(50000, 3)};
    std::shared_ptr<QRTInfoImpl> view = viewOf(file);
    std::shared_ptr<QRTEditImpl> editor = editorOf(view);
};

struct Refusal {
    char const* message;
    std::function<void(Files&)> stage;
};

TEST(TrailerCommit, RefusesBeforeTheFirstWrite) {
    std::vector<Refusal> const refusals{
        {"no data: empty=1", [](auto& f) { f.editor->putData(9, "New", ByteBuffer()); }},
        {"no data: empty=1", [](auto& f) { f.editor->putData(1, ByteBuffer()); }},
        {"has 0 bytes, expected 1", [](auto& f) { f.editor->putData(9, "New", TempFile().open()); }},
        {"is the file to write", [](auto& f) { f.editor->putData(9, "New", f.file.open("r")); }},
        {"has 10 bytes, expected 50000",
         [](auto& f) {
             f.editor->putData(9, "New", f.video.open("r"));
             std::filesystem::resize_file(f.video.path(), 10);
         }},
        {"fail to read bytes", [](auto& f) { f.editor->putData(9, "New", f.video.open("w")); }},
        {"grow past 4 GiB",
         [](auto& f) {
             std::filesystem::resize_file(f.video.path(), UINT32_MAX - 3000U);
             f.editor->putData(9, "New", f.video.open("r"));
         }},
        {"4 GiB cannot be addressed",
         [](auto& f) {
             std::filesystem::resize_file(f.video.path(), uint64_t{1} << 32);
             f.editor->putData(9, "New", f.video.open("r"));
         }},
        {"type 40000 of record New", [](auto& f) { f.editor->putData(40000, "New", std::string("x")); }},
        {"not the one that was read",
         [](auto& f) {
             writeBytes(f.file.path(), f.still.with({A, B, A}));
         }},
        {"not the one that was read", [](auto& f) { writeBytes(f.file.path(), pattern(5000)); }},
        {"not the one that was read", [](auto& f) { writeBytes(f.file.path(), f.still.image.substr(0, 20)); }},
        {"record A no longer stands in the file's trailer",
         [](auto& f) {
             writeBytes(f.file.path(), f.still.with({{1, "A", "firs"}, {2, "B", pattern(3001)}}));
         }},
        {"record A no longer stands in the file's trailer",
         [](auto& f) { f.view->edit()->removeData("B").putData(1, buffer("x")).commit(); }},
        {"fail to reserve", [](auto& f) { f.editor->putData(9, "New", f.video.open("r")); }},
    };
    for (auto const& still : STILLS) {
        for (auto const& refusal : refusals) {
            SCOPED_TRACE(refusal.message);
            Files files{still};
            refusal.stage(files);
            std::string const before = files.file.bytes();
            auto const fault = Fault::failing(Call::ALLOCATE, ENOSPC);
            std::string const message = messageOf([&] { files.editor->commit(); });
            EXPECT_TRUE(message.starts_with("[metadata_utils/QRTEditImpl:")) << message;
            EXPECT_NE(message.find(refusal.message), std::string::npos) << message;
            EXPECT_EQ(files.file.bytes(), before);
        }
    }
}

TEST(TrailerCommit, RefusesATrailerThatStandsInNoBoxOfAHeic) {
    TempFile file(HEIC_IMAGE + trailerBytes({A, B}));
    auto const editor = viewOf(file)->edit();
    EXPECT_NE(messageOf([&] { editor->commit(); }).find("no box of type qrtd"), std::string::npos);
    EXPECT_EQ(file.bytes(), HEIC_IMAGE + trailerBytes({A, B}));
}

TEST(TrailerCommit, GivesTheLastBoxOfAHeicItsSizeBeforeTheTrailerFollows) {
    std::string const open = std::string(HEIC_IMAGE).replace(16, 4, std::string(4, '\0'));
    TempFile file(open), target;
    auto const editor = viewOf(file)->edit();
    editor->putData(1, "A", std::string("first")).commit(target.open());
    EXPECT_EQ(target.bytes(), STILLS[1].with({A}));
    EXPECT_EQ(file.bytes(), open);
    editor->commit(file.open());
    EXPECT_EQ(file.bytes(), STILLS[1].with({A}));
}

TEST(TrailerCommit, RefusesAFileThatGotItsFirstTrailerMeanwhile) {
    TempFile file(JPEG_IMAGE);
    auto const editor = viewOf(file)->edit();
    viewOf(file)->edit()->putData(1, "A", std::string("first")).commit();
    editor->putData(2, "B", std::string("b"));
    EXPECT_NE(messageOf([&] { editor->commit(); }).find("has got a trailer"), std::string::npos);
    EXPECT_EQ(file.bytes(), STILLS[0].with({A}));
}

TEST(TrailerCommit, ThrowsForKeysAndFormsThatAreNotThere) {
    TempFile file(STILLS[0].with({A}));
    auto const editor = viewOf(file)->edit();
    EXPECT_TRUE(messageOf([&] { editor->putData(9, buffer("x")); }).ends_with("] "));
    EXPECT_TRUE(messageOf([&] { editor->putData(std::string("None"), buffer("x")); }).ends_with("] "));
    ByteBuffer const bytes = buffer("x");
    EXPECT_TRUE(messageOf([&] { editor->putData(std::string("A"), bytes); }).ends_with("] implement here"));
}

TEST(TrailerCommit, WritesNothingForAnUnknownOption) {
    TempFile file(STILLS[0].with({A}));
    auto const view = viewOf(file);
    auto const editor = view->edit();
    editor->setOption(static_cast<QRTEdit::Option>(2)).putData(2, "B", std::string("b"));
    editor->commit();
    EXPECT_EQ(file.bytes(), STILLS[0].with({A}));
    EXPECT_EQ(view->getKeys(), (std::list<std::string>{"A", "B"}));
}

/// Calls of a kind fail from every number on, until a commit comes through before the first of them.
TEST(TrailerCommit, NeverEndsWellWhenACallFailedAndNeverTouchesTheImage) {
    TempFile video(pattern(50000, 3));
    std::string const before = STILLS[1].with({A, B});
    auto const commits = [&](TempFile const& file, std::shared_ptr<MediaFile> const& target) {
        auto const editor = viewOf(file)->edit();
        editor->putData(2608, "Video", video.open("r")).removeData("A");
        try {
            target == nullptr ? editor->commit() : editor->commit(target);
        } catch (std::runtime_error const&) {
            return false;
        }
        return true;
    };
    for (auto const& [call, error] : {std::pair(Call::WRITE, EIO),
                                      {Call::WRITE, 0},
                                      {Call::SENDFILE, EIO},
                                      {Call::SENDFILE, 0},
                                      {Call::TRUNCATE, EIO},
                                      {Call::ALLOCATE, EIO}}) {
        bool isDone[2] = {};
        for (size_t number = 0; !isDone[0] || !isDone[1]; ++number) {
            for (bool const inPlace : {false, true}) {
                TempFile file(before), target;
                auto const fault = error == 0 ? Fault::shortened(call, 0, number) : Fault::failing(call, error, number);
                isDone[inPlace] = commits(file, inPlace ? nullptr : target.open());
                ASSERT_EQ(isDone[inPlace], fault.calls() <= number);
                EXPECT_EQ(file.bytes().substr(0, HEIC_IMAGE.size()), HEIC_IMAGE);
                EXPECT_TRUE(inPlace || file.bytes() == before);
                if (isDone[inPlace]) {
                    EXPECT_EQ(readTrailer((inPlace ? file : target).bytes()).records,
                              (std::vector<TrailerRecord>{B, {2608, "Video", pattern(50000, 3)}}));
                }
            }
        }
    }
}

} // namespace
} // namespace android::lumo::test
