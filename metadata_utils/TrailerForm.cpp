// SPDX-License-Identifier: Apache-2.0
#include "TrailerForm.h"

#include "CheckedFile.h"
#include "MemoryFile.h"
#include "MotionPhotoEdit.h"
#include "MovieBoxes.h"
#include "MovieNote.h"
#include "PublishedEdit.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo::published {

namespace {

using Format = MediaDefs::MotionPhotoFormat;

constexpr uint32_t TAG_SIZE = 4;

std::string tagAt(MediaFile const& file, uint32_t position) {
    auto const bytes = checked::readAt(file, position, TAG_SIZE);
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

/// The views resolve a HEIC's pointer unless record 2609 says "mpv1", and never look for one where it does.
void judgeVersion(PhotoLayout const& layout, bool isPointed, TrailerForm& form) {
    auto const& records = layout.records;
    auto const version = std::find_if(records.begin(), records.end(), [](QRTDataInfo const& record) {
        return record.type == qrt::TYPE_MOTION_PHOTO_VERSION;
    });
    if (!layout.isHEIC || version == records.end() || version->dataPayload < TAG_SIZE)
        return;
    std::string const inside = MediaDefs::motionphotoFormatString(Format::MPV1);
    std::string const outside = MediaDefs::motionphotoFormatString(Format::MPV3);
    form.versionPosition = trailer::storedData(*version, layout.tail->position).position;
    form.versionFound = tagAt(*layout.file, form.versionPosition);
    bool const saysOutside = form.versionFound == MediaDefs::motionphotoFormatString(Format::MPV2) ||
                             form.versionFound == outside ||
                             form.versionFound == MediaDefs::motionphotoFormatString(Format::MPV4);
    if (isPointed && form.versionFound == inside)
        form.version = outside;
    else if (!isPointed && saysOutside)
        form.version = inside;
}

/// As a clip goes into a still; its bytes are few.
Conversion lift(PhotoLayout const& layout, MotionVideo const& video, std::shared_ptr<MediaFile> const& output) {
    auto const bytes = checked::readAt(*layout.file, video.position, video.size);
    auto const clip = MotionClip::prepare(memoryFile(bytes.data(), bytes.size()), layout.file->mimeType());
    auto const edit = MotionPhotoInfo::parse(layout.file)->edit();
    clip.stage(*edit);
    commit(*edit, *layout.file, output);
    return {true, clip.isBrandChanged ? clip.brand : "", clip.filler, {}, true};
}

/// The note first: it tells of the brand that is there as of the one that was.
void changeBrand(std::shared_ptr<MediaFile> const& file, MotionVideo const& video) {
    auto const edit = MotionPhotoInfo::parse(file)->edit();
    MovieNote const note{video.brand, video.size, video.size, false,
                         MovieNote::markOf(*file, video.position, video.size)};
    note.stage(*edit);
    edit->commit();
    writeAt(*file, PhotoLayout(file).fromTrailer().position + movie::BRAND_OFFSET, movie::RECOGNISED_BRAND);
}

} // namespace

TrailerForm TrailerForm::of(PhotoLayout const& layout, MotionVideo const& video) {
    TrailerForm form;
    auto const stored = trailer::storedData(*layout.videoRecord(), layout.tail->position);
    bool const isPointed = video.position != stored.position;
    form.isShort = !isPointed && stored.size <= VideoPointer::MAX_RECORD_SIZE;
    form.isOtherBrand = !movie::isRecognised(video.brand);
    if (!form.isShort) // which is pointed to when it is put in as a clip
        judgeVersion(layout, isPointed, form);
    return form;
}

Conversion recognise(std::shared_ptr<MediaFile> const& photo, std::shared_ptr<MediaFile> const& output) {
    PhotoLayout const layout(photo);
    auto const video = layout.fromTrailer();
    auto const form = TrailerForm::of(layout, video);
    if (form.isShort)
        return lift(layout, video, output);
    auto const file = begin(photo, output);
    if (!form.version.empty())
        writeAt(*file, form.versionPosition, form.version);
    if (form.isOtherBrand)
        changeBrand(file, video);
    Conversion done;
    done.isChanged = !form.isRecognised();
    done.brand = form.isOtherBrand ? video.brand : "";
    return done;
}

} // namespace android::lumo::published
