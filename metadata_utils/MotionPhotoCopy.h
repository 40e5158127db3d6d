// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MPQRTEdit.h"
#include "MPXMPEdit.h"
#include "MotionPhotoInfoImpl.h"

#include <filesystem>
#include <set>
#include <string>

namespace android::lumo {

/// Takes over what another motion photo has, but for its video: records, properties and items whose bytes follow.
class MotionPhotoCopy {
public:
    MotionPhotoCopy(MotionPhotoInfo const& from, MotionPhotoInfoImpl& to, MPQRTEdit& trailer, MPXMPEdit& packet)
        : source(from), view(to), qrtEdit(trailer), xmpEdit(packet) {}

    /// The video and its version record are left out: how they are stored depends on the still they go to. Throws
    /// before any is staged when two share type and name.
    void records(std::filesystem::copy_options options);
    /// Properties come over as the options say. Of the directory only what has its bytes here may be claimed: the
    /// still's own items as they were, and the video when it comes along.
    void packet(std::filesystem::copy_options options, bool videoComesAlong, MediaDefs::MimeType mime);

private:
    void resetXMPOfGainmap();
    void removeGainMapProperties();
    void restoreGainMap(XMPPacket const& own, std::set<std::string> const& names);

    MotionPhotoInfo const& source;
    MotionPhotoInfoImpl& view;
    MPQRTEdit& qrtEdit;
    MPXMPEdit& xmpEdit;
};

} // namespace android::lumo
