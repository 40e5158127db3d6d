// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"
#include "MediaFile.h"
#include "boxes/BoxBounds.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <vector>

/// The top level of a HEIF file: its boxes from the first byte to the last, and where the image ends among them.
namespace android::lumo::heif {

/// Errors of the reader and of the writer, whichever file holds the code that says them.
ErrorAt readerError(int line = __builtin_LINE());
ErrorAt writerError(int line = __builtin_LINE());

/// Bytes of a file, or of memory, by position. Small neighbouring requests are answered from one read, so that a scan
/// over any number of small boxes costs few system calls. The file or memory must outlive the window and keep its size.
class ByteWindow {
public:
    explicit ByteWindow(MediaFile const& file);
    explicit ByteWindow(std::span<uint8_t const> bytes);

    uint32_t size() const { return total; }
    /// Exactly n bytes, valid until the next call. A range that the file does not hold, a read that the system refuses
    /// (READ_FAILED) and more than MAX_REQUEST bytes throw "fail to get file payload[%d]: %s".
    std::span<uint8_t const> at(uint32_t position, uint32_t n);
    /// The same for the part of the range that the file holds.
    std::span<uint8_t const> upTo(uint32_t position, uint32_t n);
    /// Whether at() would answer without reading.
    bool holds(uint32_t position, uint32_t n) const;

    /// No box that is read whole is larger in a file of any camera: 65,535 items with names of 40 bytes fit.
    static constexpr uint32_t MAX_REQUEST = 4 * 1024 * 1024;

private:
    void refill(uint32_t position, uint32_t n);

    MediaFile const* file = nullptr;
    std::span<uint8_t const> held; ///< the bytes of `buffer`, or all of the memory
    uint32_t heldAt = 0;           ///< their position
    uint32_t total = 0;
    std::unique_ptr<uint8_t[]> buffer; ///< not zeroed
    size_t capacity = 0;
};

struct TopLevelBox {
    BoxType type = 0;
    uint32_t position = 0;
    uint32_t size = 0;       ///< whole box, as far as the file goes
    uint32_t headerSize = 0; ///< 8 or 16
    bool toEnd = false;      ///< stored with size 0
    bool debugInfo = false;  ///< a 'free' box whose content begins "cdif"
    uint32_t statedSize = 0; ///< more than `size` for a last box that is cut off

    uint32_t end() const { return position + size; }
    uint32_t content() const { return position + headerSize; }
};

/// What a file holds at its top level, as far as it can be followed.
struct TopLevel {
    std::vector<TopLevelBox> boxes;
    /// Set when bytes behind the last box are no box, or that box is longer than the file: nobody can tell what
    /// follows.
    std::optional<Error> damage;
    uint32_t fileSize = 0;

    /// The start of the first trailing box (mpvd, qrtd, debug info) behind the last image box (ftyp, styp, meta, mdat,
    /// moov, moof, meco), else the file's size. A plain 'free' or an unknown box in front of it belongs to the image.
    uint32_t endOfImage() const;
    TopLevelBox const* find(BoxType type) const;
    /// The last box is longer than the file.
    bool isCutOff() const { return !boxes.empty() && boxes.back().statedSize > boxes.back().size; }
};

/// Follows the boxes to the file's end, or up to the first one of type `until` (0: none).
TopLevel scanTopLevel(ByteWindow& window, BoxType until = 0);
/// The boxes inside a 'meta', by type, position and size, up to a size below 8; a box that reaches over the end throws
/// "invalid chunk payload: %lu".
void visitMetaChildren(ByteWindow& window, TopLevelBox const& meta,
                       std::function<void(BoxType type, uint32_t position, uint32_t size)> const& visit);
/// For whoever is going to move bytes: throws the damage, if there is any.
TopLevel scanWhole(ByteWindow& window);
TopLevel scanWhole(MediaFile const& file);

} // namespace android::lumo::heif
