#include "tests/support/ledger.h"

#include <windows.h>
#include <aclapi.h>
#include <objbase.h>
#include <oleauto.h>
#include <process.h>
#include <sddl.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <tuple>
#include <type_traits>

#include "tests/support/fake_unknown.h"

namespace Rig {

namespace {

/// Handles made up by the test start here and go up by four, as handles do. Real ones are small.
constexpr std::uintptr_t kFirstMadeUpHandle = 0x5EED0004;
constexpr std::uintptr_t kMadeUpHandleStep = 4;

std::string Text(const std::string& kind, const void* value) {
    std::ostringstream text;
    text << kind << " " << value;
    return text.str();
}

template <class Value>
const void* AsPointer(Value value) {
    return reinterpret_cast<const void*>(value);
}

bool IsGiven(const void* value) {
    return value != nullptr && value != INVALID_HANDLE_VALUE;
}

/// What a successful call returns: a BOOL is not FALSE; status codes (Win32 or HRESULT) are zero.
template <class Result>
bool Succeeded(Result result) {
    return std::is_same_v<Result, BOOL> ? result != 0 : result == 0;
}

/// What a closing function returns when it has done its work.
template <class Result>
Result Done() {
    if constexpr (std::is_same_v<Result, BOOL>) {
        return TRUE;
    } else if constexpr (!std::is_void_v<Result>) {
        return Result{};
    }
}

/// What a closing function returns for something that it does not know.
template <class Result>
Result Refused() {
    if constexpr (std::is_same_v<Result, BOOL>) {
        Real<&::SetLastError>(ERROR_INVALID_HANDLE);
        return FALSE;
    } else if constexpr (!std::is_void_v<Result>) {
        return static_cast<Result>(ERROR_INVALID_HANDLE);
    }
}

/// Whether a closing function refused a value because it is none of Windows'.
template <class Result>
bool IsRefusal(Result result) {
    if constexpr (std::is_same_v<Result, BOOL>) {
        return result == FALSE && Real<&::GetLastError>() == ERROR_INVALID_HANDLE;
    } else {
        return result == static_cast<Result>(ERROR_INVALID_HANDLE);
    }
}

/// The predefined keys are no handles of the caller's.
bool IsPredefinedKey(const void* value) {
    constexpr std::uintptr_t kLowBits = 0xffffffff;
    constexpr std::uintptr_t kFirst = 0x80000000;
    constexpr std::uintptr_t kMask = 0xffffff00;
    return (reinterpret_cast<std::uintptr_t>(value) & kLowBits & kMask) == kFirst;
}

/// The text that a variant owns; null when it owns none.
const void* OwnedBstr(const VARIANT& variant) {
    return V_VT(&variant) == VT_BSTR ? V_BSTR(&variant) : nullptr;
}

/// The array that a variant owns; null when it owns none.
const void* OwnedArray(const VARIANT& variant) {
    const bool owns = (V_VT(&variant) & VT_ARRAY) != 0 && (V_VT(&variant) & VT_BYREF) == 0;
    return owns ? V_ARRAY(&variant) : nullptr;
}

}  // namespace

template <auto Function, class Fake>
void Ledger::Hook(Fake fake) {
    if (auto hook = ReplaceIfImported<Function>(kWrapping, std::move(fake))) {
        m_hooks.push_back(std::move(hook));
    }
}

/// The function returns what it gives out.
template <auto Function>
void Ledger::GivesResult(const char* kind) {
    Hook<Function>([this, kind](const auto& self, auto... args) {
        const auto result = self.Original(args...);
        if (IsGiven(AsPointer(result))) {
            Book(kind, AsPointer(result), std::string(Detail::NameOf<Function>()));
        }
        return result;
    });
}

/// The function gives through the argument at a position, counted from zero.
template <auto Function, std::size_t Position>
void Ledger::GivesThrough(const char* kind) {
    Hook<Function>([this, kind](const auto& self, auto... args) {
        const auto result = self.Original(args...);
        auto* const place = std::get<Position>(std::make_tuple(args...));
        if (Succeeded(result) && place != nullptr && IsGiven(AsPointer(*place)) &&
            !(kind == Kind::kRegistryKey && IsPredefinedKey(AsPointer(*place)))) {
            Book(kind, AsPointer(*place), std::string(Detail::NameOf<Function>()));
        }
        return result;
    });
}

/// The function takes back its first argument. Where functions that are not booked give out the
/// same values, only Windows knows whether a value that was given back before is good again.
template <auto Function>
void Ledger::TakesBack(const char* kind, bool alwaysAsksWindows) {
    Hook<Function>([this, kind, alwaysAsksWindows](const auto& self, auto value, auto... rest) {
        using Result = decltype(self.Original(value, rest...));
        const State state = Look(kind, AsPointer(value));
        if (state == State::kLiveMadeUp) {
            MarkReturned(kind, AsPointer(value));
            return Done<Result>();
        }
        if (state == State::kReturnedMadeUp || (state == State::kReturned && !alwaysAsksWindows)) {
            ReportTwice(kind, AsPointer(value));
            return Refused<Result>();
        }
        if constexpr (std::is_void_v<Result>) {
            self.Original(value, rest...);
            MarkReturned(kind, AsPointer(value));
        } else {
            const Result result = self.Original(value, rest...);
            if (state == State::kLive && Succeeded(result)) {
                MarkReturned(kind, AsPointer(value));
            } else if (state == State::kReturned && IsRefusal(result)) {
                ReportTwice(kind, AsPointer(value));
            }
            return result;
        }
    });
}

/// The function frees the memory that is its only argument.
template <auto Function>
void Ledger::TakesMemoryBack(const char* kind) {
    Hook<Function>([this, kind](const auto& self, auto value) {
        using Result = decltype(self.Original(value));
        const auto free = [&self, value] { static_cast<void>(self.Original(value)); };
        if (KeepIfBooked(kind, AsPointer(value), free)) {
            return Done<Result>();
        }
        return self.Original(value);
    });
}

Ledger::Ledger() {
    for (const FakeObject::Held& held : FakeObject::All()) {
        m_heldBefore[held.fake] = held.references;
    }
    HookKernelObjects();
    HookFilesAndModules();
    HookRegistryAndServices();
    HookMemory();
    HookHeap();
    HookCom();
    HookVariants();
}

Ledger::~Ledger() {
    if (!m_dismissed) {
        EXPECT_TRUE(Balanced());
    }
    FreeWhatWasKept();
    m_hooks.clear();
}

void Ledger::HookKernelObjects() {
    GivesResult<&::CreateEventW>(Kind::kHandle);
    GivesResult<&::CreateEventExW>(Kind::kHandle);
    GivesResult<&::OpenEventW>(Kind::kHandle);
    GivesResult<&::CreateMutexW>(Kind::kHandle);
    GivesResult<&::CreateMutexExW>(Kind::kHandle);
    GivesResult<&::OpenMutexW>(Kind::kHandle);
    GivesResult<&::CreateThread>(Kind::kHandle);
    GivesResult<&::OpenProcess>(Kind::kHandle);
    GivesThrough<&::OpenProcessToken, 2>(Kind::kHandle);
    GivesThrough<&::OpenThreadToken, 3>(Kind::kHandle);
    GivesThrough<&::DuplicateTokenEx, 5>(Kind::kHandle);
    Hook<&::_beginthreadex>([this](const auto& self, void* security, unsigned stack, auto start,
                                   void* argument, unsigned flags, unsigned* id) {
        const auto thread = self.Original(security, stack, start, argument, flags, id);
        // The runtime's own threads start suspended and are given back when they are joined.
        if (thread != 0 && (flags & CREATE_SUSPENDED) == 0) {
            Book(Kind::kHandle, AsPointer(thread), "_beginthreadex");
        }
        return thread;
    });
    TakesBack<&::CloseHandle>(Kind::kHandle, true);
}

void Ledger::HookFilesAndModules() {
    GivesResult<&::CreateFileW>(Kind::kHandle);
    GivesResult<&::FindFirstFileW>(Kind::kFindHandle);
    GivesResult<&::FindFirstFileExW>(Kind::kFindHandle);
    TakesBack<&::FindClose>(Kind::kFindHandle);
    GivesResult<&::LoadLibraryW>(Kind::kModule);
    GivesResult<&::LoadLibraryExW>(Kind::kModule);
    TakesBack<&::FreeLibrary>(Kind::kModule, true);
    GivesResult<&::_wfopen>(Kind::kStream);
    GivesResult<&::_wfsopen>(Kind::kStream);
    Hook<&::fclose>([this](const auto& self, FILE* stream) {
        if (Look(Kind::kStream, stream) == State::kReturned) {
            ReportTwice(Kind::kStream, stream);
            return EOF;
        }
        const int result = self.Original(stream);
        MarkReturned(Kind::kStream, stream);
        return result;
    });
}

void Ledger::HookRegistryAndServices() {
    GivesThrough<&::RegOpenKeyExW, 4>(Kind::kRegistryKey);
    GivesThrough<&::RegCreateKeyExW, 7>(Kind::kRegistryKey);
    TakesBack<&::RegCloseKey>(Kind::kRegistryKey, true);
    GivesResult<&::OpenSCManagerW>(Kind::kServiceHandle);
    GivesResult<&::OpenServiceW>(Kind::kServiceHandle);
    GivesResult<&::CreateServiceW>(Kind::kServiceHandle);
    TakesBack<&::CloseServiceHandle>(Kind::kServiceHandle);
    GivesResult<&::RegisterEventSourceW>(Kind::kEventSource);
    TakesBack<&::DeregisterEventSource>(Kind::kEventSource);
}

void Ledger::HookMemory() {
    GivesResult<&::LocalAlloc>(Kind::kLocalMemory);
    GivesThrough<&::SetEntriesInAclW, 3>(Kind::kLocalMemory);
    GivesThrough<&::ConvertSidToStringSidW, 1>(Kind::kLocalMemory);
    GivesThrough<&::ConvertStringSidToSidW, 1>(Kind::kLocalMemory);
    GivesThrough<&::ConvertStringSecurityDescriptorToSecurityDescriptorW, 2>(Kind::kLocalMemory);
    Hook<&::FormatMessageW>([this](const auto& self, DWORD flags, const void* source, DWORD message,
                                   DWORD language, wchar_t* buffer, DWORD size, va_list* args) {
        const DWORD length = self.Original(flags, source, message, language, buffer, size, args);
        if (length != 0 && (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
            // With this flag the argument is the place for the address of the text.
            Book(Kind::kLocalMemory, *reinterpret_cast<void**>(buffer), "FormatMessageW");
        }
        return length;
    });
    TakesMemoryBack<&::LocalFree>(Kind::kLocalMemory);
    GivesThrough<&::AllocateAndInitializeSid, 10>(Kind::kSid);
    TakesMemoryBack<&::FreeSid>(Kind::kSid);
}

void Ledger::HookHeap() {
    if (!IsImported<&::malloc>()) {
        return;  // It is linked in and takes its memory from HeapAlloc, also for what is booked here.
    }
    GivesResult<&::HeapAlloc>(Kind::kHeapMemory);
    Hook<&::HeapReAlloc>([this](const auto& self, HANDLE heap, DWORD flags, void* old, SIZE_T size) {
        void* const block = self.Original(heap, flags, old, size);
        if (block != nullptr) {
            MarkReturned(Kind::kHeapMemory, old);
            Book(Kind::kHeapMemory, block, "HeapReAlloc");
        }
        return block;
    });
    Hook<&::HeapFree>([this](const auto& self, HANDLE heap, DWORD flags, void* block) -> BOOL {
        const auto free = [&self, heap, flags, block] { self.Original(heap, flags, block); };
        return KeepIfBooked(Kind::kHeapMemory, block, free) ? TRUE : self.Original(heap, flags, block);
    });
}

void Ledger::HookCom() {
    GivesResult<&::CoTaskMemAlloc>(Kind::kTaskMemory);
    GivesThrough<&::StringFromCLSID, 1>(Kind::kTaskMemory);
    GivesThrough<&::StringFromIID, 1>(Kind::kTaskMemory);
    GivesThrough<&::ProgIDFromCLSID, 1>(Kind::kTaskMemory);
    TakesMemoryBack<&::CoTaskMemFree>(Kind::kTaskMemory);
    Hook<&::CoInitializeEx>([this](const auto& self, void* reserved, DWORD model) {
        const HRESULT result = self.Original(reserved, model);
        BookComEntry(SUCCEEDED(result) ? 1 : 0);
        return result;
    });
    Hook<&::CoInitialize>([this](const auto& self, void* reserved) {
        const HRESULT result = self.Original(reserved);
        BookComEntry(SUCCEEDED(result) ? 1 : 0);
        return result;
    });
    Hook<&::CoUninitialize>([this](const auto& self) {
        BookComEntry(-1);
        self.Original();
    });
}

void Ledger::HookVariants() {
    GivesResult<&::SysAllocString>(Kind::kBstr);
    GivesResult<&::SysAllocStringLen>(Kind::kBstr);
    GivesResult<&::SysAllocStringByteLen>(Kind::kBstr);
    TakesMemoryBack<&::SysFreeString>(Kind::kBstr);
    GivesResult<&::SafeArrayCreate>(Kind::kSafeArray);
    GivesResult<&::SafeArrayCreateEx>(Kind::kSafeArray);
    GivesResult<&::SafeArrayCreateVector>(Kind::kSafeArray);
    GivesThrough<&::SafeArrayCopy, 1>(Kind::kSafeArray);
    TakesBack<&::SafeArrayDestroy>(Kind::kSafeArray);
    Hook<&::SafeArrayGetElement>([this](const auto& self, SAFEARRAY* array, LONG* indices, void* element) {
        const HRESULT result = self.Original(array, indices, element);
        VARTYPE type = VT_EMPTY;
        if (SUCCEEDED(result) && SUCCEEDED(SafeArrayGetVartype(array, &type)) && type == VT_BSTR &&
            *static_cast<BSTR*>(element) != nullptr) {
            Book(Kind::kBstr, *static_cast<BSTR*>(element), "SafeArrayGetElement");
        }
        return result;
    });
    Hook<&::VariantClear>([this](const auto& self, VARIANT* variant) -> HRESULT {
        const auto free = [&self, copy = *variant]() mutable { self.Original(&copy); };
        if (KeepIfBooked(Kind::kBstr, OwnedBstr(*variant), free)) {
            V_VT(variant) = VT_EMPTY;
            return S_OK;
        }
        const void* const array = OwnedArray(*variant);
        const HRESULT result = self.Original(variant);
        if (SUCCEEDED(result)) {
            MarkReturned(Kind::kSafeArray, array);
        }
        return result;
    });
    const auto changes = [this](const auto& self, VARIANT* to, const VARIANT* from, auto... how) {
        const void* const before = OwnedBstr(*to);
        const HRESULT result = self.Original(to, const_cast<VARIANT*>(from), how...);
        const void* const after = OwnedBstr(*to);
        if (SUCCEEDED(result) && before != after) {
            MarkReturned(Kind::kBstr, before);
            if (after != nullptr) {
                Book(Kind::kBstr, after, "a change of a VARIANT");
            }
        }
        return result;
    };
    Hook<&::VariantChangeType>(changes);
    Hook<&::VariantChangeTypeEx>(changes);
    Hook<&::VariantCopy>(changes);
}

HANDLE Ledger::MakeHandle(const std::string& kind) {
    HANDLE handle = nullptr;
    {
        const Detail::RigLockHolder hold(m_lock);
        handle = reinterpret_cast<HANDLE>(kFirstMadeUpHandle + m_handlesMade * kMadeUpHandleStep);
        ++m_handlesMade;
    }
    Gave(kind, handle);
    return handle;
}

void Ledger::Gave(const std::string& kind, const void* value) {
    Book(kind, value, "the test", true);
}

void Ledger::TookBack(const std::string& kind, const void* value) {
    switch (Look(kind, value)) {
        case State::kLive:
        case State::kLiveMadeUp:
            MarkReturned(kind, value);
            break;
        case State::kReturned:
        case State::kReturnedMadeUp:
            ReportTwice(kind, value);
            break;
        case State::kUnknown:
            const Detail::RigLockHolder hold(m_lock);
            m_problems.push_back(Text(kind, value) + " was given back, but never given out");
            break;
    }
}

void Ledger::Book(const std::string& kind, const void* value, const std::string& giver, bool isMadeUp) {
    const Detail::LastErrorKeeper keep;
    const Detail::RigLockHolder hold(m_lock);
    Entry& entry = m_entries[{kind, value}];
    entry.giver = giver;
    entry.isMadeUp = isMadeUp;
    ++entry.live;
    ++m_given[kind];
}

/// Does nothing for what is not given out.
void Ledger::MarkReturned(const std::string& kind, const void* value) {
    const Detail::LastErrorKeeper keep;
    const Detail::RigLockHolder hold(m_lock);
    const auto found = m_entries.find({kind, value});
    if (found == m_entries.end() || found->second.live == 0) {
        return;
    }
    --found->second.live;
}

void Ledger::ReportTwice(const std::string& kind, const void* value) {
    const Detail::LastErrorKeeper keep;
    const Detail::RigLockHolder hold(m_lock);
    m_problems.push_back(Text(kind, value) + " (from " + m_entries[{kind, value}].giver +
                         ") was given back twice");
}

/// Takes booked memory out of the caller's hands, to be freed at the ledger's end; reports it
/// when it was given back before. False for memory that is not booked.
bool Ledger::KeepIfBooked(const char* kind, const void* value, std::function<void()> free) {
    const Detail::LastErrorKeeper keep;
    const State state = Look(kind, value);
    if (state == State::kUnknown) {
        return false;
    }
    if (state == State::kReturned || state == State::kReturnedMadeUp) {
        ReportTwice(kind, value);
        return true;
    }
    MarkReturned(kind, value);
    if (state == State::kLive) {
        const Detail::RigLockHolder hold(m_lock);
        m_kept.push_back(std::move(free));
    }
    return true;
}

void Ledger::BookComEntry(int change) {
    const Detail::LastErrorKeeper keep;
    const Detail::RigLockHolder hold(m_lock);
    m_comEntries[Detail::ThisThread()] += change;
}

Ledger::State Ledger::Look(const std::string& kind, const void* value) const {
    const Detail::LastErrorKeeper keep;
    const Detail::RigLockHolder hold(m_lock);
    const auto found = m_entries.find({kind, value});
    if (found == m_entries.end()) {
        return State::kUnknown;
    }
    const Entry& entry = found->second;
    if (entry.isMadeUp) {
        return entry.live != 0 ? State::kLiveMadeUp : State::kReturnedMadeUp;
    }
    return entry.live != 0 ? State::kLive : State::kReturned;
}

int Ledger::Outstanding(const std::string& kind) const {
    const Detail::RigLockHolder hold(m_lock);
    int count = 0;
    for (const auto& [key, entry] : m_entries) {
        count += key.first == kind ? entry.live : 0;
    }
    return count;
}

int Ledger::Given(const std::string& kind) const {
    const Detail::RigLockHolder hold(m_lock);
    const auto found = m_given.find(kind);
    return found != m_given.end() ? found->second : 0;
}

testing::AssertionResult Ledger::Balanced(std::chrono::milliseconds patience) const {
    constexpr std::chrono::milliseconds kPollInterval{10};
    std::vector<std::string> problems = Problems();
    for (auto waited = kPollInterval; !problems.empty() && waited <= patience; waited += kPollInterval) {
        Real<&::Sleep>(static_cast<DWORD>(kPollInterval.count()));
        problems = Problems();
    }
    if (problems.empty()) {
        return testing::AssertionSuccess();
    }
    testing::AssertionResult result = testing::AssertionFailure();
    for (const std::string& problem : problems) {
        result << "\n  " << problem;
    }
    return result;
}

std::vector<std::string> Ledger::Problems() const {
    const std::vector<FakeObject::Held> fakes = FakeObject::All();
    const Detail::RigLockHolder hold(m_lock);
    std::vector<std::string> problems = m_problems;
    for (const auto& [key, entry] : m_entries) {
        if (entry.live != 0) {
            problems.push_back(Text(key.first, key.second) + " (from " + entry.giver +
                               ") was not given back");
        }
    }
    for (const auto& [thread, entries] : m_comEntries) {
        if (entries != 0) {
            problems.push_back("thread " + std::to_string(thread) + " entered COM " +
                               std::to_string(entries) + " time(s) more than it left it");
        }
    }
    for (const FakeObject::Held& held : fakes) {
        const auto before = m_heldBefore.find(held.fake);
        const long change = held.references - (before != m_heldBefore.end() ? before->second : 0);
        if (change != 0) {
            problems.push_back("fake " + held.name + ": " + std::to_string(change) +
                               " reference(s) not given back");
        }
    }
    return problems;
}

void Ledger::FreeWhatWasKept() {
    std::vector<std::function<void()>> kept;
    {
        const Detail::RigLockHolder hold(m_lock);
        kept.swap(m_kept);
    }
    for (const auto& free : kept) {
        free();
    }
}

}  // namespace Rig
