#include "bios/bios_settings.h"

#include <comdef.h>
#include <gmock/gmock.h>

#include <chrono>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/bios/fake_bios.h"
#include "tests/support/log_recorder.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/test_clock.h"
#include "tests/support/throw_from_log_line.h"

namespace BiosTests {
namespace {

namespace Level = Orva::Shared::Level;
using namespace Rig::Lines;
using namespace std::chrono_literals;
using Rig::LogLine;
using Rig::LogRecorder;
using Rig::ScopedImport;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kGet[] = "NLMUtils::GetBIOSValue";
constexpr char kWlan[] = "NLMUtils::IsLanWlanAutoSwitchingEnabled";
constexpr char kWwan[] = "NLMUtils::IsLanWwanAutoSwitchingEnabled";

constexpr wchar_t kFirstWlanName[] = L"LAN / WLAN Auto Switching";
constexpr wchar_t kSecondWlanName[] = L"LAN/WLAN Switching";
constexpr wchar_t kWwanName[] = L"LAN / WWAN Auto Switching";

constexpr auto kNotConnected = static_cast<HRESULT>(0x80041071);
constexpr auto kTimedOut = HRESULT{0x40004};
constexpr auto kFailed = static_cast<HRESULT>(WBEM_E_FAILED);  // 0x80041001

LogLine Reading(const std::wstring& name, int tryNumber) {
    return Information(
        kGet, L"Reading BIOS Value (" + name + L") in retry count " + std::to_wstring(tryNumber) + L" ");
}
LogLine Returned(const std::wstring& code, int tryNumber) {
    return Warning(kGet, L"wmi.GetValue returned Error 0x" + code + L" in retry count " +
                             std::to_wstring(tryNumber) + L" ");
}
LogLine Read(const std::wstring& value) {
    return Information(kGet, L"BIOS Read Value " + value);
}
LogLine Thrown(const std::wstring& code) {
    return Error(kGet, L"Exception while getting BIOS with error 0x" + code);
}

/// Throws out of a step.
template <class Exception>
Step Throws(Exception exception) {
    return [exception]() -> HRESULT { throw exception; };
}

/// The settings' reader before a provider that knows no setting yet.
///
/// Once a half was read as enabled it stays so for the life of the process: tests that look for
/// "disabled" stand before those that enable, or run in a process of their own.
class BiosSettings : public testing::Test {
  protected:
    HRESULT Get(const std::wstring& name = L"Some Setting") { return NLMUtils::GetBIOSValue(name, m_value); }

    LogRecorder m_log;
    Rig::TestClock m_clock;
    FakeBios m_bios;
    std::wstring m_value;
};

using GetBIOSValue = BiosSettings;
using IsLanWlanAutoSwitchingEnabled = BiosSettings;
using IsLanWwanAutoSwitchingEnabled = BiosSettings;

TEST_F(GetBIOSValue, SettingIsReadAtTheFirstTry) {
    m_bios.Set(L"Some Setting", L"Enable");

    EXPECT_EQ(Get(), S_OK);

    EXPECT_EQ(m_value, L"Enable");
    EXPECT_THAT(m_log.Lines(),
                ElementsAre(TraceIn(kGet, L"BIOS Settings Name = Some Setting"), Reading(L"Some Setting", 0),
                            Read(L"Enable"), TraceOut(kGet, L"Return Value = 0x00000000")));
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(500));
    EXPECT_EQ(m_bios.Created(), 1);
    EXPECT_EQ(m_bios.References(), 0);
}

TEST_F(GetBIOSValue, ComIsLeftAfterTheExitLine) {
    std::vector<LogLine> linesWhenComIsLeft;
    const ScopedImport<&::CoUninitialize> leaves{Rig::kWrapping, [&](const auto& original) {
                                                     linesWhenComIsLeft = m_log.At(Level::kTraceOut);
                                                     original.Original();
                                                 }};

    Rig::RunOnThread([this] { Get(); }, Rig::Apartment::kNone);

    EXPECT_EQ(leaves.Calls(), 1);
    EXPECT_THAT(linesWhenComIsLeft, ElementsAre(Rig::Line(Level::kTraceOut, kGet, testing::_)));
}

TEST_F(GetBIOSValue, MissingProviderCostsOneConnectionAttemptAndFourPasses) {
    m_bios.connects = {Ends(static_cast<HRESULT>(WBEM_E_INVALID_NAMESPACE))};

    EXPECT_EQ(Get(), kNotConnected);

    EXPECT_EQ(m_bios.Created(), 1);
    EXPECT_EQ(m_bios.namespacesAsked.size(), 1U);
    EXPECT_THAT(m_bios.queriesAsked, IsEmpty());
    EXPECT_THAT(m_log.From(Level::kTraceOut),
                ElementsAre(Reading(L"Some Setting", 0), Thrown(L"80041071"), Reading(L"Some Setting", 0),
                            Thrown(L"80041071"), Reading(L"Some Setting", 0), Thrown(L"80041071"),
                            Reading(L"Some Setting", 0), Thrown(L"80041071"),
                            TraceOut(kGet, L"Return Value = 0x80041071")));
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(500, 3000, 500, 3000, 500, 3000, 500, 3000));
    EXPECT_EQ(m_clock.Elapsed(), 14s);
}

