// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"
#include "QRTDataInfo.h"

#include <cstdint>
#include <optional>
#include <string>

namespace android::lumo {

class MotionPhotoEdit;

/// What a movie was before it was changed for the views, as record "MotionPhoto_Info" keeps it:
///
///     major_brand=isom length=28118 stored=125001 moov=0a1b2c3d
///
/// The last tells the movie from another of the same size: a sum over the content of its 'moov', which no change
/// touches; notes without one are followed as well. " open" stands behind it where the movie's last box had the size 0,
/// which means "to the end", and got its size.
struct MovieNote {
    static constexpr int32_t TYPE = 2610;      ///< of the record
    static constexpr uint32_t MAX_SIZE = 1024; ///< of its data: a longer text is no note

    std::string brand;
    uint32_t length = 0;
    uint32_t stored = 0; ///< bytes it takes now: a note about another movie is not followed
    bool isOpen = false;
    uint32_t mark = 0; ///< of the movie's 'moov'; 0 where it is not known

    /// The mark of the movie of `length` bytes there.
    static uint32_t markOf(MediaFile const& file, uint32_t position, uint32_t length);
    /// Whether the note is about the movie that begins there.
    bool isAbout(MediaFile const& file, uint32_t position) const;

    std::string text() const;
    static std::optional<MovieNote> parse(std::string const& text);
    /// What a record of the file holds; nothing for a record or a text of another kind.
    static std::optional<MovieNote> in(MediaFile const& file, QRTDataInfo const& record);
    /// Stages the note, in the place of one about the movie before. A record that holds another text stays, and there
    /// is no note then.
    void stage(MotionPhotoEdit& edit) const;
    /// Stages that a note about the movie before goes. False when the record holds another text, which stays.
    static bool clear(MotionPhotoEdit& edit);
};

} // namespace android::lumo
