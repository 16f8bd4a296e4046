#include "tests/support/ledger.h"

#include <windows.h>
#include <objbase.h>
#include <oleauto.h>

#include <gtest/gtest-spi.h>

#include <ostream>
#include <stdexcept>
#include <thread>

#include "tests/support/skip_unless_imported.h"
#include "tests/support/words.h"

namespace Rig {
namespace {

using namespace Words;

/// What an unbalanced ledger says; empty for a balanced one.
std::string Complaint(const Ledger& ledger) {
    const testing::AssertionResult result = ledger.Balanced();
    return result ? "" : result.message();
}

using GiveBack = std::function<void()>;

template <class Function, class Value>
GiveBack By(Function close, Value value) {
    return [=] { close(value); };
}

/// Something that a function gives out and another one takes back.
struct Resource {
    const char* giver;
    const char* kind;
    GiveBack (*give)();
};

void PrintTo(const Resource& resource, std::ostream* out) {
    *out << resource.giver;
}

const Resource kResources[] = {
    {"CreateEventW", Kind::kHandle,
     [] { return By(&CloseHandle, CreateEventW(nullptr, TRUE, FALSE, nullptr)); }},
    {"CreateMutexW", Kind::kHandle, [] { return By(&CloseHandle, CreateMutexW(nullptr, FALSE, nullptr)); }},
    {"OpenProcessToken", Kind::kHandle,
     [] {
         HANDLE token = nullptr;
         OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
         return By(&CloseHandle, token);
     }},
    {"FindFirstFileW", Kind::kFindHandle,
     [] {
         WIN32_FIND_DATAW found{};
         return By(&FindClose, FindFirstFileW(L"C:\\windows\\*", &found));
     }},
    {"_wfopen", Kind::kStream, [] { return By(&fclose, _wfopen(L"NUL", L"r")); }},
    {"RegOpenKeyExW", Kind::kRegistryKey,
     [] {
         HKEY key = nullptr;
         RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &key);
         return By(&RegCloseKey, key);
     }},
    {"RegCreateKeyExW", Kind::kRegistryKey,
     [] {
         HKEY key = nullptr;
         RegCreateKeyExW(HKEY_CURRENT_USER, L"Software", 0, nullptr, 0, KEY_READ, nullptr, &key, nullptr);
         return By(&RegCloseKey, key);
     }},
    {"OpenSCManagerW", Kind::kServiceHandle,
     [] { return By(&CloseServiceHandle, OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)); }},
    {"RegisterEventSourceW", Kind::kEventSource,
     [] { return By(&DeregisterEventSource, RegisterEventSourceW(nullptr, L"Rig")); }},
    {"LocalAlloc", Kind::kLocalMemory, [] { return By(&LocalFree, LocalAlloc(LMEM_FIXED, 10)); }},
    {"HeapAlloc", Kind::kHeapMemory,
     [] {
         return By([](void* block) { HeapFree(GetProcessHeap(), 0, block); },
                   HeapAlloc(GetProcessHeap(), 0, 10));
     }},
    {"StringFromCLSID", Kind::kTaskMemory,
     [] {
         LPOLESTR text = nullptr;
         StringFromCLSID(IID_IUnknown, &text);
         return By(&CoTaskMemFree, text);
     }},
    {"SysAllocString", Kind::kBstr, [] { return By(&SysFreeString, SysAllocString(L"text")); }},
    {"SafeArrayCreateVector", Kind::kSafeArray,
     [] { return By(&SafeArrayDestroy, SafeArrayCreateVector(VT_I4, 0, 1)); }},
};

class LedgerOf : public testing::TestWithParam<Resource> {};

TEST_P(LedgerOf, IsBalancedWhenTheResourceWasGivenBackOnce) {
    SKIP_UNLESS_IMPORTED(malloc);
    const auto& [giver, kind, give] = GetParam();
    const std::string from = std::string("(from ") + giver + ")";
    Ledger ledger;
    const GiveBack giveBack = give();
    EXPECT_THAT(Complaint(ledger), AllOf(HasSubstr(kind), HasSubstr(from + " was not given back")));
    EXPECT_EQ(ledger.Outstanding(kind), 1);
    giveBack();
    EXPECT_TRUE(ledger.Balanced());
    EXPECT_EQ(ledger.Outstanding(kind), 0);
    EXPECT_EQ(ledger.Given(kind), 1);
    giveBack();
    EXPECT_THAT(Complaint(ledger),
                AllOf(HasSubstr(from + " was given back twice"), Not(HasSubstr("not given back"))));
    ledger.Dismiss();
}

