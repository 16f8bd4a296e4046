#include <windows.h>

#include <wbemcli.h>

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "bios/bios_settings.h"
#include "radio/wwan_state.h"
#include "tests/core/core_world.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/skip_unless_imported.h"
#include "tests/support/simulated_notebook.h"

namespace CoreTests {
namespace {

using namespace std::chrono_literals;
using Rig::Lines::Error;
using Rig::Lines::Information;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using Rig::Lines::Verbose;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kWorker[] = "CMainService::ServiceWorkerThread";
constexpr wchar_t kEntry[] = L"ServiceWorkerThread - Entry";
constexpr wchar_t kExit[] = L"ServiceWorkerThread - Exit";

constexpr wchar_t kBiosRead[] =
    L"Finished reading Linkvane status from BIOS. Wait for (WLAN AutoConfig) to start";
constexpr wchar_t kWlanWaited[] =
    L"WLAN AutoConfig wait completed and WLAN Device Available. So Listening for WLAN Notifications..";
constexpr wchar_t kAlive[] = L"Network Alive : Return  = 1, Status : 1";
constexpr wchar_t kWlanDisabled[] =
    L"LAN WLAN Auto Switching is disabled in BIOS. Restoring previous WLAN Status.";
constexpr wchar_t kWaitForWwan[] = L"Wait for (WWAN AutoConfig) to start";
constexpr wchar_t kWwanWaited[] =
    L"WWAN AutoConfig wait completed and WWAN Device Available. So Listening for WWAN events..";
constexpr wchar_t kWwanDisabled[] =
    L"LAN WWAN Auto Switching is disabled in BIOS.Restoring previous WWAN Status.";
constexpr wchar_t kNoDevice[] = L"WWAN Device enumeration failed / No supporting WWAN device found ";
constexpr wchar_t kCheckFailed[] = L"CheckEthernetConnectionStatusEx failed";

class StartUpWorkerTest : public CoreTest {
  protected:
    ~StartUpWorkerTest() override {
        // The first decisions switch a radio once.
        EXPECT_THAT(log.Of("ServiceUtils::SwitchWlanStatusWithRetry"), IsEmpty());
        EXPECT_THAT(log.Of("ServiceUtils::SwitchWwanStatusWithRetry"), IsEmpty());
        NLMEventHandler* const handler = service.m_networkEventHandler;
        Stop(service);
        if (handler != nullptr) {
            while (handler->Release() != 0) {
            }
        }
        // The service does not run: the watcher ends at once.
        while (!world.pool.items.empty()) {
            world.pool.RunNext();
        }
    }

    /// As in a running service, which does not run on afterwards.
    void RunWorker(Rig::Apartment apartment = Rig::Apartment::kNone) {
        service.m_running = true;
        Rig::RunOnThread([this] { service.ServiceWorkerThread(); }, apartment);
        service.m_running = false;
    }

    /// Runs the worker; the time on the clock from its first call of one name to that of another.
    [[nodiscard]] std::chrono::milliseconds RunAndMeasure(const std::string& from, const std::string& to) {
        std::chrono::milliseconds start{};
        std::chrono::milliseconds end{-1};
        world.journal.At(from, [&] { start = world.machine.clock.Elapsed(); });
        world.journal.At(to, [&] { end = world.machine.clock.Elapsed(); });
        RunWorker();
        return end - start;
    }
    /// The wait for WLAN, and that for WWAN, up to what follows them.
    [[nodiscard]] std::chrono::milliseconds RunAndMeasureWlanWait() {
        return RunAndMeasure("OpenService WlanSvc", "Find INetworkListManagerEvents");
    }
    [[nodiscard]] std::chrono::milliseconds RunAndMeasureWwanWait() {
        return RunAndMeasure("OpenService WwanSvc", "GetInterfaces");
    }

    void SetWlan(bool isOn) {
        world.wlan.adapters[0].phys[0].software = isOn ? dot11_radio_state_on : dot11_radio_state_off;
    }

