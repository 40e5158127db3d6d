// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <stdlib.h>

/// Files for tests: made with given bytes, read back whole, gone when the test ends.
namespace android::lumo::test {

/// A folder of its own that disappears with the object.
class TempDir {
public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "metadata_utils.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no temporary folder " + name);
        folder = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    TempDir(TempDir const&) = delete;
    TempDir& operator=(TempDir const&) = delete;

    std::filesystem::path const& path() const { return folder; }
    std::string file(std::string const& name) const { return (folder / name).string(); }

private:
    std::filesystem::path folder;
};

inline std::string bytesOf(std::filesystem::path const& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    std::string bytes(in ? static_cast<size_t>(in.tellg()) : 0, '\0');
    if (!in.seekg(0).read(bytes.data(), static_cast<std::streamsize>(bytes.size())))
        throw std::runtime_error("cannot read " + path.string());
    return bytes;
}

inline void writeBytes(std::filesystem::path const& path, std::string_view bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush())
        throw std::runtime_error("cannot write " + path.string());
}

inline std::shared_ptr<MediaFile> open(std::filesystem::path const& path, std::string const& mode = "rw") {
    return std::make_shared<MediaFile>(path.string(), mode);
}

/// One file with given bytes in a folder of its own.
class TempFile {
public:
    explicit TempFile(std::string_view content = {}) : name(dir.file("file")) { writeBytes(name, content); }

    std::string const& path() const { return name; }
    std::string bytes() const { return bytesOf(name); }
    std::shared_ptr<MediaFile> open(std::string const& mode = "rw") const { return test::open(name, mode); }

private:
    TempDir dir;
    std::string name;
};

/// `size` bytes that differ from their neighbours and do not repeat with any power of two, so that a block moved to a
/// wrong place shows; another `seed` gives other bytes.
inline std::string pattern(size_t size, uint32_t seed = 1) {
    std::string bytes(size, '\0');
    uint32_t state = seed * 2654435761U + 1;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

inline std::string repeated(std::string const& part, size_t times) {
    std::string all;
    for (; times > 0; --times)
        all += part;
    return all;
}

/// The text of the std::runtime_error that `action` throws; the test fails, with an empty text, when it throws none.
inline std::string messageOf(std::function<void()> const& action) {
    try {
        action();
    } catch (std::runtime_error const& error) {
        return error.what();
    }
    ADD_FAILURE() << "no std::runtime_error was thrown";
    return {};
}

/// True when `action` throws a std::runtime_error that says `text`.
inline testing::AssertionResult failsWith(std::string const& text, std::function<void()> const& action) {
    std::string const message = messageOf(action);
    bool const isSaid = message.find(text) != std::string::npos;
    return (isSaid ? testing::AssertionSuccess() : testing::AssertionFailure()) << message << ", expected " << text;
}

/// For each row, a file of these bytes: the edit throws a std::runtime_error that says this, and leaves it as it was.
using Refusal = std::tuple<std::string, std::function<void(TempFile const&)>, std::string>;
inline void expectRefused(std::vector<Refusal> const& rows) {
    for (auto const& [bytes, edit, text] : rows) {
        TempFile const file(bytes);
        EXPECT_TRUE(failsWith(text, [&, &action = edit] { action(file); }));
        EXPECT_TRUE(file.bytes() == bytes) << text;
    }
}

} // namespace android::lumo::test
