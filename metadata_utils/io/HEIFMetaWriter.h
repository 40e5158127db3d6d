// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "HEIFMetaReader.h"
#include "ImageMetaWriter.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace android::lumo {

namespace heif {
class ImageMuxer;
class TrailingBoxes;
struct ImagePart;
struct TopLevelBox;
} // namespace heif
class SplicedCopy;

/// Changes a HEIC's metadata in place: room for XMP, the packet in it, and the camera debug info.
///
/// Room is made by the platform's muxer, which writes the image part (everything in front of the first trailing box)
/// again with every item, property and reference it had; only grid images can be written again. The room is an 'mdat'
/// of its own at the image's end. Boxes behind the image are moved, never changed, but for the trailer's pointer to the
/// video, which follows the video.
///
/// The camera debug info is a box that other readers skip, the file's last one unless a trailer stands there: then it
/// comes directly behind the image (TrailingBoxes.h).
///
/// What can be foreseen to fail (a layout that cannot be written again, a packet longer than its room, damage, 4 GiB, a
/// full disk) is refused before the first byte moves; after a failed write bytes already moved stay moved.
class METADATA_UTILS_EXPORT HEIFMetaWriter : public ImageMetaWriter {
public:
    /// Throws what HEIFMetaReader throws for a file it cannot read.
    explicit HEIFMetaWriter(std::shared_ptr<MediaFile> const& file);
    ~HEIFMetaWriter() override;

    /// Writes the image part again with room for `size` bytes of XMP (128 at least, and never less than the packet the
    /// image has, which the room begins with). Needs memory for the boxes that change, not for the coded images.
    /// Returns the room.
    Metadata reserveXMP(unsigned int size) override;
    /// Throws what reserveXMP(size) would refuse the image for; changes nothing.
    void requireRoomCanBeMade(unsigned int size);
    /// Changes nothing, on purpose.
    void removeXMP() override;
    /// Changes nothing, on purpose: only the form that takes the view writes.
    void writeXMP(std::vector<unsigned char> const& packet) override;
    /// Writes the packet and blanks over the rest of the room; an image without XMP gets room for 1280 bytes first. A
    /// packet longer than the room throws "xmpBuffer size must be smaller than xmpBox size", and the file stays as it
    /// was.
    void writeXMP(std::shared_ptr<XMPInfo> const& info) override;
    void writeCameraDebugInfo(std::vector<unsigned char> const& data) override;
    /// Takes every such box out; one inside the image is blanked over, so that nothing there moves.
    void removeCameraDebugInfo() override;

    /// Bytes that writeXMP(info) can put where the XMP stands now; 0 when there is none or it cannot be written in
    /// place.
    uint32_t xmpRoom();

    /// The room that is made for a packet which does not fit.
    static uint32_t roomFor(uint32_t packetSize) {
        constexpr uint32_t STEP = 64;
        return std::max(MIN_XMP_ROOM, (packetSize + STEP - 1) / STEP * STEP);
    }
    /// Makes it in a copy of the file instead, where the packet does not fit, and puts the packet there if it is
    /// wanted. For the library's own editors. Returns the room that a writer will find in the copy.
    uint32_t putXMPIn(SplicedCopy& copy, std::vector<uint8_t> packet, bool isWanted);

    /// Gives a last box that is stored with size 0 ("to the end of the file") its size, so that something can follow
    /// it. Whoever appends to a HEIC calls it first. Nothing happens when there is none.
    static void closeLastBox(std::shared_ptr<MediaFile> const& file);

    /// Brings a trailer box that stands in front of another box to the file's end, where trailers are
    /// looked for; a pointer in it follows the video. False, and nothing done, when the boxes are in order (or it is no
    /// HEIC).
    static bool restoreTrailerOrder(std::shared_ptr<MediaFile> const& file);
    /// Whether it would do something.
    static bool isTrailerHidden(MediaFile const& file);

    /// Degrees clockwise for the counter-clockwise angle of 'irot' (0 to 3 quarter turns).
    static uint32_t getClockWiseRotation(int heifCcwRotation);

private:
    void rescan();
    void requireReplaceableXMP();
    heif::ImagePart imageWithRoom(unsigned int size);
    void replaceImagePart(uint32_t imageLength, heif::ImagePart& image);

    void cutOut(heif::TrailingBoxes& boxes, heif::TopLevelBox const& box);

    std::unique_ptr<HEIFMetaReader> reader;
    std::unique_ptr<heif::ImageMuxer> muxer; ///< of the image part that was made last
};

} // namespace android::lumo
