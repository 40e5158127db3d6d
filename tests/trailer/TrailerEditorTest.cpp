#include "trailer/TrailerFixture.h"

#include <functional>

namespace android::lumo::test {
namespace {

std::string const VIDEO = pattern(70000, 3);
TrailerRecord const A{1, "A", "first"}, B{2, "B", pattern(3000)}, EMPTY{3, "Empty", ""}, A2{1, "A", "second"},
    O{1, "Other", "third"}, V{2608, "Video", VIDEO};

using Stage = std::function<void(QRTEdit&, std::shared_ptr<MediaFile> const& video)>;

struct Edit {
    std::vector<TrailerRecord> before;
    std::vector<TrailerRecord> after; ///< on disk in this order as well
    Stage stage;
    std::string fastOrder = {}; ///< on disk when the editor is told to be fast, if that makes a difference
};

// By type or name the first record is meant; names tell upper case from lower.
std::vector<Edit> const EDITS{
    {{V, A}, {A, B, V}, [](auto& e, auto&) { e.putData(2, "B", buffer(B.data)).setPrimaryType(2608); }, "Video A B"},
    {{A, B}, {B, {1, "A", VIDEO}}, [](auto& e, auto& v) { e.putData(1, "A", v).setPrimaryType(1); }, "A B"},
    {{A}, {A2}, [](auto& e, auto& v) { e.putData(1, "A", v).putData(1, "A", buffer("second")); }},
    {{A, A2, EMPTY, A, O}, {A, A2, EMPTY, A, O, B}, [](auto& e, auto&) { e.putData(2, "B", buffer(B.data)); }},
    {{O, A, B}, {{1, "Other", "new"}, A, B}, [](auto& e, auto&) { e.putData(1, buffer("new")); }},
    {{O, A, B}, {O, A2, B}, [](auto& e, auto&) { e.putData(std::string("A"), buffer("second")); }},
    {{A, A2, B}, {A2, B}, [](auto& e, auto&) { e.removeData("A").removeData(1, "B").removeData("a"); }},
    {{A, B, O, A2}, {B}, [](auto& e, auto&) { e.removeData(1); }},
    {{},
     {A, V, B},
     [](auto& e, auto& v) {
         e.putData(1, "A", std::string("first")).putData(2608, "Video", v).putData(2, "B", buffer(B.data));
     },
     "Video A B"},
    {{A},
     {A, EMPTY, {6, "Sixth", "6"}},
     [](auto& e, auto&) {
         TempFile source(STILLS[0].with({A2, EMPTY, {5, "3DPhoto_Info", "not this"}, {6, "Sixth", "6"}}));
         e.putAll(QRTInfo::parse(source.open()), std::filesystem::copy_options::skip_existing);
     }},
};

std::string namesOf(std::vector<TrailerRecord> const& records) {
    std::string names;
    for (auto const& record : records)
        names += (names.empty() ? "" : " ") + record.name;
    return names;
}

/// What the view says must be what stands in the file, to it and to a fresh one.
void expectRead(QRTInfoImpl& view, std::string const& bytes) {
    auto const truth = readTrailer(bytes);
    EXPECT_EQ(recordsOf(view), truth.records);
    for (size_t i = 0; i < truth.records.size(); ++i)
        EXPECT_EQ(view.getRecordList()[i].dataPosition, truth.dataPositions[i]);
    EXPECT_EQ(view.getTailPosition(), bytes.rfind("QRTH"));
    TempFile copy(bytes);
    auto const fresh = viewOf(copy);
    EXPECT_EQ(fresh->getImageSize(), view.getImageSize());
    EXPECT_EQ(fresh->getSize(), view.getSize());
    EXPECT_EQ(fresh->getVersion(), view.getVersion());
}

TEST(TrailerEditor, WritesWhatWasStagedInPlaceAndIntoAnotherFile) {
    TempFile video(VIDEO);
    for (auto const& edit : EDITS) {
        for (auto const& still : STILLS) {
            for (bool const isFast : {false, true}) {
                SCOPED_TRACE(namesOf(edit.before) + " to " + namesOf(edit.after) +
                             (still.isHeic ? ", HEIC" : ", JPEG") + (isFast ? ", fast" : ""));
                auto const option = isFast ? QRTEdit::Option::WRITE_FAST : QRTEdit::Option::WRITE_IN_ORDER;
                std::string const before = edit.before.empty() ? still.image : still.with(edit.before, 4);
                TempFile file(before), target(pattern(90000, 9));
                auto const view = viewOf(file);
                if (edit.before.size() > 1)
                    view->getData(view->getRecordList()[1]); // one is loaded, the others are not
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
                auto const planned = again->plannedLayout();
                again->commit();
                std::string const bytes = file.bytes();
                for (auto const& record : planned)
                    EXPECT_EQ(bytes.substr(view->getTailPosition() - record.offsetFromTail + 8, record.name.size()),
                              record.name);
                EXPECT_EQ(target.bytes(), bytes);
                auto const written = readTrailer(bytes);
                EXPECT_EQ(written.records, edit.after);
                EXPECT_EQ(written.image, still.inFrontOf(bytes));
                EXPECT_EQ(written.version, edit.before.empty() ? 0U : 4U);
                EXPECT_EQ(written.diskOrder(),
                          isFast && !edit.fastOrder.empty() ? edit.fastOrder : namesOf(edit.after));
                expectRead(*view, bytes);

                again->commit(); // nothing new
                EXPECT_EQ(readTrailer(file.bytes()).records, edit.after);
            }
        }
    }
}

TEST(TrailerEditor, AnswersTheViewsQueriesUntilItCommits) {
    TempFile file(STILLS[0].with({A, B}));
    auto const view = viewOf(file);
    auto const editor = view->edit();
    editor->putData(9, "New", std::string("x")).removeData("A");
    EXPECT_EQ(editor->getKeys(), (std::list<std::string>{"A", "B"}));
    EXPECT_EQ(editor->getPrimaryType(), 2);
    EXPECT_EQ(editor->setPrimaryType(9).getPrimaryType(), 9);
    editor->commit();
    EXPECT_EQ(editor->getKeys(), (std::list<std::string>{"B", "New"}));
}

TEST(TrailerEditor, LeavesTheFileWhenNothingIsStagedAndCutsTheTrailerWhenAsked) {
    for (auto const& still : STILLS) {
        TempFile file(still.with({A, B})), target;
        auto const view = viewOf(file);
        auto const editor = editorOf(view);
        editor->removeData(1).removeData(2).makeDirty();
        editor->commit(target.open());
        EXPECT_EQ(target.bytes(), file.bytes());
        EXPECT_FALSE(editor->isDirty());
        editor->cutTrailer(); // of the target
        EXPECT_EQ(target.bytes(), still.image);
        EXPECT_EQ(file.bytes(), still.with({A, B}));

        editor->commit(file.open());
        EXPECT_EQ(file.bytes(), still.with({A, B}));
        editor->cutTrailer();
        EXPECT_EQ(file.bytes(), still.image);
        EXPECT_EQ(view->getDataCount() + view->getSize(), 0);
        EXPECT_EQ(view->getImageSize(), still.image.size());
        editor->putData(1, "A", std::string("first")).commit();
        EXPECT_EQ(file.bytes(), still.with({A}));
    }
}

TEST(TrailerEditor, KeepsTheStoredFormOfARecordThatACallbackResolved) {
    std::string const pointer = "mpv2" + std::string("\0\0\0\x1E\0\0\0\x14", 8);
    TempFile file(STILLS[1].with({{2608, "Video", pointer}, A}));
    auto const view = viewOf(file, {[](auto&, auto& records) {
                                 records.front().dataPosition = 30;
                                 records.front().dataPayload = 20;
                             }});
    EXPECT_EQ(textOf(view->getData(2608)), HEIC_IMAGE.substr(30, 20)); // the video itself is in memory now
    view->edit()->putData(2, "B", buffer(B.data)).commit();
    EXPECT_EQ(readTrailer(file.bytes()).records, (std::vector<TrailerRecord>{{2608, "Video", pointer}, A, B}));
    EXPECT_EQ(textOf(view->getData(2608)), HEIC_IMAGE.substr(30, 20)); // resolved again
}

TEST(TrailerEditor, KeepsThePointerThatAContainerWriterCorrected) {
    auto const pointerTo = [](char position) {
        return std::string("mpv2\0\0\0", 7) + position + std::string("\0\0\0\7", 4);
    };
    TempFile file(STILLS[0].with({{2608, "Video", pointerTo(50)}, A}));
    auto const view = viewOf(file);
    EXPECT_EQ(textOf(view->getData(2608)), pointerTo(50));
    auto const editor = editorOf(view);
    editor->loadRecords();
    writeBytes(file.path(), JPEG_IMAGE + pattern(10) + trailerBytes({{2608, "Video", pointerTo(60)}, A}));
    editor->putData(2, "B", buffer("b")).commit();
    auto const written = readTrailer(file.bytes());
    EXPECT_EQ(written.records, (std::vector<TrailerRecord>{{2608, "Video", pointerTo(60)}, A, {2, "B", "b"}}));
    EXPECT_EQ(written.image, JPEG_IMAGE + pattern(10));
    EXPECT_EQ(textOf(view->getData(2608)), pointerTo(60));
}

TEST(TrailerEditor, TakesAVideoPointerAlongWithTheRecordItPointsInto) {
    for (std::string const more : {"", "more"}) {
        // 100 bytes of image, "A" of 14 bytes, the pointer's 21 or 25, then the head of "B" (9 bytes) and its data.
        auto const position = static_cast<char>(100 + 14 + 21 + 9 + 30 + more.size());
        std::string const pointer = std::string("mpv2\0\0\0", 7) + position + std::string("\0\0\0\7", 4) + more;
        std::string const bytes = STILLS[0].with({A, {2608, "V", pointer}, B});
        TempFile file(bytes);
        viewOf(file)->edit()->removeData("A").commit();
        auto const written = readTrailer(file.bytes());
        EXPECT_EQ(written.records[0].data, std::string(pointer).replace(7, 1, 1, static_cast<char>(position - 14)));
        EXPECT_EQ(written.dataPositions[1] + 30, static_cast<uint8_t>(position) - 14U);

        // Where "B" stood there are bytes that no record names.
        std::string gap = STILLS[0].with({A, {2608, "V", pointer}});
        size_t const tail = gap.rfind("QRTH");
        for (size_t const entry : {tail + 12, tail + 24})
            gap.replace(entry + 4, 4, little(littleAt(gap, entry + 4) + 500));
        gap.insert(tail, pattern(500));
        writeBytes(file.path(), gap);
        EXPECT_NE(messageOf([&] { viewOf(file)->edit()->removeData("A").commit(); }).find("stands in no record"),
                  std::string::npos);
        EXPECT_EQ(file.bytes(), gap);
    }
}

TEST(TrailerEditor, WritesSubInfoUnloadedLoadedAndUnderNewData) {
    TrailerRecord const sub{7, "Name", "data", "subsub"};
    auto const rewritten = [](std::string const& data) {
        return little(7 << 16 | 1) + little(4) + little(6) + "Name" + "subsub" + data;
    };
    for (std::string const data : {"data", "other data"}) {
        TempFile file(STILLS[0].with({A, sub, B}));
        auto const view = viewOf(file);
        auto const editor = view->edit();
        if (data != sub.data)
            editor->putData(7, buffer(data));
        editor->removeData("A").commit();
        EXPECT_EQ(file.bytes().substr(JPEG_IMAGE.size(), rewritten(data).size()), rewritten(data));
        EXPECT_EQ(textOf(view->getData("Name")), data);
        editor->putData(2, buffer("b")).commit(); // found again by its own layout
        EXPECT_EQ(file.bytes().substr(JPEG_IMAGE.size(), rewritten(data).size()), rewritten(data));
    }
}

TEST(TrailerEditor, ContinuesOnTheFileItIsAttachedTo) {
    std::string const grown = JPEG_IMAGE + pattern(500) + trailerBytes({A, B});
    TempFile file(STILLS[0].with({A, B})), copy(grown);
    auto const view = viewOf(file);
    auto const editor = editorOf(view);
    editor->attach(copy.open());
    editor->removeData("A").commit();
    EXPECT_EQ(copy.bytes(), JPEG_IMAGE + pattern(500) + trailerBytes({B}));
    EXPECT_EQ(file.bytes(), STILLS[0].with({A, B}));
    expectRead(*view, copy.bytes());
}

TEST(TrailerEditor, TakesRecordsOfAnotherTrailerWhole) {
    TempFile source(STILLS[0].with({EMPTY, {7, "Name", "data", "subsub"}})), file(STILLS[1].with({A}));
    auto const other = viewOf(source);
    auto const editor = editorOf(viewOf(file));
    EXPECT_THROW(editor->appendRecord(other->getRecordList()[1]), std::runtime_error); // not in memory yet
    other->loadAllData();
    for (auto const& record : other->getRecordList())
        editor->appendRecord(record);
    editor->commit();
    EXPECT_NE(file.bytes().find("Namesubsubdata"), std::string::npos);
    EXPECT_EQ(readTrailer(file.bytes()).records[1], EMPTY);

    other->transferTo(file.open(), std::filesystem::copy_options::none);
    EXPECT_EQ(readTrailer(file.bytes()).records.back(), (TrailerRecord{7, "Name", "data"}));

    std::string const before = file.bytes();
    TempFile twins(STILLS[0].with({A, A2}));
    EXPECT_NE(messageOf([&] {
                  viewOf(twins)->transferTo(file.open(), std::filesystem::copy_options::none);
              }).find("two records of type 1 have the name A"),
              std::string::npos);
    EXPECT_EQ(file.bytes(), before);
}

} // namespace
} // namespace android::lumo::test
