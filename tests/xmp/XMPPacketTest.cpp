// SPDX-License-Identifier: Apache-2.0
#include "XMPPacket.h"
#include "XMPFixture.h"
#include "support/Memory.h"
#include "support/Time.h"

using namespace android::lumo;
using namespace android::lumo::test;

namespace {

/// `depth` elements inside the packet's own three, padded behind to a size.
std::string nested(size_t depth, size_t size) {
    auto const text = packetOf("", repeated("<t:a rdf:parseType='Resource'>", depth) + repeated("</t:a>", depth));
    return text + std::string(size > text.size() ? size - text.size() : 0, ' ');
}

std::string wide(std::string const& ascii, bool bigEndian, bool mark) {
    std::string text = !mark ? "" : bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (char const c : ascii)
        text += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
    return text;
}

std::string const END_MARK = "<?xpacket end='w'?>";
constexpr char DOCTYPE[] = "<!DOCTYPE x [<!ENTITY e 'ha'>]>";

struct XMPPacketTest : testing::Test {
    XMPPacketTest() { prepareXMPToolkit(); }
};

TEST_F(XMPPacketTest, RefusesWhatIsNotWhollyXmp) {
    auto const whole = packetOf("t:one=\"a\"", directoryOf(itemOf("Primary", "image/jpeg")));
    for (size_t n = 1; n < whole.size(); n += 7)
        EXPECT_NE(refusalOf([&] { parseXMPPacket(whole.substr(0, n)); }), "") << n;
    for (auto const& junk :
         {std::string("junk"), pattern(5000), std::string("\xFF\xFE<"), std::string("<!"), std::string("<"), END_MARK})
        EXPECT_NE(refusalOf([&] { parseXMPPacket(junk); }), "");
    // Recovering would drop the second value, and the next commit would destroy it.
    EXPECT_NE(refusalOf([] { parseXMPPacket(packetOf("t:one='a'", "<t:one>b</t:one>")); }), "");
}

TEST_F(XMPPacketTest, RefusesDocumentTypesButNotTheirName) {
    auto const packet = packetOf("t:one=\"a\"");
    for (auto const& refused : {DOCTYPE + packet, "<?xml version='1.0'?><!-- > --><?pi <!-- ?>" + (DOCTYPE + packet),
                                wide(DOCTYPE + packet, true, true), wide(DOCTYPE + packet, false, true),
                                wide(DOCTYPE + packet, true, false), wide(DOCTYPE + packet, false, false)})
        EXPECT_NE(refusalOf([&] { parseXMPPacket(refused); }).find("DOCTYPE is not allowed"), std::string::npos);
    for (auto const& fine :
         {"<!--" + std::string(DOCTYPE) + "-->" + packet, "<?pi " + std::string(DOCTYPE) + "?>" + packet,
          packetOf("t:one='>'", "<t:two><![CDATA[" + std::string(DOCTYPE) + "]]></t:two>"), wide(packet, true, true),
          wide(packet, false, true), "\xEF\xBB\xBF" + packet, packet + "\n \t" + END_MARK,
          packet + "<?pi " + END_MARK}) {
        std::string value;
        EXPECT_EQ(refusalOf([&] { value = *parseXMPPacket(fine)->get("urn:test:", "one"); }), "");
        EXPECT_TRUE(value == "a" || value == ">") << fine;
    }
}

/// `count` times the text, with its number in place of each '#'.
std::string numbered(std::string const& text, size_t count) {
    std::string all;
    for (size_t i = 0; i < count; ++i) {
        for (char const c : text)
            all += c == '#' ? std::to_string(i) : std::string(1, c);
    }
    return all;
}

/// How long anything here may take: what is bounded costs a few times the yardstick on any machine and in any build,
/// what grows with the square of its size soon costs far more.
std::clock_t longestTime() {
    auto const yardstick = packetOf("", numbered("<t:a#/>", 3900));
    return 15 * timeOf([&] { parseXMPPacket(yardstick); });
}

TEST_F(XMPPacketTest, BoundsWhatAPacketMayCost) {
    constexpr size_t BIG = 70000, MEMORY = 16 * 1024 * 1024;
    auto const longest = longestTime();
    auto const quoted = " t:x='" + repeated("></t:a>", 10) + "'"; // markup in a value counts for nothing
    auto const bag = [](std::string const& items) { return packetOf("", arrayOf("t:a", "Bag", items)); };
    std::tuple<char const*, std::string, bool> const cases[] = {
        {"big, 100 deep", nested(97, BIG), false},
        {"big, 101 deep", nested(98, BIG), true},
        {"small, 997 deep", nested(997, 0), false},
        {"small, 998 deep", nested(998, 0), true},
        {"deep behind quotes", packetOf("", repeated("<t:a" + quoted + ">", 2000)), true},
        {"deep behind comments", packetOf("", repeated("<!-- </t:a> --><t:a><?pi </t:a> ?>", 2000)), true},
        {"deep and never closed", repeated("<a>", 240000), true},
        {"deep in 16 bits", wide(nested(98, BIG), false, true), true},
        {"many array items", bag(repeated("<rdf:li/>", 34000)), false},
        {"too many", bag(repeated("<rdf:li/>", 50000)), true},
        {"many elements", packetOf("", numbered("<t:a#/>", 3900)), false},
        {"too many in one", packetOf("", numbered("<t:a#/>", 4100)), true},
        {"too many in many descriptions", packetOf("", numbered("</rdf:Description><rdf:Description t:a#=''>", 4100)),
         true},
        {"many attributes", packetOf(numbered("t:a#='' ", 3900)), false},
        {"too many", packetOf(numbered("t:a#='' ", 4100)), true},
        {"structs of many fields together", bag(repeated("<rdf:li t:a='1' t:b='2' t:c='3'/>", 9000)), false},
        {"long names", packetOf(numbered("t:" + std::string(240, 'n') + "#='' ", 3900)), false},
        {"too long a name", packetOf("t:" + std::string(300, 'n') + "=''"), true},
        {"too many namespaces", packetOf(numbered("xmlns:p#='urn:p#:' ", 300)), true},
        {"text", packetOf("", "<t:a>" + std::string(4000000, 'x') + "</t:a>"), false},
        {"too much text", packetOf("", "<t:a>" + std::string(5000000, 'x') + "</t:a>"), true},
        {"lines", packetOf("", "<t:a>" + repeated("a line of text\n", 36000) + "</t:a>"), false},
        {"too many lines", packetOf("", "<t:a>" + std::string(100000, '\n') + "</t:a>"), true},
        {"other letters", packetOf("t:a='" + repeated("\xE2\x82\xAC", 300000) + "'"), false},
        {"bytes to repair", packetOf("t:a='" + std::string(5000, '\x80') + "'"), false},
        {"too many in a value", packetOf("t:a='" + std::string(60000, '\1') + "'"), true},
        {"too many in a comment", packetOf("", "<!--" + std::string(60000, '\xFF') + "-->"), true},
        {"too many escapes", packetOf("t:a='" + repeated("&#x1;", 60000) + "'"), true},
    };
    for (auto const& [what, packet, refused] : cases) {
        SCOPED_TRACE(what);
        auto const memory = heldBytes();
        takeMostBytes();
        std::string refusal;
        auto const parse = [&, text = std::cref(packet)] { refusal = refusalOf([&] { parseXMPPacket(text); }); };
        EXPECT_TRUE(takesLess(longest, parse));
        EXPECT_EQ(!refusal.empty(), refused);
        EXPECT_LT(takeMostBytes() - memory, MEMORY + 4 * packet.size());
    }
}

TEST_F(XMPPacketTest, TakesAllItemsOfALongDirectoryInLinearTime) {
    Photo const target;
    auto const source = XMPInfo::parse(target.file.open());
    for (int i = 0; i < 4900; ++i)
        source->edit()->setItem("Item" + std::to_string(i), MediaDefs::MimeType::IMAGE_JPEG);
    std::shared_ptr<XMPEdit> editor;
    EXPECT_TRUE(takesLess(longestTime(), [&] {
        editor = target.view()->edit();
        editor->putAll(source, std::filesystem::copy_options::skip_existing);
    }));
    EXPECT_EQ(editor->getItemNameAt(4900), "Item4899");
    EXPECT_EQ(refusalOf([&] { editor->serializeToBuffer(); }), "");
}

/// In a process of its own: the toolkit forgets no namespace.
TEST(XMPNamesDeathTest, RefusesOnlyPacketsThatBringFurtherNamespaces) {
    EXPECT_EXIT(
        {
            prepareXMPToolkit();
            auto const bring = [](int round) {
                auto const uri = "='urn:round" + std::to_string(round) + ":#:' ";
                return refusalOf([&] { parseXMPPacket(packetOf(numbered("xmlns:p#" + uri, 200))); });
            };
            int round = 0;
            for (int i = 0; i < 3000; ++i) // the toolkit keeps it under a corrected text
                static_cast<void>(parseXMPPacket(packetOf("xmlns:q='urn:\x01q:' ")));
            while (round < 100 && bring(round).empty())
                ++round;
            bool const isBounded = round > 5 && round < 15;
            bool const takesKnown = bring(0).empty() && refusalOf([] { parseXMPPacket(packetOf("t:a=''")); }).empty();
            std::exit(isBounded && takesKnown ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
