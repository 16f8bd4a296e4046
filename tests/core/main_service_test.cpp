#include "core/main_service.h"

#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>

#include "core/airplane_mode_watcher.h"
#include "core/mobile_broadband_subscription.h"
#include "core/network_subscription.h"
#include "core/wlan_notifications.h"
#include "radio/wwan_state.h"
#include "service/service_utilities.h"
#include "tests/core/core_test.h"
#include "tests/support/at_each_log_line.h"
#include "tests/support/skip_unless_imported.h"

namespace CoreTests {
namespace {

using Microsoft::WRL::ComPtr;

constexpr char kConstructor[] = "CMainService::CMainService";
constexpr char kDestructor[] = "CMainService::~CMainService";
constexpr char kOnStart[] = "CMainService::OnStart";
constexpr char kOnStop[] = "CMainService::OnStop";
const LogLine kStopLine = Information(kOnStop, L"Linkvane Service in OnStop");
const std::string kUnregistration = "WlanRegisterNotification sources 0x0, ignore duplicates 0";

// --- Construction and destruction ------------------------------------------------------------------

using MainServiceTest = CoreTest;

TEST_F(MainServiceTest, ConstructorCreatesTheStopEventOfTheWatcherOrGoesOnWithout) {
    for (const bool succeeds : {true, false}) {
        log.Clear();
        const Rig::AtCall failing = succeeds ? Rig::AtCall{0} : Rig::kEveryCall;
        const ScopedResult<&::CreateEventW> fails{nullptr, ERROR_ACCESS_DENIED, failing};
        const ScopedWatch<&::CreateEventW> creations;
        OpenService service;
        EXPECT_THAT(creations.Arguments(),
                    ElementsAre(FieldsAre(IsNull(), TRUE, FALSE, StrEq(L"AIRPLANE_WATCHER_EVENT"))));
        EXPECT_EQ(bool{service.m_state.airplaneWatcherEvent}, succeeds);
        std::vector<LogLine> expected{TraceIn(kConstructor), TraceOut(kConstructor)};
        if (!succeeds) {
            expected.insert(expected.begin() + 1,
                            Error(kConstructor, L"CreateEvent (AirPlaneWatcherEvent) failed with error 5"));
        }
        EXPECT_EQ(log.Of(kConstructor), expected);
        const ScopedWatch<&::SetEvent> set;
        Stop(service);
        EXPECT_EQ(set.Calls(), succeeds ? 1 : 0);
    }
}

TEST_F(MainServiceTest, StopEventIsClosedOnceWhetherOrNotThatSucceeds) {
    for (const bool succeeds : {true, false}) {
        auto service = std::make_unique<OpenService>();
        const HANDLE event = service->m_state.airplaneWatcherEvent.Get();
        {
            ScopedImport<&::CloseHandle> close{[=](HANDLE handle) { return handle == event; },
                                               [&](HANDLE handle) {
                                                   SetLastError(ERROR_ACCESS_DENIED);
                                                   return succeeds ? close.Original(handle) : FALSE;
                                               }};
            log.Clear();
            service.reset();
            EXPECT_EQ(close.Calls(), 1);
        }
        EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kDestructor), TraceOut(kDestructor)));
        if (!succeeds) {
            CloseHandle(event);
        }
    }
}

/// A worker that outlives the service still works with the set.
TEST_F(MainServiceTest, WiredConnectionsOutliveTheService) {
    SKIP_UNLESS_IMPORTED(free);
    auto service = std::make_unique<OpenService>();
    WiredConnections* const wired = service->m_state.wiredConnections;
    const ScopedImport<&::free> frees{[=](void* block) { return block == wired; }, [](void*) {}};
    service.reset();
    EXPECT_EQ(frees.Calls(), 0);
    EXPECT_TRUE(wired->insert(L"{wired}").second);
}

/// A service with everything that a start leaves behind.
class FullServiceTest : public CoreTest {
  protected:
    FullServiceTest() { Fill(); }

