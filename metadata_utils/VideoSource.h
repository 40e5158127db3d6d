// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteSource.h"

#include <cstdint>
#include <optional>

namespace android::lumo {

/// A video that is staged: its bytes, and how long it plays.
class VideoSource : public ByteSource {
public:
    using ByteSource::ByteSource;
    VideoSource() = default;
    explicit VideoSource(ByteSource const& bytes) : ByteSource(bytes) {}

    /// Microseconds, 0 when the video names none; nothing when it cannot be played.
    std::optional<int64_t> durationUs() const;
};

} // namespace android::lumo
