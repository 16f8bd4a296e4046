#include "service/service_utilities.h"

#include <gmock/gmock.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/ledger.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scoped_import.h"
#include "tests/support/simulated_notebook.h"

namespace {

using Orva::Shared::Level::kVerbose;
using Rig::Call;
using Rig::Ledger;
using Rig::Line;
using Rig::LogLine;
using Rig::LogRecorder;
using Rig::ScopedImport;
using Rig::ScopedResult;
using Rig::SimulatedNotebook;
using Rig::TestClock;
using testing::_;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using namespace Rig::Lines;
using namespace std::chrono_literals;

constexpr char kPresent[] = "Utils::IsServicePresent";
constexpr char kWait[] = "Utils::WaitforServiceToStartRunning";
constexpr char kSleep[] = "Utils::UtilSleep";
constexpr char kRecovery[] = "Utils::SetServiceRestartRecoveryOnFailure";

class ServiceUtilitiesTest : public testing::Test {
  protected:
    /// Runs an operation that opens a service; its exit line comes when nothing is open any more.
    void ExpectClosedBeforeTheExitLine(const char* name, const std::function<void()>& operation) {
        const ScopedImport<&::CloseServiceHandle> close{[&](SC_HANDLE handle) {
            EXPECT_THAT(log.Of(name),
                        Each(testing::Field(&LogLine::level, testing::Ne(Orva::Shared::Level::kTraceOut))));
            return close.Original(handle);
        }};
        operation();
        EXPECT_EQ(close.Calls(), 2);
        EXPECT_EQ(log.Of(name).back(), TraceOut(name, L"Return Value = 0"));
    }

    static void SetState(DWORD state) { SimulatedNotebook::Service(L"WlanSvc").state = state; }

    LogRecorder log;
    TestClock clock;
    SimulatedNotebook notebook{clock};
};

using ServicePresenceTest = ServiceUtilitiesTest;

TEST_F(ServicePresenceTest, RunningServiceIsFoundRunning) {
    EXPECT_EQ(Utils::IsServicePresent(L"WlanSvc"), 0);
    EXPECT_THAT(log.Lines(),
                ElementsAre(TraceIn(kPresent,
                                    L"Service Name = WlanSvc, Running Status To be checked = 1, "
                                    L"To Get version Info Status = 0"),
                            Information(kPresent, L"WlanSvc Service is installed. Querying status.."),
                            Information(kPresent, L"WlanSvc Service is running status = 0x00000004"),
                            Information(kPresent, L"WlanSvc Service is running"),
                            TraceOut(kPresent, L"Return Value = 0")));
    EXPECT_THAT(notebook.Calls(), ElementsAre("OpenSCManagerW 0xf003f", "OpenServiceW WlanSvc 0xf01ff",
                                              "QueryServiceStatusEx"));
}

TEST_F(ServicePresenceTest, HandlesAreClosedBeforeTheExitLine) {
    ExpectClosedBeforeTheExitLine(kPresent, [] { static_cast<void>(Utils::IsServicePresent(L"WlanSvc")); });
}

TEST_F(ServicePresenceTest, ServiceInEveryOtherStateIsNotRunning) {
    for (const DWORD state : {SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_STOP_PENDING,
                              SERVICE_CONTINUE_PENDING, SERVICE_PAUSE_PENDING, SERVICE_PAUSED}) {
        SetState(state);
        log.Clear();
        EXPECT_EQ(Utils::IsServicePresent(L"WlanSvc"), 1) << state;
        EXPECT_THAT(log.From(kVerbose),
                    ElementsAre(Information(kPresent, L"WlanSvc Service is installed. Querying status.."),
                                Information(kPresent, L"WlanSvc Service is running status = 0x0000000" +
                                                          std::to_wstring(state)),
                                Error(kPresent, L"WlanSvc Service is not running")));
    }
}

TEST_F(ServicePresenceTest, ServiceThatCannotBeQueriedSaysNoMore) {
    notebook.FailEach(Call::QueryServiceStatusEx, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Utils::IsServicePresent(L"WlanSvc"), -3);
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Information(kPresent, L"WlanSvc Service is installed. Querying status..")));
    EXPECT_TRUE(log.Contains(TraceOut(kPresent, L"Return Value = -3")));
}

