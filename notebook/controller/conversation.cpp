#include "notebook/controller/conversation.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iostream>
#include <list>
#include <thread>

#include "notebook/controller/status.h"
#include "notebook/state/shared_state.h"

namespace Notebook {

namespace {

constexpr DWORD kAwaitPollMs = 20;
constexpr std::uint32_t kDefaultWaitMs = 10'000;
constexpr std::uint32_t kDefaultQuietMs = 200;

bool g_quit = false;

/// All of them, in the order of the help.
std::vector<const Command*> AllCommands() {
    std::vector<const Command*> all;
    for (const auto* group :
         {&DeviceCommands(), &SystemCommands(), &CallCommands(), &ConversationCommands()}) {
        for (const Command& command : *group) {
            all.push_back(&command);
        }
    }
    return all;
}

/// What a command has answered.
struct Outcome {
    bool isDone = false;
    std::string last;
    std::vector<std::string> lines;
};

Outcome Execute(const Words& words) {
    try {
        const std::vector<const Command*> all = AllCommands();
        const auto found =
            std::ranges::find_if(all, [&](const Command* command) { return command->name == words.front(); });
        if (found == all.end()) {
            throw CommandError("no such command: " + words.front() + " (try help)");
        }
        const Command& command = **found;
        Answer answer = command.run(Arguments(command.name, command.usage, {words.begin() + 1, words.end()}));
        if (!command.looksOnly) {
            // What the command caused may still be on its way to the service.
            InterlockedExchange64(&SharedState::Get().OwnActivity().lastAt, Now());
        }
        return {true, answer.text.empty() ? "OK" : "OK " + answer.text, std::move(answer.lines)};
    } catch (const std::exception& error) {
        return {false, std::string("ERROR ") + error.what(), {}};
    }
}

/// A command that runs while others are given.
struct BackgroundCommand {
    std::string line;
    Outcome outcome;
    std::atomic<bool> answered = false;  ///< `outcome` stands
    std::thread thread;

