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
#include <vector>

namespace android::lumo {

/// Finds the records of a list by type, by name or by both without a walk over all of them. A single question is a walk
/// all the same; at the second one a table is made, which takes in what was appended since at each later one. The names
/// are the list's own: whoever removes, replaces or moves its elements says so. An element may also stay in its place
/// and say itself that it is no record any more.
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
        return types.find(records, {type, {}}, ByType());
    }
    template<class Records>
    Found named(Records const& records, std::string_view name) {
        return names.find(records, {0, name}, ByName());
    }
    template<class Records>
    Found namedInAnyCase(Records const& records, std::string_view name) {
        return caselessNames.find(records, {0, name}, ByName());
    }
    template<class Records>
    Found matching(Records const& records, int32_t type, std::string_view name) {
        return both.find(records, {type, name}, ByBoth());
    }
    /// The element at that place says from now on that it is none.
    template<class Records>
    void leaveOut(Records const& records, uint32_t place) {
        types.leaveOut(records, place, ByType());
        names.leaveOut(records, place, ByName());
        caselessNames.leaveOut(records, place, ByName());
        both.leaveOut(records, place, ByBoth());
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
    struct ByType {
        Key operator()(auto const& record) const { return {record.type, {}}; }
    };
    struct ByName {
        Key operator()(auto const& record) const { return {0, record.name}; }
    };
    struct ByBoth {
        Key operator()(auto const& record) const { return {record.type, record.name}; }
    };
    template<class Record>
    static bool isGone(Record const& record) {
        if constexpr (requires { record.isGone(); })
            return record.isGone();
        else
            return false;
    }
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
            if (next.empty()) {
                places.reserve(records.size());
                next.reserve(records.size());
            }
            while (next.size() < records.size())
                takeIn(records, keyOf);
            auto const found = places.find(key);
            return found != places.end() ? Found{found->second.first, found->second.count} : Found();
        }
        template<class Records, class KeyOf>
        void leaveOut(Records const& records, uint32_t place, KeyOf const& keyOf) {
            if (place >= next.size())
                return;
            auto const found = places.find(keyOf(records[place]));
            if (--found->second.count == 0)
                return void(places.erase(found));
            while (isGone(records[found->second.first]))
                found->second.first = next[found->second.first];
        }
        void forget() {
            places.clear();
            next.clear();
            isAsked = false;
        }

    private:
        struct Chain {
            uint32_t first = 0; ///< none that is gone
            uint32_t last = 0;
            uint32_t count = 0; ///< without those that are gone
        };

        template<class Records, class KeyOf>
        void takeIn(Records const& records, KeyOf const& keyOf) {
            auto const place = static_cast<uint32_t>(next.size());
            next.push_back(place);
            if (isGone(records[place]))
                return;
            auto& chain = places.try_emplace(keyOf(records[place]), Chain{place, place, 0}).first->second;
            next[std::exchange(chain.last, place)] = place;
            ++chain.count;
        }
        template<class Records, class KeyOf>
        static Found walk(Records const& records, Key const& key, KeyOf const& keyOf) {
            Found found;
            for (uint32_t i = 0; i < records.size(); ++i) {
                if (!isGone(records[i]) && IsSame<Letters>()(keyOf(records[i]), key) && found.count++ == 0)
                    found.first = i;
            }
            return found;
        }

        std::unordered_map<Key, Chain, Hash<Letters>, IsSame<Letters>> places;
        std::vector<uint32_t> next; ///< of each record taken in, the next with the same key; of a chain's last itself
        bool isAsked = false;
    };

    Lookup<AsWritten> types;
    Lookup<AsWritten> names;
    Lookup<Lowered> caselessNames;
    Lookup<AsWritten> both;
};

} // namespace android::lumo
