#include "XMPFixture.h"
#include "XMPPacketLoad.h"

#include <chrono>

using namespace android::lumo;
using namespace android::lumo::test;

namespace {

std::string repeated(std::string const& text, size_t count) {
    std::string all;
    for (size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

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

constexpr char DOCTYPE[] = "<!DOCTYPE x [<!ENTITY e 'ha'>]>";

struct XMPPacketTest : testing::Test {
    XMPPacketTest() { prepareXMPToolkit(); }
};

TEST_F(XMPPacketTest, RefusesWhatIsNotWhollyXmp) {
    auto const whole = packetOf("t:one=\"a\"", directoryOf(itemOf("Primary", "image/jpeg")));
    for (size_t n = 1; n < whole.size(); n += 7)
        EXPECT_NE(refusalOf([&] { parseXMPPacket(whole.substr(0, n)); }), "") << n;
    for (auto const& junk :
         {std::string("junk"), pattern(5000), std::string("\xFF\xFE<"), std::string("<!"), std::string("<")})
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
          wide(packet, false, true), "\xEF\xBB\xBF" + packet}) {
        std::string value;
        EXPECT_EQ(refusalOf([&] { value = *parseXMPPacket(fine)->get("urn:test:", "one"); }), "");
        EXPECT_TRUE(value == "a" || value == ">") << fine;
    }
}

TEST_F(XMPPacketTest, BoundsWhatAPacketMayCost) {
    constexpr size_t BIG = 70000;
    auto const quoted = " t:x='" + repeated("></t:a>", 10) + "'"; // markup in a value counts for nothing
    struct Case {
        char const* what;
        std::string packet;
        bool refused;
    } const cases[] = {
        {"big, 100 deep", nested(97, BIG), false},
        {"big, 101 deep", nested(98, BIG), true},
        {"small, 997 deep", nested(997, 0), false},
        {"small, 998 deep", nested(998, 0), true},
        {"deep behind quotes", packetOf("", repeated("<t:a" + quoted + ">", 2000)), true},
        {"deep behind comments", packetOf("", repeated("<!-- </t:a> --><t:a><?pi </t:a> ?>", 2000)), true},
        {"deep and never closed", repeated("<a>", 240000), true},
        {"deep in 16 bits", wide(nested(98, BIG), false, true), true},
        {"many array items", packetOf("", arrayOf("t:a", "Bag", repeated("<rdf:li/>", 50000))), false},
        {"many elements", packetOf("", repeated("<t:a/>", 100000)), true},
        {"many attributes", packetOf(repeated("t:a='' ", 100000)), true},
    };
    for (auto const& each : cases) {
        SCOPED_TRACE(each.what);
        auto const start = std::chrono::steady_clock::now();
        EXPECT_EQ(!refusalOf([&] { parseXMPPacket(each.packet); }).empty(), each.refused);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    }
}

} // namespace
