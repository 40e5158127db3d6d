// SPDX-License-Identifier: Apache-2.0
#include "XMPPacketScan.h"

#include "ErrorAt.h"
#include "Text.h"
#include "XMPLimits.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <utility>

namespace android::lumo {

using namespace xmp_limits;

namespace {

/// What a run of units may consist of, in sets that a byte of a table holds.
enum Run : uint8_t {
    NAME = 1,          ///< of an element or an attribute
    TEXT = 2,          ///< between tags, that the toolkit keeps in one piece
    PLAIN = 4,         ///< taken over as it is
    BETWEEN = 8,       ///< in a tag in front of the next attribute's name
    BEFORE_VALUE = 16, ///< in front of a quote
    LITERAL = 32,      ///< in a CDATA section, that the parser hands over at once
    BLANK = 64,        ///< beside an element, where it says nothing
};

constexpr std::array<uint8_t, 256> RUNS = [] {
    std::array<uint8_t, 256> runs{};
    for (unsigned c = 0; c < runs.size(); ++c) {
        bool const isName = c > ' ' && c != '>' && c != '/' && c != '=', isQuote = c == '"' || c == '\'';
        int run = isName ? NAME : 0;
        run |= c != '<' && c != '\n' && c != '\r' && c != '&' ? TEXT : 0;
        run |= c >= ' ' && c < 0x7F && c != '&' ? PLAIN : 0;
        run |= (!isName || isQuote) && c != '>' ? BETWEEN : 0;
        run |= c != '>' && !isQuote ? BEFORE_VALUE : 0;
        run |= c != ']' && c != '\n' && c != '\r' ? LITERAL : 0;
        run |= isBlank(static_cast<char>(c)) ? BLANK : 0;
        runs[c] = static_cast<uint8_t>(run);
    }
    return runs;
}();

/// What the toolkit and editors write behind a packet's room, writable or read-only: each as long as the others.
constexpr std::string_view END_MARKS[] = {R"(<?xpacket end="w"?>)", R"(<?xpacket end='w'?>)", R"(<?xpacket end="r"?>)",
                                          R"(<?xpacket end='r'?>)"};

/// The packet without its room: such a mark at its end, and the blanks in front of it.
std::string_view withoutRoom(std::string_view packet) {
    for (auto const mark : END_MARKS) {
        if (packet.ends_with(mark))
            return withoutBlanksBehind(packet.substr(0, packet.size() - mark.size()), isBlank);
    }
    return packet;
}

/// Whether eight bytes are a piece of a run that is PLAIN. No sum carries from a byte that is into the next one, and
/// the highest bit of one that is not gets set.
bool arePlain(char const* bytes) {
    constexpr uint64_t ONES = ~uint64_t{0} / 0xFF, HIGH = 0x80 * ONES;
    uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return ((word | (word + ONES) | (word - ' ' * ONES) | ((word ^ '&' * ONES) - ONES)) & HIGH) == 0;
}

/// The packet as code units: bytes, or 16-bit numbers of either byte order.
class Units {
public:
    explicit Units(std::string_view bytes) : packet(bytes) {
        if (packet.size() < 2)
            return;
        auto const first = static_cast<uint8_t>(packet[0]), second = static_cast<uint8_t>(packet[1]);
        bigEndian = first == 0 || (first == 0xFE && second == 0xFF);
        wide = bigEndian || (first < 0x80 && second == 0) || (first == 0xFF && second == 0xFE);
    }

