#include <algorithm>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "radio/wlan_radio.h"
#include "radio/wwan_radio.h"
#include "tests/radio/wwan_test.h"

namespace RadioTests {
namespace {

using namespace std::chrono_literals;

constexpr char kWlanSwitch[] = "ServiceUtils::SwitchWlanStatus";
constexpr char kRetry[] = "ServiceUtils::SwitchWlanStatusWithRetry";
constexpr char kStart[] = "ServiceUtils::StartWLANService";
constexpr char kStop[] = "ServiceUtils::StopWLANService";

/// A kind of radio, by what the service offers for it.
struct Kind {
    const char* name;
    bool (*isOn)();
    bool (*switchOnce)(const RadioStatus& newStatus, const unsigned char& checkAirplaneStatus);
    bool (*switchWithRetry)(const RadioStatus& newStatus, const int& retryCount);
    void (*start)();
    void (*stop)();
    const wchar_t* subkey;
};

/// Makes "Wwan" of each "Wlan", and "WWAN" of each "WLAN".
template <class Text>
Text OfTheModem(Text text) {
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i - 1] == 'W' && (text[i] == 'l' || text[i] == 'L')) {
            text[i] = text[i] == 'l' ? 'w' : 'W';
        }
    }
    return text;
}

/// What holds for WLAN and for the modem (WWAN), played on each of them. Operations and lines are written as
/// WLAN has them; the modem's are the same in its own name.
class EitherRadioTest : public WwanTest, public testing::WithParamInterface<Kind> {
  protected:
    [[nodiscard]] bool IsWlan() const { return GetParam().switchOnce == &SwitchWlanStatus; }

    void SetRadio(bool on) const {
        if (IsWlan()) {
            m_notebook.SetPhys({on ? On() : Off()});
        } else {
            Modem().software = on ? 1 : 0;
        }
    }
    [[nodiscard]] bool RadioIsOn() const { return IsWlan() ? m_notebook.WlanIsOn() : IsOn(); }
    /// Has the radio stay as it is, whatever it is asked for.
    void MakeRadioStubborn() const {
        m_notebook.Wlan().phys[0].refusalsLeft = kForEver;
        IgnoreRequests();
    }
    [[nodiscard]] int Requests() const {
        return IsWlan() ? m_notebook.Count(Call::WlanSetInterface) : SetCount();
    }

    /// Has the next `count` switches fail before they come to the radio; `meanwhile` happens then.
    void FailSwitches(
        int count, const std::function<void()>& meanwhile = [] {}) {
        m_failuresLeft = count;
        m_notebook.AtEach(Call::WlanGetInterfaceCapability, [this, meanwhile]() -> std::optional<DWORD> {
            return Fails(meanwhile) ? std::optional<DWORD>(ERROR_INVALID_STATE) : std::nullopt;
        });
        m_events.emplace(Rig::kWrapping, [this, meanwhile](const auto& system, auto... arguments) {
            return Fails(meanwhile) ? HANDLE{} : system.Original(arguments...);
        });
    }
    /// How many switches were begun.
    [[nodiscard]] int Switches(const wchar_t* arguments) const {
        return static_cast<int>(
            std::ranges::count(LinesOf(kWlanSwitch), TraceIn(InItsWords(kWlanSwitch), arguments)));
    }

    void Remember(const RegistryValue& value) const {
        m_machine.store.Write(GetParam().subkey, PowerStatus::kValueName, value);
    }
    [[nodiscard]] std::wstring Remembered() const {
        return IsWlan() ? m_machine.RememberedWlan() : m_machine.RememberedWwan();
    }

