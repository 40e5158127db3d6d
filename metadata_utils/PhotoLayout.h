// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionVideo.h"
#include "VideoClaims.h"
#include "io/HEIFBoxScan.h"
#include "io/TrailerLayout.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace android::lumo {

class MotionPhotoInfoImpl;

/// All that a still holds about its video, read once: trailer, top-level boxes, XMP. What could not be understood has
/// its fault as a text; a read that the system refused throws.
struct PhotoLayout {
    std::shared_ptr<MediaFile> file;
    bool isHEIC = false;
    uint32_t fileSize = 0;

    std::optional<trailer::Tail> tail;
    std::vector<QRTDataInfo> records; ///< with their positions, without data
    std::string trailerFault;

    heif::TopLevel topLevel; ///< of a HEIC
    std::optional<heif::TopLevelBox> videoBox;

    std::shared_ptr<XMPPacket> packet; ///< none where it cannot be read
    claims::Claims claims;
    std::string xmpFault;

    explicit PhotoLayout(std::shared_ptr<MediaFile> const& photo);
    /// What a view has read is not read again: trailer and packet are the view's, with what is staged in its XMP.
    explicit PhotoLayout(MotionPhotoInfoImpl const& view);

    QRTDataInfo const* videoRecord() const;
    /// Where the trailer begins, in a HEIC its box; the file's end without one.
    uint32_t trailerStart() const;
    /// A HEIC's trailer stands in front of other boxes, where it is not looked for.
    bool hasHiddenTrailer() const;
    /// Where a HEIC's boxes stop adding up, and a text about it for a file with such damage.
    uint32_t boxFaultPosition() const;
    std::string boxFault() const;
    /// An item of the directory that is neither the picture nor the video has this byte.
    bool isOtherItems(uint32_t position) const;
    /// The claim of a source, looked at; status NONE where it makes none.
    MotionVideo fromTrailer() const;
    MotionVideo fromBox() const;
    MotionVideo fromDirectory() const;
    MotionVideo fromMicroVideo() const;
    /// The first that holds, else the first that was made; where there is none, the reason tells what could not be
    /// read.
    MotionVideo locate() const;

private:
    void begin();
    void readTrailer();
    void readPacket();
    void take(std::shared_ptr<XMPPacket> const& read);
    MotionVideo examine(MotionVideo::Source source, uint64_t position, uint64_t size) const;
    MotionVideo examineFromEnd(MotionVideo::Source source, uint64_t distance, uint64_t size) const;
    MotionVideo damaged(MotionVideo::Source source, std::string const& reason) const;
};

/// An error's text without its "[source:line] ".
std::string reasonOf(std::exception const& error);

} // namespace android::lumo
