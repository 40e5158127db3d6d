// SPDX-License-Identifier: Apache-2.0
#include "FuzzSupport.h"

#include "MotionPhotoEdit.h"
#include "XMPToolkit.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

/// No input grows to more than some kilobytes of file; one that would is stopped by SIGXFSZ and kept.
constexpr rlim_t MAX_FILE = 64 << 20;

} // namespace

extern "C" {

int LLVMFuzzerInitialize(int* argc, char*** argv);
int LLVMFuzzerInitialize(int*, char***) {
    rlimit const limit{MAX_FILE, MAX_FILE};
    setrlimit(RLIMIT_FSIZE, &limit);
    return 0;
}

// The log's lines are formatted, since that is where a bad argument would show, and thrown away.
int __android_log_is_loggable(int, char const*, int) {
    return 1;
}
int __android_log_vprint(int, char const*, char const* format, va_list arguments) {
    char line[512];
    return std::vsnprintf(line, sizeof line, format, arguments);
}
}

namespace android::lumo::fuzz {

void fail(char const* expected, char const* file, int line) {
    throw std::logic_error(std::string(file) + ':' + std::to_string(line) + ": does not hold: " + expected);
}

MemoryFile::MemoryFile(std::string_view content) : fd(memfd_create("fuzz", MFD_CLOEXEC)) {
    FUZZ_REQUIRE(fd > 0);
    assign(content);
}

MemoryFile::~MemoryFile() {
    close(fd);
}

void MemoryFile::assign(std::string_view content) {
    FUZZ_REQUIRE(ftruncate(fd, 0) == 0);
    FUZZ_REQUIRE(pwrite(fd, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()));
}

std::shared_ptr<MediaFile> MemoryFile::open() const {
    return std::make_shared<MediaFile>("/proc/self/fd/" + std::to_string(fd), "rw");
}

std::string MemoryFile::bytes() const {
    std::string content(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
    FUZZ_REQUIRE(pread(fd, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()));
    return content;
}

std::optional<std::string> refusal(std::function<void()> const& action) {
    try {
        action();
    } catch (std::runtime_error const& error) {
        FUZZ_REQUIRE(std::string_view(error.what()).starts_with('['));
        return error.what();
    } catch (XMP_Error const& error) {
        return error.GetErrMsg() != nullptr ? error.GetErrMsg() : "";
    }
    return std::nullopt;
}

Demuxer::Demuxer(std::string_view file) : bytes(file) {
    HBOX_STREAM_CALLBACKS callbacks;
    hbox_mfal_memory(&callbacks);
    stream = {reinterpret_cast<uint8_t*>(bytes.data()), static_cast<uint32_t>(bytes.size()), 0};
    handle = hboxd_create(&callbacks, &stream, nullptr);
}

Demuxer::~Demuxer() {
    hboxd_delete(handle);
}

std::optional<std::string> Demuxer::frame(uint32_t id) const {
    uint32_t size = 0;
    if (hboxd_get_image_frm(handle, id, nullptr, 0, &size) != HBOX_OK)
        return std::nullopt;
    std::string frame(size, '\0'); // exactly: a byte more is an overflow
    if (hboxd_get_image_frm(handle, id, frame.data(), size, &size) != HBOX_OK)
        return std::nullopt;
    return frame;
}

void editVideo(MemoryFile const& file, VideoEdit way) {
    // Longer than what a JPEG's record holds as a pointer; of bytes that cost the extractor no searches.
    static std::string const bytes = std::string("\0\0\0\x0C", 4) + "ftypmp42" + std::string(125100, 'V');
    static MemoryFile const video(bytes);
    std::string const before = file.bytes();
    MemoryFile const target("");
    auto const run = [&](std::function<void(MotionPhotoEdit&)> const& commit) {
        return goesThrough([&] {
            auto const edit = MotionPhotoInfo::parse(file.open())->edit();
            way == VideoEdit::Add ? edit->addVideo(video.open()) : edit->removeVideo(nullptr);
            commit(*edit);
        });
    };
    bool const isWritten = run([&](auto& edit) { edit.commit(target.open()); });
    FUZZ_REQUIRE(file.bytes() == before);
    bool const isDone = run([](auto& edit) { edit.commit(); });
    FUZZ_REQUIRE(isDone == isWritten);
    FUZZ_REQUIRE(file.bytes() == (isDone ? target.bytes() : before));
    if (!isDone)
        return;
    auto const photo = MotionPhotoInfo::parse(file.open());
    auto const now = photo->getVideo();
    FUZZ_REQUIRE(photo->isValid() == (way == VideoEdit::Add));
    FUZZ_REQUIRE(way == VideoEdit::Remove || std::string(now->data(), now->data() + now->size()) == bytes);
}

} // namespace android::lumo::fuzz
