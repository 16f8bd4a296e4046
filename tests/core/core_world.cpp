#include "tests/core/core_world.h"

#include <algorithm>
#include <iterator>

#include "bios/bios_settings.h"
#include "network/nlm_event_handler.h"
#include "radio/wwan_state.h"
#include "tests/support/run_on_thread.h"

namespace CoreTests {

using Rig::Detail::RigLockHolder;

namespace {

// Handles that are unlike any real one.
constexpr ULONG_PTR kServiceManagerHandle = 0x5C0001;
constexpr ULONG_PTR kFirstServiceHandle = 0x5C1000;
constexpr ULONG_PTR kEventSourceHandle = 0x5C2000;

std::string NameOfClass(REFCLSID classId) {
    if (classId == CLSID_NetworkListManager) {
        return "NetworkListManager";
    }
    return classId == CLSID_MbnInterfaceManager ? "MbnInterfaceManager" : "other class";
}

std::string Narrow(const std::wstring& text) {
    std::string narrow;
    std::transform(text.begin(), text.end(), std::back_inserter(narrow),
                   [](wchar_t letter) { return static_cast<char>(letter); });
    return narrow;
}

}  // namespace

void Journal::Add(const std::string& call) {
    std::function<void()> action;
    {
        const RigLockHolder hold(m_lock);
        m_calls.push_back(call);
        if (const auto found = m_actions.find(call); found != m_actions.end()) {
            action = std::move(found->second);
            m_actions.erase(found);
        }
    }
    if (action) {
        action();
    }
}

void Journal::At(const std::string& call, std::function<void()> what) {
    const RigLockHolder hold(m_lock);
    m_actions[call] = std::move(what);
}

std::vector<std::string> Journal::Calls() const {
    const RigLockHolder hold(m_lock);
    return m_calls;
}

int Journal::Count(const std::string& call) const {
    const RigLockHolder hold(m_lock);
    return static_cast<int>(std::count(m_calls.begin(), m_calls.end(), call));
}

void Journal::Clear() {
    const RigLockHolder hold(m_lock);
    m_calls.clear();
}

FakeConnectionPoint::FakeConnectionPoint(std::string name, const IID& events, DWORD cookieToGive,
                                         Journal& journal)
    : FakeUnknown(std::move(name)), cookie(cookieToGive), m_events(events), m_journal(journal) {}

ULONG FakeConnectionPoint::Release() {
    const ULONG left = FakeUnknown::Release();
    if (left == 0) {
        m_journal.Add("Release " + Name());
    }
    return left;
}

HRESULT FakeConnectionPoint::Advise(IUnknown* sink, DWORD* given) {
    ExpectHeld("Advise");
    m_advised = sink;
    m_journal.Add("Advise " + Name());
    if (FAILED(adviseResult)) {
        return adviseResult;
    }
    const HRESULT result = sink->QueryInterface(m_events, reinterpret_cast<void**>(&m_sink));
    if (SUCCEEDED(result)) {
        *given = cookie;
    }
    return result;
}

HRESULT FakeConnectionPoint::Unadvise(DWORD given) {
    ExpectHeld("Unadvise");
    m_journal.Add("Unadvise " + Name() + " " + std::to_string(given));
    if (FAILED(unadviseResult)) {
        return unadviseResult;
    }
    if (given != cookie || m_sink == nullptr) {
        return CONNECT_E_NOCONNECTION;
    }
    std::exchange(m_sink, nullptr)->Release();
    return S_OK;
}

FakeServices::FakeServices(Journal& journal)
    : m_journal(journal),
      m_openManager(
          [](LPCWSTR, LPCWSTR, DWORD) { return reinterpret_cast<SC_HANDLE>(kServiceManagerHandle); }),
      m_openService([this](SC_HANDLE, LPCWSTR name, DWORD) { return Open(name); }),
      m_query([this](SC_HANDLE service, SC_STATUS_TYPE, LPBYTE buffer, DWORD, LPDWORD) {
          return Query(service, buffer);
      }),
      m_configure([this](SC_HANDLE, DWORD, LPVOID) {
          SetLastError(configureError);
          return configureError == NO_ERROR ? TRUE : FALSE;
      }),
      m_close([](SC_HANDLE) { return TRUE; }) {}

SC_HANDLE FakeServices::Open(const wchar_t* name) {
    m_journal.Add("OpenService " + Narrow(name));
    if (states[name] == State::kAbsent) {
        SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
        return nullptr;
    }
    m_opened.emplace_back(name);
    return reinterpret_cast<SC_HANDLE>(kFirstServiceHandle + m_opened.size() - 1);
}

BOOL FakeServices::Query(SC_HANDLE service, BYTE* buffer) {
    const std::wstring& name = m_opened.at(reinterpret_cast<ULONG_PTR>(service) - kFirstServiceHandle);
    SERVICE_STATUS_PROCESS status{};
    status.dwCurrentState = states[name] == State::kRunning ? SERVICE_RUNNING : SERVICE_START_PENDING;
    *reinterpret_cast<SERVICE_STATUS_PROCESS*>(buffer) = status;
    return TRUE;
}

FakeEventLog::FakeEventLog(Journal& journal)
    : m_register([this](LPCWSTR, LPCWSTR source) {
          m_source = source;
          return reinterpret_cast<HANDLE>(kEventSourceHandle);
      }),
      m_report([this, &journal](HANDLE, WORD type, WORD category, DWORD id, PSID, WORD strings, DWORD,
                                LPCWSTR* texts, LPVOID) {
          journal.Add("ReportEvent");
          m_entries.push_back({m_source, type, category, id, {texts, texts + strings}});
          return TRUE;
      }),
      m_deregister([](HANDLE) { return TRUE; }) {}

FakePool::FakePool(Journal& journal)
    : m_queue([this, &journal](LPTHREAD_START_ROUTINE callback, PVOID context, ULONG flags) {
          journal.Add("QueueUserWorkItem");
          if (error != NO_ERROR) {
              SetLastError(error);
              return FALSE;
          }
          items.push_back({callback, context, flags});
          return TRUE;
      }) {}

FakePool::~FakePool() {
    EXPECT_TRUE(items.empty()) << items.size() << " work item(s) were queued and never run";
}

DWORD FakePool::RunNext() {
    const Item item = items.front();
    items.erase(items.begin());
    return item.callback(item.context);
}

FakeNotifications::FakeNotifications(Journal& journal, const RadioTests::FakeWlan& wlan)
    : m_register([this, &journal, &wlan](HANDLE client, DWORD sources, BOOL ignoresDuplicates,
                                         WLAN_NOTIFICATION_CALLBACK callback, PVOID context, PVOID reserved,
                                         PDWORD previous) {
          journal.Add("WlanRegisterNotification " + std::to_string(sources));
          wlan.ExpectOpen(client);
          calls.push_back({client, sources, ignoresDuplicates, callback, context,
                           reserved != nullptr || previous != nullptr});
          SetLastError(lastError);
          return result;
      }) {}

FakeCom::FakeCom(Journal& journal)
    : m_create([this, &journal](REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID interfaceId,
                                LPVOID* object) {
          const std::string name = NameOfClass(classId);
          journal.Add("CoCreateInstance " + name);
          creations.push_back({classId, outer, context, interfaceId});
          *object = nullptr;
          const auto creator = creators.find(name);
          return creator == creators.end() ? REGDB_E_CLASSNOTREG : creator->second(interfaceId, object);
      }),
      m_enter([](LPVOID, DWORD model) { return model == COINIT_MULTITHREADED; },
              [this, &journal](LPVOID reserved, DWORD model) {
                  journal.Add("CoInitializeEx");
                  const HRESULT result = entryResult ? *entryResult : m_enter.Original(reserved, model);
                  entries += SUCCEEDED(result) ? 1 : 0;
                  return result;
              }),
      m_leave([this, &journal] {
          journal.Add("CoUninitialize");
          ++exits;
          // What a test made up is not COM's to leave.
          if (!entryResult) {
              m_leave.Original();
          }
      }) {}

World::World()
    : listManagerEvents("INetworkListManagerEvents", IID_INetworkListManagerEvents, 11, journal),
      connectionEvents("INetworkConnectionEvents", IID_INetworkConnectionEvents, 12, journal),
      networkEvents("INetworkEvents", IID_INetworkEvents, 13, journal),
      radioEvents("IMbnRadioEvents", IID_IMbnRadioEvents, 14, journal),
      listManager({&listManagerEvents, &connectionEvents, &networkEvents}, journal),
      mbnManager({&radioEvents}, journal, modems),
      m_networkAlive([this](LPDWORD flags) {
          journal.Add("IsNetworkAlive");
          *flags = NETWORK_ALIVE_LAN;
          return networkIsAlive;
      }),
      m_wlanOpen([this](DWORD version, PVOID reserved, PDWORD negotiated, PHANDLE client) {
          journal.Add("WlanOpenHandle");
          return m_wlanOpen.Original(version, reserved, negotiated, client);
      }),
      m_wlanClose([this](HANDLE client, PVOID reserved) {
          journal.Add("WlanCloseHandle");
          return m_wlanClose.Original(client, reserved);
      }) {
    msm_Notification_flag = false;
    PullCable();
    com.creators["NetworkListManager"] = [this](REFIID id, void** object) {
        return listManager.HandOut(id, object);
    };
    com.creators["MbnInterfaceManager"] = [this](REFIID id, void** object) {
        return mbnManager.HandOut(id, object);
    };
    mbnManager.onGetInterfaces = [this](int) {
        journal.Add("GetInterfaces");
        return S_OK;
    };
    wwanRadio.onSet = [this](MBN_RADIO wanted, ULONG*) {
        wwanRadio.state = wanted;
        return S_OK;
    };
    modems.emplace_back(wwanRadio, RadioTests::kFirstModem);
}

World::~World() {
    msm_Notification_flag = false;
    WwanState::interfaceManager.store(nullptr);
    WwanState::lastRadio.store(nullptr);
}

std::vector<Rig::LogLine> World::LinesOf(const char* function) const {
    std::vector<Rig::LogLine> lines = machine.log.Of(function);
    std::erase_if(lines,
                  [](const Rig::LogLine& line) { return line.level <= Orva::Shared::Level::kTraceOut; });
    return lines;
}

std::vector<std::string> World::WlanSwitches() const {
    std::vector<std::string> switches;
    for (const std::string& call : wlan.CallsOf(RadioTests::WlanCall::kSet)) {
        switches.push_back(call.substr(call.rfind(' ') + 1));
    }
    return switches;
}

void World::EnableWlanSwitching() const {
    NLMUtils::lanWlanSwitchingEnabled = true;
}

void World::EnableWwanSwitching() const {
    NLMUtils::lanWwanSwitchingEnabled = true;
}

void World::MakeModemKnown() {
    RadioTests::Publish(mbnManager);
    WwanState::interfaceId = RadioTests::kFirstModem;
    WwanState::devicePresent = true;
}

void Stop(OpenService& service) {
    Rig::RunOnThread([&service] { service.OnStop(); }, Rig::Apartment::kMultithreadedTwice);
}

}  // namespace CoreTests
