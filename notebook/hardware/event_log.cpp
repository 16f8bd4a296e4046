// The Windows event log, put in place of the executable's imports: every entry goes to the system
// as well, which may keep none, and a copy stays here.

#include "notebook/state/event_log.h"

#include <windows.h>

#include <cstdio>
#include <map>
#include <string>

#include "notebook/hardware/call_scope.h"
#include "notebook/hardware/deliveries.h"
#include "notebook/hardware/import_table.h"
#include "notebook/hardware/start.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"

namespace Notebook {

namespace {

decltype(&::RegisterEventSourceW) g_realRegister = nullptr;
decltype(&::ReportEventW) g_realReport = nullptr;
decltype(&::DeregisterEventSource) g_realDeregister = nullptr;

/// Names of the sources that are registered now.
class Sources {
  public:
    static Sources& Get() {
        static Sources& sources = *new Sources();
        return sources;
    }
    void Add(HANDLE handle, const wchar_t* name) {
        const ExclusiveLock lock(m_lock);
        m_names[handle] = name;
    }
    void Remove(HANDLE handle) {
        const ExclusiveLock lock(m_lock);
        m_names.erase(handle);
    }
    std::wstring Name(HANDLE handle) {
        const ExclusiveLock lock(m_lock);
        const auto found = m_names.find(handle);
        return found == m_names.end() ? L"?" : found->second;
    }

  private:
    SRWLOCK m_lock = SRWLOCK_INIT;
    std::map<HANDLE, std::wstring> m_names;
};

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

HANDLE WINAPI NotebookRegister(LPCWSTR server, LPCWSTR source) {
    CallScope call(Call::RegisterEventSource);
    if (call.Refused()) {
        SetLastError(call.Error());
        return nullptr;
    }
    const HANDLE handle = g_realRegister(server, source);
    if (handle != nullptr) {
        Sources::Get().Add(handle, source);
        InterlockedIncrement(&SharedState::Get().Raw().ledger.eventSources);
    }
    return handle;
}

BOOL WINAPI NotebookReport(HANDLE log, WORD type, WORD category, DWORD identifier, PSID user,
                           WORD stringCount, DWORD dataSize, LPCWSTR* strings, LPVOID data) {
    CallScope call(Call::ReportEvent);
    if (call.Refused()) {
        SetLastError(call.Error());
        return FALSE;
    }
    std::string line = TimeText() + "|" + Narrow(Sources::Get().Name(log)) + "|" + std::to_string(type) +
                       "|" + std::to_string(category) + "|" + std::to_string(identifier);
    for (WORD i = 0; i < stringCount; ++i) {
        line += "|" + Quoted(strings[i]);
    }
    AppendEventLog(line);
    return g_realReport(log, type, category, identifier, user, stringCount, dataSize, strings, data);
}

BOOL WINAPI NotebookDeregister(HANDLE log) {
    CallScope call(Call::DeregisterEventSource);
    if (call.Refused()) {
        SetLastError(call.Error());
        return FALSE;
    }
    Sources::Get().Remove(log);
    InterlockedDecrement(&SharedState::Get().Raw().ledger.eventSources);
    return g_realDeregister(log);
}

}  // namespace

void ReplaceEventLog() {
    g_realRegister = ReplaceImport("RegisterEventSourceW", &NotebookRegister);
    g_realReport = ReplaceImport("ReportEventW", &NotebookReport);
    g_realDeregister = ReplaceImport("DeregisterEventSource", &NotebookDeregister);
}

}  // namespace Notebook
