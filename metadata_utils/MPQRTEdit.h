// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"
#include "QRTEditImpl.h"

#include <functional>
#include <memory>
#include <utility>

namespace android::lumo {

/// The trailer editor of a motion photo: forwards everything to the editor it wraps and reports its commits. `prepare`
/// is told the file of one that a caller asked for alone, before a byte of it moves.
class MPQRTEdit : public QRTEdit, public QRTViewHolder {
public:
    using Prepare = std::function<void(MediaFile const& file)>;

    MPQRTEdit(std::shared_ptr<QRTEdit> const& editor, Prepare const& prepare,
              std::function<void(MPQRTEdit*)> const& report)
        : wrapped(editor), trailer(std::dynamic_pointer_cast<QRTEditImpl>(editor)), onCommit(prepare),
          onCommitted(report) {
        if (trailer == nullptr)
            throw ErrorAt()("the trailer editor of a motion photo must be the library's own");
        trailer->leaveFieldsToOwner();
    }

    int getVersion() const override { return wrapped->getVersion(); }
    int getDataCount() const override { return wrapped->getDataCount(); }
    int getSize() const override { return wrapped->getSize(); }
    std::list<std::string> getKeys() const override { return wrapped->getKeys(); }
    std::list<std::pair<std::string, int>> getKeysWithType() const override { return wrapped->getKeysWithType(); }
    bool containsKey(std::string const& name, bool anyCase) const override {
        return wrapped->containsKey(name, anyCase);
    }
    bool containsType(int type) const override { return wrapped->containsType(type); }
    ByteBuffer getData(int type) override { return wrapped->getData(type); }
    ByteBuffer getData(std::string const& name) override { return wrapped->getData(name); }
    ByteBuffer getData(int type, std::string const& name) override { return wrapped->getData(type, name); }
    std::list<ByteBuffer> getAllData(int type) override { return wrapped->getAllData(type); }
    int getPrimaryType() const override { return wrapped->getPrimaryType(); }
    std::pair<uint32_t, uint32_t> getDataPositionLength(int type) const override {
        return wrapped->getDataPositionLength(type);
    }
    std::pair<uint32_t, uint32_t> getDataPositionLength(std::string const& name) const override {
        return wrapped->getDataPositionLength(name);
    }
    std::pair<uint32_t, uint32_t> getDataPositionLength(int type, std::string const& name) const override {
        return wrapped->getDataPositionLength(type, name);
    }
    void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) override {
        wrapped->transferTo(target, options);
    }
    std::shared_ptr<QRTEdit> edit() override { return wrapped->edit(); }

    // Changes answer the wrapper, so that a chain ends in its commit.
    QRTEdit& setOption(Option option) override { return chained(wrapped->setOption(option)); }
    QRTEdit& setPrimaryType(int type) override { return chained(wrapped->setPrimaryType(type)); }
    QRTEdit& putData(int type, ByteBuffer const& data) override { return chained(wrapped->putData(type, data)); }
    QRTEdit& putData(int type, ByteBuffer&& data) override { return chained(wrapped->putData(type, std::move(data))); }
    QRTEdit& putData(std::string const& name, ByteBuffer&& data) override {
        return chained(wrapped->putData(name, std::move(data)));
    }
    QRTEdit& putData(std::string const& name, ByteBuffer const& data) override {
        return chained(wrapped->putData(name, data));
    }
    QRTEdit& putData(int type, std::string const& name, ByteBuffer const& data) override {
        return chained(wrapped->putData(type, name, data));
    }
    QRTEdit& putData(int type, std::string const& name, ByteBuffer&& data) override {
        return chained(wrapped->putData(type, name, std::move(data)));
    }
    QRTEdit& putData(int type, std::string const& name, std::shared_ptr<MediaFile> const& file) override {
        return chained(wrapped->putData(type, name, file));
    }
    using QRTEdit::putData;
    QRTEdit& putAll(std::shared_ptr<QRTInfo> const& source, std::filesystem::copy_options const& options) override {
        return chained(wrapped->putAll(source, options));
    }
    QRTEdit& removeData(int type) override { return chained(wrapped->removeData(type)); }
    QRTEdit& removeData(std::string const& name) override { return chained(wrapped->removeData(name)); }
    QRTEdit& removeData(int type, std::string const& name) override { return chained(wrapped->removeData(type, name)); }
    void makeDirty() override { wrapped->makeDirty(); }
    void cleanDirty() override { wrapped->cleanDirty(); }
    bool isDirty() const override { return wrapped->isDirty(); }
    void commit() override {
        onCommit(*trailer->getOutput());
        wrapped->commit();
        onCommitted(this);
    }
    void commit(std::shared_ptr<MediaFile> const& target) override {
        if (target != nullptr) { // it will be a copy of the view's file, not of a target before it
            auto before = trailer->leaveTarget();
            try {
                onCommit(*target);
            } catch (...) {
                trailer->returnTo(std::move(before));
                throw;
            }
        }
        commitPrepared(target);
    }
    /// As a step of the whole photo's commit, which has prepared everything.
    void commitPrepared(std::shared_ptr<MediaFile> const& target) {
        wrapped->commit(target);
        onCommitted(this);
    }

    std::shared_ptr<QRTInfoImpl> qrtView() const override { return trailer->qrtView(); }
    /// The wrapped editor, with what it offers the motion-photo editor.
    QRTEditImpl& staging() { return *trailer; }
    QRTEditImpl const& staging() const { return *trailer; }

private:
    QRTEdit& chained(QRTEdit& /*answer*/) { return *this; }

    std::shared_ptr<QRTEdit> wrapped;
    std::shared_ptr<QRTEditImpl> trailer; ///< the same editor
    Prepare onCommit;
    std::function<void(MPQRTEdit*)> onCommitted;
};

} // namespace android::lumo
