#include "doctor/event_log.h"

#include <gmock/gmock.h>

#include <cstring>

namespace {

using Doctor::EventEntry;
using Doctor::IsAboutService;
using Doctor::ParseEventRecords;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::byte>;

constexpr DWORD kEventId = 0x40001B87;  // 7047, informational, of the system

/// A record as ReadEventLogW lays it out.
Bytes RecordOf(const std::wstring& source, const std::vector<std::wstring>& strings) {
    EVENTLOGRECORD head{};
    std::wstring texts = source + L'\0' + L"MACHINE" + L'\0';
    head.StringOffset = static_cast<DWORD>(sizeof(head) + texts.size() * sizeof(wchar_t));
    for (const std::wstring& text : strings) {
        texts += text + L'\0';
    }
    head.NumStrings = static_cast<WORD>(strings.size());
    head.EventID = kEventId;
    head.EventType = EVENTLOG_WARNING_TYPE;
    head.Length = static_cast<DWORD>(sizeof(head) + texts.size() * sizeof(wchar_t));
    Bytes record(head.Length);
    std::memcpy(record.data(), &head, sizeof(head));
    std::memcpy(record.data() + sizeof(head), texts.data(), texts.size() * sizeof(wchar_t));
    return record;
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

EVENTLOGRECORD& HeadOf(Bytes& record) {
    return *reinterpret_cast<EVENTLOGRECORD*>(record.data());
}

TEST(EventRecordsTest, EachRecordGivesItsSourceNumberTypeAndTexts) {
    const std::vector<EventEntry> entries =
        ParseEventRecords(RecordOf(L"LinkvaneService", {L"first", L""}) + RecordOf(L"Other", {}));
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].source, "LinkvaneService");
    EXPECT_EQ(entries[0].id, 7047U);
    EXPECT_EQ(entries[0].type, EVENTLOG_WARNING_TYPE);
    EXPECT_THAT(entries[0].strings, ElementsAre("first", ""));
    EXPECT_EQ(entries[1].source, "Other");
    EXPECT_THAT(entries[1].strings, IsEmpty());
}

TEST(EventRecordsTest, RecordThatClaimsMoreThanThereIsEndsTheList) {
    Bytes torn = RecordOf(L"LinkvaneService", {L"text"});
    torn.resize(torn.size() - 2);
    EXPECT_EQ(ParseEventRecords(RecordOf(L"Whole", {}) + torn).size(), 1U);
}

TEST(EventRecordsTest, RecordShorterThanItsHeadEndsTheList) {
    Bytes record = RecordOf(L"LinkvaneService", {});
    HeadOf(record).Length = 0;
    EXPECT_THAT(ParseEventRecords(record), IsEmpty());
}

TEST(EventRecordsTest, TextsOutsideOfTheRecordAreLeftOut) {
    Bytes record = RecordOf(L"LinkvaneService", {L"text"});
    HeadOf(record).NumStrings = 5;
    EXPECT_THAT(ParseEventRecords(record).front().strings, ElementsAre("text"));
    HeadOf(record).StringOffset = 0xFFFFFFF0;
    EXPECT_THAT(ParseEventRecords(record).front().strings, IsEmpty());
}

TEST(EventRecordsTest, SourceWithoutEndIsEmpty) {
    Bytes record(sizeof(EVENTLOGRECORD) + 2 * sizeof(wchar_t), std::byte{'A'});
    HeadOf(record) = {};
    HeadOf(record).Length = static_cast<DWORD>(record.size());
    EXPECT_EQ(ParseEventRecords(record).front().source, "");
}

bool IsTaken(const char* source, const char* text) {
    EventEntry entry;
    entry.source = source;
    entry.strings = {text, "1"};
    return IsAboutService(entry);
}

TEST(EventRecordsTest, ServiceAndWhatTheControlManagerSaysOfItAreTaken) {
    EXPECT_TRUE(IsTaken("LinkvaneService", "anything"));
    EXPECT_TRUE(IsTaken("Service Control Manager", "Linkvane Service"));
    EXPECT_FALSE(IsTaken("Service Control Manager", "Print Spooler"));
    EXPECT_FALSE(IsTaken("Other", "Linkvane Service"));
}

}  // namespace
