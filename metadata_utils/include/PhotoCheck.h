// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Export.h"
#include "MediaFile.h"
#include "MotionVideo.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace android::lumo {

/// Whether a motion photo keeps the rules of its format: those of the published standards, and this library's own.
/// docs/rules.md explains every rule.
///
/// Reads what MotionVideo reads, and the bytes behind the picture for a movie that nothing claims; memory is bounded.
/// Damage is a finding; a read that the system refuses throws READ_FAILED, a file that is neither JPEG nor HEIC is
/// refused. Nothing is written.
struct METADATA_UTILS_EXPORT PhotoCheck {
    /// How bad it is that a rule is not kept.
    enum class Severity : int32_t {
        NOTE = 0,    ///< known and harmless
        WARNING = 1, ///< some readers will miss something
        ERROR = 2,   ///< readers are misled, or bytes are missing
    };
    /// The findings in one word; the numbers are the exit codes of the tool's `check`.
    enum class Verdict : int32_t {
        SOUND = 0,   ///< it has a video, and no error was found
        NONE = 1,    ///< nothing speaks of a video, and no error was found
        DAMAGED = 3, ///< there are errors
    };

    /// A row of docs/rules.md.
    struct Rule {
        char const* id;    ///< short and stable: "trailer-whole"
        Severity severity; ///< of a finding under this rule
        bool isPublished;  ///< of a published standard; else this library's own
        char const* text;  ///< what has to hold
    };

    /// One place where a rule does not hold.
    struct Finding {
        Rule const* rule = nullptr; ///< one of rules()
        uint32_t offset = 0;        ///< in the file, where the thing is or is claimed to be; 0 for the XMP
        std::string expected;       ///< what would hold, for people
        std::string found;          ///< what the file has
    };

    Verdict verdict = Verdict::NONE; ///< of all findings together
    MotionVideo video;               ///< what MotionVideo::locate says
    MotionVideo orphan;              ///< a movie that nothing claims; status NONE without one
    std::vector<Finding> findings;   ///< in the order of the rules

    /// Whether a finding is of that rule.
    bool has(char const* ruleId) const;

    /// Checks every rule against the file as it is now.
    static PhotoCheck run(std::shared_ptr<MediaFile> const& photo);
    /// All rules, in the order of findings; for the life of the process.
    static std::vector<Rule> const& rules();
    /// "note", "warning", "error".
    static char const* nameOf(Severity severity);
};

/// What a repair does where there are two ways.
struct RepairOptions {
    /// A movie that nothing claims is taken out instead of claimed.
    bool dropOrphans = false;
};

/// What a repair did to a photo.
struct METADATA_UTILS_EXPORT Repair {
    std::vector<std::string>
        done;         ///< a line for each change, for people; offsets and sizes in it are of the file before
    PhotoCheck after; ///< of the result

    /// False where the photo was sound already.
    bool isChanged() const { return !done.empty(); }

    /// Makes the claims agree with the movie there is, in this order: a HEIC's trailer comes to the file's end; a
    /// pointer of its trailer is set to the video box; the XMP gets the values that trailer, box or a sound claim give
    /// it; a movie that nothing claims is claimed, or taken out; claims without a movie go. The movie's and the
    /// picture's bytes are never changed, damage inside them is left and reported by `after`. In place, or in an output
    /// as the edits of PublishedPhoto.h; a sound photo stays as it is.
    static Repair run(std::shared_ptr<MediaFile> const& photo, RepairOptions const& options = {},
                      std::shared_ptr<MediaFile> const& output = nullptr);
};

} // namespace android::lumo