TEST_F(GetBIOSValue, LocatorThatCannotBeMadeCountsAsNotConnected) {
    const Rig::ScopedResult<&::CoCreateInstance> missing{REGDB_E_CLASSNOTREG};

    EXPECT_EQ(Get(), kNotConnected);

    EXPECT_EQ(missing.Calls(), 1);
    EXPECT_EQ(m_clock.Elapsed(), 14s);
}

TEST_F(GetBIOSValue, MissingSettingIsNotTriedAgain) {
    EXPECT_EQ(Get(), S_FALSE);

    EXPECT_EQ(m_value, L"");
    EXPECT_THAT(m_log.From(Level::kTraceOut),
                ElementsAre(Reading(L"Some Setting", 0), Returned(L"00000001", 0), Read(L""),
                            TraceOut(kGet, L"Return Value = 0x00000001")));
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(500, 1000, 3000));
    EXPECT_EQ(m_bios.queriesAsked.size(), 1U);
}

TEST_F(GetBIOSValue, ProviderThatAlwaysTimesOutIsAskedSixTimesInOnePass) {
    for (int i = 0; i < 20; ++i) {
        m_bios.fetches.push_back(Ends(kTimedOut));
    }

    EXPECT_EQ(Get(), kTimedOut);

    std::vector<LogLine> expected;
    for (int tryNumber = 0; tryNumber < 6; ++tryNumber) {
        expected.push_back(Reading(L"Some Setting", tryNumber));
        expected.push_back(Returned(L"00040004", tryNumber));
    }
    expected.push_back(Read(L""));
    expected.push_back(TraceOut(kGet, L"Return Value = 0x00040004"));
    EXPECT_EQ(m_log.From(Level::kTraceOut), expected);
    EXPECT_THAT(m_clock.Sleeps(),
                ElementsAre(500, 1000, 500, 1000, 500, 1000, 500, 1000, 500, 1000, 500, 1000, 3000));
    EXPECT_EQ(m_bios.queriesAsked.size(), 6U);
}

TEST_F(GetBIOSValue, SettingIsReadAfterTimeOuts) {
    m_bios.Set(L"Some Setting", L"Enable");
    m_bios.fetches = {Ends(kTimedOut), Ends(kTimedOut)};

    EXPECT_EQ(Get(), S_OK);

    EXPECT_EQ(m_value, L"Enable");
    EXPECT_THAT(m_log.At(Level::kWarning), ElementsAre(Returned(L"00040004", 0), Returned(L"00040004", 1)));
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(500, 1000, 500, 1000, 500));
}

TEST_F(GetBIOSValue, OtherFailureAfterATimeOutEndsTheTries) {
    m_bios.fetches = {Ends(kTimedOut), Ends(kFailed)};

    EXPECT_EQ(Get(), kFailed);

    EXPECT_THAT(m_log.At(Level::kWarning), ElementsAre(Returned(L"00040004", 0), Returned(L"80041001", 1)));
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(500, 1000, 500, 1000, 3000));
}

