#include "core/airplane_mode_watcher.h"

#include <algorithm>
#include <new>
#include <thread>
#include <tuple>
#include <utility>

#include "logging/log_scope.h"
#include "tests/core/core_test.h"
#include "tests/support/at_each_log_line.h"
#include "tests/support/ledger.h"

namespace CoreTests {
namespace {

constexpr char kWatcher[] = "CMainService::AirplaneModeWatcher";
const LogLine kWatcherEntry = TraceIn(kWatcher, L"AirplaneModeWatcher - Entry");
const LogLine kWatcherExit = TraceOut(kWatcher, L"AirplaneModeWatcher - Exit");
const LogLine kStopped =
    Information(kWatcher, L"AirplaneModeWatcher - Service Stop event Triggered. Exiting");
const LogLine kChange = Information(kWatcher, L"AirplaneModeWatcher - Registry Change Event Triggered");
const LogLine kAirplaneOn = Information(kWatcher, L"Airplane Mode ON , setting default");
const LogLine kAirplaneOff = Information(kWatcher, L"Airplane mode is OFF");
const LogLine kWatcherCheckFailed = Error(kWatcher, L"CheckEthernetConnectionStatusEx failed");
const LogLine kCreateFailed = Error(kWatcher, L"CreateEvent (AirPlaneWatcherEvent) failed with error 5");
const LogLine kRemembersTrue = Information(kWatcher, L"Previous WLAN Power Status in registry = True");
const LogLine kSetsOn = Information(kWatcher, L"Setting SetWlanPowerStatusInRegistry with value = 1");

using NotifyImport = ScopedImport<&::RegNotifyChangeKeyValue>;
using KeyOpens = ScopedImport<&::RegOpenKeyExW>;

bool IsWatchedKey(HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY) {
    return root == HKEY_LOCAL_MACHINE && path != nullptr &&
           std::wstring(path) == L"SYSTEM\\CurrentControlSet\\Control\\RadioManagement\\SystemRadioState" &&
           options == 0 && access == 0x20119;
}

/// The watcher on the test's own thread. What happens while it waits is a row of steps; behind the
/// last one the service stops.
class WatcherTest : public CoreTest {
  protected:
    using Steps = std::vector<std::function<void()>>;

    void Run(const Steps& steps) {
        std::size_t next = 0;
        RunWithWaits([&]() -> DWORD {
            if (next == steps.size()) {
                state.running = false;
            } else {
                steps[next++]();
            }
            return WAIT_OBJECT_0;
        });
        EXPECT_EQ(next, steps.size());
        ExpectNoSwitchIsRepeated();
    }

    /// The waits for the event are answered by `wait`. How many there were.
    int RunWithWaits(const std::function<DWORD()>& wait) {
        const ScopedImport<&::WaitForSingleObject> waits{
            [this](HANDLE handle, DWORD milliseconds) {
                return milliseconds == INFINITE && handle == state.airplaneWatcherEvent.Get();
            },
            [&](HANDLE, DWORD) { return wait(); }};
        state.running = true;
        AirplaneModeWatcher(state);
        return waits.Calls();
    }

    /// The lines between the entry and those of the stop.
    [[nodiscard]] std::vector<LogLine> Lines() const {
        std::vector<LogLine> lines = log.Of(kWatcher);
        EXPECT_EQ(lines.front(), kWatcherEntry);
        EXPECT_EQ(lines.back(), kWatcherExit);
        EXPECT_EQ(lines[lines.size() - 2], kStopped);
        return {lines.begin() + 1, lines.end() - 2};
    }

    std::function<void()> nothing = [] {};
    std::function<void()> airplaneOn = [this] { machine.SetAirplaneMode(true); };
    std::function<void()> airplaneOff = [this] { machine.SetAirplaneMode(false); };

