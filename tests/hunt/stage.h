#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/core/core_test.h"
#include "tests/hunt/command.h"
#include "tests/hunt/model.h"
#include "tests/hunt/threads.h"
#include "tests/radio/machine.h"
#include "tests/support/com_support.h"
#include "tests/support/scoped_import.h"

namespace RandomEvents {

/// The service on the simulated notebook.
class Stage {
  public:
    /// With threads that take turns.
    Stage();
    /// With those that `hire` makes.
    using Hire = std::unique_ptr<Threads> (*)(Rig::TestClock& clock);
    explicit Stage(Hire hire);
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    ~Stage();

    /// A fresh notebook; no service runs.
    void Begin(const Shape& shape);
    /// What the command does at its time, counted from now.
    void Do(const Command& command);
    [[nodiscard]] bool Settle(const Step& step) { return m_threads->Settle(step.seed, step.isFine); }
    [[nodiscard]] Threads& Crew() const { return *m_threads; }
    [[nodiscard]] Rig::SimulatedNotebook& Devices() { return m_machine.notebook; }
    [[nodiscard]] Situation See() const;
    /// What is wrong whatever the rules say: an exception, something lost or given back twice. Empty:
    /// nothing.
    [[nodiscard]] std::string Complaint() const;
    /// The process of a service that has stopped ends: with it goes what a stop leaves to it.
    void EndProcess();
    /// What a service that has ended still holds; empty: nothing.
    [[nodiscard]] std::string Leftovers() const;

  private:
    class ErrorLines;
    /// The service object with all of its controls open.
    class Service : public CoreTests::OpenService {
      public:
        using CMainService::Continue;
    };

    void Carry(const Command& command);
    void ChangeNeighbour(const Command& command);
    void WriteAirplane(DWORD value);
    void Stop(bool isShutdown);
    void Tell(const Notebook::Event& event, Threads::Job job);

    RadioTests::Machine m_machine;
    Rig::ComApartment m_apartment;
    std::vector<std::string> m_exceptions;
    std::unique_ptr<Orva::Shared::CorvaLogger> m_recorder;
    std::unique_ptr<Threads> m_threads;
    Rig::ScopedImport<&::QueueUserWorkItem> m_pool;
    DWORD m_reported = 0;
    Rig::ScopedImport<&::SetServiceStatus> m_reports{[this](SERVICE_STATUS_HANDLE, SERVICE_STATUS* status) {
        m_reported = status->dwCurrentState;
        return TRUE;
    }};
    std::unique_ptr<Service> m_service;
    NLMEventHandler* m_handler = nullptr;
    ULONG m_keptReferences = 0;     ///< to the handler, by its subscriptions, to the end of the process
    ULONG m_handlerReferences = 0;  ///< those that were left then
    bool m_isToRun = false;
    std::map<std::wstring, int> m_neighbourChanges;
};

}  // namespace RandomEvents
