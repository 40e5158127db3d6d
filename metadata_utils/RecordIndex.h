// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <utility>

namespace android::lumo {

/// Finds the records of a list by type, by name or by both without a walk over all of them. A single question is a walk
/// all the same; at the second one a map is made, which takes in what was appended since at each later one. The names
/// are the list's own: whoever removes, replaces or moves its elements says so. Ordered, because a file can choose
/// names whose hashes collide.
class RecordIndex {
public:
    struct Found {
        size_t first = 0; ///< the first that matches
        size_t count = 0; ///< how many do; 0: none
    };

    RecordIndex() = default;
    RecordIndex(RecordIndex const&) = delete;
    RecordIndex& operator=(RecordIndex const&) = delete;

    template<class Records>
    Found ofType(Records const& records, int32_t type) {
        return types.find(records, type, [](auto const& record) { return record.type; });
    }
    template<class Records>
    Found named(Records const& records, std::string_view name) {
        return names.find(records, name, [](auto const& record) { return std::string_view(record.name); });
    }
    template<class Records>
    Found namedInAnyCase(Records const& records, std::string_view name) {
        return caselessNames.find(records, name, [](auto const& record) { return std::string_view(record.name); });
    }
    template<class Records>
    Found matching(Records const& records, int32_t type, std::string_view name) {
        return both.find(records, {type, name},
                         [](auto const& record) { return std::pair(record.type, std::string_view(record.name)); });
    }
    void forget() {
        types.forget();
        names.forget();
        caselessNames.forget();
        both.forget();
    }

private:
    struct IsLessInAnyCase {
        bool operator()(std::string_view a, std::string_view b) const {
            return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                                [](char x, char y) { return lowered(x) < lowered(y); });
        }
    };

    template<class Key, class IsLess = std::less<Key>>
    class Lookup {
    public:
        template<class Records, class KeyOf>
        Found find(Records const& records, Key const& key, KeyOf const& keyOf) {
            if (!std::exchange(isAsked, true))
                return walk(records, key, keyOf);
            for (; known < records.size(); ++known)
                ++places.try_emplace(next, keyOf(records[known]), Found{known, 0})->second.count;
            next = places.lower_bound(key); // who asks for what is not there often appends it
            bool const isThere = next != places.end() && !IsLess()(key, next->first);
            return isThere ? next->second : Found();
        }
        void forget() {
            places.clear();
            next = places.end();
            known = 0;
            isAsked = false;
        }

    private:
        template<class Records, class KeyOf>
        static Found walk(Records const& records, Key const& key, KeyOf const& keyOf) {
            Found found;
            for (size_t i = 0; i < records.size(); ++i) {
                auto const each = keyOf(records[i]);
                if (!IsLess()(each, key) && !IsLess()(key, each) && found.count++ == 0)
                    found.first = i;
            }
            return found;
        }

        std::map<Key, Found, IsLess> places;
        typename std::map<Key, Found, IsLess>::iterator next = places.end(); ///< a hint for the next to take in
        size_t known = 0;                                                    ///< records taken in
        bool isAsked = false;
    };

    Lookup<int32_t> types;
    Lookup<std::string_view> names;
    Lookup<std::string_view, IsLessInAnyCase> caselessNames;
    Lookup<std::pair<int32_t, std::string_view>> both;
};

} // namespace android::lumo
