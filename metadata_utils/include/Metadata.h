// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"
#include "MediaDefs.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace android::lumo {

/// One metadata block located inside a container file: where its payload lies and how to load it.
///
/// The payload is the container unit's own (for a JPEG segment the bytes behind its 2-byte length field); its first
/// `offset` bytes are the container's identifier (29 for XMP in an APP1 segment), the data proper follows. An empty
/// record has type NONE, zero numbers and no loader. Not synchronised; the loader moves the file's shared position.
struct METADATA_UTILS_EXPORT Metadata {
    /// Reads (file offset, byte count); fewer bytes come back where the file ends. Keeps its file alive.
    using Loader = std::function<std::vector<char>(uint32_t position, uint32_t count)>;

    MediaDefs::MetaType type = MediaDefs::MetaType::NONE; ///< what the block is
    uint32_t position = 0;                                ///< file offset of the payload's first byte
    uint32_t payload = 0;                                 ///< bytes of the payload
    uint32_t offset = 0;                                  ///< bytes of the payload that are the container's identifier
    Loader loader;                                        ///< reads from the block's file; empty in an empty record

    /// "type=%s, position=%zu, payload=%zu, offset=%zu"; an unknown type throws "unknown meta type: %d".
    std::string toString() const;
    /// The data proper, loaded from the file; empty without a loader or when the payload ends inside its identifier.
    /// Instantiated for std::string.
    template<class T>
    T toTypedData() const;
};

} // namespace android::lumo
