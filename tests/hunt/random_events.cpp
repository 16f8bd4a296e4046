#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/handles.h"
#include "tests/hunt/command.h"
#include "tests/hunt/model.h"
#include "tests/hunt/stage.h"
#include "tests/hunt/turns.h"
#include "tests/support/long_run.h"

namespace RandomEvents {
namespace {

constexpr std::uint32_t kStepsOfADay = 40;

struct Options {
    std::uint32_t events = 10'000;
    std::uint64_t seed = 0;
    Way way = Way::kSettled;
    std::string play;
};

/// The commands of a step that have a sense, in their order: none starts the service a second time or behind
/// a stop, and none stops one that does not run.
std::vector<Command> Sensible(const Step& step, const Shape& shape, bool& isToRun) {
    std::vector<Command> all = step.commands;
    std::ranges::stable_sort(all, {}, &Command::at);
    std::vector<Command> commands;
    bool hasStopped = false;
    for (const Command& command : all) {
        const bool starts = command.verb == Verb::kStart;
        if (!command.FitsOn(shape) || (starts && (isToRun || hasStopped)) || (command.Stops() && !isToRun)) {
            continue;
        }
        hasStopped = hasStopped || command.Stops();
        isToRun = (isToRun || starts) && !command.Stops();
        commands.push_back(command);
    }
    return commands;
}

/// Why a run cannot be gone on with: threads hang, or the process is about to die.
[[noreturn]] void GiveUp(const Day& day, const std::string& why) {
    std::printf("%s\nnot shortened:\n%s", why.c_str(), day.Text().c_str());
    TerminateProcess(GetCurrentProcess(), 3);
    std::abort();
}

const Day* g_dayInPlay = nullptr;

LONG WINAPI ReportCrash(EXCEPTION_POINTERS* pointers) {
    GiveUp(g_dayInPlay != nullptr ? *g_dayInPlay : Day{}, LongRun::CrashText(*pointers));
}

/// One play of a day.
class Play {
  public:
    Play(Stage& stage, const Day& day) : m_stage(stage), m_day(day), m_model(day.shape) {}

    /// What is not as the rules want it; nothing: all is. Brings the stage to rest.
    std::optional<std::string> Run() {
        g_dayInPlay = &m_day;
        m_stage.Begin(m_day.shape);
        std::optional<std::string> failure;
        for (std::size_t i = 0; i < m_day.steps.size() && !failure; ++i) {
            failure = Take(m_day.steps[i]);
            m_steps = i + 1;
        }
        if (m_isToRun) {
            const std::optional<std::string> last = Take({{ReadCommand("stop")}});
            failure = failure ? failure : last;
        }
        return failure;
    }

    [[nodiscard]] std::uint32_t Events() const { return m_events; }
    /// How many steps were taken, that of the failure included.
    [[nodiscard]] std::size_t Steps() const { return m_steps; }

  private:
    std::optional<std::string> Take(const Step& step) {
        m_model.BeginStep(step.isFine);
        const std::vector<Command> commands = Sensible(step, m_day.shape, m_isToRun);
        for (const Command& command : commands) {
            m_stage.Do(command);
            m_model.Do(command);
            ++m_events;
        }
        if (!m_stage.Settle(step)) {
            GiveUp(m_day, m_stage.Crew().Stuck());
        }
        std::optional<std::string> failure = Compare();
        if (std::ranges::any_of(commands, &Command::Stops)) {
            if (m_stage.Crew().IsAtWork(Who::kWatcher)) {
                GiveUp(m_day, "the watcher does not see the stop\n" + failure.value_or(""));
            }
            m_stage.EndProcess();
            m_model.EndProcess();
            const std::string leftovers = m_stage.Leftovers();
            failure = failure || leftovers.empty() ? failure : leftovers;
        }
        return failure;
    }

