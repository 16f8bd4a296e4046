#pragma once

#include <windows.h>

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace Doctor {

/// One entry of a Windows event log.
struct EventEntry {
    std::string log;   ///< Application or System
    std::string time;  ///< local
    std::string source;
    DWORD id = 0;
    WORD type = 0;  ///< EVENTLOG_ERROR_TYPE and the like
    std::vector<std::string> strings;
};

/// The entries in what ReadEventLogW returned (EVENTLOGRECORD, one behind the other). A record that does
/// not keep to its own length ends the list; of strings that lie outside of it none is taken.
[[nodiscard]] std::vector<EventEntry> ParseEventRecords(std::span<const std::byte> records);

/// Whether an entry is of the service, or the service control manager's about it.
[[nodiscard]] bool IsAboutService(const EventEntry& entry);

/// The newest such entries of both logs, newest first, as a text of one entry a line. What could not
/// be read has a line that says so.
[[nodiscard]] std::string ServiceEventsAsText();

}  // namespace Doctor
