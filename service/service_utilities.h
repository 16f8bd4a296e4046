#pragma once

#include <windows.h>

#include <array>
#include <string>

class LogScope;

/// Helpers over this and other services. Callable on any thread; nothing is thrown. Failures are
/// logged, but for a path that is not known or too long and a service's status that cannot be read.
namespace Utils {

/// Answers of `IsServicePresent` and `WaitforServiceToStartRunning`.
constexpr int kServiceRunning = 0;
constexpr int kServiceNotRunning = 1;
constexpr int kServiceNotInstalled = -1;
constexpr int kServiceNotOpened = -2;
constexpr int kServiceNotQueried = -3;

/// How the service control manager restarts this service after its first, second and every further
/// failure, and after how long without one it forgets them.
constexpr std::array<DWORD, 3> kRestartDelayMinutes{2, 4, 6};
constexpr DWORD kFailureCountResetSeconds = 60 * 60;

/// File version of an executable, or of the running one: "1.0.0.12", say; "0.0.0.0" when it cannot be read.
[[nodiscard]] std::wstring GetFileVersion(const LogScope& log, const wchar_t* path);
[[nodiscard]] std::wstring GetBinaryVersion();

/// Whether the service is installed and running: one of the answers above.
[[nodiscard]] int IsServicePresent(const wchar_t* serviceName);

/// Polls once a second until the service runs, at most 15 times while it is installed; any other
/// failure ends the wait after one second. The last answer of `IsServicePresent`.
[[nodiscard]] int WaitforServiceToStartRunning(const wchar_t* serviceName);

/// Blocks the calling thread. Returns at once when the event it waits on cannot be created.
void UtilSleep(DWORD milliseconds);

/// Has the service control manager restart this service after failures, as the constants above say.
/// 0 on success; 1 when the actions could not be set, plus 16 when the flag that extends them to
/// failing exit codes could not be set; else `kServiceNotInstalled` or `kServiceNotOpened`.
int SetServiceRestartRecoveryOnFailure();

}  // namespace Utils
