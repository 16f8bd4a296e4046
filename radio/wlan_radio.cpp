#include "radio/wlan_radio.h"

#include <wlanapi.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string>

#include "logging/log_scope.h"
#include "platform/handles.h"
#include "platform/pause.h"
#include "radio/radio_switch.h"

namespace ServiceUtils {

std::atomic<RadioStatus> my_service_turnonoff_wifi{kRadioOff};
std::atomic<bool> my_setwifitimeout{false};

namespace {

using std::chrono::milliseconds;

/// A pass over the PHYs that some of them refused is repeated while the passes' counter is at most
/// this; so there is one pass more.
constexpr int kLastPass = 80;
constexpr milliseconds kPassPause{100};

/// A client handle with what it was asked for. The last is given back first, the handle last.
struct WlanSession {
    Platform::UniqueWlanHandle client;
    Platform::UniqueWlanMemory<WLAN_INTERFACE_INFO_LIST> interfaces;
    WLAN_INTERFACE_INFO first{};  ///< the one interface that is looked at and switched
    /// What the first one can do, and its number of PHYs; only a switch asks for them.
    Platform::UniqueWlanMemory<WLAN_INTERFACE_CAPABILITY> capability;
    DWORD phyCount = 0;
};

/// A list without entries is treated like any other (the WLAN service then refuses the call); but what stands
/// behind it may not be ours to read, so that its first entry is an empty one.
WLAN_INTERFACE_INFO FirstInterface(const WLAN_INTERFACE_INFO_LIST& list) {
    WLAN_INTERFACE_INFO first{};
    if (list.dwNumberOfItems > 0) {
        first = list.InterfaceInfo[0];
        *std::rbegin(first.strInterfaceDescription) = L'\0';
    }
    return first;
}

bool OpenSession(const LogScope& log, WlanSession& session) {
    DWORD negotiatedVersion = 0;
    DWORD error =
        WlanOpenHandle(Platform::kWlanClientVersion, nullptr, &negotiatedVersion, session.client.Put());
    if (error != ERROR_SUCCESS) {
        return log.Failure(false, L"WlanOpenHandle failed with error: %u", error);
    }
    error = WlanEnumInterfaces(session.client.Get(), nullptr, session.interfaces.Put());
    if (error != ERROR_SUCCESS) {
        return log.Failure(false, L"WlanEnumInterfaces failed with error: %u", error);
    }
    if (!session.interfaces) {
        return log.Failure(false, L"Interface list is empty");
    }
    session.first = FirstInterface(*session.interfaces.Get());
    return true;
}

void LogInterfaceState(const LogScope& log, WLAN_INTERFACE_STATE state) {
    static constexpr const wchar_t* kTexts[] = {
        L"Not ready",
        L"Connected",
        L"First node in a ad hoc network",
        L"Disconnecting",
        L"Not connected",
        L"Attempting to associate with a network",
        L"Auto configuration is discovering settings for the network",
        L"In process of authenticating",
    };
    const auto index = static_cast<std::size_t>(state);
    if (index < std::size(kTexts)) {
        log.Information(kTexts[index]);
    } else {
        log.Information(L"Unknown state %ld", state);
    }
}

void LogInterface(const LogScope& log, const WlanSession& session) {
    log.Information(L"WLAN Interface Count : %lu", session.interfaces.Get()->dwNumberOfItems);
    log.Information(L"Current Index: %lu", session.interfaces.Get()->dwIndex);
    log.Information(L"Interface Description: %ws", session.first.strInterfaceDescription);
    log.Information(L"Interface State :  ");
    LogInterfaceState(log, session.first.isState);
}

/// Logs one PHY; whether its software switch is on. (The hardware switch is the user's affair.)
bool IsPhyOn(const LogScope& log, DWORD phy, DOT11_RADIO_STATE state) {
    if (state == dot11_radio_state_on) {
        log.Information(L"Phy: %d On", phy);
    } else if (state == dot11_radio_state_off) {
        log.Information(L"Phy: %d Off", phy);
    } else if (state == dot11_radio_state_unknown) {
        log.Information(L"Phy: %d Unknown", phy);
    } else {
        log.Information(L"Phy: %d Other Unknown state %ld", phy, state);
    }
    return state == dot11_radio_state_on;
}

/// Whether a record of `bytes` bytes holds every PHY that it names. One that is not shown is not
/// known to be on.
bool IsWhole(const WLAN_RADIO_STATE& radio, std::size_t bytes) {
    constexpr std::size_t kHeader = offsetof(WLAN_RADIO_STATE, PhyRadioState);
    return bytes >= kHeader && radio.dwNumberOfPhys <= std::size(radio.PhyRadioState) &&
           bytes >= kHeader + radio.dwNumberOfPhys * sizeof(WLAN_PHY_RADIO_STATE);
}

/// On only if every PHY is on; also when there is none.
bool AreAllPhysOn(const LogScope& log, const WLAN_RADIO_STATE& radio) {
    bool allOn = true;
    for (DWORD phy = 0; phy < radio.dwNumberOfPhys; ++phy) {
        allOn = IsPhyOn(log, phy, radio.PhyRadioState[phy].dot11SoftwareRadioState) && allOn;
    }
    log.Information(L"Phy state : %d", allOn);
    return allOn;
}

bool QueryRadio(const LogScope& log, const WlanSession& session) {
    DWORD bytes = 0;
    Platform::UniqueWlanMemory<void> data;
    const DWORD error =
        WlanQueryInterface(session.client.Get(), &session.first.InterfaceGuid, wlan_intf_opcode_radio_state,
                           nullptr, &bytes, data.Put(), nullptr);
    const auto* const radio = static_cast<const WLAN_RADIO_STATE*>(data.Get());
    // Half a record is as good as none.
    if (error != ERROR_SUCCESS || radio == nullptr || !IsWhole(*radio, bytes)) {
        return log.Failure(false, L"WlanQueryInterface failed! err is %d", error);
    }
    return AreAllPhysOn(log, *radio);
}

bool ReadWlan(const LogScope& log) {
    if (my_setwifitimeout) {
        return log.Failure(false, L"My WIFI Query timeout, my_setwifitimeout : %d", my_setwifitimeout.load());
    }
    WlanSession session;
    if (!OpenSession(log, session)) {
        return false;
    }
    LogInterface(log, session);
    return QueryRadio(log, session);
}

/// False when it cannot be told how many PHYs the interface has.
bool CountPhys(const LogScope& log, WlanSession& session) {
    const DWORD error = WlanGetInterfaceCapability(session.client.Get(), &session.first.InterfaceGuid,
                                                   nullptr, session.capability.Put());
    if (error != ERROR_SUCCESS || !session.capability) {
        return log.Failure(false, L"WlanGetInterfaceCapability failed !err is %d", error);
    }
    const DWORD supported = session.capability.Get()->dwNumberOfSupportedPhys;
    log.Verbose(L"The number of supported PHY types : %u", supported);
    // No interface has more; a count beyond that must not keep the loops below busy for ever.
    session.phyCount = std::min<DWORD>(supported, WLAN_MAX_PHY_INDEX);
    return true;
}

/// One pass: asks every PHY once. How many of them took the new state.
DWORD SetPhys(const LogScope& log, const WlanSession& session, RadioStatus newStatus) {
    WLAN_PHY_RADIO_STATE radioState{};
    radioState.dot11SoftwareRadioState = MeansOn(newStatus) ? dot11_radio_state_on : dot11_radio_state_off;
    DWORD successes = 0;
    for (DWORD phy = 0; phy < session.phyCount; ++phy) {
        radioState.dwPhyIndex = phy;
        const DWORD error =
            WlanSetInterface(session.client.Get(), &session.first.InterfaceGuid, wlan_intf_opcode_radio_state,
                             sizeof(radioState), &radioState, nullptr);
        if (error == ERROR_SUCCESS) {
            log.Information(L"Set WLAN state %d for PHY %d success", newStatus, phy);
            ++successes;
        } else {
            log.Error(L"Set WLAN state failed!err is %d", error);
        }
    }
    return successes;
}

/// Makes passes until one succeeds on every PHY or they have run out.
bool SetPhysWithRetry(const LogScope& log, const WlanSession& session, RadioStatus newStatus) {
    int pass = 0;
    while (pass <= kLastPass && SetPhys(log, session, newStatus) != session.phyCount) {
        log.Warning(L"Could not Set WLAN state in all PHYs. So retrying in count = %d", pass);
        Platform::Pause(kPassPause);
        ++pass;
    }
    const bool succeeded = pass <= kLastPass;
    if (succeeded) {
        my_service_turnonoff_wifi = newStatus;
    }
    // By the counter alone: a radio that followed only in the very last pass reads as off from now on,
    // although this switch succeeded.
    const bool ranOut = pass >= kLastPass;
    if (ranOut) {
        log.Error(L"WlanSetInterface failed");
    }
    my_setwifitimeout = ranOut;
    return succeeded;
}

bool SetFirstInterface(const LogScope& log, RadioStatus newStatus) {
    WlanSession session;
    if (!OpenSession(log, session)) {
        return false;
    }
    log.Verbose(MeansOn(newStatus) ? L"Linkvane set WIFI radio to dot11_radi_state_on"  // the log's spelling
                                   : L"Linkvane set WIFI radio to dot11_radio_state_off");
    const bool succeeded = CountPhys(log, session) && SetPhysWithRetry(log, session, newStatus);
    if (succeeded) {
        log.Information(L"New WIFI state : %d", CheckWlanStatus());
    }
    return succeeded;
}

constexpr SwitchableRadio kWlanRadio{
    &SwitchWlanStatus,
    &CheckWlanStatus,
    L"SwitchWlanStatus not needed for New status = %d",
    L"Current WLAN Status : %d, To Change Status = %d",
    L"No change in WLAN Status Needed.",
    L"SwitchWlanStatus Success",
    L"SwitchWlanStatus not Succeeded. Retrying to %d",
};

bool SwitchWlan(const LogScope& log, RadioStatus newStatus, unsigned char checkAirplaneStatus) {
    const std::optional<bool> answer =
        AnswerWithoutSwitching(log, kWlanRadio, newStatus, checkAirplaneStatus);
    return answer ? *answer : SetFirstInterface(log, newStatus);
}

}  // namespace

bool SwitchWlanStatus(const RadioStatus& newStatus, const unsigned char& checkAirplaneStatus) {
    LogScope log("ServiceUtils::SwitchWlanStatus", L"OnOffValue = %d, bCheckAirplaneStatus = %d", newStatus,
                 checkAirplaneStatus);
    return log.Return(L"WLAN switching Status = %d",
                      log.Guard(false, [&] { return SwitchWlan(log, newStatus, checkAirplaneStatus); }));
}

bool SwitchWlanStatusWithRetry(const RadioStatus& newStatus, const int& retryCount) {
    LogScope log("ServiceUtils::SwitchWlanStatusWithRetry", L"NewStatus = %d, Retry Count = %d", newStatus,
                 retryCount);
    return log.Return(L"WLAN switching Status = %d", log.Guard(false, [&] {
        return SwitchUntilRadioFollows(log, kWlanRadio, newStatus, retryCount);
    }));
}

bool CheckWlanStatus() {
    LogScope log("ServiceUtils::CheckWlanStatus");
    return log.Return(L"WLAN Status = %d", log.Guard(false, [&] { return ReadWlan(log); }));
}

void StartWLANService() {
    const LogScope log("ServiceUtils::StartWLANService");
    log.Guard([&] {
        const std::wstring remembered = RememberedPowerStatus(PowerStatus::kWlanKey);
        log.Information(L"WLAN Registry Status = %s", remembered.c_str());
        if (remembered == PowerStatus::kOn) {
            log.Information(L"Switching ON Wifi");
            if (!SwitchWlanStatusWithRetry(kRadioOn, kSwitchRetries)) {
                log.Error(L"SwitchWlanStatusWithRetry (StartWLANService) failed");
            }
        }
        log.Information(L"WlanPowerStatus value read from registry = %s", remembered.c_str());
    });
}

void StopWLANService() {
    const LogScope log("ServiceUtils::StopWLANService");
    log.Guard([&] {
        const bool isOn = CheckWlanStatus();
        log.Information(L"WLAN Current Status = %d", isOn);
        if (!isOn) {
            // What is remembered stays: a radio that is off already may be off by this service's doing.
            return;
        }
        if (SwitchWlanStatus(kRadioOff, kIgnoreAirplaneMode)) {
            log.Information(L"Setting WlanPowerStatus in registry.");
            SetWlanPowerStatusInRegistry(kRadioOn);
        } else {
            // The line names the repeated switch although there is a single one: kept.
            log.Error(L"SwitchWlanStatusWithRetry (StopWLANService) failed");
        }
    });
}

}  // namespace ServiceUtils
