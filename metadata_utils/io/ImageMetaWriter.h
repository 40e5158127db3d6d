// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"
#include "MediaFile.h"
#include "Metadata.h"
#include "XMPInfo.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace android::lumo {

/// Changes the metadata regions of a still in place. Made per commit by the factory, dropped after use; moves the
/// file's shared position and rescans the container before every operation. Nothing is rolled back: after a failed
/// write bytes already moved stay moved. Whatever moves the bytes of an attached video also corrects the trailer's
/// pointer to it.
class METADATA_UTILS_EXPORT ImageMetaWriter {
public:
    /// What XMP gets at least where room is made for it.
    static constexpr uint32_t MIN_XMP_ROOM = 1280;

    virtual ~ImageMetaWriter();

    /// A writer for a JPEG or HEIC; another type throws "unsupported type: %d".
    static std::unique_ptr<ImageMetaWriter> of(std::shared_ptr<MediaFile> const& file);

    /// Opens room for `size` bytes of XMP (in a JPEG including the 29-byte identifier), replacing any room there was.
    virtual Metadata reserveXMP(unsigned int size) = 0;
    /// Changes nothing, in either container: XMP is emptied by writing an empty packet.
    virtual void removeXMP() = 0;
    /// Writes a packet, making room where it can; what a container does not do its own class says.
    virtual void writeXMP(std::vector<unsigned char> const& packet) = 0;
    /// The same with the packet of a view.
    virtual void writeXMP(std::shared_ptr<XMPInfo> const& info) = 0;
    /// Empty data throws.
    virtual void writeCameraDebugInfo(std::vector<unsigned char> const& data) = 0;
    /// Takes the debug info out; without one nothing happens.
    virtual void removeCameraDebugInfo() = 0;

protected:
    /// Keeps the file; changes nothing.
    explicit ImageMetaWriter(std::shared_ptr<MediaFile> const& file);

    std::shared_ptr<MediaFile> file; ///< the still
};

} // namespace android::lumo
