// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPPacket.h"

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace android::lumo {

/// One entry of "Container:Directory", by its place in the packet.
class XMPItemInfo {
public:
    XMPItemInfo() = default;
    XMPItemInfo(std::shared_ptr<XMPPacket> const& packet, int32_t position);

    /// "Container:Directory[<place>]/Container:Item".
    static std::string structPathAt(int32_t place);

    std::string getName() const;
    std::string getMime() const;
    std::string get(std::string const& field);
    bool contains(std::string const& field) const;
    void set(std::string const& field, std::string const& value);
    void remove(std::string const& field);
    /// All field names the packet holds for the item, also remembered.
    std::set<std::string> getAllFields();
    /// Paths of everything simple below the item's struct, relative to it: "Item:Mime", "Item:Sizes[1]".
    std::vector<std::string> getLeafPaths() const;
    /// The remembered fields, and those of the two extra names that are remembered or absent from the packet: an
    /// extra name is dropped exactly when it is not remembered and the packet holds it.
    std::set<std::string> getFieldsWith(std::string const& a, std::string const& b) const;
    std::string toString() const;

    /// The 1-based position it was read from or added at; removals of other items leave it as it is.
    int32_t getIndex() const { return index; }
    /// Another item is added at this position, in front of an entry that could not be read.
    void makeWayAt(int32_t position) { index += index >= position ? 1 : 0; }
    /// Where the packet has it now.
    int32_t getPlace() const { return place; }
    void moveTo(int32_t newPlace);
    void moveInto(std::shared_ptr<XMPPacket> const& packet) {
        meta = packet;
        foundAt = NEVER;
    }
    /// Whether it was seen at its place and the packet has not changed since.
    bool isFound() const { return foundAt == meta->changes(); }
    void setFound() { foundAt = meta->changes(); }
    std::string const& getStructPath() const { return structPath; }

private:
    static constexpr uint64_t NEVER = UINT64_MAX;

    std::string fieldPath(std::string const& field) const;
    /// `visit` gets what getLeafPaths() answers, one by one.
    template<class Visit>
    void visitLeafPaths(Visit const& visit) const;

    std::shared_ptr<XMPPacket> meta;
    int32_t index = 0;
    std::string structPath;       ///< follows `place`
    std::set<std::string> fields; ///< names seen so far; never authoritative
    int32_t place = 0;
    uint64_t foundAt = NEVER; ///< the packet's changes when it was last seen there
};

/// The index of a packet's "Container:Directory": its items by name. An editor that changes the directory tells it.
class XMPDirectory {
public:
    using Items = std::unordered_map<std::string, XMPItemInfo>;

    /// Of no packet.
    XMPDirectory() = default;
    /// Reads the packet's directory over what is known. It stops at an entry without "Semantic" or behind one without
    /// "Mime"; the entries in front stay usable.
    explicit XMPDirectory(std::shared_ptr<XMPPacket> const& packet, Items const& known = {});

    /// The same of a copy of the packet.
    XMPDirectory in(std::shared_ptr<XMPPacket> const& copy) const;

    Items const& all() const { return items; }
    /// The item, its place checked against the packet's "Item:Semantic" and corrected when a removal in front of it has
    /// moved it; null when there is none of that name.
    XMPItemInfo* find(std::string const& name);
    /// Item names in the order of the packet.
    std::list<std::string> namesInOrder();
    /// The "Item:Semantic" of the entry that stands at a place now.
    std::optional<std::string> nameAt(int32_t place) const;
    /// Entries of the packet's directory; XMPError when it is no array.
    int32_t count() const;

    /// The place of the first entry the index could not read, 0 when it has read all. A new item goes in front of it:
    /// behind it no view would find the item again.
    int32_t getFirstUnread() const { return firstUnread; }
    void inserted(std::string const& name, int32_t place);
    /// An item of the name that still is in the packet (a duplicate) takes the removed one's entry.
    void removed(std::string const& name);
    void renamed(std::string const& oldName, std::string const& newName);
    /// An item has lost a field that every item has: views of the file stop at its entry. One that lost its name is no
    /// longer known.
    void broken(std::string const& name, int32_t place, bool isNameless);
    /// What stands behind an entry that could not be read can be read now.
    void readOn() { *this = XMPDirectory(meta, items); }

private:
    std::shared_ptr<XMPPacket> meta;
    Items items;
    int32_t firstUnread = 0;    ///< place of the first entry that could not be read, 0 when all could
    bool hasDuplicates = false; ///< some name stands in the directory more than once
};

} // namespace android::lumo
