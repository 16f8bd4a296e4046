// How the devices behave, on a state of the test's own.

#include "notebook/state/machine.h"

#include <windows.h>
#include <wlanapi.h>

#include <gmock/gmock.h>

#include <memory>
#include <vector>

#include "platform/wlan_notifications.h"

namespace Notebook::Tests {

namespace {

using testing::ElementsAre;

constexpr Micros kSecond = 1000 * kMicrosPerMilli;
constexpr std::uint32_t kNoTraffic = 0x3;
constexpr std::uint32_t kInternet = 0x40;

class MachineTest : public testing::Test {
  protected:
    MachineTest() : m_machine(std::make_unique<Machine>()) {
        ResetMachine(*m_machine, {.modems = 1}, 0);
        m_first = m_machine->eventCount;
    }

    Machine& TheMachine() { return *m_machine; }
    Adapter& Cable(std::uint32_t number = 1) { return *CablePort(*m_machine, number); }
    WlanAdapter& Wlan() { return m_machine->devices.wlan[0]; }
    Modem& TheModem() { return m_machine->devices.modems[0]; }

    /// What was announced since the last look.
    std::vector<Event> News() {
        std::vector<Event> news;
        for (; m_first < m_machine->eventCount; ++m_first) {
            news.push_back(m_machine->events[m_first % kEventCapacity]);
        }
        return news;
    }
    /// The same, only the new connectivity of connections.
    std::vector<std::uint32_t> Connectivities() {
        std::vector<std::uint32_t> values;
        for (const Event& event : News()) {
            if (event.kind == EventKind::ConnectionConnectivity) {
                values.push_back(event.value);
            }
        }
        return values;
    }
    std::vector<EventKind> Kinds() {
        std::vector<EventKind> kinds;
        for (const Event& event : News()) {
            kinds.push_back(event.kind);
        }
        return kinds;
    }

  private:
    std::unique_ptr<Machine> m_machine;
    std::uint64_t m_first = 0;
};

TEST_F(MachineTest, FreshNotebookHasRadiosOnAndNoCableIn) {
    EXPECT_TRUE(AllPhysAre(Wlan(), kRadioOn));
    EXPECT_EQ(2U, Wlan().phyCount);
    EXPECT_EQ(1U, TheModem().software);
    EXPECT_EQ(0U, Cable().plugged);
    EXPECT_EQ(0U, MachineConnectivity(TheMachine()));
}

TEST_F(MachineTest, PlugWithAddressAnnouncesConnectionNetworkAndMachine) {
    PlugIn(TheMachine(), Cable(), 0, kSecond);

    EXPECT_EQ(1U, Cable().hasAddress);
    const std::vector<Event> news = News();
    ASSERT_EQ(3U, news.size());
    EXPECT_EQ(EventKind::ConnectionConnectivity, news[0].kind);
    EXPECT_EQ(kInternet, news[0].value);
    EXPECT_TRUE(IsEqualGUID(Cable().connectionId, news[0].id));
    EXPECT_EQ(EventKind::NetworkConnectivity, news[1].kind);
    EXPECT_EQ(EventKind::MachineConnectivity, news[2].kind);
}

TEST_F(MachineTest, LateAddressComesWhenItsTimeHasComeAndNotBefore) {
    PlugIn(TheMachine(), Cable(), 3000, 0);
    EXPECT_EQ(3 * kSecond, NextDue(TheMachine()));
    ApplyDue(TheMachine(), 3 * kSecond - 1);
    EXPECT_EQ(0U, Cable().hasAddress);

    ApplyDue(TheMachine(), 3 * kSecond);

    EXPECT_EQ(1U, Cable().hasAddress);
    EXPECT_THAT(Connectivities(), ElementsAre(kNoTraffic, kInternet));
    EXPECT_EQ(kNever, NextDue(TheMachine()));
}

TEST_F(MachineTest, UnplugBeforeTheAddressCameCancelsIt) {
    PlugIn(TheMachine(), Cable(), 3000, 0);
    PullOut(TheMachine(), Cable(), kSecond);

    ApplyDue(TheMachine(), 10 * kSecond);

    EXPECT_EQ(0U, Cable().hasAddress);
    EXPECT_THAT(Connectivities(), ElementsAre(kNoTraffic, 0U));
}

TEST_F(MachineTest, AddressNeverComing) {
    PlugIn(TheMachine(), Cable(), kForEver, 0);
    EXPECT_EQ(kNever, NextDue(TheMachine()));
    EXPECT_THAT(Connectivities(), ElementsAre(kNoTraffic));
}

TEST_F(MachineTest, UnplugOfOneOfTwoCablesKeepsTheMachineConnected) {
    PlugIn(TheMachine(), Cable(1), 0, 0);
    PlugIn(TheMachine(), Cable(2), 0, 0);
    News();

    PullOut(TheMachine(), Cable(1), 0);

    EXPECT_EQ(kInternet, MachineConnectivity(TheMachine()));
    EXPECT_THAT(Kinds(), ElementsAre(EventKind::ConnectionConnectivity, EventKind::NetworkConnectivity));
}

TEST_F(MachineTest, UnpluggingTwiceAnnouncesOnce) {
    PlugIn(TheMachine(), Cable(), 0, 0);
    PullOut(TheMachine(), Cable(), 0);
    News();
    PullOut(TheMachine(), Cable(), 0);
    EXPECT_TRUE(News().empty());
}

TEST_F(MachineTest, EveryChangedPhyIsAnnouncedAndAnUnchangedOneIsNot) {
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, SetPhySoftware(TheMachine(), 0, 1, kRadioOff, 0));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, SetPhySoftware(TheMachine(), 0, 1, kRadioOff, 0));