    std::optional<std::string> Compare() {
        const std::vector<Who>& taken = dynamic_cast<const Turns&>(m_stage.Crew()).Taken();
        for (std::size_t i = 0; i < taken.size(); ++i) {
            if (!m_model.Take(taken[i])) {
                return std::string("turn ") + std::to_string(i) + " of " + std::to_string(taken.size()) +
                       " was " + NameOf(taken[i]) + "'s, who has nothing to do by the rules\n" + Both();
            }
        }
        if (const std::optional<Who> who = m_model.NotAtRest()) {
            return std::string("by the rules there is still something to do for ") + NameOf(*who) + "\n" +
                   Both();
        }
        if (m_stage.See() != m_model.See()) {
            return Both();
        }
        const std::string complaint = m_stage.Complaint();
        return complaint.empty() ? std::nullopt : std::optional(complaint);
    }

    std::string Both() const {
        return "  is        " + m_stage.See().Text() + "\n  should be " + m_model.See().Text();
    }

    Stage& m_stage;
    const Day& m_day;
    Model m_model;
    bool m_isToRun = false;
    std::uint32_t m_events = 0;
    std::size_t m_steps = 0;
};

bool Fails(Stage& stage, const Day& day) {
    return Play(stage, day).Run().has_value();
}

/// Without what is not needed for a failure, as far as leaving out one thing after the other leads.
class Shrinking {
  public:
    Shrinking(Stage& stage, Day day) : m_stage(stage), m_day(std::move(day)) {}

    Day Run() {
        bool more = true;
        while (more) {
            more = DropSteps();
            for (std::size_t i = 0; i < m_day.steps.size(); ++i) {
                more = Simplify(i) || more;
            }
        }
        return m_day;
    }

  private:
    template <class Change>
    bool Try(Change change) {
        Day day = m_day;
        change(day);
        const bool fails = Fails(m_stage, day);
        if (fails) {
            m_day = std::move(day);
        }
        return fails;
    }

    bool DropSteps() {
        bool dropped = false;
        for (std::size_t length = std::max<std::size_t>(m_day.steps.size() / 2, 1); length != 0;
             length /= 2) {
            for (std::size_t first = 0; first + length <= m_day.steps.size();) {
                const bool can = Try([&](Day& day) {
                    const auto begin = day.steps.begin() + static_cast<std::ptrdiff_t>(first);
                    day.steps.erase(begin, begin + static_cast<std::ptrdiff_t>(length));
                });
                dropped = dropped || can;
                first += can ? 0 : length;
            }
        }
        return dropped;
    }

    bool Simplify(std::size_t step) {
        bool simpler = false;
        for (std::size_t i = 0;
             m_day.steps[step].commands.size() > 1 && i < m_day.steps[step].commands.size();) {
            const bool can = Try([&](Day& day) {
                std::vector<Command>& commands = day.steps[step].commands;
                commands.erase(commands.begin() + static_cast<std::ptrdiff_t>(i));
            });
            simpler = simpler || can;
            i += can ? 0 : 1;
        }
        for (std::size_t i = 0; i < m_day.steps[step].commands.size(); ++i) {
            if (m_day.steps[step].commands[i].at != 0) {
                simpler = Try([&](Day& day) { day.steps[step].commands[i].at = 0; }) || simpler;
            }
        }
        if (m_day.steps[step].isFine) {
            simpler = Try([&](Day& day) { day.steps[step].isFine = false; }) || simpler;
        }
        if (m_day.steps[step].seed != 1) {
            simpler = Try([&](Day& day) { day.steps[step].seed = 1; }) || simpler;
        }
        return simpler;
    }

