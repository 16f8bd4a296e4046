#include "doctor/analysis/texts.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <vector>

namespace Doctor {
namespace {

constexpr const char kWorker[] = "CMainService::ServiceWorkerThread";
constexpr const char kNetworkSubscription[] = "CMainService::ListenForWlanEvents";
constexpr const char kWwanSubscription[] = "CMainService::ListenForWwanEvents";
constexpr const char kWlanRegistration[] = "CMainService::RegisterWlanNotification";
constexpr const char kNotificationCallback[] = "CMainService::WlanNotificationCallback";
constexpr const char kRadioChange[] = "CMainService::HandleWlanNotificationMsmRadioStateChange";
constexpr const char kAvailable[] = "CMainService::HandleWlanNotificationAcmNetworkAvailable";
constexpr const char kWatcher[] = "CMainService::AirplaneModeWatcher";
constexpr const char kWlanUpdate[] = "CMainService::UpdateWlanPowerStatus";
constexpr const char kWwanUpdate[] = "CMainService::UpdateWwanPowerStatus";
constexpr const char kCableEvent[] = "NLMEventHandler::NetworkConnectionConnectivityChanged";
constexpr const char kAdapters[] = "NLMEventHandler::InitialiseAdapter";
constexpr const char kEthernetCheck[] = "NLMEventHandler::CheckEthernetConnectionStatus";
constexpr const char kAdapterInfo[] = "NLMUtils::PrintAdapterInfo";
constexpr const char kConnections[] = "NLMUtils::PrintNetworkConnections";
constexpr const char kFirmware[] = "NLMUtils::GetBIOSValue";
constexpr const char kWlanFirmware[] = "NLMUtils::IsLanWlanAutoSwitchingEnabled";
constexpr const char kWwanFirmware[] = "NLMUtils::IsLanWwanAutoSwitchingEnabled";
constexpr const char kResume[] = "NLMUtils::SystemResumeHandler";
constexpr const char kAirplaneCheck[] = "ServiceUtils::CheckAirplaneMode";
constexpr const char kWlanSwitch[] = "ServiceUtils::SwitchWlanStatus";
constexpr const char kWlanRetry[] = "ServiceUtils::SwitchWlanStatusWithRetry";
constexpr const char kWlanCheck[] = "ServiceUtils::CheckWlanStatus";
constexpr const char kWlanBack[] = "ServiceUtils::StartWLANService";
constexpr const char kWlanDown[] = "ServiceUtils::StopWLANService";
constexpr const char kWwanSwitch[] = "ServiceUtils::SwitchWwanStatus";
constexpr const char kWwanRetry[] = "ServiceUtils::SwitchWwanStatusWithRetry";
constexpr const char kWwanCheck[] = "ServiceUtils::CheckWwanStatus";
constexpr const char kWwanBack[] = "ServiceUtils::StartWWANService";
constexpr const char kWwanDown[] = "ServiceUtils::StopWWANService";
constexpr const char kWwanInterfaces[] = "ServiceUtils::EnumerateWwanInterfaces";
constexpr const char kCompletion[] = "CMbnSinks::OnSetSoftwareRadioStateComplete";
constexpr const char kPresence[] = "Utils::IsServicePresent";
constexpr const char kWlanStore[] = "ServiceUtils::SetWlanPowerStatusInRegistry";
constexpr const char kWwanStore[] = "ServiceUtils::SetWwanPowerStatusInRegistry";
constexpr const char kStore[] = "ServiceUtils::SetPowerStatusInRegistry";

constexpr KnownText kTexts[] = {
    {Said::kServiceStarts, "CMainService::OnStart", "Linkvane Service (%s) in OnStart"},
    {Said::kServiceStops, "CMainService::OnStop", "Linkvane Service in OnStop"},
    {Said::kSecurityReady, "InitializeSecurity", "InitializeSecurity : HRESULT: 0x%08X"},
    {Said::kWorkerBegins, kWorker, "ServiceWorkerThread - Entry"},
    {Said::kWorkerEnds, kWorker, "ServiceWorkerThread - Exit"},
    {Said::kWorkerThrew, kWorker, "Exception in ServiceWorkerThread. %S"},
    {Said::kComFailed, kWorker, "CoInitialize failed with error: 0x%08X"},
    {Said::kNetworkListFailed, kWorker,
     "CoCreateInstance(CLSID_NetworkListManager) failed with error: 0x%08X"},
    {Said::kMobileBroadbandFailed, kWorker,
     "CoCreateInstance(CLSID_MbnInterfaceManager) failed with error: 0x%08X"},
    {Said::kFirmwareRead, kWorker,
     "Finished reading Linkvane status from BIOS. Wait for (WLAN AutoConfig) to start"},
    {Said::kWlanListening, kWorker,
     "WLAN AutoConfig wait completed and WLAN Device Available. So Listening for WLAN Notifications.."},
    {Said::kWwanListening, kWorker,
     "WWAN AutoConfig wait completed and WWAN Device Available. So Listening for WWAN events.."},
    {Said::kDispatcherFailed, "wmain", "Service failed to run w/err 0x%08lx"},

    {Said::kFirmwareAsked, kFirmware, "Reading BIOS Value (%s) in retry count %d "},
    {Said::kFirmwareAnswered, kFirmware, "BIOS Read Value %s"},
    {Said::kFirmwareRefused, kFirmware, "wmi.GetValue returned Error 0x%08X in retry count %d "},
    {Said::kFirmwareThrew, kFirmware, "Exception while getting BIOS with error 0x%08X"},
    {Said::kWlanHalfOn, kWlanFirmware, "Inside LAN / WLAN Auto Switching section :feature enabled"},
    {Said::kWlanHalfOnByOtherName, kWlanFirmware, "Inside LAN/WLAN Switching section:feature enabled"},
    {Said::kWlanHalfStarred, kWlanFirmware,
     "Error getting 'LAN / WLAN Auto Switching' with HRESULT =  0x%08X and Value = %s"},
    {Said::kWlanHalfUnread, kWlanFirmware,
     "Error getting 'LAN/WLAN Switching' with HRESULT =  0x%08X and Value = %s"},
    {Said::kWlanSettingRead, kWlanFirmware, "BIOS(LAN/WLAN) Read Value %s"},
    {Said::kWwanHalfOn, kWwanFirmware, "Inside LAN / WWAN Auto Switching section :feature enabled"},
    {Said::kWwanHalfUnread, kWwanFirmware,
     "Error getting 'LAN / WWAN Auto Switching' with HRESULT =  0x%08X and Value = %s"},
    {Said::kWwanSettingRead, kWwanFirmware, "BIOS(LAN/WAN) Read Value %s"},

    {Said::kWaitsForWwanService, kWorker, "Wait for (WWAN AutoConfig) to start"},
    {Said::kWlanServiceMissed, kWorker,
     "WaitforServiceToStartRunning (WLAN AutoConfig) failed with running status = %d"},
    {Said::kWwanServiceMissed, kWorker,
     "WaitforServiceToStartRunning (WWAN AutoConfig) failed with running status = %d"},
    {Said::kWlanServiceMissedAtResume, kResume,
     "WaitforServiceToStartRunning (WLAN AutoConfig) failed with running status = %d"},
    {Said::kWwanServiceMissedAtResume, kResume,
     "WaitforServiceToStartRunning (WWAN AutoConfig) failed with running status = %d"},
    {Said::kServiceAbsent, kPresence, "Service does not exist. Error 0x%08lx"},

    {Said::kNoContainer, kNetworkSubscription,
     "IID_IConnectionPointContainer QueryInterface failed with error: 0x%08X"},
    {Said::kNoFirstConnectionPoint, kNetworkSubscription, "FindConnectionPoint Failed with error: 0x%08X"},
    {Said::kNoConnectionPoint, kNetworkSubscription, "FindConnectionPoint failed with error: 0x%08X"},
    {Said::kNoEventHandler, kNetworkSubscription, "NLMEventHandler creation failed with error: 0x%08X"},
    {Said::kAdviseFailed, kNetworkSubscription, "Advise failed with error: 0x%08X"},
    {Said::kWwanNoContainer, kWwanSubscription,
     "IID_IConnectionPointContainer QueryInterface failed with error: 0x%08X"},
    {Said::kWwanNoConnectionPoint, kWwanSubscription, "FindConnectionPoint failed with error: 0x%08X"},
    {Said::kWwanAdviseFailed, kWwanSubscription, "Advise failed with error: 0x%08X"},
    {Said::kWlanRegisterFailed, kWorker, "RegisterWlanNotification (register) failed"},
    {Said::kWlanRegisterRefused, kWlanRegistration,
     "WlanRegisterNotification(Registration) fail with err %d!!"},
    {Said::kWlanRegisterNoHandle, kWlanRegistration, "WlanOpenHandle failed with error: %u"},

    {Said::kConnectionAtStart, kConnections, "Connection : %u"},
    {Said::kConnectionIdAtStart, kConnections, "Connection Id : %s"},
    {Said::kWiredAtStart, kConnections, "Ethernet Connection - adding to set..."},
    {Said::kConnectedAtStart, kConnections, "Is Connected to Network: %d"},
    {Said::kNetworkNameAtStart, kConnections, "Connected to Network (Name): %s"},
    {Said::kNetworkAlive, kWorker, "Network Alive : Return  = %d, Status : %d"},

    {Said::kCableEventArrives, kCableEvent, "NLM_CONNECTIVITY = %d"},
    {Said::kCableEventBegins, kCableEvent, "------------------start----------------------"},
    {Said::kConnectionId, kCableEvent, "Connection ID : %s"},
    {Said::kDisconnects, kCableEvent, "Disconnecting connection, check list to see if it was Ethernet."},
    {Said::kConnects, kCableEvent, "Connectivity state : %d "},
    {Said::kNotInList, kCableEvent, "Connection ID is not in the list, DO nothing"},
    {Said::kTypeUnknown, kCableEvent, "Could not determine connection type. Doing nothing."},
    {Said::kEthernetState, kCableEvent, "Ethernet state : %d "},
    {Said::kAdapterDescription, kAdapterInfo, "Description   : %s"},
    {Said::kAdapterName, kAdapterInfo, "Friendly Name : %s"},
    {Said::kInterfaceType, kAdapterInfo, "Interface type: %s"},
    {Said::kNoMatchingAdapter, kAdapterInfo, "Could not find matching adapter"},
    {Said::kNoAddressYet, kCableEvent, "CheckEthernetConnectionStatus failed in try %d"},
    {Said::kCableIsUp, kCableEvent, "Ethernet is connected"},
    {Said::kStopWlan, kCableEvent, "Connecting to Ethernet. Stop WLAN service..."},
    {Said::kStopWwan, kCableEvent, "Connecting to Ethernet. Stop WWAN service..."},
    {Said::kStartWlan, kCableEvent, "The disconnecting connection was Ethernet. Start WLAN service..."},
    {Said::kStartWwan, kCableEvent, "The disconnecting connection was Ethernet. Start WWAN service..."},
    {Said::kCableEventCheck, kCableEvent, "Ethernet connection status = %d"},
    {Said::kCableEventCheckFailed, kCableEvent, "CheckEthernetConnectionStatus failed"},
    {Said::kCableEventEnds, kCableEvent, "-------------------end-----------------------"},
    {Said::kCableEventThrew, kCableEvent, "Exception in %S()"},

    {Said::kAdaptersRead, kAdapters, "GetAdaptersInfo() success: ulOutBufLen = %u."},
    {Said::kAdaptersUnreadable, kAdapters, "GetAdaptersInfo() failed.Error = 0x%08lx"},
    {Said::kRealEthernet, kEthernetCheck, "Ethernet is not VPN and IP is valid"},
    {Said::kVirtualEthernet, kEthernetCheck, "Ethernet is VPN and IP is valid"},
    {Said::kEthernetFound, kEthernetCheck, "Ethernet Status = %d"},
    {Said::kInitialiseFailed, kEthernetCheck, "InitialiseAdapter failed"},

    {Said::kNotification, kNotificationCallback,
     "WlanNotificationCallback - Notification Source = 0x%x, Notification Code = %d"},
    {Said::kNotificationHandled, kNotificationCallback,
     "NotificationSource = WLAN_NOTIFICATION_SOURCE_MSM, NotificationCode= "
     "wlan_notification_msm_radio_state_change. Processing Callback"},
    {Said::kAvailableHandled, kNotificationCallback,
     "NotificationSource = WLAN_NOTIFICATION_SOURCE_ACM, NotificationCode = "
     "wlan_notification_acm_network_available. Processing Callback "},
    {Said::kEthernetAtRadioChange, kRadioChange, "Ethernet connection status = %d"},
    {Said::kEthernetAtAvailable, kAvailable, "Ethernet connection status = %d"},
    {Said::kWlanAtRadioChange, kRadioChange, "Current WLAN status = %d"},
    {Said::kUsersWlanChoice, kRadioChange,
     "Airplane mode if OFF. Ethernet not connected. msm_Notification_flag = false. Setting WLAN registry "
     "status with WiFi Status = %d"},
    {Said::kAirplaneText, kRadioChange, "Changing WiFi Status (string) to %s "},
    {Said::kAvailableStored, kAvailable,
     "wlan_notification_acm_network_available Registry set to True. Setting WlanPowerStatus %d in "
     "registry."},

    {Said::kAirplane, kAirplaneCheck, "Airplane Mode Status: %u "},
    {Said::kAirplaneKeyMissing, kAirplaneCheck,
     "RegOpenKeyEx (BrimletAirplaneModeRegistry) failed with error: %u"},
    {Said::kAirplaneValueMissing, kAirplaneCheck,
     "RegQueryValueEx (BrimletAirplaneModeRegistry) failed with error: %u"},
    {Said::kRadioKeyChanged, kWatcher, "AirplaneModeWatcher - Registry Change Event Triggered"},
    {Said::kAirplaneOnSeen, kWatcher, "Airplane Mode ON , setting default"},
    {Said::kAirplaneOffSeen, kWatcher, "Airplane mode is OFF"},
    {Said::kWatcherStops, kWatcher, "AirplaneModeWatcher - Service Stop event Triggered. Exiting"},

    {Said::kWlanSwitchBegins, kWlanSwitch, "OnOffValue = %d, bCheckAirplaneStatus = %d"},
    {Said::kWlanSwitchEnds, kWlanSwitch, "WLAN switching Status = %d"},
    {Said::kWlanNotInAirplane, kWlanSwitch, "SwitchWlanStatus not needed for New status = %d"},
    {Said::kWlanNotInAirplaneRetry, kWlanRetry, "SwitchWlanStatus not needed for New status = %d"},
    {Said::kWlanToChange, kWlanSwitch, "Current WLAN Status : %d, To Change Status = %d"},
    {Said::kWlanNoChange, kWlanSwitch, "No change in WLAN Status Needed."},
    {Said::kPhySet, kWlanSwitch, "Set WLAN state %d for PHY %d success"},
    {Said::kPhyRefused, kWlanSwitch, "Set WLAN state failed!err is %d"},
    {Said::kPhysNotAll, kWlanSwitch, "Could not Set WLAN state in all PHYs. So retrying in count = %d"},
    {Said::kPhysGivenUp, kWlanSwitch, "WlanSetInterface failed"},
    {Said::kWlanAfterSwitch, kWlanSwitch, "New WIFI state : %d"},
    {Said::kWlanOpenFailed, kWlanCheck, "WlanOpenHandle failed with error: %u"},
    {Said::kWlanEnumFailed, kWlanCheck, "WlanEnumInterfaces failed with error: %u"},
    {Said::kWlanSwitchOpenFailed, kWlanSwitch, "WlanOpenHandle failed with error: %u"},
    {Said::kWlanSwitchEnumFailed, kWlanSwitch, "WlanEnumInterfaces failed with error: %u"},
    {Said::kWlanListEmpty, kWlanCheck, "Interface list is empty"},
    {Said::kWlanSwitchListEmpty, kWlanSwitch, "Interface list is empty"},
    {Said::kCapabilityFailed, kWlanSwitch, "WlanGetInterfaceCapability failed !err is %d"},
    {Said::kQueryFailed, kWlanCheck, "WlanQueryInterface failed! err is %d"},
    {Said::kQueryTimeout, kWlanCheck, "My WIFI Query timeout, my_setwifitimeout : %d"},
    {Said::kInterface, kWlanCheck, "Interface Description: %ws"},
    {Said::kPhyOn, kWlanCheck, "Phy: %d On"},
    {Said::kPhyOff, kWlanCheck, "Phy: %d Off"},
    {Said::kWlanState, kWlanCheck, "Phy state : %d"},
    {Said::kWlanRetrySucceeded, kWlanRetry, "SwitchWlanStatus Success"},
    {Said::kWlanRetryMissed, kWlanRetry, "SwitchWlanStatus not Succeeded. Retrying to %d"},
    {Said::kWlanBackFailed, kWlanBack, "SwitchWlanStatusWithRetry (StartWLANService) failed"},
    {Said::kWlanDownFailed, kWlanDown, "SwitchWlanStatusWithRetry (StopWLANService) failed"},
    {Said::kWlanWasOn, kWlanDown, "WLAN Current Status = %d"},

    {Said::kWwanSwitchBegins, kWwanSwitch, "OnOffValue = %d, bCheckAirplaneStatus = %d"},
    {Said::kWwanSwitchEnds, kWwanSwitch, "WWAN switching Status = %d"},
    {Said::kWwanAbsent, kWwanCheck, "WWAN Device is not available."},
    {Said::kWwanAbsentForStop, kWwanDown, "WWAN Device is not available."},
    {Said::kWwanAbsentForStart, kWwanBack, "WWAN Device is not available."},
    {Said::kWwanAbsentForSwitch, kWwanSwitch, "WWAN Device is not available."},
    {Said::kWwanAbsentForRetry, kWwanRetry, "WWAN Device is not available."},
    {Said::kWwanNotInAirplane, kWwanSwitch, "SwitchWwanStatus not needed for New status = %d"},
    {Said::kWwanNotInAirplaneRetry, kWwanRetry, "SwitchWwanStatus not needed for New status = %d"},
    {Said::kWwanToChange, kWwanSwitch, "Current Status : %d, To Change Status = %d"},
    {Said::kWwanNoChange, kWwanSwitch, "No change in WWAN Status Needed."},
    {Said::kWwanChanging, kWwanSwitch, "Change to softwareRadioState : %d"},
    {Said::kWwanSetFailed, kWwanSwitch,
     "SetSoftwareRadioState failed with error in retry %d: HRESULT : 0x%08X"},
    {Said::kWwanSetGivenUp, kWwanSwitch, "SetSoftwareRadioState failed with error : HRESULT : 0x%08X"},
    {Said::kWwanWaited, kWwanSwitch, "WaitForSingleObject returned = %d , bOnOffStatus = %d"},
    {Said::kWwanNewState, kWwanSwitch, "New SoftwareRadioState = %d in iteration %d"},
    {Said::kWwanFollows, kWwanSwitch, "NewSoftwareRadioState and expected radio states match. Exiting.. "},
    {Said::kWwanLooked, kWwanSwitch, "Got new WWAN Status = %d , bOnOffStatus = %d"},
    {Said::kWwanRetries, kWwanSwitch, "Retrying SetSoftwareRadioState = %d"},
    {Said::kWwanRadioUnreadable, kWwanCheck, "get_SoftwareRadioState failed! err is %d"},
    {Said::kWwanLastRadioUnreadable, kWwanSwitch,
     "get_SoftwareRadioState failed with error: HRESULT : 0x%08X"},
    {Said::kWwanNoRadio, kWwanCheck, "GetRadioInterface Failed"},
    {Said::kWwanSwitchNoRadio, kWwanSwitch, "GetRadioInterface Failed"},
    {Said::kWwanState, kWwanCheck, "Current WWAN status : %ls"},
    {Said::kWwanRetrySucceeded, kWwanRetry, "SwitchWwanStatus Success"},
    {Said::kWwanRetryMissed, kWwanRetry, "SwitchWwanStatus not Succeeded. Retrying to %d"},
    {Said::kWwanBackFailed, kWwanBack, "SwitchWwanStatusWithRetry (StartWWANService) failed"},
    {Said::kWwanDownFailed, kWwanDown, "SwitchWwanStatus (StopWWANService) failed"},
    {Said::kNoModem, kWorker, "WWAN Device enumeration failed / No supporting WWAN device found "},
    {Said::kModem, kWwanInterfaces, "WWAN Interface = %s"},

    {Said::kCompletion, kCompletion, "RequestID = %d, Status = 0x%x"},
    {Said::kCompletionEthernet, kCompletion, "Ethernet Connection Status = %d"},
    {Said::kCompletionOwn, kCompletion, "NetworkChangedForSetRadio Status = %d"},
    {Said::kCompletionIgnored, kCompletion, "Not Processing OnSetSoftwareRadioStateComplete"},
    {Said::kCompletionState, kCompletion, "WWAN Status = %d"},
    {Said::kCompletionStored, kCompletion, "Writing WWAN status %d to registry"},
    {Said::kCompletionUndone, kCompletion, "Ethernet is present, switching OFF WWAN"},

    {Said::kWlanStores, kWlanStore, "SetWlanPowerStatusInRegistry. Value = %s"},
    {Said::kWwanStores, kWwanStore, "SetWwanPowerStatusInRegistry. Value = %s"},
    {Said::kStores, kStore, "Writing Power Status in registry. Value = %s"},
    {Said::kStoreFailed, kStore, "Registry::SetValue failed with error %d"},
    {Said::kWlanStored, kWlanStore, "Return Status = %d"},
    {Said::kWwanStored, kWwanStore, "Return Status = %d"},
    {Said::kWlanRememberedAtBack, kWlanBack, "WLAN Registry Status = %s"},
    {Said::kWwanRememberedAtBack, kWwanBack, "WWAN Registry Status = %s"},
    {Said::kWlanRememberedNothing, kWlanUpdate,
     "Registry read is empty : WLAN. Setting Default Value as TRUE"},
    {Said::kWwanRememberedNothing, kWwanUpdate,
     "Registry read is empty : WWAN. Setting Default Value as TRUE"},
    {Said::kWlanRememberedAtStart, kWlanUpdate, "Registry read is %d, WLAN Switch = %d"},
    {Said::kWwanRememberedAtStart, kWwanUpdate, "Registry read is %d, WWAN Switch = %d"},
    {Said::kWlanRememberedAfterAirplane, kWatcher, "Previous WLAN Power Status in registry = %s"},

    {Said::kWlanRestoredDisabled, kWorker,
     "LAN WLAN Auto Switching is disabled in BIOS. Restoring previous WLAN Status."},
    {Said::kWwanRestoredDisabled, kWorker,
     "LAN WWAN Auto Switching is disabled in BIOS.Restoring previous WWAN Status."},
    {Said::kWlanOffAtStart, kWorker, "LAN connection available when service start. Stopping WLAN service..."},
    {Said::kWwanOffAtStart, kWorker, "LAN connection available when service start. Stopping WWAN service..."},
    {Said::kWwanOnAtStart, kWorker,
     "LAN connection not available when service start. starting WWAN service..."},
    {Said::kResumeEthernet, kResume, "Ethernet Status = %d"},
    {Said::kResumeStartsWlan, kResume, "Service resume handler starting WLAN service.."},
    {Said::kResumeStartsWwan, kResume, "Obtained Signal Service resume handler starting WWAN service.."},
    {Said::kEthernetUnreadable, kWorker, "CheckEthernetConnectionStatusEx failed"},
    {Said::kEthernetUnreadable, kResume, "CheckEthernetConnectionStatusEx failed"},
    {Said::kEthernetUnreadable, kWatcher, "CheckEthernetConnectionStatusEx failed"},
    {Said::kEthernetUnreadable, kRadioChange, "CheckEthernetConnectionStatusEx failed"},
    {Said::kEthernetUnreadable, kAvailable, "CheckEthernetConnectionStatusEx failed"},
};

/// Operations that matter for nothing but that somebody of the service says something.
constexpr const char* kOtherOperations[] = {
    "CMainService::CMainService",
    "CMainService::~CMainService",
    "CMainService::OnShutdown",
    "CServiceBase::OnContinue",
    "CMbnSinks::OnRadioStateChange",
    "NLMEventHandler::NLMEventHandler",
    "NLMEventHandler::~NLMEventHandler",
    "NLMEventHandler::ConnectivityChanged",
    "NLMEventHandler::NetworkAdded",
    "NLMEventHandler::NetworkDeleted",
    "NLMEventHandler::NetworkConnectivityChanged",
    "NLMEventHandler::NetworkPropertyChanged",
    "NLMEventHandler::NetworkConnectionPropertyChanged",
    "NLMEventHandler::CheckEthernetConnectionStatusEx",
    "NLMUtils::IsEthernetConnection",
    "NLMUtils::GetInterfaceTypeString",
    "NLMUtils::PrintConnectivityState",
    "NLMUtils::CopyArrayOfInterfaces",
    "ServiceUtils::GetRadioInterface",
    "Utils::GetBinaryVersion",
    "Utils::WaitforServiceToStartRunning",
    "Utils::UtilSleep",
    "Utils::SetServiceRestartRecoveryOnFailure",
    "InstallService",
    "UninstallService",
};

/// A format's pieces: literal text, then (maybe) a conversion.
enum class Conversion : std::uint8_t { kNone, kDecimal, kHexadecimal, kText };

struct Piece {
    std::string_view literal;
    Conversion conversion;
};

struct Pattern {
    Said said;
    std::vector<Piece> pieces;
};

Conversion ConversionOf(char letter) {
    switch (letter) {
        case 'd':
        case 'u':
            return Conversion::kDecimal;
        case 'x':
        case 'X':
            return Conversion::kHexadecimal;
        default:
            return Conversion::kText;
    }
}

Pattern Compile(const KnownText& text) {
    Pattern pattern{text.said, {}};
    std::string_view format = text.format;
    while (!format.empty()) {
        const std::size_t percent = format.find('%');
        if (percent == std::string_view::npos) {
            pattern.pieces.push_back({format, Conversion::kNone});
            break;
        }
        const std::size_t letter = format.find_first_of("duxXsS", percent);
        pattern.pieces.push_back({format.substr(0, percent), ConversionOf(format[letter])});
        format.remove_prefix(letter + 1);
    }
    return pattern;
}

/// Takes a number from the front of a text; nothing when there is none.
std::optional<std::int64_t> TakeNumber(std::string_view& text, bool hexadecimal) {
    constexpr std::size_t kMostDigits = 16;
    const bool negative = !hexadecimal && text.starts_with('-');
    std::size_t at = negative ? 1 : 0;
    std::uint64_t value = 0;
    const std::size_t first = at;
    for (; at < text.size() && at - first < kMostDigits; ++at) {
        const char c = text[at];
        if (c >= '0' && c <= '9') {
            value = value * (hexadecimal ? 16 : 10) + static_cast<std::uint64_t>(c - '0');
        } else if (hexadecimal && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))) {
            value = value * 16 + static_cast<std::uint64_t>((c | 0x20) - 'a' + 10);
        } else {
            break;
        }
    }
    if (at == first) {
        return std::nullopt;
    }
    text.remove_prefix(at);
    const auto number = static_cast<std::int64_t>(value);
    return negative ? -number : number;
}

