#include "network/nlm_event_handler.h"

#include <gmock/gmock.h>
#include <wlanapi.h>
#include <wrl/client.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cwctype>
#include <functional>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bios/bios_settings.h"
#include "radio/power_status.h"
#include "radio/wlan_radio.h"
#include "tests/network/fake_adapters.h"
#include "tests/network/fake_network.h"
#include "tests/support/at_each_log_line.h"
#include "tests/support/log_recorder.h"
#include "tests/support/registry_tree.h"
#include "tests/support/test_clock.h"
#include "tests/support/throw_from_log_line.h"

namespace NetworkTests {
namespace {

namespace Level = Orva::Shared::Level;
using namespace Rig::Lines;
using namespace std::chrono_literals;
using Microsoft::WRL::ComPtr;
using Rig::LogLine;
using Rig::LogRecorder;
using Rig::ScopedImport;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kEvent[] = "NLMEventHandler::NetworkConnectionConnectivityChanged";
constexpr char kStopWlan[] = "ServiceUtils::StopWLANService";
constexpr char kStartWlan[] = "ServiceUtils::StartWLANService";
constexpr char kStopWwan[] = "ServiceUtils::StopWWANService";
constexpr char kStartWwan[] = "ServiceUtils::StartWWANService";

constexpr NLM_CONNECTIVITY kUp = NLM_CONNECTIVITY_IPV4_INTERNET;
constexpr NLM_CONNECTIVITY kDown = NLM_CONNECTIVITY_DISCONNECTED;

/// The handler with its fields in the open.
class OpenHandler : public NLMEventHandler {
  public:
    using NLMEventHandler::m_networkListManager;
    using NLMEventHandler::m_references;
    using NLMEventHandler::m_wiredConnections;
    using NLMEventHandler::NLMEventHandler;
};

/// A machine with one WLAN interface of one PHY, for a scope.
class FakeWlan {
  public:
    explicit FakeWlan(bool isOn) : m_isOn(isOn) {}

    [[nodiscard]] bool IsOn() const { return m_isOn; }
    /// The software states that were set, in order, as on or off.
    [[nodiscard]] const std::vector<bool>& Switches() const { return m_switches; }
    /// Called by each switch.
    std::function<void()> whenSwitched = [] {};

  private:
    DWORD Set(const void* data) {
        m_isOn =
            static_cast<const WLAN_PHY_RADIO_STATE*>(data)->dot11SoftwareRadioState == dot11_radio_state_on;
        m_switches.push_back(m_isOn);
        whenSwitched();
        return ERROR_SUCCESS;
    }

    std::atomic<bool> m_isOn;
    std::vector<bool> m_switches;
    /// A list of one interface. In some headers its interfaces are an array without a size.
    struct alignas(WLAN_INTERFACE_INFO_LIST) {
        DWORD count = 1;
        DWORD index = 0;
        WLAN_INTERFACE_INFO interfaceInfo{};
    } m_list;
    WLAN_INTERFACE_CAPABILITY m_capability{};
    WLAN_RADIO_STATE m_state{};
    ScopedImport<&::WlanOpenHandle> m_open{[](DWORD, void*, DWORD*, HANDLE* handle) -> DWORD {
        *handle = reinterpret_cast<HANDLE>(std::size_t{0x77});
        return ERROR_SUCCESS;
    }};
    ScopedImport<&::WlanCloseHandle> m_close{[](HANDLE, void*) -> DWORD { return ERROR_SUCCESS; }};
    ScopedImport<&::WlanFreeMemory> m_free{[](void*) {}};
    ScopedImport<&::WlanEnumInterfaces> m_enumerate{
        [this](HANDLE, void*, WLAN_INTERFACE_INFO_LIST** list) -> DWORD {
            *list = reinterpret_cast<WLAN_INTERFACE_INFO_LIST*>(&m_list);
            return ERROR_SUCCESS;
        }};
    ScopedImport<&::WlanGetInterfaceCapability> m_capabilities{
        [this](HANDLE, const GUID*, void*, WLAN_INTERFACE_CAPABILITY** capability) -> DWORD {
            m_capability.dwNumberOfSupportedPhys = 1;
            *capability = &m_capability;
            return ERROR_SUCCESS;
        }};
    ScopedImport<&::WlanQueryInterface> m_query{
        [this](HANDLE, const GUID*, WLAN_INTF_OPCODE, void*, DWORD* size, void** data, auto...) -> DWORD {
            m_state.dwNumberOfPhys = 1;
            m_state.PhyRadioState[0].dot11SoftwareRadioState =
                m_isOn ? dot11_radio_state_on : dot11_radio_state_off;
            *size = sizeof(m_state);
            *data = &m_state;
            return ERROR_SUCCESS;
        }};
    ScopedImport<&::WlanSetInterface> m_set{
        [this](HANDLE, const GUID*, WLAN_INTF_OPCODE, DWORD, const void* data, void*) { return Set(data); }};
};

/// The sink in a notebook with both features enabled, Wi-Fi on, and connections 1 (a cable), 2 (a
/// second cable) and 3 (Wi-Fi) over adapters of the same numbers. No cable has an address yet.
class NLMEventHandlerTest : public testing::Test {
  protected:
    NLMEventHandlerTest() {
        m_manager.connections = {&m_cable, &m_secondCable, &m_wifiConnection};
        EXPECT_EQ(m_manager.HandOut(m_managerReference.GetAddressOf()), S_OK);
        m_handler = new OpenHandler(m_managerReference.Get(), &m_wired);
        m_handler->AddRef();
        Enable(true, true);
        m_log.Clear();
    }
    ~NLMEventHandlerTest() override {
        Enable(false, false);
        msm_Notification_flag = false;
        m_handler->Release();
    }

    static void Enable(bool lanWlan, bool lanWwan) {
        NLMUtils::lanWlanSwitchingEnabled = lanWlan;
        NLMUtils::lanWwanSwitchingEnabled = lanWwan;
    }

    /// One event, from the outside: through the interface that the event source holds.
    HRESULT Report(unsigned char connection, NLM_CONNECTIVITY connectivity) {
        return static_cast<INetworkConnectionEvents*>(m_handler)->NetworkConnectionConnectivityChanged(
            ConnectionGuid(connection), connectivity);
    }

