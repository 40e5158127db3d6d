// SPDX-License-Identifier: Apache-2.0
#include "HandedRecords.h"

#include <map>

namespace android::lumo {

bool HandedRecords::take(StagedRecords::List const& theirs, StagedRecords& mine,
                         std::function<void(StagedRecord const&)> const& isNew) {
    bool isAnyNew = false;
    std::map<StagedRecord::Identity, StagedRecord> before;
    StagedRecords::List all;
    for (auto const& record : mine.all()) {
        before.emplace(record.identity, record);
        if (wasHanded && !known.contains(record.identity))
            all.push_back(record); // found here only
    }
    for (auto const& record : theirs) {
        auto const found = before.find(record.identity);
        bool const isKnown = found != before.end() && known.contains(record.identity);
        isAnyNew = isAnyNew || !isKnown || !found->second.isInFile();
        all.push_back(isKnown ? found->second : record);
        if (!isKnown)
            isNew(record);
        known.insert(record.identity);
    }
    isAnyNew = isAnyNew || all.size() != mine.all().size();
    wasHanded = true;
    mine.assign(std::move(all));
    return isAnyNew;
}

} // namespace android::lumo
