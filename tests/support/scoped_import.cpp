#include "tests/support/scoped_import.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "notebook/hardware/import_table.h"

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
    return Notebook::FindImports(&__ImageBase, function);
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
