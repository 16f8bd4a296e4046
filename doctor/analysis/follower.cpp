#include "doctor/analysis/follower.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Doctor {
namespace {

/// More than this is not told: nobody reads it, and memory is bounded.
constexpr std::size_t kMostStory = 20000;
/// The same error again within this time is told once, with its number.
constexpr Time kErrorRepeatMs = 60000;
/// How long after a resume events still tell of what happened during the sleep.
constexpr Time kAfterWakeMs = 5000;
/// An event that is told of at once is told of within this time.
constexpr Time kPromptMs = 100;
/// WBEM_S_FALSE (WMI error constants): the query found nothing.
constexpr std::int64_t kNoSuchSetting = 1;
/// A service that stops and starts again within this time is restarted: too short for a user's hand.
constexpr Time kRestartMs = 10000;
/// Threads come and go with numbers of their own; those that say nothing any more are let go.
constexpr std::size_t kMostThreads = 4096;

/// The text of a line that may be repeated, without the number of the try.
std::string WithoutCount(std::string_view text) {
    constexpr std::string_view kCounts[] = {"retry count ", "in try ", "in count = ", "in retry "};
    std::string rest(text);
    for (const std::string_view count : kCounts) {
        const std::size_t found = rest.find(count);
        if (found != std::string::npos) {
            const std::size_t begin = found + count.size();
            rest.erase(begin, std::min(rest.find_first_not_of("0123456789", begin), rest.size()) - begin);
        }
    }
    return rest;
}

Proof MakeProof(const LogLine& line, Place place) {
    return {.place = place,
            .time = line.time,
            .level = line.level,
            .thread = line.thread,
            .operation = std::string(line.operation),
            .text = std::string(line.text)};
}

}  // namespace

std::string_view SeverityName(Severity severity) {
    switch (severity) {
        case Severity::kWell:
            return "well";
        case Severity::kNote:
            return "note";
        case Severity::kWarning:
            return "warning";
        case Severity::kFault:
            return "fault";
        default:
            return "unknown";
    }
}

std::string_view StoryKindName(StoryKind kind) {
    static constexpr std::string_view kNames[] = {"start", "stop",       "end",      "firmware",
                                                  "cable", "remembered", "airplane", "wake",
                                                  "radio", "decision",   "error",    "log"};
    return kNames[static_cast<std::size_t>(kind)];
}

std::string_view RadioWord(Radio radio) {
    return radio == Radio::kWifi ? "Wi-Fi" : "Mobile broadband";
}

std::string_view TaskReason(Task task) {
    switch (task) {
        case Task::kStart:
            return "the service started";
        case Task::kCableIn:
            return "the cable came in";
        case Task::kCableOut:
            return "the cable went out";
        case Task::kRadioChange:
            return "the radio was changed by somebody else";
        case Task::kNetworkAvailable:
            return "a Wi-Fi network was found";
        case Task::kAirplane:
            return "airplane mode, or something beside it, changed";
        case Task::kResume:
            return "the notebook woke";
        case Task::kCompletion:
            return "the modem was changed";
        default:
            return "of something that the log does not tell";
    }
}

void Follower::Take(const LogLine& line, Place place) {
    if (!IsOperationOfService(line.operation)) {
        ++m_history.linesOfOthers;
        return;
    }
    ++m_history.linesOfService;
    m_history.levels[static_cast<std::size_t>(line.level)] = true;
    m_history.from = std::min(m_history.from.value_or(line.time), line.time);
    m_history.until = std::max(m_history.until.value_or(line.time), line.time);
    if (m_threads.size() > kMostThreads) {
        std::erase_if(m_threads, [](const auto& entry) { return entry.second.task == Task::kNone; });
        if (m_threads.size() > kMostThreads) {
            m_threads.clear();
        }
    }
    if (m_wakeEnds && line.time > *m_wakeEnds) {
        EndDoubts();
    }
    const Reading reading = Read(line.operation, line.text);
    Thread& thread = m_threads[line.thread];
    if (thread.task == Task::kNone && line.time - thread.lastTime >= kPromptMs) {
        thread.busySince = line.time;
    }
    if (reading.said == Said::kNothingKnown && line.level < Level::kWarning) {
        Handle(thread, line, reading, thread.lastLine);
    } else {
        const Proof proof = MakeProof(line, place);
        thread.lastLine = proof;
        Handle(thread, line, reading, proof);
    }
    thread.lastTime = line.time;
    m_now.lastTime = line.time;
}