/// Why a service cannot be opened.
struct OpenFailure {
    const char* name;
    void (*arrange)(SimulatedNotebook& notebook);
    int status;
    const wchar_t* line;
};

void PrintTo(const OpenFailure& failure, std::ostream* out) {
    *out << failure.name;
}

class OpenFailureTest : public ServiceUtilitiesTest, public testing::WithParamInterface<OpenFailure> {
  protected:
    OpenFailureTest() { GetParam().arrange(notebook); }

    [[nodiscard]] static std::wstring Returned() {
        return L"Return Value = " + std::to_wstring(GetParam().status);
    }
};

TEST_P(OpenFailureTest, ServiceIsNotPresent) {
    EXPECT_EQ(Utils::IsServicePresent(L"LinkvaneService"), GetParam().status);
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kPresent, GetParam().line)));
    EXPECT_TRUE(log.Contains(TraceOut(kPresent, Returned())));
    EXPECT_EQ(notebook.Count(Call::QueryServiceStatusEx), 0);
}

TEST_P(OpenFailureTest, WaitEndsAfterOneTryAndOneSecond) {
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"LinkvaneService"), GetParam().status);
    const std::wstring status = std::to_wstring(GetParam().status);
    EXPECT_THAT(log.Of(kWait), ElementsAre(TraceIn(kWait),
                                           Verbose(kWait, L"LinkvaneService service Running Status = " +
                                                              status + L", try 0"),
                                           TraceOut(kWait, L"LinkvaneService Running Status = " + status)));
    EXPECT_THAT(clock.SleepsAndWaits(), ElementsAre(1000));
}

TEST_P(OpenFailureTest, RecoveryCannotBeSet) {
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), GetParam().status);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kRecovery, L"Service Name = LinkvaneService"),
                                         Error(kRecovery, GetParam().line), TraceOut(kRecovery, Returned())));
    EXPECT_EQ(notebook.Count(Call::ChangeServiceConfig2), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, OpenFailureTest,
    testing::Values(OpenFailure{"NoManager",
                                [](SimulatedNotebook& notebook) {
                                    notebook.FailEach(Call::OpenSCManager, ERROR_ACCESS_DENIED);
                                },
                                -2, L"OpenSCManager failed w/err 0x00000005"},
                    OpenFailure{"NotInstalled",
                                [](SimulatedNotebook&) { SimulatedNotebook::Uninstall(L"LinkvaneService"); },
                                -1, L"Service does not exist. Error 0x00000424"},
                    OpenFailure{"Forbidden",
                                [](SimulatedNotebook& notebook) {
                                    notebook.FailEach(Call::OpenService, ERROR_ACCESS_DENIED);
                                },
                                -2, L"OpenService failed w/err 0x00000005"}));

using ServiceWaitTest = ServiceUtilitiesTest;

TEST_F(ServiceWaitTest, RunningServiceIsNotWaitedFor) {
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), 0);
    EXPECT_THAT(log.Of(kWait), ElementsAre(TraceIn(kWait), TraceOut(kWait, L"WlanSvc Running Status = 0")));
    EXPECT_EQ(clock.Elapsed(), 0ms);
    EXPECT_THAT(log.Of(kSleep), IsEmpty());
}

TEST_F(ServiceWaitTest, ServiceThatCannotBeQueriedCostsOneTry) {
    notebook.FailEach(Call::QueryServiceStatusEx, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), -3);
    EXPECT_THAT(clock.SleepsAndWaits(), ElementsAre(1000));
}

