#pragma once

/// The system's airplane mode. Callable on any thread; nothing is thrown, failures are logged.
namespace ServiceUtils {

/// Where the system keeps it: the unnamed value of this key, below HKEY_LOCAL_MACHINE.
constexpr wchar_t kAirplaneModeKey[] =
    L"SYSTEM\\CurrentControlSet\\Control\\RadioManagement\\SystemRadioState";

/// Whether a switch looks at airplane mode before it turns a radio on.
constexpr unsigned char kIgnoreAirplaneMode = 0;
constexpr unsigned char kRespectAirplaneMode = 1;

/// Whether airplane mode is on; off when it cannot be read.
[[nodiscard]] bool CheckAirplaneMode();

/// The same without a line in the log.
[[nodiscard]] bool IsAirplaneModeOn();

}  // namespace ServiceUtils
