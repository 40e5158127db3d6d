// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include <sys/stat.h>

namespace motionphoto {

/// Who may do what with a file: owner, group, mode, and the access list where there is one.
struct FileRights {
    uid_t owner = 0;
    gid_t group = 0;
    mode_t mode = 0; ///< permission bits only; with an access list the group's are its mask
    std::optional<std::string> accessList;

    static FileRights of(int fd);
};

/// What tells a file from another one, and from itself after a change.
struct FileState {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    /// A Failure where the system does not tell.
    static FileState of(int fd, std::string const& path);
    /// Whether it is what stands under the name now.
    bool standsAt(std::string const& path) const;
};

/// What a result may become.
struct RightsWanted {
    FileRights still;                   ///< the photo it was made from
    std::optional<FileRights> replaced; ///< the file that stands under its name
    bool preserve = true;               ///< a new file takes owner and mode of the still, else of the process
};

/// Gives an open file of ours, which nobody else may read yet, the rights of what it replaces, or of the still when it
/// is new. The result is never readable wider than either: where the owner cannot be kept the group alone is, where
/// that cannot be kept neither, the group may nothing; an access list is kept or only the owner may read. 0 or errno.
int applyRights(int fd, RightsWanted const& wanted);

/// Times and the user's extended attributes of one file for another, as far as the system lets them be set.
void copyTimesAndAttributes(int from, int to);

} // namespace motionphoto