void Follower::Handle(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof) {
    if (line.level == Level::kWarning || line.level == Level::kError) {
        TellError(line, proof);
    }
    if (thread.storing && reading.said != Said::kStores && reading.said != Said::kStoreFailed &&
        line.level != Level::kTraceIn) {
        Store(thread, thread.storeProof);
    }
    static_cast<void>(
        HandleEthernet(thread, line, reading, proof) || HandleRun(thread, line, reading, proof) ||
        HandleCableEvent(thread, line, reading, proof) || HandleWlan(thread, line, reading, proof) ||
        HandleWlanFailure(thread, line, reading, proof) || HandleWwan(thread, line, reading, proof) ||
        HandleWwanFailure(thread, line, reading, proof) || HandleNotification(thread, line, reading, proof) ||
        HandleAirplane(thread, line, reading, proof) || HandleCompletion(thread, line, reading, proof) ||
        HandleRemembered(thread, line, reading, proof) || HandleFirmware(thread, line, reading, proof) ||
        HandleConnections(thread, line, reading, proof) || HandleSubscription(reading, proof));
}

void Follower::BeginTask(Thread& thread, Task task, const LogLine& line) {
    EndTask(thread, line.time);
    if (task == Task::kCableIn || task == Task::kCableOut) {
        m_now.untoldCable.reset();
        m_cableToldOf = true;
    }
    if (line.time - thread.lastTime >= kPromptMs) {
        thread.busySince = line.time;
    }
    const bool isBehind = line.time - thread.busySince > kPromptMs;
    thread.behindSince = isBehind ? std::optional(thread.busySince) : std::nullopt;
    thread.task = task;
    thread.taskSince = line.time;
}

void Follower::DoubtIfBehind(const Thread& thread, Lane& lane) {
    if (thread.behindSince) {
        lane.Doubt(*thread.behindSince, "changed while the service was busy with something else");
    }
}

void Follower::DoubtAfterSleep(Lane& lane, Time since) {
    lane.Doubt(since, "changed during a sleep, or as it woke; the log does not tell when the sleep began");
}

void Follower::EndTask(Thread& thread, Time time) {
    EndDecision(thread, Radio::kWifi, time);
    EndDecision(thread, Radio::kWwan, time);
    thread.task = Task::kNone;
    thread.waitsForTurn = false;
    thread.connection.clear();
    thread.adapter.clear();
    thread.wired = false;
}

bool Follower::HandleRun(Thread& thread, const LogLine& line, const Reading& reading, const Proof& proof) {
    switch (reading.said) {
        case Said::kServiceStarts:
            m_now.version = std::string(reading.text);
            BeginRun(line, proof);
            return true;
        case Said::kServiceStops:
            EndRun(line.time, proof);
            return true;
        case Said::kWorkerBegins:
            BeginTask(thread, Task::kStart, line);
            return true;
        case Said::kWorkerEnds:
            EndTask(thread, line.time);
            m_now.workerDone = true;
            m_history.runs.Set(line.time, State::kRunning, Who::kService, "it has made its first decisions",
                               proof.place);
            return true;
        case Said::kComFailed:
        case Said::kNetworkListFailed:
        case Said::kWorkerThrew:
            m_now.startGivenUp = proof;
            EndTask(thread, line.time);
            return true;
        case Said::kMobileBroadbandFailed:
        case Said::kNoModem:
            m_now.noModem = proof;
            m_now.workerDone = true;
            EndTask(thread, line.time);
            m_history.runs.Set(line.time, State::kRunning, Who::kService, "it has made its first decisions",
                               proof.place);
            m_history.wwan.Forget(line.time, "the service has found no modem", proof.place);
            return true;
        default:
            break;
    }
    if (line.operation == "CServiceBase::OnContinue" || line.operation == "NLMUtils::SystemResumeHandler") {
        if (thread.task != Task::kResume) {
            Wake(thread, line, proof);
        }
        if (line.operation == "CServiceBase::OnContinue" && line.level == Level::kTraceOut) {
            EndTask(thread, line.time);
            EndWake(line.time);
        }
        return reading.said == Said::kNothingKnown;
    }
    if (line.operation == "CMainService::ServiceWorkerThread" && thread.task == Task::kNone) {
        BeginTask(thread, Task::kStart, line);
    }
    return false;
}

