#include "service/service_base.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/service/service_test.h"

namespace ServiceTests {
namespace {

constexpr wchar_t kServiceName[] = L"TestService";
constexpr DWORD kAcceptedAtFirst = 0x101;   // stop, pre-shutdown
constexpr DWORD kAcceptedReported = 0x141;  // and power events

/// A service whose operations do what a test wants, and all of whose inside is open.
class TestService : public CServiceBase {
  public:
    TestService() : CServiceBase(kServiceName) {}

    using CServiceBase::Continue;
    using CServiceBase::m_serviceName;
    using CServiceBase::m_status;
    using CServiceBase::m_statusHandle;
    using CServiceBase::Pause;
    using CServiceBase::s_checkPoint;
    using CServiceBase::s_service;
    using CServiceBase::ServiceCtrlHandler;
    using CServiceBase::ServiceMain;
    using CServiceBase::SetServiceStatus;
    using CServiceBase::Shutdown;
    using CServiceBase::Start;
    using CServiceBase::Stop;
    using CServiceBase::WriteErrorLogEntry;
    using CServiceBase::WriteEventLogEntry;

    void StartAlone() { Start(0, nullptr); }

    std::function<void(std::string_view operation)> operation = [](std::string_view) {};
    DWORD argumentCount = 0;
    wchar_t** arguments = nullptr;

    void OnStart(DWORD count, wchar_t** values) override {
        argumentCount = count;
        arguments = values;
        operation("OnStart");
    }
    void OnStop() override { operation("OnStop"); }
    void OnPause() override { operation("OnPause"); }
    void OnContinue() override { operation("OnContinue"); }
    void OnShutdown() override { operation("OnShutdown"); }
};

const DWORD firstCheckPoint = TestService::s_checkPoint;

/// A report of a state, with its checkpoint, as it stands in the row of events.
std::string Report(DWORD state, DWORD checkPoint, DWORD exitCode = NO_ERROR) {
    return "state " + std::to_string(state) + " check " + std::to_string(checkPoint) +
           (exitCode != NO_ERROR ? " error " + std::to_string(exitCode) : "");
}

const std::string kStarting = Report(SERVICE_START_PENDING, 1);
const std::string kRunning = Report(SERVICE_RUNNING, 0);
const std::string kStopped = Report(SERVICE_STOPPED, 0);

/// An entry of the event log.
std::string Entry(const std::string& message, WORD type = EVENTLOG_ERROR_TYPE) {
    return "TestService|" + std::to_string(type) + "|0|0|\"TestService\"|\"" + message + "\"";
}

class ServiceBaseTest : public ServiceTest {
  protected:
    ServiceBaseTest() {
        TestService::s_service = &service;
        TestService::s_checkPoint = 1;
        service.m_statusHandle = reinterpret_cast<SERVICE_STATUS_HANDLE>(std::uintptr_t{0x5151});
        service.operation = [this](std::string_view name) { events.emplace_back(name); };
    }

    /// Sends a control as the system does.
    static DWORD Send(DWORD control, DWORD eventType = 0) {
        return TestService::ServiceCtrlHandler(control, eventType, nullptr, nullptr);
    }

    void BringTo(DWORD state) {
        service.SetServiceStatus(state);
        events.clear();
        TestService::s_checkPoint = 1;
    }

