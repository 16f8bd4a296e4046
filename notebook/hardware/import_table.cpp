#include "notebook/hardware/import_table.h"

#include <windows.h>

#include <cstddef>
#include <cstring>

namespace Notebook {

namespace {

template <class T>
T* At(std::byte* base, std::size_t relativeAddress) {
    return reinterpret_cast<T*>(base + relativeAddress);
}

const IMAGE_IMPORT_DESCRIPTOR* FirstLibrary(std::byte* base) {
    const auto* const dos = At<IMAGE_DOS_HEADER>(base, 0);
    const auto* const headers = At<IMAGE_NT_HEADERS>(base, static_cast<std::size_t>(dos->e_lfanew));
    const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    return imports.Size == 0 ? nullptr : At<IMAGE_IMPORT_DESCRIPTOR>(base, imports.VirtualAddress);
}

void* Swap(void** place, void* replacement) {
    DWORD protection = 0;
    if (VirtualProtect(place, sizeof(*place), PAGE_READWRITE, &protection) == FALSE) {
        return nullptr;
    }
    void* const before = InterlockedExchangePointer(place, replacement);
    VirtualProtect(place, sizeof(*place), protection, &protection);
    return before;
}

}  // namespace

void* ReplaceImport(const char* function, void* replacement) {
    auto* const base = reinterpret_cast<std::byte*>(GetModuleHandleW(nullptr));
    const IMAGE_IMPORT_DESCRIPTOR* library = FirstLibrary(base);
    void* original = nullptr;
    for (; library != nullptr && library->FirstThunk != 0; ++library) {
        if (library->OriginalFirstThunk == 0) {
            continue;
        }
        const auto* name = At<IMAGE_THUNK_DATA>(base, library->OriginalFirstThunk);
        auto** place = At<void*>(base, library->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++place) {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) {
                continue;
            }
            const auto* const entry = At<IMAGE_IMPORT_BY_NAME>(base, name->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(entry->Name), function) == 0) {
                original = Swap(place, replacement);
            }
        }
    }
    return original;
}

}  // namespace Notebook
