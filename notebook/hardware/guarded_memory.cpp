#include "notebook/hardware/guarded_memory.h"

#include <windows.h>

namespace Notebook {

namespace {

constexpr std::size_t kPageBytes = 4096;

std::size_t RoundUp(std::size_t bytes, std::size_t unit) {
    return (bytes + unit - 1) / unit * unit;
}

}  // namespace

void* AllocateGuarded(std::size_t bytes, std::size_t alignment) noexcept {
    const std::size_t readable = RoundUp(bytes, kPageBytes);
    void* const pages = VirtualAlloc(nullptr, readable + kPageBytes, MEM_RESERVE, PAGE_NOACCESS);
    if (pages == nullptr ||
        (readable != 0 && VirtualAlloc(pages, readable, MEM_COMMIT, PAGE_READWRITE) == nullptr)) {
        return nullptr;
    }
    return static_cast<std::byte*>(pages) + readable - RoundUp(bytes, alignment);
}

bool FreeGuarded(void* memory) noexcept {
    MEMORY_BASIC_INFORMATION information{};
    return VirtualQuery(memory, &information, sizeof(information)) != 0 && information.State != MEM_FREE &&
           VirtualFree(information.AllocationBase, 0, MEM_RELEASE) != FALSE;
}

}  // namespace Notebook
