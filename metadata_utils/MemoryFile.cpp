// SPDX-License-Identifier: Apache-2.0
#include "MemoryFile.h"

#include "CheckedFile.h"

#include <cerrno>
#include <cstring>

#include <sys/mman.h>

namespace android::lumo {

std::shared_ptr<MediaFile> memoryFile(void const* bytes, size_t size) {
    checked::sizeOf(size);
    int const fd = memfd_create("photo", MFD_CLOEXEC);
    if (fd < 0)
        throw ErrorAt().as(Error::Code::WRITE_FAILED)("no file in memory: %s", std::strerror(errno));
    auto const file = checked::owning(fd);
    checked::write(*file, bytes, size);
    checked::seek(*file, 0);
    return file;
}

} // namespace android::lumo
