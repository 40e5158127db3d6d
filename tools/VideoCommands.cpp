// The commands about a photo's video: into it, out of it, from one still to another.

#include "Commands.h"

#include "Destination.h"
#include "Text.h"

#include <filesystem>
#include <optional>

#include <unistd.h>

namespace motionphoto {

using namespace android::lumo;
namespace fs = std::filesystem;

namespace {

constexpr char STANDARD_OUTPUT[] = "-";
constexpr char PRIMARY[] = "Primary";

void refuseVideoAsOutput(Arguments const& args) {
    if (!args.out.empty() && isSameFile(args.out, args.video))
        throw Failure(ExitCode::USAGE, args.out, "is both input and output");
}

std::optional<int64_t> moment(Arguments const& args) {
    if (args.at.empty())
        return std::nullopt;
    return microseconds(args.at);
}

void requireInside(std::string const& path, int64_t momentUs, int64_t durationUs) {
    if (momentUs > durationUs)
        throw Failure(ExitCode::USAGE, path,
                      "its video ends after " + std::to_string(durationUs) + " µs, in front of the moment asked for, " +
                          std::to_string(momentUs) + " µs");
}

/// Takes the video out, also one that is damaged.
std::shared_ptr<MotionPhotoEdit> withoutVideo(Photo const& photo) {
    auto edit = photo.view->edit();
    edit->removeVideo(photo.file);
    return edit;
}

ExitCode addOrReplace(Arguments const& args, bool replaces) {
    Destination::check(args);
    refuseVideoAsOutput(args);
    auto const at = moment(args);
    return editEach(args, [&](Photo const& photo) {
        if (replaces)
            photo.requireMotionPhoto();
        auto const video = openVideo(args.video, photo);
        auto edit = photo.view->edit();
        // It replaces a video that is there, too, and reads the new one where it lies.
        edit->addVideo(video);
        if (at)
            edit->setPhotoPresentationTimestampUs(static_cast<long>(*at));
        return edit;
    });
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

void requireWholeVideo(Photo const& photo) {
    photo.requireMotionPhoto();
    guarded(photo.path(), [&] {
        if (uint64_t{photo.view->getVideoPosition()} + photo.view->getVideoSize() > photo.view->getFileSize())
            throw Failure(ExitCode::BAD_INPUT, photo.path(), "its video ends behind the end of the file");
    });
}

char const* clipEnding(Photo const& photo) {
    return guarded(photo.path(), [&] { return endingOfMovieAt(photo.file, photo.view->getVideoPosition()); });
}

Outcome writeClip(Photo const& photo, Destination const& destination) {
    return destination.write(photo, [&](SafeOutput& safe) {
        guarded(photo.path(), destination.path(), [&] { photo.view->getVideo(safe.descriptor()); });
    });
}

Outcome streamClip(Photo const& photo) {
    constexpr uint32_t CHUNK = 1 << 20;
    std::string buffer(CHUNK, '\0');
    uint64_t at = photo.view->getVideoPosition();
    for (uint64_t left = photo.videoSize(); left > 0;) {
        auto const got =
            pread(photo.file->getFd(), buffer.data(), std::min<uint64_t>(left, CHUNK), static_cast<off_t>(at));
        if (got <= 0)
            throw systemFailure(ExitCode::BAD_INPUT, photo.path(), "cannot be read");
        for (ssize_t done = 0; done < got;) {
            auto const put = ::write(STDOUT_FILENO, buffer.data() + done, static_cast<size_t>(got - done));
            if (put < 0)
                throw systemFailure(ExitCode::WRITE_FAILED, "", "fail to write to standard output");
            done += put;
        }
        at += static_cast<uint64_t>(got);
        left -= static_cast<uint64_t>(got);
    }
    return {};
}

/// Looks at the photo before its destination is known, since the clip's kind is part of the name.
Outcome extractOne(Arguments const& args, Input const& input) {
    Photo const photo(input.path, Access::READ);
    requireWholeVideo(photo);
    if (args.out == STANDARD_OUTPUT)
        return streamClip(photo);
    Destination const destination(args, input, clipName(args, input, clipEnding(photo)));
    return destination.isSkipped() ? destination.skippedOutcome() : writeClip(photo, destination);
}

Outcome splitOne(Arguments const& args, Input const& input) {
    Photo const photo(input.path, Access::READ);
    requireWholeVideo(photo);
    Destination const clip(args, input, clipName(args, input, clipEnding(photo)));
    Destination const image(args, input, input.relative);
    Outcome outcome = clip.isSkipped() ? clip.skippedOutcome() : writeClip(photo, clip);
    if (!image.isSkipped()) {
        auto const edit = guarded(input.path, [&] { return withoutVideo(photo); });
        auto const second = image.commit(photo, *edit);
        outcome.kind = Outcome::Kind::DONE;
        outcome.text += second.text;
    }
    return outcome;
}

/// Of the XMP that came with the video, what only an image without one is left with: a directory of the image alone,
/// and a packet of nothing else.
void dropEmptyDirectory(std::shared_ptr<MediaFile> const& file) {
    auto const edit = XMPInfo::parse(file)->edit();
    if (auto const names = edit->getItemNames(); names.size() != 1 || names.front() != PRIMARY)
        return;
    edit->removeItem(PRIMARY);
    edit->commit();
}

Outcome stillOne(Arguments const& args, Input const& input) {
    Destination const destination(args, input, input.relative);
    if (destination.isSkipped())
        return destination.skippedOutcome();
    Photo const photo(input.path, destination.access());
    bool const moves = photo.claimsVideo();
    if (!moves && destination.isInBytes())
        return {};
    auto const edit = guarded(input.path, [&] { return moves ? withoutVideo(photo) : nullptr; });
    if (destination.isInBytes())
        return destination.commit(photo, *edit);
    return destination.write(photo, [&](SafeOutput& safe) {
        guarded(input.path, destination.path(), [&] {
            auto const file = safe.file();
            if (edit == nullptr) {
                if (photo.file->transferTo(file, 0, 0) != static_cast<int64_t>(photo.view->getFileSize()))
                    throw systemFailure(ExitCode::WRITE_FAILED, destination.path(), "fail to copy");
                return;
            }
            edit->commit(file);
            dropEmptyDirectory(file);
        });
    });
}

} // namespace

ExitCode add(Arguments const& args) {
    return addOrReplace(args, false);
}

ExitCode replace(Arguments const& args) {
    return addOrReplace(args, true);
}

ExitCode remove(Arguments const& args) {
    return editEach(args, [](Photo const& photo) {
        if (!photo.claimsVideo())
            throw Failure(ExitCode::NO_MOTION_PHOTO, photo.path(), "is no motion photo");
        return withoutVideo(photo);
    });
}

ExitCode still(Arguments const& args) {
    Destination::check(args);
    return forEachInput(
        args, [&](Input const& input) { return stillOne(args, input); }, Summary::YES);
}

ExitCode set(Arguments const& args) {
    auto const at = microseconds(args.at);
    return editEach(args, [&](Photo const& photo) {
        photo.requireMotionPhoto();
        requireInside(photo.path(), at, photo.view->getVideoDurationUs());
        auto edit = photo.view->edit();
        edit->setPhotoPresentationTimestampUs(static_cast<long>(at));
        return edit;
    });
}

ExitCode extract(Arguments const& args) {
    if (args.isInPlace() || (args.out.empty() == args.folder.empty()))
        throw Failure(ExitCode::USAGE, "",
                      "give -o OUT for one photo, -o - for standard output, or -d DIR for several");
    Destination::check(args);
    return forEachInput(
        args, [&](Input const& input) { return extractOne(args, input); }, Summary::YES);
}

ExitCode split(Arguments const& args) {
    if (args.folder.empty())
        throw Failure(ExitCode::USAGE, "", "give the folder for still and clip: -d DIR");
    return forEachInput(
        args, [&](Input const& input) { return splitOne(args, input); }, Summary::YES);
}

ExitCode carry(Arguments const& args) {
    if (args.isInPlace())
        throw Failure(ExitCode::USAGE, "", "the result goes into a file of its own: -o OUT or -d DIR");
    if (!args.out.empty() && isSameFile(args.out, args.edited))
        throw Failure(ExitCode::USAGE, args.out, "is both input and output");
    return editEach(args, [&](Photo const& photo) {
        photo.requireMotionPhoto();
        auto const edited = openFile(args.edited, Access::READ);
        auto edit = photo.view->edit();
        edit->setOutputSource(edited);
        return edit;
    });
}

} // namespace motionphoto