TEST_F(ServiceWaitTest, ServiceThatStaysPendingIsTriedFifteenTimes) {
    SetState(SERVICE_START_PENDING);
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), 1);
    std::vector<LogLine> expected{TraceIn(kWait)};
    for (int i = 0; i < 15; ++i) {
        expected.push_back(Verbose(kWait, L"WlanSvc service Running Status = 1, try " + std::to_wstring(i)));
    }
    expected.push_back(TraceOut(kWait, L"WlanSvc Running Status = 1"));
    EXPECT_EQ(log.Of(kWait), expected);
    EXPECT_THAT(clock.SleepsAndWaits(), AllOf(SizeIs(15), Each(1000)));
    EXPECT_EQ(notebook.Count(Call::QueryServiceStatusEx), 15);
}

TEST_F(ServiceWaitTest, WaitEndsWhenTheServiceRuns) {
    SetState(SERVICE_STOPPED);
    clock.At(500ms, [] { SetState(SERVICE_START_PENDING); });
    clock.At(1500ms, [] { SetState(SERVICE_RUNNING); });
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), 0);
    EXPECT_THAT(log.Of(kWait),
                ElementsAre(TraceIn(kWait), Verbose(kWait, L"WlanSvc service Running Status = 1, try 0"),
                            Verbose(kWait, L"WlanSvc service Running Status = 1, try 1"),
                            TraceOut(kWait, L"WlanSvc Running Status = 0")));
    EXPECT_THAT(clock.SleepsAndWaits(), ElementsAre(1000, 1000));
}

TEST_F(ServiceWaitTest, ServiceThatDisappearsEndsTheWait) {
    SetState(SERVICE_STOPPED);
    clock.At(2500ms, [] { SimulatedNotebook::Uninstall(L"WlanSvc"); });
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), -1);
    EXPECT_EQ(clock.Elapsed(), 4s);
}

using UtilSleepTest = ServiceUtilitiesTest;

TEST_F(UtilSleepTest, WaitsOnAnEventThatNobodyKnows) {
    Ledger ledger;
    HANDLE made = nullptr;
    const ScopedImport<&::CreateEventW> create{
        [&](LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL signalled, LPCWSTR name) {
            EXPECT_EQ(security, nullptr);
            EXPECT_EQ(manualReset, FALSE);
            EXPECT_EQ(signalled, FALSE);
            EXPECT_EQ(name, nullptr);
            made = create.Original(security, manualReset, signalled, name);
            return made;
        }};
    DWORD waited = 0;
    const ScopedImport<&::WaitForSingleObject> wait{[&](HANDLE handle, DWORD) { return handle == made; },
                                                    [&](HANDLE, DWORD milliseconds) -> DWORD {
                                                        waited = milliseconds;
                                                        return WAIT_TIMEOUT;
                                                    }};
    Utils::UtilSleep(50);
    EXPECT_EQ(waited, 50U);
    EXPECT_EQ(wait.Calls(), 1);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kSleep), TraceOut(kSleep)));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(UtilSleepTest, ReturnsAtOnceWithoutAnEvent) {
    const ScopedResult<&::CreateEventW> fails{nullptr, ERROR_NO_SYSTEM_RESOURCES};
    Utils::UtilSleep(1000);
    EXPECT_THAT(log.Lines(),
                ElementsAre(TraceIn(kSleep), Error(kSleep, L"CreateEvent() failed with  error: 1450"),
                            TraceOut(kSleep)));
    EXPECT_THAT(clock.SleepsAndWaits(), IsEmpty());
}

using RestartRecoveryTest = ServiceUtilitiesTest;

