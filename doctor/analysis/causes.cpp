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
    "the hardware switch, the driver and the network.";

constexpr Severity kWell = Severity::kWell;
constexpr Severity kNote = Severity::kNote;
constexpr Severity kWarning = Severity::kWarning;
constexpr Severity kFault = Severity::kFault;
constexpr Severity kUnknown = Severity::kUnknown;

constexpr CauseInfo kCauses[] = {
    {Cause::kServiceNotRunning, kFault, 96, "service-not-running", "service",
     "Start it: net start LinkvaneService. While it does not run, both radios are the user's."},
    {Cause::kServiceEnded, kFault, 97, "service-ended", "service",
     "See the System event log for a crash of LinkvaneService or an unexpected shutdown at that time."},
    {Cause::kStartGivenUp, kFault, 98, "start-given-up", "service", kRestart},
    {Cause::kNotSubscribed, kFault, 92, "not-subscribed", "service", kRestart},
    {Cause::kSubscriptionLost, kFault, 91, "subscription-lost", "service", kRestart},
    {Cause::kNotNotified, kFault, 80, "not-notified", "service", kRestart},
    {Cause::kWaitingForFirmware, kWarning, 90, "waiting-for-firmware", "service",
     "Wait: a provider that does not answer is asked for up to two minutes and more for each setting."},
    {Cause::kWaitingForService, kWarning, 89, "waiting-for-service", "service",
     "See why WLAN AutoConfig (WlanSvc) or WWAN AutoConfig (WwanSvc) does not run."},
    {Cause::kWaitingForModem, kWarning, 88, "waiting-for-modem", "service",
     "Wait: one switch gives a modem up to eighty seconds, and cable events queue behind it. Then look at "
     "the modem."},
    {Cause::kWaitingForDriver, kWarning, 87, "waiting-for-driver", "service",
     "Wait: a driver that refuses is asked for eight seconds and up to six times. Then look at the driver."},
    {Cause::kServiceStarting, kNote, 70, "service-starting", "service", "Wait for the first decisions."},
    {Cause::kLevelsHidden, kUnknown, 60, "levels-hidden", "log",
     "Let the log take the level Information and below (policy MinLogLevel), restart the service, and ask "
     "again."},
    {Cause::kLogEmpty, kUnknown, 100, "log-empty", "log",
     "See whether a policy silences the log (MinLogLevel, LoggingType), and whether this is the service's "
     "folder."},
    {Cause::kNotThisLog, kUnknown, 100, "not-this-log", "log",
     "Name the files LinkvaneService.log and LinkvaneService_0001.log to _0009.log."},
    {Cause::kLogDoesNotReach, kUnknown, 99, "log-does-not-reach", "log",
     "Add the older files (LinkvaneService_0001.log and on), or ask for a time within the log."},
    {Cause::kLinesDoubtful, kWarning, 20, "lines-doubtful", "log",
     "A name with line ends in it stands in the log. Lines that may be part of it were left out."},
    {Cause::kClockSetBack, kNote, 11, "clock-set-back", "log",
     "Times before and after that moment cannot be compared."},
    {Cause::kLogDamaged, kNote, 10, "log-damaged", "log", ""},
    {Cause::kLogFilesOverlap, kWarning, 21, "log-files-overlap", "log",
     "Give the logs of each machine in a folder of its own."},

    {Cause::kWifiOn, kWell, 4, "wifi-on", "wifi", kLookFurther},
    {Cause::kCableIn, kWell, 5, "cable-in", "wifi",
     "Pull the cable to have Wi-Fi back. If no cable is in, unplug or disable the adapter that counts as "
     "one."},
    {Cause::kUserOff, kNote, 46, "user-off", "wifi", "Turn Wi-Fi on without the cable; that is remembered."},
    {Cause::kRememberedOff, kNote, 45, "remembered-off", "wifi",
     "Turn Wi-Fi on without the cable; that is remembered."},
    {Cause::kRememberedOdd, kWarning, 62, "remembered-odd", "wifi",
     "Turn Wi-Fi on without the cable; that is remembered as \"True\". See who else writes that value."},
    {Cause::kAirplaneMode, kNote, 44, "airplane-mode", "wifi",
     "Turn airplane mode off: the service then brings Wi-Fi back by itself."},
    {Cause::kHalfDisabled, kNote, 43, "half-disabled", "wifi", kFirmwareRemedy},
    {Cause::kFirmwareUnreadable, kWarning, 61, "firmware-unreadable", "wifi", kFirmwareProvider},
    {Cause::kDriverRefuses, kFault, 86, "driver-refuses", "wifi", kDriver},
    {Cause::kDriverDoesNotFollow, kFault, 85, "driver-does-not-follow", "wifi", kDriver},
    {Cause::kRadioUnreadable, kFault, 84, "radio-unreadable", "wifi", kDriver},
    {Cause::kQueryTimeout, kFault, 85, "query-timeout", "wifi", kRestart},
    {Cause::kWlanService, kFault, 84, "wlan-service", "wifi",
     "Start WLAN AutoConfig (WlanSvc); look whether the Wi-Fi adapter is there."},
    {Cause::kWlanNoAdapter, kFault, 83, "wlan-no-adapter", "wifi",
     "Look whether the Wi-Fi adapter is enabled and its driver loaded."},
    {Cause::kOtherCable, kNote, 48, "other-cable", "wifi",
     "Another adapter counts as a cable with an address: unplug or disable it (docking station, bridge, "
     "second "
     "cable)."},
    {Cause::kNeverWired, kFault, 82, "never-wired", "wifi",
     "Plug the cable in and out once while the service runs."},
    {Cause::kCableUnreadable, kFault, 83, "cable-unreadable", "wifi", "Try again; then restart the service."},
    {Cause::kNoAddress, kNote, 47, "no-address", "wifi",
     "The cable gives no address: look at the network behind it (DHCP). Until then Wi-Fi stays as it is."},
    {Cause::kTurnedOffElsewhere, kFault, 78, "turned-off-elsewhere", "wifi",
     "The service did its part: look at the driver, its power saving, other connection managers, and the "
     "switch."},
    {Cause::kOnBesideCable, kWarning, 63, "on-beside-cable", "wifi", "Plug the cable out and in again."},
    {Cause::kCannotBeTold, kUnknown, 50, "cannot-be-told", "wifi",
     "Plug the cable in and out once, and ask again."},

    {Cause::kWwanOn, kWell, 1, "wwan-on", "wwan", kLookFurther},
    {Cause::kWwanCableIn, kWell, 2, "wwan-cable-in", "wwan", "Pull the cable to have mobile broadband back."},
    {Cause::kWwanUserOff, kNote, 36, "wwan-user-off", "wwan",
     "Turn mobile broadband on without the cable; that is remembered."},
    {Cause::kWwanRememberedOff, kNote, 35, "wwan-remembered-off", "wwan",
     "Turn mobile broadband on without the cable; that is remembered."},
    {Cause::kWwanRememberedOdd, kWarning, 52, "wwan-remembered-odd", "wwan",
     "Turn mobile broadband on without the cable; that is remembered as \"True\"."},
    {Cause::kWwanAirplaneMode, kNote, 34, "wwan-airplane-mode", "wwan",
     "Turn airplane mode off: the service then brings mobile broadband back by itself."},
    {Cause::kWwanHalfDisabled, kNote, 33, "wwan-half-disabled", "wwan", kFirmwareRemedy},
    {Cause::kWwanFirmwareUnreadable, kWarning, 51, "wwan-firmware-unreadable", "wwan", kFirmwareProvider},
    {Cause::kModemRefuses, kFault, 76, "modem-refuses", "wwan", kModemRemedy},
    {Cause::kModemDoesNotFollow, kFault, 75, "modem-does-not-follow", "wwan", kModemRemedy},
    {Cause::kModemUnreadable, kFault, 74, "modem-unreadable", "wwan", kModemRemedy},
    {Cause::kModemMissing, kNote, 0, "modem-missing", "wwan",
     "Where the notebook has a modem: restart the service once it is there."},
    {Cause::kWwanNotSubscribed, kFault, 73, "wwan-not-subscribed", "wwan", kRestart},
    {Cause::kWwanTurnedOffElsewhere, kFault, 72, "wwan-turned-off-elsewhere", "wwan",
     "The service did its part: look at the modem, its driver, other connection managers, and the switch."},
    {Cause::kWwanOnBesideCable, kWarning, 53, "wwan-on-beside-cable", "wwan",
     "Plug the cable out and in again."},
    {Cause::kWwanCannotBeTold, kUnknown, 3, "wwan-cannot-be-told", "wwan",
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
