// SPDX-License-Identifier: Apache-2.0
#include "PutClip.h"

#include "Text.h"

#include "Error.h"
#include "MotionClip.h"
#include "PublishedPhoto.h"

#include <cstdio>

namespace motionphoto {

using namespace android::lumo;

namespace {

/// The moment that --at names in the clip, nothing without it.
std::optional<int64_t> momentFor(Arguments const& args, std::shared_ptr<MediaFile> const& clip) {
    if (args.at.empty())
        return std::nullopt;
    return args.at == Arguments::AUTOMATIC ? stillMomentOf(clip) : microseconds(args.at);
}

/// Where the photo has the editor's own trailer or is a plain still, the editor keeps the moment that is there.
MotionClip put(Arguments const& args, std::string const& path, Photo const& photo,
               std::shared_ptr<MediaFile> const& output) {
    auto const source = openVideo(path, photo);
    published::AddOptions options;
    options.momentUs = momentFor(args, source);
    options.clip.keepBrand = args.keepBrand;
    if (options.momentUs || (photo.hasClaim() && photo.video.source != MotionVideo::Source::TRAILER))
        return published::addVideo(photo.file, source, options, output);
    auto clip = guarded(path, [&] { return MotionClip::prepare(source, photo.file->mimeType(), options.clip); });
    auto const edit = photo.view()->edit();
    clip.stage(*edit);
    try {
        output != nullptr ? edit->commit(output) : edit->commit();
    } catch (Error const& error) {
        requireOtherThanRoom(photo, error);
        throw;
    }
    return clip;
}

} // namespace

void note(Arguments const& args, std::string const& path, std::string const& text) {
    if (!args.quiet)
        std::fprintf(stderr, "%smotionphoto: %s: %s\n", lineStart(), escaped(path).c_str(), escaped(text).c_str());
}

std::string changesOf(std::string const& brand, uint32_t filler) {
    std::string text;
    if (!brand.empty())
        text = "the brand '" + escaped(brand) + "' becomes 'mp42' in the photo";
    if (filler > 0)
        text += (text.empty() ? "" : ", ") + ("a free box of " + grouped(filler) + " bytes stands behind the video");
    return text;
}

void putClip(Arguments const& args, std::string const& clip, Photo const& photo,
             std::shared_ptr<MediaFile> const& output) {
    auto const done = put(args, clip, photo, output);
    if (auto const changes = changesOf(done.isBrandChanged ? done.brand : "", done.filler); !changes.empty())
        note(args, clip, changes);
}

} // namespace motionphoto
