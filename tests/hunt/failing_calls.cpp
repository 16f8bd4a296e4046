#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <numeric>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "notebook/hardware/com_object.h"
#include "tests/hunt/command.h"
#include "tests/hunt/examination.h"
#include "tests/hunt/faults.h"
#include "tests/hunt/scenes.h"
#include "tests/hunt/stage.h"
#include "tests/support/long_run.h"
#include "tests/support/scoped_import.h"

namespace RandomEvents {
namespace {

/// A scene, and what fails in it.
struct Case {
    const Scene* scene = nullptr;
    std::vector<Fault> faults;

    /// As `--play` takes it.
    [[nodiscard]] std::string Text() const {
        std::string text = scene->name;
        for (const Fault& fault : faults) {
            text += " " + fault.Text();
        }
        return text;
    }
    [[nodiscard]] bool Has(std::string_view function) const {
        return std::ranges::any_of(
            faults, [&](const Fault& fault) { return function == FailingFunctions()[fault.function].name; });
    }
};

enum class Radio { kWlan, kModem };

/// What is remembered of each radio, by its number above.
using Choices = std::array<bool, 2>;

/// What a scene comes to when nothing fails.
struct Plain {
    std::vector<std::uint32_t> counts;
    std::vector<Choices> choices;  ///< after each step
};

/// How a failure can make the service remember of a radio what nobody has chosen, by what it does as it is
/// meant to.
struct Misleading {
    Radio radio;
    bool becomes;                ///< what is then remembered: that it is on
    bool lasts;                  ///< to later steps
    std::string_view operation;  ///< in which the call fails,
    std::string_view part;       ///< and in which part of that
    std::string_view calls;
};

constexpr std::string_view kReadingWlan = "WlanOpenHandle WlanEnumInterfaces WlanQueryInterface memory";
constexpr std::string_view kReadingModem =
    "IMbnInterface::QueryInterface IMbnRadio::get_SoftwareRadioState memory";
constexpr std::string_view kReadingRegistry = "RegOpenKeyExW RegQueryValueExW memory";
constexpr std::string_view kReadingAdapters = "GetAdaptersInfo HeapAlloc";

constexpr std::string_view kWlanChange = "CMainService::HandleWlanNotificationMsmRadioStateChange";
constexpr std::string_view kModemChange = "CMbnSinks::OnSetSoftwareRadioStateComplete";
constexpr std::string_view kStart = "CMainService::ServiceWorkerThread";
constexpr std::string_view kWatcher = "CMainService::AirplaneModeWatcher";
constexpr std::string_view kWlanBack = "ServiceUtils::StartWLANService";
constexpr std::string_view kModemBack = "ServiceUtils::StartWWANService";

constexpr Misleading kMisleading[] = {
    // A radio that cannot be read counts as off, and so does airplane mode.
    {Radio::kWlan, false, false, kWlanChange, "ServiceUtils::CheckWlanStatus", kReadingWlan},
    {Radio::kWlan, false, false, kWlanChange, "ServiceUtils::CheckAirplaneMode", kReadingRegistry},
    {Radio::kModem, false, false, kModemChange, "ServiceUtils::CheckWwanStatus", kReadingModem},
    {Radio::kModem, false, false, kModemChange, "ServiceUtils::CheckAirplaneMode", kReadingRegistry},
    // A choice that cannot be read counts as on: the radio is switched on, which is then taken for the
    // user's.
    {Radio::kWlan, true, false, kWatcher, kWatcher, kReadingRegistry},
    {Radio::kModem, true, false, kWatcher, "CMainService::UpdateWwanPowerStatus", kReadingRegistry},
    {Radio::kWlan, true, false, kWlanBack, kWlanBack, kReadingRegistry},
    {Radio::kModem, true, false, kModemBack, kModemBack, kReadingRegistry},
    // What a start should have switched off and has not, the next cable finds on.
    {Radio::kWlan, true, true, kStart, kStart, "memory"},
    {Radio::kWlan, true, true, kStart, "NLMEventHandler::InitialiseAdapter", kReadingAdapters},
    {Radio::kWlan, true, true, kStart, "CMainService::UpdateWlanPowerStatus", kReadingRegistry},
    {Radio::kWlan, true, true, kStart, "ServiceUtils::SwitchWlanStatus", kReadingWlan},
    {Radio::kWlan, true, true, kStart, "ServiceUtils::SwitchWlanStatus", "WlanGetInterfaceCapability"},
    {Radio::kModem, true, true, kStart, kStart, "memory"},
    {Radio::kModem, true, true, kStart, "NLMEventHandler::InitialiseAdapter", kReadingAdapters},
    {Radio::kModem, true, true, kStart, "CMainService::UpdateWwanPowerStatus", kReadingRegistry},
    {Radio::kModem, true, true, kStart, "ServiceUtils::SwitchWwanStatus", kReadingModem},
    {Radio::kModem, true, true, kStart, "ServiceUtils::SwitchWwanStatus", "CreateEventW"},
};

/// Whether a text of words between blanks has that one.
bool HasWord(std::string_view words, std::string_view word) {
    return (" " + std::string(words) + " ").find(" " + std::string(word) + " ") != std::string::npos;
}

std::string g_caseInPlay;
std::atomic<std::uint32_t> g_plays = 0;

/// Why a run cannot be gone on with: threads hang, or the process is about to die.
[[noreturn]] void GiveUp(const std::string& why) {
    std::printf("%s\n  --play \"%s\"\n", why.c_str(), g_caseInPlay.c_str());
    TerminateProcess(GetCurrentProcess(), 3);
    std::abort();
}

LONG WINAPI ReportCrash(EXCEPTION_POINTERS* pointers) {
    GiveUp(LongRun::CrashText(*pointers));
}

/// Ends a process in which one play takes longer than any should: somebody is busy for ever.
DWORD WINAPI WatchPlays(void* /*nothing*/) {
    constexpr DWORD kTimeout = 60'000;
    for (std::uint32_t seen = g_plays;; seen = g_plays) {
        Rig::Real<&::Sleep>(kTimeout);
        if (g_plays == seen) {
            GiveUp("never comes to an end");
        }
    }
}

/// One play of a case: its scene with what fails, then a day on which nothing does.
class Play final : public Examination {
  public:
    Play(Stage& stage, const Case& what, const Plain* plain)
        : Examination(stage, what.scene->day.shape), m_case(what), m_plain(plain) {}