    void GiveAddress() { m_adapterList.Set({EthernetWithAddress(), {kWifi, "192.168.1.30"}}); }
    void TakeAddress() { m_adapterList.Set({EthernetWithoutAddress(), {kWifi, "192.168.1.30"}}); }

    /// What the event handler itself wrote, without its entry and exit lines.
    [[nodiscard]] std::vector<LogLine> OwnLines() const {
        std::vector<LogLine> lines;
        for (LogLine& line : m_log.Of(kEvent)) {
            if (line.level >= Level::kVerbose) {
                lines.push_back(std::move(line));
            }
        }
        return lines;
    }
    [[nodiscard]] bool Wrote(const std::wstring& message) const {
        return m_log.Contains(Information(kEvent, message));
    }
    [[nodiscard]] int Warnings() const { return static_cast<int>(m_log.At(Level::kWarning).size()); }

    /// How often the radio operations were called, in order.
    [[nodiscard]] std::vector<std::string> RadioOperations() const {
        std::vector<std::string> names;
        for (const LogLine& line : m_log.At(Level::kTraceIn)) {
            for (const char* const name : {kStopWlan, kStartWlan, kStopWwan, kStartWwan}) {
                if (line.function == name) {
                    names.push_back(line.function);
                }
            }
        }
        return names;
    }
    [[nodiscard]] static std::optional<Rig::RegistryValue> Remembered() {
        return Rig::ReadRegistryValue(HKEY_LOCAL_MACHINE, PowerStatus::kWlanKey, PowerStatus::kValueName);
    }

    LogRecorder m_log;
    Rig::TestClock m_clock;
    Rig::ScopedRegistryTree m_registry{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orva\\Orva Brimlet Support"};
    FakeWlan m_wlan{true};
    FakeAdapterList m_adapterList{{EthernetWithoutAddress(), {kWifi, "192.168.1.30"}}};
    FakeAdapterAddresses m_adapterAddresses{
        {{AdapterName(1), kEthernet}, {AdapterName(2), kEthernet}, {AdapterName(3), kWifi}}};
    FakeConnection m_cable{ConnectionGuid(1), AdapterGuid(1)};
    FakeConnection m_secondCable{ConnectionGuid(2), AdapterGuid(2)};
    FakeConnection m_wifiConnection{ConnectionGuid(3), AdapterGuid(3)};
    FakeNetworkListManager m_manager;
    ComPtr<INetworkListManager> m_managerReference;
    WiredConnections m_wired;
    OpenHandler* m_handler = nullptr;
};

LogLine Failed(int tryNumber) {
    return Warning(kEvent, L"CheckEthernetConnectionStatus failed in try " + std::to_wstring(tryNumber));
}

// --- The cable comes in ---------------------------------------------------------------------------

TEST_F(NLMEventHandlerTest, CableWithAnAddressSwitchesTheRadiosOffAndRemembersThatTheyWereOn) {
    GiveAddress();

    EXPECT_EQ(Report(1, kUp), S_OK);

    EXPECT_THAT(m_wlan.Switches(), ElementsAre(false));
    EXPECT_EQ(Remembered(), Rig::RegistryText(L"True"));
    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan));
    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(1)));
    EXPECT_THAT(OwnLines(),
                ElementsAre(Information(kEvent, L"------------------start----------------------"),
                            Information(kEvent, L"Connection ID : " + ConnectionText(1)),
                            Information(kEvent, L"New connectivity state : "),
                            Information(kEvent, L"Connectivity state : 64 "),
                            Information(kEvent, L"Ethernet state : 1 "),
                            Information(kEvent, L"Ethernet Connection - adding to set..."),
                            Information(kEvent, L"Ethernet is connected"),
                            Information(kEvent, L"Connecting to Ethernet. Stop WLAN service..."),
                            Information(kEvent, L"Connecting to Ethernet. Stop WWAN service..."),
                            Information(kEvent, L"Current ethernetConnection element: " + ConnectionText(1)),
                            Information(kEvent, L"-------------------end-----------------------")));
    EXPECT_EQ(m_log.Lines().front(), TraceIn(kEvent, L"NLM_CONNECTIVITY = 64"));
    EXPECT_EQ(m_log.Lines().back(), TraceOut(kEvent));
    EXPECT_THAT(m_clock.Sleeps(), IsEmpty());
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(NLMEventHandlerTest, ConnectivityIsLoggedInWordsBeforeTheDecision) {
    GiveAddress();

    Report(1, static_cast<NLM_CONNECTIVITY>(NLM_CONNECTIVITY_IPV4_SUBNET | NLM_CONNECTIVITY_IPV6_INTERNET));

    EXPECT_THAT(m_log.Of("NLMUtils::PrintConnectivityState"),
                ElementsAre(TraceIn("NLMUtils::PrintConnectivityState", L"NLM_CONNECTIVITY - 0x410"),
                            Information("NLMUtils::PrintConnectivityState", L"Network Disconnected"),
                            Information("NLMUtils::PrintConnectivityState", L"IPV4 - Subnet"),
                            Information("NLMUtils::PrintConnectivityState", L"IPV6 - Internet Connectivity"),
                            TraceOut("NLMUtils::PrintConnectivityState")));
    EXPECT_TRUE(Wrote(L"Connectivity state : 1040 "));
}

TEST_F(NLMEventHandlerTest, AnyBitsAtAllButNoneMeanConnected) {
    GiveAddress();

    EXPECT_EQ(Report(1, NLM_CONNECTIVITY_IPV4_NOTRAFFIC), S_OK);
    EXPECT_EQ(Report(1, std::bit_cast<NLM_CONNECTIVITY>(0x40000000)), S_OK);

    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan, kStopWlan, kStopWwan));
    EXPECT_TRUE(Wrote(L"Connectivity state : 1073741824 "));
}

TEST_F(NLMEventHandlerTest, WifiConnectionSwitchesAndRemembersNothing) {
    GiveAddress();

    EXPECT_EQ(Report(3, kUp), S_OK);

    EXPECT_TRUE(Wrote(L"Ethernet state : 0 "));
    EXPECT_THAT(RadioOperations(), IsEmpty());
    EXPECT_THAT(m_wired, IsEmpty());
}

