// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"
#include "MediaFile.h"
#include "Metadata.h"

#include <memory>
#include <vector>

namespace android::lumo {

/// Locates the metadata blocks of a still image without decoding it. The readers of the containers implement it; the
/// factory picks one by the file's type. Owned by the one object that asked for it; moves the file's shared position.
class METADATA_UTILS_EXPORT ImageMetaReader {
public:
    virtual ~ImageMetaReader();

    /// A reader for a JPEG or HEIC; another type throws "unsupported type: %d", and mimeType()'s own errors pass
    /// through.
    static std::unique_ptr<ImageMetaReader> of(std::shared_ptr<MediaFile> const& file, ParseMode mode);

    /// Scans the container; false when the scan failed.
    virtual bool parseMetadata() = 0;
    /// An absent block is an empty record, never an error.
    virtual Metadata getXMP() = 0;
    /// The same for the Exif, as the container holds it.
    virtual Metadata getExif() = 0;
    /// The same for the camera's debug info.
    virtual Metadata getCameraDebugInfo() = 0;
    /// All blocks of XMP in file order, for whoever must know: a read that fails throws instead of ending the search.
    virtual std::vector<Metadata> findAllXMP() = 0;

protected:
    /// Keeps the file; scans nothing.
    ImageMetaReader(std::shared_ptr<MediaFile> const& file, ParseMode mode);

    std::shared_ptr<MediaFile> file; ///< the still
    ParseMode mode;                  ///< as given
    Metadata::Loader loader;         ///< keeps its own reference to the file
};

} // namespace android::lumo
