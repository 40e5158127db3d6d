// SPDX-License-Identifier: Apache-2.0
#include "trailer/TrailerFixture.h"

namespace android::lumo::test {
namespace {

std::string const VIDEO = pattern(70000, 3);
TrailerRecord const O{1, "Other", "third"}, V{2608, "Video", VIDEO};

struct Edit {
    std::vector<TrailerRecord> before;
    std::vector<TrailerRecord> after; ///< on disk in this order as well
    std::function<void(QRTEdit&, std::shared_ptr<MediaFile> const& video)> stage;
    std::string fastOrder = {}; ///< on disk when the editor is told to be fast, if that makes a difference
};

// By type or name the first record is meant; names tell upper case from lower.
std::vector<Edit> const EDITS{
    {{V, A}, {A, B, V}, [](auto& e, auto&) { e.putData(2, "B", B.data).setPrimaryType(2608); }, "Video A B"},
    {{A, B}, {B, {1, "A", VIDEO}}, [](auto& e, auto& v) { e.putData(1, "A", v).setPrimaryType(1); }, "A B"},
    {{A}, {A2}, [](auto& e, auto& v) { e.putData(1, "A", v).putData(1, "A", A2.data); }},
    {{A, A2, EMPTY, A, O}, {A, A2, EMPTY, A, O, B}, [](auto& e, auto&) { e.putData(2, "B", B.data); }},
    {{O, A, B}, {{1, "Other", "new"}, A, B}, [](auto& e, auto&) { e.putData(1, buffer("new")); }},
    {{O, A, B}, {O, A2, B}, [](auto& e, auto&) { e.putData(std::string("A"), buffer(A2.data)); }},
    {{A, A2, B}, {A2, B}, [](auto& e, auto&) { e.removeData("A").removeData(1, "B").removeData("a"); }},
    {{A, B, O, A2}, {B}, [](auto& e, auto&) { e.removeData(1); }},
    {{A, V, A2, B, O, EMPTY},
     {V, {1, "Other", "new"}, EMPTY, {2, "A", "again"}, B},
     [](auto& e, auto&) {
         e.putData(1, buffer("x")).removeData(1, "A").putData(1, buffer("y")).removeData(2, "B").removeData("A");
         e.putData(1, buffer("new")).putData(2, "A", buffer("again")).putData(2, "B", B.data);
     }},
    {{},
     {A, V, B},
     [](auto& e, auto& v) { e.putData(1, "A", A.data).putData(2608, "Video", v).putData(2, "B", B.data); },
     "Video A B"},
    {{A},
     {A, EMPTY, {6, "Sixth", "6"}},
     [](auto& e, auto&) {
         TempFile const source(STILLS[0].with({A2, EMPTY, {5, "3DPhoto_Info", "not this"}, {6, "Sixth", "6"}}));
         e.putAll(QRTInfo::parse(source.open()), std::filesystem::copy_options::skip_existing);
     }},
};

std::string namesOf(std::vector<TrailerRecord> const& records) {
    std::string names;
    for (auto const& record : records)
        names += (names.empty() ? "" : " ") + record.name;
    return names;
}

void expectWritten(Edit const& edit, Still const& still, QRTEdit::Option option) {
    TempFile const video(VIDEO), file(edit.before.empty() ? still.image : still.with(edit.before, 4)), target("x");
    std::string const before = file.bytes();
    auto const view = viewOf(file);
    if (edit.before.size() > 1)
        view->getAllData(edit.before[1].type); // some are loaded, others are not
    auto const editor = view->edit();
    edit.stage(editor->setOption(option), video.open("r"));
    EXPECT_FALSE(editor->isDirty());
    editor->makeDirty();
    editor->commit(target.open());
    EXPECT_FALSE(editor->isDirty());
    EXPECT_EQ(file.bytes(), before);
    EXPECT_EQ(recordsOf(*view), edit.before);

    auto const again = editorOf(view);
    edit.stage(again->setOption(option), video.open("r"));
    again->commit();
    std::string const bytes = file.bytes();
    EXPECT_EQ(target.bytes(), bytes);
    auto const written = readTrailer(bytes);
    EXPECT_EQ(written.records, edit.after);
    EXPECT_EQ(written.image, still.inFrontOf(bytes));
    EXPECT_EQ(written.version, edit.before.empty() ? 0U : 4U);
    bool const isInOrder = option == QRTEdit::Option::WRITE_IN_ORDER || edit.fastOrder.empty();
    EXPECT_EQ(written.diskOrder(), isInOrder ? namesOf(edit.after) : edit.fastOrder);
    expectRead(*view, bytes);
    again->commit(); // nothing new
    EXPECT_EQ(readTrailer(file.bytes()).records, edit.after);
}

TEST(TrailerEditor, WritesWhatWasStagedInPlaceAndIntoAnotherFile) {
    for (auto const& edit : EDITS) {
        for (auto const& still : STILLS) {
            for (auto const option : {QRTEdit::Option::WRITE_IN_ORDER, QRTEdit::Option::WRITE_FAST}) {
                SCOPED_TRACE(namesOf(edit.before) + " to " + namesOf(edit.after) + (still.isHeic ? ", HEIC" : ""));
                expectWritten(edit, still, option);
            }
        }
    }
}

TEST(TrailerEditor, LeavesTheFileWhenNothingIsStagedAndCutsTheTrailerWhenAsked) {
    for (auto const& still : STILLS) {
        TempFile const file(still.with({A, B})), target;
        auto const view = viewOf(file);
        auto const editor = editorOf(view);
        editor->removeData(1).removeData(2).commit(target.open());
        EXPECT_EQ(target.bytes(), file.bytes());
        editor->cutWhenEmpty(true);
        editor->commit(); // of the target, where the last commit went
        EXPECT_EQ(target.bytes(), still.image);
        EXPECT_EQ(file.bytes(), still.with({A, B}));
        editor->commit(file.open());
        EXPECT_EQ(file.bytes(), still.image);
        EXPECT_EQ(view->getDataCount() + view->getSize(), 0);
        EXPECT_EQ(view->getImageSize(), still.image.size());
        EXPECT_EQ(editor->setPrimaryType(1).getPrimaryType(), 1);
        editor->putData(1, "A", A.data).commit();
        EXPECT_EQ(file.bytes(), still.with({A}));
    }
}

TrailerRecord pointer(size_t position, std::string const& more = "") {
    return {2608, "V", pointerTo(position, 7) + more};
}

TEST(TrailerEditor, TakesAVideoPointerAlongWithTheRecordItPointsInto) {
    for (std::string const more : {"", "more"}) {
        // 100 bytes of image, "A" of 14 bytes, the pointer's 21 or 25, then the head of "B" (9 bytes) and its data.
        size_t const position = 100 + 14 + 21 + 9 + 30 + more.size();
        auto const into = pointer(position, more);
        TempFile const file(STILLS[0].with({A, into, B}));
        viewOf(file)->edit()->removeData("A").commit();
        EXPECT_EQ(file.bytes(), STILLS[0].with({pointer(position - 14, more), B}));

        // Where "B" stood there are bytes that no record names.
        std::string gap = STILLS[0].with({A, into});
        size_t const tail = gap.rfind("QRTH");
        for (size_t const entry : {tail + 12, tail + 24})
            gap.replace(entry + 4, 4, little(littleAt(gap, entry + 4) + 500));
        writeBytes(file.path(), gap.insert(tail, pattern(500)));
        EXPECT_TRUE(failsWith("stands in no record", [&] { viewOf(file)->edit()->removeData("A").commit(); }));
        EXPECT_EQ(file.bytes(), gap);
    }
}

TEST(TrailerEditor, WritesSubInfoUnloadedLoadedAndUnderNewData) {
    for (std::string const data : {"data", "other data"}) {
        TempFile const file(STILLS[0].with({A, {7, "Name", "data", "subsub"}, B}));
        auto const view = viewOf(file);
        auto const editor = view->edit();
        if (data != "data")
            editor->putData(7, buffer(data));
        editor->removeData("A").commit();
        editor->putData(2, buffer("b")).commit(); // found again by its own layout
        EXPECT_TRUE(
            file.bytes().starts_with(JPEG_IMAGE + little(7 << 16 | 1) + little(4) + little(6) + "Namesubsub" + data));
        EXPECT_EQ(textOf(view->getData("Name")), data);
    }
}

TEST(TrailerEditor, TakesRecordsOfAnotherTrailerWhole) {
    TempFile const source(STILLS[0].with({EMPTY, {7, "Name", "data", "subsub"}})), file(STILLS[1].with({A}));
    auto const other = viewOf(source);
    auto const editor = editorOf(viewOf(file));
    for (auto const& record : other->getRecordList())
        editor->append(*other, record, std::nullopt);
    editor->commit();
    EXPECT_NE(file.bytes().find("Namesubsubdata"), std::string::npos);
    EXPECT_EQ(readTrailer(file.bytes()).records[1], EMPTY);
    other->transferTo(file.open(), std::filesystem::copy_options::none);
    EXPECT_EQ(readTrailer(file.bytes()).records.back(), (TrailerRecord{7, "Name", "data"}));

    std::string const before = file.bytes();
    TempFile const twins(STILLS[0].with({A, A2}));
    EXPECT_TRUE(failsWith("two records of type 1 have the name A",
                          [&] { viewOf(twins)->transferTo(file.open(), std::filesystem::copy_options::none); }));
    EXPECT_EQ(file.bytes(), before);
}

} // namespace
} // namespace android::lumo::test
