#include "doctor/analysis/causes.h"

#include <algorithm>

namespace Doctor {
namespace {

constexpr std::string_view kRestart =
    "Restart the service: net stop LinkvaneService, net start LinkvaneService.";
constexpr std::string_view kDriver =
    "Look at the hardware switch and at the driver of the Wi-Fi adapter; restart the service afterwards.";
constexpr std::string_view kModemRemedy =
    "Look at the modem, its driver and its SIM; restart the service afterwards.";
constexpr std::string_view kFirmwareRemedy =
    "Enable the setting in the notebook's setup if it is wanted; then restart the service.";
constexpr std::string_view kFirmwareProvider =
    "See whether the vendor's WMI provider is installed and answers (namespace "
    "root\\Orva\\FirmwareSettings); "
    "then restart the service.";

constexpr std::string_view kLookFurther =
    "If it does not work all the same: the service did its part and sees the software switch only; look at "
    "the hardware "
    "switch, the driver and the network.";

constexpr Severity kWell = Severity::kWell;
constexpr Severity kNote = Severity::kNote;
constexpr Severity kWarning = Severity::kWarning;
constexpr Severity kFault = Severity::kFault;
constexpr Severity kUnknown = Severity::kUnknown;

constexpr CauseInfo kCauses[] = {
    {Cause::kServiceNotRunning, "service-not-running", "service", kFault, 96,
     "Start it: net start LinkvaneService. While it does not run, both radios are the user's."},
    {Cause::kServiceEnded, "service-ended", "service", kFault, 97,
     "See the System event log for a crash of LinkvaneService or an unexpected shutdown at that time."},
    {Cause::kStartGivenUp, "start-given-up", "service", kFault, 98, kRestart},
    {Cause::kNotSubscribed, "not-subscribed", "service", kFault, 92, kRestart},
    {Cause::kSubscriptionLost, "subscription-lost", "service", kFault, 91, kRestart},
    {Cause::kNotNotified, "not-notified", "service", kFault, 80, kRestart},
    {Cause::kWaitingForFirmware, "waiting-for-firmware", "service", kWarning, 90,
     "Wait: a provider that does not answer is asked for up to two minutes and more for each setting."},
    {Cause::kWaitingForService, "waiting-for-service", "service", kWarning, 89,
     "See why WLAN AutoConfig (WlanSvc) or WWAN AutoConfig (WwanSvc) does not run."},
    {Cause::kWaitingForModem, "waiting-for-modem", "service", kWarning, 88,
     "Wait: one switch gives a modem up to eighty seconds, and cable events queue behind it. Then look at "
     "the modem."},
    {Cause::kWaitingForDriver, "waiting-for-driver", "service", kWarning, 87,
     "Wait: a driver that refuses is asked for eight seconds and up to six times. Then look at the driver."},
    {Cause::kServiceStarting, "service-starting", "service", kNote, 70, "Wait for the first decisions."},
    {Cause::kLevelsHidden, "levels-hidden", "log", kUnknown, 60,
     "Let the log take the level Information and below (policy MinLogLevel), restart the service, and ask "
     "again."},
    {Cause::kLogEmpty, "log-empty", "log", kUnknown, 100,
     "See whether a policy silences the log (MinLogLevel, LoggingType), and whether this is the service's "
     "folder."},
    {Cause::kNotThisLog, "not-this-log", "log", kUnknown, 100,
     "Name the files LinkvaneService.log and LinkvaneService_0001.log to _0009.log."},
    {Cause::kLogDoesNotReach, "log-does-not-reach", "log", kUnknown, 99,
     "Add the older files (LinkvaneService_0001.log and on), or ask for a time within the log."},
    {Cause::kLinesDoubtful, "lines-doubtful", "log", kWarning, 20,
     "A name with line ends in it stands in the log. Lines that may be part of it were left out."},
    {Cause::kClockSetBack, "clock-set-back", "log", kNote, 11,
     "Times before and after that moment cannot be compared."},
    {Cause::kLogDamaged, "log-damaged", "log", kNote, 10, ""},
    {Cause::kLogFilesOverlap, "log-files-overlap", "log", kWarning, 21,
     "Give the logs of each machine in a folder of its own."},

    {Cause::kWifiOn, "wifi-on", "wifi", kWell, 4, kLookFurther},
    {Cause::kCableIn, "cable-in", "wifi", kWell, 5,
     "Pull the cable to have Wi-Fi back. If no cable is in, unplug or disable the adapter that counts as "
     "one."},
    {Cause::kUserOff, "user-off", "wifi", kNote, 46, "Turn Wi-Fi on without the cable; that is remembered."},
    {Cause::kRememberedOff, "remembered-off", "wifi", kNote, 45,
     "Turn Wi-Fi on without the cable; that is remembered."},
    {Cause::kRememberedOdd, "remembered-odd", "wifi", kWarning, 62,
     "Turn Wi-Fi on without the cable; that is remembered as \"True\". See who else writes that value."},
    {Cause::kAirplaneMode, "airplane-mode", "wifi", kNote, 44,
     "Turn airplane mode off: the service then brings Wi-Fi back by itself."},
    {Cause::kHalfDisabled, "half-disabled", "wifi", kNote, 43, kFirmwareRemedy},
    {Cause::kFirmwareUnreadable, "firmware-unreadable", "wifi", kWarning, 61, kFirmwareProvider},
    {Cause::kDriverRefuses, "driver-refuses", "wifi", kFault, 86, kDriver},
    {Cause::kDriverDoesNotFollow, "driver-does-not-follow", "wifi", kFault, 85, kDriver},
    {Cause::kRadioUnreadable, "radio-unreadable", "wifi", kFault, 84, kDriver},
    {Cause::kQueryTimeout, "query-timeout", "wifi", kFault, 85, kRestart},
    {Cause::kWlanService, "wlan-service", "wifi", kFault, 84,
     "Start WLAN AutoConfig (WlanSvc); look whether the Wi-Fi adapter is there."},
    {Cause::kWlanNoAdapter, "wlan-no-adapter", "wifi", kFault, 83,
     "Look whether the Wi-Fi adapter is enabled and its driver loaded."},
    {Cause::kOtherCable, "other-cable", "wifi", kNote, 48,
     "Another adapter counts as a cable with an address: unplug or disable it (docking station, bridge, "
     "second "
     "cable)."},
    {Cause::kNeverWired, "never-wired", "wifi", kFault, 82,
     "Plug the cable in and out once while the service runs."},
    {Cause::kCableUnreadable, "cable-unreadable", "wifi", kFault, 83, "Try again; then restart the service."},
    {Cause::kNoAddress, "no-address", "wifi", kNote, 47,
     "The cable gives no address: look at the network behind it (DHCP). Until then Wi-Fi stays as it is."},
    {Cause::kTurnedOffElsewhere, "turned-off-elsewhere", "wifi", kFault, 78,
     "The service did its part: look at the driver, its power saving, other connection managers, and the "
     "switch."},
    {Cause::kOnBesideCable, "on-beside-cable", "wifi", kWarning, 63, "Plug the cable out and in again."},
    {Cause::kCannotBeTold, "cannot-be-told", "wifi", kUnknown, 50,
     "Plug the cable in and out once, and ask again."},

    {Cause::kWwanOn, "wwan-on", "wwan", kWell, 1, kLookFurther},
    {Cause::kWwanCableIn, "wwan-cable-in", "wwan", kWell, 2, "Pull the cable to have mobile broadband back."},
    {Cause::kWwanUserOff, "wwan-user-off", "wwan", kNote, 36,
     "Turn mobile broadband on without the cable; that is remembered."},
    {Cause::kWwanRememberedOff, "wwan-remembered-off", "wwan", kNote, 35,
     "Turn mobile broadband on without the cable; that is remembered."},
    {Cause::kWwanRememberedOdd, "wwan-remembered-odd", "wwan", kWarning, 52,
     "Turn mobile broadband on without the cable; that is remembered as \"True\"."},
    {Cause::kWwanAirplaneMode, "wwan-airplane-mode", "wwan", kNote, 34,
     "Turn airplane mode off: the service then brings mobile broadband back by itself."},
    {Cause::kWwanHalfDisabled, "wwan-half-disabled", "wwan", kNote, 33, kFirmwareRemedy},
    {Cause::kWwanFirmwareUnreadable, "wwan-firmware-unreadable", "wwan", kWarning, 51, kFirmwareProvider},
    {Cause::kModemRefuses, "modem-refuses", "wwan", kFault, 76, kModemRemedy},
    {Cause::kModemDoesNotFollow, "modem-does-not-follow", "wwan", kFault, 75, kModemRemedy},
    {Cause::kModemUnreadable, "modem-unreadable", "wwan", kFault, 74, kModemRemedy},
    {Cause::kModemMissing, "modem-missing", "wwan", kNote, 0,
     "Where the notebook has a modem: restart the service once it is there."},
    {Cause::kWwanNotSubscribed, "wwan-not-subscribed", "wwan", kFault, 73, kRestart},
    {Cause::kWwanTurnedOffElsewhere, "wwan-turned-off-elsewhere", "wwan", kFault, 72,
     "The service did its part: look at the modem, its driver, other connection managers, and the switch."},
    {Cause::kWwanOnBesideCable, "wwan-on-beside-cable", "wwan", kWarning, 53,
     "Plug the cable out and in again."},
    {Cause::kWwanCannotBeTold, "wwan-cannot-be-told", "wwan", kUnknown, 3,
     "Plug the cable in and out once, and ask again."},
};

}  // namespace

std::span<const CauseInfo> AllCauses() {
    return kCauses;
}

const CauseInfo& InfoOf(Cause cause) {
    return *std::find_if(std::begin(kCauses), std::end(kCauses),
                         [cause](const CauseInfo& info) { return info.cause == cause; });
}

}  // namespace Doctor
