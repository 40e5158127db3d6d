// SPDX-License-Identifier: Apache-2.0
#include "FileRights.h"

#include "Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/xattr.h>
#include <unistd.h>

namespace motionphoto {

namespace {

constexpr char ACCESS_LIST[] = "system.posix_acl_access";
constexpr char USER_ATTRIBUTES[] = "user.";
constexpr size_t MAX_ATTRIBUTE = 64 * 1024; ///< of the system
constexpr mode_t PERMISSIONS = 0777;
constexpr mode_t NEW_FILE_MODE = 0666;
constexpr mode_t OWNER = 0700, GROUP = 0070, OTHERS = 0007;

std::optional<std::string> attribute(int fd, char const* name) {
    std::string value(MAX_ATTRIBUTE, '\0');
    ssize_t size = fgetxattr(fd, name, value.data(), value.size());
    if (size < 0 && errno == EBADF) { // a descriptor that only names its file
        auto const path = "/proc/self/fd/" + std::to_string(fd);
        size = getxattr(path.c_str(), name, value.data(), value.size());
    }
    if (size < 0)
        return std::nullopt;
    value.resize(static_cast<size_t>(size));
    return value;
}

/// Nothing where there is none; one that cannot be read might keep somebody out.
std::optional<std::string> accessListOf(int fd) {
    auto const list = attribute(fd, ACCESS_LIST);
    bool const isNone = errno == ENODATA || errno == ENOTSUP || errno == ENOSYS;
    if (!list && !isNone)
        throw systemFailure(ExitCode::BAD_INPUT, "", "an access list cannot be read");
    return list;
}

mode_t modeOfNewFiles() {
    static mode_t const mask = [] {
        mode_t const current = umask(0);
        umask(current);
        return current;
    }();
    return NEW_FILE_MODE & ~mask;
}

/// Of `mode`, what lets nobody in whom `limit` keeps out.
mode_t narrowed(mode_t mode, gid_t group, bool hasList, std::optional<std::string> const& list,
                FileRights const& limit) {
    if (limit.accessList && !(hasList && limit.accessList == list))
        return mode & OWNER; // what the list says cannot be said in bits
    mode_t forGroup = limit.mode & GROUP, forOthers = limit.mode & OTHERS;
    if (hasList && !limit.accessList)
        forGroup &= forOthers << 3; // whom the list names may be anybody there
    if (group != limit.group) {
        forOthers &= forGroup >> 3; // members of the limit's group are others here
        forGroup = 0;
    }
    return mode & (OWNER | forGroup | forOthers);
}

} // namespace

FileRights FileRights::of(int fd) {
    struct stat status {};
    fstat(fd, &status);
    return {status.st_uid, status.st_gid, status.st_mode & PERMISSIONS, accessListOf(fd)};
}

FileState FileState::of(int fd, std::string const& path) {
    struct stat status {};
    if (fstat(fd, &status) != 0)
        throw systemFailure(ExitCode::BAD_INPUT, path, "cannot be asked for its size");
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

bool FileState::standsAt(std::string const& path) const {
    auto const same = [](timespec const& a, timespec const& b) {
        return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    };
    struct stat now {};
    return stat(path.c_str(), &now) == 0 && now.st_dev == device && now.st_ino == inode && now.st_size == size &&
           same(now.st_mtim, modified) && same(now.st_ctim, changed);
}

int applyRights(int fd, RightsWanted const& wanted) {
    FileRights const& model = wanted.replaced ? *wanted.replaced : wanted.still;
    bool const keep = wanted.replaced || wanted.preserve;
    bool ownerKept = false, groupKept = false;
    if (keep) {
        // The owner goes before the mode: a change of owner may clear permission bits. Only root may give a file away.
        ownerKept = groupKept = fchown(fd, model.owner, model.group) == 0;
        if (!groupKept)
            groupKept = fchown(fd, static_cast<uid_t>(-1), model.group) == 0;
    }
    struct stat status {};
    if (fstat(fd, &status) != 0)
        return errno;
    auto const& list = model.accessList;
    bool const hasList = ownerKept && list && fsetxattr(fd, ACCESS_LIST, list->data(), list->size(), 0) == 0;
    if (!hasList)
        fremovexattr(fd, ACCESS_LIST); // one that the folder gives to every new file
    mode_t mode = keep ? model.mode : modeOfNewFiles() & model.mode;
    mode = narrowed(mode, status.st_gid, hasList, list, wanted.still);
    if (wanted.replaced)
        mode = narrowed(mode, status.st_gid, hasList, list, *wanted.replaced);
    return fchmod(fd, mode) == 0 ? 0 : errno;
}

void copyTimesAndAttributes(int from, int to) {
    ssize_t const size = flistxattr(from, nullptr, 0);
    std::string names(static_cast<size_t>(std::max<ssize_t>(size, 0)), '\0');
    if (size > 0 && flistxattr(from, names.data(), names.size()) == size) {
        for (size_t start = 0; start < names.size(); start += std::strlen(&names[start]) + 1) {
            char const* const name = &names[start];
            if (std::strncmp(name, USER_ATTRIBUTES, sizeof USER_ATTRIBUTES - 1) != 0)
                continue;
            if (auto const value = attribute(from, name))
                fsetxattr(to, name, value->data(), value->size(), 0);
        }
    }
    struct stat status {};
    if (fstat(from, &status) == 0) {
        timespec const times[] = {status.st_atim, status.st_mtim};
        futimens(to, times);
    }
}

} // namespace motionphoto
