// SPDX-License-Identifier: Apache-2.0
#include "OutputLayout.h"

#include <algorithm>
#include <utility>

#include "Failure.h"

namespace hbox {

namespace {
constexpr uint8_t BLANK = 0x20;
}

void OutputLayout::copy(FileRange source) {
    if (source.length == 0)
        return;
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

void OutputLayout::write(Stream const& source, std::span<uint8_t> out) const {
    for (Piece const& piece : pieces) {
        auto const target = out.subspan(static_cast<size_t>(piece.start), static_cast<size_t>(piece.length));
        if (piece.kind == Kind::Copied)
            source.read(piece.source, target);
        else if (piece.kind == Kind::Own)
            std::copy(piece.own.begin(), piece.own.end(), target.begin());
        else
            std::fill(target.begin(), target.end(), BLANK);
    }
    for (FileRange const& range : blanked) {
        auto const target = out.subspan(static_cast<size_t>(range.position), static_cast<size_t>(range.length));
        std::fill(target.begin(), target.end(), BLANK);
    }
}

} // namespace hbox
