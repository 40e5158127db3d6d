// SPDX-License-Identifier: Apache-2.0
#include "io/HEIFItems.h"
#include "HeicParts.h"

namespace android::lumo::test {
namespace {

using std::string_literals::operator""s;

// The item boxes of a 'meta' whose primary item is 1 and whose item 2 is a packet that describes it. ------------------

std::string infe(unsigned version, uint32_t id, std::string const& type, unsigned protection = 0,
                 std::string const& content = "application/rdf+xml\0"s) {
    return heicFullBox("infe", version, 0,
                       bigEndian(id, version == 3 ? 4 : 2) + bigEndian(protection, 2) + type + '\0' + content);
}
std::string iinf(std::string const& entries, uint32_t count = 1) {
    return heicFullBox("iinf", 0, 0, bigEndian(count, 2) + entries);
}
std::string iref(std::string const& ids) {
    return heicFullBox("iref", 0, 0, heicBox("dimg", "\0\1\0\1\0\2"s) + heicBox("cdsc", ids));
}
std::string iloc(unsigned version, char const* sizes, std::string const& entries, uint32_t count = 1) {
    std::string const widths = bigEndian(std::stoul(sizes, nullptr, 16), 2);
    return heicFullBox("iloc", version, 0, widths + bigEndian(count, version == 2 ? 4 : 2) + entries);
}

std::string const PITM = heicFullBox("pitm", 0, 0, bigEndian(1, 2));
std::string const IINF = iinf(infe(2, 2, "mime"));
std::string const IREF = iref("\0\2\0\1\0\1"s);
std::string const ILOC = iloc(0, "4400", "\0\2\0\0\0\1\0\0\0\x09\0\0\0\5"s);

/// Parses the children as those of a 'meta' at the start of a file of 1000 bytes; the text of the error, if any.
std::string parse(std::string const& children, heif::Items& items) {
    std::string file = heicFullBox("meta", 0, 0, children);
    auto const size = static_cast<uint32_t>(file.size());
    file.resize(1000);
    heif::ByteWindow window{std::span(reinterpret_cast<uint8_t const*>(file.data()), file.size())};
    try {
        items.parse(window, {boxType("meta"), 0, size, 8, false, false});
    } catch (std::runtime_error const& error) {
        return error.what();
    }
    return {};
}

TEST(HEIFItems, DescribingItemIsFoundWhereItsBoxesSaySo) {
    constexpr int NOT_FOUND = -1;
    std::string const wideIref =
        heicFullBox("iref", 1, 0, heicBox("cdsc", bigEndian(2, 4) + bigEndian(1, 2) + bigEndian(1, 4)));
    // The third: where its five bytes begin.
    std::tuple<char const*, std::string, int> const cases[] = {
        {"all boxes", PITM + IINF + IREF + ILOC, 9},
        {"in another order", ILOC + IREF + IINF + PITM, 9},
        {"wide ids",
         heicFullBox("pitm", 1, 0, bigEndian(1, 4)) + iinf(infe(3, 2, "mime")) + wideIref +
             iloc(2, "4440", "\0\0\0\2\0\0\0\0\0\0\0\4\0\1\0\0\0\x09\0\0\0\5"s),
         13},
        {"no primary", IINF + IREF + ILOC, NOT_FOUND},
        {"entry of version 1, which has no type", PITM + iinf(infe(1, 2, "mime")) + IREF + ILOC, NOT_FOUND},
        {"another type", PITM + iinf(infe(2, 2, "uri ")) + IREF + ILOC, NOT_FOUND},
        {"tied to the primary by another type of reference",
         PITM + IINF + heicFullBox("iref", 0, 0, heicBox("thmb", "\0\2\0\1\0\1"s)) + ILOC, NOT_FOUND},
        {"several described, primary first", PITM + IINF + iref("\0\2\0\2\0\1\0\7"s) + ILOC, 9},
        {"several described, primary second", PITM + IINF + iref("\0\2\0\2\0\7\0\1"s) + ILOC, NOT_FOUND},
        {"behind the file's end", PITM + IINF + IREF + iloc(0, "4400", "\0\2\0\0\0\1\0\0\3\xE4\0\0\0\5"s), NOT_FOUND},
        {"outside the item data",
         PITM + IINF + IREF + iloc(1, "4400", "\0\2\0\1\0\0\0\1\0\0\0\2\0\0\0\5"s) + heicBox("idat", "012345"),
         NOT_FOUND},
        {"in another item", PITM + IINF + IREF + iloc(1, "4400", "\0\2\0\2\0\0\0\1\0\0\0\x09\0\0\0\5"s), NOT_FOUND},
        {"extent index of 8 bytes, of which 4 are passed over",
         PITM + IINF + IREF + iloc(1, "4408", "\0\2\0\0\0\0\0\1\0\0\0\0\0\0\0\7\0\0\0\5\0\0\0\6"s), 7},
    };
    for (auto const& [what, children, position] : cases) {
        heif::Items items;
        EXPECT_EQ(parse(children, items), "") << what;
        auto const place = items.findDescribing(items.mimeIds);
        EXPECT_EQ(place ? static_cast<int>(place->base + place->offset) : NOT_FOUND, position) << what;
        EXPECT_EQ(place ? place->length : 5, 5U) << what;
        bool const isAmongOthers = children.find("\0\7\0\1"s) != children.npos; // for an edit XMP all the same
        EXPECT_EQ(items.findXMP().has_value(), place.has_value() || isAmongOthers) << what;
    }
}

TEST(HEIFItems, OnlyAPlainPacketThatLiesWhereItIsSaidIsWrittenTo) {
    std::pair<std::string, char const*> const cases[] = {
        {IINF + ILOC, "neither in 'mdat' nor in 'idat'"}, // the file has no such box: else it could be written
        {IINF + iloc(1, "4404", "\0\2\0\0\0\0\0\1\0\0\0\7\0\0\0\5\0\0\0\6"s), "neither in"},
        {IINF + iloc(0, "4400", "\0\2\0\1\0\1\0\0\0\x09\0\0\0\5"s), "32-bit offset"},         // another file
        {IINF + iloc(0, "8400", "\0\2\0\0\0\1\0\0\0\1\0\0\0\x09\0\0\0\5"s), "32-bit offset"}, // past 4 GiB
        {IINF + iloc(1, "4408", "\0\2\0\0\0\0\0\1\0\0\0\0\0\0\0\7\0\0\0\5\0\0\0\6"s), "32-bit offset"},
        {iinf(infe(2, 2, "mime", 1)) + ILOC, "not plain"}, // protected
        {iinf(infe(2, 2, "mime", 0, "application/rdf+xml\0gzip\0"s)) + ILOC, "not plain"},
        {iinf(infe(2, 2, "mime", 0, "text/plain\0"s)) + ILOC, "not plain"},
    };
    for (auto const& [boxes, refusal] : cases) {
        heif::Items items;
        EXPECT_EQ(parse(PITM + IREF + boxes, items), "");
        EXPECT_NE(items.refusalToWrite(items.locations.at(0), {}).find(refusal), std::string::npos) << refusal;
    }
}

TEST(HEIFItems, DamageIsNamedAndWhatStoodBeforeItStays) {
    std::pair<std::string, char const*> const cases[] = {
        {iloc(0, "4400", "\0\3\0\0\0\2"s + std::string(16, '\0')), "multi extent not supported"},
        {iloc(0, "2400", "\0\3\0\0\0\1\0\x09\0\0\0\5"s), "iloc invalid size field"},
        {iloc(2, "0000", "", 0x10000000), "entries cannot stand"},
        {iinf("\0\0\0\x40infe\2\0\0\0"s), "size 64"},
        {heicFullBox("iref", 0, 0, "\0\0\0\x40"s + "cdsc\0\2"s), "bytes wanted"},
        {"\x7F\0\0\0iinf"s, "invalid chunk payload: 2130706432"},
    };
    for (auto const& [child, message] : cases) {
        heif::Items items;
        EXPECT_NE(parse(PITM + IINF + IREF + ILOC + child, items).find(message), std::string::npos) << message;
        EXPECT_TRUE(items.findDescribing(items.mimeIds)) << message;
    }
}

} // namespace
} // namespace android::lumo::test
