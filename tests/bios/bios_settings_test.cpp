#include "bios/bios_settings.h"

#include <comdef.h>
#include <wbemcli.h>

#include <chrono>
#include <cwchar>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/com_support.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/simulated_notebook.h"
#include "tests/support/test_clock.h"
#include "tests/support/throw_from_log_line.h"
#include "tests/support/words.h"

namespace BiosTests {
namespace {

namespace Level = Orva::Shared::Level;
using namespace Rig::Words;
using namespace std::chrono_literals;
using Rig::Call;
using Rig::LogRecorder;

constexpr char kGet[] = "NLMUtils::GetBIOSValue";

constexpr wchar_t kFirstWlanName[] = L"LAN / WLAN Auto Switching";
constexpr wchar_t kSecondWlanName[] = L"LAN/WLAN Switching";
constexpr wchar_t kWwanName[] = L"LAN / WWAN Auto Switching";

constexpr auto kNotConnected = static_cast<HRESULT>(0x80041071);
constexpr auto kTimedOut = HRESULT{0x40004};
constexpr auto kFailed = static_cast<HRESULT>(WBEM_E_FAILED);  // 0x80041001

/// In eight hexadecimal digits.
std::wstring Code(HRESULT code) {
    wchar_t text[16] = {};
    _snwprintf(text, std::size(text) - 1, L"0x%08lX", static_cast<unsigned long>(code));
    return text;
}

LogLine Reading(int tryNumber) {
    return Information(
        kGet, L"Reading BIOS Value (Some Setting) in retry count " + std::to_wstring(tryNumber) + L" ");
}
LogLine Returned(HRESULT code, int tryNumber) {
    return Warning(kGet, L"wmi.GetValue returned Error " + Code(code) + L" in retry count " +
                             std::to_wstring(tryNumber) + L" ");
}
LogLine Read(const std::wstring& value) {
    return Information(kGet, L"BIOS Read Value " + value);
}
LogLine Thrown(HRESULT code) {
    return Error(kGet, L"Exception while getting BIOS with error " + Code(code));
}
LogLine Ended(HRESULT code) {
    return TraceOut(kGet, L"Return Value = " + Code(code));
}

/// Throws out of a call.
template <class Exception>
Rig::SimulatedNotebook::Action Throws(Exception exception) {
    return [exception]() -> DWORD { throw exception; };
}

/// What the provider does with a query.
enum class Answer { kTimeOut, kNoSetting, kFailure, kException };

VARIANT Null() {
    VARIANT value{};
    value.vt = VT_NULL;
    return value;
}

/// The settings' reader before a provider that knows no setting yet.
///
/// Once a half was read as enabled it stays so for the life of the process: tests that look for
/// "disabled" stand before those that enable, or run in a process of their own.
class BiosSettings : public testing::Test {
  protected:
    BiosSettings() { m_bios.RemoveSettings(); }

    HRESULT Get(const std::wstring& name = L"Some Setting") { return NLMUtils::GetBIOSValue(name, m_value); }

    /// Has the next queries answered so, one after the other.
    void Plan(const std::vector<Answer>& answers) {
        int query = 0;
        int next = 0;
        for (const Answer answer : answers) {
            ++query;
            if (answer == Answer::kException) {
                m_bios.At(Call::WbemExecQuery, query, Throws(_com_error(E_ACCESSDENIED)));
            } else if (answer == Answer::kFailure) {
                m_bios.Fail(Call::WbemExecQuery, query, kFailed);
            } else {
                m_bios.Fail(Call::WbemNext, ++next, answer == Answer::kTimeOut ? kTimedOut : S_FALSE);
            }
        }
    }

    LogRecorder m_log;
    Rig::TestClock m_clock;
    Rig::SimulatedNotebook m_bios{m_clock};
    const Rig::ComApartment m_apartment{COINIT_APARTMENTTHREADED};
    std::wstring m_value;
};

using GetBIOSValue = BiosSettings;

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
    m_bios.Devices().providerPresent = 0;

    EXPECT_EQ(Get(), kNotConnected);

