// SPDX-License-Identifier: Apache-2.0
#include "support/AllocationWatch.hpp"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t largestAllocation = 0;

void* allocate(std::size_t size) noexcept {
    largestAllocation = std::max(largestAllocation, size);
    return std::malloc(std::max<std::size_t>(size, 1));
}

void* allocateOrThrow(std::size_t size) {
    void* const memory = allocate(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

} // namespace

// The sanitizers watch malloc and free anyway.
void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace Support {

AllocationWatch::AllocationWatch() {
    largestAllocation = 0;
}

std::size_t AllocationWatch::largest() const noexcept {
    return largestAllocation;
}

} // namespace Support
