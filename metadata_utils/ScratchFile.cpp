// SPDX-License-Identifier: Apache-2.0
#include "ScratchFile.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MemoryFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace android::lumo {

namespace {

/// A file that is gone with its descriptor; -1 with errno set where the folder takes none.
int openNameless(std::string const& folder) {
    if (int const fd = open64(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600); fd >= 0)
        return fd;
    // A file system without nameless files: one with a name, for a moment.
    std::string name = folder + "/motion.XXXXXX";
    int const fd = mkostemp64(name.data(), O_CLOEXEC);
    if (fd >= 0)
        unlink(name.c_str());
    return fd;
}

/// Where the file stands; empty for one that has no name (any more).
std::string folderOf(MediaFile const& file) {
    struct stat64 status;
    if (fstat64(file.getFd(), &status) != 0 || status.st_nlink == 0)
        return {};
    std::error_code failure;
    auto const path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file.getFd()), failure);
    return failure ? std::string() : path.parent_path().string();
}

} // namespace

std::shared_ptr<MediaFile> scratchFile(std::string const& folder) {
    std::error_code failure;
    auto const place = folder.empty() ? std::filesystem::temp_directory_path(failure).string() : folder;
    int const fd = place.empty() ? -1 : openNameless(place);
    if (fd >= 0)
        return checked::owning(fd);
    if (folder.empty())
        return memoryFile("", 0);
    throw ErrorAt().as(Error::Code::WRITE_FAILED)("no temporary file in %s: %s", folder.c_str(), std::strerror(errno));
}

std::shared_ptr<MediaFile> scratchBeside(MediaFile const& file) {
    if (auto const folder = folderOf(file); !folder.empty()) {
        if (int const fd = openNameless(folder); fd >= 0)
            return checked::owning(fd);
    }
    return scratchFile({});
}

} // namespace android::lumo