    EXPECT_EQ(m_bios.Count(Call::WbemLocatorCreate), 1);
    EXPECT_EQ(m_bios.Count(Call::WbemConnectServer), 1);
    EXPECT_EQ(m_bios.Count(Call::WbemExecQuery), 0);
    const LogLine thrown = Thrown(kNotConnected);
    EXPECT_THAT(m_log.From(Level::kTraceOut), ElementsAre(Reading(0), thrown, Reading(0), thrown, Reading(0),
                                                          thrown, Reading(0), thrown, Ended(kNotConnected)));
    EXPECT_THAT(m_clock.Sleeps(), ElementsAre(500, 3000, 500, 3000, 500, 3000, 500, 3000));
    EXPECT_EQ(m_clock.Elapsed(), 14s);
}

TEST_F(GetBIOSValue, TriesAgainAfterATimeOutAndBeginsAnewAfterAnException) {
    using enum Answer;
    struct Course {
        const char* name;
        std::vector<Answer> answers;  ///< behind the last one comes the value
        HRESULT result;
        std::vector<LogLine> lines;  ///< between the entry and the exit line
    };
    const LogLine none = Read(L"");
    const LogLine value = Read(L"Enable");
    const LogLine thrown = Thrown(E_ACCESSDENIED);
    const auto timedOut = [](int tryNumber) { return Returned(kTimedOut, tryNumber); };
    const auto failed = [](int tryNumber) { return Returned(kFailed, tryNumber); };
    const Course courses[] = {
        {"the value at once", {}, S_OK, {Reading(0), value}},
        {"no such setting", {kNoSetting}, S_FALSE, {Reading(0), Returned(S_FALSE, 0), none}},
        {"a failure", {kFailure}, kFailed, {Reading(0), failed(0), none}},
        {"time-outs, then the value",
         {kTimeOut, kTimeOut},
         S_OK,
         {Reading(0), timedOut(0), Reading(1), timedOut(1), Reading(2), value}},
        {"a failure after a time-out",
         {kTimeOut, kFailure},
         kFailed,
         {Reading(0), timedOut(0), Reading(1), failed(1), none}},
        {"an exception after a time-out",
         {kTimeOut, kException},
         S_OK,
         {Reading(0), timedOut(0), Reading(1), thrown, Reading(0), value}},
        {"nothing but time-outs: six tries in one pass",
         std::vector(6, kTimeOut),
         kTimedOut,
         {Reading(0), timedOut(0), Reading(1), timedOut(1), Reading(2), timedOut(2), Reading(3), timedOut(3),
          Reading(4), timedOut(4), Reading(5), timedOut(5), none}},
        {"once an exception was seen, other failures are passed over, too",
         {kException, kFailure},
         S_OK,
         {Reading(0), thrown, Reading(0), failed(0), none, Reading(0), value}},
        {"four passes, whatever their failures",
         {kException, kFailure, kException, kFailure},
         kFailed,
         {Reading(0), thrown, Reading(0), failed(0), none, Reading(0), thrown, Reading(0), failed(0), none}},
    };
    m_bios.SetSetting(L"Some Setting", L"Enable");
    for (const Course& course : courses) {
        SCOPED_TRACE(course.name);
        m_bios.ForgetCalls();
        m_clock.ForgetRecords();
        m_log.Clear();
        m_value.clear();
        Plan(course.answers);

        EXPECT_EQ(Get(), course.result);

        EXPECT_EQ(m_value, course.result == S_OK ? L"Enable" : L"");
        std::vector<LogLine> lines = course.lines;
        lines.insert(lines.begin(), TraceIn(kGet, L"BIOS Settings Name = Some Setting"));
        lines.push_back(Ended(course.result));
        EXPECT_EQ(m_log.Lines(), lines);
        // A pause before each try and behind each that failed, and one behind each pass that did.
        std::vector<DWORD> pauses;
        for (const LogLine& line : course.lines) {
            if (line != value) {
                pauses.push_back(line.level == Level::kWarning                 ? 1000
                                 : line == none || line.level == Level::kError ? 3000
                                                                               : 500);
            }
        }
        EXPECT_EQ(m_clock.Sleeps(), pauses);
        EXPECT_EQ(m_bios.Count(Call::WbemLocatorCreate), 1);
        EXPECT_EQ(m_bios.Held().comReferences, 0);
    }
}

TEST_F(GetBIOSValue, OtherExceptionIsLoggedAndEverythingGivenBack) {
    m_bios.SetSetting(L"Some Setting", L"Enable");
    const Rig::ScopedWatch<&::CoUninitialize> leaves;
    m_bios.At(Call::WbemNext, 1, Throws(DWORD{ERROR_GEN_FAILURE}));
    EXPECT_EQ(Get(), E_FAIL);
    m_bios.At(Call::WbemConnectServer, 1, Throws(std::bad_alloc()));
    EXPECT_EQ(Get(), E_FAIL);

    EXPECT_THAT(m_log.At(Level::kError), ElementsAre(Error(kGet, L"Exception in GetBIOSValue()"),
                                                     Error(kGet, L"Exception in GetBIOSValue()")));
    EXPECT_EQ(m_log.Lines().back(), Ended(E_FAIL));
    EXPECT_EQ(leaves.Calls(), 2);
    EXPECT_EQ(m_bios.Held().comReferences, 0);
}

TEST_F(GetBIOSValue, NameWithAQuoteIsAskedForUnchanged) {
    EXPECT_EQ(Get(L"It's"), static_cast<HRESULT>(WBEM_E_INVALID_QUERY)) << "the quote ends the name early";

    EXPECT_THAT(m_bios.Calls(Call::WbemExecQuery),
                ElementsAre(testing::EndsWith("SELECT * FROM Orva_BIOSSetting where Name='It's'")));
}

// --- The two halves: what finds them disabled stands before what enables ----------------------------

/// One half of the feature.
struct Half {
    const char* name;
    bool (*read)();
    const std::atomic<bool>& isEnabled;
    std::wstring exitText;
};
const Half kLanWlan{"NLMUtils::IsLanWlanAutoSwitchingEnabled", &NLMUtils::IsLanWlanAutoSwitchingEnabled,
                    NLMUtils::lanWlanSwitchingEnabled, L"BIOS Setting LAN / WLAN Auto Switching: "};
const Half kLanWwan{"NLMUtils::IsLanWwanAutoSwitchingEnabled", &NLMUtils::IsLanWwanAutoSwitchingEnabled,
                    NLMUtils::lanWwanSwitchingEnabled, L"BIOS Setting LAN / WWAN Auto Switching: "};

/// Settings (a text that is null stands for a null value), and what becomes of reading them.
struct Finding {
    const char* situation;
    std::vector<std::pair<const wchar_t*, const wchar_t*>> settings;
    std::vector<std::wstring> namesAsked;
    std::vector<LogLine> lines;  ///< between the entry and the exit line
};

class AutoSwitching : public BiosSettings {
  protected:
    /// Each reading finds the half enabled, or none does.
    void ExpectOfEach(const Half& half, bool isEnabled, const std::vector<Finding>& findings) {
        for (const Finding& finding : findings) {
            SCOPED_TRACE(finding.situation);
            m_bios.RemoveSettings();
            m_log.Clear();
            for (const auto& [name, text] : finding.settings) {
                text != nullptr ? m_bios.SetSetting(name, text) : m_bios.SetSetting(name, Null());
            }

            EXPECT_EQ(half.read(), isEnabled);

            EXPECT_EQ(half.isEnabled, isEnabled);
            EXPECT_EQ(NamesAsked(), finding.namesAsked);
            std::vector<LogLine> lines{TraceIn(half.name)};
            lines.insert(lines.end(), finding.lines.begin(), finding.lines.end());
            lines.push_back(TraceOut(half.name, half.exitText + (isEnabled ? L"true" : L"false")));
            EXPECT_EQ(m_log.Of(half.name), lines);
        }
    }

