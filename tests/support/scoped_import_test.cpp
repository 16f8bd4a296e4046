#include "tests/support/scoped_import.h"

#include <windows.h>

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

namespace Rig {
namespace {

using testing::HasSubstr;
using testing::Pointee;
using testing::Property;
using testing::Throws;
using testing::ThrowsMessage;

/// Stands for the code under test. In a function of its own, because the compiler fetches an
/// import's address once in a function.
__declspec(noinline) DWORD AskWho() {
    return GetCurrentProcessId();
}

constexpr DWORD kNobody = 4711;

TEST(ScopedImport, FakeTakesTheCallAndItsEndGivesTheFunctionBack) {
    const DWORD before = AskWho();
    {
        const ScopedImport<&::GetCurrentProcessId> fake{[] { return kNobody; }};
        EXPECT_EQ(AskWho(), kNobody);
        EXPECT_EQ(fake.Calls(), 1);
    }
    EXPECT_EQ(AskWho(), before);
}

TEST(ScopedImport, NameComesFromTheFunction) {
    EXPECT_EQ(Detail::NameOf<&::GetCurrentProcessId>(), "GetCurrentProcessId");
    EXPECT_EQ(Detail::NameOf<&::GetProcAddress>(), "GetProcAddress");
}

TEST(ScopedImport, NameIsFoundInTheOtherCompilersWords) {
    EXPECT_EQ(Detail::NameIn("class std::view __cdecl Rig::Detail::NameOf<void __cdecl "
                             "Sleep(unsigned long)>(void)"),
              "Sleep");
    EXPECT_EQ(Detail::NameIn("class std::view __cdecl Rig::Detail::NameOf<__int64 "
                             "(__cdecl*__cdecl GetProcAddress(struct HINSTANCE__ *,char const "
                             "*))(void)>(void)"),
              "GetProcAddress");
    EXPECT_EQ(Detail::NameIn("const char *Name() [Function = &RegCloseKey]"), "RegCloseKey");
    EXPECT_EQ(Detail::NameIn("nothing of the kind"), "");
}

TEST(ScopedImport, ArgumentsAndResultGoThrough) {
    const ScopedImport<&::MulDiv> fake{[](int a, int b, int c) { return a + 10 * b + 100 * c; }};
    EXPECT_EQ(MulDiv(1, 2, 3), 321);
}

TEST(ScopedImport, OriginalCallsWindows) {
    const ScopedImport<&::MulDiv> fake{[&](int a, int b, int c) { return -fake.Original(a, b, c); }};
    EXPECT_EQ(MulDiv(6, 7, 2), -21);
}

TEST(ScopedImport, InnermostFakeTakesTheCallAndRestoresTheOuterOne) {
    const ScopedImport<&::MulDiv> outer{[](int, int, int) { return 1; }};
    {
        const ScopedImport<&::MulDiv> inner{
            [&](int a, int b, int c) { return 10 + inner.Original(a, b, c); }};
        EXPECT_EQ(MulDiv(5, 5, 5), 11);
    }
    EXPECT_EQ(MulDiv(5, 5, 5), 1);
}

TEST(ScopedImport, FakesMayEndInAnyOrder) {
    auto first = std::make_unique<ScopedImport<&::MulDiv>>([](int, int, int) { return 1; });
    const ScopedImport<&::MulDiv> second{[&](int a, int b, int c) { return 10 + second.Original(a, b, c); }};
    first.reset();
    EXPECT_EQ(MulDiv(6, 7, 2), 31);
}

TEST(ScopedImport, FunctionIsBackAfterAnExceptionLeftTheScope) {
    try {
        const ScopedImport<&::MulDiv> fake{[](int, int, int) { return 1; }};
        throw std::runtime_error("the test goes wrong");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(MulDiv(6, 7, 2), 21);
}

TEST(ScopedImport, ExceptionOfTheFakeReachesTheCaller) {
    const ScopedImport<&::MulDiv> fake{[](int, int, int) -> int { throw DWORD{ERROR_ACCESS_DENIED}; }};
    DWORD caught = NO_ERROR;
    try {
        MulDiv(1, 1, 1);
    } catch (DWORD error) {
        caught = error;
    }
    EXPECT_EQ(caught, DWORD{ERROR_ACCESS_DENIED});
}

TEST(ScopedImport, LastErrorOfTheFakeReachesTheCaller) {
    const ScopedImport<&::MulDiv> fake{[](int, int, int) {
        SetLastError(ERROR_CRC);
        return 0;
    }};
    SetLastError(ERROR_SUCCESS);
    MulDiv(1, 1, 1);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
}

TEST(ScopedImport, LastErrorItselfCanBeReplaced) {
    const ScopedImport<&::GetLastError> fake{[] { return DWORD{ERROR_CRC}; }};
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
}

TEST(ScopedImport, CallsOfOtherThreadsReachTheFake) {
    const ScopedImport<&::GetCurrentProcessId> fake{[] { return kNobody; }};
    DWORD seen = 0;
    std::thread([&] { seen = AskWho(); }).join();
    EXPECT_EQ(seen, kNobody);
}

TEST(ScopedImport, EndWaitsForACallInFlight) {
    std::atomic<bool> inside = false;
    std::atomic<bool> finished = false;
    auto fake = std::make_unique<ScopedImport<&::GetCurrentProcessId>>([&] {
        inside = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        finished = true;
        return kNobody;
    });
    std::thread caller([] { AskWho(); });
    while (!inside) {
        std::this_thread::yield();
    }
    fake.reset();
    EXPECT_TRUE(finished);
    caller.join();
}

TEST(ScopedImport, FakeMayEndItself) {
    std::optional<ScopedImport<&::GetCurrentProcessId>> fake;
    fake.emplace([&] {
        fake.reset();
        return kNobody;
    });
    EXPECT_EQ(AskWho(), kNobody);
    EXPECT_NE(AskWho(), kNobody);
}

TEST(ScopedImport, CallsThatTheConditionRefusesGoOn) {
    const ScopedImport<&::MulDiv> fake{[](int a, int, int) { return a == 1; },
                                       [](int, int, int) { return -1; }};
    EXPECT_EQ(MulDiv(1, 7, 2), -1);
    EXPECT_EQ(MulDiv(6, 7, 2), 21);
    EXPECT_EQ(fake.Calls(), 1);
}

TEST(ScopedImport, EndDoesNotWaitForABlockedCallThatTheConditionRefused) {
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<bool> asked = false;
    auto fake = std::make_unique<ScopedImport<&::WaitForSingleObject>>(
        [&](HANDLE handle, DWORD) {
            asked = asked || handle == event;
            return false;
        },
        [](HANDLE, DWORD) { return WAIT_FAILED; });
    std::thread waiter([&] { EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0); });
    while (!asked) {
        std::this_thread::yield();
    }
    fake.reset();
    SetEvent(event);
    waiter.join();
    CloseHandle(event);
}

TEST(ScopedImport, FunctionThatIsNotImportedIsNamed) {
    EXPECT_FALSE(IsImported<&::GetCurrencyFormatW>());
    EXPECT_THAT([] { const ScopedImport<&::GetCurrencyFormatW> fake{[](auto...) { return 0; }}; },
                ThrowsMessage<NotImported>(HasSubstr("does not import GetCurrencyFormatW")));
}

TEST(ScopedImport, RealCallsWindowsPastEveryFake) {
    const ScopedImport<&::MulDiv> fake{[](int, int, int) { return 1; }};
    EXPECT_EQ(Real<&::MulDiv>(6, 7, 2), 21);
}

TEST(ScopedImport, ManyThreadsCallWhileFakesComeAndGo) {
    std::atomic<bool> stop = false;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] {
            while (!stop) {
                const int result = MulDiv(6, 7, 2);
                wrong += result == 21 || result == 1 ? 0 : 1;
            }
        });
    }
    for (int i = 0; i < 2000; ++i) {
        const ScopedImport<&::MulDiv> fake{[](int, int, int) { return 1; }};
    }
    stop = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST(ScopedResult, AnswersTheChosenCallOnly) {
    const ScopedResult<&::MulDiv> second{-7, ERROR_CRC, AtCall{2}};
    EXPECT_EQ(MulDiv(6, 7, 2), 21);
    EXPECT_EQ(MulDiv(6, 7, 2), -7);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
    EXPECT_EQ(MulDiv(6, 7, 2), 21);
    EXPECT_EQ(second.Calls(), 3);
    EXPECT_EQ(second.Answered(), 1);
}

