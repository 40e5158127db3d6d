#include "trailer/TrailerFixture.h"

#include <functional>

namespace android::lumo::test {
namespace {

std::string const VIDEO = pattern(70000, 3);
TrailerRecord const A{1, "A", "first"}, B{2, "B", pattern(3000)}, EMPTY{3, "Empty", ""}, A2{1, "A", "second"},
    OTHER{1, "Other", "third"}, V{2608, "Video", VIDEO};

struct Edit {
    char const* name;
    std::vector<TrailerRecord> before;
    std::function<void(QRTEdit&, std::shared_ptr<MediaFile> const& video)> stage;
    std::vector<TrailerRecord> after;
    char const* inOrder; ///< on disk
    char const* fast;
};

std::vector<Edit> const EDITS{
    {"first record", {}, [](auto& e, auto&) { e.putData(1, "A", buffer("first")); }, {A}, "A", "A"},
    {"memory, file, memory",
     {},
     [](auto& e, auto& v) {
         e.putData(1, "A", std::string("first")).putData(2608, "Video", v).putData(2, "B", buffer(B.data));
     },
     {A, V, B},
     "A Video B",
     "Video A B"},
    {"primary type",
     {V, A},
     [](auto& e, auto&) { e.putData(2, "B", buffer(B.data)).setPrimaryType(2608); },
     {A, B, V},
     "A B Video",
     "Video A B"},
    {"primary type in a file",
     {A, B},
     [](auto& e, auto& v) { e.putData(1, "A", v).setPrimaryType(1); },
     {B, {1, "A", VIDEO}},
     "B A",
     "A B"},
    {"all as it was", {A, B, EMPTY}, [](auto&, auto&) {}, {A, B, EMPTY}, "A B Empty", "A B Empty"},
    {"duplicates",
     {A, A2, EMPTY, A, OTHER},
     [](auto& e, auto&) { e.putData(2, "B", buffer(B.data)); },
     {A, A2, EMPTY, A, OTHER, B},
     "A A Empty A Other B",
     "A A Empty A Other B"},
    {"first of a type",
     {OTHER, A, B},
     [](auto& e, auto&) { e.putData(1, buffer("new")).putData(std::string("B"), buffer("newer")); },
     {{1, "Other", "new"}, A, {2, "B", "newer"}},
     "Other A B",
     "Other A B"},
    {"memory in a file's place",
     {A},
     [](auto& e, auto& v) { e.putData(1, "A", v).putData(1, "A", buffer("second")); },
     {A2},
     "A",
     "A"},
    {"first of a name removed",
     {A, A2, B},
     [](auto& e, auto&) { e.removeData("A").removeData(1, "B").removeData("a"); },
     {A2, B},
     "A B",
     "A B"},
    {"a type removed", {A, B, OTHER, A2}, [](auto& e, auto&) { e.removeData(1); }, {B}, "B", "B"},
    {"another trailer's",
     {A},
     [](auto& e, auto&) {
         TempFile source(STILLS[0].with({A2, EMPTY, {5, "3DPhoto_Info", "not this"}, {6, "Sixth", "6"}}));
         e.putAll(QRTInfo::parse(source.open()), std::filesystem::copy_options::skip_existing);
     },
     {A, EMPTY, {6, "Sixth", "6"}},
     "A Empty Sixth",
     "A Empty Sixth"},
};

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
            for (auto const option : {QRTEdit::Option::WRITE_IN_ORDER, QRTEdit::Option::WRITE_FAST}) {
                SCOPED_TRACE(std::string(edit.name) + (still.isHeic ? ", HEIC" : ", JPEG") +
                             (option == QRTEdit::Option::WRITE_FAST ? ", fast" : ", in order"));
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

                auto const again = view->edit();
                edit.stage(again->setOption(option), video.open("r"));
                again->commit();
                std::string const bytes = file.bytes();
                EXPECT_EQ(target.bytes(), bytes);
                auto const written = readTrailer(bytes);
                EXPECT_EQ(written.records, edit.after);
                EXPECT_EQ(written.image, still.inFrontOf(bytes));
                EXPECT_EQ(written.version, edit.before.empty() ? 0U : 4U);
                EXPECT_EQ(written.diskOrder(), option == QRTEdit::Option::WRITE_FAST ? edit.fast : edit.inOrder);
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
    EXPECT_EQ(editor->edit(), editor);
    EXPECT_EQ(editor->getRecords().size(), 2U);
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

TEST(TrailerEditor, PlansTheLayoutItWillWrite) {
    TempFile video(VIDEO), file(STILLS[1].with({A, B}));
    auto const view = viewOf(file);
    for (auto const option : {QRTEdit::Option::WRITE_IN_ORDER, QRTEdit::Option::WRITE_FAST}) {
        auto const editor = editorOf(view);
        editor->putData(2608, "Video", video.open("r")).setPrimaryType(2).setOption(option);
        auto const planned = editor->plannedLayout();
        EXPECT_EQ(editor->getRecordList()[0].offsetFromTail, view->getRecordList()[0].offsetFromTail);
        editor->commit();
        std::string const bytes = file.bytes();
        auto const written = readTrailer(bytes);
        ASSERT_EQ(planned.size(), written.records.size());
        for (auto const& record : planned) {
            uint32_t const start = view->getTailPosition() - record.offsetFromTail;
            EXPECT_EQ(bytes.substr(start + 8, record.name.size()), record.name);
            EXPECT_EQ(start + record.size(), start + record.payload);
        }
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
    // 100 bytes of image, "A" of 14 bytes, the pointer's 21, then the head of "B" (9 bytes) and its data.
    uint8_t const position = 100 + 14 + 21 + 9 + 30;
    std::string const pointer = std::string("mpv2\0\0\0", 7) + static_cast<char>(position) + std::string("\0\0\0\7", 4);
    TempFile file(STILLS[0].with({A, {2608, "V", pointer}, B}));
    auto const editor = viewOf(file)->edit();
    editor->removeData("A").commit();
    auto const written = readTrailer(file.bytes());
    EXPECT_EQ(static_cast<uint8_t>(written.records[0].data[7]), position - 14);
    EXPECT_EQ(written.dataPositions[1] + 30, position - 14U);
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

TEST(TrailerEditor, WritesItsRecordsFromMemoryBehindWhatOverwroteTheTrailer) {
    TempFile file(STILLS[1].with({A, EMPTY, B}));
    auto const view = viewOf(file);
    auto const editor = editorOf(view);
    editor->loadRecords();
    view->setSize(0);
    std::string const image = HEIC_IMAGE + std::string("\0\0\x07\xD8mpvd", 8) + pattern(2000);
    writeBytes(file.path(), image);
    editor->commit();
    EXPECT_EQ(readTrailer(file.bytes()).records, (std::vector<TrailerRecord>{A, EMPTY, B}));
    EXPECT_EQ(file.bytes().substr(0, image.size()), image);
    expectRead(*view, file.bytes());
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
}

} // namespace
} // namespace android::lumo::test
