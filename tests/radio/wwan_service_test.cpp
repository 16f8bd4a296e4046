#include <gmock/gmock.h>

#include <ostream>

#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/wwan_test.h"
#include "tests/support/throw_from_log_line.h"

namespace RadioTests {
namespace {

using namespace Rig::Lines;
using namespace std::chrono_literals;
using Orva::Shared::Level::kError;
using Orva::Shared::Level::kWarning;
using Rig::ThrowFromLogLine;
using ServiceUtils::kRadioOff;
using ServiceUtils::kRadioOn;
using ServiceUtils::StartWWANService;
using ServiceUtils::StopWWANService;
using ServiceUtils::SwitchWwanStatusWithRetry;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kRetry[] = "ServiceUtils::SwitchWwanStatusWithRetry";
constexpr char kStart[] = "ServiceUtils::StartWWANService";
constexpr char kStop[] = "ServiceUtils::StopWWANService";

/// A machine whose modem confirms at once.
class WwanServiceTest : public WwanTest {
  protected:
    /// Has the modem ignore all requests before the n-th, counted from 1.
    void FollowFrom(int nth) {
        Modem().follows = 0;
        m_notebook.At(Call::MbnRadioSetSoftwareRadioState, nth, [this] {
            Modem().follows = 1;
            return std::nullopt;
        });
    }
};

class WwanRetryTest : public WwanServiceTest {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kRetry); }
};

TEST_F(WwanRetryTest, RadioThatFollowsIsSwitchedOnce) {
    EXPECT_TRUE(SwitchWwanStatusWithRetry(kRadioOff, 5));
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 0"));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kRetry, L"NewStatus = 0, Retry Count = 5"),
                                     Information(kRetry, L"SwitchWwanStatus Success"),
                                     TraceOut(kRetry, L"WWAN switching Status = 1")));
    // The switch's pauses, then the one before the look, then the look's own.
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 7000, 100, 50));
}

TEST_F(WwanRetryTest, WithoutADeviceNothingIsDone) {
    WwanState::devicePresent = false;
    m_machine.SetAirplaneMode(true);
    EXPECT_FALSE(SwitchWwanStatusWithRetry(kRadioOn, 5));
    EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(kRetry, L"NewStatus = 1, Retry Count = 5"),
                                                   Error(kRetry, L"WWAN Device is not available."),
                                                   TraceOut(kRetry, L"WWAN switching Status = 0")));
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
}

TEST_F(WwanRetryTest, SwitchingOnInAirplaneModeSucceedsWithoutTouchingTheRadio) {
    m_machine.SetAirplaneMode(true);
    Modem().software = 0;
    EXPECT_TRUE(SwitchWwanStatusWithRetry(kRadioOn, 5));
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kRetry, L"NewStatus = 1, Retry Count = 5"),
                                     Information(kRetry, L"SwitchWwanStatus not needed for New status = 1"),
                                     TraceOut(kRetry, L"WWAN switching Status = 1")));
}

TEST_F(WwanRetryTest, SwitchingOffInAirplaneModeGoesOn) {
    m_machine.SetAirplaneMode(true);
    EXPECT_TRUE(SwitchWwanStatusWithRetry(kRadioOff, 0));
    EXPECT_FALSE(IsOn());
}

TEST_F(WwanRetryTest, NRetriesAreNPlusOneAttemptsForARadioThatNeverFollows) {
    IgnoreRequests();
    EXPECT_FALSE(SwitchWwanStatusWithRetry(kRadioOff, 2));
    EXPECT_THAT(Sets(), AllOf(SizeIs(3 * 10), Each("modem 1 to 0")));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kRetry, L"NewStatus = 0, Retry Count = 2"),
                                     Warning(kRetry, L"SwitchWwanStatus not Succeeded. Retrying to 0"),
                                     Warning(kRetry, L"SwitchWwanStatus not Succeeded. Retrying to 1"),
                                     Warning(kRetry, L"SwitchWwanStatus not Succeeded. Retrying to 2"),
                                     TraceOut(kRetry, L"WWAN switching Status = 0")));
    EXPECT_EQ(m_machine.clock.Elapsed(),
              3 * (100ms + 10 * (100ms + 7000ms + 50ms + 500ms) + 100ms + 50ms + 400ms));
}