TEST_F(GetBIOSValue, FailureOfEachStepIsReturnedAtOnce) {
    struct Case {
        std::deque<Step>& steps;
        HRESULT result;
        const wchar_t* code;
    };
    m_bios.Set(L"Some Setting", L"Enable");
    const std::vector<Case> cases{
        {m_bios.queries, static_cast<HRESULT>(WBEM_E_INVALID_QUERY), L"80041017"},
        {m_bios.fetches, static_cast<HRESULT>(WBEM_E_PROVIDER_FAILURE), L"80041004"},
        {m_bios.reads, static_cast<HRESULT>(WBEM_E_NOT_FOUND), L"80041002"},
    };
    for (const Case& failing : cases) {
        failing.steps = {Ends(failing.result)};
        m_log.Clear();
        m_clock.ForgetRecords();

        EXPECT_EQ(Get(), failing.result);

        EXPECT_THAT(m_log.At(Level::kWarning), ElementsAre(Returned(failing.code, 0)));
        EXPECT_THAT(m_clock.Sleeps(), ElementsAre(500, 1000, 3000));
        EXPECT_EQ(m_bios.References(), 0);
    }
}

TEST_F(GetBIOSValue, OnceAnExceptionWasSeenOtherFailuresArePassedOverToo) {
    m_bios.Set(L"Some Setting", L"Enable");
    m_bios.queries = {Throws(_com_error(E_ACCESSDENIED)), Ends(kFailed)};

    EXPECT_EQ(Get(), S_OK);

    EXPECT_EQ(m_value, L"Enable");
    EXPECT_THAT(
        m_log.From(Level::kInformation),
        ElementsAre(Reading(L"Some Setting", 0), Thrown(L"80070005"), Reading(L"Some Setting", 0),
                    Returned(L"80041001", 0), Read(L""), Reading(L"Some Setting", 0), Read(L"Enable")));
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(500, 3000, 500, 1000, 3000, 500));
}

TEST_F(GetBIOSValue, PassesEndAfterTheFourthWhateverTheirFailures) {
    m_bios.queries = {Throws(_com_error(E_ACCESSDENIED)), Ends(kFailed), Throws(_com_error(E_UNEXPECTED)),
                      Ends(kFailed), Ends(S_OK)};

    EXPECT_EQ(Get(), kFailed);

    EXPECT_EQ(m_bios.queriesAsked.size(), 4U);
}

TEST_F(GetBIOSValue, ExceptionAfterATimeOutBeginsANewPass) {
    m_bios.Set(L"Some Setting", L"Enable");
    m_bios.fetches = {[this] {
        m_bios.queries = {Throws(_com_error(E_FAIL))};
        return kTimedOut;
    }};

    EXPECT_EQ(Get(), S_OK);

    EXPECT_TRUE(m_log.Contains(Thrown(L"80004005")));
    EXPECT_EQ(m_value, L"Enable");
}

TEST_F(GetBIOSValue, OtherExceptionIsLoggedAndEverythingGivenBack) {
    m_bios.Set(L"Some Setting", L"Enable");
    int left = 0;
    const ScopedImport<&::CoUninitialize> leaves{[&] {
        ++left;
        leaves.Original();
    }};
    m_bios.fetches = {Throws(DWORD{ERROR_GEN_FAILURE})};
    EXPECT_EQ(Get(), E_FAIL);
    m_bios.connects = {Throws(std::bad_alloc())};
    EXPECT_EQ(Get(), E_FAIL);

    EXPECT_THAT(m_log.At(Level::kError), ElementsAre(Error(kGet, L"Exception in GetBIOSValue()"),
                                                     Error(kGet, L"Exception in GetBIOSValue()")));
    EXPECT_EQ(m_log.Lines().back(), TraceOut(kGet, L"Return Value = 0x80004005"));
    EXPECT_EQ(left, 2);
    EXPECT_EQ(m_bios.References(), 0);
}

TEST_F(GetBIOSValue, NameWithAQuoteIsAskedForUnchanged) {
    m_bios.Set(L"It's", L"Enable");

    EXPECT_EQ(Get(L"It's"), S_OK);

    EXPECT_THAT(m_bios.queriesAsked, ElementsAre(L"SELECT * FROM Orva_BIOSSetting where Name='It's'"));
}

