#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/analysis/history.h"
#include "doctor/analysis/log_line.h"
#include "doctor/analysis/texts.h"

namespace Doctor {

/// Follows the service through the lines of its log, in their order, and keeps what they tell: the
/// lanes, the story, and what is so at the moment. Lines of several threads stand among each other;
/// each thread is followed by itself.
class Follower {
  public:
    void Take(const LogLine& line, Place place);
    /// Nothing more comes.
    void End();

    [[nodiscard]] const Situation& Now() const { return m_now; }
    [[nodiscard]] History& Told() { return m_history; }
    /// The present moment with what the threads are in the middle of.
    [[nodiscard]] Situation Snapshot() const;
    /// How often a service began although the one before had not said that it stops, and when the
    /// last line before the latest such start was.
    [[nodiscard]] const std::vector<std::pair<Time, Time>>& SilentEnds() const { return m_silentEnds; }

  private:
    /// What one thread of the service is in the middle of.
    struct Thread {
        Task task = Task::kNone;
        Time taskSince = 0;
        /// What the thread is told of may have happened as early as this: it was busy until now.
        std::optional<Time> behindSince;
        Time lastTime = 0;
        /// Since when it has had no pause.
        Time busySince = 0;
        std::string connection;
        std::string adapter;
        /// A cable event waits for its turn.
        bool waitsForTurn = false;
        bool connected = false;
        bool wired = false;
        /// A look at the adapters that has not ended.
        bool checking = false;
        Time checkSince = 0;
        std::optional<Proof> lastError;
        std::int64_t completionStatus = 0;
        bool ownCompletion = false;
        bool airplaneUnread = false;
        /// What is being written to the registry.
        std::optional<Radio> storing;
        std::string storedText;
        Proof storeProof;
        std::array<std::optional<Decision>, 2> decisions;
        std::array<bool, 2> switching{};
        Proof lastLine;
    };

    void Handle(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleRun(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleFirmware(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleSubscription(const Reading& reading, const Proof& proof);
    bool HandleCableEvent(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleCableOutcome(Thread& thread, const Reading& reading, const Proof& proof);
    bool HandleConnections(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleEthernet(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleAirplane(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleNotification(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleWlan(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleWlanFailure(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleWwan(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleWwanFailure(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleCompletion(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);
    bool HandleRemembered(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof);

    void BeginTask(Thread& thread, Task task, const LogLine& line);
    void EndTask(Thread& thread, Time time);
    /// Before a change that a thread tells of late: when it was is not known.
    static void DoubtIfBehind(const Thread& thread, Lane& lane);
    /// Before what is told of after a sleep that began at some time since `since`.
    static void DoubtAfterSleep(Lane& lane, Time since);
    void BeginRun(const LogLine& line, const Proof& proof);
    void EndRun(Time time, const Proof& proof);
    void ForgetRadios(Time time, const std::string& why, Place place);
    void Wake(Thread& thread, const LogLine& line, const Proof& proof);
    void EndWake(Time time);
    void EndDoubts();
    [[nodiscard]] bool IsUntold(const Thread& thread) const;
    void EndCheck(Thread& thread, bool found, Time time, const Proof& proof);
    void SetHalf(Radio radio, Half half, const Reading& reading, const Proof& proof);
    Lane& CableLane(const std::string& connection, const std::string& adapter);
    void SetCableOutcome(CableOutcome outcome, const Proof& proof);
    void SeeRadio(Thread& thread, Radio radio, bool on, Time time, const Proof& proof);
    void ForgetRadio(Radio radio, Time time, const std::string& why, const Proof& proof);
    void ModemTellsOfChange(const Thread& thread, Time time);
    void LookAtModem(bool hasChanged, Time time);
    void FollowModemInAirplaneMode(Thread& thread, Time time, const Proof& proof);
    void SeeAirplane(Thread& thread, bool on, Time time, const Proof& proof);
    void SeeRemembered(Radio radio, State state, std::string text, const Proof& proof);
    void Store(Thread& thread, const Proof& proof);
    [[nodiscard]] std::pair<Who, std::string> WhoStored(const Thread& thread, Radio radio, bool on) const;

    Decision& DecisionOf(Thread& thread, Radio radio, bool on, const LogLine& line, const Proof& proof);
    Decision* CurrentDecision(Thread& thread, Radio radio);
    void Fail(Thread& thread, Radio radio, Outcome outcome, std::int64_t error, const LogLine& line,
              const Proof& proof);
    void NoteFailure(const Thread& thread, Radio radio, Outcome outcome, std::int64_t error,
                     const Proof& proof);
    void Succeed(Thread& thread, Radio radio, Outcome outcome, const LogLine& line, const Proof& proof);
    void EndDecision(Thread& thread, Radio radio, Time time);
    void Publish(Thread& thread, Radio radio);
    [[nodiscard]] bool ServiceSwitched(Radio radio, bool on, Time time) const;
    /// Who made a change that a look or a notification shows, and why.
    [[nodiscard]] std::pair<Who, std::string> WhoSwitched(Radio radio, bool on, Time time, bool wasKnown,
                                                          bool isNotification) const;

    void Tell(StoryKind kind, Time time, const Proof& proof, std::string subject, Who who, Severity severity,
              std::string text);
    void TellError(const LogLine& line, const Proof& proof);

    History m_history;
    Situation m_now;
    std::map<std::uint32_t, Thread> m_threads;
    /// The service's own last change of a radio: to what, and when it was last at it.
    struct OwnSwitch {
        bool on = false;
        Time until = 0;
        bool busy = false;
        std::string reason;
    };
    std::array<OwnSwitch, 2> m_own;
    std::optional<Time> m_airplaneChanged;
    /// The modem has told of a change since it was last looked at.
    bool m_modemChanged = false;
    /// When a look at the modem showed a change that it has not told of yet.
    std::optional<Time> m_modemAhead;
    /// What the radios were when the service stopped.
    std::array<std::optional<State>, 2> m_atStop;
    std::optional<Proof> m_firmwareError;
    std::optional<Time> m_wakeEnds;
    /// Since when changes may have gone unseen, while what happened in a sleep is being told.
    std::optional<Time> m_sleptSince;
    /// Windows has told of a connection since no cable was last seen.
    bool m_cableToldOf = false;
    /// Errors of the story that may be repeated, by operation and text.
    std::map<std::string, std::size_t, std::less<>> m_recentErrors;
    std::vector<std::pair<Time, Time>> m_silentEnds;
    /// When the connections at each start had all been listed, and when that run of the service ended.
    struct Listing {
        Proof listed;
        std::optional<Interval> end;
    };
    std::vector<Listing> m_listings;
    std::string m_startConnection;
    bool m_startWired = false;
};

/// The task in words that follow "because": "the cable came in".
std::string_view TaskReason(Task task);

}  // namespace Doctor