TEST_F(RestartRecoveryTest, ServiceIsRestartedAfterTwoFourAndSixMinutesAlsoWhenItStopsWithAnError) {
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), 0);
    const auto& service = SimulatedNotebook::Service(L"LinkvaneService");
    EXPECT_EQ(service.failureActions.dwResetPeriod, 3600U);
    EXPECT_EQ(service.failureActions.lpRebootMsg, nullptr);
    EXPECT_EQ(service.failureActions.lpCommand, nullptr);
    ASSERT_EQ(service.actions.size(), 3U);
    EXPECT_THAT(service.actions, Each(testing::Field("Type", &SC_ACTION::Type, SC_ACTION_RESTART)));
    EXPECT_EQ(service.actions[0].Delay, 120000U);
    EXPECT_EQ(service.actions[1].Delay, 240000U);
    EXPECT_EQ(service.actions[2].Delay, 360000U);
    EXPECT_EQ(service.actsOnFailingExit, TRUE);
    EXPECT_THAT(notebook.Calls(),
                ElementsAre("OpenSCManagerW 0xf003f", "OpenServiceW LinkvaneService 0xf01ff",
                            "ChangeServiceConfig2W 2", "ChangeServiceConfig2W 4"));
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kRecovery, L"Service Name = LinkvaneService"),
                                         TraceOut(kRecovery, L"Return Value = 0")));
}

TEST_F(RestartRecoveryTest, HandlesAreClosedBeforeTheExitLine) {
    ExpectClosedBeforeTheExitLine(kRecovery, [] { Utils::SetServiceRestartRecoveryOnFailure(); });
}

/// The flag is set whatever becomes of the actions, and both failures add up.
TEST_F(RestartRecoveryTest, EachFailureIsLoggedAndCounted) {
    const LogLine actionsFailed =
        Error(kRecovery, L"ChangeServiceConfig2 (SERVICE_CONFIG_FAILURE_ACTIONS) failed w/err 0x00000005\n");
    const LogLine flagFailed = Error(
        kRecovery, L"ChangeServiceConfig2 (SERVICE_CONFIG_FAILURE_ACTIONS_FLAG) failed w/err 0x0000007c\n");
    notebook.Fail(Call::ChangeServiceConfig2, 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), 1);
    EXPECT_THAT(log.From(kVerbose), ElementsAre(actionsFailed));
    EXPECT_EQ(SimulatedNotebook::Service(L"LinkvaneService").actsOnFailingExit, TRUE);

    log.Clear();
    notebook.Fail(Call::ChangeServiceConfig2, 2, ERROR_INVALID_LEVEL);
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), 16);
    EXPECT_THAT(log.From(kVerbose), ElementsAre(flagFailed));

    log.Clear();
    notebook.Fail(Call::ChangeServiceConfig2, 1, ERROR_ACCESS_DENIED);
    notebook.Fail(Call::ChangeServiceConfig2, 2, ERROR_INVALID_LEVEL);
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), 17);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kRecovery, L"Service Name = LinkvaneService"), actionsFailed,
                                         flagFailed, TraceOut(kRecovery, L"Return Value = 17")));
}

TEST(ServiceUtilitiesTimingTest, ElapsedTimeFollowsTheExitLine) {
    const LogRecorder log(LogRecorder::Timing::kOn);
    TestClock clock;
    const SimulatedNotebook notebook{clock};
    static_cast<void>(Utils::GetBinaryVersion());
    static_cast<void>(Utils::WaitforServiceToStartRunning(L"WlanSvc"));
    Utils::UtilSleep(50);
    Utils::SetServiceRestartRecoveryOnFailure();
    for (const char* const name : {"Utils::GetBinaryVersion", kPresent, kWait, kSleep, kRecovery}) {
        const std::vector<LogLine> lines = log.Of(name);
        ASSERT_GE(lines.size(), 3U) << name;
        EXPECT_EQ(lines[lines.size() - 2].level, Orva::Shared::Level::kTraceOut) << name;
        EXPECT_THAT(lines.back(), Line(Orva::Shared::Level::kDiag, _, StartsWith(L"Elapsed time = ")));
    }
}

}  // namespace