TEST_F(NLMEventHandlerTest, ConnectionThatIsGoneAlreadyIsLeftAlone) {
    GiveAddress();

    EXPECT_EQ(Report(9, kUp), S_OK);

    EXPECT_TRUE(Wrote(L"Could not determine connection type. Doing nothing."));
    EXPECT_THAT(RadioOperations(), IsEmpty());
    EXPECT_THAT(m_wired, IsEmpty());
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(NLMEventHandlerTest, WithoutASetTheCableIsNotedAndNothingSwitched) {
    GiveAddress();
    m_handler->m_wiredConnections = nullptr;

    EXPECT_EQ(Report(1, kUp), S_OK);

    EXPECT_TRUE(Wrote(L"Ethernet state : 1 "));
    EXPECT_FALSE(Wrote(L"Ethernet Connection - adding to set..."));
    EXPECT_THAT(RadioOperations(), IsEmpty());
    EXPECT_EQ(OwnLines().back(), Information(kEvent, L"-------------------end-----------------------"));
}

TEST_F(NLMEventHandlerTest, WithoutAManagerNoConnectionCanBeTold) {
    m_handler->m_networkListManager = nullptr;

    EXPECT_EQ(Report(1, kUp), S_OK);

    EXPECT_TRUE(m_log.Contains(Error("NLMUtils::IsEthernetConnection", L"INetworkListManager is NULL")));
    EXPECT_TRUE(Wrote(L"Could not determine connection type. Doing nothing."));
}

TEST_F(NLMEventHandlerTest, SameCableTwiceStopsTheRadiosTwiceAndStaysOneElement) {
    GiveAddress();

    Report(1, kUp);
    Report(1, kUp);

    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan, kStopWlan, kStopWwan));
    EXPECT_THAT(m_wlan.Switches(), ElementsAre(false)) << "the radio is off already the second time";
    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(1)));
}

TEST_F(NLMEventHandlerTest, EachFeatureStopsItsOwnRadio) {
    GiveAddress();

    Enable(true, false);
    Report(1, kUp);
    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan));

    m_log.Clear();
    Enable(false, true);
    Report(1, kUp);
    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWwan));
    EXPECT_FALSE(Wrote(L"Connecting to Ethernet. Stop WLAN service..."));
}

TEST_F(NLMEventHandlerTest, WithBothFeaturesOffTheSetIsKeptAndNoRadioTouched) {
    Enable(false, false);
    GiveAddress();

    Report(1, kUp);
    TakeAddress();
    Report(1, kDown);

    EXPECT_TRUE(Wrote(L"Ethernet is connected"));
    EXPECT_TRUE(Wrote(L"Ethernet connection status = 0"));
    EXPECT_EQ(m_log.Count(Information(kEvent, L"Current ethernetConnection element: " + ConnectionText(1))),
              2);
    EXPECT_THAT(RadioOperations(), IsEmpty());
    EXPECT_THAT(m_wlan.Switches(), IsEmpty());
}

TEST_F(NLMEventHandlerTest, NotificationFlagIsSetWhileTheRadiosAreSwitched) {
    GiveAddress();
    bool wasSet = false;
    m_wlan.whenSwitched = [&wasSet] { wasSet = msm_Notification_flag; };

    Report(1, kUp);

    EXPECT_TRUE(wasSet);
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(NLMEventHandlerTest, SetIsLoggedInOrder) {
    GiveAddress();
    m_wired = {ConnectionText(2), L"{Z}"};

    Report(1, kUp);

    std::vector<std::wstring> elements;
    for (const LogLine& line : OwnLines()) {
        if (line.message.starts_with(L"Current ethernetConnection element: ")) {
            elements.push_back(line.message.substr(36));
        }
    }
    EXPECT_THAT(elements, ElementsAre(ConnectionText(1), ConnectionText(2), L"{Z}"));
}

// --- The wait for an address ----------------------------------------------------------------------

TEST_F(NLMEventHandlerTest, LateAddressIsWaitedForAndCostsOneMorePause) {
    m_clock.At(3s, [this] { GiveAddress(); });

    Report(1, kUp);

    EXPECT_THAT(m_log.At(Level::kWarning), ElementsAre(Failed(0), Failed(1), Failed(2), Failed(3)));
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(1000, 1000, 1000, 1000));
    EXPECT_TRUE(Wrote(L"Ethernet is connected"));
    EXPECT_THAT(m_wlan.Switches(), ElementsAre(false));
}

TEST_F(NLMEventHandlerTest, AddressThatNeverComesEndsTheWaitAfterEightTries) {
    Report(1, kUp);

    EXPECT_THAT(m_log.At(Level::kWarning), ElementsAre(Failed(0), Failed(1), Failed(2), Failed(3), Failed(4),
                                                       Failed(5), Failed(6), Failed(7)));
    EXPECT_EQ(m_clock.Elapsed(), 8s);
    EXPECT_FALSE(Wrote(L"Ethernet is connected"));
    EXPECT_THAT(RadioOperations(), IsEmpty());
    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(1)));
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(NLMEventHandlerTest, AddressOfTheEighthTryIsStillTaken) {
    m_clock.At(7s, [this] { GiveAddress(); });

    Report(1, kUp);

    EXPECT_EQ(Warnings(), 8);
    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan));
}

TEST_F(NLMEventHandlerTest, AddressBesideAnAdapterWithoutOneCostsOneWarningAndOneSecond) {
    m_adapterList.Set({EthernetWithoutAddress(), EthernetWithAddress()});

    Report(1, kUp);

    EXPECT_THAT(m_log.At(Level::kWarning), ElementsAre(Failed(0)));
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(1000));
    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan));
}

TEST_F(NLMEventHandlerTest, FailedFirstCheckCostsOneWarningAndOnePauseAndSwitchesNothing) {
    m_adapterList.FailAlways(ERROR_NOT_SUPPORTED);

    Report(1, kUp);

    EXPECT_THAT(m_log.At(Level::kWarning), ElementsAre(Failed(0)));
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(1000));
    EXPECT_THAT(RadioOperations(), IsEmpty());
    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(1)));
}

TEST_F(NLMEventHandlerTest, CheckThatFailsAfterAnAdapterWithoutAddressWasSeenIsRepeated) {
    m_clock.At(1s, [this] { m_adapterList.FailAlways(ERROR_NOT_SUPPORTED); });
    m_clock.At(2s, [this] { GiveAddress(); });

    Report(1, kUp);

    EXPECT_THAT(m_log.At(Level::kWarning), ElementsAre(Failed(0), Failed(1), Failed(2)));
    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan));
}

