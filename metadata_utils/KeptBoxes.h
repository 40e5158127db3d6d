// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"
#include "io/TrailingBoxes.h"

#include <memory>

namespace android::lumo {

/// What stands behind a HEIC's image, looked at once for all steps of a commit that move no box.
///
/// An editor holds this for its life, and it is empty but while a OneLook lives: from where a commit asks whether the
/// file is the one that was read to where it has returned or thrown. What was found belongs to one handle and is
/// forgotten by whatever changes the file through it (TrailingBoxes::topLevel); all steps of a commit write through
/// the same.
class KeptBoxes {
public:
    class OneLook {
    public:
        explicit OneLook(KeptBoxes& of) : boxes(of) { boxes.isKept = true; }
        ~OneLook() {
            boxes.isKept = false;
            boxes.found.reset();
        }
        OneLook(OneLook const&) = delete;
        OneLook& operator=(OneLook const&) = delete;

    private:
        KeptBoxes& boxes;
    };

    std::shared_ptr<heif::TrailingBoxes> of(std::shared_ptr<MediaFile> const& file) {
        auto const known = found != nullptr && found->isOf(*file) ? found : std::make_shared<heif::TrailingBoxes>(file);
        found = isKept ? known : nullptr;
        return known;
    }

private:
    std::shared_ptr<heif::TrailingBoxes> found;
    bool isKept = false;
};

} // namespace android::lumo
