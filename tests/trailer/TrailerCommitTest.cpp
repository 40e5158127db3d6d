// SPDX-License-Identifier: Apache-2.0
#include "support/Faults.h"
#include "trailer/TrailerFixture.h"

#include <cerrno>

namespace android::lumo::test {
namespace {

/// Files a refused edit may name.
struct Files {
    Still still;
    TempFile file{still.with({A, B})}, video{pattern(50000, 3)};
    std::shared_ptr<QRTInfoImpl> view = viewOf(file);
    std::shared_ptr<QRTEditImpl> editor = editorOf(view);

    QRTEdit& addVideo() { return editor->putData(9, "New", video.open("r")); }
    void overwrite(std::string const& bytes) { writeBytes(file.path(), bytes); }
};

TEST(TrailerCommit, RefusesBeforeTheFirstWrite) {
    std::vector<TrailerRecord> const more{A, B, A}, others{{1, "A", "firs"}, {2, "B", pattern(3001)}};
    static constexpr char CHANGED[] = "the trailer has changed since it was read";
    auto const putMany = [](Files& f) {
        for (int i = 2; i < 16'385; ++i)
            f.editor->putData(i, "x", std::string("x"));
    };
    std::tuple<char const*, std::function<void(Files&)>> const refusals[] = {
        {"no data: empty=1", [](auto& f) { f.editor->putData(9, "New", ByteBuffer()); }},
        {"has 0 bytes, expected 1", [](auto& f) { f.editor->putData(9, "New", TempFile().open()); }},
        {"is the file to write", [](auto& f) { f.editor->putData(9, "New", f.file.open("r")); }},
        {"has 10 bytes, expected 50000", [](auto& f) { f.addVideo(), writeBytes(f.video.path(), "ten  bytes"); }},
        {"fail to read bytes", [](auto& f) { f.editor->putData(9, "New", f.video.open("w")); }},
        {"grow past 4 GiB",
         [](auto& f) { std::filesystem::resize_file(f.video.path(), (uint64_t{1} << 32) - 3001), f.addVideo(); }},
        {"record count 16385 is above 16384", putMany},
        {"type 40000 of record New", [](auto& f) { f.editor->putData(40000, "New", std::string("x")); }},
        {CHANGED, [&](auto& f) { f.overwrite(f.still.with(more)); }},
        {CHANGED, [](auto& f) { f.overwrite(f.still.image.substr(0, 20)); }},
        {CHANGED, [&](auto& f) { f.overwrite(f.still.with(others)); }},
        {CHANGED, [](auto& f) { f.view->edit()->removeData("B").putData(1, buffer("x")).commit(); }},
        {"fail to reserve", [](auto& f) { f.addVideo(); }},
    };
    for (auto const& still : STILLS) {
        for (auto const& [message, stage] : refusals) {
            Files files{still};
            stage(files);
            std::string const before = files.file.bytes();
            auto const fault = Fault::failing(Call::ALLOCATE, ENOSPC);
            EXPECT_TRUE(failsWith(message, [&] { files.editor->commit(); }));
            EXPECT_EQ(files.file.bytes(), before) << message;
        }
    }
}

TEST(TrailerCommit, RefusesABoxThatIsNotThereAndRecordsThatWereNotThere) {
    TempFile const unboxed(HEIC_IMAGE + trailerBytes({A, B})), file(JPEG_IMAGE);
    auto const editor = viewOf(file)->edit();
    EXPECT_TRUE(failsWith("no box of type qrtd", [&] { viewOf(unboxed)->edit()->commit(); }));
    writeBytes(file.path(), STILLS[0].with({A}));
    EXPECT_TRUE(failsWith("changed since it was read", [&] { editor->putData(2, "B", B.data).commit(); }));
    EXPECT_EQ(file.bytes() + unboxed.bytes(), STILLS[0].with({A}) + HEIC_IMAGE + trailerBytes({A, B}));
}

TEST(TrailerCommit, TakesNoKeyFormOrOptionThatIsNotThere) {
    TempFile const file(STILLS[0].with({A}));
    auto const view = viewOf(file);
    auto const editor = view->edit();
    ByteBuffer const bytes = buffer("x");
    EXPECT_TRUE(messageOf([&] { editor->putData(9, buffer("x")); }).ends_with("] "));
    EXPECT_TRUE(messageOf([&] { editor->putData(std::string("None"), buffer("x")); }).ends_with("] "));
    EXPECT_TRUE(failsWith("] implement here", [&] { editor->putData(std::string("A"), bytes); }));
    EXPECT_TRUE(failsWith("no data: empty=1, file=(nil)", [] { static_cast<void>(QRTDataInfo().toBuffer()); }));
    editor->setOption(static_cast<QRTEdit::Option>(2)).putData(2, "B", std::string("b"));
    editor->commit();
    EXPECT_EQ(file.bytes(), STILLS[0].with({A}));
    EXPECT_EQ(view->getKeys(), (std::list<std::string>{"A", "B"}));
    EXPECT_EQ(textOf(view->getData("A")) + textOf(view->getData("B")), A.data + "b");
}

TEST(TrailerCommit, ARecordThatStaysIsNotReadAndOneThatMovesIsReadBeforeAnythingChanges) {
    TrailerRecord const large{9, "Large", pattern(300'000)};
    for (auto const& still : STILLS) {
        TempFile const file(still.with({A, large}));
        std::string const before = file.bytes();
        auto const bad = static_cast<off64_t>(before.find(large.data) + 150'000);
        {
            Fault const fault = Fault::badSector(bad);
            EXPECT_TRUE(failsWith("fail to read", [&] { viewOf(file)->edit()->removeData("A").commit(); }));
            EXPECT_EQ(file.bytes(), before);
            viewOf(file)->edit()->putData(2, "B", B.data).removeData("None").commit();
        }
        EXPECT_EQ(file.bytes(), still.with({A, large, B}));
        auto const editor = viewOf(file)->edit(); // two that change places, one of them over the other
        editor->setPrimaryType(1).removeData("B").commit();
        EXPECT_EQ(file.bytes(), still.with({large, A}));
    }
}

} // namespace
} // namespace android::lumo::test
