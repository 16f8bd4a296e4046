#include "tests/hunt/model.h"

#include <netlistmgr.h>
#include <wlanapi.h>

#include <algorithm>
#include <array>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <utility>

#include "notebook/state/machine.h"
#include "notebook/state/text.h"
#include "platform/wlan_notifications.h"
#include "tests/hunt/devices.h"
#include "tests/hunt/task.h"

namespace RandomEvents {

namespace {

using Notebook::ConfirmRadio;
using Notebook::kForEver;
using Notebook::kRadioOff;
using Notebook::kRadioOn;

constexpr wchar_t kFirstName[] = L"LAN / WLAN Auto Switching";
constexpr wchar_t kSecondName[] = L"LAN/WLAN Switching";
constexpr wchar_t kWwanName[] = L"LAN / WWAN Auto Switching";

Task<void> Nothing() {
    co_return;
}

bool MeansOn(const std::string& stored) {
    return stored.empty() || stored.front() == '(' || stored == "True";
}

bool IsEthernet(const Notebook::Adapter& adapter) {
    return adapter.type == IF_TYPE_ETHERNET_CSMACD;
}

}  // namespace

std::string Situation::Text() const {
    std::ostringstream text;
    text << "phys=";
    for (const std::uint32_t phy : phys) {
        text << phy << ",";
    }
    text << " modems=";
    for (const std::uint32_t modem : modems) {
        text << modem << ",";
    }
    text << " stored=" << storedWlan << "," << storedWwan << " runs=" << isRunning << " reported=" << reported
         << " enabled=" << switchesWlan << "," << switchesWwan << " timeout=" << hasTimedOut
         << " own=" << changesModem << " in_event=" << handlesCable << " wired=" << wired
         << " registrations=" << registrations << " sinks=" << sinks << " last_radio=" << hasLastRadio;
    return text.str();
}

class Model::Inside {
  public:
    explicit Inside(const Shape& shape) {
        Notebook::ResetMachine(*m_notebook, {shape.wlanAdapters, shape.phys, Shape::kCables, shape.modems},
                               0);
    }

    bool m_isFine = false;

    // --- threads and time ---

    bool Take(Who who) {
        if (who == Who::kClock) {
            const bool isTime = NotAtRest() == Who::kClock;
            if (isTime) {
                PassTime();
            }
            return isTime;
        }
        m_who = who;
        Thread& thread = Current();
        if (!CanRun(who)) {
            // Somebody else was quicker to take a lock that had become free.
            return thread.flag == &m_cableLock || thread.flag == &m_checkLock || thread.flag == &m_modemLock;
        }
        if (!thread.task) {
            const Procedure begin = std::move(JobsOf(who).front());
            JobsOf(who).pop_front();
            thread.task.emplace(begin());
            thread.at = thread.task->Get();
        }
        thread.flag = nullptr;
        thread.until = kNever;
        thread.at.resume();
        if (thread.task->Get().done()) {
            thread.task.reset();
        }
        return true;
    }

    std::optional<Who> NotAtRest() {
        for (std::size_t i = 0; i < kThreads; ++i) {
            if (CanRun(static_cast<Who>(i))) {
                return static_cast<Who>(i);
            }
        }
        return NextTime() == kNever ? std::nullopt : std::optional(Who::kClock);
    }

    void Do(const Command& command) {
        if (command.at == 0) {
            Carry(command);
        } else {
            m_later.emplace(m_now + command.at, [this, command] { Carry(command); });
        }
    }

    void EndProcess() {
        m_switchesWlan = m_switchesWwan = m_hasTimedOut = m_handlesCable = m_changesModem = false;
        m_hasNetworkList = m_hasModems = false;
        m_subscribedSince.reset();
        m_hearsModemSince.reset();
        m_modem.reset();
        m_lastRadio.reset();
        m_wired.clear();
    }

