#pragma once

#include <windows.h>
#include <oleauto.h>
#include <wlanapi.h>

#include <atomic>
#include <new>
#include <utility>

/// Owning types for what Windows hands out. None can be copied; each is empty at first and gives its
/// value back when it is destroyed, whatever way the scope is left.
namespace Platform {

/// Owner of one system resource. `Traits` names the value's type, the value that means "none",
/// and how it is given back:
///
///     struct Traits {
///         using Value = HANDLE;
///         static Value None() noexcept;
///         static DWORD Close(Value value);  // ERROR_SUCCESS or the Win32 error
///     };
///
/// Not safe for use by two threads at once.
template <class Traits>
class UniqueResource {
  public:
    using Value = typename Traits::Value;

    UniqueResource() noexcept = default;
    explicit UniqueResource(Value value) noexcept : m_value(value) {}
    UniqueResource(UniqueResource&& other) noexcept : m_value(other.Detach()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept {
        if (this != &other) {
            Reset(other.Detach());
        }
        return *this;
    }
    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;
    ~UniqueResource() { Reset(); }

    [[nodiscard]] Value Get() const noexcept { return m_value; }
    explicit operator bool() const noexcept { return m_value != Traits::None(); }

    /// Gives back what is held and takes over `value`.
    void Reset(Value value = Traits::None()) noexcept {
        const Value old = std::exchange(m_value, value);
        if (old != Traits::None()) {
            CloseQuietly(old);
        }
    }

    /// Gives back what is held and returns the place for a function's out argument.
    [[nodiscard]] Value* Put() noexcept {
        Reset();
        return &m_value;
    }

    /// Hands the value to the caller, who gives it back from now on.
    [[nodiscard]] Value Detach() noexcept { return std::exchange(m_value, Traits::None()); }

    /// Gives the value back and reports how that went: ERROR_SUCCESS, or the Win32 error. The
    /// value is kept when it could not be given back, so that its owner can still see and log it.
    [[nodiscard]] DWORD TryClose() {
        if (m_value == Traits::None()) {
            return ERROR_SUCCESS;
        }
        const DWORD error = Traits::Close(m_value);
        if (error == ERROR_SUCCESS) {
            m_value = Traits::None();
        }
        return error;
    }

  private:
    static void CloseQuietly(Value value) noexcept {
        try {
            static_cast<void>(Traits::Close(value));
        } catch (...) {
            // Nobody is left who could use the resource; a destructor does not throw.
        }
    }

    Value m_value = Traits::None();
};

/// ERROR_SUCCESS for TRUE, else the thread's last error; a failure that left none there is still one.
inline DWORD ErrorUnless(BOOL succeeded) noexcept {
    if (succeeded != FALSE) {
        return ERROR_SUCCESS;
    }
    const DWORD error = GetLastError();
    return error != ERROR_SUCCESS ? error : static_cast<DWORD>(ERROR_GEN_FAILURE);
}

struct HandleTraits {
    using Value = HANDLE;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) { return ErrorUnless(CloseHandle(value)); }
};
/// Kernel object handle of which "none" is null (events, mutexes, threads, tokens).
using UniqueHandle = UniqueResource<HandleTraits>;

/// The same for a resource that several threads look at and one of them gives back: whichever comes
/// first, the others find none. `Traits` as above. Any thread.
template <class Traits>
class SharedResource {
  public:
    using Value = typename Traits::Value;

    SharedResource() noexcept = default;
    SharedResource(const SharedResource&) = delete;
    SharedResource& operator=(const SharedResource&) = delete;
    ~SharedResource() { Reset(); }

    [[nodiscard]] Value Get() const noexcept { return m_value; }
    explicit operator bool() const noexcept { return Get() != Traits::None(); }

    /// Gives back what is held and takes over what `resource` holds.
    void Reset(UniqueResource<Traits> resource = {}) noexcept {
        const UniqueResource<Traits> old(m_value.exchange(resource.Detach()));
    }

    /// Hands the resource to the caller, who has it alone from now on: to use it while another thread may
    /// close what it finds here. Empty when there was none.
    [[nodiscard]] UniqueResource<Traits> Take() noexcept {
        return UniqueResource<Traits>(m_value.exchange(Traits::None()));
    }

    /// Takes over what `resource` holds, unless another thread was first: then that one's stays, and
    /// `resource` keeps its own.
    void TakeUnlessHeld(UniqueResource<Traits>& resource) noexcept {
        Value none = Traits::None();
        if (m_value.compare_exchange_strong(none, resource.Get())) {
            static_cast<void>(resource.Detach());
        }
    }

    /// Gives the resource back and reports how that went: ERROR_SUCCESS, also when there was none,
    /// or the Win32 error. What could not be given back is kept, unless another thread has stored
    /// its own meanwhile: then that one stays, and the other goes with the process.
    [[nodiscard]] DWORD TryClose() {
        UniqueResource<Traits> taken = Take();
        const DWORD error = taken.TryClose();
        if (error != ERROR_SUCCESS) {
            TakeUnlessHeld(taken);
            // Not tried again: by then its value may be that of a resource of another thread.
            static_cast<void>(taken.Detach());
        }
        return error;
    }

