// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoCommit.h"
#include "MotionPhotoEditImpl.h"
#include "TrailerPlan.h"
#include "io/SplicedCopy.h"
#include "io/VideoPointer.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace android::lumo {

/// The copy of a photo that an editor's commit into another file begins with. The steps in place follow in it, and
/// find nothing to move: data that the edit drops are left out, and the XMP is the one that will be written, with its
/// room.
///
///     photo   image | video box | records, the dropped ones whole          | tail
///     copy    image, new XMP | empty box | records, dropped: heads only | tail of these
///
/// The copy is a whole photo of its own, with a trailer of as many records, so that its editor does and refuses what
/// it would do and refuse in the photo itself. What is no simple case is copied as it is.
class PhotoCopy {
public:
    /// Changes nothing; throws what a commit of the editor in place would refuse.
    explicit PhotoCopy(MotionPhotoEditImpl& owner);

    void writeTo(std::shared_ptr<MediaFile> const& target);

    /// Without a packet it is for the editor of the copy to work out.
    PacketAhead const& packetAhead() const { return ahead; }
    /// The packet stands in the copy: it is not to be written again.
    bool holdsPacket() const { return isPacketIn; }
    /// What a HEIC's copy has for a packet that is written over; 0 where nobody has looked.
    uint32_t getRoom() const { return room; }
    /// Bytes from the trailer's first byte to a record that stands so many behind the photo's.
    uint32_t recordPlace(uint32_t inPhoto) const;

private:
    void putXMP(MotionPhotoEditImpl& owner);
    void leaveOutBoxes(heif::TrailingBoxes const& boxes);
    void leaveOutRecords(TrailerPlan const& plan, trailer::Stored const& stored);
    struct Pointer {
        Stretch data; ///< of its record
        VideoPointer video;
    };
    std::optional<Pointer> findPointer(trailer::Stored const& stored) const;
    void followPointer();

    std::shared_ptr<MediaFile> photo;
    bool isHEIC;
    uint32_t trailerStart = 0; ///< of the photo's first record
    Stretch leftOut;           ///< what the owner was told to
    SplicedCopy copy;
    std::optional<Pointer> pointer;
    PacketAhead ahead;
    bool isPacketIn = false;
    uint32_t room = 0;
};

} // namespace android::lumo
