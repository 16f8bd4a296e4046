#include <windows.h>
#include <wlanapi.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "bios/bios_settings.h"
#include "network/nlm_event_handler.h"
#include "platform/wlan_notifications.h"
#include "radio/wlan_radio.h"
#include "tests/core/core_world.h"
#include "tests/support/at_each_log_line.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/throw_from_log_line.h"

namespace CoreTests {
namespace {

using Rig::Lines::Error;
using Rig::Lines::Information;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr char kRegister[] = "CMainService::RegisterWlanNotification";
constexpr char kCallback[] = "CMainService::WlanNotificationCallback";
constexpr char kAvailable[] = "CMainService::HandleWlanNotificationAcmNetworkAvailable";
constexpr char kRadioChange[] = "CMainService::HandleWlanNotificationMsmRadioStateChange";

constexpr wchar_t kCheckFailed[] = L"CheckEthernetConnectionStatusEx failed";
constexpr wchar_t kSwitchFailed[] = L"SwitchWlanStatus(false) failed";
constexpr wchar_t kUsersChoiceOff[] =
    L"Airplane mode if OFF. Ethernet not connected. msm_Notification_flag = false. Setting WLAN registry "
    L"status "
    L"with WiFi Status = 0";
constexpr wchar_t kUsersChoiceOn[] =
    L"Airplane mode if OFF. Ethernet not connected. msm_Notification_flag = false. Setting WLAN registry "
    L"status "
    L"with WiFi Status = 1";

constexpr unsigned char kYes = 1;
constexpr unsigned char kNo = 0;
constexpr ULONG kAnotherSource = WLAN_NOTIFICATION_SOURCE_SECURITY;

std::wstring HexOf(HANDLE handle) {
    wchar_t text[16] = {};
    _snwprintf(text, 15, L"0x%08lx", static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(handle)));
    return text;
}

class WlanNotificationsTest : public CoreTest {
  protected:
    /// A notification is worth one switch. The next one comes soon enough.
    ~WlanNotificationsTest() override {
        EXPECT_THAT(log.Of("ServiceUtils::SwitchWlanStatusWithRetry"), IsEmpty());
    }

