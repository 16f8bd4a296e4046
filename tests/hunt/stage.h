#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/core/core_test.h"
#include "tests/hunt/command.h"
#include "tests/hunt/model.h"
#include "tests/hunt/turns.h"
#include "tests/radio/machine.h"
#include "tests/support/com_support.h"
#include "tests/support/scoped_import.h"

namespace RandomEvents {

/// The service on the simulated notebook, with threads that take turns.
class Stage {
  public:
    Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    ~Stage();

    /// A fresh notebook; no service runs.
    void Begin(const Shape& shape);
    /// What the command does at its time, counted from now.
    void Do(const Command& command);
    [[nodiscard]] bool Settle(const Step& step) { return m_turns.Settle(step.seed, step.isFine); }
    [[nodiscard]] const Turns& Threads() const { return m_turns; }
    [[nodiscard]] Rig::SimulatedNotebook& Devices() { return m_machine.notebook; }
    [[nodiscard]] Situation See() const;
    /// What is wrong whatever the rules say: an exception, something lost or given back twice. Empty:
    /// nothing.
    [[nodiscard]] std::string Complaint() const;
    /// The process of a service that has stopped ends: with it goes what it leaves on purpose.
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
    void Tell(const Notebook::Event& event, Turns::Job job);

    RadioTests::Machine m_machine;
    Rig::ComApartment m_apartment;
    std::vector<std::string> m_exceptions;
    std::unique_ptr<Orva::Shared::CorvaLogger> m_recorder;
    Turns m_turns{m_machine.clock};
    Rig::ScopedImport<&::QueueUserWorkItem> m_pool;
    std::unique_ptr<Service> m_service;
    NLMEventHandler* m_handler = nullptr;
    ULONG m_keptReferences = 0;     ///< to the handler, by its subscriptions, to the end of the process
    ULONG m_handlerReferences = 0;  ///< those that were left then
    bool m_isToRun = false;
    std::map<std::wstring, int> m_neighbourChanges;
};

}  // namespace RandomEvents