    [[nodiscard]] std::vector<std::wstring> NamesAsked() const {
        static constexpr std::wstring_view kEntry = L"BIOS Settings Name = ";
        std::vector<std::wstring> names;
        for (const LogLine& line : m_log.Of(kGet)) {
            if (line.level == Level::kTraceIn) {
                names.push_back(line.message.substr(kEntry.size()));
            }
        }
        return names;
    }
};

const char* const kWlan = kLanWlan.name;
const char* const kWwan = kLanWwan.name;

TEST_F(AutoSwitching, WlanIsDisabledByAStarInFrontAndWithoutASetting) {
    ExpectOfEach(
        kLanWlan, false,
        {{"both names are absent",
          {},
          {kFirstWlanName, kSecondWlanName},
          {Error(kWlan, L"Error getting 'LAN/WLAN Switching' with HRESULT =  0x00000001 and Value = "),
           Information(kWlan, L"BIOS(LAN/WLAN) Read Value ")}},
         {"both values are null",
          {{kFirstWlanName, nullptr}, {kSecondWlanName, nullptr}},
          {kFirstWlanName, kSecondWlanName},
          {Error(kWlan, L"Error getting 'LAN/WLAN Switching' with HRESULT =  0x00000000 and Value = "),
           Information(kWlan, L"BIOS(LAN/WLAN) Read Value ")}},
         {"the first has a star",
          {{kFirstWlanName, L"*Disable"}, {kSecondWlanName, L"Enable"}},
          {kFirstWlanName},
          {Error(kWlan,
                 L"Error getting 'LAN / WLAN Auto Switching' with HRESULT =  0x00000000 and "
                 L"Value = *Disable"),
           Information(kWlan, L"BIOS(LAN/WLAN) Read Value *Disable")}},
         {"the second has a star",
          {{kSecondWlanName, L"*Enable"}},
          {kFirstWlanName, kSecondWlanName},
          {Information(kWlan, L"BIOS(LAN/WLAN) Read Value *Enable")}}});
}

TEST_F(AutoSwitching, WwanIsDisabledByAStarInFrontAndWithoutASetting) {
    ExpectOfEach(
        kLanWwan, false,
        {{"the name is absent",
          {},
          {kWwanName},
          {Error(kWwan, L"Error getting 'LAN / WWAN Auto Switching' with HRESULT =  0x00000001 and Value = "),
           Information(kWwan, L"BIOS(LAN/WAN) Read Value ")}},
         {"the value is null",
          {{kWwanName, nullptr}},
          {kWwanName},
          {Error(kWwan, L"Error getting 'LAN / WWAN Auto Switching' with HRESULT =  0x00000000 and Value = "),
           Information(kWwan, L"BIOS(LAN/WAN) Read Value ")}},
         {"it has a star",
          {{kWwanName, L"*"}},
          {kWwanName},
          {Information(kWwan, L"BIOS(LAN/WAN) Read Value *")}}});
}

TEST_F(AutoSwitching, MissingProviderMeansDisabledAfterTwoFullReads) {
    m_bios.Devices().providerPresent = 0;

    EXPECT_FALSE(NLMUtils::IsLanWlanAutoSwitchingEnabled());

    EXPECT_EQ(m_clock.Elapsed(), 28s);
    EXPECT_TRUE(m_log.Contains(
        Error(kWlan, L"Error getting 'LAN/WLAN Switching' with HRESULT =  0x80041071 and Value = ")));
}

TEST_F(AutoSwitching, ExceptionMeansDisabled) {
    for (const auto& [half, text] : {std::pair{&kLanWlan, L"Exception in IsLanWlanAutoSwitchingEnabled()"},
                                     std::pair{&kLanWwan, L"Exception in IsLanWwanAutoSwitchingEnabled()"}}) {
        m_log.Clear();
        // The entry line of the read, outside of the read's own handler.
        const Rig::ThrowFromLogLine throwing{2, std::logic_error("no more log")};

        EXPECT_FALSE(half->read());

        EXPECT_THAT(m_log.Lines(), ElementsAre(TraceIn(half->name), Error(half->name, text),
                                               TraceOut(half->name, half->exitText + L"false")));
    }
}

TEST_F(AutoSwitching, WlanIsEnabledByTheSecondNameWhenTheFirstGivesNothing) {
    const std::vector<LogLine> lines{Information(kWlan, L"Inside LAN/WLAN Switching section:feature enabled"),
                                     Information(kWlan, L"BIOS(LAN/WLAN) Read Value Enable")};
    ExpectOfEach(
        kLanWlan, true,
        {{"the first is absent", {{kSecondWlanName, L"Enable"}}, {kFirstWlanName, kSecondWlanName}, lines},
         {"the first is empty",
          {{kFirstWlanName, L""}, {kSecondWlanName, L"Enable"}},
          {kFirstWlanName, kSecondWlanName},
          lines}});
    EXPECT_FALSE(NLMUtils::lanWwanSwitchingEnabled);
}

TEST_F(AutoSwitching, EveryTextWithoutAStarInFrontEnables) {
    for (const std::wstring text : {L"Enable", L"Disable", L"0", L" ", L"Enable*", L"x*"}) {
        ExpectOfEach(kLanWlan, true,
                     {{"first name of WLAN",
                       {{kFirstWlanName, text.c_str()}, {kSecondWlanName, L"*"}},
                       {kFirstWlanName},
                       {Information(kWlan, L"Inside LAN / WLAN Auto Switching section :feature enabled"),
                        Information(kWlan, L"BIOS(LAN/WLAN) Read Value " + text)}}});
        ExpectOfEach(kLanWwan, true,
                     {{"WWAN",
                       {{kWwanName, text.c_str()}},
                       {kWwanName},
                       {Information(kWwan, L"Inside LAN / WWAN Auto Switching section :feature enabled"),
                        Information(kWwan, L"BIOS(LAN/WAN) Read Value " + text)}}});
    }
}

TEST_F(AutoSwitching, OnceEnabledAHalfStaysSoWhenTheSettingIsDisabledOrGone) {
    for (const auto& [half, name] : {std::pair{&kLanWlan, kFirstWlanName}, std::pair{&kLanWwan, kWwanName}}) {
        m_bios.SetSetting(name, L"Enable");
        EXPECT_TRUE(half->read());

        m_bios.SetSetting(name, L"*Enable");
        EXPECT_TRUE(half->read());
        m_bios.RemoveSettings();
        EXPECT_TRUE(half->read());

        EXPECT_TRUE(half->isEnabled);
        EXPECT_EQ(m_log.Lines().back(), TraceOut(half->name, half->exitText + L"true"));
    }
}

}  // namespace
}  // namespace BiosTests