    static void Notify(DWORD source, DWORD code) {
        WLAN_NOTIFICATION_DATA data{};
        data.NotificationSource = source;
        data.NotificationCode = code;
        CMainService::WlanNotificationCallback(&data, nullptr);
    }
    static void NotifyNetworkAvailable() {
        Notify(WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_network_available);
    }
    static void NotifyRadioChange() {
        Notify(WLAN_NOTIFICATION_SOURCE_MSM, Platform::kWlanNotificationMsmRadioStateChange);
    }
    void SetWlan(bool isOn) { world.wlan.adapters[0].phys[0] = isOn ? RadioTests::On() : RadioTests::Off(); }
};

// --- Registration ----------------------------------------------------------------------------------

TEST_F(WlanNotificationsTest, RegistrationOpensAHandleAndAsksForTwoSources) {
    OpenService service;
    EXPECT_EQ(service.RegisterWlanNotification(&kYes), DWORD{ERROR_SUCCESS});
    ASSERT_TRUE(service.m_wlanHandle);
    EXPECT_THAT(world.wlan.Calls(), ElementsAre("Open 2"));
    ASSERT_THAT(world.notifications.calls, SizeIs(1));
    const FakeNotifications::Call& call = world.notifications.calls.front();
    EXPECT_EQ(call.client, service.m_wlanHandle.Get());
    EXPECT_EQ(call.sources, 0x18U);
    EXPECT_EQ(call.ignoresDuplicates, FALSE);
    EXPECT_EQ(call.callback, &CMainService::WlanNotificationCallback);
    EXPECT_EQ(call.context, nullptr);
    EXPECT_FALSE(call.hasRest);
    EXPECT_THAT(log.Of(kRegister),
                ElementsAre(TraceIn(kRegister, L"Registration Status - 1, WLANHandle = 0x00000000"),
                            TraceOut(kRegister, L"Return  = 0")));
    service.m_wlanHandle.Reset();
}

TEST_F(WlanNotificationsTest, UnregistrationUsesTheHandleThatIsThere) {
    OpenService service;
    service.RegisterWlanNotification(&kYes);
    log.Clear();
    EXPECT_EQ(service.RegisterWlanNotification(&kNo), DWORD{ERROR_SUCCESS});
    EXPECT_THAT(world.wlan.Calls(), ElementsAre("Open 2"));
    ASSERT_THAT(world.notifications.calls, SizeIs(2));
    const FakeNotifications::Call& call = world.notifications.calls.back();
    EXPECT_EQ(call.client, service.m_wlanHandle.Get());
    EXPECT_EQ(call.sources, DWORD{WLAN_NOTIFICATION_SOURCE_NONE});
    EXPECT_EQ(call.ignoresDuplicates, FALSE);
    EXPECT_EQ(call.callback, nullptr);
    EXPECT_EQ(call.context, nullptr);
    EXPECT_THAT(log.Of(kRegister), ElementsAre(TraceIn(kRegister, L"Registration Status - 0, WLANHandle = " +
                                                                      HexOf(service.m_wlanHandle.Get())),
                                               TraceOut(kRegister, L"Return  = 0")));
    service.m_wlanHandle.Reset();
}

TEST_F(WlanNotificationsTest, AnyOtherFlagThanZeroRegisters) {
    constexpr unsigned char kTwo = 2;
    OpenService service;
    EXPECT_EQ(service.RegisterWlanNotification(&kTwo), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(world.notifications.calls.front().sources, 0x18U);
    EXPECT_TRUE(log.Contains(TraceIn(kRegister, L"Registration Status - 2, WLANHandle = 0x00000000")));
    service.m_wlanHandle.Reset();
}

TEST_F(WlanNotificationsTest, MissingHandleEndsTheRegistration) {
    world.wlan.Fail(RadioTests::WlanCall::kOpen, 1, ERROR_SERVICE_NOT_ACTIVE);
    OpenService service;
    EXPECT_EQ(service.RegisterWlanNotification(&kYes), DWORD{ERROR_SERVICE_NOT_ACTIVE});
    EXPECT_FALSE(service.m_wlanHandle);
    EXPECT_THAT(world.notifications.calls, IsEmpty());
    EXPECT_THAT(log.Of(kRegister),
                ElementsAre(TraceIn(kRegister, L"Registration Status - 1, WLANHandle = 0x00000000"),
                            Error(kRegister, L"WlanOpenHandle failed with error: 1062"),
                            TraceOut(kRegister, L"Return  = 1062")));
}

TEST_F(WlanNotificationsTest, SuccessWithoutAHandleIsNotReady) {
    Rig::ScopedImport<&::WlanOpenHandle> nothing{[](DWORD, PVOID, PDWORD, PHANDLE client) {
        *client = nullptr;
        return DWORD{ERROR_SUCCESS};
    }};
    OpenService service;
    EXPECT_EQ(service.RegisterWlanNotification(&kYes), DWORD{ERROR_NOT_READY});
    EXPECT_THAT(world.notifications.calls, IsEmpty());
    EXPECT_TRUE(log.Contains(TraceOut(kRegister, L"Return  = 21")));
}

TEST_F(WlanNotificationsTest, FailedRegistrationLogsTheLastErrorAndReturnsItsResult) {
    world.notifications.result = ERROR_INVALID_PARAMETER;
    world.notifications.lastError = ERROR_FILE_NOT_FOUND;
    OpenService service;
    EXPECT_EQ(service.RegisterWlanNotification(&kYes), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_THAT(log.Of(kRegister),
                ElementsAre(TraceIn(kRegister, L"Registration Status - 1, WLANHandle = 0x00000000"),
                            Error(kRegister, L"WlanRegisterNotification(Registration) fail with err 2!!"),
                            TraceOut(kRegister, L"Return  = 87")));
    EXPECT_TRUE(service.m_wlanHandle);
    service.m_wlanHandle.Reset();
}

TEST_F(WlanNotificationsTest, FailedUnregistrationLogsTheLastErrorAndReturnsItsResult) {
    world.notifications.result = ERROR_INVALID_STATE;
    world.notifications.lastError = ERROR_INVALID_HANDLE;
    OpenService service;
    EXPECT_EQ(service.RegisterWlanNotification(&kNo), DWORD{ERROR_INVALID_STATE});
    EXPECT_THAT(
        world.LinesOf(kRegister),
        ElementsAre(Error(kRegister, L"WlanRegisterNotification (Un-Registration) fail with err 6!!")));
    EXPECT_TRUE(log.Contains(TraceOut(kRegister, L"Return  = 5023")));
    service.m_wlanHandle.Reset();
}

// --- A registration that meets a stop --------------------------------------------------------------

class RegistrationDuringAStop : public WlanNotificationsTest {
  protected:
    /// Registers. While the handle for that is being opened, a stop opens one itself and gets as far
    /// as one of its calls; it goes on when the registration has ended.
    DWORD RegisterWhileTheStopIsAt(const std::string& call) {
        const Platform::UniqueHandle stopIsThere(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const Platform::UniqueHandle hasRegistered(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        std::thread stop;
        world.journal.At("WlanOpenHandle", [&] {
            stop = std::thread([this] { Stop(service); });
            WaitForSingleObject(stopIsThere.Get(), INFINITE);
        });
        world.journal.At(call, [&] {
            SetEvent(stopIsThere.Get());
            WaitForSingleObject(hasRegistered.Get(), INFINITE);
        });
        const DWORD result = service.RegisterWlanNotification(&kYes);
        SetEvent(hasRegistered.Get());
        stop.join();
        return result;
    }

    OpenService service;
};

TEST_F(RegistrationDuringAStop, UsesItsOwnHandleWhileTheStopUsesTheOtherAndBothAreClosed) {
    EXPECT_EQ(RegisterWhileTheStopIsAt("WlanRegisterNotification 0"), DWORD{ERROR_SUCCESS});
    EXPECT_THAT(world.wlan.Calls(), ElementsAre("Open 2", "Open 2", "Close", "Close"));
    ASSERT_THAT(world.notifications.calls, SizeIs(2));
    EXPECT_EQ(world.notifications.calls[0].sources, 0x18U);
    EXPECT_NE(world.notifications.calls[0].client, world.notifications.calls[1].client);
    EXPECT_FALSE(service.m_wlanHandle);
}

TEST_F(RegistrationDuringAStop, KeepsTheHandleThatItWorksWithOpen) {
    EXPECT_EQ(service.RegisterWlanNotification(&kYes), DWORD{ERROR_SUCCESS});
    const HANDLE handle = service.m_wlanHandle.Get();
    world.journal.At("WlanRegisterNotification 24", [this] { Stop(service); });
    EXPECT_EQ(service.RegisterWlanNotification(&kYes), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(service.m_wlanHandle.Get(), handle);
    service.m_wlanHandle.Reset();
}

TEST_F(RegistrationDuringAStop, KeepsItsOwnHandleWhileTheStopClosesTheOther) {
    EXPECT_EQ(RegisterWhileTheStopIsAt("WlanCloseHandle"), DWORD{ERROR_SUCCESS});
    EXPECT_THAT(world.wlan.Calls(), ElementsAre("Open 2", "Open 2", "Close"));
    ASSERT_THAT(world.notifications.calls, SizeIs(2));
    EXPECT_EQ(world.notifications.calls[1].sources, 0x18U);
    EXPECT_NE(world.notifications.calls[0].client, world.notifications.calls[1].client);
    EXPECT_EQ(world.notifications.calls[1].client, service.m_wlanHandle.Get());
    service.m_wlanHandle.Reset();
}

// --- The callback ----------------------------------------------------------------------------------

TEST_F(WlanNotificationsTest, NullDataDoesNothing) {
    CMainService::WlanNotificationCallback(nullptr, nullptr);
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kCallback), TraceOut(kCallback)));
}

TEST_F(WlanNotificationsTest, OtherNotificationsAreOnlyLogged) {
    Notify(WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_connection_complete);
    Notify(WLAN_NOTIFICATION_SOURCE_MSM, 6);
    // Each code under the other's source, and sources and codes that nobody knows.
    Notify(WLAN_NOTIFICATION_SOURCE_MSM, wlan_notification_acm_network_available);
    Notify(WLAN_NOTIFICATION_SOURCE_ACM, Platform::kWlanNotificationMsmRadioStateChange);
    Notify(kAnotherSource, 7);
    Notify(0, 0);
    Notify(WLAN_NOTIFICATION_SOURCE_ACM | WLAN_NOTIFICATION_SOURCE_MSM, 19);
    Notify(0xFFFFFFFF, 0xFFFFFFFF);
    constexpr wchar_t kPrefix[] = L"WlanNotificationCallback - Notification Source = ";
    EXPECT_THAT(
        log.From(Orva::Shared::Level::kInformation),
        ElementsAre(Information(kCallback, std::wstring(kPrefix) + L"0x8, Notification Code = 10"),
                    Information(kCallback, std::wstring(kPrefix) + L"0x10, Notification Code = 6"),
                    Information(kCallback, std::wstring(kPrefix) + L"0x10, Notification Code = 19"),
                    Information(kCallback, std::wstring(kPrefix) + L"0x8, Notification Code = 7"),
                    Information(kCallback, std::wstring(kPrefix) + L"0x20, Notification Code = 7"),
                    Information(kCallback, std::wstring(kPrefix) + L"0x0, Notification Code = 0"),
                    Information(kCallback, std::wstring(kPrefix) + L"0x18, Notification Code = 19"),
                    Information(kCallback, std::wstring(kPrefix) + L"0xffffffff, Notification Code = -1")));
    EXPECT_THAT(world.wlan.Calls(), IsEmpty());
}

TEST_F(WlanNotificationsTest, AvailableNetworkIsHandedToItsHandler) {
    NotifyNetworkAvailable();
    EXPECT_THAT(
        log.Of(kCallback),
        ElementsAre(TraceIn(kCallback),
                    Information(kCallback,
                                L"WlanNotificationCallback - Notification Source = 0x8, "
                                L"Notification Code = 19"),
                    Information(kCallback,
                                L"NotificationSource = WLAN_NOTIFICATION_SOURCE_ACM, NotificationCode = "
                                L"wlan_notification_acm_network_available. Processing Callback "),
                    TraceOut(kCallback)));
    EXPECT_THAT(log.Lines(), Contains(TraceIn(kAvailable)));
    EXPECT_THAT(log.Lines(), Not(Contains(TraceIn(kRadioChange))));
}

TEST_F(WlanNotificationsTest, RadioChangeIsHandedToItsHandler) {
    NotifyRadioChange();
    EXPECT_THAT(
        log.Of(kCallback),
        ElementsAre(TraceIn(kCallback),
                    Information(kCallback,
                                L"WlanNotificationCallback - Notification Source = 0x10, "
                                L"Notification Code = 7"),
                    Information(kCallback,
                                L"NotificationSource = WLAN_NOTIFICATION_SOURCE_MSM, NotificationCode= "
                                L"wlan_notification_msm_radio_state_change. Processing Callback"),
                    TraceOut(kCallback)));
    EXPECT_THAT(log.Lines(), Contains(TraceIn(kRadioChange)));
    EXPECT_THAT(log.Lines(), Not(Contains(TraceIn(kAvailable))));
}

TEST_F(WlanNotificationsTest, HandlersNeverRunAtTheSameTime) {
    // While the first handler asks for the adapters, a second notification comes on its own thread.
    const HANDLE secondArrived = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE secondEnded = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    struct Second {
        HANDLE arrived;
        HANDLE ended;
    } second{secondArrived, secondEnded};
    HANDLE thread = nullptr;
    bool endedEarly = true;
    world.machine.adapters.AnswerNext([&](IP_ADAPTER_INFO*, ULONG*) {
        thread = CreateThread(
            nullptr, 0,
            [](void* argument) -> DWORD {
                const auto* const events = static_cast<Second*>(argument);
                SetEvent(events->arrived);
                NotifyNetworkAvailable();
                SetEvent(events->ended);
                return 0;
            },
            &second, 0, nullptr);
        WaitForSingleObject(secondArrived, INFINITE);
        // Written before the lock is asked for.
        EXPECT_TRUE(log.WaitFor(Information(
            kCallback, L"WlanNotificationCallback - Notification Source = 0x8, Notification Code = 19")));
        // It gets as far as the lock and no further.
        constexpr DWORD kGrace = 50;
        endedEarly = Rig::Real<&::WaitForSingleObject>(secondEnded, kGrace) != WAIT_TIMEOUT;
        return DWORD{ERROR_NOT_SUPPORTED};
    });
    NotifyRadioChange();
    Rig::Real<&::WaitForSingleObject>(thread, DWORD{INFINITE});
    EXPECT_FALSE(endedEarly);
    const std::vector<Rig::LogLine> lines = log.Lines();
    const auto firstEnd = std::find(lines.begin(), lines.end(), TraceOut(kRadioChange));
    const auto secondStart = std::find(lines.begin(), lines.end(), TraceIn(kAvailable));
    EXPECT_LT(firstEnd, secondStart);
    EXPECT_NE(secondStart, lines.end());
    CloseHandle(thread);
    CloseHandle(secondArrived);
    CloseHandle(secondEnded);
}

// --- A network becomes available -------------------------------------------------------------------

TEST_F(WlanNotificationsTest, AvailableNetworkWithoutCableRemembersThatWlanIsOn) {
    world.machine.RememberWlan(L"False");
    ServiceUtils::my_service_turnonoff_wifi = ServiceUtils::kRadioOn;
    NotifyNetworkAvailable();
    EXPECT_THAT(log.Of(kAvailable),
                ElementsAre(TraceIn(kAvailable), Information(kAvailable, L"Ethernet connection status = 0"),
                            Information(kAvailable,
                                        L"wlan_notification_acm_network_available "
                                        L"ServiceUtils::my_service_turnonoff_wifi : 1"),
                            Information(kAvailable,
                                        L"wlan_notification_acm_network_available Registry set to True. "
                                        L"Setting WlanPowerStatus 1 in registry."),
                            TraceOut(kAvailable)));
    EXPECT_EQ(world.machine.RememberedWlan(), L"True");
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
}

TEST_F(WlanNotificationsTest, AvailableNetworkOfARadioThatIsOffStoresNothing) {
    SetWlan(false);
    NotifyNetworkAvailable();
    EXPECT_THAT(world.LinesOf(kAvailable),
                ElementsAre(Information(kAvailable, L"Ethernet connection status = 0"),
                            Information(kAvailable,
                                        L"wlan_notification_acm_network_available "
                                        L"ServiceUtils::my_service_turnonoff_wifi : 0")));
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(WlanNotificationsTest, AvailableNetworkWithoutCableIsRememberedInAirplaneModeToo) {
    world.machine.SetAirplaneMode(true);
    world.machine.RememberWlan(L"False");
    NotifyNetworkAvailable();
    EXPECT_THAT(world.LinesOf(kAvailable),
                ElementsAre(Information(kAvailable, L"Ethernet connection status = 0"),
                            Information(kAvailable,
                                        L"wlan_notification_acm_network_available "
                                        L"ServiceUtils::my_service_turnonoff_wifi : 0"),
                            Information(kAvailable,
                                        L"wlan_notification_acm_network_available Registry set to True. "
                                        L"Setting WlanPowerStatus 1 in registry.")));
    EXPECT_EQ(world.machine.RememberedWlan(), L"True");
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
}

TEST_F(WlanNotificationsTest, AvailableNetworkWithCableSwitchesWlanOff) {
    world.EnableWlanSwitching();
    world.machine.PlugCableIn();
    NotifyNetworkAvailable();
    EXPECT_THAT(world.LinesOf(kAvailable),
                ElementsAre(Information(kAvailable, L"Ethernet connection status = 1"),
                            Information(kAvailable, L"Ethernet is connected"),
                            Information(kAvailable, L"LAN-WLAN Auto Switching Status = 1")));
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWlanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 1")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(WlanNotificationsTest, AvailableNetworkWithCableAndFeatureDisabledIsLeftAlone) {
    world.machine.PlugCableIn();
    NotifyNetworkAvailable();
    EXPECT_THAT(world.LinesOf(kAvailable),
                ElementsAre(Information(kAvailable, L"Ethernet connection status = 1"),
                            Information(kAvailable, L"Ethernet is connected"),
                            Information(kAvailable, L"LAN-WLAN Auto Switching Status = 0")));
    EXPECT_THAT(world.wlan.Calls(), IsEmpty());
}

TEST_F(WlanNotificationsTest, AvailableNetworkWithCableInAirplaneModeSwitchesWlanOffAllTheSame) {
    // Airplane mode only forbids switching on.
    world.EnableWlanSwitching();
    world.machine.PlugCableIn();
    world.machine.SetAirplaneMode(true);
    NotifyNetworkAvailable();
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_FALSE(log.Contains(Error(kAvailable, kSwitchFailed)));
}

TEST_F(WlanNotificationsTest, RefusedSwitchIsLoggedOnce) {
    world.EnableWlanSwitching();
    world.machine.PlugCableIn();
    world.wlan.adapters[0].phys[0] = RadioTests::Refusing(RadioTests::On());
    NotifyNetworkAvailable();
    EXPECT_THAT(world.LinesOf(kAvailable),
                ElementsAre(Information(kAvailable, L"Ethernet connection status = 1"),
                            Information(kAvailable, L"Ethernet is connected"),
                            Information(kAvailable, L"LAN-WLAN Auto Switching Status = 1"),
                            Error(kAvailable, kSwitchFailed)));
}

TEST_F(WlanNotificationsTest, UnreadableAdaptersEndTheHandlingOfAnAvailableNetwork) {
    world.machine.HideAdapters();
    NotifyNetworkAvailable();
    EXPECT_THAT(log.Of(kAvailable),
                ElementsAre(TraceIn(kAvailable), Error(kAvailable, kCheckFailed), TraceOut(kAvailable)));
    EXPECT_THAT(world.wlan.Calls(), IsEmpty());
}

// --- The radio changes -----------------------------------------------------------------------------

TEST_F(WlanNotificationsTest, SwitchingOffWithoutCableIsTheUsersChoice) {
    SetWlan(false);
    NotifyRadioChange();
    EXPECT_THAT(
        log.Of(kRadioChange),
        ElementsAre(TraceIn(kRadioChange), Information(kRadioChange, L"Ethernet connection status = 0"),
                    Information(kRadioChange, L"Current WLAN status = 0"),
                    Information(kRadioChange, kUsersChoiceOff), TraceOut(kRadioChange)));
    EXPECT_EQ(world.machine.RememberedWlan(), L"False");
}

TEST_F(WlanNotificationsTest, UnplugAfterTheUsersSwitchOffLeavesWlanOff) {
    world.machine.RememberWlan(L"True");
    SetWlan(false);
    NotifyRadioChange();
    world.wlan.ForgetCalls();
    ServiceUtils::StartWLANService();
    EXPECT_TRUE(world.wlan.IsOff());
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_EQ(world.machine.RememberedWlan(), L"False");
}

TEST_F(WlanNotificationsTest, SwitchingOnWithoutCableIsTheUsersChoice) {
    world.machine.RememberWlan(L"False");
    NotifyRadioChange();
    EXPECT_THAT(world.LinesOf(kRadioChange),
                ElementsAre(Information(kRadioChange, L"Ethernet connection status = 0"),
                            Information(kRadioChange, L"Current WLAN status = 1"),
                            Information(kRadioChange, kUsersChoiceOn)));
    EXPECT_EQ(world.machine.RememberedWlan(), L"True");
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
}

TEST_F(WlanNotificationsTest, UsersChoiceIsRememberedWhetherOrNotTheFeatureIsEnabled) {
    world.EnableWlanSwitching();
    SetWlan(false);
    NotifyRadioChange();
    EXPECT_EQ(world.machine.RememberedWlan(), L"False");
}

TEST_F(WlanNotificationsTest, ChangeDuringACableEventIsNobodysChoice) {
    msm_Notification_flag = true;
    SetWlan(false);
    NotifyRadioChange();
    EXPECT_THAT(world.LinesOf(kRadioChange),
                ElementsAre(Information(kRadioChange, L"Ethernet connection status = 0"),
                            Information(kRadioChange, L"Current WLAN status = 0")));
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(WlanNotificationsTest, SwitchingOnBesideTheCableIsUndoneAndNotRemembered) {
    world.EnableWlanSwitching();
    world.machine.PlugCableIn();
    world.machine.RememberWlan(L"True");
    NotifyRadioChange();
    EXPECT_THAT(world.LinesOf(kRadioChange),
                ElementsAre(Information(kRadioChange, L"Ethernet connection status = 1"),
                            Information(kRadioChange, L"Current WLAN status = 1")));
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWlanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 0")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_EQ(world.machine.RememberedWlan(), L"True");
}

TEST_F(WlanNotificationsTest, ChangeMadeByThatUndoingFindsNothingToDo) {
    world.EnableWlanSwitching();
    world.machine.PlugCableIn();
    NotifyRadioChange();
    world.wlan.ForgetCalls();
    NotifyRadioChange();
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(WlanNotificationsTest, SwitchingOnBesideTheCableStaysWhenTheFeatureIsDisabled) {
    world.machine.PlugCableIn();
    NotifyRadioChange();
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(WlanNotificationsTest, UndoingThatFailsIsLogged) {
    world.EnableWlanSwitching();
    world.machine.PlugCableIn();
    world.wlan.adapters[0].phys[0] = RadioTests::Refusing(RadioTests::On());
    NotifyRadioChange();
    EXPECT_THAT(world.LinesOf(kRadioChange),
                ElementsAre(Information(kRadioChange, L"Ethernet connection status = 1"),
                            Information(kRadioChange, L"Current WLAN status = 1"),
                            Error(kRadioChange, kSwitchFailed)));
}

TEST_F(WlanNotificationsTest, AirplaneModeWithoutCableOnlyChangesTheStatusText) {
    world.EnableWlanSwitching();
    world.machine.SetAirplaneMode(true);
    SetWlan(false);
    NotifyRadioChange();
    EXPECT_THAT(world.LinesOf(kRadioChange),
                ElementsAre(Information(kRadioChange, L"Ethernet connection status = 0"),
                            Information(kRadioChange, L"Current WLAN status = 0"),
                            Information(kRadioChange, L"Changing WiFi Status (string) to False ")));
    SetWlan(true);
    log.Clear();
    NotifyRadioChange();
    EXPECT_THAT(world.LinesOf(kRadioChange),
                ElementsAre(Information(kRadioChange, L"Ethernet connection status = 0"),
                            Information(kRadioChange, L"Current WLAN status = 1"),
                            Information(kRadioChange, L"Changing WiFi Status (string) to True ")));
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(WlanNotificationsTest, AirplaneModeWithCableSwitchesOffAndKeepsTheTextOfTheStateFound) {
    world.EnableWlanSwitching();
    world.machine.SetAirplaneMode(true);
    world.machine.PlugCableIn();
    NotifyRadioChange();
    EXPECT_THAT(world.LinesOf(kRadioChange),
                ElementsAre(Information(kRadioChange, L"Ethernet connection status = 1"),
                            Information(kRadioChange, L"Current WLAN status = 1"),
                            Information(kRadioChange, L"Changing WiFi Status (string) to True ")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(WlanNotificationsTest, AirplaneModeWithCableOnlyKeepsTheTextWhenTheFeatureIsDisabled) {
    world.machine.SetAirplaneMode(true);
    world.machine.PlugCableIn();
    NotifyRadioChange();
    EXPECT_THAT(world.LinesOf(kRadioChange),
                ElementsAre(Information(kRadioChange, L"Ethernet connection status = 1"),
                            Information(kRadioChange, L"Current WLAN status = 1"),
                            Information(kRadioChange, L"Changing WiFi Status (string) to True ")));
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(WlanNotificationsTest, AirplaneModeWithCableAndRadioOffKeepsTheTextFalse) {
    world.EnableWlanSwitching();
    world.machine.SetAirplaneMode(true);
    world.machine.PlugCableIn();
    SetWlan(false);
    NotifyRadioChange();
    EXPECT_THAT(world.LinesOf(kRadioChange),
                ElementsAre(Information(kRadioChange, L"Ethernet connection status = 1"),
                            Information(kRadioChange, L"Current WLAN status = 0"),
                            Information(kRadioChange, L"Changing WiFi Status (string) to False ")));
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(WlanNotificationsTest, RadioThatCannotBeReadCountsAsSwitchedOffByTheUser) {
    world.machine.RememberWlan(L"True");
    world.wlan.Fail(RadioTests::WlanCall::kOpen, 1, ERROR_SERVICE_NOT_ACTIVE);
    NotifyRadioChange();
    EXPECT_THAT(world.LinesOf(kRadioChange),
                ElementsAre(Information(kRadioChange, L"Ethernet connection status = 0"),
                            Information(kRadioChange, L"Current WLAN status = 0"),
                            Information(kRadioChange, kUsersChoiceOff)));
    EXPECT_EQ(world.machine.RememberedWlan(), L"False");
}

TEST_F(WlanNotificationsTest, UnreadableAdaptersEndTheHandlingOfARadioChange) {
    world.machine.HideAdapters();
    NotifyRadioChange();
    EXPECT_THAT(log.Of(kRadioChange), ElementsAre(TraceIn(kRadioChange), Error(kRadioChange, kCheckFailed),
                                                  TraceOut(kRadioChange)));
    EXPECT_THAT(world.wlan.Calls(), IsEmpty());
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

// --- Exceptions ------------------------------------------------------------------------------------

/// What is thrown: a standard exception, a Win32 error, and what nobody expects. All are caught.
template <class Thrown>
class ThrownOutOfNotification : public WlanNotificationsTest {
  protected:
    /// The callback's trace and two lines, then the handler's trace, then the Ethernet test's.
    static constexpr int kInsideTheHandler = 5;

    void NotifyAndThrow(int nthLine, void (*notify)()) {
        const Rig::ThrowFromLogLine throwing(nthLine, Make());
        notify();
    }

    /// A thread of its own that gets as far as the handler finds the lock free.
    void ExpectLockFree() {
        log.Clear();
        Rig::RunOnThread([] { NotifyNetworkAvailable(); });
        EXPECT_THAT(log.Lines(), Contains(TraceIn(kAvailable)));
    }

    static Thrown Make() {
        if constexpr (std::is_arithmetic_v<Thrown>) {
            return Thrown{ERROR_GEN_FAILURE};
        } else {
            return Thrown("log");
        }
    }
};

using ThrownTypes = testing::Types<std::runtime_error, DWORD, int>;
TYPED_TEST_SUITE(ThrownOutOfNotification, ThrownTypes);

TYPED_TEST(ThrownOutOfNotification, RadioChangeHandlerCatchesItItself) {
    {
        // After the trace line of the handler comes that of the Ethernet test.
        const Rig::ThrowFromLogLine throwing(2, this->Make());
        OpenService::HandleWlanNotificationMsmRadioStateChange();
    }
    EXPECT_THAT(this->log.Of(kRadioChange),
                ElementsAre(TraceIn(kRadioChange),
                            Error(kRadioChange, L"Exception in HandleWlanNotificationMsmRadioStateChange()"),
                            TraceOut(kRadioChange)));
}

TYPED_TEST(ThrownOutOfNotification, AvailableHandlerLeavesItToTheCallback) {
    this->NotifyAndThrow(this->kInsideTheHandler, &this->NotifyNetworkAvailable);
    EXPECT_THAT(this->log.Of(kAvailable), ElementsAre(TraceIn(kAvailable), TraceOut(kAvailable)));
    EXPECT_THAT(this->log.At(Orva::Shared::Level::kError),
                ElementsAre(Error(kCallback, L"Exception in WlanNotificationCallback()")));
    this->ExpectLockFree();
}

TYPED_TEST(ThrownOutOfNotification, CallbackCatchesWhatComesBeforeItsLock) {
    constexpr int kFirstInformation = 2;
    this->NotifyAndThrow(kFirstInformation, &this->NotifyNetworkAvailable);
    EXPECT_THAT(this->log.Lines(),
                ElementsAre(TraceIn(kCallback), Error(kCallback, L"Exception in WlanNotificationCallback()"),
                            TraceOut(kCallback)));
    this->ExpectLockFree();
}

TEST_F(WlanNotificationsTest, LockIsFreeBeforeAnExceptionIsLogged) {
    constexpr std::chrono::seconds kPatience{5};
    bool hasThrown = false;
    {
        const Rig::AtEachLogLine lines([&](const Orva::Shared::CorvaLogListener::LogData& entry) {
            if (entry.GetLevel() == Orva::Shared::Level::kError) {
                // Another notification gets through while the line is still to be written.
                Rig::RunOnThread([] { NotifyNetworkAvailable(); }, Rig::Apartment::kNone, kPatience);
            } else if (!hasThrown && entry.FunctionName() == kAvailable) {
                hasThrown = true;
                throw std::runtime_error("log");
            }
        });
        NotifyNetworkAvailable();
    }
    const std::vector<Rig::LogLine> written = log.Lines();
    const auto otherEnd = std::find(written.begin(), written.end(), TraceOut(kAvailable));
    const auto error = std::find(written.begin(), written.end(),
                                 Error(kCallback, L"Exception in WlanNotificationCallback()"));
    EXPECT_LT(otherEnd, error);
    EXPECT_NE(error, written.end());
}

TEST_F(WlanNotificationsTest, AvailableHandlerHasNoHandlerOfItsOwn) {
    const Rig::ThrowFromLogLine throwing(2, std::runtime_error("log"));
    EXPECT_THROW(OpenService::HandleWlanNotificationAcmNetworkAvailable(), std::runtime_error);
}

}  // namespace
}  // namespace CoreTests
