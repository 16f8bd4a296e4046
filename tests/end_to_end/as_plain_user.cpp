// Runs a program as somebody who is no administrator, or has not elevated, would:
//
//   as_plain_user PROGRAM [ARGUMENT]...
//
// The program has the caller's input and output, and the exit code is its own; 100 when it did not run.
#include <windows.h>

#include <cstdio>
#include <string>

#include "platform/handles.h"

namespace {

constexpr int kDidNotRun = 100;

int Fail(const char* call) {
    std::fprintf(stderr, "as_plain_user: %s: %lu\n", call, GetLastError());
    return kDidNotRun;
}

/// What stands behind this program's own name.
std::wstring CommandLineBehindName() {
    const std::wstring line = GetCommandLineW();
    const std::size_t end = line.front() == L'"' ? line.find(L'"', 1) + 1 : line.find(L' ');
    const std::size_t next = line.find_first_not_of(L' ', end);
    return next == std::wstring::npos ? L"" : line.substr(next);
}

}  // namespace

int wmain() {
    BYTE administrators[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof(administrators);
    if (CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size) == FALSE) {
        return Fail("CreateWellKnownSid");
    }
    Platform::UniqueHandle own;
    Platform::UniqueHandle plain;
    Platform::UniqueHandle judged;
    SID_AND_ATTRIBUTES taken{administrators, 0};
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, own.Put()) == FALSE ||
        CreateRestrictedToken(own.Get(), DISABLE_MAX_PRIVILEGE, 1, &taken, 0, nullptr, 0, nullptr,
                              plain.Put()) == FALSE ||
        DuplicateToken(plain.Get(), SecurityIdentification, judged.Put()) == FALSE) {
        return Fail("the token");
    }
    BOOL isAdministrator = TRUE;
    if (CheckTokenMembership(judged.Get(), administrators, &isAdministrator) == FALSE ||
        isAdministrator != FALSE) {
        return Fail("still an administrator");
    }
    std::wstring line = CommandLineBehindName();
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (CreateProcessAsUserW(plain.Get(), nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                             &startup, &started) == FALSE) {
        return Fail("CreateProcessAsUser");
    }
    const Platform::UniqueHandle process(started.hProcess);
    const Platform::UniqueHandle thread(started.hThread);
    DWORD exitCode = kDidNotRun;
    if (WaitForSingleObject(process.Get(), INFINITE) != WAIT_OBJECT_0 ||
        GetExitCodeProcess(process.Get(), &exitCode) == FALSE) {
        return Fail("the program");
    }
    return static_cast<int>(exitCode);
}
