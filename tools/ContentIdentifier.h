// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"

#include <memory>
#include <string>

namespace motionphoto {

/// The identifier by which a camera says that a still and a clip are one moment; empty where there is none.
///
/// In a still: tag 0x0011 of the maker note "Apple iOS" in the Exif block (TIFF 6.0, Exif 2.3). In a movie: the item
/// "com.apple.quicktime.content.identifier" of the metadata (QuickTime File Format, metadata atoms 'keys' and 'ilst')
/// of 'moov', or of the 'udta' in it. Damage is no identifier; what the system refuses to read throws, a Failure or the
/// library's READ_FAILED.
std::string contentIdentifierOfStill(std::shared_ptr<android::lumo::MediaFile> const& still);
std::string contentIdentifierOfClip(std::shared_ptr<android::lumo::MediaFile> const& clip);

} // namespace motionphoto
