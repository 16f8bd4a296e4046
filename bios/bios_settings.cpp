#include "bios/bios_settings.h"

#include <chrono>
#include <optional>

#include "bios/bios_vocabulary.h"
#include "bios/bios_wmi_client.h"
#include "logging/log_scope.h"
#include "platform/pause.h"

std::atomic<bool> NLMUtils::lanWlanSwitchingEnabled{false};
std::atomic<bool> NLMUtils::lanWwanSwitchingEnabled{false};

namespace {

/// The settings' results: 1 once read as enabled, never reset.
constexpr int kNotYetEnabled = -1;
constexpr int kEnabled = 1;
std::atomic<int> lanWlanSettingResult{kNotYetEnabled};
std::atomic<int> lanWwanSettingResult{kNotYetEnabled};

/// A provider that needs too long is asked this often; a failed read is begun anew this often.
constexpr int kMostTries = 6;
constexpr int kMostPasses = 4;
constexpr std::chrono::milliseconds kPauseBeforeTry{500};
constexpr std::chrono::milliseconds kPauseAfterFailedTry{1000};
constexpr std::chrono::milliseconds kPauseAfterFailedPass{3000};

/// What a disabled setting's text begins with.
constexpr wchar_t kDisabledMark = L'*';

/// Asks again while the provider does not answer within its time, `kMostTries` times in all. S_OK
/// only when the setting was read; throws `_com_error` when the client is not connected.
HRESULT AskWhileTimedOut(const LogScope& log, BIOSWmiClient& client, const std::wstring& name,
                         std::wstring& value) {
    HRESULT result = S_OK;
    int tries = 0;
    do {
        Platform::Pause(kPauseBeforeTry);
        log.Information(L"Reading BIOS Value (%s) in retry count %d ", name.c_str(), tries);
        result = client.GetValue(name, value);
        if (result == S_OK) {
            break;
        }
        log.Warning(L"wmi.GetValue returned Error 0x%08X in retry count %d ", result, tries);
        Platform::Pause(kPauseAfterFailedTry);
        ++tries;
    } while (result == WBEM_S_TIMEDOUT && tries < kMostTries);
    log.Information(L"BIOS Read Value %s", value.c_str());
    return result;
}

/// One client, and so one connection attempt, for all passes: a connection that failed makes each
/// of them fail the same way. On purpose.
HRESULT ReadWithRetries(const LogScope& log, BIOSWmiClient& client, const std::wstring& name,
                        std::wstring& value) {
    HRESULT result = S_OK;
    bool sawException = false;
    int passes = 0;
    do {
        try {
            result = AskWhileTimedOut(log, client, name, value);
        } catch (const _com_error& error) {
            result = error.Error();
            sawException = true;
            log.Error(L"Exception while getting BIOS with error 0x%08X", result);
        }
        if (result == S_OK) {
            break;
        }
        Platform::Pause(kPauseAfterFailedPass);
        ++passes;
        // The mark is never cleared: after one exception other failures are tried again as well.
    } while (sawException && passes < kMostPasses);
    return result;
}

void EnableLanWlan() {
    NLMUtils::lanWlanSwitchingEnabled = true;
    lanWlanSettingResult = kEnabled;
}

void EnableLanWwan() {
    NLMUtils::lanWwanSwitchingEnabled = true;
    lanWwanSettingResult = kEnabled;
}

/// The setting's other name, for machines that do not know the first one.
void ReadSecondLanWlanSetting(const LogScope& log, std::wstring& value) {
    const HRESULT result = NLMUtils::GetBIOSValue(BiosVocabulary::kLanWlanSwitchingSetting, value);
    if (result != S_OK || value.empty()) {
        log.Error(L"Error getting 'LAN/WLAN Switching' with HRESULT =  0x%08X and Value = %s", result,
                  value.c_str());
    } else if (!NLMUtils::IsDisabledSetting(value)) {
        log.Information(L"Inside LAN/WLAN Switching section:feature enabled");
        EnableLanWlan();
    }
}

void ReadLanWlanSetting(const LogScope& log) {
    std::wstring value;
    const HRESULT result = NLMUtils::GetBIOSValue(BiosVocabulary::kLanWlanAutoSwitchingSetting, value);
    if (result != S_OK || value.empty()) {
        ReadSecondLanWlanSetting(log, value);
    } else if (NLMUtils::IsDisabledSetting(value)) {
        log.Error(L"Error getting 'LAN / WLAN Auto Switching' with HRESULT =  0x%08X and Value = %s", result,
                  value.c_str());
    } else {
        log.Information(L"Inside LAN / WLAN Auto Switching section :feature enabled");
        EnableLanWlan();
    }
    log.Information(L"BIOS(LAN/WLAN) Read Value %s", value.c_str());
}

void ReadLanWwanSetting(const LogScope& log) {
    std::wstring value;
    const HRESULT result = NLMUtils::GetBIOSValue(BiosVocabulary::kLanWwanAutoSwitchingSetting, value);
    if (result != S_OK || value.empty()) {
        log.Error(L"Error getting 'LAN / WWAN Auto Switching' with HRESULT =  0x%08X and Value = %s", result,
                  value.c_str());
    } else if (!NLMUtils::IsDisabledSetting(value)) {
        log.Information(L"Inside LAN / WWAN Auto Switching section :feature enabled");
        EnableLanWwan();
    }
    log.Information(L"BIOS(LAN/WAN) Read Value %s", value.c_str());
}

const wchar_t* TrueOrFalse(bool value) {
    return value ? L"true" : L"false";
}

}  // namespace

bool NLMUtils::IsDisabledSetting(const std::wstring& value) {
    return value.starts_with(kDisabledMark);
}

HRESULT NLMUtils::GetBIOSValue(const std::wstring& name, std::wstring& value) {
    // Stands before the log's scope: the exit line does not wait until COM has been left.
    std::optional<BIOSWmiClient> client;
    LogScope log("NLMUtils::GetBIOSValue", L"BIOS Settings Name = %s", name.c_str());
    HRESULT result = E_FAIL;
    try {
        client.emplace();
        result = ReadWithRetries(log, *client, name, value);
    } catch (...) {
        log.Error(L"Exception in GetBIOSValue()");
    }
    return log.Return(L"Return Value = 0x%08X", result);
}

bool NLMUtils::IsLanWlanAutoSwitchingEnabled() {
    LogScope log("NLMUtils::IsLanWlanAutoSwitchingEnabled");
    try {
        ReadLanWlanSetting(log);
    } catch (...) {
        log.Error(L"Exception in IsLanWlanAutoSwitchingEnabled()");
    }
    const bool isEnabled = lanWlanSettingResult == kEnabled;
    log.ExitLine(L"BIOS Setting LAN / WLAN Auto Switching: %ls", TrueOrFalse(isEnabled));
    return isEnabled;
}

bool NLMUtils::IsLanWwanAutoSwitchingEnabled() {
    LogScope log("NLMUtils::IsLanWwanAutoSwitchingEnabled");
    try {
        ReadLanWwanSetting(log);
    } catch (...) {
        log.Error(L"Exception in IsLanWwanAutoSwitchingEnabled()");
    }
    const bool isEnabled = lanWwanSettingResult == kEnabled;
    log.ExitLine(L"BIOS Setting LAN / WWAN Auto Switching: %ls", TrueOrFalse(isEnabled));
    return isEnabled;
}
