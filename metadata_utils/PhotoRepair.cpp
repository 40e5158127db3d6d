// SPDX-License-Identifier: Apache-2.0
#include "PhotoCheck.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MovieBoxes.h"
#include "PublishedEdit.h"
#include "ScratchFile.h"
#include "TrailerForm.h"
#include "XMPEditImpl.h"
#include "io/HEIFMetaWriter.h"
#include "io/ImageIndex.h"
#include "io/TrailingBoxes.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

namespace {

using Source = MotionVideo::Source;

/// Findings that new values in the XMP take away.
constexpr char const* XMP_RULES[] = {"xmp-claim", "micro-video", "directory-video", "moment-number"};

std::string range(MotionVideo const& video) {
    return std::to_string(video.size) + " bytes at " + std::to_string(video.position);
}

/// One photo under repair: the file changes, so that every step looks at it anew.
class Mender {
public:
    Mender(std::shared_ptr<MediaFile> const& mended, RepairOptions const& wanted) : file(mended), options(wanted) {}

    std::vector<std::string> run() {
        bringTrailerToTheEnd();
        setPointer();
        setForm();
        auto const check = PhotoCheck::run(file);
        if (check.orphan.isSound())
            settleOrphan(check);
        else if (!check.video.isSound() && !holdsTornMovie())
            dropStaleClaims(check);
        setXMP();
        return done;
    }

private:
    void bringTrailerToTheEnd();
    void setPointer();
    void setForm();
    void settleOrphan(PhotoCheck const& check);
    void dropOrphan(MotionVideo const& orphan);
    void dropFromHEIC(PhotoLayout const& layout, MotionVideo const& orphan);
    void dropFromJPEG(PhotoLayout const& layout, MotionVideo const& orphan);
    void dropStaleClaims(PhotoCheck const& check);
    bool holdsTornMovie() const;
    void setXMP();

