// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionNames.h"
#include "XMPPacket.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What a still's XMP packet says about a video: the properties and the directory of the published motion-photo format
/// in all generations, read from the packet itself because the view's index knows one of them.
///
///     GCamera:MotionPhoto, MotionPhotoVersion, MotionPhotoPresentationTimestampUs   Motion Photo format 1.0
///     GCamera:MicroVideo, MicroVideoVersion, MicroVideoOffset,
///         MicroVideoPresentationTimestampUs                                         the format before it
///     Container:Directory[n]/Container:Item/Item:Semantic, Mime, Length, Padding    Motion Photo format 1.0
///     Container:Directory[n]/Item:Semantic, ...                                     the same entry as a typed node
///     the same under the namespaces .../photos/dd/1.0/container/ and item/          Dynamic Depth format 1.0
///
/// Prefixes mean nothing ("Camera" and "GContainer" are common), the namespaces decide. Positions count from the file's
/// end: an item lies in front of its own padding and of the lengths and paddings of all items behind it.
namespace android::lumo::claims {

/// One entry of a directory.
struct Item {
    std::string containerNS;
    std::string structPath; ///< of the struct that holds the fields, in the container's namespace
    std::string itemNS;
    int32_t place = 0;        ///< 1-based, in its directory
    bool isTypedNode = false; ///< the fields stand in the entry itself
    std::string semantic;
    std::string mime;
    std::string lengthText; ///< empty when absent
    std::string paddingText;
    uint64_t length = 0; ///< 0 for a text that is no number
    uint64_t padding = 0;

    /// An entry that has lost its semantic is known by its type.
    bool isVideo() const {
        return semantic == motion_names::MOTION_PHOTO || (semantic.empty() && mime.starts_with("video/"));
    }
    bool isPrimary() const { return semantic == motion_names::PRIMARY; }
};

struct Claims {
    std::string motionPhoto; ///< GCamera:MotionPhoto, empty when absent, as the next
    std::string motionPhotoVersion;
    std::string timestamp;
    std::string microVideo;
    std::string microVideoOffset;
    std::string microVideoTimestamp;
    std::vector<Item> items; ///< of the first directory that has any, in its order

    Item const* video() const;
    Item const* primary() const;
    /// The entry in front of the video's that is not the picture's.
    Item const* inFrontOfVideo() const;
    /// Bytes from the item's first to the file's end.
    uint64_t distanceFromEnd(Item const& item) const;
    /// Bytes from the video's first to the file's end, as the current and the older generation say it.
    std::vector<uint64_t> distances() const;
    /// Microseconds into the video; nothing when absent, negative ("unset") or no number.
    std::optional<int64_t> momentUs() const;
    /// Whether anything in the packet speaks of a video.
    bool any() const;
};

Claims read(XMPPacket const& packet);

/// Gives entries that are typed nodes the form that views read and that the toolkit writes as it was read; their places
/// and fields stay. An entry with more than simple fields stays as it is.
void nestTypedNodes(XMPPacket& packet);

/// The entry "Primary" first in a directory of the current generation, as readers that add up from the picture's end
/// need it: a missing one is made, of this type, one that stands behind others is moved with its fields.
void putPrimaryFirst(XMPPacket& packet, std::string const& mime);

/// Takes out every property and directory entry that speaks of a video; returns how many it took. Other entries and
/// their order stay. Whoever holds an index of the packet renews it.
uint32_t remove(XMPPacket& packet);

/// Takes out the properties of the format before Motion Photo 1.0.
void removeOlder(XMPPacket& packet);

/// Sets a field ("Length", "Padding") of an entry; an empty value takes it out.
void setField(XMPPacket& packet, Item const& item, char const* field, std::string const& value);

/// Bytes behind the video have become `growth` more, or fewer: what counts from the file's end counts them. A "Length"
/// that ran to the end goes on doing so, readers that know no "Padding" need it; else the last padding takes them.
void followEnd(XMPPacket& packet, int64_t growth);

/// A number of decimal digits; nothing for any other text.
std::optional<uint64_t> parseNumber(std::string const& text);

} // namespace android::lumo::claims
