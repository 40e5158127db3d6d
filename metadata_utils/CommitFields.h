// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoParts.h"
#include "OutsideVideo.h"
#include "VideoClaims.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace android::lumo {

/// What the packet says of the video and its place, worked out before a commit writes anything and looked at again when
/// all is written: the packet that is written first holds the final values already, so that the second look finds
/// nothing to write.
class CommitFields {
public:
    CommitFields(MotionPhotoParts& photo, StagedMotion const& asked, OutsideVideo& video)
        : parts(photo), staged(asked), outside(video) {}

    /// Refuses a moment that was set for this edit and lies behind the new video's end.
    void requireTimestamp() const;
    /// Stages the claims that are missing.
    void prepareXMP();
    void stageExpectedFields();
    /// Only what a commit of the trailer alone makes wrong.
    void stageTrailerFields();
    /// The values are read off the finished file; nothing here may fail for a reason that could be foreseen.
    void completeCommit(size_t orgFileSize);

    /// The video's record went without a word about the video: none is claimed from then on.
    bool endsClaims() const { return hasTakenClaimsOut; }

private:
    struct ExpectedVideo {
        uint32_t length = 0;                                ///< from the video's first byte to the file's end
        uint32_t padding = 0;                               ///< from the image's end to the video's first byte
        std::function<std::optional<int64_t>()> durationUs; ///< asked only when there is no timestamp
    };

    /// What is written: everything staged, or the trailer alone.
    enum class Written { EVERYTHING, TRAILER };

    void stagePublishedFields();
    bool describeNewItem(XMPPacket& packet, claims::Claims const& held);
    void followGrowth(Written written, bool isNew);
    std::optional<ExpectedVideo> expectedVideo(Written written) const;
    bool isRecordTakenOut() const;
    bool isMomentOfReplaced(std::string const& moment) const;
    void takeMoment(int64_t durationUs);

    MotionPhotoParts& parts;
    StagedMotion const& staged;
    OutsideVideo& outside;
    bool hasTakenClaimsOut = false;
    bool isMomentTaken = false; ///< from the video's length
};

} // namespace android::lumo
