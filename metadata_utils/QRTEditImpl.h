#pragma once

#include "QRTEdit.h"
#include "QRTInfoImpl.h"

#include <atomic>
#include <list>
#include <memory>
#include <vector>

namespace android::lumo {

/// The trailer editor.
///
/// What a commit upholds:
///  1. Before the first write every record's bytes are in hand (memory, or a data file of the length it was staged with),
///     and the file's final size is reserved.
///  2. Nothing in front of the image's end is written.
///  3. Old records are read from where the view says they lie now, by position; a record a load callback resolved to
///     other bytes keeps its stored form.
///  4. The tail's last bytes "QRTT" are written last.
class QRTEditImpl : public QRTEdit, public std::enable_shared_from_this<QRTEditImpl> {
public:
    explicit QRTEditImpl(std::shared_ptr<QRTInfoImpl> const& view);

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
    void makeDirty() override { dirty = true; }
    void cleanDirty() override { dirty = false; }
    bool isDirty() const override { return dirty; }
    void commit() override;
    void commit(std::shared_ptr<MediaFile> const& target) override;

    std::shared_ptr<QRTInfoImpl> const& getView() const { return info; }

    // For the motion-photo editor. ------------------------------------------------------------------------------------

    /// What is staged, in the editor's order.
    std::vector<QRTDataInfo>& getRecordList() { return records; }
    /// Loads the stored data and sub-info of every staged record that is only in the file (invariants 1 and 3).
    void loadRecords();
    /// Reads old records from, and writes to, another file that holds the source's trailer at its end.
    void attach(std::shared_ptr<MediaFile> const& file);
    /// The records in the order the chosen option writes them, laid out (offsetFromTail, payload) but not written.
    std::vector<QRTDataInfo> plannedLayout() const;
    /// Cuts the file where the image ends: the trailer of a file from which the last record was removed.
    void cutTrailer();

private:
    void requireWritable();
    void writeInOrder(uint32_t qrtTailSize);
    void writeFast(uint32_t qrtTailSize);
    void updateAllQRTData(std::vector<QRTDataInfo>& layout);
    uint32_t updateEachDataPosition(uint32_t qrtTailSize);
    ByteBuffer getQRTDataBuffer(std::vector<QRTDataInfo>& batch);
    void movePrimaryTypeToLast(std::vector<QRTDataInfo>& order) const;
    void writeFileBacked(QRTDataInfo& record);
    void writeBoxHeader();

    std::atomic<bool> dirty{false};
    std::shared_ptr<QRTInfoImpl> info;
    std::shared_ptr<MediaFile> sourceFile;
    std::shared_ptr<MediaFile> outputFile;
    std::vector<QRTDataInfo> records;
    int primaryType = 0;
    Option option = Option::WRITE_IN_ORDER;
    std::list<std::string> unsupportedKeys;
};

} // namespace android::lumo
