#pragma once

#include <windows.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "tests/support/scoped_import.h"

namespace Rig {

/// A clock that the test drives, for a scope. Sleeping and waiting with a time limit take no real
/// time: they move the clock, on every thread.
///
///     TestClock clock;
///     clock.At(3s, [&] { SetEvent(event); });
///     CodeUnderTest();                                     // sleeps, waits
///     EXPECT_THAT(clock.Sleeps(), ElementsAre(1000, 1000));
///     EXPECT_EQ(clock.Elapsed(), 3s);
///
/// - `Sleep` moves the clock by its time. Zero and INFINITE are left alone.
/// - `WaitForSingleObject` with a time limit returns at once: with the object when that is
///   signalled already or when something scheduled signals it in time (the clock then stands at
///   that moment), else with WAIT_TIMEOUT (the clock then stands at the limit). A limit of zero or
///   INFINITE is left alone, and so are waits on semaphores: those are the condition variables of
///   the C++ runtime. An event that is made only to be waited for is a wait, and
///   `std::this_thread::sleep_for` counts as one too.
/// - `QueryUnbiasedInterruptTime` tells the clock's time. What `std::chrono` reads stays real.
/// - Functions that the test executable does not import are left out without a word.
///
/// A thread that really works (and signals what another one waits for) has no time to do so when
/// waiting takes none: schedule it. Something that the test itself really has to wait for:
/// `Real<&::Sleep>(milliseconds)`.
class TestClock {
  public:
    using Milliseconds = std::chrono::milliseconds;

    TestClock();
    TestClock(const TestClock&) = delete;
    TestClock& operator=(const TestClock&) = delete;
    ~TestClock();

    /// Time on the clock since it was made.
    [[nodiscard]] Milliseconds Elapsed() const;

    /// Runs `what` when the clock comes to `time` (since it was made), on the thread whose sleep
    /// or wait passes that moment, which may hold locks. Same time: in the order of the calls.
    void At(Milliseconds time, std::function<void()> what);
    /// The same, on a thread of its own in the multithreaded COM apartment. The clock goes on
    /// when that thread has come to its end.
    void AtOnOwnThread(Milliseconds time, std::function<void()> what);

    /// Lets time pass, as if someone had slept, without a record.
    void Advance(Milliseconds time);

    /// Times of the sleeps so far, in order, in milliseconds.
    [[nodiscard]] std::vector<DWORD> Sleeps() const { return Records(true, false); }
    /// Time limits of the waits so far, in order, in milliseconds, whatever came of them.
    [[nodiscard]] std::vector<DWORD> Waits() const { return Records(false, true); }
    /// Sleeps and waits in one row.
    [[nodiscard]] std::vector<DWORD> SleepsAndWaits() const { return Records(true, true); }
    /// Forgets the sleeps and waits so far.
    void ForgetRecords();

  private:
    struct Record {
        bool isSleep;
        DWORD milliseconds;
    };

    void Sleep(DWORD milliseconds);
    DWORD Wait(HANDLE handle, DWORD milliseconds);
    /// Returns when the time was up that begins now.
    Milliseconds Begin(Record record);
    bool Step(Milliseconds limit);
    [[nodiscard]] std::vector<DWORD> Records(bool sleeps, bool waits) const;

    mutable Detail::RigLock m_lock;
    Milliseconds m_now{0};
    std::multimap<Milliseconds, std::function<void()>> m_schedule;
    std::vector<Record> m_records;
    std::vector<std::shared_ptr<void>> m_fakes;
};

}  // namespace Rig
