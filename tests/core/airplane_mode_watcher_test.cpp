#include <windows.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/core/core_world.h"
#include "tests/support/at_each_log_line.h"
#include "tests/support/ledger.h"

namespace CoreTests {
namespace {

using Rig::Lines::Error;
using Rig::Lines::Information;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kWatcher[] = "CMainService::AirplaneModeWatcher";
constexpr wchar_t kEntry[] = L"AirplaneModeWatcher - Entry";
constexpr wchar_t kExit[] = L"AirplaneModeWatcher - Exit";
constexpr wchar_t kChange[] = L"AirplaneModeWatcher - Registry Change Event Triggered";
constexpr wchar_t kStopped[] = L"AirplaneModeWatcher - Service Stop event Triggered. Exiting";
constexpr wchar_t kAirplaneOn[] = L"Airplane Mode ON , setting default";
constexpr wchar_t kAirplaneOff[] = L"Airplane mode is OFF";
constexpr wchar_t kCheckFailed[] = L"CheckEthernetConnectionStatusEx failed";
constexpr wchar_t kCreateFailed[] = L"CreateEvent (AirPlaneWatcherEvent) failed with error 5";

constexpr wchar_t kWatchedKey[] = L"SYSTEM\\CurrentControlSet\\Control\\RadioManagement\\SystemRadioState";
constexpr REGSAM kWatchAccess = 0x20119;

bool IsWatchedOpen(HKEY root, const wchar_t* path, REGSAM access) {
    return root == HKEY_LOCAL_MACHINE && path != nullptr && std::wstring(path) == kWatchedKey &&
           access == kWatchAccess;
}

/// The watcher on the test's own thread. What happens while it waits is a row of steps; behind the
/// last one the service stops.
class WatcherTest : public CoreTest {
  protected:
    void Run(std::vector<std::function<void()>> steps) {
        std::size_t next = 0;
        const Rig::ScopedImport<&::WaitForSingleObject> wait{
            [this](HANDLE handle, DWORD milliseconds) {
                return milliseconds == INFINITE && handle == service.m_airplaneWatcherEvent.Get();
            },
            [&](HANDLE, DWORD) -> DWORD {
                if (next == steps.size()) {
                    service.m_running = false;
                } else {
                    steps[next++]();
                }
                return WAIT_OBJECT_0;
            }};
        service.m_running = true;
        service.AirplaneModeWatcher();
        EXPECT_EQ(next, steps.size());
        // Each change is worth one switch: the watcher comes back with the next one.
        EXPECT_THAT(log.Of("ServiceUtils::SwitchWlanStatusWithRetry"), IsEmpty());
        EXPECT_THAT(log.Of("ServiceUtils::SwitchWwanStatusWithRetry"), IsEmpty());
    }

    /// The lines between the entry and those of the stop.
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const {
        std::vector<Rig::LogLine> lines = log.Of(kWatcher);
        EXPECT_EQ(lines.front(), TraceIn(kWatcher, kEntry));
        EXPECT_EQ(lines.back(), TraceOut(kWatcher, kExit));
        EXPECT_EQ(lines[lines.size() - 2], Information(kWatcher, kStopped));
        return {lines.begin() + 1, lines.end() - 2};
    }

    void SetBoth(bool isOn) {
        world.wlan.adapters[0].phys[0] = isOn ? RadioTests::On() : RadioTests::Off();
        world.wwanRadio.state = isOn ? MBN_RADIO_ON : MBN_RADIO_OFF;
    }

    std::function<void()> nothing = [] {};
    std::function<void()> airplaneOn = [this] { world.machine.SetAirplaneMode(true); };
    std::function<void()> airplaneOff = [this] { world.machine.SetAirplaneMode(false); };

