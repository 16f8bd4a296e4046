#include "core/wlan_notifications.h"

#include <wlanapi.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <thread>
#include <tuple>

#include "network/nlm_event_handler.h"
#include "platform/wlan_notifications.h"
#include "radio/wlan_radio.h"
#include "tests/core/core_test.h"
#include "tests/support/at_each_log_line.h"
#include "tests/support/throw_from_log_line.h"

namespace CoreTests {
namespace {

constexpr char kRegister[] = "CMainService::RegisterWlanNotification";
constexpr char kCallback[] = "CMainService::WlanNotificationCallback";
constexpr char kAvailable[] = "CMainService::HandleWlanNotificationAcmNetworkAvailable";
constexpr char kRadioChange[] = "CMainService::HandleWlanNotificationMsmRadioStateChange";

constexpr unsigned char kYes = 1;
constexpr unsigned char kNo = 0;

std::wstring HexOf(HANDLE handle) {
    wchar_t text[16] = {};
    _snwprintf(text, 15, L"0x%08lx", static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(handle)));
    return text;
}

// --- Registration ----------------------------------------------------------------------------------

class RegistrationTest : public CoreTest {
  protected:
    ~RegistrationTest() override { state.wlanHandle.Reset(); }

    OpenService service;
    ServiceState& state = service.m_state;
};

TEST_F(RegistrationTest, OpensAHandleAndAsksForTwoSources) {
    const ScopedWatch<&::WlanRegisterNotification> calls;
    EXPECT_EQ(RegisterWlanNotification(state, &kYes), DWORD{ERROR_SUCCESS});
    const HANDLE handle = state.wlanHandle.Get();
    EXPECT_EQ(RegisterWlanNotification(state, &kNo), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(state.wlanHandle.Get(), handle);
    EXPECT_THAT(notebook.Calls(Call::WlanOpenHandle), ElementsAre("WlanOpenHandle version 2"));
    EXPECT_THAT(calls.Arguments(),
                ElementsAre(FieldsAre(handle, 0x18U, FALSE, NotNull(), IsNull(), IsNull(), IsNull()),
                            FieldsAre(handle, 0U, FALSE, IsNull(), IsNull(), IsNull(), IsNull())));
    EXPECT_THAT(log.Of(kRegister),
                ElementsAre(TraceIn(kRegister, L"Registration Status - 1, WLANHandle = 0x00000000"),
                            TraceOut(kRegister, L"Return  = 0"),
                            TraceIn(kRegister, L"Registration Status - 0, WLANHandle = " + HexOf(handle)),
                            TraceOut(kRegister, L"Return  = 0")));
}

TEST_F(RegistrationTest, AnyOtherFlagThanZeroRegisters) {
    constexpr unsigned char kTwo = 2;
    EXPECT_EQ(RegisterWlanNotification(state, &kTwo), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(notebook.Held().wlanRegistrations, 1);
    EXPECT_TRUE(log.Contains(TraceIn(kRegister, L"Registration Status - 2, WLANHandle = 0x00000000")));
}

TEST_F(RegistrationTest, WhatIsAnnouncedArrivesUntilItIsTakenBack) {
    RegisterWlanNotification(state, &kYes);
    const auto announce = [this] {
        notebook.Act(&::Notebook::AnnounceWlan, 0U, std::uint32_t{WLAN_NOTIFICATION_SOURCE_ACM},
                     static_cast<std::uint32_t>(wlan_notification_acm_network_available));
        notebook.Deliver();
    };
    announce();
    RegisterWlanNotification(state, &kNo);
    announce();
    EXPECT_EQ(log.Count(TraceIn(kAvailable)), 1);
}

TEST_F(RegistrationTest, FailureIsLoggedAndReturned) {
    struct Case {
        Call call;
        DWORD error;
        const unsigned char* registers;
        const wchar_t* line;  ///< null: none
        DWORD result;
        bool keepsHandle;
    };
    // A failed registration shows the thread's last error, not the result.
    for (const Case& broken :
         {Case{Call::WlanOpenHandle, ERROR_SERVICE_NOT_ACTIVE, &kYes,
               L"WlanOpenHandle failed with error: 1062", ERROR_SERVICE_NOT_ACTIVE, false},
          Case{Call::WlanOpenHandle, ERROR_SUCCESS, &kYes, nullptr, ERROR_NOT_READY, false},
          Case{Call::WlanRegisterNotification, ERROR_INVALID_PARAMETER, &kYes,
               L"WlanRegisterNotification(Registration) fail with err 2!!", ERROR_INVALID_PARAMETER, true},
          Case{Call::WlanRegisterNotification, ERROR_INVALID_STATE, &kNo,
               L"WlanRegisterNotification (Un-Registration) fail with err 2!!", ERROR_INVALID_STATE, true}}) {
        SCOPED_TRACE(broken.error);
        state.wlanHandle.Reset();
        log.Clear();
        notebook.Fail(broken.call, 1, static_cast<LONG>(broken.error));
        SetLastError(ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(RegisterWlanNotification(state, broken.registers), broken.result);
        EXPECT_EQ(bool{state.wlanHandle}, broken.keepsHandle);
        std::vector<LogLine> lines;
        if (broken.line != nullptr) {
            lines.push_back(Error(kRegister, broken.line));
        }
        EXPECT_EQ(LinesOf(kRegister), lines);
        EXPECT_EQ(log.Of(kRegister).back(),
                  TraceOut(kRegister, L"Return  = " + std::to_wstring(broken.result)));
    }
}

/// A registration that meets a stop.
class RegistrationDuringAStop : public RegistrationTest {
  protected:
    /// Registers. While the handle for that is being opened, a stop opens one itself and gets as far
    /// as the first of one of its calls; it goes on when the registration has ended.
    DWORD RegisterWhileTheStopIsAt(Call call) {
        const Platform::UniqueHandle stopIsThere(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const Platform::UniqueHandle hasRegistered(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        std::thread stop;
        notebook.Before(Call::WlanOpenHandle, 1, [&] {
            stop = std::thread([&] {
                Stop(service);
                SetEvent(stopIsThere.Get());  // at the latest
            });
            WaitForSingleObject(stopIsThere.Get(), INFINITE);
        });
        notebook.Before(call, 1, [&] {
            SetEvent(stopIsThere.Get());
            WaitForSingleObject(hasRegistered.Get(), INFINITE);
        });
        const DWORD result = RegisterWlanNotification(state, &kYes);
        SetEvent(hasRegistered.Get());
        stop.join();
        return result;
    }
};

TEST_F(RegistrationDuringAStop, UsesItsOwnHandleWhileTheStopUsesTheOtherAndBothAreClosed) {
    EXPECT_EQ(RegisterWhileTheStopIsAt(Call::WlanRegisterNotification), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(notebook.Count(Call::WlanOpenHandle), 2);
    EXPECT_EQ(notebook.Count(Call::WlanRegisterNotification), 2);
    EXPECT_EQ(notebook.Count(Call::WlanCloseHandle), 2);
    EXPECT_FALSE(state.wlanHandle);
}

TEST_F(RegistrationDuringAStop, KeepsTheHandleThatItWorksWithOpen) {
    EXPECT_EQ(RegisterWlanNotification(state, &kYes), DWORD{ERROR_SUCCESS});
    const HANDLE handle = state.wlanHandle.Get();
    notebook.Before(Call::WlanRegisterNotification, 1, [this] { Stop(service); });
    EXPECT_EQ(RegisterWlanNotification(state, &kYes), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(state.wlanHandle.Get(), handle);
}

TEST_F(RegistrationDuringAStop, KeepsItsOwnHandleWhileTheStopClosesTheOther) {
    EXPECT_EQ(RegisterWhileTheStopIsAt(Call::WlanCloseHandle), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(notebook.Count(Call::WlanOpenHandle), 2);
    EXPECT_EQ(notebook.Count(Call::WlanCloseHandle), 1);
    EXPECT_TRUE(state.wlanHandle);
    EXPECT_EQ(notebook.Held().wlanRegistrations, 1);
}

// --- The callback ----------------------------------------------------------------------------------

/// Notifications as WLAN gives them to the callback that was registered, on the test's own thread.
class NotificationTest : public CoreTest {
  protected:
    NotificationTest() {
        const ScopedImport<&::WlanRegisterNotification> look{
            [this](HANDLE, DWORD, BOOL, WLAN_NOTIFICATION_CALLBACK callback, PVOID, PVOID, PDWORD) {
                m_callback = callback;
                return DWORD{ERROR_SUCCESS};
            }};
        ServiceState state;
        RegisterWlanNotification(state, &kYes);
        state.wlanHandle.Reset();
        log.Clear();
        notebook.ForgetCalls();
    }
    /// A notification is worth one switch. The next one comes soon enough.
    ~NotificationTest() override { ExpectNoSwitchIsRepeated(); }

    void Notify(DWORD source, DWORD code) const {
        WLAN_NOTIFICATION_DATA data{};
        data.NotificationSource = source;
        data.NotificationCode = code;
        m_callback(&data, nullptr);
    }
    void NotifyNetworkAvailable() const {
        Notify(WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_network_available);
    }
    void NotifyRadioChange() const {
        Notify(WLAN_NOTIFICATION_SOURCE_MSM, Platform::kWlanNotificationMsmRadioStateChange);
    }

    WLAN_NOTIFICATION_CALLBACK m_callback = nullptr;
};

TEST_F(NotificationTest, NullDataDoesNothing) {
    m_callback(nullptr, nullptr);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kCallback), TraceOut(kCallback)));
}

LogLine Noticed(const std::wstring& sourceAndCode) {
    return Information(kCallback, L"WlanNotificationCallback - Notification Source = " + sourceAndCode);
}
const LogLine kNoticedNetwork = Noticed(L"0x8, Notification Code = 19");
const LogLine kNoticedRadio = Noticed(L"0x10, Notification Code = 7");

TEST_F(NotificationTest, OtherNotificationsAreOnlyLogged) {
    struct Other {
        DWORD source;
        DWORD code;
        const wchar_t* text;
    };
    // Each code under the other's source, and sources and codes that nobody knows.
    for (const Other& other :
         {Other{WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_connection_complete,
                L"0x8, Notification Code = 10"},
          Other{0x10, 6, L"0x10, Notification Code = 6"}, Other{0x10, 19, L"0x10, Notification Code = 19"},
          Other{0x8, 7, L"0x8, Notification Code = 7"},
          Other{WLAN_NOTIFICATION_SOURCE_SECURITY, 7, L"0x20, Notification Code = 7"},
          Other{0, 0, L"0x0, Notification Code = 0"}, Other{0x18, 19, L"0x18, Notification Code = 19"},
          Other{0xFFFFFFFF, 0xFFFFFFFF, L"0xffffffff, Notification Code = -1"}}) {
        log.Clear();
        Notify(other.source, other.code);
        EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kCallback), Noticed(other.text), TraceOut(kCallback)));
    }
    EXPECT_THAT(notebook.Calls(), IsEmpty());
}

TEST_F(NotificationTest, AvailableNetworkAndRadioChangeGoEachToItsHandler) {
    NotifyNetworkAvailable();
    EXPECT_THAT(
        LinesOf(kCallback),
        ElementsAre(kNoticedNetwork,
                    Information(kCallback,
                                L"NotificationSource = WLAN_NOTIFICATION_SOURCE_ACM, NotificationCode = "
                                L"wlan_notification_acm_network_available. Processing Callback ")));
    EXPECT_EQ(log.Count(TraceIn(kAvailable)), 1);
    EXPECT_THAT(log.Of(kRadioChange), IsEmpty());

    log.Clear();
    NotifyRadioChange();
    EXPECT_THAT(
        LinesOf(kCallback),
        ElementsAre(kNoticedRadio,
                    Information(kCallback,
                                L"NotificationSource = WLAN_NOTIFICATION_SOURCE_MSM, NotificationCode= "
                                L"wlan_notification_msm_radio_state_change. Processing Callback")));
    EXPECT_EQ(log.Count(TraceIn(kRadioChange)), 1);
    EXPECT_THAT(log.Of(kAvailable), IsEmpty());
}

TEST_F(NotificationTest, HandlersNeverRunAtTheSameTime) {
    // While the first handler asks for the adapters, a second notification comes on its own thread.
    constexpr DWORD kGrace = 50;
    const Platform::UniqueHandle secondEnded(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread second;
    bool endedEarly = true;
    notebook.At(Call::GetAdaptersInfo, 1, [&] {
        second = std::thread([&] {
            NotifyNetworkAvailable();
            SetEvent(secondEnded.Get());
        });
        // Written before the lock is asked for.
        EXPECT_TRUE(log.WaitFor(kNoticedNetwork));
        // It gets as far as the lock and no further.
        endedEarly = Rig::Real<&::WaitForSingleObject>(secondEnded.Get(), kGrace) != WAIT_TIMEOUT;
        return DWORD{ERROR_NOT_SUPPORTED};
    });
    NotifyRadioChange();
    second.join();
    EXPECT_FALSE(endedEarly);
    const std::vector<LogLine> lines = log.Lines();
    const auto firstEnd = std::ranges::find(lines, TraceOut(kRadioChange));
    const auto secondStart = std::ranges::find(lines, TraceIn(kAvailable));
    EXPECT_LT(firstEnd, secondStart);
    EXPECT_NE(secondStart, lines.end());
}

// --- What the handlers do --------------------------------------------------------------------------

enum class Radio { kOff, kOn, kRefusing, kUnreadable };

/// A machine on which a notification comes: the cable, airplane mode, the feature, the radio, and whether a
/// cable event is under way. The opposite of what the radio is found at is remembered.
class NotificationIn : public NotificationTest,
                       public testing::WithParamInterface<std::tuple<Cable, bool, bool, Radio, bool>> {
  protected:
    NotificationIn() {
        Set(cable);
        machine.SetAirplaneMode(inAirplaneMode);
        EnableWlanSwitching(isEnabled);
        SetRadios(radio != Radio::kOff);
        if (radio == Radio::kRefusing) {
            MakeRadiosStubborn();
        } else if (radio == Radio::kUnreadable) {
            notebook.Fail(Call::WlanOpenHandle, 1, ERROR_SERVICE_NOT_ACTIVE);
        }
        machine.RememberWlan(remembered);
        msm_Notification_flag = duringCableEvent;
        ServiceUtils::my_service_turnonoff_wifi = ServiceUtils::kRadioOn;
    }

    /// The handler's lines, the failures' as errors.
    void ExpectLines(const char* function, const std::vector<std::wstring>& lines) const {
        std::vector<LogLine> expected{TraceIn(function)};
        for (const std::wstring& line : lines) {
            expected.push_back(line.ends_with(L"failed") ? Error(function, line)
                                                         : Information(function, line));
        }
        expected.push_back(TraceOut(function));
        EXPECT_EQ(log.Of(function), expected);
    }
    /// WLAN is switched off once, or nothing is switched.
    void ExpectSwitchedOff(bool isSwitched, bool respectsAirplaneMode) const {
        EXPECT_EQ(log.Of("ServiceUtils::SwitchWlanStatus").empty(), !isSwitched);
        if (isSwitched) {
            ExpectSwitchCall("ServiceUtils::SwitchWlanStatus", false, respectsAirplaneMode);
        }
        EXPECT_THAT(WlanSwitches(), Each("off"));
        EXPECT_EQ(notebook.WlanIsOff(), radio == Radio::kOff || (isSwitched && radio == Radio::kOn));
    }

    const Cable cable = std::get<0>(GetParam());
    const bool inAirplaneMode = std::get<1>(GetParam());
    const bool isEnabled = std::get<2>(GetParam());
    const Radio radio = std::get<3>(GetParam());
    const bool duringCableEvent = std::get<4>(GetParam());
    /// What the first look at the radio says. One that cannot be read counts as off.
    const bool isFoundOn = radio == Radio::kOn || radio == Radio::kRefusing;
    const bool isCableIn = cable == Cable::kIn;
    const std::wstring remembered = isFoundOn ? L"False" : L"True";
};

constexpr wchar_t kCheckFailedText[] = L"CheckEthernetConnectionStatusEx failed";
constexpr wchar_t kSwitchFailedText[] = L"SwitchWlanStatus(false) failed";
const std::wstring kEthernet = L"Ethernet connection status = ";

/// Airplane mode only forbids switching on, and a cable event makes no difference.
TEST_P(NotificationIn, OfANetworkRemembersARadioThatIsOnOrSwitchesItOffBesideTheCable) {
    std::vector<std::wstring> lines{kEthernet + (isCableIn ? L"1" : L"0")};
    if (cable == Cable::kUnreadable) {
        lines = {kCheckFailedText};
    } else if (isCableIn) {
        lines.insert(lines.end(),
                     {L"Ethernet is connected", isEnabled ? L"LAN-WLAN Auto Switching Status = 1"
                                                          : L"LAN-WLAN Auto Switching Status = 0"});
    } else {
        lines.emplace_back(
            L"wlan_notification_acm_network_available ServiceUtils::my_service_turnonoff_wifi : 1");
    }
    if (cable == Cable::kOut && isFoundOn) {
        lines.emplace_back(
            L"wlan_notification_acm_network_available Registry set to True. Setting WlanPowerStatus 1 in "
            L"registry.");
    }
    const bool switches = isCableIn && isEnabled;
    if (switches && radio == Radio::kRefusing) {
        lines.emplace_back(kSwitchFailedText);
    }
    NotifyNetworkAvailable();
    ExpectLines(kAvailable, lines);
    ExpectSwitchedOff(switches, true);
    EXPECT_EQ(machine.RememberedWlan(), cable == Cable::kOut && isFoundOn ? L"True" : remembered);
}

TEST_P(NotificationIn, OfARadioChangeIsTheUsersChoiceOrUndoneBesideTheCable) {
    std::vector<std::wstring> lines{kEthernet + (isCableIn ? L"1" : L"0"),
                                    isFoundOn ? L"Current WLAN status = 1" : L"Current WLAN status = 0"};
    const bool switches = isCableIn && isEnabled && isFoundOn;
    const bool isUsers = cable == Cable::kOut && !inAirplaneMode && !duringCableEvent;
    if (isUsers) {
        lines.push_back(
            L"Airplane mode if OFF. Ethernet not connected. msm_Notification_flag = false. Setting WLAN "
            L"registry status with WiFi Status = " +
            std::to_wstring(isFoundOn));
    }
    if (switches && radio == Radio::kRefusing) {
        lines.emplace_back(kSwitchFailedText);
    }
    if (inAirplaneMode) {
        lines.emplace_back(isFoundOn ? L"Changing WiFi Status (string) to True "
                                     : L"Changing WiFi Status (string) to False ");
    }
    if (cable == Cable::kUnreadable) {
        lines = {kCheckFailedText};
    }
    NotifyRadioChange();
    ExpectLines(kRadioChange, lines);
    ExpectSwitchedOff(switches, false);
    EXPECT_EQ(machine.RememberedWlan(), isUsers ? (isFoundOn ? L"True" : L"False") : remembered);
}

INSTANTIATE_TEST_SUITE_P(Situations, NotificationIn,
                         testing::Combine(testing::Values(Cable::kOut, Cable::kIn, Cable::kUnreadable),
                                          testing::Bool(), testing::Bool(),
                                          testing::Values(Radio::kOff, Radio::kOn, Radio::kRefusing,
                                                          Radio::kUnreadable),
                                          testing::Bool()));

TEST_F(NotificationTest, AirplaneModeThatBeginsWhileTheRadioIsLookedAtComesTooLate) {
    SetRadios(false);
    machine.RememberWlan(L"True");
    notebook.Before(Call::WlanOpenHandle, 1, [this] { machine.SetAirplaneMode(true); });
    NotifyRadioChange();
    EXPECT_EQ(machine.RememberedWlan(), L"False");
}

// --- Exceptions ------------------------------------------------------------------------------------

TEST_F(NotificationTest, WhateverIsThrownIsCaughtAndLeavesTheLockFree) {
    // The callback's trace and two lines, then the handler's trace, then the Ethernet test's.
    constexpr int kInsideTheHandler = 5;
    constexpr int kBeforeTheLock = 2;
    const LogLine caught = Error(kCallback, L"Exception in WlanNotificationCallback()");
    // The handler of changed radios catches it itself, the other one leaves it to the callback.
    {
        const Rig::ThrowFromLogLine throwing(kInsideTheHandler, 42);
        NotifyRadioChange();
    }
    EXPECT_THAT(log.Of(kRadioChange),
                ElementsAre(TraceIn(kRadioChange),
                            Error(kRadioChange, L"Exception in HandleWlanNotificationMsmRadioStateChange()"),
                            TraceOut(kRadioChange)));
    EXPECT_THAT(log.Of(kCallback), SizeIs(4));
    log.Clear();
    {
        const Rig::ThrowFromLogLine throwing(kInsideTheHandler, 42);
        NotifyNetworkAvailable();
    }
    EXPECT_THAT(log.Of(kAvailable), ElementsAre(TraceIn(kAvailable), TraceOut(kAvailable)));
    EXPECT_THAT(log.At(kError), ElementsAre(caught));
    log.Clear();
    {
        const Rig::ThrowFromLogLine throwing(kBeforeTheLock, 42);
        NotifyNetworkAvailable();
    }
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kCallback), caught, TraceOut(kCallback)));

    log.Clear();
    Rig::RunOnThread([this] { NotifyNetworkAvailable(); });
    EXPECT_TRUE(log.Contains(TraceIn(kAvailable)));
}

TEST_F(NotificationTest, LockIsFreeBeforeAnExceptionIsLogged) {
    constexpr std::chrono::seconds kTimeout{5};
    bool hasThrown = false;
    {
        const Rig::AtEachLogLine lines([&](const Orva::Shared::CorvaLogListener::LogData& entry) {
            if (entry.GetLevel() == kError) {
                // Another notification gets through while the line is still to be written.
                Rig::RunOnThread([this] { NotifyNetworkAvailable(); }, Rig::Apartment::kNone, kTimeout);
            } else if (!hasThrown && entry.FunctionName() == kAvailable) {
                hasThrown = true;
                throw std::runtime_error("log");
            }
        });
        NotifyNetworkAvailable();
    }
    const std::vector<LogLine> written = log.Lines();
    const auto otherEnd = std::ranges::find(written, TraceOut(kAvailable));
    const auto error =
        std::ranges::find(written, Error(kCallback, L"Exception in WlanNotificationCallback()"));
    EXPECT_LT(otherEnd, error);
    EXPECT_NE(error, written.end());
}

}  // namespace
}  // namespace CoreTests