TEST(ScopedResult, AnswersEveryCallByDefault) {
    const ScopedResult<&::CreateEventW> fails{nullptr, ERROR_NO_SYSTEM_RESOURCES};
    EXPECT_EQ(CreateEventW(nullptr, TRUE, FALSE, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_SYSTEM_RESOURCES});
}

FARPROC LookUp(const char* name) {
    return GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name);
}

TEST(ScopedProcAddress, HidesTheNamedFunctionOnly) {
    const ScopedProcAddress hidden{"GetTickCount", nullptr};
    SetLastError(NO_ERROR);
    EXPECT_EQ(LookUp("GetTickCount"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_PROC_NOT_FOUND});
    EXPECT_NE(LookUp("GetTickCount64"), nullptr);
    EXPECT_EQ(hidden.Lookups(), 1);
}

TEST(ScopedProcAddress, GivesTheFunctionBackAtItsEnd) {
    { const ScopedProcAddress hidden{"GetTickCount", nullptr}; }
    EXPECT_NE(LookUp("GetTickCount"), nullptr);
}

using Tick = DWORD(WINAPI*)();

DWORD CallTick() {
    return reinterpret_cast<Tick>(reinterpret_cast<void*>(LookUp("GetTickCount")))();
}

TEST(ScopedProc, FakeIsWhatTheLookUpGives) {
    const ScopedProc<"GetTickCount", DWORD()> fake{[] { return DWORD{42}; }};
    EXPECT_EQ(CallTick(), 42U);
    EXPECT_EQ(fake.Calls(), 1);
}

TEST(ScopedProc, Nests) {
    const ScopedProc<"GetTickCount", DWORD()> outer{[] { return DWORD{42}; }};
    {
        const ScopedProc<"GetTickCount", DWORD()> inner{[&] { return inner.Original() + 1; }};
        EXPECT_EQ(CallTick(), 43U);
    }
    EXPECT_EQ(CallTick(), 42U);
}

TEST(ScopedProc, KeptAddressThrowsAfterTheEnd) {
    Tick kept = nullptr;
    {
        const ScopedProc<"GetTickCount", DWORD()> fake{[] { return DWORD{42}; }};
        kept = reinterpret_cast<Tick>(reinterpret_cast<void*>(LookUp("GetTickCount")));
    }
    EXPECT_THROW(kept(), NotImported);
}

}  // namespace
}  // namespace Rig
