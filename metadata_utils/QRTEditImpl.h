#pragma once

#include "ErrorAt.h"
#include "QRTEdit.h"
#include "QRTInfoImpl.h"

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <vector>

namespace android::lumo {

/// The editor's error for all files it is written in: whoever reads the message looks for the class.
inline ErrorAt trailerEditError(int line = __builtin_LINE()) {
    return ErrorAt(line, "metadata_utils/QRTEditImpl");
}

/// The trailer editor.
///
/// A staged record's layout values say where its bytes are, so that copies stay right while other editors move the
/// trailer:
///
///     offsetFromTail  payload  data, dataFile  the record
///     > 0             > 0      neither         stands in the file; its data is loaded at commit
///     > 0             > 0      data            stands in the file and is loaded
///     0               0        one of them     is new, or a put replaced its data
///     0               > 0      data or neither came whole from elsewhere; without data its length is 0
///
/// What a commit upholds:
///  1. Before the first write every record's bytes are in hand (memory, or a data file of the length it was staged
///  with),
///     and the file's final size is reserved.
///  2. Nothing in front of the image's end is written, but for the size of a HEIC's last box that had none.
///  3. Old records are read from where the view says they lie now, by position; a record a load callback resolved to
///     other bytes keeps its stored form.
///  4. The tail's last bytes "QRTT" are written last.
class QRTEditImpl : public QRTEdit, public QRTViewHolder, public std::enable_shared_from_this<QRTEditImpl> {
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
    std::shared_ptr<QRTInfoImpl> qrtView() const override { return info; }

    // For the motion-photo editor. ------------------------------------------------------------------------------------

    /// What is staged, in the editor's order. A record a load callback resolved stands here in its stored form.
    std::vector<QRTDataInfo>& getRecordList() { return records; }
    /// Stages a record of another trailer, whole: its data and sub-info are in memory, no data is a length of 0.
    /// Returns the staged form.
    QRTDataInfo const& appendRecord(QRTDataInfo record);
    /// Loads the stored data and sub-info of every staged record that is only in the file (invariants 1 and 3). Settles
    /// first where the view's records lie; throws when the file's trailer is not the one the view has read.
    void loadRecords();
    /// Reads old records from, and writes to, another file that holds the source's trailer at its end.
    void attach(std::shared_ptr<MediaFile> const& file);
    /// Throws what a commit into `output` would refuse of the staged records; old ones need not be loaded yet.
    void requireWritable(std::shared_ptr<MediaFile> const& output) const;
    /// The records in the order the chosen option writes them, laid out (offsetFromTail, payload) but not written.
    std::vector<QRTDataInfo> plannedLayout() const;
    /// Cuts the file where the image ends: the trailer of a file from which the last record was removed. Staged records
    /// stay staged; those that stood in the file must have been loaded.
    void cutTrailer();

private:
    /// Records in some order, without moving them.
    using Order = std::vector<QRTDataInfo*>;
    /// Bytes to write and, behind them, a record's data file.
    struct Piece {
        ByteBuffer bytes;
        QRTDataInfo const* fileBacked = nullptr;
    };
    /// What a commit settles before its first write.
    struct Plan {
        Order directory;
        uint32_t recordsAndTail = 0;
        uint32_t tailSize = 0;
        uint32_t finalSize = 0;         ///< of the file
        QRTDataInfo* pointer = nullptr; ///< a video pointer into the data of another record
        QRTDataInfo const* pointedTo = nullptr;
        uint32_t pointedOffset = 0; ///< in that record's data
        bool written = false;
    };

    QRTEdit& stage(int type, std::string const& name, std::function<void(QRTDataInfo&)> const& fill);
    void replaceData(QRTDataInfo& record, ByteBuffer&& data);

    // The steps of a commit, in their order: what QRTEditPrepare.cpp settles, then what QRTEditCommit.cpp writes.
    std::optional<trailer::Tail> settle();
    void requireDescribed(std::optional<trailer::Tail> const& tail) const;
    void loadStored(QRTDataInfo& record, std::optional<trailer::Tail> const& tail) const;
    bool standsIn(trailer::Tail const& tail, QRTDataInfo const& record) const;
    Plan makePlan();
    void findPointerIntoTrailer(Plan& plan);
    void writeInOrder(Plan& plan);
    void writeFast(Plan& plan);
    Order layOut(Plan& plan);
    Order diskOrder(Order& directory) const;
    void movePrimaryTypeToLast(Order& directory) const;
    void updateAllQRTData(Order const& layout);
    /// The batch's bytes, in a buffer with room for `more` behind them.
    ByteBuffer getQRTDataBuffer(std::vector<QRTDataInfo const*> const& batch, uint32_t more = 0) const;
    long writePieces(std::vector<Piece> const& pieces, Plan& plan);
    void prepareOutput(Plan const& plan);
    bool isInPlace() const;
    void copySource();
    void takeOver(Plan const& plan);
    uint32_t updateEachDataPosition(uint32_t qrtTailSize);
    void dropLoaded();

    std::atomic<bool> dirty{false};
    std::shared_ptr<QRTInfoImpl> info;
    std::shared_ptr<MediaFile> sourceFile;
    std::shared_ptr<MediaFile> outputFile;
    std::vector<QRTDataInfo> records;
    int primaryType = 0;
    Option option = Option::WRITE_IN_ORDER;
    std::list<std::string> unsupportedKeys{qrt::NAME_3D_PHOTO_INFO};
};

} // namespace android::lumo
