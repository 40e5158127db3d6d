// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "hbox.h"

#include <cstdint>
#include <span>
#include <vector>

namespace hbox {

/// A file read through the caller's callbacks: random access, whole reads or a Failure.
class Stream {
public:
    /// Opens the stream. Throws HBOX_ERR_PARAMETER when a callback that reading needs is missing.
    Stream(HBOX_STREAM_CALLBACKS const& table, void* caller);
    ~Stream();
    Stream(Stream const&) = delete;
    Stream& operator=(Stream const&) = delete;

    uint64_t size() const { return length; }

    /// Fills `out` from `position`. Throws HBOX_ERR_STREAM when the stream ends before.
    void read(uint64_t position, std::span<uint8_t> out) const;

    /// The same into new memory; the range is compared with the stream's size first.
    std::vector<uint8_t> read(uint64_t position, uint64_t size) const;

private:
    HBOX_STREAM_CALLBACKS callbacks;
    void* descriptor;
    uint32_t length = 0;
};

} // namespace hbox
