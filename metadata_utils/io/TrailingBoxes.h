// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"
#include "HEIFBoxScan.h"
#include "MediaFile.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace android::lumo::heif {

/// What stands behind a HEIC's image, and every move of it.
///
///     image part | free "cdif" | mpvd | qrtd        the order that is written; others are read as well
///                ^ endOfImage()              ^ end of the file
///
///     box   offset  width  field (big-endian)
///     mpvd  0       4      box size: 8 + n (a header of 16 bytes with a 64-bit size is read, 8 are written)
///           4       4      "mpvd"
///           8       n      the video of a motion photo
///     free  0       4      box size: 12 + n
///           4       4      "free"
///           8       4      "cdif"
///           12      n      the camera's debug info
///     qrtd  as in TrailerLayout.h; looked for at the file's last bytes, so nothing may come behind it
///
/// An object knows the boxes as they stood when it was made and looks again once its handle has changed the file; what
/// others write meanwhile it does not see, so it is made anew for each edit. A top level that cannot be followed to the
/// file's end throws, as do reads that the system refuses.
///
/// What holds for every change:
/// 1. An item of the image whose bytes would move, or be lost, refuses it before a byte moves: positions in 'iloc' are
///    never written here.
/// 2. The trailer's pointer follows its video in the same operation.
/// 3. Memory is bounded, and the boxes add up to the file again when an operation has returned.
class TrailingBoxes {
public:
    static constexpr uint32_t VIDEO_HEADER_SIZE = BOX_HEADER_SIZE; ///< of the box that is written
    static constexpr uint32_t DEBUG_INFO_HEADER_SIZE = BOX_HEADER_SIZE + sizeof DEBUG_INFO_MARKER;

    explicit TrailingBoxes(std::shared_ptr<MediaFile> const& file);

    /// Whether it is made of this very handle.
    bool isOf(MediaFile const& other) const { return file.get() == &other; }
    uint32_t endOfImage() const { return topLevel().endOfImage(); }
    uint32_t fileSize() const { return topLevel().fileSize; }
    /// The video boxes behind the image, in file order.
    std::vector<TopLevelBox> videos() const;
    /// The bytes of all of them.
    uint64_t videosSize() const;
    /// The debug infos, last first, so that taking one out leaves the places of the others. More than 16 throw.
    std::vector<TopLevelBox> debugInfos() const;
    /// Another box stands behind the trailer, where no reader finds it then.
    bool isTrailerHidden() const { return hiddenTrailer() != nullptr; }

    /// Whether a box can only be blanked over: one in front of the image's last box, and one behind a video that XMP
    /// finds counting from the file's end.
    bool mustStay(TopLevelBox const& box) const;

    /// Throws when an item of the image has bytes in [from, to).
    void requireNoItemIn(uint32_t from, uint32_t to) const;
    void requireNoItemBehind(uint32_t from) const;

    /// Gives a last box that is stored with size 0 ("to the end of the file") its size, so that something can follow.
    void closeLast();
    /// Brings a hidden trailer to the file's end; false, and nothing done, when it is not hidden. A failure before the
    /// first box moved leaves the file as it was.
    bool bringTrailerToEnd();

    /// Takes out a box behind the image; what follows moves up.
    void takeOut(TopLevelBox const& box);
    /// In front of the image's last box nothing can move: the box becomes a 'free' of zeros.
    void blankOut(TopLevelBox const& box);
    /// Either of the two for every video box of the file; false when it has none.
    bool takeVideosOut();
    /// Those behind the image alone. More than 16 places with videos throw before a byte moves.
    bool takeVideosBehindOut();
    /// Throws what that, and a move of all that stands from `from` on, can be foreseen to fail for.
    void requireVideosCanGo(uint32_t from) const;
    /// The same for those behind the image alone.
    void requireVideosBehindCanGo(uint32_t from) const;

    /// Opens room at `position`, in front of what stands there, and puts a box with a video of so many bytes there;
    /// `write` writes them from the file's position on. One that cannot be finished is taken out again. Returns where
    /// the video begins.
    uint32_t putVideo(uint32_t position, uint32_t size, std::function<void()> const& write);

    /// Puts a debug info where it does not hide the trailer, and where nothing comes behind the video, whose XMP counts
    /// from the file's end: directly behind the image in front of video and trailer, else at the file's end. `old` (may
    /// be null) is the one behind the image that it replaces: where the new one takes its place, all that follows moves
    /// once.
    void putDebugInfo(std::span<uint8_t const> data, TopLevelBox const* old);
    /// Throws what putDebugInfo(), after all others were taken out, can be foreseen to fail for.
    void requireRoomForDebugInfo(size_t size) const;
    /// Throws what taking out or blanking out all of them can be foreseen to fail for.
    void requireDebugInfosCanGo() const;

private:
    TopLevel const& topLevel() const;
    std::vector<FileRange> videoRuns() const;
    void takeRangeOut(FileRange boxes);
    TopLevelBox const* hiddenTrailer() const;
    bool endsTrailer(TopLevelBox const& box) const;
    bool hasTrailer() const;
    TopLevelBox const* firstMovable() const;
    bool hasVideoInFrontOf(uint32_t position) const;
    bool isVideoCounted() const;
    void appendDebugInfo(std::span<uint8_t const> data);
    void writeDebugInfo(std::span<uint8_t const> data, uint32_t position);

    std::shared_ptr<MediaFile> file;
    mutable std::optional<TopLevel> known;    ///< none after a change
    mutable uint64_t knownChanges = 0;        ///< of the file, when it was found
    mutable std::optional<uint32_t> itemFree; ///< no item of the image has bytes from here on
};

} // namespace android::lumo::heif
