#include "bios/bios_vocabulary.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string_view>

namespace BiosTests {
namespace {

using namespace BiosVocabulary;

/// A word as the service has it and as the provider knows it.
struct Word {
    std::wstring_view ours;
    std::wstring_view providers;
};

void PrintTo(const Word& word, std::ostream* out) {
    for (const wchar_t character : word.providers) {
        *out << static_cast<char>(character);
    }
}

class BiosVocabularyOf : public testing::TestWithParam<Word> {};

TEST_P(BiosVocabularyOf, IsSpelledAsTheProviderDoes) {
    EXPECT_EQ(GetParam().ours, GetParam().providers);
}

INSTANTIATE_TEST_SUITE_P(Classes, BiosVocabularyOf,
                         testing::Values(Word{kSettingClass, L"Orva_BIOSSetting"},
                                         Word{kEnumerationClass, L"Orva_BIOSEnumeration"},
                                         Word{kPasswordClass, L"Orva_BIOSPassword"},
                                         Word{kStringClass, L"Orva_BIOSString"},
                                         Word{kIntegerClass, L"Orva_BIOSInteger"},
                                         Word{kOrderedListClass, L"Orva_BIOSOrderedList"},
                                         Word{kOrderedListWithStateClass, L"Orva_BIOSOrderedListWithState"},
                                         Word{kValidatedStringClass, L"Orva_BIOSValidatedString"},
                                         Word{kSettingInterfaceClass, L"Orva_BIOSSettingInterface"},
                                         Word{kUserClass, L"Orva_BIOSUser"},
                                         Word{kUserInterfaceClass, L"Orva_BIOSUserInterface"}));

INSTANTIATE_TEST_SUITE_P(Methods, BiosVocabularyOf,
                         testing::Values(Word{kSetBiosSettingMethod, L"SetBIOSSetting"},
                                         Word{kSetSystemDefaultsMethod, L"SetSystemDefaults"},
                                         Word{kManageBiosUsersMethod, L"ManageBIOSUsers"},
                                         Word{kSetPolicyDefaultsMethod, L"SetPolicyDefaults"}));

INSTANTIATE_TEST_SUITE_P(
    Properties, BiosVocabularyOf,
    testing::Values(
        Word{kSuperclassProperty, L"__SUPERCLASS"}, Word{kNameProperty, L"Name"},
        Word{kValueProperty, L"Value"}, Word{kCurrentValueProperty, L"CurrentValue"},
        Word{kDisplayInUiProperty, L"DisplayInUI"}, Word{kIsReadOnlyProperty, L"IsReadOnly"},
        Word{kSequenceProperty, L"Sequence"}, Word{kPathProperty, L"Path"}, Word{kIsSetProperty, L"IsSet"},
        Word{kPasswordSetFromProperty, L"PwdSetFrom"}, Word{kMaxLengthProperty, L"MaxLength"},
        Word{kMinLengthProperty, L"MinLength"}, Word{kSupportedEncodingProperty, L"SupportedEncoding"},
        Word{kLowerBoundProperty, L"LowerBound"}, Word{kUpperBoundProperty, L"UpperBound"},
        Word{kSizeProperty, L"Size"}, Word{kElementsProperty, L"Elements"},
        Word{kElementStateProperty, L"ElementState"}, Word{kPossibleStatesProperty, L"PossibleStates"},
        Word{kPossibleValuesProperty, L"PossibleValues"},
        Word{kValidationExpressionProperty, L"ValidationExpression"}, Word{kHintTextProperty, L"HintText"},
        Word{kPasswordProperty, L"Password"}, Word{kReturnProperty, L"Return"}, Word{kRoleProperty, L"Role"},
        Word{kUserNameProperty, L"UserName"}, Word{kCommandProperty, L"Command"},
        Word{kKeyboardLayoutProperty, L"KeyboardLayout"}, Word{kCurrentPasswordProperty, L"CurrentPassword"},
        Word{kNewPasswordProperty, L"NewPassword"}));

INSTANTIATE_TEST_SUITE_P(Encodings, BiosVocabularyOf,
                         testing::Values(Word{kUtf16Encoding, L"utf-16"}, Word{kKeyboardEncoding, L"kbd"}));

INSTANTIATE_TEST_SUITE_P(Settings, BiosVocabularyOf,
                         testing::Values(Word{kSetupPasswordSetting, L"Setup Password"},
                                         Word{kLanWlanAutoSwitchingSetting, L"LAN / WLAN Auto Switching"},
                                         Word{kLanWlanSwitchingSetting, L"LAN/WLAN Switching"},
                                         Word{kLanWwanAutoSwitchingSetting, L"LAN / WWAN Auto Switching"}));

INSTANTIATE_TEST_SUITE_P(Namespace, BiosVocabularyOf,
                         testing::Values(Word{kNamespace, LR"(\\.\root\Orva\FirmwareSettings)"}));

}  // namespace
}  // namespace BiosTests
