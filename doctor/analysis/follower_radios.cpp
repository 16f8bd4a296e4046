#include <fmt/format.h>

#include <algorithm>

#include "doctor/analysis/follower.h"

namespace Doctor {
namespace {

/// A radio follows the service's switch, and tells of it, within this time.
constexpr Time kEchoMs = 5000;
/// Windows switches the radios within this time of a change of airplane mode.
constexpr Time kAirplaneFollowsMs = 3000;

/// The modem's event comes this soon after a change.
constexpr Time kEventMs = 100;

constexpr std::int64_t kSignalled = 0;

std::string LaneId(Radio radio) {
    return radio == Radio::kWifi ? "wifi" : "wwan";
}

bool IsFailure(Outcome outcome) {
    switch (outcome) {
        case Outcome::kRefused:
        case Outcome::kDidNotFollow:
        case Outcome::kNotConfirmed:
        case Outcome::kNoWlanService:
        case Outcome::kNoAdapter:
        case Outcome::kUnreadable:
        case Outcome::kQueryTimeout:
            return true;
        default:
            return false;
    }
}

/// A remembered text that the service does not write.
bool IsOdd(std::string_view text) {
    return !text.empty() && text != "True" && text != "False";
}

std::string OutcomeText(const Decision& decision) {
    const std::string wish =
        fmt::format("switch {} {}", RadioWord(decision.radio), decision.on ? "on" : "off");
    switch (decision.outcome) {
        case Outcome::kDone:
            return fmt::format("{} switched {}", RadioWord(decision.radio), decision.on ? "on" : "off");
        case Outcome::kNothingToDo:
            return fmt::format("{} is {} already", RadioWord(decision.radio), decision.on ? "on" : "off");
        case Outcome::kAirplaneMode:
            return fmt::format("{} left off: airplane mode is on", RadioWord(decision.radio));
        case Outcome::kRefused:
            return fmt::format("could not {}: the driver refuses, error {}, {} times in {} s", wish,
                               decision.error, decision.failures, (decision.until - decision.from) / 1000);
        case Outcome::kDidNotFollow:
            return fmt::format("could not {}: the radio does not follow", wish);
        case Outcome::kNotConfirmed:
            return fmt::format("could not {}: the modem neither confirms nor follows", wish);
        case Outcome::kNoWlanService:
            return fmt::format("could not {}: WLAN AutoConfig does not answer, error {}", wish,
                               decision.error);
        case Outcome::kNoAdapter:
            return fmt::format("could not {}: no Wi-Fi adapter, error {}", wish, decision.error);
        case Outcome::kUnreadable:
            return fmt::format("could not {}: the radio cannot be read, error {}", wish, decision.error);
        case Outcome::kQueryTimeout:
            return fmt::format("could not {}: after a switch that failed, Wi-Fi is not looked at any more",
                               wish);
        case Outcome::kNoModem:
            return fmt::format("did not {}: no modem", wish);
        default:
            return fmt::format("is about to {}", wish);
    }
}

}  // namespace

// Decisions: a radio that is to be switched, from the first try to the last, on one thread.

Decision* Follower::CurrentDecision(Thread& thread, Radio radio) {
    std::optional<Decision>& decision = thread.decisions[Index(radio)];
    return decision ? &*decision : nullptr;
}

Decision& Follower::DecisionOf(Thread& thread, Radio radio, bool on, const LogLine& line,
                               const Proof& proof) {
    std::optional<Decision>& decision = thread.decisions[Index(radio)];
    if (decision && decision->on != on) {
        EndDecision(thread, radio, line.time);
    }
    if (!decision) {
        decision = Decision{.radio = radio,
                            .on = on,
                            .task = thread.task,
                            .from = line.time,
                            .until = line.time,
                            .outcome = Outcome::kGoesOn,
                            .error = 0,
                            .failures = 0,
                            .proof = proof,
                            .firstFailure = std::nullopt};
    }
    decision->until = line.time;
    Publish(thread, radio);
    return *decision;
}

void Follower::Fail(Thread& thread, Radio radio, Outcome outcome, std::int64_t error, const LogLine& line,
                    const Proof& proof) {
    Decision* const decision = CurrentDecision(thread, radio);
    if (decision == nullptr) {
        return;
    }
    decision->until = line.time;
    ++decision->failures;
    // A plain error says more than what follows from it.
    if (decision->outcome != Outcome::kRefused || outcome == Outcome::kRefused) {
        // The same failure again is the last of a row; another one begins a row.
        if (decision->outcome != outcome || !decision->firstFailure) {
            decision->firstFailure = proof;
        }
        decision->outcome = outcome;
        decision->error = error;
        decision->proof = proof;
    }
    Publish(thread, radio);
}

/// Something went wrong outside of a switch.
void Follower::NoteFailure(const Thread& thread, Radio radio, Outcome outcome, std::int64_t error,
                           const Proof& proof) {
    if (m_now.Of(radio).failure) {
        return;
    }
    m_now.Of(radio).failure = Decision{.radio = radio,
                                       .task = thread.task,
                                       .from = proof.time,
                                       .until = proof.time,
                                       .outcome = outcome,
                                       .error = error,
                                       .failures = 1,
                                       .proof = proof,
                                       .firstFailure = std::nullopt};
}

void Follower::Succeed(Thread& thread, Radio radio, Outcome outcome, const LogLine& line,
                       const Proof& proof) {
    Decision* const decision = CurrentDecision(thread, radio);
    if (decision == nullptr) {
        return;
    }
    if (IsFailure(decision->outcome) && m_now.Of(radio).state == State::kUnknown) {
        // A radio that cannot be read counts as off: that it then has the wanted state means nothing.
        return;
    }
    // A retry that finds nothing to do any more belongs to the switch before it.
    if (decision->outcome != Outcome::kDone || outcome != Outcome::kNothingToDo) {
        decision->outcome = outcome;
        decision->proof = proof;
    }
    decision->until = line.time;
    Publish(thread, radio);
}

void Follower::Publish(Thread& thread, Radio radio) {
    const Decision& decision = *thread.decisions[Index(radio)];
    RadioSituation& now = m_now.Of(radio);
    now.decision = decision;
    if (IsFailure(decision.outcome)) {
        now.failure = decision;
    } else if (decision.outcome == Outcome::kDone || decision.outcome == Outcome::kNothingToDo) {
        now.failure.reset();
    }
}

void Follower::EndDecision(Thread& thread, Radio radio, Time time) {
    std::optional<Decision>& decision = thread.decisions[Index(radio)];
    thread.switching[Index(radio)] = false;
    if (m_own[Index(radio)].busy) {
        m_own[Index(radio)].busy = false;
        m_own[Index(radio)].until = std::max(m_own[Index(radio)].until, std::min(time, thread.lastLine.time));
    }
    if (!decision) {
        return;
    }
    Publish(thread, radio);
    const Decision ended = *decision;
    decision.reset();
    if (ended.outcome == Outcome::kGoesOn) {
        return;
    }
    const Severity severity = IsFailure(ended.outcome) ? Severity::kFault : Severity::kNote;
    Tell(StoryKind::kDecision, ended.from, ended.proof, LaneId(radio), Who::kService, severity,
         fmt::format("Because {}: {}", TaskReason(ended.task), OutcomeText(ended)));
    if (!m_history.story.empty()) {
        m_history.story.back().until = ended.until;
        m_history.story.back().times = std::max<std::uint64_t>(1, ended.failures);
    }
}

bool Follower::ServiceSwitched(Radio radio, bool on, Time time) const {
    const OwnSwitch& own = m_own[Index(radio)];
    return own.on == on &&
           (own.busy || (own.until != 0 && time - own.until < kEchoMs && time >= own.until - kEchoMs));
}

std::pair<Who, std::string> Follower::WhoSwitched(Radio radio, bool on, Time time, bool wasKnown,
                                                  bool isNotification) const {
    if (ServiceSwitched(radio, on, time)) {
        return {Who::kService,
                fmt::format("switched by the service, because {}", m_own[Index(radio)].reason)};
    }
    if (m_airplaneChanged && time - *m_airplaneChanged < kAirplaneFollowsMs) {
        return {Who::kWindows, "airplane mode changed"};
    }
    if (!wasKnown) {
        return {Who::kUnknown, "so when the service looked"};
    }
    if (isNotification) {
        return {Who::kUser, "switched by somebody else than the service"};
    }
    return {Who::kUnknown, "changed by somebody else than the service"};
}

/// A look at a radio: who changed it, if it changed.
void Follower::SeeRadio(Thread& thread, Radio radio, bool on, Time time, const Proof& proof) {
    const State state = on ? State::kOn : State::kOff;
    RadioSituation& now = m_now.Of(radio);
    Lane& lane = m_history.Of(radio);
    const bool isNotification = thread.task == Task::kRadioChange || thread.task == Task::kCompletion;
    if (radio == Radio::kWwan) {
        LookAtModem(lane.Now() != State::kUnknown && lane.Now() != state, time);
    }
    if (lane.Now() == state) {
        lane.Find(time, state, Who::kUnknown, "", proof.place);
        if (now.state != state) {
            now.state = state;
            now.since = time;
            now.proof = proof;
        }
        return;
    }
    const Time since = isNotification ? std::min(thread.taskSince, time) : time;
    const bool wasKnown = lane.Now() != State::kUnknown;
    const auto [who, why] = WhoSwitched(radio, on, time, wasKnown, isNotification);
    if (isNotification && who != Who::kService) {
        DoubtIfBehind(thread, lane);
    }
    const bool seenAsItHappens = isNotification || who != Who::kUnknown ||
                                 (radio == Radio::kWifi ? m_now.subscribed : m_now.modem.has_value());
    if (wasKnown && seenAsItHappens) {
        lane.Set(since, state, who, why, proof.place);
    } else {
        lane.Find(since, state, who, why, proof.place);
    }
    if (now.state != state || who != Who::kUnknown) {
        now.who = who;
        now.since = since;
        now.proof = proof;
    }
    now.state = state;
    if (who == Who::kUser || who == Who::kWindows) {
        Tell(StoryKind::kRadio, since, proof, LaneId(radio), who, Severity::kNote,
             fmt::format("{} is switched {} {}", RadioWord(radio), on ? "on" : "off",
                         who == Who::kUser ? "by the user" : "by Windows with airplane mode"));
    }
}

void Follower::ForgetRadio(Radio radio, Time time, const std::string& why, const Proof& proof) {
    RadioSituation& now = m_now.Of(radio);
    now.state = State::kUnknown;
    now.who = Who::kUnknown;
    now.since = time;
    now.proof = proof;
    m_history.Of(radio).Forget(time, why, proof.place);
}

// WLAN.

bool Follower::HandleWlan(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof) {
    OwnSwitch& own = m_own[Index(Radio::kWifi)];
    switch (reading.said) {
        case Said::kWlanSwitchBegins:
            DecisionOf(thread, Radio::kWifi, reading.numbers[0] != 0, line, proof);
            return true;
        case Said::kWlanToChange:
            DecisionOf(thread, Radio::kWifi, reading.numbers[1] != 0, line, proof);
            return true;
        case Said::kPhySet:
            own = {.on = reading.numbers[0] != 0,
                   .until = line.time,
                   .busy = true,
                   .reason = std::string(TaskReason(thread.task))};
            return true;
        case Said::kWlanAfterSwitch: {
            own.busy = false;
            own.until = line.time;
            const Decision* const decision = CurrentDecision(thread, Radio::kWifi);
            if (decision != nullptr && (reading.numbers[0] != 0) != decision->on) {
                Fail(thread, Radio::kWifi, Outcome::kDidNotFollow, 0, line, proof);
            } else {
                Succeed(thread, Radio::kWifi, Outcome::kDone, line, proof);
            }
            return true;
        }
        case Said::kWlanNoChange:
            Succeed(thread, Radio::kWifi, Outcome::kNothingToDo, line, proof);
            return true;
        case Said::kWlanNotInAirplane:
        case Said::kWlanNotInAirplaneRetry:
            DecisionOf(thread, Radio::kWifi, reading.numbers[0] != 0, line, proof);
            Succeed(thread, Radio::kWifi, Outcome::kAirplaneMode, line, proof);
            SeeAirplane(thread, true, line.time, proof);
            return true;
        case Said::kWlanRetrySucceeded:
            if (const Decision* const decision = CurrentDecision(thread, Radio::kWifi);
                decision != nullptr && IsFailure(decision->outcome)) {
                Succeed(thread, Radio::kWifi, Outcome::kDone, line, proof);
            }
            return true;
        case Said::kWlanState:
            SeeRadio(thread, Radio::kWifi, reading.numbers[0] != 0, line.time, proof);
            return true;
        case Said::kPhyOn:
        case Said::kPhyOff:
        case Said::kInterface:
        case Said::kWlanWasOn:
            return true;
        case Said::kWlanSwitchEnds:
            own.busy = false;
            return true;
        default:
            return false;
    }
}

bool Follower::HandleWlanFailure(Thread& thread, const LogLine& line, const Reading& reading,
                                 const Proof& proof) {
    switch (reading.said) {
        case Said::kPhyRefused:
            Fail(thread, Radio::kWifi, Outcome::kRefused, reading.numbers[0], line, proof);
            return true;
        case Said::kWlanRetryMissed:
            if (const Decision* const decision = CurrentDecision(thread, Radio::kWifi);
                decision != nullptr && !IsFailure(decision->outcome)) {
                Fail(thread, Radio::kWifi, Outcome::kDidNotFollow, 0, line, proof);
            }
            return true;
        case Said::kWlanOpenFailed:
        case Said::kWlanSwitchOpenFailed:
        case Said::kWlanEnumFailed:
        case Said::kWlanSwitchEnumFailed:
            ForgetRadio(Radio::kWifi, line.time, "WLAN AutoConfig does not answer", proof);
            Fail(thread, Radio::kWifi, Outcome::kNoWlanService, reading.numbers[0], line, proof);
            return true;
        case Said::kWlanListEmpty:
        case Said::kWlanSwitchListEmpty:
        case Said::kCapabilityFailed:
            Fail(thread, Radio::kWifi, Outcome::kNoAdapter, reading.numbers[0], line, proof);
            return true;
        case Said::kQueryFailed:
            ForgetRadio(Radio::kWifi, line.time, "the radio cannot be read", proof);
            Fail(thread, Radio::kWifi, Outcome::kUnreadable, reading.numbers[0], line, proof);
            NoteFailure(thread, Radio::kWifi, Outcome::kUnreadable, reading.numbers[0], proof);
            return true;
        case Said::kQueryTimeout:
            ForgetRadio(Radio::kWifi, line.time, "the service does not look at the radio any more", proof);
            NoteFailure(thread, Radio::kWifi, Outcome::kQueryTimeout, 0, proof);
            return true;
        case Said::kPhysNotAll:
        case Said::kPhysGivenUp:
        case Said::kWlanBackFailed:
        case Said::kWlanDownFailed:
            return true;
        default:
            return false;
    }
}

bool Follower::HandleNotification(Thread& thread, const LogLine& line, const Reading& reading,
                                  const Proof& /*proof*/) {
    if (line.operation == "CMainService::WlanNotificationCallback") {
        if (line.level == Level::kTraceIn ||
            (reading.said == Said::kNotification && thread.task != Task::kRadioChange)) {
            BeginTask(thread, Task::kRadioChange, line);
        } else if (line.level == Level::kTraceOut) {
            EndTask(thread, line.time);
        } else if (reading.said == Said::kAvailableHandled) {
            thread.task = Task::kNetworkAvailable;
        }
        return true;
    }
    switch (reading.said) {
        case Said::kEthernetAtRadioChange:
        case Said::kEthernetAtAvailable:
        case Said::kWlanAtRadioChange:
        case Said::kUsersWlanChoice:
        case Said::kAvailableStored:
            return true;
        default:
            return false;
    }
}

// WWAN.

bool Follower::HandleWwan(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof) {
    OwnSwitch& own = m_own[Index(Radio::kWwan)];
    switch (reading.said) {
        case Said::kWwanSwitchBegins:
            DecisionOf(thread, Radio::kWwan, reading.numbers[0] != 0, line, proof);
            return true;
        case Said::kWwanToChange:
            DecisionOf(thread, Radio::kWwan, reading.numbers[1] != 0, line, proof);
            return true;
        case Said::kWwanChanging:
            own = {.on = reading.numbers[0] != 0,
                   .until = line.time,
                   .busy = true,
                   .reason = std::string(TaskReason(thread.task))};
            return true;
        case Said::kWwanNewState:
            SeeRadio(thread, Radio::kWwan, reading.numbers[0] != 0, line.time, proof);
            return true;
        case Said::kWwanFollows:
            Succeed(thread, Radio::kWwan, Outcome::kDone, line, proof);
            return true;
        case Said::kWwanLooked:
            if ((reading.numbers[0] != 0) == (reading.numbers[1] != 0)) {
                Succeed(thread, Radio::kWwan, Outcome::kDone, line, proof);
            } else {
                Fail(thread, Radio::kWwan, Outcome::kNotConfirmed, 0, line, proof);
            }
            return true;
        case Said::kWwanNoChange:
            Succeed(thread, Radio::kWwan, Outcome::kNothingToDo, line, proof);
            return true;
        case Said::kWwanNotInAirplane:
        case Said::kWwanNotInAirplaneRetry:
            DecisionOf(thread, Radio::kWwan, reading.numbers[0] != 0, line, proof);
            Succeed(thread, Radio::kWwan, Outcome::kAirplaneMode, line, proof);
            SeeAirplane(thread, true, line.time, proof);
            return true;
        case Said::kWwanRetrySucceeded:
            if (const Decision* const decision = CurrentDecision(thread, Radio::kWwan);
                decision != nullptr && IsFailure(decision->outcome)) {
                Succeed(thread, Radio::kWwan, Outcome::kDone, line, proof);
            }
            return true;
        case Said::kWwanState:
            SeeRadio(thread, Radio::kWwan, reading.text == "ON", line.time, proof);
            return true;
        case Said::kWwanSwitchEnds:
            own.busy = false;
            own.until = std::max(own.until, own.until == 0 ? 0 : line.time);
            return true;
        default:
            return false;
    }
}

bool Follower::HandleWwanFailure(Thread& thread, const LogLine& line, const Reading& reading,
                                 const Proof& proof) {
    switch (reading.said) {
        case Said::kWwanSetFailed:
            Fail(thread, Radio::kWwan, Outcome::kRefused, reading.numbers[1], line, proof);
            return true;
        case Said::kWwanSetGivenUp:
            Fail(thread, Radio::kWwan, Outcome::kRefused, reading.numbers[0], line, proof);
            return true;
        case Said::kWwanRetries:
        case Said::kWwanBackFailed:
        case Said::kWwanDownFailed:
            return true;
        case Said::kWwanWaited:
            if (reading.numbers[0] != kSignalled) {
                if (const Decision* const decision = CurrentDecision(thread, Radio::kWwan);
                    decision != nullptr && decision->outcome == Outcome::kGoesOn) {
                    Fail(thread, Radio::kWwan, Outcome::kNotConfirmed, 0, line, proof);
                }
            }
            return true;
        case Said::kWwanRetryMissed:
            if (const Decision* const decision = CurrentDecision(thread, Radio::kWwan);
                decision != nullptr && !IsFailure(decision->outcome)) {
                Fail(thread, Radio::kWwan, Outcome::kDidNotFollow, 0, line, proof);
            }
            return true;
        case Said::kWwanRadioUnreadable:
        case Said::kWwanNoRadio:
        case Said::kWwanSwitchNoRadio:
            ForgetRadio(Radio::kWwan, line.time, "the modem cannot be read", proof);
            Fail(thread, Radio::kWwan, Outcome::kUnreadable, reading.numbers[0], line, proof);
            NoteFailure(thread, Radio::kWwan, Outcome::kUnreadable, reading.numbers[0], proof);
            return true;
        case Said::kWwanLastRadioUnreadable:
            return true;
        case Said::kWwanAbsent:
        case Said::kWwanAbsentForStop:
        case Said::kWwanAbsentForStart:
        case Said::kWwanAbsentForSwitch:
        case Said::kWwanAbsentForRetry:
            Succeed(thread, Radio::kWwan, Outcome::kNoModem, line, proof);
            if (!m_now.noModem) {
                m_now.noModem = proof;
            }
            return true;
        default:
            return false;
    }
}

bool Follower::HandleCompletion(Thread& thread, const LogLine& line, const Reading& reading,
                                const Proof& proof) {
    switch (reading.said) {
        case Said::kCompletion:
            BeginTask(thread, Task::kCompletion, line);
            thread.completionStatus = reading.numbers[1];
            return true;
        case Said::kCompletionOwn:
            if (thread.task != Task::kCompletion) {
                BeginTask(thread, Task::kCompletion, line);
            }
            thread.ownCompletion = reading.numbers[0] != 0;
            return true;
        case Said::kCompletionIgnored:
            FollowModemInAirplaneMode(thread, line.time, proof);
            return true;
        case Said::kCompletionEthernet:
        case Said::kCompletionState:
        case Said::kCompletionStored:
        case Said::kCompletionUndone:
            return true;
        default:
            if (line.operation == "CMbnSinks::OnRadioStateChange") {
                if (line.level == Level::kTraceIn) {
                    ModemTellsOfChange(thread, line.time);
                }
                return true;
            }
            if (line.operation == "CMbnSinks::OnSetSoftwareRadioStateComplete" &&
                line.level == Level::kTraceOut) {
                EndTask(thread, line.time);
                return true;
            }
            return false;
    }
}

/// The event of a change that a look has shown already says nothing new: it comes at once after the
/// look, or has waited behind others.
void Follower::ModemTellsOfChange(const Thread& thread, Time time) {
    const bool isKnown =
        m_modemAhead && (time - *m_modemAhead < kEventMs || thread.busySince <= *m_modemAhead);
    m_modemChanged = !isKnown;
    m_modemAhead.reset();
}

/// A look may be ahead of the modem's events. One that waits shows in a change that was not told of, or in
/// one that was told of and is no more.
void Follower::LookAtModem(bool hasChanged, Time time) {
    if (hasChanged != m_modemChanged) {
        m_modemAhead = time;
    }
    m_modemChanged = false;
}

/// In airplane mode the service does not look at the modem when somebody has changed it. That it has
/// changed is told by an event of its own (IMbnRadioEvents::OnRadioStateChange), which leaves only traces.
void Follower::FollowModemInAirplaneMode(Thread& thread, Time time, const Proof& proof) {
    const State state = m_history.wwan.Now();
    if (thread.ownCompletion || m_now.airplane != State::kOn || state == State::kUnknown) {
        return;
    }
    if (!m_history.levels[static_cast<std::size_t>(Level::kTraceIn)]) {
        ForgetRadio(Radio::kWwan, time, "changed in airplane mode, when the service does not look", proof);
    } else if (m_modemChanged) {
        SeeRadio(thread, Radio::kWwan, state != State::kOn, time, proof);
    }
    m_modemChanged = false;
}

// What is remembered.

bool Follower::HandleRemembered(Thread& thread, const LogLine& /*line*/, const Reading& reading,
                                const Proof& proof) {
    const auto fromText = [](std::string_view text) { return text == "True" ? State::kOn : State::kOff; };
    switch (reading.said) {
        case Said::kWlanStores:
        case Said::kWwanStores:
            thread.storing = reading.said == Said::kWlanStores ? Radio::kWifi : Radio::kWwan;
            thread.storedText = std::string(reading.text);
            thread.storeProof = proof;
            return true;
        case Said::kStoreFailed:
            thread.storing.reset();
            return true;
        case Said::kStores:
        case Said::kWlanStored:
        case Said::kWwanStored:
            return true;
        case Said::kWlanRememberedAtBack:
        case Said::kWlanRememberedAfterAirplane:
            SeeRemembered(Radio::kWifi, fromText(reading.text), std::string(reading.text), proof);
            return true;
        case Said::kWwanRememberedAtBack:
            SeeRemembered(Radio::kWwan, fromText(reading.text), std::string(reading.text), proof);
            return true;
        case Said::kWlanRememberedNothing:
            SeeRemembered(Radio::kWifi, State::kOn, "", proof);
            return true;
        case Said::kWwanRememberedNothing:
            SeeRemembered(Radio::kWwan, State::kOn, "", proof);
            return true;
        case Said::kWlanRememberedAtStart:
            SeeRemembered(Radio::kWifi, reading.numbers[0] != 0 ? State::kOn : State::kOff, "", proof);
            return true;
        case Said::kWwanRememberedAtStart:
            SeeRemembered(Radio::kWwan, reading.numbers[0] != 0 ? State::kOn : State::kOff, "", proof);
            return true;
        default:
            return false;
    }
}

void Follower::SeeRemembered(Radio radio, State state, std::string text, const Proof& proof) {
    RadioSituation& now = m_now.Of(radio);
    Lane& lane = m_history.RememberedOf(radio);
    const std::string why = text.empty() ? "" : fmt::format("the registry says \"{}\"", text);
    if (now.remembered != state || !now.rememberedProof) {
        const bool wasKnown = now.remembered != State::kUnknown;
        now.remembered = state;
        now.rememberedBy = Who::kUnknown;
        now.rememberedProof = proof;
        now.rememberedText = text;
        if (wasKnown) {
            Tell(StoryKind::kRemembered, proof.time, proof, lane.Id(), Who::kUnknown, Severity::kWarning,
                 fmt::format("{}: \"{}\" is remembered, and the service did not write it", RadioWord(radio),
                             state == State::kOn ? "on" : "off"));
        }
    } else if (!text.empty()) {
        now.rememberedText = text;
    }
    lane.Find(proof.time, state, Who::kUnknown, why, proof.place);
}

std::pair<Who, std::string> Follower::WhoStored(const Thread& thread, Radio radio, bool on) const {
    switch (thread.task) {
        case Task::kRadioChange:
        case Task::kCompletion:
            if (m_now.Of(radio).who == Who::kService &&
                ServiceSwitched(radio, on, m_now.lastTime.value_or(0))) {
                return {Who::kService, "the service's own switch, taken for the user's"};
            }
            if (m_now.Of(radio).who == Who::kWindows) {
                return {Who::kWindows, "Windows switched the radio with airplane mode"};
            }
            return {Who::kUser, "the user switched the radio"};
        case Task::kNetworkAvailable:
            return {Who::kService, "a network was found, so the radio is on"};
        case Task::kCableIn:
            return {Who::kService, "the radio was on when the cable came in"};
        default:
            return {Who::kUnknown, "by the service"};
    }
}

/// What was to be written has been, since nothing says the contrary.
void Follower::Store(Thread& thread, const Proof& proof) {
    const Radio radio = *thread.storing;
    thread.storing.reset();
    const State state = thread.storedText == "True" ? State::kOn : State::kOff;
    const auto [who, why] = WhoStored(thread, radio, state == State::kOn);
    RadioSituation& now = m_now.Of(radio);
    Lane& lane = m_history.RememberedOf(radio);
    if (who != Who::kService || state == State::kOn) {
        now.rememberedOdd.reset();
    } else if (state == State::kOff && IsOdd(now.rememberedText)) {
        // The service's own switch-off, for a text that counts as off, was taken for the user's.
        now.rememberedOdd = now.rememberedProof;
    }
    if (now.remembered != state) {
        Tell(StoryKind::kRemembered, proof.time, proof, lane.Id(), who, Severity::kNote,
             fmt::format("{}: remembered as {} ({})", RadioWord(radio), state == State::kOn ? "on" : "off",
                         why));
    }
    now.remembered = state;
    now.rememberedBy = who;
    now.rememberedText = thread.storedText;
    now.rememberedProof = proof;
    lane.Set(proof.time, state, who, why, proof.place);
}

}  // namespace Doctor
