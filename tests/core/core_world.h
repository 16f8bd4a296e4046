#pragma once

#include "tests/network/fake_adapters.h"
#include "tests/network/fake_network.h"
#include "tests/core/fake_modem.h"
#include "tests/core/fake_wlan.h"
#include "tests/core/machine.h"

#include <windows.h>
#include <ocidl.h>
#include <olectl.h>
#include <sensapi.h>

#include <gmock/gmock.h>

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/main_service.h"
#include "platform/mbn_api.h"
#include "tests/support/fake_unknown.h"
#include "tests/support/scoped_import.h"

/// What the core's tests put in the place of the machine around it.
namespace CoreTests {

/// What was called, in order, from any thread. A test can have something happen at a call.
class Journal {
  public:
    /// Notes a call, then does what the test wants done at it.
    void Add(const std::string& call);
    /// Does `what`, once, at the first call of this name from now on. It may throw.
    void At(const std::string& call, std::function<void()> what);

    [[nodiscard]] std::vector<std::string> Calls() const;
    [[nodiscard]] int Count(const std::string& call) const;
    void Clear();

  private:
    mutable Rig::Detail::RigLock m_lock;
    std::vector<std::string> m_calls;
    std::map<std::string, std::function<void()>> m_actions;
};

/// A place to subscribe to one kind of events. Holds its sink as Windows' own do.
class FakeConnectionPoint : public Rig::FakeUnknown<IConnectionPoint> {
  public:
    FakeConnectionPoint(std::string name, const IID& events, DWORD cookie, Journal& journal);

    HRESULT findResult = S_OK;  ///< of the container's search for it
    bool isLost = false;        ///< the search succeeds and gives nothing
    HRESULT adviseResult = S_OK;
    HRESULT unadviseResult = S_OK;
    const DWORD cookie;

    /// What was handed to `Advise` last, without a reference.
    [[nodiscard]] IUnknown* Advised() const { return m_advised; }
    /// The sink that is subscribed now, without a reference.
    [[nodiscard]] IUnknown* Sink() const { return m_sink; }
    [[nodiscard]] const IID& Events() const { return m_events; }

    ULONG WINAPI Release() override;
    HRESULT WINAPI GetConnectionInterface(IID*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetConnectionPointContainer(IConnectionPointContainer**) override { return E_NOTIMPL; }
    HRESULT WINAPI Advise(IUnknown* sink, DWORD* given) override;
    HRESULT WINAPI Unadvise(DWORD given) override;
    HRESULT WINAPI EnumConnections(IEnumConnections**) override { return E_NOTIMPL; }

  private:
    const IID m_events;
    Journal& m_journal;
    IUnknown* m_advised = nullptr;
    IUnknown* m_sink = nullptr;
};

/// A fake that has connection points, too. Its last release is in the journal.
template <class Fake>
class WithConnectionPoints : public Fake, public IConnectionPointContainer {
  public:
    template <class... Arguments>
    WithConnectionPoints(std::vector<FakeConnectionPoint*> points, Journal& journal, Arguments&&... arguments)
        : Fake(std::forward<Arguments>(arguments)...), m_points(std::move(points)), m_journal(journal) {}

    HRESULT containerResult = S_OK;  ///< of the query for the container
    bool losesContainer = false;     ///< the query succeeds and gives nothing
    /// Called when the code under test is about to take a reference, which it must hold one for.
    std::function<void()> atAddRef;

    HRESULT WINAPI QueryInterface(REFIID interfaceId, void** object) override {
        if (interfaceId == IID_IConnectionPointContainer && (FAILED(containerResult) || losesContainer)) {
            *object = nullptr;
            return containerResult;
        }
        return Fake::QueryInterface(interfaceId, object);
    }
    ULONG WINAPI AddRef() override {
        if (atAddRef) {
            atAddRef();
        }
        return Fake::AddRef();
    }
    ULONG WINAPI Release() override {
        const ULONG left = Fake::Release();
        if (left == 0) {
            m_journal.Add("Release " + Fake::Name());
        }
        return left;
    }
    HRESULT WINAPI EnumConnectionPoints(IEnumConnectionPoints**) override { return E_NOTIMPL; }
    HRESULT WINAPI FindConnectionPoint(REFIID events, IConnectionPoint** point) override {
        Fake::ExpectHeld("FindConnectionPoint");
        *point = nullptr;
        for (FakeConnectionPoint* const candidate : m_points) {
            if (candidate->Events() == events) {
                m_journal.Add("Find " + candidate->Name());
                return FAILED(candidate->findResult) || candidate->isLost ? candidate->findResult
                                                                          : candidate->HandOut(point);
            }
        }
        return CONNECT_E_NOCONNECTION;
    }

