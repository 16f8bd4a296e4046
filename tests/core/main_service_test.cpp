#include "core/main_service.h"

#include <windows.h>

#include <gmock/gmock.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "radio/wwan_state.h"
#include "service/service_utilities.h"
#include "tests/core/core_world.h"
#include "tests/support/run_on_thread.h"

namespace CoreTests {
namespace {

using Orva::Shared::Level::kError;
using Rig::Lines::Error;
using Rig::Lines::Information;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kConstructor[] = "CMainService::CMainService";
constexpr char kOnStart[] = "CMainService::OnStart";
constexpr char kOnStop[] = "CMainService::OnStop";

/// A sink whose releases are in the journal.
class JournaledHandler : public NLMEventHandler {
  public:
    explicit JournaledHandler(Journal& journal) : NLMEventHandler(nullptr, nullptr), m_journal(journal) {
        NLMEventHandler::AddRef();
    }
    ULONG WINAPI Release() override {
        m_journal.Add("Release NLMEventHandler");
        return NLMEventHandler::Release();
    }

  private:
    Journal& m_journal;
};

/// A running service with every kind of resource, or only some of them.
enum Resource : unsigned {
    kListManagerEvents = 1 << 0,
    kConnectionEvents = 1 << 1,
    kNetworkEvents = 1 << 2,
    kHandler = 1 << 3,
    kListManager = 1 << 4,
    kRadioEvents = 1 << 5,
    kSinks = 1 << 6,
    kMbnManager = 1 << 7,
    kWlanHandle = 1 << 8,
    kEverything = (1 << 9) - 1,
};

class MainServiceTest : public CoreTest {
  protected:
    MainServiceTest()
        : m_closed([this](HANDLE handle) { return handle == m_radioChangeEvent; },
                   [this](HANDLE handle) {
                       world.journal.Add("CloseHandle of CMbnSinks");
                       m_radioChangeEvent = nullptr;
                       return m_closed.Original(handle);
                   }),
          m_signalled([this](HANDLE handle) { return handle == m_stopEvent; },
                      [this](HANDLE handle) {
                          world.journal.Add("SetEvent");
                          return m_signalled.Original(handle);
                      }) {}

    void Subscribe(FakeConnectionPoint& point, Microsoft::WRL::ComPtr<IConnectionPoint>& field,
                   DWORD& cookie) {
        point.HandOut(field.ReleaseAndGetAddressOf());
        cookie = point.cookie;
    }

    void Fill(OpenService& service, unsigned resources) {
        if ((resources & kListManagerEvents) != 0) {
            Subscribe(world.listManagerEvents, service.m_networkListManagerEvents,
                      service.m_networkListManagerCookie);
        }
        if ((resources & kConnectionEvents) != 0) {
            Subscribe(world.connectionEvents, service.m_networkConnectionEvents,
                      service.m_networkConnectionCookie);
        }
        if ((resources & kNetworkEvents) != 0) {
            Subscribe(world.networkEvents, service.m_networkEvents, service.m_networkCookie);
        }
        if ((resources & kHandler) != 0) {
            service.m_networkEventHandler = new JournaledHandler(world.journal);
        }
        if ((resources & kListManager) != 0) {
            world.listManager.HandOut(service.m_networkListManager.GetAddressOf());
        }
        if ((resources & kRadioEvents) != 0) {
            Subscribe(world.radioEvents, service.m_mbnRadioEvents, service.m_mbnRadioCookie);
        }
        if ((resources & kSinks) != 0) {
            service.m_mbnSinks = new CMbnSinks();
            service.m_mbnSinks->AddRef();
            m_radioChangeEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
            WwanState::radioChangeEvent = std::make_shared<Platform::UniqueHandle>(m_radioChangeEvent);
        }
        if ((resources & kMbnManager) != 0) {
            world.mbnManager.HandOut(service.m_mbnInterfaceManager.GetAddressOf());
        }
        if ((resources & kWlanHandle) != 0) {
            DWORD version = 0;
            Platform::UniqueWlanHandle opened;
            ASSERT_EQ(WlanOpenHandle(2, nullptr, &version, opened.Put()), DWORD{ERROR_SUCCESS});
            service.m_wlanHandle.Reset(std::move(opened));
        }
        m_stopEvent = service.m_airplaneWatcherEvent.Get();
        world.journal.Clear();
    }

    HANDLE m_radioChangeEvent = nullptr;
    HANDLE m_stopEvent = nullptr;

