// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ErrorAt.h"
#include "MediaFile.h"

#include <cstdint>
#include <span>
#include <vector>

namespace android::lumo {

/// A file's bytes, asked for in small pieces from front to back and read in larger ones. It must not outlive the file,
/// nor what is asked of it the next question.
class ReadWindow {
public:
    static constexpr uint32_t SIZE = 16 * 1024;

    explicit ReadWindow(MediaFile const& read) : file(read) {}

    /// Exactly `n` bytes from `position`, else "fail to read bytes: %zu, expected %zu". `isSoonFollowed`: what will be
    /// asked for next stands close behind.
    std::span<uint8_t const> at(uint32_t position, uint32_t n, bool isSoonFollowed, ErrorAt at = ErrorAt());

private:
    MediaFile const& file;
    std::vector<uint8_t> bytes;
    uint32_t start = 0;
};

} // namespace android::lumo
