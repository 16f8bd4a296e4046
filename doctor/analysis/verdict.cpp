#include <fmt/format.h>

#include <algorithm>

#include "doctor/analysis/analysis.h"

namespace Doctor {
namespace {

/// An event of Windows that is not there after this time is not to come.
constexpr Time kEventMs = 100;

/// What the causes of a radio are called.
struct RadioCauses {
    Radio radio;
    Cause on;
    Cause cableIn;
    Cause userOff;
    Cause rememberedOff;
    Cause rememberedOdd;
    Cause airplaneMode;
    Cause halfDisabled;
    Cause firmwareUnreadable;
    Cause refuses;
    Cause doesNotFollow;
    Cause unreadable;
    Cause turnedOffElsewhere;
    Cause onBesideCable;
    Cause cannotBeTold;
};

constexpr RadioCauses kWifiCauses = {
    Radio::kWifi,
    Cause::kWifiOn,
    Cause::kCableIn,
    Cause::kUserOff,
    Cause::kRememberedOff,
    Cause::kRememberedOdd,
    Cause::kAirplaneMode,
    Cause::kHalfDisabled,
    Cause::kFirmwareUnreadable,
    Cause::kDriverRefuses,
    Cause::kDriverDoesNotFollow,
    Cause::kRadioUnreadable,
    Cause::kTurnedOffElsewhere,
    Cause::kOnBesideCable,
    Cause::kCannotBeTold,
};

constexpr RadioCauses kWwanCauses = {
    Radio::kWwan,
    Cause::kWwanOn,
    Cause::kWwanCableIn,
    Cause::kWwanUserOff,
    Cause::kWwanRememberedOff,
    Cause::kWwanRememberedOdd,
    Cause::kWwanAirplaneMode,
    Cause::kWwanHalfDisabled,
    Cause::kWwanFirmwareUnreadable,
    Cause::kModemRefuses,
    Cause::kModemDoesNotFollow,
    Cause::kModemUnreadable,
    Cause::kWwanTurnedOffElsewhere,
    Cause::kWwanOnBesideCable,
    Cause::kWwanCannotBeTold,
};

/// Makes findings; leaves out proof that there is not.
class Findings {
  public:
    void Add(Cause cause, std::string sentence,
             std::initializer_list<const std::optional<Proof>*> proofs = {}) {
        Finding finding{.cause = cause, .sentence = std::move(sentence), .time = std::nullopt, .proof = {}};
        for (const std::optional<Proof>* const proof : proofs) {
            if (*proof) {
                finding.proof.push_back(**proof);
            }
        }
        if (!finding.proof.empty()) {
            finding.time = finding.proof.front().time;
        }
        m_findings.push_back(std::move(finding));
    }

    std::vector<Finding> Take() {
        std::stable_sort(m_findings.begin(), m_findings.end(), [](const Finding& one, const Finding& other) {
            return InfoOf(one.cause).rank > InfoOf(other.cause).rank;
        });
        return std::move(m_findings);
    }

