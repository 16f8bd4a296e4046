#include <optional>
#include <string>
#include <vector>

#include "radio/wlan_radio.h"
#include "tests/radio/machine.h"

namespace RadioTests {
namespace {

using namespace std::chrono_literals;

constexpr char kSwitch[] = "ServiceUtils::SwitchWlanStatus";
constexpr int kPasses = 81;

class WlanSwitchTest : public RadioTest {
  protected:
    static bool SwitchOn() { return SwitchWlanStatus(kRadioOn, kIgnoreAirplaneMode); }
    static bool SwitchOff() { return SwitchWlanStatus(kRadioOff, kIgnoreAirplaneMode); }

    [[nodiscard]] std::vector<LogLine> Lines() const { return m_machine.log.Of(kSwitch); }
    [[nodiscard]] int Requests() const { return m_notebook.Count(Call::WlanSetInterface); }
};

TEST_F(WlanSwitchTest, EveryPhyIsSwitched) {
    for (const bool on : {false, true}) {
        const std::wstring before = on ? L"0" : L"1";
        const std::wstring after = on ? L"1" : L"0";
        m_notebook.SetPhys({on ? Off() : On(), On()});
        m_machine.log.Clear();
        EXPECT_TRUE(on ? SwitchOn() : SwitchOff());
        EXPECT_TRUE(on ? m_notebook.WlanIsOn() : m_notebook.WlanIsOff());
        EXPECT_EQ(my_service_turnonoff_wifi, on ? kRadioOn : kRadioOff);
        EXPECT_THAT(Lines(),
                    ElementsAre(TraceIn(kSwitch, L"OnOffValue = " + after + L", bCheckAirplaneStatus = 0"),
                                Information(kSwitch, L"Current WLAN Status : " + before +
                                                         L", To Change Status = " + after),
                                Verbose(kSwitch, on ? L"Linkvane set WIFI radio to dot11_radi_state_on"
                                                    : L"Linkvane set WIFI radio to dot11_radio_state_off"),
                                Verbose(kSwitch, L"The number of supported PHY types : 2"),
                                Information(kSwitch, L"Set WLAN state " + after + L" for PHY 0 success"),
                                Information(kSwitch, L"Set WLAN state " + after + L" for PHY 1 success"),
                                Information(kSwitch, L"New WIFI state : " + after),
                                TraceOut(kSwitch, L"WLAN switching Status = 1")));
    }
}

TEST_F(WlanSwitchTest, QuerySwitchAndQueryMakeTheseCalls) {
    m_notebook.SetPhys({On()});
    EXPECT_TRUE(SwitchOff());
    EXPECT_THAT(m_notebook.Calls(),
                ElementsAre("WlanOpenHandle version 2", "WlanEnumInterfaces", "WlanQueryInterface",
                            "WlanCloseHandle",  // before
                            "WlanOpenHandle version 2", "WlanEnumInterfaces", "WlanGetInterfaceCapability",
                            "WlanSetInterface PHY 0 to 2",  // the switch
                            "WlanOpenHandle version 2", "WlanEnumInterfaces", "WlanQueryInterface",
                            "WlanCloseHandle",  // after
                            "WlanCloseHandle"));
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
}

TEST_F(WlanSwitchTest, CallThatFailsOrGivesNothingLeavesTheRadioAndTheFlagsAlone) {
    struct Case {
        Call call;
        int nth;     ///< the query before comes first
        LONG error;  ///< zero: it gives nothing
        const wchar_t* line;
    };
    my_service_turnonoff_wifi = kRadioOn;
    const auto prepares = Verbose(kSwitch, L"Linkvane set WIFI radio to dot11_radio_state_off");
    for (const Case& broken :
         {Case{Call::WlanOpenHandle, 2, ERROR_SERVICE_NOT_ACTIVE, L"WlanOpenHandle failed with error: 1062"},
          Case{Call::WlanEnumInterfaces, 2, ERROR_NOT_ENOUGH_MEMORY,
               L"WlanEnumInterfaces failed with error: 8"},
          Case{Call::WlanEnumInterfaces, 2, ERROR_SUCCESS, L"Interface list is empty"},
          Case{Call::WlanGetInterfaceCapability, 1, ERROR_INVALID_STATE,
               L"WlanGetInterfaceCapability failed !err is 5023"},
          Case{Call::WlanGetInterfaceCapability, 1, ERROR_SUCCESS,
               L"WlanGetInterfaceCapability failed !err is 0"}}) {
        SCOPED_TRACE(broken.line);
        m_machine.log.Clear();
        m_notebook.Fail(broken.call, broken.nth, broken.error);
        EXPECT_FALSE(SwitchOff());
        EXPECT_TRUE(m_notebook.WlanIsOn());
        std::vector<LogLine> lines{TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                   Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0")};
        if (broken.call == Call::WlanGetInterfaceCapability) {
            lines.push_back(prepares);
        }
        lines.push_back(Error(kSwitch, broken.line));
        lines.push_back(TraceOut(kSwitch, L"WLAN switching Status = 0"));
        EXPECT_EQ(Lines(), lines);
    }
    EXPECT_EQ(Requests(), 0);
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn);
    EXPECT_FALSE(my_setwifitimeout);
}

TEST_F(WlanSwitchTest, ListWithoutEntriesSwitchesNobody) {
    m_notebook.Make({.wlanAdapters = 0});
    EXPECT_FALSE(SwitchOn());
    EXPECT_EQ(Requests(), 0);
    EXPECT_THAT(Lines(), Contains(Error(kSwitch, L"WlanGetInterfaceCapability failed !err is 1168")));
}

TEST_F(WlanSwitchTest, AdapterWithoutPhysIsSwitchedAtOnce) {
    // It reads as on, so that only switching off comes to the PHYs.
    m_notebook.SetPhys({});
    EXPECT_TRUE(SwitchOff());
    EXPECT_EQ(Requests(), 0);
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 1")));
}

TEST_F(WlanSwitchTest, No65thPhyIsSwitchedWhateverTheCountIs) {
    m_notebook.SetPhys(std::vector<Phy>(WLAN_MAX_PHY_INDEX, Off()));
    const ScopedImport<&::WlanGetInterfaceCapability> boasts{
        Rig::kWrapping, [](const auto& device, HANDLE client, const GUID* id, void* reserved,
                           WLAN_INTERFACE_CAPABILITY** capability) {
            const DWORD result = device.Original(client, id, reserved, capability);
            (*capability)->dwNumberOfSupportedPhys = 0xFFFFFFFF;
            return result;
        }};
    EXPECT_TRUE(SwitchOn());
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_EQ(Requests(), WLAN_MAX_PHY_INDEX);
    EXPECT_THAT(Lines(), Contains(Verbose(kSwitch, L"The number of supported PHY types : 4294967295")));
}

TEST_F(WlanSwitchTest, OfTwoAdaptersOnlyTheFirstIsSwitched) {
    m_notebook.Make({.wlanAdapters = 2});
    EXPECT_TRUE(SwitchOff());
    EXPECT_TRUE(m_notebook.WlanIsOff(0));
    EXPECT_TRUE(m_notebook.WlanIsOn(1));
}

TEST_F(WlanSwitchTest, PhyThatRefusesIsTriedAgainWithAllOthersInAtMost81Passes) {
    struct Course {
        const char* name;
        std::uint32_t refusals;
        bool on;
        bool succeeds;
        bool runsOut;
    };
    for (const Course& course :
         {Course{"follows in the third pass", 2, false, true, false},
          Course{"follows in the last pass but one", kPasses - 2, false, true, false},
          Course{"follows in the last pass, which counts as running out, too", kPasses - 1, false, true,
                 true},
          Course{"goes on in the last pass, and reads as off afterwards", kPasses - 1, true, true, true},
          Course{"never follows", kForEver, false, false, true}}) {
        SCOPED_TRACE(course.name);
        const Phy before = course.on ? Off() : On();
        m_notebook.SetPhys({before, Refusing(before, course.refusals)});
        my_setwifitimeout = false;
        my_service_turnonoff_wifi = course.on ? kRadioOff : kRadioOn;
        m_notebook.ForgetCalls();
        m_machine.clock.ForgetRecords();
        m_machine.log.Clear();

        EXPECT_EQ(course.on ? SwitchOn() : SwitchOff(), course.succeeds);

        EXPECT_EQ(my_setwifitimeout, course.runsOut);
        EXPECT_EQ(my_service_turnonoff_wifi == kRadioOn, course.on == course.succeeds)
            << "the new state only where every PHY took it";
        const std::wstring to = std::to_wstring(course.on);
        const auto success = Information(kSwitch, L"Set WLAN state " + to + L" for PHY 0 success");
        std::vector<LogLine> lines;
        const int refused = course.succeeds ? static_cast<int>(course.refusals) : kPasses;
        for (int pass = 0; pass < refused; ++pass) {
            lines.insert(lines.end(),
                         {success, Error(kSwitch, L"Set WLAN state failed!err is 31"),
                          Warning(kSwitch, L"Could not Set WLAN state in all PHYs. So retrying in count = " +
                                               std::to_wstring(pass))});
        }
        if (course.succeeds) {
            lines.insert(lines.end(),
                         {success, Information(kSwitch, L"Set WLAN state " + to + L" for PHY 1 success")});
        }
        if (course.runsOut) {
            lines.push_back(Error(kSwitch, L"WlanSetInterface failed"));
        }
        if (course.succeeds) {
            lines.push_back(Information(kSwitch, L"New WIFI state : 0"));
        }
        lines.push_back(
            TraceOut(kSwitch, course.succeeds ? L"WLAN switching Status = 1" : L"WLAN switching Status = 0"));
        // The first four say what is to be switched.
        std::vector<LogLine> written = Lines();
        written.erase(written.begin(), written.begin() + 4);
        EXPECT_EQ(written, lines);
        EXPECT_EQ(Requests(), 2 * (refused + (course.succeeds ? 1 : 0)));
        EXPECT_THAT(m_machine.clock.Sleeps(), AllOf(SizeIs(refused), Each(100)));
    }
}

TEST_F(WlanSwitchTest, AfterRunningOutASwitchOnThatSucceedsBringsTheQueryBack) {
    m_notebook.SetPhys({On(), Refusing(On(), kPasses)});
    SwitchOff();
    ASSERT_TRUE(my_setwifitimeout);
    EXPECT_TRUE(SwitchOn());
    EXPECT_FALSE(my_setwifitimeout);
    EXPECT_TRUE(CheckWlanStatus());
}

TEST_F(WlanSwitchTest, StartWhoseFirstSwitchRanOutBringsTheRadioBackByItsSecond) {
    // Refuses the whole first run and the first pass of the second.
    m_notebook.SetPhys({Refusing(Off(), kPasses + 1)});
    ServiceUtils::StartWLANService();
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_FALSE(my_setwifitimeout);
    EXPECT_TRUE(m_machine.log.Contains(
        Information("ServiceUtils::SwitchWlanStatusWithRetry", L"SwitchWlanStatus Success")));
}

TEST_F(WlanSwitchTest, FailedLookBeforeOrAfterwardsReadsAsOff) {
    m_notebook.SetPhys({Off()});
    m_notebook.Fail(Call::WlanQueryInterface, 2, ERROR_INVALID_STATE);
    EXPECT_TRUE(SwitchOn());
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 0")));
    m_notebook.At(Call::WlanQueryInterface, 1, []() -> DWORD { throw DWORD{ERROR_ACCESS_DENIED}; });
    EXPECT_TRUE(SwitchOff());
    EXPECT_TRUE(m_notebook.WlanIsOn()) << "it was taken for off already";
}

TEST_F(WlanSwitchTest, NeitherQueryNorSecondSwitchWaitsForASwitch) {
    // Both come while the first switch pauses between two passes, which goes on when they have ended.
    m_notebook.SetPhys({Refusing(On(), 1)});
    std::optional<bool> asked;
    std::optional<bool> switched;
    m_machine.clock.AtOnOwnThread(50ms, [&] {
        asked = CheckWlanStatus();
        switched = SwitchOff();
    });
    EXPECT_TRUE(SwitchOff());
    EXPECT_EQ(asked, true);
    EXPECT_EQ(switched, true);
    EXPECT_EQ(Requests(), 3) << "refused, the second switch's, the next pass";
}

}  // namespace
}  // namespace RadioTests
