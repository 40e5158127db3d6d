// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"
#include "MediaFile.h"
#include "Stretch.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace android::lumo {

/// A copy of a file, but for some places where other bytes stand or none: what an edit will drop is not copied, and
/// what it needs room for has it from the start. Each byte is written once, at its place.
class SplicedCopy {
public:
    explicit SplicedCopy(std::shared_ptr<MediaFile> const& source);

    /// In the copy `bytes` stand in place of the source's. Places do not overlap; what is put in front of a position
    /// comes before what is put in place of its byte. From front to back it costs least.
    void replace(Stretch const& old, std::string const& bytes = {});
    /// Whether a byte of it is among those that were replaced.
    bool touches(Stretch const& stretch) const;

    uint32_t size() const;
    /// Where the source's byte at `position` stands in the copy; of one that was replaced, what comes in its place.
    uint32_t newPlace(uint32_t position) const;

    /// Makes the target the copy. A disk without room throws before a byte is written; what throws later, like a source
    /// that has become shorter, leaves a target that is no copy.
    void writeTo(std::shared_ptr<MediaFile> const& target, ErrorAt at = ErrorAt()) const;

private:
    struct Splice {
        uint32_t removed = 0;
        std::string bytes;
        int64_t moved = 0; ///< how much farther back in the copy stands what follows
    };
    static int64_t growthOf(Splice const& splice) {
        return static_cast<int64_t>(splice.bytes.size()) - int64_t{splice.removed};
    }

    std::shared_ptr<MediaFile> source;
    uint32_t sourceSize;
    std::map<uint32_t, Splice> splices;
};

} // namespace android::lumo
