#pragma once

#include "QRTEditImpl.h"
#include "support/TempFile.h"
#include "support/TrailerBuilder.h"

/// Stills that trailer tests edit, and what their files say afterwards.
namespace android::lumo::test {

inline std::string const JPEG_IMAGE = "\xFF\xD8" + pattern(98);
inline std::string const HEIC_IMAGE =
    std::string("\0\0\0\x10", 4) + "ftypheicmif1" + std::string("\0\0\0\x40mdat", 8) + pattern(56);

struct Still {
    std::string image;
    bool isHeic;

    std::string with(std::vector<TrailerRecord> const& records, uint32_t version = 0) const {
        std::string const trailer = trailerBytes(records, version);
        return image + (isHeic ? qrtdBox(trailer) : trailer);
    }
    /// The image as readTrailer() finds it in front of the trailer of `file`.
    std::string inFrontOf(std::string const& file) const {
        return isHeic ? image + qrtdBox(file.substr(image.size() + 8)).substr(0, 8) : image;
    }
};

inline std::vector<Still> const STILLS{{JPEG_IMAGE, false}, {HEIC_IMAGE, true}};

inline ByteBuffer buffer(std::string const& text) {
    return ByteBuffer(std::vector<uint8_t>(text.begin(), text.end()));
}

inline std::string textOf(ByteBuffer const& bytes) {
    return bytes.toTypedData<std::string>([](unsigned char c) { return c; });
}

inline std::shared_ptr<QRTInfoImpl> viewOf(TempFile const& file,
                                           std::list<QRTInfoImpl::Listener> const& listeners = {}) {
    return std::make_shared<QRTInfoImpl>(file.open(), listeners);
}

inline std::shared_ptr<QRTEditImpl> editorOf(std::shared_ptr<QRTInfoImpl> const& view) {
    return std::dynamic_pointer_cast<QRTEditImpl>(view->edit());
}

/// What a view answers for every record, to compare with what another answers or with the file itself.
inline std::vector<TrailerRecord> recordsOf(QRTInfoImpl& view) {
    std::vector<TrailerRecord> records;
    for (auto& record : view.getRecordList())
        records.push_back({record.type, record.name, textOf(view.getData(record))});
    return records;
}

} // namespace android::lumo::test
