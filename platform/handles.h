#pragma once

#include <windows.h>
#include <oleauto.h>
#include <wlanapi.h>

#include <atomic>
#include <type_traits>
#include <utility>

/// Owning types for what Windows hands out. None can be copied; each is empty at first and gives its
/// value back when it is destroyed, whatever way the scope is left.
namespace Platform {

/// ERROR_SUCCESS, or the thread's last error; a failure that left none there is still one.
inline DWORD ErrorUnless(bool succeeded) noexcept {
    const DWORD error = succeeded ? ERROR_SUCCESS : GetLastError();
    return succeeded || error != ERROR_SUCCESS ? error : static_cast<DWORD>(ERROR_GEN_FAILURE);
}

/// Keeps the calling thread's last-error value over a scope.
class LastErrorKeeper {
  public:
    LastErrorKeeper() noexcept : m_error(GetLastError()) {}
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;
    ~LastErrorKeeper() { SetLastError(m_error); }

  private:
    DWORD m_error;
};

/// Gives `value` back by a function that reports a failure in any of Windows' ways. ERROR_SUCCESS, the Win32
/// error, or the HRESULT.
template <auto closingFunction, class Value>
DWORD GiveBack(Value value) {
    using Answer = decltype(closingFunction(value));
    if constexpr (std::is_void_v<Answer>) {
        closingFunction(value);
        return ERROR_SUCCESS;
    } else if constexpr (std::is_same_v<Answer, BOOL>) {
        return ErrorUnless(closingFunction(value) != FALSE);
    } else if constexpr (std::is_pointer_v<Answer>) {
        return ErrorUnless(closingFunction(value) == nullptr);  // what is left of a block of memory
    } else {
        return static_cast<DWORD>(closingFunction(value));
    }
}

/// Owner of one system resource: the value that `closingFunction` gives back; `noneValue` means that there
/// is none. Not safe for use by two threads at once.
template <class ValueType, auto closingFunction, LONG_PTR noneValue = 0>
class UniqueResource {
  public:
    using Value = ValueType;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): INVALID_HANDLE_VALUE is made like this
    static Value None() noexcept { return reinterpret_cast<Value>(noneValue); }

    UniqueResource() noexcept = default;
    explicit UniqueResource(Value value) noexcept : m_value(value) {}
    UniqueResource(UniqueResource&& other) noexcept : m_value(other.Detach()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept {
        Reset(other.Detach());
        return *this;
    }
    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;
    ~UniqueResource() { Reset(); }

    [[nodiscard]] Value Get() const noexcept { return m_value; }
    explicit operator bool() const noexcept { return m_value != None(); }

    /// Gives back what is held and takes over `value`. The thread's last error stays: whoever returns with
    /// it set may own resources.
    void Reset(Value value = None()) noexcept {
        const Value old = std::exchange(m_value, value);
        if (old == None()) {
            return;
        }
        const LastErrorKeeper keeper;
        try {
            static_cast<void>(GiveBack<closingFunction>(old));
        } catch (...) {
            // Nobody is left who could use the resource; a destructor does not throw.
        }
    }

    /// Gives back what is held and returns the place for a function's out argument.
    [[nodiscard]] Value* Put() noexcept {
        Reset();
        return &m_value;
    }

    /// Hands the value to the caller, who gives it back from now on.
    [[nodiscard]] Value Detach() noexcept { return std::exchange(m_value, None()); }

    /// Gives the value back and reports how that went: ERROR_SUCCESS, or the error. The value is kept when it
    /// could not be given back, so that its owner can still see and log it.
    [[nodiscard]] DWORD TryClose() {
        const DWORD error = *this ? GiveBack<closingFunction>(m_value) : DWORD{ERROR_SUCCESS};
        if (error == ERROR_SUCCESS) {
            m_value = None();
        }
        return error;
    }

  private:
    Value m_value = None();
};

/// The same for a resource that several threads look at and one of them gives back: whichever comes
/// first, the others find none. Any thread.
template <class Unique>
class SharedResource {
  public:
    using Value = typename Unique::Value;

    SharedResource() noexcept = default;
    SharedResource(const SharedResource&) = delete;
    SharedResource& operator=(const SharedResource&) = delete;
    ~SharedResource() { Reset(); }

    [[nodiscard]] Value Get() const noexcept { return m_value; }
    explicit operator bool() const noexcept { return Get() != Unique::None(); }

    /// Gives back what is held and takes over what `resource` holds.
    void Reset(Unique resource = {}) noexcept { const Unique old(m_value.exchange(resource.Detach())); }