TEST_F(GetBIOSValue, NullValueIsASuccessWithAnEmptyText) {
    m_bios.SetValue(L"Some Setting", [](VARIANT* value) { value->vt = VT_NULL; });
    m_value = L"old";

    EXPECT_EQ(Get(), S_OK);

    EXPECT_EQ(m_value, L"");
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(500));
}

// --- Disabled: these stand before what enables ------------------------------------------------------

std::vector<LogLine> WithoutReads(const LogRecorder& log) {
    std::vector<LogLine> lines = log.Lines();
    std::erase_if(lines, [](const LogLine& line) { return line.function == kGet; });
    return lines;
}

/// The names that were asked for.
std::vector<std::wstring> NamesAsked(const LogRecorder& log) {
    static constexpr std::wstring_view kEntry = L"BIOS Settings Name = ";
    std::vector<std::wstring> names;
    for (const LogLine& line : log.Of(kGet)) {
        if (line.level == Level::kTraceIn) {
            names.push_back(line.message.substr(kEntry.size()));
        }
    }
    return names;
}

TEST_F(IsLanWlanAutoSwitchingEnabled, NothingIsEnabledAtStart) {
    EXPECT_FALSE(NLMUtils::lanWlanSwitchingEnabled);
    EXPECT_FALSE(NLMUtils::lanWwanSwitchingEnabled);
}

TEST_F(IsLanWlanAutoSwitchingEnabled, BothNamesAbsentMeanDisabledWithTheSecondNamesError) {
    EXPECT_FALSE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_FALSE(NLMUtils::lanWlanSwitchingEnabled);
    EXPECT_THAT(NamesAsked(m_log), ElementsAre(kFirstWlanName, kSecondWlanName));
    EXPECT_THAT(WithoutReads(m_log),
                ElementsAre(TraceIn(kWlan),
                            Error(kWlan,
                                  L"Error getting 'LAN/WLAN Switching' with HRESULT =  0x00000001 and "
                                  L"Value = "),
                            Information(kWlan, L"BIOS(LAN/WLAN) Read Value "),
                            TraceOut(kWlan, L"BIOS Setting LAN / WLAN Auto Switching: false")));
}

TEST_F(IsLanWlanAutoSwitchingEnabled, FirstNameWithAStarMeansDisabledAndTheSecondIsNotAsked) {
    m_bios.Set(kFirstWlanName, L"*Disable");
    m_bios.Set(kSecondWlanName, L"Enable");

    EXPECT_FALSE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_FALSE(NLMUtils::lanWlanSwitchingEnabled);
    EXPECT_THAT(NamesAsked(m_log), ElementsAre(kFirstWlanName));
    EXPECT_THAT(WithoutReads(m_log),
                ElementsAre(TraceIn(kWlan),
                            Error(kWlan,
                                  L"Error getting 'LAN / WLAN Auto Switching' with HRESULT =  0x00000000 "
                                  L"and Value = *Disable"),
                            Information(kWlan, L"BIOS(LAN/WLAN) Read Value *Disable"),
                            TraceOut(kWlan, L"BIOS Setting LAN / WLAN Auto Switching: false")));
}

TEST_F(IsLanWlanAutoSwitchingEnabled, SecondNameWithAStarMeansDisabledWithoutAnError) {
    m_bios.Set(kSecondWlanName, L"*Enable");

    EXPECT_FALSE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_THAT(WithoutReads(m_log),
                ElementsAre(TraceIn(kWlan), Information(kWlan, L"BIOS(LAN/WLAN) Read Value *Enable"),
                            TraceOut(kWlan, L"BIOS Setting LAN / WLAN Auto Switching: false")));
}

TEST_F(IsLanWlanAutoSwitchingEnabled, NullValuesMeanDisabled) {
    m_bios.SetValue(kFirstWlanName, [](VARIANT* value) { value->vt = VT_NULL; });
    m_bios.SetValue(kSecondWlanName, [](VARIANT* value) { value->vt = VT_NULL; });

    EXPECT_FALSE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_THAT(NamesAsked(m_log), ElementsAre(kFirstWlanName, kSecondWlanName));
    EXPECT_THAT(m_log.At(Level::kError),
                ElementsAre(Error(kWlan,
                                  L"Error getting 'LAN/WLAN Switching' with HRESULT =  0x00000000 and "
                                  L"Value = ")));
}