    Situation See() const {
        Situation seen;
        for (const Notebook::WlanAdapter& wlan : m_notebook->devices.wlan) {
            std::transform(wlan.phys, wlan.phys + wlan.phyCount, std::back_inserter(seen.phys),
                           [](const Notebook::Phy& phy) { return phy.software; });
        }
        for (std::size_t i = 0; i < ModemCount(); ++i) {
            seen.modems.push_back(m_notebook->devices.modems[i].software);
        }
        seen.storedWlan = m_storedWlan;
        seen.storedWwan = m_storedWwan;
        seen.isRunning = m_runs;
        seen.reported = m_reported;
        seen.switchesWlan = m_switchesWlan;
        seen.switchesWwan = m_switchesWwan;
        seen.hasTimedOut = m_hasTimedOut;
        seen.changesModem = m_changesModem;
        seen.handlesCable = m_handlesCable;
        seen.wired = m_wired.size();
        seen.registrations = m_registeredSince ? 1 : 0;
        seen.sinks = (m_subscribedSince ? 3 : 0) + (m_hearsModemSince ? 1 : 0);
        seen.hasLastRadio = m_lastRadio.has_value();
        return seen;
    }

  private:
    using Ms = std::int64_t;
    static constexpr Ms kNever = INT64_MAX;
    using Procedure = std::function<Task<void>()>;
    /// The first announcement that a subscriber hears, if there is one.
    using Since = std::optional<std::uint64_t>;
    enum class Neighbour { kRuns, kDoesNotRun, kAbsent };

    struct Thread {
        std::optional<Task<void>> task;
        std::coroutine_handle<> at;
        const bool* flag = nullptr;  ///< goes on when this is `wanted`
        bool wanted = false;
        bool isReleased = false;  ///< from an event that is taken back with it
        Ms until = kNever;
    };
    struct Wait {
        Inside& model;
        const bool* flag;
        bool wanted;
        Ms until;
        // NOLINTBEGIN(readability-identifier-naming): the language's names
        [[nodiscard]] bool await_ready() const { return flag != nullptr && *flag == wanted; }
        void await_suspend(std::coroutine_handle<> at) const {
            Thread& thread = model.Current();
            thread.at = at;
            thread.flag = flag;
            thread.wanted = wanted;
            thread.until = until;
        }
        [[nodiscard]] bool await_resume() const { return await_ready(); }
        // NOLINTEND(readability-identifier-naming)
    };

    Thread& Current() { return m_threads.at(static_cast<std::size_t>(m_who)); }

    std::deque<Procedure>& JobsOf(Who who) {
        return m_jobs.at(static_cast<std::size_t>(who == Who::kNetwork2 ? Who::kNetwork : who));
    }

    bool CanRun(Who who) {
        const Thread& thread = m_threads.at(static_cast<std::size_t>(who));
        if (thread.task) {
            return thread.isReleased || (thread.flag != nullptr && *thread.flag == thread.wanted) ||
                   thread.until <= m_now;
        }
        return !JobsOf(who).empty();
    }

    Ms NextTime() {
        Ms next = m_later.empty() ? kNever : m_later.begin()->first;
        for (const Thread& thread : m_threads) {
            next = std::min(next, thread.until);
        }
        const Notebook::Micros due = Notebook::NextDue(*m_notebook);
        return due == Notebook::kNever ? next : std::min(next, due / Notebook::kMicrosPerMilli);
    }

    void PassTime() {
        m_now = NextTime();
        Notebook::ApplyDue(*m_notebook, Micros());
        Hear();
        while (!m_later.empty() && m_later.begin()->first <= m_now) {
            const std::function<void()> what = m_later.begin()->second;
            m_later.erase(m_later.begin());
            what();
        }
    }

    [[nodiscard]] Notebook::Micros Micros() const { return m_now * Notebook::kMicrosPerMilli; }
    Wait Sleep(Ms time) { return {*this, nullptr, false, m_now + time}; }
    Wait Until(const bool& flag, bool wanted, Ms limit = kNever) {
        return {*this, &flag, wanted, limit == kNever ? kNever : m_now + limit};
    }

    Task<void> Point() {
        if (m_isFine) {
            co_await Sleep(0);
        }
    }

    Task<void> Lock(bool& lock) {
        while (lock) {
            co_await Until(lock, false);
        }
        lock = true;
    }

    // --- the notebook ---

