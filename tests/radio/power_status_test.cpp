#include "radio/power_status.h"

#include <utility>
#include <vector>

#include "radio/airplane_mode.h"
#include "tests/radio/machine.h"
#include "tests/support/throw_from_log_line.h"

namespace RadioTests {
namespace {

using Rig::ThrowFromLogLine;

constexpr char kSet[] = "ServiceUtils::SetPowerStatusInRegistry";
constexpr char kSetWlan[] = "ServiceUtils::SetWlanPowerStatusInRegistry";
constexpr char kSetWwan[] = "ServiceUtils::SetWwanPowerStatusInRegistry";
constexpr char kAirplane[] = "ServiceUtils::CheckAirplaneMode";

using PowerStatusTest = RadioTest;

TEST_F(PowerStatusTest, OnlyExactlyOneIsWrittenAsTrue) {
    const auto trueText = RegistryBytes(REG_SZ, {'T', 0, 'r', 0, 'u', 0, 'e', 0, 0, 0});
    const auto falseText = RegistryBytes(REG_SZ, {'F', 0, 'a', 0, 'l', 0, 's', 0, 'e', 0, 0, 0});
    for (const RadioStatus status : {kRadioOn, kRadioOff, RadioStatus{2}, RadioStatus{255}}) {
        // In place of what was there, of whatever type.
        m_machine.store.Write(L"WlanPowerStatus", L"PowerOnOff", RegistryNumber(1));
        EXPECT_EQ(SetWlanPowerStatusInRegistry(status), DWORD{ERROR_SUCCESS});
        EXPECT_EQ(SetWwanPowerStatusInRegistry(status), DWORD{ERROR_SUCCESS});
        for (const wchar_t* key : {L"WlanPowerStatus", L"WwanPowerStatus"}) {
            EXPECT_EQ(m_machine.store.Read(key, L"PowerOnOff"), status == 1 ? trueText : falseText);
        }
    }
}

TEST_F(PowerStatusTest, EachRadioHasAKeyOfItsOwn) {
    SetWlanPowerStatusInRegistry(kRadioOn);
    EXPECT_FALSE(m_machine.store.Exists(L"WwanPowerStatus"));
    m_machine.store.Delete();
    SetWwanPowerStatusInRegistry(kRadioOn);
    EXPECT_FALSE(m_machine.store.Exists(L"WlanPowerStatus"));
}

TEST_F(PowerStatusTest, LinesOfAWrite) {
    SetWlanPowerStatusInRegistry(kRadioOn);
    SetWwanPowerStatusInRegistry(2);
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(
            TraceIn(kSetWlan, L"WLAN status to write = 1"),
            Information(kSetWlan, L"SetWlanPowerStatusInRegistry. Value = True"),
            TraceIn(kSet, L"Setting = SOFTWARE\\Orva\\Orva Brimlet Support\\WlanPowerStatus,  Status = 1"),
            Information(kSet, L"Writing Power Status in registry. Value = True"),
            TraceOut(kSet, L"Return Status = 0"), TraceOut(kSetWlan, L"Return Status = 0"),
            TraceIn(kSetWwan, L"WWAN status to write = 2"),
            Information(kSetWwan, L"SetWwanPowerStatusInRegistry. Value = False"),
            TraceIn(kSet, L"Setting = SOFTWARE\\Orva\\Orva Brimlet Support\\WwanPowerStatus,  Status = 2"),
            Information(kSet, L"Writing Power Status in registry. Value = False"),
            TraceOut(kSet, L"Return Status = 0"), TraceOut(kSetWwan, L"Return Status = 0")));
}

TEST_F(PowerStatusTest, FailedWriteReturnsItsErrorAndLogsTheThreadsOne) {
    m_machine.RememberWlan(L"False");
    m_machine.RememberWwan(L"False");
    const ScopedResult<&::RegSetValueExW> fails{ERROR_DISK_FULL, ERROR_CRC};
    EXPECT_EQ(SetWlanPowerStatusInRegistry(kRadioOn), DWORD{ERROR_DISK_FULL});
    EXPECT_EQ(SetWwanPowerStatusInRegistry(kRadioOn), DWORD{ERROR_DISK_FULL});
    EXPECT_EQ(fails.Calls(), 2) << "nothing is retried";
    EXPECT_EQ(m_machine.RememberedWlan(), L"False") << "what was there stays";
    EXPECT_EQ(m_machine.RememberedWwan(), L"False");
    const auto error = Error(kSet, L"Registry::SetValue failed with error 23");
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(error, error));
    for (const char* function : {kSet, kSetWlan, kSetWwan}) {
        EXPECT_EQ(m_machine.log.Of(function).back(), TraceOut(function, L"Return Status = 112"));
    }
}

