#include "radio/wlan_radio.h"

#include <gmock/gmock.h>

#include <ostream>
#include <stdexcept>

#include "tests/radio/fake_wlan.h"
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

class WlanQueryTest : public testing::Test {
  protected:
    Machine m_machine;
    RadioLedger m_ledger;
};

TEST_F(WlanQueryTest, RadioWithEveryPhyOnIsOn) {
    FakeWlan wlan{{On(), On()}};
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kCheck), Information(kCheck, L"WLAN Interface Count : 1"),
                            Information(kCheck, L"Current Index: 0"),
                            Information(kCheck, L"Interface Description: Some WLAN Adapter"),
                            Information(kCheck, L"Interface State :  "), Information(kCheck, L"Connected"),
                            Information(kCheck, L"Phy: 0 On"), Information(kCheck, L"Phy: 1 On"),
                            Information(kCheck, L"Phy state : 1"), TraceOut(kCheck, L"WLAN Status = 1")));
}

TEST_F(WlanQueryTest, AskingOpensAndClosesAClientOfItsOwn) {
    FakeWlan wlan{{On()}};
    static_cast<void>(CheckWlanStatus());
    EXPECT_THAT(wlan.Calls(),
                ElementsAre("Open 2", "Enumerate", "Query 0", "Free record", "Free list", "Close"));
}

TEST_F(WlanQueryTest, OnePhyOffMakesTheRadioOff) {
    FakeWlan wlan{{On(), Off(), On()}};
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy: 1 Off")));
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy: 2 On")));
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy state : 0")));
    EXPECT_THAT(m_machine.log.Lines(), Contains(TraceOut(kCheck, L"WLAN Status = 0")));
}

TEST_F(WlanQueryTest, PhyOfUnknownStateMakesTheRadioOff) {
    FakeWlan wlan{{On(), PhyIn(dot11_radio_state_unknown)}};
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy: 1 Unknown")));
}

TEST_F(WlanQueryTest, PhyOfAStateOutOfRangeMakesTheRadioOff) {
    FakeWlan wlan{{PhyIn(static_cast<DOT11_RADIO_STATE>(3)), On()}};
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy: 0 Other Unknown state 3")));
}

TEST_F(WlanQueryTest, HardwareSwitchIsIgnored) {
    FakeWlan wlan{{PhyIn(dot11_radio_state_on, dot11_radio_state_off)}};
    EXPECT_TRUE(CheckWlanStatus());
}

TEST_F(WlanQueryTest, InterfaceWithoutPhysCountsAsOn) {
    FakeWlan wlan{std::vector<Phy>{}};
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy state : 1")));
}

TEST_F(WlanQueryTest, AllOf64PhysAreLookedAt) {
    std::vector<Phy> phys(WLAN_MAX_PHY_INDEX, On());
    phys.back() = Off();
    FakeWlan wlan{phys};
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"Phy: 63 Off")));
}

constexpr std::size_t kHeaderBytes = offsetof(WLAN_RADIO_STATE, PhyRadioState);
constexpr std::size_t kPhyBytes = sizeof(WLAN_PHY_RADIO_STATE);

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
    FakeWlan wlan{std::vector<Phy>(WLAN_MAX_PHY_INDEX, On())};
    wlan.ClaimPhys(GetParam().claimedPhys);
    wlan.CutRecords(GetParam().bytes);
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
        FakeWlan wlan{std::vector<Phy>(phys, On())};
        wlan.CutRecords(kHeaderBytes + phys * kPhyBytes);
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
    WlanAdapter adapter = AdapterWithPhys({On()});
    adapter.state = static_cast<WLAN_INTERFACE_STATE>(GetParam().state);
    FakeWlan wlan{std::vector{adapter}};
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
    WlanAdapter second = AdapterWithPhys({Off()});
    second.id.Data1 = 2;
    FakeWlan wlan{{AdapterWithPhys({On()}), second}};
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_THAT(wlan.CallsOf(WlanCall::kQuery), ElementsAre("Query 0"));
    EXPECT_THAT(m_machine.log.Lines(), Contains(Information(kCheck, L"WLAN Interface Count : 2")));
}

TEST_F(WlanQueryTest, DescriptionThatFillsItsFieldIsReadToItsEnd) {
    WlanAdapter adapter = AdapterWithPhys({On()});
    adapter.description.assign(WLAN_MAX_NAME_LENGTH, L'x');
    FakeWlan wlan{std::vector{adapter}};
    EXPECT_TRUE(CheckWlanStatus());
    EXPECT_EQ(m_machine.log.Of(kCheck).at(3),
              Information(kCheck, L"Interface Description: " + std::wstring(WLAN_MAX_NAME_LENGTH - 1, L'x')));
}

