// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "QRTInfo.h"
#include "RecordIndex.h"
#include "io/TrailerLayout.h"

#include <functional>
#include <list>
#include <memory>
#include <vector>

namespace android::lumo {

class QRTInfoImpl;

/// Which record is meant.
inline auto ofType(int type) {
    return [type](QRTDataInfo const& record) { return record.type == type; };
}

/// Whatever answers a trailer view's queries from a view it holds: the editors.
class QRTViewHolder {
public:
    virtual ~QRTViewHolder() = default;
    virtual std::shared_ptr<QRTInfoImpl> qrtView() const = 0;
};

/// The trailer view. Besides the public queries it offers the editors what they need to settle where records lie while
/// other editors move bytes in front of them.
class QRTInfoImpl : public QRTInfo, public std::enable_shared_from_this<QRTInfoImpl> {
public:
    /// Called after every load, and after every commit in place, with the file and the records, whose data positions
    /// and lengths it may rewrite.
    using Listener = std::function<void(std::shared_ptr<MediaFile>&, std::vector<QRTDataInfo>&)>;

    QRTInfoImpl(std::shared_ptr<MediaFile> const& viewed, std::list<Listener> const& callbacks);

    /// The view behind any QRTInfo: itself, or the one an editor works on.
    static std::shared_ptr<QRTInfoImpl> of(QRTInfo const& info);

    int getVersion() const override { return static_cast<int>(stored->version); }
    int getDataCount() const override { return static_cast<int>(records.size()); }
    int getSize() const override { return static_cast<int>(stored->size); }
    std::list<std::string> getKeys() const override;
    std::list<std::pair<std::string, int>> getKeysWithType() const override;
    bool containsKey(std::string const& name, bool ignoreCase) const override;
    bool containsType(int type) const override { return index.ofType(records, type).count > 0; }
    ByteBuffer getData(int type) override;
    ByteBuffer getData(std::string const& name) override;
    ByteBuffer getData(int type, std::string const& name) override;
    std::list<ByteBuffer> getAllData(int type) override;
    int getPrimaryType() const override { return records.empty() ? 0 : records.back().type; }
    std::pair<uint32_t, uint32_t> getDataPositionLength(int type) const override;
    std::pair<uint32_t, uint32_t> getDataPositionLength(std::string const& name) const override;
    std::pair<uint32_t, uint32_t> getDataPositionLength(int type, std::string const& name) const override;
    void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) override;
    std::shared_ptr<QRTEdit> edit() override;

    /// The record's data, read from the file and kept in it when not loaded yet.
    ByteBuffer getData(QRTDataInfo& record);
    static int getTypeFromHeader(int header);
    static bool hasSubInfoOnHeader(int header);

    /// Reads tail and record heads again; on an exception, a listener's too, the view stays as it was.
    void load();
    /// Takes every record's data and sub-info into memory.
    void loadAllData();
    /// The file has changed in front of the trailer: settles image size and data positions anew. All sums wrap. A
    /// loaded video pointer is dropped: whoever moved the bytes has corrected the one in the file.
    void adjustPosition(uint32_t fileSize);

    std::shared_ptr<MediaFile> const& getFile() const { return file; }
    /// Bytes in front of the trailer (and of its box header), the file's size without one.
    uint32_t getImageSize() const { return imageSize; }
    /// File position of "QRTH" as the view knows it; the image's end without a trailer.
    uint32_t getTailPosition() const;
    /// Records and tail; other than getSize() it tells trailers of 2 GiB and more from an absent one.
    uint32_t getTrailerSize() const { return stored->size; }
    /// What the queries answer from: the file's records, and behind them those that addQRTInfo() appended.
    std::vector<QRTDataInfo> const& getRecordList() const { return records; }
    /// The first of the type, null without one.
    QRTDataInfo const* find(int type) const;
    /// What the file held when it was last read or written through this view.
    std::shared_ptr<trailer::Stored const> const& getStored() const { return stored; }
    /// Shows one more record, one that only an editor has yet. A data file's bytes begin at dataPosition.
    void append(QRTDataInfo record);
    /// For the trailer editor, after it has written: what the file now holds behind `image` bytes. What a callback
    /// throws passes through when all is taken over; damage it finds is only logged.
    void takeOver(std::shared_ptr<trailer::Stored const> written, uint32_t image);
    /// For an editor whose option wrote nothing.
    void show(std::vector<QRTDataInfo> staged);
    /// 8 when the trailer stands, or would stand, in a HEIC's 'qrtd' box, else 0.
    uint32_t boxHeaderSize() const;

private:
    ByteBuffer getSingle(RecordIndex::Found found);
    std::pair<uint32_t, uint32_t> placeOf(RecordIndex::Found found) const;

    std::shared_ptr<MediaFile> file;
    uint32_t imageSize = 0;
    std::shared_ptr<trailer::Stored const> stored = std::make_shared<trailer::Stored>();
    std::vector<QRTDataInfo> records;
    mutable RecordIndex index;
    std::list<Listener> listeners;
};

} // namespace android::lumo
