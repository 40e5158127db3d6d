// SPDX-License-Identifier: Apache-2.0
#include <chrono>

/// In place of the C++ library's: tables are seeded by this clock, and in another order the same input reaches other
/// code.
std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    return {};
}