    /// What the devices have announced becomes the jobs of the threads that tell the service.
    void Hear() {
        for (; m_heard != m_notebook->eventCount; ++m_heard) {
            const Notebook::Event event = m_notebook->events[m_heard % Notebook::kEventCapacity];
            const auto isHeard = [number = m_heard](const Since& since) { return since && number >= *since; };
            switch (event.kind) {
                case Notebook::EventKind::Wlan:
                case Notebook::EventKind::WlanNullNotification:
                    JobsOf(Who::kWlan).push_back([=, this] {
                        return isHeard(m_registeredSince) ? HandleWlan(event) : Nothing();
                    });
                    break;
                case Notebook::EventKind::ModemStateChange:
                    JobsOf(Who::kModem).push_back(&Nothing);
                    break;
                case Notebook::EventKind::ModemSetComplete:
                    JobsOf(Who::kModem).push_back([=, this] {
                        return isHeard(m_hearsModemSince) ? HandleCompletion(event.value, event.radio)
                                                          : Nothing();
                    });
                    break;
                case Notebook::EventKind::ConnectionConnectivity:
                    JobsOf(Who::kNetwork).push_back([=, this] {
                        return isHeard(m_subscribedSince) ? HandleConnection(event.id, event.value)
                                                          : Nothing();
                    });
                    break;
                default:
                    JobsOf(Who::kNetwork).push_back(&Nothing);
                    break;
            }
        }
    }

    [[nodiscard]] Notebook::WlanAdapter& FirstWlan() const { return m_notebook->devices.wlan[0]; }
    [[nodiscard]] bool WlanServiceRuns() const { return m_wlanService == Neighbour::kRuns; }
    [[nodiscard]] bool WwanServiceRuns() const { return m_wwanService == Neighbour::kRuns; }
    [[nodiscard]] bool IsAirplaneOn() const { return m_airplane == 1U; }
    [[nodiscard]] std::size_t ModemCount() const {
        return static_cast<std::size_t>(
            std::ranges::count(m_notebook->devices.modems, 1U, &Notebook::Modem::present));
    }

    bool SetPhy(std::uint32_t phy, bool on) {
        const bool takesIt =
            WlanServiceRuns() && Notebook::SetPhySoftware(*m_notebook, 0, phy, on ? kRadioOn : kRadioOff,
                                                          Micros()) == ERROR_SUCCESS;
        Hear();
        return takesIt;
    }

    bool SetModem(bool on) {
        std::uint32_t request = 0;
        const bool takesIt =
            WwanServiceRuns() &&
            Notebook::SetModemSoftware(*m_notebook, *m_modem, on ? 1 : 0, request, Micros()) == S_OK;
        Hear();
        return takesIt;
    }

    void WriteAirplane(std::optional<std::uint32_t> value) {
        // Wine does not announce what changes nothing.
        m_isWoken = m_isWoken || (m_isArmed && value != m_airplane);
        m_airplane = value;
    }

    // --- commands ---

    void Carry(const Command& command) {
        CarryOutside(command);
        CarryToDevices(command, *m_notebook, Micros());
        Hear();
    }

    void CarryOutside(const Command& command) {
        switch (command.verb) {
            case Verb::kHideAdapters:
            case Verb::kShowAdapters:
                m_hidesAdapters = command.verb == Verb::kHideAdapters;
                break;
            case Verb::kAirplane:
                if (IsAirplaneOn() != command.IsOn(0)) {
                    WriteAirplane(command.IsOn(0) ? 1 : 0);
                    Notebook::FollowAirplaneMode(*m_notebook, command.IsOn(0), Micros());
                } else {
                    WriteAirplane(command.IsOn(0) ? 1 : 0);
                }
                break;
            case Verb::kAirplaneValue:
                WriteAirplane(command.Number(0));
                break;
            case Verb::kAirplaneMissing:
                WriteAirplane(std::nullopt);
                break;
            case Verb::kNeighbour:
            case Verb::kLateNeighbour:
                ChangeNeighbour(command);
                break;
            case Verb::kStored:
                (command.Is(0, "wlan") ? m_storedWlan : m_storedWwan) =
                    command.Is(1, "missing") ? "" : command.choices[1];
                break;
            case Verb::kStoredNumber:
                (command.Is(0, "wlan") ? m_storedWlan : m_storedWwan) = "(a number)";
                break;
            case Verb::kResume:
                m_notebook->devices.asleep = 0;
                JobsOf(Who::kControl).push_back([this, runs = m_isToRun] { return Resume(runs); });
                break;
            case Verb::kStart:
                m_isToRun = true;
                JobsOf(Who::kControl).push_back([this] { return Start(); });
                break;
            case Verb::kStop:
            case Verb::kPreshutdown:
                m_isToRun = false;
                JobsOf(Who::kControl).push_back([this] { return Stop(); });
                break;
            default:
                break;
        }
    }

