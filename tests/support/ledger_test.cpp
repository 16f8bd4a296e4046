#include "tests/support/ledger.h"

#include <windows.h>
#include <objbase.h>
#include <oleauto.h>

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

#include <stdexcept>
#include <thread>

#include "tests/support/com_support.h"
#include "tests/support/fake_unknown.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/skip_unless_imported.h"

namespace Rig {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// What an unbalanced ledger says; empty for a balanced one.
std::string Complaint(const Ledger& ledger) {
    const testing::AssertionResult result = ledger.Balanced();
    return result ? "" : result.message();
}

/// Any service that every system has.
const wchar_t* const kSomeService = L"PlugPlay";

TEST(Ledger, EverythingGivenBackIsBalanced) {
    SKIP_UNLESS_IMPORTED(malloc);
    Ledger ledger;
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software", 0, KEY_READ, &key), ERROR_SUCCESS);
    LPOLESTR text = nullptr;
    ASSERT_EQ(StringFromCLSID(IID_IUnknown, &text), S_OK);
    void* const block = HeapAlloc(GetProcessHeap(), 0, 10);
    const HLOCAL local = LocalAlloc(LMEM_FIXED, 10);
    const BSTR bstr = SysAllocString(L"text");
    EXPECT_EQ(ledger.Outstanding(Kind::kHandle), 1);
    EXPECT_EQ(ledger.Outstanding(Kind::kRegistryKey), 1);
    EXPECT_EQ(ledger.Outstanding(Kind::kTaskMemory), 1);
    EXPECT_EQ(ledger.Outstanding(Kind::kHeapMemory), 1);
    EXPECT_EQ(ledger.Outstanding(Kind::kLocalMemory), 1);
    EXPECT_EQ(ledger.Outstanding(Kind::kBstr), 1);
    EXPECT_NE(CloseHandle(event), FALSE);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    CoTaskMemFree(text);
    EXPECT_NE(HeapFree(GetProcessHeap(), 0, block), FALSE);
    EXPECT_EQ(LocalFree(local), nullptr);
    SysFreeString(bstr);
    EXPECT_TRUE(ledger.Balanced());
    EXPECT_EQ(ledger.Given(Kind::kHandle), 1);
}

TEST(Ledger, LeakFailsTheTestAtTheEndOfTheScope) {
    static HANDLE event = nullptr;
    EXPECT_NONFATAL_FAILURE(
        {
            const Ledger ledger;
            event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        },
        "(from CreateEventW) was not given back");
    CloseHandle(event);
}

TEST(Ledger, LeakIsReportedAlsoWhenTheTestThrows) {
    static HANDLE event = nullptr;
    EXPECT_NONFATAL_FAILURE(
        try {
            const Ledger ledger;
            event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
            throw std::runtime_error("the test goes wrong");
        } catch (const std::runtime_error&){},
        "was not given back");
    CloseHandle(event);
}

TEST(Ledger, HandleClosedTwiceIsReported) {
    Ledger ledger;
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    CloseHandle(event);
    EXPECT_EQ(CloseHandle(event), FALSE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_THAT(Complaint(ledger), HasSubstr("(from CreateEventW) was given back twice"));
    ledger.Dismiss();
}

TEST(Ledger, MemoryFreedTwiceIsReportedAndDoesNoHarm) {
    Ledger ledger;
    const BSTR text = SysAllocString(L"text");
    void* const block = HeapAlloc(GetProcessHeap(), 0, 10);
    void* const task = CoTaskMemAlloc(10);
    for (int i = 0; i < 2; ++i) {
        SysFreeString(text);
        HeapFree(GetProcessHeap(), 0, block);
        CoTaskMemFree(task);
    }
    EXPECT_THAT(Complaint(ledger), AllOf(HasSubstr("(from SysAllocString) was given back twice"),
                                         HasSubstr("(from HeapAlloc) was given back twice"),
                                         HasSubstr("(from CoTaskMemAlloc) was given back twice"),
                                         Not(HasSubstr("not given back"))));
    ledger.Dismiss();
}

TEST(Ledger, ServiceHandlesAreBooked) {
    Ledger ledger;
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE service = OpenServiceW(manager, kSomeService, SERVICE_QUERY_STATUS);
    ASSERT_NE(service, nullptr);
    CloseServiceHandle(service);
    EXPECT_EQ(CloseServiceHandle(service), FALSE);
    EXPECT_THAT(Complaint(ledger), AllOf(HasSubstr("(from OpenServiceW) was given back twice"),
                                         HasSubstr("(from OpenSCManagerW) was not given back")));
    CloseServiceHandle(manager);
    ledger.Dismiss();
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
    const Ledger ledger;
    EXPECT_NE(CloseHandle(event), FALSE);
    EXPECT_TRUE(ledger.Balanced());
}

TEST(Ledger, FailedCallsAndPredefinedKeysAreNotBooked) {
    const Ledger ledger;
    HKEY key = nullptr;
    EXPECT_NE(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"No such key", 0, KEY_READ, &key), ERROR_SUCCESS);
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, nullptr, 0, KEY_READ, &key), ERROR_SUCCESS);
    EXPECT_EQ(OpenServiceW(nullptr, L"none", 0), nullptr);
    WIN32_FIND_DATAW found{};
    EXPECT_EQ(FindFirstFileW(L"Z:\\no such folder\\*", &found), INVALID_HANDLE_VALUE);
    if (ledger.Outstanding(Kind::kRegistryKey) != 0) {
        RegCloseKey(key);
    }
    EXPECT_TRUE(ledger.Balanced());
}