    OpenService service;
};

// --- Airplane mode on ------------------------------------------------------------------------------

TEST_F(WatcherTest, AirplaneModeOnSwitchesWlanOffWithoutAskingForIt) {
    world.EnableWlanSwitching();
    Run({airplaneOn});
    EXPECT_THAT(Lines(), ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOn)));
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWlanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 0")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(WatcherTest, AirplaneModeOnWithCableSwitchesWlanOffToo) {
    world.EnableWlanSwitching();
    world.machine.PlugCableIn();
    Run({airplaneOn});
    EXPECT_THAT(Lines(), ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOn)));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
}

TEST_F(WatcherTest, AirplaneModeOnLeavesWlanWhenItsFeatureIsDisabled) {
    world.EnableWwanSwitching();
    world.MakeModemKnown();
    Run({airplaneOn});
    EXPECT_THAT(Lines(), ElementsAre(Information(kWatcher, kChange)));
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), IsEmpty());
}

TEST_F(WatcherTest, FailedSwitchIsNotLookedAt) {
    world.EnableWlanSwitching();
    world.wlan.adapters[0].phys[0] = RadioTests::Refusing(RadioTests::On());
    Run({airplaneOn});
    EXPECT_THAT(Lines(), ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOn)));
}

// --- Airplane mode off -----------------------------------------------------------------------------

TEST_F(WatcherTest, AirplaneModeOffWithNothingRememberedSwitchesWlanOn) {
    world.EnableWlanSwitching();
    SetBoth(false);
    world.machine.SetAirplaneMode(true);
    Run({airplaneOff});
    EXPECT_THAT(Lines(),
                ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOff),
                            Information(kWatcher, L"Previous WLAN Power Status in registry = True"),
                            Information(kWatcher, L"Setting SetWlanPowerStatusInRegistry with value = 1")));
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWlanStatus", L"OnOffValue = 1, bCheckAirplaneStatus = 1")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_FALSE(world.machine.store.Exists(L"WlanPowerStatus"));
}

TEST_F(WatcherTest, AirplaneModeOffWithTrueRememberedSwitchesWlanOn) {
    world.EnableWlanSwitching();
    SetBoth(false);
    world.machine.RememberWlan(L"True");
    Run({nothing});
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_EQ(world.machine.RememberedWlan(), L"True");
}

class OtherTextRemembered : public WatcherTest, public testing::WithParamInterface<const wchar_t*> {};

TEST_P(OtherTextRemembered, SwitchesWlanOffActively) {
    world.EnableWlanSwitching();
    world.machine.RememberWlan(GetParam());
    Run({nothing});
    EXPECT_THAT(Lines(),
                ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOff),
                            Information(kWatcher, L"Previous WLAN Power Status in registry = " +
                                                      std::wstring(GetParam())),
                            Information(kWatcher, L"Setting SetWlanPowerStatusInRegistry with value = 0")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_EQ(world.machine.RememberedWlan(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Texts, OtherTextRemembered,
                         testing::Values(L"False", L"true", L"TRUE", L"True ", L"1"));

TEST_F(WatcherTest, AirplaneModeOffWithCableSwitchesNothing) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.MakeModemKnown();
    SetBoth(false);
    world.machine.PlugCableIn();
    Run({airplaneOff});
    EXPECT_THAT(Lines(), ElementsAre(Information(kWatcher, kChange)));
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), IsEmpty());
}

TEST_F(WatcherTest, AirplaneModeOffBringsWwanBackAfterWlan) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.MakeModemKnown();
    SetBoth(false);
    world.machine.RememberWwan(L"True");
    Run({airplaneOff});
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_ON));
    const std::vector<Rig::LogLine> lines = log.Lines();
    const auto wlan =
        std::find(lines.begin(), lines.end(),
                  TraceIn("ServiceUtils::SwitchWlanStatus", L"OnOffValue = 1, bCheckAirplaneStatus = 1"));
    const auto wwan = std::find(lines.begin(), lines.end(), TraceIn("CMainService::UpdateWwanPowerStatus"));
    EXPECT_LT(wlan, wwan);
    EXPECT_NE(wwan, lines.end());
}