TEST_F(IsLanWlanAutoSwitchingEnabled, MissingProviderMeansDisabledAfterTwoFullReads) {
    for (int i = 0; i < 2; ++i) {
        m_bios.connects.push_back(Ends(static_cast<HRESULT>(WBEM_E_INVALID_NAMESPACE)));
    }

    EXPECT_FALSE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_EQ(m_clock.Elapsed(), 28s);
    EXPECT_TRUE(m_log.Contains(
        Error(kWlan, L"Error getting 'LAN/WLAN Switching' with HRESULT =  0x80041071 and Value = ")));
}

TEST_F(IsLanWlanAutoSwitchingEnabled, ExceptionMeansDisabled) {
    // The entry line of the read, outside of the read's own handler.
    const Rig::ThrowFromLogLine throwing{2, std::logic_error("no more log")};

    EXPECT_FALSE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_THAT(m_log.Lines(),
                ElementsAre(TraceIn(kWlan), Error(kWlan, L"Exception in IsLanWlanAutoSwitchingEnabled()"),
                            TraceOut(kWlan, L"BIOS Setting LAN / WLAN Auto Switching: false")));
}

TEST_F(IsLanWwanAutoSwitchingEnabled, AbsentNameMeansDisabledWithAnError) {
    EXPECT_FALSE(NLMUtils::IsLanWwanAutoSwitchingEnabled());

    EXPECT_FALSE(NLMUtils::lanWwanSwitchingEnabled);
    EXPECT_THAT(NamesAsked(m_log), ElementsAre(kWwanName));
    EXPECT_THAT(WithoutReads(m_log),
                ElementsAre(TraceIn(kWwan),
                            Error(kWwan,
                                  L"Error getting 'LAN / WWAN Auto Switching' with HRESULT =  0x00000001 "
                                  L"and Value = "),
                            Information(kWwan, L"BIOS(LAN/WAN) Read Value "),
                            TraceOut(kWwan, L"BIOS Setting LAN / WWAN Auto Switching: false")));
}

TEST_F(IsLanWwanAutoSwitchingEnabled, StarMeansDisabledWithoutAnError) {
    m_bios.Set(kWwanName, L"*");

    EXPECT_FALSE(NLMUtils::IsLanWwanAutoSwitchingEnabled());

    EXPECT_THAT(WithoutReads(m_log),
                ElementsAre(TraceIn(kWwan), Information(kWwan, L"BIOS(LAN/WAN) Read Value *"),
                            TraceOut(kWwan, L"BIOS Setting LAN / WWAN Auto Switching: false")));
}

TEST_F(IsLanWwanAutoSwitchingEnabled, NullValueMeansDisabledWithAnError) {
    m_bios.SetValue(kWwanName, [](VARIANT* value) { value->vt = VT_NULL; });

    EXPECT_FALSE(NLMUtils::IsLanWwanAutoSwitchingEnabled());

    EXPECT_THAT(m_log.At(Level::kError),
                ElementsAre(Error(kWwan,
                                  L"Error getting 'LAN / WWAN Auto Switching' with HRESULT =  0x00000000 "
                                  L"and Value = ")));
}

TEST_F(IsLanWwanAutoSwitchingEnabled, ExceptionMeansDisabled) {
    const Rig::ThrowFromLogLine throwing{2, std::logic_error("no more log")};

    EXPECT_FALSE(NLMUtils::IsLanWwanAutoSwitchingEnabled());

    EXPECT_TRUE(m_log.Contains(Error(kWwan, L"Exception in IsLanWwanAutoSwitchingEnabled()")));
}

// --- Enabled ----------------------------------------------------------------------------------------

TEST_F(IsLanWlanAutoSwitchingEnabled, SecondNameEnablesWhenTheFirstIsAbsent) {
    m_bios.Set(kSecondWlanName, L"Enable");

    EXPECT_TRUE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_TRUE(NLMUtils::lanWlanSwitchingEnabled);
    EXPECT_FALSE(NLMUtils::lanWwanSwitchingEnabled);
    EXPECT_THAT(
        WithoutReads(m_log),
        ElementsAre(TraceIn(kWlan), Information(kWlan, L"Inside LAN/WLAN Switching section:feature enabled"),
                    Information(kWlan, L"BIOS(LAN/WLAN) Read Value Enable"),
                    TraceOut(kWlan, L"BIOS Setting LAN / WLAN Auto Switching: true")));
}