TEST_F(NLMEventHandlerTest, AdapterThatIsUnpluggedWhileItIsWaitedForIsWaitedForToTheEnd) {
    m_clock.At(2s, [this] { m_adapterList.Set({{kWifi, "192.168.1.30"}}); });

    Report(1, kUp);

    EXPECT_EQ(Warnings(), 8) << "what an earlier try saw is not forgotten";
    EXPECT_THAT(RadioOperations(), IsEmpty());
}

TEST_F(NLMEventHandlerTest, VpnOverAnEthernetTypedAdapterJoinsTheSetAndStopsNothing) {
    m_adapterList.Set({{kEthernet, "10.8.0.1", "Someone's VPN Adapter"}});

    Report(1, kUp);

    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(1)));
    EXPECT_THAT(m_log.At(Level::kWarning), ElementsAre(Failed(0)));
    EXPECT_THAT(RadioOperations(), IsEmpty());
}

// --- The cable goes out ---------------------------------------------------------------------------

TEST_F(NLMEventHandlerTest, UnplugBringsTheRadiosBack) {
    GiveAddress();
    Report(1, kUp);
    TakeAddress();
    m_log.Clear();

    EXPECT_EQ(Report(1, kDown), S_OK);

    EXPECT_THAT(m_wlan.Switches(), ElementsAre(false, true));
    EXPECT_THAT(RadioOperations(), ElementsAre(kStartWlan, kStartWwan));
    EXPECT_THAT(
        OwnLines(),
        ElementsAre(Information(kEvent, L"------------------start----------------------"),
                    Information(kEvent, L"Connection ID : " + ConnectionText(1)),
                    Information(kEvent, L"New connectivity state : "),
                    Information(kEvent, L"Disconnecting connection, check list to see if it was Ethernet."),
                    Information(kEvent, L"Ethernet connection status = 0"),
                    Information(kEvent, L"The disconnecting connection was Ethernet. Start WLAN service..."),
                    Information(kEvent, L"The disconnecting connection was Ethernet. Start WWAN service..."),
                    Information(kEvent, L"Current ethernetConnection element: " + ConnectionText(1)),
                    Information(kEvent, L"-------------------end-----------------------")));
    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(1))) << "once wired, always known as wired";
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(NLMEventHandlerTest, EachFeatureBringsItsOwnRadioBack) {
    m_wired = {ConnectionText(1)};

    Enable(true, false);
    Report(1, kDown);
    EXPECT_THAT(RadioOperations(), ElementsAre(kStartWlan));

    m_log.Clear();
    Enable(false, true);
    Report(1, kDown);
    EXPECT_THAT(RadioOperations(), ElementsAre(kStartWwan));
}

TEST_F(NLMEventHandlerTest, UnplugWithAnotherCableLeavesTheRadiosOff) {
    GiveAddress();
    Report(1, kUp);
    Report(2, kUp);
    m_log.Clear();

    Report(1, kDown);

    EXPECT_TRUE(Wrote(L"Ethernet connection status = 1"));
    EXPECT_THAT(RadioOperations(), IsEmpty());
    EXPECT_FALSE(m_wlan.IsOn());
    EXPECT_THAT(m_wired, ElementsAre(ConnectionText(1), ConnectionText(2)));
}

TEST_F(NLMEventHandlerTest, DisconnectOfAConnectionNeverSeenWiredDoesNothing) {
    m_wired = {ConnectionText(1)};

    EXPECT_EQ(Report(3, kDown), S_OK);

    EXPECT_TRUE(Wrote(L"Connection ID is not in the list, DO nothing"));
    EXPECT_EQ(m_adapterList.Calls(), 0);
    EXPECT_THAT(RadioOperations(), IsEmpty());
}

TEST_F(NLMEventHandlerTest, SetIsSearchedForExactlyTheIdentifiersText) {
    std::wstring lowerCase = ConnectionText(1);
    std::transform(lowerCase.begin(), lowerCase.end(), lowerCase.begin(), &towlower);
    ASSERT_NE(lowerCase, ConnectionText(1));
    m_wired = {lowerCase, ConnectionText(1) + L" ", ConnectionText(1).substr(1)};

    Report(1, kDown);

    EXPECT_TRUE(Wrote(L"Connection ID is not in the list, DO nothing"));
    EXPECT_THAT(RadioOperations(), IsEmpty());
}

TEST_F(NLMEventHandlerTest, DisconnectWithoutASetDoesNothing) {
    m_handler->m_wiredConnections = nullptr;

    EXPECT_EQ(Report(1, kDown), S_OK);

    EXPECT_TRUE(Wrote(L"Connection ID is not in the list, DO nothing"));
    EXPECT_THAT(RadioOperations(), IsEmpty());
}

