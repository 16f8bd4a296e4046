#include "tests/support/run_on_thread.h"

#include <windows.h>
#include <objbase.h>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace Rig {
namespace {

APTTYPE ApartmentType() {
    APTTYPE type = APTTYPE_NA;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
    return CoGetApartmentType(&type, &qualifier) == S_OK ? type : APTTYPE_CURRENT;
}

TEST(RunOnThread, RunsOnAnotherThreadInTheApartmentAskedFor) {
    DWORD thread = 0;
    APTTYPE type = APTTYPE_CURRENT;
    RunOnThread([&] {
        thread = GetCurrentThreadId();
        type = ApartmentType();
    });
    EXPECT_NE(thread, GetCurrentThreadId());
    EXPECT_EQ(type, APTTYPE_MTA);
}

TEST(RunOnThread, EntersASingleThreadedApartment) {
    HRESULT result = S_OK;
    RunOnThread([&] { result = CoInitializeEx(nullptr, COINIT_MULTITHREADED); }, Apartment::kSingleThreaded);
    EXPECT_EQ(result, RPC_E_CHANGED_MODE);
}

TEST(RunOnThread, LeavesComToTheCodeWhenAskedTo) {
    APTTYPE type = APTTYPE_MTA;
    RunOnThread([&] { type = ApartmentType(); }, Apartment::kNone);
    EXPECT_EQ(type, APTTYPE_CURRENT);
}

TEST(RunOnThread, CodeMayLeaveComOnceMoreThanItEntered) {
    APTTYPE type = APTTYPE_CURRENT;
    RunOnThread(
        [&] {
            CoUninitialize();
            type = ApartmentType();
        },
        Apartment::kMultithreadedTwice);
    EXPECT_EQ(type, APTTYPE_MTA);
}

TEST(RunOnThread, ExceptionComesBackToTheTest) {
    EXPECT_THROW(RunOnThread([] { throw DWORD{ERROR_CRC}; }), DWORD);
}

TEST(RunOnThread, HangFailsTheTestInsteadOfHangingIt) {
    static HANDLE never = nullptr;
    static HANDLE begun = nullptr;
    static HANDLE thread = nullptr;
    never = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    begun = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const auto hang = [] {
        DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, SYNCHRONIZE,
                        FALSE, 0);
        SetEvent(begun);
        WaitForSingleObject(never, INFINITE);
    };
    EXPECT_NONFATAL_FAILURE(
        EXPECT_THROW(RunOnThread(hang, Apartment::kNone, std::chrono::milliseconds(20)), std::runtime_error),
        "did not come to its end within 20 ms");
    // However late the thread begins: it has ended before the process does.
    WaitForSingleObject(begun, INFINITE);
    SetEvent(never);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, INFINITE));
}

}  // namespace
}  // namespace Rig