void Follower::BeginRun(const LogLine& line, const Proof& proof) {
    if (m_now.run == RunState::kRunning || m_now.run == RunState::kStarting) {
        const Time end = m_now.lastTime.value_or(line.time);
        m_silentEnds.emplace_back(end, line.time);
        m_history.runs.Forget(end, "the service ended without a word: killed, crashed, or the power went",
                              proof.place);
        ForgetRadios(end, "the service did not run", proof.place);
        Tell(StoryKind::kEnd, end, proof, "runs", Who::kUnknown, Severity::kFault,
             fmt::format("The service ended without a word at some time before {}", TimeText(line.time)));
    }
    // What it had begun is gone with it.
    for (auto& [number, thread] : m_threads) {
        thread = {};
    }
    m_own[0] = {};
    m_own[1] = {};
    m_firmwareError.reset();
    for (const Radio radio : {Radio::kWifi, Radio::kWwan}) {
        if (m_now.run == RunState::kStopped && line.time - m_now.runSince < kRestartMs &&
            m_atStop[Index(radio)]) {
            m_history.Of(radio).Find(line.time, *m_atStop[Index(radio)], Who::kUnknown,
                                     "so before the service was restarted", proof.place);
        }
    }
    const std::string version = std::move(m_now.version);
    const RadioSituation wifi = std::move(m_now.wifi);
    const RadioSituation wwan = std::move(m_now.wwan);
    m_now = {};
    m_now.version = version;
    const auto keep = [](RadioSituation& now, const RadioSituation& before) {
        now.remembered = before.remembered;
        now.rememberedBy = before.rememberedBy;
        now.rememberedText = before.rememberedText;
        now.rememberedProof = before.rememberedProof;
    };
    keep(m_now.wifi, wifi);
    keep(m_now.wwan, wwan);
    m_now.run = RunState::kStarting;
    m_now.runSince = line.time;
    m_now.runProof = proof;
    m_history.runs.Set(line.time, State::kStarting, Who::kWindows, "started", proof.place);
    m_history.sleep.Set(line.time, State::kAwake, Who::kUnknown, "the service says something", proof.place);
    Tell(StoryKind::kStart, line.time, proof, "runs", Who::kWindows, Severity::kNote,
         fmt::format("The service starts (version {})", version));
}

void Follower::EndRun(Time time, const Proof& proof) {
    m_atStop[0] = m_history.wifi.Now();
    m_atStop[1] = m_history.wwan.Now();
    m_now.run = RunState::kStopped;
    m_now.runSince = time;
    m_now.runProof = proof;
    m_now.subscribed = false;
    m_history.runs.Set(time, State::kStopped, Who::kWindows, "it was stopped", proof.place);
    ForgetRadios(time, "the service does not run", proof.place);
    Tell(StoryKind::kStop, time, proof, "runs", Who::kWindows, Severity::kNote, "The service is stopped");
}

void Follower::ForgetRadios(Time time, const std::string& why, Place place) {
    m_history.wifi.Forget(time, why, place);
    m_history.wwan.Forget(time, why, place);
    m_history.cable.Forget(time, why, place);
    m_history.airplane.Forget(time, why, place);
    m_history.sleep.Forget(time, why, place);
    for (auto& [connection, lane] : m_history.cables) {
        lane.Forget(time, why, place);
    }
    if (!m_listings.empty() && !m_listings.back().end) {
        m_listings.back().end = Interval{.from = time, .why = why, .line = place};
    }
}

