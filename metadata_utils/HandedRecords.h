// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "StagedRecord.h"

#include <functional>
#include <set>

namespace android::lumo {

/// What the editor of a copy was handed by the editor of the photo, as often as that commits: told apart from what was
/// found in the copy only, and from what was committed there since.
class HandedRecords {
public:
    /// Puts `theirs` behind those of `mine` that were never handed. What was handed earlier stays as `mine` has it by
    /// now; of the others `isNew` is told. False when nothing is to be written.
    bool take(StagedRecords::List const& theirs, StagedRecords& mine,
              std::function<void(StagedRecord const&)> const& isNew);

private:
    std::set<StagedRecord::Identity> known;
    bool wasHanded = false; ///< perhaps nothing: the other may have had no record
};

} // namespace android::lumo
