// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Text.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace android::lumo {

/// Finds the records of a list by type, by name or by both without a walk over all of them. A single question is a walk
/// all the same; at the second one a table is made, which takes in what was appended since at each later one. It knows
/// records by their place in the list: whoever removes, replaces or moves its elements says so.
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
        std::string_view name;
    };
    struct AsWritten {
        static char of(char c) { return c; }
    };
    struct Lowered {
        static char of(char c) { return lowered(c); }
    };

    template<class Letters>
    class Lookup {
    public:
        template<class Records, class KeyOf>
        Found find(Records const& records, Key const& key, KeyOf const& keyOf) {
            if (!std::exchange(isAsked, true))
                return walk(records, key, keyOf);
            for (; known < records.size(); ++known)
                takeIn(records, keyOf);
            auto const* entry = lookUp(records, key, hashOf(key), keyOf);
            return entry != nullptr ? entry->found : Found();
        }
        void forget() {
            entries.clear();
            heads.clear();
            known = 0;
            isAsked = false;
        }

    private:
        struct Entry {
            Found found;
            uint32_t hash;
            uint32_t next; ///< number of another in the same chain, counted from 1; 0: none
        };

        /// A polynomial of type, length and letters in the field of 2^31 - 1 elements, at a place that no file can
        /// know: nobody can choose names so that they share a chain.
        static uint32_t hashOf(Key const& key) {
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
            return static_cast<uint32_t>(hash % FIELD);
        }

        static bool isSame(Key const& a, Key const& b) {
            return a.type == b.type && std::equal(a.name.begin(), a.name.end(), b.name.begin(), b.name.end(),
                                                  [](char x, char y) { return Letters::of(x) == Letters::of(y); });
        }

        template<class Records, class KeyOf>
        static Found walk(Records const& records, Key const& key, KeyOf const& keyOf) {
            Found found;
            for (uint32_t i = 0; i < records.size(); ++i) {
                if (isSame(keyOf(records[i]), key) && found.count++ == 0)
                    found.first = i;
            }
            return found;
        }

        template<class Records, class KeyOf>
        Entry* lookUp(Records const& records, Key const& key, uint32_t hash, KeyOf const& keyOf) {
            for (uint32_t i = heads.empty() ? 0 : headOf(hash); i != 0; i = entries[i - 1].next) {
                auto& entry = entries[i - 1];
                if (entry.hash == hash && isSame(keyOf(records[entry.found.first]), key))
                    return &entry;
            }
            return nullptr;
        }

        template<class Records, class KeyOf>
        void takeIn(Records const& records, KeyOf const& keyOf) {
            auto const key = keyOf(records[known]);
            uint32_t const hash = hashOf(key);
            if (auto* entry = lookUp(records, key, hash, keyOf)) {
                ++entry->found.count;
                return;
            }
            entries.push_back({{known, 1}, hash, 0});
            if (entries.size() <= heads.size())
                return link(static_cast<uint32_t>(entries.size()));
            heads.assign(std::max<size_t>(16, 2 * heads.size()), 0);
            for (uint32_t i = 1; i <= entries.size(); ++i)
                link(i);
        }

        void link(uint32_t number) {
            auto& entry = entries[number - 1];
            entry.next = std::exchange(headOf(entry.hash), number);
        }

        uint32_t& headOf(uint32_t hash) { return heads[hash & (heads.size() - 1)]; }

        std::vector<Entry> entries;
        std::vector<uint32_t> heads; ///< numbers of the first entries of the chains; a power of two of them
        uint32_t known = 0;          ///< records taken in
        bool isAsked = false;
    };

    Lookup<AsWritten> types;
    Lookup<AsWritten> names;
    Lookup<Lowered> caselessNames;
    Lookup<AsWritten> both;
};

} // namespace android::lumo
