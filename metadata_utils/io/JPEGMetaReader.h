#pragma once

#include "ImageMetaReader.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace android::lumo {

/// Finds XMP, Exif and camera debug info among a JPEG's segments (ISO/IEC 10918-1 B.1.1), up to the start of scan.
///
///     offset  width  field (big-endian)
///     0       2      start of image, FF D8
///     2       ...    segments: fill bytes FF, marker (FF, code), 2-byte length L (counts itself), L - 2 payload bytes
///     ...     2      start of scan, FF DA: the scanned part ends here
///
/// APP1 (FF E1) carries XMP behind a 29-byte identifier or Exif (handed out with its "Exif" identifier); every APP4
/// (FF E4) is camera debug info; all other segments are stepped over.
class METADATA_UTILS_EXPORT JPEGMetaReader : public ImageMetaReader {
public:
    /// EAGER scans now and throws "fail to parse" when that fails.
    JPEGMetaReader(std::shared_ptr<MediaFile> const& file, ParseMode mode);
    ~JPEGMetaReader() override;

    bool parseMetadata() override;
    Metadata getXMP() override;
    Metadata getExif() override;
    Metadata getCameraDebugInfo() override;
    std::vector<Metadata> findAllXMP() override;

    Metadata getMeta(MediaDefs::MetaType type);
    /// From the current position, which must be at a marker: the next APP1 to APP4 whose number is wanted, as (number,
    /// file offset of its marker), with the position at the marker; (-1, -1) when there is none in front of the scan.
    std::pair<int32_t, int32_t> findNextAppNMarker(std::vector<int> const& wanted);
    /// The block in the segment at the current position, whose marker is given; the position is left at its payload.
    Metadata parseMetadata(uint16_t marker);
    /// The first XMP segment, an empty record when there is none.
    Metadata findXMPApp1Marker();

private:
    friend class JPEGMetaWriter; ///< hands out the loader with the rooms it opens

    using Resolver = std::pair<MediaDefs::MetaType, uint64_t> (*)(std::string const& payloadStart);

    void init();

    std::unordered_map<MediaDefs::MetaType, Metadata> metas;
    std::unordered_map<uint16_t, Resolver> metaTypeResolvers;
};

/// JPEG markers and identifiers that reader and writer share.
namespace jpeg {

inline constexpr uint32_t MARKER_SIZE = 2;
inline constexpr uint32_t LENGTH_SIZE = 2;
inline constexpr uint16_t APP0 = 0xFFE0;
inline constexpr uint16_t APP1 = 0xFFE1;
inline constexpr uint16_t APP4 = 0xFFE4;
inline constexpr uint16_t START_OF_SCAN = 0xFFDA;
inline constexpr uint16_t END_OF_IMAGE = 0xFFD9;
inline constexpr uint32_t MAX_SEGMENT_LENGTH = 65535; ///< the length field counts itself
/// The APP1 identifier of an XMP packet, without its terminating NUL (ISO 16684-1, embedding in JPEG).
inline constexpr char XMP_IDENTIFIER[] = "http://ns.adobe.com/xap/1.0/";
inline constexpr uint32_t XMP_IDENTIFIER_SIZE = sizeof(XMP_IDENTIFIER); ///< with the NUL: 29

} // namespace jpeg

} // namespace android::lumo
