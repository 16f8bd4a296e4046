#include "service/service_base.h"

#include <array>

#include "logging/format.h"
#include "platform/handles.h"

using Orva::Shared::FormatText;

namespace {

constexpr std::size_t kErrorEntryCharacters = 260;
constexpr WORD kNoCategory = 0;
constexpr DWORD kNoEventIdentifier = 0;

/// In place of a service state: nothing is reported.
constexpr DWORD kNoReport = 0;

}  // namespace

/// What is reported and written around one virtual operation.
struct CServiceBase::Transition {
    DWORD pendingState = 0;                   ///< before the operation, or `kNoReport`
    DWORD doneState = 0;                      ///< after it
    DWORD failedState = 0;                    ///< after it has thrown, or `kNoReport`
    const wchar_t* errorFunction = nullptr;   ///< names the operation in the entry of a thrown Win32 error
    const wchar_t* failureMessage = nullptr;  ///< the entry when anything else was thrown
    /// Whether the report of the failure carries a thrown Win32 error as exit code.
    bool exitCodeTellsError = false;
};

CServiceBase::CServiceBase(const wchar_t* serviceName) noexcept : m_serviceName(serviceName) {
    m_status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    m_status.dwCurrentState = SERVICE_START_PENDING;
    m_status.dwControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PRESHUTDOWN;
}

bool CServiceBase::Run(CServiceBase& service) {
    s_service = &service;
    // The table's type wants a writable name; the dispatcher only reads it.
    const std::array<SERVICE_TABLE_ENTRYW, 2> table{{
        {const_cast<wchar_t*>(service.m_serviceName), &CServiceBase::ServiceMain},  // NOLINT
        {nullptr, nullptr},
    }};
    return StartServiceCtrlDispatcherW(table.data()) != FALSE;
}

template <class Operation>
void CServiceBase::RunTransition(const Transition& transition, const Operation& operation) {
    const auto report = [this](DWORD state, DWORD exitCode = NO_ERROR) {
        if (state != kNoReport) {
            SetServiceStatus(state, exitCode);
        }
    };
    try {
        report(transition.pendingState);
        operation();
        report(transition.doneState);
    } catch (DWORD error) {
        WriteErrorLogEntry(transition.errorFunction, error);
        report(transition.failedState, transition.exitCodeTellsError ? error : NO_ERROR);
    } catch (...) {
        WriteEventLogEntry(transition.failureMessage, EVENTLOG_ERROR_TYPE);
        report(transition.failedState);
    }
}

void CServiceBase::Start(DWORD argumentCount, wchar_t** arguments) {
    RunTransition({SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOPPED, L"Service Start",
                   L"Service failed to start.", true},
                  [&] { OnStart(argumentCount, arguments); });
}

void CServiceBase::Stop() {
    RunTransition({SERVICE_STOP_PENDING, SERVICE_STOPPED, m_status.dwCurrentState, L"Service Stop",
                   L"Service failed to stop."},
                  [&] { OnStop(); });
}

void CServiceBase::Pause() {
    RunTransition({SERVICE_PAUSE_PENDING, SERVICE_PAUSED, SERVICE_RUNNING, L"Service Pause",
                   L"Service failed to pause."},
                  [&] { OnPause(); });
}

void CServiceBase::Continue() {
    RunTransition({SERVICE_CONTINUE_PENDING, SERVICE_RUNNING, SERVICE_PAUSED, L"Service Continue",
                   L"Service failed to resume."},
                  [&] { OnContinue(); });
}

void CServiceBase::Shutdown() {
    // Unlike the others it reports nothing before the operation and nothing when that fails: at
    // pre-shutdown the system goes down whether or not the service has stopped.
    RunTransition(
        {kNoReport, SERVICE_STOPPED, kNoReport, L"Service Shutdown", L"Service failed to shut down."},
        [&] { OnShutdown(); });
}

void CServiceBase::SetServiceStatus(DWORD currentState, DWORD win32ExitCode) {
    m_status.dwControlsAccepted |= SERVICE_ACCEPT_POWEREVENT;
    m_status.dwCurrentState = currentState;
    m_status.dwWin32ExitCode = win32ExitCode;
    m_status.dwWaitHint = 0;
    // Towards a state that is reached no progress is counted.
    const bool isReached = currentState == SERVICE_RUNNING || currentState == SERVICE_STOPPED;
    m_status.dwCheckPoint = isReached ? 0 : s_checkPoint++;
    ::SetServiceStatus(m_statusHandle, &m_status);
}

void CServiceBase::WriteEventLogEntry(const wchar_t* message, WORD type) {
    const Platform::UniqueEventSource source(RegisterEventSourceW(nullptr, m_serviceName));
    if (!source) {
        return;
    }
    std::array<const wchar_t*, 2> strings{m_serviceName, message};
    ReportEventW(source.Get(), type, kNoCategory, kNoEventIdentifier, nullptr,
                 static_cast<WORD>(strings.size()), 0, strings.data(), nullptr);
}

void CServiceBase::WriteErrorLogEntry(const wchar_t* function, DWORD error) {
    std::array<wchar_t, kErrorEntryCharacters> message{};
    FormatText(message.data(), message.size(), L"%s failed w/err 0x%08lx", function, error);
    WriteEventLogEntry(message.data(), EVENTLOG_ERROR_TYPE);
}

void WINAPI CServiceBase::ServiceMain(DWORD argumentCount, wchar_t** arguments) {
    s_service->m_statusHandle =
        RegisterServiceCtrlHandlerExW(s_service->m_serviceName, &CServiceBase::ServiceCtrlHandler, nullptr);
    if (s_service->m_statusHandle == nullptr) {
        // Nothing catches it, which ends the process: no service can go on without its controls.
        throw GetLastError();
    }
    s_service->Start(argumentCount, arguments);
}

DWORD WINAPI CServiceBase::ServiceCtrlHandler(DWORD control, DWORD eventType, void* /*eventData*/,
                                              void* /*context*/) {
    switch (control) {
        case SERVICE_CONTROL_STOP:
            s_service->Stop();
            break;
        case SERVICE_CONTROL_PAUSE:
            s_service->Pause();
            break;
        case SERVICE_CONTROL_CONTINUE:
            s_service->Continue();
            break;
        case SERVICE_CONTROL_POWEREVENT:
            HandlePowerEvent(eventType);
            break;
        case SERVICE_CONTROL_PRESHUTDOWN:
            s_service->Shutdown();
            break;
        default:
            break;
    }
    return NO_ERROR;
}

void CServiceBase::HandlePowerEvent(DWORD eventType) {
    if (eventType == PBT_APMSUSPEND || eventType == PBT_APMSTANDBY) {
        s_service->Pause();
    } else if (eventType == PBT_APMRESUMEAUTOMATIC) {
        // The system sends this one at every resume, the user's presence or not.
        s_service->Continue();
    }
}