    void ChangeNeighbour(const Command& command) {
        Neighbour& neighbour = command.Is(0, "WlanSvc") ? m_wlanService : m_wwanService;
        const int change = ++m_neighbourChanges[command.choices[0]];
        neighbour = command.Is(1, "run")      ? Neighbour::kRuns
                    : command.Is(1, "absent") ? Neighbour::kAbsent
                                              : Neighbour::kDoesNotRun;
        if (command.verb == Verb::kLateNeighbour) {
            m_later.emplace(m_now + command.Number(1), [this, &neighbour, change, name = command.choices[0]] {
                neighbour = m_neighbourChanges[name] == change ? Neighbour::kRuns : neighbour;
            });
        }
    }

    // --- the service's rules: is a cable in? ---

    [[nodiscard]] auto CountAdapters() const {
        return std::ranges::count(m_notebook->devices.adapters, 1U, &Notebook::Adapter::present);
    }

    /// 1 or 0; -1: cannot tell.
    Task<int> LookForCable(bool* awaitsAddress) {
        co_await Lock(m_checkLock);
        // The list is read twice: the first time tells how long it is.
        bool fails = m_hidesAdapters;
        co_await Point();
        const auto length = CountAdapters();
        fails = fails || m_hidesAdapters;
        co_await Point();
        fails = fails || CountAdapters() > length;
        int found = fails ? -1 : 0;
        for (std::size_t i = 0; i < m_notebook->devices.adapterCount && found == 0; ++i) {
            const Notebook::Adapter& adapter = m_notebook->devices.adapters[i];
            if (adapter.present == 0 || !IsEthernet(adapter)) {
                continue;
            }
            if (adapter.hasAddress == 0 && awaitsAddress != nullptr) {
                *awaitsAddress = true;
            }
            found = adapter.hasAddress != 0 && std::string_view(adapter.name).starts_with("cable") ? 1 : 0;
        }
        m_checkLock = false;
        co_return found;
    }

    // --- WLAN ---

    Task<bool> ReadWlan() {
        if (m_hasTimedOut || !WlanServiceRuns()) {
            co_return false;
        }
        co_await Point();
        co_return WlanServiceRuns() && Notebook::AllPhysAre(FirstWlan(), kRadioOn);
    }

    Task<bool> SwitchWlan(bool on, bool respectsAirplane) {
        if (on && respectsAirplane && IsAirplaneOn()) {
            co_return false;
        }
        const bool isOn = co_await ReadWlan();
        if (isOn == on) {
            co_return true;
        }
        if (!WlanServiceRuns()) {
            co_return false;
        }
        bool isDone = false;
        int pass = 0;
        for (; pass <= 80 && !isDone; ++pass) {
            isDone = true;
            for (std::uint32_t phy = 0; phy < FirstWlan().phyCount; ++phy) {
                co_await Point();
                const bool takesIt = SetPhy(phy, on);
                isDone = isDone && takesIt;
            }
            if (isDone) {
                break;
            }
            co_await Sleep(100);
        }
        m_hasTimedOut = pass >= 80;
        if (isDone) {
            co_await ReadWlan();
        }
        co_return isDone;
    }

    Task<bool> SwitchWlanOn() {
        if (IsAirplaneOn()) {
            co_return true;
        }
        for (int attempt = 0; attempt <= 5; ++attempt) {
            co_await SwitchWlan(true, true);
            co_await Sleep(100);
            const bool isOn = co_await ReadWlan();
            if (isOn) {
                co_return true;
            }
            co_await Sleep(400);
        }
        co_return false;
    }

    Task<void> StartWlan() {
        if (MeansOn(m_storedWlan)) {
            co_await SwitchWlanOn();
        }
    }

    Task<void> StopWlan() {
        const bool isOn = co_await ReadWlan();
        if (!isOn) {
            co_return;
        }
        const bool isDone = co_await SwitchWlan(false, false);
        if (isDone) {
            m_storedWlan = "True";
        }
    }

    // --- WWAN ---