  protected:
    [[nodiscard]] void* Find(REFIID interfaceId) override {
        return interfaceId == IID_IConnectionPointContainer ? static_cast<IConnectionPointContainer*>(this)
                                                            : Fake::Find(interfaceId);
    }

  private:
    const std::vector<FakeConnectionPoint*> m_points;
    Journal& m_journal;
};

/// The service control manager's side of other services, for a scope.
class FakeServices {
  public:
    enum class State { kRunning, kStarting, kAbsent };

    explicit FakeServices(Journal& journal);

    /// Running, if nothing else is said.
    std::map<std::wstring, State> states;
    /// Last error of configuring this service; zero lets it succeed.
    DWORD configureError = NO_ERROR;

  private:
    [[nodiscard]] SC_HANDLE Open(const wchar_t* name);
    [[nodiscard]] BOOL Query(SC_HANDLE service, BYTE* buffer);

    Journal& m_journal;
    std::vector<std::wstring> m_opened;
    Rig::ScopedImport<&::OpenSCManagerW> m_openManager;
    Rig::ScopedImport<&::OpenServiceW> m_openService;
    Rig::ScopedImport<&::QueryServiceStatusEx> m_query;
    Rig::ScopedImport<&::ChangeServiceConfig2W> m_configure;
    Rig::ScopedImport<&::CloseServiceHandle> m_close;
};

/// The Windows event log, for a scope.
class FakeEventLog {
  public:
    struct Entry {
        std::wstring source;
        WORD type;
        WORD category;
        DWORD id;
        std::vector<std::wstring> strings;
    };

    explicit FakeEventLog(Journal& journal);

    [[nodiscard]] const std::vector<Entry>& Entries() const { return m_entries; }

  private:
    std::wstring m_source;
    std::vector<Entry> m_entries;
    Rig::ScopedImport<&::RegisterEventSourceW> m_register;
    Rig::ScopedImport<&::ReportEventW> m_report;
    Rig::ScopedImport<&::DeregisterEventSource> m_deregister;
};

/// The system thread pool, for a scope: keeps what is queued until the test runs it.
class FakePool {
  public:
    struct Item {
        LPTHREAD_START_ROUTINE callback;
        void* context;
        ULONG flags;
    };

    explicit FakePool(Journal& journal);
    FakePool(const FakePool&) = delete;
    FakePool& operator=(const FakePool&) = delete;
    /// Fails the test when an item was neither run nor dropped.
    ~FakePool();

    /// Last error of queuing; zero lets it succeed.
    DWORD error = NO_ERROR;
    std::vector<Item> items;

    /// Runs the oldest item on this thread and returns the callback's result.
    DWORD RunNext();
    /// Forgets all items; their records are lost.
    void Drop() { items.clear(); }

  private:
    Rig::ScopedImport<&::QueueUserWorkItem> m_queue;
};

/// Registrations for WLAN notifications, for a scope. Fails the test when one is made with a handle that
/// is closed, or is being closed while the call is on its way.
class FakeNotifications {
  public:
    struct Call {
        HANDLE client;
        DWORD sources;
        BOOL ignoresDuplicates;
        WLAN_NOTIFICATION_CALLBACK callback;
        void* context;
        bool hasRest;  ///< whether the reserved and the out argument were given
    };

    FakeNotifications(Journal& journal, const RadioTests::FakeWlan& wlan);

    DWORD result = ERROR_SUCCESS;
    DWORD lastError = NO_ERROR;
    std::vector<Call> calls;

  private:
    Rig::ScopedImport<&::WlanRegisterNotification> m_register;
};

/// Class objects, and the visits of the code under test to COM, for a scope.
class FakeCom {
  public:
    struct Creation {
        CLSID classId;
        IUnknown* outer;
        DWORD context;
        IID interfaceId;
    };
    using Creator = std::function<HRESULT(REFIID interfaceId, void** object)>;

    explicit FakeCom(Journal& journal);

    /// By the names under which the journal has them.
    std::map<std::string, Creator> creators;
    std::vector<Creation> creations;
    /// Answers the entry of the multithreaded apartment in place of COM.
    std::optional<HRESULT> entryResult;
    std::atomic<int> entries = 0;  ///< of the multithreaded apartment, that succeeded
    std::atomic<int> exits = 0;

