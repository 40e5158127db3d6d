// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "CommitFields.h"
#include "MotionPhotoMediator.h"
#include "MotionPhotoParts.h"
#include "OutsideVideo.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace android::lumo {

/// The packet as a commit in place would write it first. None: it would write none, or what it would write only its
/// steps can tell.
struct PacketAhead {
    std::shared_ptr<XMPPacket> packet;
    std::vector<uint8_t> bytes;
    bool isChanged = false;
};

/// An editor's commits into the photo itself.
///
/// What a commit upholds:
///  1. Everything foreseeable is refused before the first byte moves: a file that has changed since it was read, an
///  input that cannot be written, a disk without room, a result past 4 GiB.
///  2. The order is XMP, video box, trailer, XMP fix-up: what stands in front moves what stands behind, never the
///  reverse.
///  3. The XMP committed first already holds the fix-up's values, so the fix-up changes no sizes behind the video.
///  4. What was staged stays staged until a commit into the editor's own file has returned: one that throws leaves
///  packet and records as they were, and the next one starts over. A commit into another file edits a copy through an
///  editor of its own; see MotionPhotoTarget.
class MotionPhotoCommit {
public:
    MotionPhotoCommit(MotionPhotoParts& photo, StagedMotion const& asked, MotionPhotoEditImpl::Mediator& relay)
        : parts(photo), staged(asked), mediator(relay), outside(photo, relay) {}

    /// Writes what is staged; one that throws leaves packet and records staged as they were.
    void write();
    /// Whether what was written took the last claim of a video out, its record having gone as any other.
    bool hasEndedClaims() const { return fields && fields->endsClaims(); }
    /// Throws what a commit into `output` would refuse of what is staged.
    void requireCommittable(MediaFile const& output, bool isTrailerWritten = false);
    /// The trailer's editor is going to commit alone, into `file`: refuses what its commit, or the change of the packet
    /// that follows it, could only fail at, and makes the room that the packet will need.
    void prepareTrailer(MediaFile const& file);
    /// What is staged stays as it is.
    PacketAhead packetAhead();
    OutsideVideo& outsideVideo() { return outside; }

private:
    using Planned = std::optional<QRTEditImpl::OnePlan>;

    void writeSteps(Planned& planned);
    void prepareCommit(Planned& planned);
    void prepareTrailerSteps(MediaFile const& file);
    void noteGrowth() noexcept;
    void requireNothingLeft() const;
    void requireVideoStaysReadable() const;
    CommitSizes sizes();
    bool isVideoRemovalWithoutXMP();
    bool mustRestoreTrailer() const;
    void restoreTrailer();
    void requireRoomFor(uint32_t packetSize) const;
    void prepareImageType();

    MotionPhotoParts& parts;
    StagedMotion const& staged;
    MotionPhotoEditImpl::Mediator& mediator;
    OutsideVideo outside;
    std::optional<CommitFields> fields; ///< of this commit
    std::optional<size_t> orgFileSize;  ///< before the first of the commits that have failed since one returned
    bool isTrailerFound = false;        ///< one that boxes hid, whose records are not staged yet
    uint32_t sizeWithGrowth = 0; ///< of the file that a failed commit has left longer than anything in it; else 0
};

} // namespace android::lumo
