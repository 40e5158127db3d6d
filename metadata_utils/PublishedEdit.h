// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoEdit.h"
#include "PhotoLayout.h"
#include "XMPInfoImpl.h"
#include "io/SplicedCopy.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

/// Steps that the edits of published photos share.
namespace android::lumo::published {

using PacketChange = std::function<void(std::shared_ptr<XMPInfoImpl> const&)>;

/// The edit goes into another file.
bool isElsewhere(MediaFile const& photo, std::shared_ptr<MediaFile> const& output);

/// The file the edit works on: the photo itself, or the output, which gets the photo's bytes but for `leftOut`; what
/// points behind those is right afterwards. A change of the packet that could be made on the way is taken out of
/// `change`.
std::shared_ptr<MediaFile> begin(std::shared_ptr<MediaFile> const& photo, std::shared_ptr<MediaFile> const& output,
                                 Stretch const& leftOut = {}, PacketChange* change = nullptr);

/// What the XMP says about a video in the end.
struct Fields {
    uint64_t length = 0;                    ///< of the item "MotionPhoto"
    uint64_t itemPadding = 0;               ///< behind the video
    std::optional<uint64_t> primaryPadding; ///< of the item "Primary"; none: as it is
    int64_t addedInFront = 0;               ///< bytes that come to stand between the item in front and the video
    std::string mime = "video/mp4";
    std::optional<int64_t> momentUs = {}; ///< none: the one that is there
};

/// The values that a sound video gives them.
Fields fieldsFor(PhotoLayout const& layout, MotionVideo const& video);

/// Changes the packet so that it claims the video once, in the current form: older properties and entries under other
/// namespaces go, an entry that is there keeps its place and its moment is kept.
void setFields(std::shared_ptr<XMPInfoImpl> const& view, MediaDefs::MimeType still, Fields const& fields);

/// Whether the packet with these fields can be written, tried in memory. False for a HEIC that has no claims and no
/// room for any; one that has claims and no room throws.
bool takesFields(PhotoLayout const& layout, Fields const& fields);

/// Throws where it cannot.
void requireTakesFields(PhotoLayout const& layout, Fields const& fields);

/// Bytes that the photo can become longer by when they are written.
uint32_t xmpGrowth(PhotoLayout const& layout, Fields const& fields);

/// Changes the file's packet and writes it; the bytes behind it may move, together.
void writeXMP(std::shared_ptr<MediaFile> const& file, PacketChange const& change);

/// Whether these bytes are nobody's: zeros, or a 'free' box of zeros. Padding that is anything else, whoever claims it,
/// is a picture or a record that the XMP does not name.
bool isFiller(MediaFile const& file, uint32_t position, uint32_t size);

/// Bytes between a JPEG's trailer and the video in it that the padding of the item in front counts, as toTrailer makes
/// it do: with the trailer they go from there. 0 where the padding is the photo's own.
uint32_t countedHead(PhotoLayout const& layout, MotionVideo const& video);

/// Whether the directory has an item between picture and video; the older format's has none of the video.
bool hasItemInFront(PhotoLayout const& layout);

/// Whether the padding that a JPEG's Primary claims is the photo's own: it leads from the picture's end to this place
/// or, where an item stands in front of the video, to a picture.
bool isPrimaryPaddingOwn(PhotoLayout const& layout, uint32_t position);

/// Lets an editor of the photo commit: into the output, whose bytes go (the editor takes an empty one), or in place.
void commit(MotionPhotoEdit& edit, MediaFile const& photo, std::shared_ptr<MediaFile> const& output);

/// Throws for a trailer that stands where nobody looks for it: it would go on claiming the video.
void requireNoHiddenTrailer(PhotoLayout const& layout);

/// Writes at a position.
void writeAt(MediaFile& file, uint32_t position, std::string const& bytes);

/// Sets the size of a movie's last box; one that is left open ends where the movie does.
void setSizeOfLastBox(MediaFile& file, uint32_t position, uint32_t size, bool isOpen);

} // namespace android::lumo::published
