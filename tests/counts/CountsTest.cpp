// SPDX-License-Identifier: Apache-2.0
// What each operation asks of the system, as upper bounds: calls, bytes read, bytes written. The bounds are what was
// measured and a little more, so that work done twice fails here long before anybody feels it.
#include "MotionPhotoEdit.h"
#include "support/HeicBuilder.h"
#include "support/TempFile.h"

#include <android/log.h>

#include <array>

#include <sys/stat.h>

namespace {
size_t others = 0; ///< calls that neither read nor write, as far as an edit makes many of them or one that takes long
}

// The names the linker's --wrap gives to a call and to the C library's own.
extern "C" {
off64_t __real_lseek64(int fd, off64_t distance, int whence);
int __real_fstat64(int fd, struct stat64* status);
int __real_ftruncate64(int fd, off64_t size);
int __real_fallocate64(int fd, int mode, off64_t from, off64_t n);
int __real_posix_fallocate64(int fd, off64_t from, off64_t n);

off64_t __wrap_lseek64(int fd, off64_t distance, int whence) {
    ++others;
    return __real_lseek64(fd, distance, whence);
}

int __wrap_fstat64(int fd, struct stat64* status) {
    ++others;
    return __real_fstat64(fd, status);
}

int __wrap_ftruncate64(int fd, off64_t size) {
    ++others;
    return __real_ftruncate64(fd, size);
}

int __wrap_fallocate64(int fd, int mode, off64_t from, off64_t n) {
    ++others;
    return __real_fallocate64(fd, mode, from, n);
}

int __wrap_posix_fallocate64(int fd, off64_t from, off64_t n) {
    ++others;
    return __real_posix_fallocate64(fd, from, n);
}
}

namespace android::lumo::test {
namespace {

struct Cost {
    size_t calls, read, written;
};

/// Reads and writes of all kinds as the system counts them, whichever call makes them.
Cost soFar() {
    std::ifstream io("/proc/self/io");
    std::string name;
    std::array<size_t, 4> values{}; // bytes read, bytes written, calls that read, calls that write
    for (size_t& value : values)
        io >> name >> value;
    if (!io || values[0] == 0)
        throw std::runtime_error("the system does not count: /proc/self/io");
    return {values[2] + values[3] + others, values[0], values[1]};
}

constexpr size_t MB = 1'000'000;

/// The sample with a 'free' box behind it that takes no room on the disk.
std::string clipOf(TempDir const& folder, size_t size) {
    std::string const path = folder.file(std::to_string(size) + ".mp4"), clip = bytesOf(SAMPLES_DIR "/clip.mp4");
    writeBytes(path, clip + bigEndian(size - clip.size(), 4) + "free");
    std::filesystem::resize_file(path, size);
    return path;
}

using Action = std::function<void(std::string const& in, std::string const& video, std::string const& out)>;

void parse(std::string const& in, std::string const&, std::string const&) {
    auto const photo = MotionPhotoInfo::parse(open(in, "r"));
    EXPECT_TRUE(photo->isValid() && photo->getXMPMotionPhotoVersion() > 0 && photo->getVideoSize() > 0);
}

/// Stages and commits, in place or into another file.
Action editing(bool inPlace, std::function<void(MotionPhotoEdit&, std::string const& video)> const& stage) {
    return [=](std::string const& in, std::string const& video, std::string const& out) {
        auto const edit = MotionPhotoInfo::parse(open(in, inPlace ? "rw" : "r"))->edit();
        stage(*edit, video);
        inPlace ? edit->commit() : edit->commit(open(out));
    };
}

Action adding(bool inPlace) {
    return editing(inPlace, [](auto& edit, auto const& video) { edit.addVideo(open(video, "r")); });
}

Action removing(bool inPlace) {
    return editing(inPlace, [](auto& edit, auto const&) { edit.removeVideo(nullptr); });
}

Action const putRecord = editing(
    true, [](auto& edit, auto const&) { edit.addQRTData(4001, "Counts", ByteBuffer(std::vector<uint8_t>(4))); });

/// Works on a still, or on one with the video in it; the video's bytes come on top of the bounds for bytes.
struct Operation {
    char const* name;
    bool onPhoto;
    Action run;
    Cost jpeg, heic;
    size_t videoRead, videoWritten; ///< how many times
};

TEST(Counts, StayWithinTheirBoundsWhateverTheVideosSize) {
    constexpr bool STILL = false, PHOTO = true;
    Operation const operations[] = {
        {"parse", PHOTO, parse, {20, 6'000, 0}, {23, 6'000, 0}, 0, 0},
        {"add to another file", STILL, adding(false), {99, 49'000, 23'000}, {126, 170'000, 105'000}, 1, 1},
        {"add", STILL, adding(true), {96, 51'000, 21'000}, {144, 199'000, 106'500}, 1, 1},
        {"replace to another file", PHOTO, adding(false), {110, 57'000, 23'000}, {224, 231'000, 105'500}, 1, 1},
        {"replace", PHOTO, adding(true), {60, 20'000, 500}, {160, 97'000, 500}, 1, 1},
        {"remove to another file", PHOTO, removing(false), {75, 43'500, 23'000}, {154, 185'000, 105'500}, 0, 0},
        {"remove", PHOTO, removing(true), {54, 23'500, 1'500}, {129, 93'500, 1'500}, 0, 0},
        {"a record", PHOTO, putRecord, {63, 23'500, 1'500}, {108, 70'500, 1'500}, 0, 0},
    };
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT); // lines of the log are no work on a file
    TempDir const folder;
    std::string const stills[] = {bytesOf(SAMPLES_DIR "/still.jpg"),
                                  buildHeic({.rows = 7, .columns = 7, .filler = 2'000})};
    for (bool const isHeic : {false, true}) {
        for (size_t const size : {MB, 60 * MB}) {
            std::string const video = clipOf(folder, size), photo = folder.file("photo");
            writeBytes(photo, stills[isHeic]);
            adding(true)(photo, video, {});
            for (auto const& [name, onPhoto, run, jpeg, heic, videoRead, videoWritten] : operations) {
                std::string const in = folder.file("in"), out = folder.file("out");
                onPhoto ? void(std::filesystem::copy_file(photo, in, std::filesystem::copy_options::overwrite_existing))
                        : writeBytes(in, stills[isHeic]);
                writeBytes(out, {});
                Cost const before = soFar();
                run(in, video, out);
                Cost const after = soFar();
                auto const& bound = isHeic ? heic : jpeg;
                SCOPED_TRACE(std::string(name) + (isHeic ? ", HEIC, " : ", JPEG, ") + std::to_string(size));
                EXPECT_LE(after.calls - before.calls, bound.calls);
                EXPECT_LE(after.read - before.read, bound.read + videoRead * size);
                EXPECT_LE(after.written - before.written, bound.written + videoWritten * size);
            }
        }
    }
}

} // namespace
} // namespace android::lumo::test
