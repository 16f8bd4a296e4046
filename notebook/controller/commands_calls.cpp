// Commands about the platform calls that the service makes.

#include <windows.h>

#include <cstdio>

#include "notebook/controller/conversation.h"
#include "notebook/state/calls.h"
#include "notebook/state/event_log.h"
#include "notebook/state/shared_state.h"

namespace Notebook {

namespace {

Call TakeCall(Words& words) {
    const std::string name = words.Take("name of a call");
    const std::optional<Call> call = CallFromName(name);
    if (!call) {
        throw CommandError("no such call, or several: " + name + " (calls lists them)");
    }
    return *call;
}

/// `once`, `always` or `N times`.
std::uint32_t TakeTimes(Words& words) {
    if (words.TakeIf("once")) {
        return 1;
    }
    if (words.TakeIf("always")) {
        return kForEver;
    }
    const std::uint32_t times = words.TakeNumber("once, always or N times");
    words.TakeThe("times");
    return times;
}

/// `after N calls`, or nothing.
std::uint32_t TakeSkipped(Words& words) {
    if (!words.TakeIf("after")) {
        return 0;
    }
    const std::uint32_t calls = words.TakeNumber("calls");
    words.TakeThe(calls == 1 ? "call" : "calls");
    return calls;
}

CallRule TakeRule(Words& words, const CallRule& before) {
    CallRule rule = before;
    const std::string what = words.Take("fail, slow, hold, until-stopped, release or ok");
    if (what == "ok") {
        return {};
    }
    if (what == "release") {
        rule.kind = RuleKind::None;
        return rule;
    }
    if (what == "slow") {
        rule.slowMs = words.TakeNumber("milliseconds");
        return rule;
    }
    if (what == "fail") {
        rule.kind = RuleKind::Fail;
        rule.left = TakeTimes(words);
        words.TakeThe("with");
        rule.error = words.TakeNumber("error");
    } else if (what == "hold" || what == "until-stopped") {
        rule.kind = what == "hold" ? RuleKind::Hold : RuleKind::HoldUntilStopped;
        rule.left = words.Empty() || words.Peek() == "after" ? 1 : TakeTimes(words);
    } else {
        throw CommandError("not understood: call ... " + what);
    }
    rule.skip = TakeSkipped(words);
    return rule;
}

Answer CallCommand(Words& words) {
    const auto index = static_cast<std::size_t>(TakeCall(words));
    LockedMachine machine;
    machine->rules[index] = TakeRule(words, machine->rules[index]);
    return {};
}

Answer Calls(Words& words) {
    const bool clear = words.TakeIf("clear");
    Answer answer;
    LockedMachine machine;
    for (std::size_t i = 0; i < kCommandCallCount; ++i) {
        CallCount& count = machine->counts[i];
        answer.lines.push_back(std::string(CallName(static_cast<Call>(i))) + " calls=" +
                               std::to_string(count.calls) + " failed=" + std::to_string(count.failed));
        if (clear) {
            count = {};
        }
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

Answer TraceCommand(Words& words) {
    const std::string what = words.Take("on, off, clear or show");
    Answer answer;
    LockedMachine machine;
    if (what == "on" || what == "off") {
        machine->traceOn = what == "on" ? 1 : 0;
    } else if (what == "clear") {
        machine->traceCount = 0;
    } else if (what == "show") {
        const LONGLONG count = machine->traceCount;
        const auto capacity = static_cast<LONGLONG>(kTraceCapacity);
        for (LONGLONG i = count > capacity ? count - capacity : 0; i < count; ++i) {
            answer.lines.push_back(TraceText(*machine, machine->trace[i % capacity]));
        }
    } else {
        throw CommandError("not understood: trace " + what);
    }
    return answer;
}

Answer EventLog(Words& words) {
    if (words.TakeIf("clear")) {
        ClearEventLog();
        return {};
    }
    return {"", EventLogLines()};
}

}  // namespace

const std::vector<Command>& CallCommands() {
    static const std::vector<Command> commands = {
        {"call",
         "NAME fail once|always|N times with ERROR [after N calls] | slow MS | release | ok | "
         "hold|until-stopped [once|always|N times] [after N calls]",
         "What happens to the next calls of that name; until-stopped lets them come back when the service "
         "has reported that it stopped.",
         &CallCommand},
        {"calls", "[clear]", "All calls with their counts.", &Calls},
        {"trace", "on|off|clear|show", "Every platform call with its time, thread and result.",
         &TraceCommand},
        {"event-log", "[clear]", "What the service wrote to the Windows event log.", &EventLog},
    };
    return commands;
}

}  // namespace Notebook
