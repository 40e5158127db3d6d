// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

/// Memory that C++ code of the whole program holds, for programs that link the target test_faults. A Fault of the kind
/// MEMORY makes it run out.
namespace android::lumo::test {

size_t heldBytes();
/// The most that was held since the last call.
size_t takeMostBytes();

} // namespace android::lumo::test
