#pragma once

#include "XMPInfo.h"
#include "XMPToolkit.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

namespace android::lumo {

/// Prefix to namespace URI of the four registered namespaces; XMPEdit::removeAll adds an empty entry for every prefix it
/// does not know.
std::map<std::string, std::string>& xmpNamespaces();

/// The XMP view: the parsed packet, shared with every editor made from it, and an index of the directory's items.
class XMPInfoImpl : public XMPInfo, public std::enable_shared_from_this<XMPInfoImpl> {
public:
    /// One entry of "Container:Directory", by its place in the packet.
    class XMPItemInfo {
    public:
        XMPItemInfo() = default;
        XMPItemInfo(std::shared_ptr<XMPPacket> const& meta, int32_t index, std::string const& structPath);

        std::string getName() const;
        std::string getMime() const;
        std::string get(std::string const& field);
        bool contains(std::string const& field) const;
        void set(std::string const& field, std::string const& value);
        void remove(std::string const& field);
        /// All field names the packet holds for the item, also remembered.
        std::set<std::string> getAllFields();
        /// The remembered fields, and those of the two extra names that are remembered or absent from the packet: an extra
        /// name is dropped exactly when it is not remembered and the packet holds it.
        std::set<std::string> getFieldsWith(std::string const& a, std::string const& b) const;
        std::string toString() const;

        int32_t getIndex() const { return index; }
        std::string const& getStructPath() const { return structPath; }

    private:
        std::shared_ptr<XMPPacket> meta;
        int32_t index = 0; ///< 1-based
        std::string structPath;
        std::set<std::string> fields; ///< names seen so far; never authoritative
    };

    using Items = std::unordered_map<std::string, XMPItemInfo>;

    explicit XMPInfoImpl(std::shared_ptr<MediaFile> const& file);

    /// The view behind any XMPInfo: itself, or the one an editor works on.
    static std::shared_ptr<XMPInfoImpl> of(XMPInfo const& info);

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
    void updateXMPItems();
    /// Reads the file's packet again and drops what is in memory.
    void load();

    std::shared_ptr<MediaFile> const& getFile() const { return file; }
    std::shared_ptr<XMPPacket> const& getMeta() const { return meta; }
    Items& getItems() { return items; }
    /// Item names in directory order.
    std::list<std::string> getItemNamesInOrder() const;
    /// The item, its recorded place checked against the packet's "Item:Semantic" and corrected when a removal in front of
    /// it has moved it; null when there is none of that name.
    XMPItemInfo* findItem(std::string const& name) const;

private:
    std::shared_ptr<MediaFile> file;
    std::shared_ptr<XMPPacket> meta;
    mutable Items items;
};

} // namespace android::lumo