    Task<bool> FindModemRadio() {
        for (int tries = 0; tries < 5; ++tries) {
            const bool isFound = WwanServiceRuns();
            co_await Sleep(50);
            if (isFound) {
                co_return true;
            }
        }
        co_return false;
    }

    Task<bool> ReadWwan() {
        if (!m_modem) {
            co_return false;
        }
        const bool isFound = co_await FindModemRadio();
        if (!isFound) {
            co_return false;
        }
        co_await Point();
        co_return WwanServiceRuns() && m_notebook->devices.modems[*m_modem].software != 0;
    }

    Task<bool> HasLastRadioFollowed(bool on) {
        const auto last = m_lastRadio;
        if (!last) {
            co_return false;
        }
        co_await Point();
        if (last->second == ConfirmRadio::Failing || !WwanServiceRuns()) {
            co_return false;
        }
        const bool isOn = m_notebook->devices.modems[last->first].software != 0;
        co_return (isOn != (last->second == ConfirmRadio::Opposite)) == on;
    }

    Task<bool> SwitchWwan(bool on, bool respectsAirplane) {
        co_await Lock(m_modemLock);
        const bool isDone = co_await ChangeWwan(on, respectsAirplane);
        m_modemLock = false;
        co_return isDone;
    }

    Task<bool> ChangeWwan(bool on, bool respectsAirplane) {
        if (!m_modem || (on && respectsAirplane && IsAirplaneOn())) {
            co_return false;
        }
        const bool before = co_await ReadWwan();
        if (before == on) {
            co_return true;
        }
        co_await LookForCable(nullptr);
        m_changesModem = true;
        m_isCompleted = false;
        bool isFound = co_await FindModemRadio();
        for (int iteration = 0; isFound && iteration < 10; ++iteration) {
            bool isAccepted = false;
            for (int tries = 0; tries < 5 && !isAccepted; ++tries) {
                co_await Point();
                isAccepted = SetModem(on);
                co_await Sleep(100);
            }
            const bool isCompleted = co_await WaitForCompletion();
            bool hasFollowed = false;
            if (isCompleted) {
                hasFollowed = co_await HasLastRadioFollowed(on);
            }
            if (!hasFollowed) {
                const bool isOn = co_await ReadWwan();
                hasFollowed = isOn == on;
            }
            if (hasFollowed) {
                break;
            }
            co_await Sleep(500);
        }
        m_changesModem = false;
        co_return isFound;
    }

    Task<bool> SwitchWwanWithRetry(bool on) {
        if (!m_modem || (on && IsAirplaneOn())) {
            co_return m_modem.has_value();
        }
        for (int attempt = 0; attempt <= 5; ++attempt) {
            co_await SwitchWwan(on, true);
            co_await Sleep(100);
            const bool isOn = co_await ReadWwan();
            if (isOn == on) {
                co_return true;
            }
            co_await Sleep(400);
        }
        co_return false;
    }

    Task<void> StartWwan() {
        if (m_modem && MeansOn(m_storedWwan)) {
            co_await SwitchWwanWithRetry(true);
        }
    }

    Task<void> StopWwan() {
        const bool isOn = co_await ReadWwan();
        if (!isOn) {
            co_return;
        }
        const bool isDone = co_await SwitchWwan(false, false);
        if (isDone) {
            m_storedWwan = "True";
        }
    }

    // --- what Windows tells ---

    Task<void> HandleConnection(GUID connection, std::uint32_t connectivity) {
        m_handlesCable = true;
        co_await Lock(m_cableLock);
        if (connectivity != 0) {
            co_await HandleConnect(connection);
        } else if (m_wired.contains(Key(connection))) {
            const int cable = co_await LookForCable(nullptr);
            if (cable == 0 && m_switchesWlan) {
                co_await StartWlan();
            }
            if (cable == 0 && m_switchesWwan) {
                co_await StartWwan();
            }
        }
        m_handlesCable = false;
        m_cableLock = false;
    }