TEST_F(NLMEventHandlerTest, DisconnectWithUnreadableAdaptersLeavesTheRadios) {
    m_wired = {ConnectionText(1)};
    m_adapterList.FailAlways(ERROR_NO_DATA);

    EXPECT_EQ(Report(1, kDown), S_OK);

    EXPECT_TRUE(m_log.Contains(Error(kEvent, L"CheckEthernetConnectionStatus failed")));
    EXPECT_THAT(RadioOperations(), IsEmpty());
    EXPECT_TRUE(Wrote(L"Current ethernetConnection element: " + ConnectionText(1)));
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(NLMEventHandlerTest, DisconnectDoesNotAskForTheConnection) {
    m_wired = {ConnectionText(9)};

    Report(9, kDown);

    EXPECT_TRUE(m_log.Of("NLMUtils::IsEthernetConnection").empty());
    EXPECT_THAT(RadioOperations(), ElementsAre(kStartWlan, kStartWwan));
}

TEST_F(NLMEventHandlerTest, HundredQuickEventsEndAsTheLastOneSays) {
    for (int i = 0; i < 50; ++i) {
        GiveAddress();
        Report(1, kUp);
        TakeAddress();
        Report(1, kDown);
    }
    EXPECT_TRUE(m_wlan.IsOn());

    GiveAddress();
    Report(1, kUp);
    EXPECT_FALSE(m_wlan.IsOn());
    EXPECT_EQ(m_wired.size(), 1U);
}

// --- The end of an event --------------------------------------------------------------------------

enum class Adapters { kWithoutAddress, kWithAddress, kUnreadable };

/// One way through an event.
struct Branch {
    const char* name;
    Adapters adapters;
    unsigned char connection;
    NLM_CONNECTIVITY connectivity;
    /// What the branch is known by.
    const wchar_t* message;
};

void PrintTo(const Branch& branch, std::ostream* out) {
    *out << branch.name;
}

class NLMEventHandlerBranch : public NLMEventHandlerTest, public testing::WithParamInterface<Branch> {};

TEST_P(NLMEventHandlerBranch, EndsWithTheSetAndTheEndLine) {
    m_wired = {ConnectionText(1), ConnectionText(4)};
    if (GetParam().adapters == Adapters::kWithAddress) {
        GiveAddress();
    } else if (GetParam().adapters == Adapters::kUnreadable) {
        m_adapterList.FailAlways(ERROR_NOT_SUPPORTED);
    }

    EXPECT_EQ(Report(GetParam().connection, GetParam().connectivity), S_OK);

    const std::vector<LogLine> lines = OwnLines();
    EXPECT_THAT(lines, testing::Contains(testing::Field(&LogLine::message, GetParam().message)));
    ASSERT_GE(lines.size(), 3U);
    EXPECT_THAT((std::vector<LogLine>{lines.end() - 3, lines.end()}),
                ElementsAre(Information(kEvent, L"Current ethernetConnection element: " + ConnectionText(1)),
                            Information(kEvent, L"Current ethernetConnection element: " + ConnectionText(4)),
                            Information(kEvent, L"-------------------end-----------------------")));
    EXPECT_FALSE(msm_Notification_flag);
}

INSTANTIATE_TEST_SUITE_P(
    Branches, NLMEventHandlerBranch,
    testing::Values(
        Branch{"NotInTheList", Adapters::kWithoutAddress, 3, kDown,
               L"Connection ID is not in the list, DO nothing"},
        Branch{"DownAndUnreadable", Adapters::kUnreadable, 1, kDown, L"CheckEthernetConnectionStatus failed"},
        Branch{"AnotherCable", Adapters::kWithAddress, 1, kDown, L"Ethernet connection status = 1"},
        Branch{"LastCable", Adapters::kWithoutAddress, 1, kDown, L"Ethernet connection status = 0"},
        Branch{"Undetermined", Adapters::kWithAddress, 9, kUp,
               L"Could not determine connection type. Doing nothing."},
        Branch{"Wifi", Adapters::kWithAddress, 3, kUp, L"Ethernet state : 0 "},
        Branch{"NoAddress", Adapters::kWithoutAddress, 1, kUp,
               L"CheckEthernetConnectionStatus failed in try 7"},
        Branch{"UpAndUnreadable", Adapters::kUnreadable, 1, kUp,
               L"CheckEthernetConnectionStatus failed in try 0"},
        Branch{"Cable", Adapters::kWithAddress, 1, kUp, L"Ethernet is connected"}),
    [](const testing::TestParamInfo<Branch>& parameter) { return parameter.param.name; });

/// Whether another thread can have the lock now.
bool IsFree(std::mutex& lock) {
    bool isFree = false;
    std::thread([&] {
        isFree = lock.try_lock();
        if (isFree) {
            lock.unlock();
        }
    }).join();
    return isFree;
}

TEST_F(NLMEventHandlerTest, NotificationFlagIsSetBeforeTheEventWaitsForItsTurn) {
    std::unique_lock otherChange(connectivityChangeLock);
    std::thread event([this] { Report(3, kDown); });
    for (int i = 0; i < 2000 && !msm_Notification_flag; ++i) {
        Rig::Real<&::Sleep>(DWORD{1});
    }
    EXPECT_TRUE(msm_Notification_flag);
    EXPECT_THAT(OwnLines(), IsEmpty());
    otherChange.unlock();
    event.join();
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(NLMEventHandlerTest, AtItsEndAnEventClearsTheFlagThenFreesTheTextThenLeavesTheLock) {
    std::vector<std::string> steps;
    const auto note = [&steps](const char* step) {
        steps.push_back(std::string(step) + (msm_Notification_flag ? ", flag set" : ", flag clear") +
                        (IsFree(connectivityChangeLock) ? ", lock free" : ", lock held"));
    };
    const ScopedImport<&::CoTaskMemFree> frees{Rig::kWrapping, [&](const auto& original, void* memory) {
                                                   note("text");
                                                   original.Original(memory);
                                               }};
    const Rig::AtEachLogLine lines([&](const auto& entry) {
        const std::wstring message(entry.Message());
        if (message.starts_with(L"Current ethernetConnection element")) {
            note("element");
        }
        if (message == L"-------------------end-----------------------") {
            note("end line");
        }
    });
    m_wired = {ConnectionText(4)};

    Report(3, kDown);

    EXPECT_THAT(steps, ElementsAre("element, flag set, lock held", "text, flag clear, lock held",
                                   "end line, flag clear, lock free"));
}

TEST_F(NLMEventHandlerTest, RadioThatDoesNotFollowIsNotTheEventsAffair) {
    const Rig::ScopedResult<&::WlanSetInterface> refuses{ERROR_GEN_FAILURE};
    GiveAddress();

    EXPECT_EQ(Report(1, kUp), S_OK);
    EXPECT_TRUE(m_log.Contains(Error(kStopWlan, L"SwitchWlanStatusWithRetry (StopWLANService) failed")));
    TakeAddress();
    EXPECT_EQ(Report(1, kDown), S_OK);
    EXPECT_TRUE(m_log.Contains(Error(kStartWlan, L"SwitchWlanStatusWithRetry (StartWLANService) failed")));

    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan, kStartWlan, kStartWwan));
    EXPECT_EQ(m_log.Of(kEvent).back(), TraceOut(kEvent));
    ServiceUtils::my_setwifitimeout = false;
}

// --- Failures -------------------------------------------------------------------------------------

