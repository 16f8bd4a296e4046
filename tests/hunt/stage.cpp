#include "tests/hunt/stage.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "bios/bios_settings.h"
#include "logging/log_data.h"
#include "network/nlm_event_handler.h"
#include "notebook/hardware/deliveries.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"
#include "radio/wlan_radio.h"
#include "radio/wwan_state.h"
#include "tests/hunt/devices.h"
#include "tests/hunt/turns.h"

namespace RandomEvents {

using Rig::Call;

namespace {

/// Before these calls the service looks at a device, or changes one.
constexpr Call kPoints[] = {Call::GetAdaptersInfo, Call::WlanQueryInterface, Call::WlanSetInterface,
                            Call::MbnRadioGetSoftwareRadioState, Call::MbnRadioSetSoftwareRadioState};

std::wstring Wide(const std::string& text) {
    return {text.begin(), text.end()};
}

std::string StoredText(const std::optional<Rig::RegistryValue>& value) {
    if (!value) {
        return {};
    }
    const std::wstring text(reinterpret_cast<const wchar_t*>(value->bytes.data()));
    return value->type == REG_SZ ? std::string(text.begin(), text.end()) : "(a number)";
}

}  // namespace

/// Takes the log's error lines; keeps those about exceptions.
class Stage::ErrorLines final : public Orva::Shared::CorvaLogListener {
  public:
    explicit ErrorLines(std::vector<std::string>& exceptions)
        : CorvaLogListener(PolicyLevels::kIgnore), m_exceptions(exceptions) {
        m_minLogLevel = Orva::Shared::Level::kError;
    }
    void Log(const LogData& entry) override {
        if (entry.Message().starts_with(L"Exception in ")) {
            m_exceptions.emplace_back(entry.FunctionName());
        }
    }
    [[nodiscard]] int GetType() const override { return Orva::Shared::ListenerType::kDebug; }

