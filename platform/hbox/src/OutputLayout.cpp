// SPDX-License-Identifier: Apache-2.0
#include "OutputLayout.h"

#include <algorithm>
#include <utility>

#include "Failure.h"

namespace hbox {

namespace {
constexpr uint8_t BLANK = 0x20;
/// What is shorter is written with what stands around it: it is read once then, and stays in a second-level cache.
constexpr uint64_t LARGE = 256 * 1024;
/// The longest header of a box, and what its content is told apart by.
constexpr uint64_t BOX_HEADER = 32;
} // namespace

void OutputLayout::copyAs(Kind kind, FileRange source) {
    if (source.length == 0)
        return;
    copied.push_back(source);
    if (!pieces.empty() && pieces.back().kind == kind && pieces.back().source + pieces.back().length == source.position)
        pieces.back().length += source.length;
    else
        pieces.push_back({kind, length, source.length, source.position});
    length += source.length;
}

size_t OutputLayout::add(std::vector<uint8_t> bytes) {
    uint64_t const added = bytes.size();
    pieces.push_back({Kind::Own, length, added, 0, std::move(bytes)});
    length += added;
    return pieces.size() - 1;
}

void OutputLayout::replace(size_t piece, std::vector<uint8_t> bytes) {
    if (pieces[piece].length != bytes.size())
        throw failure(HBOX_ERR_STATE, "a box changed its length while it was laid out");
    pieces[piece].own = std::move(bytes);
}

void OutputLayout::addBlanks(uint64_t count) {
    pieces.push_back({Kind::Blanks, length, count});
    length += count;
}

std::optional<uint64_t> OutputLayout::moved(FileRange source) const {
    for (Piece const& piece : pieces) {
        if (piece.isCopied() && source.position >= piece.source &&
            android::lumo::rangeFits(source.position - piece.source, source.length, piece.length))
            return piece.start + (source.position - piece.source);
    }
    return std::nullopt;
}

std::vector<OutputLayout::Unchanged> OutputLayout::unchanged() const {
    std::vector<Unchanged> ranges;
    for (Piece const& piece : pieces) {
        uint64_t from = piece.start;
        auto const noteUpTo = [&](uint64_t end) {
            if (piece.kind == Kind::Copied && end - from >= LARGE)
                ranges.push_back({from, piece.source + (from - piece.start), end - from});
        };
        for (FileRange const& blank : blanked) { // one at most: the old packet
            if (blank.position < from || blank.position >= piece.start + piece.length)
                continue;
            noteUpTo(blank.position);
            from = blank.position + blank.length;
        }
        noteUpTo(piece.start + piece.length);
    }
    return ranges;
}

/// What of a copied piece is not left out.
void OutputLayout::writeCopied(Piece const& piece, std::span<Unchanged const> leftOut, Stream const& source,
                               std::span<uint8_t> out) const {
    uint64_t from = piece.start;
    auto const writeUpTo = [&](uint64_t end) {
        source.read(piece.source + (from - piece.start),
                    out.subspan(static_cast<size_t>(from), static_cast<size_t>(end - from)));
    };
    for (Unchanged const& range : leftOut) {
        if (range.position < from || range.position >= piece.start + piece.length)
            continue;
        writeUpTo(range.position);
        from = range.position + range.length;
    }
    writeUpTo(piece.start + piece.length);
}

/// The first bytes of each box in a range that is left out.
void OutputLayout::writeStarts(Unchanged const& range, Stream const& source, std::span<uint8_t> out) const {
    for (FileRange const& box : copied) {
        if (box.position < range.source || box.position - range.source >= range.length)
            continue;
        uint64_t const inRange = box.position - range.source;
        uint64_t const wanted = std::min({box.length, BOX_HEADER, range.length - inRange});
        source.read(box.position,
                    out.subspan(static_cast<size_t>(range.position + inRange), static_cast<size_t>(wanted)));
    }
}

void OutputLayout::write(Stream const& source, std::span<uint8_t> out, Parts parts) const {
    auto const leftOut = parts == Parts::CHANGES ? unchanged() : std::vector<Unchanged>();
    for (Piece const& piece : pieces) {
        auto const target = out.subspan(static_cast<size_t>(piece.start), static_cast<size_t>(piece.length));
        if (piece.isCopied())
            writeCopied(piece, leftOut, source, out);
        else if (piece.kind == Kind::Own)
            std::copy(piece.own.begin(), piece.own.end(), target.begin());
        else
            std::fill(target.begin(), target.end(), BLANK);
    }
    for (Unchanged const& range : leftOut)
        writeStarts(range, source, out);
    for (FileRange const& range : blanked) {
        auto const target = out.subspan(static_cast<size_t>(range.position), static_cast<size_t>(range.length));
        std::fill(target.begin(), target.end(), BLANK);
    }
}

} // namespace hbox
