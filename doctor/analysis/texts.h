#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace Doctor {

/// What a line of the service says, as far as the analysis makes use of it. In the order of the table
/// in texts.cpp.
enum class Said : std::uint8_t {
    kNothingKnown,
    // The service and its worker.
    kServiceStarts,
    kServiceStops,
    kSecurityReady,
    kWorkerBegins,
    kWorkerEnds,
    kWorkerThrew,
    kComFailed,
    kNetworkListFailed,
    kMobileBroadbandFailed,
    kFirmwareRead,
    kWlanListening,
    kWwanListening,
    kDispatcherFailed,
    // Firmware.
    kFirmwareAsked,
    kFirmwareAnswered,
    kFirmwareRefused,
    kFirmwareThrew,
    kWlanHalfOn,
    kWlanHalfOnByOtherName,
    kWlanHalfStarred,
    kWlanHalfUnread,
    kWlanSettingRead,
    kWwanHalfOn,
    kWwanHalfUnread,
    kWwanSettingRead,
    // Windows' services.
    kWaitsForWwanService,
    kWlanServiceMissed,
    kWwanServiceMissed,
    kWlanServiceMissedAtResume,
    kWwanServiceMissedAtResume,
    kServiceAbsent,
    // Subscriptions.
    kNoContainer,
    kNoFirstConnectionPoint,
    kNoConnectionPoint,
    kNoEventHandler,
    kAdviseFailed,
    kWwanNoContainer,
    kWwanNoConnectionPoint,
    kWwanAdviseFailed,
    kWlanRegisterFailed,
    kWlanRegisterRefused,
    kWlanRegisterNoHandle,
    // Connections at the start.
    kConnectionAtStart,
    kConnectionIdAtStart,
    kWiredAtStart,
    kConnectedAtStart,
    kNetworkNameAtStart,
    kNetworkAlive,
    // Cable events.
    kCableEventArrives,
    kCableEventBegins,
    kConnectionId,
    kDisconnects,
    kConnects,
    kNotInList,
    kTypeUnknown,
    kEthernetState,
    kAdapterDescription,
    kAdapterName,
    kInterfaceType,
    kNoMatchingAdapter,
    kNoAddressYet,
    kCableIsUp,
    kStopWlan,
    kStopWwan,
    kStartWlan,
    kStartWwan,
    kCableEventCheck,
    kCableEventCheckFailed,
    kCableEventEnds,
    kCableEventThrew,
    // The Ethernet test.
    kAdaptersRead,
    kAdaptersUnreadable,
    kRealEthernet,
    kVirtualEthernet,
    kEthernetFound,
    kInitialiseFailed,
    // WLAN notifications.
    kNotification,
    kNotificationHandled,
    kAvailableHandled,
    kEthernetAtRadioChange,
    kEthernetAtAvailable,
    kWlanAtRadioChange,
    kUsersWlanChoice,
    kAirplaneText,
    kAvailableStored,
    // Airplane mode.
    kAirplane,
    kAirplaneKeyMissing,
    kAirplaneValueMissing,
    kRadioKeyChanged,
    kAirplaneOnSeen,
    kAirplaneOffSeen,
    kWatcherStops,
    // The WLAN radio.
    kWlanSwitchBegins,
    kWlanSwitchEnds,
    kWlanNotInAirplane,
    kWlanNotInAirplaneRetry,
    kWlanToChange,
    kWlanNoChange,
    kPhySet,
    kPhyRefused,
    kPhysNotAll,
    kPhysGivenUp,
    kWlanAfterSwitch,
    kWlanOpenFailed,
    kWlanEnumFailed,
    kWlanSwitchOpenFailed,
    kWlanSwitchEnumFailed,
    kWlanListEmpty,
    kWlanSwitchListEmpty,
    kCapabilityFailed,
    kQueryFailed,
    kQueryTimeout,
    kInterface,
    kPhyOn,
    kPhyOff,
    kWlanState,
    kWlanRetrySucceeded,
    kWlanRetryMissed,
    kWlanBackFailed,
    kWlanDownFailed,
    kWlanWasOn,
    // The WWAN radio.
    kWwanSwitchBegins,
    kWwanSwitchEnds,
    kWwanAbsent,
    kWwanAbsentForStop,
    kWwanAbsentForStart,
    kWwanAbsentForSwitch,
    kWwanAbsentForRetry,
    kWwanNotInAirplane,
    kWwanNotInAirplaneRetry,
    kWwanToChange,
    kWwanNoChange,
    kWwanChanging,
    kWwanSetFailed,
    kWwanSetGivenUp,
    kWwanWaited,
    kWwanNewState,
    kWwanFollows,
    kWwanLooked,
    kWwanRetries,
    kWwanRadioUnreadable,
    kWwanLastRadioUnreadable,
    kWwanNoRadio,
    kWwanSwitchNoRadio,
    kWwanState,
    kWwanRetrySucceeded,
    kWwanRetryMissed,
    kWwanBackFailed,
    kWwanDownFailed,
    kNoModem,
    kModem,
    // Completions of the modem.
    kCompletion,
    kCompletionEthernet,
    kCompletionOwn,
    kCompletionIgnored,
    kCompletionState,
    kCompletionStored,
    kCompletionUndone,
    // What is remembered.
    kWlanStores,
    kWwanStores,
    kStores,
    kStoreFailed,
    kWlanStored,
    kWwanStored,
    kWlanRememberedAtBack,
    kWwanRememberedAtBack,
    kWlanRememberedNothing,
    kWwanRememberedNothing,
    kWlanRememberedAtStart,
    kWwanRememberedAtStart,
    kWlanRememberedAfterAirplane,
    // Decisions at start and resume.
    kWlanRestoredDisabled,
    kWwanRestoredDisabled,
    kWlanOffAtStart,
    kWwanOffAtStart,
    kWwanOnAtStart,
    kResumeEthernet,
    kResumeStartsWlan,
    kResumeStartsWwan,
    kEthernetUnreadable,
};

/// One text of the service: who says it, and its format as it stands in the service's sources.
struct KnownText {
    Said said;
    const char* operation;
    const char* format;
};

/// All of them. (A test holds every one against the service's sources.)
std::span<const KnownText> KnownTexts();
/// The service's operations that none of the known texts is of.
std::span<const char* const> OtherOperations();

/// What a line says, with the values of its conversions in their order.
struct Reading {
    Said said = Said::kNothingKnown;
    std::array<std::int64_t, 4> numbers{};
    /// The last text conversion.
    std::string_view text;
};

Reading Read(std::string_view operation, std::string_view text);
/// Other programs may write logs of the same shape; their operations are not the service's.
bool IsOperationOfService(std::string_view operation);

/// Whether a text of the line comes from outside (a network's name, an adapter's, a setting), so that
/// it may hold anything, line ends included.
bool HoldsForeignText(Said said);

}  // namespace Doctor
