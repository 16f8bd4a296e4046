#include "logging/scope_timer.h"

#include <gmock/gmock.h>
#include <realtimeapiset.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "logging/log_scope.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/recording_listener.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scoped_import.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
using Orva::Shared::LogScopeTimer;
using Orva::Shared::TimingStatistics;
using Rig::LogRecorder;
using Rig::ScopedImport;
using testing::ElementsAre;
using namespace Rig::Lines;

constexpr ULONGLONG kTicksPerMillisecond = 10'000;

/// An interrupt time that the test sets.
class ScopedInterruptTime {
  public:
    void Set(ULONGLONG ticks) { m_now = ticks; }

  private:
    ULONGLONG m_now = 5'000'000'000;
    ScopedImport<&::QueryUnbiasedInterruptTime> m_time{[this](ULONGLONG* time) {
        *time = m_now;
        return TRUE;
    }};
};

/// The line of an operation that took so long.
std::wstring ElapsedLine(ULONGLONG ticks) {
    constexpr ULONGLONG kStart = 5'000'000'000;
    ScopedInterruptTime time;
    const RecordingLogger logger(std::vector{ListenerSettings{.maxLevel = Level::kDiag}});
    LogScopeTimer timer(*logger, "A::B");
    time.Set(kStart + ticks);
    timer.End();
    EXPECT_EQ(logger.Messages().size(), 1U);
    EXPECT_DOUBLE_EQ(timer.ElapsedMilliseconds(), static_cast<double>(ticks) / 10000.0);
    return logger.Messages().front();
}

