#include <gmock/gmock.h>

#include <windows.h>

#include <chrono>
#include <cwchar>
#include <string>
#include <vector>

#include "service/service_installer.h"
#include "tests/service/captured_output.h"
#include "tests/service/fake_service_manager.h"
#include "tests/support/ledger.h"
#include "tests/support/log_recorder.h"
#include "tests/support/registry_tree.h"
#include "tests/support/scoped_import.h"
#include "tests/support/test_clock.h"

namespace {

using Orva::Shared::Level::kVerbose;
using Rig::Ledger;
using Rig::LogRecorder;
using Rig::RegistryText;
using Rig::ScopedImport;
using Rig::ScopedRegistryTree;
using Rig::TestClock;
using ServiceTests::CapturedOutput;
using ServiceTests::FakeServiceManager;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using namespace Rig::Lines;
using namespace std::chrono_literals;

constexpr char kName[] = "UninstallService";

class ServiceRemovalTest : public testing::Test {
  protected:
    ServiceRemovalTest() {
        remembered.Write(L"WlanPowerStatus", L"PowerOnOff", RegistryText(L"True"));
        remembered.Write(L"WwanPowerStatus", L"PowerOnOff", RegistryText(L"False"));
    }

    /// What `UninstallService` prints.
    std::string Remove() {
        CapturedOutput output;
        UninstallService();
        return output.Take();
    }

    ScopedRegistryTree remembered{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orva\\Orva Brimlet Support"};
    LogRecorder log;
    TestClock clock;
    Ledger ledger;
    FakeServiceManager manager{ledger};
};

TEST_F(ServiceRemovalTest, StoppedServiceIsDeletedWithoutAWordOfStopping) {
    manager.stopError = ERROR_SERVICE_NOT_ACTIVE;
    EXPECT_EQ(Remove(), "LinkvaneService is removed.\n");
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kName), TraceOut(kName)));
    EXPECT_TRUE(manager.deleted);
    EXPECT_EQ(manager.queries, 0);
    EXPECT_THAT(clock.SleepsAndWaits(), IsEmpty());
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceRemovalTest, ServiceThatTakesNoStopRequestIsDeletedWithoutAWait) {
    manager.stopError = ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    manager.stateAfterStopRequest = SERVICE_START_PENDING;
    EXPECT_EQ(Remove(), "LinkvaneService is removed.\n");
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kName), TraceOut(kName)));
    EXPECT_TRUE(manager.deleted);
    EXPECT_EQ(manager.queries, 0);
    EXPECT_THAT(clock.SleepsAndWaits(), IsEmpty());
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceRemovalTest, RememberedStatesAreDeletedAndTheirParentStays) {
    remembered.Create(L"WlanPowerStatus\\Deeper\\Still");
    manager.stopError = ERROR_SERVICE_NOT_ACTIVE;
    Remove();
    EXPECT_FALSE(remembered.Exists(L"WlanPowerStatus"));
    EXPECT_FALSE(remembered.Exists(L"WwanPowerStatus"));
    EXPECT_TRUE(remembered.Exists());
}

TEST_F(ServiceRemovalTest, RemovalIsToldWhenBothRememberedStatesAreGone) {
    manager.stopError = ERROR_SERVICE_NOT_ACTIVE;
    std::vector<std::string> seen;
    {
        // The last key is closed when the second deletion is over.
        const ScopedImport<&::RegCloseKey> close{[&](HKEY key) {
            seen.push_back(CapturedOutput::SoFar());
            return close.Original(key);
        }};
        EXPECT_EQ(Remove(), "LinkvaneService is removed.\n");
    }
    EXPECT_THAT(seen, AllOf(Not(IsEmpty()), Each("")));
    EXPECT_FALSE(remembered.Exists(L"WwanPowerStatus"));
}

TEST_F(ServiceRemovalTest, StatesThatWereNeverRememberedAreNoError) {
    remembered.Delete();
    EXPECT_EQ(Remove(),
              "Stopping LinkvaneService.\nLinkvaneService failed to stop.\nLinkvaneService is removed.\n");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"LinkvaneService failed to stop.")));
}

