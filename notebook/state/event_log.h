#pragma once

#include <string>
#include <vector>

#include "notebook/state/layout.h"

namespace Notebook {

/// What was written to the Windows event log, the oldest first.
std::vector<EventLogEntry> EventLogEntries();

/// An entry's strings.
std::vector<std::wstring> StringsOf(const EventLogEntry& entry);

/// The entries as text, one a line (UTF-8):
///
///     time|source|type|category|identifier|"first string"|"second string"...
///
/// with the strings as `InQuotes` writes them.
std::vector<std::string> EventLogLines();

}  // namespace Notebook