    std::shared_ptr<MediaFile> file;
    RepairOptions options;
    std::vector<std::string> done;
};

void Mender::bringTrailerToTheEnd() {
    PhotoLayout const layout(file);
    if (layout.isHEIC && !layout.topLevel.damage && HEIFMetaWriter::restoreTrailerOrder(file))
        done.push_back("trailer brought to the file's end");
}

/// The box is where it is; the record is told.
void Mender::setPointer() {
    PhotoLayout const layout(file);
    auto const box = layout.fromBox();
    auto const trailer = layout.fromTrailer();
    if (!box.isSound() || layout.videoRecord() == nullptr || trailer.isSound())
        return;
    auto const stored = trailer::storedData(*layout.videoRecord(), layout.tail->position);
    if (!VideoPointer::mayStandIn(qrt::TYPE_MOTION_PHOTO_DATA, stored.size))
        return;
    if (!VideoPointer::decode(checked::readAt(*file, stored.position, VideoPointer::SIZE)))
        return; // bytes that nobody knows
    auto const pointer = VideoPointer{VideoPointer::TAG, box.position, box.size}.encode();
    checked::seek(*file, stored.position);
    checked::write(*file, pointer);
    done.push_back("trailer's pointer set to the video box: " + range(box));
}

/// What this library's views do not recognise gets the form that they do.
void Mender::setForm() {
    PhotoLayout const layout(file);
    auto const video = layout.fromTrailer();
    if (!video.isSound())
        return;
    auto const form = published::TrailerForm::of(layout, video);
    if (form.isRecognised())
        return;
    auto const result = published::recognise(file);
    if (!form.version.empty())
        done.push_back("trailer's version \"" + form.versionFound + "\" set to \"" + form.version + "\"");
    if (!result.brand.empty())
        done.push_back("movie's brand \"" + result.brand + "\" set to \"" + movie::RECOGNISED_BRAND + "\"");
    if (form.isShort)
        done.push_back("movie of " + std::to_string(video.size) + " bytes lifted above a pointer's size");
}

/// A movie that nothing claims: out with it, or, where there is no other, a claim for it.
void Mender::settleOrphan(PhotoCheck const& check) {
    if (options.dropOrphans) {
        dropOrphan(check.orphan);
        if (!check.video.isSound())
            dropStaleClaims(check);
        return;
    }
    PhotoLayout const layout(file);
    if (check.video.isSound() || layout.videoRecord() != nullptr || !layout.xmpFault.empty())
        return; // one photo has one video, a damaged packet takes no claim; the finding stays
    auto const fields = published::fieldsFor(layout, check.orphan);
    published::writeXMP(file, [&](auto const& view) { published::setFields(view, file->mimeType(), fields); });
    done.push_back("movie claimed: " + range(check.orphan));
}

/// In a HEIC with the box that it fills, or where it ends the file; in a JPEG what counts from the file's end follows.
void Mender::dropOrphan(MotionVideo const& orphan) {
    PhotoLayout const layout(file);
    if (layout.isHEIC)
        dropFromHEIC(layout, orphan);
    else
        dropFromJPEG(layout, orphan);
    done.push_back("movie taken out: " + range(orphan));
}

void Mender::dropFromHEIC(PhotoLayout const& layout, MotionVideo const& orphan) {
    uint32_t const end = orphan.position + orphan.size;
    auto const& boxes = layout.topLevel.boxes;
    auto const holder = std::find_if(boxes.begin(), boxes.end(), [&](auto const& box) {
        return box.type == VIDEO_BOX && box.content() == orphan.position && box.end() == end;
    });
    auto const around = std::find_if(boxes.begin(), boxes.end(), [&](auto const& box) {
        return box.position < orphan.position && orphan.position < box.end();
    });
    if (holder != boxes.end()) {
        heif::TrailingBoxes trailing(file);
        if (holder->position < trailing.endOfImage() || trailing.mustStay(*holder))
            trailing.blankOut(*holder);
        else
            trailing.takeOut(*holder);
    } else if (around == boxes.end() && end == layout.fileSize) {
        checked::truncate(*file, orphan.position);
    } else {
        throw ErrorAt().as(Error::Code::UNSUPPORTED, *file)(
            "the movie of %s stands among or inside the boxes of a HEIC, in no video box of its own",
            range(orphan).c_str());
    }
}

void Mender::dropFromJPEG(PhotoLayout const& layout, MotionVideo const& orphan) {
    uint32_t const behind = layout.fileSize - orphan.position - orphan.size;
    auto const video = layout.locate();
    bool const isCounted = video.source == Source::DIRECTORY || video.source == Source::MICRO_VIDEO;
    if (video.isSound() && isCounted && orphan.position > video.position) {
        published::writeXMP(file, [&](auto const& view) {
            claims::followEnd(*view->getMeta(), -int64_t{orphan.size});
            uint64_t const expected = uint64_t{layout.fileSize} - video.position - orphan.size;
            auto const now = claims::read(*view->getMeta()).distances();
            if (std::find(now.begin(), now.end(), expected) == now.end())
                throw ErrorAt().as(Error::Code::UNSUPPORTED, *file)(
                    "the movie of %s is counted among the items behind the video", range(orphan).c_str());
            view->reindex();
        });
    }
    uint32_t const end = file->size() - behind;
    if (behind == 0)
        checked::truncate(*file, end - orphan.size);
    else
        image_index::moveBytes(file, end, -int64_t{orphan.size});
}

void Mender::dropStaleClaims(PhotoCheck const& check) {
    PhotoLayout const layout(file);
    // A trailer that claims one is damage of its own: what it holds is not known.
    if (!layout.claims.any() || check.video.source == Source::TRAILER)
        return;
    published::writeXMP(file, [](auto const& view) {
        claims::remove(*view->getMeta());
        view->reindex();
    });
    done.push_back("claims without a video taken out: " + check.video.reason);
}

/// How far it goes nobody knows, so that it can be neither claimed nor taken out; what speaks of it stays.
bool Mender::holdsTornMovie() const {
    return MotionVideo::scan(file).status == MotionVideo::Status::DAMAGED;
}

void Mender::setXMP() {
    auto const check = PhotoCheck::run(file);
    bool const isWrong =
        std::any_of(std::begin(XMP_RULES), std::end(XMP_RULES), [&](char const* rule) { return check.has(rule); });
    PhotoLayout const layout(file);
    if (!isWrong || !check.video.isSound() || !layout.xmpFault.empty())
        return;
    auto const fields = published::fieldsFor(layout, check.video);
    if (!published::takesFields(layout, fields))
        return; // a HEIC that never had XMP: its box speaks for itself
    bool const hasMoment = check.has("moment-number");
    published::writeXMP(file, [&](auto const& view) {
        if (hasMoment)
            XMPEditImpl(view).removeProperty(xmp_ns::CAMERA, motion_names::TIMESTAMP);
        published::setFields(view, file->mimeType(), fields);
    });
    done.push_back("XMP set to the " + std::string(MotionVideo::nameOf(check.video.source)) +
                   "'s video: " + range(check.video));
}

} // namespace

Repair Repair::run(std::shared_ptr<MediaFile> const& photo, RepairOptions const& options,
                   std::shared_ptr<MediaFile> const& output) {
    auto const before = PhotoCheck::run(photo); // what cannot be read is refused before anything is written
    if (output == nullptr && options.dropOrphans && before.orphan.isSound())
        run(photo, options, scratchBeside(*photo)); // refuses on a copy what would lose the video here
    auto const file = published::begin(photo, output);
    Repair repair;
    repair.done = Mender(file, options).run();
    repair.after = PhotoCheck::run(file);
    if (before.verdict == PhotoCheck::Verdict::SOUND && !repair.after.video.isSound())
        throw ErrorAt().as(Error::Code::UNSUPPORTED, *photo)("repairing it would lose its video: %s",
                                                             repair.after.video.reason.c_str());
    return repair;
}

} // namespace android::lumo