    OpenService service;
};

// --- The course of a start -------------------------------------------------------------------------

TEST_F(StartUpWorkerTest, StartWithBothFeaturesDisabledRestoresBothRadios) {
    RunWorker();
    EXPECT_THAT(log.Of(kWorker),
                ElementsAre(TraceIn(kWorker, kEntry), Information(kWorker, kBiosRead),
                            Information(kWorker, kWlanWaited), Information(kWorker, kAlive),
                            Information(kWorker, kWlanDisabled), Information(kWorker, kWaitForWwan),
                            Information(kWorker, kWwanWaited), Information(kWorker, kWwanDisabled),
                            TraceOut(kWorker, kExit)));
}

TEST_F(StartUpWorkerTest, StepsComeInTheirOrder) {
    RunWorker();
    std::vector<std::string> steps = world.journal.Calls();
    // The radio operations have handles of their own, and the BIOS reader looks for its provider.
    std::erase_if(steps, [](const std::string& step) {
        return step == "WlanOpenHandle" || step == "WlanCloseHandle" ||
               step == "CoCreateInstance other class";
    });
    EXPECT_THAT(steps,
                ElementsAre("CoInitializeEx", "CoCreateInstance NetworkListManager", "QueueUserWorkItem",
                            "OpenService WlanSvc",                                                 //
                            "Find INetworkListManagerEvents", "Advise INetworkListManagerEvents",  //
                            "Find INetworkConnectionEvents", "Advise INetworkConnectionEvents",    //
                            "Find INetworkEvents", "Advise INetworkEvents",                        //
                            "WlanRegisterNotification 24", "IsNetworkAlive",
                            "CoCreateInstance MbnInterfaceManager", "OpenService WwanSvc", "GetInterfaces",
                            "Find IMbnRadioEvents", "Advise IMbnRadioEvents", "CoUninitialize"));
}

TEST_F(StartUpWorkerTest, BothSettingsAreReadBetweenTheWatcherAndTheWaitForWlan) {
    const auto operations = [this] {
        std::vector<std::string> found;
        for (const Rig::LogLine& line : log.At(Orva::Shared::Level::kTraceIn)) {
            if (line.function.find("AutoSwitchingEnabled") != std::string::npos ||
                line.function == "Utils::WaitforServiceToStartRunning") {
                found.push_back(line.function);
            }
        }
        return found;
    };
    std::vector<std::string> beforeTheWatcher{"no watcher"};
    world.journal.At("QueueUserWorkItem", [&] { beforeTheWatcher = operations(); });
    RunWorker();
    EXPECT_THAT(beforeTheWatcher, IsEmpty());
    EXPECT_THAT(
        operations(),
        ElementsAre("NLMUtils::IsLanWlanAutoSwitchingEnabled", "NLMUtils::IsLanWwanAutoSwitchingEnabled",
                    "Utils::WaitforServiceToStartRunning", "Utils::WaitforServiceToStartRunning"));
}

TEST_F(StartUpWorkerTest, ManagersAreCreatedInWhateverContextHasThem) {
    RunWorker();
    std::erase_if(world.com.creations,
                  [](const FakeCom::Creation& creation) { return creation.context == CLSCTX_INPROC_SERVER; });
    ASSERT_THAT(world.com.creations, SizeIs(2));
    for (const FakeCom::Creation& creation : world.com.creations) {
        EXPECT_EQ(creation.outer, nullptr);
        EXPECT_EQ(creation.context, 0x17U);
    }
    EXPECT_EQ(world.com.creations[0].classId, CLSID_NetworkListManager);
    EXPECT_EQ(world.com.creations[0].interfaceId, IID_INetworkListManager);
    EXPECT_EQ(world.com.creations[1].classId, CLSID_MbnInterfaceManager);
    EXPECT_EQ(world.com.creations[1].interfaceId, IID_IMbnInterfaceManager);
    EXPECT_EQ(service.m_networkListManager.Get(), &world.listManager);
    EXPECT_EQ(service.m_mbnInterfaceManager.Get(), &world.mbnManager);
}

TEST_F(StartUpWorkerTest, WatcherIsQueuedToRunOnce) {
    RunWorker();
    ASSERT_THAT(world.pool.items, SizeIs(1));
    EXPECT_EQ(world.pool.items.front().flags, ULONG{WT_EXECUTEONLYONCE});
    EXPECT_THAT(log.Of("CMainService::AirplaneModeWatcher"), IsEmpty());
    EXPECT_EQ(world.pool.RunNext(), 0U);
    EXPECT_TRUE(log.Contains(TraceIn("CMainService::AirplaneModeWatcher", L"AirplaneModeWatcher - Entry")));
}

TEST_F(StartUpWorkerTest, CablesOfTheStartJoinTheWiredConnections) {
    NetworkTests::FakeConnection cable{NetworkTests::ConnectionGuid(1), NetworkTests::AdapterGuid(1)};
    NetworkTests::FakeConnection wifi{NetworkTests::ConnectionGuid(2), NetworkTests::AdapterGuid(2)};
    world.listManager.connections = {&cable, &wifi};
    world.adapterAddresses.Set({{NetworkTests::AdapterName(1), NetworkTests::kEthernet},
                                {NetworkTests::AdapterName(2), NetworkTests::kWifi}});
    RunWorker();
    EXPECT_THAT(*service.m_wiredConnections, ElementsAre(NetworkTests::ConnectionText(1)));
}

TEST_F(StartUpWorkerTest, DeadNetworkIsOnlyLogged) {
    world.networkIsAlive = FALSE;
    RunWorker();
    EXPECT_TRUE(log.Contains(Information(kWorker, L"Network Alive : Return  = 0, Status : 1")));
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
}

TEST_F(StartUpWorkerTest, FindsTheModemAndPublishesItsManager) {
    RunWorker();
    EXPECT_TRUE(WwanState::devicePresent);
    EXPECT_EQ(WwanState::interfaceManager.load().get(), &world.mbnManager);
    // One of the service, one of the holder.
    EXPECT_EQ(world.mbnManager.References(), 2);
}

TEST_F(StartUpWorkerTest, PublishedManagerReplacesTheOneBefore) {
    RadioTests::FakeManager older{world.modems};
    RadioTests::Publish(older);
    RunWorker();
    EXPECT_EQ(older.References(), 0);
    EXPECT_EQ(WwanState::interfaceManager.load().get(), &world.mbnManager);
}

TEST_F(StartUpWorkerTest, ManagerThatIsPublishedAlreadyGetsNoSecondReference) {
    RadioTests::Publish(world.mbnManager);
    RunWorker();
    EXPECT_EQ(world.mbnManager.References(), 2);
}

TEST_F(StartUpWorkerTest, PublishedManagerOutlivesTheStop) {
    RunWorker();
    NLMEventHandler* const handler = service.m_networkEventHandler;
    Stop(service);
    EXPECT_EQ(world.mbnManager.References(), 1);
    while (handler->Release() != 0) {
    }
}

TEST_F(StartUpWorkerTest, StopBeforeThePublishingEmptiesTheHolderAndEndsTheWorker) {
    RadioTests::FakeManager older{world.modems};
    RadioTests::Publish(older);
    world.journal.At("OpenService WwanSvc", [this] {
        NLMEventHandler* const handler = service.m_networkEventHandler;
        Stop(service);
        while (handler->Release() != 0) {
        }
    });
    RunWorker();
    EXPECT_EQ(older.References(), 0);
    EXPECT_EQ(WwanState::interfaceManager.load(), nullptr);
    EXPECT_FALSE(WwanState::devicePresent);
    EXPECT_EQ(log.Of(kWorker).back(), Error(kWorker, kNoDevice));
    EXPECT_EQ(world.journal.Count("GetInterfaces"), 0);
    WwanState::interfaceManager.store(nullptr);  // the older one ends here, whoever still holds it
}

// --- COM -------------------------------------------------------------------------------------------

TEST_F(StartUpWorkerTest, LeavesComThatItEntered) {
    RunWorker();
    EXPECT_EQ(world.com.entries, 1);
    EXPECT_EQ(world.com.exits, 1);
    EXPECT_EQ(world.journal.Calls().back(), "CoUninitialize");
}

TEST_F(StartUpWorkerTest, LeavesComBeforeItsExitLine) {
    bool hadLine = true;
    world.journal.At("CoUninitialize", [&] { hadLine = log.Contains(TraceOut(kWorker, kExit)); });
    RunWorker();
    EXPECT_FALSE(hadLine);
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
}

TEST_F(StartUpWorkerTest, LeavesComThatTheThreadHadEnteredBefore) {
    RunWorker(Rig::Apartment::kMultithreaded);
    // The thread's own and the worker's, of which CoInitializeEx said S_FALSE.
    EXPECT_EQ(world.com.entries, 2);
    EXPECT_EQ(world.com.exits, 2);
}

TEST_F(StartUpWorkerTest, KeepsAnotherApartmentOfItsThreadAndGoesOn) {
    RunWorker(Rig::Apartment::kSingleThreaded);
    EXPECT_EQ(world.com.entries, 0);
    EXPECT_TRUE(log.Contains(Information(kWorker, kWwanDisabled)));
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
    // The three reads of BIOS settings, which enter such an apartment for themselves, and the
    // thread's own.
    EXPECT_EQ(world.com.exits, 4);
}

TEST_F(StartUpWorkerTest, WithoutComEndsAtOnceAndWithoutAnExitLine) {
    world.com.entryResult = E_OUTOFMEMORY;
    RunWorker();
    EXPECT_THAT(log.Of(kWorker), ElementsAre(TraceIn(kWorker, kEntry),
                                             Error(kWorker, L"CoInitialize failed with error: 0x8007000E")));
    EXPECT_THAT(world.journal.Calls(), ElementsAre("CoInitializeEx"));
    EXPECT_EQ(service.m_networkListManager, nullptr);
    world.com.entryResult.reset();
}

TEST_F(StartUpWorkerTest, WithoutNetworkListManagerEndsAtOnceAndWithoutAnExitLine) {
    world.com.creators.erase("NetworkListManager");
    RunWorker();
    EXPECT_THAT(log.Of(kWorker),
                ElementsAre(TraceIn(kWorker, kEntry),
                            Error(kWorker,
                                  L"CoCreateInstance(CLSID_NetworkListManager) failed with error: "
                                  L"0x80040154")));
    EXPECT_THAT(world.journal.Calls(), ElementsAre("CoInitializeEx", "CoCreateInstance NetworkListManager"));
    EXPECT_EQ(world.com.exits, 0);
}

TEST_F(StartUpWorkerTest, WithoutMobileBroadbandManagerEndsAfterTheWlanHalf) {
    world.com.creators.erase("MbnInterfaceManager");
    RunWorker();
    EXPECT_THAT(world.LinesOf(kWorker),
                ElementsAre(Information(kWorker, kBiosRead), Information(kWorker, kWlanWaited),
                            Information(kWorker, kAlive), Information(kWorker, kWlanDisabled),
                            Error(kWorker,
                                  L"CoCreateInstance(CLSID_MbnInterfaceManager) failed with error: "
                                  L"0x80040154")));
    EXPECT_FALSE(log.Contains(TraceOut(kWorker, kExit)));
    EXPECT_EQ(world.com.exits, 0);
    EXPECT_EQ(world.journal.Count("OpenService WwanSvc"), 0);
}

TEST_F(StartUpWorkerTest, WithoutModemEndsBeforeTheSubscriptionAndWithoutAnExitLine) {
    world.modems.clear();
    RunWorker();
    EXPECT_THAT(world.LinesOf(kWorker),
                ElementsAre(Information(kWorker, kBiosRead), Information(kWorker, kWlanWaited),
                            Information(kWorker, kAlive), Information(kWorker, kWlanDisabled),
                            Information(kWorker, kWaitForWwan), Error(kWorker, kNoDevice)));
    EXPECT_FALSE(log.Contains(TraceOut(kWorker, kExit)));
    EXPECT_FALSE(WwanState::devicePresent);
    EXPECT_EQ(service.m_mbnSinks, nullptr);
    EXPECT_EQ(world.com.exits, 0);
}

TEST_F(StartUpWorkerTest, ModemOfAnEarlierStartIsForgottenWhenItIsGone) {
    WwanState::devicePresent = true;
    world.modems.clear();
    RunWorker();
    EXPECT_FALSE(WwanState::devicePresent);
}

// --- Services that are late or absent --------------------------------------------------------------

constexpr char kWait[] = "Utils::WaitforServiceToStartRunning";

TEST_F(StartUpWorkerTest, ServicesThatRunCostNoTime) {
    EXPECT_EQ(RunAndMeasureWlanWait(), 0s);
    EXPECT_THAT(world.LinesOf(kWait), IsEmpty());
}

TEST_F(StartUpWorkerTest, AbsentWlanServiceCostsASecondAndALine) {
    world.services.states[L"WlanSvc"] = FakeServices::State::kAbsent;
    EXPECT_EQ(RunAndMeasureWlanWait(), 1s);
    EXPECT_THAT(world.LinesOf(kWorker),
                ElementsAre(Information(kWorker, kBiosRead),
                            Error(kWorker,
                                  L"WaitforServiceToStartRunning (WLAN AutoConfig) failed with running "
                                  L"status = -1"),
                            Information(kWorker, kWlanWaited), Information(kWorker, kAlive),
                            Information(kWorker, kWlanDisabled), Information(kWorker, kWaitForWwan),
                            Information(kWorker, kWwanWaited), Information(kWorker, kWwanDisabled)));
    EXPECT_THAT(world.LinesOf(kWait),
                ElementsAre(Verbose(kWait, L"WlanSvc service Running Status = -1, try 0")));
    EXPECT_EQ(world.journal.Count("OpenService WlanSvc"), 1);
    EXPECT_EQ(world.journal.Count("Advise INetworkConnectionEvents"), 1);
    EXPECT_EQ(world.journal.Count("WlanRegisterNotification 24"), 1);
}

TEST_F(StartUpWorkerTest, WlanServiceThatNeverRunsIsPolledFifteenTimesInFifteenSeconds) {
    world.services.states[L"WlanSvc"] = FakeServices::State::kStarting;
    EXPECT_EQ(RunAndMeasureWlanWait(), 15s);
    EXPECT_TRUE(log.Contains(
        Error(kWorker, L"WaitforServiceToStartRunning (WLAN AutoConfig) failed with running status = 1")));
    EXPECT_EQ(world.journal.Count("OpenService WlanSvc"), 15);
    EXPECT_THAT(world.LinesOf(kWait), SizeIs(15));
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
}

TEST_F(StartUpWorkerTest, AbsentWwanServiceCostsASecondAndALine) {
    world.services.states[L"WwanSvc"] = FakeServices::State::kAbsent;
    EXPECT_EQ(RunAndMeasureWwanWait(), 1s);
    EXPECT_THAT(world.LinesOf(kWorker),
                ElementsAre(Information(kWorker, kBiosRead), Information(kWorker, kWlanWaited),
                            Information(kWorker, kAlive), Information(kWorker, kWlanDisabled),
                            Information(kWorker, kWaitForWwan),
                            Error(kWorker,
                                  L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running "
                                  L"status = -1"),
                            Information(kWorker, kWwanWaited), Information(kWorker, kWwanDisabled)));
    EXPECT_THAT(world.LinesOf(kWait),
                ElementsAre(Verbose(kWait, L"WwanSvc service Running Status = -1, try 0")));
    EXPECT_EQ(world.journal.Count("OpenService WwanSvc"), 1);
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
}

TEST_F(StartUpWorkerTest, WwanServiceThatNeverRunsIsPolledFifteenTimesInFifteenSeconds) {
    world.services.states[L"WwanSvc"] = FakeServices::State::kStarting;
    EXPECT_EQ(RunAndMeasureWwanWait(), 15s);
    EXPECT_TRUE(log.Contains(
        Error(kWorker, L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running status = 1")));
    EXPECT_EQ(world.journal.Count("OpenService WwanSvc"), 15);
    EXPECT_THAT(world.LinesOf(kWait), SizeIs(15));
}

// --- Subscriptions that fail -----------------------------------------------------------------------

TEST_F(StartUpWorkerTest, GoesOnWithoutNetworkEvents) {
    world.listManager.containerResult = E_NOINTERFACE;
    RunWorker();
    EXPECT_THAT(log.Of("CMainService::ListenForWlanEvents"), SizeIs(3));
    EXPECT_EQ(world.journal.Count("WlanRegisterNotification 24"), 1);
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
}

TEST_F(StartUpWorkerTest, GoesOnWithoutWlanNotifications) {
    world.notifications.result = ERROR_ACCESS_DENIED;
    RunWorker();
    EXPECT_THAT(world.LinesOf(kWorker),
                ElementsAre(Information(kWorker, kBiosRead), Information(kWorker, kWlanWaited),
                            Error(kWorker, L"RegisterWlanNotification (register) failed"),
                            Information(kWorker, kAlive), Information(kWorker, kWlanDisabled),
                            Information(kWorker, kWaitForWwan), Information(kWorker, kWwanWaited),
                            Information(kWorker, kWwanDisabled)));
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
}

TEST_F(StartUpWorkerTest, GoesOnWithoutWlanHandle) {
    world.wlan.Fail(RadioTests::WlanCall::kOpen, 1, ERROR_SERVICE_NOT_ACTIVE);
    RunWorker();
    EXPECT_TRUE(log.Contains(Error(kWorker, L"RegisterWlanNotification (register) failed")));
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
}

TEST_F(StartUpWorkerTest, GoesOnWithoutRadioEvents) {
    world.mbnManager.containerResult = E_NOINTERFACE;
    RunWorker();
    EXPECT_TRUE(log.Contains(Information(kWorker, kWwanDisabled)));
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
}

// --- First decisions -------------------------------------------------------------------------------

TEST_F(StartUpWorkerTest, EnabledWithCableSwitchesBothRadiosOffOnceAndStoresNothing) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.machine.PlugCableIn();
    RunWorker();
    EXPECT_THAT(
        world.LinesOf(kWorker),
        ElementsAre(
            Information(kWorker, kBiosRead), Information(kWorker, kWlanWaited), Information(kWorker, kAlive),
            Information(kWorker, L"Checking Ethernet connection status..."),
            Information(kWorker, L"LAN connection available when service start. Stopping WLAN service..."),
            Information(kWorker, kWaitForWwan), Information(kWorker, kWwanWaited),
            Information(kWorker, L"LAN connection available when service start. Stopping WWAN service...")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_OFF));
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWlanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 1")));
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWwanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 1")));
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
    EXPECT_EQ(world.machine.RememberedWwan(), L"");
}

TEST_F(StartUpWorkerTest, EnabledWithoutCableRestoresBothRadios) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    RunWorker();
    EXPECT_THAT(
        world.LinesOf(kWorker),
        ElementsAre(
            Information(kWorker, kBiosRead), Information(kWorker, kWlanWaited), Information(kWorker, kAlive),
            Information(kWorker, L"Checking Ethernet connection status..."),
            Information(kWorker, kWaitForWwan), Information(kWorker, kWwanWaited),
            Information(kWorker,
                        L"LAN connection not available when service start. starting WWAN service...")));
    EXPECT_THAT(log.Of("CMainService::UpdateWlanPowerStatus"), SizeIs(4));
    EXPECT_THAT(log.Of("CMainService::UpdateWwanPowerStatus"), SizeIs(4));
}

TEST_F(StartUpWorkerTest, UnreadableAdaptersLeaveBothRadiosAndTheWorkerGoesOn) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.machine.HideAdapters();
    RunWorker();
    EXPECT_THAT(world.LinesOf(kWorker),
                ElementsAre(Information(kWorker, kBiosRead), Information(kWorker, kWlanWaited),
                            Information(kWorker, kAlive),
                            Information(kWorker, L"Checking Ethernet connection status..."),
                            Error(kWorker, kCheckFailed), Information(kWorker, kWaitForWwan),
                            Information(kWorker, kWwanWaited), Error(kWorker, kCheckFailed)));
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), IsEmpty());
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
}

