// SPDX-License-Identifier: Apache-2.0
#include "MediaFile.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MediaFile";
/// Reads up to this many bytes are not worth the calls that ask how much the file still holds.
constexpr size_t SMALL_READ = 4096;
constexpr size_t ZERO_BLOCK = 64 * 1024;
constexpr uint16_t JPEG_START = 0xD8FF; ///< FF D8 read in the machine's order
constexpr size_t TYPE_BYTES = 12;       ///< size, type and major brand of a leading box
constexpr size_t BRAND_OFFSET = 4;
constexpr std::string_view HEIC_BRANDS[] = {"ftypheic", "ftypmif1", "ftypheix", "ftyphevc"};
constexpr std::string_view MP4_BRANDS[] = {"ftypmp42"};
constexpr std::string_view QUICKTIME_BRANDS[] = {"ftypqt  "};

int flagsOf(std::string const& mode) {
    if (mode == "w")
        return O_WRONLY;
    return mode == "rw" ? O_RDWR : O_RDONLY;
}

/// A seek's result in the library's width: what does not fit, or failed, is 0.
uint32_t addressable(off64_t offset) {
    return offset < 0 || offset > off64_t{UINT32_MAX} ? 0 : static_cast<uint32_t>(offset);
}

/// -1 where there is none to ask for. A regular file's size is one call; others are asked by seeking.
off64_t sizeKeepingPosition(int fd) {
    struct stat64 status;
    if (fstat64(fd, &status) == 0 && S_ISREG(status.st_mode))
        return status.st_size;
    off64_t const here = lseek64(fd, 0, SEEK_CUR);
    off64_t const end = lseek64(fd, 0, SEEK_END);
    if (lseek64(fd, here, SEEK_SET) != here)
        throw ErrorAt().as(Error::Code::READ_FAILED)("Failed to restore file position to %zu",
                                                     static_cast<size_t>(here));
    return end;
}

/// The bytes of a read that is about to be allocated: `wanted`, or fewer when a seekable file holds fewer.
size_t boundedByFile(int fd, size_t wanted) {
    if (wanted <= SMALL_READ)
        return wanted;
    off64_t const here = lseek64(fd, 0, SEEK_CUR);
    if (here < 0)
        return wanted;
    off64_t const left = std::max<off64_t>(sizeKeepingPosition(fd) - here, 0);
    return static_cast<size_t>(std::min(left, static_cast<off64_t>(wanted)));
}

bool isUnsupported(int failure) {
    return failure == EOPNOTSUPP || failure == EINVAL || failure == ENOSYS;
}

int setSize(int fd, uint32_t size) {
    int result = 0;
    do
        result = ftruncate64(fd, size);
    while (result != 0 && errno == EINTR);
    return result;
}

/// For file systems that cannot reserve: room is certain once it has been written.
int extendWithZeros(int fd, off64_t from, off64_t to) {
    std::vector<char> const zeros(static_cast<size_t>(std::min<off64_t>(to - from, ZERO_BLOCK)));
    off64_t const here = lseek64(fd, 0, SEEK_CUR);
    int failure = lseek64(fd, from, SEEK_SET) == from ? 0 : EIO;
    while (failure == 0 && from < to) {
        auto const block = static_cast<size_t>(std::min(to - from, static_cast<off64_t>(zeros.size())));
        ssize_t const written = ::write(fd, zeros.data(), block);
        if (written > 0)
            from += written;
        else if (written == 0)
            failure = ENOSPC;
        else if (errno != EINTR)
            failure = errno;
    }
    return lseek64(fd, here, SEEK_SET) == here ? failure : EIO;
}

} // namespace

// Construction. -------------------------------------------------------------------------------------------------------

MediaFile::MediaFile(int descriptor) : fd(dup(descriptor)), path("unknown") {
    if (descriptor > 0)
        return;
    if (fd >= 0)
        close(fd);
    throw ErrorAt()("Invalid file descriptor provided: %d", descriptor);
}

