#include <cstdlib>
#include <new>

#include "tests/hunt/faults.h"

// The C++ heap of this executable, which can be short of memory. The other forms of these operators come down
// to these.
void* operator new(std::size_t bytes) {
    void* const block = RandomEvents::RefusesMemory() ? nullptr : std::malloc(bytes != 0 ? bytes : 1);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t /*bytes*/) noexcept {
    std::free(block);
}
