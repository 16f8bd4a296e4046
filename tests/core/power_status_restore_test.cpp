#include "core/power_status_restore.h"

#include <optional>
#include <ostream>
#include <tuple>

#include "tests/core/core_test.h"

namespace CoreTests {
namespace {

/// One of the two restores, with the other's radio beside it.
struct Restore {
    const char* name;
    const char* function;
    void (*run)();
    const wchar_t* subkey;
    const wchar_t* radio;
    const char* switchFunction;
};

constexpr Restore kWlan{
    "Wlan",  "CMainService::UpdateWlanPowerStatus", &UpdateWlanPowerStatus, L"WlanPowerStatus",
    L"WLAN", "ServiceUtils::SwitchWlanStatus"};
constexpr Restore kWwan{
    "Wwan",  "CMainService::UpdateWwanPowerStatus", &UpdateWwanPowerStatus, L"WwanPowerStatus",
    L"WWAN", "ServiceUtils::SwitchWwanStatus"};

void PrintTo(const Restore& restore, std::ostream* out) {
    *out << restore.name;
}

class AnyRestore : public CoreTest {
  protected:
    AnyRestore() { MakeModemKnown(); }
    ~AnyRestore() override { ExpectNoSwitchIsRepeated(); }

    void Remember(const Restore& restore, const RegistryValue& value) const {
        machine.store.Write(restore.subkey, PowerStatus::kValueName, value);
    }
    [[nodiscard]] std::optional<RegistryValue> Remembered(const Restore& restore) const {
        return machine.store.Read(restore.subkey, PowerStatus::kValueName);
    }
    [[nodiscard]] Switches SwitchesOf(const Restore& restore) const {
        return restore.run == kWlan.run ? WlanSwitches() : WwanSwitches();
    }
    /// One switch of the radio that is asked for, none of the other one.
    void ExpectSwitched(const Restore& restore, const std::string& to) const {
        EXPECT_THAT(SwitchesOf(restore), ElementsAre(to));
        EXPECT_THAT(SwitchesOf(restore.run == kWlan.run ? kWwan : kWlan), IsEmpty());
    }
};

/// A remembered text (null: there is none) and what it means.
struct Remembered {
    const wchar_t* text;
    bool meansOn;
};

class RestoreOfText : public AnyRestore,
                      public testing::WithParamInterface<std::tuple<Restore, Remembered>> {};

TEST_P(RestoreOfText, SwitchesTheRadioToItAndStoresNothing) {
    const auto& [restore, remembered] = GetParam();
    SetRadios(!remembered.meansOn);
    std::optional<RegistryValue> stored;
    if (remembered.text != nullptr) {
        stored = RegistryText(remembered.text);
        Remember(restore, *stored);
    }
    restore.run();

    const std::wstring radio = restore.radio;
    std::vector<LogLine> expected{TraceIn(restore.function)};
    if (remembered.text == nullptr || *remembered.text == L'\0') {
        expected.push_back(Information(
            restore.function, L"Registry read is empty : " + radio + L". Setting Default Value as TRUE"));
    }
    const std::wstring state = remembered.meansOn ? L"1" : L"0";
    expected.push_back(
        Information(restore.function, L"Registry read is " + state + L", " + radio + L" Switch = " + state));
    expected.push_back(TraceOut(restore.function));
    EXPECT_EQ(log.Of(restore.function), expected);
    ExpectSwitched(restore, remembered.meansOn ? "on" : "off");
    ExpectSwitchCall(restore.switchFunction, remembered.meansOn, true);
    EXPECT_EQ(Remembered(restore), stored);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, RestoreOfText,
    testing::Combine(testing::Values(kWlan, kWwan),
                     testing::Values(Remembered{nullptr, true}, Remembered{L"", true},
                                     Remembered{L"True", true}, Remembered{L"False", false},
                                     Remembered{L"true", false}, Remembered{L"TRUE", false},
                                     Remembered{L" True", false}, Remembered{L"True ", false},
                                     Remembered{L"1", false}, Remembered{L"Tru", false},
                                     Remembered{L"?", false})));

TEST_F(AnyRestore, RefusedSwitchIsNotTriedAgain) {
    for (const Restore& restore : {kWlan, kWwan}) {
        Remember(restore, RegistryText(L"False"));
        MakeRadiosStubborn();
        restore.run();
        EXPECT_THAT(LinesOf(restore.function), SizeIs(1));
        ExpectSwitchCall(restore.switchFunction, false, true);
    }
}

}  // namespace
}  // namespace CoreTests