    /// What is wrong; nothing: all is right. Brings the stage to rest.
    std::optional<std::string> Run() {
        g_caseInPlay = m_case.Text();
        ++g_plays;
        m_stage.Begin(m_case.scene->day.shape);
        Faults faults(m_stage, m_case.faults);
        m_faults = &faults;
        for (const Step& step : m_case.scene->day.steps) {
            const Choices before = Remembered();
            m_chosen.clear();
            m_strikesBefore = faults.Strikes().size();
            Take(step);
            m_came.choices.push_back(Remembered());
            JudgeChoice(Radio::kWlan, before);
            JudgeChoice(Radio::kModem, before);
        }
        m_came.counts = faults.Counts();
        faults.End();
        Mend();
        Examine();
        Take({"stop"});
        JudgeBooks();
        return m_wrong;
    }

    [[nodiscard]] const Plain& Came() const { return m_came; }

  private:
    using Text = std::string;

    using Examination::Take;
    void Take(const Step& step) override {
        bool stops = false;
        for (const Command& command : step.commands) {
            const bool starts = command.verb == Verb::kStart;
            if (command.Stops() && !m_runs) {
                continue;
            }
            m_runs = m_runs || starts;
            stops = stops || command.Stops();
            if (command.verb == Verb::kWifi || command.verb == Verb::kWwan) {
                m_chosen.insert({command.verb, command.IsOn(0)});
            }
            m_stage.Do(command);
            m_starts = m_starts || starts;
        }
        Settle(step);
        if (stops) {
            EndService();
        } else if (m_starts && !m_stage.See().isRunning) {
            EndService();
        }
        m_starts = false;
    }

    void Settle(const Step& step) {
        if (!m_stage.Settle(step)) {
            GiveUp(m_stage.Crew().Stuck());
        }
        const Notebook::Ledger& held = Notebook::SharedState::Get().Raw().ledger;
        Expect(held.misuses == 0, "something was used or given back that was gone");
        Expect(held.wlanMemory == 0, "memory of the WLAN interface was not given back");
        Expect(m_faults->Exceptions().empty() || m_case.Has("memory"), "an exception");
        Expect(!m_stage.See().changesModem, "the mark of an own change of the modem is left");
    }

    /// The process of a service that was told to stop, or did not come up, ends.
    void EndService() {
        m_runs = false;
        if (m_stage.Crew().IsAtWork(Who::kWatcher)) {
            // Who was not woken sees the stop when something changes.
            Expect(m_case.Has("SetEvent"), "the watcher does not see the stop");
            m_stage.Do(ReadCommand("airplane value dword 2"));
            Settle({});
            m_stage.Do(ReadCommand("airplane value dword 0"));
        }
        const Notebook::Ledger& held = Notebook::SharedState::Get().Raw().ledger;
        Expect(held.comSinks == 0 || m_case.Has("Unadvise"), "subscriptions are left");
        DropSubscriptions();
        m_stage.EndProcess();
        const std::string leftovers = m_stage.Leftovers();
        Expect(leftovers.empty() || m_case.Has("WlanCloseHandle"), leftovers);
        m_faults->EndProcess();
    }