TEST_F(NLMEventHandlerTest, IdentifierWithoutATextIsReportedAndTheFlagStaysSet) {
    GiveAddress();
    {
        const ScopedImport<&::StringFromCLSID> noText{[](auto...) -> HRESULT {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return E_OUTOFMEMORY;
        }};
        EXPECT_EQ(Report(1, kUp), E_OUTOFMEMORY);
    }

    EXPECT_THAT(m_log.Lines(),
                ElementsAre(TraceIn(kEvent, L"NLM_CONNECTIVITY = 64"),
                            Information(kEvent, L"------------------start----------------------"),
                            Error(kEvent, L"StringFromCLSID failed w/err 0x00000002"), TraceOut(kEvent)));
    EXPECT_TRUE(msm_Notification_flag);
    EXPECT_THAT(RadioOperations(), IsEmpty());

    EXPECT_EQ(Report(1, kUp), S_OK) << "the lock is free again";
    EXPECT_FALSE(msm_Notification_flag) << "the next change clears it";
}

TEST_F(NLMEventHandlerTest, ExceptionFailsTheEventAndTheFlagStaysSet) {
    GiveAddress();
    {
        const ScopedImport<&::StringFromCLSID> throws{
            [](auto...) -> HRESULT { throw DWORD{ERROR_GEN_FAILURE}; }};
        EXPECT_EQ(Report(1, kUp), E_FAIL);
    }

    EXPECT_THAT(
        m_log.Lines(),
        ElementsAre(TraceIn(kEvent, L"NLM_CONNECTIVITY = 64"),
                    Information(kEvent, L"------------------start----------------------"),
                    Error(kEvent, L"Exception in NetworkConnectionConnectivityChanged()"), TraceOut(kEvent)));
    EXPECT_TRUE(msm_Notification_flag);
    EXPECT_EQ(m_manager.References(), 1) << "the service's own";

    EXPECT_EQ(Report(1, kUp), S_OK) << "the lock is free again";
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(NLMEventHandlerTest, StandardExceptionInTheMiddleOfAnEventFailsItAndGivesTheTextBack) {
    GiveAddress();
    int freed = 0;
    const ScopedImport<&::CoTaskMemFree> frees{[&](void* memory) {
        ++freed;
        frees.Original(memory);
    }};
    // Entry, start, connection: the line after these.
    const Rig::ThrowFromLogLine throwing{4, std::runtime_error("no more log")};

    EXPECT_EQ(Report(1, kUp), E_FAIL);

    EXPECT_EQ(freed, 1);
    EXPECT_THAT(RadioOperations(), IsEmpty());
    EXPECT_TRUE(msm_Notification_flag);
}

TEST_F(NLMEventHandlerTest, TextOfTheIdentifierIsGivenBack) {
    std::vector<void*> given;
    std::vector<void*> freed;
    const ScopedImport<&::StringFromCLSID> texts{[&](REFCLSID id, LPOLESTR* text) {
        const HRESULT result = texts.Original(id, text);
        given.push_back(*text);
        return result;
    }};
    const ScopedImport<&::CoTaskMemFree> frees{[&](void* memory) {
        freed.push_back(memory);
        frees.Original(memory);
    }};

    Report(1, kDown);

    EXPECT_EQ(given.size(), 1U);
    EXPECT_EQ(freed, given);
}

#if defined(__GNUC__)
/// Has the calling thread fail to wait for a lock, for a scope. Other runtimes have locks that
/// cannot fail.
class NoWaits {
  public:
    [[nodiscard]] int Calls() const { return m_waits.Calls(); }

  private:
    ScopedImport<&::WaitForSingleObject> m_waits{
        [thisThread = GetCurrentThreadId()](HANDLE, DWORD) { return GetCurrentThreadId() == thisThread; },
        [](HANDLE, DWORD) -> DWORD { return WAIT_FAILED; }};
};

TEST_F(NLMEventHandlerTest, LockThatCannotBeTakenFailsTheEventAndTheFlagStaysSet) {
    GiveAddress();
    HRESULT result = S_OK;
    int refusedWaits = 0;
    {
        const std::lock_guard otherChange(connectivityChangeLock);
        std::thread([&] {
            const NoWaits noWaits;
            result = Report(1, kUp);
            refusedWaits = noWaits.Calls();
        }).join();
    }

    EXPECT_EQ(refusedWaits, 1);
    EXPECT_EQ(result, E_FAIL);
    EXPECT_THAT(
        m_log.Lines(),
        ElementsAre(TraceIn(kEvent, L"NLM_CONNECTIVITY = 64"),
                    Error(kEvent, L"Exception in NetworkConnectionConnectivityChanged()"), TraceOut(kEvent)));
    EXPECT_TRUE(msm_Notification_flag);
    EXPECT_EQ(m_manager.References(), 1) << "the service's own";

    EXPECT_EQ(Report(1, kUp), S_OK);
    EXPECT_FALSE(msm_Notification_flag) << "the next change clears it";
}

TEST_F(NLMEventHandlerTest, AdaptersThatCannotBeGivenBackAtTheEndOfAHandlerAreReported) {
    static constexpr char kDestructor[] = "NLMEventHandler::~NLMEventHandler";
    int refusedWaits = 0;
    m_adapterList.Set({EthernetWithAddress()});
    // While a check holds the adapters' lock.
    m_adapterList.AnswerNext([&refusedWaits](IP_ADAPTER_INFO*, ULONG*) -> DWORD {
        std::thread([&refusedWaits] {
            auto* const handler = new OpenHandler(nullptr, nullptr);
            handler->AddRef();
            const NoWaits noWaits;
            EXPECT_EQ(handler->Release(), 0U);
            refusedWaits = noWaits.Calls();
        }).join();
        return ERROR_SUCCESS;
    });
    int status = -1;

    EXPECT_EQ(NLMEventHandler::CheckEthernetConnectionStatusEx(&status, nullptr), 1) << "not disturbed";

    EXPECT_EQ(status, 1);
    EXPECT_EQ(refusedWaits, 1);
    EXPECT_THAT(m_log.Of(kDestructor),
                ElementsAre(TraceIn(kDestructor), Error(kDestructor, L"Exception in ~NLMEventHandler()"),
                            TraceOut(kDestructor)));
}
#endif

// --- Several events, and the end of the service ---------------------------------------------------

TEST_F(NLMEventHandlerTest, EventsOfSeveralThreadsAreHandledOneAfterTheOther) {
    GiveAddress();
    const LogLine start = Information(kEvent, L"------------------start----------------------");
    const LogLine end = Information(kEvent, L"-------------------end-----------------------");
    std::thread secondEvent;
    bool secondWaited = false;
    // In the middle of the first event.
    m_wlan.whenSwitched = [&] {
        secondEvent = std::thread([this] { Report(3, kDown); });
        EXPECT_TRUE(m_log.WaitFor(TraceIn(kEvent, L"NLM_CONNECTIVITY = 0")));
        Rig::Real<&::Sleep>(DWORD{20});
        secondWaited = m_log.Count(start) == 1;
    };

    Report(1, kUp);
    secondEvent.join();

    EXPECT_TRUE(secondWaited);
    std::vector<LogLine> bounds = OwnLines();
    std::erase_if(bounds, [&](const LogLine& line) { return line != start && line != end; });
    EXPECT_THAT(bounds, testing::UnorderedElementsAre(start, end, start, end));
    EXPECT_EQ(bounds.front(), start);
}

// The flag is one for all events. The one that waits has set it already when the
// one before it clears it, and does not set it again.
TEST_F(NLMEventHandlerTest, EventThatWaitedForAnotherOneSwitchesWithTheFlagClear) {
    GiveAddress();
    std::optional<bool> flagAtTheSwitch;
    m_wlan.whenSwitched = [&flagAtTheSwitch] { flagAtTheSwitch = msm_Notification_flag; };
    std::thread waitingEvent;
    // In the middle of the first event the second one comes. Having set the flag, it takes the
    // third reference to the manager; then it waits.
    const ScopedImport<&::StringFromCLSID> texts{
        Rig::kWrapping, [&](const auto& original, REFCLSID id, LPOLESTR* text) {
            if (!waitingEvent.joinable()) {
                waitingEvent = std::thread([this] { Report(1, kUp); });
                for (int i = 0; i < 5000 && m_manager.References() < 3; ++i) {
                    Rig::Real<&::Sleep>(DWORD{1});
                }
                EXPECT_EQ(m_manager.References(), 3);
                EXPECT_TRUE(msm_Notification_flag);
            }
            return original.Original(id, text);
        }};

    EXPECT_EQ(Report(3, kDown), S_OK);
    waitingEvent.join();

    EXPECT_THAT(m_wlan.Switches(), ElementsAre(false));
    EXPECT_EQ(flagAtTheSwitch, false);
    EXPECT_FALSE(msm_Notification_flag);
}

TEST_F(NLMEventHandlerTest, ManagerThatTheServiceGivesBackWhileAnEventWaitsStaysUsable) {
    GiveAddress();
    std::unique_lock otherChange(connectivityChangeLock);
    std::thread event([this] { Report(1, kUp); });
    EXPECT_TRUE(m_log.WaitFor(TraceIn(kEvent, L"NLM_CONNECTIVITY = 64")));
    while (m_manager.References() < 2) {
        std::this_thread::yield();
    }

    m_managerReference.Reset();
    otherChange.unlock();
    event.join();

    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan));
    EXPECT_EQ(m_manager.References(), 0);
}

