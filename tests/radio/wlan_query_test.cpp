#include "radio/wlan_radio.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "notebook/hardware/guarded_memory.h"
#include "tests/radio/machine.h"

namespace RadioTests {
namespace {

using namespace Rig::Lines;
using Orva::Shared::Level::kError;
using ServiceUtils::CheckWlanStatus;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

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
}

TEST_F(WlanQueryTest, AskingOpensAndClosesAClientOfItsOwn) {
    m_notebook.SetPhys({On()});
    static_cast<void>(CheckWlanStatus());
    EXPECT_THAT(m_notebook.Calls(), ElementsAre("WlanOpenHandle version 2", "WlanEnumInterfaces",
                                                "WlanQueryInterface", "WlanCloseHandle"));
}

TEST_F(WlanQueryTest, OnePhyOffMakesTheRadioOff) {
    m_notebook.SetPhys({On(), Off(), On()});
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy: 1 Off")));
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy: 2 On")));
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy state : 0")));
    EXPECT_THAT(m_machine.log.Lines(), Contains(TraceOut(kCheck, L"WLAN Status = 0")));
}

TEST_F(WlanQueryTest, PhyOfUnknownStateMakesTheRadioOff) {
    m_notebook.SetPhys({On(), PhyIn(dot11_radio_state_unknown)});
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy: 1 Unknown")));
}

TEST_F(WlanQueryTest, PhyOfAStateOutOfRangeMakesTheRadioOff) {
    m_notebook.SetPhys({PhyIn(static_cast<DOT11_RADIO_STATE>(3)), On()});
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy: 0 Other Unknown state 3")));
}

TEST_F(WlanQueryTest, HardwareSwitchIsIgnored) {
    m_notebook.Act(&::Notebook::SwitchWlanHardware, false);
    EXPECT_TRUE(CheckWlanStatus());
}

TEST_F(WlanQueryTest, InterfaceWithoutPhysCountsAsOn) {
    m_notebook.SetPhys({});
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy state : 1")));
}

TEST_F(WlanQueryTest, AllOf64PhysAreLookedAt) {
    std::vector<Phy> phys(WLAN_MAX_PHY_INDEX, On());
    phys.back() = Off();
    m_notebook.SetPhys(phys);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy: 63 Off")));
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
    Rig::ScopedImport<&::WlanQueryInterface> m_query;
};

/// A record that does not show what it names: every PHY is on, as far as can be seen.
struct BrokenRecord {
    const char* name;
    DWORD claimedPhys;
    std::size_t bytes;
};

void PrintTo(const BrokenRecord& tested, std::ostream* out) {
    *out << tested.name;
}

class WlanBrokenRecordTest : public WlanQueryTest, public testing::WithParamInterface<BrokenRecord> {};

TEST_P(WlanBrokenRecordTest, BrokenRecordIsNoDataAndIsNotReadBeyondItsEnd) {
    m_notebook.SetPhys(std::vector<Phy>(WLAN_MAX_PHY_INDEX, On()));
    const CutRecords records{GetParam().claimedPhys, GetParam().bytes};
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kCheck, L"WlanQueryInterface failed! err is 0")));
    EXPECT_FALSE(m_machine.log.Contains(Information(kCheck, L"Phy: 0 On")));
}

INSTANTIATE_TEST_SUITE_P(
    Records, WlanBrokenRecordTest,
    testing::Values(BrokenRecord{"Nothing", 0, 0}, BrokenRecord{"HalfANumber", 0, 3},
                    BrokenRecord{"NumberOnly", 1, kHeaderBytes},
                    BrokenRecord{"PartOfAPhy", 1, kHeaderBytes + kPhyBytes - 1},
                    BrokenRecord{"OnePhyTooFew", 3, kHeaderBytes + 2 * kPhyBytes},
                    BrokenRecord{"OnePhyTooMany", WLAN_MAX_PHY_INDEX + 1, sizeof(WLAN_RADIO_STATE)},
                    BrokenRecord{"ManyPhysTooMany", 0xFFFFFFFF, sizeof(WLAN_RADIO_STATE)}));

