#include "service/service_base.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/service/event_log_recorder.h"
#include "tests/support/ledger.h"
#include "tests/support/scoped_import.h"

namespace {

using Rig::Ledger;
using Rig::ScopedImport;
using Rig::ScopedResult;
using ServiceTests::EventLogEntry;
using ServiceTests::EventLogRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kName[] = L"TestService";
constexpr DWORD kAcceptedAtFirst = 0x101;   // stop, pre-shutdown
constexpr DWORD kAcceptedReported = 0x141;  // and power events

/// A service whose operations do what a test wants, and all of whose inside is open.
class TestService : public CServiceBase {
  public:
    TestService() : CServiceBase(kName) {}

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

/// A report with the fields that never differ.
SERVICE_STATUS Report(DWORD state, DWORD checkPoint, DWORD exitCode = NO_ERROR) {
    return {SERVICE_WIN32_OWN_PROCESS, state, kAcceptedReported, exitCode, 0, checkPoint, 0};
}

std::vector<DWORD> Fields(const SERVICE_STATUS& status) {
    return {status.dwServiceType,
            status.dwCurrentState,
            status.dwControlsAccepted,
            status.dwWin32ExitCode,
            status.dwServiceSpecificExitCode,
            status.dwCheckPoint,
            status.dwWaitHint};
}

MATCHER_P(IsReport, expected, testing::PrintToString(Fields(expected))) {
    *result_listener << testing::PrintToString(Fields(arg));
    return Fields(arg) == Fields(expected);
}

class ServiceBaseTest : public testing::Test {
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
        reports.clear();
        events.clear();
        TestService::s_checkPoint = 1;
    }

