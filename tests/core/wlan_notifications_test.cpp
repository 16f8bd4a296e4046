#include "core/wlan_notifications.h"

#include <wlanapi.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>

#include "bios/bios_settings.h"
#include "network/nlm_event_handler.h"
#include "platform/wlan_notifications.h"
#include "radio/wlan_radio.h"
#include "tests/core/core_test.h"
#include "tests/support/at_each_log_line.h"
#include "tests/support/throw_from_log_line.h"

namespace CoreTests {
namespace {

using Rig::LogLine;
using Rig::Lines::Error;
using Rig::Lines::Information;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kRegister[] = "CMainService::RegisterWlanNotification";
constexpr char kCallback[] = "CMainService::WlanNotificationCallback";
constexpr char kAvailable[] = "CMainService::HandleWlanNotificationAcmNetworkAvailable";
constexpr char kRadioChange[] = "CMainService::HandleWlanNotificationMsmRadioStateChange";
constexpr wchar_t kCheckFailed[] = L"CheckEthernetConnectionStatusEx failed";

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
    struct Arguments {
        HANDLE client;
        WLAN_NOTIFICATION_CALLBACK callback;
        bool hasRest;
    };
    std::vector<Arguments> calls;
    const Rig::ScopedImport<&::WlanRegisterNotification> look{[&](HANDLE client, DWORD sources,
                                                                  BOOL ignoresDuplicates,
                                                                  WLAN_NOTIFICATION_CALLBACK callback,
                                                                  PVOID context, PVOID reserved,
                                                                  PDWORD previous) {
        calls.push_back({client, callback, context != nullptr || reserved != nullptr || previous != nullptr});
        return look.Original(client, sources, ignoresDuplicates, callback, context, reserved, previous);
    }};
    EXPECT_EQ(RegisterWlanNotification(state, &kYes), DWORD{ERROR_SUCCESS});
    const HANDLE handle = state.wlanHandle.Get();
    EXPECT_EQ(RegisterWlanNotification(state, &kNo), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(state.wlanHandle.Get(), handle);
    EXPECT_THAT(notebook.Calls(), ElementsAre("WlanOpenHandle version 2",
                                              "WlanRegisterNotification sources 0x18, ignore duplicates 0",
                                              "WlanRegisterNotification sources 0x0, ignore duplicates 0"));
    ASSERT_THAT(calls, SizeIs(2));
    EXPECT_NE(calls[0].callback, nullptr);
    EXPECT_EQ(calls[1].callback, nullptr);
    for (const Arguments& call : calls) {
        EXPECT_EQ(call.client, handle);
        EXPECT_FALSE(call.hasRest);
    }
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
    /// as the n-th of one of its calls; it goes on when the registration has ended.
    DWORD RegisterWhileTheStopIsAt(Call call) {
        const Platform::UniqueHandle stopIsThere(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const Platform::UniqueHandle hasRegistered(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        std::thread stop;
        notebook.At(Call::WlanOpenHandle, 1, [&] {
            stop = std::thread([this] { Stop(service); });
            WaitForSingleObject(stopIsThere.Get(), INFINITE);
            return std::nullopt;
        });
        notebook.At(call, 1, [&] {
            SetEvent(stopIsThere.Get());
            WaitForSingleObject(hasRegistered.Get(), INFINITE);
            return std::nullopt;
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
    notebook.At(Call::WlanRegisterNotification, 1, [this] {
        Stop(service);
        return std::nullopt;
    });
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
        const Rig::ScopedImport<&::WlanRegisterNotification> look{
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
    ~NotificationTest() override {
        EXPECT_THAT(log.Of("ServiceUtils::SwitchWlanStatusWithRetry"), IsEmpty());
    }

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
        EXPECT_THAT(
            log.Lines(),
            ElementsAre(
                TraceIn(kCallback),
                Information(kCallback,
                            std::wstring(L"WlanNotificationCallback - Notification Source = ") + other.text),
                TraceOut(kCallback)));
    }
    EXPECT_THAT(notebook.Calls(), IsEmpty());
}

TEST_F(NotificationTest, AvailableNetworkAndRadioChangeGoEachToItsHandler) {
    NotifyNetworkAvailable();
    EXPECT_THAT(
        LinesOf(kCallback),
        ElementsAre(Information(kCallback,
                                L"WlanNotificationCallback - Notification Source = 0x8, Notification Code = "
                                L"19"),
                    Information(kCallback,
                                L"NotificationSource = WLAN_NOTIFICATION_SOURCE_ACM, NotificationCode = "
                                L"wlan_notification_acm_network_available. Processing Callback ")));
    EXPECT_EQ(log.Count(TraceIn(kAvailable)), 1);
    EXPECT_THAT(log.Of(kRadioChange), IsEmpty());

    log.Clear();
    NotifyRadioChange();
    EXPECT_THAT(
        LinesOf(kCallback),
        ElementsAre(Information(kCallback,
                                L"WlanNotificationCallback - Notification Source = 0x10, Notification Code = "
                                L"7"),
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
        EXPECT_TRUE(log.WaitFor(Information(
            kCallback, L"WlanNotificationCallback - Notification Source = 0x8, Notification Code = 19")));
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

enum class Kind { kNetworkAvailable, kChangedRadio };
enum class Airplane { kOff, kOn };
enum class Feature { kDisabled, kEnabled };
enum class Radio { kOff, kOn, kRefusing, kUnreadable };

/// A machine, a notification, and what comes of it.
struct Situation {
    const char* name;
    Kind kind;
    Cable cable;
    Airplane airplane;
    Feature feature;
    Radio radio;
    const wchar_t* remembered;  ///< before; empty: nothing
    bool duringCableEvent;

    std::vector<std::wstring> lines;  ///< of the handler; the failures' are errors
    const wchar_t* rememberedThen;
    const wchar_t* switchCall;  ///< how WLAN is switched off; null: it is not
};

void PrintTo(const Situation& situation, std::ostream* out) {
    *out << situation.name;
}

class NotificationIn : public NotificationTest, public testing::WithParamInterface<Situation> {
  protected:
    void Arrange() {
        const Situation& now = GetParam();
        Set(now.cable);
        machine.SetAirplaneMode(now.airplane == Airplane::kOn);
        NLMUtils::lanWlanSwitchingEnabled = now.feature == Feature::kEnabled;
        SetRadios(now.radio != Radio::kOff);
        if (now.radio == Radio::kRefusing) {
            notebook.SetPhys({Refusing(RadioTests::On())});
        } else if (now.radio == Radio::kUnreadable) {
            notebook.Fail(Call::WlanOpenHandle, 1, ERROR_SERVICE_NOT_ACTIVE);
        }
        if (*now.remembered != L'\0') {
            machine.RememberWlan(now.remembered);
        }
        msm_Notification_flag = now.duringCableEvent;
        ServiceUtils::my_service_turnonoff_wifi = ServiceUtils::kRadioOn;
    }
};

TEST_P(NotificationIn, IsWrittenSwitchesAndIsRememberedLikeThis) {
    Arrange();
    const Situation& now = GetParam();
    const bool isRadioChange = now.kind == Kind::kChangedRadio;
    if (isRadioChange) {
        NotifyRadioChange();
    } else {
        NotifyNetworkAvailable();
    }
    const char* const function = isRadioChange ? kRadioChange : kAvailable;
    std::vector<LogLine> expected{TraceIn(function)};
    for (const std::wstring& line : now.lines) {
        expected.push_back(line.ends_with(L"failed") ? Error(function, line) : Information(function, line));
    }
    expected.push_back(TraceOut(function));
    EXPECT_EQ(log.Of(function), expected);
    EXPECT_THAT(WlanSwitches(), Each("off"));
    EXPECT_EQ(WlanSwitches().empty(), now.switchCall == nullptr);
    EXPECT_EQ(machine.RememberedWlan(), now.rememberedThen);
    std::vector<LogLine> switches = log.Of("ServiceUtils::SwitchWlanStatus");
    EXPECT_EQ(switches.empty(), now.switchCall == nullptr);
    if (now.switchCall != nullptr) {
        EXPECT_EQ(switches.front(), TraceIn("ServiceUtils::SwitchWlanStatus", now.switchCall));
    }
}

constexpr wchar_t kNoEthernet[] = L"Ethernet connection status = 0";
constexpr wchar_t kEthernet[] = L"Ethernet connection status = 1";
constexpr wchar_t kConnected[] = L"Ethernet is connected";
constexpr wchar_t kIsOff[] = L"Current WLAN status = 0";
constexpr wchar_t kIsOn[] = L"Current WLAN status = 1";
constexpr wchar_t kSwitchFailed[] = L"SwitchWlanStatus(false) failed";
constexpr wchar_t kLastSet[] =
    L"wlan_notification_acm_network_available ServiceUtils::my_service_turnonoff_wifi : 1";
constexpr wchar_t kStoresOn[] =
    L"wlan_notification_acm_network_available Registry set to True. Setting WlanPowerStatus 1 in registry.";
constexpr wchar_t kUsersOff[] =
    L"Airplane mode if OFF. Ethernet not connected. msm_Notification_flag = false. Setting WLAN registry "
    L"status with WiFi Status = 0";
constexpr wchar_t kUsersOn[] =
    L"Airplane mode if OFF. Ethernet not connected. msm_Notification_flag = false. Setting WLAN registry "
    L"status with WiFi Status = 1";
constexpr wchar_t kTextFalse[] = L"Changing WiFi Status (string) to False ";
constexpr wchar_t kTextTrue[] = L"Changing WiFi Status (string) to True ";
constexpr wchar_t kAsksAirplane[] = L"OnOffValue = 0, bCheckAirplaneStatus = 1";
constexpr wchar_t kIgnoresAirplane[] = L"OnOffValue = 0, bCheckAirplaneStatus = 0";

/// A row of the tables below.
Situation Row(const char* name, Kind kind, Cable cable, Airplane airplane, Feature feature, Radio radio,
              const wchar_t* remembered, bool duringCableEvent, std::vector<std::wstring> lines,
              const wchar_t* rememberedThen, const wchar_t* switchCall) {
    return {name,
            kind,
            cable,
            airplane,
            feature,
            radio,
            remembered,
            duringCableEvent,
            std::move(lines),
            rememberedThen,
            switchCall};
}

INSTANTIATE_TEST_SUITE_P(
    NetworkAvailable, NotificationIn,
    testing::Values(Row("WithoutCableRemembersThatWlanIsOn", Kind::kNetworkAvailable, Cable::kOut,
                        Airplane::kOff, Feature::kDisabled, Radio::kOn, L"False", false,
                        {kNoEthernet, kLastSet, kStoresOn}, L"True", nullptr),
                    Row("WithoutCableIsRememberedInAirplaneModeToo", Kind::kNetworkAvailable, Cable::kOut,
                        Airplane::kOn, Feature::kDisabled, Radio::kOn, L"False", false,
                        {kNoEthernet, kLastSet, kStoresOn}, L"True", nullptr),
                    Row("OfARadioThatIsOffStoresNothing", Kind::kNetworkAvailable, Cable::kOut,
                        Airplane::kOff, Feature::kDisabled, Radio::kOff, L"", false, {kNoEthernet, kLastSet},
                        L"", nullptr),
                    Row("WithCableSwitchesWlanOff", Kind::kNetworkAvailable, Cable::kIn, Airplane::kOff,
                        Feature::kEnabled, Radio::kOn, L"", false,
                        {kEthernet, kConnected, L"LAN-WLAN Auto Switching Status = 1"}, L"", kAsksAirplane),
                    Row("WithCableAndFeatureDisabledIsLeftAlone", Kind::kNetworkAvailable, Cable::kIn,
                        Airplane::kOff, Feature::kDisabled, Radio::kOn, L"", false,
                        {kEthernet, kConnected, L"LAN-WLAN Auto Switching Status = 0"}, L"", nullptr),
                    // Airplane mode only forbids switching on.
                    Row("WithCableInAirplaneModeSwitchesWlanOffAllTheSame", Kind::kNetworkAvailable,
                        Cable::kIn, Airplane::kOn, Feature::kEnabled, Radio::kOn, L"", false,
                        {kEthernet, kConnected, L"LAN-WLAN Auto Switching Status = 1"}, L"", kAsksAirplane),
                    Row("WithARefusedSwitchLogsItOnce", Kind::kNetworkAvailable, Cable::kIn, Airplane::kOff,
                        Feature::kEnabled, Radio::kRefusing, L"", false,
                        {kEthernet, kConnected, L"LAN-WLAN Auto Switching Status = 1", kSwitchFailed}, L"",
                        kAsksAirplane),
                    Row("WithUnreadableAdaptersDoesNothing", Kind::kNetworkAvailable, Cable::kUnreadable,
                        Airplane::kOff, Feature::kEnabled, Radio::kOn, L"", false, {kCheckFailed}, L"",
                        nullptr)),
    [](const auto& parameter) { return parameter.param.name; });

INSTANTIATE_TEST_SUITE_P(
    RadioChange, NotificationIn,
    testing::Values(
        Row("ToOffWithoutCableIsTheUsersChoice", Kind::kChangedRadio, Cable::kOut, Airplane::kOff,
            Feature::kDisabled, Radio::kOff, L"", false, {kNoEthernet, kIsOff, kUsersOff}, L"False", nullptr),
        Row("ToOnWithoutCableIsTheUsersChoice", Kind::kChangedRadio, Cable::kOut, Airplane::kOff,
            Feature::kDisabled, Radio::kOn, L"False", false, {kNoEthernet, kIsOn, kUsersOn}, L"True",
            nullptr),
        Row("IsTheUsersChoiceWithTheFeatureEnabledToo", Kind::kChangedRadio, Cable::kOut, Airplane::kOff,
            Feature::kEnabled, Radio::kOff, L"True", false, {kNoEthernet, kIsOff, kUsersOff}, L"False",
            nullptr),
        Row("DuringACableEventIsNobodysChoice", Kind::kChangedRadio, Cable::kOut, Airplane::kOff,
            Feature::kEnabled, Radio::kOff, L"", true, {kNoEthernet, kIsOff}, L"", nullptr),
        Row("ThatCannotBeReadCountsAsSwitchedOffByTheUser", Kind::kChangedRadio, Cable::kOut, Airplane::kOff,
            Feature::kDisabled, Radio::kUnreadable, L"True", false, {kNoEthernet, kIsOff, kUsersOff},
            L"False", nullptr),
        Row("ToOnBesideTheCableIsUndoneAndNotRemembered", Kind::kChangedRadio, Cable::kIn, Airplane::kOff,
            Feature::kEnabled, Radio::kOn, L"True", false, {kEthernet, kIsOn}, L"True", kIgnoresAirplane),
        Row("ByThatUndoingFindsNothingToDo", Kind::kChangedRadio, Cable::kIn, Airplane::kOff,
            Feature::kEnabled, Radio::kOff, L"True", false, {kEthernet, kIsOff}, L"True", nullptr),
        Row("ToOnBesideTheCableStaysWhenTheFeatureIsDisabled", Kind::kChangedRadio, Cable::kIn,
            Airplane::kOff, Feature::kDisabled, Radio::kOn, L"", false, {kEthernet, kIsOn}, L"", nullptr),
        Row("ThatCannotBeUndoneIsLogged", Kind::kChangedRadio, Cable::kIn, Airplane::kOff, Feature::kEnabled,
            Radio::kRefusing, L"", false, {kEthernet, kIsOn, kSwitchFailed}, L"", kIgnoresAirplane),
        Row("ToOffInAirplaneModeOnlyChangesTheText", Kind::kChangedRadio, Cable::kOut, Airplane::kOn,
            Feature::kEnabled, Radio::kOff, L"", false, {kNoEthernet, kIsOff, kTextFalse}, L"", nullptr),
        Row("ToOnInAirplaneModeOnlyChangesTheText", Kind::kChangedRadio, Cable::kOut, Airplane::kOn,
            Feature::kEnabled, Radio::kOn, L"", false, {kNoEthernet, kIsOn, kTextTrue}, L"", nullptr),
        Row("ToOnInAirplaneModeWithCableIsUndoneAndKeepsTheTextOfTheStateFound", Kind::kChangedRadio,
            Cable::kIn, Airplane::kOn, Feature::kEnabled, Radio::kOn, L"", false,
            {kEthernet, kIsOn, kTextTrue}, L"", kIgnoresAirplane),
        Row("InAirplaneModeWithCableOnlyKeepsTheTextWhenTheFeatureIsDisabled", Kind::kChangedRadio,
            Cable::kIn, Airplane::kOn, Feature::kDisabled, Radio::kOn, L"", false,
            {kEthernet, kIsOn, kTextTrue}, L"", nullptr),
        Row("ToOffInAirplaneModeWithCableKeepsTheTextFalse", Kind::kChangedRadio, Cable::kIn, Airplane::kOn,
            Feature::kEnabled, Radio::kOff, L"", false, {kEthernet, kIsOff, kTextFalse}, L"", nullptr),
        Row("WithUnreadableAdaptersDoesNothing", Kind::kChangedRadio, Cable::kUnreadable, Airplane::kOff,
            Feature::kEnabled, Radio::kOn, L"", false, {kCheckFailed}, L"", nullptr)),
    [](const auto& parameter) { return parameter.param.name; });

TEST_F(NotificationTest, UnplugAfterTheUsersSwitchOffLeavesWlanOff) {
    machine.RememberWlan(L"True");
    SetRadios(false);
    NotifyRadioChange();
    ServiceUtils::StartWLANService();
    EXPECT_TRUE(notebook.WlanIsOff());
    EXPECT_EQ(machine.RememberedWlan(), L"False");
}

// --- Exceptions ------------------------------------------------------------------------------------

/// What is thrown: a standard exception, a Win32 error, and what nobody expects. All are caught.
template <class Thrown>
class ThrownOutOfNotification : public NotificationTest {
  protected:
    /// The callback's trace and two lines, then the handler's trace, then the Ethernet test's.
    static constexpr int kInsideTheHandler = 5;
    static constexpr int kBeforeTheLock = 2;

    static Rig::ThrowFromLogLine ThrowAt(int nthLine) {
        if constexpr (std::is_arithmetic_v<Thrown>) {
            return Rig::ThrowFromLogLine(nthLine, Thrown{ERROR_GEN_FAILURE});
        } else {
            return Rig::ThrowFromLogLine(nthLine, Thrown("log"));
        }
    }

    /// A thread of its own that gets as far as the handler finds the lock free.
    void ExpectLockFree() {
        log.Clear();
        Rig::RunOnThread([this] { NotifyNetworkAvailable(); });
        EXPECT_THAT(log.Lines(), Contains(TraceIn(kAvailable)));
    }
};

using ThrownTypes = testing::Types<std::runtime_error, DWORD, int>;
TYPED_TEST_SUITE(ThrownOutOfNotification, ThrownTypes);

TYPED_TEST(ThrownOutOfNotification, RadioChangeHandlerCatchesItItself) {
    {
        const Rig::ThrowFromLogLine throwing = this->ThrowAt(this->kInsideTheHandler);
        this->NotifyRadioChange();
    }
    EXPECT_THAT(this->log.Of(kRadioChange),
                ElementsAre(TraceIn(kRadioChange),
                            Error(kRadioChange, L"Exception in HandleWlanNotificationMsmRadioStateChange()"),
                            TraceOut(kRadioChange)));
    EXPECT_THAT(this->log.Of(kCallback), SizeIs(4));
}

TYPED_TEST(ThrownOutOfNotification, AvailableHandlerLeavesItToTheCallback) {
    {
        const Rig::ThrowFromLogLine throwing = this->ThrowAt(this->kInsideTheHandler);
        this->NotifyNetworkAvailable();
    }
    EXPECT_THAT(this->log.Of(kAvailable), ElementsAre(TraceIn(kAvailable), TraceOut(kAvailable)));
    EXPECT_THAT(this->log.At(Orva::Shared::Level::kError),
                ElementsAre(Error(kCallback, L"Exception in WlanNotificationCallback()")));
    this->ExpectLockFree();
}

TYPED_TEST(ThrownOutOfNotification, CallbackCatchesWhatComesBeforeItsLock) {
    {
        const Rig::ThrowFromLogLine throwing = this->ThrowAt(this->kBeforeTheLock);
        this->NotifyNetworkAvailable();
    }
    EXPECT_THAT(this->log.Lines(),
                ElementsAre(TraceIn(kCallback), Error(kCallback, L"Exception in WlanNotificationCallback()"),
                            TraceOut(kCallback)));
    this->ExpectLockFree();
}

TEST_F(NotificationTest, LockIsFreeBeforeAnExceptionIsLogged) {
    constexpr std::chrono::seconds kPatience{5};
    bool hasThrown = false;
    {
        const Rig::AtEachLogLine lines([&](const Orva::Shared::CorvaLogListener::LogData& entry) {
            if (entry.GetLevel() == Orva::Shared::Level::kError) {
                // Another notification gets through while the line is still to be written.
                Rig::RunOnThread([this] { NotifyNetworkAvailable(); }, Rig::Apartment::kNone, kPatience);
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