    /// Hands the resource to the caller, who has it alone from now on: to use it while another thread may
    /// close what it finds here. Empty when there was none.
    [[nodiscard]] Unique Take() noexcept { return Unique(m_value.exchange(Unique::None())); }

    /// Takes over what `resource` holds, unless another thread was first: then that one's stays, and
    /// `resource` keeps its own.
    void TakeUnlessHeld(Unique& resource) noexcept {
        Value none = Unique::None();
        if (m_value.compare_exchange_strong(none, resource.Get())) {
            static_cast<void>(resource.Detach());
        }
    }

    /// Gives the resource back and reports how that went: ERROR_SUCCESS, also when there was none,
    /// or the error. What could not be given back is kept, unless another thread has stored
    /// its own meanwhile: then that one stays, and the other goes with the process.
    [[nodiscard]] DWORD TryClose() {
        Unique taken = Take();
        const DWORD error = taken.TryClose();
        if (error != ERROR_SUCCESS) {
            TakeUnlessHeld(taken);
            // Not tried again: by then its value may be that of a resource of another thread.
            static_cast<void>(taken.Detach());
        }
        return error;
    }

    /// Forgets the resource.
    void Abandon() noexcept { m_value = Unique::None(); }

  private:
    std::atomic<Value> m_value{Unique::None()};
};

/// Kernel object of which "none" is null (event, mutex, thread, token).
using UniqueHandle = UniqueResource<HANDLE, &::CloseHandle>;
using SharedHandle = SharedResource<UniqueHandle>;
/// Directory listing (FindFirstFileW), of which "none" is INVALID_HANDLE_VALUE.
using UniqueFindHandle = UniqueResource<HANDLE, &::FindClose, -1>;
/// Handle of the service control manager or of a service.
using UniqueServiceHandle = UniqueResource<SC_HANDLE, &::CloseServiceHandle>;
/// Event-log source (RegisterEventSourceW).
using UniqueEventSource = UniqueResource<HANDLE, &::DeregisterEventSource>;
/// Open registry key. (A predefined key that was opened anew, without a subkey, may be closed too: the
/// process opens it again when it is next used.)
using UniqueRegistryKey = UniqueResource<HKEY, &::RegCloseKey>;
/// Block of the local heap (LocalAlloc).
using UniqueLocalMemory = UniqueResource<HLOCAL, &::LocalFree>;
/// Text in COM task memory (StringFromCLSID, StringFromIID).
using UniqueCoTaskText = UniqueResource<LPOLESTR, &::CoTaskMemFree>;
/// Text of COM (SysAllocString).
using UniqueBstr = UniqueResource<BSTR, &::SysFreeString>;
/// Array of COM (SafeArrayCreate), with its elements.
using UniqueSafeArray = UniqueResource<SAFEARRAY*, &::SafeArrayDestroy>;
/// Memory that a WLAN function returned.
template <class T>
using UniqueWlanMemory = UniqueResource<T*, &::WlanFreeMemory>;

/// The client of Windows Vista and later (WlanOpenHandle, "dwClientVersion").
constexpr DWORD kWlanClientVersion = 2;
inline DWORD CloseWlanClient(HANDLE client) {
    return WlanCloseHandle(client, nullptr);
}
/// Client handle of the native WLAN interface (WlanOpenHandle).
using UniqueWlanHandle = UniqueResource<HANDLE, &CloseWlanClient>;
using SharedWlanHandle = SharedResource<UniqueWlanHandle>;

inline BOOL FreeToProcessHeap(void* block) {
    return HeapFree(GetProcessHeap(), 0, block);
}
/// Block of the process heap (HeapAlloc on GetProcessHeap, no flags), read as a `T`.
template <class T>
using UniqueProcessHeap = UniqueResource<T*, &FreeToProcessHeap>;
/// One of `bytes` bytes; empty when there is no memory.
template <class T>
[[nodiscard]] UniqueProcessHeap<T> AllocateFromProcessHeap(SIZE_T bytes) {
    return UniqueProcessHeap<T>(static_cast<T*>(HeapAlloc(GetProcessHeap(), 0, bytes)));
}

/// The result of a call that hands out a COM object. What another process answers may be a success without
/// its object; that is a failure, too: `missing`.
template <class Pointer>
[[nodiscard]] HRESULT RequireObject(HRESULT result, const Pointer& object, HRESULT missing = E_POINTER) {
    return SUCCEEDED(result) && object == nullptr ? missing : result;
}

/// A function of a library that the process has loaded; null where Windows lacks it.
template <class Function>
[[nodiscard]] Function* LookUp(const wchar_t* library, const char* name) {
    const HMODULE loaded = GetModuleHandleW(library);
    return loaded == nullptr
               ? nullptr
               : reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(loaded, name)));
}

}  // namespace Platform
