#include <windows.h>
#include <objbase.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "logging/file_listener.h"
#include "logging/log_data.h"
#include "logging/policy.h"
#include "network/nlm_event_handler.h"
#include "notebook/hardware/com_object.h"
#include "tests/hunt/command.h"
#include "tests/hunt/crew.h"
#include "tests/hunt/examination.h"
#include "tests/hunt/locks.h"
#include "tests/hunt/stage.h"
#include "tests/logging/log_directory.h"
#include "tests/support/ledger.h"
#include "tests/support/long_run.h"
#include "tests/support/registry_tree.h"
#include "tests/support/scoped_import.h"

namespace RandomEvents {
namespace {

using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::CorvaLogListenerFile;
using Orva::Shared::TimingStatistics;
using Milliseconds = std::chrono::milliseconds;

constexpr std::size_t kCommandsOfAStorm = 60;

std::string g_where;

/// Why a run cannot be gone on with: threads hang, or the process is about to die.
[[noreturn]] void GiveUp(const std::string& why) {
    std::printf("%s\n  %s\n%s", why.c_str(), g_where.c_str(), Locks::Watch::Problems().c_str());
    TerminateProcess(GetCurrentProcess(), 3);
    std::abort();
}

LONG WINAPI ReportCrash(EXCEPTION_POINTERS* pointers) {
    GiveUp(LongRun::CrashText(*pointers) + Locks::Tell(Locks::ThisThread()));
}

/// The service's log with its file, and what stands before and behind that one.
class Log {
  public:
    explicit Log(Locks::Watch& watch) : m_file(new CorvaLogListenerFile(true)) {
        m_isQueued = m_file->GetType() == Orva::Shared::ListenerType::kQueuedFile;
        const std::array<CorvaLogListener*, 3> listeners = {
            new Listener([this, &watch](const auto& line) { Begin(watch, line); }), m_file,
            new Listener([this, &watch](const auto& line) { watch.End(line, m_isQueued && IsTaken(line)); })};
        m_logger = std::make_unique<CorvaLogger>(listeners.data(), static_cast<int>(listeners.size()));
        Orva::Shared::LoggerHolder().swap(m_logger);
    }
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    ~Log() { Orva::Shared::LoggerHolder().swap(m_logger); }

    [[nodiscard]] bool HasException() const { return m_exceptions != 0; }

    /// Whether all lines so far come into the file, without another one behind them. Nobody logs meanwhile.
    [[nodiscard]] bool IsWritten(const LoggingTests::AppData& appData) const {
        constexpr int kMostLooks = 200;
        for (int i = 0; i < kMostLooks && CountLines(appData) < m_lines; ++i) {
            Rig::Real<&::Sleep>(50);
        }
        return CountLines(appData) >= m_lines;
    }

    /// What is wrong with the file and the times; empty: nothing. Nobody logs any more.
    [[nodiscard]] std::string Complaint(const LoggingTests::AppData& appData) {
        std::string wrong;
        for (const auto& [name, count] : m_timed) {
            const TimingStatistics::Record sum = Orva::Shared::GetLogger().Statistics().Find(name);
            if (sum.count != count) {
                wrong = "how long " + name + " took is summed up wrongly";
            }
        }
        static_cast<void>(IsWritten(appData));
        Locks::Watch::EndLog(m_isQueued);
        const std::vector<std::string> lines = LoggingTests::ReadLines(appData.Log());
        for (const std::string& line : lines) {
            constexpr std::size_t kThread = 23;
            if (line.size() <= kThread || line[4] != '/' || line[kThread] != '|') {
                wrong = "the log's file has a line that is none: " + line;
            }
        }
        return lines.size() == m_lines ? wrong
                                       : std::to_string(lines.size()) + " lines of " +
                                             std::to_string(m_lines) + " are in the log";
    }

