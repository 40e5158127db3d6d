// SPDX-License-Identifier: Apache-2.0
#include "OutputLayout.h"

#include <algorithm>
#include <utility>

#include "Failure.h"

namespace hbox {

namespace {
constexpr uint8_t BLANK = 0x20;
/// What is shorter is written with what stands around it.
constexpr uint64_t LARGE = 64 * 1024;
/// The longest header of a box, and what its content is told apart by.
constexpr uint64_t BOX_HEADER = 32;
} // namespace

void OutputLayout::copy(FileRange source) {
    if (source.length == 0)
        return;
    copied.push_back(source);
    if (!pieces.empty() && pieces.back().kind == Kind::Copied &&
        pieces.back().source + pieces.back().length == source.position)
        pieces.back().length += source.length;
    else
        pieces.push_back({Kind::Copied, length, source.length, source.position});
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
        if (piece.kind == Kind::Copied && source.position >= piece.source &&
            android::lumo::rangeFits(source.position - piece.source, source.length, piece.length))
            return piece.start + (source.position - piece.source);
    }
    return std::nullopt;
}

bool OutputLayout::isUnchanged(Piece const& piece) const {
    auto const meets = [&](FileRange const& range) {
        return range.position < piece.start + piece.length && piece.start < range.position + range.length;
    };
    return piece.kind == Kind::Copied && piece.length >= LARGE && std::none_of(blanked.begin(), blanked.end(), meets);
}

std::vector<OutputLayout::Unchanged> OutputLayout::unchanged() const {
    std::vector<Unchanged> ranges;
    for (Piece const& piece : pieces) {
        if (isUnchanged(piece))
            ranges.push_back({piece.start, piece.source, piece.length});
    }
    return ranges;
}

void OutputLayout::write(Stream const& source, std::span<uint8_t> out, Parts parts) const {
    for (Piece const& piece : pieces) {
        auto const target = out.subspan(static_cast<size_t>(piece.start), static_cast<size_t>(piece.length));
        if (parts == Parts::CHANGES && isUnchanged(piece))
            continue;
        if (piece.kind == Kind::Copied)
            source.read(piece.source, target);
        else if (piece.kind == Kind::Own)
            std::copy(piece.own.begin(), piece.own.end(), target.begin());
        else
            std::fill(target.begin(), target.end(), BLANK);
    }
    for (FileRange const& range : copied) {
        FileRange const start{range.position, std::min(range.length, BOX_HEADER)};
        auto const place = moved(start);
        if (parts == Parts::CHANGES && place)
            source.read(start.position, out.subspan(static_cast<size_t>(*place), static_cast<size_t>(start.length)));
    }
    for (FileRange const& range : blanked) {
        auto const target = out.subspan(static_cast<size_t>(range.position), static_cast<size_t>(range.length));
        std::fill(target.begin(), target.end(), BLANK);
    }
}

} // namespace hbox