    void Fill() {
        constexpr unsigned char kRegister = 1;
        state().running = true;
        state().networkListManager =
            notebook.Create<INetworkListManager>(CLSID_NetworkListManager, IID_INetworkListManager);
        state().mbnInterfaceManager =
            notebook.Create<IMbnInterfaceManager>(CLSID_MbnInterfaceManager, IID_IMbnInterfaceManager);
        ListenForWlanEvents(state());
        ListenForWwanEvents(state());
        ASSERT_EQ(RegisterWlanNotification(state(), &kRegister), DWORD{ERROR_SUCCESS});
        event = state().airplaneWatcherEvent.Get();
        sinkEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        WwanState::radioChangeEvent = std::make_shared<Platform::UniqueHandle>(sinkEvent);
        notebook.ForgetCalls();
        log.Clear();
    }
    ServiceState& state() { return service->m_state; }

    std::unique_ptr<OpenService> service = std::make_unique<OpenService>();
    HANDLE event = nullptr;
    /// Closed by the modem's sink when it is destroyed.
    HANDLE sinkEvent = nullptr;
};

TEST_F(FullServiceTest, DestructorLeavesSinksAndWlanHandleAlone) {
    CMbnSinks* const sinks = state().mbnSinks;
    NLMEventHandler* const handler = state().networkEventHandler;
    sinks->AddRef();
    handler->AddRef();
    const Platform::UniqueWlanHandle handle(state().wlanHandle.Get());
    service.reset();
    EXPECT_EQ(notebook.Count(Call::WlanCloseHandle), 0);
    // Those of the service, of the connection points, and the three that are kept.
    EXPECT_EQ(sinks->Release(), 2U);
    EXPECT_EQ(handler->Release(), 7U);
}

/// A reference of which the end can be seen.
class WatchedReference final : public Notebook::ComObject<Notebook::As<IConnectionPoint>> {
  public:
    WatchedReference(std::string name, std::vector<std::string>& ends)
        : m_name(std::move(name)), m_ends(ends) {}
    NOTEBOOK_NOT_NEEDED(GetConnectionInterface(IID*));
    NOTEBOOK_NOT_NEEDED(GetConnectionPointContainer(IConnectionPointContainer**));
    NOTEBOOK_NOT_NEEDED(Advise(IUnknown*, DWORD*));
    HRESULT WINAPI Unadvise(DWORD cookie) override {
        m_ends.push_back(m_name + " " + std::to_string(cookie));
        return E_FAIL;
    }
    NOTEBOOK_NOT_NEEDED(EnumConnections(IEnumConnections**));

  private:
    ~WatchedReference() override { m_ends.push_back(m_name); }

    const std::string m_name;
    std::vector<std::string>& m_ends;
};

/// Connection points whose end can be seen, in the service's fields.
class ServiceOfWatchedReferences : public CoreTest {
  protected:
    ServiceOfWatchedReferences() {
        ServiceState& state = service->m_state;
        *state.networkListManagerEvents.GetAddressOf() = new WatchedReference("first", ends);
        *state.networkConnectionEvents.GetAddressOf() = new WatchedReference("second", ends);
        *state.networkEvents.GetAddressOf() = new WatchedReference("third", ends);
        *state.mbnRadioEvents.GetAddressOf() = new WatchedReference("fourth", ends);
        state.networkListManagerCookie = 11;
        state.networkConnectionCookie = 12;
        state.networkCookie = 13;
        state.mbnRadioCookie = 14;
    }

    std::vector<std::string> ends;
    std::unique_ptr<OpenService> service = std::make_unique<OpenService>();
};

TEST_F(ServiceOfWatchedReferences, DestructorReleasesWhatWasNeverStoppedFromLastToFirst) {
    // What comes behind the connection points goes before them.
    service->m_state.networkListManager =
        notebook.Create<INetworkListManager>(CLSID_NetworkListManager, IID_INetworkListManager);
    service->m_state.mbnInterfaceManager =
        notebook.Create<IMbnInterfaceManager>(CLSID_MbnInterfaceManager, IID_IMbnInterfaceManager);
    service.reset();
    EXPECT_THAT(ends, ElementsAre("fourth", "third", "second", "first"));
    EXPECT_EQ(notebook.Held().comReferences, 0);
}

TEST_F(ServiceOfWatchedReferences, StopUnsubscribesWithEachCookieThenReleasesAndIgnoresFailures) {
    Stop(*service);
    EXPECT_THAT(ends, ElementsAre("first 11", "first", "second 12", "second", "third 13", "third",
                                  "fourth 14", "fourth"));
    EXPECT_THAT(log.At(kError), IsEmpty());
    // The cookies stay.
    EXPECT_EQ(service->m_state.networkListManagerCookie, 11U);
    EXPECT_EQ(service->m_state.mbnRadioCookie, 14U);
}

