#include "tests/support/scoped_import.h"
#include "tests/support/scoped_watch.h"
#include "tests/support/words.h"

#include <thread>

namespace Rig {
namespace {

using namespace Words;

/// Stands for the code under test. In a function of its own, because the compiler fetches an
/// import's address once in a function.
__declspec(noinline) DWORD AskWho() {
    return GetCurrentProcessId();
}

constexpr DWORD kNobody = 4711;

TEST(ScopedImport, FakeTakesTheCallOnAnyThreadAndItsEndGivesTheFunctionBack) {
    const DWORD before = AskWho();
    {
        const ScopedImport<&::GetCurrentProcessId> fake{[] { return kNobody; }};
        EXPECT_EQ(AskWho(), kNobody);
        std::thread([] { EXPECT_EQ(AskWho(), kNobody); }).join();
        EXPECT_EQ(fake.Calls(), 2);
    }
    EXPECT_EQ(AskWho(), before);
}

TEST(ScopedImport, NameIsFoundInTheWordsOfEveryCompiler) {
    EXPECT_EQ(Detail::NameOf<&::GetProcAddress>(), "GetProcAddress");
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

TEST(ScopedImport, OriginalCallsWindowsWithTheArguments) {
    const ScopedImport<&::MulDiv> fake{[&](int a, int b, int c) { return -fake.Original(a, b, c); }};
    EXPECT_EQ(MulDiv(6, 7, 2), -21);
    EXPECT_EQ(Real<&::MulDiv>(6, 7, 2), 21) << "past every fake";
}

TEST(ScopedImport, InnermostFakeTakesTheCallAndFakesMayEndInAnyOrder) {
    auto first = std::make_unique<ScopedImport<&::MulDiv>>([](int, int, int) { return 1; });
    {
        const ScopedImport<&::MulDiv> second{
            [&](int a, int b, int c) { return 10 + second.Original(a, b, c); }};
        EXPECT_EQ(MulDiv(6, 7, 2), 11);
        first.reset();
        EXPECT_EQ(MulDiv(6, 7, 2), 31);
    }
    EXPECT_EQ(MulDiv(6, 7, 2), 21);
}

TEST(ScopedImport, ExceptionOfTheFakeReachesTheCallerAndEndsTheScope) {
    try {
        const ScopedImport<&::MulDiv> fake{[](int, int, int) -> int { throw DWORD{ERROR_ACCESS_DENIED}; }};
        MulDiv(1, 1, 1);
        ADD_FAILURE() << "nothing was thrown";
    } catch (DWORD error) {
        EXPECT_EQ(error, DWORD{ERROR_ACCESS_DENIED});
    }
    EXPECT_EQ(MulDiv(6, 7, 2), 21);
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
                testing::ThrowsMessage<NotImported>(HasSubstr("does not import GetCurrencyFormatW")));
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

TEST(ScopedResult, AnswersEveryCallOrTheChosenOneOnly) {
    const ScopedResult<&::MulDiv> every{-1};
    EXPECT_EQ(MulDiv(6, 7, 2), -1);
    const ScopedResult<&::MulDiv> second{-7, ERROR_CRC, AtCall{2}};
    EXPECT_EQ(MulDiv(6, 7, 2), -1);
    EXPECT_EQ(MulDiv(6, 7, 2), -7);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
    EXPECT_EQ(MulDiv(6, 7, 2), -1);
    EXPECT_EQ(second.Calls(), 3);
    EXPECT_EQ(second.Answered(), 1);
}

TEST(ScopedWatch, KeepsTheArgumentsOfEachCallWhichGoesOn) {
    const ScopedResult<&::MulDiv> fixed{-1, ERROR_CRC};
    const ScopedWatch<&::MulDiv> watch;
    EXPECT_EQ(MulDiv(6, 7, 2), -1);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
    EXPECT_EQ(MulDiv(1, 2, 3), -1);
    EXPECT_THAT(watch.Arguments(), testing::ElementsAre(std::tuple(6, 7, 2), std::tuple(1, 2, 3)));
    EXPECT_EQ(watch.Calls(), 2);
}

FARPROC LookUp(const char* name) {
    return GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name);
}

TEST(ScopedProcAddress, HidesTheNamedFunctionOnlyUntilItsEnd) {
    {
        const ScopedProcAddress hidden{"GetTickCount", nullptr};
        SetLastError(NO_ERROR);
        EXPECT_EQ(LookUp("GetTickCount"), nullptr);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_PROC_NOT_FOUND});
        EXPECT_NE(LookUp("GetTickCount64"), nullptr);
        EXPECT_EQ(hidden.Calls(), 1);
    }
    EXPECT_NE(LookUp("GetTickCount"), nullptr);
}

TEST(ScopedProc, TakesTheCallsOfAnAddressLookedUpInItsScopeAndLaterScopesToo) {
    using GetCode = decltype(&::GetOEMCP);
    GetCode kept = nullptr;
    {
        const ScopedProc<&::GetOEMCP> outer{[] { return 40U; }};
        kept = reinterpret_cast<GetCode>(reinterpret_cast<void*>(LookUp("GetOEMCP")));
        EXPECT_EQ(kept(), 40U);
        const ScopedProc<&::GetOEMCP> inner{[&] { return inner.Original() + 1; }};
        EXPECT_EQ(kept(), 41U);
        EXPECT_EQ(inner.Calls(), 1);
    }
    EXPECT_EQ(kept(), Real<&::GetOEMCP>());
    const ScopedProc<&::GetOEMCP> later{[] { return 42U; }};
    EXPECT_EQ(kept(), 42U);
}

}  // namespace
}  // namespace Rig
