// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoEdit.h"
#include "support/Attempt.h"
#include "support/PhotoParts.h"
#include "xmp/XMPFixture.h"

/// What motion photo tests start from, and what must hold of every motion photo.
namespace android::lumo::test {

inline std::shared_ptr<MotionPhotoInfo> parsePhoto(std::string const& path, std::string const& mode = "rw") {
    return MotionPhotoInfo::parse(test::open(path, mode));
}

using Edit = std::function<void(MotionPhotoEdit&)>;

inline void commit(TempFile const& file, Edit const& stage) {
    auto const edit = parsePhoto(file.path())->edit();
    stage(*edit);
    edit->commit();
}

/// "type name size;" for each record.
inline std::string trailerOf(std::string const& file) {
    std::string text;
    for (auto const& record : takeApart(file).trailer.records)
        text += std::to_string(record.type) + ' ' + record.name + ' ' + std::to_string(record.data.size()) + ';';
    return text;
}

/// Trailer, XMP, box and view agree.
inline void expectConsistent(std::string const& path) {
    auto const parts = takeApart(bytesOf(path));
    auto const photo = parsePhoto(path, "r");
    EXPECT_EQ(photo->isValid(), !parts.video.empty());
    EXPECT_EQ(photo->getVideoSize(), parts.video.size());
    if (!photo->isValid())
        return;
    EXPECT_EQ(parts.faults(), "");
    EXPECT_EQ(photo->getVideoPosition(), parts.videoPosition);
    EXPECT_EQ(photo->getImageVideoPadding(), parts.inFront);
    EXPECT_EQ(photo->getXMPInfo()->getItemNameAt(1), "Primary");
}

} // namespace android::lumo::test