TEST_F(ServiceRemovalTest, OnlyTheRightsNeededAreAskedFor) {
    Remove();
    EXPECT_THAT(manager.managerAccess, ElementsAre(DWORD{SC_MANAGER_CONNECT}));
    EXPECT_THAT(manager.openedServices, ElementsAre(L"LinkvaneService"));
    EXPECT_THAT(manager.serviceAccess, ElementsAre(DWORD{SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE}));
    EXPECT_THAT(manager.controls, ElementsAre(DWORD{SERVICE_CONTROL_STOP}));
}

TEST_F(ServiceRemovalTest, ServiceThatStopsWithinASecondGetsNoFurtherDot) {
    manager.states = {SERVICE_STOPPED};
    EXPECT_EQ(Remove(),
              "Stopping LinkvaneService.\nLinkvaneService is stopped.\nLinkvaneService is removed.\n");
    EXPECT_THAT(clock.Sleeps(), ElementsAre(1000));
    EXPECT_THAT(log.From(kVerbose), IsEmpty());
}

TEST_F(ServiceRemovalTest, OneDotASecondWhileTheServiceStops) {
    manager.states = {SERVICE_STOP_PENDING, SERVICE_STOP_PENDING, SERVICE_STOP_PENDING, SERVICE_STOPPED};
    EXPECT_EQ(Remove(),
              "Stopping LinkvaneService....\nLinkvaneService is stopped.\nLinkvaneService is removed.\n");
    EXPECT_THAT(clock.Sleeps(), ElementsAre(1000, 1000, 1000, 1000));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceRemovalTest, EachDotIsSeenDuringTheSecondThatFollows) {
    manager.states = {SERVICE_STOP_PENDING, SERVICE_STOP_PENDING, SERVICE_STOPPED};
    std::vector<std::string> seen;
    for (const TestClock::Milliseconds time : {500ms, 1500ms, 2500ms}) {
        clock.At(time, [&] { seen.push_back(CapturedOutput::SoFar()); });
    }
    Remove();
    EXPECT_THAT(seen, ElementsAre("Stopping LinkvaneService.", "Stopping LinkvaneService..",
                                  "Stopping LinkvaneService..."));
}

TEST_F(ServiceRemovalTest, ServiceThatStopsForAnHourIsWaitedFor) {
    constexpr std::size_t kSecondsPerHour = 3600;
    manager.states.assign(kSecondsPerHour, SERVICE_STOP_PENDING);
    manager.states.push_back(SERVICE_STOPPED);
    EXPECT_EQ(Remove(), "Stopping LinkvaneService." + std::string(kSecondsPerHour, '.') +
                            "\nLinkvaneService is stopped.\nLinkvaneService is removed.\n");
    EXPECT_EQ(clock.Elapsed(), std::chrono::seconds(kSecondsPerHour + 1));
}

TEST_F(ServiceRemovalTest, ServiceThatRunsAgainFailedToStopAndIsDeletedAllTheSame) {
    manager.states = {SERVICE_STOP_PENDING, SERVICE_RUNNING};
    EXPECT_EQ(Remove(),
              "Stopping LinkvaneService..\nLinkvaneService failed to stop.\nLinkvaneService is removed.\n");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"LinkvaneService failed to stop.")));
    EXPECT_TRUE(manager.deleted);
}

TEST_F(ServiceRemovalTest, QueryThatFailsEndsTheWaitWithTheLastStateSeen) {
    manager.states = {SERVICE_STOP_PENDING};
    manager.queryError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Remove(),
              "Stopping LinkvaneService..\nLinkvaneService failed to stop.\nLinkvaneService is removed.\n");
    EXPECT_EQ(manager.queries, 2);
    EXPECT_THAT(clock.Sleeps(), ElementsAre(1000, 1000));
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"LinkvaneService failed to stop.")));
    EXPECT_TRUE(manager.deleted);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceRemovalTest, FirstQueryThatFailsLeavesTheStateThatTheStopRequestFound) {
    manager.states.clear();
    manager.queryError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Remove(),
              "Stopping LinkvaneService.\nLinkvaneService failed to stop.\nLinkvaneService is removed.\n");
    EXPECT_EQ(manager.queries, 1);
    EXPECT_THAT(clock.Sleeps(), ElementsAre(1000));
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"LinkvaneService failed to stop.")));
    EXPECT_TRUE(manager.deleted);
    EXPECT_FALSE(remembered.Exists(L"WlanPowerStatus"));
}