TEST_F(WatcherTest, AirplaneModeOffBringsOnlyWwanBackWhenOnlyThatIsEnabled) {
    world.EnableWwanSwitching();
    world.MakeModemKnown();
    world.machine.RememberWwan(L"False");
    Run({airplaneOff});
    EXPECT_THAT(Lines(), ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOff)));
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_OFF));
}

TEST_F(WatcherTest, AirplaneModeOffWithBothFeaturesDisabledOnlyWritesTheLine) {
    Run({airplaneOff});
    EXPECT_THAT(Lines(), ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOff)));
    EXPECT_THAT(world.wlan.Calls(), IsEmpty());
}

TEST_F(WatcherTest, AirplaneModeThatEndsDuringTheSwitchOffIsSeenAtOnce) {
    world.EnableWlanSwitching();
    world.wlan.At(RadioTests::WlanCall::kSet, 1, [this] {
        world.machine.SetAirplaneMode(false);
        return DWORD{ERROR_SUCCESS};
    });
    Run({airplaneOn});
    EXPECT_THAT(Lines(),
                ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOn),
                            Information(kWatcher, kAirplaneOff),
                            Information(kWatcher, L"Previous WLAN Power Status in registry = True"),
                            Information(kWatcher, L"Setting SetWlanPowerStatusInRegistry with value = 1")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off", "on"));
}

// --- A change while another one is at work ---------------------------------------------------------

// Each pass arms a new notification, so Windows announces none of these.

TEST_F(WatcherTest, AirplaneModeThatBeginsDuringTheRestoreIsActedOnAtOnce) {
    world.EnableWlanSwitching();
    SetBoth(false);
    world.wlan.At(RadioTests::WlanCall::kSet, 1, [this] {
        world.machine.SetAirplaneMode(true);
        return DWORD{ERROR_SUCCESS};
    });
    Run({nothing});
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on", "off"));
    EXPECT_THAT(Lines(),
                ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOff),
                            Information(kWatcher, L"Previous WLAN Power Status in registry = True"),
                            Information(kWatcher, L"Setting SetWlanPowerStatusInRegistry with value = 1"),
                            Information(kWatcher, kChange), Information(kWatcher, kAirplaneOn)));
}

TEST_F(WatcherTest, AirplaneModeThatBeginsBetweenTheTwoLooksIsActedOnAtOnce) {
    world.EnableWlanSwitching();
    world.machine.adapters.AnswerNext([this](IP_ADAPTER_INFO*, ULONG*) -> DWORD {
        world.machine.SetAirplaneMode(true);
        return ERROR_NO_DATA;
    });
    Run({nothing});
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_EQ(log.Count(Information(kWatcher, kChange)), 2);
}

TEST_F(WatcherTest, AirplaneModeThatEndsBehindTheLastLookIsActedOnAtOnce) {
    world.EnableWlanSwitching();
    const Rig::AtEachLogLine lines{[this, looks = 0](const auto& entry) mutable {
        // The pass has two looks. Its last line is that of the second.
        if (entry.FunctionName() == "ServiceUtils::CheckAirplaneMode" &&
            entry.GetLevel() == Orva::Shared::Level::kTraceOut && ++looks == 3) {
            world.machine.SetAirplaneMode(false);
        }
    }};
    // The switch-off asks, too.
    Run({airplaneOn});
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off", "on"));
    EXPECT_EQ(log.Count(Information(kWatcher, kChange)), 2);
}

TEST_F(WatcherTest, AirplaneModeThatComesAndGoesBehindTheRestoreEndsInTheLastState) {
    world.EnableWlanSwitching();
    world.wlan.At(RadioTests::WlanCall::kSet, 1, [this] {
        world.machine.SetAirplaneMode(false);
        return DWORD{ERROR_SUCCESS};
    });
    world.wlan.At(RadioTests::WlanCall::kSet, 2, [this] {
        world.machine.SetAirplaneMode(true);
        return DWORD{ERROR_SUCCESS};
    });
    Run({airplaneOn});
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off", "on", "off"));
}

