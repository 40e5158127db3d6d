// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"
#include "QRTEdit.h"
#include "QRTInfoImpl.h"
#include "StagedRecord.h"
#include "TrailerFile.h"
#include "TrailerPlan.h"

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace android::lumo {

/// The trailer editor: what is staged, and the file a commit writes. TrailerPlan works out the result, TrailerFile
/// writes it.
///
/// What was staged stays staged until a commit into the editor's own file has returned. Where a commit was cut short,
/// the editor remembers how much of the file's end is its own unfinished work; the next one starts over from there, or
/// throws when a record it needs was among the bytes that were on the move.
class QRTEditImpl : public QRTEdit, public QRTViewHolder, public std::enable_shared_from_this<QRTEditImpl> {
public:
    explicit QRTEditImpl(std::shared_ptr<QRTInfoImpl> const& view);

    // Queries describe the trailer as last loaded or committed.
    int getVersion() const override { return info->getVersion(); }
    int getDataCount() const override { return info->getDataCount(); }
    int getSize() const override { return info->getSize(); }
    std::list<std::string> getKeys() const override { return info->getKeys(); }
    std::list<std::pair<std::string, int>> getKeysWithType() const override { return info->getKeysWithType(); }
    bool containsKey(std::string const& name, bool anyCase) const override { return info->containsKey(name, anyCase); }
    bool containsType(int type) const override { return info->containsType(type); }
    ByteBuffer getData(int type) override { return info->getData(type); }
    ByteBuffer getData(std::string const& name) override { return info->getData(name); }
    ByteBuffer getData(int type, std::string const& name) override { return info->getData(type, name); }
    std::list<ByteBuffer> getAllData(int type) override { return info->getAllData(type); }
    int getPrimaryType() const override { return order.primaryType != 0 ? order.primaryType : info->getPrimaryType(); }
    std::pair<uint32_t, uint32_t> getDataPositionLength(int type) const override {
        return info->getDataPositionLength(type);
    }
    std::pair<uint32_t, uint32_t> getDataPositionLength(std::string const& name) const override {
        return info->getDataPositionLength(name);
    }
    std::pair<uint32_t, uint32_t> getDataPositionLength(int type, std::string const& name) const override {
        return info->getDataPositionLength(type, name);
    }
    void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) override {
        info->transferTo(target, options);
    }
    std::shared_ptr<QRTEdit> edit() override { return shared_from_this(); }

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
    void makeDirty() override { dirty = true; }
    void cleanDirty() override { dirty = false; }
    bool isDirty() const override { return dirty; }
    void commit() override;
    void commit(std::shared_ptr<MediaFile> const& target) override;

    std::shared_ptr<QRTInfoImpl> qrtView() const override { return info; }

    /// While it lives, the file is looked at and the trailer planned once: for steps that neither write nor stage.
    class OnePlan {
    public:
        explicit OnePlan(QRTEditImpl& of) : editor(of) { editor.kept.emplace(); }
        ~OnePlan() { editor.kept.reset(); }
        OnePlan(OnePlan const&) = delete;
        OnePlan& operator=(OnePlan const&) = delete;

    private:
        QRTEditImpl& editor;
    };

    // For the motion-photo editor. ------------------------------------------------------------------------------------

    StagedRecords::List const& getStaged() const { return records.all(); }
    /// The file that commits write.
    std::shared_ptr<MediaFile> const& getOutput() const { return output().getFile(); }
    /// Makes this an editor of the view's file again, with all that is staged, and gives the other file that it was
    /// last committed into.
    std::optional<TrailerFile> leaveTarget() { return std::exchange(elsewhere, std::nullopt); }
    void returnTo(std::optional<TrailerFile> target) { elsewhere = std::move(target); }
    /// A commit was cut short, and the next one will write over what it left.
    bool isUnfinished() const { return output().isUnfinished(); }
    /// Data in the record that matches both, or in a new one; `mayBeEmpty` when that is how another trailer has it.
    void stage(int type, std::string const& name, ByteSource const& data, bool mayBeEmpty = false);
    /// The same without saying that anything new was staged: bytes that could be known only now.
    void settle(int type, std::string const& name, ByteBuffer const& data);
    /// Takes one record of a view in behind all others, whole and however many there are of its name, and returns what
    /// a view is to show of it. A pointer is replaced by what it points to, `pointed`.
    QRTDataInfo append(QRTInfoImpl const& view, QRTDataInfo const& record, std::optional<ByteSource> const& pointed);
    /// The records that are taken over of another trailer. Throws for two that cannot be told apart.
    std::vector<QRTDataInfo const*> wantedOf(QRTInfoImpl const& view, std::filesystem::copy_options options,
                                             bool (*isLeftOut)(QRTDataInfo const&) = nullptr) const;
    /// Puts a copy of a view's record, without its sub-info.
    void copy(QRTInfoImpl const& view, QRTDataInfo const& record);
    /// The data of a view's record, to be written later or elsewhere.
    ByteSource dataOf(QRTInfoImpl const& view, QRTDataInfo const& record);
    /// New data of these records come without the sub-info of the old.
    void dropSubInfo(int type) { records.dropSubInfo(type); }
    /// The data of a staged record, in memory.
    ByteBuffer load(StagedRecord const& record) const;
    void removeWhere(std::function<bool(StagedRecord const&)> const& matches) { records.removeAll(matches); }
    /// From now on a commit that finds no record left cuts the trailer off the file instead of leaving it.
    void cutWhenEmpty(bool cut) { isCutWhenEmpty = cut; }
    /// Whether a commit changes the file at all.
    bool writesTrailer() const { return !records.empty() || isCutWhenEmpty; }
    /// Whoever owns this editor corrects the XMP that counts bytes from the file's end.
    void leaveFieldsToOwner() { ownerKeepsFields = true; }
    /// Throws where a HEIC's boxes hide a trailer, which no editor of it knows.
    static void requireNotHidden(MediaFile const& file, ErrorAt at = ErrorAt());
    /// What a commit would write now. Throws what a commit would refuse.
    TrailerPlan plan();
    /// The view has found other records than it had when this editor was made: those that are neither staged nor
    /// `dropped` go in front of what is staged.
    void takeUpFound(std::function<bool(StagedRecord const&)> const& dropped);
    /// Stages what another editor has staged, whose file this editor's is a copy of; what came from there earlier and
    /// was committed here stays as it is. Records of the copy stand where `recordPlace` says, from the trailer's first
    /// byte. False when there was nothing new.
    bool adopt(QRTEditImpl const& other, std::function<uint32_t(uint32_t)> const& recordPlace);

private:
    TrailerFile const& output() const { return elsewhere ? *elsewhere : source; }
    TrailerFile& output() { return elsewhere ? *elsewhere : source; }
    void replace(int type, std::string const& name, ByteSource const& data, bool mayBeEmpty = false);
    QRTEdit& put(StagedRecord* record, ByteBuffer data, int line = __builtin_LINE());
    bool isSkipped(QRTDataInfo const& record, std::filesystem::copy_options options) const;
    StagedRecord stagedForm(QRTInfoImpl const& view, QRTDataInfo const& record);
    void takeViewsRecords();
    bool isSource(MediaFile const& file) const;
    TrailerPlan plan(TrailerFile const& from, MediaFile const& into);
    void takeOver(uint32_t image);
    void showStaged();

    std::atomic<bool> dirty{false};
    std::shared_ptr<QRTInfoImpl> info;
    TrailerFile source;                   ///< the view's file
    std::optional<TrailerFile> elsewhere; ///< another file, the last one committed into
    StagedRecords records;
    TrailerPlan::Order order;
    std::list<std::string> unsupportedKeys{qrt::NAME_3D_PHOTO_INFO};
    HandedRecords handed;
    std::optional<std::optional<TrailerPlan>> kept; ///< with OnePlan, and once it is made
    bool isCutWhenEmpty = false;
    bool ownerKeepsFields = false;
};

} // namespace android::lumo
