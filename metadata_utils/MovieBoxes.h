// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"
#include "boxes/BoxBounds.h"

#include <cstdint>
#include <optional>
#include <string>

/// A movie inside another file, by its top-level boxes (ISO/IEC 14496-12 4.2; QuickTime files have the same shape).
namespace android::lumo::movie {

struct MovieBox {
    BoxType type = 0;
    uint32_t position = 0; ///< of the header's first byte, in the file
    uint32_t size = 0;     ///< whole box; what is left of the range for the size-0 form
    uint32_t headerSize = 0;
    bool toEnd = false; ///< stored with size 0

    uint32_t content() const { return position + headerSize; }
    uint32_t end() const { return position + size; }
};

constexpr char RECOGNISED_BRAND[] = "mp42"; ///< what a brand becomes that this library's views do not recognise
constexpr char QUICK_TIME_BRAND[] = "qt  ";
constexpr uint32_t BRAND_OFFSET = 8; ///< of the major brand in a movie

/// Whether the views take a movie of this major brand for one.
inline bool isRecognised(std::string const& brand) {
    return brand == RECOGNISED_BRAND || brand == QUICK_TIME_BRAND;
}

/// The box at `position` of a range that ends at `end`; nothing, with a reason, where none fits. A read that the system
/// refuses throws READ_FAILED.
std::optional<MovieBox> boxAt(MediaFile const& file, uint32_t position, uint32_t end, std::string& reason);

/// The first child of that type in [from, end); nothing where the boxes end without one or are damaged.
std::optional<MovieBox> findBox(MediaFile const& file, uint32_t from, uint32_t end, BoxType type);

/// What a walk over a movie's top-level boxes found. Sound: it begins with 'ftyp', holds 'moov', and the last box ends
/// where the range ends.
struct Walk {
    std::string brand;   ///< major brand of 'ftyp'
    MovieBox last;       ///< the last whole box
    uint32_t end = 0;    ///< behind it
    bool begins = false; ///< a whole 'ftyp' stands at the start
    bool hasMovie = false;
    bool hasMedia = false; ///< samples, or fragments that hold them
    std::string fault;     ///< empty for a sound movie

    bool isSound() const { return fault.empty(); }
};

/// Reads box headers only, at most MAX_BOXES of them. For who has just asked for the file's size, it is given.
Walk walk(MediaFile const& file, uint32_t position, uint32_t size);
Walk walk(MediaFile const& file, uint32_t position, uint32_t size, uint32_t fileSize);

/// For bytes that no claim bounds: the walk ends without a fault at the first bytes that are no box of a movie, as long
/// as 'moov' and media have been met. A box of a movie that does not fit is a fault: there the file was cut.
Walk walkUnclaimed(MediaFile const& file, uint32_t position, uint32_t limit);

} // namespace android::lumo::movie