    Task<void> HandleConnect(GUID connection) {
        const Notebook::Adapter* const adapter = Notebook::FindAdapterByConnection(*m_notebook, connection);
        if (adapter == nullptr || adapter->connectivity == 0 || !IsEthernet(*adapter)) {
            co_return;
        }
        m_wired.insert(Key(connection));
        bool awaitsAddress = false;
        int cable = 0;
        for (int tries = 0; tries < 8; ++tries) {
            cable = co_await LookForCable(&awaitsAddress);
            if (cable == 1 && !awaitsAddress) {
                break;
            }
            co_await Sleep(1000);
            if (cable == 1 || !awaitsAddress) {
                break;
            }
        }
        if (cable == 1 && m_switchesWlan) {
            co_await StopWlan();
        }
        if (cable == 1 && m_switchesWwan) {
            co_await StopWwan();
        }
    }

    Task<void> HandleWlan(Notebook::Event event) {
        m_isInCallback = true;
        if (event.kind != Notebook::EventKind::WlanNullNotification) {
            if (event.source == WLAN_NOTIFICATION_SOURCE_ACM &&
                event.code == wlan_notification_acm_network_available) {
                co_await HandleNetworkAvailable();
            }
            if (event.source == WLAN_NOTIFICATION_SOURCE_MSM &&
                event.code == Platform::kWlanNotificationMsmRadioStateChange) {
                co_await HandleRadioChange();
            }
        }
        m_isInCallback = false;
    }

    Task<void> HandleNetworkAvailable() {
        const int cable = co_await LookForCable(nullptr);
        if (cable == 0) {
            const bool isOn = co_await ReadWlan();
            if (isOn) {
                m_storedWlan = "True";
            }
        } else if (cable == 1 && m_switchesWlan) {
            co_await SwitchWlan(false, true);
        }
    }

    Task<void> HandleRadioChange() {
        const int cable = co_await LookForCable(nullptr);
        if (cable < 0) {
            co_return;
        }
        const bool isAirplane = IsAirplaneOn();
        const bool isOn = co_await ReadWlan();
        if (!isAirplane && cable == 0) {
            if (!m_handlesCable) {
                m_storedWlan = isOn ? "True" : "False";
            }
        } else if (cable == 1 && isOn && m_switchesWlan) {
            co_await SwitchWlan(false, false);
        }
    }

    /// Whoever waits is released at once, so that another completion is there for the next wait; who has
    /// waited long enough already finds it when he looks again.
    void Complete() {
        const auto waits = [this](const Thread& thread) {
            return thread.flag == &m_isCompleted && !thread.isReleased && thread.until > m_now;
        };
        const auto waiting = std::find_if(m_threads.begin(), m_threads.end(), waits);
        (waiting != m_threads.end() ? waiting->isReleased : m_isCompleted) = true;
    }

    Task<bool> WaitForCompletion() {
        const bool isThere = co_await Until(m_isCompleted, true, 7000);
        if (std::exchange(Current().isReleased, false)) {
            co_return true;
        }
        m_isCompleted = false;
        co_return isThere;
    }

    Task<void> HandleCompletion(std::uint32_t modem, ConfirmRadio radio) {
        m_lastRadio.reset();
        if (radio != ConfirmRadio::Null) {
            m_lastRadio.emplace(modem, radio);
        }
        Complete();
        const int cable = co_await LookForCable(nullptr);
        if (cable < 0 || m_changesModem || IsAirplaneOn()) {
            co_return;
        }
        const bool isOn = co_await ReadWwan();
        if (!m_switchesWwan || cable == 0) {
            m_storedWwan = isOn ? "True" : "False";
        } else if (isOn) {
            co_await SwitchWwanWithRetry(false);
        }
    }

    // --- airplane mode ---

    Task<void> Watch() {
        bool actedOn = IsAirplaneOn();
        while (m_runs) {
            m_isArmed = true;
            m_isWoken = false;
            if (IsAirplaneOn() == actedOn) {
                co_await Until(m_isWoken, true);
            }
            m_isArmed = false;
            if (m_runs) {
                actedOn = co_await FollowAirplaneMode();
            }
        }
    }

    /// The airplane mode that it has acted on.
    Task<bool> FollowAirplaneMode() {
        const bool wasOn = IsAirplaneOn();
        if (wasOn && m_switchesWlan) {
            co_await SwitchWlan(false, false);
        }
        const int cable = co_await LookForCable(nullptr);
        if (cable != 0 || IsAirplaneOn()) {
            co_return wasOn;
        }
        if (m_switchesWlan) {
            co_await SwitchWlan(MeansOn(m_storedWlan), true);
        }
        if (m_switchesWwan) {
            co_await SwitchWwan(MeansOn(m_storedWwan), true);
        }
        co_return false;
    }

