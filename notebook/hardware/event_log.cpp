// The Windows event log. Under the executable every entry goes to the system as well, which may keep none,
// and a copy stays here; in a unit test's own process there is no system behind.

#include "notebook/hardware/event_log.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>
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

std::string Quoted(const wchar_t* text) {
    std::string quoted = "\"";
    for (const char letter : Narrow(text == nullptr ? L"" : text)) {
        switch (letter) {
            case '\r':
                quoted += "\\r";
                break;
            case '\n':
                quoted += "\\n";
                break;
            case '"':
            case '\\':
                quoted += '\\';
                quoted += letter;
                break;
            default:
                quoted += letter;
        }
    }
    return quoted + '"';
}

std::string TimeText() {
    SYSTEMTIME time{};
    GetLocalTime(&time);
    char text[32];
    std::snprintf(text, sizeof(text), "%04d/%02d/%02d %02d:%02d:%02d.%03d", time.wYear, time.wMonth,
                  time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
    return text;
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
    std::string line = TimeText() + "|" + Narrow(Sources().Find(log).value_or(L"?")) + "|" +
                       std::to_string(type) + "|" + std::to_string(category) + "|" +
                       std::to_string(identifier);
    for (WORD i = 0; i < stringCount; ++i) {
        line += '|';
        line += Quoted(strings[i]);
    }
    AppendEventLog(line);
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

/// What a reader of the log has not been given yet: lines, from the newest back.
std::vector<std::string> g_unread;

std::vector<std::wstring> Fields(const std::string& line) {
    std::vector<std::wstring> fields(1);
    bool isQuoted = false;
    const std::wstring wide = Widen(line);
    for (std::size_t i = 0; i < wide.size(); ++i) {
        if (wide[i] == L'\\' && i + 1 < wide.size()) {
            ++i;
            fields.back() += wide[i] == L'r' ? L'\r' : wide[i] == L'n' ? L'\n' : wide[i];
        } else if (wide[i] == L'"') {
            isQuoted = !isQuoted;
        } else if (wide[i] == L'|' && !isQuoted) {
            fields.emplace_back();
        } else {
            fields.back() += wide[i];
        }
    }
    return fields;
}

/// Seconds since 1970 of a line's time.
DWORD SecondsOf(const std::wstring& text) {
    SYSTEMTIME local{};
    SYSTEMTIME utc{};
    FILETIME ticks{};
    std::swscanf(text.c_str(), L"%hu/%hu/%hu %hu:%hu:%hu", &local.wYear, &local.wMonth, &local.wDay,
                 &local.wHour, &local.wMinute, &local.wSecond);
    TzSpecificLocalTimeToSystemTime(nullptr, &local, &utc);
    SystemTimeToFileTime(&utc, &ticks);
    const ULONGLONG sinceWindowsBegan = (ULONGLONG{ticks.dwHighDateTime} << 32U) | ticks.dwLowDateTime;
    return static_cast<DWORD>(sinceWindowsBegan / 10'000'000 - 11'644'473'600);
}

/// One entry as Windows gives it out: the head, the source, the computer, the texts, each terminated.
std::vector<BYTE> RecordOf(const std::string& line) {
    constexpr std::size_t kFieldsBeforeTexts = 5;
    const std::vector<std::wstring> fields = Fields(line);
    EVENTLOGRECORD head{};
    std::wstring texts = fields[1] + L'\0' + L"NOTEBOOK" + L'\0';
    head.StringOffset = static_cast<DWORD>(sizeof(head) + texts.size() * sizeof(wchar_t));
    for (std::size_t i = kFieldsBeforeTexts; i < fields.size(); ++i) {
        texts += fields[i] + L'\0';
        ++head.NumStrings;
    }
    head.TimeGenerated = SecondsOf(fields[0]);
    head.EventType = static_cast<WORD>(std::stoul(fields[2]));
    head.EventID = static_cast<DWORD>(std::stoul(fields[4]));
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
    g_unread = std::wcscmp(name, L"Application") == 0 ? EventLogLines() : std::vector<std::string>();
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
