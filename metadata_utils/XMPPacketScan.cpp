#include "XMPPacketScan.h"

#include "ErrorAt.h"

#include <cstring>

namespace android::lumo {

namespace {

/// Packets of up to this many bytes cost the toolkit less than a second whatever they hold, if its stack suffices.
constexpr size_t SMALL_PACKET = 64 * 1024;
constexpr size_t MAX_DEPTH_SMALL = 1000; ///< about 100 KB of stack
constexpr size_t MAX_DEPTH = 100;
constexpr size_t MAX_NAMES = 20000; ///< elements that are no array items, and attributes

/// The packet as code units: bytes, or 16-bit numbers of either byte order.
class Units {
public:
    explicit Units(std::string_view packet) : text(packet) {
        if (text.size() < 2)
            return;
        auto const first = static_cast<uint8_t>(text[0]), second = static_cast<uint8_t>(text[1]);
        bigEndian = first == 0 || (first == 0xFE && second == 0xFF);
        wide = bigEndian || (first < 0x80 && second == 0) || (first == 0xFF && second == 0xFE);
    }

    size_t size() const { return wide ? text.size() / 2 : text.size(); }
    unsigned at(size_t i) const {
        if (!wide)
            return static_cast<uint8_t>(text[i]);
        auto const first = static_cast<uint8_t>(text[2 * i]), second = static_cast<uint8_t>(text[2 * i + 1]);
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
    /// The first `c` from `i` on, or size().
    size_t find(unsigned c, size_t i) const {
        if (!wide) {
            auto const* found =
                i < size() ? std::memchr(text.data() + i, static_cast<int>(c), text.size() - i) : nullptr;
            return found ? static_cast<size_t>(static_cast<char const*>(found) - text.data()) : size();
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
    std::string_view text;
    bool wide = false;
    bool bigEndian = false;
};

class PacketScan {
public:
    explicit PacketScan(std::string_view packet)
        : units(packet), small(packet.size() <= SMALL_PACKET), maxDepth(small ? MAX_DEPTH_SMALL : MAX_DEPTH) {}

    void run() {
        auto const end = units.size();
        // An element takes three units at least; in a packet too short to be nested too deep only the prolog matters.
        auto const prologOnly = small && end / 3 <= maxDepth;
        for (size_t i = units.find('<', 0); i + 1 < end; i = units.find('<', i)) {
            auto const c = units.at(i + 1);
            if (c == '!')
                i = declaration(i);
            else if (c == '?')
                i = units.behind("?>", i + 2);
            else if (prologOnly)
                return;
            else if (c == '/')
                i = endTag(i + 2);
            else
                i = startTag(i + 1);
        }
    }

private:
    size_t declaration(size_t i) const {
        if (units.startsWith(i, "<!--"))
            return units.behind("-->", i + 4);
        if (units.startsWith(i, "<![CDATA["))
            return units.behind("]]>", i + 9);
        throw ErrorAt().as(Error::Code::XMP)("DOCTYPE is not allowed");
    }

    size_t endTag(size_t i) {
        if (depth > 0)
            --depth;
        return units.find('>', i);
    }

    size_t startTag(size_t nameStart) {
        auto const end = units.size();
        auto i = nameStart;
        while (i < end && units.at(i) > ' ' && units.at(i) != '>' && units.at(i) != '/')
            ++i;
        if (i < nameStart + 3 || !units.startsWith(i - 3, ":li"))
            count();
        for (; i < end && units.at(i) != '>'; ++i) {
            auto const c = units.at(i);
            if (c != '"' && c != '\'')
                continue;
            count();
            i = units.find(c, i + 1);
        }
        if (i >= end)
            return end;
        if (depth >= maxDepth)
            throw ErrorAt().as(Error::Code::TOO_BIG)("elements are nested too deep");
        if (units.at(i - 1) != '/')
            ++depth;
        return i;
    }

    void count() {
        if (++names > MAX_NAMES && !small)
            throw ErrorAt().as(Error::Code::TOO_BIG)("too many properties");
    }

    Units units;
    bool small;
    size_t maxDepth;
    size_t depth = 0;
    size_t names = 0;
};

} // namespace

void refuseHostilePacket(std::string_view packet) {
    PacketScan(packet).run();
}

} // namespace android::lumo