  private:
    Rig::ScopedImport<&::CoCreateInstance> m_create;
    Rig::ScopedImport<&::CoInitializeEx> m_enter;
    Rig::ScopedImport<&::CoUninitialize> m_leave;
};

/// The service object with its inside open.
class OpenService : public CMainService {
  public:
    using CMainService::AirplaneModeWatcher;
    using CMainService::HandleWlanNotificationAcmNetworkAvailable;
    using CMainService::HandleWlanNotificationMsmRadioStateChange;
    using CMainService::ListenForWlanEvents;
    using CMainService::ListenForWwanEvents;
    using CMainService::OnContinue;
    using CMainService::OnShutdown;
    using CMainService::OnStart;
    using CMainService::OnStop;
    using CMainService::RegisterWlanNotification;
    using CMainService::ServiceWorkerThread;
    using CMainService::Shutdown;
    using CMainService::Start;
    using CMainService::UpdateWlanPowerStatus;
    using CMainService::UpdateWwanPowerStatus;

    using CMainService::m_airplaneWatcherEvent;
    using CMainService::m_mbnInterfaceManager;
    using CMainService::m_mbnRadioCookie;
    using CMainService::m_mbnRadioEvents;
    using CMainService::m_mbnSinks;
    using CMainService::m_networkConnectionCookie;
    using CMainService::m_networkConnectionEvents;
    using CMainService::m_networkCookie;
    using CMainService::m_networkEventHandler;
    using CMainService::m_networkEvents;
    using CMainService::m_networkListManager;
    using CMainService::m_networkListManagerCookie;
    using CMainService::m_networkListManagerEvents;
    using CMainService::m_running;
    using CMainService::m_wiredConnections;
    using CMainService::m_wlanHandle;
};

/// A notebook with one WLAN adapter and one modem, both on, no cable, airplane mode off, both
/// services running, a BIOS that tells nothing, and no service object yet.
class World {
  public:
    World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    ~World();

    RadioTests::Machine machine;
    Journal journal;
    RadioTests::FakeWlan wlan{std::vector{RadioTests::On()}};
    FakeNotifications notifications{journal, wlan};
    FakeServices services{journal};
    FakeEventLog eventLog{journal};
    FakePool pool{journal};
    FakeCom com{journal};
    NetworkTests::FakeAdapterAddresses adapterAddresses;
    BOOL networkIsAlive = TRUE;

    FakeConnectionPoint listManagerEvents;
    FakeConnectionPoint connectionEvents;
    FakeConnectionPoint networkEvents;
    FakeConnectionPoint radioEvents;
    WithConnectionPoints<NetworkTests::FakeNetworkListManager> listManager;
    /// Follows at once and never confirms.
    RadioTests::FakeRadio wwanRadio{MBN_RADIO_ON};
    std::deque<RadioTests::FakeInterface> modems;
    WithConnectionPoints<RadioTests::FakeManager> mbnManager;

    /// As Windows shows it: the adapter stays, without an address.
    void PullCable() { machine.adapters.Set({NetworkTests::EthernetWithoutAddress()}); }

    /// The messages of one operation, without its trace lines.
    [[nodiscard]] std::vector<Rig::LogLine> LinesOf(const char* function) const;
    /// The states that the WLAN radio was switched to, as "off" or "on".
    [[nodiscard]] std::vector<std::string> WlanSwitches() const;
    [[nodiscard]] std::vector<MBN_RADIO> WwanSwitches() const { return wwanRadio.sets; }

    void EnableWlanSwitching() const;
    void EnableWwanSwitching() const;
    /// A WWAN radio that says yes and stays as it is.
    void MakeWwanStubborn() { wwanRadio.onSet = nullptr; }
    /// What the start-up worker leaves behind for the WWAN radio.
    void MakeModemKnown();

  private:
    Rig::ScopedImport<&::IsNetworkAlive> m_networkAlive;
    Rig::ScopedImport<&::WlanOpenHandle> m_wlanOpen;
    Rig::ScopedImport<&::WlanCloseHandle> m_wlanClose;
};

/// A test in a `World` of its own.
class CoreTest : public testing::Test {
  protected:
    World world;
    Rig::LogRecorder& log = world.machine.log;
};

/// Runs `OnStop` as the control thread of a running service would: the one visit to COM more that
/// it leaves is the thread's own.
void Stop(OpenService& service);

}  // namespace CoreTests