TEST_F(NLMEventHandlerTest, ManagerThatTheServiceGivesBackAtTheFirstLineStaysUsable) {
    GiveAddress();
    {
        const Rig::AtEachLogLine lines{[this](const auto& entry) {
            if (entry.FunctionName() == kEvent) {
                m_managerReference.Reset();
            }
        }};
        EXPECT_EQ(Report(1, kUp), S_OK);
    }
    EXPECT_THAT(RadioOperations(), ElementsAre(kStopWlan, kStopWwan));
    EXPECT_EQ(m_manager.References(), 0);
}

// --- The COM object -------------------------------------------------------------------------------

TEST_F(NLMEventHandlerTest, EachInterfaceIsAnsweredWithAReference) {
    const std::vector<std::pair<IID, void*>> interfaces{
        {IID_IUnknown, static_cast<INetworkListManagerEvents*>(m_handler)},
        {IID_INetworkListManagerEvents, static_cast<INetworkListManagerEvents*>(m_handler)},
        {IID_INetworkConnectionEvents, static_cast<INetworkConnectionEvents*>(m_handler)},
        {IID_INetworkEvents, static_cast<INetworkEvents*>(m_handler)}};
    // Asked through each of the object's own interfaces.
    const std::vector<IUnknown*> ways{static_cast<INetworkListManagerEvents*>(m_handler),
                                      static_cast<INetworkEvents*>(m_handler),
                                      static_cast<INetworkConnectionEvents*>(m_handler)};
    for (IUnknown* const way : ways) {
        for (const auto& [id, expected] : interfaces) {
            void* object = nullptr;

            EXPECT_EQ(way->QueryInterface(id, &object), S_OK);

            EXPECT_EQ(object, expected);
            EXPECT_EQ(m_handler->m_references, 2U);
            EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 1U);
        }
    }
}

TEST_F(NLMEventHandlerTest, UnknownInterfaceClearsTheOutPointer) {
    void* object = this;

    EXPECT_EQ(m_handler->QueryInterface(IID_IDispatch, &object), E_NOINTERFACE);

    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(m_handler->m_references, 1U);
}

