#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logging/logger.h"
#include "tests/hunt/stage.h"
#include "tests/support/ledger.h"

namespace RandomEvents {

/// How a call can fail: with an error, or with a success that gives nothing.
struct Answer {
    const char* name;
    std::uint32_t value;
};

/// Something that the service calls, and how that can fail.
struct Function {
    const char* name;
    std::vector<Answer> answers;
};

/// The n-th call of a function, counted from 1, and how it fails; the last two by their places in the tables.
struct Fault {
    std::size_t function = 0;
    std::uint32_t nth = 0;
    std::size_t answer = 0;

    /// "WlanSetInterface 3 error", as `ReadFault` reads it.
    [[nodiscard]] std::string Text() const;
};

/// A failure that came about: of which call, and in which of the service's operations, outermost first.
struct Strike {
    const char* function;
    std::vector<std::string> operations;

    [[nodiscard]] bool IsIn(std::string_view operation) const;
    /// "WlanOpenHandle in CMainService::OnStop, CMainService::RegisterWlanNotification".
    [[nodiscard]] std::string Text() const;
};

[[nodiscard]] const std::vector<Function>& FailingFunctions();
/// Throws `std::runtime_error` for what is none.
[[nodiscard]] Fault ReadFault(const std::string& function, const std::string& nth, const std::string& answer);

/// Counts what the service calls of Windows, of the devices and of the C++ heap, and has some of it fail; for
/// one play. What the devices and the rig call themselves is neither counted nor touched: the service is at
/// work between an operation's first and last line of the log, outside of any call.
///
/// Also keeps the books of what Windows gives the service meanwhile.
class Faults {
  public:
    Faults(Stage& stage, std::vector<Fault> faults);
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;
    ~Faults();

    /// From now on nothing is counted and nothing fails.
    void End() { m_isOver = true; }
    /// How often each function was called.
    [[nodiscard]] const std::vector<std::uint32_t>& Counts() const { return m_counts; }
    /// Those of its failures that have come about so far, in their order.
    [[nodiscard]] const std::vector<Strike>& Strikes() const { return m_strikes; }
    /// Operations that have caught an exception.
    [[nodiscard]] const std::vector<std::string>& Exceptions() const { return m_exceptions; }
    /// What could not be closed ends with the process.
    void EndProcess();
    /// What was not given back though nothing kept it from that, or was twice. Ends the books.
    [[nodiscard]] std::string Leftovers();

    [[nodiscard]] bool RefusesMemory();

  private:
    class Lines;

    void HookAll();
    void HookDevice(Rig::Call call, std::size_t function);
    template <auto Function>
    void Fails();
    template <auto Function>
    void FailsToClose();
    template <auto Function>
    void Passes();
    [[nodiscard]] const Answer* Ask(std::size_t function);

    Stage& m_stage;
    std::vector<Fault> m_faults;
    std::vector<std::uint32_t> m_counts;
    std::size_t m_memory;
    std::vector<Strike> m_strikes;
    std::vector<std::string> m_exceptions;
    std::unique_ptr<Rig::Ledger> m_ledger;
    std::set<HANDLE> m_events;
    std::vector<std::pair<void (*)(void*), void*>> m_unclosed;
    std::vector<std::shared_ptr<void>> m_imports;
    std::unique_ptr<Orva::Shared::CorvaLogger> m_lines;
    bool m_isOver = false;
};

/// Whether the C++ heap is to refuse an allocation that is being asked for. Any thread.
[[nodiscard]] bool RefusesMemory();

}  // namespace RandomEvents
