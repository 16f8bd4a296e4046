#include "service/service_utilities.h"

#include <gmock/gmock.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/service/fake_service_manager.h"
#include "tests/support/ledger.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scoped_import.h"
#include "tests/support/test_clock.h"

namespace {

using Orva::Shared::Level::kVerbose;
using Rig::Ledger;
using Rig::Line;
using Rig::LogLine;
using Rig::LogRecorder;
using Rig::ScopedImport;
using Rig::ScopedResult;
using Rig::TestClock;
using ServiceTests::FakeServiceManager;
using testing::_;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using namespace Rig::Lines;

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

    LogRecorder log;
    TestClock clock;
    Ledger ledger;
    FakeServiceManager manager{ledger};
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
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServicePresenceTest, ManagerAndServiceAreOpenedWithEveryRight) {
    static_cast<void>(Utils::IsServicePresent(L"WlanSvc"));
    EXPECT_THAT(manager.managerAccess, ElementsAre(DWORD{SC_MANAGER_ALL_ACCESS}));
    EXPECT_THAT(manager.serviceAccess, ElementsAre(DWORD{SERVICE_ALL_ACCESS}));
    EXPECT_THAT(manager.openedServices, ElementsAre(L"WlanSvc"));
}

TEST_F(ServicePresenceTest, HandlesAreClosedBeforeTheExitLine) {
    ExpectClosedBeforeTheExitLine(kPresent, [] { static_cast<void>(Utils::IsServicePresent(L"WlanSvc")); });
}

TEST_F(ServicePresenceTest, ServiceInEveryOtherStateIsNotRunning) {
    for (const DWORD state : {SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_STOP_PENDING,
                              SERVICE_CONTINUE_PENDING, SERVICE_PAUSE_PENDING, SERVICE_PAUSED}) {
        manager.states = {state};
        EXPECT_EQ(Utils::IsServicePresent(L"WlanSvc"), 1) << state;
    }
    EXPECT_THAT(log.At(Orva::Shared::Level::kError),
                AllOf(SizeIs(6), Each(Error(kPresent, L"WlanSvc Service is not running"))));
}

TEST_F(ServicePresenceTest, StoppedServiceIsShownWithItsState) {
    manager.states = {SERVICE_STOPPED};
    EXPECT_EQ(Utils::IsServicePresent(L"WlanSvc"), 1);
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Information(kPresent, L"WlanSvc Service is installed. Querying status.."),
                            Information(kPresent, L"WlanSvc Service is running status = 0x00000001"),
                            Error(kPresent, L"WlanSvc Service is not running")));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServicePresenceTest, ServiceThatCannotBeQueriedSaysNoMore) {
    manager.states.clear();
    manager.queryError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Utils::IsServicePresent(L"WlanSvc"), -3);
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Information(kPresent, L"WlanSvc Service is installed. Querying status..")));
    EXPECT_TRUE(log.Contains(TraceOut(kPresent, L"Return Value = -3")));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServicePresenceTest, ManagerThatCannotBeOpenedIsLogged) {
    manager.openManagerError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Utils::IsServicePresent(L"WlanSvc"), -2);
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kPresent, L"OpenSCManager failed w/err 0x00000005")));
    EXPECT_TRUE(log.Contains(TraceOut(kPresent, L"Return Value = -2")));
    EXPECT_THAT(manager.openedServices, IsEmpty());
}

TEST_F(ServicePresenceTest, ServiceThatIsNotInstalledIsLogged) {
    manager.openServiceError = ERROR_SERVICE_DOES_NOT_EXIST;
    EXPECT_EQ(Utils::IsServicePresent(L"WlanSvc"), -1);
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Error(kPresent, L"Service does not exist. Error 0x00000424")));
    EXPECT_TRUE(log.Contains(TraceOut(kPresent, L"Return Value = -1")));
    EXPECT_EQ(manager.queries, 0);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServicePresenceTest, ForbiddenServiceIsLogged) {
    manager.openServiceError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Utils::IsServicePresent(L"WlanSvc"), -2);
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kPresent, L"OpenService failed w/err 0x00000005")));
    EXPECT_TRUE(ledger.Balanced());
}

using ServiceWaitTest = ServiceUtilitiesTest;

TEST_F(ServiceWaitTest, RunningServiceIsNotWaitedFor) {
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), 0);
    EXPECT_THAT(log.Of(kWait), ElementsAre(TraceIn(kWait), TraceOut(kWait, L"WlanSvc Running Status = 0")));
    EXPECT_EQ(clock.Elapsed().count(), 0);
    EXPECT_THAT(log.Of(kSleep), IsEmpty());
}

