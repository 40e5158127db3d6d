// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ctime>
#include <functional>

/// Bounds on time that hold on any machine and in any build: multiples of what something else takes there.
namespace android::lumo::test {

/// Of the processor.
inline std::clock_t timeOf(std::function<void()> const& work) {
    auto const start = std::clock();
    work();
    return std::clock() - start;
}

/// One of three tries does: a moment in which a virtual machine stood still may count as the processor's time.
inline bool takesLess(std::clock_t most, std::function<void()> const& work) {
    return timeOf(work) < most || timeOf(work) < most || timeOf(work) < most;
}

} // namespace android::lumo::test
