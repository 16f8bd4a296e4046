#include "doctor/event_log.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "doctor/inspection/readers.h"
#include "doctor/inspection/text.h"
#include "platform/handles.h"
#include "service/service_names.h"

namespace Doctor {
namespace {

/// No answer of ReadEventLogW may be larger.
constexpr DWORD kMostReadBytes = 0x7ffff;
/// Of each log. A service that logs to the event log fills it.
constexpr std::size_t kMostEntries = 2000;
constexpr std::string_view kControlManager = "Service Control Manager";

using UniqueEventLog = Platform::UniqueResource<HANDLE, &::CloseEventLog>;

/// The terminated text at an offset of a record, or nothing when its end is not in the record.
std::optional<std::wstring> TextAt(std::span<const std::byte> record, std::size_t offset) {
    std::wstring text;
    for (; offset + sizeof(wchar_t) <= record.size(); offset += sizeof(wchar_t)) {
        wchar_t letter = 0;
        std::memcpy(&letter, record.data() + offset, sizeof(letter));
        if (letter == L'\0') {
            return text;
        }
        text += letter;
    }
    return std::nullopt;
}

/// Seconds since 1970, as the record has them.
std::string TimeText(DWORD seconds) {
    constexpr std::uint64_t kTicksPerSecond = 10'000'000;
    constexpr std::uint64_t kSecondsFrom1601To1970 = 11'644'473'600;
    const std::uint64_t ticks = (seconds + kSecondsFrom1601To1970) * kTicksPerSecond;
    return Inspection::LocalTimeText({static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32U)});
}

EventEntry ParseRecord(const EVENTLOGRECORD& head, std::span<const std::byte> record) {
    EventEntry entry;
    entry.time = TimeText(head.TimeGenerated);
    entry.source = Inspection::Utf8(TextAt(record, sizeof(EVENTLOGRECORD)).value_or(L""));
    // The upper half says how grave it is and whose it is.
    entry.id = head.EventID & 0xFFFFU;
    entry.type = head.EventType;
    std::size_t offset = head.StringOffset;
    for (WORD i = 0; i < head.NumStrings; ++i) {
        const std::optional<std::wstring> text = TextAt(record, offset);
        if (!text) {
            break;
        }
        entry.strings.push_back(Inspection::Utf8(*text));
        offset += (text->size() + 1) * sizeof(wchar_t);
    }
    return entry;
}

const char* TypeName(WORD type) {
    switch (type) {
        case EVENTLOG_ERROR_TYPE:
            return "Error";
        case EVENTLOG_WARNING_TYPE:
            return "Warning";
        default:
            return "Information";
    }
}

/// One line, whatever is in its strings.
std::string Line(const EventEntry& entry) {
    std::string line = fmt::format("{}|{}|{}|{}|{}|{}", entry.time, entry.log, entry.source, entry.id,
                                   TypeName(entry.type), fmt::join(entry.strings, "|"));
    std::replace_if(
        line.begin(), line.end(), [](char letter) { return static_cast<unsigned char>(letter) < ' '; }, ' ');
    return line + "\r\n";
}

/// Takes the entries about the service, newest first. The Win32 error that ended it; ERROR_HANDLE_EOF
/// at the log's beginning.
DWORD TakeEntries(HANDLE eventLog, const char* name, std::vector<EventEntry>& entries) {
    std::vector<std::byte> buffer(kMostReadBytes);
    while (entries.size() < kMostEntries) {
        DWORD read = 0;
        DWORD needed = 0;
        if (ReadEventLogW(eventLog, EVENTLOG_SEQUENTIAL_READ | EVENTLOG_BACKWARDS_READ, 0, buffer.data(),
                          kMostReadBytes, &read, &needed) == FALSE) {
            return GetLastError();
        }
        for (EventEntry& entry : ParseEventRecords(std::span(buffer).first(std::min(read, kMostReadBytes)))) {
            entry.log = name;
            if (IsAboutService(entry)) {
                entries.push_back(std::move(entry));
            }
        }
    }
    return ERROR_HANDLE_EOF;
}

std::string EntriesOf(const wchar_t* name) {
    const std::string shown = Inspection::Utf8(name);
    const UniqueEventLog eventLog(OpenEventLogW(nullptr, name));
    std::vector<EventEntry> entries;
    const DWORD error = eventLog ? TakeEntries(eventLog.Get(), shown.c_str(), entries) : GetLastError();
    std::string text;
    for (const EventEntry& entry : entries) {
        text += Line(entry);
    }
    if (error != ERROR_HANDLE_EOF) {
        text += fmt::format("{}: not read to its end: error {}\r\n", shown, error);
    }
    return text;
}

}  // namespace

std::vector<EventEntry> ParseEventRecords(std::span<const std::byte> records) {
    std::vector<EventEntry> entries;
    while (records.size() >= sizeof(EVENTLOGRECORD)) {
        EVENTLOGRECORD head{};
        std::memcpy(&head, records.data(), sizeof(head));
        if (head.Length < sizeof(head) || head.Length > records.size()) {
            break;
        }
        entries.push_back(ParseRecord(head, records.first(head.Length)));
        records = records.subspan(head.Length);
    }
    return entries;
}

bool IsAboutService(const EventEntry& entry) {
    const std::string service = Inspection::Utf8(ServiceNames::kService);
    if (entry.source == service) {
        return true;
    }
    const std::string display = Inspection::Utf8(ServiceNames::kDisplay);
    return entry.source == kControlManager &&
           std::any_of(entry.strings.begin(), entry.strings.end(), [&](const std::string& text) {
               return text.find(service) != std::string::npos || text.find(display) != std::string::npos;
           });
}

std::string ServiceEventsAsText() {
    return "time|log|source|identifier|type|texts\r\n" + EntriesOf(L"Application") + EntriesOf(L"System");
}

}  // namespace Doctor