// --- Start -----------------------------------------------------------------------------------------

/// What the service tells the service control manager and the event log.
class StartTest : public CoreTest {
  protected:
    using Report = std::pair<DWORD, DWORD>;  ///< state, exit code

    StartTest() { log.Clear(); }
    ~StartTest() override { pool.Drop(); }

    std::vector<Report> reports;
    OpenService service;

  private:
    ScopedImport<&::SetServiceStatus> m_status{[this](SERVICE_STATUS_HANDLE, LPSERVICE_STATUS status) {
        reports.emplace_back(status->dwCurrentState, status->dwWin32ExitCode);
        return TRUE;
    }};
};

constexpr char kStartEntry[] = R"(LinkvaneService|4|0|0|"LinkvaneService"|"Linkvane Service in OnStart")";

LogLine RecoveryLine(const std::wstring& status) {
    return Information(kOnStart, L"Linkvane Service Restart Recovery On Failure set status : " + status);
}

TEST_F(StartTest, MakesOneInformationEntryThenSetsTheRecoveryAndQueuesTheWorkerToAPersistentThread) {
    std::vector<LogLine> beforeTheEntry;
    std::vector<LogLine> beforeTheRecovery;
    bool ranBeforeTheRecovery = true;
    bool ranWhenQueued = false;
    notebook.Before(Call::ReportEvent, 1, [&] { beforeTheEntry = log.Lines(); });
    notebook.Before(Call::OpenService, 1, [&] {
        beforeTheRecovery = LinesOf(kOnStart);
        ranBeforeTheRecovery = service.m_state.running;
    });
    pool.atQueue = [&] { ranWhenQueued = service.m_state.running; };
    service.Start(0, nullptr);
    EXPECT_THAT(reports,
                ElementsAre(Report{SERVICE_START_PENDING, NO_ERROR}, Report{SERVICE_RUNNING, NO_ERROR}));
    EXPECT_THAT(notebook.EventLog(), ElementsAre(kStartEntry));
    const LogLine version =
        Information(kOnStart, L"Linkvane Service (" + Utils::GetBinaryVersion() + L") in OnStart");
    EXPECT_THAT(log.Of(kOnStart),
                ElementsAre(TraceIn(kOnStart), version, RecoveryLine(L"0"), TraceOut(kOnStart)));
    ASSERT_FALSE(beforeTheEntry.empty());
    EXPECT_EQ(beforeTheEntry.front(), TraceIn(kOnStart));
    EXPECT_EQ(beforeTheEntry.back(), TraceOut("Utils::GetBinaryVersion"));
    EXPECT_THAT(beforeTheRecovery, ElementsAre(version));
    EXPECT_FALSE(ranBeforeTheRecovery);
    EXPECT_TRUE(ranWhenQueued);
    EXPECT_THAT(notebook.Calls(Call::OpenService), ElementsAre(HasSubstr(" LinkvaneService ")));
    EXPECT_EQ(notebook.Calls().back(), "QueueUserWorkItem");

    ASSERT_THAT(pool.items, SizeIs(1));
    EXPECT_EQ(pool.items.front().flags, ULONG{WT_EXECUTEINPERSISTENTTHREAD});
    EXPECT_THAT(log.Of("CMainService::ServiceWorkerThread"), IsEmpty());
    ComVisits com;
    com.entryResult = E_OUTOFMEMORY;
    EXPECT_EQ(pool.RunNext(), 0U);
    EXPECT_TRUE(log.Contains(TraceIn("CMainService::ServiceWorkerThread", L"ServiceWorkerThread - Entry")));
}

TEST_F(StartTest, GoesOnWithoutFailureActionsOrWhenTheServiceIsNotInstalled) {
    notebook.FailEach(Call::ChangeServiceConfig2, ERROR_ACCESS_DENIED);
    service.Start(0, nullptr);
    notebook.Uninstall(L"LinkvaneService");
    service.Start(0, nullptr);
    EXPECT_TRUE(log.Contains(RecoveryLine(L"17")));
    EXPECT_TRUE(log.Contains(RecoveryLine(L"-1")));
    EXPECT_THAT(pool.items, SizeIs(2));
}