TEST_F(WwanRetryTest, RadioThatFollowsInTheSecondAttemptIsASuccess) {
    FollowFrom(11);
    EXPECT_TRUE(SwitchWwanStatusWithRetry(kRadioOff, 1));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kRetry, L"NewStatus = 0, Retry Count = 1"),
                                     Warning(kRetry, L"SwitchWwanStatus not Succeeded. Retrying to 0"),
                                     Information(kRetry, L"SwitchWwanStatus Success"),
                                     TraceOut(kRetry, L"WWAN switching Status = 1")));
}

TEST_F(WwanRetryTest, OutcomeIsJudgedByReadingBackNotByTheSwitch) {
    // The switch fails for want of an event, but somebody else turns the radio off meanwhile.
    const Rig::ScopedImport<&::CreateEventW> fails{[this](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) {
        Modem().software = 0;
        return HANDLE{};
    }};
    EXPECT_TRUE(SwitchWwanStatusWithRetry(kRadioOff, 5));
    EXPECT_EQ(fails.Calls(), 1);
}

TEST_F(WwanRetryTest, WithoutRetriesThereIsOneAttempt) {
    const Rig::ScopedResult<&::CreateEventW> fails{nullptr, ERROR_NO_SYSTEM_RESOURCES};
    EXPECT_FALSE(SwitchWwanStatusWithRetry(kRadioOff, 0));
    EXPECT_FALSE(SwitchWwanStatusWithRetry(kRadioOff, -1));
    EXPECT_EQ(fails.Calls(), 2);
}

TEST_F(WwanRetryTest, ExceptionGivesFalse) {
    const Rig::ScopedImport<&::Sleep> throws{[](DWORD milliseconds) { return milliseconds == 100; },
                                             [](DWORD) { throw DWORD{ERROR_CRC}; }};
    EXPECT_FALSE(SwitchWwanStatusWithRetry(kRadioOn, 5));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kRetry, L"NewStatus = 1, Retry Count = 5"),
                                     Error(kRetry, L"Exception in SwitchWwanStatusWithRetry()"),
                                     TraceOut(kRetry, L"WWAN switching Status = 0")));
}

class WwanStartTest : public WwanServiceTest {
  protected:
    WwanStartTest() { Modem().software = 0; }

    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kStart); }
};

TEST_F(WwanStartTest, RadioThatWasOnComesBack) {
    m_machine.RememberWwan(L"True");
    StartWWANService();
    EXPECT_TRUE(IsOn());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kStart), Information(kStart, L"WWAN Registry Status = True"),
                                     TraceOut(kStart)));
}

TEST_F(WwanStartTest, NothingRememberedCountsAsOn) {
    StartWWANService();
    EXPECT_TRUE(IsOn());
    EXPECT_THAT(Lines(), Contains(Information(kStart, L"WWAN Registry Status = True")));
}

struct OtherText {
    const char* name;
    const wchar_t* text;
};

void PrintTo(const OtherText& tested, std::ostream* out) {
    *out << tested.name;
}

class WwanStartOtherTextTest : public WwanStartTest, public testing::WithParamInterface<OtherText> {};

TEST_P(WwanStartOtherTextTest, AnyOtherTextLeavesTheRadioAlone) {
    m_machine.RememberWwan(GetParam().text);
    StartWWANService();
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kStart),
                            Information(kStart, std::wstring(L"WWAN Registry Status = ") + GetParam().text),
                            TraceOut(kStart)));
}

INSTANTIATE_TEST_SUITE_P(Texts, WwanStartOtherTextTest,
                         testing::Values(OtherText{"False", L"False"}, OtherText{"LowerCase", L"true"},
                                         OtherText{"BlankBefore", L" True"}, OtherText{"One", L"1"}));

TEST_F(WwanStartTest, WithoutADeviceNothingIsRead) {
    WwanState::devicePresent = false;
    StartWWANService();
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(TraceIn(kStart), Error(kStart, L"WWAN Device is not available."), TraceOut(kStart)));
}

TEST_F(WwanStartTest, RadioThatNeverFollowsIsReportedAfterSixAttempts) {
    IgnoreRequests();
    StartWWANService();
    EXPECT_THAT(Sets(), SizeIs(6 * 10));
    EXPECT_THAT(Lines(), Contains(Error(kStart, L"SwitchWwanStatusWithRetry (StartWWANService) failed")));
}

TEST_F(WwanStartTest, AirplaneModeLeavesTheRadioOffWithoutAnError) {
    m_machine.SetAirplaneMode(true);
    StartWWANService();
    EXPECT_FALSE(IsOn());
    EXPECT_THAT(m_machine.log.At(kError), IsEmpty());
}

