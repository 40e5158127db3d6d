// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaDefs.h"
#include "MediaFile.h"
#include "MotionNames.h"
#include "TrailerPlan.h"
#include "XMPEdit.h"
#include "XMPInfoImpl.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace android::lumo {

/// What XMP says of a photo's video, in both generations of the published format.
///
///     GCamera:MotionPhoto, MotionPhotoVersion            "1" where there is a video
///     GCamera:MotionPhotoPresentationTimestampUs         the still's moment in it
///     GCamera:MicroVideo, MicroVideoVersion,             the same in the first generation; the offset counts
///       MicroVideoOffset, ...PresentationTimestampUs     from the file's end to the video's first byte
///     item "MotionPhoto": Mime, Semantic, Length,        "Length" counts from the video's first byte to the
///       Padding                                          file's end
///     item "Primary": Padding                            bytes between the image and the video
///
/// A value is set only where it differs, so that a packet that is right stays as it is.
class VideoFields {
public:
    static constexpr auto const& ITEM = motion_names::MOTION_PHOTO;
    static constexpr auto const& PRIMARY_ITEM = motion_names::PRIMARY;
    static constexpr auto const& TIMESTAMP = motion_names::TIMESTAMP;

    /// The packet must outlive this.
    explicit VideoFields(XMPEdit& edited) : packet(edited), view(*XMPInfoImpl::of(edited)) {}

    /// Whether it says anything of being a motion photo, be it "0".
    bool contains() const { return holds(motion_names::MOTION_PHOTO); }
    bool isClaimed() const;
    bool containsItem() const { return view.containsItem(ITEM, false); }
    /// The first generation's.
    bool containsOffset() const { return holds(motion_names::MICRO_VIDEO_OFFSET); }
    /// "MotionPhoto" and "MotionPhotoVersion".
    void claim();
    /// Views find it: where it comes behind items of no kind, which they do not read past, those get one.
    void addItem();
    std::string timestamp() const;
    void setTimestamp(int64_t us);
    /// Where the video will lie: bytes from its first one to the file's end, and between image and video.
    void setPlace(uint32_t length, uint32_t padding);
    /// What counts from the file's end, where it is there.
    void setLength(uint32_t length);
    /// The bytes between image and video, where the packet names them.
    void correctPadding(uint32_t padding);
    /// The file has `size` bytes now, and the video stands at `position`, `padding` behind the image: an item's
    /// "Length" and what Primary names in front of the video are set. Without a video or item nothing happens.
    void follow(size_t size, size_t position, size_t padding);
    /// Takes back everything that is said of a video.
    void clear();

    /// With its kind: views read no further than an item without, and a video's would be put in front of it.
    bool containsPrimary() const;
    void fillPrimary(MediaDefs::MimeType mime);
    /// The same for the other items: each that has none gets one, that of its bytes where they tell it.
    void fillKinds();
    /// What is left of a claim that was taken back without its item and moment: the new video's own item stands last.
    void dropWithdrawn();

    /// What the top-level properties say, to be said again.
    using Claim = std::map<std::string, std::string>;
    Claim getClaim() const;
    void setClaim(Claim const& claim);

    /// Bytes from the video to the file's end, as a packet tells it; nothing where it does not.
    static std::optional<uint32_t> lengthOf(XMPInfo const& packet);
    /// Whether a video begins that many bytes in front of the file's end.
    static bool standsAt(MediaFile const& file, uint32_t length);
    /// Bytes from the file's end to a video that begins where a packet's claims count one, and `growth` bytes farther.
    static std::optional<uint32_t> find(MediaFile const& file, XMPInfo const& packet, int64_t growth = 0);
    /// Throws when the planned trailer would make a length wrong that the file's own XMP has right.
    static void requireKept(std::shared_ptr<MediaFile> const& file, TrailerPlan const& planned);

private:
    bool holds(std::string const& name) const;
    void setPrimaryPadding(std::string const& held, uint32_t padding);

    XMPEdit& packet;   ///< changes go through the editor,
    XMPInfoImpl& view; ///< questions to the view behind it
};

} // namespace android::lumo