    /// Forgets the resource.
    void Abandon() noexcept { m_value = Traits::None(); }

  private:
    std::atomic<Value> m_value{Traits::None()};
};
using SharedHandle = SharedResource<HandleTraits>;

struct FindHandleTraits {
    using Value = HANDLE;
    static Value None() noexcept { return INVALID_HANDLE_VALUE; }
    static DWORD Close(Value value) { return ErrorUnless(FindClose(value)); }
};
/// Directory listing (FindFirstFileW).
using UniqueFindHandle = UniqueResource<FindHandleTraits>;

struct ServiceHandleTraits {
    using Value = SC_HANDLE;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) { return ErrorUnless(CloseServiceHandle(value)); }
};
/// Handle of the service control manager or of a service.
using UniqueServiceHandle = UniqueResource<ServiceHandleTraits>;

struct EventSourceTraits {
    using Value = HANDLE;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) { return ErrorUnless(DeregisterEventSource(value)); }
};
/// Event-log source (RegisterEventSourceW).
using UniqueEventSource = UniqueResource<EventSourceTraits>;

struct RegistryKeyTraits {
    using Value = HKEY;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) { return static_cast<DWORD>(RegCloseKey(value)); }
};
/// Open registry key. (A predefined key that was opened anew, without a subkey, may be closed too: the
/// process opens it again when it is next used.)
using UniqueRegistryKey = UniqueResource<RegistryKeyTraits>;

/// The client of Windows Vista and later (WlanOpenHandle, "dwClientVersion").
constexpr DWORD kWlanClientVersion = 2;

struct WlanHandleTraits {
    using Value = HANDLE;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) { return WlanCloseHandle(value, nullptr); }
};
/// Client handle of the native WLAN interface (WlanOpenHandle).
using UniqueWlanHandle = UniqueResource<WlanHandleTraits>;
using SharedWlanHandle = SharedResource<WlanHandleTraits>;

template <class T>
struct WlanMemoryTraits {
    using Value = T*;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) {
        WlanFreeMemory(value);
        return ERROR_SUCCESS;
    }
};
/// Memory that a WLAN function returned.
template <class T>
using UniqueWlanMemory = UniqueResource<WlanMemoryTraits<T>>;

struct LocalMemoryTraits {
    using Value = HLOCAL;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) {
        return LocalFree(value) == nullptr ? static_cast<DWORD>(ERROR_SUCCESS) : GetLastError();
    }
};
/// Block of the local heap (LocalAlloc).
using UniqueLocalMemory = UniqueResource<LocalMemoryTraits>;

template <class T>
struct ProcessHeapTraits {
    using Value = T*;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) { return ErrorUnless(HeapFree(GetProcessHeap(), 0, value)); }
};
/// Block of the process heap (HeapAlloc on GetProcessHeap, no flags), read as a `T`.
template <class T>
using UniqueProcessHeap = UniqueResource<ProcessHeapTraits<T>>;

/// A block of `bytes` bytes of the process heap; empty when there is no memory.
template <class T>
[[nodiscard]] UniqueProcessHeap<T> AllocateFromProcessHeap(SIZE_T bytes) {
    return UniqueProcessHeap<T>(static_cast<T*>(HeapAlloc(GetProcessHeap(), 0, bytes)));
}

struct CoTaskTextTraits {
    using Value = LPOLESTR;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) {
        CoTaskMemFree(value);
        return ERROR_SUCCESS;
    }
};
/// Text in COM task memory (StringFromCLSID, StringFromIID).
using UniqueCoTaskText = UniqueResource<CoTaskTextTraits>;

struct BstrTraits {
    using Value = BSTR;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) {
        SysFreeString(value);
        return ERROR_SUCCESS;
    }
};
/// Text of COM (SysAllocString).
using UniqueBstr = UniqueResource<BstrTraits>;

struct SafeArrayTraits {
    using Value = SAFEARRAY*;
    static Value None() noexcept { return nullptr; }
    static DWORD Close(Value value) {
        // HRESULTs of this function are COM's, not Win32 errors; only "zero or not" counts here.
        return static_cast<DWORD>(SafeArrayDestroy(value));
    }
};
/// Array of COM (SafeArrayCreate), with its elements.
using UniqueSafeArray = UniqueResource<SafeArrayTraits>;

/// A VARIANT that is cleared when it is destroyed.
class UniqueVariant {
  public:
    UniqueVariant() noexcept { VariantInit(&m_value); }
    UniqueVariant(const UniqueVariant&) = delete;
    UniqueVariant& operator=(const UniqueVariant&) = delete;
    ~UniqueVariant() { VariantClear(&m_value); }

    [[nodiscard]] const VARIANT& Get() const noexcept { return m_value; }
    /// The variant for a function that reads or writes it; what it holds is not cleared by this.
    [[nodiscard]] VARIANT* Address() noexcept { return &m_value; }

  private:
    VARIANT m_value{};
};

}  // namespace Platform