    bool isWide() const { return wide; }
    size_t size() const { return wide ? packet.size() / 2 : packet.size(); }
    unsigned at(size_t i) const {
        if (!wide)
            return static_cast<uint8_t>(packet[i]);
        auto const first = static_cast<uint8_t>(packet[2 * i]), second = static_cast<uint8_t>(packet[2 * i + 1]);
        return static_cast<unsigned>(bigEndian ? first << 8 | second : second << 8 | first);
    }
    bool startsWith(size_t i, std::string_view expected) const {
        if (expected.size() > size() - i)
            return false;
        for (size_t k = 0; k < expected.size(); ++k) {
            if (at(i + k) != static_cast<uint8_t>(expected[k]))
                return false;
        }
        return true;
    }
    /// The units of a run, cut to bytes.
    std::string text(size_t i, size_t end) const {
        if (!wide)
            return std::string(packet.substr(i, end - i));
        std::string bytes;
        for (; i < end; ++i)
            bytes += static_cast<char>(at(i));
        return bytes;
    }
    /// Bytes of the UTF-8 sequence here, as loosely as the toolkit looks at one; 1 for what is none.
    size_t sequenceAt(size_t i) const {
        auto const length = static_cast<size_t>(std::countl_one(static_cast<uint8_t>(at(i))));
        for (size_t k = 1; k < length; ++k) {
            if (i + k >= size() || (at(i + k) & 0xC0) != 0x80)
                return 1;
        }
        return std::max<size_t>(length, 1);
    }
    /// The first unit from `i` on that a run of this kind does not hold, or size().
    template<Run run>
    size_t behindRun(size_t i) const {
        auto const end = size();
        if (!wide) {
            constexpr std::string_view MANY = "        "; // half of most packets is room: lines of blanks
            while ((RUNS[' '] & run) != 0 && i < end && packet.substr(i).starts_with(MANY))
                i += MANY.size();
            while (run == PLAIN && i < end && end - i >= MANY.size() && arePlain(packet.data() + i))
                i += MANY.size();
            auto const* bytes = reinterpret_cast<uint8_t const*>(packet.data());
            while (i < end && (RUNS[bytes[i]] & run) != 0)
                ++i;
        } else {
            while (i < end && (RUNS[std::min(at(i), 0xFFU)] & run) != 0)
                ++i;
        }
        return i;
    }
    /// The first `c` from `i` on, or size().
    size_t find(unsigned c, size_t i) const {
        if (!wide) {
            auto const* found =
                i < size() ? std::memchr(packet.data() + i, static_cast<int>(c), packet.size() - i) : nullptr;
            return found ? static_cast<size_t>(static_cast<char const*>(found) - packet.data()) : size();
        }
        while (i < size() && at(i) != c)
            ++i;
        return i;
    }
    /// The place behind the first `closing` from `i` on, or size().
    size_t behind(std::string_view closing, size_t i) const {
        auto const last = static_cast<uint8_t>(closing.back());
        for (i = find(last, i + closing.size() - 1); i < size(); i = find(last, i + 1)) {
            if (startsWith(i + 1 - closing.size(), closing))
                return i + 1;
        }
        return size();
    }

private:
    std::string_view packet;
    bool wide = false;
    bool bigEndian = false;
};

void refuse(char const* what) {
    throw ErrorAt().as(Error::Code::TOO_BIG)("XMP is too big: %s", what);
}

class PacketScan {
public:
    explicit PacketScan(std::string_view text)
        : packet(text), said(withoutRoom(text)), units(text), size(text.size()),
          maxDepth(size <= SMALL_PACKET ? MAX_DEPTH_SMALL : MAX_DEPTH) {
        if (size > MAX_PACKET)
            refuse("bytes");
    }

    ScannedPacket run() {
        if (!units.isWide())
            countRepairs();
        auto const end = units.size();
        bool isBehindElement = false;
        size_t begin = 0; // of the text
        for (size_t i = text(0); i + 1 < end; i = text(begin)) {
            auto const c = units.at(i + 1);
            bool const isElement = c != '!' && c != '?' && c != '/';
            if (isBehindElement || isElement)
                leaveOutBlanks(begin, i);
            if (c == '!')
                begin = declaration(i);
            else if (c == '?')
                begin = instruction(i);
            else if (c == '/')
                begin = endTag(i + 2);
            else
                begin = startTag(i + 1);
            isBehindElement = c == '/' || (isElement && units.at(begin - 2) == '/');
        }
        scanned.room = behindRoot > 0 ? packet.size() - behindRoot : 0; // a mark alone is no packet
        if (auto const rest = packet.size() - scanned.room; taken > 0 && taken < rest)
            scanned.dense.append(packet.substr(taken, rest - taken));
        return std::move(scanned);
    }

private:
    /// Blanks beside an element are nodes to the parser, which the toolkit passes over one by one. Those beside text,
    /// comments and sections alone are a value.
    void leaveOutBlanks(size_t begin, size_t end) {
        if (begin == end || units.isWide() || size > SMALL_PACKET || units.behindRun<BLANK>(begin) != end)
            return;
        if (taken == 0)
            scanned.dense.reserve(packet.size());
        scanned.dense.append(packet.substr(taken, begin - taken));
        taken = end;
    }