/// The log does not say when a sleep began: some time after the line before.
void Follower::Wake(Thread& thread, const LogLine& line, const Proof& proof) {
    const Time before = m_now.lastTime.value_or(line.time);
    m_history.sleep.Set(before, State::kSlept, Who::kUnknown, "asleep at some time from here on",
                        proof.place);
    m_history.sleep.Set(line.time, State::kAwake, Who::kUser, "woken", proof.place);
    m_sleptSince = before;
    for (Lane* const lane : {&m_history.cable, &m_history.wifi, &m_history.wwan, &m_history.airplane}) {
        DoubtAfterSleep(*lane, before);
    }
    for (auto& [connection, lane] : m_history.cables) {
        DoubtAfterSleep(lane, before);
    }
    BeginTask(thread, Task::kResume, line);
    m_wakeEnds.reset();
    Tell(StoryKind::kWake, line.time, proof, "sleep", Who::kUser, Severity::kNote, "The notebook wakes");
}

void Follower::EndWake(Time time) {
    m_wakeEnds = time + kAfterWakeMs;
}

/// What happened during the sleep has been told by now; from here on changes are seen as they happen.
void Follower::EndDoubts() {
    m_wakeEnds.reset();
    m_sleptSince.reset();
    for (Lane* const lane : {&m_history.cable, &m_history.wifi, &m_history.wwan, &m_history.airplane}) {
        lane->EndDoubt();
    }
    for (auto& [connection, lane] : m_history.cables) {
        lane.EndDoubt();
    }
}

bool Follower::HandleFirmware(Thread& /*thread*/, const LogLine& line, const Reading& reading,
                              const Proof& proof) {
    switch (reading.said) {
        case Said::kFirmwareAsked:
            m_now.readingFirmware = true;
            return true;
        case Said::kFirmwareAnswered:
            if (!reading.text.empty()) {
                m_firmwareError.reset();
            }
            return true;
        case Said::kFirmwareRefused:
        case Said::kFirmwareThrew:
            // That there is no such setting is an answer.
            if (reading.numbers[0] != kNoSuchSetting) {
                m_firmwareError = proof;
            }
            return true;
        case Said::kWlanHalfOn:
        case Said::kWlanHalfOnByOtherName:
            SetHalf(Radio::kWifi, Half::kEnabled, reading, proof);
            return true;
        case Said::kWwanHalfOn:
            SetHalf(Radio::kWwan, Half::kEnabled, reading, proof);
            return true;
        case Said::kWlanHalfStarred:
        case Said::kWlanHalfUnread:
            SetHalf(Radio::kWifi, Half::kDisabled, reading, proof);
            return true;
        case Said::kWwanHalfUnread:
            SetHalf(Radio::kWwan, Half::kDisabled, reading, proof);
            return true;
        case Said::kWlanSettingRead:
        case Said::kWwanSettingRead: {
            m_now.readingFirmware = false;
            const Radio radio = reading.said == Said::kWlanSettingRead ? Radio::kWifi : Radio::kWwan;
            const HalfSituation& half = m_now.HalfOf(radio);
            // A starred setting is disabled without another word.
            if (half.half != Half::kEnabled && reading.text.starts_with('*')) {
                SetHalf(radio, Half::kDisabled, reading, proof);
            }
            m_firmwareError.reset();
            return true;
        }
        case Said::kFirmwareRead:
            m_now.readingFirmware = false;
            return true;
        case Said::kWlanRestoredDisabled:
        case Said::kWwanRestoredDisabled: {
            const Radio radio = reading.said == Said::kWlanRestoredDisabled ? Radio::kWifi : Radio::kWwan;
            if (m_now.HalfOf(radio).half == Half::kUnknown) {
                SetHalf(radio, Half::kDisabled, reading, proof);
            }
            return true;
        }
        default:
            static_cast<void>(line);
            return false;
    }
}

void Follower::SetHalf(Radio radio, Half half, const Reading& reading, const Proof& proof) {
    HalfSituation& now = radio == Radio::kWifi ? m_now.wlanHalf : m_now.wwanHalf;
    if (now.half == Half::kEnabled) {
        // Once on, on for the life of the process.
        return;
    }
    if (half == Half::kDisabled && reading.text.empty() && m_firmwareError) {
        half = Half::kUnreadable;
    }
    if (now.half == half) {
        return;
    }
    now.half = half;
    now.text = std::string(reading.text);
    now.error = reading.numbers[0];
    now.proof = half == Half::kUnreadable ? m_firmwareError : std::optional<Proof>(proof);
    const std::string_view what = half == Half::kEnabled    ? "is enabled in the firmware"
                                  : half == Half::kDisabled ? "is disabled in the firmware"
                                                            : "cannot be read from the firmware";
    Tell(StoryKind::kFirmware, proof.time, proof, radio == Radio::kWifi ? "wifi" : "wwan", Who::kUnknown,
         half == Half::kUnreadable ? Severity::kWarning : Severity::kNote,
         fmt::format("Switching of {} {}", radio == Radio::kWifi ? "Wi-Fi" : "mobile broadband", what));
}