TEST_F(StartTest, QueueFailureEndsTheStartWithTheSystemErrorAndLeavesTheRunningFlag) {
    pool.error = ERROR_NOT_ENOUGH_MEMORY;
    service.Start(0, nullptr);
    EXPECT_THAT(reports, ElementsAre(Report{SERVICE_START_PENDING, NO_ERROR},
                                     Report{SERVICE_STOPPED, ERROR_NOT_ENOUGH_MEMORY}));
    EXPECT_THAT(
        notebook.EventLog(),
        ElementsAre(kStartEntry,
                    R"(LinkvaneService|1|0|0|"LinkvaneService"|"Service Start failed w/err 0x00000008")"));
    EXPECT_TRUE(service.m_state.running);
}

TEST_F(StartTest, PreShutdownCallsTheStopOfADerivedServiceAndEndsInStopped) {
    struct CountingService : OpenService {
        void OnStop() override { ++stops; }
        int stops = 0;
    };
    CountingService counting;
    counting.Shutdown();
    EXPECT_EQ(counting.stops, 1);
    EXPECT_THAT(reports, ElementsAre(Report{SERVICE_STOPPED, NO_ERROR}));
}

// --- Stop ------------------------------------------------------------------------------------------

TEST_F(FullServiceTest, StopGivesEverythingBackInItsOrder) {
    /// The references that the service holds to the devices' objects, at each of its calls.
    std::vector<LONG> held;
    const auto note = [&] {
        held.push_back(notebook.Held().comReferences);
        return std::nullopt;
    };
    for (const Call call : {Call::WlanRegisterNotification, Call::Unadvise, Call::WlanCloseHandle}) {
        notebook.AtEach(call, note);
    }
    // Of the handler's references only the service's own is left: its end can be seen.
    for (int kept = 0; kept < 3; ++kept) {
        state().networkEventHandler->Release();
    }
    const Rig::AtEachLogLine lines{[&](const auto& entry) {
        if (entry.FunctionName() == "NLMEventHandler::~NLMEventHandler" &&
            entry.GetLevel() == Orva::Shared::Level::kTraceIn) {
            note();
            Rig::SimulatedNotebook::Note("end of NLMEventHandler");
        }
    }};
    const ScopedImport<&::SetEvent> signal{[this](HANDLE handle) { return handle == event; },
                                           [&](HANDLE handle) {
                                               EXPECT_FALSE(state().running);
                                               Rig::SimulatedNotebook::Note("SetEvent");
                                               return signal.Original(handle);
                                           }};
    const ScopedImport<&::CloseHandle> sinkEnds{[this](HANDLE handle) { return handle == sinkEvent; },
                                                [&](HANDLE handle) {
                                                    note();
                                                    Rig::SimulatedNotebook::Note("end of CMbnSinks");
                                                    return sinkEnds.Original(handle);
                                                }};
    ComVisits com;
    Rig::RunOnThread([this] { service->Stop(); }, Rig::Apartment::kNone);
    EXPECT_THAT(notebook.Calls(),
                ElementsAre("SetEvent", kUnregistration, "Unadvise INetworkListManagerEvents",
                            "Unadvise INetworkConnectionEvents", "Unadvise INetworkEvents",
                            "end of NLMEventHandler",                        //
                            "Unadvise IMbnRadioEvents", "end of CMbnSinks",  //
                            "WlanCloseHandle", "CoUninitialize"));
    // Each connection point counts twice, for its manager. The manager of networks goes behind the handler
    // and before the modem's connection point, the modem's manager behind its sink.
    EXPECT_THAT(held, ElementsAre(10, 10, 8, 6, 4, 3, 1, 0));
    EXPECT_EQ(com.entries, 0);
    EXPECT_EQ(com.exits, 1);
    EXPECT_THAT(log.Of(kOnStop), ElementsAre(TraceIn(kOnStop), kStopLine, TraceOut(kOnStop)));
    EXPECT_FALSE(state().wlanHandle);
    EXPECT_EQ(state().networkEventHandler, nullptr);
    EXPECT_EQ(state().mbnSinks, nullptr);
}

