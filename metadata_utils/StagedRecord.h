// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteSource.h"
#include "QRTDataInfo.h"
#include "RecordIndex.h"
#include "io/TrailerLayout.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>

namespace android::lumo {

/// One record that an editor wants in the trailer: what it is called, and where its bytes come from.
struct StagedRecord {
    /// Stands whole in the trailer that the editor was made from, and is not read before it has to move.
    struct InFile {};
    struct InMemory {
        ByteSource data;
        bool mayBeEmpty = false; ///< it came without data from another trailer
    };
    struct DataFile {
        ByteSource data;
        bool isWholeFile = true; ///< put as a file: such records go first in the fast order
    };
    /// What it is that was staged, however often the record is copied; a put makes a new one, unlike any other of the
    /// process.
    using Identity = uint64_t;

    int32_t type = 0;
    uint32_t subInfoSize = 0;
    uint32_t dataSize = 0;
    bool hasSubInfo = false;
    bool wasFileBacked = false; ///< of one in the file: this editor put it there, from a data file
    std::string name;
    ByteBuffer subInfo; ///< of records in memory
    std::variant<InFile, InMemory, DataFile> source;
    Identity identity = 0; ///< 0: nothing is staged yet, or no more

    /// The record a view found in its file; `record` as it is stored, not where a callback pointed it.
    static StagedRecord inFile(QRTDataInfo const& record);

    bool isGone() const { return identity == 0; }
    bool isInFile() const { return std::holds_alternative<InFile>(source); }
    /// Put as a file, by this commit or an earlier one: a commit again has the same order.
    bool isFileBacked() const;
    uint32_t headSize() const { return trailer::headSize(name.size(), hasSubInfo, subInfoSize); }
    uint64_t size() const { return uint64_t{headSize()} + dataSize; }
    void replaceData(std::variant<InFile, InMemory, DataFile> bytes);
    /// Throws when its bytes are not there or would be written over.
    void requireWritable(MediaFile const& output) const;
    /// The record without bytes of data or sub-info, as views show it; its place is the caller's to fill in.
    QRTDataInfo described() const;
    std::string toString() const;
    /// Appends all of a record in memory, of another what stands in front of its data.
    void appendTo(ByteBuffer& bytes) const;
    /// The data of a record that is not in the file.
    ByteSource const& data() const;
};

/// Where staged records stand in a file already: bytes from the trailer's first byte to the record's.
using RecordPlaces = std::unordered_map<StagedRecord::Identity, uint32_t>;

/// An editor's records in their order, found by type and name, put and removed without a walk over all of them.
class StagedRecords {
public:
    using List = std::deque<StagedRecord>; ///< one that is appended leaves the others where they are

    List const& all() const;
    bool empty() const { return records.size() == gone; }
    /// The first that matches, null without one.
    StagedRecord* find(int32_t type) { return at(index.ofType(records, type)); }
    StagedRecord* find(std::string const& name) { return at(index.named(records, name)); }
    StagedRecord* find(int32_t type, std::string const& name) { return at(index.matching(records, type, name)); }
    void append(StagedRecord record) { records.push_back(std::move(record)); }
    void assign(List all);
    /// The first that matches, if there is one.
    void remove(std::string const& name) { remove(index.named(records, name)); }
    void remove(int32_t type, std::string const& name) { remove(index.matching(records, type, name)); }
    /// One that find() has found.
    void makeLast(StagedRecord const* found);
    /// From those of the type that the file does not hold.
    void dropSubInfo(int type);
    /// All of them stand in the file now; their bytes are no longer kept.
    void settle();
    template<class Matches>
    void removeAll(Matches const& matches) {
        sweep([&](auto const& record) { return record.isGone() || matches(record); });
    }

private:
    void remove(RecordIndex::Found const& found);
    template<class Matches>
    void sweep(Matches const& matches) const {
        gone = 0;
        if (std::erase_if(records, matches) > 0)
            index.forget();
    }
    StagedRecord* at(RecordIndex::Found found) { return found.count > 0 ? &records[found.first] : nullptr; }

    // What is removed keeps its place, empty, until half of the list is or somebody looks at all of it: so that what
    // stands behind it need not move, nor the index be made anew, each time.
    mutable List records;
    mutable RecordIndex index;
    mutable size_t gone = 0;
};

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
