#include "bios/bios_settings.h"

#include <chrono>
#include <optional>
#include <span>

#include "bios/bios_vocabulary.h"
#include "bios/bios_wmi_client.h"
#include "logging/log_scope.h"
#include "platform/pause.h"

std::atomic<bool> NLMUtils::lanWlanSwitchingEnabled{false};
std::atomic<bool> NLMUtils::lanWwanSwitchingEnabled{false};

namespace {

/// One name of a setting, and what is logged of it.
struct Setting {
    const wchar_t* name;
    const wchar_t* errorText;  ///< takes the HRESULT and the text
    const wchar_t* enabledText;
};
constexpr Setting kLanWlanSettings[] = {
    {BiosVocabulary::kLanWlanAutoSwitchingSetting,
     L"Error getting 'LAN / WLAN Auto Switching' with HRESULT =  0x%08X and Value = %s",
     L"Inside LAN / WLAN Auto Switching section :feature enabled"},
    {BiosVocabulary::kLanWlanSwitchingSetting,
     L"Error getting 'LAN/WLAN Switching' with HRESULT =  0x%08X and Value = %s",
     L"Inside LAN/WLAN Switching section:feature enabled"},
};
constexpr Setting kLanWwanSettings[] = {
    {BiosVocabulary::kLanWwanAutoSwitchingSetting,
     L"Error getting 'LAN / WWAN Auto Switching' with HRESULT =  0x%08X and Value = %s",
     L"Inside LAN / WWAN Auto Switching section :feature enabled"},
};

/// One half of the feature: what the rest of the service reads, and the last word on it.
struct Half {
    std::atomic<bool>& isEnabled;
    std::atomic<int> result{-1};  ///< 1 once a setting was read as enabled, never reset
};
Half lanWlan{NLMUtils::lanWlanSwitchingEnabled};
Half lanWwan{NLMUtils::lanWwanSwitchingEnabled};

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
    HRESULT result = WBEM_S_TIMEDOUT;
    for (int tries = 0; result == WBEM_S_TIMEDOUT && tries < kMostTries; ++tries) {
        Platform::Pause(kPauseBeforeTry);
        log.Information(L"Reading BIOS Value (%s) in retry count %d ", name.c_str(), tries);
        result = client.GetValue(name, value);
        if (result != S_OK) {
            log.Warning(L"wmi.GetValue returned Error 0x%08X in retry count %d ", result, tries);
            Platform::Pause(kPauseAfterFailedTry);
        }
    }
    log.Information(L"BIOS Read Value %s", value.c_str());
    return result;
}

/// One client, and so one connection attempt, for all passes: a connection that failed makes each
/// of them fail the same way.
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

/// Asks for one name after the other, until one gives a text, and leaves the last text.
void ReadSettings(const LogScope& log, std::span<const Setting> settings, Half& half, std::wstring& value) {
    for (const Setting& setting : settings) {
        const HRESULT result = NLMUtils::GetBIOSValue(setting.name, value);
        const bool isRead = result == S_OK && !value.empty();
        if (isRead && !NLMUtils::IsDisabledSetting(value)) {
            log.Information(setting.enabledText);
            half.isEnabled = true;
            half.result = 1;
            return;
        }
        // The last name is in error when it gives nothing, another one when it says "disabled".
        const bool isLast = &setting == &settings.back();
        if (isRead != isLast) {
            log.Error(setting.errorText, result, value.c_str());
        }
        if (isRead) {
            return;
        }
    }
}

/// Refreshes a half from its settings. Its answer, which the exit line shows.
bool Refresh(LogScope& log, std::span<const Setting> settings, Half& half, const wchar_t* readText,
             const wchar_t* exitText) {
    log.Guard([&] {
        std::wstring value;
        ReadSettings(log, settings, half, value);
        log.Information(readText, value.c_str());
    });
    const bool isEnabled = half.result == 1;
    log.ExitLine(exitText, isEnabled ? L"true" : L"false");
    return isEnabled;
}

}  // namespace

bool NLMUtils::IsDisabledSetting(const std::wstring& value) {
    return value.starts_with(kDisabledMark);
}

HRESULT NLMUtils::GetBIOSValue(const std::wstring& name, std::wstring& value) {
    // Stands before the log's scope: the exit line does not wait until COM has been left.
    std::optional<BIOSWmiClient> client;
    LogScope log("NLMUtils::GetBIOSValue", L"BIOS Settings Name = %s", name.c_str());
    return log.Return(L"Return Value = 0x%08X", log.Guard(HRESULT{E_FAIL}, [&] {
        client.emplace();
        return ReadWithRetries(log, *client, name, value);
    }));
}

bool NLMUtils::IsLanWlanAutoSwitchingEnabled() {
    LogScope log("NLMUtils::IsLanWlanAutoSwitchingEnabled");
    return Refresh(log, kLanWlanSettings, lanWlan, L"BIOS(LAN/WLAN) Read Value %s",
                   L"BIOS Setting LAN / WLAN Auto Switching: %ls");
}

bool NLMUtils::IsLanWwanAutoSwitchingEnabled() {
    LogScope log("NLMUtils::IsLanWwanAutoSwitchingEnabled");
    return Refresh(log, kLanWwanSettings, lanWwan, L"BIOS(LAN/WAN) Read Value %s",
                   L"BIOS Setting LAN / WWAN Auto Switching: %ls");
}
