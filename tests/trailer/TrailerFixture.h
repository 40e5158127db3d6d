// SPDX-License-Identifier: Apache-2.0
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

inline TrailerRecord const A{1, "A", "first"}, A2{1, "A", "second"}, B{2, "B", pattern(3000)}, EMPTY{3, "Empty", ""};

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

inline std::vector<TrailerRecord> recordsOf(QRTInfoImpl& view) {
    std::vector<TrailerRecord> records;
    view.loadAllData();
    for (auto& record : view.getRecordList())
        records.push_back({record.type, record.name, textOf(record.data),
                           record.hasSubInfo ? std::optional(textOf(record.subInfo)) : std::nullopt});
    return records;
}

/// What the view says must be what stands in the file, to it and to a fresh one.
inline void expectRead(QRTInfoImpl& view, std::string const& bytes) {
    auto const truth = readTrailer(bytes);
    EXPECT_EQ(recordsOf(view), truth.records);
    for (size_t i = 0; i < truth.records.size(); ++i)
        EXPECT_EQ(view.getRecordList()[i].dataPosition, truth.dataPositions[i]);
    EXPECT_EQ(view.getTailPosition(), bytes.rfind("QRTH"));
    EXPECT_EQ(static_cast<uint32_t>(view.getVersion()), truth.version);
    TempFile const copy(bytes);
    auto const fresh = viewOf(copy);
    EXPECT_EQ(fresh->getImageSize(), view.getImageSize());
    EXPECT_EQ(fresh->getSize(), view.getSize());
}

} // namespace android::lumo::test
