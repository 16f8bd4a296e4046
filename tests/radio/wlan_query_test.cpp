#include "radio/wlan_radio.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "notebook/hardware/guarded_memory.h"
#include "tests/radio/machine.h"

namespace RadioTests {
namespace {

constexpr char kCheck[] = "ServiceUtils::CheckWlanStatus";

using WlanQueryTest = RadioTest;

TEST_F(WlanQueryTest, RadioWithEveryPhyOnIsOn) {
    m_notebook.SetPhys({On(), On()});
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(TraceIn(kCheck), Information(kCheck, L"WLAN Interface Count : 1"),
                    Information(kCheck, L"Current Index: 0"),
                    Information(kCheck, L"Interface Description: Brook Wireless Adapter 1"),
                    Information(kCheck, L"Interface State :  "), Information(kCheck, L"Not connected"),
                    Information(kCheck, L"Phy: 0 On"), Information(kCheck, L"Phy: 1 On"),
                    Information(kCheck, L"Phy state : 1"), TraceOut(kCheck, L"WLAN Status = 1")));
    EXPECT_THAT(m_notebook.Calls(), ElementsAre("WlanOpenHandle version 2", "WlanEnumInterfaces",
                                                "WlanQueryInterface", "WlanCloseHandle"));
}

TEST_F(WlanQueryTest, RadioIsOnOnlyIfEveryPhyIs) {
    std::vector<Phy> most(WLAN_MAX_PHY_INDEX, On());
    most.front() = Off();
    most.back() = Off();
    struct Case {
        std::vector<Phy> phys;
        bool isOn;
        const wchar_t* line;
    };
    for (const Case& tested :
         {Case{{On(), Off()}, false, L"Phy: 1 Off"}, Case{most, false, L"Phy: 63 Off"},
          Case{{On(), PhyIn(dot11_radio_state_unknown)}, false, L"Phy: 1 Unknown"},
          Case{{PhyIn(static_cast<DOT11_RADIO_STATE>(3)), On()}, false, L"Phy: 0 Other Unknown state 3"},
          Case{{}, true, L"Phy state : 1"}}) {
        SCOPED_TRACE(tested.line);
        m_notebook.SetPhys(tested.phys);
        m_machine.log.Clear();
        EXPECT_EQ(CheckWlanStatus(), tested.isOn);
        EXPECT_TRUE(m_machine.log.Contains(Information(kCheck, tested.line)));
        const auto lines = m_machine.log.Lines();
        EXPECT_THAT(std::vector(lines.end() - 2, lines.end()),
                    ElementsAre(Information(kCheck, tested.isOn ? L"Phy state : 1" : L"Phy state : 0"),
                                TraceOut(kCheck, tested.isOn ? L"WLAN Status = 1" : L"WLAN Status = 0")));
    }
}

TEST_F(WlanQueryTest, HardwareSwitchIsIgnored) {
    m_notebook.Act(&::Notebook::SwitchWlanHardware, false);
    EXPECT_TRUE(CheckWlanStatus());
}

constexpr std::size_t kHeaderBytes = offsetof(WLAN_RADIO_STATE, PhyRadioState);
constexpr std::size_t kPhyBytes = sizeof(WLAN_PHY_RADIO_STATE);

/// Has each query give just so many bytes of its record, which names so many PHYs.
class CutRecords {
  public:
    CutRecords(DWORD phys, std::size_t bytes)
        : m_query(Rig::kWrapping,
                  [phys, bytes](const auto& device, HANDLE client, const GUID* id, WLAN_INTF_OPCODE opcode,
                                void* reserved, DWORD* size, void** data, WLAN_OPCODE_VALUE_TYPE* type) {
                      const DWORD result = device.Original(client, id, opcode, reserved, size, data, type);
                      static_cast<WLAN_RADIO_STATE*>(*data)->dwNumberOfPhys = phys;
                      void* const cut = ::Notebook::AllocateGuarded(bytes, alignof(WLAN_RADIO_STATE));
                      std::memcpy(cut, *data, bytes);
                      ::Notebook::FreeGuarded(std::exchange(*data, cut));
                      *size = static_cast<DWORD>(bytes);
                      return result;
                  }) {}

