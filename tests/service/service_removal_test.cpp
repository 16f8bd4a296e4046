#include <chrono>
#include <cwchar>
#include <ostream>
#include <string>
#include <vector>

#include "service/service_installer.h"
#include "tests/service/service_test.h"

namespace ServiceTests {
namespace {

using namespace std::chrono_literals;

constexpr char kUninstallService[] = "UninstallService";
constexpr char kStopped[] = "\nLinkvaneService is stopped.\nLinkvaneService is removed.\n";
constexpr char kNotStopped[] = "\nLinkvaneService failed to stop.\nLinkvaneService is removed.\n";

class ServiceRemovalTest : public ServiceTest {
  protected:
    ServiceRemovalTest() {
        remembered.Write(L"WlanPowerStatus", L"PowerOnOff", RegistryText(L"True"));
        remembered.Write(L"WwanPowerStatus", L"PowerOnOff", RegistryText(L"False"));
    }

    static std::string Remove() { return PrintedBy(&UninstallService); }
    static void SetState(DWORD state) { SimulatedNotebook::Service(kService).state = state; }
    /// A stop request leaves it stopping; it goes on when the clock comes to `end`.
    void StopUntil(TestClock::Milliseconds end, DWORD state = SERVICE_STOPPED) {
        SimulatedNotebook::Service(kService).stateAfterStop = SERVICE_STOP_PENDING;
        clock.At(end, [state] { SetState(state); });
    }