TEST_F(FullServiceTest, StopKeepsWiredConnectionsAndTheSignalledEventWhichTheDestructorCloses) {
    state().wiredConnections->insert(L"{wired}");
    Stop(*service);
    EXPECT_THAT(*state().wiredConnections, ElementsAre(L"{wired}"));
    EXPECT_EQ(WaitForSingleObject(event, 0), DWORD{WAIT_OBJECT_0});
    notebook.ForgetCalls();
    const ScopedWatch<&::CloseHandle> closes;
    service.reset();
    EXPECT_THAT(closes.Arguments(), ElementsAre(FieldsAre(event)));
    EXPECT_THAT(notebook.Calls(), IsEmpty());
}

TEST_F(FullServiceTest, StopCopesWithEveryMissingAndEveryLonelyResource) {
    const auto unsubscribe = [](ComPtr<IConnectionPoint>& point, DWORD cookie) {
        point->Unadvise(cookie);
        point.Reset();
    };
    const std::vector<std::function<void()>> drops{
        [&] { unsubscribe(state().networkListManagerEvents, state().networkListManagerCookie); },
        [&] { unsubscribe(state().networkConnectionEvents, state().networkConnectionCookie); },
        [&] { unsubscribe(state().networkEvents, state().networkCookie); },
        [&] { unsubscribe(state().mbnRadioEvents, state().mbnRadioCookie); },
        [&] { std::exchange(state().networkEventHandler, nullptr)->Release(); },
        [&] { std::exchange(state().mbnSinks, nullptr)->Release(); },
        [&] {
            state().networkListManager.Reset();
            state().mbnInterfaceManager.Reset();
        },
        [&] { state().wlanHandle.Reset(); }};
    Stop(*service);
    for (std::size_t which = 0; which < drops.size(); ++which) {
        for (const bool isLonely : {false, true}) {
            SCOPED_TRACE(which);
            Fill();
            for (std::size_t resource = 0; resource < drops.size(); ++resource) {
                if ((resource == which) != isLonely) {
                    drops[resource]();
                }
            }
            Stop(*service);
            EXPECT_THAT(log.At(kError), IsEmpty());
            EXPECT_EQ(notebook.Held().comReferences, 0);
            EXPECT_EQ(notebook.Held().comSinks, 0);
            EXPECT_EQ(notebook.Held().wlanHandles, 0);
        }
    }
}

TEST_F(FullServiceTest, FailuresOfAStopAreLoggedAndTheStopGoesOn) {
    notebook.Fail(Call::WlanRegisterNotification, 1, ERROR_INVALID_STATE);
    notebook.Fail(Call::WlanCloseHandle, 1, ERROR_INVALID_STATE);
    const ScopedImport<&::SetEvent> set{[this](HANDLE handle) { return handle == event; },
                                        [](HANDLE) {
                                            SetLastError(ERROR_INVALID_HANDLE);
                                            return FALSE;
                                        }};
    const HANDLE handle = state().wlanHandle.Get();
    Stop(*service);
    EXPECT_THAT(LinesOf(kOnStop),
                ElementsAre(kStopLine, Error(kOnStop, L"Airplane Watcher Event Set failed with error 6"),
                            Error(kOnStop, L"RegisterWlanNotification (Unregister) failed"),
                            Error(kOnStop, L"WlanCloseHandle failed with error 5023")));
    EXPECT_EQ(notebook.Held().comReferences, 0);
    // It is kept, for whoever looks.
    EXPECT_EQ(state().wlanHandle.Get(), handle);
    state().wlanHandle.Reset();
}

TEST_F(StartTest, StopRightAfterStartReleasesNothingAndWithoutWlanClosesNoHandle) {
    for (const bool hasWlan : {true, false}) {
        service.Start(0, nullptr);
        notebook.ForgetCalls();
        log.Clear();
        if (!hasWlan) {
            notebook.Fail(Call::WlanOpenHandle, 1, ERROR_SERVICE_NOT_ACTIVE);
        }
        ComVisits com;
        Stop(service);
        EXPECT_EQ(com.exits, 1 + 1);  // one is the test's own
        std::vector<std::string> calls = notebook.Calls();
        std::erase_if(calls, [](const std::string& call) { return call.starts_with("Co"); });
        if (hasWlan) {
            EXPECT_THAT(calls, ElementsAre("WlanOpenHandle version 2", kUnregistration, "WlanCloseHandle"));
            EXPECT_THAT(LinesOf(kOnStop), ElementsAre(kStopLine));
        } else {
            EXPECT_THAT(calls, ElementsAre("WlanOpenHandle version 2"));
            EXPECT_THAT(
                LinesOf(kOnStop),
                ElementsAre(kStopLine, Error(kOnStop, L"RegisterWlanNotification (Unregister) failed")));
        }
        EXPECT_FALSE(service.m_state.running);
    }
}