    Stage& m_stage;
    Day m_day;
};

void Report(Stage& stage, const Day& day, const std::string& failure) {
    std::printf("%s\n", failure.c_str());
    const Day shortest = Shrinking(stage, day).Run();
    Play again(stage, shortest);
    std::printf(
        "\nthe shortest that shows it (--play FILE plays it):\n%s\nand what is then wrong:\n%s\n\n%s\n",
        shortest.Text().c_str(), again.Run().value_or("nothing").c_str(), shortest.ScenarioText().c_str());
}

/// What the process holds. (Wine does not count handles: the lowest free one tells.)
struct Size {
    std::uintptr_t handles = 0;
    std::size_t kilobytes = 0;

    static Size Now() {
        Size size;
        const Platform::UniqueHandle handle(CreateEventW(nullptr, FALSE, FALSE, nullptr));
        size.handles = reinterpret_cast<std::uintptr_t>(handle.Get()) / sizeof(DWORD);
        MEMORY_BASIC_INFORMATION region{};
        for (const char* at = nullptr; VirtualQuery(at, &region, sizeof(region)) != 0;
             at = static_cast<const char*>(region.BaseAddress) + region.RegionSize) {
            size.kilobytes +=
                region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize / 1024 : 0;
        }
        return size;
    }
};

bool PlayDays(Stage& stage, const Options& options) {
    const auto start = std::chrono::steady_clock::now();
    std::uint32_t events = 0;
    std::optional<Size> atTenth;
    for (std::uint64_t day = 0; day == 0 || events < options.events; ++day) {
        Random random(options.seed + day);
        const Day drawn = DrawDay(random, options.way, kStepsOfADay);
        Play play(stage, drawn);
        if (const std::optional<std::string> failure = play.Run()) {
            std::printf("after %u events (the day of --seed %llu):\n", events + play.Events(),
                        options.seed + day);
            Day begun = drawn;
            begun.steps.resize(play.Steps());
            Report(stage, begun, *failure);
            return false;
        }
        events += play.Events();
        if (!atTenth && events >= options.events / 10) {
            atTenth = Size::Now();
        }
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    const Size atEnd = Size::Now();
    std::printf(
        "%u events in %.1f s, %.0f a second; handles %llu, then %llu; memory %llu KB, then %llu KB\n", events,
        seconds.count(), events / seconds.count(), static_cast<unsigned long long>(atTenth->handles),
        static_cast<unsigned long long>(atEnd.handles), static_cast<unsigned long long>(atTenth->kilobytes),
        static_cast<unsigned long long>(atEnd.kilobytes));
    return true;
}

bool PlayFile(Stage& stage, const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    std::stringstream text;
    text << file.rdbuf();
    const Day day = ReadDay(text.str());
    const std::optional<std::string> failure = Play(stage, day).Run();
    std::printf("%s\n", failure.value_or("as the rules want it").c_str());
    return !failure;
}

Options ReadOptions(int count, wchar_t** words) {
    Options options;
    options.seed = LongRun::FreshSeed();
    LongRun::ReadOptions(count, words,
                         {{"--events", LongRun::Into(options.events)},
                          {"--seed", LongRun::Into(options.seed)},
                          {"--play", LongRun::Into(options.play)}},
                         [&](const std::string& word) {
                             options.way = word == "--overlapping" ? Way::kOverlapping : options.way;
                             return word == "--overlapping";
                         });
    return options;
}

int Run(int count, wchar_t** words) {
    const Options options = ReadOptions(count, words);
    SetUnhandledExceptionFilter(&ReportCrash);
    bool passed = false;
    {
        Stage stage;
        if (options.play.empty()) {
            std::printf("--seed %llu%s\n", options.seed,
                        options.way == Way::kOverlapping ? " --overlapping" : "");
            passed = PlayDays(stage, options);
        } else {
            passed = PlayFile(stage, options.play);
        }
    }
    return passed && !testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed() ? 0 : 1;
}

}  // namespace
}  // namespace RandomEvents

/// Plays random events on the service, or those of a file (docs/notebook.md).
int wmain(int argc, wchar_t** argv) {
    return LongRun::RunProgram(argc, argv, &RandomEvents::Run);
}
