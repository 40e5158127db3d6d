// SPDX-License-Identifier: Apache-2.0
#include "support/Memory.h"

#include "support/Faults.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> held, most;
constexpr size_t HEAD = alignof(std::max_align_t);

} // namespace

void* operator new(size_t size) {
    using namespace android::lumo::test;
    auto* const block = Fault::on(Call::MEMORY).hits ? nullptr : static_cast<char*>(std::malloc(size + HEAD));
    if (block == nullptr)
        throw std::bad_alloc();
    *reinterpret_cast<size_t*>(block) = size;
    size_t const now = held += size;
    if (now > most)
        most = now;
    return block + HEAD;
}

/// A sanitizer's own form would hand out what the form below cannot take back.
void* operator new(size_t size, std::nothrow_t const&) noexcept {
    try {
        return operator new(size);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

void operator delete(void* pointer) noexcept {
    if (pointer == nullptr)
        return;
    auto* const block = static_cast<char*>(pointer) - HEAD;
    held -= *reinterpret_cast<size_t*>(block);
    std::free(block);
}

void operator delete(void* pointer, size_t) noexcept {
    operator delete(pointer);
}

namespace android::lumo::test {

size_t heldBytes() {
    return held;
}

size_t takeMostBytes() {
    return most.exchange(held);
}

} // namespace android::lumo::test
