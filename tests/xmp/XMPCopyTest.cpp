#include "XMPFixture.h"
#include "XMPInfoImpl.h"

using namespace android::lumo;
using namespace android::lumo::test;

namespace {

using std::filesystem::copy_options;

/// Arrays of each form, values with qualifiers, a URI; items in an order that a hash map does not keep.
std::string sourcePacket() {
    return packetOf(
        R"(t:one="new" t:Case="new" xmpNote:HasExtendedXMP="0123")",
        arrayOf("dc:creator", "Seq", "<rdf:li>A</rdf:li><rdf:li>B</rdf:li><rdf:li>C</rdf:li>") +
            arrayOf("dc:title", "Alt", "<rdf:li xml:lang='x-default'>T</rdf:li><rdf:li xml:lang='de'>D</rdf:li>") +
            "<t:uri rdf:resource='urn:x'/><t:lang xml:lang='fr'>F</t:lang>" +
            directoryOf(itemOf("Primary", "image/jpeg") +
                        itemOf("GainMap", "image/png", "Item:Length='5' Item:Label=''") +
                        entryOf("Item:Semantic='Odd' Item:Mime='a/b' t:own='1'") + itemOf("MotionPhoto", "video/mp4")));
}

TEST(XMPCopy, PutAllTakesArraysWholeAndItemsInOrder) {
    Photo const source(sourcePacket());
    Photo const target(packetOf("t:one='old' t:uri='old'", arrayOf("dc:creator", "Bag", "<rdf:li>Z</rdf:li>") +
                                                               R"(<t:lang t:field="a struct"/>)"));
    auto const editor = target.view()->edit();
    editor->putAll(source.view(), copy_options::none);
    EXPECT_TRUE(editor->isDirty());
    editor->commit();

    auto const view = target.view();
    for (auto const& [schema, path] : source.view()->getProperties()) {
        auto const expected = path == "xmpNote:HasExtendedXMP" ? "" : source.view()->getProperty(schema, path);
        EXPECT_EQ(view->getProperty(schema, path), expected) << path;
    }
    EXPECT_FALSE(view->containsProperty("dc:creator[4]", false));
    auto const text = textOf(*view);
    for (char const* kept :
         {"rdf:resource=\"urn:x\"", "xml:lang=\"fr\"", "xml:lang=\"de\"", "<rdf:Alt>", "t:own=\"1\""})
        EXPECT_NE(text.find(kept), std::string::npos) << kept << " in " << text;
    EXPECT_EQ(text.find("a struct"), std::string::npos);
    EXPECT_EQ((std::list<std::string>{view->getItemNameAt(1), view->getItemNameAt(2), view->getItemNameAt(3),
                                      view->getItemNameAt(4)}),
              (std::list<std::string>{"Primary", "GainMap", "Odd", "MotionPhoto"}));
    EXPECT_EQ(view->getItemField("GainMap", "Mime"), "image/png");
    EXPECT_EQ(view->getItemField("GainMap", "Length"), "5");
    EXPECT_EQ(view->getItemFieldNames("GainMap").count("Label"), 0U); // empty fields are not written
}

TEST(XMPCopy, PutAllSkipsWhatIsThereInAnyLetterCase) {
    Photo const source(sourcePacket());
    Photo const target(packetOf("t:ONE='old'", "<t:uri t:field='a struct'/>" +
                                                   arrayOf("dc:creator", "Seq", "<rdf:li>Z</rdf:li>") +
                                                   directoryOf(itemOf("gainmap", "old/old"))));
    auto const view = target.view();
    view->edit()->putAll(source.view(), copy_options::skip_existing);
    EXPECT_EQ(view->getProperty("urn:test:", "t:ONE"), "old");
    EXPECT_FALSE(view->containsProperty("t:one", false));
    EXPECT_FALSE(view->containsProperty("dc:creator[2]", false));
    EXPECT_EQ(view->getProperty("urn:test:", "t:uri/t:field"), "a struct");
    EXPECT_EQ(view->getProperty("urn:test:", "t:Case"), "new");
    EXPECT_TRUE(view->containsItem("MotionPhoto", false));
    EXPECT_FALSE(view->containsItem("GainMap", false));
}

TEST(XMPCopy, CopyToWritesNothingAndLeavesOutFieldsNobodyAskedFor) {
    Photo const source(sourcePacket()), target;
    auto const before = target.getFile().bytes();
    auto const from = source.view(), to = target.view();
    EXPECT_EQ(from->getItemField("MotionPhoto", "Mime"), "video/mp4");
    from->copyTo(*to);
    EXPECT_EQ(target.getFile().bytes(), before);
    EXPECT_EQ(to->getProperty("http://purl.org/dc/elements/1.1/", "dc:creator[3]"), "C");
    EXPECT_EQ(to->getItemNameAt(1), "Primary");
    EXPECT_EQ(to->getItemField("GainMap", "Mime"), "image/png");
    EXPECT_EQ(to->getItemField("GainMap", "Length"), "");

    EXPECT_EQ(from->getItemField("GainMap", "Length"), "5"); // read once, it is remembered
    from->copyTo(*to);
    EXPECT_EQ(to->getItemField("GainMap", "Length"), "5");
}

TEST(XMPCopy, OntoItselfChangesNothing) {
    Photo const photo(sourcePacket());
    auto const view = photo.view();
    auto const before = textOf(*view);
    view->copyTo(*view);
    auto const editor = view->edit();
    editor->putAll(view, copy_options::none);
    editor->copyTo(*view);
    EXPECT_EQ(textOf(*view), before);
}

TEST(XMPCopy, TransferToCommitsIntoTheOtherFile) {
    Photo const source(sourcePacket()), target(packetOf("t:one='old' t:two='mine'"));
    source.view()->transferTo(target.getFile().open(), copy_options::skip_existing);
    EXPECT_EQ(target.view()->getProperty("urn:test:", "t:one"), "old");
    EXPECT_EQ(target.view()->getProperty("urn:test:", "t:two"), "mine");
    EXPECT_EQ(target.view()->getLastItem(), "MotionPhoto");
}

} // namespace