TEST_F(ServiceWaitTest, ServiceThatIsNotInstalledCostsOneTryAndOneSecond) {
    manager.openServiceError = ERROR_SERVICE_DOES_NOT_EXIST;
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), -1);
    EXPECT_THAT(log.Of(kWait),
                ElementsAre(TraceIn(kWait), Verbose(kWait, L"WlanSvc service Running Status = -1, try 0"),
                            TraceOut(kWait, L"WlanSvc Running Status = -1")));
    EXPECT_THAT(clock.SleepsAndWaits(), ElementsAre(1000));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceWaitTest, ForbiddenServiceCostsOneTry) {
    manager.openServiceError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), -2);
    EXPECT_THAT(clock.SleepsAndWaits(), ElementsAre(1000));
}

TEST_F(ServiceWaitTest, ServiceThatCannotBeQueriedCostsOneTry) {
    manager.states.clear();
    manager.queryError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), -3);
    EXPECT_THAT(clock.SleepsAndWaits(), ElementsAre(1000));
}

TEST_F(ServiceWaitTest, ServiceThatStaysPendingIsTriedFifteenTimes) {
    manager.states = {SERVICE_START_PENDING};
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), 1);
    std::vector<LogLine> expected{TraceIn(kWait)};
    for (int i = 0; i < 15; ++i) {
        expected.push_back(Verbose(kWait, L"WlanSvc service Running Status = 1, try " + std::to_wstring(i)));
    }
    expected.push_back(TraceOut(kWait, L"WlanSvc Running Status = 1"));
    EXPECT_EQ(log.Of(kWait), expected);
    EXPECT_THAT(clock.SleepsAndWaits(), AllOf(SizeIs(15), Each(1000)));
    EXPECT_EQ(manager.queries, 15);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceWaitTest, WaitEndsWhenTheServiceRuns) {
    manager.states = {SERVICE_STOPPED, SERVICE_START_PENDING, SERVICE_RUNNING};
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WwanSvc"), 0);
    EXPECT_THAT(log.Of(kWait),
                ElementsAre(TraceIn(kWait), Verbose(kWait, L"WwanSvc service Running Status = 1, try 0"),
                            Verbose(kWait, L"WwanSvc service Running Status = 1, try 1"),
                            TraceOut(kWait, L"WwanSvc Running Status = 0")));
    EXPECT_THAT(clock.SleepsAndWaits(), ElementsAre(1000, 1000));
}

TEST_F(ServiceWaitTest, ServiceThatDisappearsEndsTheWait) {
    manager.states = {SERVICE_STOPPED};
    clock.At(std::chrono::milliseconds(2500),
             [&] { manager.openServiceError = ERROR_SERVICE_DOES_NOT_EXIST; });
    EXPECT_EQ(Utils::WaitforServiceToStartRunning(L"WlanSvc"), -1);
    EXPECT_EQ(clock.Elapsed(), std::chrono::milliseconds(4000));
}

using UtilSleepTest = ServiceUtilitiesTest;

TEST_F(UtilSleepTest, WaitsOnAnEventThatNobodyKnows) {
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

constexpr wchar_t kActionsFailed[] =
    L"ChangeServiceConfig2 (SERVICE_CONFIG_FAILURE_ACTIONS) failed w/err 0x00000005\n";
constexpr wchar_t kFlagFailed[] =
    L"ChangeServiceConfig2 (SERVICE_CONFIG_FAILURE_ACTIONS_FLAG) failed w/err 0x0000007c\n";

TEST_F(RestartRecoveryTest, ServiceIsRestartedAfterTwoFourAndSixMinutes) {
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), 0);
    ASSERT_EQ(manager.failureActions.size(), 1U);
    EXPECT_EQ(manager.failureActions[0].dwResetPeriod, 3600U);
    EXPECT_EQ(manager.failureActions[0].lpRebootMsg, nullptr);
    EXPECT_EQ(manager.failureActions[0].lpCommand, nullptr);
    ASSERT_EQ(manager.restarts.size(), 3U);
    EXPECT_THAT(manager.restarts, Each(testing::Field("Type", &SC_ACTION::Type, SC_ACTION_RESTART)));
    EXPECT_EQ(manager.restarts[0].Delay, 120000U);
    EXPECT_EQ(manager.restarts[1].Delay, 240000U);
    EXPECT_EQ(manager.restarts[2].Delay, 360000U);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kRecovery, L"Service Name = LinkvaneService"),
                                         TraceOut(kRecovery, L"Return Value = 0")));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RestartRecoveryTest, StoppingWithAnErrorCountsAsFailure) {
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), 0);
    EXPECT_THAT(manager.failureActionsFlags, ElementsAre(TRUE));
    EXPECT_THAT(manager.settings, ElementsAre(DWORD{SERVICE_CONFIG_FAILURE_ACTIONS},
                                              DWORD{SERVICE_CONFIG_FAILURE_ACTIONS_FLAG}));
}

