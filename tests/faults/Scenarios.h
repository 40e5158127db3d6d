// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/TempFile.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

/// What the fault driver runs: every operation that changes a file, and the sequences of several on one editor.
namespace android::lumo::test {

using File = std::shared_ptr<MediaFile>;
using Files = std::map<std::string, std::string>; ///< bytes by name

/// The files of one run: the still, which the operation reads, and two empty ones that it may write into.
class Desk {
public:
    Desk(TempDir const& folder, std::string const& before);

    File still, target, second;
    std::string path(std::string const& name) const { return dir.file(name); }
    Files files() const;

private:
    TempDir const& dir;
};

/// What is not as wanted.
std::string differences(Files const& files, Files const& wanted);

/// One call of the library that writes.
using Step = std::function<void()>;

struct Scenario {
    std::string name;
    std::string row; ///< of docs/failure-states.md; none for other files, and for several steps, which mix the rows
    std::string before;
    /// Parses and stages, and returns what writes it, step by step.
    std::function<std::vector<Step>(Desk&)> prepare;
    /// What is wrong with the files after all steps, when nothing failed; empty: nothing. A step may have refused.
    std::function<std::string(Files const&)> complaint = {};
    /// A step that threw, called again, completes what it began. Writers and transfers begin anew instead.
    bool remembers = true;
};

std::vector<Scenario> const& scenarios();

/// Runs all steps; the files afterwards. Steps that throw are left out.
Files outcome(Scenario const& scenario);

} // namespace android::lumo::test
