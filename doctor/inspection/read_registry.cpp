#include <windows.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <cwctype>
#include <string_view>

#include "doctor/inspection/readers.h"
#include "doctor/inspection/text.h"
#include "logging/level.h"
#include "logging/listener.h"
#include "logging/policy.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"
#include "registry/registry.h"
#include "service/service_names.h"

namespace Inspection {
namespace {

namespace ListenerType = Orva::Shared::ListenerType;
namespace Level = Orva::Shared::Level;
using Orva::Shared::PolicyKeys;

constexpr std::size_t kTextLimitBytes = 2048;  // of Registry::GetValue
constexpr std::size_t kLevelLimitBytes = 256;
constexpr std::size_t kLoggingTypeLimitBytes = 128;

bool IsText(const RawValue& value) {
    return value.type == REG_SZ || value.type == REG_EXPAND_SZ;
}

bool IsTerminated(const RawValue& value) {
    return value.data.empty() ||
           (value.data.size() % sizeof(wchar_t) == 0 && value.data.back() == 0 && value.data.end()[-2] == 0);
}

std::wstring Upper(std::wstring text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](wchar_t letter) { return static_cast<wchar_t>(std::towupper(letter)); });
    return text;
}

// --- Policies

enum class PolicyKind { kLevel, kNumber, kOutputs };
struct KnownPolicy {
    const wchar_t* name;
    PolicyKind kind;
};
constexpr std::array kKnownPolicies{
    KnownPolicy{L"LoggingType", PolicyKind::kOutputs}, KnownPolicy{L"MinLogLevel", PolicyKind::kLevel},
    KnownPolicy{L"MaxLogLevel", PolicyKind::kLevel},   KnownPolicy{L"MaxLogSize", PolicyKind::kNumber},
    KnownPolicy{L"QueuedWrites", PolicyKind::kNumber},
};

/// How many letters have to be changed, put in or left out.
std::size_t Distance(const std::wstring& a, const std::wstring& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row.back();
}

std::string NameMeant(const std::wstring& name) {
    constexpr std::size_t kMostSlips = 3;
    constexpr std::size_t kLongestName = 64;
    if (name.size() > kLongestName) {
        return {};
    }
    for (const KnownPolicy& known : kKnownPolicies) {
        if (Distance(Upper(name), Upper(known.name)) <= kMostSlips) {
            return Utf8(known.name);
        }
    }
    return {};
}

std::string LevelOddity(const RawValue& value) {
    if (value.type != REG_SZ) {
        return "wrong-type";
    }
    if (value.data.size() > kLevelLimitBytes) {
        return "too-long";
    }
    const std::wstring text = TextOf(value);
    const bool isKnown =
        text.empty() || Orva::Shared::LevelFromName(text.c_str()) != Level::kNever || Upper(text) == L"NEVER";
    return isKnown ? "none" : "unknown-word";
}

/// Whether letters remain when the known words are taken out.
bool HasOtherWords(std::wstring text) {
    for (const std::wstring_view word : {L"EVENT", L"FILE", L"CONSOLE", L"DEBUG"}) {
        for (std::size_t at = text.find(word); at != std::wstring::npos; at = text.find(word)) {
            text.replace(at, word.size(), L" ");
        }
    }
    return std::any_of(text.begin(), text.end(), [](wchar_t letter) { return std::iswalpha(letter) != 0; });
}

std::string OutputsOddity(const RawValue& value, bool isOfExecutable) {
    if (!IsText(value)) {
        return "wrong-type";
    }
    if (value.data.size() > kLoggingTypeLimitBytes) {
        return "too-long";
    }
    const std::wstring text = Upper(TextOf(value));
    if (text.empty()) {
        return isOfExecutable ? "empty" : "none";
    }
    return HasOtherWords(text) ? "unknown-word" : "none";
}

std::string NumberOddity(const RawValue& value, bool zeroCounts) {
    if (value.type != REG_DWORD || value.data.size() != sizeof(DWORD)) {
        return value.data.size() > sizeof(DWORD) ? "too-long" : "wrong-type";
    }
    DWORD number = 0;
    std::memcpy(&number, value.data.data(), sizeof(number));
    return number == 0 && !zeroCounts ? "zero" : "none";
}

void AddPolicies(const Platform::UniqueRegistryKey& key, bool isOfExecutable, LogPolicies& policies) {
    if (!key) {
        return;
    }
    for (const RawValue& value : ReadValues(key.Get())) {
        policies.policies.push_back(JudgePolicy(value, isOfExecutable));
    }
}