    /// Those that could not be taken back end with the process.
    static void DropSubscriptions() {
        static DWORD first = 0;
        const DWORD next = Notebook::NextCookie();
        for (; first != next; ++first) {
            Notebook::SinkTable<INetworkListManagerEvents>::Get().Remove(first);
            Notebook::SinkTable<INetworkConnectionEvents>::Get().Remove(first);
            Notebook::SinkTable<INetworkEvents>::Get().Remove(first);
            Notebook::SinkTable<IMbnRadioEvents>::Get().Remove(first);
        }
    }

    [[nodiscard]] Choices Remembered() const {
        const Situation seen = m_stage.See();
        return {CountsAsOn(seen.storedWlan), CountsAsOn(seen.storedWwan)};
    }

    /// After a step. A choice may not have been seen or stored because of a failure; none is made up: what
    /// has changed has become what the scene comes to, or what the user has just chosen.
    void JudgeChoice(Radio radio, const Choices& before) {
        const auto number = static_cast<std::size_t>(radio);
        const bool now = m_came.choices.back().at(number);
        const Verb user = radio == Radio::kWlan ? Verb::kWifi : Verb::kWwan;
        if (m_plain == nullptr || now == before.at(number) ||
            now == m_plain->choices.at(m_came.choices.size() - 1).at(number) ||
            m_chosen.contains({user, now}) || IsMisled(radio, now)) {
            return;
        }
        Text what = Text("a choice for ") + (radio == Radio::kWlan ? "WLAN" : "the modem") +
                    " is made up: " + (now ? "on" : "off") + ", after";
        for (const Strike& strike : m_faults->Strikes()) {
            what += "\n    " + strike.Text();
        }
        Expect(false, what);
    }

    [[nodiscard]] bool IsMisled(Radio radio, bool now) const {
        const std::vector<Strike>& strikes = m_faults->Strikes();
        return std::ranges::any_of(kMisleading, [&](const Misleading& row) {
            const auto first =
                strikes.begin() + (row.lasts ? 0 : static_cast<std::ptrdiff_t>(m_strikesBefore));
            return row.radio == radio && row.becomes == now &&
                   std::any_of(first, strikes.end(), [&](const Strike& strike) {
                       return HasWord(row.calls, strike.function) && strike.IsIn(row.operation) &&
                              strike.IsIn(row.part);
                   });
        });
    }

    void JudgeBooks() {
        const std::string left = m_faults->Leftovers();
        Expect(left.empty(), "left:" + left);
        Expect(Notebook::SharedState::Get().Raw().ledger.eventSources == 0, "an event source is left");
        Expect(Notebook::OpenServiceHandles() == 0, "a service handle is left");
    }

    const Case& m_case;
    const Plain* m_plain;
    Plain m_came;
    Faults* m_faults = nullptr;
    std::set<std::pair<Verb, bool>> m_chosen;  ///< by the user, in this step
    std::size_t m_strikesBefore = 0;           ///< this step
    bool m_starts = false;
};

struct Options {
    std::uint32_t singles = 0;
    std::uint32_t pairs = 0;
    bool every = false;
    std::uint64_t seed = 0;
    std::string scene;
    std::string play;
};

/// Plays cases, and counts them.
class Run {
  public:
    explicit Run(Stage& stage) : m_stage(stage) {}

    void PlayPlain(const std::string& only) {
        for (const Scene& scene : Scenes()) {
            if (!only.empty() && only != scene.name) {
                continue;
            }
            const Case plain{&scene, {}};
            Play play(m_stage, plain, nullptr);
            Judge(plain, play.Run());
            m_plain.push_back({&scene, play.Came()});
            for (const std::uint32_t count : play.Came().counts) {
                m_calls += count;
            }
        }
    }

    void PlayEvery() {
        for (const auto& [scene, plain] : m_plain) {
            for (std::size_t function = 0; function < plain.counts.size(); ++function) {
                for (std::uint32_t nth = 1; nth <= plain.counts[function]; ++nth) {
                    for (std::size_t answer = 0; answer < FailingFunctions()[function].answers.size();
                         ++answer) {
                        PlayCase({scene, {{function, nth, answer}}}, plain);
                    }
                }
            }
        }
    }

    void PlayDrawn(Random& random, std::uint32_t cases, std::size_t faults) {
        for (std::uint32_t i = 0; i < cases; ++i) {
            const auto& [scene, plain] = m_plain[random.Below(static_cast<std::uint32_t>(m_plain.size()))];
            Case drawn{scene, {}};
            while (drawn.faults.size() < faults) {
                drawn.faults.push_back(DrawFault(random, plain));
            }
            PlayCase(drawn, plain);
        }
    }