  private:
    std::vector<std::string>& m_exceptions;
};

Stage::Stage()
    : Stage(
          [](Rig::TestClock& clock) -> std::unique_ptr<Threads> { return std::make_unique<Turns>(clock); }) {}

Stage::Stage(Hire hire)
    : m_threads(hire(m_machine.clock)),
      m_pool([this](LPTHREAD_START_ROUTINE routine, PVOID context, ULONG flags) -> BOOL {
          m_threads->Post(flags == WT_EXECUTEINPERSISTENTTHREAD ? Who::kWorker : Who::kWatcher,
                          [=] { routine(context); });
          return TRUE;
      }) {
    Orva::Shared::CorvaLogListener* const lines = new ErrorLines(m_exceptions);
    m_recorder = std::make_unique<Orva::Shared::CorvaLogger>(&lines, 1);
    Orva::Shared::LoggerHolder().swap(m_recorder);
    for (const Call call : kPoints) {
        m_machine.notebook.AtEach(call, [this] {
            m_threads->Point();
            return std::nullopt;
        });
    }
    Notebook::EventPump::Get().HandOver(
        [this](const Notebook::Event& event, Threads::Job job) { Tell(event, std::move(job)); });
    Notebook::SharedState::Get().OnNews([] { Rig::SimulatedNotebook::Deliver(); });
}

Stage::~Stage() {
    Notebook::EventPump::Get().HandOver(nullptr);
    Orva::Shared::LoggerHolder().swap(m_recorder);
}

void Stage::Tell(const Notebook::Event& event, Threads::Job job) {
    switch (event.kind) {
        case Notebook::EventKind::Wlan:
        case Notebook::EventKind::WlanNullNotification:
            m_threads->Post(Who::kWlan, std::move(job));
            break;
        case Notebook::EventKind::ModemStateChange:
        case Notebook::EventKind::ModemSetComplete:
            m_threads->Post(Who::kModem, std::move(job));
            break;
        default:
            m_threads->Post(Who::kNetwork, std::move(job));
            break;
    }
}

void Stage::Begin(const Shape& shape) {
    m_machine.notebook.Make({shape.wlanAdapters, shape.phys, Shape::kCables, shape.modems});
    // What the making announced nobody hears.
    static_cast<void>(m_threads->Settle(0, false));
    Notebook::ResetServices();
    Notebook::SharedState::Get().Raw().ledger = {};
    m_machine.store.Delete();
    WriteAirplane(0);
    m_exceptions.clear();
    m_reported = 0;
    m_neighbourChanges.clear();
}

void Stage::Do(const Command& command) {
    if (command.at == 0) {
        Carry(command);
    } else {
        m_threads->After(Threads::Milliseconds(command.at), [this, command] { Carry(command); });
    }
}

void Stage::Carry(const Command& command) {
    const std::wstring radio =
        !command.choices.empty() && command.Is(0, "wlan") ? L"WlanPowerStatus" : L"WwanPowerStatus";
    switch (command.verb) {
        case Verb::kHideAdapters:
        case Verb::kShowAdapters: {
            const bool hides = command.verb == Verb::kHideAdapters;
            Notebook::LockedMachine()->rules[static_cast<std::size_t>(Call::GetAdaptersInfo)] = {
                hides ? Notebook::RuleKind::Fail : Notebook::RuleKind::None, 0, Notebook::kForEver,
                ERROR_NOT_SUPPORTED, 0};
            break;
        }
        case Verb::kAirplane: {
            const bool before = ServiceUtils::IsAirplaneModeOn();
            WriteAirplane(command.IsOn(0) ? 1 : 0);
            if (before != command.IsOn(0)) {
                m_machine.notebook.Act(&Notebook::FollowAirplaneMode, command.IsOn(0));
            }
            break;
        }
        case Verb::kAirplaneValue:
            WriteAirplane(command.Number(0));
            break;
        case Verb::kAirplaneMissing:
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey, nullptr);
            m_threads->Signalled();
            break;
        case Verb::kNeighbour:
        case Verb::kLateNeighbour:
            ChangeNeighbour(command);
            break;
        case Verb::kStored:
            if (command.Is(1, "missing")) {
                m_machine.store.Delete(radio);
            } else {
                m_machine.store.Write(radio, PowerStatus::kValueName,
                                      Rig::RegistryText(Wide(command.choices[1])));
            }
            break;
        case Verb::kStoredNumber:
            m_machine.store.Write(radio, PowerStatus::kValueName, Rig::RegistryNumber(1));
            break;
        case Verb::kResume:
            Notebook::LockedMachine()->devices.asleep = 0;
            m_threads->Post(Who::kControl, [this, runs = m_isToRun] {
                if (runs) {
                    m_service->Continue();
                }
                Notebook::LockedMachine()->devices.asleep = 0;
                m_machine.notebook.Act(&Notebook::ReleaseHeldEvents);
            });
            break;
        case Verb::kStart:
            m_isToRun = true;
            m_service = std::make_unique<Service>();
            m_threads->Post(Who::kControl, [this] { m_service->Start(0, nullptr); });
            break;
        case Verb::kStop:
        case Verb::kPreshutdown:
            m_isToRun = false;
            m_threads->Post(Who::kControl,
                            [this, isShutdown = command.verb == Verb::kPreshutdown] { Stop(isShutdown); });
            break;
        default: {
            Notebook::LockedMachine machine;
            CarryToDevices(command, *machine, machine.Time());
            break;
        }
    }
}

void Stage::WriteAirplane(DWORD value) {
    m_machine.airplane.Write({}, {}, Rig::RegistryNumber(value));
    m_threads->Signalled();
}

void Stage::ChangeNeighbour(const Command& command) {
    const std::wstring name = Wide(command.choices[0]);
    const auto set = [this, name](bool runs, DWORD state) {
        Notebook::LockedMachine machine;
        (name == L"WlanSvc" ? machine->devices.wlanServiceRuns : machine->devices.wwanServiceRuns) =
            runs ? 1 : 0;
        m_machine.notebook.Service(name).state = state;
    };
    const int change = ++m_neighbourChanges[name];
    const bool runs = command.Is(1, "run");
    set(runs, runs ? SERVICE_RUNNING : SERVICE_START_PENDING);
    if (command.Is(1, "absent")) {
        m_machine.notebook.Uninstall(name);
    }
    if (command.verb == Verb::kLateNeighbour) {
        m_threads->After(Threads::Milliseconds(command.Number(1)), [this, name, change, set] {
            if (m_neighbourChanges[name] == change) {
                set(true, SERVICE_RUNNING);
            }
        });
    }
}