std::optional<Reading> Match(const Pattern& pattern, std::string_view text) {
    Reading reading;
    reading.said = pattern.said;
    std::size_t numbers = 0;
    for (std::size_t i = 0; i < pattern.pieces.size(); ++i) {
        const Piece& piece = pattern.pieces[i];
        if (!text.starts_with(piece.literal)) {
            return std::nullopt;
        }
        text.remove_prefix(piece.literal.size());
        if (piece.conversion == Conversion::kText) {
            const bool isLast = i + 1 == pattern.pieces.size();
            // A foreign text may hold what follows it in the format: the last occurrence counts.
            const std::size_t end = isLast ? text.size() : text.rfind(pattern.pieces[i + 1].literal);
            if (end == std::string_view::npos) {
                return std::nullopt;
            }
            reading.text = text.substr(0, end);
            text.remove_prefix(end);
        } else if (piece.conversion != Conversion::kNone) {
            const std::optional<std::int64_t> number =
                TakeNumber(text, piece.conversion == Conversion::kHexadecimal);
            if (!number) {
                return std::nullopt;
            }
            if (numbers < reading.numbers.size()) {
                reading.numbers[numbers++] = *number;
            }
        }
    }
    return text.empty() ? std::optional<Reading>(reading) : std::nullopt;
}