TEST_F(StartUpWorkerTest, FailedSwitchesChangeNothingElse) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.machine.PlugCableIn();
    world.wlan.adapters[0].phys[0] = RadioTests::Refusing(RadioTests::On());
    world.MakeWwanStubborn();
    RunWorker();
    EXPECT_TRUE(log.Contains(TraceOut(kWorker, kExit)));
    EXPECT_THAT(world.LinesOf(kWorker), SizeIs(8));
}

enum class Cable { kOut, kIn, kUnreadable };

/// What the first decision depends on.
struct Situation {
    bool enabled;
    Cable cable;
    const wchar_t* remembered;  ///< null: nothing is
};

class FirstDecision : public StartUpWorkerTest,
                      public testing::WithParamInterface<std::tuple<bool, Cable, const wchar_t*>> {
  protected:
    [[nodiscard]] static Situation Now() {
        const auto [enabled, cable, remembered] = GetParam();
        return {enabled, cable, remembered};
    }

    void Arrange() {
        switch (Now().cable) {
            case Cable::kIn:
                world.machine.PlugCableIn();
                break;
            case Cable::kUnreadable:
                world.machine.HideAdapters();
                break;
            case Cable::kOut:
                break;
        }
    }

    /// What the rules want the radio to be; empty when it is left alone.
    [[nodiscard]] static std::optional<bool> Wanted() {
        const Situation now = Now();
        if (now.enabled && now.cable == Cable::kUnreadable) {
            return std::nullopt;
        }
        if (now.enabled && now.cable == Cable::kIn) {
            return false;
        }
        return now.remembered == nullptr || std::wstring(now.remembered) == L"True";
    }
};