TEST_F(WlanQueryTest, FailedOpenMakesTheRadioOff) {
    FakeWlan wlan{{On()}};
    wlan.Fail(WlanCall::kOpen, 1, ERROR_SERVICE_NOT_ACTIVE);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kCheck), Error(kCheck, L"WlanOpenHandle failed with error: 1062"),
                            TraceOut(kCheck, L"WLAN Status = 0")));
    EXPECT_THAT(wlan.Calls(), ElementsAre("Open 2"));
}

TEST_F(WlanQueryTest, FailedEnumerationClosesTheHandle) {
    FakeWlan wlan{{On()}};
    wlan.Fail(WlanCall::kEnumerate, 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kCheck), Error(kCheck, L"WlanEnumInterfaces failed with error: 8"),
                            TraceOut(kCheck, L"WLAN Status = 0")));
    EXPECT_THAT(wlan.Calls(), ElementsAre("Open 2", "Enumerate", "Close"));
}

TEST_F(WlanQueryTest, NoListMakesTheRadioOff) {
    FakeWlan wlan{{On()}};
    wlan.GiveNothingFor(WlanCall::kEnumerate);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(kCheck), Error(kCheck, L"Interface list is empty"),
                                                   TraceOut(kCheck, L"WLAN Status = 0")));
    EXPECT_THAT(wlan.Calls(), ElementsAre("Open 2", "Enumerate", "Close"));
}

TEST_F(WlanQueryTest, ListWithoutEntriesIsAskedAboutNobodyAndNotReadBeyondItsEnd) {
    FakeWlan wlan{std::vector<WlanAdapter>{}};
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(
        m_machine.log.From(Orva::Shared::Level::kInformation),
        ElementsAre(Information(kCheck, L"WLAN Interface Count : 0"),
                    Information(kCheck, L"Current Index: 0"), Information(kCheck, L"Interface Description: "),
                    Information(kCheck, L"Interface State :  "), Information(kCheck, L"Not ready"),
                    Error(kCheck, L"WlanQueryInterface failed! err is 1168")));
    EXPECT_THAT(wlan.Calls(), ElementsAre("Open 2", "Enumerate", "Query nobody", "Free list", "Close"));
}

TEST_F(WlanQueryTest, FailedQueryMakesTheRadioOff) {
    FakeWlan wlan{{On()}};
    wlan.Fail(WlanCall::kQuery, 1, ERROR_INVALID_STATE);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kCheck, L"WlanQueryInterface failed! err is 5023")));
    EXPECT_THAT(wlan.Calls(), ElementsAre("Open 2", "Enumerate", "Query 0", "Free list", "Close"));
}

TEST_F(WlanQueryTest, QueryWithoutDataMakesTheRadioOff) {
    FakeWlan wlan{{On()}};
    wlan.GiveNothingFor(WlanCall::kQuery);
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kCheck, L"WlanQueryInterface failed! err is 0")));
}

TEST_F(WlanQueryTest, AfterASwitchRanOutTheRadioReadsAsOffWithoutAsking) {
    ServiceUtils::my_setwifitimeout = true;
    FakeWlan wlan{{On()}};
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kCheck), Error(kCheck, L"My WIFI Query timeout, my_setwifitimeout : 1"),
                            TraceOut(kCheck, L"WLAN Status = 0")));
    EXPECT_THAT(wlan.Calls(), IsEmpty());
}

class WlanQueryThrowsTest : public WlanQueryTest, public testing::WithParamInterface<WlanCall> {};

TEST_P(WlanQueryThrowsTest, ExceptionIsLoggedAndEverythingGivenBack) {
    FakeWlan wlan{{On()}};
    wlan.At(GetParam(), 1, []() -> DWORD { throw std::runtime_error("out of order"); });
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kCheck, L"Exception in CheckWlanStatus()")));
    EXPECT_EQ(m_machine.log.Lines().back(), TraceOut(kCheck, L"WLAN Status = 0"));
    EXPECT_EQ(wlan.Held(), 0U);
}

INSTANTIATE_TEST_SUITE_P(EachCall, WlanQueryThrowsTest,
                         testing::Values(WlanCall::kOpen, WlanCall::kEnumerate, WlanCall::kQuery));

TEST_F(WlanQueryTest, ExceptionOfGivingBackGoesNowhere) {
    FakeWlan wlan{{On()}};
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
    FakeWlan wlan{{On()}};
    wlan.At(WlanCall::kQuery, 1, []() -> DWORD { throw DWORD{ERROR_ACCESS_DENIED}; });
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kCheck, L"Exception in CheckWlanStatus()")));
}

}  // namespace
}  // namespace RadioTests
