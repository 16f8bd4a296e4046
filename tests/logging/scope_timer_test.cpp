#include "logging/scope_timer.h"

#include <gmock/gmock.h>
#include <realtimeapiset.h>

#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "logging/log_scope.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/recording_listener.h"
#include "tests/support/throw_from_log_line.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
using Orva::Shared::LogScopeTimer;
using Orva::Shared::TimingStatistics;
using Rig::LogRecorder;
using namespace Rig::Lines;

constexpr ULONGLONG kTicksPerMillisecond = 10'000;

/// An interrupt time that the test sets.
class ScopedInterruptTime {
  public:
    void Set(ULONGLONG ticks) { m_now = ticks; }

  private:
    ULONGLONG m_now = 0;
    ScopedImport<&::QueryUnbiasedInterruptTime> m_time{[this](ULONGLONG* time) {
        *time = m_now;
        return TRUE;
    }};
};

TEST(ScopeTimer, WritesMillisecondsBelowAThousandSecondsAndSecondsFromThereOn) {
    constexpr ULONGLONG kStart = 5'000'000'000;
    struct Case {
        ULONGLONG ticks;
        const wchar_t* line;
    };
    for (const Case& one :
         {Case{0, L"0:Elapsed time =     0.0 ms."}, Case{12'340, L"0:Elapsed time =     1.2 ms."},
          Case{1500 * kTicksPerMillisecond, L"0:Elapsed time =  1500.0 ms."},
          Case{9'999'999'000, L"0:Elapsed time = 999999.9 ms."},
          Case{1'000'000 * kTicksPerMillisecond, L"0:Elapsed time =  1000.0 s."},
          Case{36'000'000 * kTicksPerMillisecond, L"0:Elapsed time = 36000.0 s."},
          // Without a sign: a clock that went back shows as an enormous time.
          Case{ULONGLONG{0} - 10'000, L"0:Elapsed time = 1844674407371.0 s."}}) {
        ScopedInterruptTime time;
        time.Set(kStart);
        const RecordingLogger logger(std::vector{ListenerSettings{.maxLevel = Level::kDiag}});
        LogScopeTimer timer(*logger, "A::B");
        time.Set(kStart + one.ticks);
        timer.End();
        EXPECT_THAT(logger.Messages(), ElementsAre(one.line));
        EXPECT_DOUBLE_EQ(timer.ElapsedMilliseconds(), static_cast<double>(one.ticks) / 10000.0);
    }
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
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                statistics.Add("A::B", 1.0);
            }
        });
    }
    threads.clear();
    EXPECT_EQ(statistics.Find("A::B").count, 4000);
}

TEST(LogScope, WritesArgumentsAndTheLastWordingOfTheExitLineAndAsksForNoTime) {
    const LogRecorder log;
    const ScopedImport<&::QueryUnbiasedInterruptTime> time{[](ULONGLONG*) { return FALSE; }};
    const auto operation = [] {
        LogScope scope("A::B", L"Name = %s", L"x");
        scope.Verbose(L"%d", 1);
        scope.Information(L"%d", 2);
        scope.Warning(L"%d", 3);
        scope.Error(L"%d", 4);
        scope.ExitLine(L"%s", L"first");
        return scope.Return(L"Return Value = %d %%s", 7);
    };
    EXPECT_EQ(operation(), 7);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn("A::B", L"Name = x"), Verbose("A::B", L"1"),
                                         Information("A::B", L"2"), Warning("A::B", L"3"),
                                         Error("A::B", L"4"), TraceOut("A::B", L"Return Value = 7 %s")));
    EXPECT_EQ(time.Calls(), 0);
}

TEST(LogScope, GuardGivesTheAnswerOrWritesWhatIsThrownUnderTheOperationsOwnNameAndFallsBack) {
    LogRecorder log;
    const auto operation = [](const char* name) {
        LogScope scope(name);
        bool ran = false;
        scope.Guard([&] { ran = true; });
        EXPECT_TRUE(ran);
        EXPECT_EQ(scope.Guard(1, [] { return 2; }), 2);
        scope.Guard([] { throw 5; });
        return scope.Return(L"Return = %d",
                            scope.Guard(-1, []() -> int { throw std::runtime_error("other text"); }));
    };
    for (const auto& [name, line] :
         {std::pair("A::B", L"Exception in B()"), std::pair("A::C::D", L"Exception in D()"),
          std::pair("E", L"Exception in E()")}) {
        log.Clear();
        EXPECT_EQ(operation(name), -1);
        EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(name), Error(name, line), Error(name, line),
                                             TraceOut(name, L"Return = -1")));
    }
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
    {
        LogScope scope("E::F");
        scope.OmitExitLine();
        scope.ExitLine(L"worded after all");
    }
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(TraceIn("A::B"), TraceOut("A::B"), Diag("A::B", L"Elapsed time =    15.0 ms."),
                    TraceIn("C::D"), Diag("C::D", L"Elapsed time =     0.0 ms."), TraceIn("E::F"),
                    TraceOut("E::F", L"worded after all"), Diag("E::F", L"Elapsed time =     0.0 ms.")));
}

TEST(LogScope, OperationDoesNotFailBecauseItsExitCannotBeLogged) {
    const LogRecorder log;
    const auto operation = [] {
        LogScope scope("A::B");
        return scope.Return(L"Return = %d", 7);
    };
    const Rig::ThrowFromLogLine throwing{2, std::runtime_error("no more log")};
    EXPECT_EQ(operation(), 7);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn("A::B")));
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