    // --- start, resume, stop ---

    /// The text of a setting; empty when it cannot be read.
    Task<std::string> ReadSetting(const wchar_t* name) {
        const bool isConnected = m_notebook->devices.providerPresent != 0;
        for (int pass = 0; pass < 4; ++pass) {
            bool timesOut = isConnected;
            for (int tries = 0; timesOut && tries < 6; ++tries) {
                co_await Sleep(500);
                Notebook::Setting* const setting = Notebook::FindSetting(*m_notebook, name);
                timesOut = setting != nullptr && setting->timeoutsLeft != 0;
                if (setting != nullptr && !timesOut) {
                    co_return setting->type == VT_BSTR ? Notebook::Narrow(setting->text) : "";
                }
                if (timesOut) {
                    --setting->timeoutsLeft;
                }
                co_await Sleep(1000);
            }
            if (!isConnected) {
                co_await Sleep(500);
            }
            co_await Sleep(3000);
            if (isConnected) {
                break;
            }
        }
        co_return std::string();
    }

    Task<void> ReadSettings() {
        std::string wlan = co_await ReadSetting(kFirstName);
        if (wlan.empty()) {
            wlan = co_await ReadSetting(kSecondName);
        }
        m_switchesWlan = m_switchesWlan || (!wlan.empty() && wlan.front() != '*');
        const std::string wwan = co_await ReadSetting(kWwanName);
        m_switchesWwan = m_switchesWwan || (!wwan.empty() && wwan.front() != '*');
    }

    Task<void> WaitForNeighbour(const Neighbour& neighbour) {
        for (int tries = 0; tries < 15 && neighbour != Neighbour::kRuns; ++tries) {
            const bool isHopeless = neighbour == Neighbour::kAbsent;
            co_await Sleep(1000);
            if (isHopeless) {
                co_return;
            }
        }
    }

    Task<void> Start() {
        m_runs = true;
        m_reported = SERVICE_RUNNING;
        JobsOf(Who::kWorker).push_back([this] { return Work(); });
        co_return;
    }

    /// Goes on to its end behind a stop, which waits for nobody: it still switches radios. But a manager that
    /// the stop has taken away is missed, and what is subscribed behind the stop stays as long as the
    /// process; of these only the registration for WLAN is taken back.
    Task<void> Work() {
        m_hasNetworkList = true;
        JobsOf(Who::kWatcher).push_back([this] { return Watch(); });
        co_await ReadSettings();
        co_await WaitForNeighbour(m_wlanService);
        if (m_hasNetworkList) {
            m_subscribedSince = m_notebook->eventCount;
        }
        if (m_runs && WlanServiceRuns()) {
            m_registeredSince = m_notebook->eventCount;
        }
        co_await FindWired();
        co_await DecideWlan();
        m_hasModems = true;
        co_await WaitForNeighbour(m_wwanService);
        const bool canLook = m_hasModems;
        for (int tries = 0; canLook && tries < 5 && !m_modem; ++tries) {
            const bool isFound = WwanServiceRuns() && ModemCount() != 0;
            co_await Sleep(500);
            if (isFound) {
                m_modem = static_cast<std::uint32_t>(ModemCount() - 1);
            }
        }
        if (m_modem && m_hasModems) {
            m_hearsModemSince = m_notebook->eventCount;
        }
        if (m_modem) {
            co_await DecideWwan();
        }
    }

    /// Among the connections that there are when it begins.
    Task<void> FindWired() {
        std::vector<GUID> connections;
        for (const Notebook::Adapter& adapter : m_notebook->devices.adapters) {
            if (adapter.present != 0 && adapter.connectivity != 0) {
                connections.push_back(adapter.connectionId);
            }
        }
        for (const GUID& connection : connections) {
            // It may have gone meanwhile with its adapter.
            const Notebook::Adapter* const adapter =
                Notebook::FindAdapterByConnection(*m_notebook, connection);
            if (adapter != nullptr && IsEthernet(*adapter)) {
                co_await Lock(m_cableLock);
                m_wired.insert(Key(connection));
                m_cableLock = false;
            }
        }
    }