TEST_P(FirstDecision, BringsWlanToWhatIsWantedFromEitherState) {
    Arrange();
    NLMUtils::lanWlanSwitchingEnabled = Now().enabled;
    if (Now().remembered != nullptr) {
        world.machine.RememberWlan(Now().remembered);
    }
    const std::wstring rememberedBefore = world.machine.RememberedWlan();
    for (const bool isOnBefore : {false, true}) {
        SetWlan(isOnBefore);
        world.wlan.ForgetCalls();
        RunWorker();
        EXPECT_EQ(world.wlan.IsOn(), Wanted().value_or(isOnBefore));
        EXPECT_THAT(world.WlanSwitches(), SizeIs(Wanted().value_or(isOnBefore) == isOnBefore ? 0 : 1));
        EXPECT_EQ(world.machine.RememberedWlan(), rememberedBefore);
        world.pool.RunNext();
        NLMEventHandler* const handler = service.m_networkEventHandler;
        Stop(service);
        while (handler->Release() != 0) {
        }
    }
}

TEST_P(FirstDecision, BringsWwanToWhatIsWantedFromEitherState) {
    Arrange();
    NLMUtils::lanWwanSwitchingEnabled = Now().enabled;
    if (Now().remembered != nullptr) {
        world.machine.RememberWwan(Now().remembered);
    }
    const std::wstring rememberedBefore = world.machine.RememberedWwan();
    for (const bool isOnBefore : {false, true}) {
        world.wwanRadio.state = isOnBefore ? MBN_RADIO_ON : MBN_RADIO_OFF;
        world.wwanRadio.sets.clear();
        RunWorker();
        EXPECT_EQ(world.wwanRadio.state == MBN_RADIO_ON, Wanted().value_or(isOnBefore));
        EXPECT_THAT(world.WwanSwitches(), SizeIs(Wanted().value_or(isOnBefore) == isOnBefore ? 0 : 1));
        EXPECT_EQ(world.machine.RememberedWwan(), rememberedBefore);
        world.pool.RunNext();
        NLMEventHandler* const handler = service.m_networkEventHandler;
        Stop(service);
        while (handler->Release() != 0) {
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Situations, FirstDecision,
                         testing::Combine(testing::Bool(),
                                          testing::Values(Cable::kOut, Cable::kIn, Cable::kUnreadable),
                                          testing::Values(nullptr, L"True", L"False", L"true", L"1")));

TEST_F(StartUpWorkerTest, NothingIsSwitchedOnInAirplaneMode) {
    world.machine.SetAirplaneMode(true);
    SetWlan(false);
    world.wwanRadio.state = MBN_RADIO_OFF;
    RunWorker();
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), IsEmpty());
}

