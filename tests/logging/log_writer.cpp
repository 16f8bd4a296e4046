// A program that logs on its own account, for tests of several processes at one log file:
//
//   log_writer FOLDER lines TAG COUNT    writes so many lines, synchronously: "TAG 0", "TAG 1", ...
//   log_writer FOLDER first COUNT        so many threads are the first to ask for the logger; exits
//                                        with how often a log was made, plus 100 for each thread that
//                                        got another logger than the first one did
//   log_writer FOLDER exit COUNT         logs so many lines and exits at once
//
// FOLDER is its application-data folder.
#include <windows.h>
#include <shlobj.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <thread>
#include <vector>

#include "logging/file_listener.h"
#include "logging/logger.h"
#include "tests/support/scoped_import.h"

namespace {

namespace Level = Orva::Shared::Level;

void WriteLines(const wchar_t* tag, int count) {
    Orva::Shared::CorvaLogListener* listener = new Orva::Shared::CorvaLogListenerFile(false);
    Orva::Shared::CorvaLogger logger(&listener, 1);
    for (int line = 0; line < count; ++line) {
        logger.Write(Level::kInformation, "LogWriter::WriteLines", L"%s %d", tag, line);
    }
}

int AskFirst(int count) {
    const Rig::ScopedImport<&::CreateMutexW> slow{
        [&](SECURITY_ATTRIBUTES* security, BOOL owned, LPCWSTR name) {
            Sleep(50);
            return slow.Original(security, owned, name);
        }};
    std::vector<Orva::Shared::CorvaLogger*> found(static_cast<std::size_t>(count));
    std::vector<std::thread> threads;
    for (Orva::Shared::CorvaLogger*& logger : found) {
        threads.emplace_back([&logger] { logger = &Orva::Shared::GetLogger(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    constexpr int kOther = 100;
    return slow.Calls() +
           kOther * static_cast<int>(std::count_if(found.begin(), found.end(),
                                                   [&](auto* logger) { return logger != found.front(); }));
}

void LogAndExit(int count) {
    for (int line = 0; line < count; ++line) {
        Orva::Shared::GetLogger().Write(Level::kInformation, "LogWriter::LogAndExit", L"exit %d", line);
    }
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 4) {
        return 2;
    }
    const std::wstring folder = argv[1];
    const Rig::ScopedImport<&::SHGetFolderPathW> appData{[&](HWND, int, HANDLE, DWORD, LPWSTR path) {
        std::wcsncpy(path, folder.c_str(), MAX_PATH);
        return S_OK;
    }};
    const std::wstring what = argv[2];
    const auto number = [&](int argument) {
        return static_cast<int>(std::wcstol(argv[argument], nullptr, 10));
    };
    if (what == L"first") {
        return AskFirst(number(3));
    }
    if (what == L"exit") {
        LogAndExit(number(3));
        return 0;
    }
    WriteLines(argv[3], number(4));
    return 0;
}
