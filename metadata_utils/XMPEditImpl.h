// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPEdit.h"
#include "XMPInFile.h"
#include "XMPInfoImpl.h"

#include <atomic>
#include <memory>

namespace android::lumo {

/// The XMP editor: works on the view's packet and item index directly.
class XMPEditImpl : public XMPEdit, public XMPViewHolder {
public:
    explicit XMPEditImpl(std::shared_ptr<XMPInfoImpl> const& view);

    // The answers are the view's.
    bool isEmpty() const override { return info->isEmpty(); }
    bool isNotEmpty() const override { return info->isNotEmpty(); }
    bool containsProperty(std::string const& name, bool ignoreCase) const override {
        return info->containsProperty(name, ignoreCase);
    }
    bool containsItem(std::string const& name, bool ignoreCase) const override {
        return info->containsItem(name, ignoreCase);
    }
    bool containsItemField(std::string const& itemName, std::string const& fieldName) const override {
        return info->containsItemField(itemName, fieldName);
    }
    std::list<std::string> getPropertyNames() const override { return info->getPropertyNames(); }
    std::list<std::string> getItemNames() const override { return info->getItemNames(); }
    std::string getProperty(std::string const& schemaNS, std::string const& path) const override {
        return info->getProperty(schemaNS, path);
    }
    std::string getItemField(std::string const& itemName, std::string const& fieldName) const override {
        return info->getItemField(itemName, fieldName);
    }
    std::string getItemNameAt(int32_t index) const override { return info->getItemNameAt(index); }
    std::string getLastItem() const override { return info->getLastItem(); }
    std::vector<uint8_t> serializeToBuffer() const override { return info->serializeToBuffer(); }
    void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options options) override {
        info->transferTo(target, options);
    }
    std::unique_ptr<XMPEdit> edit() override { return info->edit(); }

    XMPEdit& setProperty(std::string const& schemaNS, std::string const& path, std::string const& value) override;
    XMPEdit& setItem(std::string const& itemName, MediaDefs::MimeType mime) override;
    XMPEdit& setItemField(std::string const& itemName, std::string const& fieldName, std::string const& value) override;
    XMPEdit& putAll(std::shared_ptr<XMPInfo> const& source, std::filesystem::copy_options options) override;
    XMPEdit& removeProperty(std::string const& schemaNS, std::string const& name) override;
    XMPEdit& removeItemField(std::string const& itemName, std::string const& fieldName) override;
    XMPEdit& removeItem(std::string const& itemName) override;
    XMPEdit& removeAll() override;
    XMPEdit& replaceItemField(std::string const& itemName, std::string const& fieldName,
                              std::string const& value) override;
    bool isDirty() const override { return dirty; }
    void commit() override;
    void commit(std::shared_ptr<MediaFile> const& target) override;

    std::shared_ptr<XMPInfoImpl> xmpView() const override { return info; }
    /// Appends an empty struct to "Container:Directory", which becomes an ordered array when it is absent.
    void addArrayItem();
    std::shared_ptr<XMPInfoImpl> const& getView() const { return info; }

private:
    int32_t addItemEntry();
    void setField(XMPInfoImpl::XMPItemInfo& item, std::string const& itemName, std::string const& fieldName,
                  std::string const& value);

    std::shared_ptr<MediaFile> file; ///< what commit() writes
    std::atomic<bool> dirty{false};
    std::shared_ptr<XMPInfoImpl> info;
    std::unique_ptr<XMPInFile> targetXMP; ///< of a target that is not the source, once it was looked at
    bool mustCopy = false;                ///< the target was empty and does not hold a whole edited copy yet
};

} // namespace android::lumo