    bool PlayText(const std::string& text) {
        std::istringstream words(text);
        std::string name;
        words >> name;
        Case read{&FindScene(name), {}};
        for (std::string function, nth, answer; words >> function >> nth >> answer;) {
            read.faults.push_back(ReadFault(function, nth, answer));
        }
        PlayPlain(name);
        PlayCase(read, m_plain.front().second);
        return Passed();
    }

    [[nodiscard]] bool Passed() const { return m_failed == 0; }

    void Report(std::chrono::duration<double> seconds) const {
        std::printf("%u scenes, %u calls, %u failures played, %u wrong, %.1f s, %.0f a second\n",
                    static_cast<unsigned>(m_plain.size()), m_calls, m_played, m_failed, seconds.count(),
                    m_played / seconds.count());
    }

  private:
    /// Each function as likely as any other, or each call: there are far more allocations than others.
    static Fault DrawFault(Random& random, const Plain& plain) {
        const std::vector<std::uint32_t>& counts = plain.counts;
        Fault fault;
        if (random.OneIn(2)) {
            std::uint32_t call = random.Below(std::accumulate(counts.begin(), counts.end(), 0U));
            for (; call >= counts[fault.function]; ++fault.function) {
                call -= counts[fault.function];
            }
        } else {
            do {
                fault.function = random.Below(static_cast<std::uint32_t>(counts.size()));
            } while (counts[fault.function] == 0);
        }
        fault.nth = 1 + random.Below(counts[fault.function]);
        fault.answer =
            random.Below(static_cast<std::uint32_t>(FailingFunctions()[fault.function].answers.size()));
        return fault;
    }

    void PlayCase(const Case& drawn, const Plain& plain) {
        if (EndsTheProcess(drawn)) {
            return;
        }
        ++m_played;
        Judge(drawn, Play(m_stage, drawn, &plain).Run());
    }

    /// A worker that cannot start the watcher throws what nobody catches, as it is meant to.
    static bool EndsTheProcess(const Case& drawn) {
        return std::ranges::any_of(drawn.faults, [](const Fault& fault) {
            return fault.nth % 2 == 0 &&
                   std::string_view(FailingFunctions()[fault.function].name) == "QueueUserWorkItem";
        });
    }

    void Judge(const Case& played, const std::optional<std::string>& wrong) {
        if (wrong) {
            ++m_failed;
            std::printf("%s\n  --play \"%s\"\n", wrong->c_str(), played.Text().c_str());
        }
    }

    Stage& m_stage;
    std::vector<std::pair<const Scene*, Plain>> m_plain;
    std::uint32_t m_calls = 0;
    std::uint32_t m_played = 0;
    std::uint32_t m_failed = 0;
};

Options ReadOptions(int count, wchar_t** words) {
    Options options;
    options.seed = LongRun::FreshSeed();
    LongRun::ReadOptions(count, words,
                         {{"--singles", LongRun::Into(options.singles)},
                          {"--pairs", LongRun::Into(options.pairs)},
                          {"--seed", LongRun::Into(options.seed)},
                          {"--scene", LongRun::Into(options.scene)},
                          {"--play", LongRun::Into(options.play)}},
                         [&](const std::string& word) {
                             options.every = options.every || word == "--every";
                             return word == "--every";
                         });
    return options;
}

int PlayAll(int count, wchar_t** words) {
    const Options options = ReadOptions(count, words);
    SetUnhandledExceptionFilter(&ReportCrash);
    std::set_terminate([] { GiveUp("an exception that nobody catches"); });
    CloseHandle(CreateThread(nullptr, 0, &WatchPlays, nullptr, 0, nullptr));
    bool passed = false;
    {
        Stage stage;
        Run run(stage);
        if (!options.play.empty()) {
            passed = run.PlayText(options.play);
            std::printf("%s\n", passed ? "right" : "wrong");
        } else {
            std::printf("--seed %llu\n", options.seed);
            const auto start = std::chrono::steady_clock::now();
            Random random(options.seed);
            run.PlayPlain(options.scene);
            if (options.every) {
                run.PlayEvery();
            }
            run.PlayDrawn(random, options.singles, 1);
            run.PlayDrawn(random, options.pairs, 2);
            run.Report(std::chrono::steady_clock::now() - start);
            passed = run.Passed();
        }
    }
    return passed && !testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed() ? 0 : 1;
}

}  // namespace
}  // namespace RandomEvents

/// Plays scenes in which calls fail (docs/notebook.md).
int wmain(int argc, wchar_t** argv) {
    return LongRun::RunProgram(argc, argv, &RandomEvents::PlayAll);
}
