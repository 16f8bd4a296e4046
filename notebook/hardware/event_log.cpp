// The Windows event log. Under the executable every entry goes to the system as well, which may keep none;
// in a unit test's own process there is no system behind.

#include "notebook/hardware/event_log.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "notebook/hardware/call_scope.h"
#include "notebook/hardware/handle_table.h"
#include "notebook/hardware/import_table.h"
#include "notebook/hardware/start.h"
#include "notebook/state/event_log.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"

namespace Notebook {

namespace {

decltype(&::RegisterEventSourceW) g_realRegister = nullptr;
decltype(&::ReportEventW) g_realReport = nullptr;
decltype(&::DeregisterEventSource) g_realDeregister = nullptr;

/// The sources that are registered now, by name.
HandleTable<HANDLE, std::wstring>& Sources() {
    static auto& sources = *new HandleTable<HANDLE, std::wstring>(0xE70000);
    return sources;
}

}  // namespace

HANDLE WINAPI NotebookRegisterEventSource(LPCWSTR server, LPCWSTR source) {
    CallScope call(Call::RegisterEventSource);
    if (call.RefusedWithLastError()) {
        return nullptr;
    }
    HANDLE handle = nullptr;
    if (g_realRegister == nullptr) {
        handle = Sources().Open(source);
    } else if (handle = g_realRegister(server, source); handle != nullptr) {
        Sources().Add(handle, source);
    }
    if (handle != nullptr) {
        InterlockedIncrement(&SharedState::Get().Raw().ledger.eventSources);
    }
    return handle;
}

BOOL WINAPI NotebookReportEvent(HANDLE log, WORD type, WORD category, DWORD identifier, PSID user,
                                WORD stringCount, DWORD dataSize, LPCWSTR* strings, LPVOID data) {
    CallScope call(Call::ReportEvent);
    if (call.RefusedWithLastError()) {
        return FALSE;
    }
    {
        LockedMachine machine;
        EventLogEntry& entry = machine->eventLog[machine->eventLogCount++ % kEventLogCapacity];
        entry = {};
        GetLocalTime(&entry.at);
        CopyText(entry.source, Sources().Find(log).value_or(L"?"));
        entry.type = type;
        entry.category = category;
        entry.identifier = identifier;
        for (WORD i = 0; i < stringCount; ++i) {
            const std::wstring_view text = strings[i] == nullptr ? L"" : strings[i];
            const std::size_t room = std::size(entry.strings) - entry.letters;
            const std::size_t length = std::min(text.size(), room - std::min<std::size_t>(room, 1));
            std::copy_n(text.begin(), length, entry.strings + entry.letters);
            entry.letters += static_cast<std::uint32_t>(std::min(length + 1, room));
        }
    }
    return g_realReport == nullptr
               ? TRUE
               : g_realReport(log, type, category, identifier, user, stringCount, dataSize, strings, data);
}

BOOL WINAPI NotebookDeregisterEventSource(HANDLE log) {
    CallScope call(Call::DeregisterEventSource);
    if (call.RefusedWithLastError()) {
        return FALSE;
    }
    Ledger& ledger = SharedState::Get().Raw().ledger;
    if (Sources().Close(log)) {
        InterlockedDecrement(&ledger.eventSources);
    } else {
        InterlockedIncrement(&ledger.misuses);
    }
    return g_realDeregister == nullptr ? TRUE : g_realDeregister(log);
}

namespace {

/// What a reader of the log has not been given yet: the newest comes first.
std::vector<EventLogEntry> g_unread;

/// Seconds since 1970 of a local time.
DWORD SecondsOf(const SYSTEMTIME& local) {
    SYSTEMTIME utc{};
    FILETIME ticks{};
    TzSpecificLocalTimeToSystemTime(nullptr, &local, &utc);
    SystemTimeToFileTime(&utc, &ticks);
    const ULONGLONG sinceWindowsBegan = (ULONGLONG{ticks.dwHighDateTime} << 32U) | ticks.dwLowDateTime;
    return static_cast<DWORD>(sinceWindowsBegan / 10'000'000 - 11'644'473'600);
}

/// One entry as Windows gives it out: the head, the source, the computer, the texts, each terminated.
std::vector<BYTE> RecordOf(const EventLogEntry& entry) {
    EVENTLOGRECORD head{};
    std::wstring texts = std::wstring(entry.source) + L'\0' + L"NOTEBOOK" + L'\0';
    head.StringOffset = static_cast<DWORD>(sizeof(head) + texts.size() * sizeof(wchar_t));
    head.NumStrings = static_cast<WORD>(StringsOf(entry).size());
    texts.append(entry.strings, entry.letters);
    head.TimeGenerated = SecondsOf(entry.at);
    head.EventType = entry.type;
    head.EventID = entry.identifier;
    // In whole double words, the length again at the end.
    head.Length = static_cast<DWORD>((sizeof(head) + texts.size() * sizeof(wchar_t) + 2 * sizeof(DWORD) - 1) /
                                     sizeof(DWORD) * sizeof(DWORD));
    std::vector<BYTE> record(head.Length);
    std::memcpy(record.data(), &head, sizeof(head));
    std::memcpy(record.data() + sizeof(head), texts.data(), texts.size() * sizeof(wchar_t));
    std::memcpy(record.data() + head.Length - sizeof(DWORD), &head.Length, sizeof(DWORD));
    return record;
}

/// The Application log is what was reported; the System log is empty.
HANDLE WINAPI NotebookOpen(LPCWSTR, LPCWSTR name) {
    g_unread = std::wcscmp(name, L"Application") == 0 ? EventLogEntries() : std::vector<EventLogEntry>();
    return &g_unread;
}

BOOL WINAPI NotebookRead(HANDLE, DWORD, DWORD, LPVOID buffer, DWORD size, DWORD* read, DWORD* needed) {
    *read = 0;
    *needed = 0;
    if (g_unread.empty()) {
        SetLastError(ERROR_HANDLE_EOF);
        return FALSE;
    }
    while (!g_unread.empty()) {
        const std::vector<BYTE> record = RecordOf(g_unread.back());
        if (record.size() > size - *read) {
            break;
        }
        std::memcpy(static_cast<BYTE*>(buffer) + *read, record.data(), record.size());
        *read += static_cast<DWORD>(record.size());
        g_unread.pop_back();
    }
    return TRUE;
}

BOOL WINAPI NotebookClose(HANDLE) {
    return TRUE;
}

}  // namespace

void ReplaceEventLog() {
    ReplaceImport("OpenEventLogW", &NotebookOpen);
    ReplaceImport("ReadEventLogW", &NotebookRead);
    ReplaceImport("CloseEventLog", &NotebookClose);
    g_realRegister = ReplaceImport("RegisterEventSourceW", &NotebookRegisterEventSource);
    g_realReport = ReplaceImport("ReportEventW", &NotebookReportEvent);
    g_realDeregister = ReplaceImport("DeregisterEventSource", &NotebookDeregisterEventSource);
}

}  // namespace Notebook
