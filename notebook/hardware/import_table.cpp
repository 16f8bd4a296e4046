#include "notebook/hardware/import_table.h"

#include <windows.h>

#include <cstddef>
#include <string>

namespace Notebook {

namespace {

/// What stands at an address that is relative to a module's image.
template <class T>
T* At(void* image, std::size_t relativeAddress) {
    return reinterpret_cast<T*>(static_cast<std::byte*>(image) + relativeAddress);
}

/// The imports by library, ended by an empty one; null when there are none.
const IMAGE_IMPORT_DESCRIPTOR* FirstLibrary(void* image) {
    const auto* const dos = At<IMAGE_DOS_HEADER>(image, 0);
    const auto* const headers = At<IMAGE_NT_HEADERS>(image, static_cast<std::size_t>(dos->e_lfanew));
    const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    return imports.Size == 0 ? nullptr : At<IMAGE_IMPORT_DESCRIPTOR>(image, imports.VirtualAddress);
}

/// Whether a library's entry imports the function.
bool Imports(void* image, const IMAGE_IMPORT_DESCRIPTOR& library, const IMAGE_THUNK_DATA& entry,
             const std::string& function) {
    if (!IMAGE_SNAP_BY_ORDINAL(entry.u1.Ordinal)) {
        return function == At<const IMAGE_IMPORT_BY_NAME>(image, entry.u1.AddressOfData)->Name;
    }
    const HMODULE module = GetModuleHandleA(At<const char>(image, library.Name));
    const FARPROC byName = GetProcAddress(module, function.c_str());
    return byName != nullptr &&
           byName == GetProcAddress(module, MAKEINTRESOURCEA(IMAGE_ORDINAL(entry.u1.Ordinal)));
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

std::vector<void**> FindImports(void* image, std::string_view function) {
    const std::string name(function);
    std::vector<void**> places;
    // The names stand in a table of their own; one without it has lost them to binding.
    const IMAGE_IMPORT_DESCRIPTOR* library = FirstLibrary(image);
    for (; library != nullptr && library->FirstThunk != 0; ++library) {
        const auto* entry = At<const IMAGE_THUNK_DATA>(image, library->OriginalFirstThunk);
        auto** place = At<void*>(image, library->FirstThunk);
        for (; library->OriginalFirstThunk != 0 && entry->u1.AddressOfData != 0; ++entry, ++place) {
            if (Imports(image, *library, *entry, name)) {
                places.push_back(place);
            }
        }
    }
    return places;
}

void* ReplaceImport(const char* function, void* replacement) {
    void* original = nullptr;
    for (void** const place : FindImports(GetModuleHandleW(nullptr), function)) {
        original = Swap(place, replacement);
    }
    return original;
}

}  // namespace Notebook
