// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"
#include "MediaDefs.h"
#include "MediaFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace android::lumo {

class MotionPhotoEdit;

/// What may be done to a clip that does not fit as it is.
struct ClipOptions {
    /// Refuses a clip whose first brand the motion-photo views do not recognise, instead of changing it in the copy.
    bool keepBrand = false;
    /// Where a changed copy is made, as a file without a name; empty: the system's folder for temporary files.
    std::string scratchFolder;
};

/// A movie file on its way into a still: what MotionPhotoEdit::addVideo is given, and how it differs from its source.
struct METADATA_UTILS_EXPORT MotionClip {
    /// The source itself where nothing had to change, else a copy that goes with this handle.
    std::shared_ptr<MediaFile> file;
    std::string brand;           ///< major brand of the source
    bool isBrandChanged = false; ///< the copy says "mp42"
    uint32_t filler = 0;         ///< bytes of the 'free' box behind the copy's movie, 0 for none
    /// The last box of the copy's movie got its size, which was 0: it ended where the file did.
    bool isLastBoxClosed = false;

    /// Makes a movie fit for a still of this type. Any structurally sound MP4 or QuickTime movie that begins with
    /// 'ftyp' (ISO/IEC 14496-12 4.3) is taken; anything else throws UNSUPPORTED and says how to remux it.
    ///
    ///  - The views recognise the brands "mp42" and "qt  ". The copy of a movie of another brand gets the major brand
    ///    "mp42"; its other bytes, the compatible brands too, stay.
    ///  - In a JPEG a record of up to 125,000 bytes is read as a pointer. The copy of such a movie gets a 'free' box
    ///    behind it that lifts it above; a last box of size 0 gets its size first.
    ///
    /// The source is read twice at most (its box headers, then the copy) and never written. A failure leaves nothing
    /// behind.
    static MotionClip prepare(std::shared_ptr<MediaFile> const& clip, MediaDefs::MimeType still,
                              ClipOptions const& options = {});

    /// Stages the clip as the video of the editor's photo. What was changed of it is noted in the record
    /// "MotionPhoto_Info" ("major_brand=isom length=28118 stored=125001 moov=0a1b2c3d"), so that published::toPublished
    /// gives it back as it was; a note about the video before goes, other texts in that record stay.
    void stage(MotionPhotoEdit& edit) const;
};

/// The moment in microseconds that a QuickTime clip names for its still: the time of the first sample of its timed
/// metadata track ('mebx') whose key ends in "still-image-time", on the movie's time line (its edit list applied).
/// Nothing where there is no such track. Damage in the track is "nothing" as well; a read that the system refuses
/// throws.
METADATA_UTILS_EXPORT std::optional<int64_t> stillMomentOf(std::shared_ptr<MediaFile> const& clip);
/// The same for a movie inside another file.
METADATA_UTILS_EXPORT std::optional<int64_t> stillMomentOf(std::shared_ptr<MediaFile> const& file, uint32_t position,
                                                           uint32_t size);

} // namespace android::lumo