    /// Counts what stands in front of the next tag, and returns where that begins.
    size_t text(size_t i) {
        auto const end = units.find('<', i);
        countPieces<TEXT>(i, end);
        return end;
    }

    /// The parser hands a text over line by line, and ends of lines alone, as what else ends the run.
    template<Run run>
    void countPieces(size_t i, size_t end) {
        for (size_t next = 0; i < end; i = next + 1) {
            next = std::min(units.behindRun<run>(i), end);
            spend(COST_OF_TEXT_PIECE * ((next > i ? 1U : 0U) + (next < end ? 1U : 0U)));
        }
    }

    /// What the toolkit replaces before the parser sees it, wherever it stands: controls, bytes that are no UTF-8,
    /// escapes of characters.
    void countRepairs() {
        Units const bytes(said); // nothing in the room is any of these
        uint64_t repairs = 0;
        for (size_t i = bytes.behindRun<PLAIN>(0), next = 0; i < bytes.size(); i = bytes.behindRun<PLAIN>(next)) {
            auto const c = bytes.at(i);
            auto const length = c < 0x80 ? 1 : bytes.sequenceAt(i);
            next = i + length;
            bool const isControl = (c < ' ' && c != '\t' && c != '\n' && c != '\r') || c == 0x7F;
            bool const isEscape = c == '&' && bytes.startsWith(i, "&#");
            if (!isControl && !isEscape && (c < 0x80 || length > 1))
                continue;
            spend(COST_OF_TEXT_PIECE);
            if (++repairs * size > MAX_REPAIRS_TIMES_SIZE)
                refuse("bytes that are no text");
        }
    }

    size_t declaration(size_t i) {
        if (units.startsWith(i, "<!--"))
            return units.behind("-->", i + 4);
        if (units.startsWith(i, "<![CDATA[")) {
            auto const end = units.behind("]]>", i + 9);
            countPieces<LITERAL>(i, end);
            return end;
        }
        throw ErrorAt().as(Error::Code::XMP)("DOCTYPE is not allowed");
    }

    /// The tree has a node for it as for a piece of text.
    size_t instruction(size_t i) {
        spend(COST_OF_TEXT_PIECE);
        if (!units.isWide() && said.size() < packet.size() && i + END_MARKS[0].size() == packet.size())
            behindRoot = said.size();
        return units.behind("?>", i + 2);
    }

    size_t endTag(size_t i) {
        if (depth > 0)
            --depth;
        return std::min(units.find('>', i) + 1, units.size());
    }

    size_t startTag(size_t nameStart) {
        auto const end = units.size();
        auto i = behindName(nameStart);
        bool const isItem = i >= nameStart + 3 && units.startsWith(i - 3, ":li");
        spend(COST_OF_NAME + COST_OF_NAME_BYTE * (i - nameStart));
        name(depth, i - nameStart, isItem);
        if (depth + 1 > COMMON_DEPTH && depth + 1 < siblings.size())
            siblings[depth + 1] = 0; // an element of its own
        for (i = units.behindRun<BETWEEN>(i); i < end && units.at(i) != '>'; i = units.behindRun<BETWEEN>(i))
            i = attribute(i);
        if (i >= end)
            return end;
        if (depth >= maxDepth)
            refuse("elements inside each other");
        if (units.at(i - 1) != '/')
            ++depth;
        return i + 1;
    }