  private:
    class Listener final : public CorvaLogListener {
      public:
        using Action = std::function<void(const LogData& line)>;
        explicit Listener(Action action)
            : CorvaLogListener(PolicyLevels::kIgnore), m_action(std::move(action)) {
            m_maxLogLevel = Orva::Shared::Level::kDiag;
        }
        void Log(const LogData& line) override { m_action(line); }
        [[nodiscard]] int GetType() const override { return Orva::Shared::ListenerType::kDebug; }

      private:
        Action m_action;
    };

    [[nodiscard]] bool IsTaken(const CorvaLogListener::LogData& line) const {
        return line.GetLevel() >= m_file->MinLogLevel() && line.GetLevel() <= m_file->MaxLogLevel();
    }

    void Begin(Locks::Watch& watch, const CorvaLogListener::LogData& line) {
        watch.Begin(line);
        m_lines += IsTaken(line) ? 1 : 0;
        m_exceptions += line.Message().starts_with(L"Exception in ") ? 1 : 0;
        if (line.GetLevel() == Orva::Shared::Level::kDiag) {
            const Rig::Detail::RigLockHolder hold(m_lock);
            ++m_timed[std::string(line.FunctionName())];
        }
    }

    static std::size_t CountLines(const LoggingTests::AppData& appData) {
        const std::string bytes = LoggingTests::ReadBytes(appData.Log());
        return static_cast<std::size_t>(std::ranges::count(bytes, '\n'));
    }

    CorvaLogListenerFile* m_file;
    bool m_isQueued;
    std::atomic<std::size_t> m_lines = 0;
    std::atomic<int> m_exceptions = 0;
    Rig::Detail::RigLock m_lock;
    std::map<std::string, int> m_timed;
    std::unique_ptr<CorvaLogger> m_logger;
};

/// One start of the service to its end, with everything at once.
class Round final : public Examination {
  public:
    Round(Stage& stage, Locks::Watch& watch, Random& random, const Rig::ScopedRegistryTree& policies,
          const Shape& shape)
        : Examination(stage, shape), m_watch(watch), m_random(random), m_policies(policies) {}

    /// What is wrong; nothing: all is right.
    std::optional<std::string> Run() {
        m_stage.Begin(m_shape);
        DrawPolicies();
        const LoggingTests::AppData appData(Orva::Shared::GetModuleNames()->baseName);
        Log log(m_watch);
        Rig::Ledger ledger;
        const std::shared_ptr<void> variants = Rig::ShowVariantTexts();
        // The language keeps the events of its locks.
        const auto events =
            Rig::ReplaceIfImported<&::CreateEventW>(Rig::kWrapping, [](const auto& self, auto... arguments) {
                return Locks::IsTakingLock() ? Rig::Real<&::CreateEventW>(arguments...)
                                             : self.Original(arguments...);
            });
        m_isLogWritten = [&] { return log.IsWritten(appData); };
        Take({"start"});
        Storm();
        Mend();
        Examine();
        for (const char* const choice : {"on", "off"}) {
            KeepChoice(choice);
        }
        Burst({"plug cable 1 dhcp 0", "wifi available", "wwan on", "unplug cable 1", "resume", "stop"});
        { const NLMEventHandler lastListOfAdapters{nullptr, nullptr}; }
        Expect(!log.HasException(), "an exception");
        const std::string complaint = log.Complaint(appData);
        Expect(complaint.empty(), complaint);
        const testing::AssertionResult balanced = ledger.Balanced();
        Expect(balanced, balanced.message());
        ledger.Dismiss();
        const std::string problems = Locks::Watch::Problems();
        Expect(problems.empty(), problems);
        return m_wrong;
    }

    [[nodiscard]] std::size_t Events() const { return m_events; }

  private:
    using Examination::Take;

    void Take(const Step& step) override {
        for (const Command& command : step.commands) {
            Do(command);
        }
        Settle();
    }

    void Do(const Command& command) {
        m_runs = m_runs || command.verb == Verb::kStart;
        m_stops = m_stops || command.Stops();
        m_stage.Do(command);
        ++m_events;
    }

