#pragma once

#include "QRTEditImpl.h"

#include <functional>
#include <memory>

namespace android::lumo {

/// The trailer editor of a motion photo: forwards everything to the editor it wraps and reports its commits.
class MPQRTEdit : public QRTEdit, public QRTViewHolder {
public:
    MPQRTEdit(std::shared_ptr<QRTEdit> const& editor, std::function<void(MPQRTEdit*)> const& report);

    int getVersion() const override;
    int getDataCount() const override;
    int getSize() const override;
    std::list<std::string> getKeys() const override;
    std::list<std::pair<std::string, int>> getKeysWithType() const override;
    bool containsKey(std::string const& name, bool ignoreCase) const override;
    bool containsType(int type) const override;
    ByteBuffer getData(int type) override;
    ByteBuffer getData(std::string const& name) override;
    ByteBuffer getData(int type, std::string const& name) override;
    std::list<ByteBuffer> getAllData(int type) override;
    int getPrimaryType() const override;
    std::pair<uint32_t, uint32_t> getDataPositionLength(int type) const override;
    std::pair<uint32_t, uint32_t> getDataPositionLength(std::string const& name) const override;
    std::pair<uint32_t, uint32_t> getDataPositionLength(int type, std::string const& name) const override;
    void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) override;
    std::shared_ptr<QRTEdit> edit() override;

    QRTEdit& setOption(Option option) override;
    QRTEdit& setPrimaryType(int type) override;
    QRTEdit& putData(int type, ByteBuffer const& data) override;
    QRTEdit& putData(int type, ByteBuffer&& data) override;
    QRTEdit& putData(std::string const& name, ByteBuffer&& data) override;
    QRTEdit& putData(std::string const& name, ByteBuffer const& data) override;
    QRTEdit& putData(int type, std::string const& name, ByteBuffer const& data) override;
    QRTEdit& putData(int type, std::string const& name, ByteBuffer&& data) override;
    QRTEdit& putData(int type, std::string const& name, std::shared_ptr<MediaFile> const& file) override;
    using QRTEdit::putData;
    QRTEdit& putAll(std::shared_ptr<QRTInfo> const& source, std::filesystem::copy_options const& options) override;
    QRTEdit& removeData(int type) override;
    QRTEdit& removeData(std::string const& name) override;
    QRTEdit& removeData(int type, std::string const& name) override;
    void makeDirty() override;
    void cleanDirty() override;
    bool isDirty() const override;
    void commit() override;
    void commit(std::shared_ptr<MediaFile> const& target) override;

    std::shared_ptr<QRTInfoImpl> qrtView() const override { return impl().getView(); }

    /// The wrapped editor's own, for the motion-photo editor.
    QRTEditImpl& impl() const { return *trailer; }
    /// From now on a commit that finds no record left cuts the trailer off the file instead of leaving it.
    void cutWhenEmpty(bool cut) { isCutWhenEmpty = cut; }

private:
    std::shared_ptr<QRTEdit> wrapped;
    std::shared_ptr<QRTEditImpl> trailer; ///< the same editor
    std::function<void(MPQRTEdit*)> onCommitted;
    bool isCutWhenEmpty = false;
};

} // namespace android::lumo
