// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "VideoClaims.h"
#include "VideoFields.h"
#include "XMPEditImpl.h"

#include <functional>
#include <memory>

namespace android::lumo {

/// The XMP editor of a motion photo: forwards everything to the editor it wraps and reports its commits.
class MPXMPEdit : public XMPEdit, public XMPViewHolder {
public:
    MPXMPEdit(std::unique_ptr<XMPEdit> editor, std::function<void(MPXMPEdit*)> const& report)
        : wrapped(std::move(editor)), onCommitted(report), view(XMPInfoImpl::of(*wrapped)), output(view->getFile()) {}

    bool isEmpty() const override { return wrapped->isEmpty(); }
    bool isNotEmpty() const override { return wrapped->isNotEmpty(); }
    bool containsProperty(std::string const& name, bool ignoreCase) const override {
        return wrapped->containsProperty(name, ignoreCase);
    }
    bool containsItem(std::string const& name, bool ignoreCase) const override {
        return wrapped->containsItem(name, ignoreCase);
    }
    bool containsItemField(std::string const& item, std::string const& field) const override {
        return wrapped->containsItemField(item, field);
    }
    std::list<std::string> getPropertyNames() const override { return wrapped->getPropertyNames(); }
    std::list<std::string> getItemNames() const override { return wrapped->getItemNames(); }
    std::string getProperty(std::string const& schemaNS, std::string const& path) const override {
        return wrapped->getProperty(schemaNS, path);
    }
    std::string getItemField(std::string const& item, std::string const& field) const override {
        return wrapped->getItemField(item, field);
    }
    std::string getItemNameAt(int32_t index) const override { return wrapped->getItemNameAt(index); }
    std::string getLastItem() const override { return wrapped->getLastItem(); }
    std::vector<uint8_t> serializeToBuffer() const override { return wrapped->serializeToBuffer(); }
    void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options options) override {
        wrapped->transferTo(target, options);
    }
    std::unique_ptr<XMPEdit> edit() override { return wrapped->edit(); }

    // Changes answer the wrapper, so that a chain ends in its commit.
    XMPEdit& setProperty(std::string const& schemaNS, std::string const& path, std::string const& value) override {
        return chained(wrapped->setProperty(schemaNS, path, value));
    }
    XMPEdit& setItem(std::string const& item, MediaDefs::MimeType mime) override {
        return chained(wrapped->setItem(item, mime));
    }
    XMPEdit& setItemField(std::string const& item, std::string const& field, std::string const& value) override {
        return chained(wrapped->setItemField(item, field, value));
    }
    XMPEdit& putAll(std::shared_ptr<XMPInfo> const& source, std::filesystem::copy_options options) override {
        return chained(wrapped->putAll(source, options));
    }
    XMPEdit& removeProperty(std::string const& schemaNS, std::string const& name) override {
        return chained(wrapped->removeProperty(schemaNS, name));
    }
    XMPEdit& removeItemField(std::string const& item, std::string const& field) override {
        return chained(wrapped->removeItemField(item, field));
    }
    XMPEdit& removeItem(std::string const& item) override { return chained(wrapped->removeItem(item)); }
    XMPEdit& removeAll() override { return chained(wrapped->removeAll()); }
    XMPEdit& replaceItemField(std::string const& item, std::string const& field, std::string const& value) override {
        return chained(wrapped->replaceItemField(item, field, value));
    }
    bool isDirty() const override { return !isSetAside && (isMarked || wrapped->isDirty()); }
    void commit() override {
        wrapped->commit();
        finish();
    }
    void commit(std::shared_ptr<MediaFile> const& target) override {
        wrapped->commit(target);
        output = target;
        finish();
    }

    std::shared_ptr<XMPInfoImpl> xmpView() const override { return view; }
    /// The file that commits write.
    std::shared_ptr<MediaFile> const& getOutput() const { return output; }

    /// The packet was changed through another editor of the same view.
    void makeDirty() {
        isMarked = true;
        isSetAside = false;
    }
    /// What is staged went into another file: it counts as new again when something is added to it.
    void setAside() { isSetAside = true; }
    /// Sets the MotionPhoto item's "Length" to what stands between the video and the file's end, and the bytes that
    /// Primary names in front of the video. Without a video or item nothing happens.
    void updateMotionPhotoInfo(size_t size, size_t position, size_t padding) {
        VideoFields(*this).follow(size, position, padding);
    }
    /// As many bytes more stand behind a video that XMP counts from the file's end.
    void followEnd(int64_t growth) {
        claims::followEnd(*view->getMeta(), growth);
        view->reindex();
        makeDirty();
    }

private:
    XMPEdit& chained(XMPEdit& /*answer*/) {
        isSetAside = false;
        return *this;
    }
    void finish() {
        isMarked = false;
        isSetAside = false;
        onCommitted(this);
    }

    std::unique_ptr<XMPEdit> wrapped;
    std::function<void(MPXMPEdit*)> onCommitted;
    std::shared_ptr<XMPInfoImpl> view;
    std::shared_ptr<MediaFile> output;
    bool isMarked = false;
    bool isSetAside = false;
};

} // namespace android::lumo