    const std::vector<Event> news = News();
    ASSERT_EQ(1U, news.size());
    EXPECT_EQ(std::uint32_t{WLAN_NOTIFICATION_SOURCE_MSM}, news[0].source);
    EXPECT_EQ(Platform::kWlanNotificationMsmRadioStateChange, news[0].code);
    EXPECT_EQ(1U, news[0].value);
    EXPECT_EQ(kRadioOff, news[0].software);
}

TEST_F(MachineTest, PhyThatRefusesTwiceAcceptsTheThirdTime) {
    Wlan().phys[0].refusalsLeft = 2;
    Wlan().phys[0].refuseError = ERROR_BUSY;
    EXPECT_EQ(DWORD{ERROR_BUSY}, SetPhySoftware(TheMachine(), 0, 0, kRadioOff, 0));
    EXPECT_EQ(DWORD{ERROR_BUSY}, SetPhySoftware(TheMachine(), 0, 0, kRadioOff, 0));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, SetPhySoftware(TheMachine(), 0, 0, kRadioOff, 0));
    EXPECT_EQ(3U, Wlan().phys[0].sets);
    EXPECT_EQ(kRadioOff, Wlan().phys[0].software);
}

TEST_F(MachineTest, PhyThatRefusesForEverStays) {
    Wlan().phys[0].refusalsLeft = kForEver;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, SetPhySoftware(TheMachine(), 0, 0, kRadioOff, 0));
    }
    EXPECT_EQ(kRadioOn, Wlan().phys[0].software);
}

TEST_F(MachineTest, UserSwitchChangesEveryPhyBeforeItAnnouncesAny) {
    SwitchWlanByUser(TheMachine(), false, 0);
    EXPECT_TRUE(AllPhysAre(Wlan(), kRadioOff));
    EXPECT_THAT(Kinds(), ElementsAre(EventKind::Wlan, EventKind::Wlan));
}