void Stage::Stop(bool isShutdown) {
    // It leaves COM once more than it has entered it.
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const ServiceState& state = m_service->m_state;
    if (state.networkEventHandler != nullptr) {
        m_handler = state.networkEventHandler;
        m_keptReferences = (state.networkListManagerEvents != nullptr ? 1U : 0U) +
                           (state.networkConnectionEvents != nullptr ? 1U : 0U) +
                           (state.networkEvents != nullptr ? 1U : 0U);
    }
    if (isShutdown) {
        m_service->Shutdown();
    } else {
        m_service->Stop();
    }
}

void Stage::EndProcess() {
    m_isToRun = false;
    const ServiceState& state = m_service->m_state;
    const auto* const wired = state.wiredConnections;
    const bool hearsNetwork = state.networkEventHandler != nullptr && state.networkListManager != nullptr;
    if (hearsNetwork) {
        // A worker that has subscribed behind the stop keeps the manager for the events that still come.
        state.networkListManager->Release();
    }
    if (hearsNetwork || (state.mbnSinks != nullptr && state.mbnInterfaceManager != nullptr)) {
        // Such subscriptions end with the process: here, by another stop.
        Stop(false);
    }
    m_service.reset();
    if (m_handler == nullptr) {
        m_keptReferences = 0;
        m_handlerReferences = 0;
    } else {
        m_handler->AddRef();
        m_handlerReferences = m_handler->Release();
        for (ULONG left = m_handlerReferences; left != 0; --left) {
            m_handler->Release();
        }
    }
    m_handler = nullptr;
    delete wired;
    m_machine.ResetFlags();
    msm_Notification_flag = false;
}

Situation Stage::See() const {
    const Notebook::Machine& state = Notebook::SharedState::Get().Raw();
    Situation seen;
    for (const Notebook::WlanAdapter& wlan : state.devices.wlan) {
        std::transform(wlan.phys, wlan.phys + wlan.phyCount, std::back_inserter(seen.phys),
                       [](const Notebook::Phy& phy) { return phy.software; });
    }
    for (const Notebook::Modem& modem : state.devices.modems) {
        if (modem.present != 0) {
            seen.modems.push_back(modem.software);
        }
    }
    seen.storedWlan = StoredText(m_machine.store.Read(L"WlanPowerStatus", PowerStatus::kValueName));
    seen.storedWwan = StoredText(m_machine.store.Read(L"WwanPowerStatus", PowerStatus::kValueName));
    seen.isRunning = m_service != nullptr && m_service->m_state.running;
    seen.switchesWlan = NLMUtils::lanWlanSwitchingEnabled;
    seen.switchesWwan = NLMUtils::lanWwanSwitchingEnabled;
    seen.reported = m_reported;
    seen.hasTimedOut = ServiceUtils::my_setwifitimeout;
    seen.changesModem = WwanState::NetworkChangedForSetRadio;
    seen.handlesCable = msm_Notification_flag;
    seen.wired = m_service != nullptr ? m_service->m_state.wiredConnections->size() : 0;
    seen.registrations = state.ledger.wlanRegistrations;
    seen.sinks = state.ledger.comSinks;
    seen.hasLastRadio = WwanState::lastRadio.load() != nullptr;
    return seen;
}

std::string Stage::Complaint() const {
    const Notebook::Ledger& held = Notebook::SharedState::Get().Raw().ledger;
    if (!m_exceptions.empty()) {
        return "an exception in " + m_exceptions.front();
    }
    if (held.misuses != 0) {
        return "something was used or given back that was gone";
    }
    if (held.wlanMemory != 0 || held.eventSources != 0 || Notebook::OpenServiceHandles() != 0 ||
        held.wlanHandles != held.wlanRegistrations) {
        return "something was not given back by a call that needed it";
    }
    return {};
}

std::string Stage::Leftovers() const {
    const Notebook::Ledger& held = Notebook::SharedState::Get().Raw().ledger;
    if (m_handlerReferences != m_keptReferences) {
        return "the handler of network events is held " + std::to_string(m_handlerReferences) +
               " times in place of " + std::to_string(m_keptReferences);
    }
    return held.comReferences == 0 && held.comSinks == 0 && held.wlanHandles == 0
               ? std::string()
               : std::to_string(held.comReferences) + " references, " + std::to_string(held.comSinks) +
                     " subscriptions and " + std::to_string(held.wlanHandles) + " WLAN handles are left";
}

}  // namespace RandomEvents
