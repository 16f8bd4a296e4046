#pragma once

#include <windows.h>

/// A Windows service: connects one service object to the service control manager, turns control
/// requests into calls of its virtual operations, reports every change of state and writes
/// failures to the Windows event log. Suspend pauses the service, automatic resume continues it.
///
/// A virtual operation fails by throwing a Win32 error as `DWORD`, or anything else; both are
/// caught and reported here. `OnStart` runs on the service-main thread, everything else on the
/// thread that called `Run`.
class CServiceBase {
  public:
    /// `serviceName` is not copied and must outlive the object.
    explicit CServiceBase(const wchar_t* serviceName) noexcept;
    CServiceBase(const CServiceBase&) = delete;
    CServiceBase& operator=(const CServiceBase&) = delete;
    virtual ~CServiceBase() = default;

    /// Connects `service` to the service control manager and returns when it has stopped. False
    /// when the dispatcher could not be started, with the thread's last error telling why.
    static bool Run(CServiceBase& service);

  protected:
    // In this order: the virtual table's. Each may throw: a DWORD is the Win32 error that is logged and, at
    // a start, reported; anything else is a failure without a number. `arguments` are the start's own,
    // `argumentCount` of them, borrowed for the call.
    virtual void OnStart(DWORD /*argumentCount*/, wchar_t** /*arguments*/) {}
    virtual void OnStop() {}
    virtual void OnPause() {}
    /// Decides both radios afresh after the machine has resumed (see core/resume_handler.h).
    virtual void OnContinue();
    virtual void OnShutdown() {}

    void Start(DWORD argumentCount, wchar_t** arguments);
    void Stop();
    void Pause();
    void Continue();
    void Shutdown();

    /// Reports a state to the service control manager. `win32ExitCode` is a Win32 error.
    void SetServiceStatus(DWORD currentState, DWORD win32ExitCode = NO_ERROR);

    /// Writes one entry to the Windows event log; `type` is an EVENTLOG_*_TYPE. An event source
    /// that cannot be opened drops the entry silently.
    void WriteEventLogEntry(const wchar_t* message, WORD type);
    /// Writes "%s failed w/err 0x%08lx" as an error entry.
    void WriteErrorLogEntry(const wchar_t* function, DWORD error);

    static void WINAPI ServiceMain(DWORD argumentCount, wchar_t** arguments);
    static DWORD WINAPI ServiceCtrlHandler(DWORD control, DWORD eventType, void* eventData, void* context);

    /// The one service of the process: system callbacks carry no object.
    static inline CServiceBase* s_service = nullptr;
    /// Checkpoint of the next pending report; never reset.
    static inline DWORD s_checkPoint = 1;

    const wchar_t* m_serviceName;
    SERVICE_STATUS m_status{};
    SERVICE_STATUS_HANDLE m_statusHandle = nullptr;

  private:
    struct Transition;
    /// Runs one virtual operation with the reports around it; nothing that it throws gets out.
    template <class Operation>
    void RunTransition(const Transition& transition, const Operation& operation);

    static void HandlePowerEvent(DWORD eventType);
};
