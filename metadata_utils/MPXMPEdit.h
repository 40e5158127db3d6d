#pragma once

#include "XMPEditImpl.h"

#include <functional>
#include <memory>

namespace android::lumo {

/// The XMP editor of a motion photo: forwards everything to the editor it wraps and reports its commits.
class MPXMPEdit : public XMPEdit, public XMPViewHolder {
public:
    MPXMPEdit(std::unique_ptr<XMPEdit> editor, std::function<void(MPXMPEdit*)> const& report);

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
    bool isDirty() const override;
    void commit() override;
    void commit(std::shared_ptr<MediaFile> const& target) override;

    std::shared_ptr<XMPInfoImpl> xmpView() const override;

    /// The packet was changed through another editor of the same view.
    void makeDirty() { isMarked = true; }
    /// Goes on with another editor of the same view, one that writes the view's own file.
    void renew(std::unique_ptr<XMPEdit> fresh) { wrapped = std::move(fresh); }
    /// Sets the MotionPhoto item's "Length" to what stands between the video and the file's end, and commits at once.
    /// Without a video or item nothing happens.
    void updateMotionPhotoInfo(std::shared_ptr<MediaFile> const& output, size_t size, size_t position);

private:
    std::unique_ptr<XMPEdit> wrapped;
    std::function<void(MPXMPEdit*)> onCommitted;
    bool isMarked = false;
};

} // namespace android::lumo
