// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPDirectory.h"
#include "XMPInFile.h"
#include "XMPInfo.h"
#include "XMPPacket.h"

#include <memory>
#include <set>
#include <string>
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
    using XMPItemInfo = lumo::XMPItemInfo;

    /// All that a view answers from.
    struct Contents {
        std::shared_ptr<XMPPacket> packet;
        XMPDirectory directory;
    };

    explicit XMPInfoImpl(std::shared_ptr<MediaFile> const& viewed);
    /// Answers from another packet, which holds all that is known of the file's own. That is not looked at before
    /// somebody asks for it.
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
    std::shared_ptr<XMPPacket> packetInFile() const { return getInFile().parsed(); }
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
    void roomOpened() { getInFile().roomOpened(); }

    std::shared_ptr<MediaFile> const& getFile() const { return file; }
    std::shared_ptr<XMPPacket> const& getMeta() const { return meta; }
    XMPInFile& getInFile() const;
    /// The packet that the file holds is one that this library has just written: nothing of it can be lost.
    void trustFile();
    /// What serializeToBuffer() answered last: the packet a writer has written.
    std::string const& getSerialized() const { return serialized; }
    /// The index of the packet's items; a query may correct an item's place.
    XMPDirectory& getDirectory() const { return directory; }
    /// Starts over from the packet. A failure leaves the index as it was.
    void reindex();
    /// Goes on with another packet, in memory only. `text` is what serializeToBuffer() of a view has answered for it;
    /// nothing where none was asked.
    void adopt(std::shared_ptr<XMPPacket> const& packet, std::vector<uint8_t> const& text = {});

private:
    bool isSerialized() const;
    void noteSerialized(std::string text) const;

    std::shared_ptr<MediaFile> file;
    mutable std::unique_ptr<XMPInFile> inFile; ///< none: nobody has looked
    bool isFileTrusted = false;
    bool areOthersIn = false; ///< taken for good
    mutable std::string serialized;
    mutable std::weak_ptr<XMPPacket> serializedPacket; ///< whose text that is,
    mutable uint64_t serializedChanges = 0;            ///< as long as it has changed no further
    std::shared_ptr<XMPPacket> meta;
    mutable XMPDirectory directory;
};

} // namespace android::lumo