  private:
    Rig::ScopedImport<&::CloseHandle> m_closed;
    Rig::ScopedImport<&::SetEvent> m_signalled;
};

// --- Construction and destruction ------------------------------------------------------------------

TEST_F(MainServiceTest, ConstructorCreatesTheStopEventOfTheWatcher) {
    struct Arguments {
        SECURITY_ATTRIBUTES* attributes;
        BOOL isManualReset;
        BOOL isSignalled;
        std::wstring name;
    };
    std::vector<Arguments> created;
    Rig::ScopedImport<&::CreateEventW> create{
        [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR name) { return name != nullptr; },
        [&](LPSECURITY_ATTRIBUTES attributes, BOOL isManualReset, BOOL isSignalled, LPCWSTR name) {
            created.push_back({attributes, isManualReset, isSignalled, name});
            return create.Original(attributes, isManualReset, isSignalled, name);
        }};
    const OpenService service;
    ASSERT_THAT(created, SizeIs(1));
    EXPECT_EQ(created[0].attributes, nullptr);
    EXPECT_EQ(created[0].isManualReset, TRUE);
    EXPECT_EQ(created[0].isSignalled, FALSE);
    EXPECT_EQ(created[0].name, L"AIRPLANE_WATCHER_EVENT");
    EXPECT_TRUE(service.m_airplaneWatcherEvent);
    EXPECT_THAT(log.Of(kConstructor), ElementsAre(TraceIn(kConstructor), TraceOut(kConstructor)));
}

TEST_F(MainServiceTest, ConstructionSurvivesAMissingStopEvent) {
    Rig::ScopedImport<&::CreateEventW> create{
        [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR name) { return name != nullptr; },
        [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE {
            SetLastError(ERROR_ACCESS_DENIED);
            return nullptr;
        }};
    const OpenService service;
    EXPECT_FALSE(service.m_airplaneWatcherEvent);
    EXPECT_THAT(log.Of(kConstructor),
                ElementsAre(TraceIn(kConstructor),
                            Error(kConstructor, L"CreateEvent (AirPlaneWatcherEvent) failed with error 5"),
                            TraceOut(kConstructor)));
}

TEST_F(MainServiceTest, NewServiceHoldsNothing) {
    const OpenService service;
    EXPECT_THAT(*service.m_wiredConnections, IsEmpty());
    EXPECT_EQ(service.m_networkListManagerEvents, nullptr);
    EXPECT_EQ(service.m_networkConnectionEvents, nullptr);
    EXPECT_EQ(service.m_networkEvents, nullptr);
    EXPECT_EQ(service.m_mbnRadioEvents, nullptr);
    EXPECT_EQ(service.m_networkListManager, nullptr);
    EXPECT_EQ(service.m_mbnInterfaceManager, nullptr);
    EXPECT_EQ(service.m_networkListManagerCookie, 0U);
    EXPECT_EQ(service.m_networkConnectionCookie, 0U);
    EXPECT_EQ(service.m_networkCookie, 0U);
    EXPECT_EQ(service.m_mbnRadioCookie, 0U);
    EXPECT_EQ(service.m_networkEventHandler, nullptr);
    EXPECT_EQ(service.m_mbnSinks, nullptr);
    EXPECT_FALSE(service.m_running);
    EXPECT_FALSE(service.m_wlanHandle);
}

TEST_F(MainServiceTest, FieldsStandInTheirOrder) {
    const OpenService service;
    const std::array fields{
        reinterpret_cast<std::uintptr_t>(&service.m_wiredConnections),
        reinterpret_cast<std::uintptr_t>(service.m_networkListManagerEvents.GetAddressOf()),
        reinterpret_cast<std::uintptr_t>(service.m_networkConnectionEvents.GetAddressOf()),
        reinterpret_cast<std::uintptr_t>(service.m_networkEvents.GetAddressOf()),
        reinterpret_cast<std::uintptr_t>(service.m_mbnRadioEvents.GetAddressOf()),
        reinterpret_cast<std::uintptr_t>(service.m_networkListManager.GetAddressOf()),
        reinterpret_cast<std::uintptr_t>(service.m_mbnInterfaceManager.GetAddressOf()),
        reinterpret_cast<std::uintptr_t>(&service.m_networkListManagerCookie),
        reinterpret_cast<std::uintptr_t>(&service.m_networkConnectionCookie),
        reinterpret_cast<std::uintptr_t>(&service.m_networkCookie),
        reinterpret_cast<std::uintptr_t>(&service.m_mbnRadioCookie),
        reinterpret_cast<std::uintptr_t>(&service.m_networkEventHandler),
        reinterpret_cast<std::uintptr_t>(&service.m_mbnSinks),
        reinterpret_cast<std::uintptr_t>(&service.m_running),
        reinterpret_cast<std::uintptr_t>(&service.m_airplaneWatcherEvent),
        reinterpret_cast<std::uintptr_t>(&service.m_wlanHandle),
    };
    for (std::size_t i = 1; i < fields.size(); ++i) {
        EXPECT_LT(fields[i - 1], fields[i]) << "field " << i;
    }
}

/// The virtual table behind the destructor's slots.
template <class Object>
const void* const* SlotsOf(const Object& object) {
#ifdef _MSC_VER
    constexpr std::size_t kDestructorSlots = 1;
#else
    constexpr std::size_t kDestructorSlots = 2;
#endif
    return *reinterpret_cast<const void* const* const*>(&object) + kDestructorSlots;
}

TEST_F(MainServiceTest, StartStopAndShutdownAreItsOwnAndTheRestIsInherited) {
    struct PlainService : CServiceBase {
        PlainService() : CServiceBase(L"plain") {}
    };
    const OpenService service;
    const PlainService plain;
    enum Slot { kStartSlot, kStopSlot, kPauseSlot, kContinueSlot, kShutdownSlot };
    EXPECT_NE(SlotsOf(service)[kStartSlot], SlotsOf(plain)[kStartSlot]);
    EXPECT_NE(SlotsOf(service)[kStopSlot], SlotsOf(plain)[kStopSlot]);
    EXPECT_EQ(SlotsOf(service)[kPauseSlot], SlotsOf(plain)[kPauseSlot]);
    EXPECT_EQ(SlotsOf(service)[kContinueSlot], SlotsOf(plain)[kContinueSlot]);
    EXPECT_NE(SlotsOf(service)[kShutdownSlot], SlotsOf(plain)[kShutdownSlot]);
}

TEST_F(MainServiceTest, DestructorReleasesWhatWasNeverStoppedFromLastToFirst) {
    {
        OpenService service;
        Fill(service, kListManagerEvents | kConnectionEvents | kNetworkEvents | kListManager | kRadioEvents |
                          kMbnManager);
    }
    EXPECT_THAT(world.journal.Calls(),
                ElementsAre("Release manager", "Release network list manager", "Release IMbnRadioEvents",
                            "Release INetworkEvents", "Release INetworkConnectionEvents",
                            "Release INetworkListManagerEvents"));
    EXPECT_THAT(log.Of("CMainService::~CMainService"),
                ElementsAre(TraceIn("CMainService::~CMainService"), TraceOut("CMainService::~CMainService")));
}

TEST_F(MainServiceTest, DestructorLeavesSinksAndWlanHandleAlone) {
    auto service = std::make_unique<OpenService>();
    Fill(*service, kHandler | kSinks | kWlanHandle);
    const std::unique_ptr<NLMEventHandler> handler(service->m_networkEventHandler);
    CMbnSinks* const sinks = service->m_mbnSinks;
    const HANDLE wlanHandle = service->m_wlanHandle.Get();
    service.reset();
    EXPECT_THAT(world.journal.Calls(), IsEmpty());
    EXPECT_EQ(sinks->Release(), 0U);
    WlanCloseHandle(wlanHandle, nullptr);
}

TEST_F(MainServiceTest, DestructorClosesTheStopEventOnce) {
    auto service = std::make_unique<OpenService>();
    const HANDLE event = service->m_airplaneWatcherEvent.Get();
    Rig::ScopedImport<&::CloseHandle> close{[&](HANDLE handle) { return handle == event; },
                                            [&](HANDLE handle) { return close.Original(handle); }};
    service.reset();
    EXPECT_EQ(close.Calls(), 1);
}

TEST_F(MainServiceTest, StopEventThatCannotBeClosedIsNotTriedAgain) {
    auto service = std::make_unique<OpenService>();
    const HANDLE event = service->m_airplaneWatcherEvent.Get();
    {
        Rig::ScopedImport<&::CloseHandle> close{[&](HANDLE handle) { return handle == event; },
                                                [](HANDLE) {
                                                    SetLastError(ERROR_ACCESS_DENIED);
                                                    return FALSE;
                                                }};
        service.reset();
        EXPECT_EQ(close.Calls(), 1);
    }
    CloseHandle(event);
}

TEST_F(MainServiceTest, DestructorAfterAStopOnlyClosesTheStopEvent) {
    auto service = std::make_unique<OpenService>();
    Fill(*service, kEverything);
    Stop(*service);
    world.journal.Clear();
    int closed = 0;
    Rig::ScopedImport<&::CloseHandle> close{[&](HANDLE handle) {
        closed += handle == m_stopEvent ? 1 : 0;
        return close.Original(handle);
    }};
    service.reset();
    EXPECT_EQ(closed, 1);
    EXPECT_EQ(close.Calls(), 1);
    EXPECT_THAT(world.journal.Calls(), IsEmpty());
}

// --- Start -----------------------------------------------------------------------------------------

TEST_F(MainServiceTest, StartMakesOneInformationEntryInTheEventLog) {
    OpenService service;
    service.OnStart(0, nullptr);
    ASSERT_THAT(world.eventLog.Entries(), SizeIs(1));
    const FakeEventLog::Entry& entry = world.eventLog.Entries().front();
    EXPECT_EQ(entry.source, L"LinkvaneService");
    EXPECT_EQ(entry.type, EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(entry.category, 0);
    EXPECT_EQ(entry.id, 0U);
    EXPECT_THAT(entry.strings, ElementsAre(L"LinkvaneService", L"Linkvane Service in OnStart"));
    world.pool.Drop();
}

TEST_F(MainServiceTest, StartLogsItsVersionAndTheRecoveryStatus) {
    OpenService service;
    service.OnStart(0, nullptr);
    EXPECT_THAT(
        log.Of(kOnStart),
        ElementsAre(
            TraceIn(kOnStart),
            Information(kOnStart, L"Linkvane Service (" + Utils::GetBinaryVersion() + L") in OnStart"),
            Information(kOnStart, L"Linkvane Service Restart Recovery On Failure set status : 0"),
            TraceOut(kOnStart)));
    world.pool.Drop();
}

TEST_F(MainServiceTest, StartTakesItsStepsInTheirOrder) {
    OpenService service;
    log.Clear();
    std::vector<Rig::LogLine> beforeTheEntry;
    std::vector<Rig::LogLine> beforeTheRecovery;
    bool ranBeforeTheRecovery = true;
    world.journal.At("ReportEvent", [&] { beforeTheEntry = log.Lines(); });
    world.journal.At("OpenService LinkvaneService", [&] {
        beforeTheRecovery = world.LinesOf(kOnStart);
        ranBeforeTheRecovery = service.m_running;
    });
    service.OnStart(0, nullptr);
    EXPECT_THAT(world.journal.Calls(),
                ElementsAre("ReportEvent", "OpenService LinkvaneService", "QueueUserWorkItem"));
    ASSERT_FALSE(beforeTheEntry.empty());
    EXPECT_EQ(beforeTheEntry.front(), TraceIn(kOnStart));
    EXPECT_EQ(beforeTheEntry.back(), TraceOut("Utils::GetBinaryVersion"));
    EXPECT_THAT(beforeTheRecovery,
                ElementsAre(Information(
                    kOnStart, L"Linkvane Service (" + Utils::GetBinaryVersion() + L") in OnStart")));
    EXPECT_FALSE(ranBeforeTheRecovery);
    world.pool.Drop();
}

TEST_F(MainServiceTest, StartGoesOnWithoutFailureActions) {
    world.services.configureError = ERROR_ACCESS_DENIED;
    OpenService service;
    service.OnStart(0, nullptr);
    EXPECT_TRUE(
        log.Contains(Information(kOnStart, L"Linkvane Service Restart Recovery On Failure set status : 17")));
    EXPECT_THAT(world.pool.items, SizeIs(1));
    world.pool.Drop();
}

TEST_F(MainServiceTest, StartGoesOnWhenTheServiceIsNotInstalled) {
    world.services.states[L"LinkvaneService"] = FakeServices::State::kAbsent;
    OpenService service;
    service.OnStart(0, nullptr);
    EXPECT_TRUE(
        log.Contains(Information(kOnStart, L"Linkvane Service Restart Recovery On Failure set status : -1")));
    EXPECT_THAT(world.pool.items, SizeIs(1));
    world.pool.Drop();
}

TEST_F(MainServiceTest, StartQueuesTheWorkerToAPersistentThreadAndReturns) {
    OpenService service;
    service.OnStart(0, nullptr);
    EXPECT_TRUE(service.m_running);
    ASSERT_THAT(world.pool.items, SizeIs(1));
    EXPECT_EQ(world.pool.items.front().flags, ULONG{WT_EXECUTEINPERSISTENTTHREAD});
    EXPECT_THAT(log.Of("CMainService::ServiceWorkerThread"), IsEmpty());

    world.com.entryResult = E_OUTOFMEMORY;
    EXPECT_EQ(world.pool.RunNext(), 0U);
    EXPECT_TRUE(log.Contains(TraceIn("CMainService::ServiceWorkerThread", L"ServiceWorkerThread - Entry")));
}

TEST_F(MainServiceTest, RunningFlagIsSetBeforeTheWorkerIsQueued) {
    OpenService service;
    bool wasRunning = false;
    world.journal.At("QueueUserWorkItem", [&] { wasRunning = service.m_running; });
    service.OnStart(0, nullptr);
    EXPECT_TRUE(wasRunning);
    world.pool.Drop();
}

TEST_F(MainServiceTest, QueueFailureThrowsTheSystemErrorAndLeavesTheRunningFlag) {
    OpenService service;
    world.pool.error = ERROR_NOT_ENOUGH_MEMORY;
    DWORD thrown = NO_ERROR;
    try {
        service.OnStart(0, nullptr);
    } catch (DWORD error) {
        thrown = error;
    }
    EXPECT_EQ(thrown, DWORD{ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_TRUE(service.m_running);
}

/// What the service control manager is told.
class ReportedStates {
  public:
    struct Report {
        DWORD state;
        DWORD exitCode;
        friend bool operator==(const Report&, const Report&) = default;
    };
    std::vector<Report> reports;

  private:
    Rig::ScopedImport<&::SetServiceStatus> m_report{[this](SERVICE_STATUS_HANDLE, LPSERVICE_STATUS status) {
        reports.push_back({status->dwCurrentState, status->dwWin32ExitCode});
        return TRUE;
    }};
};

TEST_F(MainServiceTest, QueueFailureEndsTheStartWithItsError) {
    const ReportedStates states;
    OpenService service;
    world.pool.error = ERROR_NOT_ENOUGH_MEMORY;
    service.Start(0, nullptr);
    EXPECT_THAT(states.reports,
                ElementsAre(ReportedStates::Report{SERVICE_START_PENDING, NO_ERROR},
                            ReportedStates::Report{SERVICE_STOPPED, ERROR_NOT_ENOUGH_MEMORY}));
    ASSERT_THAT(world.eventLog.Entries(), SizeIs(2));
    EXPECT_EQ(world.eventLog.Entries()[1].type, EVENTLOG_ERROR_TYPE);
    EXPECT_THAT(world.eventLog.Entries()[1].strings,
                ElementsAre(L"LinkvaneService", L"Service Start failed w/err 0x00000008"));
}

TEST_F(MainServiceTest, ServiceIsRunningWhileTheWorkerStillWaits) {
    const ReportedStates states;
    OpenService service;
    service.Start(0, nullptr);
    EXPECT_THAT(states.reports, ElementsAre(ReportedStates::Report{SERVICE_START_PENDING, NO_ERROR},
                                            ReportedStates::Report{SERVICE_RUNNING, NO_ERROR}));
    EXPECT_THAT(world.pool.items, SizeIs(1));
    world.pool.Drop();
}

// --- Stop ------------------------------------------------------------------------------------------

TEST_F(MainServiceTest, StopGivesEverythingBackInItsOrder) {
    OpenService service;
    Fill(service, kEverything);
    Stop(service);
    EXPECT_THAT(world.journal.Calls(),
                ElementsAre("CoInitializeEx", "CoInitializeEx",  // the test's own
                            "SetEvent", "WlanRegisterNotification 0", "Unadvise INetworkListManagerEvents 11",
                            "Release INetworkListManagerEvents", "Unadvise INetworkConnectionEvents 12",
                            "Release INetworkConnectionEvents", "Unadvise INetworkEvents 13",
                            "Release INetworkEvents",  //
                            "Release NLMEventHandler", "Release network list manager",
                            "Unadvise IMbnRadioEvents 14", "Release IMbnRadioEvents",  //
                            "CloseHandle of CMbnSinks", "Release manager", "WlanCloseHandle",
                            "CoUninitialize",    //
                            "CoUninitialize"));  // the test's own
    EXPECT_THAT(log.Of(kOnStop),
                ElementsAre(TraceIn(kOnStop), Information(kOnStop, L"Linkvane Service in OnStop"),
                            TraceOut(kOnStop)));
}

TEST_F(MainServiceTest, StopClearsEveryField) {
    OpenService service;
    Fill(service, kEverything);
    service.m_running = true;
    Stop(service);
    EXPECT_FALSE(service.m_running);
    EXPECT_EQ(service.m_networkListManagerEvents, nullptr);
    EXPECT_EQ(service.m_networkConnectionEvents, nullptr);
    EXPECT_EQ(service.m_networkEvents, nullptr);
    EXPECT_EQ(service.m_networkEventHandler, nullptr);
    EXPECT_EQ(service.m_networkListManager, nullptr);
    EXPECT_EQ(service.m_mbnRadioEvents, nullptr);
    EXPECT_EQ(service.m_mbnSinks, nullptr);
    EXPECT_EQ(service.m_mbnInterfaceManager, nullptr);
    EXPECT_FALSE(service.m_wlanHandle);
}

TEST_F(MainServiceTest, StopKeepsCookiesWiredConnectionsAndTheStopEvent) {
    OpenService service;
    Fill(service, kEverything);
    service.m_wiredConnections->insert(L"{wired}");
    Stop(service);
    EXPECT_EQ(service.m_networkListManagerCookie, 11U);
    EXPECT_EQ(service.m_networkConnectionCookie, 12U);
    EXPECT_EQ(service.m_networkCookie, 13U);
    EXPECT_EQ(service.m_mbnRadioCookie, 14U);
    EXPECT_THAT(*service.m_wiredConnections, ElementsAre(L"{wired}"));
    EXPECT_TRUE(service.m_airplaneWatcherEvent);
    EXPECT_EQ(WaitForSingleObject(service.m_airplaneWatcherEvent.Get(), 0), DWORD{WAIT_OBJECT_0});
}

TEST_F(MainServiceTest, RunningFlagIsClearedBeforeTheWatcherIsSignalled) {
    OpenService service;
    Fill(service, 0);
    service.m_running = true;
    bool wasRunning = true;
    world.journal.At("SetEvent", [&] { wasRunning = service.m_running; });
    Stop(service);
    EXPECT_FALSE(wasRunning);
}

TEST_F(MainServiceTest, StopCopesWithEveryMissingAndEveryLonelyResource) {
    std::vector<unsigned> states{0, kEverything};
    for (unsigned resource = 1; resource < kEverything; resource <<= 1) {
        states.push_back(resource);
        states.push_back(kEverything & ~resource);
    }
    for (const unsigned resources : states) {
        SCOPED_TRACE(resources);
        log.Clear();
        OpenService service;
        Fill(service, resources);
        Stop(service);
        EXPECT_THAT(log.At(kError), IsEmpty());
        EXPECT_EQ(world.journal.Count("Unadvise INetworkListManagerEvents 11"),
                  (resources & kListManagerEvents) != 0 ? 1 : 0);
        EXPECT_EQ(world.journal.Count("Unadvise INetworkConnectionEvents 12"),
                  (resources & kConnectionEvents) != 0 ? 1 : 0);
        EXPECT_EQ(world.journal.Count("Unadvise INetworkEvents 13"),
                  (resources & kNetworkEvents) != 0 ? 1 : 0);
        EXPECT_EQ(world.journal.Count("Release NLMEventHandler"), (resources & kHandler) != 0 ? 1 : 0);
        EXPECT_EQ(world.journal.Count("Release network list manager"),
                  (resources & kListManager) != 0 ? 1 : 0);
        EXPECT_EQ(world.journal.Count("Unadvise IMbnRadioEvents 14"),
                  (resources & kRadioEvents) != 0 ? 1 : 0);
        EXPECT_EQ(world.journal.Count("CloseHandle of CMbnSinks"), (resources & kSinks) != 0 ? 1 : 0);
        EXPECT_EQ(world.journal.Count("Release manager"), (resources & kMbnManager) != 0 ? 1 : 0);
        // Unregistering opens a handle when there is none, and the stop then closes it.
        EXPECT_EQ(world.journal.Count("WlanOpenHandle"), (resources & kWlanHandle) != 0 ? 0 : 1);
        EXPECT_EQ(world.journal.Count("WlanCloseHandle"), 1);
        EXPECT_EQ(world.wlan.Held(), 0U);
    }
}

TEST_F(MainServiceTest, StopRightAfterStartReleasesNothing) {
    OpenService service;
    service.OnStart(0, nullptr);
    world.journal.Clear();
    log.Clear();
    Stop(service);
    EXPECT_THAT(world.journal.Calls(), ElementsAre("CoInitializeEx", "CoInitializeEx", "WlanOpenHandle",
                                                   "WlanRegisterNotification 0", "WlanCloseHandle",
                                                   "CoUninitialize", "CoUninitialize"));
    EXPECT_THAT(log.At(kError), IsEmpty());
    world.pool.Drop();
}

TEST_F(MainServiceTest, StopRightAfterStartWithoutWlanClosesNoHandle) {
    OpenService service;
    service.OnStart(0, nullptr);
    world.wlan.Fail(RadioTests::WlanCall::kOpen, 1, ERROR_SERVICE_NOT_ACTIVE);
    world.journal.Clear();
    Stop(service);
    EXPECT_EQ(world.journal.Count("WlanCloseHandle"), 0);
    EXPECT_EQ(world.journal.Count("CoUninitialize"), 2);
    EXPECT_THAT(world.LinesOf(kOnStop),
                ElementsAre(Information(kOnStop, L"Linkvane Service in OnStop"),
                            Error(kOnStop, L"RegisterWlanNotification (Unregister) failed")));
    world.pool.Drop();
}

TEST_F(MainServiceTest, SecondStopFindsNothingLeft) {
    OpenService service;
    Fill(service, kEverything);
    Stop(service);
    world.journal.Clear();
    log.Clear();
    Stop(service);
    EXPECT_THAT(world.journal.Calls(), ElementsAre("CoInitializeEx", "CoInitializeEx", "SetEvent",
                                                   "WlanOpenHandle", "WlanRegisterNotification 0",
                                                   "WlanCloseHandle", "CoUninitialize", "CoUninitialize"));
    EXPECT_THAT(log.At(kError), IsEmpty());
}

TEST_F(MainServiceTest, StopWithoutAStopEventSignalsNothing) {
    Rig::ScopedImport<&::CreateEventW> create{
        [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR name) { return name != nullptr; },
        [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE { return nullptr; }};
    OpenService service;
    Rig::ScopedImport<&::SetEvent> set{[&](HANDLE handle) { return set.Original(handle); }};
    Stop(service);
    EXPECT_EQ(set.Calls(), 0);
}

TEST_F(MainServiceTest, SignalFailureIsLoggedAndTheStopGoesOn) {
    OpenService service;
    Fill(service, kEverything);
    Rig::ScopedImport<&::SetEvent> set{[this](HANDLE handle) { return handle == m_stopEvent; },
                                       [](HANDLE) {
                                           SetLastError(ERROR_INVALID_HANDLE);
                                           return FALSE;
                                       }};
    Stop(service);
    EXPECT_THAT(world.LinesOf(kOnStop),
                ElementsAre(Information(kOnStop, L"Linkvane Service in OnStop"),
                            Error(kOnStop, L"Airplane Watcher Event Set failed with error 6")));
    EXPECT_EQ(world.journal.Count("Release manager"), 1);
}

TEST_F(MainServiceTest, WatcherThatEndsWhileItIsSignalledLeavesTheEventToTheStop) {
    int closed = 0;
    {
        OpenService service;
        Fill(service, 0);
        const Rig::ScopedImport<&::CloseHandle> close{[this](HANDLE handle) { return handle == m_stopEvent; },
                                                      [&](HANDLE handle) {
                                                          ++closed;
                                                          return close.Original(handle);
                                                      }};
        world.journal.At("SetEvent", [&] {
            // As one that spins without the watched key does: it sees the cleared flag at once.
            service.AirplaneModeWatcher();
            EXPECT_EQ(closed, 0);
        });
        Stop(service);
        EXPECT_EQ(closed, 0);
        EXPECT_EQ(WaitForSingleObject(m_stopEvent, 0), DWORD{WAIT_OBJECT_0});
        EXPECT_EQ(service.m_airplaneWatcherEvent.Get(), m_stopEvent);
        service.m_airplaneWatcherEvent.Reset();
    }
    EXPECT_EQ(closed, 1);
    EXPECT_THAT(log.At(kError), IsEmpty());
}

TEST_F(MainServiceTest, WatcherThatFindsItsEventTakenByTheStopEndsAndBothCloseTheirs) {
    const Platform::UniqueHandle stopHasTaken(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const Platform::UniqueHandle watcherHasEnded(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    OpenService service;
    Fill(service, 0);
    service.m_running = true;
    world.journal.At("SetEvent", [&] {
        SetEvent(stopHasTaken.Get());
        WaitForSingleObject(watcherHasEnded.Get(), INFINITE);
    });
    std::thread stop;
    const Rig::ScopedImport<&::RegNotifyChangeKeyValue> notify{
        [&](HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL isAsynchronous) {
            EXPECT_NE(event, m_stopEvent);
            return notify.Original(key, subtree, filter, event, isAsynchronous);
        }};
    {
        Rig::ScopedImport<&::RegOpenKeyExW> open{
            [](HKEY, LPCWSTR, DWORD, REGSAM access, PHKEY) { return (access & KEY_WOW64_64KEY) != 0; },
            [&](HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
                stop = std::thread([&] { Stop(service); });
                WaitForSingleObject(stopHasTaken.Get(), INFINITE);
                return open.Original(root, path, options, access, key);
            }};
        service.AirplaneModeWatcher();
        EXPECT_EQ(open.Calls(), 1);
    }
    EXPECT_EQ(notify.Calls(), 1);
    SetEvent(watcherHasEnded.Get());
    stop.join();
    EXPECT_THAT(log.At(kError), IsEmpty());
}

TEST_F(MainServiceTest, UnregistrationFailureIsLoggedAndTheStopGoesOn) {
    OpenService service;
    Fill(service, kEverything);
    world.notifications.result = ERROR_INVALID_STATE;
    Stop(service);
    EXPECT_THAT(world.LinesOf(kOnStop),
                ElementsAre(Information(kOnStop, L"Linkvane Service in OnStop"),
                            Error(kOnStop, L"RegisterWlanNotification (Unregister) failed")));
    EXPECT_EQ(world.journal.Count("Release manager"), 1);
    EXPECT_FALSE(service.m_wlanHandle);
}

TEST_F(MainServiceTest, UnadviseFailuresAreIgnored) {
    for (FakeConnectionPoint* const point :
         {&world.listManagerEvents, &world.connectionEvents, &world.networkEvents, &world.radioEvents}) {
        point->unadviseResult = E_FAIL;
    }
    OpenService service;
    Fill(service, kEverything);
    Stop(service);
    EXPECT_THAT(log.At(kError), IsEmpty());
    EXPECT_EQ(service.m_mbnRadioEvents, nullptr);
    EXPECT_EQ(world.journal.Count("Release manager"), 1);
}

TEST_F(MainServiceTest, WlanHandleThatCannotBeClosedIsKept) {
    OpenService service;
    Fill(service, kEverything);
    world.wlan.Fail(RadioTests::WlanCall::kClose, 1, ERROR_INVALID_STATE);
    const HANDLE handle = service.m_wlanHandle.Get();
    Stop(service);
    EXPECT_EQ(service.m_wlanHandle.Get(), handle);
    EXPECT_THAT(world.LinesOf(kOnStop),
                ElementsAre(Information(kOnStop, L"Linkvane Service in OnStop"),
                            Error(kOnStop, L"WlanCloseHandle failed with error 5023")));
    EXPECT_EQ(world.com.exits, 2);
    service.m_wlanHandle.Reset();
}

TEST_F(MainServiceTest, StopLeavesComOnceAlthoughTheThreadNeverEnteredIt) {
    OpenService service;
    Rig::RunOnThread([&service] { service.OnStop(); }, Rig::Apartment::kNone);
    EXPECT_EQ(world.com.entries, 0);
    EXPECT_EQ(world.com.exits, 1);
}

// --- Pre-shutdown ----------------------------------------------------------------------------------

TEST_F(MainServiceTest, PreShutdownLogsAsAStopDoesInsideItsOwnTrace) {
    // A handle of its own would be told apart in the log.
    constexpr unsigned kAllButWlanHandle = kEverything & ~kWlanHandle;
    std::vector<Rig::LogLine> stopped;
    {
        OpenService service;
        Fill(service, kAllButWlanHandle);
        log.Clear();
        Stop(service);
        stopped = log.Lines();
    }
    OpenService service;
    Fill(service, kAllButWlanHandle);
    log.Clear();
    Rig::RunOnThread([&service] { service.OnShutdown(); }, Rig::Apartment::kMultithreadedTwice);

    std::vector<Rig::LogLine> expected{TraceIn("CMainService::OnShutdown")};
    expected.insert(expected.end(), stopped.begin(), stopped.end());
    expected.push_back(TraceOut("CMainService::OnShutdown"));
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(service.m_mbnInterfaceManager, nullptr);
}

TEST_F(MainServiceTest, PreShutdownCallsTheStopOfADerivedService) {
    struct CountingService : OpenService {
        void OnStop() override { ++stops; }
        int stops = 0;
    };
    CountingService service;
    service.OnShutdown();
    EXPECT_EQ(service.stops, 1);
}

TEST_F(MainServiceTest, PreShutdownEndsInStopped) {
    const ReportedStates states;
    OpenService service;
    Rig::RunOnThread([&service] { service.Shutdown(); }, Rig::Apartment::kMultithreadedTwice);
    EXPECT_THAT(states.reports, ElementsAre(ReportedStates::Report{SERVICE_STOPPED, NO_ERROR}));
}

}  // namespace
}  // namespace CoreTests
