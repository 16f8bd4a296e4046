#pragma once

/// The words of the BIOS vendor's WMI provider, and the settings that this service asks it for.
/// Reading a setting needs `kSettingClass`, `kNameProperty` and `kValueProperty` only; the others
/// complete the provider's vocabulary, so that each of its words is spelled in one place.
namespace BiosVocabulary {

constexpr wchar_t kNamespace[] = L"\\\\.\\root\\Orva\\FirmwareSettings";

// Classes
constexpr wchar_t kSettingClass[] = L"Orva_BIOSSetting";
constexpr wchar_t kEnumerationClass[] = L"Orva_BIOSEnumeration";
constexpr wchar_t kPasswordClass[] = L"Orva_BIOSPassword";
constexpr wchar_t kStringClass[] = L"Orva_BIOSString";
constexpr wchar_t kIntegerClass[] = L"Orva_BIOSInteger";
constexpr wchar_t kOrderedListClass[] = L"Orva_BIOSOrderedList";
constexpr wchar_t kOrderedListWithStateClass[] = L"Orva_BIOSOrderedListWithState";
constexpr wchar_t kValidatedStringClass[] = L"Orva_BIOSValidatedString";
constexpr wchar_t kSettingInterfaceClass[] = L"Orva_BIOSSettingInterface";
constexpr wchar_t kUserClass[] = L"Orva_BIOSUser";
constexpr wchar_t kUserInterfaceClass[] = L"Orva_BIOSUserInterface";

// Methods
constexpr wchar_t kSetBiosSettingMethod[] = L"SetBIOSSetting";
constexpr wchar_t kSetSystemDefaultsMethod[] = L"SetSystemDefaults";
constexpr wchar_t kManageBiosUsersMethod[] = L"ManageBIOSUsers";
constexpr wchar_t kSetPolicyDefaultsMethod[] = L"SetPolicyDefaults";

// Properties
constexpr wchar_t kSuperclassProperty[] = L"__SUPERCLASS";
constexpr wchar_t kNameProperty[] = L"Name";
constexpr wchar_t kValueProperty[] = L"Value";
constexpr wchar_t kCurrentValueProperty[] = L"CurrentValue";
constexpr wchar_t kDisplayInUiProperty[] = L"DisplayInUI";
constexpr wchar_t kIsReadOnlyProperty[] = L"IsReadOnly";
constexpr wchar_t kSequenceProperty[] = L"Sequence";
constexpr wchar_t kPathProperty[] = L"Path";
constexpr wchar_t kIsSetProperty[] = L"IsSet";
constexpr wchar_t kPasswordSetFromProperty[] = L"PwdSetFrom";
constexpr wchar_t kMaxLengthProperty[] = L"MaxLength";
constexpr wchar_t kMinLengthProperty[] = L"MinLength";
constexpr wchar_t kSupportedEncodingProperty[] = L"SupportedEncoding";
constexpr wchar_t kLowerBoundProperty[] = L"LowerBound";
constexpr wchar_t kUpperBoundProperty[] = L"UpperBound";
constexpr wchar_t kSizeProperty[] = L"Size";
constexpr wchar_t kElementsProperty[] = L"Elements";
constexpr wchar_t kElementStateProperty[] = L"ElementState";
constexpr wchar_t kPossibleStatesProperty[] = L"PossibleStates";
constexpr wchar_t kPossibleValuesProperty[] = L"PossibleValues";
constexpr wchar_t kValidationExpressionProperty[] = L"ValidationExpression";
constexpr wchar_t kHintTextProperty[] = L"HintText";
constexpr wchar_t kPasswordProperty[] = L"Password";
constexpr wchar_t kReturnProperty[] = L"Return";
constexpr wchar_t kRoleProperty[] = L"Role";
constexpr wchar_t kUserNameProperty[] = L"UserName";
constexpr wchar_t kCommandProperty[] = L"Command";
constexpr wchar_t kKeyboardLayoutProperty[] = L"KeyboardLayout";
constexpr wchar_t kCurrentPasswordProperty[] = L"CurrentPassword";
constexpr wchar_t kNewPasswordProperty[] = L"NewPassword";

// Encodings of passwords
constexpr wchar_t kUtf16Encoding[] = L"utf-16";
constexpr wchar_t kKeyboardEncoding[] = L"kbd";

// Settings
constexpr wchar_t kSetupPasswordSetting[] = L"Setup Password";
constexpr wchar_t kLanWlanAutoSwitchingSetting[] = L"LAN / WLAN Auto Switching";
/// What some machines call the setting above.
constexpr wchar_t kLanWlanSwitchingSetting[] = L"LAN/WLAN Switching";
constexpr wchar_t kLanWwanAutoSwitchingSetting[] = L"LAN / WWAN Auto Switching";

}  // namespace BiosVocabulary
