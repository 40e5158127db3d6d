#pragma once

#include "QRTInfo.h"
#include "TrailerLayout.h"

#include <functional>
#include <list>
#include <memory>
#include <vector>

namespace android::lumo {

class QRTInfoImpl;

// Which record is meant. The name must outlive the answer.
inline auto ofType(int type) {
    return [type](QRTDataInfo const& record) { return record.type == type; };
}

inline auto named(std::string const& name) {
    return [&name](QRTDataInfo const& record) { return record.name == name; };
}

inline auto matching(int type, std::string const& name) {
    return [type, &name](QRTDataInfo const& record) { return record.type == type && record.name == name; };
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
    uint32_t getTailSize() const { return tailSize; }
    /// Records and tail; other than getSize() it tells trailers of 2 GiB and more from an absent one.
    uint32_t getTrailerSize() const { return qrtSize; }
    std::vector<QRTDataInfo>& getRecordList() { return records; }
    std::vector<QRTDataInfo> const& getRecordList() const { return records; }

    /// A size of 0 says that the trailer is about to be overwritten: its records are only in memory, and the image ends
    /// where the file does.
    void setSize(uint32_t recordsAndTail) {
        qrtSize = recordsAndTail;
        detached = recordsAndTail == 0;
    }
    bool isDetached() const { return detached; }
    /// For the trailer editor, after it has written: what the file now holds.
    void setTrailer(std::vector<QRTDataInfo> const& written, uint32_t recordsAndTail, uint32_t newTailSize);
    /// For the trailer editor, after it has cut the trailer off.
    void clear(uint32_t fileSize);
    /// Continues on another file that holds the same trailer at its end; nothing is read.
    void attach(std::shared_ptr<MediaFile> const& other) { file = other; }
    /// 8 when the trailer stands, or would stand, in a HEIC's 'qrtd' box, else 0.
    uint32_t boxHeaderSize() const;

private:
    QRTDataInfo* findSingle(std::function<bool(QRTDataInfo const&)> const& matches);
    QRTDataInfo const* findFirst(std::function<bool(QRTDataInfo const&)> const& matches) const;
    void loadSubInfo(QRTDataInfo& record) const;

    std::shared_ptr<MediaFile> file;
    uint32_t imageSize = 0;
    uint32_t qrtSize = 0;
    int32_t version = 0;
    uint32_t tailSize = 0;
    std::vector<QRTDataInfo> records;
    bool detached = false;
    std::list<Listener> listeners;
};

} // namespace android::lumo
