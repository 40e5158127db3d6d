// SPDX-License-Identifier: Apache-2.0
#include "Destination.h"

#include "Signals.h"
#include "Text.h"

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <unordered_set>

#include <sys/stat.h>
#include <unistd.h>

namespace motionphoto {

using namespace android::lumo;
namespace fs = std::filesystem;

namespace {

/// 64 bits everywhere (FNV-1a): with 32, two of a hundred thousand names are likely to share a number.
uint64_t numberOf(std::string const& path) {
    uint64_t number = 0xCBF29CE484222325U;
    for (char const c : path)
        number = (number ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    return number;
}

/// What this run has given names to, so that two inputs of one name do not take each other's place. Sixteen bytes each.
bool isFirstToTake(std::string const& path) {
    static std::mutex lock;
    static std::unordered_set<uint64_t> taken;
    std::lock_guard const guard(lock);
    return taken.insert(numberOf(path)).second;
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
    if (out == "-")
        throw Failure(ExitCode::USAGE, "", "this does not go to standard output; ./- is a file of that name");
    std::error_code ignored; // what cannot be asked is told when it is written
    bool const there = fs::exists(out, ignored);
    skipped = args.skipExisting && there;
    if (there && !skipped && !args.force && fs::is_regular_file(out, ignored))
        throw SafeOutput::ThereAlready(out);
    if (!args.folder.empty() && !isFirstToTake(out)) // what is there already may be the other file's result, too
        throw Failure(ExitCode::WRITE_FAILED, out, "is the result of another file of this run already");
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

Outcome Destination::edit(Photo const& photo, Edit const& edit) const {
    if (args.dryRun)
        return rehearse(photo, edit);
    if (isInBytes()) {
        editBytes(photo, edit);
        return {};
    }
    if (!args.folder.empty()) {
        std::error_code error;
        fs::create_directories(fs::path(out).parent_path(), error);
        if (error)
            throw Failure(ExitCode::WRITE_FAILED, out, "its folder cannot be made: " + error.message());
    }
    try {
        editSafely(photo, edit);
    } catch (SafeOutput::ThereAlready const&) {
        if (!args.skipExisting)
            throw;
        return skippedOutcome(); // it came since this run looked
    }
    return {};
}

void Destination::editSafely(Photo const& photo, Edit const& edit) const {
    bool const replace = (args.force && !args.skipExisting) || args.isInPlace();
    SafeOutput safe(out, photo.file->getFd(), replace ? SafeOutput::Existing::REPLACE : SafeOutput::Existing::REFUSE,
                    args.preserve);
    if (args.isInPlace())
        safe.replacesOnly(photo.opened);
    if (guarded(photo.path(), out, [&] { return edit(safe.file()); }))
        safe.publish();
}

Outcome Destination::rehearse(Photo const& photo, Edit const& edit) const {
    bool const edited = guarded(photo.path(), [&] { return edit(Scratch().file()); });
    return {Outcome::Kind::DONE, ExitCode::DONE,
            (edited ? "would write " : "would leave as it is: ") + escaped(out) + "\n", ""};
}

void Destination::editBytes(Photo const& photo, Edit const& edit) const {
    SignalsHeld const held;
    struct stat before {};
    fstat(photo.file->getFd(), &before);
    auto const changes = photo.file->changes();
    try {
        guarded(photo.path(), [&] { return edit(nullptr); });
        // A disk may report late what it could not store.
        if (fsync(photo.file->getFd()) != 0)
            throw systemFailure(ExitCode::WRITE_FAILED, photo.path(), "fail to bring it to disk");
    } catch (Failure const& failure) {
        bool const changed = photo.file->changes() != changes;
        throw Failure(failure.exitCode(), failure.subject(),
                      failure.what() + std::string(changed ? "; " + photo.path() + " may be partly written" : ""));
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
            return destination.edit(photo, [&](auto const& output) { return stage(photo, output); });
        },
        Summary::YES);
}

} // namespace motionphoto