TEST_F(FullServiceTest, PreShutdownLogsAsAStopDoesInsideItsOwnTrace) {
    // A handle of its own would be told apart in the log.
    state().wlanHandle.Reset();
    log.Clear();
    Stop(*service);
    std::vector<LogLine> expected{TraceIn("CMainService::OnShutdown")};
    const std::vector<LogLine> stopped = log.Lines();
    expected.insert(expected.end(), stopped.begin(), stopped.end());
    expected.push_back(TraceOut("CMainService::OnShutdown"));

    Fill();
    state().wlanHandle.Reset();
    log.Clear();
    Rig::RunOnThread([this] { service->Shutdown(); }, Rig::Apartment::kMultithreadedTwice);
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(notebook.Held().comReferences, 0);
}

// --- A stop that meets the watcher -----------------------------------------------------------------

/// A running service; something happens while its stop signals the watcher's event.
class StopAndWatcher : public CoreTest {
  protected:
    OpenService service;
    ServiceState& state = service.m_state;
    const HANDLE event = state.airplaneWatcherEvent.Get();
    std::function<void()> atSignal;

  private:
    ScopedImport<&::SetEvent> m_signal{[this](HANDLE handle) { return handle == event; },
                                       [this](HANDLE handle) {
                                           atSignal();
                                           return m_signal.Original(handle);
                                       }};
};

TEST_F(StopAndWatcher, WatcherThatEndsWhileItIsSignalledLeavesTheEventToTheStop) {
    const ScopedImport<&::CloseHandle> close{[this](HANDLE handle) { return handle == event; },
                                             [&](HANDLE handle) { return close.Original(handle); }};
    atSignal = [&] {
        // As one that spins without the watched key does: it sees the cleared flag at once.
        AirplaneModeWatcher(state);
        EXPECT_EQ(close.Calls(), 0);
    };
    Stop(service);
    EXPECT_EQ(close.Calls(), 0);
    EXPECT_EQ(WaitForSingleObject(event, 0), DWORD{WAIT_OBJECT_0});
    EXPECT_EQ(state.airplaneWatcherEvent.Get(), event);
    state.airplaneWatcherEvent.Reset();
    EXPECT_EQ(close.Calls(), 1);
    EXPECT_THAT(log.At(kError), IsEmpty());
}

TEST_F(StopAndWatcher, WatcherThatFindsItsEventTakenByTheStopEndsAndBothCloseTheirs) {
    const Platform::UniqueHandle stopHasTaken(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const Platform::UniqueHandle watcherHasEnded(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    state.running = true;
    atSignal = [&] {
        ::SetEvent(stopHasTaken.Get());
        WaitForSingleObject(watcherHasEnded.Get(), INFINITE);
    };
    std::thread stop;
    const ScopedWatch<&::RegNotifyChangeKeyValue> armings;
    {
        ScopedImport<&::RegOpenKeyExW> open{
            [](HKEY, LPCWSTR, DWORD, REGSAM access, PHKEY) { return (access & KEY_WOW64_64KEY) != 0; },
            [&](HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
                stop = std::thread([&] {
                    Stop(service);
                    ::SetEvent(stopHasTaken.Get());  // at the latest
                });
                WaitForSingleObject(stopHasTaken.Get(), INFINITE);
                return open.Original(root, path, options, access, key);
            }};
        AirplaneModeWatcher(state);
        EXPECT_EQ(open.Calls(), 1);
    }
    EXPECT_THAT(armings.Arguments(), ElementsAre(FieldsAre(_, _, _, testing::Ne(event), _)));
    SetEvent(watcherHasEnded.Get());
    stop.join();
    EXPECT_THAT(log.At(kError), IsEmpty());
}

}  // namespace
}  // namespace CoreTests