TEST_F(WlanQueryTest, RecordOfJustThePhysThatItNamesIsRead) {
    for (const DWORD phys : {0UL, 1UL, 2UL}) {
        m_notebook.SetPhys(std::vector<Phy>(phys, On()));
        const CutRecords records{phys, kHeaderBytes + phys * kPhyBytes};
        EXPECT_TRUE(CheckWlanStatus()) << phys;
    }
}

struct NamedState {
    const char* name;
    int state;
    const wchar_t* text;
};

void PrintTo(const NamedState& tested, std::ostream* out) {
    *out << tested.name;
}

class WlanInterfaceStateTest : public WlanQueryTest, public testing::WithParamInterface<NamedState> {};

TEST_P(WlanInterfaceStateTest, StateIsLoggedByName) {
    m_notebook.Wlan().state = static_cast<std::uint32_t>(GetParam().state);
    static_cast<void>(CheckWlanStatus());
    EXPECT_EQ(m_machine.log.Of(kCheck).at(5), Information(kCheck, GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    States, WlanInterfaceStateTest,
    testing::Values(
        NamedState{"NotReady", 0, L"Not ready"}, NamedState{"Connected", 1, L"Connected"},
        NamedState{"AdHoc", 2, L"First node in a ad hoc network"},
        NamedState{"Disconnecting", 3, L"Disconnecting"}, NamedState{"NotConnected", 4, L"Not connected"},
        NamedState{"Associating", 5, L"Attempting to associate with a network"},
        NamedState{"Discovering", 6, L"Auto configuration is discovering settings for the network"},
        NamedState{"Authenticating", 7, L"In process of authenticating"},
        NamedState{"Beyond", 8, L"Unknown state 8"}, NamedState{"Negative", -1, L"Unknown state -1"}));

TEST_F(WlanQueryTest, OnlyTheFirstAdapterIsLookedAt) {
    m_notebook.Make({.wlanAdapters = 2});
    m_notebook.Wlan(1).phys[0] = Off();
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_EQ(m_notebook.Count(Call::WlanQueryInterface), 1);
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"WLAN Interface Count : 2")));
}

TEST_F(WlanQueryTest, DescriptionThatFillsItsFieldIsReadToItsEnd) {
    std::ranges::fill(m_notebook.Wlan().description, L'x');
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_EQ(m_machine.log.Of(kCheck).at(3),
              Information(kCheck, L"Interface Description: " + std::wstring(WLAN_MAX_NAME_LENGTH - 1, L'x')));
}

TEST_F(WlanQueryTest, FailedOpenMakesTheRadioOff) {
    m_notebook.SetPhys({On()});
    m_notebook.Fail(Call::WlanOpenHandle, 1, ERROR_SERVICE_NOT_ACTIVE);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kCheck), Error(kCheck, L"WlanOpenHandle failed with error: 1062"),
                            TraceOut(kCheck, L"WLAN Status = 0")));
    EXPECT_THAT(m_notebook.Calls(), ElementsAre("WlanOpenHandle version 2"));
}

TEST_F(WlanQueryTest, FailedEnumerationClosesTheHandle) {
    m_notebook.SetPhys({On()});
    m_notebook.Fail(Call::WlanEnumInterfaces, 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kCheck), Error(kCheck, L"WlanEnumInterfaces failed with error: 8"),
                            TraceOut(kCheck, L"WLAN Status = 0")));
    EXPECT_THAT(m_notebook.Calls(),
                ElementsAre("WlanOpenHandle version 2", "WlanEnumInterfaces", "WlanCloseHandle"));
}

TEST_F(WlanQueryTest, NoListMakesTheRadioOff) {
    m_notebook.SetPhys({On()});
    m_notebook.GiveNothing(Call::WlanEnumInterfaces);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(kCheck), Error(kCheck, L"Interface list is empty"),
                                                   TraceOut(kCheck, L"WLAN Status = 0")));
    EXPECT_THAT(m_notebook.Calls(),
                ElementsAre("WlanOpenHandle version 2", "WlanEnumInterfaces", "WlanCloseHandle"));
}

