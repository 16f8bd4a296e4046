#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "doctor/analysis/history.h"

namespace Doctor {

/// What a finding can be the cause of. Ids are stable: scripts and monitoring rely on them.
enum class Cause : std::uint8_t {
    kServiceNotRunning,
    kServiceEnded,
    kStartGivenUp,
    kNotSubscribed,
    kSubscriptionLost,
    kNotNotified,
    kWaitingForFirmware,
    kWaitingForService,
    kWaitingForModem,
    kWaitingForDriver,
    kServiceStarting,
    kLevelsHidden,
    kLogEmpty,
    kNotThisLog,
    kLogDoesNotReach,
    kLinesDoubtful,
    kClockSetBack,
    kLogDamaged,
    kLogFilesOverlap,

    kWifiOn,
    kCableIn,
    kUserOff,
    kRememberedOff,
    kRememberedOdd,
    kAirplaneMode,
    kHalfDisabled,
    kFirmwareUnreadable,
    kDriverRefuses,
    kDriverDoesNotFollow,
    kRadioUnreadable,
    kQueryTimeout,
    kWlanService,
    kWlanNoAdapter,
    kOtherCable,
    kNeverWired,
    kCableUnreadable,
    kNoAddress,
    kTurnedOffElsewhere,
    kOnBesideCable,
    kCannotBeTold,

    kWwanOn,
    kWwanCableIn,
    kWwanUserOff,
    kWwanRememberedOff,
    kWwanRememberedOdd,
    kWwanAirplaneMode,
    kWwanHalfDisabled,
    kWwanFirmwareUnreadable,
    kModemRefuses,
    kModemDoesNotFollow,
    kModemUnreadable,
    kModemMissing,
    kWwanNotSubscribed,
    kWwanTurnedOffElsewhere,
    kWwanOnBesideCable,
    kWwanCannotBeTold,
};

struct CauseInfo {
    Cause cause;
    Severity severity;
    /// Of findings, the one with the highest rank is the verdict.
    int rank;
    std::string_view id;
    /// wifi, wwan, service or log.
    std::string_view subject;
    /// What to do; may be empty.
    std::string_view remedy;
};

std::span<const CauseInfo> AllCauses();
const CauseInfo& InfoOf(Cause cause);

}  // namespace Doctor