    std::string Shown() const { return line + ": " + (answered ? outcome.last : "no answer yet"); }
};

std::list<BackgroundCommand>& Background() {
    static std::list<BackgroundCommand> commands;
    return commands;
}

void Print(const std::vector<std::string>& lines, const std::string& last) {
    for (const std::string& line : lines) {
        std::printf("| %s\n", line.c_str());
    }
    std::printf("%s\n", last.c_str());
    std::fflush(stdout);
}

Answer Get(const Arguments& given) {
    std::string text;
    Snapshot snapshot;
    for (const std::string& key : given.All("KEY")) {
        text += (text.empty() ? "" : " ") + key + "=" + Quoted(StatusValue(snapshot, key));
    }
    return {text, {}};
}

/// Polls until `look` has nothing to say; what it says is the error when `within MS` is over.
template <class Function>
Answer Await(const Arguments& given, const char* what, Function look) {
    const std::uint32_t within = given.Number("within", kDefaultWaitMs);
    const Micros start = Now();
    for (std::string lacking = look(); !lacking.empty(); lacking = look()) {
        if (Now() - start >= Micros{within} * kMicrosPerMilli) {
            throw CommandError(what + std::string(" within ") + std::to_string(within) + " ms: " + lacking);
        }
        Sleep(kAwaitPollMs);
    }
    return {"took=" + std::to_string((Now() - start) / kMicrosPerMilli), {}};
}

Answer Wait(const Arguments& given) {
    std::vector<Condition> conditions;
    for (const std::string& text : given.All("CONDITION")) {
        conditions.push_back(ParseCondition(text));
    }
    return Await(given, "not", [&] {
        Snapshot snapshot;
        std::string values;
        bool met = true;
        for (const Condition& condition : conditions) {
            const std::string value = StatusValue(snapshot, condition.key);
            values += (values.empty() ? "" : " ") + condition.key + "=" + Quoted(value);
            met = met && (value == condition.value) == condition.equal;
        }
        return met ? std::string() : values;
    });
}

Answer Settle(const Arguments& given) {
    const Micros quiet = Micros{given.Number("quiet", kDefaultQuietMs)} * kMicrosPerMilli;
    return Await(given, "not settled", [&] { return Unsettled(quiet); });
}

void RunInBackground(const Arguments& given) {
    BackgroundCommand& command = Background().emplace_back();
    for (const std::string& word : given.All("COMMAND")) {
        command.line += (command.line.empty() ? "" : " ") + Quoted(word);
    }
    command.thread = std::thread([&command, words = given.All("COMMAND")] {
        command.outcome = Execute(words);
        command.answered = true;
    });
}

Answer Answers() {
    Answer answer;
    for (const BackgroundCommand& command : Background()) {
        answer.lines.push_back(command.Shown());
    }
    return answer;
}

Answer Join() {
    Answer answer;
    std::string failures;
    for (BackgroundCommand& command : Background()) {
        command.thread.join();
        const Outcome& outcome = command.outcome;
        answer.lines.push_back(command.Shown());
        answer.lines.insert(answer.lines.end(), outcome.lines.begin(), outcome.lines.end());
        if (!outcome.isDone) {
            failures += (failures.empty() ? "" : "; ") + command.Shown();
        }
    }
    Background().clear();
    if (!failures.empty()) {
        throw CommandError(failures);
    }
    return answer;
}

Answer Help(const Arguments& given) {
    Answer answer;
    const std::string wanted = given.Text("COMMAND", "");
    for (const Command* const command : AllCommands()) {
        if (wanted.empty() || wanted == command->name) {
            answer.lines.push_back(std::string(command->name) + " " + std::string(command->usage));
            answer.lines.push_back("      " + std::string(command->meaning));
        }
    }
    if (answer.lines.empty()) {
        throw CommandError("no such command: " + wanted);
    }
    return answer;
}

}  // namespace

const std::vector<Command>& ConversationCommands() {
    static const std::vector<Command> commands = {
        {"status", "", "Everything at a glance: key=value pairs in one line.",
         [] {
             return Answer{StatusLine(), {}};
         },
         true},
        {"get", "KEY...", "Some of the pairs of status, and handles: how many the service holds.", &Get,
         true},
        {"wait", "CONDITION... [within MS]",
         "Waits until all of it is so, each KEY=VALUE or KEY!=VALUE (10 s unless told).", &Wait, true},
        {"settle", "[quiet MS] [within MS]",
         "Waits until every event is handled, nothing is due and no call was made for so long (200 ms).",
         &Settle, true},
        {"sleep", "MS", "Lets time pass.", [](const Arguments& given) { Sleep(given.Number("MS")); }, true},
        {"background", "COMMAND...", "Carries a command out while others are given; join collects it.",
         &RunInBackground},
        {"answers", "", "What the commands in the background have answered so far.", &Answers, true},
        {"join", "", "Waits for the commands in the background and shows their answers.", &Join, true},
        {"help", "[COMMAND]", "This.", &Help, true},
        {"quit", "", "Ends the conversation; the notebook stays as it is.", [] { g_quit = true; }},
    };
    return commands;
}

bool Perform(const Words& words) {
    if (words.empty()) {
        return true;
    }
    const Outcome outcome = Execute(words);
    Print(outcome.lines, outcome.last);
    return outcome.isDone;
}

void Converse() {
    std::string line;
    while (!g_quit && std::getline(std::cin, line)) {
        try {
            Perform(SplitWords(line));
        } catch (const CommandError& error) {
            Print({}, std::string("ERROR ") + error.what());
        }
    }
}

void JoinBackground() {
    for (BackgroundCommand& command : Background()) {
        command.thread.join();
        Print(command.outcome.lines, command.Shown());
    }
    Background().clear();
}

}  // namespace Notebook
