#include "core/start_up_worker.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <ostream>
#include <set>
#include <stdexcept>
#include <tuple>

#include "bios/bios_settings.h"
#include "core/airplane_mode_watcher.h"
#include "notebook/state/text.h"
#include "radio/wwan_state.h"
#include "tests/core/core_test.h"
#include "tests/support/skip_unless_imported.h"

namespace CoreTests {
namespace {

using namespace std::chrono_literals;
using Rig::LogLine;
using Rig::Lines::Error;
using Rig::Lines::Information;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using Rig::Lines::Verbose;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kWorker[] = "CMainService::ServiceWorkerThread";

/// The call of a name, or of a row's text that begins with it.
Call CallOf(const std::string& text) {
    const std::string name = text.substr(0, text.find(' '));
    std::size_t i = 0;
    while (i < ::Notebook::kCallCount && ::Notebook::CallName(static_cast<Call>(i)) != name) {
        ++i;
    }
    return static_cast<Call>(i);
}

const LogLine kEntry = TraceIn(kWorker, L"ServiceWorkerThread - Entry");
const LogLine kExit = TraceOut(kWorker, L"ServiceWorkerThread - Exit");
const LogLine kBiosRead =
    Information(kWorker, L"Finished reading Linkvane status from BIOS. Wait for (WLAN AutoConfig) to start");
const LogLine kWlanWaited = Information(
    kWorker,
    L"WLAN AutoConfig wait completed and WLAN Device Available. So Listening for WLAN Notifications..");
const LogLine kAlive = Information(kWorker, L"Network Alive : Return  = 1, Status : 1");
const LogLine kNotAlive = Information(kWorker, L"Network Alive : Return  = 0, Status : 0");
const LogLine kWlanDisabled =
    Information(kWorker, L"LAN WLAN Auto Switching is disabled in BIOS. Restoring previous WLAN Status.");
const LogLine kChecking = Information(kWorker, L"Checking Ethernet connection status...");
const LogLine kWlanCable =
    Information(kWorker, L"LAN connection available when service start. Stopping WLAN service...");
const LogLine kWaitForWwan = Information(kWorker, L"Wait for (WWAN AutoConfig) to start");
const LogLine kWwanWaited = Information(
    kWorker, L"WWAN AutoConfig wait completed and WWAN Device Available. So Listening for WWAN events..");
const LogLine kWwanDisabled =
    Information(kWorker, L"LAN WWAN Auto Switching is disabled in BIOS.Restoring previous WWAN Status.");
const LogLine kWwanCable =
    Information(kWorker, L"LAN connection available when service start. Stopping WWAN service...");
const LogLine kWwanNoCable =
    Information(kWorker, L"LAN connection not available when service start. starting WWAN service...");
const LogLine kNoDevice =
    Error(kWorker, L"WWAN Device enumeration failed / No supporting WWAN device found ");
const LogLine kCheckFailed = Error(kWorker, L"CheckEthernetConnectionStatusEx failed");
const LogLine kNotRegistered = Error(kWorker, L"RegisterWlanNotification (register) failed");

class StartUpWorkerTest : public CoreTest {
  protected:
    ~StartUpWorkerTest() override {
        // The first decisions switch a radio once.
        EXPECT_THAT(log.Of("ServiceUtils::SwitchWlanStatusWithRetry"), IsEmpty());
        EXPECT_THAT(log.Of("ServiceUtils::SwitchWwanStatusWithRetry"), IsEmpty());
        com.entryResult.reset();
        EndService();
    }

    /// As in a running service, which does not run on afterwards.
    void RunWorker(Rig::Apartment threadIsIn = Rig::Apartment::kNone) {
        state.running = true;
        Rig::RunOnThread([this] { ServiceWorkerThread(state); }, threadIsIn);
        state.running = false;
    }
    void EndService() {
        Stop(service);
        // The service does not run: the watcher ends at once.
        pool.RunAll();
    }

