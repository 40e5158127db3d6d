// SPDX-License-Identifier: Apache-2.0
// The commands about a photo's video: into it, out of it, from one still to another.

#include "Commands.h"

#include "Destination.h"
#include "PutClip.h"
#include "Text.h"

#include "PublishedPhoto.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <optional>

#include <unistd.h>

namespace motionphoto {

using namespace android::lumo;
namespace fs = std::filesystem;

namespace {

using FilePtr = std::shared_ptr<MediaFile>;

constexpr char STANDARD_OUTPUT[] = "-";
constexpr char PRIMARY[] = "Primary";

// Into the photo. -----------------------------------------------------------------------------------------------------

ExitCode addOrReplace(Arguments const& args, bool replaces) {
    Destination::check(args);
    if (!args.out.empty() && isSameFile(args.out, args.video))
        throw Failure(ExitCode::USAGE, args.out, "is both input and output");
    if (!args.at.empty() && args.at != Arguments::AUTOMATIC)
        microseconds(args.at); // refuses what is no time
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        if (replaces)
            photo.requireVideo();
        putClip(args, args.video, photo, output);
        return true;
    });
}

// Out of the photo. ---------------------------------------------------------------------------------------------------

void requireName(Arguments const& args) {
    if (fs::path(args.nameTemplate).filename().empty())
        throw Failure(ExitCode::USAGE, "", "--name '" + args.nameTemplate + "' names no file");
}

/// "{stem}.{ext}" filled in.
std::string clipName(Arguments const& args, Input const& input, char const* ending) {
    fs::path const relative(input.relative);
    std::string name = args.nameTemplate;
    auto const fill = [&](std::string const& field, std::string const& value) {
        for (size_t at = 0; (at = name.find(field, at)) != std::string::npos; at += value.size())
            name.replace(at, field.size(), value);
    };
    fill("{stem}", relative.stem().string());
    fill("{ext}", ending);
    return (relative.parent_path() / name).string();
}

Outcome writeClip(Photo const& photo, Destination const& destination) {
    return destination.edit(photo, [&](FilePtr const& output) {
        photo.video.copyTo(photo.file, output);
        return true;
    });
}

Outcome streamClip(Photo const& photo) {
    constexpr uint32_t CHUNK = 1 << 20;
    std::string buffer(CHUNK, '\0');
    uint64_t at = photo.video.position;
    for (uint32_t left = photo.video.size; left > 0;) {
        auto const got = pread(photo.file->getFd(), buffer.data(), std::min(left, CHUNK), static_cast<off_t>(at));
        if (got <= 0)
            throw systemFailure(ExitCode::BAD_INPUT, photo.path(), "cannot be read");
        for (ssize_t done = 0; done < got;) {
            auto const put = ::write(STDOUT_FILENO, buffer.data() + done, static_cast<size_t>(got - done));
            if (put < 0 && errno == EPIPE)
                dieOf(SIGPIPE); // whoever reads has enough
            if (put < 0)
                throw systemFailure(ExitCode::WRITE_FAILED, "", "fail to write to standard output");
            done += put;
        }
        at += static_cast<uint64_t>(got);
        left -= static_cast<uint32_t>(got);
    }
    return {};
}

/// Looks at the photo before its destination is known, since the clip's kind is part of the name.
Outcome extractOne(Arguments const& args, Input const& input) {
    Photo const photo(input.path, Access::READ);
    photo.requireVideo();
    if (args.out == STANDARD_OUTPUT && args.dryRun)
        return {Outcome::Kind::DONE, ExitCode::DONE, "would write the video to standard output\n", ""};
    if (args.out == STANDARD_OUTPUT)
        return streamClip(photo);
    Destination const destination(args, input, clipName(args, input, photo.clipEnding()));
    return destination.isSkipped() ? destination.skippedOutcome() : writeClip(photo, destination);
}

/// A directory that names the image alone came with the video and says nothing without it; nor does a packet that held
/// nothing else. One that editors do not take stays.
void dropEmptyXMP(FilePtr const& file) {
    try {
        auto const edit = XMPInfo::parse(file)->edit();
        if (auto const names = edit->getItemNames(); names.size() == 1 && names.front() == PRIMARY) {
            edit->removeItem(PRIMARY);
            edit->removeProperty(xmp_ns::CONTAINER, "Directory");
            edit->commit();
        }
        published::removeEmptyXMP(file);
    } catch (Error const& error) {
        if (error.code() != Error::Code::UNSUPPORTED)
            throw;
    }
}

