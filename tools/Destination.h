// SPDX-License-Identifier: Apache-2.0
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
    Access access() const {
        if (args.dryRun || !args.isInPlace())
            return Access::READ;
        return isInBytes() ? Access::READ_WRITE : Access::REPLACE;
    }
    std::string const& path() const { return out; }
    /// What came of an input that was skipped.
    Outcome skippedOutcome() const;
    /// Whether an edit has a result: false leaves everything as it is.
    using Edit = std::function<bool(std::shared_ptr<android::lumo::MediaFile> const& output)>;
    /// Runs the edit with a new, empty file for its result, which then takes its name; or with a null pointer when the
    /// photo's own bytes are to be edited. What is skipped when it is there is so too when it comes while this is done.
    Outcome edit(Photo const& photo, Edit const& edit) const;

private:
    void refuseLinks() const;
    void editSafely(Photo const& photo, Edit const& edit) const;
    Outcome rehearse(Photo const& photo, Edit const& edit) const;
    void editBytes(Photo const& photo, Edit const& edit) const;

    Arguments const& args;
    std::string out;
    bool skipped = false;
};

/// Edits each input.
using Stage = std::function<bool(Photo const&, std::shared_ptr<android::lumo::MediaFile> const& output)>;
ExitCode editEach(Arguments const& args, Stage const& stage);

} // namespace motionphoto
