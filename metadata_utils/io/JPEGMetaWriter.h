#pragma once

#include "ImageMetaWriter.h"
#include "JPEGMetaReader.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace android::lumo {

/// Changes a JPEG's metadata segments in place: XMP room behind each Exif segment (or behind the start of image), the XMP
/// packet in it, and the camera debug-info APP4.
///
/// The debug-info operations keep the layout of existing devices: the segment header is written in the machine's little-
/// endian order and an existing segment's length is taken from its marker. Other JPEG readers do not accept such a segment;
/// a caller that needs a standard APP4 must not use them.
class METADATA_UTILS_EXPORT JPEGMetaWriter : public ImageMetaWriter {
public:
    explicit JPEGMetaWriter(std::shared_ptr<MediaFile> const& file);
    ~JPEGMetaWriter() override;

    Metadata reserveXMP(unsigned int required) override;
    /// Changes nothing, on purpose.
    void removeXMP() override;
    void writeXMP(std::vector<unsigned char> const& packet) override;
    void writeXMP(std::shared_ptr<XMPInfo> const& info) override;
    void writeCameraDebugInfo(std::vector<unsigned char> const& data) override;
    void removeCameraDebugInfo() override;

    /// (segment position, marker value - 2) of the first such segment, (-1, -1) when there is none.
    std::pair<int64_t, int64_t> findAppSegment(uint16_t marker);
    void writeApp4(std::vector<unsigned char> const& data, uint64_t where);

private:
    void writePacket(std::vector<unsigned char> const& packet, uint32_t required);

    std::unique_ptr<JPEGMetaReader> reader;
};

} // namespace android::lumo
