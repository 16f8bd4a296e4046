#include "tests/service/event_log_recorder.h"

#include <ostream>

namespace ServiceTests {

void PrintTo(const EventLogEntry& entry, std::ostream* out) {
    *out << "entry of type " << entry.type << " from " << testing::PrintToString(entry.source) << ": "
         << testing::PrintToString(entry.strings);
}

EventLogRecorder::EventLogRecorder(Rig::Ledger& ledger)
    : m_ledger(ledger),
      m_open([this](LPCWSTR server, LPCWSTR source) { return Open(server, source); }),
      m_report([this](auto... arguments) { return Report(arguments...); }) {}

HANDLE EventLogRecorder::Open(LPCWSTR server, LPCWSTR source) {
    EXPECT_EQ(server, nullptr);
    m_source = source;
    m_handle = m_ledger.MakeHandle(Rig::Kind::kEventSource);
    return m_handle;
}

BOOL EventLogRecorder::Report(HANDLE source, WORD type, WORD category, DWORD identifier, PSID user,
                              WORD count, DWORD dataBytes, const LPCWSTR* strings, void* data) {
    EXPECT_EQ(source, m_handle);
    EXPECT_EQ(category, 0);
    EXPECT_EQ(identifier, 0U);
    EXPECT_EQ(user, nullptr);
    EXPECT_EQ(dataBytes, 0U);
    EXPECT_EQ(data, nullptr);
    m_entries.push_back({m_source, type, {strings, strings + count}});
    return TRUE;
}

}  // namespace ServiceTests