    ComVisits com;
    OpenService service;
    ServiceState& state = service.m_state;
};

// --- The course of a start -------------------------------------------------------------------------

TEST_F(StartUpWorkerTest, StepsComeInTheirOrder) {
    RunWorker();
    EXPECT_THAT(log.Of(kWorker), ElementsAre(kEntry, kBiosRead, kWlanWaited, kNotAlive, kWlanDisabled,
                                             kWaitForWwan, kWwanWaited, kWwanDisabled, kExit));
    // The radio operations and the readers of settings and adapters have calls of their own.
    std::vector<std::string> steps = notebook.Calls();
    std::erase_if(steps, [](const std::string& step) {
        const auto begins = [&step](const char* with) { return step.starts_with(with); };
        return std::ranges::none_of(
            std::array{"Co", "NetworkListManager::", "Queue", "OpenServiceW", "FindConnectionPoint", "Advise",
                       "WlanRegister", "INetworkListManager::", "IsNetworkAlive",
                       "MbnInterfaceManager::", "IMbnInterfaceManager::GetInterfaces"},
            begins);
    });
    EXPECT_THAT(
        steps,
        ElementsAre("CoInitializeEx", "NetworkListManager::Create", "QueueUserWorkItem",
                    "OpenServiceW WlanSvc 0xf01ff",  //
                    "FindConnectionPoint INetworkListManagerEvents", "Advise INetworkListManagerEvents",
                    "FindConnectionPoint INetworkConnectionEvents",
                    "Advise INetworkConnectionEvents",  //
                    "FindConnectionPoint INetworkEvents", "Advise INetworkEvents",
                    "WlanRegisterNotification sources 0x18, ignore duplicates 0",
                    "INetworkListManager::GetNetworkConnections",
                    "IsNetworkAlive",  //
                    "MbnInterfaceManager::Create", "OpenServiceW WwanSvc 0xf01ff",
                    "IMbnInterfaceManager::GetInterfaces",  //
                    "FindConnectionPoint IMbnRadioEvents", "Advise IMbnRadioEvents", "CoUninitialize"));
}

TEST_F(StartUpWorkerTest, BothSettingsAreReadBetweenTheWatcherAndTheWaitForWlan) {
    const auto operations = [this] {
        std::vector<std::string> found;
        for (const LogLine& line : log.At(Orva::Shared::Level::kTraceIn)) {
            if (line.function.find("AutoSwitchingEnabled") != std::string::npos ||
                line.function == "Utils::WaitforServiceToStartRunning") {
                found.push_back(line.function);
            }
        }
        return found;
    };
    std::vector<std::string> beforeTheWatcher{"no watcher"};
    pool.atQueue = [&] { beforeTheWatcher = operations(); };
    RunWorker();
    EXPECT_THAT(beforeTheWatcher, IsEmpty());
    EXPECT_THAT(
        operations(),
        ElementsAre("NLMUtils::IsLanWlanAutoSwitchingEnabled", "NLMUtils::IsLanWwanAutoSwitchingEnabled",
                    "Utils::WaitforServiceToStartRunning", "Utils::WaitforServiceToStartRunning"));
}

TEST_F(StartUpWorkerTest, ManagersAreCreatedInWhateverContextHasThem) {
    std::vector<DWORD> contexts;
    const Rig::ScopedImport<&::CoCreateInstance> look{
        [](REFCLSID classId, IUnknown*, DWORD, REFIID, void**) {
            return classId == CLSID_NetworkListManager || classId == CLSID_MbnInterfaceManager;
        },
        [&](REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId, void** object) {
            EXPECT_EQ(outer, nullptr);
            EXPECT_EQ(interfaceId, classId == CLSID_NetworkListManager ? IID_INetworkListManager
                                                                       : IID_IMbnInterfaceManager);
            contexts.push_back(context);
            return look.Original(classId, outer, context, interfaceId, object);
        }};
    RunWorker();
    EXPECT_THAT(contexts, ElementsAre(0x17U, 0x17U));
}

TEST_F(StartUpWorkerTest, WatcherIsQueuedToRunOnce) {
    RunWorker();
    ASSERT_THAT(pool.items, SizeIs(1));
    EXPECT_EQ(pool.items.front().flags, ULONG{WT_EXECUTEONLYONCE});
    EXPECT_THAT(log.Of("CMainService::AirplaneModeWatcher"), IsEmpty());
    EXPECT_EQ(pool.RunNext(), 0U);
    EXPECT_TRUE(log.Contains(TraceIn("CMainService::AirplaneModeWatcher", L"AirplaneModeWatcher - Entry")));
}

TEST_F(StartUpWorkerTest, CablesOfTheStartJoinTheWiredConnections) {
    notebook.PlugCable();
    notebook.Act(&::Notebook::ConnectWifi, 0U);
    RunWorker();
    EXPECT_THAT(*state.wiredConnections,
                ElementsAre(::Notebook::GuidText(notebook.Devices().adapters[0].connectionId)));
    EXPECT_TRUE(log.Contains(kAlive));
}

TEST_F(StartUpWorkerTest, PublishedManagerReplacesTheOneBeforeAndOutlivesTheStop) {
    MakeModemKnown();
    WwanState::devicePresent = false;
    const IMbnInterfaceManager* const older = WwanState::interfaceManager.load().get();
    RunWorker();
    EXPECT_TRUE(WwanState::devicePresent);
    EXPECT_NE(WwanState::interfaceManager.load().get(), older);
    EXPECT_EQ(WwanState::interfaceManager.load().get(), state.mbnInterfaceManager.Get());
    // The two managers of the service, the published one's holder, and four connection points, each
    // with its manager.
    EXPECT_EQ(notebook.Held().comReferences, 2 + 1 + 4 * 2);
    Stop(service);
    EXPECT_EQ(notebook.Held().comReferences, 1);
}

TEST_F(StartUpWorkerTest, StopBeforeThePublishingEmptiesTheHolderAndEndsTheWorker) {
    MakeModemKnown();
    notebook.At(Call::OpenService, 2, [this] {
        Stop(service);
        return std::nullopt;
    });
    RunWorker();
    EXPECT_EQ(WwanState::interfaceManager.load(), nullptr);
    EXPECT_FALSE(WwanState::devicePresent);
    EXPECT_EQ(log.Of(kWorker).back(), kNoDevice);
    EXPECT_EQ(notebook.Count(Call::MbnInterfaceManagerGetInterfaces), 0);
}

// --- COM -------------------------------------------------------------------------------------------

TEST_F(StartUpWorkerTest, LeavesComThatItEnteredBeforeItsExitLine) {
    bool hadLine = true;
    com.atExit = [&] { hadLine = log.Contains(kExit); };
    RunWorker();
    EXPECT_EQ(com.entries, 1);
    EXPECT_EQ(com.exits, 1);
    EXPECT_FALSE(hadLine);
    EXPECT_TRUE(log.Contains(kExit));
    com.atExit = nullptr;
}

TEST_F(StartUpWorkerTest, LeavesComThatTheThreadHadEnteredBefore) {
    RunWorker(Rig::Apartment::kMultithreaded);
    // The thread's own and the worker's, of which CoInitializeEx said S_FALSE.
    EXPECT_EQ(com.entries, 2);
    EXPECT_EQ(com.exits, 2);
}

TEST_F(StartUpWorkerTest, KeepsAnotherApartmentOfItsThreadAndGoesOn) {
    RunWorker(Rig::Apartment::kSingleThreaded);
    EXPECT_EQ(com.entries, 0);
    EXPECT_TRUE(log.Contains(kWwanDisabled));
    EXPECT_TRUE(log.Contains(kExit));
    // The three reads of BIOS settings, which enter such an apartment for themselves, and the
    // thread's own.
    EXPECT_EQ(com.exits, 4);
}

TEST_F(StartUpWorkerTest, WithoutComEndsAtOnceAndWithoutAnExitLine) {
    com.entryResult = E_OUTOFMEMORY;
    RunWorker();
    EXPECT_THAT(log.Of(kWorker),
                ElementsAre(kEntry, Error(kWorker, L"CoInitialize failed with error: 0x8007000E")));
    EXPECT_THAT(notebook.Calls(), ElementsAre("CoInitializeEx"));
}

TEST_F(StartUpWorkerTest, WithoutNetworkListManagerEndsAtOnceAndWithoutAnExitLine) {
    // A success without an object is a failure, too.
    for (const auto& [error, text] :
         {std::pair{REGDB_E_CLASSNOTREG, L"0x80040154"}, std::pair{S_OK, L"0x80004003"}}) {
        log.Clear();
        notebook.ForgetCalls();
        notebook.Fail(Call::NetworkListManagerCreate, 1, error);
        RunWorker();
        EXPECT_THAT(
            log.Of(kWorker),
            ElementsAre(kEntry,
                        Error(kWorker, std::wstring(L"CoCreateInstance(CLSID_NetworkListManager) failed "
                                                    L"with error: ") +
                                           text)));
        EXPECT_THAT(notebook.Calls(), ElementsAre("CoInitializeEx", "NetworkListManager::Create"));
    }
    EXPECT_EQ(com.exits, 0);
}

TEST_F(StartUpWorkerTest, WithoutMobileBroadbandManagerEndsAfterTheWlanHalf) {
    notebook.Fail(Call::MbnInterfaceManagerCreate, 1, REGDB_E_CLASSNOTREG);
    RunWorker();
    EXPECT_THAT(log.Of(kWorker),
                ElementsAre(kEntry, kBiosRead, kWlanWaited, kNotAlive, kWlanDisabled,
                            Error(kWorker,
                                  L"CoCreateInstance(CLSID_MbnInterfaceManager) failed with error: "
                                  L"0x80040154")));
    EXPECT_EQ(com.exits, 0);
    EXPECT_EQ(Opens("WwanSvc"), 0);
}

TEST_F(StartUpWorkerTest, WithoutModemEndsBeforeTheSubscriptionAndWithoutAnExitLine) {
    WwanState::devicePresent = true;  // of an earlier start
    RemoveModem();
    RunWorker();
    EXPECT_THAT(log.Of(kWorker), ElementsAre(kEntry, kBiosRead, kWlanWaited, kNotAlive, kWlanDisabled,
                                             kWaitForWwan, kNoDevice));
    EXPECT_FALSE(WwanState::devicePresent);
    EXPECT_EQ(state.mbnSinks, nullptr);
    EXPECT_EQ(com.exits, 0);
}

// --- Services that are late or absent, subscriptions that fail -------------------------------------

constexpr char kWait[] = "Utils::WaitforServiceToStartRunning";

/// One of the two services, and how long the worker waits for it.
struct AwaitedService {
    const char* name;
    const wchar_t* service;
    DWORD state;  ///< zero: it is not installed
    std::chrono::seconds wait;
    int polls;
    const wchar_t* failure;  ///< null: none
};

void PrintTo(const AwaitedService& awaited, std::ostream* out) {
    *out << awaited.name;
}

class WaitForAService : public StartUpWorkerTest, public testing::WithParamInterface<AwaitedService> {};

TEST_P(WaitForAService, TakesAsLongAsThatAndTheStartGoesOn) {
    const AwaitedService& awaited = GetParam();
    const bool isWlan = awaited.service == std::wstring(L"WlanSvc");
    if (awaited.state == 0) {
        notebook.Uninstall(awaited.service);
    } else {
        notebook.Service(awaited.service).state = awaited.state;
    }
    std::chrono::milliseconds start{};
    std::chrono::milliseconds end{-1};
    notebook.At(Call::OpenService, isWlan ? 1 : 2, [&] {
        start = machine.clock.Elapsed();
        return std::nullopt;
    });
    notebook.At(isWlan ? Call::FindConnectionPoint : Call::MbnInterfaceManagerGetInterfaces, 1, [&] {
        end = machine.clock.Elapsed();
        return std::nullopt;
    });
    RunWorker();
    EXPECT_EQ(end - start, awaited.wait);
    EXPECT_EQ(Opens(isWlan ? "WlanSvc" : "WwanSvc"), awaited.polls);
    EXPECT_THAT(LinesOf(kWait), SizeIs(awaited.failure == nullptr ? 0 : awaited.polls));

    std::vector<LogLine> expected{kEntry,       kBiosRead,   kWlanWaited,   kNotAlive, kWlanDisabled,
                                  kWaitForWwan, kWwanWaited, kWwanDisabled, kExit};
    if (awaited.failure != nullptr) {
        const auto behind = std::ranges::find(expected, isWlan ? kWlanWaited : kWwanWaited);
        expected.insert(behind, Error(kWorker, awaited.failure));
    }
    EXPECT_EQ(log.Of(kWorker), expected);
    EXPECT_EQ(notebook.Count(Call::Advise), 4);
    EXPECT_EQ(notebook.Held().wlanRegistrations, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Services, WaitForAService,
    testing::Values(
        AwaitedService{"RunningWlan", L"WlanSvc", SERVICE_RUNNING, 0s, 1, nullptr},
        AwaitedService{"AbsentWlan", L"WlanSvc", 0, 1s, 1,
                       L"WaitforServiceToStartRunning (WLAN AutoConfig) failed with running status = -1"},
        AwaitedService{"WlanThatNeverRuns", L"WlanSvc", SERVICE_START_PENDING, 15s, 15,
                       L"WaitforServiceToStartRunning (WLAN AutoConfig) failed with running status = 1"},
        AwaitedService{"AbsentWwan", L"WwanSvc", 0, 1s, 1,
                       L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running status = -1"},
        AwaitedService{"WwanThatNeverRuns", L"WwanSvc", SERVICE_START_PENDING, 15s, 15,
                       L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running status = 1"}),
    [](const testing::TestParamInfo<AwaitedService>& parameter) { return parameter.param.name; });

TEST_F(StartUpWorkerTest, AbsentServiceIsTriedOnce) {
    notebook.Uninstall(L"WlanSvc");
    RunWorker();
    EXPECT_THAT(LinesOf(kWait), ElementsAre(Verbose(kWait, L"WlanSvc service Running Status = -1, try 0")));
}

TEST_F(StartUpWorkerTest, GoesOnWithoutSubscriptionsAndRegistration) {
    struct Missing {
        Call call;
        int nth;
        DWORD error;
        bool isRegistration;
    };
    for (const Missing& missing : {Missing{Call::FindConnectionPoint, 1, 0x80040200, false},
                                   Missing{Call::WlanOpenHandle, 1, ERROR_SERVICE_NOT_ACTIVE, true},
                                   Missing{Call::WlanRegisterNotification, 1, ERROR_ACCESS_DENIED, true},
                                   Missing{Call::FindConnectionPoint, 4, 0x80040200, false}}) {
        SCOPED_TRACE(missing.error);
        log.Clear();
        notebook.Fail(missing.call, missing.nth, static_cast<LONG>(missing.error));
        RunWorker();
        std::vector<LogLine> expected{kEntry,       kBiosRead,   kWlanWaited,   kNotAlive, kWlanDisabled,
                                      kWaitForWwan, kWwanWaited, kWwanDisabled, kExit};
        if (missing.isRegistration) {
            expected.insert(expected.begin() + 3, kNotRegistered);
        }
        EXPECT_EQ(log.Of(kWorker), expected);
        EndService();
    }
}

// --- First decisions -------------------------------------------------------------------------------

TEST_F(StartUpWorkerTest, EnabledWithCableSwitchesBothRadiosOffOnceAndStoresNothing) {
    EnableSwitching();
    notebook.PlugCable();
    RunWorker();
    EXPECT_THAT(LinesOf(kWorker), ElementsAre(kBiosRead, kWlanWaited, kAlive, kChecking, kWlanCable,
                                              kWaitForWwan, kWwanWaited, kWwanCable));
    EXPECT_THAT(WlanSwitches(), ElementsAre("off"));
    EXPECT_THAT(WwanSwitches(), ElementsAre("off"));
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWlanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 1")));
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWwanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 1")));
    EXPECT_EQ(machine.RememberedWlan(), L"");
    EXPECT_EQ(machine.RememberedWwan(), L"");
}

TEST_F(StartUpWorkerTest, EnabledWithoutCableRestoresBothRadios) {
    EnableSwitching();
    RunWorker();
    EXPECT_THAT(LinesOf(kWorker), ElementsAre(kBiosRead, kWlanWaited, kNotAlive, kChecking, kWaitForWwan,
                                              kWwanWaited, kWwanNoCable));
    EXPECT_THAT(log.Of("CMainService::UpdateWlanPowerStatus"), SizeIs(4));
    EXPECT_THAT(log.Of("CMainService::UpdateWwanPowerStatus"), SizeIs(4));
}

TEST_F(StartUpWorkerTest, UnreadableAdaptersLeaveBothRadiosAndTheWorkerGoesOn) {
    EnableSwitching();
    machine.HideAdapters();
    RunWorker();
    EXPECT_THAT(log.Of(kWorker), ElementsAre(kEntry, kBiosRead, kWlanWaited, kNotAlive, kChecking,
                                             kCheckFailed, kWaitForWwan, kWwanWaited, kCheckFailed, kExit));
    EXPECT_THAT(WlanSwitches(), IsEmpty());
    EXPECT_THAT(WwanSwitches(), IsEmpty());
}

TEST_F(StartUpWorkerTest, FailedSwitchesChangeNothingElse) {
    EnableSwitching();
    notebook.PlugCable();
    notebook.SetPhys({Refusing(RadioTests::On())});
    MakeModemStubborn();
    RunWorker();
    EXPECT_THAT(log.Of(kWorker), SizeIs(10));
    EXPECT_TRUE(log.Contains(kExit));
}

TEST_F(StartUpWorkerTest, NothingIsSwitchedOnInAirplaneMode) {
    machine.SetAirplaneMode(true);
    SetRadios(false);
    RunWorker();
    EXPECT_THAT(WlanSwitches(), IsEmpty());
    EXPECT_THAT(WwanSwitches(), IsEmpty());
}

/// Whether the feature is enabled, the cable, what is remembered (null: nothing), and the radio before.
class FirstDecision : public StartUpWorkerTest,
                      public testing::WithParamInterface<std::tuple<bool, Cable, const wchar_t*, bool>> {
  protected:
    /// Unheard, a switch of the start's own is not taken for the user's.
    FirstDecision() { notebook.FailEach(Call::WlanRegisterNotification, ERROR_ACCESS_DENIED); }

    /// What the rules want the radio to be.
    [[nodiscard]] static bool Wanted() {
        const auto [enabled, cable, remembered, wasOn] = GetParam();
        if (enabled && cable == Cable::kUnreadable) {
            return wasOn;
        }
        if (enabled && cable == Cable::kIn) {
            return false;
        }
        return remembered == nullptr || std::wstring(remembered) == L"True";
    }
    [[nodiscard]] static std::vector<std::string> WantedSwitches() {
        const bool wasOn = std::get<3>(GetParam());
        return Wanted() == wasOn ? std::vector<std::string>{}
                                 : std::vector<std::string>{Wanted() ? "on" : "off"};
    }
};

TEST_P(FirstDecision, BringsARadioToWhatIsWantedAndStoresNothing) {
    const auto [enabled, cable, remembered, wasOn] = GetParam();
    const std::wstring rememberedThen = remembered == nullptr ? L"" : remembered;
    for (const bool isWlan : {true, false}) {
        SCOPED_TRACE(isWlan ? "WLAN" : "WWAN");
        NLMUtils::lanWlanSwitchingEnabled = enabled && isWlan;
        NLMUtils::lanWwanSwitchingEnabled = enabled && !isWlan;
        machine.store.Delete();
        Set(cable);
        SetRadios(true);
        notebook.Wlan().phys[0].software = wasOn || !isWlan ? ::Notebook::kRadioOn : ::Notebook::kRadioOff;
        notebook.Modem().software = wasOn || isWlan ? 1 : 0;
        if (remembered != nullptr) {
            isWlan ? machine.RememberWlan(remembered) : machine.RememberWwan(remembered);
        }
        notebook.ForgetCalls();
        RunWorker();
        EXPECT_EQ(isWlan ? notebook.WlanIsOn() : ModemIsOn(), Wanted());
        EXPECT_EQ(isWlan ? WlanSwitches() : WwanSwitches(), WantedSwitches());
        EXPECT_THAT(isWlan ? WwanSwitches() : WlanSwitches(), IsEmpty());
        EXPECT_EQ(isWlan ? machine.RememberedWlan() : machine.RememberedWwan(), rememberedThen);
        EndService();
    }
}

INSTANTIATE_TEST_SUITE_P(Situations, FirstDecision,
                         testing::Combine(testing::Bool(),
                                          testing::Values(Cable::kOut, Cable::kIn, Cable::kUnreadable),
                                          testing::Values(nullptr, L"True", L"False", L"true", L"1"),
                                          testing::Bool()));

// --- The BIOS's settings ---------------------------------------------------------------------------

constexpr wchar_t kWlanSetting[] = L"LAN / WLAN Auto Switching";
constexpr wchar_t kOlderWlanSetting[] = L"LAN/WLAN Switching";
constexpr wchar_t kWwanSetting[] = L"LAN / WWAN Auto Switching";

/// What the firmware says decides this very start, beside a cable, with both radios off or on before.
struct Firmware {
    const char* name;
    std::vector<std::pair<const wchar_t*, const wchar_t*>> settings;
    bool areRadiosOn;
    const char* wlanSwitch;
    const char* wwanSwitch;
    bool wlanIsEnabled;
    bool wwanIsEnabled;
};

void PrintTo(const Firmware& firmware, std::ostream* out) {
    *out << firmware.name;
}

class StartWithFirmware : public StartUpWorkerTest, public testing::WithParamInterface<Firmware> {};

TEST_P(StartWithFirmware, IsDecidedByIt) {
    for (const auto& [name, text] : GetParam().settings) {
        notebook.SetSetting(name, text);
    }
    notebook.PlugCable();
    SetRadios(GetParam().areRadiosOn);
    RunWorker();
    EXPECT_EQ(NLMUtils::lanWlanSwitchingEnabled, GetParam().wlanIsEnabled);
    EXPECT_EQ(NLMUtils::lanWwanSwitchingEnabled, GetParam().wwanIsEnabled);
    EXPECT_EQ(log.Contains(kWlanDisabled), !GetParam().wlanIsEnabled);
    EXPECT_EQ(log.Contains(kWwanDisabled), !GetParam().wwanIsEnabled);
    using Made = std::vector<std::string>;
    EXPECT_EQ(WlanSwitches(), *GetParam().wlanSwitch == '\0' ? Made{} : Made{GetParam().wlanSwitch});
    EXPECT_EQ(WwanSwitches(), *GetParam().wwanSwitch == '\0' ? Made{} : Made{GetParam().wwanSwitch});
}

INSTANTIATE_TEST_SUITE_P(
    Settings, StartWithFirmware,
    testing::Values(
        Firmware{"BothEnabled",
                 {{kWlanSetting, L"Enable"}, {kWwanSetting, L"Enable"}},
                 true,
                 "off",
                 "off",
                 true,
                 true},
        Firmware{"WlanEnabledByTheOlderName", {{kOlderWlanSetting, L"Enable"}}, true, "off", "", true, false},
        Firmware{"WwanEnabled", {{kWwanSetting, L"Enable"}}, true, "", "off", false, true},
        Firmware{"BothDisabled",
                 {{kWlanSetting, L"*Disable"}, {kOlderWlanSetting, L"Enable"}, {kWwanSetting, L"*Disable"}},
                 false,
                 "on",
                 "on",
                 false,
                 false}),
    [](const testing::TestParamInfo<Firmware>& parameter) { return parameter.param.name; });

// --- Exceptions ------------------------------------------------------------------------------------

class ThrowingStep : public StartUpWorkerTest, public testing::WithParamInterface<const char*> {
  protected:
    template <class Thrown>
    void ThrowAt(const std::string& step, const Thrown& thrown) {
        const auto throwIt = [thrown] { throw thrown; };
        if (step == "CoInitializeEx") {
            com.atEntry = throwIt;
        } else if (step == "QueueUserWorkItem") {
            pool.atQueue = throwIt;
        } else {
            notebook.At(CallOf(step), step.ends_with("WwanSvc") ? 2 : 1,
                        [=]() -> std::optional<DWORD> { throw thrown; });
        }
    }
    ~ThrowingStep() override { com.atEntry = nullptr; }
};

TEST_P(ThrowingStep, IsLoggedAndEndsTheWorkerWithItsExitLine) {
    ThrowAt(GetParam(), std::runtime_error("out of luck"));
    RunWorker();
    const std::vector<LogLine> lines = log.Of(kWorker);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[lines.size() - 2], Error(kWorker, L"Exception in ServiceWorkerThread. out of luck"));
    EXPECT_EQ(lines.back(), kExit);
    EXPECT_EQ(com.exits, 0);
    // Nothing follows but that what the call was made with is given back.
    std::vector<std::string> calls = notebook.Calls();
    std::erase(calls, "WlanCloseHandle");
    const std::string step = GetParam();
    EXPECT_EQ(calls.back().substr(0, calls.back().find(' ')), step.substr(0, step.find(' ')));
}

INSTANTIATE_TEST_SUITE_P(Steps, ThrowingStep,
                         testing::Values("CoInitializeEx", "NetworkListManager::Create", "QueueUserWorkItem",
                                         "OpenServiceW WlanSvc", "WlanOpenHandle", "WlanRegisterNotification",
                                         "IsNetworkAlive", "MbnInterfaceManager::Create",
                                         "OpenServiceW WwanSvc"));

TEST_F(ThrowingStep, AtTheListOfModemsIsAMissingModem) {
    ThrowAt("IMbnInterfaceManager::GetInterfaces", std::runtime_error("out of luck"));
    RunWorker();
    EXPECT_EQ(log.Of(kWorker).back(), kNoDevice);
}

TEST_F(ThrowingStep, OfWhatIsNoStandardExceptionIsNotCaught) {
    ThrowAt("IsNetworkAlive", 42);
    EXPECT_THROW(RunWorker(), int);
    EXPECT_FALSE(log.Contains(kExit));
    EXPECT_THAT(log.At(Orva::Shared::Level::kError),
                Each(testing::Field(&LogLine::function, testing::Ne(kWorker))));
}

TEST_F(StartUpWorkerTest, WatcherThatCannotBeQueuedLeavesThePoolsCallbackWithTheSystemError) {
    service.OnStart(0, nullptr);
    pool.error = ERROR_NOT_ENOUGH_QUOTA;
    DWORD thrown = NO_ERROR;
    try {
        Rig::RunOnThread([this] { pool.RunNext(); }, Rig::Apartment::kNone);
    } catch (DWORD error) {
        thrown = error;
    }
    EXPECT_EQ(thrown, DWORD{ERROR_NOT_ENOUGH_QUOTA});
    EXPECT_THAT(log.Of(kWorker), ElementsAre(kEntry));
    EXPECT_EQ(com.exits, 0);
    pool.error = NO_ERROR;
}

// --- A stop that comes in between ------------------------------------------------------------------

/// A start on a machine of its own, with both features enabled.
class Start : public CoreTest {
  public:
    explicit Start(bool isCableIn) {
        EnableSwitching();
        Set(isCableIn ? Cable::kIn : Cable::kOut);
    }

    /// Runs it and has the service stop at the first call of this name and text. The calls.
    std::vector<std::string> RunAndStopAt(const std::string& call) {
        {
            OpenService service;
            service.OnStart(0, nullptr);
            StopAt(service, call);
            notebook.ForgetCalls();
            Rig::RunOnThread([this] { pool.RunNext(); }, Rig::Apartment::kNone);
            EXPECT_EQ(service.m_state.running, call.empty());
            pool.atQueue = nullptr;
            calls = notebook.Calls();
            if (call.empty()) {
                Stop(service);
            }
            pool.RunAll();
            EXPECT_EQ(notebook.Held().wlanHandles, 0);
            // What was subscribed after the stop still works.
            notebook.PlugCable();
            notebook.PullCable();
            notebook.Deliver();
            Stop(service);
            EXPECT_EQ(notebook.Held().wlanHandles, 0);
        }
        WwanState::interfaceManager.store(nullptr);
        WwanState::lastRadio.store(nullptr);
        // The manager, for the events of subscriptions that came after the stop.
        EXPECT_LE(notebook.Held().comReferences, 1);
        notebook.KeepForGood(notebook.Held().comReferences);
        return calls;
    }

  private:
    void TestBody() override {}

    void StopAt(OpenService& service, const std::string& text) {
        if (text == "QueueUserWorkItem") {
            pool.atQueue = [&service] { Stop(service); };
        } else if (const Call call = CallOf(text); call != Call::Count) {
            notebook.At(call, nthOf.at(text), [&service] {
                Stop(service);
                return std::nullopt;
            });
        }
    }

    std::vector<std::string> calls;

  public:
    /// For each call, by its text, which one of its name it is.
    std::map<std::string, int> nthOf;
};

class StopDuringStart : public testing::TestWithParam<bool> {};

TEST_P(StopDuringStart, IsSurvivedAtEveryStep) {
    std::map<std::string, int> nthOf;
    std::map<std::string, int> seen;
    for (const std::string& call : Start(GetParam()).RunAndStopAt("")) {
        nthOf.try_emplace(call, ++seen[call.substr(0, call.find(' '))]);
    }
    EXPECT_GE(nthOf.size(), 25U);
    for (const auto& [call, nth] : nthOf) {
        SCOPED_TRACE(call);
        Start start(GetParam());
        start.nthOf = nthOf;
        start.RunAndStopAt(call);
    }
}

INSTANTIATE_TEST_SUITE_P(CableIsIn, StopDuringStart, testing::Bool());

// --- An end of the service that comes in between ---------------------------------------------------

/// A start with a cable in, in the middle of which the service stops and is destroyed, as at the
/// end of the process: the worker still finds the place that the service had.
class EndDuringStart : public CoreTest, public testing::WithParamInterface<std::pair<Call, bool>> {
  protected:
    EndDuringStart() {
        EnableSwitching();
        notebook.PlugCable();
    }
    void SetUp() override { SKIP_UNLESS_IMPORTED(free); }
    ~EndDuringStart() override {
        // What the worker opened and subscribed after the end would go with the process.
        Rig::RunOnThread([this] { m_service->OpenService::OnStop(); }, Rig::Apartment::kMultithreadedTwice);
        EXPECT_EQ(notebook.Held().wlanHandles, 0);
        WwanState::interfaceManager.store(nullptr);
        EXPECT_LE(notebook.Held().comReferences, 1);
        notebook.KeepForGood(notebook.Held().comReferences);
    }

    alignas(OpenService) std::array<std::byte, sizeof(OpenService)> m_place{};
    OpenService* const m_service = ::new (m_place.data()) OpenService;
    WiredConnections* const m_wired = m_service->m_state.wiredConnections;
    std::unique_ptr<Rig::ScopedImport<& ::free>> m_freed =
        Rig::ReplaceIfImported<&::free>([this](void* block) { return block == m_wired; }, [](void*) {});
};

TEST_P(EndDuringStart, LeavesTheWorkerTheSetThatWasThere) {
    const auto [call, subscribes] = GetParam();
    m_service->OnStart(0, nullptr);
    bool hasEnded = false;
    notebook.At(call, 1, [&] {
        Stop(*m_service);
        std::destroy_at(m_service);
        hasEnded = true;
        return std::nullopt;
    });
    Rig::RunOnThread([this] { pool.RunNext(); }, Rig::Apartment::kNone);
    pool.RunAll();
    EXPECT_TRUE(hasEnded);
    EXPECT_EQ(m_freed->Calls(), 0);
    EXPECT_EQ(notebook.Count(Call::Advise) > 1, subscribes);
    EXPECT_THAT(*m_wired, ElementsAre(::Notebook::GuidText(notebook.Devices().adapters[0].connectionId)));
}

// Before it subscribes, while it waits for WLAN with the manager that it holds, and behind it all.
INSTANTIATE_TEST_SUITE_P(Calls, EndDuringStart,
                         testing::Values(std::pair{Call::NetworkListManagerCreate, true},
                                         std::pair{Call::WbemExecQuery, false},
                                         std::pair{Call::IsNetworkAlive, true}));

}  // namespace
}  // namespace CoreTests
