// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "BigEndian.h"

/// The one home of bounds checks for boxes of the ISO base media file format (ISO/IEC 14496-12).
///
/// A parser that has the bytes in memory reads them through BoxCursor: every read is one take(n), which tests n against
/// the bytes left, and a child's range is cut out of its parent's, so that no box can read past itself. A parser that
/// seeks in a file uses the plain functions (rangeFits, countFits, decodeBoxHeader) on numbers alone. Nothing here
/// allocates in proportion to the input. All values are plain: no state is shared between threads.

namespace android::lumo {

/// A four-character code, read as a big-endian number.
using BoxType = uint32_t;

constexpr BoxType boxType(char const (&code)[5]) {
    return static_cast<BoxType>(bigEndianNumber(std::string_view(code, 4)));
}

/// The code as text for messages; bytes that cannot be printed show as '?'.
inline std::string boxTypeText(BoxType type) {
    std::string text(4, '?');
    for (int i = 0; i < 4; ++i) {
        auto const byte = static_cast<unsigned char>(type >> (24 - 8 * i));
        if (byte >= 0x20 && byte < 0x7F)
            text[static_cast<size_t>(i)] = static_cast<char>(byte);
    }
    return text;
}

/// Whether [start, start + length) lies inside [0, limit). Written so that no sum can overflow.
constexpr bool rangeFits(uint64_t start, uint64_t length, uint64_t limit) {
    return start <= limit && length <= limit - start;
}

/// Whether `count` entries of at least `smallestEntry` (> 0) bytes can stand in `left` bytes: asked before any loop or
/// allocation that a count from the file governs.
constexpr bool countFits(uint64_t count, uint64_t smallestEntry, uint64_t left) {
    return count <= left / smallestEntry;
}

// The boxes of this project's own that stand behind an image.
inline constexpr BoxType VIDEO_BOX = boxType("mpvd");   ///< the video of a motion photo
inline constexpr BoxType TRAILER_BOX = boxType("qrtd"); ///< the trailer
/// What the content of a 'free' box begins with that holds the camera's debug info.
inline constexpr BoxType DEBUG_INFO_MARKER = boxType("cdif");

/// Of a header without a 64-bit size, as all that are written have it.
inline constexpr uint32_t BOX_HEADER_SIZE = 8;

/// A box header as stored.
///
/// | offset | width | name                                                       |
/// |--------|-------|------------------------------------------------------------|
/// | 0      | 4     | size of the whole box; 0 = to the end of its container;    |
/// |        |       | 1 = a 64-bit size follows the type                         |
/// | 4      | 4     | type                                                       |
/// | 8      | 8     | 64-bit size, only where the first field is 1               |
struct BoxHeader {
    BoxType type = 0;
    uint32_t headerSize = 0; ///< 8 or 16
    uint64_t size = 0;       ///< whole box; for the size-0 form the bytes left
    bool toEnd = false;      ///< the size-0 form
};

enum class BoxFault {
    None,
    Truncated, ///< fewer bytes than the header takes
    TooSmall,  ///< the size is smaller than the header
    BeyondEnd, ///< the size is larger than the bytes left; the header is filled in all the same
};

/// Decodes the header at the start of `bytes` (16 bytes, or what there is), `left` bytes before the container's end.
inline BoxFault decodeBoxHeader(std::span<uint8_t const> bytes, uint64_t left, BoxHeader& header) {
    auto const number = [&](size_t from, size_t width) { return bigEndianNumber(bytes.subspan(from, width)); };
    if (left < BOX_HEADER_SIZE || bytes.size() < BOX_HEADER_SIZE)
        return BoxFault::Truncated;
    header = {static_cast<BoxType>(number(4, 4)), BOX_HEADER_SIZE, number(0, 4), false};
    if (header.size == 1) {
        if (left < 16 || bytes.size() < 16)
            return BoxFault::Truncated;
        header.headerSize = 16;
        header.size = number(8, 8);
    } else if (header.size == 0) {
        header.toEnd = true;
        header.size = left;
    }
    if (header.size < header.headerSize)
        return BoxFault::TooSmall;
    return header.size > left ? BoxFault::BeyondEnd : BoxFault::None;
}

/// The header of a box of so many bytes, itself among them.
inline std::string boxHeader(uint64_t size, BoxType type) {
    return bigEndianBytes(size, 4) + bigEndianBytes(type, 4);
}

/// What a cursor or a box reader throws: "[boxes/BoxBounds:line] " and the reason, which names box, offset and sizes.
class BoxError : public std::runtime_error {
public:
    enum class Kind { Damaged, Unsupported };

    BoxError(int line, std::string const& reason, Kind what = Kind::Damaged)
        : BoxError("[boxes/BoxBounds:" + std::to_string(line) + "] ", reason, what) {}

    /// The text without its "[source:line] ".
    char const* reason() const { return what() + prefixLength; }
    Kind kind() const { return fault; }

private:
    BoxError(std::string const& prefix, std::string const& reason, Kind what)
        : std::runtime_error(prefix + reason), prefixLength(prefix.size()), fault(what) {}

    size_t prefixLength;
    Kind fault;
};

/// Fields that follow each other in bytes whose number was tested once for all of them.
class TestedFields {
public:
    explicit TestedFields(std::span<uint8_t const> bytes) : next(bytes.data()) {}

