#include <fmt/format.h>

#include <algorithm>

#include "doctor/analysis/follower.h"

namespace Doctor {

namespace {

/// More starts than this are not kept for adapters that turn up later.
constexpr std::size_t kMostListings = 10000;

bool IsOfEthernetCheck(std::string_view operation) {
    return operation == "NLMEventHandler::CheckEthernetConnectionStatus" ||
           operation == "NLMEventHandler::InitialiseAdapter";
}

/// A look that finds no cable tells it of each connection that nothing was known of; after a sleep of all.
void FindAllOut(std::map<std::string, Lane>& cables, bool isAfterSleep, Time time, const std::string& why,
                Place place) {
    for (auto& [connection, cable] : cables) {
        if (isAfterSleep || cable.Now() == State::kUnknown) {
            cable.Find(time, State::kOut, Who::kUser, why, place);
        }
    }
}

}  // namespace

/// A look at the adapters ends with the first that counts, or, without one, when the thread goes on.
bool Follower::HandleEthernet(Thread& thread, const LogLine& line, const Reading& reading,
                              const Proof& proof) {
    if (reading.said == Said::kAdaptersRead) {
        thread.checking = true;
        thread.checkSince = line.time;
        return true;
    }
    if (thread.checking && reading.said == Said::kRealEthernet) {
        EndCheck(thread, true, line.time, proof);
        return true;
    }
    if (thread.checking && (!IsOfEthernetCheck(line.operation) || reading.said == Said::kEthernetFound)) {
        EndCheck(thread, false, thread.checkSince, proof);
    }
    if (reading.said == Said::kAdaptersUnreadable || reading.said == Said::kInitialiseFailed) {
        thread.checking = false;
        thread.lastError = proof;
        return true;
    }
    return reading.said == Said::kEthernetFound;
}

/// Whether a look by the way finds a cable although Windows has told of no connection since the last one
/// found none.
bool Follower::IsUntold(const Thread& thread) const {
    switch (thread.task) {
        case Task::kRadioChange:
        case Task::kNetworkAvailable:
        case Task::kAirplane:
        case Task::kCompletion:
            break;
        default:
            return false;
    }
    return m_now.cable == State::kOut && m_now.subscribed && !m_now.notSubscribed && !m_sleptSince &&
           !m_cableToldOf;
}

void Follower::EndCheck(Thread& thread, bool found, Time time, const Proof& proof) {
    thread.checking = false;
    const bool waitsForAddress = thread.task == Task::kCableIn && thread.wired && !found;
    const State state = found ? State::kIn : waitsForAddress ? State::kNoAddress : State::kOut;
    if (state == State::kOut && m_now.cable == State::kNoAddress && thread.task != Task::kCableOut) {
        // An adapter without an address leaves no line in a look; that it is there is known from its event.
        return;
    }
    if (found && IsUntold(thread)) {
        m_now.untoldCable = proof;
    } else if (state == State::kOut) {
        m_now.untoldCable.reset();
        m_cableToldOf = false;
    }
    if (m_now.cable != state) {
        m_now.cable = state;
        m_now.cableProof = proof;
    }
    const bool seenAsItHappens = thread.task == Task::kCableIn || thread.task == Task::kCableOut;
    const Time since = seenAsItHappens ? std::min(thread.taskSince, time) : time;
    const std::string why = found             ? "an adapter with an address counts as a cable"
                            : waitsForAddress ? "the cable is in and has no address"
                                              : "no adapter with an address counts as a cable";
    Lane& lane = m_history.cable;
    DoubtIfBehind(thread, lane);
    if (seenAsItHappens || (m_now.subscribed && thread.task != Task::kResume)) {
        lane.Set(since, state, Who::kUser, why, proof.place);
    } else {
        lane.Find(time, state, Who::kUser, why, proof.place);
    }
    if (state == State::kOut) {
        FindAllOut(m_history.cables, thread.task == Task::kResume, time, why, proof.place);
    }
}

Lane& Follower::CableLane(const std::string& connection, const std::string& adapter) {
    const auto [found, isNew] = m_history.cables.try_emplace(
        connection, Lane("cable:" + connection, "Cable: " + (adapter.empty() ? connection : adapter)));
    Lane& lane = found->second;
    if (!isNew && !adapter.empty()) {
        lane.Rename("Cable: " + adapter);
    }
    for (const Listing& listing : isNew ? m_listings : std::vector<Listing>()) {
        lane.Find(listing.listed.time, State::kOut, Who::kUnknown, "not among the connections at the start",
                  listing.listed.place);
        if (listing.end) {
            lane.Forget(listing.end->from, listing.end->why, listing.end->line);
        }
    }
    if (isNew && m_sleptSince) {
        DoubtAfterSleep(lane, *m_sleptSince);
    }
    return lane;
}

bool Follower::HandleCableEvent(Thread& thread, const LogLine& line, const Reading& reading,
                                const Proof& proof) {
    switch (reading.said) {
        case Said::kCableEventArrives:
            if (line.level == Level::kTraceIn) {
                BeginTask(thread, reading.numbers[0] == 0 ? Task::kCableOut : Task::kCableIn, line);
                thread.waitsForTurn = true;
            }
            return true;
        case Said::kCableEventBegins:
            if (!thread.waitsForTurn) {
                BeginTask(thread, Task::kCableIn, line);
            }
            thread.waitsForTurn = false;
            return true;
        case Said::kConnectionId:
            thread.connection = std::string(reading.text);
            return true;
        case Said::kDisconnects:
            thread.task = Task::kCableOut;
            return true;
        case Said::kConnects:
            thread.task = Task::kCableIn;
            return true;
        case Said::kEthernetState:
            thread.wired = reading.numbers[0] == 1;
            if (thread.wired) {
                m_now.cableName = thread.adapter;
                Lane& lane = CableLane(thread.connection, thread.adapter);
                DoubtIfBehind(thread, lane);
                lane.Set(thread.taskSince, State::kIn, Who::kUser, "plugged in", proof.place);
                Tell(StoryKind::kCable, thread.taskSince, proof, lane.Id(), Who::kUser, Severity::kNote,
                     fmt::format("Cable in: {}", thread.adapter.empty() ? "an adapter" : thread.adapter));
            } else {
                SetCableOutcome(CableOutcome::kNotEthernet, proof);
            }
            return true;
        case Said::kAdapterDescription:
            thread.adapter = std::string(reading.text);
            return true;
        default:
            return HandleCableOutcome(thread, reading, proof);
    }
}

bool Follower::HandleCableOutcome(Thread& thread, const Reading& reading, const Proof& proof) {
    switch (reading.said) {
        case Said::kNoAddressYet:
            SetCableOutcome(CableOutcome::kNoAddress, proof);
            if (m_now.cable != State::kIn) {
                CableLane(thread.connection, thread.adapter)
                    .Set(thread.taskSince, State::kNoAddress, Who::kUser, "plugged in, no address yet",
                         proof.place);
            }
            return true;
        case Said::kCableIsUp:
            if (thread.task == Task::kCableIn) {
                SetCableOutcome(CableOutcome::kUp, proof);
                CableLane(thread.connection, thread.adapter)
                    .Set(proof.time, State::kIn, Who::kUser, "it has an address", proof.place);
            }
            return true;
        case Said::kTypeUnknown:
            SetCableOutcome(CableOutcome::kTypeUnknown, proof);
            return true;
        case Said::kNotInList:
            SetCableOutcome(CableOutcome::kNotInList, proof);
            return true;
        case Said::kCableEventCheck:
            SetCableOutcome(reading.numbers[0] == 0 ? CableOutcome::kCableGone : CableOutcome::kOtherCable,
                            proof);
            return true;
        case Said::kCableEventCheckFailed:
            SetCableOutcome(CableOutcome::kUnreadable, thread.lastError.value_or(proof));
            return true;
        case Said::kCableEventThrew:
            SetCableOutcome(CableOutcome::kThrew, proof);
            EndTask(thread, proof.time);
            return true;
        case Said::kCableEventEnds:
            EndTask(thread, proof.time);
            return true;
        case Said::kStopWlan:
        case Said::kStopWwan:
        case Said::kStartWlan:
        case Said::kStartWwan:
            return true;
        default:
            return false;
    }
}

void Follower::SetCableOutcome(CableOutcome outcome, const Proof& proof) {
    Thread& thread = m_threads[proof.thread];
    const bool isOut = outcome == CableOutcome::kCableGone || outcome == CableOutcome::kOtherCable ||
                       (outcome == CableOutcome::kUnreadable && thread.task == Task::kCableOut);
    // What concerns another kind of connection says nothing about cables.
    const bool concernsCables = outcome != CableOutcome::kNotEthernet && outcome != CableOutcome::kNone;
    if (concernsCables) {
        m_now.cableOutcome = outcome;
        m_now.cableOutcomeProof = proof;
        m_now.cableOutcomeTime = thread.taskSince;
    }
    if (isOut) {
        Lane& lane = CableLane(thread.connection, thread.adapter);
        DoubtIfBehind(thread, lane);
        lane.Set(thread.taskSince, State::kOut, Who::kUser, "pulled", proof.place);
        Tell(StoryKind::kCable, thread.taskSince, proof, lane.Id(), Who::kUser, Severity::kNote,
             fmt::format("Cable out: {}", lane.Title().substr(std::string_view("Cable: ").size())));
    }
    if (outcome == CableOutcome::kNotInList) {
        Tell(StoryKind::kCable, proof.time, proof, "cable", Who::kUser, Severity::kNote,
             "A connection ended that was never seen to be wired");
    }
}

/// The connections that are there when the service starts.
bool Follower::HandleConnections(Thread& /*thread*/, const LogLine& /*line*/, const Reading& reading,
                                 const Proof& proof) {
    switch (reading.said) {
        case Said::kNetworkAlive:
            // The connections have been listed; a cable that is in would have been among them.
            if (m_listings.size() < kMostListings) {
                m_listings.push_back({.listed = proof, .end = std::nullopt});
            }
            for (auto& [connection, lane] : m_history.cables) {
                if (lane.Now() == State::kUnknown) {
                    lane.Find(proof.time, State::kOut, Who::kUnknown,
                              "not among the connections at the start", proof.place);
                }
            }
            return true;
        case Said::kConnectionAtStart:
            m_startConnection.clear();
            m_startWired = false;
            return true;
        case Said::kConnectionIdAtStart:
            m_startConnection = std::string(reading.text);
            return true;
        case Said::kWiredAtStart:
            m_startWired = true;
            return true;
        case Said::kConnectedAtStart:
            if (m_startWired) {
                const Thread& thread = m_threads[proof.thread];
                const bool connected = reading.numbers[0] != 0;
                if (connected) {
                    m_now.cableName = thread.adapter;
                }
                CableLane(m_startConnection, thread.adapter)
                    .Find(proof.time, connected ? State::kIn : State::kOut, Who::kUnknown,
                          "so when the service started", proof.place);
            }
            return true;
        default:
            return false;
    }
}

bool Follower::HandleAirplane(Thread& thread, const LogLine& line, const Reading& reading,
                              const Proof& proof) {
    switch (reading.said) {
        case Said::kRadioKeyChanged:
            BeginTask(thread, Task::kAirplane, line);
            return true;
        case Said::kAirplaneKeyMissing:
        case Said::kAirplaneValueMissing:
            thread.airplaneUnread = true;
            return true;
        case Said::kAirplane:
            if (thread.airplaneUnread) {
                thread.airplaneUnread = false;
                m_now.airplane = State::kUnknown;
                m_now.airplaneProof = proof;
            } else {
                SeeAirplane(thread, reading.numbers[0] == 1, line.time, proof);
            }
            return true;
        case Said::kAirplaneOnSeen:
            SeeAirplane(thread, true, line.time, proof);
            return true;
        case Said::kAirplaneOffSeen:
            SeeAirplane(thread, false, line.time, proof);
            return true;
        case Said::kAirplaneText:
            SeeAirplane(thread, true, line.time, proof);
            return true;
        case Said::kWatcherStops:
            EndTask(thread, line.time);
            return true;
        default:
            return false;
    }
}

void Follower::SeeAirplane(Thread& thread, bool on, Time time, const Proof& proof) {
    const State state = on ? State::kOn : State::kOff;
    if (m_now.airplane != state) {
        if (m_now.airplane != State::kUnknown) {
            m_airplaneChanged = time;
            Tell(StoryKind::kAirplane, time, proof, "airplane", Who::kUser, Severity::kNote,
                 on ? "Airplane mode is on" : "Airplane mode is off");
        }
        m_now.airplane = state;
        m_now.airplaneProof = proof;
    }
    const Time since = thread.task == Task::kAirplane ? std::min(thread.taskSince, time) : time;
    Lane& lane = m_history.airplane;
    if (thread.task == Task::kAirplane) {
        DoubtIfBehind(thread, lane);
    }
    if (lane.Now() == State::kUnknown) {
        lane.Find(time, state, Who::kUnknown, "so when the service first looked", proof.place);
    } else {
        lane.Set(since, state, Who::kUser, on ? "switched on" : "switched off", proof.place);
    }
}

}  // namespace Doctor
