#include "service/service_utilities.h"

#include <ostream>
#include <string>
#include <vector>

#include "tests/service/service_test.h"
#include "tests/support/ledger.h"

namespace ServiceTests {
namespace {

using namespace std::chrono_literals;

constexpr char kPresent[] = "Utils::IsServicePresent";
constexpr char kWait[] = "Utils::WaitforServiceToStartRunning";
constexpr char kSleep[] = "Utils::UtilSleep";
constexpr char kRecovery[] = "Utils::SetServiceRestartRecoveryOnFailure";

class ServiceUtilitiesTest : public ServiceTest {
  protected:
    static void SetState(DWORD state) { SimulatedNotebook::Service(L"WlanSvc").state = state; }
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

TEST_F(ServicePresenceTest, HandlesAreClosedBeforeTheExitLineAsAreThoseOfTheRecovery) {
    const ScopedImport<&::CloseServiceHandle> close{[&](SC_HANDLE handle) {
        EXPECT_EQ(log.Count(TraceOut(kPresent, L"Return Value = 0")), close.Calls() > 2 ? 1 : 0);
        EXPECT_EQ(log.Count(TraceOut(kRecovery, L"Return Value = 0")), 0);
        return close.Original(handle);
    }};
    static_cast<void>(Utils::IsServicePresent(L"WlanSvc"));
    EXPECT_EQ(close.Calls(), 2);
    Utils::SetServiceRestartRecoveryOnFailure();
    EXPECT_EQ(close.Calls(), 4);
    EXPECT_EQ(log.Lines().back(), TraceOut(kRecovery, L"Return Value = 0"));
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
    Call call;  ///< that fails with the error
    DWORD error;
    int status;
    const wchar_t* line;
};

void PrintTo(const OpenFailure& failure, std::ostream* out) {
    *out << failure.name;
}

class OpenFailureTest : public ServiceUtilitiesTest, public testing::WithParamInterface<OpenFailure> {
  protected:
    OpenFailureTest() { notebook.FailEach(GetParam().call, static_cast<LONG>(GetParam().error)); }

    const std::wstring status = std::to_wstring(GetParam().status);
};

TEST_P(OpenFailureTest, ServiceIsNotPresent) {
    EXPECT_EQ(Utils::IsServicePresent(kService), GetParam().status);
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kPresent, GetParam().line)));
    EXPECT_TRUE(log.Contains(TraceOut(kPresent, L"Return Value = " + status)));
    EXPECT_EQ(notebook.Count(Call::QueryServiceStatusEx), 0);
}

TEST_P(OpenFailureTest, WaitEndsAfterOneTryAndOneSecond) {
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(kService), GetParam().status);
    EXPECT_THAT(log.Of(kWait), ElementsAre(TraceIn(kWait),
                                           Verbose(kWait, L"LinkvaneService service Running Status = " +
                                                              status + L", try 0"),
                                           TraceOut(kWait, L"LinkvaneService Running Status = " + status)));
    EXPECT_THAT(clock.SleepsAndWaits(), ElementsAre(1000));
}

TEST_P(OpenFailureTest, RecoveryCannotBeSet) {
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), GetParam().status);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kRecovery, L"Service Name = LinkvaneService"),
                                         Error(kRecovery, GetParam().line),
                                         TraceOut(kRecovery, L"Return Value = " + status)));
    EXPECT_EQ(notebook.Count(Call::ChangeServiceConfig2), 0);
}

INSTANTIATE_TEST_SUITE_P(Reasons, OpenFailureTest,
                         testing::Values(OpenFailure{"NoManager", Call::OpenSCManager, ERROR_ACCESS_DENIED,
                                                     -2, L"OpenSCManager failed w/err 0x00000005"},
                                         OpenFailure{"NotInstalled", Call::OpenService,
                                                     ERROR_SERVICE_DOES_NOT_EXIST, -1,
                                                     L"Service does not exist. Error 0x00000424"},
                                         OpenFailure{"Forbidden", Call::OpenService, ERROR_ACCESS_DENIED, -2,
                                                     L"OpenService failed w/err 0x00000005"}));

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
    Rig::Ledger ledger;
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

/// The flag is set whatever becomes of the actions, and both failures add up.
TEST_F(RestartRecoveryTest, EachFailureIsLoggedAndCounted) {
    const LogLine actionsFailed =
        Error(kRecovery, L"ChangeServiceConfig2 (SERVICE_CONFIG_FAILURE_ACTIONS) failed w/err 0x00000005\n");
    const LogLine flagFailed = Error(
        kRecovery, L"ChangeServiceConfig2 (SERVICE_CONFIG_FAILURE_ACTIONS_FLAG) failed w/err 0x0000007c\n");
    for (const auto& [status, lines] :
         {std::pair{1, std::vector{actionsFailed}}, {16, {flagFailed}}, {17, {actionsFailed, flagFailed}}}) {
        log.Clear();
        SimulatedNotebook::Service(kService).actsOnFailingExit = FALSE;
        if ((status & 1) != 0) {
            notebook.Fail(Call::ChangeServiceConfig2, 1, ERROR_ACCESS_DENIED);
        }
        if ((status & 16) != 0) {
            notebook.Fail(Call::ChangeServiceConfig2, 2, ERROR_INVALID_LEVEL);
        }
        EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), status);
        EXPECT_EQ(log.From(kVerbose), lines);
        EXPECT_EQ(SimulatedNotebook::Service(kService).actsOnFailingExit, (status & 16) == 0);
        EXPECT_EQ(log.Lines().back(), TraceOut(kRecovery, L"Return Value = " + std::to_wstring(status)));
    }
}

}  // namespace
}  // namespace ServiceTests