    Task<void> DecideWlan() {
        int cable = 0;
        if (m_switchesWlan) {
            cable = co_await LookForCable(nullptr);
        }
        if (cable >= 0) {
            co_await SwitchWlan(cable == 0 && MeansOn(m_storedWlan), true);
        }
    }

    Task<void> DecideWwan() {
        int cable = 0;
        if (m_switchesWwan) {
            cable = co_await LookForCable(nullptr);
        }
        if (cable >= 0) {
            co_await SwitchWwan(cable == 0 && MeansOn(m_storedWwan), true);
        }
    }

    Task<void> Resume(bool runs) {
        if (runs) {
            co_await ReadSettings();
        }
        if (runs && (m_switchesWlan || m_switchesWwan)) {
            co_await DecideAfterResume();
        }
        m_notebook->devices.asleep = 0;
        Notebook::ReleaseHeldEvents(*m_notebook, Micros());
        Hear();
    }

    Task<void> DecideAfterResume() {
        const int cable = co_await LookForCable(nullptr);
        if (cable == 0 && m_switchesWlan) {
            co_await WaitForNeighbour(m_wlanService);
            co_await StartWlan();
        }
        if (cable >= 0 && m_switchesWwan && m_modem) {
            co_await WaitForNeighbour(m_wwanService);
            if (cable == 0) {
                co_await StartWwan();
            } else {
                co_await SwitchWwanWithRetry(false);
            }
        }
    }

    Task<void> Stop() {
        m_runs = false;
        m_isWoken = true;
        m_registeredSince.reset();
        const bool canUnregister = WlanServiceRuns();
        if (canUnregister) {
            co_await Until(m_isInCallback, false);
        }
        m_hasNetworkList = m_hasModems = false;
        m_subscribedSince.reset();
        m_hearsModemSince.reset();
        co_await Until(m_isInCallback, false);
        m_reported = SERVICE_STOPPED;
    }

    std::array<Thread, kThreads> m_threads;
    std::array<std::deque<Procedure>, kThreads> m_jobs;
    Who m_who = Who::kClock;
    Ms m_now = 0;
    std::multimap<Ms, std::function<void()>> m_later;

    // The notebook.
    const std::unique_ptr<Notebook::Machine> m_notebook = std::make_unique<Notebook::Machine>();
    std::uint64_t m_heard = 0;
    bool m_hidesAdapters = false;
    Neighbour m_wlanService = Neighbour::kRuns;
    Neighbour m_wwanService = Neighbour::kRuns;
    std::map<std::string, int> m_neighbourChanges;
    std::optional<std::uint32_t> m_airplane = 0;
    std::string m_storedWlan;
    std::string m_storedWwan;

    // The service.
    bool m_isToRun = false;
    bool m_runs = false;
    DWORD m_reported = 0;
    bool m_hasNetworkList = false;
    bool m_hasModems = false;
    Since m_subscribedSince;
    Since m_registeredSince;
    Since m_hearsModemSince;
    bool m_switchesWlan = false;
    bool m_switchesWwan = false;
    bool m_hasTimedOut = false;
    bool m_handlesCable = false;
    bool m_changesModem = false;
    bool m_isCompleted = false;
    bool m_isArmed = false;
    bool m_isWoken = false;
    bool m_isInCallback = false;
    std::optional<std::uint32_t> m_modem;
    std::optional<std::pair<std::uint32_t, ConfirmRadio>> m_lastRadio;
    std::set<std::string> m_wired;
    bool m_cableLock = false;
    bool m_checkLock = false;
    bool m_modemLock = false;

    static std::string Key(const GUID& id) { return {reinterpret_cast<const char*>(&id), sizeof(id)}; }
};

Model::Model(const Shape& shape) : m_inside(std::make_unique<Inside>(shape)) {}
Model::~Model() = default;
void Model::BeginStep(bool isFine) {
    m_inside->m_isFine = isFine;
}
void Model::Do(const Command& command) {
    m_inside->Do(command);
}
bool Model::Take(Who who) {
    return m_inside->Take(who);
}
std::optional<Who> Model::NotAtRest() const {
    return m_inside->NotAtRest();
}
void Model::EndProcess() {
    m_inside->EndProcess();
}
Situation Model::See() const {
    return m_inside->See();
}

}  // namespace RandomEvents