TEST_F(WlanQueryTest, ListWithoutEntriesIsAskedAboutNobodyAndNotReadBeyondItsEnd) {
    m_notebook.Make({.wlanAdapters = 0});
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(
        m_machine.log.From(Orva::Shared::Level::kInformation),
        ElementsAre(Information(kCheck, L"WLAN Interface Count : 0"),
                    Information(kCheck, L"Current Index: 0"), Information(kCheck, L"Interface Description: "),
                    Information(kCheck, L"Interface State :  "), Information(kCheck, L"Not ready"),
                    Error(kCheck, L"WlanQueryInterface failed! err is 1168")));
    EXPECT_THAT(m_notebook.Calls(), ElementsAre("WlanOpenHandle version 2", "WlanEnumInterfaces",
                                                "WlanQueryInterface", "WlanCloseHandle"));
}

TEST_F(WlanQueryTest, FailedQueryMakesTheRadioOff) {
    m_notebook.SetPhys({On()});
    m_notebook.Fail(Call::WlanQueryInterface, 1, ERROR_INVALID_STATE);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kCheck, L"WlanQueryInterface failed! err is 5023")));
    EXPECT_THAT(m_notebook.Calls(), ElementsAre("WlanOpenHandle version 2", "WlanEnumInterfaces",
                                                "WlanQueryInterface", "WlanCloseHandle"));
}

TEST_F(WlanQueryTest, QueryWithoutDataMakesTheRadioOff) {
    m_notebook.SetPhys({On()});
    m_notebook.GiveNothing(Call::WlanQueryInterface);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kCheck, L"WlanQueryInterface failed! err is 0")));
}

TEST_F(WlanQueryTest, AfterASwitchRanOutTheRadioReadsAsOffWithoutAsking) {
    ServiceUtils::my_setwifitimeout = true;
    m_notebook.SetPhys({On()});
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kCheck), Error(kCheck, L"My WIFI Query timeout, my_setwifitimeout : 1"),
                            TraceOut(kCheck, L"WLAN Status = 0")));
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
}

class WlanQueryThrowsTest : public WlanQueryTest, public testing::WithParamInterface<Call> {};

TEST_P(WlanQueryThrowsTest, ExceptionIsLoggedAndEverythingGivenBack) {
    m_notebook.SetPhys({On()});
    m_notebook.At(GetParam(), 1, []() -> DWORD { throw std::runtime_error("out of order"); });
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kCheck, L"Exception in CheckWlanStatus()")));
    EXPECT_EQ(m_machine.log.Lines().back(), TraceOut(kCheck, L"WLAN Status = 0"));
}

INSTANTIATE_TEST_SUITE_P(EachCall, WlanQueryThrowsTest,
                         testing::Values(Call::WlanOpenHandle, Call::WlanEnumInterfaces,
                                         Call::WlanQueryInterface));

TEST_F(WlanQueryTest, ExceptionOfGivingBackGoesNowhere) {
    m_notebook.SetPhys({On()});
    const Rig::ScopedImport<&::WlanFreeMemory> frees{Rig::kWrapping, [](const auto& fake, void* block) {
                                                         fake.Original(block);
                                                         throw std::runtime_error("out of order");
                                                     }};
    const Rig::ScopedImport<&::WlanCloseHandle> closes{
        Rig::kWrapping, [](const auto& fake, HANDLE client, void* reserved) -> DWORD {
            fake.Original(client, reserved);
            throw DWORD{ERROR_CRC};
        }};
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_EQ(frees.Calls(), 2);
    EXPECT_EQ(closes.Calls(), 1);
    EXPECT_THAT(m_machine.log.At(kError), IsEmpty());
}

TEST_F(WlanQueryTest, ThrownWin32ErrorIsLoggedAndEverythingGivenBack) {
    m_notebook.SetPhys({On()});
    m_notebook.At(Call::WlanQueryInterface, 1, []() -> DWORD { throw DWORD{ERROR_ACCESS_DENIED}; });
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kCheck, L"Exception in CheckWlanStatus()")));
}

}  // namespace
}  // namespace RadioTests