TEST_F(WatcherTest, AirplaneModeThatBeginsBeforeTheFirstArmingIsActedOnAtOnce) {
    world.EnableWlanSwitching();
    const Rig::ScopedImport<&::RegNotifyChangeKeyValue> notify{
        [&](HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL isAsynchronous) {
            world.machine.SetAirplaneMode(true);
            return notify.Original(key, subtree, filter, event, isAsynchronous);
        }};
    Run({});
    EXPECT_THAT(Lines(), ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOn)));
    EXPECT_EQ(notify.Calls(), 2);
}

TEST_F(WatcherTest, PassThatAsksForNothingIsFollowedByAWait) {
    world.EnableWwanSwitching();
    world.machine.PlugCableIn();
    Run({airplaneOn, nothing, airplaneOff});
    EXPECT_EQ(log.Count(Information(kWatcher, kChange)), 3);
}

TEST_F(WatcherTest, ComparingLeavesNoLine) {
    Rig::DeleteRegistryValue(HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey, L"");
    Run({});
    EXPECT_THAT(log.Of("ServiceUtils::CheckAirplaneMode"), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(WatcherTest, EveryChangeIsDecidedAfresh) {
    world.EnableWlanSwitching();
    Run({airplaneOn, airplaneOff, airplaneOn});
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off", "on", "off"));
    EXPECT_EQ(log.Count(Information(kWatcher, kChange)), 3);
}

TEST_F(WatcherTest, UnreadableAdaptersAreLoggedAndTheNextChangeCounts) {
    world.EnableWlanSwitching();
    SetBoth(false);
    Run({[this] { world.machine.HideAdapters(); }, [this] { world.PullCable(); }});
    EXPECT_THAT(Lines(),
                ElementsAre(Information(kWatcher, kChange), Error(kWatcher, kCheckFailed),
                            Information(kWatcher, kChange), Information(kWatcher, kAirplaneOff),
                            Information(kWatcher, L"Previous WLAN Power Status in registry = True"),
                            Information(kWatcher, L"Setting SetWlanPowerStatusInRegistry with value = 1")));
}

/// Values that the system does not write today.
struct OddValue {
    const char* name;
    DWORD type;
    std::vector<unsigned char> bytes;
    bool meansOn;
};

void PrintTo(const OddValue& value, std::ostream* out) {
    *out << value.name;
}

class OddAirplaneValue : public WatcherTest, public testing::WithParamInterface<OddValue> {};

TEST_P(OddAirplaneValue, IsOnlyOnWhenItReadsAsOne) {
    world.EnableWlanSwitching();
    Run({[this] {
        Rig::RegistryValue value{GetParam().type, {}};
        for (const unsigned char byte : GetParam().bytes) {
            value.bytes.push_back(std::byte{byte});
        }
        world.machine.airplane.Write({}, {}, value);
    }});
    EXPECT_EQ(log.Contains(Information(kWatcher, kAirplaneOn)), GetParam().meansOn);
    EXPECT_EQ(log.Contains(Information(kWatcher, kAirplaneOff)), !GetParam().meansOn);
    EXPECT_EQ(world.wlan.IsOff(), GetParam().meansOn);
}

INSTANTIATE_TEST_SUITE_P(
    Values, OddAirplaneValue,
    testing::Values(OddValue{"Two", REG_DWORD, {2, 0, 0, 0}, false},
                    OddValue{"AllBits", REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}, false},
                    OddValue{"BinaryOne", REG_BINARY, {1, 0, 0, 0}, true},
                    OddValue{"OneByte", REG_BINARY, {1}, true}, OddValue{"Empty", REG_BINARY, {}, false},
                    OddValue{"EightBytes", REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0}, false},
                    OddValue{"Text", REG_SZ, {'1', 0, 0, 0}, false},
                    OddValue{"LongText", REG_SZ, {'T', 0, 'r', 0, 'u', 0, 'e', 0, 0, 0}, false},
                    OddValue{"ManyBytes", REG_BINARY, std::vector<unsigned char>(4096, 1), false}),
    [](const testing::TestParamInfo<OddValue>& parameter) { return parameter.param.name; });