    /// A name, and the value in quotes behind it; returns the place behind both.
    size_t attribute(size_t nameStart) {
        auto const nameEnd = behindName(nameStart);
        auto const i = units.behindRun<BEFORE_VALUE>(nameEnd);
        if (i >= units.size() || units.at(i) == '>')
            return i;
        auto const end = units.find(units.at(i), i + 1);
        if (units.startsWith(nameStart, "xmlns"))
            declare(i + 1, end);
        else
            attributeName(nameEnd - nameStart);
        return std::min(end + 1, units.size());
    }

    void declare(size_t begin, size_t end) {
        std::string uri = units.text(begin, std::min(end, begin + MAX_NAMESPACE_LENGTH + 1));
        if (scanned.namespaces.size() >= MAX_NAMESPACES || uri.size() > MAX_NAMESPACE_LENGTH)
            refuse("namespaces");
        spend(COST_OF_NAME);
        scanned.namespaces.push_back(std::move(uri));
    }

    void attributeName(size_t length) {
        spend(COST_OF_ATTRIBUTE + COST_OF_NAME_BYTE * (length - std::min(length, SHORT_NAME)));
        name(depth + 1, length, false);
    }

    /// Counts a name among those of its parent, which is open at `level`.
    void name(size_t level, size_t length, bool isItem) {
        if (length > MAX_NAME_LENGTH)
            refuse("a name");
        if (isItem)
            return;
        // The outermost parents are one each to the toolkit, in however many elements they are written.
        auto const parent = std::max(level, COMMON_DEPTH);
        if (siblings.size() <= parent)
            siblings.resize(parent + 1);
        if (++siblings[parent] > MAX_SIBLINGS)
            refuse("properties");
    }

    void spend(uint64_t cost) {
        spent += cost;
        if (spent + size > MEMORY)
            refuse("what it is made of");
    }

    size_t behindName(size_t i) const { return units.behindRun<NAME>(i); }

    static constexpr size_t COMMON_DEPTH = 4; ///< x:xmpmeta, rdf:RDF, rdf:Description, property

    std::string_view packet;
    std::string_view said; ///< the packet without its room, where the last bytes are what they look like
    Units units;
    uint64_t size;
    size_t maxDepth;
    size_t depth = 0;
    uint64_t spent = 0;
    std::vector<size_t> siblings; ///< names of the element open at each depth
    size_t behindRoot = 0;        ///< where the room begins, 0 where there is none
    size_t taken = 0;             ///< of the packet, into its dense text
    ScannedPacket scanned;
};

} // namespace

ScannedPacket refuseHostilePacket(std::string_view packet) {
    return PacketScan(packet).run();
}

std::string withLongReferences(std::string const& text) {
    constexpr std::string_view REFERENCE = "&#x", SECTION = "<![CDATA[", SECTION_END = "]]>";
    constexpr size_t MOST_DIGITS = 2;
    std::string longer;
    size_t taken = 0;
    if (text.find(REFERENCE) == std::string::npos)
        return longer;
    for (size_t i = text.find_first_of("&<"); i != std::string::npos; i = text.find_first_of("&<", i + 1)) {
        if (text.compare(i, SECTION.size(), SECTION) == 0)
            i = std::min(text.find(SECTION_END, i), text.size());
        if (text.compare(i, REFERENCE.size(), REFERENCE) != 0)
            continue;
        auto const digits = i + REFERENCE.size();
        auto const* begin = text.data() + digits;
        unsigned value = 0;
        auto const* end = std::from_chars(begin, begin + std::min(MOST_DIGITS, text.size() - digits), value, 16).ptr;
        if (end == text.data() + text.size() || *end != ';' || value < ' ' || value == 0x7F)
            continue;
        longer.append(text, taken, digits - taken).append("00");
        taken = digits;
    }
    return taken == 0 ? longer : longer.append(text, taken);
}

} // namespace android::lumo
