#include "core/start_up_worker.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <ostream>
#include <stdexcept>
#include <tuple>

#include "notebook/state/text.h"
#include "radio/wwan_state.h"
#include "tests/core/core_test.h"

namespace CoreTests {
namespace {

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
/// A start with both features disabled, without a cable.
const std::vector<LogLine> kWholeStart{kEntry,       kBiosRead,   kWlanWaited,   kNotAlive, kWlanDisabled,
                                       kWaitForWwan, kWwanWaited, kWwanDisabled, kExit};

/// The lines up to one of them, then others.
std::vector<LogLine> UpTo(const LogLine& last, std::initializer_list<LogLine> others) {
    std::vector<LogLine> lines(kWholeStart.begin(), std::ranges::find(kWholeStart, last) + 1);
    lines.insert(lines.end(), others);
    return lines;
}

/// With one more line in front of one of them.
std::vector<LogLine> WithBefore(const LogLine& next, const LogLine& more) {
    std::vector<LogLine> lines = kWholeStart;
    lines.insert(std::ranges::find(lines, next), more);
    return lines;
}

class StartUpWorkerTest : public CoreTest {
  protected:
    ~StartUpWorkerTest() override {
        ExpectNoSwitchIsRepeated();
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
    EXPECT_EQ(log.Of(kWorker), kWholeStart);
    // The radio operations and the readers of settings and adapters have calls of their own.
    std::vector<std::string> steps = notebook.Calls();
    std::erase_if(steps, [](const std::string& step) {
        return std::ranges::none_of(
            std::array{"Co", "NetworkListManager::", "Queue", "OpenServiceW", "FindConnectionPoint", "Advise",
                       "WlanRegister", "INetworkListManager::", "IsNetworkAlive",
                       "MbnInterfaceManager::", "IMbnInterfaceManager::GetInterfaces", "IWbemServices::"},
            [&step](const char* with) { return step.starts_with(with); });
    });
    EXPECT_THAT(
        steps,
        ElementsAre("CoInitializeEx", "NetworkListManager::Create", "QueueUserWorkItem",
                    HasSubstr("'LAN / WLAN Auto Switching'"), HasSubstr("'LAN/WLAN Switching'"),
                    HasSubstr("'LAN / WWAN Auto Switching'"), "OpenServiceW WlanSvc 0xf01ff",  //
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

TEST_F(StartUpWorkerTest, ManagersAreCreatedInWhateverContextHasThem) {
    const ScopedWatch<&::CoCreateInstance> creations;
    RunWorker();
    EXPECT_THAT(
        creations.Arguments(),
        AllOf(Contains(FieldsAre(CLSID_NetworkListManager, IsNull(), 0x17U, IID_INetworkListManager, _)),
              Contains(FieldsAre(CLSID_MbnInterfaceManager, IsNull(), 0x17U, IID_IMbnInterfaceManager, _))));
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
    notebook.Before(Call::OpenService, 2, [this] { Stop(service); });
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

TEST_F(StartUpWorkerTest, MissingStepEndsItAtOnceWithoutAnExitLineAndWithoutLeavingCom) {
    WwanState::devicePresent = true;  // of an earlier start
    const auto fail = [this](Call call, HRESULT result) {
        return [this, call, result] { notebook.Fail(call, 1, result); };
    };
    const std::wstring noNetworks = L"CoCreateInstance(CLSID_NetworkListManager) failed with error: ";
    struct Missing {
        std::function<void()> arrange;
        std::vector<LogLine> lines;
        std::string nextCall;
    };
    for (const Missing& missing :
         {Missing{[this] { com.entryResult = E_OUTOFMEMORY; },
                  UpTo(kEntry, {Error(kWorker, L"CoInitialize failed with error: 0x8007000E")}),
                  "NetworkListManager::Create"},
          Missing{fail(Call::NetworkListManagerCreate, REGDB_E_CLASSNOTREG),
                  UpTo(kEntry, {Error(kWorker, noNetworks + L"0x80040154")}), "QueueUserWorkItem"},
          // A success without an object is a failure, too.
          Missing{fail(Call::NetworkListManagerCreate, S_OK),
                  UpTo(kEntry, {Error(kWorker, noNetworks + L"0x80004003")}), "QueueUserWorkItem"},
          Missing{fail(Call::MbnInterfaceManagerCreate, REGDB_E_CLASSNOTREG),
                  UpTo(kWlanDisabled,
                       {Error(kWorker,
                              L"CoCreateInstance(CLSID_MbnInterfaceManager) failed with error: 0x80040154")}),
                  "OpenServiceW WwanSvc 0xf01ff"},
          Missing{[this] { RemoveModem(); }, UpTo(kWaitForWwan, {kNoDevice}),
                  "FindConnectionPoint IMbnRadioEvents"}}) {
        SCOPED_TRACE(testing::PrintToString(missing.lines.back()));
        com.entryResult.reset();
        com.exits = 0;
        log.Clear();
        notebook.ForgetCalls();
        missing.arrange();
        RunWorker();
        EXPECT_EQ(log.Of(kWorker), missing.lines);
        EXPECT_THAT(notebook.Calls(), Not(Contains(missing.nextCall)));
        EXPECT_EQ(com.exits, 0);
        com.entryResult.reset();
        EndService();
    }
    EXPECT_FALSE(WwanState::devicePresent);
}

TEST_F(StartUpWorkerTest, IsTimedBehindItsExitLineOrWithoutOneWhereItGivesUp) {
    const Rig::LogRecorder timed(Rig::LogRecorder::Timing::kOn);
    const auto elapsed =
        Rig::Line(Orva::Shared::Level::kDiag, kWorker, testing::StartsWith(L"Elapsed time = "));
    RunWorker();
    const std::vector<LogLine> lines = timed.Of(kWorker);
    EXPECT_EQ(lines[lines.size() - 2], kExit);
    EXPECT_THAT(lines.back(), elapsed);
    EXPECT_EQ(timed.Count(kExit), 1);

    com.entryResult = E_OUTOFMEMORY;
    RunWorker();
    EXPECT_THAT(timed.Of(kWorker).back(), elapsed);
    EXPECT_EQ(timed.Count(kExit), 1);
}

// --- Services that are late or absent, subscriptions that fail -------------------------------------

TEST_F(StartUpWorkerTest, ServiceThatIsLateOrAbsentCostsALineAndTheStartGoesOn) {
    for (const auto& [isWlan, isInstalled] :
         {std::pair{true, false}, std::pair{true, true}, std::pair{false, false}, std::pair{false, true}}) {
        const std::wstring name = isWlan ? L"WlanSvc" : L"WwanSvc";
        const std::wstring status = isInstalled ? L"1" : L"-1";
        SCOPED_TRACE(testing::PrintToString(name + status));
        log.Clear();
        notebook.ForgetCalls();
        const auto installed = notebook.Service(name);
        notebook.Service(name).state = SERVICE_START_PENDING;
        if (!isInstalled) {
            notebook.Uninstall(name);
        }
        RunWorker();
        EXPECT_TRUE(log.Contains(TraceOut(kWait, name + L" Running Status = " + status)));
        EXPECT_EQ(log.Of(kWorker),
                  WithBefore(isWlan ? kWlanWaited : kWwanWaited,
                             Error(kWorker, std::wstring(L"WaitforServiceToStartRunning (") +
                                                (isWlan ? L"WLAN" : L"WWAN") +
                                                L" AutoConfig) failed with running status = " + status)));
        EXPECT_EQ(notebook.Count(Call::Advise), 4);
        EXPECT_EQ(notebook.Held().wlanRegistrations, 1);
        EndService();
        notebook.Service(name) = installed;
    }
}

TEST_F(StartUpWorkerTest, GoesOnWithoutSubscriptionsAndRegistration) {
    const std::vector<LogLine> notRegistered = WithBefore(kNotAlive, kNotRegistered);
    struct Missing {
        Call call;
        int nth;
        DWORD error;
        const std::vector<LogLine>& lines;
    };
    for (const Missing& missing :
         {Missing{Call::FindConnectionPoint, 1, 0x80040200, kWholeStart},
          Missing{Call::WlanOpenHandle, 1, ERROR_SERVICE_NOT_ACTIVE, notRegistered},
          Missing{Call::WlanRegisterNotification, 1, ERROR_ACCESS_DENIED, notRegistered},
          Missing{Call::FindConnectionPoint, 4, 0x80040200, kWholeStart}}) {
        SCOPED_TRACE(missing.error);
        log.Clear();
        notebook.Fail(missing.call, missing.nth, static_cast<LONG>(missing.error));
        RunWorker();
        EXPECT_EQ(log.Of(kWorker), missing.lines);
        EndService();
    }
}

// --- First decisions -------------------------------------------------------------------------------

TEST_F(StartUpWorkerTest, EnabledFeaturesDecideBesideEachOther) {
    EnableSwitching();
    struct Decision {
        Cable cable;
        std::vector<LogLine> wlanLines;
        std::vector<LogLine> wwanLines;
    };
    for (const Decision& decision :
         {Decision{Cable::kOut, {kNotAlive, kChecking}, {kWwanNoCable}},
          Decision{Cable::kIn, {kAlive, kChecking, kWlanCable}, {kWwanCable}},
          Decision{Cable::kUnreadable, {kAlive, kChecking, kCheckFailed}, {kCheckFailed}}}) {
        Set(decision.cable);
        log.Clear();
        RunWorker();
        std::vector<LogLine> expected{kBiosRead, kWlanWaited};
        expected.insert(expected.end(), decision.wlanLines.begin(), decision.wlanLines.end());
        expected.insert(expected.end(), {kWaitForWwan, kWwanWaited});
        expected.insert(expected.end(), decision.wwanLines.begin(), decision.wwanLines.end());
        EXPECT_EQ(LinesOf(kWorker), expected);
        EXPECT_TRUE(log.Contains(kExit));
        if (decision.cable == Cable::kIn) {
            ExpectSwitchCall("ServiceUtils::SwitchWlanStatus", false, true);
            ExpectSwitchCall("ServiceUtils::SwitchWwanStatus", false, true);
        }
        EndService();
    }
}

TEST_F(StartUpWorkerTest, FailedSwitchesChangeNothingElse) {
    EnableSwitching();
    notebook.PlugCable();
    MakeRadiosStubborn();
    RunWorker();
    EXPECT_THAT(log.Of(kWorker), SizeIs(10));
    EXPECT_TRUE(log.Contains(kExit));
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
};

TEST_P(FirstDecision, BringsARadioToWhatIsWantedAndStoresNothing) {
    const auto [enabled, cable, remembered, wasOn] = GetParam();
    const std::wstring rememberedThen = remembered == nullptr ? L"" : remembered;
    for (const bool isWlan : {true, false}) {
        SCOPED_TRACE(isWlan ? "WLAN" : "WWAN");
        EnableSwitching(enabled && isWlan, enabled && !isWlan);
        machine.store.Delete();
        Set(cable);
        SetRadios(wasOn || !isWlan, wasOn || isWlan);
        if (remembered != nullptr) {
            isWlan ? machine.RememberWlan(remembered) : machine.RememberWwan(remembered);
        }
        notebook.ForgetCalls();
        RunWorker();
        EXPECT_EQ(isWlan ? notebook.WlanIsOn() : ModemIsOn(), Wanted());
        EXPECT_EQ(isWlan ? WlanSwitches() : WwanSwitches(),
                  Wanted() == wasOn ? Switches{} : Switches{Wanted() ? "on" : "off"});
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

/// What the firmware says decides this very start.
TEST_F(StartUpWorkerTest, SettingsThatItReadsDecideBesideTheCable) {
    notebook.PlugCable();
    for (const unsigned features : {0U, 1U, 2U, 3U}) {
        SCOPED_TRACE(features);
        const bool wlan = (features & 1U) != 0;
        const bool wwan = (features & 2U) != 0;
        EnableSwitching(false, false);
        machine.store.Delete();
        notebook.SetSetting(L"LAN / WLAN Auto Switching", wlan ? L"Enable" : L"*Disable");
        notebook.SetSetting(L"LAN / WWAN Auto Switching", wwan ? L"Enable" : L"*Disable");
        // A radio that is to be restored comes on.
        SetRadios(wlan, wwan);
        log.Clear();
        notebook.ForgetCalls();
        RunWorker();
        EXPECT_EQ(log.Contains(kWlanDisabled), !wlan);
        EXPECT_EQ(log.Contains(kWwanDisabled), !wwan);
        EXPECT_THAT(WlanSwitches(), ElementsAre(wlan ? "off" : "on"));
        EXPECT_THAT(WwanSwitches(), ElementsAre(wwan ? "off" : "on"));
        EndService();
    }
}

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
            notebook.Before(CallOf(step), step.ends_with("WwanSvc") ? 2 : 1, throwIt);
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
    EXPECT_THAT(log.At(kError), Each(testing::Field(&LogLine::function, testing::Ne(kWorker))));
}

TEST_F(StartUpWorkerTest, WatcherThatCannotBeQueuedLeavesThePoolsCallbackWithTheSystemError) {
    service.Start(0, nullptr);
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
    /// Runs it and has the service stop at one of its calls: the n-th of its name. Gives the calls.
    std::vector<std::string> RunAndStopAt(bool isCableIn, const std::string& call, int nth) {
        EnableSwitching();
        Set(isCableIn ? Cable::kIn : Cable::kOut);
        std::vector<std::string> calls;
        {
            OpenService service;
            service.Start(0, nullptr);
            const auto stop = [&service] { Stop(service); };
            if (call == "QueueUserWorkItem") {
                pool.atQueue = stop;
            } else if (CallOf(call) != Call::Count) {
                notebook.Before(CallOf(call), nth, stop);
            }
            notebook.ForgetCalls();
            Rig::RunOnThread([this] { pool.RunNext(); }, Rig::Apartment::kNone);
            EXPECT_EQ(service.m_state.running, call.empty());
            pool.atQueue = nullptr;
            calls = notebook.Calls();
            if (call.empty()) {
                stop();
            }
            pool.RunAll();
            EXPECT_EQ(notebook.Held().wlanHandles, 0);
            // What was subscribed after the stop still works.
            notebook.PlugCable();
            notebook.PullCable();
            notebook.Deliver();
            stop();
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
};

class StopDuringStart : public testing::TestWithParam<bool> {};

TEST_P(StopDuringStart, IsSurvivedAtEveryStep) {
    // For each call, by its text, which one of its name it is.
    std::map<std::string, int> nthOf;
    std::map<std::string, int> seen;
    for (const std::string& call : Start().RunAndStopAt(GetParam(), "", 0)) {
        nthOf.try_emplace(call, ++seen[call.substr(0, call.find(' '))]);
    }
    EXPECT_GE(nthOf.size(), 25U);
    for (const auto& [call, nth] : nthOf) {
        SCOPED_TRACE(call);
        Start().RunAndStopAt(GetParam(), call, nth);
    }
}

INSTANTIATE_TEST_SUITE_P(CableIsIn, StopDuringStart, testing::Bool());

}  // namespace
}  // namespace CoreTests
