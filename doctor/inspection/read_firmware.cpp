#include <windows.h>

#include <initializer_list>

#include "bios/bios_settings.h"
#include "bios/bios_vocabulary.h"
#include "bios/bios_wmi_client.h"
#include "doctor/inspection/readers.h"
#include "doctor/inspection/text.h"

namespace Inspection {
namespace {

HRESULT ReadSetting(BIOSWmiClient& client, const wchar_t* name, std::wstring& value) {
    try {
        return client.GetValue(name, value);
    } catch (const _com_error& error) {
        return error.Error();
    }
}

/// The first of the names under which there is something; else why the first could not be read, unless
/// the firmware does not know it.
FirmwareHalf ReadHalf(std::initializer_list<const wchar_t*> names) {
    FirmwareHalf half;
    BIOSWmiClient client;
    // Made anew only because the client keeps to itself how its first attempt went.
    const HRESULT connected = client.Connect();
    for (const wchar_t* const name : names) {
        std::wstring value;
        const HRESULT result = FAILED(connected) ? connected : ReadSetting(client, name, value);
        if (result == S_OK && !value.empty()) {
            return {Utf8(name), 0, Utf8(value), !NLMUtils::IsDisabledSetting(value)};
        }
        if (half.setting.empty() || half.result == kWmiNoSuchSetting) {
            half = {Utf8(name), static_cast<ErrorCode>(result), {}, false};
        }
    }
    return half;
}

}  // namespace

FirmwareHalf ReadLanWlanSetting() {
    return ReadHalf({BiosVocabulary::kLanWlanAutoSwitchingSetting, BiosVocabulary::kLanWlanSwitchingSetting});
}

FirmwareHalf ReadLanWwanSetting() {
    return ReadHalf({BiosVocabulary::kLanWwanAutoSwitchingSetting});
}

}  // namespace Inspection