    uint64_t number(unsigned width) {
        uint8_t const* const field = next;
        next += width;
        return bigEndianNumber({field, width});
    }
    void skip(unsigned width) { next += width; }

private:
    uint8_t const* next;
};

struct BoxView;

/// A run of bytes in a file or in a box.
struct FileRange {
    uint64_t position = 0;
    uint64_t length = 0;
};

/// Reads big-endian fields from a span that knows its file offset and its box's name. The span must outlive the cursor.
class BoxCursor {
public:
    BoxCursor() = default;
    BoxCursor(std::span<uint8_t const> source, uint64_t position, BoxType boxName)
        : bytes(source), fileOffset(position), name(boxName) {}

    size_t left() const { return bytes.size(); }
    uint64_t offset() const { return fileOffset; } ///< of the next byte, in the file

    /// The next n bytes. Throws BoxError when fewer are left.
    std::span<uint8_t const> take(uint64_t n) {
        if (n > bytes.size())
            refuse(n, bytes.size(), fileOffset, name);
        auto const taken = bytes.first(static_cast<size_t>(n));
        bytes = bytes.subspan(taken.size());
        fileOffset += n;
        return taken;
    }

    void skip(uint64_t n) { take(n); }

    /// A big-endian number of `width` bytes (0 to 8); width 0 reads nothing and is 0, as the format's absent fields
    /// are.
    uint64_t number(unsigned width) { return bigEndianNumber(take(width)); }

    uint8_t u8() { return static_cast<uint8_t>(number(1)); }
    uint16_t u16() { return static_cast<uint16_t>(number(2)); }
    uint32_t u32() { return static_cast<uint32_t>(number(4)); }

    /// A string that ends with a zero byte, without it; all that is left where the zero is missing.
    std::string_view text() {
        size_t length = 0;
        while (length < bytes.size() && bytes[length] != 0)
            ++length;
        auto const found = take(length);
        skip(bytes.empty() ? 0 : 1);
        return {reinterpret_cast<char const*>(found.data()), found.size()};
    }

    /// A cursor over the next n bytes, which this one leaves behind.
    BoxCursor range(uint64_t n) {
        uint64_t const start = fileOffset;
        return {take(n), start, name};
    }

    /// Throws BoxError when `count` entries of at least `smallestEntry` bytes cannot stand in the bytes left.
    void requireEntries(uint64_t count, uint64_t smallestEntry) const {
        if (!countFits(count, smallestEntry, bytes.size()))
            throw BoxError(__LINE__, "box '" + boxTypeText(name) + "': " + std::to_string(count) +
                                         " entries cannot stand in " + std::to_string(bytes.size()) + " bytes at " +
                                         std::to_string(fileOffset));
    }

    /// The next child box, cut out of this range. Throws BoxError when its header or size does not fit.
    BoxView box();

private:
    /// Apart, so that the reading of a field is short enough to be part of what reads it; handed values, so that a
    /// cursor that nobody else holds stays in registers.
    [[noreturn, gnu::noinline, gnu::cold]] static void refuse(uint64_t n, size_t left, uint64_t position, BoxType box) {
        throw BoxError(__LINE__, "box '" + boxTypeText(box) + "': " + std::to_string(n) + " bytes wanted at " +
                                     std::to_string(position) + ", " + std::to_string(left) + " left");
    }

    [[noreturn, gnu::noinline, gnu::cold]] static void refuseChild(BoxFault fault, uint64_t size, size_t left,
                                                                   uint64_t position, BoxType box) {
        throw BoxError(__LINE__, "box '" + boxTypeText(box) + "': invalid child at " + std::to_string(position) +
                                     (fault == BoxFault::Truncated ? std::string(": header cut off")
                                                                   : ": size " + std::to_string(size)) +
                                     ", " + std::to_string(left) + " bytes left");
    }

    std::span<uint8_t const> bytes;
    uint64_t fileOffset = 0;
    BoxType name = 0;
};

/// A box whose bytes are in memory.
struct BoxView {
    BoxHeader header;
    uint64_t position = 0;          ///< of the header's first byte, in the file
    std::span<uint8_t const> bytes; ///< header and payload

    BoxType type() const { return header.type; }
    BoxCursor payload() const { return {bytes.subspan(header.headerSize), position + header.headerSize, header.type}; }
};

inline BoxView BoxCursor::box() {
    BoxView child{{}, fileOffset, {}};
    BoxFault const fault = decodeBoxHeader(bytes, bytes.size(), child.header);
    if (fault != BoxFault::None)
        refuseChild(fault, child.header.size, bytes.size(), fileOffset, name);
    child.bytes = take(child.header.size);
    return child;
}

/// The four bytes that a full box's payload begins with.
struct FullBoxHeader {
    uint8_t version;
    uint32_t flags; ///< 24 bits
};

inline FullBoxHeader readFullBoxHeader(BoxCursor& cursor) {
    uint32_t const both = cursor.u32(); // unsigned int(8) version; bit(24) flags;
    return {static_cast<uint8_t>(both >> 24), both & 0xFFFFFF};
}

} // namespace android::lumo
