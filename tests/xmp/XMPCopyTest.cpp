// SPDX-License-Identifier: Apache-2.0
#include "XMPFixture.h"
#include "XMPInfoImpl.h"
#include "support/PhotoParts.h"

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
    auto expected = propertiesOf(sourcePacket()); // but what is of the source's own file, and empty fields
    std::erase_if(expected, [](auto const& each) {
        return each.first.ends_with("HasExtendedXMP") || each.first.ends_with("Label");
    });
    EXPECT_EQ(propertiesOf(textOf(*target.view())), expected);
}

TEST(XMPCopy, TransferSkipsWhatIsThereInAnyLetterCase) {
    Photo const source(sourcePacket());
    Photo const target(packetOf("t:ONE='old'", "<t:uri t:field='a struct'/>" +
                                                   arrayOf("dc:creator", "Seq", "<rdf:li>Z</rdf:li>") +
                                                   directoryOf(itemOf("gainmap", "old/old"))));
    source.view()->edit()->transferTo(target.file.open(), copy_options::skip_existing); // which asks the view
    auto const view = target.view();
    EXPECT_EQ(view->getProperty(TEST_NS, "t:ONE"), "old");
    for (char const* absent : {"t:one", "dc:creator[2]"})
        EXPECT_FALSE(view->containsProperty(absent, false)) << absent;
    EXPECT_EQ(view->getProperty(TEST_NS, "t:uri/t:field"), "a struct");
    EXPECT_EQ(view->getProperty(TEST_NS, "t:Case"), "new");
    EXPECT_TRUE(view->containsItem("MotionPhoto", false));
    EXPECT_FALSE(view->containsItem("GainMap", false));
}

TEST(XMPCopy, CopyToWritesNothingAndLeavesOutFieldsNobodyAskedFor) {
    Photo const source(sourcePacket()), target;
    auto const before = target.file.bytes();
    auto const from = source.view(), to = target.view();
    EXPECT_EQ(from->getItemField("MotionPhoto", "Mime"), "video/mp4");
    from->copyTo(*to);
    EXPECT_EQ(target.file.bytes(), before);
    EXPECT_EQ(to->getProperty("http://purl.org/dc/elements/1.1/", "dc:creator[3]"), "C");
    EXPECT_EQ(to->getItemNameAt(1), "Primary");
    EXPECT_EQ(to->getItemField("GainMap", "Mime"), "image/png");
    EXPECT_EQ(to->getItemField("GainMap", "Length"), "");

    EXPECT_EQ(from->getItemField("GainMap", "Length"), "5"); // read once, it is remembered
    from->copyTo(*to);
    EXPECT_EQ(to->getItemField("GainMap", "Length"), "5");
}

} // namespace