// --- The BIOS's settings ---------------------------------------------------------------------------

constexpr wchar_t kWlanSetting[] = L"LAN / WLAN Auto Switching";
constexpr wchar_t kOlderWlanSetting[] = L"LAN/WLAN Switching";
constexpr wchar_t kWwanSetting[] = L"LAN / WWAN Auto Switching";

class BiosAtStartTest : public StartUpWorkerTest {
  protected:
    BiosAtStartTest() {
        world.com.creators["other class"] = [this](REFIID interfaceId, void** object) {
            return bios.CreateObject(CLSID_WbemLocator, interfaceId, object);
        };
        bios.RemoveSettings();
        world.machine.PlugCableIn();
    }

    Rig::SimulatedNotebook bios{world.machine.clock, {}, Rig::SimulatedNotebook::Imports::kKept};
};

TEST_F(BiosAtStartTest, EnabledSettingsDecideThisVeryStart) {
    bios.SetSetting(kWlanSetting, L"Enable");
    bios.SetSetting(kWwanSetting, L"Enable");
    RunWorker();
    EXPECT_TRUE(NLMUtils::lanWlanSwitchingEnabled);
    EXPECT_TRUE(NLMUtils::lanWwanSwitchingEnabled);
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_OFF));
    EXPECT_THAT(bios.Calls(Rig::Call::WbemExecQuery),
                ElementsAre(testing::HasSubstr("LAN / WLAN Auto Switching"),
                            testing::HasSubstr("LAN / WWAN Auto Switching")));
}