    Rig::ScopedRegistryTree remembered{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orva\\Orva Brimlet Support"};
};

TEST_F(ServiceRemovalTest, ServiceThatTakesNoStopRequestIsDeletedWithoutAWordOrAWait) {
    for (const DWORD state : {SERVICE_STOPPED, SERVICE_START_PENDING}) {
        log.Clear();
        SetState(state);
        EXPECT_EQ(Remove(), "LinkvaneService is removed.\n");
        EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kUninstallService), TraceOut(kUninstallService)));
        EXPECT_FALSE(SimulatedNotebook::IsInstalled(kService));
        notebook.FailEach(Call::ControlService, ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
    }
    EXPECT_EQ(notebook.Count(Call::QueryServiceStatus), 0);
    EXPECT_THAT(clock.SleepsAndWaits(), IsEmpty());
}

TEST_F(ServiceRemovalTest, RememberedStatesAreDeletedAndTheirParentStays) {
    remembered.Create(L"WlanPowerStatus\\Deeper\\Still");
    Remove();
    EXPECT_FALSE(remembered.Exists(L"WlanPowerStatus"));
    EXPECT_FALSE(remembered.Exists(L"WwanPowerStatus"));
    EXPECT_TRUE(remembered.Exists());
}

TEST_F(ServiceRemovalTest, RemovalIsToldWhenBothRememberedStatesAreGone) {
    SetState(SERVICE_STOPPED);
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
    EXPECT_EQ(Remove(), std::string("Stopping LinkvaneService.") + kStopped);
    EXPECT_THAT(log.From(kVerbose), IsEmpty());
}

TEST_F(ServiceRemovalTest, OnlyTheRightsNeededAreAskedFor) {
    Remove();
    EXPECT_THAT(notebook.Calls(), ElementsAre("OpenSCManagerW 0x1", "OpenServiceW LinkvaneService 0x10024",
                                              "ControlService 1", "QueryServiceStatus", "DeleteService"));
}

/// How long a service takes to stop, and what is seen of it.
struct Stopping {
    const char* name;
    TestClock::Milliseconds until;
    DWORD state;
    int failingQuery;  ///< from 1; 0: none fails
    std::size_t dots;  ///< behind the first
};

void PrintTo(const Stopping& stopping, std::ostream* out) {
    *out << stopping.name;
}

class ServiceStoppingTest : public ServiceRemovalTest, public testing::WithParamInterface<Stopping> {};

TEST_P(ServiceStoppingTest, OneDotASecondAndTheServiceIsDeletedAllTheSame) {
    const Stopping& stopping = GetParam();
    StopUntil(stopping.until, stopping.state);
    if (stopping.failingQuery != 0) {
        notebook.Fail(Call::QueryServiceStatus, stopping.failingQuery, ERROR_ACCESS_DENIED);
    }
    const bool stops = stopping.state == SERVICE_STOPPED && stopping.failingQuery == 0;
    EXPECT_EQ(Remove(), "Stopping LinkvaneService." + std::string(stopping.dots, '.') +
                            (stops ? kStopped : kNotStopped));
    EXPECT_THAT(clock.Sleeps(), AllOf(testing::SizeIs(stopping.dots + 1), Each(1000)));
    EXPECT_EQ(notebook.Count(Call::QueryServiceStatus), static_cast<int>(stopping.dots) + 1);
    if (stops) {
        EXPECT_THAT(log.From(kVerbose), IsEmpty());
    } else {
        EXPECT_THAT(log.From(kVerbose),
                    ElementsAre(Error(kUninstallService, L"LinkvaneService failed to stop.")));
    }
    EXPECT_FALSE(SimulatedNotebook::IsInstalled(kService));
    EXPECT_FALSE(remembered.Exists(L"WlanPowerStatus"));
}

INSTANTIATE_TEST_SUITE_P(Cases, ServiceStoppingTest,
                         testing::Values(Stopping{"WithinASecond", 500ms, SERVICE_STOPPED, 0, 0},
                                         Stopping{"InFourSeconds", 3500ms, SERVICE_STOPPED, 0, 3},
                                         Stopping{"InAnHour", 3600s + 500ms, SERVICE_STOPPED, 0, 3600},
                                         Stopping{"RunsAgain", 1500ms, SERVICE_RUNNING, 0, 1},
                                         // The last state that was seen decides.
                                         Stopping{"FirstQueryFails", 500ms, SERVICE_STOPPED, 1, 0},
                                         Stopping{"SecondQueryFails", 1500ms, SERVICE_STOPPED, 2, 1}));

TEST_F(ServiceRemovalTest, EachDotIsSeenDuringTheSecondThatFollows) {
    StopUntil(2800ms);
    std::vector<std::string> seen;
    for (const TestClock::Milliseconds time : {500ms, 1500ms, 2500ms}) {
        clock.At(time, [&] { seen.push_back(CapturedOutput::SoFar()); });
    }
    Remove();
    EXPECT_THAT(seen, ElementsAre("Stopping LinkvaneService.", "Stopping LinkvaneService..",
                                  "Stopping LinkvaneService..."));
}

TEST_F(ServiceRemovalTest, ServiceThatTheStopRequestFoundStoppedNeedsNoQuery) {
    notebook.FailEach(Call::QueryServiceStatus, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Remove(), std::string("Stopping LinkvaneService.") + kStopped);
}

TEST_F(ServiceRemovalTest, FailedDeletionOfTheStatesIsOnlyLogged) {
    SetState(SERVICE_STOPPED);
    const ScopedImport<&::RegOpenKeyExW> forbidden{
        [](HKEY, LPCWSTR name, auto...) { return std::wcsstr(name, L"PowerStatus") != nullptr; },
        [](HKEY, LPCWSTR name, auto...) -> LSTATUS {
            SetLastError(std::wcsstr(name, L"Wlan") != nullptr ? ERROR_ACCESS_DENIED
                                                               : ERROR_SHARING_VIOLATION);
            return ERROR_ACCESS_DENIED;
        }};
    EXPECT_EQ(Remove(), "LinkvaneService is removed.\n");
    EXPECT_THAT(
        log.From(kVerbose),
        ElementsAre(
            Error(kUninstallService, L"DeleteSubkey (BrimletWlanPowerStatus) failed w/err 0x00000005"),
            Error(kUninstallService, L"DeleteSubkey (BrimletWwanPowerStatus) failed w/err 0x00000020")));
}

TEST_F(ServiceRemovalTest, CallWithoutWhichItCannotBeRemovedIsToldAndEverythingElseStays) {
    SetState(SERVICE_STOPPED);
    struct Failure {
        Call call;
        DWORD error;
        std::string line;  ///< on the console; the log has it as well
    };
    for (const Failure& failure :
         {Failure{Call::DeleteService, ERROR_SERVICE_MARKED_FOR_DELETE,
                  "DeleteService failed w/err 0x00000430"},
          Failure{Call::OpenService, ERROR_SERVICE_DOES_NOT_EXIST, "OpenService failed w/err 0x00000424"},
          Failure{Call::OpenService, ERROR_ACCESS_DENIED, "OpenService failed w/err 0x00000005"},
          Failure{Call::OpenSCManager, ERROR_ACCESS_DENIED, "OpenSCManager failed w/err 0x00000005"}}) {
        log.Clear();
        notebook.ForgetCalls();
        notebook.FailEach(failure.call, static_cast<LONG>(failure.error));
        EXPECT_EQ(Remove(), failure.line + "\n");
        const std::wstring line(failure.line.begin(), failure.line.end());
        EXPECT_THAT(log.From(kVerbose), ElementsAre(Error(kUninstallService, line)));
        EXPECT_TRUE(SimulatedNotebook::IsInstalled(kService));
        EXPECT_TRUE(remembered.Exists(L"WlanPowerStatus"));
        EXPECT_TRUE(remembered.Exists(L"WwanPowerStatus"));
        EXPECT_EQ(notebook.Count(Call::ControlService), failure.call == Call::DeleteService ? 1 : 0);
    }
}

}  // namespace
}  // namespace ServiceTests
