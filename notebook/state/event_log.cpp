#include "notebook/state/event_log.h"

#include <algorithm>
#include <cstdio>

#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"

namespace Notebook {

std::vector<EventLogEntry> EventLogEntries() {
    LockedMachine machine;
    std::vector<EventLogEntry> entries;
    const std::uint64_t count = machine->eventLogCount;
    for (std::uint64_t i = count - std::min<std::uint64_t>(count, kEventLogCapacity); i < count; ++i) {
        entries.push_back(machine->eventLog[i % kEventLogCapacity]);
    }
    return entries;
}

std::vector<std::wstring> StringsOf(const EventLogEntry& entry) {
    std::vector<std::wstring> strings;
    for (const wchar_t* text = entry.strings; text < entry.strings + entry.letters;
         text += strings.back().size() + 1) {
        strings.emplace_back(text);
    }
    return strings;
}

std::vector<std::string> EventLogLines() {
    std::vector<std::string> lines;
    for (const EventLogEntry& entry : EventLogEntries()) {
        const SYSTEMTIME& at = entry.at;
        char time[32];
        std::snprintf(time, sizeof(time), "%04d/%02d/%02d %02d:%02d:%02d.%03d", at.wYear, at.wMonth, at.wDay,
                      at.wHour, at.wMinute, at.wSecond, at.wMilliseconds);
        std::string& line = lines.emplace_back(time);
        line += "|" + Narrow(entry.source) + "|" + std::to_string(entry.type) + "|" +
                std::to_string(entry.category) + "|" + std::to_string(entry.identifier);
        for (const std::wstring& text : StringsOf(entry)) {
            line += "|" + InQuotes(Narrow(text));
        }
    }
    return lines;
}

}  // namespace Notebook
