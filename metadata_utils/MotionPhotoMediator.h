// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoEditImpl.h"

namespace android::lumo {

/// The relay between the editor and its sub-editors: whoever changed the file tells it, and it brings the others up to
/// date.
class MotionPhotoEditImpl::Mediator {
public:
    explicit Mediator(MotionPhotoParts& photo);

    /// `file` is the one the sender has changed, or is about to change: the editor's output or another.
    void notify(void const* sender, Event event, std::shared_ptr<MediaFile> const& file);
    /// A commit begins: the next size is news.
    void reset() { lastSize = 0; }
    /// A HEIC's XMP has a room of fixed size. What is staged must fit, so the image is written again with a larger room
    /// when it does not; the trailer then stands elsewhere and is read again.
    void makeRoom();
    /// The output has room for so many bytes of XMP where a writer finds it, until it changes.
    void knowRoom(uint32_t size);

private:
    void onTrailerWritten(std::shared_ptr<MediaFile> const& file, size_t size);
    void onXMPWritten(size_t size);
    void followEnd(std::shared_ptr<MediaFile> const& file, int64_t growth);
    void commitXMP(std::shared_ptr<MediaFile> const& file);
    bool isOutput(MediaFile const& file) const;
    uint32_t behindImage() const;

    uint32_t room = 0;        ///< for XMP that the output is known to have
    uint64_t roomChanges = 0; ///< of the output, when it became known
    size_t lastSize = 0;      ///< the output's size when it last acted
    uint32_t lastBehind = 0;  ///< bytes of the trailer then
    bool owesFields = false;  ///< the packet follows the trailer, and could not be written
    MotionPhotoParts& parts;
};

} // namespace android::lumo
