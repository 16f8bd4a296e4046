#include "notebook/state/event_log.h"

#include <windows.h>

#include <sstream>

#include "notebook/state/shared_state.h"

namespace Notebook {

namespace {

std::vector<std::string>& LinesInMemory() {
    static auto& lines = *new std::vector<std::string>();
    return lines;
}

HANDLE Open(DWORD access, DWORD disposition) {
    return CreateFileW(kEventLogFile, access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

void AppendEventLog(const std::string& line) {
    if (SharedState::IsInMemory()) {
        LinesInMemory().push_back(line);
        return;
    }
    // One write a line: entries of several threads and processes never mix.
    const std::string text = line + "\n";
    CreateDirectoryW(kFolder, nullptr);
    const HANDLE file = Open(FILE_APPEND_DATA, OPEN_ALWAYS);
    if (file != INVALID_HANDLE_VALUE) {
        DWORD written = 0;
        WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        CloseHandle(file);
    }
}

std::vector<std::string> EventLogLines() {
    if (SharedState::IsInMemory()) {
        return LinesInMemory();
    }
    std::vector<std::string> lines;
    const HANDLE file = Open(GENERIC_READ, OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE) {
        return lines;
    }
    std::string text(GetFileSize(file, nullptr), '\0');
    DWORD read = 0;
    ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
    CloseHandle(file);
    text.resize(read);
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

void ClearEventLog() {
    LinesInMemory().clear();
    DeleteFileW(kEventLogFile);
}

}  // namespace Notebook