    TestService service;
    Ledger ledger;
    EventLogRecorder eventLog{ledger};
    std::vector<SERVICE_STATUS> reports;
    /// Operations run and states reported ("= 4"), in one row.
    std::vector<std::string> events;
    ScopedImport<&::SetServiceStatus> setStatus{
        [this](SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status) -> BOOL {
            EXPECT_EQ(handle, service.m_statusHandle);
            reports.push_back(*status);
            events.push_back("= " + std::to_string(status->dwCurrentState));
            return TRUE;
        }};
};

TEST(ServiceBaseConstruction, ServiceIsStartPendingAndHasNoHandle) {
    const TestService service;
    EXPECT_STREQ(service.m_serviceName, kName);
    EXPECT_EQ(Fields(service.m_status), (std::vector<DWORD>{SERVICE_WIN32_OWN_PROCESS, SERVICE_START_PENDING,
                                                            kAcceptedAtFirst, 0, 0, 0, 0}));
    EXPECT_EQ(service.m_statusHandle, nullptr);
}

TEST(ServiceBaseConstruction, CheckPointsOfTheProcessBeginWithOne) {
    EXPECT_EQ(firstCheckPoint, 1U);
}

TEST(ServiceBaseConstruction, NameStatusAndHandleFollowTheTableOfOperations) {
    const TestService service;
    const auto offsetOf = [&](const void* field) {
        return static_cast<const std::byte*>(field) -
               reinterpret_cast<const std::byte*>(static_cast<const CServiceBase*>(&service));
    };
    EXPECT_EQ(offsetOf(&service.m_serviceName), 8);
    EXPECT_EQ(offsetOf(&service.m_status), 16);
    EXPECT_EQ(offsetOf(&service.m_statusHandle), 48);
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

TEST_F(ServiceBaseTest, StartReportsPendingWithTheFirstCheckPointThenRunning) {
    service.Start(0, nullptr);
    EXPECT_THAT(reports, ElementsAre(IsReport(Report(SERVICE_START_PENDING, 1)),
                                     IsReport(Report(SERVICE_RUNNING, 0))));
    EXPECT_THAT(events, ElementsAre("= 2", "OnStart", "= 4"));
}

TEST_F(ServiceBaseTest, StartHandsItsArgumentsOn) {
    wchar_t name[] = L"TestService";
    wchar_t* arguments[] = {name};
    service.Start(1, arguments);
    EXPECT_EQ(service.argumentCount, 1U);
    EXPECT_EQ(service.arguments, arguments);
}

TEST_F(ServiceBaseTest, StopReportsPendingThenStopped) {
    BringTo(SERVICE_RUNNING);
    EXPECT_EQ(Send(SERVICE_CONTROL_STOP), DWORD{NO_ERROR});
    EXPECT_THAT(reports,
                ElementsAre(IsReport(Report(SERVICE_STOP_PENDING, 1)), IsReport(Report(SERVICE_STOPPED, 0))));
    EXPECT_THAT(events, ElementsAre("= 3", "OnStop", "= 1"));
}

TEST_F(ServiceBaseTest, PauseReportsPendingThenPausedWithTwoCheckPoints) {
    BringTo(SERVICE_RUNNING);
    EXPECT_EQ(Send(SERVICE_CONTROL_PAUSE), DWORD{NO_ERROR});
    EXPECT_THAT(reports,
                ElementsAre(IsReport(Report(SERVICE_PAUSE_PENDING, 1)), IsReport(Report(SERVICE_PAUSED, 2))));
    EXPECT_THAT(events, ElementsAre("= 6", "OnPause", "= 7"));
}

TEST_F(ServiceBaseTest, ContinueReportsPendingThenRunning) {
    BringTo(SERVICE_PAUSED);
    EXPECT_EQ(Send(SERVICE_CONTROL_CONTINUE), DWORD{NO_ERROR});
    EXPECT_THAT(reports, ElementsAre(IsReport(Report(SERVICE_CONTINUE_PENDING, 1)),
                                     IsReport(Report(SERVICE_RUNNING, 0))));
    EXPECT_THAT(events, ElementsAre("= 5", "OnContinue", "= 4"));
}

TEST_F(ServiceBaseTest, PreshutdownGoesStraightToStopped) {
    BringTo(SERVICE_RUNNING);
    EXPECT_EQ(Send(SERVICE_CONTROL_PRESHUTDOWN), DWORD{NO_ERROR});
    EXPECT_THAT(reports, ElementsAre(IsReport(Report(SERVICE_STOPPED, 0))));
    EXPECT_THAT(events, ElementsAre("OnShutdown", "= 1"));
}

TEST_F(ServiceBaseTest, SuspendAndAutomaticResumeTakeThreeConsecutiveCheckPoints) {
    BringTo(SERVICE_RUNNING);
    Send(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND);
    Send(SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC);
    EXPECT_THAT(
        reports,
        ElementsAre(IsReport(Report(SERVICE_PAUSE_PENDING, 1)), IsReport(Report(SERVICE_PAUSED, 2)),
                    IsReport(Report(SERVICE_CONTINUE_PENDING, 3)), IsReport(Report(SERVICE_RUNNING, 0))));
    EXPECT_THAT(events, ElementsAre("= 6", "OnPause", "= 7", "= 5", "OnContinue", "= 4"));
}

TEST_F(ServiceBaseTest, CheckPointsKeepRisingOverPausesAndContinues) {
    BringTo(SERVICE_RUNNING);
    Send(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND);
    Send(SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC);
    reports.clear();
    Send(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND);
    Send(SERVICE_CONTROL_STOP);
    EXPECT_THAT(reports,
                ElementsAre(IsReport(Report(SERVICE_PAUSE_PENDING, 4)), IsReport(Report(SERVICE_PAUSED, 5)),
                            IsReport(Report(SERVICE_STOP_PENDING, 6)), IsReport(Report(SERVICE_STOPPED, 0))));
}

TEST_F(ServiceBaseTest, StandbyPauses) {
    BringTo(SERVICE_RUNNING);
    EXPECT_EQ(Send(SERVICE_CONTROL_POWEREVENT, PBT_APMSTANDBY), DWORD{NO_ERROR});
    EXPECT_THAT(events, ElementsAre("= 6", "OnPause", "= 7"));
}

TEST_F(ServiceBaseTest, ResumeWithoutSuspendContinues) {
    BringTo(SERVICE_RUNNING);
    Send(SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC);
    EXPECT_THAT(events, ElementsAre("= 5", "OnContinue", "= 4"));
}

TEST_F(ServiceBaseTest, EveryOtherPowerEventChangesNothing) {
    BringTo(SERVICE_RUNNING);
    for (DWORD type = 0; type <= 0x8013; ++type) {
        if (type != PBT_APMSUSPEND && type != PBT_APMSTANDBY && type != PBT_APMRESUMEAUTOMATIC) {
            EXPECT_EQ(Send(SERVICE_CONTROL_POWEREVENT, type), DWORD{NO_ERROR});
        }
    }
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ServiceBaseTest, EveryOtherControlChangesNothing) {
    BringTo(SERVICE_RUNNING);
    for (DWORD control = 0; control <= 0xFF; ++control) {
        const bool isHandled = control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_PAUSE ||
                               control == SERVICE_CONTROL_CONTINUE || control == SERVICE_CONTROL_POWEREVENT ||
                               control == SERVICE_CONTROL_PRESHUTDOWN;
        if (!isHandled) {
            EXPECT_EQ(Send(control, PBT_APMSUSPEND), DWORD{NO_ERROR});
        }
    }
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ServiceBaseTest, SystemShutdownIsIgnored) {
    BringTo(SERVICE_RUNNING);
    EXPECT_EQ(Send(SERVICE_CONTROL_SHUTDOWN), DWORD{NO_ERROR});
    EXPECT_THAT(events, IsEmpty());
}

/// A service that defines no operation: its start, stop, pause and shutdown do nothing.
struct PlainService : CServiceBase {
    PlainService() : CServiceBase(kName) {}

    using CServiceBase::m_statusHandle;
    using CServiceBase::Pause;
    using CServiceBase::Shutdown;
    using CServiceBase::Start;
    using CServiceBase::Stop;
};

TEST_F(ServiceBaseTest, ServiceWithoutOperationsMakesEveryReportAndNoEntry) {
    PlainService plain;
    plain.m_statusHandle = service.m_statusHandle;
    plain.Start(0, nullptr);
    EXPECT_THAT(reports, ElementsAre(IsReport(Report(SERVICE_START_PENDING, 1)),
                                     IsReport(Report(SERVICE_RUNNING, 0))));
    reports.clear();
    plain.Pause();
    EXPECT_THAT(reports,
                ElementsAre(IsReport(Report(SERVICE_PAUSE_PENDING, 2)), IsReport(Report(SERVICE_PAUSED, 3))));
    reports.clear();
    plain.Stop();
    EXPECT_THAT(reports,
                ElementsAre(IsReport(Report(SERVICE_STOP_PENDING, 4)), IsReport(Report(SERVICE_STOPPED, 0))));
    reports.clear();
    plain.Shutdown();
    EXPECT_THAT(reports, ElementsAre(IsReport(Report(SERVICE_STOPPED, 0))));
    EXPECT_THAT(eventLog.Entries(), IsEmpty());
}

TEST_F(ServiceBaseTest, ReportThatIsRefusedIsIgnored) {
    const ScopedResult<&::SetServiceStatus> refused{FALSE, ERROR_INVALID_HANDLE};
    service.Start(0, nullptr);
    EXPECT_EQ(refused.Calls(), 2);
    EXPECT_EQ(service.m_status.dwCurrentState, DWORD{SERVICE_RUNNING});
    EXPECT_THAT(eventLog.Entries(), IsEmpty());
}

TEST_F(ServiceBaseTest, ReportCarriesItsExitCodeAndTheNextOneIsCleanAgain) {
    service.SetServiceStatus(SERVICE_STOPPED, ERROR_ACCESS_DENIED);
    service.SetServiceStatus(SERVICE_RUNNING);
    EXPECT_THAT(reports, ElementsAre(IsReport(Report(SERVICE_STOPPED, 0, ERROR_ACCESS_DENIED)),
                                     IsReport(Report(SERVICE_RUNNING, 0))));
}

/// How one operation fails.
struct Failure {
    const char* operation;
    void (TestService::*run)();
    /// Reports, in the state PAUSED before; the exit code is that of a thrown Win32 error.
    std::vector<SERVICE_STATUS> reports;
    const wchar_t* errorMessage;  ///< for a thrown ERROR_ACCESS_DENIED
    const wchar_t* otherMessage;
};

void PrintTo(const Failure& failure, std::ostream* out) {
    *out << failure.operation;
}

class ServiceBaseFailureTest : public ServiceBaseTest, public testing::WithParamInterface<Failure> {
  protected:
    template <class Thrown>
    void RunThrowing(Thrown thrown) {
        BringTo(SERVICE_PAUSED);
        service.operation = [thrown](std::string_view name) {
            EXPECT_EQ(name, GetParam().operation);
            throw thrown;
        };
        (service.*GetParam().run)();
    }

    void ExpectReports(bool exitCodeTold) {
        std::vector<SERVICE_STATUS> expected = GetParam().reports;
        ASSERT_EQ(reports.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            if (!exitCodeTold) {
                expected[i].dwWin32ExitCode = NO_ERROR;
            }
            EXPECT_THAT(reports[i], IsReport(expected[i]));
        }
    }
};

TEST_P(ServiceBaseFailureTest, Win32ErrorIsWrittenAndReported) {
    RunThrowing(DWORD{ERROR_ACCESS_DENIED});
    ExpectReports(true);
    EXPECT_THAT(eventLog.Entries(),
                ElementsAre(EventLogEntry{kName, EVENTLOG_ERROR_TYPE, {kName, GetParam().errorMessage}}));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_P(ServiceBaseFailureTest, StandardExceptionIsWrittenAndReported) {
    RunThrowing(std::runtime_error("broken"));
    ExpectReports(false);
    EXPECT_THAT(eventLog.Entries(),
                ElementsAre(EventLogEntry{kName, EVENTLOG_ERROR_TYPE, {kName, GetParam().otherMessage}}));
}

TEST_P(ServiceBaseFailureTest, NumberOfAnotherTypeIsNoWin32Error) {
    RunThrowing(std::uint32_t{ERROR_ACCESS_DENIED});
    ExpectReports(false);
    EXPECT_THAT(eventLog.Entries(),
                ElementsAre(EventLogEntry{kName, EVENTLOG_ERROR_TYPE, {kName, GetParam().otherMessage}}));
}

TEST_P(ServiceBaseFailureTest, EntryIsWrittenBeforeTheStateThatFollowsIsReported) {
    const ScopedImport<&::ReportEventW> entry{[&](auto... arguments) {
        events.emplace_back("entry");
        return entry.Original(arguments...);
    }};
    // A failed shutdown reports no state at all.
    std::vector<std::string> expected{"entry"};
    if (const std::vector<SERVICE_STATUS>& states = GetParam().reports; !states.empty()) {
        expected = {"= " + std::to_string(states[0].dwCurrentState), "entry",
                    "= " + std::to_string(states[1].dwCurrentState)};
    }
    RunThrowing(DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(events, expected);
    RunThrowing(std::runtime_error("broken"));
    EXPECT_EQ(events, expected);
}

TEST_P(ServiceBaseFailureTest, FailureIsReportedWithoutAnEventLogToo) {
    const ScopedResult<&::RegisterEventSourceW> none{nullptr, ERROR_ACCESS_DENIED};
    RunThrowing(DWORD{ERROR_ACCESS_DENIED});
    ExpectReports(true);
    EXPECT_THAT(eventLog.Entries(), IsEmpty());
    EXPECT_TRUE(ledger.Balanced());
}

INSTANTIATE_TEST_SUITE_P(
    Operations, ServiceBaseFailureTest,
    testing::Values(Failure{"OnStart",
                            &TestService::StartAlone,
                            {Report(SERVICE_START_PENDING, 1),
                             Report(SERVICE_STOPPED, 0, ERROR_ACCESS_DENIED)},
                            L"Service Start failed w/err 0x00000005",
                            L"Service failed to start."},
                    Failure{"OnStop",
                            &TestService::Stop,
                            {Report(SERVICE_STOP_PENDING, 1), Report(SERVICE_PAUSED, 2)},
                            L"Service Stop failed w/err 0x00000005",
                            L"Service failed to stop."},
                    Failure{"OnPause",
                            &TestService::Pause,
                            {Report(SERVICE_PAUSE_PENDING, 1), Report(SERVICE_RUNNING, 0)},
                            L"Service Pause failed w/err 0x00000005",
                            L"Service failed to pause."},
                    Failure{"OnContinue",
                            &TestService::Continue,
                            {Report(SERVICE_CONTINUE_PENDING, 1), Report(SERVICE_PAUSED, 2)},
                            L"Service Continue failed w/err 0x00000005",
                            L"Service failed to resume."},
                    Failure{"OnShutdown",
                            &TestService::Shutdown,
                            {},
                            L"Service Shutdown failed w/err 0x00000005",
                            L"Service failed to shut down."}),
    [](const auto& instance) { return std::string(instance.param.operation); });

TEST_F(ServiceBaseTest, FailedStopOfAStoppedServiceReportsNoExitCode) {
    BringTo(SERVICE_STOPPED);
    service.operation = [](std::string_view) { throw DWORD{ERROR_ACCESS_DENIED}; };
    EXPECT_EQ(Send(SERVICE_CONTROL_STOP), DWORD{NO_ERROR});
    EXPECT_THAT(reports,
                ElementsAre(IsReport(Report(SERVICE_STOP_PENDING, 1)), IsReport(Report(SERVICE_STOPPED, 0))));
}

TEST_F(ServiceBaseTest, EntryHasTheServicesNameAndTheMessage) {
    service.WriteEventLogEntry(L"text", EVENTLOG_INFORMATION_TYPE);
    EXPECT_THAT(eventLog.Entries(),
                ElementsAre(EventLogEntry{kName, EVENTLOG_INFORMATION_TYPE, {kName, L"text"}}));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceBaseTest, EntryIsDroppedWhenTheSourceCannotBeOpened) {
    const ScopedResult<&::RegisterEventSourceW> none{nullptr, ERROR_ACCESS_DENIED};
    const ScopedResult<&::ReportEventW> report{TRUE};
    service.WriteEventLogEntry(L"text", EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(none.Calls(), 1);
    EXPECT_EQ(report.Calls(), 0);
}

TEST_F(ServiceBaseTest, SourceIsClosedAfterAnEntryThatIsRefused) {
    const ScopedResult<&::ReportEventW> refused{FALSE, ERROR_LOG_FILE_FULL};
    service.WriteEventLogEntry(L"text", EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(refused.Calls(), 1);
    EXPECT_EQ(ledger.Given(Rig::Kind::kEventSource), 1);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(ServiceBaseTest, LongErrorEntryIsCut) {
    service.WriteErrorLogEntry(std::wstring(300, L'x').c_str(), ERROR_ACCESS_DENIED);
    ASSERT_EQ(eventLog.Entries().size(), 1U);
    EXPECT_EQ(eventLog.Entries()[0].strings[1], std::wstring(259, L'x'));
}

TEST_F(ServiceBaseTest, HandlerIsRegisteredUnderTheServicesNameBeforeTheStart) {
    const auto handle = reinterpret_cast<SERVICE_STATUS_HANDLE>(std::uintptr_t{0x77});
    const ScopedImport<&::RegisterServiceCtrlHandlerExW> registration{
        [&](LPCWSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context) {
            EXPECT_STREQ(name, kName);
            EXPECT_EQ(handler, &TestService::ServiceCtrlHandler);
            EXPECT_EQ(context, nullptr);
            events.emplace_back("registered");
            return handle;
        }};
    wchar_t* arguments[] = {nullptr};
    TestService::ServiceMain(1, arguments);
    EXPECT_EQ(service.m_statusHandle, handle);
    EXPECT_EQ(service.arguments, arguments);
    EXPECT_THAT(events, ElementsAre("registered", "= 2", "OnStart", "= 4"));
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
            EXPECT_STREQ(table[0].lpServiceName, kName);
            EXPECT_EQ(table[0].lpServiceProc, &TestService::ServiceMain);
            EXPECT_EQ(table[1].lpServiceName, nullptr);
            EXPECT_EQ(table[1].lpServiceProc, nullptr);
            service.Start(0, nullptr);
            Send(SERVICE_CONTROL_STOP);
            return TRUE;
        }};
    EXPECT_TRUE(CServiceBase::Run(service));
    EXPECT_THAT(events, ElementsAre("= 2", "OnStart", "= 4", "= 3", "OnStop", "= 1"));
}

TEST_F(ServiceBaseTest, RunFailsWithTheDispatchersErrorStanding) {
    const ScopedResult<&::StartServiceCtrlDispatcherW> fails{FALSE, ERROR_FAILED_SERVICE_CONTROLLER_CONNECT};
    EXPECT_FALSE(CServiceBase::Run(service));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FAILED_SERVICE_CONTROLLER_CONNECT});
}

}  // namespace