TEST_F(WatcherTest, MissingAirplaneValueMeansOff) {
    world.EnableWlanSwitching();
    Run({[this] { Rig::DeleteRegistryValue(HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey, L""); }});
    EXPECT_TRUE(log.Contains(Information(kWatcher, kAirplaneOff)));
}

// --- How it watches --------------------------------------------------------------------------------

TEST_F(WatcherTest, WatchesTheWholeSubtreeForNamesAndValues) {
    struct Arguments {
        BOOL subtree;
        DWORD filter;
        HANDLE event;
        BOOL isAsynchronous;
    };
    std::vector<Arguments> armed;
    Rig::ScopedImport<&::RegNotifyChangeKeyValue> notify{
        [&](HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL isAsynchronous) {
            armed.push_back({subtree, filter, event, isAsynchronous});
            return notify.Original(key, subtree, filter, event, isAsynchronous);
        }};
    const HANDLE event = service.m_airplaneWatcherEvent.Get();
    Run({nothing, nothing});
    ASSERT_THAT(armed, SizeIs(3));
    for (const Arguments& call : armed) {
        EXPECT_EQ(call.subtree, TRUE);
        EXPECT_EQ(call.filter, 0x5U);
        EXPECT_EQ(call.event, event);
        EXPECT_EQ(call.isAsynchronous, TRUE);
    }
}

TEST_F(WatcherTest, EachPassOpensTheKeyAnewAndNoneStaysOpen) {
    std::atomic<int> opened = 0;
    Rig::ScopedImport<&::RegOpenKeyExW> open{
        [](HKEY root, LPCWSTR path, DWORD, REGSAM access, PHKEY) {
            return IsWatchedOpen(root, path, access);
        },
        [&](HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
            ++opened;
            EXPECT_EQ(options, 0U);
            return open.Original(root, path, options, access, key);
        }};
    Rig::Ledger ledger;
    Run({nothing, nothing, nothing});
    EXPECT_EQ(opened, 4);
    EXPECT_EQ(ledger.Outstanding(Rig::Kind::kRegistryKey), 0);
    // The adapter list of the last look stays allocated.
    ledger.Dismiss();
}

TEST_F(WatcherTest, ClosesTheStopEventAtItsEnd) {
    Run({});
    EXPECT_FALSE(service.m_airplaneWatcherEvent);
}

TEST_F(WatcherTest, KeepsAStopEventThatCannotBeClosed) {
    const HANDLE event = service.m_airplaneWatcherEvent.Get();
    {
        const Rig::ScopedImport<&::CloseHandle> close{[=](HANDLE handle) { return handle == event; },
                                                      [](HANDLE) {
                                                          SetLastError(ERROR_ACCESS_DENIED);
                                                          return FALSE;
                                                      }};
        Run({});
        EXPECT_EQ(close.Calls(), 1);
    }
    EXPECT_EQ(service.m_airplaneWatcherEvent.Get(), event);
    EXPECT_THAT(log.At(Orva::Shared::Level::kError), IsEmpty());
}

TEST_F(WatcherTest, StoppedServiceIsNotWatchedAtAll) {
    service.m_running = false;
    const Rig::ScopedImport<&::RegNotifyChangeKeyValue> notify{
        [](HKEY, BOOL, DWORD, HANDLE, BOOL) { return LONG{ERROR_SUCCESS}; }};
    service.AirplaneModeWatcher();
    EXPECT_THAT(log.Of(kWatcher), ElementsAre(TraceIn(kWatcher, kEntry), TraceOut(kWatcher, kExit)));
    EXPECT_EQ(notify.Calls(), 0);
    EXPECT_FALSE(service.m_airplaneWatcherEvent);
}

