#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "doctor/inspection/registry_view.h"
#include "doctor/inspection/state.h"

/// What asks Windows. Nothing here changes anything; what cannot be asked leaves its error. COM must
/// have been entered. Of one thread.
namespace Inspection {

/// A service that this one depends on: its state alone.
[[nodiscard]] Service ReadNeighbour(const wchar_t* name);
/// The service, with its registration and version.
[[nodiscard]] Service ReadService();

/// Each setting is asked for once, with the names that the service asks for. May take twenty seconds.
[[nodiscard]] FirmwareHalf ReadLanWlanSetting();
[[nodiscard]] FirmwareHalf ReadLanWwanSetting();

[[nodiscard]] Network ReadNetwork();
[[nodiscard]] Wlan ReadWlan();
[[nodiscard]] Wwan ReadWwan();

/// The product's policies; the service's own are in a key of its name below.
constexpr wchar_t kPolicyKey[] = L"Software\\Policies\\Orva\\Orva Brimlet Support";

[[nodiscard]] AirplaneMode ReadAirplaneMode();
[[nodiscard]] Remembered ReadRemembered(const wchar_t* keyPath);
/// One of `Remembered::oddity`.
[[nodiscard]] std::string RememberedOddity(const RawValue& value);

/// The logging policies of the service (not of the program that asks), read as the service reads them.
[[nodiscard]] LogPolicies ReadLogPolicies();
/// What is odd about one policy value: one of `Policy::oddity`.
[[nodiscard]] Policy JudgePolicy(const RawValue& value, bool isOfExecutable);

/// The folders in which the service's log can be, the service's own first.
[[nodiscard]] std::vector<LogFolder> ReadLogFolders();

[[nodiscard]] bool IsElevated();
[[nodiscard]] std::string LocalTimeText(const FILETIME& utc);

/// All of it.
[[nodiscard]] State ReadState();

}  // namespace Inspection