    void Settle() {
        if (!m_stage.Settle({})) {
            GiveUp(m_stage.Crew().Stuck());
        }
        Expect(m_isLogWritten(), "lines stay in the log's queue");
        const Notebook::Ledger& held = Notebook::SharedState::Get().Raw().ledger;
        Expect(held.misuses == 0, "something was used or given back that was gone");
        Expect(held.wlanMemory == 0, "memory of the WLAN interface was not given back");
        Expect(!m_stage.See().changesModem, "the mark of an own change of the modem is left");
        Expect(!m_stage.See().handlesCable, "the mark of a cable event is left");
        if (m_stops) {
            Expect(!m_stage.Crew().IsAtWork(Who::kWatcher), "the watcher does not see the stop");
            Expect(m_stage.See().reported == SERVICE_STOPPED, "the stop is not reported");
            m_stage.EndProcess();
            const std::string leftovers = m_stage.Leftovers();
            Expect(leftovers.empty(), leftovers);
            m_stops = false;
            m_runs = false;
        }
    }

    /// Whatever comes, one soon after the other.
    void Storm() {
        for (std::size_t i = 0; i < kCommandsOfAStorm && !m_wrong; ++i) {
            const Command command = DrawCommand(m_random);
            const bool starts = command.verb == Verb::kStart;
            const bool stops = command.Stops();
            // What a stop finds half subscribed it leaves to the end of the process, as it is meant to.
            const bool fits = command.FitsOn(m_shape) && command.text.find("absent") == std::string::npos &&
                              (!starts || !m_runs) &&
                              (!stops || (m_runs && !m_stops && !m_stage.Crew().IsAtWork(Who::kWorker)));
            if (fits) {
                Do(command);
            }
            Breathe();
            if (m_random.OneIn(8)) {
                DrawPolicies();
            }
            if (m_stops && m_random.OneIn(3)) {
                Settle();
                Take({"start"});
            }
        }
        Settle();
    }

    void Breathe() { dynamic_cast<Crew&>(m_stage.Crew()).Live(Milliseconds(m_random.Below(3))); }

    void Burst(std::initializer_list<const char*> commands) {
        for (const char* const text : commands) {
            const Command command = ReadCommand(text);
            if (command.FitsOn(m_shape)) {
                Do(command);
                Breathe();
            }
        }
        Settle();
    }

    /// What is remembered stays where no input is the user's: radios change by the service alone.
    void KeepChoice(const char* choice) {
        Take({"airplane value dword 0"});
        Choose(choice);
        const Situation before = m_stage.See();
        const auto expectKept = [&] {
            const Situation after = m_stage.See();
            Expect(CountsAsOn(after.storedWlan) == CountsAsOn(before.storedWlan),
                   "the choice for WLAN has changed by itself");
            Expect(CountsAsOn(after.storedWwan) == CountsAsOn(before.storedWwan),
                   "the choice for the modem has changed by itself");
        };
        Burst({"resume", "plug cable 1 dhcp 700", "vpn on", "airplane value dword 2",
               "event connection wifi1 64", "suspend", "event connection cable2 0", "vpn off", "resume",
               "airplane value dword 0"});
        expectKept();
        // While the service switches WLAN on, PHY by PHY, other events would end the mark of this one, and
        // the half that is on would be taken for the user's.
        Burst({"unplug cable 1", "wifi notify 8 7", "resume", "wifi notify 16 9", "suspend", "resume"});
        expectKept();
    }

    /// Those of the next start.
    void DrawPolicies() {
        constexpr std::array kLowest = {L"TraceIn", L"Information", L"Error"};
        constexpr std::array kHighest = {L"Error", L"Diag"};
        m_policies.Write({}, L"MinLogLevel", Rig::RegistryText(kLowest.at(m_random.Below(kLowest.size()))));
        m_policies.Write({}, L"MaxLogLevel", Rig::RegistryText(kHighest.at(m_random.Below(kHighest.size()))));
        m_policies.Write({}, L"QueuedWrites", Rig::RegistryNumber(m_random.OneIn(4) ? 0 : 1));
        m_policies.Write({}, L"MaxLogSize", Rig::RegistryNumber(1U << 20U));
    }