TEST_F(WatcherTest, StopDuringAChangeEndsTheLoopWithoutItsLine) {
    world.EnableWlanSwitching();
    SetBoth(false);
    world.wlan.At(RadioTests::WlanCall::kSet, 1, [this] {
        service.m_running = false;
        return DWORD{ERROR_SUCCESS};
    });
    const Rig::ScopedImport<&::WaitForSingleObject> wait{
        [this](HANDLE handle, DWORD) { return handle == service.m_airplaneWatcherEvent.Get(); },
        [](HANDLE, DWORD) -> DWORD { return WAIT_OBJECT_0; }};
    service.m_running = true;
    service.AirplaneModeWatcher();
    EXPECT_THAT(log.Of(kWatcher), SizeIs(6));
    EXPECT_FALSE(log.Contains(Information(kWatcher, kStopped)));
    EXPECT_EQ(wait.Calls(), 1);
}

TEST_F(WatcherTest, StopSignalThatTheArmingResetsIsNotWaitedForAgain) {
    // The stop has come between the look at the flag and the arming, which resets the event.
    DWORD eventAfterArming = WAIT_FAILED;
    const Rig::ScopedImport<&::RegNotifyChangeKeyValue> notify{
        [&](HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL isAsynchronous) {
            service.m_running = false;
            SetEvent(event);
            const LONG result = notify.Original(key, subtree, filter, event, isAsynchronous);
            eventAfterArming = WaitForSingleObject(event, 0);
            return result;
        }};
    const Rig::ScopedImport<&::WaitForSingleObject> wait{
        [](HANDLE, DWORD milliseconds) { return milliseconds == INFINITE; },
        [](HANDLE, DWORD) -> DWORD { return WAIT_OBJECT_0; }};
    service.m_running = true;
    service.AirplaneModeWatcher();
    EXPECT_EQ(eventAfterArming, DWORD{WAIT_TIMEOUT});
    EXPECT_EQ(wait.Calls(), 0);
    EXPECT_THAT(Lines(), IsEmpty());
}

// --- What goes wrong while watching ----------------------------------------------------------------

TEST_F(WatcherTest, MissingKeyIsTriedAtOnceAgainUntilItAppears) {
    world.machine.airplane.Delete();
    constexpr int kManyPasses = 1000;
    int tries = 0;
    Rig::ScopedImport<&::RegOpenKeyExW> open{
        [](HKEY root, LPCWSTR path, DWORD, REGSAM access, PHKEY) {
            return IsWatchedOpen(root, path, access);
        },
        [&](HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
            if (++tries == kManyPasses) {
                world.machine.airplane.Create();
            }
            return open.Original(root, path, options, access, key);
        }};
    Run({});
    EXPECT_EQ(tries, kManyPasses);
    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_THAT(world.machine.clock.SleepsAndWaits(), IsEmpty());
}

TEST_F(WatcherTest, MissingKeyEndsWithTheService) {
    world.machine.airplane.Delete();
    int tries = 0;
    const Rig::ScopedImport<&::RegOpenKeyExW> open{[](HKEY root, LPCWSTR path, DWORD, REGSAM access, PHKEY) {
                                                       return IsWatchedOpen(root, path, access);
                                                   },
                                                   [&](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY) {
                                                       service.m_running = ++tries < 10;
                                                       return LSTATUS{ERROR_FILE_NOT_FOUND};
                                                   }};
    service.m_running = true;
    service.AirplaneModeWatcher();
    EXPECT_EQ(tries, 10);
    EXPECT_THAT(log.Of(kWatcher), ElementsAre(TraceIn(kWatcher, kEntry), TraceOut(kWatcher, kExit)));
    EXPECT_FALSE(service.m_airplaneWatcherEvent);
}

