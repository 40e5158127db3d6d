// SPDX-License-Identifier: Apache-2.0
#include "MemoryFile.h"

#include "CheckedFile.h"

#include <cerrno>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

namespace android::lumo {

std::shared_ptr<MediaFile> memoryFile(void const* bytes, size_t size) {
    checked::sizeOf(size);
    int const fd = memfd_create("photo", MFD_CLOEXEC);
    if (fd <= 0) {
        int const failure = errno;
        if (fd == 0)
            close(fd);
        throw ErrorAt().as(Error::Code::WRITE_FAILED)("no file in memory: %s", std::strerror(failure));
    }
    std::shared_ptr<MediaFile> file;
    try {
        file = std::make_shared<MediaFile>(fd); // has a descriptor of its own
    } catch (...) {
        close(fd);
        throw;
    }
    close(fd);
    checked::write(*file, bytes, size);
    checked::seek(*file, 0);
    return file;
}

} // namespace android::lumo
