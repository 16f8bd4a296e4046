#pragma once

#include <string>
#include <vector>

namespace Notebook {

/// The file that keeps a copy of every event-log entry, one a line (UTF-8):
///
///     time|source|type|category|identifier|"first string"|"second string"...
///
/// with line ends, quotes and backslashes in the strings written as \r, \n, \" and \\. A state that is
/// kept in memory has its lines there, too.
inline constexpr wchar_t kEventLogFile[] = L"C:\\notebook\\event_log.txt";

void AppendEventLog(const std::string& line);
std::vector<std::string> EventLogLines();
void ClearEventLog();

}  // namespace Notebook