TEST_F(WatcherTest, MissingStopEventIsCreatedAsTheConstructorWould) {
    service.m_airplaneWatcherEvent.Reset();
    struct Arguments {
        BOOL isManualReset;
        BOOL isSignalled;
        std::wstring name;
    };
    std::vector<Arguments> created;
    Rig::ScopedImport<&::CreateEventW> create{
        [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR name) { return name != nullptr; },
        [&](LPSECURITY_ATTRIBUTES attributes, BOOL isManualReset, BOOL isSignalled, LPCWSTR name) {
            EXPECT_EQ(attributes, nullptr);
            created.push_back({isManualReset, isSignalled, name});
            return create.Original(attributes, isManualReset, isSignalled, name);
        }};
    Run({nothing});
    ASSERT_THAT(created, SizeIs(1));
    EXPECT_EQ(created[0].isManualReset, TRUE);
    EXPECT_EQ(created[0].isSignalled, FALSE);
    EXPECT_EQ(created[0].name, L"AIRPLANE_WATCHER_EVENT");
}

TEST_F(WatcherTest, EventThatCannotBeCreatedIsLoggedEachTimeAndTriedAgain) {
    service.m_airplaneWatcherEvent.Reset();
    int tries = 0;
    Rig::ScopedImport<&::CreateEventW> create{
        [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR name) { return name != nullptr; },
        [&](LPSECURITY_ATTRIBUTES attributes, BOOL isManualReset, BOOL isSignalled, LPCWSTR name) -> HANDLE {
            if (++tries <= 3) {
                SetLastError(ERROR_ACCESS_DENIED);
                return nullptr;
            }
            return create.Original(attributes, isManualReset, isSignalled, name);
        }};
    Run({});
    EXPECT_EQ(tries, 4);
    EXPECT_THAT(Lines(), ElementsAre(Error(kWatcher, kCreateFailed), Error(kWatcher, kCreateFailed),
                                     Error(kWatcher, kCreateFailed)));
}