using Patterns = std::unordered_map<std::string_view, std::vector<Pattern>>;

Patterns CompileAll() {
    Patterns patterns;
    for (const KnownText& text : kTexts) {
        patterns[text.operation].push_back(Compile(text));
    }
    for (const char* const operation : kOtherOperations) {
        patterns[operation];
    }
    return patterns;
}

const Patterns& AllPatterns() {
    static const Patterns patterns = CompileAll();
    return patterns;
}

}  // namespace

std::span<const KnownText> KnownTexts() {
    return kTexts;
}

std::span<const char* const> OtherOperations() {
    return kOtherOperations;
}

Reading Read(std::string_view operation, std::string_view text) {
    const auto found = AllPatterns().find(operation);
    if (found == AllPatterns().end()) {
        return {};
    }
    for (const Pattern& pattern : found->second) {
        if (const std::optional<Reading> reading = Match(pattern, text)) {
            return *reading;
        }
    }
    return {};
}

bool IsOperationOfService(std::string_view operation) {
    return AllPatterns().contains(operation);
}

bool HoldsForeignText(Said said) {
    switch (said) {
        case Said::kAdapterDescription:
        case Said::kAdapterName:
        case Said::kNetworkNameAtStart:
        case Said::kInterface:
        case Said::kFirmwareAnswered:
        case Said::kWlanHalfStarred:
        case Said::kWlanHalfUnread:
        case Said::kWlanSettingRead:
        case Said::kWwanHalfUnread:
        case Said::kWwanSettingRead:
        case Said::kWlanRememberedAtBack:
        case Said::kWwanRememberedAtBack:
        case Said::kWlanRememberedAfterAirplane:
            return true;
        default:
            return false;
    }
}

}  // namespace Doctor