INSTANTIATE_TEST_SUITE_P(Kinds, LedgerOf, testing::ValuesIn(kResources));

TEST(Ledger, LeakFailsTheTestAtTheEndOfTheScopeAlsoWhenItThrows) {
    static HANDLE event = nullptr;
    EXPECT_NONFATAL_FAILURE(
        try {
            const Ledger ledger;
            event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
            throw std::runtime_error("the test goes wrong");
        } catch (const std::runtime_error&){},
        "(from CreateEventW) was not given back");
    CloseHandle(event);
}

TEST(Ledger, CloseThatFailsLeavesTheHandleGivenOut) {
    const ScopedResult<&::CloseHandle> fails{FALSE, ERROR_CRC, AtCall{1}};
    Ledger ledger;
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    EXPECT_EQ(CloseHandle(event), FALSE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
    EXPECT_THAT(Complaint(ledger), HasSubstr("was not given back"));
    EXPECT_NE(CloseHandle(event), FALSE);
}

TEST(Ledger, WhatWasThereBeforeMayBeGivenBack) {
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const BSTR text = SysAllocString(L"text");
    const Ledger ledger;
    EXPECT_NE(CloseHandle(event), FALSE);
    SysFreeString(text);
    EXPECT_TRUE(ledger.Balanced());
}

TEST(Ledger, FailedCallsAreNotBookedAndKeepTheirLastError) {
    const Ledger ledger;
    HKEY key = nullptr;
    EXPECT_NE(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"No such key", 0, KEY_READ, &key), ERROR_SUCCESS);
    EXPECT_EQ(OpenServiceW(nullptr, L"none", 0), nullptr);
    WIN32_FIND_DATAW found{};
    EXPECT_EQ(FindFirstFileW(L"C:\\windows\\no such file", &found), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_TRUE(ledger.Balanced());
}

TEST(Ledger, FakesBehindItAreBookedAndThoseInFrontBookForThemselves) {
    int storage[2]{};
    const auto fake = [&storage](int number) { return reinterpret_cast<SC_HANDLE>(&storage[number]); };
    const ScopedImport<&::OpenSCManagerW> open{[&](auto...) { return fake(0); }};
    const ScopedImport<&::CloseServiceHandle> close{[](SC_HANDLE) { return TRUE; }};
    Ledger ledger;
    const ScopedImport<&::OpenServiceW> inFront{[&](auto...) {
        ledger.Gave(Kind::kServiceHandle, fake(1));
        return fake(1);
    }};
    OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    OpenServiceW(nullptr, L"none", 0);
    EXPECT_THAT(Complaint(ledger), AllOf(HasSubstr("(from OpenSCManagerW)"), HasSubstr("(from the test)")));
    CloseServiceHandle(fake(0));
    CloseServiceHandle(fake(1));
    EXPECT_TRUE(ledger.Balanced());
    EXPECT_EQ(close.Calls(), 2);
}

TEST(Ledger, BalancedCanBePatientWithOtherThreads) {
    const Ledger ledger;
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread closer([&] {
        Real<&::Sleep>(30);
        CloseHandle(event);
    });
    EXPECT_TRUE(ledger.Balanced(std::chrono::seconds(20)));
    closer.join();
}

TEST(Ledger, ThreadsOfTheRuntimeAreNotTakenForLeaks) {
    const Ledger ledger;
    std::thread([] { std::this_thread::yield(); }).join();
    EXPECT_TRUE(ledger.Balanced());
}

TEST(Ledger, LedgersNest) {
    const Ledger outer;
    const BSTR text = SysAllocString(L"text");
    {
        const Ledger inner;
        SysFreeString(SysAllocString(L"inner"));
        EXPECT_TRUE(inner.Balanced());
    }
    EXPECT_EQ(outer.Outstanding(Kind::kBstr), 1);
    SysFreeString(text);
    EXPECT_TRUE(outer.Balanced());
}

}  // namespace
}  // namespace Rig