    Locks::Watch& m_watch;
    Random& m_random;
    const Rig::ScopedRegistryTree& m_policies;
    std::function<bool()> m_isLogWritten;
    bool m_stops = false;
    std::size_t m_events = 0;
};

/// The service loses its turn, now and then, at whatever it calls.
class Interruptions {
  public:
    Interruptions(Stage& stage, Locks::Watch& watch) {
        for (std::size_t call = 0; call < Notebook::kCallCount; ++call) {
            const bool isModem = static_cast<Rig::Call>(call) == Rig::Call::MbnRadioSetSoftwareRadioState;
            stage.Devices().AtEach(static_cast<Rig::Call>(call), [&watch, isModem]() -> std::optional<DWORD> {
                if (isModem) {
                    watch.AtModem();
                }
                Locks::Pause();
                return std::nullopt;
            });
        }
        Interrupt<&::CloseHandle, &::CoTaskMemFree, &::CreateEventW, &::HeapAlloc, &::HeapFree,
                  &::RegCloseKey, &::RegCreateKeyExW, &::RegNotifyChangeKeyValue, &::RegOpenKeyExW,
                  &::RegQueryValueExW, &::RegSetValueExW, &::SetEvent, &::StringFromCLSID, &::SysAllocString,
                  &::SysFreeString>();
    }

  private:
    template <auto... Functions>
    void Interrupt() {
        (m_imports.push_back(Rig::ReplaceIfImported<Functions>(Rig::kWrapping,
                                                               [](const auto& self, auto... arguments) {
                                                                   Locks::Pause();
                                                                   return self.Original(arguments...);
                                                               })),
         ...);
    }

    std::vector<std::shared_ptr<void>> m_imports;
};

struct Options {
    std::uint32_t seconds = 10;
    std::uint64_t seed = 0;
};

Options ReadOptions(int count, wchar_t** words) {
    Options options;
    options.seed = LongRun::FreshSeed();
    LongRun::ReadOptions(
        count, words,
        {{"--seconds", LongRun::Into(options.seconds)}, {"--seed", LongRun::Into(options.seed)}});
    return options;
}

bool Play(const Options& options) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    const Rig::ScopedRegistryTree policies{HKEY_LOCAL_MACHINE,
                                           L"Software\\Policies\\Orva\\Orva Brimlet Support"};
    Locks::Watch watch(options.seed);
    Stage stage(
        [](Rig::TestClock& clock) -> std::unique_ptr<Threads> { return std::make_unique<Crew>(clock); });
    const Interruptions interruptions(stage, watch);
    std::size_t events = 0;
    std::uint64_t rounds = 0;
    do {
        const std::uint64_t seed = options.seed + rounds++;
        g_where = "in the first round of --seed " + std::to_string(seed);
        Random random(seed);
        const Shape shape{1 + random.Below(2), 1 + random.Below(3), random.Below(3)};
        Round round(stage, watch, random, policies, shape);
        if (const auto wrong = round.Run()) {
            std::printf("%s\n  %s\n", wrong->c_str(), g_where.c_str());
            return false;
        }
        events += round.Events();
    } while (std::chrono::steady_clock::now() < end);
    std::printf("%llu rounds, %llu events; locks while others were held:\n%s",
                static_cast<unsigned long long>(rounds), static_cast<unsigned long long>(events),
                Locks::Watch::Order().c_str());
    return true;
}

int Run(int count, wchar_t** words) {
    const Options options = ReadOptions(count, words);
    std::printf("--seed %llu\n", static_cast<unsigned long long>(options.seed));
    SetUnhandledExceptionFilter(&ReportCrash);
    std::set_terminate([] { GiveUp("an exception that nobody catches"); });
    return Play(options) && !testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed() ? 0 : 1;
}

}  // namespace
}  // namespace RandomEvents

/// Plays everything at once on the service on real threads (docs/notebook.md).
int wmain(int argc, wchar_t** argv) {
    return LongRun::RunProgram(argc, argv, &RandomEvents::Run);
}
