#pragma once

#include <windows.h>

#include <iosfwd>
#include <string>
#include <vector>

#include "tests/support/ledger.h"
#include "tests/support/scoped_import.h"

namespace ServiceTests {

/// One entry of the Windows event log.
struct EventLogEntry {
    std::wstring source;
    WORD type = 0;
    std::vector<std::wstring> strings;

    friend bool operator==(const EventLogEntry&, const EventLogEntry&) = default;
};

void PrintTo(const EventLogEntry& entry, std::ostream* out);

/// Takes the place of the event log of this machine, for a scope. Entries with a category, an
/// identifier, a user or data fail the test: nothing here writes such.
class EventLogRecorder {
  public:
    explicit EventLogRecorder(Rig::Ledger& ledger);

    [[nodiscard]] const std::vector<EventLogEntry>& Entries() const { return m_entries; }

  private:
    HANDLE Open(LPCWSTR server, LPCWSTR source);
    BOOL Report(HANDLE source, WORD type, WORD category, DWORD identifier, PSID user, WORD count,
                DWORD dataBytes, const LPCWSTR* strings, void* data);

    Rig::Ledger& m_ledger;
    std::wstring m_source;
    HANDLE m_handle = nullptr;
    std::vector<EventLogEntry> m_entries;
    Rig::ScopedImport<&::RegisterEventSourceW> m_open;
    Rig::ScopedImport<&::ReportEventW> m_report;
};

}  // namespace ServiceTests
