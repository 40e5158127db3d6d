// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"
#include "hboxd.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// What the fuzz targets share: a file in memory, the errors that are a right answer, and checks that stop the run.
namespace android::lumo::fuzz {

/// Throws std::logic_error, which nothing catches but a test: under a fuzzer it ends the run, and the input is kept.
[[noreturn]] void fail(char const* expected, char const* file, int line);
#define FUZZ_REQUIRE(condition)                                                                                        \
    do {                                                                                                               \
        if (!(condition))                                                                                              \
            ::android::lumo::fuzz::fail(#condition, __FILE__, __LINE__);                                               \
    } while (false)

/// A file that never touches a disk.
class MemoryFile {
public:
    explicit MemoryFile(std::string_view content = {});
    ~MemoryFile();
    MemoryFile(MemoryFile const&) = delete;
    MemoryFile& operator=(MemoryFile const&) = delete;

    /// Each with a position of its own.
    std::shared_ptr<MediaFile> open() const;
    std::string bytes() const;
    void assign(std::string_view content);

private:
    int fd;
};

/// The text of the error that refused the action, nothing when it went through. What the library promises for hostile
/// bytes is a std::runtime_error or the toolkit's error; any other exception ends the run.
std::optional<std::string> refusal(std::function<void()> const& action);
inline bool goesThrough(std::function<void()> const& action) {
    return !refusal(action);
}

/// A demuxer over its own copy of a file; the handle is null when the file does not open.
class Demuxer {
public:
    explicit Demuxer(std::string_view file);
    ~Demuxer();
    Demuxer(Demuxer const&) = delete;
    Demuxer& operator=(Demuxer const&) = delete;

    /// An item's stored bytes.
    std::optional<std::string> frame(uint32_t id) const;

    HBOXD_HANDLE handle = nullptr;

private:
    std::string bytes;
    HBOX_MEMORY_STREAM stream{};
};

/// Every question that readers and views answer about a file; sizes and places lie in it.
void askEverything(MemoryFile const& file);

/// Makes the still a motion photo, or takes its video out: into another file and in place, which must give the same. A
/// refusal must have left the file alone; otherwise a fresh view must read the video, or none.
enum class VideoEdit { Add, Remove };
void editVideo(MemoryFile const& file, VideoEdit edit);

/// Takes the video of a photo of any origin out, and carries it into a trailer and back; a refusal must have left the
/// file alone, and no video is found where it was taken out.
void editPublished(std::string const& photo);

inline std::string_view text(uint8_t const* data, size_t size) {
    return {reinterpret_cast<char const*>(data), size};
}

} // namespace android::lumo::fuzz