    TestService service;
    /// Operations run and states reported, in one row.
    std::vector<std::string> events;
    ScopedImport<&::SetServiceStatus> setStatus{
        [this](SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status) -> BOOL {
            EXPECT_EQ(handle, service.m_statusHandle);
            EXPECT_EQ(status->dwServiceType, DWORD{SERVICE_WIN32_OWN_PROCESS});
            EXPECT_EQ(status->dwControlsAccepted, kAcceptedReported);
            EXPECT_EQ(status->dwServiceSpecificExitCode, 0U);
            EXPECT_EQ(status->dwWaitHint, 0U);
            events.push_back(Report(status->dwCurrentState, status->dwCheckPoint, status->dwWin32ExitCode));
            return TRUE;
        }};
};

TEST(ServiceBaseConstruction, ServiceIsStartPendingAndHasNoHandle) {
    const TestService service;
    EXPECT_STREQ(service.m_serviceName, kServiceName);
    EXPECT_EQ(service.m_status.dwServiceType, DWORD{SERVICE_WIN32_OWN_PROCESS});
    EXPECT_EQ(service.m_status.dwCurrentState, DWORD{SERVICE_START_PENDING});
    EXPECT_EQ(service.m_status.dwControlsAccepted, kAcceptedAtFirst);
    EXPECT_EQ(service.m_status.dwWin32ExitCode, DWORD{NO_ERROR});
    EXPECT_EQ(service.m_status.dwCheckPoint, 0U);
    EXPECT_EQ(service.m_statusHandle, nullptr);
    EXPECT_EQ(firstCheckPoint, 1U) << "of the process";
}

TEST(ServiceBaseConstruction, OperationsStandInTheirOrderBehindTheDestructor) {
#if defined(_MSC_VER)
    constexpr std::size_t kDestructorSlots = 1;
#else
    constexpr std::size_t kDestructorSlots = 2;  // one that frees the object and one that does not
#endif
    TestService service;
    std::vector<std::string> called;
    service.operation = [&](std::string_view name) { called.emplace_back(name); };
    CServiceBase* const base = &service;
    using Operation = void (*)(CServiceBase*, DWORD, wchar_t**);
    const auto* const table = *reinterpret_cast<const Operation* const*>(base);
    for (std::size_t slot = 0; slot < 5; ++slot) {
        table[kDestructorSlots + slot](base, 0, nullptr);
    }
    EXPECT_THAT(called, ElementsAre("OnStart", "OnStop", "OnPause", "OnContinue", "OnShutdown"));
}

TEST_F(ServiceBaseTest, StartHandsItsArgumentsOnAndReportsPendingThenRunning) {
    wchar_t name[] = L"TestService";
    wchar_t* arguments[] = {name};
    service.Start(1, arguments);
    EXPECT_EQ(service.argumentCount, 1U);
    EXPECT_EQ(service.arguments, arguments);
    EXPECT_THAT(events, ElementsAre(kStarting, "OnStart", kRunning));
}

TEST_F(ServiceBaseTest, OperationsRunBetweenTheirReportsAndCheckPointsAreNeverBegunAnew) {
    using Control = std::pair<DWORD, DWORD>;  ///< and event type
    constexpr Control kStop{SERVICE_CONTROL_STOP, 0};
    constexpr Control kSuspend{SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND};
    constexpr Control kStandby{SERVICE_CONTROL_POWEREVENT, PBT_APMSTANDBY};
    constexpr Control kResume{SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC};
    const std::vector<std::string> pausing{Report(SERVICE_PAUSE_PENDING, 1), "OnPause",
                                           Report(SERVICE_PAUSED, 2)};
    const std::vector<std::string> continuing{Report(SERVICE_CONTINUE_PENDING, 1), "OnContinue", kRunning};
    struct Case {
        DWORD before;
        std::vector<Control> sent;
        std::vector<std::string> events;
    };
    for (const Case& controls :
         {Case{SERVICE_RUNNING, {kStop}, {Report(SERVICE_STOP_PENDING, 1), "OnStop", kStopped}},
          Case{SERVICE_RUNNING, {{SERVICE_CONTROL_PAUSE, 0}}, pausing},
          Case{SERVICE_RUNNING, {kStandby}, pausing},
          Case{SERVICE_PAUSED, {{SERVICE_CONTROL_CONTINUE, 0}}, continuing},
          Case{SERVICE_RUNNING, {kResume}, continuing},  // without a suspend
          Case{SERVICE_RUNNING, {{SERVICE_CONTROL_PRESHUTDOWN, 0}}, {"OnShutdown", kStopped}},
          Case{
              SERVICE_RUNNING,
              {kSuspend, kResume, kSuspend, kStop},
              {Report(SERVICE_PAUSE_PENDING, 1), "OnPause", Report(SERVICE_PAUSED, 2),
               Report(SERVICE_CONTINUE_PENDING, 3), "OnContinue", kRunning, Report(SERVICE_PAUSE_PENDING, 4),
               "OnPause", Report(SERVICE_PAUSED, 5), Report(SERVICE_STOP_PENDING, 6), "OnStop", kStopped}}}) {
        BringTo(controls.before);
        for (const auto& [control, eventType] : controls.sent) {
            EXPECT_EQ(Send(control, eventType), DWORD{NO_ERROR});
        }
        EXPECT_EQ(events, controls.events);
    }
}

/// The plain shutdown among them.
TEST_F(ServiceBaseTest, EveryOtherControlAndPowerEventChangesNothing) {
    constexpr DWORD kHandled[] = {SERVICE_CONTROL_STOP, SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_CONTINUE,
                                  SERVICE_CONTROL_POWEREVENT, SERVICE_CONTROL_PRESHUTDOWN};
    constexpr DWORD kHandledEvents[] = {PBT_APMSUSPEND, PBT_APMSTANDBY, PBT_APMRESUMEAUTOMATIC};
    BringTo(SERVICE_RUNNING);
    for (DWORD control = 0; control <= 0xFF; ++control) {
        if (std::ranges::find(kHandled, control) == std::end(kHandled)) {
            EXPECT_EQ(Send(control, PBT_APMSUSPEND), DWORD{NO_ERROR});
        }
    }
    for (DWORD type = 0; type <= 0x8013; ++type) {
        if (std::ranges::find(kHandledEvents, type) == std::end(kHandledEvents)) {
            EXPECT_EQ(Send(SERVICE_CONTROL_POWEREVENT, type), DWORD{NO_ERROR});
        }
    }
    EXPECT_THAT(events, IsEmpty());
}

/// A service that defines no operation: its start, stop, pause and shutdown do nothing.
struct BareService : CServiceBase {
    BareService() : CServiceBase(kServiceName) {}

