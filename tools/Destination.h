#pragma once

#include "Batch.h"
#include "Photo.h"
#include "SafeOutput.h"

#include <functional>
#include <string>

namespace motionphoto {

/// Where the result of one input goes, as the common options say: a file of its own, or the input itself.
class Destination {
public:
    /// Throws a Failure (USAGE) unless exactly one of -o, -d and --in-place is given, and only one input with -o.
    static void check(Arguments const& args);

    /// `name` is what the result is called below -d.
    Destination(Arguments const& arguments, Input const& input, std::string const& name);

    bool isSkipped() const { return skipped; }
    bool isInBytes() const { return args.isInBytes(); }
    Access access() const { return isInBytes() ? Access::READ_WRITE : Access::READ; }
    std::string const& path() const { return out; }
    /// What came of an input that was skipped, or done unless this is a dry run, which says what would have been.
    Outcome skippedOutcome() const;
    /// Writes a new file with what the function puts into the descriptor's file; `still` is whose rights bound it.
    Outcome write(Photo const& still, std::function<void(SafeOutput&)> const& fill) const;
    /// Commits the edit of the photo here.
    Outcome commit(Photo const& photo, android::lumo::MotionPhotoEdit& edit) const;

private:
    void refuseLinks() const;
    void commitInBytes(Photo const& photo, android::lumo::MotionPhotoEdit& edit) const;

    Arguments const& args;
    std::string out;
    bool skipped = false;
};

/// Edits each input: `stage` gives the editor with what is to be changed, or throws.
using Stage = std::function<std::shared_ptr<android::lumo::MotionPhotoEdit>(Photo const&)>;
ExitCode editEach(Arguments const& args, Stage const& stage);

} // namespace motionphoto
