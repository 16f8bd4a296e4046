#include "tests/support/scoped_import.h"

#include <gtest/gtest.h>

#include <cstdint>

/// Where the executable lies: the linker's own name.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace Rig {

namespace {

/// A function of Windows that the rig itself calls, past the import table.
template <auto Function>
decltype(Function) Find() {
    const std::string name(Detail::NameOf<Function>());
    return reinterpret_cast<decltype(Function)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name.c_str())));
}

// Looked up before the first fake is put in.
const auto kEnter = Find<&::AcquireSRWLockExclusive>();
const auto kLeave = Find<&::ReleaseSRWLockExclusive>();
const auto kWait = Find<&::SleepConditionVariableSRW>();
const auto kWakeAll = Find<&::WakeAllConditionVariable>();
const auto kGetLastError = Find<&::GetLastError>();
const auto kSetLastError = Find<&::SetLastError>();

/// What stands at an address that is relative to the executable's image.
template <class T>
T* At(std::size_t relativeAddress) {
    return reinterpret_cast<T*>(reinterpret_cast<std::byte*>(&__ImageBase) + relativeAddress);
}

/// The imports by library, ended by an empty one; null when there are none.
const IMAGE_IMPORT_DESCRIPTOR* Libraries() {
    const auto* const headers = At<IMAGE_NT_HEADERS>(static_cast<std::size_t>(__ImageBase.e_lfanew));
    const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    return imports.Size == 0 ? nullptr : At<IMAGE_IMPORT_DESCRIPTOR>(imports.VirtualAddress);
}

/// Whether a library's entry imports the function: by its name, or by its ordinal (Microsoft's import library
/// of oleaut32 names no functions).
bool Imports(const IMAGE_IMPORT_DESCRIPTOR& library, const IMAGE_THUNK_DATA& entry,
             const std::string& function) {
    if (!IMAGE_SNAP_BY_ORDINAL(entry.u1.Ordinal)) {
        return function == At<const IMAGE_IMPORT_BY_NAME>(entry.u1.AddressOfData)->Name;
    }
    const HMODULE module = GetModuleHandleA(At<const char>(library.Name));
    const FARPROC byName = GetProcAddress(module, function.c_str());
    return byName != nullptr &&
           byName == GetProcAddress(module, MAKEINTRESOURCEA(IMAGE_ORDINAL(entry.u1.Ordinal)));
}

}  // namespace

NotImported::NotImported(std::string_view function)
    : std::logic_error("The test executable does not import " + std::string(function) +
                       ": nothing linked into it calls this function, so it cannot be replaced") {}

namespace Detail {

Import::Import(std::string_view function) : m_places(Find(function)) {
    if (m_places.empty()) {
        throw NotImported(function);
    }
    m_real = *m_places.front();
    for (void** const place : m_places) {
        DWORD protection = 0;
        if (VirtualProtect(place, sizeof(*place), PAGE_READWRITE, &protection) == FALSE) {
            throw std::runtime_error("The executable's import table cannot be written");
        }
    }
}

std::vector<void**> Import::Find(std::string_view function) {
    const std::string name(function);
    std::vector<void**> places;
    // The names stand in a table of their own; one without it has lost them to binding.
    const IMAGE_IMPORT_DESCRIPTOR* library = Libraries();
    for (; library != nullptr && library->FirstThunk != 0; ++library) {
        const auto* entry = At<const IMAGE_THUNK_DATA>(library->OriginalFirstThunk);
        auto** place = At<void*>(library->FirstThunk);
        for (; library->OriginalFirstThunk != 0 && entry->u1.AddressOfData != 0; ++entry, ++place) {
            if (Imports(*library, *entry, name)) {
                places.push_back(place);
            }
        }
    }
    return places;
}

void Import::Put(void* function) const {
    for (void** const place : m_places) {
        InterlockedExchangePointer(place, function);
    }
}

void RigLock::Enter() noexcept {
    kEnter(&m_lock);
}

void RigLock::Leave() noexcept {
    kLeave(&m_lock);
}

void RigLock::Wait(DWORD milliseconds) noexcept {
    kWait(&m_changed, &m_lock, milliseconds, 0);
}

void RigLock::WakeAll() noexcept {
    kWakeAll(&m_changed);
}

LastErrorKeeper::LastErrorKeeper() noexcept : m_error(kGetLastError()) {}

LastErrorKeeper::~LastErrorKeeper() {
    kSetLastError(m_error);
}

void ReportStuckCall(std::string_view function) {
    ADD_FAILURE() << "A call of " << function << " on another thread does not come out of the test's fake";
}

}  // namespace Detail

ScopedProcAddress::ScopedProcAddress(std::string_view name, FARPROC address)
    : ScopedImport(
          [name = std::string(name)](HMODULE, LPCSTR wanted) {
              // A small number in place of the name asks by ordinal.
              return reinterpret_cast<std::uintptr_t>(wanted) > 0xffff && name == wanted;
          },
          [address](HMODULE, LPCSTR) {
              if (address == nullptr) {
                  Real<&::SetLastError>(ERROR_PROC_NOT_FOUND);
              }
              return address;
          }) {}

}  // namespace Rig
