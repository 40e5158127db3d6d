#include "SafeOutput.h"

#include "Failure.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace motionphoto {

namespace {

constexpr int DEADLY_SIGNALS[] = {SIGHUP, SIGINT, SIGTERM};
constexpr mode_t PERMISSIONS = 0777;
constexpr mode_t NEW_FILE_MODE = 0666;

/// The temporary file that a signal handler has to remove; empty when there is none.
char abandoned[PATH_MAX] = "";

extern "C" void removeTemporaryAndDie(int signal) {
    if (abandoned[0] != '\0')
        unlink(abandoned);
    // The handler was reset when it was entered: the signal, held back while it runs, now ends the process.
    raise(signal);
}

/// Holds the deadly signals back, so that the temporary file and the note about it change together.
class SignalsHeld {
public:
    SignalsHeld() {
        sigset_t deadly;
        sigemptyset(&deadly);
        for (int const signal : DEADLY_SIGNALS)
            sigaddset(&deadly, signal);
        sigprocmask(SIG_BLOCK, &deadly, &before);
    }
    ~SignalsHeld() { sigprocmask(SIG_SETMASK, &before, nullptr); }
    SignalsHeld(SignalsHeld const&) = delete;
    SignalsHeld& operator=(SignalsHeld const&) = delete;

private:
    sigset_t before;
};

void catchDeadlySignals() {
    for (int const signal : DEADLY_SIGNALS) {
        struct sigaction action {};
        // A signal that whoever started the tool wants ignored (nohup) stays ignored.
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = removeTemporaryAndDie;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        sigaction(signal, &action, nullptr);
    }
}

mode_t modeOfNewFiles() {
    mode_t const mask = umask(0);
    umask(mask);
    return NEW_FILE_MODE & ~mask;
}

std::string folderOf(std::string const& path) {
    auto const folder = std::filesystem::path(path).parent_path();
    return folder.empty() ? "." : folder.string();
}

} // namespace

SafeOutput::SafeOutput(std::string const& path) : out(path), target(path) {
    examineTarget();
    createTemporary();
}

void SafeOutput::examineTarget() {
    struct stat status;
    if (stat(out.c_str(), &status) != 0) {
        if (errno != ENOENT || out.empty())
            throw systemFailure(ExitCode::WRITE_FAILED, out, "cannot be written");
        mode = modeOfNewFiles();
        return;
    }
    if (!S_ISREG(status.st_mode))
        throw Failure(ExitCode::WRITE_FAILED, out, "is no regular file and cannot be replaced");
    if (access(out.c_str(), W_OK) != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "cannot be written");
    std::error_code error;
    target = std::filesystem::canonical(out, error).string();
    if (error)
        throw Failure(ExitCode::WRITE_FAILED, out, "cannot be found: " + error.message());
    mode = status.st_mode & PERMISSIONS;
    replaces = true;
    owner = status.st_uid;
    group = status.st_gid;
}

void SafeOutput::createTemporary() {
    std::string name = folderOf(target) + "/.motionphoto-XXXXXX";
    SignalsHeld const held;
    // The handler's note has a fixed size; a path that does not fit is one the system would refuse as well.
    if (name.size() >= sizeof abandoned) {
        errno = ENAMETOOLONG;
        throw systemFailure(ExitCode::WRITE_FAILED, out, "cannot be written");
    }
    fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "cannot be written");
    temporary = name;
    std::memcpy(abandoned, name.c_str(), name.size() + 1);
    catchDeadlySignals();
}

SafeOutput::~SafeOutput() {
    if (!temporary.empty()) {
        SignalsHeld const held;
        unlink(temporary.c_str());
        forgetTemporary();
    }
    close(fd);
}

void SafeOutput::publish() {
    // The owner goes first: a change of owner may clear permission bits. Only root may give a file away.
    if (replaces && fchown(fd, owner, group) != 0 && errno != EPERM)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "its owner cannot be kept");
    if (fchmod(fd, mode) != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "its permissions cannot be set");
    if (fsync(fd) != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, out, "fail to bring it to disk");
    {
        SignalsHeld const held;
        if (std::rename(temporary.c_str(), target.c_str()) != 0)
            throw systemFailure(ExitCode::WRITE_FAILED, out, "fail to rename the finished file");
        forgetTemporary();
    }
    // From here on OUT is the new file. Should this fail, only how soon its name is on disk is in doubt: after a loss
    // of power either the old file or the new one stands there, each of them whole. So the result is no failure.
    int const folder = open(folderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        fsync(folder);
        close(folder);
    }
}

void SafeOutput::forgetTemporary() {
    temporary.clear();
    abandoned[0] = '\0';
}

} // namespace motionphoto
