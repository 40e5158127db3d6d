// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ImageMetaWriter.h"
#include "JPEGMetaReader.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace android::lumo {

namespace jpeg {
struct Change;
struct SegmentMap;
} // namespace jpeg
class SplicedCopy;

/// Changes a JPEG's metadata segments in place: XMP room behind each Exif segment (or behind the start of image), the
/// XMP packet in it, and the camera debug-info APP4.
///
/// The debug-info operations keep the layout of the debug infos that are in photos already: the segment header is
/// written in little-endian order, and the length of an existing segment is taken from its marker. Other JPEG readers
/// do not accept such a segment; a caller that needs a standard APP4 must not use them. Nor does this library: its
/// search for segments ends at such a header, so that Exif and XMP behind a debug info that was written are found no
/// more, and a later packet is put in front of it. An existing APP4 whose size so taken does not fit in front of it
/// throws before anything changes; one that fits takes as many bytes in front of it along, and an MPF index or a
/// picture among them is lost. Any other MPF index is right afterwards.
class METADATA_UTILS_EXPORT JPEGMetaWriter : public ImageMetaWriter {
public:
    /// Throws what JPEGMetaReader throws for a file it cannot read.
    explicit JPEGMetaWriter(std::shared_ptr<MediaFile> const& file);
    ~JPEGMetaWriter() override;

    /// Takes out every XMP segment and opens room behind each Exif segment, or behind the start of image when there is
    /// none; returns the last room, whose bytes are the caller's to fill. The one other thing that changes is the size
    /// that an MPF index names for this JPEG's own picture. Before anything changes it throws when the room does not
    /// fit a segment, when a segment reaches past the image's end, when the images of an MPF index would be lost, and
    /// when the file would grow past 4 GiB or past what the file system holds. Extended XMP stays as it is.
    Metadata reserveXMP(unsigned int required) override;
    /// Changes nothing, on purpose.
    void removeXMP() override;
    /// Writes over the XMP segment there is when it is the only one and large enough, otherwise into room reserved
    /// anew; where none can be reserved, over a segment that just holds the packet. Asks for 1280 bytes for nearly
    /// every packet: a longer one needs a room that is there already, or throws before anything changes. The view's
    /// form asks for as much as its packet takes.
    void writeXMP(std::vector<unsigned char> const& packet) override;
    /// The same with a view's packet, and as much room as that takes.
    void writeXMP(std::shared_ptr<XMPInfo> const& info) override;
    void writeCameraDebugInfo(std::vector<unsigned char> const& data) override;
    /// Takes the first APP4 out; without one nothing happens.
    void removeCameraDebugInfo() override;

    /// Does what writeXMP(view) would do with this packet in a copy of the file instead. False, and nothing done, where
    /// that takes more steps: several packets or Exif segments, an index of several pictures behind a room to open. For
    /// the library's own editors.
    bool putXMPIn(SplicedCopy& copy, std::vector<uint8_t> const& packet) const;

    /// (segment position, marker value - 2) of the first such segment, (-1, -1) when there is none, and where a read
    /// fails.
    std::pair<int64_t, int64_t> findAppSegment(uint16_t marker);
    /// Puts a new debug info behind the start of image (`where` 2), or, for any other number, behind the last APP1
    /// that follows the file's position.
    void writeApp4(std::vector<unsigned char> const& data, uint64_t where);

private:
    Metadata makeChange(jpeg::Change const& change, jpeg::SegmentMap const& segments, bool isLast);
    Metadata writePacket(std::vector<unsigned char> const& packet, uint32_t required);
    Metadata findXMPRoom(uint32_t payload, uint32_t required);
    std::pair<int64_t, int64_t> searchAppSegment(uint16_t marker) const;
    int64_t removeApp4(int64_t position, int64_t payload);

    std::unique_ptr<JPEGMetaReader> reader;
};

} // namespace android::lumo
