// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

#include <utils/StrongPointer.h>

namespace android {

/// An object that lives as long as strong pointers to it do: the platform's class of that name, without weak pointers.
///
/// The host has its own since Debian's library of the platform's helpers loads an archiver's shared library and three
/// others: more than the tool takes for all the rest of its start.
class RefBase {
public:
    RefBase(RefBase const&) = delete;
    RefBase& operator=(RefBase const&) = delete;

    void incStrong(void const*) const { mStrong.fetch_add(1, std::memory_order_relaxed); }
    void decStrong(void const*) const {
        if (mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

protected:
    RefBase() = default;
    virtual ~RefBase() = default;

private:
    mutable std::atomic<int32_t> mStrong = 0;
};

} // namespace android