TEST_F(RestartRecoveryTest, HandlesAreClosedBeforeTheExitLine) {
    ExpectClosedBeforeTheExitLine(kRecovery, [] { Utils::SetServiceRestartRecoveryOnFailure(); });
}

TEST_F(RestartRecoveryTest, OwnServiceIsOpenedWithEveryRight) {
    Utils::SetServiceRestartRecoveryOnFailure();
    EXPECT_THAT(manager.managerAccess, ElementsAre(DWORD{SC_MANAGER_ALL_ACCESS}));
    EXPECT_THAT(manager.openedServices, ElementsAre(L"LinkvaneService"));
    EXPECT_THAT(manager.serviceAccess, ElementsAre(DWORD{SERVICE_ALL_ACCESS}));
}

TEST_F(RestartRecoveryTest, FailedActionsAreLoggedAndTheFlagIsSetAllTheSame) {
    manager.failureActionsError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), 1);
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kRecovery, kActionsFailed)));
    EXPECT_THAT(manager.failureActionsFlags, ElementsAre(TRUE));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RestartRecoveryTest, FailedFlagIsLogged) {
    manager.failureActionsFlagError = ERROR_INVALID_LEVEL;
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), 16);
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kRecovery, kFlagFailed)));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RestartRecoveryTest, BothFailuresAddUp) {
    manager.failureActionsError = ERROR_ACCESS_DENIED;
    manager.failureActionsFlagError = ERROR_INVALID_LEVEL;
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), 17);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kRecovery, L"Service Name = LinkvaneService"),
                                         Error(kRecovery, kActionsFailed), Error(kRecovery, kFlagFailed),
                                         TraceOut(kRecovery, L"Return Value = 17")));
}

TEST_F(RestartRecoveryTest, ServiceThatIsNotInstalledIsLogged) {
    manager.openServiceError = ERROR_SERVICE_DOES_NOT_EXIST;
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), -1);
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Error(kRecovery, L"Service does not exist. Error 0x00000424")));
    EXPECT_THAT(manager.settings, IsEmpty());
    EXPECT_TRUE(log.Contains(TraceOut(kRecovery, L"Return Value = -1")));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RestartRecoveryTest, ForbiddenServiceIsLogged) {
    manager.openServiceError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), -2);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kRecovery, L"Service Name = LinkvaneService"),
                                         Error(kRecovery, L"OpenService failed w/err 0x00000005"),
                                         TraceOut(kRecovery, L"Return Value = -2")));
    EXPECT_THAT(manager.settings, IsEmpty());
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RestartRecoveryTest, ManagerThatCannotBeOpenedIsLogged) {
    manager.openManagerError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Utils::SetServiceRestartRecoveryOnFailure(), -2);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kRecovery, L"Service Name = LinkvaneService"),
                                         Error(kRecovery, L"OpenSCManager failed w/err 0x00000005"),
                                         TraceOut(kRecovery, L"Return Value = -2")));
    EXPECT_THAT(manager.openedServices, IsEmpty());
}

/// An operation by its name in the log.
struct Operation {
    const char* name;
    std::function<void()> run;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

class ServiceUtilitiesTimingTest : public testing::TestWithParam<Operation> {};

TEST_P(ServiceUtilitiesTimingTest, ElapsedTimeFollowsTheExitLine) {
    const LogRecorder log(LogRecorder::Timing::kOn);
    const TestClock clock;
    Ledger ledger;
    const FakeServiceManager manager{ledger};
    GetParam().run();
    const std::vector<LogLine> lines = log.Of(GetParam().name);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[lines.size() - 2].level, Orva::Shared::Level::kTraceOut);
    EXPECT_THAT(lines.back(), Line(Orva::Shared::Level::kDiag, _, StartsWith(L"Elapsed time = ")));
}

INSTANTIATE_TEST_SUITE_P(
    Operations, ServiceUtilitiesTimingTest,
    testing::Values(
        Operation{"Utils::GetBinaryVersion", [] { static_cast<void>(Utils::GetBinaryVersion()); }},
        Operation{kPresent, [] { static_cast<void>(Utils::IsServicePresent(L"WlanSvc")); }},
        Operation{kWait, [] { static_cast<void>(Utils::WaitforServiceToStartRunning(L"WlanSvc")); }},
        Operation{kSleep, [] { Utils::UtilSleep(50); }},
        Operation{kRecovery, [] { Utils::SetServiceRestartRecoveryOnFailure(); }}),
    [](const auto& instance) {
        const std::string name = instance.param.name;
        return name.substr(name.rfind(':') + 1);
    });

}  // namespace
