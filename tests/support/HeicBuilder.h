// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// HEIC files for tests, written without the library's help: a grid of flat 64 x 64 HEVC tiles that any HEVC decoder
/// takes.
namespace android::lumo::test {

/// A big-endian number of `width` bytes.
std::string bigEndian(uint64_t value, unsigned width);
std::string heicBox(std::string_view type, std::string_view payload);
std::string heicFullBox(std::string_view type, unsigned version, uint32_t flags, std::string_view payload);
/// The box of a video, with a header of 8 or 16 bytes.
inline std::string videoBox(std::string const& movie, bool wide = false) {
    return wide ? bigEndian(1, 4) + "mpvd" + bigEndian(movie.size() + 16, 8) + movie : heicBox("mpvd", movie);
}

struct HeicOptions {
    unsigned rows = 2;
    unsigned columns = 2;
    bool grid = true; ///< false: the primary is the first tile

    size_t filler = 0; ///< bytes of a filler unit behind each tile's slice, which decoders skip

    // Items besides the picture.
    bool thumbnail = false;
    bool exif = true;
    bool alpha = false;
    bool groups = false;                 ///< an 'altr' group of primary and first tile, group id 900
    std::optional<std::string> xmp = {}; ///< the XMP item's bytes, with any room behind the packet
    std::string xmpEncoding = {};        ///< its content_encoding
    std::string mimeFirst = {};          ///< bytes of a 'text/plain' item that stands in front of the XMP item
    unsigned rotation = 0;               ///< 'irot' angle

    // Locations.
    unsigned ilocVersion = 1;
    unsigned fieldWidth = 4; ///< of offsets and lengths
    unsigned indexWidth = 0;
    bool baseOffset = false;
    bool gridInIdat = true; ///< else in 'mdat'; version 0 has only that
    bool xmpInIdat = false;
    unsigned xmpExtents = 1;
    unsigned tileExtents = 1; ///< of the first tile, as are the next two
    unsigned tileMethod = 0;
    unsigned tileDataReference = 0;
    int64_t tileShift = 0;  ///< added to its offset
    uint32_t primaryId = 0; ///< 0: behind the tiles; above 65535 all boxes take their wide forms

    // Boxes.
    enum class Mdat { Plain, Wide, ToEnd };
    Mdat mdat = Mdat::Plain;
    bool metaLast = false;
    bool furtherBoxes = false;   ///< free ones and a type nobody knows, in 'meta' and at the top
    std::string extraMeta = {};  ///< children at the end of 'meta'
    std::string beforeMdat = {}; ///< top-level bytes in front of 'mdat'
    std::string behindMdat = {}; ///< top-level bytes behind it that belong to the image part
    std::string tail = {};       ///< appended data
};

/// Ids begin at 1: tiles, grid, thumbnail, auxiliary image, Exif, text, XMP.
std::string buildHeic(HeicOptions const& options = {});

/// An XMP packet with one dc:source, padded with blanks to `room` bytes where that is more.
std::string heicXmp(std::string_view source, size_t room = 0);

} // namespace android::lumo::test