TEST_F(MachineTest, RadioOffEndsTheWifiConnection) {
    ASSERT_TRUE(ConnectWifi(TheMachine(), 0, 0));
    News();

    SwitchWlanByUser(TheMachine(), false, 0);

    EXPECT_EQ(std::uint32_t{wlan_interface_state_not_ready}, Wlan().state);
    EXPECT_THAT(Connectivities(), ElementsAre(0U));
    EXPECT_FALSE(ConnectWifi(TheMachine(), 0, 0));
}

TEST_F(MachineTest, AirplaneModeSwitchesOffAndRestoresWhatWasOn) {
    SwitchModemByUser(TheMachine(), 0, false, 0);

    FollowAirplaneMode(TheMachine(), true, 0);
    EXPECT_TRUE(AllPhysAre(Wlan(), kRadioOff));

    FollowAirplaneMode(TheMachine(), false, 0);
    EXPECT_TRUE(AllPhysAre(Wlan(), kRadioOn));
    EXPECT_EQ(0U, TheModem().software);
}

TEST_F(MachineTest, RadioThatWasOffBeforeAirplaneModeStaysOffAfterIt) {
    SwitchWlanByUser(TheMachine(), false, 0);
    FollowAirplaneMode(TheMachine(), true, 0);
    FollowAirplaneMode(TheMachine(), false, 0);
    EXPECT_TRUE(AllPhysAre(Wlan(), kRadioOff));
    EXPECT_EQ(1U, TheModem().software);
}

TEST_F(MachineTest, RadioSwitchedOnInAirplaneModeStaysOnAfterIt) {
    SwitchWlanByUser(TheMachine(), false, 0);
    FollowAirplaneMode(TheMachine(), true, 0);
    SwitchWlanByUser(TheMachine(), true, 0);
    SwitchModemByUser(TheMachine(), 0, true, 0);
    FollowAirplaneMode(TheMachine(), false, 0);
    EXPECT_TRUE(AllPhysAre(Wlan(), kRadioOn));
    EXPECT_EQ(1U, TheModem().software);
}

TEST_F(MachineTest, ModemChangesThenConfirmsWithItsRequest) {
    std::uint32_t request = 0;
    ASSERT_EQ(S_OK, SetModemSoftware(TheMachine(), 0, 0, request, 0));

    EXPECT_EQ(0U, TheModem().software);
    const std::vector<Event> news = News();
    ASSERT_EQ(2U, news.size());
    EXPECT_EQ(EventKind::ModemStateChange, news[0].kind);
    EXPECT_EQ(EventKind::ModemSetComplete, news[1].kind);
    EXPECT_EQ(request, news[1].request);
}

TEST_F(MachineTest, LateModemKeepsItsStateUntilItConfirms) {
    TheModem().confirmMs = 2000;
    std::uint32_t request = 0;
    SetModemSoftware(TheMachine(), 0, 0, request, 0);
    EXPECT_EQ(1U, TheModem().software);
    EXPECT_TRUE(News().empty());

    ApplyDue(TheMachine(), 2 * kSecond);

    EXPECT_EQ(0U, TheModem().software);
    EXPECT_THAT(Kinds(), ElementsAre(EventKind::ModemStateChange, EventKind::ModemSetComplete));
}

TEST_F(MachineTest, ModemThatNeverConfirmsChangesAllTheSame) {
    TheModem().confirmMs = kForEver;
    std::uint32_t request = 0;
    SetModemSoftware(TheMachine(), 0, 0, request, 0);
    EXPECT_EQ(0U, TheModem().software);
    EXPECT_THAT(Kinds(), ElementsAre(EventKind::ModemStateChange));
}

TEST_F(MachineTest, ModemThatDoesNotFollowConfirmsAndStays) {
    TheModem().follows = 0;
    std::uint32_t request = 0;
    SetModemSoftware(TheMachine(), 0, 0, request, 0);
    EXPECT_EQ(1U, TheModem().software);
    EXPECT_THAT(Kinds(), ElementsAre(EventKind::ModemSetComplete));
}

