// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Source.h"

namespace hbox {

/// The new image part as a list of pieces: ranges copied from the source, bytes of our own, blanks.
///
/// It is also the table from old places to new ones: a copied range moves as a whole. Pieces that follow each other in
/// the source and in the output are one (of the same kind), so the list stays short however many boxes the source has.
class OutputLayout {
public:
    void copy(FileRange source) { copyAs(Kind::Copied, source); }
    /// The same for bytes of 'meta', which whoever gets the changes wants to read: they are never left out.
    void copyStructure(FileRange source) { copyAs(Kind::Structure, source); }
    /// Adds bytes of our own and returns their piece for replace.
    size_t add(std::vector<uint8_t> bytes);
    /// Puts bytes of the same length in the place of a piece that add made.
    void replace(size_t piece, std::vector<uint8_t> bytes);
    void addBlanks(uint64_t length);

    uint64_t size() const { return length; }

    /// Where the source's range stands now; nothing when it was not copied in one piece.
    std::optional<uint64_t> moved(FileRange source) const;

    /// Overwrites a range of the output with blanks when it is written.
    void blank(FileRange output) { blanked.push_back(output); }

    /// A copied range: its place in the output and in the source.
    struct Unchanged {
        uint64_t position;
        uint64_t source;
        uint64_t length;
    };
    /// The large ones, without what is blanked of them.
    std::vector<Unchanged> unchanged() const;

    enum class Parts { ALL, CHANGES };
    /// Fills `out`, which has size() bytes; of the unchanged ranges perhaps only where copies began.
    void write(Stream const& source, std::span<uint8_t> out, Parts parts) const;

private:
    enum class Kind { Copied, Structure, Own, Blanks };
    struct Piece {
        Kind kind;
        uint64_t start; ///< in the output
        uint64_t length;
        uint64_t source = 0;
        std::vector<uint8_t> own = {};

        bool isCopied() const { return kind == Kind::Copied || kind == Kind::Structure; }
    };

    void copyAs(Kind kind, FileRange source);
    void writeCopied(Piece const& piece, std::span<Unchanged const> leftOut, Stream const& source,
                     std::span<uint8_t> out) const;
    void writeStarts(Unchanged const& range, Stream const& source, std::span<uint8_t> out) const;

    std::vector<Piece> pieces;
    std::vector<FileRange> copied; ///< as they were asked for
    std::vector<FileRange> blanked;
    uint64_t length = 0;
};

} // namespace hbox
