#pragma once

#include <windows.h>

#include <atomic>
#include <string>

/// The two firmware settings that enable the service's two halves. Reading one can block for many
/// seconds. Nothing is thrown, failures are logged.
namespace NLMUtils {

/// LAN/WLAN and LAN/WWAN switching. Once read as enabled a half stays so for the life of the
/// process, whatever later reads find.
extern std::atomic<bool> lanWlanSwitchingEnabled;
extern std::atomic<bool> lanWwanSwitchingEnabled;

/// Reads one named setting of the BIOS, with retries. S_OK and its text; any other HRESULT, a
/// success code too (no such setting, timed out), means that it was not read.
HRESULT GetBIOSValue(const std::wstring& name, std::wstring& value);

/// Whether the text of a setting that was read, and is not empty, says "disabled".
[[nodiscard]] bool IsDisabledSetting(const std::wstring& value);

/// Reads the setting and refreshes the flag above. Whether the half was ever read as enabled.
bool IsLanWlanAutoSwitchingEnabled();
bool IsLanWwanAutoSwitchingEnabled();

}  // namespace NLMUtils