/// As the logger chooses its outputs.
std::vector<std::string> OutputNames(int selection) {
    std::vector<std::string> names;
    for (const auto& [bit, name] :
         {std::pair{ListenerType::kEvent, "event"},
          std::pair{ListenerType::kFile | ListenerType::kQueuedFile, "file"},
          std::pair{ListenerType::kDebug, "debug"}, std::pair{ListenerType::kConsole, "console"}}) {
        if ((selection & bit) != 0) {
            names.emplace_back(name);
        }
    }
    return names;
}

}  // namespace

AirplaneMode ReadAirplaneMode() {
    AirplaneMode airplane;
    Platform::UniqueRegistryKey key;
    RawValue value;
    LSTATUS error = OpenForReading(HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey, key);
    if (error == ERROR_SUCCESS) {
        error = ReadValue(key.Get(), nullptr, value);
    }
    airplane.error = static_cast<ErrorCode>(error);
    if (error == ERROR_SUCCESS) {
        airplane.value = Describe(value);
        airplane.isNumber = value.type == REG_DWORD && value.data.size() == sizeof(DWORD);
        airplane.isOn = ServiceUtils::CheckAirplaneMode();
    }
    return airplane;
}

std::string RememberedOddity(const RawValue& value) {
    if (!IsText(value)) {
        return "wrong-type";
    }
    if (value.data.size() > kTextLimitBytes) {
        return "too-long";
    }
    if (!IsTerminated(value)) {
        return "not-terminated";
    }
    const std::wstring text = TextOf(value);
    return text.empty() || text == PowerStatus::kOn || text == PowerStatus::kOff ? "none" : "other-text";
}

Remembered ReadRemembered(const wchar_t* keyPath) {
    Remembered remembered;
    Platform::UniqueRegistryKey key;
    RawValue value;
    LSTATUS error = OpenForReading(HKEY_LOCAL_MACHINE, keyPath, key);
    if (error == ERROR_SUCCESS) {
        error = ReadValue(key.Get(), PowerStatus::kValueName, value);
    }
    remembered.error = static_cast<ErrorCode>(error);
    if (error == ERROR_SUCCESS) {
        remembered.value = Describe(value);
        remembered.oddity = RememberedOddity(value);
    }
    remembered.readAs = ServiceUtils::RememberedPowerStatus(keyPath) == PowerStatus::kOn ? "on" : "off";
    return remembered;
}

Policy JudgePolicy(const RawValue& value, bool isOfExecutable) {
    Policy policy{isOfExecutable, Describe(value), "unknown-name", {}};
    const std::wstring name = Upper(value.name);
    const auto known = std::find_if(kKnownPolicies.begin(), kKnownPolicies.end(),
                                    [&name](const KnownPolicy& each) { return Upper(each.name) == name; });
    if (known == kKnownPolicies.end()) {
        policy.meantName = NameMeant(value.name);
    } else if (known->kind == PolicyKind::kLevel) {
        policy.oddity = LevelOddity(value);
    } else if (known->kind == PolicyKind::kOutputs) {
        policy.oddity = OutputsOddity(value, isOfExecutable);
    } else {
        policy.oddity = NumberOddity(value, name == L"QUEUEDWRITES");
    }
    return policy;
}

LogPolicies ReadLogPolicies() {
    LogPolicies policies;
    PolicyKeys keys;
    policies.error = static_cast<ErrorCode>(OpenForReading(HKEY_LOCAL_MACHINE, kPolicyKey, keys.product));
    if (keys.product) {
        static_cast<void>(OpenForReading(keys.product.Get(), ServiceNames::kService, keys.executable));
    }
    AddPolicies(keys.executable, true, policies);
    AddPolicies(keys.product, false, policies);
    const Orva::Shared::LevelRange levels = Orva::Shared::ReadLogLevels(keys);
    policies.minLevel = levels.minLevel;
    policies.maxLevel = levels.maxLevel;
    policies.maxSizeKilobytes = Orva::Shared::ReadMaxLogSize(keys);
    const int selection = Orva::Shared::ReadOutputSelection(keys);
    policies.isQueued = Orva::Shared::ReadQueuedWrites(keys, (selection & ListenerType::kQueuedFile) != 0);
    policies.outputs = OutputNames(selection);
    return policies;
}

}  // namespace Inspection