/// A claim that does not hold goes alone: what stands behind the picture then is not known to be a video.
void removeVideo(Arguments const& args, Photo const& photo, FilePtr const& output) {
    auto const removed = published::removeVideo(photo.file, output);
    if (removed.status == MotionVideo::Status::DAMAGED && removed.source != MotionVideo::Source::TRAILER)
        note(args, photo.path(), "its video is damaged (" + removed.reason + "): only what claims it is taken out");
    if (auto const orphan = MotionVideo::scan(output != nullptr ? output : photo.file); orphan.isSound())
        note(args, photo.path(),
             "a movie of " + grouped(orphan.size) + " bytes at " + grouped(orphan.position) +
                 " that nothing claims stays; motionphoto repair --drop-orphans takes it out");
}

/// Of a video that GCamera:MotionPhoto itself says is not there. A text that is no packet speaks of none.
bool hasWithdrawnClaim(Photo const& photo) {
    try {
        auto const names = XMPInfo::parse(photo.file)->getPropertyNames();
        return std::any_of(names.begin(), names.end(), [](std::string const& name) {
            return name.starts_with("GCamera:MotionPhoto") || name.starts_with("GCamera:MicroVideo");
        });
    } catch (Error const& error) {
        if (error.code() != Error::Code::XMP)
            throw;
        return false;
    }
}

bool stillAlone(Arguments const& args, Photo const& photo, FilePtr const& output) {
    if (!photo.hasClaim())
        photo.requireReadable();
    if (photo.hasClaim() || hasWithdrawnClaim(photo)) {
        removeVideo(args, photo, output);
        dropEmptyXMP(output != nullptr ? output : photo.file);
        return true;
    }
    if (output != nullptr)
        copyWhole(photo, output);
    return output != nullptr;
}

Outcome splitOne(Arguments const& args, Input const& input) {
    Photo const photo(input.path, Access::READ);
    photo.requireVideo();
    Destination const clip(args, input, clipName(args, input, photo.clipEnding()));
    Destination const image(args, input, input.relative);
    Outcome outcome = clip.isSkipped() ? clip.skippedOutcome() : writeClip(photo, clip);
    if (!image.isSkipped()) {
        auto const second = image.edit(photo, [&](FilePtr const& output) { return stillAlone(args, photo, output); });
        outcome.kind = std::min(outcome.kind, second.kind); // done, if one of them was
        outcome.text += second.text;
    }
    return outcome;
}

} // namespace

ExitCode add(Arguments const& args) {
    return addOrReplace(args, false);
}

ExitCode replace(Arguments const& args) {
    return addOrReplace(args, true);
}

ExitCode remove(Arguments const& args) {
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        if (!photo.hasClaim())
            photo.failAbsent("is no motion photo");
        removeVideo(args, photo, output);
        return true;
    });
}

ExitCode still(Arguments const& args) {
    return editEach(args, [&](Photo const& photo, FilePtr const& output) { return stillAlone(args, photo, output); });
}

ExitCode set(Arguments const& args) {
    if (args.at.empty())
        throw Failure(ExitCode::USAGE, "", "give the moment: --at TIME");
    auto const at = microseconds(args.at);
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        photo.requireVideo();
        published::setMoment(photo.file, at, output);
        return true;
    });
}

ExitCode extract(Arguments const& args) {
    if (args.out.empty() == args.folder.empty())
        throw Failure(ExitCode::USAGE, "",
                      "give -o OUT for one photo, -o - for standard output, or -d DIR for several");
    Destination::check(args);
    requireName(args);
    return forEachInput(
        args, [&](Input const& input) { return extractOne(args, input); }, Summary::YES);
}

ExitCode split(Arguments const& args) {
    if (args.folder.empty())
        throw Failure(ExitCode::USAGE, "", "give the folder for still and clip: -d DIR");
    requireName(args);
    return forEachInput(
        args, [&](Input const& input) { return splitOne(args, input); }, Summary::YES);
}

ExitCode carry(Arguments const& args) {
    if (!args.out.empty() && isSameFile(args.out, args.edited))
        throw Failure(ExitCode::USAGE, args.out, "is both input and output");
    Photo const edited(args.edited, Access::READ);
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        photo.requireVideo();
        auto const nameOf = [](Photo const& each) { return MediaDefs::mimeString(each.file->mimeType()); };
        if (nameOf(edited) != nameOf(photo))
            throw Failure(ExitCode::BAD_INPUT, edited.path(),
                          "is of type " + nameOf(edited) + ", its motion is of a photo of type " + nameOf(photo) +
                              ": save it in that type first");
        // The editor carries from the form with a trailer.
        auto source = photo.file;
        Scratch scratch;
        if (photo.video.source != MotionVideo::Source::TRAILER) {
            source = scratch.file();
            published::toTrailer(photo.file, source);
        }
        auto const edit = MotionPhotoInfo::parse(source)->edit();
        edit->setOutputSource(edited.file);
        edit->commit(output);
        return true;
    });
}

} // namespace motionphoto
