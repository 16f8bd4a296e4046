#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <optional>

#include "notebook/state/calls.h"
#include "notebook/state/layout.h"

namespace Notebook {

/// What a test wants at a call, before its rule and its device: it may change the devices, or throw.
/// An answer is given in place of the device's; zero is a success that gives nothing.
using CallHook = std::function<std::optional<DWORD>(Call call)>;
/// One for the process; null: none.
void SetCallHook(CallHook hook);

/// One platform call in progress: counts it, lets the rule for its name act, traces it at the end.
/// The constructor returns late when the rule makes the call slow or holds it.
class CallScope {
  public:
    explicit CallScope(Call call);
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;
    ~CallScope();

    /// Whether the rule makes this call fail.
    [[nodiscard]] bool Refused() const noexcept { return m_refused; }
    /// The same, for a call that leaves its error as the thread's last one.
    [[nodiscard]] bool RefusedWithLastError() const noexcept {
        if (m_refused) {
            SetLastError(m_error);
        }
        return m_refused;
    }
    /// The error with which it does: a Win32 error or an HRESULT, as the call has it.
    [[nodiscard]] DWORD Error() const noexcept { return m_error; }
    [[nodiscard]] HRESULT Hresult() const noexcept { return static_cast<HRESULT>(m_error); }

    /// Notes the result for the trace and gives it back.
    DWORD Result(DWORD result) noexcept {
        m_result = result;
        return result;
    }
    HRESULT Result(HRESULT result) noexcept {
        m_result = static_cast<DWORD>(result);
        return result;
    }

    /// The result of a call that answers an HRESULT or a Win32 error: what its rule says, or else what the
    /// device does.
    template <class Device>
    HRESULT Answer(Device device) {
        return Result(m_refused ? Hresult() : device());
    }

    /// Arguments for the trace, printf-style; costs nothing while tracing is off.
    void Detail(const char* format, ...) noexcept;

  private:
    void Obey();
    void AskHook();
    void End() noexcept;
    void WaitUntilStopped();

    Call m_call;
    bool m_refused = false;
    bool m_traced = false;
    DWORD m_error = 0;
    DWORD m_result = 0;
    Micros m_start;
    char m_detail[sizeof(TraceEntry::detail)] = {};
};

/// Writes one entry to the trace, if tracing is on.
void Trace(Call call, Micros start, DWORD result, const char* detail) noexcept;

}  // namespace Notebook