TEST_F(PowerStatusTest, ExceptionInTheWwanWriterCannotBeToldFromSuccess) {
    const ThrowFromLogLine second{2, DWORD{ERROR_CRC}};
    EXPECT_EQ(SetWwanPowerStatusInRegistry(kRadioOn), DWORD{ERROR_SUCCESS});
    EXPECT_TRUE(m_machine.RememberedWwan().empty());
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kSetWwan, L"WWAN status to write = 1"),
                            Error(kSetWwan, L"Exception in SetWwanPowerStatusInRegistry() "),
                            TraceOut(kSetWwan, L"Return Status = 0")));
}

TEST_F(PowerStatusTest, ExceptionInTheWriteTravelsAsMinusOneThroughBothWriters) {
    const ScopedImport<&::RegSetValueExW> fake{
        [](HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) -> LSTATUS { throw DWORD{ERROR_CRC}; }};
    EXPECT_EQ(SetWlanPowerStatusInRegistry(kRadioOn), DWORD{0xFFFFFFFF});
    EXPECT_EQ(SetWwanPowerStatusInRegistry(kRadioOn), DWORD{0xFFFFFFFF});
}

TEST_F(PowerStatusTest, ReadingNeverMakesTheKey) {
    EXPECT_EQ(RememberedPowerStatus(PowerStatus::kWlanKey), L"True");
    EXPECT_FALSE(m_machine.store.Exists());
}

TEST_F(PowerStatusTest, ValueThatIsNoTextCountsAsOn) {
    for (const RegistryValue& value :
         {RegistryText(L""), RegistryNumber(0), RegistryBytes(REG_BINARY, {'F', 0, 0, 0}),
          RegistryBytes(REG_SZ, {}), RegistryBytes(REG_SZ, {'F', 0}), RegistryBytes(REG_SZ, {'F', 0, 0}),
          RegistryBytes(REG_MULTI_SZ, {'F', 0, 0, 0, 0, 0}), RegistryText(std::wstring(1024, L'F'))}) {
        m_machine.store.Write(L"WwanPowerStatus", L"PowerOnOff", value);
        EXPECT_EQ(RememberedPowerStatus(PowerStatus::kWwanKey), L"True") << testing::PrintToString(value);
    }
}

TEST_F(PowerStatusTest, ExpandableTextIsTakenAsItStands) {
    m_machine.store.Write(L"WwanPowerStatus", L"PowerOnOff", RegistryBytes(REG_EXPAND_SZ, {'F', 0, 0, 0}));
    EXPECT_EQ(RememberedPowerStatus(PowerStatus::kWwanKey), L"F");
}