  private:
    std::vector<Finding> m_findings;
};

std::string SinceText(const std::optional<Proof>& proof) {
    return proof ? " since " + TimeText(proof->time) : "";
}

std::string CableText(const Situation& now) {
    return now.cableName.empty() ? "a wired adapter" : fmt::format("the adapter \"{}\"", now.cableName);
}

/// Whether an event that tells of the cable would have come by the moment that is asked for. Where none is,
/// it is the end of the log, behind which nothing has come.
bool IsCableLeftUntold(const Situation& now, std::optional<Time> at) {
    return now.untoldCable && (!at || *at - now.untoldCable->time >= kEventMs);
}

void JudgeService(const Situation& now, std::optional<Time> at,
                  std::optional<std::pair<Time, Time>> endedSilently, Findings& findings) {
    if (endedSilently) {
        findings.Add(
            Cause::kServiceEnded,
            fmt::format("The service ended without a word between {} and {}: it was killed, it crashed, "
                        "or the power went",
                        TimeText(endedSilently->first), TimeText(endedSilently->second)),
            {&now.runProof});
    }
    if (now.run == RunState::kStopped) {
        findings.Add(Cause::kServiceNotRunning,
                     fmt::format("The service does not run{}: it was stopped", SinceText(now.runProof)),
                     {&now.runProof});
        return;
    }
    if (now.startGivenUp) {
        findings.Add(Cause::kStartGivenUp,
                     "The service runs, but gave up its start and switches nothing: a part of Windows failed",
                     {&now.startGivenUp});
    }
    if (now.notSubscribed) {
        findings.Add(Cause::kNotSubscribed,
                     "The service hears nothing of cables: subscribing to Windows' network events failed",
                     {&now.notSubscribed});
    }
    if (IsCableLeftUntold(now, at)) {
        findings.Add(
            Cause::kSubscriptionLost,
            fmt::format("Windows does not tell the service of cables any more: at {} it found one that no "
                        "event had told of",
                        TimeText(now.untoldCable->time)),
            {&now.untoldCable});
    }
    if (now.notNotified) {
        findings.Add(
            Cause::kNotNotified,
            "The service hears nothing of Wi-Fi changes: registering for WLAN notifications failed, so it "
            "does not remember what the user chooses",
            {&now.notNotified});
    }
    if (now.wwanNotSubscribed) {
        findings.Add(Cause::kWwanNotSubscribed,
                     "The service hears nothing of the modem: subscribing to its events failed",
                     {&now.wwanNotSubscribed});
    }
}

bool IsSwitching(const RadioSituation& radio) {
    return radio.decision && radio.decision->outcome != Outcome::kDone &&
           radio.decision->outcome != Outcome::kNothingToDo &&
           radio.decision->outcome != Outcome::kAirplaneMode && radio.decision->outcome != Outcome::kNoModem;
}

/// What the service is in the middle of, when that explains why nothing else has happened.
void JudgeWaiting(const Situation& now, Findings& findings) {
    for (const Waiting& waiting : now.waiting) {
        const std::optional<Proof> proof = waiting.lastLine;
        const std::string_view operation = waiting.lastLine.operation;
        if (waiting.lastLine.level == Level::kTraceOut) {
            continue;
        }
        if (operation == "NLMUtils::GetBIOSValue") {
            findings.Add(Cause::kWaitingForFirmware,
                         fmt::format("The service still waits for the firmware settings, since {}",
                                     TimeText(waiting.since)),
                         {&proof});
        } else if (operation.starts_with("Utils::")) {
            findings.Add(Cause::kWaitingForService,
                         fmt::format("The service still waits for a service of Windows, since {}",
                                     TimeText(waiting.since)),
                         {&proof});
        } else if (operation == "ServiceUtils::SwitchWwanStatus" && IsSwitching(now.wwan)) {
            findings.Add(
                Cause::kWaitingForModem,
                fmt::format("The service is still switching the modem, since {}; cable events wait behind "
                            "that",
                            TimeText(waiting.since)),
                {&proof});
        } else if (operation == "ServiceUtils::SwitchWlanStatus" && IsSwitching(now.wifi)) {
            findings.Add(
                Cause::kWaitingForDriver,
                fmt::format("The service is still switching Wi-Fi, since {}", TimeText(waiting.since)),
                {&proof});
        }
    }
}

std::string FailureSentence(const Decision& failure) {
    const std::string wish =
        fmt::format("The service tried to switch {} {}", RadioWord(failure.radio), failure.on ? "on" : "off");
    switch (failure.outcome) {
        case Outcome::kRefused:
            return failure.radio == Radio::kWifi
                       ? fmt::format("{}, and the driver refused {} times in {} s with error {}", wish,
                                     failure.failures, (failure.until - failure.from) / 1000, failure.error)
                       : fmt::format("{}, and the modem refused with error 0x{:08X}", wish,
                                     static_cast<std::uint32_t>(failure.error));
        case Outcome::kDidNotFollow:
            return fmt::format("{}; the driver said yes, and the radio did not follow", wish);
        case Outcome::kNotConfirmed:
            return fmt::format("{}; the modem neither confirmed nor followed", wish);
        case Outcome::kNoWlanService:
            return fmt::format("The service could not ask WLAN AutoConfig about Wi-Fi: error {}",
                               failure.error);
        case Outcome::kNoAdapter:
            return fmt::format("{}, and there is no Wi-Fi adapter that could be switched (error {})", wish,
                               failure.error);
        case Outcome::kQueryTimeout:
            return "A switch of Wi-Fi ran out of attempts; since then the service takes Wi-Fi for off "
                   "without looking";
        default:
            return fmt::format("The service could not read the state of {}: error {}",
                               RadioWord(failure.radio), failure.error);
    }
}

Cause FailureCause(const Decision& failure, const RadioCauses& causes) {
    switch (failure.outcome) {
        case Outcome::kRefused:
            return causes.refuses;
        case Outcome::kDidNotFollow:
        case Outcome::kNotConfirmed:
            return causes.doesNotFollow;
        case Outcome::kNoWlanService:
            return Cause::kWlanService;
        case Outcome::kNoAdapter:
            return Cause::kWlanNoAdapter;
        case Outcome::kQueryTimeout:
            return Cause::kQueryTimeout;
        default:
            return causes.unreadable;
    }
}

void AddFailure(const RadioSituation& radio, const RadioCauses& causes, Findings& findings) {
    const std::optional<Proof> last = radio.failure->proof;
    std::optional<Proof> first = radio.failure->firstFailure;
    if (first && first->place.file == last->place.file && first->place.line == last->place.line) {
        first.reset();
    }
    findings.Add(FailureCause(*radio.failure, causes), FailureSentence(*radio.failure), {&first, &last});
}

/// Whether the half is known not to be switched by the service; says so.
bool JudgeHalf(const Situation& now, const RadioCauses& causes, Findings& findings) {
    const HalfSituation& half = now.HalfOf(causes.radio);
    const std::string what = causes.radio == Radio::kWifi ? "Switching of Wi-Fi by the cable"
                                                          : "Switching of mobile broadband by the cable";
    if (half.half == Half::kDisabled) {
        findings.Add(
            causes.halfDisabled,
            fmt::format(
                "{} is disabled in the firmware{}: the service leaves the radio to the user", what,
                half.text.empty() ? ", or has no setting there" : fmt::format(" (\"{}\")", half.text)),
            {&half.proof});
        return true;
    }
    if (half.half == Half::kUnreadable) {
        findings.Add(causes.firmwareUnreadable,
                     fmt::format("{} counts as disabled, because the firmware setting cannot be read", what),
                     {&half.proof});
        return true;
    }
    return false;
}

/// The radio is off, no cable is in, airplane mode is off: what is remembered?
bool JudgeRemembered(const Situation& now, const RadioCauses& causes, Findings& findings) {
    const RadioSituation& radio = now.Of(causes.radio);
    if (radio.remembered != State::kOff) {
        return false;
    }
    if (!radio.rememberedText.empty() && radio.rememberedText != "False") {
        findings.Add(
            causes.rememberedOdd,
            fmt::format("{} stays off because \"{}\" is remembered, which counts as off and is not the "
                        "service's own word",
                        RadioWord(causes.radio), radio.rememberedText),
            {&radio.rememberedProof});
    } else if (radio.rememberedOdd) {
        findings.Add(
            causes.rememberedOdd,
            fmt::format("{} is off because a text was remembered that is not the service's own and counts "
                        "as off; the service has stored \"False\" since",
                        RadioWord(causes.radio)),
            {&radio.rememberedOdd, &radio.rememberedProof});
    } else if (radio.rememberedBy == Who::kUser) {
        findings.Add(causes.userOff,
                     fmt::format("{} is off because its user turned it off at {}; that is remembered",
                                 RadioWord(causes.radio), TimeText(radio.rememberedProof->time)),
                     {&radio.rememberedProof, &radio.proof});
    } else {
        findings.Add(
            causes.rememberedOff,
            fmt::format("{} stays off because it is remembered as off; who chose that is not in this log",
                        RadioWord(causes.radio)),
            {&radio.rememberedProof});
    }
    return true;
}

void JudgeOff(const Situation& now, const RadioCauses& causes, Findings& findings) {
    const RadioSituation& radio = now.Of(causes.radio);
    const std::string_view word = RadioWord(causes.radio);
    if (now.cable == State::kIn) {
        if (radio.failure && radio.failure->outcome == Outcome::kQueryTimeout) {
            AddFailure(radio, causes, findings);
        } else if (now.cableOutcome == CableOutcome::kOtherCable && causes.radio == Radio::kWifi) {
            findings.Add(
                Cause::kOtherCable,
                "Wi-Fi is off because a cable went out, but another adapter still counts as a cable with an "
                "address",
                {&now.cableOutcomeProof, &now.cableProof});
        } else {
            findings.Add(causes.cableIn,
                         fmt::format("{} is off because a cable is in ({})", word, CableText(now)),
                         {&now.cableProof, &radio.proof});
        }
        return;
    }
    if (now.airplane == State::kOn) {
        findings.Add(causes.airplaneMode, fmt::format("{} is off because airplane mode is on", word),
                     {&now.airplaneProof});
        return;
    }
    if (radio.failure) {
        AddFailure(radio, causes, findings);
        return;
    }
    if (JudgeRemembered(now, causes, findings)) {
        return;
    }
    if (radio.who == Who::kUser && radio.since != 0) {
        findings.Add(
            causes.turnedOffElsewhere,
            fmt::format("{} was turned off at {} by somebody else than the service, and that was not "
                        "remembered",
                        word, TimeText(radio.since)),
            {&radio.proof, &radio.rememberedProof});
        return;
    }
    if (radio.decision && radio.decision->on && radio.decision->outcome == Outcome::kDone) {
        const std::optional<Proof> proof = radio.decision->proof;
        findings.Add(
            causes.turnedOffElsewhere,
            fmt::format("The service did its part: it switched {} on at {}, and something else has turned it "
                        "off since",
                        word, TimeText(radio.decision->until)),
            {&proof, &radio.proof});
        return;
    }
    findings.Add(causes.cannotBeTold, fmt::format("{} is off, and the log does not tell why", word),
                 {&radio.proof});
}

void JudgeOn(const Situation& now, const RadioCauses& causes, Findings& findings) {
    const RadioSituation& radio = now.Of(causes.radio);
    if (radio.failure && !radio.failure->on) {
        AddFailure(radio, causes, findings);
        return;
    }
    if (now.cable == State::kIn) {
        findings.Add(
            causes.onBesideCable,
            fmt::format("{} is on although a cable is in ({})", RadioWord(causes.radio), CableText(now)),
            {&radio.proof, &now.cableProof});
        return;
    }
    findings.Add(causes.on, fmt::format("{} is on{}", RadioWord(causes.radio), SinceText(radio.proof)),
                 {&radio.proof});
}

void JudgeUnknown(const Situation& now, const History& history, const RadioCauses& causes,
                  Findings& findings) {
    const RadioSituation& radio = now.Of(causes.radio);
    if (radio.failure) {
        AddFailure(radio, causes, findings);
        return;
    }
    if (now.airplane == State::kOn) {
        findings.Add(
            causes.airplaneMode,
            fmt::format("Airplane mode is on; whether {} is off is not in the log", RadioWord(causes.radio)),
            {&now.airplaneProof});
        return;
    }
    if (causes.radio == Radio::kWifi && !history.levels[static_cast<std::size_t>(Level::kInformation)]) {
        findings.Add(
            Cause::kLevelsHidden,
            "The log holds warnings and errors only: what the service decided cannot be told from it");
        return;
    }
    findings.Add(causes.cannotBeTold,
                 fmt::format("The log does not tell whether {} is on", RadioWord(causes.radio)),
                 {&radio.proof});
}

void JudgeCableEvent(const Situation& now, Findings& findings) {
    switch (now.cableOutcome) {
        case CableOutcome::kNotInList:
            if (now.wifi.state == State::kOff && now.cable != State::kIn && now.airplane != State::kOn) {
                findings.Add(
                    Cause::kNeverWired,
                    "A connection ended, and the service had never seen that it was wired, so it did nothing",
                    {&now.cableOutcomeProof});
            }
            break;
        case CableOutcome::kUnreadable:
            findings.Add(
                Cause::kCableUnreadable,
                "The network adapters could not be read at the last cable event, so nothing was switched",
                {&now.cableOutcomeProof});
            break;
        case CableOutcome::kNoAddress:
            if (now.cable != State::kIn) {
                findings.Add(
                    Cause::kNoAddress,
                    fmt::format("A cable is in ({}) and has no address, so the radios stay as they are",
                                CableText(now)),
                    {&now.cableOutcomeProof});
            }
            break;
        case CableOutcome::kTypeUnknown:
        case CableOutcome::kThrew:
            findings.Add(
                Cause::kCableUnreadable,
                "Windows did not tell what kind of connection the last one was, so nothing was switched",
                {&now.cableOutcomeProof});
            break;
        default:
            break;
    }
}

void JudgeRadio(const Situation& now, const History& history, const RadioCauses& causes, Findings& findings) {
    const RadioSituation& radio = now.Of(causes.radio);
    if (causes.radio == Radio::kWwan && now.noModem) {
        findings.Add(Cause::kModemMissing, "The service found no modem when it started", {&now.noModem});
        return;
    }
    if (JudgeHalf(now, causes, findings)) {
        return;
    }
    if (radio.state == State::kOn) {
        JudgeOn(now, causes, findings);
    } else if (radio.state == State::kOff) {
        JudgeOff(now, causes, findings);
    } else {
        JudgeUnknown(now, history, causes, findings);
    }
}

}  // namespace

std::vector<Finding> Judge(const Situation& now, const History& history, std::optional<Time> at,
                           std::optional<std::pair<Time, Time>> endedSilently) {
    Findings findings;
    if (history.linesOfService == 0) {
        if (history.linesOfOthers > 0) {
            findings.Add(Cause::kNotThisLog,
                         "This is the log of another program: no line is of this service");
        } else {
            findings.Add(Cause::kLogEmpty, "There is no line of a log here");
        }
        return findings.Take();
    }
    if (!now.lastTime) {
        findings.Add(Cause::kLogDoesNotReach,
                     fmt::format("The log begins at {} and does not reach back to {}",
                                 TimeText(*history.from), TimeText(at.value_or(*history.from))));
        return findings.Take();
    }
    JudgeService(now, at, endedSilently, findings);
    if (now.run != RunState::kStopped && !endedSilently) {
        JudgeWaiting(now, findings);
        if (now.run == RunState::kStarting && !now.startGivenUp) {
            findings.Add(Cause::kServiceStarting,
                         fmt::format("The service has been starting{} and has decided nothing yet",
                                     SinceText(now.runProof)),
                         {&now.runProof});
        }
        JudgeCableEvent(now, findings);
    }
    JudgeRadio(now, history, kWifiCauses, findings);
    JudgeRadio(now, history, kWwanCauses, findings);
    return findings.Take();
}

}  // namespace Doctor