bool Follower::HandleSubscription(const Reading& reading, const Proof& proof) {
    switch (reading.said) {
        case Said::kWlanListening:
            m_now.subscribed = true;
            m_now.run = RunState::kRunning;
            return true;
        case Said::kNoContainer:
        case Said::kNoFirstConnectionPoint:
        case Said::kNoConnectionPoint:
        case Said::kNoEventHandler:
        case Said::kAdviseFailed:
            m_now.notSubscribed = proof;
            return true;
        case Said::kWlanRegisterRefused:
        case Said::kWlanRegisterNoHandle:
        case Said::kWlanRegisterFailed:
            if (!m_now.notNotified) {
                m_now.notNotified = proof;
            }
            return true;
        case Said::kWwanNoContainer:
        case Said::kWwanNoConnectionPoint:
        case Said::kWwanAdviseFailed:
            m_now.wwanNotSubscribed = proof;
            return true;
        case Said::kWlanServiceMissed:
        case Said::kWlanServiceMissedAtResume:
        case Said::kWwanServiceMissed:
        case Said::kWwanServiceMissedAtResume:
            m_now.serviceMissed = proof;
            return true;
        case Said::kModem:
            m_now.modem = proof;
            return true;
        default:
            return false;
    }
}

Situation Follower::Snapshot() const {
    Situation now = m_now;
    for (const auto& [number, thread] : m_threads) {
        if (thread.task != Task::kNone && m_now.run != RunState::kStopped) {
            now.waiting.push_back({.task = thread.task,
                                   .since = thread.taskSince,
                                   .thread = number,
                                   .lastLine = thread.lastLine});
        }
    }
    return now;
}

void Follower::End() {
    for (auto& [number, thread] : m_threads) {
        if (thread.storing) {
            Store(thread, thread.storeProof);
        }
        EndTask(thread, m_now.lastTime.value_or(0));
    }
    // What is told when it ends stands where it began.
    std::stable_sort(m_history.story.begin(), m_history.story.end(),
                     [](const StoryEvent& one, const StoryEvent& other) { return one.time < other.time; });
}

void Follower::Tell(StoryKind kind, Time time, const Proof& proof, std::string subject, Who who,
                    Severity severity, std::string text) {
    if (m_history.story.size() >= kMostStory) {
        ++m_history.storyLeftOut;
        return;
    }
    m_history.story.push_back({.time = time,
                               .until = proof.time,
                               .kind = kind,
                               .subject = std::move(subject),
                               .who = who,
                               .severity = severity,
                               .text = std::move(text),
                               .times = 1,
                               .line = proof.place});
}

void Follower::TellError(const LogLine& line, const Proof& proof) {
    std::string key = fmt::format("{}|{}", line.operation, WithoutCount(line.text));
    if (const auto found = m_recentErrors.find(key); found != m_recentErrors.end()) {
        StoryEvent& before = m_history.story[found->second];
        if (line.time - before.until < kErrorRepeatMs && line.time >= before.time) {
            before.until = line.time;
            ++before.times;
            return;
        }
    }
    constexpr std::size_t kMostKept = 1000;
    if (m_recentErrors.size() >= kMostKept) {
        m_recentErrors.clear();
    }
    if (m_history.story.size() >= kMostStory) {
        ++m_history.storyLeftOut;
        return;
    }
    m_recentErrors[std::move(key)] = m_history.story.size();
    Tell(StoryKind::kError, line.time, proof, "", Who::kService,
         line.level == Level::kError ? Severity::kFault : Severity::kWarning, std::string(line.text));
}

}  // namespace Doctor