TEST_F(IsLanWlanAutoSwitchingEnabled, SecondNameIsAskedWhenTheFirstIsEmpty) {
    m_bios.Set(kFirstWlanName, L"");
    m_bios.Set(kSecondWlanName, L"Enable");

    EXPECT_TRUE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_THAT(NamesAsked(m_log), ElementsAre(kFirstWlanName, kSecondWlanName));
}

TEST_F(IsLanWlanAutoSwitchingEnabled, FirstNameEnablesAndTheSecondIsNotAsked) {
    m_bios.Set(kFirstWlanName, L"Enable");

    EXPECT_TRUE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_TRUE(NLMUtils::lanWlanSwitchingEnabled);
    EXPECT_THAT(NamesAsked(m_log), ElementsAre(kFirstWlanName));
    EXPECT_THAT(WithoutReads(m_log),
                ElementsAre(TraceIn(kWlan),
                            Information(kWlan, L"Inside LAN / WLAN Auto Switching section :feature enabled"),
                            Information(kWlan, L"BIOS(LAN/WLAN) Read Value Enable"),
                            TraceOut(kWlan, L"BIOS Setting LAN / WLAN Auto Switching: true")));
}

TEST_F(IsLanWlanAutoSwitchingEnabled, EveryTextWithoutAStarInFrontEnables) {
    for (const wchar_t* const text : {L"Disable", L"0", L" ", L"Enable*", L"x*"}) {
        m_bios.Set(kFirstWlanName, text);
        m_log.Clear();

        EXPECT_TRUE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

        EXPECT_TRUE(
            m_log.Contains(Information(kWlan, L"Inside LAN / WLAN Auto Switching section :feature enabled")))
            << text;
    }
}

TEST_F(IsLanWlanAutoSwitchingEnabled, OnceEnabledItStaysSoWhenTheSettingIsDisabledOrGone) {
    m_bios.Set(kFirstWlanName, L"Enable");
    EXPECT_TRUE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    m_bios.Set(kFirstWlanName, L"*Enable");
    EXPECT_TRUE(NLMUtils::IsLanWlanAutoSwitchingEnabled());
    m_bios.Remove(kFirstWlanName);
    EXPECT_TRUE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_TRUE(NLMUtils::lanWlanSwitchingEnabled);
    EXPECT_EQ(m_log.Lines().back(), TraceOut(kWlan, L"BIOS Setting LAN / WLAN Auto Switching: true"));
}

TEST_F(IsLanWwanAutoSwitchingEnabled, NameEnables) {
    m_bios.Set(kWwanName, L"Enable");

    EXPECT_TRUE(NLMUtils::IsLanWwanAutoSwitchingEnabled());

    EXPECT_TRUE(NLMUtils::lanWwanSwitchingEnabled);
    EXPECT_THAT(WithoutReads(m_log),
                ElementsAre(TraceIn(kWwan),
                            Information(kWwan, L"Inside LAN / WWAN Auto Switching section :feature enabled"),
                            Information(kWwan, L"BIOS(LAN/WAN) Read Value Enable"),
                            TraceOut(kWwan, L"BIOS Setting LAN / WWAN Auto Switching: true")));
}

TEST_F(IsLanWwanAutoSwitchingEnabled, OnceEnabledItStaysSoWhenTheSettingIsDisabledOrGone) {
    m_bios.Set(kWwanName, L"Enable");
    EXPECT_TRUE(NLMUtils::IsLanWwanAutoSwitchingEnabled());

    m_bios.Set(kWwanName, L"*Enable");
    EXPECT_TRUE(NLMUtils::IsLanWwanAutoSwitchingEnabled());
    m_bios.Remove(kWwanName);
    EXPECT_TRUE(NLMUtils::IsLanWwanAutoSwitchingEnabled());

    EXPECT_TRUE(NLMUtils::lanWwanSwitchingEnabled);
}

}  // namespace
}  // namespace BiosTests
