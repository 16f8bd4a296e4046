#include "service/com_security.h"

#include <objbase.h>

#include <utility>

#include "logging/logger.h"
#include "platform/handles.h"

using Platform::UniqueHandle;
using Platform::UniqueLocalMemory;

namespace {

/// COM_RIGHTS_EXECUTE of the platform SDK's <objbase.h>, which some headers leave out.
constexpr DWORD kComRightsExecute = 1;

constexpr LONG kLetComChooseServices = -1;

/// An empty list and one entry, both without the SID that stands at the entry's end.
constexpr DWORD kListAndEntryBytes = sizeof(ACL) + sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD);

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

/// A security descriptor in absolute format, with what it points to. It has no system access list; at first
/// it is empty.
struct SecurityDescriptor {
    SecurityDescriptor() { InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION); }

    SECURITY_DESCRIPTOR descriptor{};
    UniqueLocalMemory owner;  ///< what the token says of its user, the SID with it
    UniqueLocalMemory group;
    UniqueLocalMemory accessList;
};

/// The calling thread's token, or the process's when the thread has none; empty when it cannot be had.
UniqueHandle OpenToken() {
    UniqueHandle token;
    if (OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.Put()) == FALSE &&
        GetLastError() == ERROR_NO_TOKEN) {
        OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Put());
    }
    return token;
}

/// What a token says about itself; empty when it cannot be read.
UniqueLocalMemory ReadToken(HANDLE token, TOKEN_INFORMATION_CLASS what) {
    DWORD bytes = 0;
    GetTokenInformation(token, what, nullptr, 0, &bytes);
    UniqueLocalMemory information(LocalAlloc(LPTR, bytes));
    if (!information || GetTokenInformation(token, what, information.Get(), bytes, &bytes) == FALSE) {
        return {};
    }
    return information;
}

bool SetOwnerAndGroup(SecurityDescriptor& callers, HANDLE token) {
    callers.owner = ReadToken(token, TokenUser);
    callers.group = ReadToken(token, TokenPrimaryGroup);
    if (!callers.owner || !callers.group) {
        return false;
    }
    PSID const owner = static_cast<const TOKEN_USER*>(callers.owner.Get())->User.Sid;
    PSID const group = static_cast<const TOKEN_PRIMARY_GROUP*>(callers.group.Get())->PrimaryGroup;
    return SetSecurityDescriptorOwner(&callers.descriptor, owner, FALSE) != FALSE &&
           SetSecurityDescriptorGroup(&callers.descriptor, group, FALSE) != FALSE;
}

/// When that cannot be done the descriptor is empty afterwards.
void TakeOwnerAndGroupFromToken(SecurityDescriptor& callers) {
    const UniqueHandle token = OpenToken();
    if (!token || !SetOwnerAndGroup(callers, token.Get())) {
        callers = SecurityDescriptor();
    }
}

bool CopyEntries(ACL* from, DWORD count, ACL* to) {
    for (DWORD index = 0; index < count; ++index) {
        void* entry = nullptr;
        if (GetAce(from, index, &entry) == FALSE ||
            AddAce(to, ACL_REVISION, MAXDWORD, entry, static_cast<const ACE_HEADER*>(entry)->AceSize) ==
                FALSE) {
            return false;
        }
    }
    return true;
}

/// A list with the entries of `current`, which may be null, and one more without flags; empty on failure.
UniqueLocalMemory ExtendedList(ACL* current, PSID sid) {
    ACL_SIZE_INFORMATION size{};
    if (current != nullptr && GetAclInformation(current, &size, sizeof(size), AclSizeInformation) == FALSE) {
        return {};
    }
    const DWORD bytes = size.AclBytesInUse + kListAndEntryBytes + GetLengthSid(sid);
    UniqueLocalMemory memory(LocalAlloc(LPTR, bytes));
    auto* const list = static_cast<ACL*>(memory.Get());
    if (list == nullptr || InitializeAcl(list, bytes, ACL_REVISION) == FALSE ||
        !CopyEntries(current, size.AceCount, list) ||
        AddAccessAllowedAce(list, ACL_REVISION, kComRightsExecute, sid) == FALSE) {
        return {};
    }
    return memory;
}

/// Lets one group of callers in. When that cannot be done the list stays as it was.
void Allow(SecurityDescriptor& callers, PSID sid) {
    UniqueLocalMemory list = ExtendedList(static_cast<ACL*>(callers.accessList.Get()), sid);
    // The old list is freed only when nothing points to it any more.
    if (list &&
        SetSecurityDescriptorDacl(&callers.descriptor, TRUE, static_cast<ACL*>(list.Get()), FALSE) != FALSE) {
        callers.accessList = std::move(list);
    }
}

void AllowCallers(SecurityDescriptor& callers) {
    const UniqueLocalMemory sid(LocalAlloc(LPTR, SECURITY_MAX_SID_SIZE));
    TakeOwnerAndGroupFromToken(callers);
    for (const Caller& caller : kCallers) {
        // Without room for it no SID can be made.
        DWORD bytes = sid ? DWORD{SECURITY_MAX_SID_SIZE} : 0;
        if (CreateWellKnownSid(caller.type, nullptr, sid.Get(), &bytes) == FALSE) {
            Log(Orva::Shared::Level::kError, caller.failure, GetLastError());
            continue;
        }
        Allow(callers, sid.Get());
    }
}

/// CoIncrementMTAUsage of <combaseapi.h>, which Windows has from 8 on. The cookie would give back what
/// it holds.
using IncrementMtaUsage = HRESULT WINAPI(void** cookie);

/// Keeps the process's multithreaded apartment from now to the end of the process, whichever threads
/// leave it. What a thread creates there (the managers, the subscriptions) stays connected when that
/// thread has left, and what is set for the process stays set. Never given back.
///
/// Called inside the single-threaded apartment: a thread that is in none would be put into the
/// multithreaded one, and could not enter another then. Where it could not enter one at all, that does
/// no harm.
void HoldMultithreadedApartment() {
    auto* const increment = Platform::LookUp<IncrementMtaUsage>(L"ole32.dll", "CoIncrementMTAUsage");
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
    const HRESULT secured = CoInitializeSecurity(&callers.descriptor, kLetComChooseServices, nullptr, nullptr,
                                                 RPC_C_AUTHN_LEVEL_CONNECT, RPC_C_IMP_LEVEL_IMPERSONATE,
                                                 nullptr, EOAC_NONE, nullptr);
    if (FAILED(secured)) {
        Log(Orva::Shared::Level::kError, L"CoInitializeSecurity failed. Error: 0x%08X", secured);
    }
    comSecurityInitialised = SUCCEEDED(secured);
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