TEST_F(NLMEventHandlerTest, NullOutPointerIsRefused) {
    EXPECT_EQ(m_handler->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(m_handler->m_references, 1U);
}

TEST(NLMEventHandlerObject, ReferencesAreCountedAndTheLastReleaseDestroysIt) {
    LogRecorder log;
    auto* const handler = new OpenHandler(nullptr, nullptr);
    EXPECT_EQ(handler->m_references, 0U);

    EXPECT_EQ(handler->AddRef(), 1U);
    EXPECT_EQ(static_cast<INetworkEvents*>(handler)->AddRef(), 2U);
    EXPECT_EQ(static_cast<INetworkConnectionEvents*>(handler)->Release(), 1U);
    EXPECT_TRUE(log.Of("NLMEventHandler::~NLMEventHandler").empty());
    EXPECT_EQ(handler->Release(), 0U);

    EXPECT_THAT(log.Of("NLMEventHandler::~NLMEventHandler"),
                ElementsAre(TraceIn("NLMEventHandler::~NLMEventHandler"),
                            TraceOut("NLMEventHandler::~NLMEventHandler")));
}

TEST(NLMEventHandlerObject, BasesAndFieldsStandInTheirOrder) {
    const LogRecorder log;
    FakeNetworkListManager manager;
    WiredConnections wired;
    OpenHandler handler(&manager, &wired);
    const auto offset = [&handler](const void* part) {
        return reinterpret_cast<const char*>(part) - reinterpret_cast<const char*>(&handler);
    };
    constexpr std::ptrdiff_t kPointer = sizeof(void*);

    EXPECT_EQ(offset(static_cast<INetworkListManagerEvents*>(&handler)), 0);
    EXPECT_EQ(offset(static_cast<INetworkEvents*>(&handler)), kPointer);
    EXPECT_EQ(offset(static_cast<INetworkConnectionEvents*>(&handler)), 2 * kPointer);
    EXPECT_EQ(offset(&handler.m_references), 3 * kPointer);
    EXPECT_EQ(offset(&handler.m_networkListManager), 4 * kPointer);
    EXPECT_EQ(offset(&handler.m_wiredConnections), 5 * kPointer);
    EXPECT_EQ(handler.m_references, 0U);
    EXPECT_EQ(handler.m_networkListManager, &manager);
    EXPECT_EQ(handler.m_wiredConnections, &wired);
    EXPECT_EQ(manager.ReferencesTaken(), 0) << "the manager is only borrowed";
}

#if defined(__GNUC__)
/// The entry of a virtual table, as a function.
template <class Function>
Function* Slot(void* object, std::size_t number) {
    return reinterpret_cast<Function*>((*static_cast<void***>(object))[number]);
}

TEST(NLMEventHandlerObject, VirtualTablesHoldTheOperationsInTheirOrder) {
    LogRecorder log;
    alignas(OpenHandler) std::byte storage[sizeof(OpenHandler)];
    auto* const handler = new (storage) NLMEventHandler(nullptr, nullptr);
    log.Clear();
    void* const manager = static_cast<INetworkListManagerEvents*>(handler);
    void* const network = static_cast<INetworkEvents*>(handler);
    void* const connection = static_cast<INetworkConnectionEvents*>(handler);
    constexpr GUID kId{};

    ULONG references = 0;
    for (void* const table : {manager, network, connection}) {
        EXPECT_EQ(Slot<ULONG WINAPI(void*)>(table, 1)(table), ++references);
    }
    for (void* const table : {manager, network, connection}) {
        void* found = nullptr;
        EXPECT_EQ(Slot<HRESULT WINAPI(void*, REFIID, void**)>(table, 0)(table, IID_IUnknown, &found), S_OK);
        EXPECT_EQ(found, manager);
        EXPECT_EQ(Slot<ULONG WINAPI(void*)>(table, 2)(table), references);
    }
    Slot<HRESULT WINAPI(void*, int)>(manager, 3)(manager, 1);
    Slot<HRESULT WINAPI(void*, GUID)>(network, 3)(network, kId);
    Slot<HRESULT WINAPI(void*, GUID)>(network, 4)(network, kId);
    Slot<HRESULT WINAPI(void*, GUID, int)>(network, 5)(network, kId, 2);
    Slot<HRESULT WINAPI(void*, GUID, int)>(network, 6)(network, kId, 3);
    Slot<HRESULT WINAPI(void*, GUID, int)>(connection, 3)(connection, kId, 0);
    Slot<HRESULT WINAPI(void*, GUID, int)>(connection, 4)(connection, kId, 4);
    // The entry that destroys the object without freeing its memory.
    Slot<void(void*)>(manager, 4)(manager);

    std::vector<LogLine> entries = log.At(Level::kTraceIn);
    std::erase_if(entries, [](const LogLine& line) { return line.function.starts_with("NLMUtils::"); });
    EXPECT_THAT(
        entries,
        ElementsAre(TraceIn("NLMEventHandler::ConnectivityChanged", L"NLM_CONNECTIVITY = 1"),
                    TraceIn("NLMEventHandler::NetworkAdded"), TraceIn("NLMEventHandler::NetworkDeleted"),
                    TraceIn("NLMEventHandler::NetworkConnectivityChanged", L"NLM_CONNECTIVITY = 2"),
                    TraceIn("NLMEventHandler::NetworkPropertyChanged", L"NLM_NETWORK_PROPERTY_CHANGE = 3"),
                    TraceIn(kEvent, L"NLM_CONNECTIVITY = 0"),
                    TraceIn("NLMEventHandler::NetworkConnectionPropertyChanged",
                            L"NLM_CONNECTION_PROPERTY_CHANGE = 4"),
                    TraceIn("NLMEventHandler::~NLMEventHandler")));
}
#endif

TEST_F(NLMEventHandlerTest, OtherEventsAreLoggedAndNothingElse) {
    constexpr GUID kId{};
    EXPECT_EQ(m_handler->ConnectivityChanged(kDown), S_OK);
    EXPECT_EQ(m_handler->NetworkAdded(kId), S_OK);
    EXPECT_EQ(m_handler->NetworkDeleted(kId), S_OK);
    EXPECT_EQ(m_handler->NetworkConnectivityChanged(kId, kUp), S_OK);
    EXPECT_EQ(m_handler->NetworkPropertyChanged(kId, NLM_NETWORK_PROPERTY_CHANGE_NAME), S_OK);
    EXPECT_EQ(m_handler->NetworkConnectionPropertyChanged(kId, NLM_CONNECTION_PROPERTY_CHANGE_AUTHENTICATION),
              S_OK);

    EXPECT_THAT(
        m_log.Lines(),
        ElementsAre(TraceIn("NLMEventHandler::ConnectivityChanged", L"NLM_CONNECTIVITY = 0"),
                    TraceOut("NLMEventHandler::ConnectivityChanged"),
                    TraceIn("NLMEventHandler::NetworkAdded"), TraceOut("NLMEventHandler::NetworkAdded"),
                    TraceIn("NLMEventHandler::NetworkDeleted"), TraceOut("NLMEventHandler::NetworkDeleted"),
                    TraceIn("NLMEventHandler::NetworkConnectivityChanged", L"NLM_CONNECTIVITY = 64"),
                    TraceOut("NLMEventHandler::NetworkConnectivityChanged"),
                    TraceIn("NLMEventHandler::NetworkPropertyChanged", L"NLM_NETWORK_PROPERTY_CHANGE = 4"),
                    TraceOut("NLMEventHandler::NetworkPropertyChanged"),
                    TraceIn("NLMEventHandler::NetworkConnectionPropertyChanged",
                            L"NLM_CONNECTION_PROPERTY_CHANGE = 1"),
                    TraceOut("NLMEventHandler::NetworkConnectionPropertyChanged")));
}

}  // namespace
}  // namespace NetworkTests
