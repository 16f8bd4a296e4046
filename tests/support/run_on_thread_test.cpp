#include "tests/support/run_on_thread.h"

#include <windows.h>
#include <objbase.h>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

#include "tests/support/com_support.h"

namespace Rig {
namespace {

/// The apartment of this thread; nothing when it is in none.
std::optional<APTTYPE> ApartmentType() {
    APTTYPE type = APTTYPE_NA;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
    return CoGetApartmentType(&type, &qualifier) == S_OK ? std::optional(type) : std::nullopt;
}

TEST(RunOnThread, RunsOnAnotherThreadInTheApartmentAskedFor) {
    DWORD thread = 0;
    RunOnThread([&] {
        thread = GetCurrentThreadId();
        EXPECT_EQ(ApartmentType(), APTTYPE_MTA);
    });
    EXPECT_NE(thread, 0U);
    EXPECT_NE(thread, GetCurrentThreadId());
    RunOnThread([] { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE); },
                Apartment::kSingleThreaded);
    RunOnThread([] { EXPECT_EQ(ApartmentType(), std::nullopt); }, Apartment::kNone);
}

TEST(RunOnThread, CodeMayLeaveComOnceMoreThanItEntered) {
    RunOnThread(
        [] {
            CoUninitialize();
            EXPECT_EQ(ApartmentType(), APTTYPE_MTA);
        },
        Apartment::kMultithreadedTwice);
}

TEST(RunOnThread, ApartmentThatCannotBeEnteredFailsTheTest) {
    const ComApartment com;
    EXPECT_NONFATAL_FAILURE(const ComApartment other(COINIT_APARTMENTTHREADED), "cannot enter this COM");
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
