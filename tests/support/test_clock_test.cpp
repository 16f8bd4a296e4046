#include "tests/support/test_clock.h"

#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/handles.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/words.h"

namespace Rig {
namespace {

using namespace std::chrono_literals;
using namespace Words;

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

/// A clock, and an event that resets itself.
class TestClockTest : public testing::Test {
  protected:
    void Signal() const { SetEvent(event); }

    const Platform::UniqueHandle owned{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    const HANDLE event = owned.Get();
    TestClock clock;
};

TEST_F(TestClockTest, SleepsTakeNoTimeAndAreRecorded) {
    const std::uint64_t before = InterruptTime();
    SleepFor(kHour);
    SleepFor(1500);
    EXPECT_THAT(clock.Sleeps(), ElementsAre(kHour, 1500));
    EXPECT_THAT(clock.Waits(), IsEmpty());
    EXPECT_EQ(clock.Elapsed(), 1h + 1500ms);
    EXPECT_EQ(InterruptTime() - before, 36'015'000'000U);
}

TEST_F(TestClockTest, ExpiredWaitTakesNoTimeAndIsRecorded) {
    EXPECT_EQ(WaitOn(event, kHour), DWORD{WAIT_TIMEOUT});
    EXPECT_THAT(clock.Waits(), ElementsAre(kHour));
    EXPECT_THAT(clock.Sleeps(), IsEmpty());
    EXPECT_EQ(clock.Elapsed(), 1h);
}

TEST_F(TestClockTest, SignalledObjectEndsTheWaitBeforeAnyTimeHasPassed) {
    Signal();
    EXPECT_EQ(WaitOn(event, kHour), WAIT_OBJECT_0);
    EXPECT_EQ(clock.Elapsed(), 0s);
}

TEST_F(TestClockTest, ScheduledSignalEndsTheWaitAtItsTimeAlsoAtTheVeryLimit) {
    for (const auto time : {3s, 7s}) {
        clock.At(time, [this] { Signal(); });
        EXPECT_EQ(WaitOn(event, 4000), WAIT_OBJECT_0);
        EXPECT_EQ(clock.Elapsed(), time);
    }
}

TEST_F(TestClockTest, SignalAfterTheLimitIsLeftForTheNextWait) {
    clock.At(8s, [this] { Signal(); });
    EXPECT_EQ(WaitOn(event, 7000), DWORD{WAIT_TIMEOUT});
    EXPECT_EQ(clock.Elapsed(), 7s);
    EXPECT_EQ(WaitOn(event, 7000), WAIT_OBJECT_0);
    EXPECT_EQ(clock.Elapsed(), 8s);
    EXPECT_THAT(clock.SleepsAndWaits(), ElementsAre(7000, 7000));
    clock.ForgetRecords();
    EXPECT_THAT(clock.SleepsAndWaits(), IsEmpty());
}

TEST_F(TestClockTest, ScheduledActionsRunInOrderOfTimeWhileSomeoneSleeps) {
    std::vector<int> order;
    clock.At(2s, [&] { order.push_back(2); });
    clock.At(1s, [&] { order.push_back(1); });
    clock.At(2s, [&] { order.push_back(3); });
    clock.At(9s, [&] { order.push_back(9); });
    SleepFor(5000);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST_F(TestClockTest, ScheduledActionOnAThreadOfItsOwnEndsBeforeTimeGoesOn) {
    DWORD thread = 0;
    clock.AtOnOwnThread(1s, [&] {
        thread = GetCurrentThreadId();
        Signal();
    });
    EXPECT_EQ(WaitOn(event, 7000), WAIT_OBJECT_0);
    EXPECT_NE(thread, 0U);
    EXPECT_NE(thread, GetCurrentThreadId());
}

TEST_F(TestClockTest, PollingAnObjectMovesNothing) {
    EXPECT_EQ(WaitOn(event, 0), DWORD{WAIT_TIMEOUT});
    EXPECT_THAT(clock.SleepsAndWaits(), IsEmpty());
}

TEST_F(TestClockTest, WaitWithoutLimitIsReal) {
    std::thread signaller([this] { Signal(); });
    EXPECT_EQ(WaitOn(event, INFINITE), WAIT_OBJECT_0);
    signaller.join();
    EXPECT_THAT(clock.Waits(), IsEmpty());
}

TEST_F(TestClockTest, ConditionVariablesOfTheRuntimeKeepRealTime) {
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

TEST_F(TestClockTest, BlockedThreadDoesNotKeepTheClockFromEnding) {
    std::thread waiter;
    {
        const TestClock inner;
        waiter = std::thread([this] { WaitOn(event, INFINITE); });
        Real<&::Sleep>(20);
    }
    Signal();
    waiter.join();
}

TEST_F(TestClockTest, FailedWaitFailsAndAnAbandonedMutexEndsIt) {
    EXPECT_EQ(WaitOn(nullptr, 1000), WAIT_FAILED);
    const Platform::UniqueHandle mutex(CreateMutexW(nullptr, FALSE, nullptr));
    RunOnThread([&] { WaitForSingleObject(mutex.Get(), INFINITE); }, Apartment::kNone);
    EXPECT_EQ(WaitOn(mutex.Get(), 1000), DWORD{WAIT_ABANDONED});
}

}  // namespace
}  // namespace Rig