    using CServiceBase::m_statusHandle;
    using CServiceBase::Pause;
    using CServiceBase::Shutdown;
    using CServiceBase::Start;
    using CServiceBase::Stop;
};

TEST_F(ServiceBaseTest, ServiceWithoutOperationsMakesEveryReportAndNoEntry) {
    BareService plain;
    plain.m_statusHandle = service.m_statusHandle;
    plain.Start(0, nullptr);
    plain.Pause();
    plain.Stop();
    plain.Shutdown();
    EXPECT_THAT(events,
                ElementsAre(kStarting, kRunning, Report(SERVICE_PAUSE_PENDING, 2), Report(SERVICE_PAUSED, 3),
                            Report(SERVICE_STOP_PENDING, 4), kStopped, kStopped));
    EXPECT_THAT(SimulatedNotebook::EventLog(), IsEmpty());
}

TEST_F(ServiceBaseTest, ReportThatIsRefusedIsIgnored) {
    const ScopedResult<&::SetServiceStatus> refused{FALSE, ERROR_INVALID_HANDLE};
    service.Start(0, nullptr);
    EXPECT_EQ(refused.Calls(), 2);
    EXPECT_EQ(service.m_status.dwCurrentState, DWORD{SERVICE_RUNNING});
    EXPECT_THAT(SimulatedNotebook::EventLog(), IsEmpty());
}

TEST_F(ServiceBaseTest, ReportCarriesItsExitCodeAndTheNextOneIsCleanAgain) {
    service.SetServiceStatus(SERVICE_STOPPED, ERROR_ACCESS_DENIED);
    service.SetServiceStatus(SERVICE_RUNNING);
    EXPECT_THAT(events, ElementsAre(Report(SERVICE_STOPPED, 0, ERROR_ACCESS_DENIED), kRunning));
}

/// How one operation of a paused service fails.
struct OperationFailure {
    const char* operation;
    void (TestService::*run)();
    std::string before;  ///< the report before the operation, and the one after it; empty: none
    std::string after;
    const char* errorMessage;  ///< for a thrown ERROR_ACCESS_DENIED
    const char* otherMessage;
    std::string afterError;  ///< where the report after that differs
};

void PrintTo(const OperationFailure& failure, std::ostream* out) {
    *out << failure.operation;
}

class ServiceBaseFailureTest : public ServiceBaseTest, public testing::WithParamInterface<OperationFailure> {
  protected:
    /// The entry is written between the two reports.
    ServiceBaseFailureTest() {
        notebook.AtEach(Call::ReportEvent, [this] {
            events.emplace_back("entry");
            return std::nullopt;
        });
    }

    template <class Thrown>
    void RunThrowing(Thrown thrown) {
        BringTo(SERVICE_PAUSED);
        service.operation = [thrown](std::string_view name) {
            EXPECT_EQ(name, GetParam().operation);
            throw thrown;
        };
        (service.*GetParam().run)();
    }

    void ExpectEvents(const std::string& entry, const std::string& after) {
        std::vector<std::string> expected{GetParam().before, entry, after};
        std::erase(expected, "");
        EXPECT_EQ(events, expected);
    }

