// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPInFile.h"
#include "XMPInfo.h"
#include "XMPPacket.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace android::lumo {

class XMPInfoImpl;

/// Whatever has an XMP view behind it: the view itself and the editors that work on it.
class XMPViewHolder {
public:
    virtual ~XMPViewHolder() = default;
    virtual std::shared_ptr<XMPInfoImpl> xmpView() const = 0;
};

/// The XMP view: the parsed packet, shared with every editor made from it, and an index of the directory's items.
class XMPInfoImpl : public XMPInfo, public XMPViewHolder, public std::enable_shared_from_this<XMPInfoImpl> {
public:
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
        void moveInto(std::shared_ptr<XMPPacket> const& packet) { meta = packet; }
        std::string const& getStructPath() const { return structPath; }

    private:
        std::string fieldPath(std::string const& field) const;

        std::shared_ptr<XMPPacket> meta;
        int32_t index = 0;
        std::string structPath;       ///< follows `place`
        std::set<std::string> fields; ///< names seen so far; never authoritative
        int32_t place = 0;
    };

    using ItemIndex = std::unordered_map<std::string, XMPItemInfo>;

    /// The index of a packet's directory.
    struct Directory {
        ItemIndex items;
        int32_t firstUnread = 0;    ///< place of the first entry that could not be read, 0 when all could
        bool hasDuplicates = false; ///< some name stands in the directory more than once
    };

    /// All that a view answers from.
    struct Contents {
        std::shared_ptr<XMPPacket> packet;
        Directory directory;
    };

    explicit XMPInfoImpl(std::shared_ptr<MediaFile> const& viewed);
    /// Answers from another packet than the file's, which is read and not parsed.
    XMPInfoImpl(std::shared_ptr<MediaFile> const& viewed, std::shared_ptr<XMPPacket> const& packet);

    /// The view behind any XMPInfo: itself, or the one an editor works on. Throws std::runtime_error when there is
    /// none.
    static std::shared_ptr<XMPInfoImpl> of(XMPInfo const& info);
    std::shared_ptr<XMPInfoImpl> xmpView() const override;

    bool isEmpty() const override;
    bool isNotEmpty() const override;
    bool containsProperty(std::string const& name, bool ignoreCase) const override;
    bool containsItem(std::string const& name, bool ignoreCase) const override;
    bool containsItemField(std::string const& itemName, std::string const& fieldName) const override;
    std::list<std::string> getPropertyNames() const override;
    std::list<std::string> getItemNames() const override;
    std::string getProperty(std::string const& schemaNS, std::string const& path) const override;
    std::string getItemField(std::string const& itemName, std::string const& fieldName) const override;
    std::string getItemNameAt(int32_t index) const override;
    std::string getLastItem() const override;
    std::vector<uint8_t> serializeToBuffer() const override;
    void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options options) override;
    std::unique_ptr<XMPEdit> edit() override;

    std::list<std::pair<std::string, std::string>> getProperties() const;
    std::set<std::string> getItemFieldNames(std::string const& itemName) const;
    void copyTo(XMPInfo& target) const;
    std::string dump() const;
    /// Reads the directory into the index, over what the index holds. It stops at an entry without "Semantic" or behind
    /// one without "Mime"; the entries in front stay usable.
    void updateXMPItems();
    /// Reads the file's packet again and drops what is in memory. A failure leaves the view as it was.
    void load();
    /// Asked before an edit moves a byte. Throws "changed since it was read" when the packet in the file is not the one
    /// last parsed, or written through an editor of this view, and when an edit would lose something that the file's
    /// XMP holds.
    void requireUnchanged(ErrorAt at = ErrorAt());
    /// The packet as the file held it then, without what is staged; not to be changed.
    std::shared_ptr<XMPPacket> packetInFile() const { return inFile->parsed(); }
    /// Takes in what the file's other packets hold, for who reads or changes what any of them says: an edit writes one
    /// packet over all of them. Throws where they contradict each other, or one could not be kept.
    void takeOthers();
    /// The same, but then the view goes on with its own packet alone; a commit will refuse.
    void takeOthersThatAgree();
    /// A copy that shares nothing with the view.
    Contents copyContents() const;
    /// Goes on with other contents and answers those it had.
    Contents exchange(Contents contents) noexcept;
    /// Whoever asked requireUnchanged() has opened room where the packet stood; what is in memory goes there.
    void roomOpened() { inFile->roomOpened(); }

    std::shared_ptr<MediaFile> const& getFile() const { return file; }
    std::shared_ptr<XMPPacket> const& getMeta() const { return meta; }
    XMPInFile& getInFile() const { return *inFile; }
    /// What serializeToBuffer() answered last: the packet a writer has written.
    std::string const& getSerialized() const { return serialized; }
    ItemIndex const& getItems() const { return directory.items; }
    /// Item names in directory order.
    std::list<std::string> getItemNamesInOrder() const;
    /// The item, its place checked against the packet's "Item:Semantic" and corrected when a removal in front of it has
    /// moved it; null when there is none of that name.
    XMPItemInfo* findItem(std::string const& name) const;
    /// Entries of the packet's directory; XMPError when it is no array.
    int32_t countDirectory() const;

    // What an editor tells the index after it has changed the packet's directory.

    /// The place of the first entry the index could not read, 0 when it has read all. A new item goes in front of it:
    /// behind it no view would find the item again.
    int32_t getFirstUnread() const { return directory.firstUnread; }
    void itemInserted(std::string const& name, int32_t place);
    /// An item of the name that still is in the packet (a duplicate) takes the removed one's entry.
    void itemRemoved(std::string const& name);
    void itemRenamed(std::string const& oldName, std::string const& newName);
    /// An item has lost a field that every item has: views of the file stop at its entry. One that lost its name is no
    /// longer known.
    void itemBroken(std::string const& name, int32_t place, bool isNameless);
    /// Starts over from the packet. A failure leaves the index as it was.
    void reindex();
    /// Goes on with another packet, in memory only.
    void adopt(std::shared_ptr<XMPPacket> const& packet);

private:
    std::optional<std::string> itemNameAt(int32_t place) const;
    static Directory readDirectory(std::shared_ptr<XMPPacket> const& packet, ItemIndex const& known);

    std::shared_ptr<MediaFile> file;
    std::unique_ptr<XMPInFile> inFile;
    bool areOthersIn = false; ///< taken for good
    mutable std::string serialized;
    std::shared_ptr<XMPPacket> meta;
    mutable Directory directory; ///< mutable: a query may correct an item's place
};

} // namespace android::lumo