TEST_F(BiosAtStartTest, OlderNameOfTheSettingEnablesToo) {
    bios.SetSetting(kOlderWlanSetting, L"Enable");
    RunWorker();
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_TRUE(log.Contains(Information(kWorker, kWwanDisabled)));
}

TEST_F(BiosAtStartTest, DisabledSettingsRestoreBothRadiosBesideTheCable) {
    bios.SetSetting(kWlanSetting, L"*Disable");
    bios.SetSetting(kOlderWlanSetting, L"Enable");
    bios.SetSetting(kWwanSetting, L"*Disable");
    SetWlan(false);
    world.wwanRadio.state = MBN_RADIO_OFF;
    RunWorker();
    EXPECT_TRUE(log.Contains(Information(kWorker, kWlanDisabled)));
    EXPECT_TRUE(log.Contains(Information(kWorker, kWwanDisabled)));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_ON));
}

TEST_F(BiosAtStartTest, OneHalfIsDecidedWithoutTheOther) {
    bios.SetSetting(kWwanSetting, L"Enable");
    RunWorker();
    EXPECT_TRUE(log.Contains(Information(kWorker, kWlanDisabled)));
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_OFF));
}

// --- Exceptions ------------------------------------------------------------------------------------

class ThrowingCall : public StartUpWorkerTest, public testing::WithParamInterface<const char*> {};

