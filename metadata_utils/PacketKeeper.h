// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoParts.h"

#include <utility>

namespace android::lumo {

/// The packet as the caller staged it, for a commit that fails: the next one starts over.
class PacketKeeper {
public:
    explicit PacketKeeper(MotionPhotoParts& photo)
        : parts(photo), contents(photo.view->getPacket()->copyContents()), wasDirty(photo.xmpEdit->isDirty()) {}
    ~PacketKeeper() {
        if (isDone)
            return;
        parts.view->getPacket()->exchange(std::move(contents));
        if (wasDirty)
            parts.xmpEdit->makeDirty();
        else
            parts.xmpEdit->setAside();
    }
    PacketKeeper(PacketKeeper const&) = delete;
    PacketKeeper& operator=(PacketKeeper const&) = delete;
    void release() { isDone = true; }

private:
    MotionPhotoParts& parts;
    XMPInfoImpl::Contents contents;
    bool wasDirty;
    bool isDone = false;
};

} // namespace android::lumo
