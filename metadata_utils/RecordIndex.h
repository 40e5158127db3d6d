// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Text.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace android::lumo {

/// Finds the records of a list by type, by name or by both without a walk over all of them. A single question is a walk
/// all the same; at the second one a table is made, which takes in what was appended since at each later one. The names
/// are the list's own: whoever removes, replaces or moves its elements says so.
class RecordIndex {
public:
    struct Found {
        uint32_t first = 0; ///< the first that matches
        uint32_t count = 0; ///< how many do; 0: none
    };

    RecordIndex() = default;
    RecordIndex(RecordIndex const&) = delete;
    RecordIndex& operator=(RecordIndex const&) = delete;

    template<class Records>
    Found ofType(Records const& records, int32_t type) {
        return types.find(records, {type, {}}, [](auto const& record) { return Key{record.type, {}}; });
    }
    template<class Records>
    Found named(Records const& records, std::string_view name) {
        return names.find(records, {0, name}, [](auto const& record) { return Key{0, record.name}; });
    }
    template<class Records>
    Found namedInAnyCase(Records const& records, std::string_view name) {
        return caselessNames.find(records, {0, name}, [](auto const& record) { return Key{0, record.name}; });
    }
    template<class Records>
    Found matching(Records const& records, int32_t type, std::string_view name) {
        return both.find(records, {type, name}, [](auto const& record) { return Key{record.type, record.name}; });
    }
    void forget() {
        types.forget();
        names.forget();
        caselessNames.forget();
        both.forget();
    }

private:
    struct Key {
        int32_t type;
        std::string_view name; ///< the list's own
    };
    struct AsWritten {
        static char of(char c) { return c; }
    };
    struct Lowered {
        static char of(char c) { return lowered(c); }
    };

    /// A polynomial of type, length and letters in the field of 2^31 - 1 elements, at a place that differs from process
    /// to process: names in a file do not share a hash but by chance.
    template<class Letters>
    struct Hash {
        size_t operator()(Key const& key) const {
            constexpr uint64_t FIELD = 0x7FFFFFFF;
            static uint64_t const place =
                (static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) & 0x1FFFFFFF) |
                0x1000000;
            uint64_t hash = key.name.size() & FIELD;
            auto const step = [&](uint32_t bits) { // `hash` stays below 2^33
                hash = hash * place + bits;
                hash = (hash & FIELD) + (hash >> 31);
            };
            auto const letter = [&](size_t i) { return uint32_t{static_cast<uint8_t>(Letters::of(key.name[i]))}; };
            step(static_cast<uint32_t>(key.type) & 0xFFFF);
            step(static_cast<uint32_t>(key.type) >> 16);
            size_t i = 0;
            for (; i + 3 <= key.name.size(); i += 3)
                step(letter(i) | letter(i + 1) << 8 | letter(i + 2) << 16);
            for (; i < key.name.size(); ++i)
                step(letter(i));
            return static_cast<size_t>(hash % FIELD);
        }
    };
    template<class Letters>
    struct IsSame {
        bool operator()(Key const& a, Key const& b) const {
            return a.type == b.type && std::equal(a.name.begin(), a.name.end(), b.name.begin(), b.name.end(),
                                                  [](char x, char y) { return Letters::of(x) == Letters::of(y); });
        }
    };

    template<class Letters>
    class Lookup {
    public:
        template<class Records, class KeyOf>
        Found find(Records const& records, Key const& key, KeyOf const& keyOf) {
            if (!std::exchange(isAsked, true))
                return walk(records, key, keyOf);
            if (known == 0)
                places.reserve(records.size());
            for (; known < records.size(); ++known)
                ++places.try_emplace(keyOf(records[known]), Found{known, 0}).first->second.count;
            auto const found = places.find(key);
            return found != places.end() ? found->second : Found();
        }
        void forget() {
            places.clear();
            known = 0;
            isAsked = false;
        }

    private:
        template<class Records, class KeyOf>
        static Found walk(Records const& records, Key const& key, KeyOf const& keyOf) {
            Found found;
            for (uint32_t i = 0; i < records.size(); ++i) {
                if (IsSame<Letters>()(keyOf(records[i]), key) && found.count++ == 0)
                    found.first = i;
            }
            return found;
        }

        std::unordered_map<Key, Found, Hash<Letters>, IsSame<Letters>> places;
        uint32_t known = 0; ///< records taken in
        bool isAsked = false;
    };

    Lookup<AsWritten> types;
    Lookup<AsWritten> names;
    Lookup<Lowered> caselessNames;
    Lookup<AsWritten> both;
};

} // namespace android::lumo
