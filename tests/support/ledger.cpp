#include "tests/support/ledger.h"

#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <process.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <tuple>
#include <type_traits>

namespace Rig {

namespace {

/// In place of an argument's position: the function returns what it gives out.
constexpr std::size_t kResult = 99;

template <class Value>
const void* AsPointer(Value value) {
    return reinterpret_cast<const void*>(value);
}

/// Whether a call did its work: a BOOL is not FALSE; status codes (Win32 or HRESULT) and what `fclose`
/// returns are zero.
template <auto Function, class Result>
bool Succeeded(Result result) {
    constexpr bool isBool = std::is_same_v<Result, BOOL> && Detail::NameOf<Function>() != "fclose";
    return isBool ? result != Result{} : result == Result{};
}

/// What a closing function returns when it has done its work.
template <class Result>
Result Done() {
    if constexpr (std::is_same_v<Result, BOOL>) {
        return TRUE;
    } else {
        return Result();
    }
}

std::string Text(std::string_view kind, const void* value, const std::string& giver) {
    std::ostringstream text;
    text << kind << " " << value << " (from " << giver << ")";
    return text.str();
}

}  // namespace

/// What becomes of a value that is given back.
enum class Ledger::Closing {
    /// Windows is asked, the second time too: functions that are not booked give out the same values, so
    /// that it alone knows whether a value is good again.
    kByWindows,
    kOnce,   ///< the second time Windows is not asked
    kAtEnd,  ///< kept to the ledger's end: memory
};

template <auto Function, class Fake>
void Ledger::Hook(Fake fake) {
    if (auto hook = ReplaceIfImported<Function>(kWrapping, std::move(fake))) {
        m_hooks.push_back(std::move(hook));
    }
}

/// The function gives through the argument at a position, counted from zero, or as its result.
template <auto Function, std::size_t Position>
void Ledger::Gives(const char* kind) {
    Hook<Function>([this, kind](const auto& self, auto... args) {
        const auto result = self.Original(args...);
        if constexpr (Position == kResult) {
            Gave(kind, AsPointer(result), Detail::NameOf<Function>());
        } else if (Succeeded<Function>(result)) {
            Gave(kind, AsPointer(*std::get<Position>(std::tie(args...))), Detail::NameOf<Function>());
        }
        return result;
    });
}

/// The function takes back the argument at a position.
template <auto Function, std::size_t Position>
void Ledger::TakesBack(const char* kind, Closing closing) {
    Hook<Function>([this, kind, closing](const auto& self, auto... args) {
        using Result = decltype(self.Original(args...));
        const Key key{kind, AsPointer(std::get<Position>(std::tie(args...)))};
        const State state = Look(key);
        if (closing != Closing::kByWindows && state == State::kReturned) {
            ReportTwice(key);
            return Done<Result>();
        }
        if (closing == Closing::kAtEnd && state == State::kLive) {
            KeepToTheEnd(key, [&self, args...] { static_cast<void>(self.Original(args...)); });
            return Done<Result>();
        }
        if constexpr (std::is_void_v<Result>) {
            self.Original(args...);
        } else {
            const Result result = self.Original(args...);
            if (state == State::kLive && Succeeded<Function>(result)) {
                MarkReturned(key);
            } else if (state == State::kReturned && !Succeeded<Function>(result)) {
                ReportTwice(key);
            }
            return result;
        }
    });
}

void Ledger::HookAll() {
    Gives<&::CreateEventW, kResult>(Kind::kHandle);
    Gives<&::CreateMutexW, kResult>(Kind::kHandle);
    Gives<&::OpenProcessToken, 2>(Kind::kHandle);
    Gives<&::OpenThreadToken, 3>(Kind::kHandle);
    Hook<&::_beginthreadex>([this](const auto& self, void* security, unsigned stack, auto start,
                                   void* argument, unsigned flags, unsigned* id) {
        const auto thread = self.Original(security, stack, start, argument, flags, id);
        // The runtime's own threads start suspended and are given back when they are joined.
        if ((flags & CREATE_SUSPENDED) == 0) {
            Gave(Kind::kHandle, AsPointer(thread), "_beginthreadex");
        }
        return thread;
    });
    TakesBack<&::CloseHandle>(Kind::kHandle, Closing::kByWindows);

    Gives<&::FindFirstFileW, kResult>(Kind::kFindHandle);
    TakesBack<&::FindClose>(Kind::kFindHandle, Closing::kOnce);
    Gives<&::_wfopen, kResult>(Kind::kStream);
    TakesBack<&::fclose>(Kind::kStream, Closing::kOnce);

    Gives<&::RegOpenKeyExW, 4>(Kind::kRegistryKey);
    Gives<&::RegCreateKeyExW, 7>(Kind::kRegistryKey);
    TakesBack<&::RegCloseKey>(Kind::kRegistryKey, Closing::kByWindows);

    Gives<&::OpenSCManagerW, kResult>(Kind::kServiceHandle);
    Gives<&::OpenServiceW, kResult>(Kind::kServiceHandle);
    Gives<&::CreateServiceW, kResult>(Kind::kServiceHandle);
    TakesBack<&::CloseServiceHandle>(Kind::kServiceHandle, Closing::kOnce);
    Gives<&::RegisterEventSourceW, kResult>(Kind::kEventSource);
    TakesBack<&::DeregisterEventSource>(Kind::kEventSource, Closing::kOnce);

    Gives<&::LocalAlloc, kResult>(Kind::kLocalMemory);
    TakesBack<&::LocalFree>(Kind::kLocalMemory, Closing::kAtEnd);
    Gives<&::StringFromCLSID, 1>(Kind::kTaskMemory);
    Gives<&::StringFromIID, 1>(Kind::kTaskMemory);
    TakesBack<&::CoTaskMemFree>(Kind::kTaskMemory, Closing::kAtEnd);
    Gives<&::SysAllocString, kResult>(Kind::kBstr);
    TakesBack<&::SysFreeString>(Kind::kBstr, Closing::kAtEnd);
    Gives<&::SafeArrayCreate, kResult>(Kind::kSafeArray);
    Gives<&::SafeArrayCreateVector, kResult>(Kind::kSafeArray);
    TakesBack<&::SafeArrayDestroy>(Kind::kSafeArray, Closing::kOnce);
    // A linked-in malloc takes its memory from HeapAlloc, also for what is booked here.
    if (IsImported<&::malloc>()) {
        Gives<&::HeapAlloc, kResult>(Kind::kHeapMemory);
        TakesBack<&::HeapFree, 2>(Kind::kHeapMemory, Closing::kAtEnd);
    }
}

Ledger::Ledger() {
    HookAll();
}

Ledger::~Ledger() {
    if (!m_dismissed) {
        EXPECT_TRUE(Balanced());
    }
    for (const auto& free : m_kept) {
        free();
    }
    m_hooks.clear();
}

void Ledger::Gave(std::string_view kind, const void* value, std::string_view giver) {
    if (value == nullptr || value == INVALID_HANDLE_VALUE) {
        return;
    }
    const Detail::LastErrorKeeper keep;
    const Detail::RigLockHolder hold(m_lock);
    Entry& entry = m_entries[{kind, value}];
    entry.giver = giver;
    ++entry.live;
    ++entry.given;
}

void Ledger::MarkReturned(const Key& key) {
    const Detail::RigLockHolder hold(m_lock);
    --m_entries.at(key).live;
}

void Ledger::KeepToTheEnd(const Key& key, std::function<void()> free) {
    const Detail::LastErrorKeeper keep;
    MarkReturned(key);
    const Detail::RigLockHolder hold(m_lock);
    m_kept.push_back(std::move(free));
}

void Ledger::ReportTwice(const Key& key) {
    const Detail::LastErrorKeeper keep;
    const Detail::RigLockHolder hold(m_lock);
    m_problems.push_back(Text(key.first, key.second, m_entries.at(key).giver) + " was given back twice");
}

Ledger::State Ledger::Look(const Key& key) const {
    const Detail::RigLockHolder hold(m_lock);
    const auto found = m_entries.find(key);
    if (found == m_entries.end()) {
        return State::kUnknown;
    }
    return found->second.live != 0 ? State::kLive : State::kReturned;
}

int Ledger::Outstanding(std::string_view kind) const {
    const Detail::RigLockHolder hold(m_lock);
    int count = 0;
    for (const auto& [key, entry] : m_entries) {
        count += key.first == kind ? entry.live : 0;
    }
    return count;
}

int Ledger::Given(std::string_view kind) const {
    const Detail::RigLockHolder hold(m_lock);
    int count = 0;
    for (const auto& [key, entry] : m_entries) {
        count += key.first == kind ? entry.given : 0;
    }
    return count;
}

testing::AssertionResult Ledger::Balanced(std::chrono::milliseconds timeout) const {
    constexpr std::chrono::milliseconds kPollInterval{10};
    std::vector<std::string> problems = Problems();
    for (auto waited = kPollInterval; !problems.empty() && waited <= timeout; waited += kPollInterval) {
        Real<&::Sleep>(static_cast<DWORD>(kPollInterval.count()));
        problems = Problems();
    }
    testing::AssertionResult result(problems.empty());
    for (const std::string& problem : problems) {
        result << "\n  " << problem;
    }
    return result;
}

std::vector<std::string> Ledger::Problems() const {
    const Detail::RigLockHolder hold(m_lock);
    std::vector<std::string> problems = m_problems;
    for (const auto& [key, entry] : m_entries) {
        if (entry.live != 0) {
            problems.push_back(Text(key.first, key.second, entry.giver) + " was not given back");
        }
    }
    return problems;
}

std::shared_ptr<void> ShowVariantTexts() {
    return ReplaceIfImported<&::VariantClear>(kWrapping, [](const auto& self, VARIANT* variant) {
        if (V_VT(variant) == VT_BSTR) {
            SysFreeString(V_BSTR(variant));
            V_VT(variant) = VT_EMPTY;
        }
        return self.Original(variant);
    });
}

}  // namespace Rig
