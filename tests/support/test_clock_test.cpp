#include "tests/support/test_clock.h"

#include <windows.h>

#include <gmock/gmock.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/support/run_on_thread.h"

namespace Rig {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

/// An event of the test's own.
class Event {
  public:
    explicit Event(BOOL manualReset = FALSE) : m_handle(CreateEventW(nullptr, manualReset, FALSE, nullptr)) {}
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
    ~Event() { CloseHandle(m_handle); }
    [[nodiscard]] HANDLE Get() const { return m_handle; }

  private:
    HANDLE m_handle;
};

__declspec(noinline) DWORD WaitOn(HANDLE handle, DWORD milliseconds) {
    return WaitForSingleObject(handle, milliseconds);
}

__declspec(noinline) void SleepFor(DWORD milliseconds) {
    Sleep(milliseconds);
}

__declspec(noinline) std::uint64_t InterruptTime() {
    ULONGLONG time = 0;
    QueryUnbiasedInterruptTime(&time);
    return time;
}

constexpr DWORD kHour = 3'600'000;

TEST(TestClock, SleepsTakeNoTimeAndAreRecorded) {
    const TestClock clock;
    SleepFor(kHour);
    SleepFor(1000);
    EXPECT_THAT(clock.Sleeps(), ElementsAre(kHour, 1000));
    EXPECT_EQ(clock.Elapsed(), 1h + 1s);
}

TEST(TestClock, ExpiredWaitTakesNoTimeAndIsRecorded) {
    const Event event;
    const TestClock clock;
    EXPECT_EQ(WaitOn(event.Get(), kHour), DWORD{WAIT_TIMEOUT});
    EXPECT_THAT(clock.Waits(), ElementsAre(kHour));
    EXPECT_THAT(clock.Sleeps(), IsEmpty());
    EXPECT_EQ(clock.Elapsed(), 1h);
}

TEST(TestClock, SignalledObjectEndsTheWaitBeforeAnyTimeHasPassed) {
    const Event event;
    SetEvent(event.Get());
    const TestClock clock;
    EXPECT_EQ(WaitOn(event.Get(), kHour), WAIT_OBJECT_0);
    EXPECT_EQ(clock.Elapsed(), 0s);
}

TEST(TestClock, ScheduledSignalEndsTheWaitAtItsTime) {
    const Event event;
    TestClock clock;
    clock.At(3s, [&] { SetEvent(event.Get()); });
    EXPECT_EQ(WaitOn(event.Get(), 7000), WAIT_OBJECT_0);
    EXPECT_EQ(clock.Elapsed(), 3s);
}

TEST(TestClock, SignalAtTheVeryLimitIsInTime) {
    const Event event;
    TestClock clock;
    clock.At(7s, [&] { SetEvent(event.Get()); });
    EXPECT_EQ(WaitOn(event.Get(), 7000), WAIT_OBJECT_0);
}

TEST(TestClock, SignalAfterTheLimitIsLeftForTheNextWait) {
    const Event event;
    TestClock clock;
    clock.At(8s, [&] { SetEvent(event.Get()); });
    EXPECT_EQ(WaitOn(event.Get(), 7000), DWORD{WAIT_TIMEOUT});
    EXPECT_EQ(clock.Elapsed(), 7s);
    EXPECT_EQ(WaitOn(event.Get(), 7000), WAIT_OBJECT_0);
    EXPECT_EQ(clock.Elapsed(), 8s);
    EXPECT_THAT(clock.SleepsAndWaits(), ElementsAre(7000, 7000));
}

TEST(TestClock, ScheduledActionsRunInOrderOfTimeWhileSomeoneSleeps) {
    TestClock clock;
    std::vector<int> order;
    clock.At(2s, [&] { order.push_back(2); });
    clock.At(1s, [&] { order.push_back(1); });
    clock.At(2s, [&] { order.push_back(3); });
    clock.At(9s, [&] { order.push_back(9); });
    SleepFor(5000);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST(TestClock, ScheduledActionOnAThreadOfItsOwnEndsBeforeTimeGoesOn) {
    const Event event;
    TestClock clock;
    DWORD thread = 0;
    clock.AtOnOwnThread(1s, [&] {
        thread = GetCurrentThreadId();
        SetEvent(event.Get());
    });
    EXPECT_EQ(WaitOn(event.Get(), 7000), WAIT_OBJECT_0);
    EXPECT_NE(thread, 0U);
    EXPECT_NE(thread, GetCurrentThreadId());
}

TEST(TestClock, TimesAdvanceWithTheClock) {
    TestClock clock;
    const std::uint64_t interruptTime = InterruptTime();
    const std::uint64_t ticks = GetTickCount64();
    SleepFor(1500);
    EXPECT_EQ(InterruptTime() - interruptTime, 15'000'000U);
    EXPECT_EQ(GetTickCount64() - ticks, 1500U);
}

TEST(TestClock, LocalTimeStartsWhereTheTestSays) {
    TestClock clock;
    clock.SetStart({2019, 12, 2, 31, 23, 59, 59, 500});
    SleepFor(600);
    SYSTEMTIME time{};
    GetLocalTime(&time);
    EXPECT_EQ(time.wYear, 2020);
    EXPECT_EQ(time.wMonth, 1);
    EXPECT_EQ(time.wDay, 1);
    EXPECT_EQ(time.wSecond, 0);
    EXPECT_EQ(time.wMilliseconds, 100);
}

TEST(TestClock, PollingAnObjectMovesNothing) {
    const Event event;
    const TestClock clock;
    EXPECT_EQ(WaitOn(event.Get(), 0), DWORD{WAIT_TIMEOUT});
    EXPECT_THAT(clock.SleepsAndWaits(), IsEmpty());
}

TEST(TestClock, WaitWithoutLimitIsReal) {
    const Event event;
    const TestClock clock;
    std::thread signaller([&] { SetEvent(event.Get()); });
    EXPECT_EQ(WaitOn(event.Get(), INFINITE), WAIT_OBJECT_0);
    signaller.join();
    EXPECT_THAT(clock.Waits(), IsEmpty());
}

TEST(TestClock, ConditionVariablesOfTheRuntimeKeepRealTime) {
    const TestClock clock;
    std::mutex mutex;
    std::condition_variable condition;
    bool ready = false;
    std::thread worker([&] {
        Real<&::Sleep>(30);
        const std::lock_guard hold(mutex);
        ready = true;
        condition.notify_one();
    });
    {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(condition.wait_for(lock, 20s, [&] { return ready; }));
    }
    worker.join();
    EXPECT_EQ(clock.Elapsed(), 0s);
}

TEST(TestClock, BlockedThreadDoesNotKeepTheClockFromEnding) {
    const Event event;
    std::thread waiter;
    {
        const TestClock clock;
        waiter = std::thread([&] { WaitOn(event.Get(), INFINITE); });
        Real<&::Sleep>(20);
    }
    SetEvent(event.Get());
    waiter.join();
}

TEST(TestClock, OtherThreadsMayKeepRealTime) {
    const Event event;
    const TestClock clock(TestClock::Threads::kThisOne);
    RunOnThread([&] { EXPECT_EQ(WaitOn(event.Get(), 1), DWORD{WAIT_TIMEOUT}); }, Apartment::kNone);
    EXPECT_THAT(clock.Waits(), IsEmpty());
    SleepFor(kHour);
    EXPECT_EQ(clock.Elapsed(), 1h);
}

TEST(TestClock, OtherThreadsCanBeGivenRealTime) {
    const Event event;
    TestClock clock;
    clock.LetOthersRun(20s);
    std::thread signaller([&] {
        Real<&::Sleep>(20);
        SetEvent(event.Get());
    });
    EXPECT_EQ(WaitOn(event.Get(), 1), WAIT_OBJECT_0);
    signaller.join();
    EXPECT_EQ(clock.Elapsed(), 0s);
}

TEST(TestClock, FailedWaitFails) {
    const TestClock clock;
    EXPECT_EQ(WaitOn(nullptr, 1000), WAIT_FAILED);
}

TEST(TestClock, AbandonedMutexEndsTheWait) {
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    RunOnThread([&] { WaitForSingleObject(mutex, INFINITE); }, Apartment::kNone);
    const TestClock clock;
    EXPECT_EQ(WaitOn(mutex, 1000), DWORD{WAIT_ABANDONED});
    CloseHandle(mutex);
}

}  // namespace
}  // namespace Rig
