// The executable's sleeps and waits with a time limit: who does one has not finished what it does.

#include <windows.h>

#include "notebook/hardware/import_table.h"
#include "notebook/hardware/start.h"
#include "notebook/state/shared_state.h"

namespace Notebook {

namespace {

decltype(&::Sleep) g_realSleep = nullptr;
decltype(&::WaitForSingleObject) g_realWait = nullptr;

/// Counts one wait for a scope.
class WaitScope {
  public:
    WaitScope() : m_activity(SharedState::Get().OwnActivity()) {
        InterlockedIncrement(&m_activity.waitsBegun);
    }
    WaitScope(const WaitScope&) = delete;
    WaitScope& operator=(const WaitScope&) = delete;
    ~WaitScope() {
        InterlockedExchange64(&m_activity.lastAt, Now());
        InterlockedIncrement(&m_activity.waitsEnded);
    }

  private:
    Activity& m_activity;
};

DWORD Quicker(DWORD milliseconds) {
    const std::uint32_t divisor = SharedState::Get().Raw().devices.sleepDivisor;
    return divisor == 0 ? milliseconds : milliseconds / divisor;
}

void WINAPI NotebookSleep(DWORD milliseconds) {
    const WaitScope scope;
    g_realSleep(Quicker(milliseconds));
}

DWORD WINAPI NotebookWait(HANDLE object, DWORD milliseconds) {
    if (milliseconds == INFINITE || milliseconds == 0) {
        return g_realWait(object, milliseconds);
    }
    const WaitScope scope;
    return g_realWait(object, Quicker(milliseconds));
}

}  // namespace

void ReplaceWaits() {
    g_realSleep = ReplaceImport("Sleep", &NotebookSleep);
    g_realWait = ReplaceImport("WaitForSingleObject", &NotebookWait);
}

}  // namespace Notebook