TEST_F(ServiceRemovalTest, ServiceThatTheStopRequestFoundStoppedNeedsNoQuery) {
    manager.stateAfterStopRequest = SERVICE_STOPPED;
    manager.states.clear();
    manager.queryError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Remove(),
              "Stopping LinkvaneService.\nLinkvaneService is stopped.\nLinkvaneService is removed.\n");
}

TEST_F(ServiceRemovalTest, FailedDeletionIsToldAndTheRememberedStatesStay) {
    manager.stopError = ERROR_SERVICE_NOT_ACTIVE;
    manager.deleteError = ERROR_SERVICE_MARKED_FOR_DELETE;
    EXPECT_EQ(Remove(), "DeleteService failed w/err 0x00000430\n");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"DeleteService failed w/err 0x00000430")));
    EXPECT_TRUE(remembered.Exists(L"WlanPowerStatus"));
    EXPECT_TRUE(remembered.Exists(L"WwanPowerStatus"));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceRemovalTest, FailedDeletionOfTheStatesIsOnlyLogged) {
    manager.stopError = ERROR_SERVICE_NOT_ACTIVE;
    const ScopedImport<&::RegOpenKeyExW> forbidden{
        [](HKEY, LPCWSTR name, auto...) { return std::wcsstr(name, L"PowerStatus") != nullptr; },
        [](HKEY, LPCWSTR name, auto...) -> LSTATUS {
            SetLastError(std::wcsstr(name, L"Wlan") != nullptr ? ERROR_ACCESS_DENIED
                                                               : ERROR_SHARING_VIOLATION);
            return ERROR_ACCESS_DENIED;
        }};
    EXPECT_EQ(Remove(), "LinkvaneService is removed.\n");
    EXPECT_THAT(log.From(kVerbose),
                ElementsAre(Error(kName, L"DeleteSubkey (BrimletWlanPowerStatus) failed w/err 0x00000005"),
                            Error(kName, L"DeleteSubkey (BrimletWwanPowerStatus) failed w/err 0x00000020")));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceRemovalTest, SecondStateIsDeletedWhenTheFirstCannotBe) {
    manager.stopError = ERROR_SERVICE_NOT_ACTIVE;
    const ScopedImport<&::RegOpenKeyExW> forbidden{
        [](HKEY, LPCWSTR name, auto...) { return std::wcsstr(name, L"WlanPowerStatus") != nullptr; },
        [](auto...) -> LSTATUS { return ERROR_ACCESS_DENIED; }};
    Remove();
    EXPECT_TRUE(remembered.Exists(L"WlanPowerStatus"));
    EXPECT_FALSE(remembered.Exists(L"WwanPowerStatus"));
}

TEST_F(ServiceRemovalTest, ManagerThatCannotBeOpenedIsTold) {
    manager.openManagerError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Remove(), "OpenSCManager failed w/err 0x00000005\n");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"OpenSCManager failed w/err 0x00000005")));
    EXPECT_THAT(manager.openedServices, IsEmpty());
    EXPECT_TRUE(remembered.Exists(L"WlanPowerStatus"));
}

TEST_F(ServiceRemovalTest, ServiceThatIsNotInstalledIsTold) {
    manager.openServiceError = ERROR_SERVICE_DOES_NOT_EXIST;
    EXPECT_EQ(Remove(), "OpenService failed w/err 0x00000424\n");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"OpenService failed w/err 0x00000424")));
    EXPECT_THAT(manager.controls, IsEmpty());
    EXPECT_FALSE(manager.deleted);
    EXPECT_TRUE(remembered.Exists(L"WlanPowerStatus"));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceRemovalTest, ServiceThatMayNotBeRemovedIsTold) {
    manager.openServiceError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Remove(), "OpenService failed w/err 0x00000005\n");
    EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kName, L"OpenService failed w/err 0x00000005")));
    EXPECT_FALSE(manager.deleted);
    EXPECT_TRUE(ledger.Balanced());
}

}  // namespace
