#include "tests/support/scoped_import.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace Rig {

namespace {

/// What the rig itself calls, past the import table. Collected before the first fake is put in.
struct Kernel {
    decltype(&::AcquireSRWLockExclusive) acquire;
    decltype(&::ReleaseSRWLockExclusive) release;
    decltype(&::SleepConditionVariableSRW) sleepCondition;
    decltype(&::WakeAllConditionVariable) wakeAll;
    decltype(&::GetLastError) getLastError;
    decltype(&::SetLastError) setLastError;
    decltype(&::GetCurrentThreadId) getCurrentThreadId;
};

template <class Function>
void Find(HMODULE module, const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

Kernel FindKernel() {
    const HMODULE module = GetModuleHandleW(L"kernel32.dll");
    Kernel kernel{};
    Find(module, "AcquireSRWLockExclusive", kernel.acquire);
    Find(module, "ReleaseSRWLockExclusive", kernel.release);
    Find(module, "SleepConditionVariableSRW", kernel.sleepCondition);
    Find(module, "WakeAllConditionVariable", kernel.wakeAll);
    Find(module, "GetLastError", kernel.getLastError);
    Find(module, "SetLastError", kernel.setLastError);
    Find(module, "GetCurrentThreadId", kernel.getCurrentThreadId);
    return kernel;
}

const Kernel& TheKernel() {
    static const Kernel kernel = FindKernel();
    return kernel;
}

/// Read access to the image of the executable by relative addresses.
class Image {
  public:
    Image() : m_base(reinterpret_cast<std::byte*>(GetModuleHandleW(nullptr))) {}

    template <class T>
    [[nodiscard]] T* At(std::size_t relativeAddress) const {
        return reinterpret_cast<T*>(m_base + relativeAddress);
    }

    [[nodiscard]] const IMAGE_IMPORT_DESCRIPTOR* Imports() const {
        const auto* const dos = At<IMAGE_DOS_HEADER>(0);
        const auto* const headers = At<IMAGE_NT_HEADERS>(static_cast<std::size_t>(dos->e_lfanew));
        const IMAGE_DATA_DIRECTORY& directory =
            headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        return directory.Size == 0 ? nullptr : At<IMAGE_IMPORT_DESCRIPTOR>(directory.VirtualAddress);
    }

  private:
    std::byte* m_base;
};

/// Whether a library exports the function under that ordinal. Microsoft's import library of oleaut32 names
/// no functions.
bool HasOrdinal(HMODULE module, ULONGLONG ordinal, std::string_view function) {
    const FARPROC byName = GetProcAddress(module, std::string(function).c_str());
    return byName != nullptr && byName == GetProcAddress(module, MAKEINTRESOURCEA(ordinal));
}

}  // namespace

NotImported::NotImported(std::string_view function)
    : std::logic_error("The test executable does not import " + std::string(function) +
                       ": nothing linked into it calls this function, so it cannot be replaced") {}

namespace Detail {

ImportSlots::ImportSlots(std::string_view function) : m_slots(Find(function)) {
    if (m_slots.empty()) {
        throw NotImported(function);
    }
    TheKernel();
}

bool ImportSlots::Exist(std::string_view function) {
    return !Find(function).empty();
}

std::vector<ImportSlots::Slot> ImportSlots::Find(std::string_view function) {
    std::vector<Slot> slots;
    const Image image;
    const IMAGE_IMPORT_DESCRIPTOR* library = image.Imports();
    // The names stand in a table of their own; one without it has lost them to binding.
    for (; library != nullptr && library->FirstThunk != 0; ++library) {
        if (library->OriginalFirstThunk == 0) {
            continue;
        }
        const auto* name = image.At<const IMAGE_THUNK_DATA>(library->OriginalFirstThunk);
        auto** place = image.At<void*>(library->FirstThunk);
        const HMODULE module = GetModuleHandleA(image.At<const char>(library->Name));
        for (; name->u1.AddressOfData != 0; ++name, ++place) {
            const bool isFound =
                IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)
                    ? HasOrdinal(module, IMAGE_ORDINAL(name->u1.Ordinal), function)
                    : function == reinterpret_cast<const char*>(
                                      image.At<const IMAGE_IMPORT_BY_NAME>(name->u1.AddressOfData)->Name);
            if (isFound) {
                slots.push_back({place, *place});
            }
        }
    }
    return slots;
}

void ImportSlots::Put(void* function) const {
    for (const Slot& slot : m_slots) {
        Write(slot.place, function);
    }
}

void ImportSlots::Restore() const {
    for (const Slot& slot : m_slots) {
        Write(slot.place, slot.real);
    }
}

void ImportSlots::Write(void** place, void* value) {
    // Two functions may share a page, whose protection is changed for a moment.
    static RigLock& lock = *new RigLock();
    const RigLockHolder hold(lock);
    const LastErrorKeeper keep;
    DWORD protection = 0;
    if (VirtualProtect(place, sizeof(*place), PAGE_READWRITE, &protection) == FALSE) {
        throw std::runtime_error("The executable's import table cannot be written");
    }
    InterlockedExchangePointer(place, value);
    VirtualProtect(place, sizeof(*place), protection, &protection);
}

void RigLock::lock() noexcept {
    TheKernel().acquire(&m_lock);
}

void RigLock::unlock() noexcept {
    TheKernel().release(&m_lock);
}

bool RigLock::Wait(DWORD milliseconds) noexcept {
    return TheKernel().sleepCondition(&m_changed, &m_lock, milliseconds, 0) != FALSE;
}

void RigLock::WakeAll() noexcept {
    TheKernel().wakeAll(&m_changed);
}

LastErrorKeeper::LastErrorKeeper() noexcept : m_error(TheKernel().getLastError()) {}

LastErrorKeeper::~LastErrorKeeper() {
    TheKernel().setLastError(m_error);
}

DWORD ThisThread() noexcept {
    return TheKernel().getCurrentThreadId();
}

void ReportStuckCall(std::string_view function) {
    ADD_FAILURE() << "A call of " << function << " on another thread does not come out of the test's fake";
}

}  // namespace Detail

ScopedProcAddress::ScopedProcAddress(std::string name, FARPROC address) : m_name(std::move(name)) {
    m_lookups = std::make_unique<ScopedImport<&::GetProcAddress>>(
        [this](HMODULE, LPCSTR wanted) {
            // A small number in place of the name asks by ordinal.
            return reinterpret_cast<std::uintptr_t>(wanted) > 0xffff && m_name == wanted;
        },
        [address](HMODULE, LPCSTR) {
            if (address == nullptr) {
                Real<&::SetLastError>(ERROR_PROC_NOT_FOUND);
            }
            return address;
        });
}

}  // namespace Rig