MediaFile::MediaFile(std::string const& name, std::string const& mode)
    : fd(-1), path(name) { // no descriptor is held while memory can run out
    fd = ::open(name.c_str(), flagsOf(mode) | O_LARGEFILE | O_CLOEXEC, 0777);
    if (fd > 0)
        return;
    if (fd == 0)
        close(fd);
    throw ErrorAt().as(Error::Code::READ_FAILED, *this)("fail to open file %s", path.c_str());
}

MediaFile::~MediaFile() {
    if (fd < 1)
        return;
    LOGI("close MediaFile: fd=%d", fd);
    close(fd);
}

bool MediaFile::isFdsDup(int a, int b) {
    struct stat64 first;
    struct stat64 second;
    if (fstat64(a, &first) != 0) {
        LOGE("fstat for fdA failed");
        return false;
    }
    if (fstat64(b, &second) != 0) {
        LOGE("fstat for fdB failed");
        return false;
    }
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

std::string MediaFile::toString() const {
    return "fd=" + std::to_string(fd) + ", path=" + path;
}

// Position and size. --------------------------------------------------------------------------------------------------

uint32_t MediaFile::position(uint32_t offset) const {
    return addressable(lseek64(fd, offset, SEEK_SET));
}

uint32_t MediaFile::position() const {
    return addressable(lseek64(fd, 0, SEEK_CUR));
}

uint32_t MediaFile::size() const {
    return addressable(sizeKeepingPosition(fd));
}

void MediaFile::skipNBytes(uint32_t n) const {
    uint64_t const target = uint64_t{checked::positionOf(*this)} + n;
    if (target > UINT32_MAX || position(static_cast<uint32_t>(target)) != target)
        throw ErrorAt().as(Error::Code::DAMAGED, *this)("Failed to skip %zu bytes to position %zu", size_t{n},
                                                        static_cast<size_t>(target));
}

// Reading. ------------------------------------------------------------------------------------------------------------

ssize_t MediaFile::read(void* buffer, uint32_t n) const {
    return ::read(fd, buffer, n);
}

void MediaFile::readWhole(void* value, size_t size) const {
    ssize_t const n = ::read(fd, value, size);
    if (n != static_cast<ssize_t>(size)) {
        auto const count = static_cast<size_t>(std::max<ssize_t>(n, 0));
        throw ErrorAt(__LINE__, "metadata_utils/include/MediaFile")
            .as(n < 0 ? Error::Code::READ_FAILED : Error::Code::DAMAGED, *this)("fail to read bytes: %zu, expected %zu",
                                                                                count, size);
    }
}

template<class T>
std::vector<T> MediaFile::read(uint32_t n) const {
    uint64_t const wanted = uint64_t{n} * sizeof(T);
    size_t const held = boundedByFile(fd, static_cast<size_t>(std::min<uint64_t>(wanted, SIZE_MAX)));
    std::vector<T> elements((held + sizeof(T) - 1) / sizeof(T));
    ssize_t const count = ::read(fd, elements.data(), held);
    if (count < 0 || static_cast<uint64_t>(count) != wanted)
        LOGE("fail to read bytes: %zd, expected %zu", count, static_cast<size_t>(wanted));
    if (count < 0)
        throw std::length_error("failed read");
    elements.resize(static_cast<size_t>(count) / sizeof(T));
    return elements;
}

template std::vector<char> MediaFile::read(uint32_t n) const;
template std::vector<int32_t> MediaFile::read(uint32_t n) const;

ByteBuffer MediaFile::readAllBytes() const {
    uint32_t const expected = size();
    std::vector<uint8_t> bytes(expected);
    uint32_t const start = checked::positionOf(*this);
    if (lseek64(fd, 0, SEEK_SET) != 0)
        throw ErrorAt().as(Error::Code::READ_FAILED, *this)("Failed to reset file position to 0");
    size_t count = 0;
    ssize_t last = 1;
    while (count < bytes.size() && last > 0) {
        last = ::read(fd, bytes.data() + count, bytes.size() - count);
        count += static_cast<size_t>(std::max<ssize_t>(last, 0));
    }
    if (count < bytes.size())
        LOGE("fail to read bytes: read %zd, expected %zu", static_cast<ssize_t>(count), bytes.size());
    if (start != 0 && position(start) != start)
        throw ErrorAt().as(Error::Code::READ_FAILED, *this)("Failed to restore file position to %zu", size_t{start});
    if (count != expected)
        throw ErrorAt().as(last < 0 ? Error::Code::READ_FAILED : Error::Code::CHANGED,
                           *this)("readBytes not matched size: %zu - %zu", count, size_t{expected});
    return ByteBuffer(std::move(bytes));
}

// Writing. ------------------------------------------------------------------------------------------------------------

ssize_t MediaFile::write(void const* bytes, uint32_t n) {
    ssize_t const written = ::write(fd, bytes, n);
    changeCount += written > 0 ? 1 : 0;
    return written;
}

ssize_t MediaFile::write(std::string const& bytes) {
    return write(static_cast<void const*>(bytes.data()), static_cast<uint32_t>(bytes.size()));
}

int MediaFile::truncate(uint32_t size) {
    off64_t const before = sizeKeepingPosition(fd);
    heldSize = 0;
    int const result = setSize(fd, size);
    changeCount += result == 0 && before != off64_t{size} ? 1 : 0;
    return result;
}

int MediaFile::reserve(uint32_t size) {
    off64_t const end = sizeKeepingPosition(fd);
    if (end < 0)
        return EBADF;
    if (off64_t{size} <= end)
        return 0;
    int failure = 0;
    if (size <= heldSize) { // which memory's file system takes as long to find again as to give out
        failure = setSize(fd, size) == 0 ? 0 : errno;
    } else {
        do
            failure = posix_fallocate64(fd, end, off64_t{size} - end);
        while (failure == EINTR);
    }
    if (isUnsupported(failure))
        failure = extendWithZeros(fd, end, size);
    changeCount += failure == 0 ? 1 : 0;
    return failure;
}

int MediaFile::reserveBehindEnd(uint32_t size) {
    off64_t const end = sizeKeepingPosition(fd);
    if (end < 0)
        return EBADF;
    if (off64_t{size} <= end)
        return 0;
    int result = 0;
    do
        result = fallocate64(fd, FALLOC_FL_KEEP_SIZE, end, off64_t{size} - end);
    while (result != 0 && errno == EINTR);
    if (result == 0)
        return 0;
    return isUnsupported(errno) ? EOPNOTSUPP : errno;
}

/// Cutting a file where it ends gives back what lies behind. One that has grown to what was held has nothing there:
/// cutting it would only wait for the disk to take its last block.
void MediaFile::releaseSpace(uint32_t size) {
    off64_t const end = sizeKeepingPosition(fd);
    if (end >= 0 && end < off64_t{size})
        truncate(static_cast<uint32_t>(end));
    heldSize = 0;
}

// Type detection. -----------------------------------------------------------------------------------------------------

bool MediaFile::matched(std::string const& expected) const {
    std::string bytes(expected.size(), '\0');
    ssize_t const n = ::read(fd, bytes.data(), bytes.size());
    return n >= 0 && static_cast<size_t>(n) == expected.size() && bytes == expected;
}

bool MediaFile::matched(std::array<unsigned char, 4> const& expected) const {
    return matched(std::string(expected.begin(), expected.end()));
}

bool MediaFile::isBoxHeaderTypeOf(std::shared_ptr<MediaFile> const& file, std::vector<std::string> const& candidates) {
    uint32_t const typePosition = checked::positionOf(*file) + 4;
    return std::any_of(candidates.begin(), candidates.end(), [&](std::string const& candidate) {
        if (file->position(typePosition) != typePosition)
            throw ErrorAt()("Failed to set file position to %zu", size_t{typePosition});
        return file->matched(candidate);
    });
}

bool MediaFile::isJPEG(std::shared_ptr<MediaFile> const& file) {
    return file->read<uint16_t, uint16_t>() == JPEG_START;
}

bool MediaFile::isHEIC(std::shared_ptr<MediaFile> const& file) {
    return isBoxHeaderTypeOf(file, std::vector<std::string>(std::begin(HEIC_BRANDS), std::end(HEIC_BRANDS)));
}

bool MediaFile::isMP4Video(std::shared_ptr<MediaFile> const& file) {
    return isBoxHeaderTypeOf(file, std::vector<std::string>(std::begin(MP4_BRANDS), std::end(MP4_BRANDS)));
}

bool MediaFile::isMOVVideo(std::shared_ptr<MediaFile> const& file) {
    return isBoxHeaderTypeOf(file, std::vector<std::string>(std::begin(QUICKTIME_BRANDS), std::end(QUICKTIME_BRANDS)));
}

bool MediaFile::checkFileType(std::function<bool()> const& test, long offset) const {
    try {
        if (off64_t const from = checked::offsetFrom(offset); from < 0 || lseek64(fd, from, SEEK_SET) != from)
            throw ErrorAt()("Failed to set file position to %ld", offset);
        return test();
    } catch (std::exception const& exception) {
        LOGE("fail to read mime type: %s", exception.what());
        return false;
    }
}

/// The bytes that tell a file's type. A pipe, which has no position to read from, has none; any other read that the
/// system refuses throws.
std::string MediaFile::typeBytes() const {
    std::string bytes(TYPE_BYTES, '\0');
    size_t count = 0;
    for (ssize_t last = 1; count < bytes.size() && last != 0;) { // a short read is not the file's end
        last = pread64(fd, bytes.data() + count, bytes.size() - count, static_cast<off64_t>(count));
        if (last < 0 && errno == ESPIPE)
            break;
        if (last < 0 && errno != EINTR)
            throw ErrorAt().as(Error::Code::READ_FAILED, *this)("fail to read bytes: %zu, expected %zu: %s", count,
                                                                bytes.size(), std::strerror(errno));
        count += static_cast<size_t>(std::max<ssize_t>(last, 0));
    }
    if (count < sizeof JPEG_START)
        LOGE("fail to read mime type: %s", ErrorAt(__LINE__, "metadata_utils/include/MediaFile")(
                                               "fail to read bytes: %zu, expected %zu", count, sizeof JPEG_START)
                                               .what());
    bytes.resize(count);
    return bytes;
}

MediaDefs::MimeType MediaFile::mimeType() const {
    using enum MediaDefs::MimeType;
    if (cachedMimeType != NONE)
        return cachedMimeType;
    static_cast<void>(shared_from_this()); // std::bad_weak_ptr for an object that nobody shares
    std::string const bytes = typeBytes();
    auto const begins = [brand =
                             std::string_view(bytes).substr(std::min(bytes.size(), BRAND_OFFSET))](auto const& brands) {
        return std::find(std::begin(brands), std::end(brands), brand) != std::end(brands);
    };
    struct Type {
        bool isIt;
        MediaDefs::MimeType type;
        char const* name;
    };
    for (auto const& [isIt, type, name] :
         {Type{bytes.starts_with("\xFF\xD8"), IMAGE_JPEG, "JPEG image"},
          Type{begins(HEIC_BRANDS), IMAGE_HEIC, "HEIC image"}, Type{begins(MP4_BRANDS), VIDEO_MP4, "mp4 video"},
          Type{begins(QUICKTIME_BRANDS), VIDEO_QUICKTIME, "mov video"}}) {
        if (!isIt)
            continue;
        LOGI("mimeType: %s", name);
        return cachedMimeType = type;
    }
    throw ErrorAt().as(Error::Code::UNSUPPORTED)("not supported or broken file type");
}

} // namespace android::lumo
