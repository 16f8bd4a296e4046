#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "notebook/state/layout.h"

namespace Notebook {

/// Where the notebook keeps its state and its event log.
inline constexpr wchar_t kFolder[] = L"C:\\notebook";

/// The stub service that serves the COM classes when the devices stand in another process.
inline constexpr wchar_t kDeviceServer[] = L"NotebookDevices";

/// Now, on the clock that all processes share.
[[nodiscard]] Micros Now() noexcept;
/// Takes the time from `clock` instead; null: from the system again.
void SetClock(std::function<Micros()> clock);

/// The state that every process of the notebook maps. Opened on first use and open until the
/// process ends; a file that is missing or of another version becomes a fresh notebook.
class SharedState {
  public:
    /// Before the first use: the state stays in this process's memory, for nobody else to see.
    static void KeepInMemory() noexcept;

    /// Ends the process with a message when the state cannot be opened: nothing works without it.
    static SharedState& Get();

    /// The state without the lock, for fields that are changed by interlocked operations.
    [[nodiscard]] Machine& Raw() noexcept { return *m_machine; }

    /// How busy this process is: as the service, unless it serves the devices to other processes.
    [[nodiscard]] Activity& OwnActivity() noexcept { return *m_activity; }
    /// This process serves the devices from now on.
    void BecomeDeviceServer();
    /// Has `told` called, by whoever made it so, when something was announced or planned.
    void OnNews(std::function<void()> told) { m_told = std::move(told); }

    /// The name of the event that wakes a process's listener.
    static std::wstring ListenerEventName(std::uint32_t process);

  private:
    SharedState();

    friend class LockedMachine;
    HANDLE m_mutex = nullptr;
    Machine* m_machine = nullptr;
    Activity* m_activity = nullptr;
    std::function<void()> m_told;
};

/// The state, locked for a scope. What was due by now has happened when the scope begins; when it
/// ends, whoever listens is woken if there is news. One thread may hold several of them.
class LockedMachine {
  public:
    LockedMachine();
    LockedMachine(const LockedMachine&) = delete;
    LockedMachine& operator=(const LockedMachine&) = delete;
    ~LockedMachine();

    Machine* operator->() noexcept { return &m_machine; }
    Machine& operator*() noexcept { return m_machine; }
    /// The time at which the lock was taken.
    [[nodiscard]] Micros Time() const noexcept { return m_time; }

  private:
    void WakeListeners() noexcept;

    Machine& m_machine;
    Micros m_time;
    std::uint64_t m_events;
    std::uint64_t m_schedule;
};

}  // namespace Notebook
