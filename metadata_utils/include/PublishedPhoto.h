// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"
#include "MediaFile.h"
#include "MotionClip.h"
#include "MotionVideo.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Edits of motion photos of any origin: with this library's trailer, or of the published formats alone (the video at
/// the end of a JPEG or in the 'mpvd' box of a HEIC, and XMP that says so; MotionVideo lists the standards).
///
/// Each works on `photo` in place, or, with an `output`, on a copy: the output gets the photo's bytes first, what it
/// held before is replaced, and the photo is only read. Both must be open for reading and writing where they are
/// written, and be different files. Everything outside the video, what speaks of it, and what counts its bytes stays
/// byte for byte; gain maps and other directory items keep their order and are found where they were, counted from the
/// file's end.
///
/// What an edit upholds:
///  1. Everything that can be foreseen is refused before the first byte moves: no video, a packet that finds no room,
///     no space on the disk, a photo that is not what it claims.
///  2. The XMP is written first, because it may move what stands behind it; with the values that will hold at the end.
///     Then the bytes behind the video, then those in front of it, so that a movie whose claim is already gone or not
///     yet true still stands whole behind the picture, where MotionVideo::scan and repair find it. Only while bytes are
///     being moved a failure leaves the video torn: use an output for the only copy of a photo.
///  3. Memory is bounded (1 MiB and the packet), whatever the video's size.
///
/// Errors are Error (REFUSED, UNSUPPORTED, DAMAGED, READ_FAILED, NO_SPACE, WRITE_FAILED) and those of the XMP. One
/// thread at a time for each file.
namespace android::lumo::published {

/// Takes the video out, by whatever it is claimed, and all claims with it: the properties of both generations, the
/// items "MotionPhoto" in every form, 'mpvd' boxes, the video's trailer records. Padding beside the video goes too
/// where it is zeros (or a 'free' box of them); other bytes stay, whatever calls them padding. A damaged claim goes
/// alone: no byte is taken that is not a video. Returns what was claimed; throws REFUSED when nothing speaks of a
/// video.
METADATA_UTILS_EXPORT MotionVideo removeVideo(std::shared_ptr<MediaFile> const& photo,
                                              std::shared_ptr<MediaFile> const& output = nullptr);

/// How a clip goes into a still.
struct AddOptions {
    std::optional<int64_t> momentUs; ///< of the still in the clip; without it the clip's duration
    ClipOptions clip;                ///< what may be changed of it on its way
};

/// Puts a clip into a still or in the place of the video there is, in the form with a trailer. Returns how the clip was
/// changed on its way; see MotionClip. In place the old video of a JPEG without a trailer goes first: a failure between
/// the two leaves the still alone, and the clip is still the caller's.
METADATA_UTILS_EXPORT MotionClip addVideo(std::shared_ptr<MediaFile> const& photo,
                                          std::shared_ptr<MediaFile> const& clip, AddOptions const& options = {},
                                          std::shared_ptr<MediaFile> const& output = nullptr);

/// Names the still's moment in the video, in microseconds, where the photo's generation has it; claims that are missing
/// are filled in. Throws REFUSED without a sound video, and for a moment outside it.
METADATA_UTILS_EXPORT void setMoment(std::shared_ptr<MediaFile> const& photo, int64_t momentUs,
                                     std::shared_ptr<MediaFile> const& output = nullptr);

/// What a conversion did.
struct Conversion {
    bool isChanged = false;           ///< false: it had this form already
    std::string brand;                ///< the movie's major brand before; empty where it is as it was
    uint32_t filler = 0;              ///< bytes of the 'free' box behind a movie that was too short for a JPEG's record
    std::vector<std::string> dropped; ///< names of the records that went
    bool isXMPWritten = true;         ///< false for a HEIC without XMP and without room for any, to a trailer
};

/// Gives a published photo the trailer that the motion-photo views recognise; keeps everything else. A movie whose
/// brand the views do not recognise becomes "mp42", one too short for a JPEG's record gets a 'free' box behind it: what
/// it was is noted in the record "MotionPhoto_Info", as MotionClip::stage does, for the way back. A photo that has its
/// trailer already, in a form that the views do not recognise, gets the form that they do. Refused when an item stands
/// behind the video. Records of a trailer that does not hold the video come behind it, into another file only.
METADATA_UTILS_EXPORT Conversion toTrailer(std::shared_ptr<MediaFile> const& photo,
                                           std::shared_ptr<MediaFile> const& output = nullptr);

/// Makes a photo that ends with its video, for readers of the published format alone: the trailer goes, one that
/// does not hold the video too; the video of a HEIC that the trailer held gets its own box. Claims that are missing are
/// filled in. Refused while it holds records other than the video's, which the text names, unless `dropRecords`; and
/// where a HEIC's XMP has no room for the claims and gets none: other readers find no video without them.
METADATA_UTILS_EXPORT Conversion toPublished(std::shared_ptr<MediaFile> const& photo, bool dropRecords = false,
                                             std::shared_ptr<MediaFile> const& output = nullptr);

/// Takes a trailer off that does not hold the video, with all its records; what the XMP counts from the file's end
/// follows. A trailer editor leaves its last record in the file: this is how that one goes. Refused when there is no
/// trailer, and when it holds or points to the video.
METADATA_UTILS_EXPORT void removeTrailer(std::shared_ptr<MediaFile> const& photo,
                                         std::shared_ptr<MediaFile> const& output = nullptr);

/// Takes XMP out that holds nothing, as claims leave it that were all there was: the segment of a JPEG; of a HEIC the
/// item, its location, its reference and its bytes. False, and nothing changed, for any other packet, for several, and
/// in a HEIC where more than the image counts on the item or its bytes' place. The image's bytes move: in a photo that
/// is no copy a failure may leave them damaged.
METADATA_UTILS_EXPORT bool removeEmptyXMP(std::shared_ptr<MediaFile> const& photo);

} // namespace android::lumo::published