TEST_P(ThrowingCall, IsLoggedAndEndsTheWorkerWithItsExitLine) {
    world.journal.At(GetParam(), [] { throw std::runtime_error("out of luck"); });
    RunWorker();
    const std::vector<Rig::LogLine> lines = log.Of(kWorker);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[lines.size() - 2], Error(kWorker, L"Exception in ServiceWorkerThread. out of luck"));
    EXPECT_EQ(lines.back(), TraceOut(kWorker, kExit));
    EXPECT_EQ(world.com.exits, 0);
    // Nothing follows but that what the call was made with is given back.
    std::vector<std::string> calls = world.journal.Calls();
    std::erase(calls, "WlanCloseHandle");
    EXPECT_EQ(calls.back(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Calls, ThrowingCall,
                         testing::Values("CoInitializeEx", "CoCreateInstance NetworkListManager",
                                         "QueueUserWorkItem", "OpenService WlanSvc", "WlanOpenHandle",
                                         "WlanRegisterNotification 24", "IsNetworkAlive",
                                         "CoCreateInstance MbnInterfaceManager", "OpenService WwanSvc"));

TEST_F(StartUpWorkerTest, ThrowingModemListIsAMissingModem) {
    world.journal.At("GetInterfaces", [] { throw std::runtime_error("out of luck"); });
    RunWorker();
    EXPECT_EQ(log.Of(kWorker).back(), Error(kWorker, kNoDevice));
}

TEST_F(StartUpWorkerTest, WatcherThatCannotBeQueuedEndsTheWorkerWithTheSystemError) {
    world.pool.error = ERROR_NOT_ENOUGH_QUOTA;
    DWORD thrown = NO_ERROR;
    try {
        RunWorker();
    } catch (DWORD error) {
        thrown = error;
    }
    EXPECT_EQ(thrown, DWORD{ERROR_NOT_ENOUGH_QUOTA});
    EXPECT_THAT(log.Of(kWorker), ElementsAre(TraceIn(kWorker, kEntry)));
    EXPECT_EQ(world.com.exits, 0);
}

TEST_F(StartUpWorkerTest, ErrorValueLeavesThePoolsCallbackUncaught) {
    service.OnStart(0, nullptr);
    service.m_running = false;
    world.pool.error = ERROR_NOT_ENOUGH_QUOTA;
    EXPECT_THROW(Rig::RunOnThread([this] { world.pool.RunNext(); }, Rig::Apartment::kNone), DWORD);
}

TEST_F(StartUpWorkerTest, WhatIsNoStandardExceptionIsNotCaught) {
    world.journal.At("IsNetworkAlive", [] { throw 42; });
    EXPECT_THROW(RunWorker(), int);
    EXPECT_FALSE(log.Contains(TraceOut(kWorker, kExit)));
    EXPECT_THAT(log.At(Orva::Shared::Level::kError),
                Each(testing::Field(&Rig::LogLine::function, testing::Ne(kWorker))));
}

// --- A stop that comes in between ------------------------------------------------------------------

/// Every call that a start makes.
std::vector<std::string> CallsOfAStart() {
    World world;
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    OpenService service;
    service.m_running = true;
    Rig::RunOnThread([&service] { service.ServiceWorkerThread(); }, Rig::Apartment::kNone);
    std::vector<std::string> calls = world.journal.Calls();
    NLMEventHandler* const handler = service.m_networkEventHandler;
    Stop(service);
    while (handler->Release() != 0) {
    }
    world.pool.RunNext();
    return calls;
}

TEST(StopDuringStart, IsSurvivedAtEveryStep) {
    for (const std::string& call : CallsOfAStart()) {
        for (const bool isCableIn : {false, true}) {
            SCOPED_TRACE(call);
            World world;
            world.EnableWlanSwitching();
            world.EnableWwanSwitching();
            if (isCableIn) {
                world.machine.PlugCableIn();
            }
            {
                OpenService service;
                service.OnStart(0, nullptr);
                world.journal.At(call, [&service] { Stop(service); });
                Rig::RunOnThread([&world] { world.pool.RunNext(); }, Rig::Apartment::kNone);
                EXPECT_FALSE(service.m_running);
                EXPECT_EQ(world.wlan.Held(), 0U);
                while (!world.pool.items.empty()) {
                    world.pool.RunNext();
                }
                // What was subscribed after the stop still works.
                for (FakeConnectionPoint* const point :
                     {&world.listManagerEvents, &world.connectionEvents, &world.networkEvents}) {
                    if (point->Sink() != nullptr) {
                        point->Sink()->AddRef();
                        point->Sink()->Release();
                    }
                }
                Stop(service);
                EXPECT_EQ(service.m_networkEventHandler, nullptr);
                EXPECT_EQ(service.m_mbnSinks, nullptr);
                EXPECT_EQ(world.wlan.Held(), 0U);
            }
            // Kept for the events of subscriptions that came after the stop.
            if (world.listManager.References() == 1) {
                world.listManager.Release();
            }
        }
    }
}

/// A start in which the service stops when the worker is about to take its n-th reference to one of the
/// managers. False when it takes fewer.
bool StartAndStopAtReference(int nth, bool toMbnManager) {
    SCOPED_TRACE(nth);
    World world;
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    bool hasStopped = false;
    {
        OpenService service;
        service.m_running = true;
        std::function<void()>& atAddRef =
            toMbnManager ? world.mbnManager.atAddRef : world.listManager.atAddRef;
        atAddRef = [&, left = nth]() mutable {
            if (--left == 0) {
                hasStopped = true;
                Stop(service);
            }
        };
        Rig::RunOnThread([&service] { service.ServiceWorkerThread(); }, Rig::Apartment::kNone);
        atAddRef = nullptr;
        Stop(service);
        while (!world.pool.items.empty()) {
            world.pool.RunNext();
        }
        EXPECT_EQ(world.wlan.Held(), 0U);
    }
    // Kept for the events of subscriptions that came after the stop.
    if (world.listManager.References() == 1) {
        world.listManager.Release();
    }
    return hasStopped;
}

class StopAtAReference : public testing::TestWithParam<bool> {};

TEST_P(StopAtAReference, LeavesTheWorkerAReferenceOfItsOwn) {
    int references = 0;
    while (StartAndStopAtReference(references + 1, GetParam())) {
        ++references;
    }
    EXPECT_GE(references, 2);
}

INSTANTIATE_TEST_SUITE_P(Managers, StopAtAReference, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& parameter) {
                             return parameter.param ? "MobileBroadband" : "NetworkList";
                         });

