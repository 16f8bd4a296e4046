#include "tests/logging/failing_memory.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> refusedFrom{SIZE_MAX};
std::atomic<long long> allocations{0};

}  // namespace

namespace LoggingTests {

ScopedMemoryShortage::ScopedMemoryShortage(std::size_t bytes) {
    refusedFrom = bytes;
}

ScopedMemoryShortage::~ScopedMemoryShortage() {
    refusedFrom = SIZE_MAX;
}

long long AllocationsSoFar() {
    return allocations;
}

}  // namespace LoggingTests

// The C++ heap of this executable. The other forms of these operators come down to these; nothing here asks
// for more than malloc's own alignment.
void* operator new(std::size_t bytes) {
    ++allocations;
    void* const block = bytes < refusedFrom ? std::malloc(bytes != 0 ? bytes : 1) : nullptr;
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new(std::size_t bytes, std::align_val_t /*alignment*/) {
    return operator new(bytes);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

void operator delete(void* block, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}