    const std::string afterError = GetParam().afterError.empty() ? GetParam().after : GetParam().afterError;
};

TEST_P(ServiceBaseFailureTest, Win32ErrorIsWrittenAndReported) {
    RunThrowing(DWORD{ERROR_ACCESS_DENIED});
    ExpectEvents("entry", afterError);
    EXPECT_THAT(SimulatedNotebook::EventLog(), ElementsAre(Entry(GetParam().errorMessage)));
}

/// A number of another type is no Win32 error.
TEST_P(ServiceBaseFailureTest, AnyOtherExceptionIsWrittenAndReportedWithoutANumber) {
    RunThrowing(std::runtime_error("broken"));
    ExpectEvents("entry", GetParam().after);
    RunThrowing(std::uint32_t{ERROR_ACCESS_DENIED});
    ExpectEvents("entry", GetParam().after);
    EXPECT_THAT(SimulatedNotebook::EventLog(),
                ElementsAre(Entry(GetParam().otherMessage), Entry(GetParam().otherMessage)));
}

TEST_P(ServiceBaseFailureTest, FailureIsReportedWithoutAnEventLogToo) {
    notebook.FailEach(Call::RegisterEventSource, ERROR_ACCESS_DENIED);
    RunThrowing(DWORD{ERROR_ACCESS_DENIED});
    ExpectEvents("", afterError);
    EXPECT_THAT(SimulatedNotebook::EventLog(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Operations, ServiceBaseFailureTest,
    testing::Values(
        OperationFailure{"OnStart", &TestService::StartAlone, kStarting, kStopped,
                         "Service Start failed w/err 0x00000005", "Service failed to start.",
                         Report(SERVICE_STOPPED, 0, ERROR_ACCESS_DENIED)},
        OperationFailure{"OnStop", &TestService::Stop, Report(SERVICE_STOP_PENDING, 1),
                         Report(SERVICE_PAUSED, 2), "Service Stop failed w/err 0x00000005",
                         "Service failed to stop.", ""},
        OperationFailure{"OnPause", &TestService::Pause, Report(SERVICE_PAUSE_PENDING, 1), kRunning,
                         "Service Pause failed w/err 0x00000005", "Service failed to pause.", ""},
        OperationFailure{"OnContinue", &TestService::Continue, Report(SERVICE_CONTINUE_PENDING, 1),
                         Report(SERVICE_PAUSED, 2), "Service Continue failed w/err 0x00000005",
                         "Service failed to resume.", ""},
        OperationFailure{"OnShutdown", &TestService::Shutdown, "", "",
                         "Service Shutdown failed w/err 0x00000005", "Service failed to shut down.", ""}),
    [](const auto& instance) { return std::string(instance.param.operation); });

TEST_F(ServiceBaseTest, FailedStopOfAStoppedServiceReportsNoExitCode) {
    BringTo(SERVICE_STOPPED);
    service.operation = [](std::string_view) { throw DWORD{ERROR_ACCESS_DENIED}; };
    EXPECT_EQ(Send(SERVICE_CONTROL_STOP), DWORD{NO_ERROR});
    EXPECT_THAT(events, ElementsAre(Report(SERVICE_STOP_PENDING, 1), kStopped));
}

TEST_F(ServiceBaseTest, EntryHasTheServicesNameAndTheMessageAndNothingElse) {
    const ScopedWatch<&::ReportEventW> report;
    service.WriteEventLogEntry(L"text", EVENTLOG_INFORMATION_TYPE);
    // Neither a user nor data.
    EXPECT_THAT(report.Arguments(), ElementsAre(FieldsAre(_, _, _, _, nullptr, _, 0U, _, nullptr)));
    EXPECT_THAT(SimulatedNotebook::EventLog(), ElementsAre(Entry("text", EVENTLOG_INFORMATION_TYPE)));
}

TEST_F(ServiceBaseTest, EntryIsDroppedWithoutASourceAndTheSourceClosedBehindOneThatIsRefused) {
    notebook.Fail(Call::RegisterEventSource, 1, ERROR_ACCESS_DENIED);
    notebook.FailEach(Call::ReportEvent, ERROR_LOG_FILE_FULL);
    service.WriteEventLogEntry(L"text", EVENTLOG_INFORMATION_TYPE);
    EXPECT_THAT(notebook.Calls(), ElementsAre("RegisterEventSourceW"));
    notebook.ForgetCalls();
    service.WriteEventLogEntry(L"text", EVENTLOG_INFORMATION_TYPE);
    EXPECT_THAT(notebook.Calls(),
                ElementsAre("RegisterEventSourceW", "ReportEventW", "DeregisterEventSource"));
}

TEST_F(ServiceBaseTest, LongErrorEntryIsCut) {
    service.WriteErrorLogEntry(std::wstring(300, L'x').c_str(), ERROR_ACCESS_DENIED);
    EXPECT_THAT(SimulatedNotebook::EventLog(), ElementsAre(Entry(std::string(259, 'x'))));
}

TEST_F(ServiceBaseTest, HandlerIsRegisteredUnderTheServicesNameBeforeTheStart) {
    const auto handle = reinterpret_cast<SERVICE_STATUS_HANDLE>(std::uintptr_t{0x77});
    const ScopedImport<&::RegisterServiceCtrlHandlerExW> registration{
        [&](LPCWSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context) {
            EXPECT_STREQ(name, kServiceName);
            EXPECT_EQ(handler, &TestService::ServiceCtrlHandler);
            EXPECT_EQ(context, nullptr);
            events.emplace_back("registered");
            return handle;
        }};
    wchar_t* arguments[] = {nullptr};
    TestService::ServiceMain(1, arguments);
    EXPECT_EQ(service.m_statusHandle, handle);
    EXPECT_EQ(service.arguments, arguments);
    EXPECT_THAT(events, ElementsAre("registered", kStarting, "OnStart", kRunning));
}

TEST_F(ServiceBaseTest, FailedRegistrationIsThrownAndNothingStarts) {
    const ScopedResult<&::RegisterServiceCtrlHandlerExW> fails{nullptr, ERROR_SERVICE_NOT_IN_EXE};
    DWORD thrown = NO_ERROR;
    try {
        TestService::ServiceMain(0, nullptr);
    } catch (DWORD error) {
        thrown = error;
    }
    EXPECT_EQ(thrown, DWORD{ERROR_SERVICE_NOT_IN_EXE});
    EXPECT_THAT(events, IsEmpty());
}

/// As the system calls it: on a thread of its own with nothing around it.
DWORD WINAPI ServiceMainThread(void*) {
    TestService::ServiceMain(0, nullptr);
    return 0;
}

[[noreturn]] void RunServiceMainWithoutRegistration() {
    const ScopedResult<&::RegisterServiceCtrlHandlerExW> fails{nullptr, ERROR_SERVICE_NOT_IN_EXE};
    TestService service;
    TestService::s_service = &service;
    WaitForSingleObject(CreateThread(nullptr, 0, &ServiceMainThread, nullptr, 0, nullptr), INFINITE);
    ExitProcess(0);
}

TEST(ServiceBaseDeathTest, FailedRegistrationEndsTheProcess) {
    constexpr int kAbort = 3;
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(RunServiceMainWithoutRegistration(), testing::ExitedWithCode(kAbort), "");
}

TEST_F(ServiceBaseTest, RunHandsTheDispatcherOneServiceAndReturnsWhenItHasStopped) {
    TestService::s_service = nullptr;
    const ScopedImport<&::StartServiceCtrlDispatcherW> dispatcher{
        [&](const SERVICE_TABLE_ENTRYW* table) -> BOOL {
            EXPECT_EQ(TestService::s_service, &service);
            EXPECT_STREQ(table[0].lpServiceName, kServiceName);
            EXPECT_EQ(table[0].lpServiceProc, &TestService::ServiceMain);
            EXPECT_EQ(table[1].lpServiceName, nullptr);
            EXPECT_EQ(table[1].lpServiceProc, nullptr);
            service.Start(0, nullptr);
            Send(SERVICE_CONTROL_STOP);
            return TRUE;
        }};
    EXPECT_TRUE(CServiceBase::Run(service));
    EXPECT_THAT(events, ElementsAre(kStarting, "OnStart", kRunning, Report(SERVICE_STOP_PENDING, 2), "OnStop",
                                    kStopped));
}

TEST_F(ServiceBaseTest, RunFailsWithTheDispatchersErrorStanding) {
    const ScopedResult<&::StartServiceCtrlDispatcherW> fails{FALSE, ERROR_FAILED_SERVICE_CONTROLLER_CONNECT};
    EXPECT_FALSE(CServiceBase::Run(service));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FAILED_SERVICE_CONTROLLER_CONNECT});
}

}  // namespace
}  // namespace ServiceTests