TEST_F(WatcherTest, NotificationThatCannotBeArmedIsTriedAgain) {
    int tries = 0;
    Rig::ScopedImport<&::RegNotifyChangeKeyValue> notify{
        [&](HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL isAsynchronous) {
            return ++tries <= 3 ? LONG{ERROR_NOT_ENOUGH_MEMORY}
                                : notify.Original(key, subtree, filter, event, isAsynchronous);
        }};
    Run({});
    EXPECT_EQ(tries, 4);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(WatcherTest, WaitThatFailsIsTriedAgain) {
    int waits = 0;
    const Rig::ScopedImport<&::WaitForSingleObject> wait{
        [this](HANDLE handle, DWORD) { return handle == service.m_airplaneWatcherEvent.Get(); },
        [&](HANDLE, DWORD) -> DWORD {
            if (++waits <= 3) {
                return WAIT_FAILED;
            }
            service.m_running = false;
            return WAIT_OBJECT_0;
        }};
    service.m_running = true;
    service.AirplaneModeWatcher();
    EXPECT_EQ(waits, 4);
    EXPECT_THAT(Lines(), IsEmpty());
}

/// There is no memory for the first read of what is remembered.
class NoMemoryForTheRestore : public WatcherTest {
  protected:
    NoMemoryForTheRestore() {
        world.EnableWlanSwitching();
        SetBoth(false);
        world.machine.RememberWlan(L"True");
    }

    Rig::ScopedImport<&::RegQueryValueExW> query{
        [](HKEY, LPCWSTR name, LPDWORD, LPDWORD, LPBYTE, LPDWORD) {
            return name != nullptr && std::wstring(name) == PowerStatus::kValueName;
        },
        [this](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD bytes) {
            if (!std::exchange(m_thrown, true)) {
                throw std::bad_alloc();
            }
            return query.Original(key, name, reserved, type, data, bytes);
        }};

  private:
    bool m_thrown = false;
};

TEST_F(NoMemoryForTheRestore, IsLoggedAndTheChangeIsFollowedAtOnceAgain) {
    world.machine.SetAirplaneMode(true);
    Run({airplaneOff});
    EXPECT_THAT(Lines(),
                ElementsAre(Information(kWatcher, kChange), Information(kWatcher, kAirplaneOff),
                            Error(kWatcher, L"Exception in AirplaneModeWatcher()"),
                            Information(kWatcher, kChange), Information(kWatcher, kAirplaneOff),
                            Information(kWatcher, L"Previous WLAN Power Status in registry = True"),
                            Information(kWatcher, L"Setting SetWlanPowerStatusInRegistry with value = 1")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
}

TEST_F(NoMemoryForTheRestore, WithoutAChangeOfAirplaneModeIsLoggedAndTheNextWakeCounts) {
    Run({nothing, nothing});
    EXPECT_EQ(log.Count(Error(kWatcher, L"Exception in AirplaneModeWatcher()")), 1);
    EXPECT_EQ(log.Count(Information(kWatcher, kChange)), 2);
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
}

// --- With the system's own notifications -----------------------------------------------------------

/// The watcher on a thread of its own, as in the service.
class LiveWatcherTest : public CoreTest {
  protected:
    LiveWatcherTest() {
        service.m_running = true;
        m_thread = std::thread([this] { service.AirplaneModeWatcher(); });
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
    Rig::ScopedImport<&::RegNotifyChangeKeyValue> m_notify{
        [this](HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL isAsynchronous) {
            if (m_armed + 1 == whichArming) {
                beforeArming();
            }
            const LONG result = m_notify.Original(key, subtree, filter, event, isAsynchronous);
            ++m_armed;
            return result;
        }};
    std::thread m_thread;
};

TEST_F(LiveWatcherTest, StopSignalEndsTheWaitingWatcherWithOneLine) {
    StopWatcher();
    EXPECT_THAT(log.Of(kWatcher), ElementsAre(TraceIn(kWatcher, kEntry), Information(kWatcher, kStopped),
                                              TraceOut(kWatcher, kExit)));
}

TEST_F(LiveWatcherTest, StopOfTheServiceEndsTheWatcher) {
    Stop(service);
    EXPECT_TRUE(log.WaitFor(Information(kWatcher, kStopped)));
}

TEST_F(LiveWatcherTest, ChangedAirplaneValueWakesIt) {
    world.machine.SetAirplaneMode(true);
    EXPECT_TRUE(log.WaitFor(Information(kWatcher, kChange)));
}

TEST_F(LiveWatcherTest, EveryChangeWakesItAgain) {
    world.machine.SetAirplaneMode(true);
    WaitUntilArmed(2);
    world.machine.SetAirplaneMode(false);
    WaitUntilArmed(3);
    EXPECT_EQ(log.Count(Information(kWatcher, kChange)), 2);
}

TEST_F(LiveWatcherTest, ChangedSubkeyWakesItToo) {
    world.machine.airplane.Create(L"Some Radio");
    WaitUntilArmed(2);
    world.machine.airplane.Write(L"Some Radio", L"State", Rig::RegistryNumber(1));
    WaitUntilArmed(3);
    EXPECT_GE(log.Count(Information(kWatcher, kChange)), 2);
}

TEST_F(LiveWatcherTest, ChangeBeforeTheArmingIsFollowedOnceAlthoughItsKeyIsClosedWhileArmed) {
    // Windows signals the event of an armed notification when its key is closed.
    beforeArming = [this] { world.machine.SetAirplaneMode(false); };
    whichArming = 2;
    world.machine.SetAirplaneMode(true);
    WaitUntilArmed(3);
    constexpr DWORD kAWhile = 100;
    Rig::Real<&::Sleep>(kAWhile);
    EXPECT_EQ(m_armed, 3);
    EXPECT_EQ(log.Count(Information(kWatcher, kChange)), 2);
}

TEST_F(LiveWatcherTest, WaitingWatcherDoesNotSpin) {
    constexpr DWORD kAWhile = 100;
    Rig::Real<&::Sleep>(kAWhile);
    EXPECT_EQ(m_armed, 1);
}

}  // namespace
}  // namespace CoreTests
