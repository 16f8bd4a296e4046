#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/analysis/lane.h"
#include "doctor/analysis/log_line.h"

namespace Doctor {

/// A line as proof of something.
struct Proof {
    Place place;
    Time time = 0;
    Level level = Level::kInformation;
    std::uint32_t thread = 0;
    std::string operation;
    std::string text;
};

enum class Severity : std::uint8_t {
    kWell,
    kNote,
    kUnknown,
    kWarning,
    kFault,
};
std::string_view SeverityName(Severity severity);

enum class StoryKind : std::uint8_t {
    kStart,
    kStop,
    kEnd,
    kFirmware,
    kCable,
    kRemembered,
    kAirplane,
    kWake,
    kRadio,
    kDecision,
    kError,
    kLog,
};
std::string_view StoryKindName(StoryKind kind);

/// Something that happened, in words.
struct StoryEvent {
    Time time = 0;
    Time until = 0;
    StoryKind kind = StoryKind::kLog;
    /// The lane that it is about, or nothing.
    std::string subject;
    Who who = Who::kUnknown;
    Severity severity = Severity::kNote;
    std::string text;
    std::uint64_t times = 1;
    Place line;
};

enum class Radio : std::uint8_t { kWifi, kWwan };
std::string_view RadioWord(Radio radio);
/// For arrays of what there is of each radio.
constexpr std::size_t Index(Radio radio) {
    return static_cast<std::size_t>(radio);
}

/// What made a thread of the service act.
enum class Task : std::uint8_t {
    kNone,
    kStart,
    kCableIn,
    kCableOut,
    kRadioChange,
    kNetworkAvailable,
    kAirplane,
    kResume,
    kCompletion,
    kStop,
};

enum class Outcome : std::uint8_t {
    kGoesOn,
    kDone,
    kNothingToDo,
    kAirplaneMode,
    kRefused,
    kDidNotFollow,
    kNotConfirmed,
    kNoWlanService,
    kNoAdapter,
    kUnreadable,
    kQueryTimeout,
    kNoModem,
};

/// A radio that the service was to switch, from the first try to the last.
struct Decision {
    Radio radio = Radio::kWifi;
    bool on = false;
    Task task = Task::kNone;
    Time from = 0;
    Time until = 0;
    Outcome outcome = Outcome::kGoesOn;
    /// The last error of Windows, or 0.
    std::int64_t error = 0;
    std::uint64_t failures = 0;
    /// The line that tells what came of it; of failures the last.
    Proof proof;
    std::optional<Proof> firstFailure;
};

/// What became of the last cable event.
enum class CableOutcome : std::uint8_t {
    kNone,
    kGoesOn,
    kUp,
    kNoAddress,
    kNotEthernet,
    kTypeUnknown,
    kNotInList,
    kOtherCable,
    kCableGone,
    kUnreadable,
    kThrew,
};

/// What is known of a radio at a moment.
struct RadioSituation {
    State state = State::kUnknown;
    Who who = Who::kUnknown;
    Time since = 0;
    std::optional<Proof> proof;
    /// What is remembered: on, off or unknown; the text where it is known.
    State remembered = State::kUnknown;
    Who rememberedBy = Who::kUnknown;
    std::string rememberedText;
    std::optional<Proof> rememberedProof;
    /// A text that the service does not write was read, and has become "False" since.
    std::optional<Proof> rememberedOdd;
    /// The last decision, and the last that failed and was not made good.
    std::optional<Decision> decision;
    std::optional<Decision> failure;
};

/// What the firmware says of a half.
enum class Half : std::uint8_t {
    kUnknown,
    kEnabled,
    kDisabled,
    kUnreadable,
};

struct HalfSituation {
    Half half = Half::kUnknown;
    /// What the setting says, or the error of the provider.
    std::string text;
    std::int64_t error = 0;
    std::optional<Proof> proof;
};

enum class RunState : std::uint8_t { kNone, kStarting, kRunning, kStopped };

/// Something that a thread has begun and not ended.
struct Waiting {
    Task task = Task::kNone;
    Time since = 0;
    std::uint32_t thread = 0;
    Proof lastLine;
};

/// Everything that a verdict rests on, at one moment.
struct Situation {
    std::optional<Time> lastTime;
    RunState run = RunState::kNone;
    Time runSince = 0;
    std::optional<Proof> runProof;
    std::string version;
    /// The worker gave up, or a subscription failed: the line that says so.
    std::optional<Proof> startGivenUp;
    std::optional<Proof> notSubscribed;
    std::optional<Proof> notNotified;
    std::optional<Proof> wwanNotSubscribed;
    std::optional<Proof> serviceMissed;
    bool workerDone = false;
    /// The firmware or a service of Windows is being waited for.
    bool readingFirmware = false;
    bool subscribed = false;
    State cable = State::kUnknown;
    CableOutcome cableOutcome = CableOutcome::kNone;
    std::optional<Proof> cableProof;
    /// A look found a cable that no event has told of.
    std::optional<Proof> untoldCable;
    std::string cableName;
    std::optional<Proof> cableOutcomeProof;
    Time cableOutcomeTime = 0;
    State airplane = State::kUnknown;
    std::optional<Proof> airplaneProof;
    HalfSituation wlanHalf;
    HalfSituation wwanHalf;
    std::optional<Proof> noModem;
    std::optional<Proof> modem;
    RadioSituation wifi;
    RadioSituation wwan;
    std::vector<Waiting> waiting;

    RadioSituation& Of(Radio radio) { return radio == Radio::kWifi ? wifi : wwan; }
    [[nodiscard]] const RadioSituation& Of(Radio radio) const { return radio == Radio::kWifi ? wifi : wwan; }
    [[nodiscard]] const HalfSituation& HalfOf(Radio radio) const {
        return radio == Radio::kWifi ? wlanHalf : wwanHalf;
    }
};

/// What the log tells of one machine.
struct History {
    Lane runs{"runs", "Service"};
    Lane cable{"cable", "Cable"};
    std::map<std::string, Lane> cables;  ///< by connection identifier
    Lane wifi{"wifi", "Wi-Fi"};
    Lane rememberedWlan{"remembered-wlan", "Wi-Fi remembered"};
    Lane wwan{"wwan", "Mobile broadband"};
    Lane rememberedWwan{"remembered-wwan", "Mobile broadband remembered"};
    Lane airplane{"airplane", "Airplane mode"};
    Lane sleep{"sleep", "Sleep"};
    std::vector<StoryEvent> story;
    /// More happened than is told.
    std::uint64_t storyLeftOut = 0;
    std::optional<Time> from;
    std::optional<Time> until;
    std::array<bool, kLevelCount> levels{};
    std::uint64_t linesOfService = 0;
    std::uint64_t linesOfOthers = 0;

    Lane& Of(Radio radio) { return radio == Radio::kWifi ? wifi : wwan; }
    Lane& RememberedOf(Radio radio) { return radio == Radio::kWifi ? rememberedWlan : rememberedWwan; }
};

}  // namespace Doctor
