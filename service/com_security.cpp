#include "service/com_security.h"

#include <objbase.h>

#include "logging/logger.h"
#include "platform/handles.h"
#include "service/security_descriptor.h"

using Platform::UniqueLocalMemory;

namespace {

/// COM_RIGHTS_EXECUTE of the platform SDK's <objbase.h>, which some headers leave out.
constexpr DWORD kComRightsExecute = 1;

constexpr LONG kLetComChooseServices = -1;

/// Who may call the event sinks, and the line when no SID could be made.
struct Caller {
    WELL_KNOWN_SID_TYPE type;
    const wchar_t* failure;
};
constexpr Caller kCallers[] = {
    {WinLocalSystemSid, L"CreateWellKnownSid with WinLocalSystemSid failed. Error: 0x%08X"},
    {WinBuiltinAdministratorsSid,
     L"CreateWellKnownSid with WinBuiltinAdministratorsSid failed.  Error: 0x%08X"},
    {WinBuiltinUsersSid, L"CreateWellKnownSid with WinBuiltinUsersSid failed.  Error: 0x%08X"},
};

/// No lock: this runs before any other thread of the process exists.
bool comSecurityInitialised = false;

template <class Value>
void Log(int level, const wchar_t* format, Value value) {
    Orva::Shared::GetLogger().Write(level, "InitializeSecurity", format, value);
}

/// Lets one group of callers in. `sid` is room for any SID; without room none can be made.
void AllowCaller(SecurityDescriptor& callers, const UniqueLocalMemory& sid, const Caller& caller) {
    DWORD bytes = sid ? DWORD{SECURITY_MAX_SID_SIZE} : 0;
    if (CreateWellKnownSid(caller.type, nullptr, sid.Get(), &bytes) == FALSE) {
        const DWORD error = GetLastError();
        Log(Orva::Shared::Level::kError, caller.failure, error);
        return;
    }
    callers.Allow(sid.Get(), kComRightsExecute);
}

void AllowCallers(SecurityDescriptor& callers) {
    const UniqueLocalMemory sid(LocalAlloc(LPTR, SECURITY_MAX_SID_SIZE));
    callers.TakeOwnerAndGroupFromToken();
    for (const Caller& caller : kCallers) {
        AllowCaller(callers, sid, caller);
    }
}

/// CoIncrementMTAUsage of <combaseapi.h>, which Windows has from 8 on. The cookie would give back what
/// it holds.
using IncrementMtaUsage = HRESULT WINAPI(void** cookie);

IncrementMtaUsage* FindIncrementMtaUsage() {
    const HMODULE library = GetModuleHandleW(L"ole32.dll");
    return library == nullptr ? nullptr
                              : reinterpret_cast<IncrementMtaUsage*>(
                                    reinterpret_cast<void*>(GetProcAddress(library, "CoIncrementMTAUsage")));
}

/// Keeps the process's multithreaded apartment from now to the end of the process, whichever threads
/// leave it. What a thread creates there (the managers, the subscriptions) stays connected when that
/// thread has left, and what is set for the process stays set. Never given back.
///
/// Called inside the single-threaded apartment: a thread that is in none would be put into the
/// multithreaded one, and could not enter another then. Where it could not enter one at all, that does
/// no harm.
void HoldMultithreadedApartment() {
    IncrementMtaUsage* const increment = FindIncrementMtaUsage();
    void* cookie = nullptr;
    constexpr DWORD kMissing = ERROR_PROC_NOT_FOUND;
    const HRESULT held = increment == nullptr ? HRESULT_FROM_WIN32(kMissing) : increment(&cookie);
    if (FAILED(held)) {
        Log(Orva::Shared::Level::kError,
            L"CoIncrementMTAUsage failed. Error: 0x%08X. Events may stay away when the start has ended.",
            held);
    }
}

/// Hands the descriptor to COM from inside an apartment.
HRESULT SetProcessSecurity(SecurityDescriptor& callers) {
    const HRESULT entered = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(entered)) {
        Log(Orva::Shared::Level::kError, L"CoInitializeEx failed. Error: 0x%08X", entered);
        return entered;
    }
    const HRESULT secured = CoInitializeSecurity(callers.Get(), kLetComChooseServices, nullptr, nullptr,
                                                 RPC_C_AUTHN_LEVEL_CONNECT, RPC_C_IMP_LEVEL_IMPERSONATE,
                                                 nullptr, EOAC_NONE, nullptr);
    if (FAILED(secured)) {
        Log(Orva::Shared::Level::kError, L"CoInitializeSecurity failed. Error: 0x%08X", secured);
        return secured;
    }
    comSecurityInitialised = true;
    return secured;
}

}  // namespace

HRESULT InitializeSecurity() {
    SecurityDescriptor callers;
    AllowCallers(callers);
    HRESULT result = S_OK;
    if (!comSecurityInitialised) {
        result = SetProcessSecurity(callers);
        // With whatever security COM applies: without the apartment no event would come at all.
        HoldMultithreadedApartment();
        // Also when the apartment could not be entered. What was set stays in force as long as the
        // process has an apartment, and it has the one that is held.
        CoUninitialize();
    }
    Log(Orva::Shared::Level::kInformation, L"InitializeSecurity : HRESULT: 0x%08X", result);
    return result;
}