TEST_F(PowerStatusTest, AirplaneModeIsOnForANumberOneOfWhateverType) {
    const std::pair<RegistryValue, bool> values[] = {{RegistryNumber(1), true},
                                                     {RegistryNumber(0), false},
                                                     {RegistryNumber(2), false},
                                                     {RegistryNumber(0xFFFFFFFF), false},
                                                     {RegistryNumber(0x01000000), false},
                                                     {RegistryBytes(REG_BINARY, {1, 0, 0, 0}), true},
                                                     {RegistryBytes(REG_BINARY, {1}), true},
                                                     {RegistryBytes(REG_BINARY, {2}), false},
                                                     {RegistryBytes(REG_NONE, {}), false},
                                                     {RegistryText(L""), false},
                                                     {RegistryText(L"1"), false},
                                                     {RegistryBytes(REG_SZ, {1, 0}), true},
                                                     {RegistryBytes(12345, {1, 0, 0, 0}), true}};
    for (const auto& [value, isOn] : values) {
        SCOPED_TRACE(testing::PrintToString(value));
        m_machine.airplane.Write({}, {}, value);
        m_machine.log.Clear();
        EXPECT_EQ(CheckAirplaneMode(), isOn);
        EXPECT_THAT(m_machine.log.Lines(),
                    ElementsAre(TraceIn(kAirplane), TraceOut(kAirplane, isOn ? L"Airplane Mode Status: 1 "
                                                                             : L"Airplane Mode Status: 0 ")));
    }
}

TEST_F(PowerStatusTest, AirplaneModeThatCannotBeReadIsOff) {
    const auto expectOffAfter = [this](const wchar_t* error) {
        m_machine.log.Clear();
        EXPECT_FALSE(CheckAirplaneMode());
        EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(kAirplane), Error(kAirplane, error),
                                                       TraceOut(kAirplane, L"Airplane Mode Status: 0 ")));
    };
    // Of more than four bytes.
    m_machine.airplane.Write({}, {}, RegistryBytes(REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0}));
    expectOffAfter(L"RegQueryValueEx (BrimletAirplaneModeRegistry) failed with error: 234");
    m_machine.airplane.DeleteValue({}, {});
    expectOffAfter(L"RegQueryValueEx (BrimletAirplaneModeRegistry) failed with error: 2");
    m_machine.airplane.Delete();
    expectOffAfter(L"RegOpenKeyEx (BrimletAirplaneModeRegistry) failed with error: 2");
    EXPECT_FALSE(m_machine.airplane.Exists()) << "asking makes no key";
}

TEST_F(PowerStatusTest, AirplaneKeyIsOpenedToReadAndClosed) {
    const ScopedWatch<&::RegOpenKeyExW> opens;
    const ScopedWatch<&::RegCloseKey> closes;
    static_cast<void>(CheckAirplaneMode());
    EXPECT_THAT(opens.Arguments(), ElementsAre(FieldsAre(HKEY_LOCAL_MACHINE, _, 0U, REGSAM{KEY_READ}, _)));
    EXPECT_EQ(closes.Calls(), 1);
}

TEST_F(PowerStatusTest, FailedCloseOfTheAirplaneKeyKeepsTheAnswerAndIsNotRepeated) {
    m_machine.SetAirplaneMode(true);
    const ScopedImport<&::RegCloseKey> fails{Rig::kWrapping, [](const auto& original, HKEY key) -> LSTATUS {
                                                 original.Original(key);
                                                 return ERROR_INVALID_HANDLE;
                                             }};
    EXPECT_TRUE(CheckAirplaneMode());
    EXPECT_EQ(fails.Calls(), 1) << "by then the value may be another thread's key";
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(TraceIn(kAirplane),
                    Error(kAirplane, L"RegCloseKey (BrimletAirplaneModeRegistry) failed with error: 6"),
                    TraceOut(kAirplane, L"Airplane Mode Status: 1 ")));
}

TEST_F(PowerStatusTest, ExceptionIsAirplaneModeOffAndClosesTheKey) {
    m_machine.SetAirplaneMode(true);
    const ScopedImport<&::RegQueryValueExW> throws{
        [](HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD) -> LSTATUS { throw DWORD{ERROR_CRC}; }};
    const ScopedWatch<&::RegCloseKey> closes;
    EXPECT_FALSE(CheckAirplaneMode());
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kAirplane, L"Exception in CheckAirplaneMode()")));
    EXPECT_EQ(m_machine.log.Lines().back(), TraceOut(kAirplane, L"Airplane Mode Status: 0 "));
    EXPECT_EQ(closes.Calls(), 1);
}

}  // namespace
}  // namespace RadioTests
