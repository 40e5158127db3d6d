// SPDX-License-Identifier: Apache-2.0
#include "XmpTarget.h"

#include <algorithm>
#include <vector>

#include "Failure.h"

namespace hbox {

namespace {

using Ids = std::vector<uint32_t>;

bool contains(Ids const& sorted, uint32_t id) {
    return std::binary_search(sorted.begin(), sorted.end(), id);
}

struct ItemList {
    Ids all; ///< ascending, as those of XMP are
    Ids xmp;
    bool wideIds = false; ///< some 'infe' has a 32-bit id
};

ItemList readItems(Source const& source) {
    ItemList items;
    auto const& infos = source.allItems();
    items.all.reserve(infos.size());
    for (auto const& info : infos) {
        if (info.version > 3)
            throw failure(HBOX_ERR_UNSUPPORTED, "'infe' of version %u", static_cast<unsigned>(info.version));
        items.all.push_back(info.id);
        items.wideIds |= info.version == 3;
        if (info.isXmp())
            items.xmp.push_back(info.id);
    }
    auto const twice = std::adjacent_find(items.all.begin(), items.all.end());
    if (twice != items.all.end())
        throw failure(HBOX_ERR_FORMAT, "'iinf': two items have the id %u", static_cast<unsigned>(*twice));
    return items;
}

/// The XMP item of the primary. Readers take the first reference whose first target is the primary and whose item has a
/// location; a less usual one counts where there is none such.
std::optional<uint32_t> findXmpItem(Source const& source, ItemList const& items, uint32_t primary) {
    auto const iref = source.findChild(boxType("iref"));
    if (!iref)
        return std::nullopt;
    Ids const located = source.locatedIds();
    std::optional<uint32_t> second;
    ReferenceReader reader(*iref);
    while (auto const reference = reader.next()) {
        if (reference->type != boxType("cdsc") || !contains(items.xmp, reference->from) ||
            !reference->refersTo(primary))
            continue;
        Reference copy = *reference;
        if (copy.nextId() == primary && contains(located, reference->from))
            return reference->from;
        if (!second)
            second = reference->from;
    }
    return second;
}

Ids usedIds(Source const& source, ItemList const& items, uint32_t primary) {
    Ids ids = source.locatedIds();
    ids.insert(ids.end(), items.all.begin(), items.all.end());
    ids.push_back(primary);
    if (auto const iref = source.findChild(boxType("iref"))) {
        ReferenceReader reader(*iref);
        while (auto reference = reader.next()) {
            ids.push_back(reference->from);
            for (unsigned i = 0; i < reference->count; ++i)
                ids.push_back(reference->nextId());
        }
    }
    if (auto const iprp = source.findChild(boxType("iprp")))
        appendPropertyOwners(*iprp, ids);
    if (auto const grpl = source.findChild(boxType("grpl")))
        appendGroupIds(*grpl, ids);
    return ids;
}

/// The largest id that 'iloc', 'iref' and 'infe' can hold in the widths the file uses.
uint32_t largestPossibleId(Source const& source, ItemList const& items) {
    auto const iref = source.findChild(boxType("iref"));
    bool const wide = items.wideIds && LocationReader(source.child(boxType("iloc"))).version() == 2 &&
                      (!iref || ReferenceReader(*iref).idWidth() == 4);
    return wide ? UINT32_MAX : UINT16_MAX;
}

uint32_t freeId(Ids used, uint32_t largest) {
    if (uint32_t const last = *std::max_element(used.begin(), used.end()); last < largest)
        return last + 1;
    std::sort(used.begin(), used.end());
    uint32_t candidate = 1;
    for (uint32_t const id : used) {
        if (id > candidate)
            break;
        if (id == candidate)
            ++candidate;
    }
    if (candidate == 0 || candidate > largest)
        throw failure(HBOX_ERR_UNSUPPORTED, "no item id is free");
    return candidate;
}

} // namespace

XmpTarget chooseXmpTarget(Source const& source) {
    XmpTarget target;
    target.primary = source.primaryId();
    ItemList const items = readItems(source);
    auto const existing = findXmpItem(source, items, target.primary);
    if (!existing) {
        target.id = freeId(usedIds(source, items, target.primary), largestPossibleId(source, items));
        return target;
    }
    target.id = *existing;
    target.exists = true;
    ItemInfo const info = source.item(target.id);
    if (!info.contentEncoding.empty() || info.protectionIndex != 0)
        throw failure(HBOX_ERR_UNSUPPORTED, "XMP item %u is encoded or protected", static_cast<unsigned>(target.id));
    if (auto const location = source.findLocation(target.id); location && location->extentCount > 0)
        target.stored = source.ranges(target.id).front();
    return target;
}

} // namespace hbox