TEST(ScopeTimer, WritesMillisecondsBelowAThousandSecondsAndSecondsFromThereOn) {
    EXPECT_EQ(ElapsedLine(0), L"0:Elapsed time =     0.0 ms.");
    EXPECT_EQ(ElapsedLine(12'340), L"0:Elapsed time =     1.2 ms.");
    EXPECT_EQ(ElapsedLine(1500 * kTicksPerMillisecond), L"0:Elapsed time =  1500.0 ms.");
    EXPECT_EQ(ElapsedLine(9'999'999'000), L"0:Elapsed time = 999999.9 ms.");
    EXPECT_EQ(ElapsedLine(1'000'000 * kTicksPerMillisecond), L"0:Elapsed time =  1000.0 s.");
    EXPECT_EQ(ElapsedLine(36'000'000 * kTicksPerMillisecond), L"0:Elapsed time = 36000.0 s.");
    // Without a sign: a clock that went back shows as an enormous time.
    EXPECT_EQ(ElapsedLine(ULONGLONG{0} - 10'000), L"0:Elapsed time = 1844674407371.0 s.");
}

TEST(ScopeTimer, RecordsMillisecondsInTheStatistics) {
    ScopedInterruptTime time;
    const RecordingLogger logger(std::vector{ListenerSettings{.maxLevel = Level::kDiag}});
    for (const ULONGLONG milliseconds : {2ULL, 3ULL, 2'000'000ULL}) {
        time.Set(0);
        LogScopeTimer timer(*logger, "A::B");
        time.Set(milliseconds * kTicksPerMillisecond);
        timer.End();
    }
    const TimingStatistics::Record record = logger->Statistics().Find("A::B");
    EXPECT_EQ(record.count, 3);
    EXPECT_DOUBLE_EQ(record.totalMilliseconds, 2'000'005.0);
}

TEST(TimingStatistics, SumUpByNameAndRememberTheLongest) {
    TimingStatistics statistics;
    EXPECT_EQ(statistics.Find("Four").count, 0);
    EXPECT_EQ(statistics.LongestName(), 0U);
    statistics.Add("Four", 1.5);
    EXPECT_EQ(statistics.LongestName(), 4U);
    statistics.Add("Sixsix", 7.0);
    statistics.Add("Four", 2.5);
    EXPECT_EQ(statistics.LongestName(), 6U);
    EXPECT_EQ(statistics.Find("Four").count, 2);
    EXPECT_DOUBLE_EQ(statistics.Find("Four").totalMilliseconds, 4.0);
    EXPECT_EQ(statistics.Find("Sixsix").count, 1);
}

TEST(TimingStatistics, AddsUpWhatManyThreadsRecord) {
    TimingStatistics statistics;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                statistics.Add("A::B", 1.0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(statistics.Find("A::B").count, 4000);
}

TEST(TimingStatistics, EachCallTakesTheLockOnce) {
    TimingStatistics statistics;
    const CountedCalls<&::EnterCriticalSection> enter;
    const CountedCalls<&::LeaveCriticalSection> leave;
    statistics.Add("A::B", 1.0);
    EXPECT_EQ(statistics.Find("A::B").count, 1);
    EXPECT_EQ(statistics.LongestName(), 4U);
    EXPECT_EQ(enter.Calls(), 3);
    EXPECT_EQ(leave.Calls(), 3);
}

TEST(LogScope, WritesArgumentsAndResult) {
    const LogRecorder log;
    const auto operation = [] {
        LogScope scope("A::B", L"Name = %s", L"x");
        scope.Verbose(L"%d", 1);
        scope.Information(L"%d", 2);
        scope.Warning(L"%d", 3);
        scope.Error(L"%d", 4);
        return scope.Return(L"Return Value = %d", 7);
    };
    EXPECT_EQ(operation(), 7);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn("A::B", L"Name = x"), Verbose("A::B", L"1"),
                                         Information("A::B", L"2"), Warning("A::B", L"3"),
                                         Error("A::B", L"4"), TraceOut("A::B", L"Return Value = 7")));
}

TEST(LogScope, LastWordingOfTheExitLineHolds) {
    const LogRecorder log;
    {
        LogScope scope("A::B");
        scope.ExitLine(L"%s", L"first");
        scope.ExitLine(L"%s", L"100%");
    }
    EXPECT_THAT(log.At(Level::kTraceOut), ElementsAre(TraceOut("A::B", L"100%")));
}

TEST(LogScope, OmitsTheExitLineWhenTold) {
    const LogRecorder log;
    {
        LogScope scope("A::B");
        scope.OmitExitLine();
    }
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn("A::B")));
}

TEST(LogScope, GuardGivesTheStepsAnswerAndWritesNothing) {
    const LogRecorder log;
    const LogScope scope("A::B");
    EXPECT_EQ(scope.Guard(1, [] { return 2; }), 2);
    bool ran = false;
    scope.Guard([&] { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn("A::B")));
}

TEST(LogScope, GuardWritesWhatIsThrownUnderTheOperationsOwnNameAndFallsBack) {
    const LogRecorder log;
    for (const char* name : {"A::B", "A::C::D", "E"}) {
        LogScope scope(name);
        EXPECT_EQ(scope.Guard(7, []() -> int { throw std::runtime_error("other text"); }), 7);
        scope.Guard([] { throw 5; });
    }
    EXPECT_THAT(log.From(Level::kError),
                ElementsAre(Error("A::B", L"Exception in B()"), Error("A::B", L"Exception in B()"),
                            Error("A::C::D", L"Exception in D()"), Error("A::C::D", L"Exception in D()"),
                            Error("E", L"Exception in E()"), Error("E", L"Exception in E()")));
}

TEST(LogScope, ExitLineComesAfterTheGuardsLine) {
    const LogRecorder log;
    const auto operation = [] {
        LogScope scope("A::B");
        return scope.Return(L"Return = %d", scope.Guard(-1, []() -> int { throw 5; }));
    };
    EXPECT_EQ(operation(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn("A::B"), Error("A::B", L"Exception in B()"),
                                         TraceOut("A::B", L"Return = -1")));
}

TEST(LogScope, EndsTheTimerLastWithOrWithoutAnExitLine) {
    ScopedInterruptTime time;
    const LogRecorder log(LogRecorder::Timing::kOn);
    time.Set(0);
    {
        const LogScope scope("A::B");
        time.Set(15 * kTicksPerMillisecond);
    }
    {
        LogScope scope("C::D");
        scope.OmitExitLine();
    }
    EXPECT_THAT(log.Lines(),
                ElementsAre(TraceIn("A::B"), TraceOut("A::B"), Diag("A::B", L"Elapsed time =    15.0 ms."),
                            TraceIn("C::D"), Diag("C::D", L"Elapsed time =     0.0 ms.")));
}

TEST(LogScope, MakesNoTimerWhileTimingIsOff) {
    const LogRecorder log;
    const ScopedImport<&::QueryUnbiasedInterruptTime> time{[](ULONGLONG*) { return FALSE; }};
    { const LogScope scope("A::B"); }
    EXPECT_EQ(time.Calls(), 0);
}

TEST(LogScope, KeepsTheThreadsLastError) {
    const LogRecorder log(LogRecorder::Timing::kOn);
    SetLastError(ERROR_FILE_NOT_FOUND);
    {
        LogScope scope("A::B", L"%d", 1);
        scope.ExitLine(L"%d", 2);
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

}  // namespace
}  // namespace LoggingTests
