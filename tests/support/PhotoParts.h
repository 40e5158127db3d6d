// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/JpegBuilder.h"
#include "support/TrailerBuilder.h"

#include <map>
#include <string>
#include <vector>

/// The one reader of whole files that judges what the library wrote: by the published layouts and the trailer's
/// document, sharing no code with the library. It reads strictly: what does not add up throws std::exception.
namespace android::lumo::test {

struct PhotoBox {
    std::string type;
    size_t start, content, end;
};

/// The boxes from `start` to `end`. Where they may be torn it stops at the first that does not fit instead of throwing.
std::vector<PhotoBox> boxesIn(std::string const& file, size_t start, size_t end, bool isTorn = false);

/// Every simple value of an XMP packet by its path, whatever form it is written in; namespaces without scheme and host:
/// "photos/1.0/camera/MotionPhoto", "dc/elements/1.1/title Alt[1]", and "...[1]?lang" for its language. An entry
/// written as a typed node reads like any other.
using Properties = std::map<std::string, std::string>;
Properties propertiesOf(std::string const& packet);

/// A JPEG or HEIC taken apart.
struct PhotoParts {
    bool isHeic = false;
    std::vector<std::string> image;   ///< what edits must not change: segments, or items with all that belongs to them
    std::string behind;               ///< bytes or boxes behind the image that are none of the next
    std::vector<std::string> packets; ///< XMP, with the room it stands in
    std::string debugInfo;
    TrailerFile trailer; ///< without records when there is none
    std::string video;
    size_t videoPosition = 0;
    size_t inFront = 0; ///< bytes between image and video: the head of its box or record
    size_t size = 0;    ///< of the file

    std::string packet() const { return packets.empty() ? "" : packets.back(); }
    /// The fields of the directory's entry with this Semantic, by name.
    Properties item(std::string const& semantic) const;
    /// Where trailer, XMP and video disagree; empty: nowhere.
    std::string faults() const;
};

/// `isTorn` forgives a HEIC whose boxes behind the image do not add up, and a trailer that cannot be read.
PhotoParts takeApart(std::string const& file, bool isTorn = false);

} // namespace android::lumo::test
