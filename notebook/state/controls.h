#pragma once

#include <windows.h>

#include <array>
#include <optional>
#include <string_view>

namespace Notebook {

/// A control that no program may send, and the user-defined code that stands for it: sent that way
/// the service manager brings it in turn with every other control.
struct TranslatedControl {
    std::string_view name;
    DWORD code;
    DWORD control;
    DWORD eventType;
};

inline constexpr std::array<TranslatedControl, 8> kTranslatedControls = {{
    {"suspend", 128, SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND},
    {"standby", 129, SERVICE_CONTROL_POWEREVENT, PBT_APMSTANDBY},
    {"resume-automatic", 130, SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC},
    {"resume-suspend", 131, SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMESUSPEND},
    {"power-status-change", 132, SERVICE_CONTROL_POWEREVENT, PBT_APMPOWERSTATUSCHANGE},
    {"preshutdown", 133, SERVICE_CONTROL_PRESHUTDOWN, 0},
    {"shutdown", 134, SERVICE_CONTROL_SHUTDOWN, 0},
    {"interrogate", 135, SERVICE_CONTROL_INTERROGATE, 0},
}};

inline std::optional<TranslatedControl> TranslateControl(DWORD code) {
    for (const TranslatedControl& control : kTranslatedControls) {
        if (control.code == code) {
            return control;
        }
    }
    return std::nullopt;
}

}  // namespace Notebook