    [[nodiscard]] std::string InItsWords(std::string operation) const {
        return IsWlan() ? operation : OfTheModem(std::move(operation));
    }
    [[nodiscard]] std::vector<LogLine> InItsWords(std::vector<LogLine> lines) const {
        for (LogLine& line : lines) {
            line.function = InItsWords(line.function);
            line.message = IsWlan() ? line.message : OfTheModem(line.message);
        }
        return lines;
    }
    [[nodiscard]] std::vector<LogLine> LinesOf(const char* operation) const {
        return m_machine.log.Of(InItsWords(operation));
    }
    /// The pauses so far but for those of the modem's queries, which last 50 ms.
    [[nodiscard]] std::vector<DWORD> Pauses() const {
        std::vector<DWORD> pauses = m_machine.clock.Sleeps();
        std::erase(pauses, DWORD{50});
        return pauses;
    }

    /// What a start says that finds `text` remembered.
    [[nodiscard]] std::vector<LogLine> StartLines(const std::wstring& text, bool fails = false) const {
        std::vector<LogLine> lines{TraceIn(kStart), Information(kStart, L"WLAN Registry Status = " + text)};
        if (IsWlan() && text == L"True") {
            lines.push_back(Information(kStart, L"Switching ON Wifi"));
        }
        if (fails) {
            lines.push_back(Error(kStart, L"SwitchWlanStatusWithRetry (StartWLANService) failed"));
        }
        if (IsWlan()) {
            lines.push_back(Information(kStart, L"WlanPowerStatus value read from registry = " + text));
        }
        lines.push_back(TraceOut(kStart));
        return InItsWords(lines);
    }

    enum class Outcome { kWasOff, kSwitched, kFailed };
    /// What a stop says.
    [[nodiscard]] std::vector<LogLine> StopLines(Outcome outcome) const {
        std::vector<LogLine> lines{TraceIn(kStop)};
        if (!IsWlan()) {
            lines.push_back(Information(kStop, L"StopWWANService - Entry"));
        }
        lines.push_back(Information(
            kStop, outcome == Outcome::kWasOff ? L"WLAN Current Status = 0" : L"WLAN Current Status = 1"));
        if (outcome == Outcome::kFailed) {
            lines.push_back(Error(kStop, IsWlan() ? L"SwitchWlanStatusWithRetry (StopWLANService) failed"
                                                  : L"SwitchWwanStatus (StopWWANService) failed"));
        } else if (outcome == Outcome::kSwitched && IsWlan()) {
            lines.push_back(Information(kStop, L"Setting WlanPowerStatus in registry."));
        }
        lines.push_back(TraceOut(kStop));
        return InItsWords(lines);
    }

  private:
    bool Fails(const std::function<void()>& meanwhile) {
        if (m_failuresLeft == 0) {
            return false;
        }
        --m_failuresLeft;
        meanwhile();
        return true;
    }

    int m_failuresLeft = 0;
    std::optional<ScopedImport<&::CreateEventW>> m_events;
};

INSTANTIATE_TEST_SUITE_P(
    Radios, EitherRadioTest,
    testing::Values(Kind{"Wlan", &CheckWlanStatus, &SwitchWlanStatus, &SwitchWlanStatusWithRetry,
                         &StartWLANService, &StopWLANService, L"WlanPowerStatus"},
                    Kind{"Modem", &CheckWwanStatus, &SwitchWwanStatus, &SwitchWwanStatusWithRetry,
                         &StartWWANService, &StopWWANService, L"WwanPowerStatus"}),
    [](const auto& tested) { return std::string(tested.param.name); });

// --- One switch ------------------------------------------------------------------------------------

TEST_P(EitherRadioTest, RadioInTheWantedStateIsOnlyAsked) {
    for (const bool on : {false, true}) {
        SetRadio(on);
        m_notebook.ForgetCalls();
        EXPECT_EQ(GetParam().isOn(), on);
        const std::vector<std::string> asking = m_notebook.Calls();
        m_notebook.ForgetCalls();
        m_machine.log.Clear();
        EXPECT_TRUE(GetParam().switchOnce(on ? kRadioOn : kRadioOff, kIgnoreAirplaneMode));
        EXPECT_THAT(m_notebook.Calls(), ElementsAreArray(asking));
        const std::wstring status = on ? L"1" : L"0";
        EXPECT_EQ(LinesOf(kWlanSwitch),
                  InItsWords({TraceIn(kWlanSwitch, L"OnOffValue = " + status + L", bCheckAirplaneStatus = 0"),
                              Information(kWlanSwitch,
                                          (IsWlan() ? L"Current WLAN Status : " : L"Current Status : ") +
                                              status + L", To Change Status = " + status),
                              Information(kWlanSwitch, L"No change in WLAN Status Needed."),
                              TraceOut(kWlanSwitch, L"WLAN switching Status = 1")}));
    }
}