TEST_F(MachineTest, ModemTakesItsChangeBackOnce) {
    TheModem().revertsLeft = 1;
    TheModem().revertMs = 300;
    std::uint32_t request = 0;
    SetModemSoftware(TheMachine(), 0, 0, request, 0);
    EXPECT_EQ(0U, TheModem().software);
    ApplyDue(TheMachine(), kSecond);
    EXPECT_EQ(1U, TheModem().software);

    SetModemSoftware(TheMachine(), 0, 0, request, kSecond);
    ApplyDue(TheMachine(), 5 * kSecond);
    EXPECT_EQ(0U, TheModem().software);
}

TEST_F(MachineTest, ModemRefusesAsOftenAsItShould) {
    TheModem().refusalsLeft = 1;
    std::uint32_t request = 0;
    EXPECT_EQ(E_FAIL, SetModemSoftware(TheMachine(), 0, 0, request, 0));
    EXPECT_EQ(0U, request);
    EXPECT_EQ(S_OK, SetModemSoftware(TheMachine(), 0, 0, request, 0));
    EXPECT_NE(0U, request);
}

TEST_F(MachineTest, UserSwitchOfTheModemIsCompletedForEverySubscriber) {
    SwitchModemByUser(TheMachine(), 0, false, 0);
    EXPECT_THAT(Kinds(), ElementsAre(EventKind::ModemStateChange, EventKind::ModemSetComplete));
}

TEST_F(MachineTest, WhatHappensAsleepIsAnnouncedAfterwardsInItsOrder) {
    TheMachine().devices.asleep = 1;
    PlugIn(TheMachine(), Cable(1), 0, 0);
    PullOut(TheMachine(), Cable(1), 0);
    EXPECT_TRUE(News().empty());

    TheMachine().devices.asleep = 0;
    ReleaseHeldEvents(TheMachine(), kSecond);

    EXPECT_THAT(Connectivities(), ElementsAre(kInternet, 0U));
}

TEST_F(MachineTest, DueThingsHappenInTheOrderOfTheirTimes) {
    PlugIn(TheMachine(), Cable(1), 2000, 0);
    PlugIn(TheMachine(), Cable(2), 1000, 0);
    News();

    ApplyDue(TheMachine(), 5 * kSecond);

    const std::vector<Event> news = News();
    ASSERT_LE(3U, news.size());
    EXPECT_TRUE(IsEqualGUID(Cable(2).connectionId, news[0].id));
}

TEST_F(MachineTest, FiveHundredAdaptersFit) {
    for (std::uint32_t i = TheMachine().devices.adapterCount; i < 500; ++i) {
        ASSERT_NE(nullptr, AddAdapter(TheMachine(), "x" + std::to_string(i), AdapterRole::Other, 24));
    }
    EXPECT_EQ(500U, TheMachine().devices.adapterCount);
    RemoveAdapter(TheMachine(), *FindAdapter(TheMachine(), "x499"), 0);
    EXPECT_EQ(499U, TheMachine().devices.adapterCount);
}

TEST_F(MachineTest, AdaptersHaveIdentifiersOfTheirOwn) {
    EXPECT_FALSE(IsEqualGUID(Cable(1).id, Cable(2).id));
    EXPECT_FALSE(IsEqualGUID(Cable(1).connectionId, Cable(2).connectionId));
    EXPECT_EQ(&Cable(2), FindAdapterByConnection(TheMachine(), Cable(2).connectionId));
}

TEST_F(MachineTest, SettingThatWasRemovedIsNotFound) {
    PutSetting(TheMachine(), L"Colour")->kind = SettingKind::Text;
    ASSERT_NE(nullptr, FindSetting(TheMachine(), L"Colour"));
    FindSetting(TheMachine(), L"Colour")->present = 0;
    EXPECT_EQ(nullptr, FindSetting(TheMachine(), L"Colour"));
}

}  // namespace

}  // namespace Notebook::Tests
