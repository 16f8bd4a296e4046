#include "notebook/controller/conversation.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <iostream>
#include <list>
#include <thread>

#include "notebook/controller/status.h"
#include "notebook/state/shared_state.h"

namespace Notebook {

namespace {

constexpr DWORD kPollMs = 5;
constexpr std::uint32_t kDefaultWaitMs = 10'000;
constexpr std::uint32_t kDefaultQuietMs = 200;

bool g_quit = false;

/// A command that runs while others are given.
struct BackgroundCommand {
    std::string line;
    std::string answer;
    std::vector<std::string> lines;
    std::atomic<bool> answered = false;  ///< `answer` and `lines` stand
    std::thread thread;
};

std::list<BackgroundCommand>& Background() {
    static std::list<BackgroundCommand> commands;
    return commands;
}

const Command* FindCommand(std::string_view name) {
    for (const auto* group :
         {&DeviceCommands(), &SystemCommands(), &CallCommands(), &ConversationCommands()}) {
        for (const Command& command : *group) {
            if (command.name == name) {
                return &command;
            }
        }
    }
    return nullptr;
}

/// Carries out a command; returns its last line.
std::string Execute(Words& words, std::vector<std::string>& lines, bool& done) {
    try {
        const std::string name = words.Take("a command");
        const Command* const command = FindCommand(name);
        if (command == nullptr) {
            throw CommandError("no such command: " + name + " (try help)");
        }
        Answer answer = command->run(words);
        words.End();
        if (!command->looksOnly) {
            // What the command caused may still be on its way to the service.
            InterlockedExchange64(&SharedState::Get().OwnActivity().lastAt, Now());
        }
        lines = std::move(answer.lines);
        done = true;
        return answer.text.empty() ? "OK" : "OK " + answer.text;
    } catch (const std::exception& error) {
        done = false;
        return std::string("ERROR ") + error.what();
    }
}

void Print(const std::vector<std::string>& lines, const std::string& last) {
    for (const std::string& line : lines) {
        std::printf("| %s\n", line.c_str());
    }
    std::printf("%s\n", last.c_str());
    std::fflush(stdout);
}

Answer Status(Words& words) {
    words.End();
    return {StatusLine(), {}};
}

Answer Get(Words& words) {
    std::string text;
    Snapshot snapshot;
    while (!words.Empty()) {
        const std::string key = words.Take("key");
        text += (text.empty() ? "" : " ") + key + "=" + Quoted(StatusValue(snapshot, key));
    }
    return {text, {}};
}

/// `within MS` at the end of a command.
std::uint32_t TakeWithin(Words& words) {
    return words.TakeIf("within") ? words.TakeNumber("milliseconds") : kDefaultWaitMs;
}

std::string TookText(Micros start) {
    return "took=" + std::to_string((Now() - start) / kMicrosPerMilli);
}

Answer Wait(Words& words) {
    std::vector<Condition> conditions;
    while (!words.Empty() && words.Peek() != "within") {
        conditions.push_back(ParseCondition(words.Take("condition")));
    }
    const std::uint32_t within = TakeWithin(words);
    const Micros start = Now();
    while (true) {
        Snapshot snapshot;
        std::string values;
        bool met = true;
        for (const Condition& condition : conditions) {
            const std::string value = StatusValue(snapshot, condition.key);
            values += " " + condition.key + "=" + Quoted(value);
            met = met && (value == condition.value) == condition.equal;
        }
        if (met) {
            return {TookText(start), {}};
        }
        if (Now() - start >= Micros{within} * kMicrosPerMilli) {
            throw CommandError("not within " + std::to_string(within) + " ms:" + values);
        }
        Sleep(kPollMs);
    }
}

Answer Settle(Words& words) {
    const std::uint32_t quiet = words.TakeIf("quiet") ? words.TakeNumber("milliseconds") : kDefaultQuietMs;
    const std::uint32_t within = TakeWithin(words);
    const Micros start = Now();
    while (!IsSettled(Micros{quiet} * kMicrosPerMilli)) {
        if (Now() - start >= Micros{within} * kMicrosPerMilli) {
            throw CommandError("not settled within " + std::to_string(within) + " ms: " + ActivityText());
        }
        Sleep(kPollMs);
    }
    return {TookText(start), {}};
}

Answer Pause(Words& words) {
    Sleep(words.TakeNumber("milliseconds"));
    return {};
}

Answer RunInBackground(Words& words) {
    const std::string line = words.Rest();
    while (!words.Empty()) {
        words.Take("word");
    }
    BackgroundCommand& command = Background().emplace_back();
    command.line = line;
    command.thread = std::thread([&command] {
        bool done = false;
        Words parsed(command.line);
        command.answer = Execute(parsed, command.lines, done);
        command.answered = true;
    });
    return {};
}

Answer Answers(Words& words) {
    words.End();
    Answer answer;
    for (const BackgroundCommand& command : Background()) {
        answer.lines.push_back(command.line + ": " +
                               (command.answered ? command.answer : std::string("no answer yet")));
    }
    return answer;
}

Answer Join(Words& words) {
    words.End();
    Answer answer;
    std::string failures;
    for (BackgroundCommand& command : Background()) {
        command.thread.join();
        const std::string shown = command.line + ": " + command.answer;
        answer.lines.push_back(shown);
        answer.lines.insert(answer.lines.end(), command.lines.begin(), command.lines.end());
        if (command.answer.compare(0, 2, "OK") != 0) {
            failures += (failures.empty() ? "" : "; ") + shown;
        }
    }
    Background().clear();
    if (!failures.empty()) {
        throw CommandError(failures);
    }
    return answer;
}

Answer Quit(Words& words) {
    words.End();
    g_quit = true;
    return {};
}

Answer Help(Words& words) {
    Answer answer;
    const std::string wanted = words.Empty() ? "" : words.Take("command");
    for (const auto* group :
         {&DeviceCommands(), &SystemCommands(), &CallCommands(), &ConversationCommands()}) {
        for (const Command& command : *group) {
            if (wanted.empty() || wanted == command.name) {
                answer.lines.push_back(std::string(command.name) + " " + std::string(command.usage));
                answer.lines.push_back("      " + std::string(command.meaning));
            }
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
        {"status", "", "Everything at a glance: key=value pairs in one line.", &Status, true},
        {"get", "KEY...", "Some of the pairs of status, and handles: how many the service holds.", &Get,
         true},
        {"wait", "KEY=VALUE|KEY!=VALUE... [within MS]", "Waits until all of it is so (10 s unless told).",
         &Wait, true},
        {"settle", "[quiet MS] [within MS]",
         "Waits until every event is handled, nothing is due and no call was made for so long (200 ms).",
         &Settle, true},
        {"sleep", "MS", "Lets time pass.", &Pause, true},
        {"background", "COMMAND...", "Carries a command out while others are given; join collects it.",
         &RunInBackground},
        {"answers", "", "What the commands in the background have answered so far.", &Answers, true},
        {"join", "", "Waits for the commands in the background and shows their answers.", &Join, true},
        {"help", "[COMMAND]", "This.", &Help, true},
        {"quit", "", "Ends the conversation; the notebook stays as it is.", &Quit},
    };
    return commands;
}

bool Perform(Words words) {
    if (words.Empty()) {
        return true;
    }
    std::vector<std::string> lines;
    bool done = false;
    const std::string last = Execute(words, lines, done);
    Print(lines, last);
    return done;
}

void Converse() {
    std::string line;
    while (!g_quit && std::getline(std::cin, line)) {
        try {
            Perform(Words(line));
        } catch (const CommandError& error) {
            Print({}, std::string("ERROR ") + error.what());
        }
    }
}

void JoinBackground() {
    for (BackgroundCommand& command : Background()) {
        command.thread.join();
        Print(command.lines, command.line + ": " + command.answer);
    }
    Background().clear();
}

}  // namespace Notebook