// --- An end of the service that comes in between ---------------------------------------------------

/// A start with a cable in, in the middle of which the service stops and is destroyed, as at the
/// end of the process: the worker still finds the place that the service had.
class EndDuringStart : public CoreTest {
  protected:
    EndDuringStart() {
        world.EnableWlanSwitching();
        world.EnableWwanSwitching();
        world.machine.PlugCableIn();
        world.listManager.connections = {&m_cable};
        world.adapterAddresses.Set({{NetworkTests::AdapterName(1), NetworkTests::kEthernet}});
    }
    void SetUp() override { SKIP_UNLESS_IMPORTED(free); }
    ~EndDuringStart() override {
        // What the worker opened and subscribed after the end would go with the process.
        Rig::RunOnThread([this] { m_service->OpenService::OnStop(); }, Rig::Apartment::kMultithreadedTwice);
        EXPECT_EQ(world.wlan.Held(), 0U);
        if (world.listManager.References() == 1) {
            world.listManager.Release();
        }
    }

    void StartAndEndAt(const std::string& call) {
        m_service->OnStart(0, nullptr);
        bool hasEnded = false;
        world.journal.At(call, [&] {
            Stop(*m_service);
            std::destroy_at(m_service);
            hasEnded = true;
        });
        Rig::RunOnThread([this] { world.pool.RunNext(); }, Rig::Apartment::kNone);
        while (!world.pool.items.empty()) {
            world.pool.RunNext();
        }
        EXPECT_TRUE(hasEnded);
        EXPECT_EQ(m_freed->Calls(), 0);
    }

    [[nodiscard]] const WiredConnections& Wired() const { return *m_wired; }

  private:
    NetworkTests::FakeConnection m_cable{NetworkTests::ConnectionGuid(1), NetworkTests::AdapterGuid(1)};
    alignas(OpenService) std::array<std::byte, sizeof(OpenService)> m_place{};
    OpenService* const m_service = ::new (m_place.data()) OpenService;
    WiredConnections* const m_wired = m_service->m_wiredConnections;
    std::unique_ptr<Rig::ScopedImport<& ::free>> m_freed =
        Rig::ReplaceIfImported<&::free>([this](void* block) { return block == m_wired; }, [](void*) {});
};

TEST_F(EndDuringStart, WorkerThatStillSubscribesFillsTheSetThatWasThere) {
    StartAndEndAt("CoCreateInstance NetworkListManager");
    EXPECT_EQ(world.journal.Count("Advise INetworkConnectionEvents"), 1);
    EXPECT_THAT(Wired(), ElementsAre(NetworkTests::ConnectionText(1)));
}

TEST_F(EndDuringStart, WorkerThatWaitedForWlanFillsTheSetWithTheManagerThatItHolds) {
    StartAndEndAt("OpenService WlanSvc");
    EXPECT_EQ(world.journal.Count("Advise INetworkConnectionEvents"), 0);
    EXPECT_THAT(Wired(), ElementsAre(NetworkTests::ConnectionText(1)));
}

TEST_F(EndDuringStart, WorkerThatSubscribedLeavesTheSetFilled) {
    StartAndEndAt("IsNetworkAlive");
    EXPECT_THAT(Wired(), ElementsAre(NetworkTests::ConnectionText(1)));
}

}  // namespace
}  // namespace CoreTests
