// SPDX-License-Identifier: Apache-2.0
#include "SafeOutput.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

namespace motionphoto {

namespace {

constexpr mode_t NOBODY_ELSE = 0600;

std::string folderOf(std::string const& path) {
    auto const folder = std::filesystem::path(path).parent_path();
    return folder.empty() ? "." : folder.string();
}

/// A name in the folder that nobody else chose.
std::string temporaryNameIn(std::string const& folder) {
    static constexpr char LETTERS[] = "abcdefghijklmnopqrstuvwxyz012345";
    unsigned char random[10] = {};
    (void)!getrandom(random, sizeof random, 0);
    std::string name = folder + "/.motionphoto-";
    for (unsigned char const byte : random)
        name += LETTERS[byte % (sizeof LETTERS - 1)];
    return name;
}

/// Closes when it goes.
struct Descriptor {
    int fd;
    ~Descriptor() { close(fd); }
};

std::string linkTo(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

} // namespace

SafeOutput::ThereAlready::ThereAlready(std::string const& path)
    : Failure(ExitCode::WRITE_FAILED, path, "is there already; --force replaces it, --skip-existing leaves it") {}

SafeOutput::SafeOutput(std::string const& path, int photo, Existing whenThere, bool preserve)
    : out(path), target(path), still(photo),
      existing(whenThere), rights{FileRights::of(photo), std::nullopt, preserve} {
    examineTarget();
    if (!makeUnnamed())
        makeNamed();
}

SafeOutput::~SafeOutput() {
    close(fd);
}

std::shared_ptr<android::lumo::MediaFile> SafeOutput::file() const {
    auto result = std::make_shared<android::lumo::MediaFile>(fd);
    result->writeEarly(); // publish() syncs
    return result;
}

void SafeOutput::examineTarget() {
    struct stat status;
    if (stat(out.c_str(), &status) != 0) {
        if (errno != ENOENT || out.empty())
            throw systemFailure(ExitCode::WRITE_FAILED, out, "cannot be written");
        if (lstat(out.c_str(), &status) == 0)
            throw Failure(ExitCode::WRITE_FAILED, out, "is a link to a file that is not there");
        return;
    }
    if (!S_ISREG(status.st_mode))
        throw Failure(ExitCode::WRITE_FAILED, out, "is no regular file and cannot be replaced");
    if (existing == Existing::REFUSE)
        throw ThereAlready(out);
    if (access(out.c_str(), W_OK) != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "cannot be written");
    std::error_code error;
    target = std::filesystem::canonical(out, error).string();
    int old = error ? -1 : open(target.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (old < 0 && errno == EACCES)
        old = open(target.c_str(), O_PATH | O_CLOEXEC);
    if (old < 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "cannot be written");
    Descriptor const kept{old};
    rights.replaced = FileRights::of(old);
}

bool SafeOutput::makeUnnamed() {
    fd = open(folderOf(target).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, NOBODY_ELSE);
    if (fd < 0)
        return false;
    // Without /proc it could not be given a name.
    if (access(linkTo(fd).c_str(), F_OK) == 0)
        return true;
    close(fd);
    return false;
}

void SafeOutput::makeNamed() {
    SignalsHeld const held;
    do {
        std::string const name = temporaryNameIn(folderOf(target));
        fd = open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, NOBODY_ELSE);
        if (fd >= 0)
            temporary = TemporaryName(name);
    } while (fd < 0 && errno == EEXIST);
    if (fd < 0 && errno == ENOENT)
        throw Failure(ExitCode::WRITE_FAILED, out, "cannot be written: there is no folder '" + folderOf(target) + "'");
    if (fd < 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "cannot be written");
}

void SafeOutput::nameUnnamed(std::string const& name) {
    if (linkat(AT_FDCWD, linkTo(fd).c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "fail to name the finished file");
}

void SafeOutput::takeName() {
    SignalsHeld const held;
    if (!rights.replaced && temporary.isEmpty()) {
        if (linkat(AT_FDCWD, linkTo(fd).c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) == 0)
            return;
        if (errno != EEXIST)
            throw systemFailure(ExitCode::WRITE_FAILED, out, "fail to name the finished file");
    }
    if (!rights.replaced && existing == Existing::REFUSE && access(target.c_str(), F_OK) == 0)
        throw ThereAlready(out); // it came while this one was written
    if (temporary.isEmpty()) {
        std::string const name = temporaryNameIn(folderOf(target));
        nameUnnamed(name);
        temporary = TemporaryName(name);
    }
    // Where the file system cannot refuse to replace, what was looked at a moment ago has to do.
    bool const refuse = !rights.replaced && existing == Existing::REFUSE;
    if (refuse && renameat2(AT_FDCWD, temporary.path().c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0)
        return temporary.keep();
    if (refuse && errno == EEXIST)
        throw ThereAlready(out);
    if (expected && !expected->standsAt(target))
        throw Failure(ExitCode::WRITE_FAILED, out,
                      "was changed by another program while it was edited; it is left as that one wrote it");
    if (std::rename(temporary.path().c_str(), target.c_str()) != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "fail to rename the finished file");
    temporary.keep();
}

void SafeOutput::publish() {
    errno = applyRights(fd, rights);
    if (errno != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "its permissions cannot be set");
    if (rights.preserve)
        copyTimesAndAttributes(still, fd);
    if (fsync(fd) != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "fail to bring it to disk");
    takeName();
    // From here on OUT is the new file. Should this fail, only how soon its name is on disk is in doubt: after a loss
    // of power either the old file or the new one stands there, each of them whole. So the result is no failure.
    int const folder = open(folderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        fsync(folder);
        close(folder);
    }
}

std::shared_ptr<android::lumo::MediaFile> Scratch::file() {
    if (stream == nullptr)
        stream.reset(std::tmpfile());
    if (stream == nullptr)
        throw systemFailure(ExitCode::WRITE_FAILED, "", "fail to make a temporary file");
    return std::make_shared<android::lumo::MediaFile>(fileno(stream.get()));
}

} // namespace motionphoto