  private:
    ScopedImport<&::WlanQueryInterface> m_query;
};

TEST_F(WlanQueryTest, RecordThatDoesNotShowWhatItNamesIsNoDataAndIsNotReadBeyondItsEnd) {
    // Every PHY is on, as far as can be seen.
    m_notebook.SetPhys(std::vector<Phy>(WLAN_MAX_PHY_INDEX, On()));
    const std::pair<DWORD, std::size_t> records[] = {{0, 0},
                                                     {0, kHeaderBytes - 1},
                                                     {1, kHeaderBytes},
                                                     {1, kHeaderBytes + kPhyBytes - 1},
                                                     {3, kHeaderBytes + 2 * kPhyBytes},
                                                     {WLAN_MAX_PHY_INDEX + 1, sizeof(WLAN_RADIO_STATE)},
                                                     {0xFFFFFFFF, sizeof(WLAN_RADIO_STATE)}};
    for (const auto& [phys, bytes] : records) {
        SCOPED_TRACE(std::to_string(phys) + " PHYs, bytes: " + std::to_string(bytes));
        const CutRecords cut{phys, bytes};
        m_machine.log.Clear();
        EXPECT_FALSE(CheckWlanStatus());
        EXPECT_THAT(m_machine.log.At(kError),
                    ElementsAre(Error(kCheck, L"WlanQueryInterface failed! err is 0")));
        EXPECT_FALSE(m_machine.log.Contains(Information(kCheck, L"Phy: 0 On")));
    }
}

TEST_F(WlanQueryTest, RecordOfJustThePhysThatItNamesIsRead) {
    for (const DWORD phys : {0UL, 1UL, 2UL}) {
        m_notebook.SetPhys(std::vector<Phy>(phys, On()));
        const CutRecords records{phys, kHeaderBytes + phys * kPhyBytes};
        EXPECT_TRUE(CheckWlanStatus()) << phys;
    }
}

TEST_F(WlanQueryTest, InterfaceStateIsLoggedByName) {
    const std::pair<int, const wchar_t*> states[] = {
        {0, L"Not ready"},
        {1, L"Connected"},
        {2, L"First node in a ad hoc network"},
        {3, L"Disconnecting"},
        {4, L"Not connected"},
        {5, L"Attempting to associate with a network"},
        {6, L"Auto configuration is discovering settings for the network"},
        {7, L"In process of authenticating"},
        {8, L"Unknown state 8"},
        {-1, L"Unknown state -1"},
    };
    for (const auto& [state, text] : states) {
        m_notebook.Wlan().state = static_cast<std::uint32_t>(state);
        m_machine.log.Clear();
        static_cast<void>(CheckWlanStatus());
        EXPECT_EQ(m_machine.log.Lines().at(5), Information(kCheck, text));
    }
}

TEST_F(WlanQueryTest, OnlyTheFirstAdapterIsLookedAt) {
    m_notebook.Make({.wlanAdapters = 2});
    m_notebook.Wlan(1).phys[0] = Off();
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_EQ(m_notebook.Count(Call::WlanQueryInterface), 1);
    EXPECT_TRUE(m_machine.log.Contains(Information(kCheck, L"WLAN Interface Count : 2")));
}

TEST_F(WlanQueryTest, DescriptionThatFillsItsFieldIsReadToItsEnd) {
    std::ranges::fill(m_notebook.Wlan().description, L'x');
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_EQ(m_machine.log.Lines().at(3),
              Information(kCheck, L"Interface Description: " + std::wstring(WLAN_MAX_NAME_LENGTH - 1, L'x')));
}

TEST_F(WlanQueryTest, CallThatFailsOrGivesNothingMakesTheRadioOff) {
    struct Case {
        Call call;
        LONG error;  ///< zero: it gives nothing
        const wchar_t* line;
        std::vector<std::string> calls;
    };
    const std::string open = "WlanOpenHandle version 2";
    const std::string list = "WlanEnumInterfaces";
    const std::string query = "WlanQueryInterface";
    const std::string close = "WlanCloseHandle";
    for (const Case& broken :
         {Case{Call::WlanOpenHandle,
               ERROR_SERVICE_NOT_ACTIVE,
               L"WlanOpenHandle failed with error: 1062",
               {open}},
          Case{Call::WlanEnumInterfaces,
               ERROR_NOT_ENOUGH_MEMORY,
               L"WlanEnumInterfaces failed with error: 8",
               {open, list, close}},
          Case{Call::WlanEnumInterfaces, ERROR_SUCCESS, L"Interface list is empty", {open, list, close}},
          Case{Call::WlanQueryInterface,
               ERROR_INVALID_STATE,
               L"WlanQueryInterface failed! err is 5023",
               {open, list, query, close}},
          Case{Call::WlanQueryInterface,
               ERROR_SUCCESS,
               L"WlanQueryInterface failed! err is 0",
               {open, list, query, close}}}) {
        SCOPED_TRACE(broken.line);
        m_machine.log.Clear();
        m_notebook.ForgetCalls();
        m_notebook.Fail(broken.call, 1, broken.error);
        EXPECT_FALSE(CheckWlanStatus());
        EXPECT_THAT(m_notebook.Calls(), ElementsAreArray(broken.calls));
        EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kCheck, broken.line)));
        EXPECT_EQ(m_machine.log.Lines().back(), TraceOut(kCheck, L"WLAN Status = 0"));
    }
}

TEST_F(WlanQueryTest, ListWithoutEntriesIsAskedAboutNobodyAndNotReadBeyondItsEnd) {
    m_notebook.Make({.wlanAdapters = 0});
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(
        m_machine.log.From(kInformation),
        ElementsAre(Information(kCheck, L"WLAN Interface Count : 0"),
                    Information(kCheck, L"Current Index: 0"), Information(kCheck, L"Interface Description: "),
                    Information(kCheck, L"Interface State :  "), Information(kCheck, L"Not ready"),
                    Error(kCheck, L"WlanQueryInterface failed! err is 1168")));
    EXPECT_EQ(m_notebook.Calls().back(), "WlanCloseHandle");
}

TEST_F(WlanQueryTest, AfterASwitchRanOutTheRadioReadsAsOffWithoutAsking) {
    ServiceUtils::my_setwifitimeout = true;
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kCheck), Error(kCheck, L"My WIFI Query timeout, my_setwifitimeout : 1"),
                            TraceOut(kCheck, L"WLAN Status = 0")));
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
}

}  // namespace
}  // namespace RadioTests