    OpenService service;
    ServiceState& state = service.m_state;
};

// --- One change ------------------------------------------------------------------------------------

/// Airplane mode then, the cable, the two features, and what is remembered for both (null: nothing).
class ChangeIn : public WatcherTest,
                 public testing::WithParamInterface<std::tuple<bool, Cable, bool, bool, const wchar_t*>> {};

TEST_P(ChangeIn, IsFollowedAsTheSituationAsksAndStoresNothing) {
    const auto [isAirplaneOn, cable, enablesWlan, enablesWwan, remembered] = GetParam();
    const std::wstring text = remembered == nullptr ? L"" : remembered;
    const bool wantsOn = remembered == nullptr || text == L"True";
    EnableSwitching(enablesWlan, enablesWwan);
    MakeModemKnown();
    SetRadios(isAirplaneOn || !wantsOn);
    Set(cable);
    if (remembered != nullptr) {
        machine.RememberWlan(remembered);
        machine.RememberWwan(remembered);
    }
    machine.SetAirplaneMode(!isAirplaneOn);
    Run({isAirplaneOn ? airplaneOn : airplaneOff});

    const bool restores = !isAirplaneOn && cable == Cable::kOut;
    std::vector<LogLine> expected{kChange};
    if (isAirplaneOn && enablesWlan) {
        expected.push_back(kAirplaneOn);
    }
    if (cable == Cable::kUnreadable) {
        expected.push_back(kWatcherCheckFailed);
    }
    if (restores) {
        expected.push_back(kAirplaneOff);
    }
    if (restores && enablesWlan) {
        expected.push_back(Information(kWatcher, L"Previous WLAN Power Status in registry = " +
                                                     (remembered == nullptr ? L"True" : text)));
        expected.push_back(Information(kWatcher, wantsOn ? kSetsOn.message
                                                         : L"Setting SetWlanPowerStatusInRegistry with value "
                                                           L"= 0"));
    }
    EXPECT_EQ(Lines(), expected);
    const Switches restored = restores ? Switches{wantsOn ? "on" : "off"} : Switches{};
    EXPECT_EQ(WlanSwitches(), !enablesWlan ? Switches{} : isAirplaneOn ? Switches{"off"} : restored);
    EXPECT_EQ(WwanSwitches(), enablesWwan ? restored : Switches{});
    EXPECT_EQ(machine.RememberedWlan(), text);
    EXPECT_EQ(machine.RememberedWwan(), text);
    // WLAN comes back before WWAN.
    const std::vector<std::string> calls = notebook.Calls();
    const auto isWwan = [](const std::string& call) { return call.starts_with("IMbnRadio::Set"); };
    EXPECT_TRUE(std::none_of(std::ranges::find_if(calls, isWwan), calls.end(),
                             [](const std::string& call) { return call.starts_with("WlanSet"); }));
}

INSTANTIATE_TEST_SUITE_P(
    Situations, ChangeIn,
    testing::Combine(testing::Bool(), testing::Values(Cable::kOut, Cable::kIn, Cable::kUnreadable),
                     testing::Bool(), testing::Bool(),
                     testing::Values(nullptr, L"True", L"False", L"true", L"TRUE", L"True ", L"1")));

TEST_F(WatcherTest, EveryChangeIsDecidedAfreshOffWithoutAskingForAirplaneModeAndOnOnlyOutsideOfIt) {
    EnableWlanSwitching();
    Run({airplaneOn, airplaneOff});
    ExpectSwitchCall("ServiceUtils::SwitchWlanStatus", false, false);
    ExpectSwitchCall("ServiceUtils::SwitchWlanStatus", true, true);
    EXPECT_THAT(WlanSwitches(), ElementsAre("off", "on"));
    EXPECT_EQ(log.Count(kChange), 2);
}

TEST_F(WatcherTest, FailedSwitchIsNotLookedAt) {
    EnableWlanSwitching();
    MakeRadiosStubborn();
    Run({airplaneOn});
    EXPECT_THAT(Lines(), ElementsAre(kChange, kAirplaneOn));
}

TEST_F(WatcherTest, UnreadableAdaptersOfOneChangeLeaveTheNextOneAlone) {
    EnableWlanSwitching();
    SetRadios(false);
    notebook.Fail(Call::GetAdaptersInfo, 1, ERROR_NOT_SUPPORTED);
    Run({nothing, nothing});
    EXPECT_THAT(Lines(),
                ElementsAre(kChange, kWatcherCheckFailed, kChange, kAirplaneOff, kRemembersTrue, kSetsOn));
}

TEST_F(WatcherTest, MissingAirplaneValueMeansOffAndComparingLeavesNoLine) {
    EnableWlanSwitching();
    machine.airplane.DeleteValue({}, {});
    Run({});
    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_THAT(log.Of("ServiceUtils::CheckAirplaneMode"), IsEmpty());
    log.Clear();
    CreateAirplaneWatcherEvent(LogScope("Test"), state);
    Run({nothing});
    EXPECT_TRUE(log.Contains(kAirplaneOff));
}

// --- A change while another one is at work ---------------------------------------------------------

// Each pass arms a new notification, so Windows announces none of these.

TEST_F(WatcherTest, ChangeInTheMiddleOfAPassIsActedOnAtOnce) {
    EnableWlanSwitching();
    using Changes = std::vector<std::tuple<Call, int, bool>>;
    struct Meanwhile {
        const char* name;
        bool radiosAreOn;
        std::function<void()> first;
        Changes changes;  ///< at the n-th of a call, to this airplane mode
        Switches switches;
        int passes;
    };
    for (const Meanwhile& meanwhile :
         {Meanwhile{"ends during the switch-off",
                    true,
                    airplaneOn,
                    Changes{{Call::WlanSetInterface, 1, false}},
                    {"off", "on"},
                    1},
          Meanwhile{"begins during the restore",
                    false,
                    nothing,
                    Changes{{Call::WlanSetInterface, 1, true}},
                    {"on", "off"},
                    2},
          Meanwhile{"begins between the two looks",
                    true,
                    nothing,
                    Changes{{Call::GetAdaptersInfo, 1, true}},
                    {"off"},
                    2},
          Meanwhile{"ends during the switch-off, begins during the restore",
                    true,
                    airplaneOn,
                    Changes{{Call::WlanSetInterface, 1, false}, {Call::WlanSetInterface, 2, true}},
                    {"off", "on", "off"},
                    2}}) {
        SCOPED_TRACE(meanwhile.name);
        machine.SetAirplaneMode(false);
        SetRadios(meanwhile.radiosAreOn);
        notebook.ForgetCalls();
        log.Clear();
        for (const auto& [call, nth, isOn] : meanwhile.changes) {
            notebook.Before(call, nth, isOn ? airplaneOn : airplaneOff);
        }
        Run({meanwhile.first});
        EXPECT_EQ(WlanSwitches(), meanwhile.switches);
        EXPECT_EQ(log.Count(kChange), meanwhile.passes);
    }
}

TEST_F(WatcherTest, AirplaneModeThatEndsBehindTheLastLookIsActedOnAtOnce) {
    EnableWlanSwitching();
    const Rig::AtEachLogLine lines{[this, looks = 0](const auto& entry) mutable {
        // The pass has two looks. Its last line is that of the second.
        if (entry.FunctionName() == "ServiceUtils::CheckAirplaneMode" &&
            entry.GetLevel() == Orva::Shared::Level::kTraceOut && ++looks == 3) {
            machine.SetAirplaneMode(false);
        }
    }};
    // The switch-off asks, too.
    Run({airplaneOn});
    EXPECT_THAT(WlanSwitches(), ElementsAre("off", "on"));
    EXPECT_EQ(log.Count(kChange), 2);
}

TEST_F(WatcherTest, AirplaneModeThatBeginsBeforeTheFirstArmingIsActedOnAtOnce) {
    EnableWlanSwitching();
    const NotifyImport notify{[&](HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL isAsynchronous) {
        machine.SetAirplaneMode(true);
        return notify.Original(key, subtree, filter, event, isAsynchronous);
    }};
    Run({});
    EXPECT_THAT(Lines(), ElementsAre(kChange, kAirplaneOn));
    EXPECT_EQ(notify.Calls(), 2);
}

TEST_F(WatcherTest, PassThatAsksForNothingIsFollowedByAWait) {
    EnableWwanSwitching();
    notebook.PlugCable();
    Run({airplaneOn, nothing, airplaneOff});
    EXPECT_EQ(log.Count(kChange), 3);
}

// --- How it watches --------------------------------------------------------------------------------

TEST_F(WatcherTest, WatchesTheWholeSubtreeForNamesAndValues) {
    const HANDLE event = state.airplaneWatcherEvent.Get();
    const ScopedWatch<&::RegNotifyChangeKeyValue> armings;
    Run({nothing, nothing});
    EXPECT_THAT(armings.Arguments(), AllOf(SizeIs(3), Each(FieldsAre(_, TRUE, 0x5U, event, TRUE))));
}

TEST_F(WatcherTest, EachPassOpensTheKeyAnewAndNoneStaysOpen) {
    const KeyOpens opens{&IsWatchedKey, [&](auto... arguments) { return opens.Original(arguments...); }};
    Rig::Ledger ledger;
    Run({nothing, nothing, nothing});
    EXPECT_EQ(opens.Calls(), 4);
    EXPECT_EQ(ledger.Outstanding(Rig::Kind::kRegistryKey), 0);
    // The adapter list of the last look stays allocated.
    ledger.Dismiss();
}

TEST_F(WatcherTest, ClosesTheStopEventAtItsEndOrKeepsOneThatCannotBeClosed) {
    const HANDLE event = state.airplaneWatcherEvent.Get();
    {
        const ScopedImport<&::CloseHandle> close{[=](HANDLE handle) { return handle == event; },
                                                 [](HANDLE) {
                                                     SetLastError(ERROR_ACCESS_DENIED);
                                                     return FALSE;
                                                 }};
        Run({});
        EXPECT_EQ(close.Calls(), 1);
    }
    EXPECT_EQ(state.airplaneWatcherEvent.Get(), event);
    EXPECT_THAT(log.At(kError), IsEmpty());
    Run({});
    EXPECT_FALSE(state.airplaneWatcherEvent);
}

TEST_F(WatcherTest, StopDuringAChangeEndsTheLoopWithoutItsLine) {
    EnableWlanSwitching();
    SetRadios(false);
    notebook.Before(Call::WlanSetInterface, 1, [this] { state.running = false; });
    EXPECT_EQ(RunWithWaits([] { return DWORD{WAIT_OBJECT_0}; }), 1);
    EXPECT_THAT(log.Of(kWatcher),
                ElementsAre(kWatcherEntry, kChange, kAirplaneOff, kRemembersTrue, kSetsOn, kWatcherExit));
}

TEST_F(WatcherTest, StopSignalThatTheArmingResetsIsNotWaitedForAgain) {
    // The stop has come between the look at the flag and the arming, which resets the event.
    DWORD eventAfterArming = WAIT_FAILED;
    const NotifyImport notify{[&](HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL isAsynchronous) {
        state.running = false;
        SetEvent(event);
        const LONG result = notify.Original(key, subtree, filter, event, isAsynchronous);
        eventAfterArming = WaitForSingleObject(event, 0);
        return result;
    }};
    EXPECT_EQ(RunWithWaits([] { return DWORD{WAIT_OBJECT_0}; }), 0);
    EXPECT_EQ(eventAfterArming, DWORD{WAIT_TIMEOUT});
    EXPECT_THAT(Lines(), IsEmpty());
}

// --- What goes wrong while watching ----------------------------------------------------------------

TEST_F(WatcherTest, MissingKeyIsTriedAtOnceAgainUntilItAppears) {
    machine.airplane.Delete();
    constexpr int kManyPasses = 1000;
    const KeyOpens opens{&IsWatchedKey, [&](auto... arguments) {
                             if (opens.Calls() == kManyPasses) {
                                 machine.airplane.Create();
                             }
                             return opens.Original(arguments...);
                         }};
    Run({});
    EXPECT_EQ(opens.Calls(), kManyPasses);
    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_THAT(machine.clock.SleepsAndWaits(), IsEmpty());
}

TEST_F(WatcherTest, WithoutTheKeyTheWatcherEndsWithTheServiceAndDoesNotBeginWithoutIt) {
    for (const int passes : {10, 0}) {
        log.Clear();
        const KeyOpens opens{&IsWatchedKey, [&](auto...) -> LSTATUS {
                                 state.running = opens.Calls() < passes;
                                 return ERROR_FILE_NOT_FOUND;
                             }};
        state.running = passes > 0;
        AirplaneModeWatcher(state);
        EXPECT_EQ(opens.Calls(), passes);
        EXPECT_THAT(log.Of(kWatcher), ElementsAre(kWatcherEntry, kWatcherExit));
        EXPECT_FALSE(state.airplaneWatcherEvent);
    }
}

TEST_F(WatcherTest, MissingEventIsLoggedEachTimeAndTriedAgain) {
    state.airplaneWatcherEvent.Reset();
    const ScopedResult<&::CreateEventW> create{nullptr, ERROR_ACCESS_DENIED, Rig::AtCall{1, 3}};
    Run({});
    EXPECT_EQ(create.Calls(), 4);
    EXPECT_THAT(Lines(), ElementsAre(kCreateFailed, kCreateFailed, kCreateFailed));
}

TEST_F(WatcherTest, NotificationThatCannotBeArmedIsTriedAgain) {
    const ScopedResult<&::RegNotifyChangeKeyValue> notify{ERROR_NOT_ENOUGH_MEMORY, Rig::AtCall{1, 3}};
    Run({});
    EXPECT_EQ(notify.Calls(), 4);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(WatcherTest, WaitThatFailsIsTriedAgain) {
    const int waits = RunWithWaits([this, failures = 3]() mutable -> DWORD {
        if (--failures >= 0) {
            return WAIT_FAILED;
        }
        state.running = false;
        return WAIT_OBJECT_0;
    });
    EXPECT_EQ(waits, 4);
    EXPECT_THAT(Lines(), IsEmpty());
}

/// There is no memory for the first read of what is remembered.
class NoMemoryForTheRestore : public WatcherTest {
  protected:
    NoMemoryForTheRestore() {
        EnableWlanSwitching();
        SetRadios(false);
        machine.RememberWlan(L"True");
    }

    ScopedImport<&::RegQueryValueExW> query{
        [](HKEY, LPCWSTR name, LPDWORD, LPDWORD, LPBYTE, LPDWORD) {
            return name != nullptr && std::wstring(name) == PowerStatus::kValueName;
        },
        [this](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD bytes) {
            return query.Calls() == 1 ? throw std::bad_alloc()
                                      : query.Original(key, name, reserved, type, data, bytes);
        }};
};

TEST_F(NoMemoryForTheRestore, IsLoggedAndTheChangeIsFollowedAtOnceAgain) {
    machine.SetAirplaneMode(true);
    Run({airplaneOff});
    EXPECT_THAT(Lines(),
                ElementsAre(kChange, kAirplaneOff, Error(kWatcher, L"Exception in AirplaneModeWatcher()"),  //
                            kChange, kAirplaneOff, kRemembersTrue, kSetsOn));
    EXPECT_THAT(WlanSwitches(), ElementsAre("on"));
}

TEST_F(NoMemoryForTheRestore, WithoutAChangeOfAirplaneModeIsLoggedAndTheNextWakeCounts) {
    Run({nothing, nothing});
    EXPECT_EQ(log.Count(Error(kWatcher, L"Exception in AirplaneModeWatcher()")), 1);
    EXPECT_EQ(log.Count(kChange), 2);
    EXPECT_THAT(WlanSwitches(), ElementsAre("on"));
}

// --- With the system's own notifications -----------------------------------------------------------

/// The watcher on a thread of its own, as in the service.
class LiveWatcherTest : public CoreTest {
  protected:
    LiveWatcherTest() {
        service.m_state.running = true;
        m_thread = std::thread([this] { AirplaneModeWatcher(service.m_state); });
        WaitUntilArmed(1);
    }
    ~LiveWatcherTest() override { StopWatcher(); }

    void StopWatcher() {
        if (m_thread.joinable()) {
            Stop(service);
            m_thread.join();
        }
    }

    void WaitUntilArmed(int times) const {
        for (int i = 0; i < 10000 && m_armed < times; ++i) {
            Rig::Real<&::Sleep>(DWORD{1});
        }
        ASSERT_GE(m_armed.load(), times);
    }

    OpenService service;
    std::atomic<int> m_armed = 0;
    /// Called before the arming of this number, counted from 1.
    std::function<void()> beforeArming;
    std::atomic<int> whichArming = 0;

  private:
    NotifyImport m_notify{[this](HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL isAsynchronous) {
        if (m_armed + 1 == whichArming) {
            beforeArming();
        }
        const LONG result = m_notify.Original(key, subtree, filter, event, isAsynchronous);
        ++m_armed;
        return result;
    }};
    std::thread m_thread;
};

constexpr DWORD kAWhile = 100;  // milliseconds, in which a watcher that does not wait would pass again

TEST_F(LiveWatcherTest, WaitsWithoutSpinningUntilTheStopEndsItWithOneLine) {
    Rig::Real<&::Sleep>(kAWhile);
    EXPECT_EQ(m_armed, 1);
    StopWatcher();
    EXPECT_THAT(log.Of(kWatcher), ElementsAre(kWatcherEntry, kStopped, kWatcherExit));
}

TEST_F(LiveWatcherTest, EveryChangeOfTheValueWakesItAgain) {
    machine.SetAirplaneMode(true);
    WaitUntilArmed(2);
    machine.SetAirplaneMode(false);
    WaitUntilArmed(3);
    EXPECT_EQ(log.Count(kChange), 2);
}

TEST_F(LiveWatcherTest, ChangedSubkeyWakesItToo) {
    machine.airplane.Create(L"Some Radio");
    WaitUntilArmed(2);
    machine.airplane.Write(L"Some Radio", L"State", RegistryNumber(1));
    WaitUntilArmed(3);
    EXPECT_GE(log.Count(kChange), 2);
}

TEST_F(LiveWatcherTest, ChangeBeforeTheArmingIsFollowedOnceAlthoughItsKeyIsClosedWhileArmed) {
    // Windows signals the event of an armed notification when its key is closed.
    beforeArming = [this] { machine.SetAirplaneMode(false); };
    whichArming = 2;
    machine.SetAirplaneMode(true);
    WaitUntilArmed(3);
    Rig::Real<&::Sleep>(kAWhile);
    EXPECT_EQ(m_armed, 3);
    EXPECT_EQ(log.Count(kChange), 2);
}

}  // namespace
}  // namespace CoreTests