TEST_P(EitherRadioTest, AnyNumberButZeroMeansOn) {
    SetRadio(false);
    EXPECT_TRUE(GetParam().switchOnce(2, kRespectAirplaneMode));
    EXPECT_TRUE(RadioIsOn());
    EXPECT_TRUE(GetParam().switchOnce(2, kRespectAirplaneMode));
    EXPECT_EQ(Requests(), 1);
}

TEST_P(EitherRadioTest, SwitchingOnIsRefusedInAirplaneMode) {
    m_machine.SetAirplaneMode(true);
    SetRadio(false);
    EXPECT_FALSE(GetParam().switchOnce(kRadioOn, kRespectAirplaneMode));
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    EXPECT_EQ(LinesOf(kWlanSwitch),
              InItsWords({TraceIn(kWlanSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 1"),
                          Information(kWlanSwitch, L"SwitchWlanStatus not needed for New status = 1"),
                          TraceOut(kWlanSwitch, L"WLAN switching Status = 0")}));
}

TEST_P(EitherRadioTest, AirplaneModeIsAskedForEverySwitchAndKeepsNoOtherBack) {
    m_machine.SetAirplaneMode(true);
    const std::pair<RadioStatus, unsigned char> switches[] = {
        {kRadioOff, kRespectAirplaneMode}, {kRadioOn, kIgnoreAirplaneMode}, {kRadioOff, kIgnoreAirplaneMode}};
    for (const auto& [newStatus, check] : switches) {
        m_machine.log.Clear();
        EXPECT_TRUE(GetParam().switchOnce(newStatus, check));
        EXPECT_EQ(RadioIsOn(), newStatus == kRadioOn);
        EXPECT_EQ(
            m_machine.log.Count(TraceOut("ServiceUtils::CheckAirplaneMode", L"Airplane Mode Status: 1 ")), 1);
    }
    EXPECT_THAT(m_machine.log.At(kError), IsEmpty());
}

// --- Switches until the radio follows --------------------------------------------------------------

TEST_P(EitherRadioTest, RadioThatFollowsIsSwitchedOnce) {
    EXPECT_TRUE(GetParam().switchWithRetry(kRadioOff, 5));
    EXPECT_FALSE(RadioIsOn());
    EXPECT_EQ(LinesOf(kRetry), InItsWords({TraceIn(kRetry, L"NewStatus = 0, Retry Count = 5"),
                                           Information(kRetry, L"SwitchWlanStatus Success"),
                                           TraceOut(kRetry, L"WLAN switching Status = 1")}));
    // A modem's switch: two queries, a request, its wait; then the one pause, and a query.
    EXPECT_EQ(m_machine.clock.SleepsAndWaits(),
              IsWlan() ? std::vector<DWORD>({100}) : std::vector<DWORD>({50, 50, 100, 7000, 100, 50}));
}

TEST_P(EitherRadioTest, RetrySwitchingOnInAirplaneModeSucceedsWithoutTouchingTheRadio) {
    m_machine.SetAirplaneMode(true);
    SetRadio(false);
    EXPECT_TRUE(GetParam().switchWithRetry(kRadioOn, 5));
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
    EXPECT_EQ(LinesOf(kRetry),
              InItsWords({TraceIn(kRetry, L"NewStatus = 1, Retry Count = 5"),
                          Information(kRetry, L"SwitchWlanStatus not needed for New status = 1"),
                          TraceOut(kRetry, L"WLAN switching Status = 1")}));
}

TEST_P(EitherRadioTest, RetrySwitchingOffInAirplaneModeGoesOn) {
    m_machine.SetAirplaneMode(true);
    EXPECT_TRUE(GetParam().switchWithRetry(kRadioOff, 0));
    EXPECT_FALSE(RadioIsOn());
}

TEST_P(EitherRadioTest, AirplaneModeThatComesBetweenIsRespected) {
    SetRadio(false);
    FailSwitches(1, [this] { m_machine.SetAirplaneMode(true); });
    EXPECT_FALSE(GetParam().switchWithRetry(kRadioOn, 1));
    EXPECT_FALSE(RadioIsOn());
}

TEST_P(EitherRadioTest, NRetriesAreNPlusOneAttempts) {
    SetRadio(false);
    FailSwitches(3);
    EXPECT_FALSE(GetParam().switchWithRetry(kRadioOn, 2));
    EXPECT_EQ(Switches(L"OnOffValue = 1, bCheckAirplaneStatus = 1"), 3);
    EXPECT_EQ(LinesOf(kRetry), InItsWords({TraceIn(kRetry, L"NewStatus = 1, Retry Count = 2"),
                                           Warning(kRetry, L"SwitchWlanStatus not Succeeded. Retrying to 0"),
                                           Warning(kRetry, L"SwitchWlanStatus not Succeeded. Retrying to 1"),
                                           Warning(kRetry, L"SwitchWlanStatus not Succeeded. Retrying to 2"),
                                           TraceOut(kRetry, L"WLAN switching Status = 0")}));
    EXPECT_THAT(Pauses(), ElementsAre(100, 400, 100, 400, 100, 400));
}

TEST_P(EitherRadioTest, SuccessAtTheLastAttemptIsASuccess) {
    SetRadio(false);
    FailSwitches(2);
    EXPECT_TRUE(GetParam().switchWithRetry(kRadioOn, 2));
    EXPECT_TRUE(RadioIsOn());
    EXPECT_EQ(LinesOf(kRetry).at(3), InItsWords({Information(kRetry, L"SwitchWlanStatus Success")}).front());
}

TEST_P(EitherRadioTest, WithoutRetriesThereIsOneAttempt) {
    SetRadio(false);
    for (const int retries : {0, -1, std::numeric_limits<int>::min()}) {
        m_machine.log.Clear();
        FailSwitches(1);
        EXPECT_FALSE(GetParam().switchWithRetry(kRadioOn, retries));
        EXPECT_EQ(Switches(L"OnOffValue = 1, bCheckAirplaneStatus = 1"), 1);
    }
}

TEST_P(EitherRadioTest, OutcomeIsJudgedByReadingBackNotByTheSwitch) {
    SetRadio(false);
    // The switch fails, but somebody else turns the radio on meanwhile.
    FailSwitches(1, [this] { SetRadio(true); });
    EXPECT_TRUE(GetParam().switchWithRetry(kRadioOn, 5));
    EXPECT_THAT(Pauses(), ElementsAre(100));
}

// --- The cable has gone ----------------------------------------------------------------------------

TEST_P(EitherRadioTest, RadioThatWasOnComesBackAlsoWhereNoTextIsRemembered) {
    const std::optional<RegistryValue> values[] = {RegistryText(L"True"), std::nullopt, RegistryText(L""),
                                                   RegistryNumber(0)};
    for (const std::optional<RegistryValue>& value : values) {
        m_machine.store.Delete();
        if (value) {
            Remember(*value);
        }
        SetRadio(false);
        m_machine.log.Clear();
        GetParam().start();
        EXPECT_TRUE(RadioIsOn());
        EXPECT_EQ(LinesOf(kStart), StartLines(L"True"));
    }
}

TEST_P(EitherRadioTest, AnyOtherTextLeavesTheRadioAlone) {
    SetRadio(false);
    for (const wchar_t* text : {L"False", L"true", L"TRUE", L" True", L"True ", L"1", L"Truely"}) {
        Remember(RegistryText(text));
        m_machine.log.Clear();
        GetParam().start();
        EXPECT_THAT(m_notebook.Calls(), IsEmpty());
        EXPECT_EQ(LinesOf(kStart), StartLines(text));
    }
}

TEST_P(EitherRadioTest, AirplaneModeLeavesTheRadioOffWithoutAnError) {
    m_machine.SetAirplaneMode(true);
    SetRadio(false);
    GetParam().start();
    EXPECT_FALSE(RadioIsOn());
    EXPECT_EQ(LinesOf(kStart), StartLines(L"True"));
}

TEST_P(EitherRadioTest, RadioThatNeverFollowsIsReportedAfterSixAttempts) {
    SetRadio(false);
    MakeRadioStubborn();
    GetParam().start();
    EXPECT_EQ(LinesOf(kStart), StartLines(L"True", true));
    // 81 passes, or ten iterations; then the look, and the pause before the next attempt.
    EXPECT_EQ(Requests(), 6 * (IsWlan() ? 81 : 10));
    const auto attempt = IsWlan() ? 81 * 100ms : 50ms + 50ms + 10 * (100ms + 7000ms + 50ms + 500ms) + 50ms;
    EXPECT_EQ(m_machine.clock.Elapsed(), 6 * (attempt + 100ms + 400ms));
}

// --- The cable has come ----------------------------------------------------------------------------

TEST_P(EitherRadioTest, RadioThatIsOnGoesOffAndIsRememberedAsOn) {
    for (const bool airplaneMode : {false, true}) {
        m_machine.SetAirplaneMode(airplaneMode);
        SetRadio(true);
        Remember(RegistryText(L"False"));
        m_machine.log.Clear();
        GetParam().stop();
        EXPECT_FALSE(RadioIsOn());
        EXPECT_EQ(Remembered(), L"True");
        EXPECT_EQ(LinesOf(kStop), StopLines(Outcome::kSwitched));
        EXPECT_EQ(Switches(L"OnOffValue = 0, bCheckAirplaneStatus = 0"), 1);
        EXPECT_THAT(LinesOf(kRetry), IsEmpty());
    }
}

TEST_P(EitherRadioTest, RadioThatIsOffIsLeftAloneWithWhatIsRemembered) {
    SetRadio(false);
    GetParam().stop();
    EXPECT_FALSE(m_machine.store.Exists(GetParam().subkey));
    for (const wchar_t* remembered : {L"False", L"True"}) {
        Remember(RegistryText(remembered));
        m_machine.log.Clear();
        GetParam().stop();
        EXPECT_EQ(Remembered(), remembered);
        EXPECT_EQ(LinesOf(kStop), StopLines(Outcome::kWasOff));
    }
    EXPECT_EQ(Requests(), 0);
}

TEST_P(EitherRadioTest, FailedSwitchIsNotRepeatedAndRemembersNothing) {
    Remember(RegistryText(L"False"));
    FailSwitches(1);
    GetParam().stop();
    EXPECT_EQ(Remembered(), L"False");
    EXPECT_EQ(Switches(L"OnOffValue = 0, bCheckAirplaneStatus = 0"), 1);
    EXPECT_EQ(LinesOf(kStop), StopLines(Outcome::kFailed));
}

TEST_P(EitherRadioTest, RadioGoesOffAlsoWhenThatCannotBeRemembered) {
    Remember(RegistryText(L"False"));
    const ScopedResult<&::RegSetValueExW> fails{ERROR_DISK_FULL, ERROR_CRC};
    GetParam().stop();
    EXPECT_FALSE(RadioIsOn());
    EXPECT_EQ(Remembered(), L"False");
    EXPECT_THAT(m_machine.log.From(kWarning), ElementsAre(Error("ServiceUtils::SetPowerStatusInRegistry",
                                                                L"Registry::SetValue failed with error 23")));
    EXPECT_EQ(LinesOf(kStop), StopLines(Outcome::kSwitched));
}

}  // namespace
}  // namespace RadioTests