TEST_F(WwanStartTest, ExceptionIsLogged) {
    const ThrowFromLogLine second{2, DWORD{ERROR_CRC}};
    StartWWANService();
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(TraceIn(kStart), Error(kStart, L"Exception in StartWWANService()"), TraceOut(kStart)));
}

class WwanStopTest : public WwanServiceTest {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kStop); }
};

TEST_F(WwanStopTest, RadioThatIsOnGoesOffAndIsRememberedAsOn) {
    m_machine.RememberWwan(L"False");
    StopWWANService();
    EXPECT_FALSE(IsOn());
    EXPECT_EQ(m_machine.RememberedWwan(), L"True");
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kStop), Information(kStop, L"StopWWANService - Entry"),
                                     Information(kStop, L"WWAN Current Status = 1"), TraceOut(kStop)));
    EXPECT_TRUE(m_machine.log.Contains(
        TraceIn("ServiceUtils::SwitchWwanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 0")));
}

TEST_F(WwanStopTest, RadioThatIsOffIsLeftAloneWithWhatIsRemembered) {
    Modem().software = 0;
    m_machine.RememberWwan(L"False");
    StopWWANService();
    EXPECT_EQ(m_machine.RememberedWwan(), L"False");
    EXPECT_THAT(Sets(), IsEmpty());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kStop), Information(kStop, L"StopWWANService - Entry"),
                                     Information(kStop, L"WWAN Current Status = 0"), TraceOut(kStop)));
}

TEST_F(WwanStopTest, RadioThatIsOffMakesNoKey) {
    Modem().software = 0;
    StopWWANService();
    EXPECT_FALSE(m_machine.store.Exists(L"WwanPowerStatus"));
}

TEST_F(WwanStopTest, RadioThatNeverFollowsIsRememberedAsOnAllTheSame) {
    IgnoreRequests();
    StopWWANService();
    EXPECT_THAT(Sets(), SizeIs(10)) << "the switch is not repeated";
    EXPECT_EQ(m_machine.RememberedWwan(), L"True");
}

TEST_F(WwanStopTest, AirplaneModeDoesNotKeepTheRadioOn) {
    m_machine.SetAirplaneMode(true);
    StopWWANService();
    EXPECT_FALSE(IsOn());
}

TEST_F(WwanStopTest, FailedSwitchRemembersNothing) {
    m_machine.RememberWwan(L"False");
    const Rig::ScopedResult<&::CreateEventW> fails{nullptr, ERROR_NO_SYSTEM_RESOURCES};
    StopWWANService();
    EXPECT_EQ(m_machine.RememberedWwan(), L"False");
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kStop), Information(kStop, L"StopWWANService - Entry"),
                            Information(kStop, L"WWAN Current Status = 1"),
                            Error(kStop, L"SwitchWwanStatus (StopWWANService) failed"), TraceOut(kStop)));
}

TEST_F(WwanStopTest, RadioGoesOffAlsoWhenThatCannotBeRemembered) {
    m_machine.RememberWwan(L"False");
    const Rig::ScopedResult<&::RegSetValueExW> fails{ERROR_DISK_FULL, ERROR_CRC};
    StopWWANService();
    EXPECT_FALSE(IsOn());
    EXPECT_EQ(m_machine.RememberedWwan(), L"False");
    EXPECT_THAT(m_machine.log.From(kWarning), ElementsAre(Error("ServiceUtils::SetPowerStatusInRegistry",
                                                                L"Registry::SetValue failed with error 23")));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kStop), Information(kStop, L"StopWWANService - Entry"),
                                     Information(kStop, L"WWAN Current Status = 1"), TraceOut(kStop)));
}

TEST_F(WwanStopTest, WithoutADeviceNothingIsDone) {
    WwanState::devicePresent = false;
    StopWWANService();
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kStop), Error(kStop, L"WWAN Device is not available."), TraceOut(kStop)));
    EXPECT_TRUE(m_machine.RememberedWwan().empty());
}

TEST_F(WwanStopTest, ExceptionIsLogged) {
    const ThrowFromLogLine second{2, DWORD{ERROR_CRC}};
    StopWWANService();
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(TraceIn(kStop), Error(kStop, L"Exception in StopWWANService()"), TraceOut(kStop)));
}

}  // namespace
}  // namespace RadioTests
