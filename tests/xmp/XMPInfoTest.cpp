// SPDX-License-Identifier: Apache-2.0
#include "XMPFixture.h"
#include "XMPInfoImpl.h"

using namespace android::lumo;
using namespace android::lumo::test;

namespace {

using Names = std::list<std::string>;

TEST(XMPInfo, IsEmptyWithoutPacketAndWithBlankRoom) {
    for (auto const& packet : {std::string(), std::string(1000, ' '), std::string(1000, '\0')}) {
        auto const view = Photo(packet).view();
        EXPECT_TRUE(view->isEmpty());
        EXPECT_EQ(view->getLastItem() + view->getProperty(xmp_ns::CAMERA, "GCamera:MotionPhoto"), "");
    }
}

TEST(XMPInfo, ListsTopLevelValuesAndNothingOfStructsAndDirectory) {
    auto const view = Photo(packetOf(R"(Camera:MotionPhoto="1" t:one="a")",
                                     arrayOf("dc:creator", "Seq", "<rdf:li>A</rdf:li><rdf:li>B</rdf:li>") +
                                         R"(<t:struct t:field="x"/>)" + directoryOf(itemOf("Primary", "image/jpeg")) +
                                         "<t:blank> </t:blank>\n<t:cut> <!-- --> </t:cut>"))
                          .view();
    // The camera's namespace goes by the registered prefix, whatever the file calls it.
    EXPECT_EQ(view->getPropertyNames(),
              (Names{"GCamera:MotionPhoto", "t:one", "t:blank", "t:cut", "dc:creator[1]", "dc:creator[2]"}));
    EXPECT_EQ(view->getProperty(TEST_NS, "t:blank") + "|" + view->getProperty(TEST_NS, "t:cut"), " |  ");
    EXPECT_EQ(view->getProperty("http://purl.org/dc/elements/1.1/", "dc:creator[2]"), "B");
    EXPECT_TRUE(view->containsProperty("gcamera:MOTIONPHOTO", true));
    EXPECT_FALSE(view->containsProperty("gcamera:MOTIONPHOTO", false));
    for (char const* hostile : {"", "GCamera:", "dc:creator[0]", "dc:creator[", "nobody:knows", "a/b"})
        EXPECT_EQ(view->getProperty(xmp_ns::CAMERA, hostile), "") << hostile;
    EXPECT_EQ(view->getProperty("", "GCamera:MotionPhoto"), "");
}

TEST(XMPInfo, AnswersForItemsByExactName) {
    auto const entries = itemOf("Primary", "image/jpeg") + itemOf("MotionPhoto", "video/mp4", "Item:Length='77'");
    auto const view = Photo(packetOf("", directoryOf(entries))).view();
    EXPECT_EQ(contentOf(*view), "Primary: Mime=image/jpeg Semantic=Primary\n"
                                "MotionPhoto: Length=77 Mime=video/mp4 Semantic=MotionPhoto\n");
    EXPECT_TRUE(view->containsItem("motionphoto", true));
    EXPECT_FALSE(view->containsItem("motionphoto", false));
    EXPECT_FALSE(view->containsItemField("Primary", "Length"));
    EXPECT_EQ(view->getItemNameAt(0) + view->getItemNameAt(3) + view->getItemField("motionphoto", "Length"), "");
    for (char const* hostile : {"", "a/b", "x[1]", "Item:Length", "\xFF"})
        EXPECT_EQ(view->getItemField("MotionPhoto", hostile), "") << hostile;
}

TEST(XMPInfo, KeepsWhatItCouldReadOfDamagedDirectories) {
    auto const good = itemOf("Primary", "image/jpeg"), last = itemOf("Z", "a/b");
    std::tuple<char const*, std::string, Names> const cases[] = {
        {"empty", directoryOf(""), {"", "", ""}},
        {"no array", "<Container:Directory>text</Container:Directory>", {"", "", ""}},
        {"a struct", "<Container:Directory Item:Semantic='Primary'/>", {"", "", ""}},
        {"entry without name", directoryOf(good + entryOf("Item:Mime='a/b'") + last), {"Primary", "", ""}},
        {"entry without mime", directoryOf(good + entryOf("Item:Semantic='X'") + last), {"Primary", "X", ""}},
        {"entry that is text", directoryOf(good + "<rdf:li>text</rdf:li>" + last), {"Primary", "", ""}},
        {"one name twice", directoryOf(itemOf("X", "a/b") + good + itemOf("X", "a/c")), {"", "Primary", "X"}},
        {"unordered array", arrayOf("Container:Directory", "Bag", good), {"Primary", "", ""}},
    };
    for (auto const& [what, elements, inPlace] : cases) {
        SCOPED_TRACE(what);
        auto const view = Photo(packetOf("", elements)).view();
        EXPECT_EQ((Names{view->getItemNameAt(1), view->getItemNameAt(2), view->getItemNameAt(3)}), inPlace);
    }
    auto const notCountable = Photo(packetOf("", std::get<1>(cases[1]))).view();
    EXPECT_NE(refusalOf([&] { notCountable->getLastItem(); }), "");
}

TEST(XMPInfo, ShowsTheFileAgainWhenLoadedAgain) {
    Photo const photo(packetOf("t:old=\"1\"", directoryOf(itemOf("Old", "a/b"))));
    auto const view = photo.view();
    photo.view()->edit()->removeItem("Old").setProperty(TEST_NS, "t:new", "2").commit();
    XMPInfoImpl::of(*view)->load();
    EXPECT_EQ(view->getPropertyNames(), (Names{"t:old", "t:new"}));
    EXPECT_EQ(view->getItemNames(), Names{});

    auto const before = contentOf(*view);
    writeBytes(photo.file.path(), JpegBuilder().xmp("<broken").build());
    EXPECT_NE(refusalOf([&] { XMPInfoImpl::of(*view)->load(); }), "");
    EXPECT_EQ(contentOf(*view), before);
}

/// In a process of its own, because the toolkit keeps the first prefix it is told. gtest runs this suite first, so the
/// forked process has none yet.
TEST(XMPInfoDeathTest, RefusesToWorkWithAnotherPrefix) {
    EXPECT_EXIT(
        {
            SXMPMeta::Initialize();
            SXMPMeta::RegisterNamespace(xmp_ns::ITEM, "Foreign", nullptr);
            std::exit(refusalOf([] { Photo().view(); }).empty() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