TEST(Ledger, LastErrorOfTheFunctionIsKept) {
    const Ledger ledger;
    EXPECT_EQ(OpenEventW(SYNCHRONIZE, FALSE, L"Orva no such event"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST(Ledger, TextInAVariantIsGivenBackByClearingIt) {
    const Ledger ledger;
    VARIANT variant;
    VariantInit(&variant);
    V_VT(&variant) = VT_BSTR;
    V_BSTR(&variant) = SysAllocString(L"12");
    EXPECT_EQ(ledger.Outstanding(Kind::kBstr), 1);
    EXPECT_EQ(VariantClear(&variant), S_OK);
    EXPECT_EQ(V_VT(&variant), VT_EMPTY);
    EXPECT_TRUE(ledger.Balanced());
}

TEST(Ledger, TextMadeByChangingAVariantIsBooked) {
    Ledger ledger;
    VARIANT number;
    VariantInit(&number);
    V_VT(&number) = VT_I4;
    V_I4(&number) = 12;
    VARIANT text;
    VariantInit(&text);
    ASSERT_EQ(VariantChangeType(&text, &number, 0, VT_BSTR), S_OK);
    EXPECT_THAT(Complaint(ledger), HasSubstr("BSTR"));
    ASSERT_EQ(VariantChangeType(&text, &text, 0, VT_I4), S_OK);
    EXPECT_TRUE(ledger.Balanced());
    EXPECT_EQ(V_I4(&text), 12);
}

TEST(Ledger, ArraysAndTheirTextsAreBooked) {
    Ledger ledger;
    SAFEARRAY* const array = SafeArrayCreateVector(VT_BSTR, 0, 1);
    LONG index = 0;
    const BSTR text = SysAllocString(L"text");
    ASSERT_EQ(SafeArrayPutElement(array, &index, text), S_OK);
    SysFreeString(text);
    BSTR element = nullptr;
    ASSERT_EQ(SafeArrayGetElement(array, &index, &element), S_OK);
    EXPECT_THAT(Complaint(ledger), AllOf(HasSubstr("(from SafeArrayGetElement) was not"),
                                         HasSubstr("(from SafeArrayCreateVector) was not")));
    SysFreeString(element);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    EXPECT_TRUE(ledger.Balanced());
    SafeArrayDestroy(array);
    EXPECT_THAT(Complaint(ledger), HasSubstr("SAFEARRAY"));
    ledger.Dismiss();
}

TEST(Ledger, ComIsCountedByThread) {
    Ledger ledger;
    RunOnThread([] { CoInitializeEx(nullptr, COINIT_MULTITHREADED); }, Apartment::kNone);
    EXPECT_THAT(Complaint(ledger), HasSubstr("entered COM 1 time(s) more than it left it"));
    ledger.Dismiss();
}

TEST(Ledger, LeavingComOnceMoreBalancesTheExtraEntryOfTheThread) {
    const Ledger ledger;
    RunOnThread([] { CoUninitialize(); }, Apartment::kMultithreadedTwice);
    EXPECT_TRUE(ledger.Balanced());
}

class FakeInfo : public FakeUnknown<IErrorInfo> {
  public:
    FakeInfo() : FakeUnknown("info") {}
    HRESULT WINAPI GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetSource(BSTR*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetDescription(BSTR*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetHelpContext(DWORD*) override { return E_NOTIMPL; }
};

TEST(Ledger, ReferencesToFakesAreLookedAt) {
    FakeInfo held;
    IErrorInfo* before = nullptr;
    held.HandOut(&before);
    Ledger ledger;
    EXPECT_TRUE(ledger.Balanced());
    FakeInfo info;
    IErrorInfo* taken = nullptr;
    info.HandOut(&taken);
    EXPECT_THAT(Complaint(ledger), HasSubstr("fake info: 1 reference(s) not given back"));
    taken->Release();
    EXPECT_TRUE(ledger.Balanced());
    before->Release();
    ledger.Dismiss();
}

TEST(Ledger, HandleMadeUpByAFakeIsTakenBackWithoutWindows) {
    Ledger ledger;
    const ScopedImport<&::OpenSCManagerW> open{
        [&](auto...) { return ledger.MakeHandle<SC_HANDLE>(Kind::kServiceHandle); }};
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    EXPECT_THAT(Complaint(ledger), HasSubstr("service handle"));
    EXPECT_TRUE(CloseServiceHandle(manager));
    EXPECT_TRUE(ledger.Balanced());
    EXPECT_FALSE(CloseServiceHandle(manager));
    EXPECT_THAT(Complaint(ledger), HasSubstr("was given back twice"));
    ledger.Dismiss();
}

TEST(Ledger, FakeFromBeforeTheLedgerIsBookedLikeWindows) {
    int storage = 0;
    const ScopedImport<&::OpenSCManagerW> open{
        [&](auto...) { return reinterpret_cast<SC_HANDLE>(&storage); }};
    const ScopedImport<&::CloseServiceHandle> close{[](SC_HANDLE) { return TRUE; }};
    const Ledger ledger;
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    EXPECT_THAT(Complaint(ledger), HasSubstr("(from OpenSCManagerW) was not given back"));
    EXPECT_TRUE(CloseServiceHandle(manager));
    EXPECT_TRUE(ledger.Balanced());
    EXPECT_EQ(close.Calls(), 1);
}

TEST(Ledger, FakesMayBookTheirOwnKinds) {
    Ledger ledger;
    int thing = 0;
    ledger.Gave("subscription", &thing);
    EXPECT_THAT(Complaint(ledger), HasSubstr("subscription"));
    ledger.TookBack("subscription", &thing);
    EXPECT_TRUE(ledger.Balanced());
    ledger.TookBack("subscription", &thing);
    ledger.TookBack("ticket", &thing);
    EXPECT_THAT(Complaint(ledger), AllOf(HasSubstr("twice"), HasSubstr("never given out")));
    ledger.Dismiss();
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
        VARIANT variant;
        VariantInit(&variant);
        V_VT(&variant) = VT_BSTR;
        V_BSTR(&variant) = SysAllocString(L"12");
        VariantClear(&variant);
        EXPECT_TRUE(inner.Balanced());
    }
    EXPECT_EQ(outer.Outstanding(Kind::kBstr), 1);
    SysFreeString(text);
    EXPECT_TRUE(outer.Balanced());
}

TEST(Ledger, FilesAndListingsAreBooked) {
    Ledger ledger;
    WIN32_FIND_DATAW found{};
    const HANDLE listing = FindFirstFileW(L"C:\\windows\\*", &found);
    const HANDLE file = CreateFileW(L"C:\\windows", 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    FILE* const stream = _wfopen(L"NUL", L"r");
    EXPECT_THAT(Complaint(ledger),
                AllOf(HasSubstr("FindFirstFileW"), HasSubstr("CreateFileW"), HasSubstr("_wfopen")));
    EXPECT_NE(FindClose(listing), FALSE);
    EXPECT_NE(CloseHandle(file), FALSE);
    EXPECT_EQ(fclose(stream), 0);
    EXPECT_TRUE(ledger.Balanced());
}

TEST(Ledger, TokenIsBooked) {
    const Ledger ledger;
    HANDLE token = nullptr;
    ASSERT_NE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token), FALSE);
    EXPECT_EQ(ledger.Outstanding(Kind::kHandle), 1);
    CloseHandle(token);
    EXPECT_TRUE(ledger.Balanced());
}

}  // namespace
}  // namespace Rig
