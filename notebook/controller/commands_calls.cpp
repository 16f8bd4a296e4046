// Commands about the platform calls that the service makes.

#include <windows.h>

#include <algorithm>
#include <cstdio>

#include "notebook/controller/conversation.h"
#include "notebook/state/calls.h"
#include "notebook/state/event_log.h"
#include "notebook/state/shared_state.h"

namespace Notebook {

namespace {

/// The rule that the words make of the one before.
CallRule RuleOf(const Arguments& given, const CallRule& before) {
    CallRule rule = before;
    if (given.Has("ok")) {
        return {};
    }
    if (given.Has("slow")) {
        rule.slowMs = given.Number("slow");
        return rule;
    }
    rule.kind = given.Has("fail") ? RuleKind::Fail : RuleKind::HoldUntilStopped;
    rule.left = given.Has("always") ? kForEver : given.Number("TIMES", 1);
    rule.error = given.Number("ERROR", 0);
    rule.skip = given.Has("1") ? 1 : given.Number("CALLS", 0);
    return rule;
}

void CallCommand(const Arguments& given) {
    const std::string& name = given.Text("NAME");
    const std::optional<Call> call = CallFromName(name);
    if (!call) {
        throw CommandError("no such call, or several: " + name + " (calls lists them)");
    }
    LockedMachine machine;
    CallRule& rule = machine->rules[static_cast<std::size_t>(*call)];
    rule = RuleOf(given, rule);
}

Answer Calls() {
    Answer answer;
    LockedMachine machine;
    for (std::size_t i = 0; i < kCommandCallCount; ++i) {
        const CallCount& count = machine->counts[i];
        answer.lines.push_back(std::string(CallName(static_cast<Call>(i))) + " calls=" +
                               std::to_string(count.calls) + " failed=" + std::to_string(count.failed));
    }
    return answer;
}

std::string TimeText(const Machine& machine, Micros at) {
    const std::uint64_t ticks =
        machine.epochTime + static_cast<std::uint64_t>(at - machine.epoch) * 10;  // of 100 ns
    const FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    FILETIME local{};
    SYSTEMTIME parts{};
    FileTimeToLocalFileTime(&time, &local);
    FileTimeToSystemTime(&local, &parts);
    char text[32];
    std::snprintf(text, sizeof(text), "%02d:%02d:%02d.%03d", parts.wHour, parts.wMinute, parts.wSecond,
                  parts.wMilliseconds);
    return text;
}

std::string TraceText(const Machine& machine, const TraceEntry& entry) {
    char numbers[96];
    std::snprintf(numbers, sizeof(numbers), " us=%lld took=%lld pid=%u tid=%08X result=0x%x ",
                  static_cast<long long>(entry.at - machine.epoch), static_cast<long long>(entry.took),
                  entry.process, entry.thread, entry.result);
    return TimeText(machine, entry.at) + numbers + std::string(CallName(entry.call)) + " " + entry.detail;
}

Answer TraceCommand(const Arguments& given) {
    Answer answer;
    LockedMachine machine;
    if (given.Has("show")) {
        const LONGLONG count = machine->traceCount;
        const auto capacity = static_cast<LONGLONG>(kTraceCapacity);
        for (LONGLONG i = std::max(LONGLONG{0}, count - capacity); i < count; ++i) {
            answer.lines.push_back(TraceText(*machine, machine->trace[i % capacity]));
        }
    } else {
        machine->traceOn = given.Has("on") ? 1 : 0;
    }
    return answer;
}

}  // namespace

const std::vector<Command>& CallCommands() {
    static const std::vector<Command> commands = {
        {"call",
         "NAME (fail (once|always | TIMES times) with ERROR [after (1 call | CALLS calls)] | "
         "until-stopped [once|always | TIMES times] [after (1 call | CALLS calls)] | slow MS | ok)",
         "What happens to the next calls of that name; until-stopped lets them come back when the service "
         "has reported that it stopped. The third fails by: fail once with 5 after 2 calls.",
         &CallCommand},
        {"calls", "", "All calls with their counts.", &Calls},
        {"trace", "on|off|show", "The devices' last calls with their time, thread and result.",
         &TraceCommand},
        {"event-log", "", "What the service wrote to the Windows event log.",
         [] {
             return Answer{"", EventLogLines()};
         }},
    };
    return commands;
}

}  // namespace Notebook
