#include <windows.h>

#include "doctor/inspection/readers.h"
#include "platform/handles.h"
#include "radio/power_status.h"
#include "service/service_names.h"

namespace Inspection {

bool IsElevated() {
    Platform::UniqueHandle token;
    TOKEN_ELEVATION elevation{};
    DWORD bytes = 0;
    return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Put()) != FALSE &&
           GetTokenInformation(token.Get(), TokenElevation, &elevation, sizeof(elevation), &bytes) != FALSE &&
           elevation.TokenIsElevated != 0;
}

State ReadState() {
    State state;
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    state.doctorVersion = LINKVANE_VERSION;
    state.time = LocalTimeText(now);
    state.isElevated = IsElevated();
    state.wlan = ReadWlan();
    state.service = ReadService();
    state.wlanService = ReadNeighbour(ServiceNames::kWlanAutoConfig);
    state.wwanService = ReadNeighbour(ServiceNames::kWwanAutoConfig);
    state.lanWlan = ReadLanWlanSetting();
    state.lanWwan = ReadLanWwanSetting();
    state.wwan = ReadWwan();
    state.network = ReadNetwork();
    state.airplane = ReadAirplaneMode();
    state.rememberedWlan = ReadRemembered(PowerStatus::kWlanKey);
    state.rememberedWwan = ReadRemembered(PowerStatus::kWwanKey);
    state.policies = ReadLogPolicies();
    state.logFolders = ReadLogFolders();
    return state;
}

}  // namespace Inspection
