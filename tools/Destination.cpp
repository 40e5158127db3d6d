#include "Destination.h"

#include "Signals.h"
#include "Text.h"

#include <filesystem>
#include <functional>
#include <mutex>
#include <unordered_set>

#include <sys/stat.h>
#include <unistd.h>

namespace motionphoto {

using namespace android::lumo;
namespace fs = std::filesystem;

namespace {

/// What this run has given names to, so that two inputs of one name do not take each other's place. Sixteen bytes each.
bool isFirstToTake(std::string const& path) {
    static std::mutex lock;
    static std::unordered_set<size_t> taken;
    std::lock_guard const guard(lock);
    return taken.insert(std::hash<std::string>()(path)).second;
}

} // namespace

void Destination::check(Arguments const& args) {
    int const places = !args.out.empty() + !args.folder.empty() + args.isInPlace();
    if (places != 1)
        throw Failure(ExitCode::USAGE, "", "give one of -o OUT, -d DIR and --in-place (motionphoto --help says more)");
    if (args.isInPlace() && args.inPlace != "true" && !args.isInBytes())
        throw Failure(ExitCode::USAGE, "", "--in-place stands alone or as --in-place=bytes");
    if (!args.out.empty() && (args.paths.size() > 1 || args.recursive || !args.filesFrom.empty()))
        throw Failure(ExitCode::USAGE, "", "-o is for one file, give -d DIR for several");
}

Destination::Destination(Arguments const& arguments, Input const& input, std::string const& name) : args(arguments) {
    if (args.isInPlace()) {
        out = input.path;
        refuseLinks();
        return;
    }
    out = args.folder.empty() ? args.out : (fs::path(args.folder) / name).string();
    if (isSameFile(out, input.path))
        throw Failure(ExitCode::USAGE, out, "is both input and output, use --in-place to edit it");
    std::error_code ignored; // what cannot be asked is told when it is written
    skipped = args.skipExisting && fs::exists(out, ignored);
    if (!skipped && !args.folder.empty() && !isFirstToTake(out))
        throw Failure(ExitCode::WRITE_FAILED, out, "was made from another file of this run already");
}

void Destination::refuseLinks() const {
    struct stat status;
    if (args.force || lstat(out.c_str(), &status) != 0)
        return;
    if (S_ISLNK(status.st_mode))
        throw Failure(ExitCode::WRITE_FAILED, out, "is a link; --force edits the file it leads to");
    if (!isInBytes() && S_ISREG(status.st_mode) && status.st_nlink > 1)
        throw Failure(ExitCode::WRITE_FAILED, out,
                      "has " + std::to_string(status.st_nlink) +
                          " names (hard links); --force edits it under this one alone, --in-place=bytes under all");
}

Outcome Destination::skippedOutcome() const {
    return {Outcome::Kind::SKIPPED, ExitCode::DONE, "", ""};
}

Outcome Destination::write(Photo const& still, std::function<void(SafeOutput&)> const& fill) const {
    if (args.dryRun)
        return {Outcome::Kind::DONE, ExitCode::DONE, "would write " + escaped(out) + "\n", ""};
    if (!args.folder.empty()) {
        std::error_code error;
        fs::create_directories(fs::path(out).parent_path(), error);
        if (error)
            throw Failure(ExitCode::WRITE_FAILED, out, "its folder cannot be made: " + error.message());
    }
    bool const replace = args.force || args.isInPlace();
    SafeOutput safe(out, still.file->getFd(), replace ? SafeOutput::Existing::REPLACE : SafeOutput::Existing::REFUSE,
                    args.preserve);
    fill(safe);
    safe.publish();
    return {};
}

Outcome Destination::commit(Photo const& photo, MotionPhotoEdit& edit) const {
    if (!isInBytes() || args.dryRun)
        return write(photo, [&](SafeOutput& safe) { guarded(photo.path(), out, [&] { edit.commit(safe.file()); }); });
    commitInBytes(photo, edit);
    return {};
}

void Destination::commitInBytes(Photo const& photo, MotionPhotoEdit& edit) const {
    SignalsHeld const held;
    struct stat before {
    }, after{};
    fstat(photo.file->getFd(), &before);
    auto const fail = [&](Failure const& failure) {
        fstat(photo.file->getFd(), &after);
        bool const untouched = before.st_size == after.st_size && before.st_mtim.tv_sec == after.st_mtim.tv_sec &&
                               before.st_mtim.tv_nsec == after.st_mtim.tv_nsec;
        throw Failure(failure.exitCode(), failure.subject(),
                      failure.what() + std::string(untouched ? "" : "; it may be partly written"));
    };
    try {
        guarded(photo.path(), [&] { edit.commit(); });
        // A disk may report late what it could not store.
        if (fsync(photo.file->getFd()) != 0)
            throw systemFailure(ExitCode::WRITE_FAILED, photo.path(), "fail to bring it to disk");
    } catch (Failure const& failure) {
        fail(failure);
    }
    if (args.preserve) {
        timespec const times[] = {before.st_atim, before.st_mtim};
        futimens(photo.file->getFd(), times);
    }
}

ExitCode editEach(Arguments const& args, Stage const& stage) {
    Destination::check(args);
    return forEachInput(
        args,
        [&](Input const& input) {
            Destination const destination(args, input, input.relative);
            if (destination.isSkipped())
                return destination.skippedOutcome();
            Photo const photo(input.path, destination.access());
            auto const edit = guarded(input.path, [&] { return stage(photo); });
            return destination.commit(photo, *edit);
        },
        Summary::YES);
}

} // namespace motionphoto
