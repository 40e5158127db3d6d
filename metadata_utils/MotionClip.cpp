// SPDX-License-Identifier: Apache-2.0
#include "MotionClip.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MotionPhotoEdit.h"
#include "MovieBoxes.h"
#include "MovieNote.h"
#include "ScratchFile.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

namespace {

/// What a pointer's record could hold has to grow past it.
uint32_t fillerFor(uint32_t size, MediaDefs::MimeType still) {
    if (still != MediaDefs::MimeType::IMAGE_JPEG || size > VideoPointer::MAX_RECORD_SIZE)
        return 0;
    return std::max(VideoPointer::MAX_RECORD_SIZE + 1 - size, BOX_HEADER_SIZE);
}

void setSize(MediaFile& copy, movie::MovieBox const& last) {
    checked::seek(copy, last.position);
    checked::write(copy, bigEndianBytes(last.size, sizeof last.size));
}

} // namespace

MotionClip MotionClip::prepare(std::shared_ptr<MediaFile> const& clip, MediaDefs::MimeType still,
                               ClipOptions const& options) {
    if (clip == nullptr)
        throw ErrorAt()("no video given");
    checked::requireAddressable(*clip);
    uint32_t const size = clip->size();
    auto const walk = movie::walk(*clip, 0, size);
    if (!walk.isSound() && walk.begins)
        throw ErrorAt().as(Error::Code::UNSUPPORTED, *clip)(
            "%s is a movie that is damaged or was cut off (%s); get it again, or remux it without a new encoding, for "
            "example with: ffmpeg -i IN -c copy OUT.mp4",
            clip->getPath().c_str(), walk.fault.c_str());
    if (!walk.isSound())
        throw ErrorAt().as(Error::Code::UNSUPPORTED, *clip)("%s is no MP4 or QuickTime movie that begins with 'ftyp' "
                                                            "(%s); remux it without a new encoding, for example "
                                                            "with: ffmpeg -i IN -c copy OUT.mp4",
                                                            clip->getPath().c_str(), walk.fault.c_str());
    MotionClip prepared{clip, walk.brand, !movie::isRecognised(walk.brand), fillerFor(size, still), false};
    prepared.isLastBoxClosed = prepared.filler > 0 && walk.last.toEnd;
    if (prepared.isBrandChanged && options.keepBrand)
        throw ErrorAt().as(Error::Code::UNSUPPORTED,
                           *clip)("the video's major brand is \"%s\", motion photos are recognised by \"%s\" or \"%s\"",
                                  walk.brand.c_str(), movie::RECOGNISED_BRAND, movie::QUICK_TIME_BRAND);
    if (!prepared.isBrandChanged && prepared.filler == 0)
        return prepared;
    prepared.file = scratchFile(options.scratchFolder);
    MediaFile& copy = *prepared.file;
    checked::reserve(copy, checked::sizeOf(uint64_t{size} + prepared.filler));
    checked::seek(copy, 0);
    checked::copy(clip, prepared.file, 0, size);
    if (prepared.filler > 0) {
        checked::write(copy, boxHeader(prepared.filler, boxType("free")));
        checked::fill(copy, 0, prepared.filler - BOX_HEADER_SIZE);
    }
    if (prepared.isLastBoxClosed)
        setSize(copy, walk.last);
    if (prepared.isBrandChanged) {
        checked::seek(copy, movie::BRAND_OFFSET);
        checked::write(copy, std::string(movie::RECOGNISED_BRAND));
    }
    return prepared;
}

void MotionClip::stage(MotionPhotoEdit& edit) const {
    edit.addVideo(file);
    if (!isBrandChanged && filler == 0) {
        MovieNote::clear(edit);
        return;
    }
    uint32_t const stored = file->size();
    uint32_t const length = stored - filler;
    MovieNote{brand, length, stored, isLastBoxClosed, MovieNote::markOf(*file, 0, length)}.stage(edit);
}

} // namespace android::lumo
