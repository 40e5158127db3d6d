// SPDX-License-Identifier: Apache-2.0
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
/// APP1 (FF E1) carries XMP behind a 29-byte identifier or Exif (handed out with its "Exif" identifier); every APP4
/// (FF E4) is camera debug info; all other segments are stepped over.
class METADATA_UTILS_EXPORT JPEGMetaReader : public ImageMetaReader {
public:
    /// EAGER scans now and throws "fail to parse" when that fails. A scan that only meets damage has found what stands
    /// in front of it; one whose bytes cannot be read fails.
    JPEGMetaReader(std::shared_ptr<MediaFile> const& file, ParseMode mode);
    ~JPEGMetaReader() override;

    bool parseMetadata() override;
    Metadata getXMP() override;
    /// The last one in front of the scan, from its identifier "Exif" on.
    Metadata getExif() override;
    /// The last APP4's payload.
    Metadata getCameraDebugInfo() override;
    std::vector<Metadata> findAllXMP() override;

    /// The last block of that kind, scanning where the mode says so; an empty record without one.
    Metadata getMeta(MediaDefs::MetaType type);
    /// From the current position, which must be at a marker: the next APP1 to APP4 whose number is wanted, as (number,
    /// file offset of its marker), with the position at the marker; (-1, -1) when there is none in front of the scan,
    /// and where a read fails. Whoever must tell the two apart asks findAllXMP().
    std::pair<int32_t, int32_t> findNextAppNMarker(std::vector<int> const& wanted);
    /// The block in the segment at the current position, whose marker is given; the position is left at its payload. An
    /// empty record where it cannot be read.
    Metadata parseMetadata(uint16_t marker);
    /// The first XMP segment, an empty record when there is none, and where a read fails.
    Metadata findXMPApp1Marker();

private:
    static void tellFound(std::vector<Metadata> const& found);
    friend class JPEGMetaWriter; ///< hands out the loader with the rooms it opens

    using Resolver = std::pair<MediaDefs::MetaType, uint64_t> (*)(std::string const& payloadStart);

    std::vector<Metadata> findXMP(size_t atMost);
    void init();
    void scan();
    Metadata describe(uint16_t marker, uint32_t position, uint32_t payload, std::string const& payloadStart) const;

    std::unordered_map<MediaDefs::MetaType, Metadata> metas;
    std::unordered_map<uint16_t, Resolver> metaTypeResolvers;
};

} // namespace android::lumo
