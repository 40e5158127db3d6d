// SPDX-License-Identifier: Apache-2.0
#include "XMPEditImpl.h"
#include "XMPError.h"
#include "XMPFixture.h"
#include "io/ImageMetaReader.h"
#include "support/PhotoParts.h"

using namespace android::lumo;
using namespace android::lumo::test;

namespace {

using Mime = MediaDefs::MimeType;

std::string gainMap() {
    return packetOf("", directoryOf(itemOf("Primary", "image/jpeg") + itemOf("GainMap", "image/jpeg")));
}

TEST(XMPEdit, WritesPropertiesAndItemsIntoAStillWithoutXmp) {
    Photo const photo;
    auto const before = photo.file.bytes();
    auto const view = photo.view();
    auto const editor = view->edit();
    editor->setProperty(xmp_ns::CAMERA, "GCamera:MotionPhoto", "1")
        .setItem("Primary", Mime::IMAGE_JPEG)
        .setItem("MotionPhoto", Mime::VIDEO_MP4)
        .setItemField("MotionPhoto", "Length", "42");
    EXPECT_EQ(view->getItemNameAt(2), "MotionPhoto"); // before any commit
    editor->commit();
    EXPECT_FALSE(editor->isDirty());
    auto const written = photo.view();
    EXPECT_EQ(contentOf(*written), "GCamera:MotionPhoto=1\n"
                                   "Primary: Mime=image/jpeg Semantic=Primary\n"
                                   "MotionPhoto: Length=42 Mime=video/mp4 Semantic=MotionPhoto\n");
    EXPECT_NE(textOf(*written).find("<rdf:Seq>"), std::string::npos);
    EXPECT_NE(textOf(*written).find("GCamera:MotionPhoto=\"1\""), std::string::npos); // compact
    EXPECT_EQ(textOf(*written).find("<?xpacket"), std::string::npos);
    EXPECT_EQ(takeApart(photo.file.bytes()).image, takeApart(before).image);
}

TEST(XMPEdit, ViewReadsTheSameAsTheFileAfterwards) {
    auto const good = itemOf("Primary", "image/jpeg"), doubled = itemOf("X", "a/b") + good + itemOf("X", "a/c");
    auto const broken = good + entryOf("Item:Semantic='X'") + itemOf("Z", "a/b");
    std::tuple<char const*, std::string, void (*)(XMPEdit&), char const*> const cases[] = {
        {"an item of the name, and none to change", good + itemOf("Z", "a/b"),
         [](auto& e) { e.setItem("Z", Mime::IMAGE_HEIC).removeItem("N").replaceItemField("N", "Mime", "x"); },
         "Primary:image/jpeg Z:a/b "},
        {"removed after another, field set behind it, and one put back", good + itemOf("X", "a/b") + itemOf("Z", "c/d"),
         [](auto& e) {
             e.removeItem("Primary").setItemField("Z", "Mime", "e/f").removeItem("X");
             e.setItem("Primary", Mime::IMAGE_JPEG).removeItemField("Primary", "nothing");
         },
         "Primary:image/jpeg Z:e/f "},
        {"one of two of a name removed", doubled, [](auto& e) { e.removeItem("X"); }, "Primary:image/jpeg X:a/b "},
        {"both removed", doubled, [](auto& e) { e.removeItem("X").removeItem("X"); }, "Primary:image/jpeg "},
        {"item behind a broken entry", good + entryOf("Item:Mime='a/b'"),
         [](auto& e) { e.setItem("MotionPhoto", Mime::VIDEO_MP4).setItem("Y", Mime::NONE); },
         "MotionPhoto:video/mp4 Primary:image/jpeg Y:none "},
        {"broken entry repaired", broken, [](auto& e) { e.setItemField("X", "Mime", "x/y"); },
         "Primary:image/jpeg X:x/y Z:a/b "},
        {"broken entry removed", broken, [](auto& e) { e.removeItem("X"); }, "Primary:image/jpeg Z:a/b "},
        {"item broken, and one added", good + itemOf("Z", "a/b"),
         [](auto& e) { e.removeItemField("Z", "Mime").setItem("Y", Mime::NONE); }, "Primary:image/jpeg Y:none Z: "},
        {"item renamed", good + itemOf("Z", "a/b"), [](auto& e) { e.setItemField("Z", "Semantic", "N"); },
         "N:a/b Primary:image/jpeg "},
        {"item renamed onto one in front", good + itemOf("Z", "a/b") + itemOf("N", "c/d"),
         [](auto& e) { e.setItemField("N", "Semantic", "Z"); }, "Primary:image/jpeg Z:c/d "},
        {"and onto one behind", itemOf("N", "c/d") + good + itemOf("Z", "a/b"),
         [](auto& e) { e.setItemField("N", "Semantic", "Z"); }, "Primary:image/jpeg Z:a/b "},
        {"directory changed by path", good,
         [](auto& e) { e.setProperty(xmp_ns::CONTAINER, "Container:Directory[1]/Container:Item/Item:Semantic", "N"); },
         "N:image/jpeg "},
    };
    auto const sorted = [](XMPInfo const& view) {
        auto names = view.getItemNames();
        names.sort();
        std::string text;
        for (auto const& name : names)
            text += name + ":" + view.getItemField(name, "Mime") + " ";
        return text;
    };
    for (auto const& [what, entries, change, expected] : cases) {
        SCOPED_TRACE(what);
        Photo const photo(packetOf("", directoryOf(entries)));
        auto const view = photo.view();
        auto const editor = view->edit();
        change(*editor);
        bool const isChanged = editor->isDirty();
        editor->commit();
        EXPECT_EQ(sorted(*view), sorted(*photo.view()));
        EXPECT_EQ(sorted(*photo.view()), expected);
        EXPECT_EQ(isChanged, &what != &std::get<0>(cases[0])); // the first asks for nothing new
    }
    Photo const photo(packetOf("", directoryOf(good + itemOf("Z", "a/b"))));
    auto const view = photo.view();
    view->edit()->removeItem("Primary"); // recorded places stay
    EXPECT_EQ(view->getItemNameAt(1) + "," + view->getItemNameAt(2) + "," + view->getLastItem(), ",Z,Z");
    EXPECT_TRUE(failsWith("no such item(nobody) exist, add item first w/ addItem",
                          [&] { view->edit()->setItemField("nobody", "Mime", "x"); }));
}

TEST(XMPEdit, ReadsBackEveryTextThatXmlCarries) {
    Photo const photo(gainMap());
    for (std::string const text :
         {"", " a ", "<&>\"'", "line\nline\r\ttab", "]]>", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\x9E"}) {
        photo.view()->edit()->setProperty(TEST_NS, "t:a", text).setItemField("GainMap", "Label", text).commit();
        EXPECT_EQ(photo.view()->getProperty(TEST_NS, "t:a"), text);
        EXPECT_EQ(photo.view()->getItemField("GainMap", "Label"), text);
    }
}

TEST(XMPEdit, RefusesTextsAndNamesBeforeAnythingChanges) {
    Photo const photo(gainMap());
    auto const view = photo.view();
    auto const before = textOf(*view);
    auto const editor = view->edit();
    for (auto const& bad : {std::string("\xFF"), std::string("a\xC3"), std::string("\xC0\x80"),
                            std::string("\xED\xA0\x80"), std::string("\xF4\x90\x80\x80"), std::string("\xEF\xBF\xBF"),
                            std::string("a\0b", 3), std::string("\x1B[0m")}) {
        EXPECT_THROW(editor->setProperty(TEST_NS, "t:a", bad), XMPError);
        EXPECT_THROW(editor->setItem(bad, Mime::NONE), XMPError);
        EXPECT_NE(refusalOf([&] { editor->setProperty(TEST_NS, "t:" + bad, "x"); }), "");
        EXPECT_NE(refusalOf([&] { editor->removeProperty(TEST_NS + bad, "t:a"); }), "");
    }
    for (auto const& bad : {std::string(), std::string("t:a["), std::string("dc:a"), std::string("t:a[5]"),
                            "t:a" + repeated("/t:a", 50000)})
        EXPECT_NE(refusalOf([&] { editor->setProperty(TEST_NS, bad, "x"); }), "") << bad.substr(0, 9);
    EXPECT_NE(refusalOf([&] { editor->setProperty("urn:nobody:", "a", "x"); }), "");
    EXPECT_THROW(editor->setItem("X", static_cast<Mime>(9)), std::runtime_error);
    EXPECT_FALSE(editor->isDirty());
    editor->setItemField("GainMap", "a/b", "x"); // the toolkit's refusal of a field is only logged
    editor->setItemField("GainMap", "Label", "\xFF");
    EXPECT_EQ(textOf(*view), before);
}

TEST(XMPEdit, RemoveAllEmptiesWhatTheFourNamespacesHold) {
    Photo const photo(packetOf("Camera:MotionPhoto='1' hdrgm:Version='1.0'",
                               arrayOf("hdrgm:Gamma", "Seq", "<rdf:li>1</rdf:li><rdf:li>2</rdf:li><rdf:li>3</rdf:li>") +
                                   directoryOf(itemOf("X", "a/b") + itemOf("X", "a/c") + entryOf("Item:Mime='a/b'"))));
    auto const view = photo.view();
    view->edit()->removeAll().commit();
    EXPECT_TRUE(view->isEmpty());
    EXPECT_TRUE(photo.view()->isEmpty());

    auto const foreign = Photo(packetOf("t:one='1'")).view()->edit(); // stops there, and remembers the namespace
    EXPECT_NE(refusalOf([&] { foreign->removeAll(); }), "");
    EXPECT_EQ(xmpNamespaces().erase("t"), 1U);
}

TEST(XMPEdit, CommitsIntoATargetThatIsEmptyOrHasItsOwnImage) {
    Photo const source(packetOf("t:one='1'")), other(packetOf("t:two='2'"));
    auto const sourceBytes = source.file.bytes();
    TempFile const empty, second;
    auto const editor = source.view()->edit();
    editor->setProperty(TEST_NS, "t:one", "changed").commit(empty.open());
    EXPECT_EQ(XMPInfo::parse(empty.open())->getProperty(TEST_NS, "t:one"), "changed");
    EXPECT_EQ(segmentsOf(empty.bytes()).back(), segmentsOf(sourceBytes).back());

    editor->commit(other.file.open());
    EXPECT_EQ(contentOf(*other.view()), "t:one=changed\n");
    auto const once = other.file.bytes();
    editor->commit(); // stays on the target
    EXPECT_EQ(other.file.bytes(), once);
    editor->commit(second.open()); // what is staged is there for another target
    EXPECT_EQ(second.bytes(), empty.bytes());
    expectRefused({{"....ftypheic....", [&](auto& file) { editor->commit(file.open()); }, "another type: image/heic"}});
    EXPECT_EQ(source.file.bytes(), sourceBytes);
    editor->commit(source.file.open()); // another handle of the source
    EXPECT_EQ(source.file.bytes(), second.bytes());
}

TEST(XMPEdit, RefusesAFileWhoseXmpIsNotTheOneItKnows) {
    auto const still = [](std::string const& packet) { return Photo(packet).file.bytes(); };
    std::string const one = packetOf("t:a='1'"), two = packetOf("t:a='2'"), none;
    for (auto const& [first, then] : {std::pair(one, two), {none, one}, {one, none}}) {
        TempFile const file(still(first)), copy;
        auto const view = XMPInfo::parse(file.open());
        auto const editor = view->edit();
        view->edit()->setProperty(TEST_NS, "t:b", "2").commit(); // what this view's editors write is known
        editor->setProperty(TEST_NS, "t:new", "1").commit();
        editor->setProperty(TEST_NS, "t:new", "2");
        writeBytes(file.path(), still(then));
        for (auto const& target : {copy.open(), file.open()})
            EXPECT_TRUE(failsWith("changed since it was read", [&] { editor->commit(target); }));
        EXPECT_TRUE(editor->isDirty());
        EXPECT_EQ(file.bytes(), still(then));
    }
}

TEST(XMPEdit, StaysDirtyWhenTheCommitFails) {
    // The toolkit writes such a namespace without escaping it: nobody could read the packet again.
    Photo const photo(packetOf("t:one='1'")), bad(packetOf("xmlns:bad='urn:a&amp;b' bad:one='1'"));
    TempFile const video("....ftypmp42");
    std::tuple<Photo const&, size_t, std::shared_ptr<MediaFile>, char const*> const cases[] = {
        {photo, 1, photo.file.open("r"), ""},
        {photo, 70000, photo.file.open(), "does not fit a segment"},
        {photo, 1, video.open(), "unsupported type"},
        {bad, 1, bad.file.open(), "could not be read again"}};
    for (auto const& [still, size, target, message] : cases) {
        auto const before = still.file.bytes();
        auto const editor = still.view()->edit();
        editor->setProperty(TEST_NS, "t:one", std::string(size, 'x'));
        EXPECT_TRUE(failsWith(message, [&, to = target] { editor->commit(to); }));
        EXPECT_TRUE(editor->isDirty());
        EXPECT_EQ(still.file.bytes(), before);
    }
    EXPECT_EQ(video.bytes(), "....ftypmp42");
}

std::string packetIn(TempFile const& file) {
    auto const packets = ImageMetaReader::of(file.open("r"), ParseMode::LAZY)->findAllXMP();
    return packets.empty() ? "" : packets.back().toTypedData<std::string>();
}

/// What the packet says after an edit has set a property that nobody else has; empty when the edit was refused, which
/// must leave the file as it was.
Properties propertiesAfterAnEdit(TempFile const& file) {
    auto const before = file.bytes();
    try {
        XMPInfo::parse(file.open())->edit()->setProperty(xmp_ns::CAMERA, "GCamera:ForTheTest", "1").commit();
    } catch (Error const& error) {
        EXPECT_EQ(file.bytes(), before) << error.what();
        return {};
    }
    auto said = propertiesOf(packetIn(file));
    EXPECT_EQ(said.erase("photos/1.0/camera/ForTheTest"), 1U);
    return said;
}

TEST(XMPEdit, KeepsWhatOthersWroteInFormsOfTheirOwn) {
    constexpr char NAMES[] = "xmlns:exif='http://ns.adobe.com/exif/1.0/' xmlns:tiff='http://ns.adobe.com/tiff/1.0/' "
                             "xmlns:xmp='http://ns.adobe.com/xap/1.0/' xmlns:xmpMM='http://ns.adobe.com/xap/1.0/mm/' ";
    constexpr char LANGUAGES[] = "<rdf:li xml:lang='x-default'>T</rdf:li><rdf:li xml:lang='de-CH'>D</rdf:li>";
    auto const typed = [](std::string const& fields) { return "<rdf:li><Container:Item " + fields + "/></rdf:li>"; };
    std::tuple<char const*, std::string, std::string, bool> const cases[] = {
        {"names the toolkit has others for", "exif:DateTimeDigitized='2001-01-01' tiff:Software='A'",
         arrayOf("tiff:ImageDescription", "Alt", "<rdf:li xml:lang='x-default'>T</rdf:li>"), false},
        {"and both of them", "exif:DateTimeDigitized='2001' xmp:CreateDate='2002' tiff:Artist='A'",
         arrayOf("dc:creator", "Seq", "<rdf:li>B</rdf:li>"), false},
        {"typed nodes", "",
         directoryOf(typed("Item:Mime='a/b' Item:Semantic='Primary'") +
                     typed("Item:Mime='c/d' Item:Semantic='X' Item:Length='5'")),
         false},
        {"qualifiers and structs", "",
         "<t:q rdf:parseType='Resource'><rdf:value>V</rdf:value><t:by>me</t:by></t:q><t:s rdf:parseType='Resource'>"
         "<t:deep rdf:parseType='Resource'><t:x>1</t:x></t:deep></t:s><t:uri rdf:resource='urn:x'/>",
         false},
        {"languages", "", arrayOf("dc:title", "Alt", LANGUAGES), false},
        {"characters by number", "t:a='caf&#xE9; &#x27;A&#x26;&#x9;'", "<t:b><![CDATA[&#]]>&#x3c;</t:b>", false},
        {"a date made of two", "exif:GPSDateStamp='2001:01:01'", "<exif:GPSTimeStamp>10:00:00Z</exif:GPSTimeStamp>",
         false},
        {"a description without languages", "", arrayOf("dc:description", "Bag", "<rdf:li><t:a>x</t:a></rdf:li>"),
         true},
    };
    for (auto const& [what, attributes, elements, refused] : cases) {
        SCOPED_TRACE(what);
        Photo const photo(packetOf(NAMES + attributes, elements));
        auto const before = propertiesOf(packetIn(photo.file));
        EXPECT_EQ(propertiesAfterAnEdit(photo.file), refused ? Properties() : before);
    }
    std::string const rewritten = "<rdf:li rdf:parseType='Resource'><rdf:value Item:Mime='c/d' Item:Semantic='X'/>"
                                  "<rdf:type rdf:resource='http://ns.google.com/photos/1.0/container/Item'/></rdf:li>";
    for (auto const& entry :
         {typed("Item:Mime='c/d' Item:Semantic='X'"), rewritten}) { // the toolkit's form of the same
        Photo const photo(packetOf("", directoryOf(entry)));
        EXPECT_EQ(photo.view()->getItemField("X", "Mime"), "c/d");
        EXPECT_FALSE(propertiesAfterAnEdit(photo.file).empty());
    }
}

TEST(XMPEdit, JoinsTwoPacketsOrRefusesWhatAnEditWouldLose) {
    auto const second = [](std::string const& packet) {
        auto text = packet;
        text.insert(text.find("</rdf:RDF>") + 10,
                    "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description/></rdf:RDF>");
        return text;
    };
    auto const about = [](std::string const& id) {
        auto text = packetOf("xmlns:xmpMM='http://ns.adobe.com/xap/1.0/mm/' xmpMM:InstanceID='" + id + "'");
        return text.replace(text.find("rdf:about=\"\""), 12, "rdf:about=\"uuid:1\"");
    };
    std::tuple<char const*, JpegBuilder, std::string, std::string> const cases[] = {
        {"two packets of different properties", JpegBuilder().xmp(packetOf("t:a='1' t:b='2'")).xmp(packetOf("t:c='3'")),
         "", "t:b=2\nt:c=3\nt:new=1\n"},
        {"two that differ", JpegBuilder().xmp(packetOf("t:a='1'")).xmp(packetOf("t:a='2'")), "differ in t:a", ""},
        {"a second rdf:RDF", JpegBuilder().xmp(second(packetOf("t:a='1'"))), "second rdf:RDF", ""},
        {"an instance ID overwritten", JpegBuilder().xmp(about("uuid:2")), "uuid:2", ""},
        {"the same one twice", JpegBuilder().xmp(about("uuid:1")), "", "t:new=1\nxmpMM:InstanceID=uuid:1\n"},
    };
    for (auto const& [what, jpeg, lost, expected] : cases) {
        SCOPED_TRACE(what);
        auto const edit = [](TempFile const& file) {
            XMPInfo::parse(file.open())->edit()->setProperty(TEST_NS, "t:new", "1").commit();
        };
        if (!lost.empty()) {
            expectRefused({{jpeg.build(), edit, lost}});
            continue;
        }
        TempFile const file(jpeg.build());
        auto const editor = XMPInfo::parse(file.open())->edit();
        editor->setProperty(TEST_NS, "t:new", "1").removeProperty(TEST_NS, "t:a");
        auto const staged = contentOf(*editor);
        EXPECT_TRUE(failsWith("Input/output error", [&] {
            auto const fault = Fault::failing(Call::CHANGE, EIO, 0, 1);
            editor->commit();
        }));
        EXPECT_EQ(contentOf(*editor), staged);
        editor->commit();
        EXPECT_EQ(contentOf(*XMPInfo::parse(file.open())), expected);
    }
}

/// Every still of the sample folders, where they are there: what its XMP says survives an edit, and every other segment
/// of a JPEG with it.
TEST(XMPEdit, KeepsWhatEverySampleSays) {
    if (!std::filesystem::exists(SHARED_DATA_DIR))
        GTEST_SKIP() << "no " SHARED_DATA_DIR;
    int compared = 0;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(SHARED_DATA_DIR)) {
        SCOPED_TRACE(entry.path());
        if (!entry.is_regular_file() || entry.path().string().find("corrupt") != std::string::npos)
            continue;
        TempFile const copy(bytesOf(entry));
        Properties before;
        try {
            before = propertiesOf(packetIn(copy));
        } catch (std::runtime_error const&) {
            continue; // no still, or one without XMP
        }
        bool const isJpeg = copy.bytes().starts_with("\xFF\xD8");
        auto const image = [&] { return isJpeg ? takeApart(copy.bytes(), true).image : std::vector<std::string>(); };
        auto const others = image();
        auto const after = propertiesAfterAnEdit(copy);
        if (after.empty())
            continue;
        ++compared;
        EXPECT_EQ(after, before);
        EXPECT_EQ(image(), others);
    }
    EXPECT_GT(compared, 10);
}

} // namespace
