#include "tests/hunt/scenes.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace RandomEvents {

namespace {

constexpr Shape kOrdinary{1, 2, 1};
constexpr Shape kWithoutModem{1, 2, 0};

/// Named as the notebook's scenarios where there is one. Commands that come together stand in one step, with
/// their milliseconds: "plug cable 1 dhcp 0 & 50 wifi on".
struct Told {
    const char* name;
    const char* steps;
    Shape shape = kOrdinary;
};

constexpr Told kTold[] = {
    {"start_without_cable", "start"},
    {"start_with_cable", "plug cable 1 dhcp 0; start"},
    {"start_feature_disabled_with_cable", "feature wlan off; feature wwan off; plug cable 1 dhcp 0; start"},
    {"start_second_setting_name",
     "bios \"LAN / WLAN Auto Switching\" absent; bios \"LAN/WLAN Switching\" text Enable; start"},
    {"start_setting_null", "bios \"LAN / WLAN Auto Switching\" null; start"},
    {"start_setting_after_timeouts", "bios \"LAN / WLAN Auto Switching\" timeouts 3; start"},
    {"start_provider_missing", "bios provider off; start; bios provider on; suspend; resume"},
    {"feature_enabled_later",
     "feature wlan off; feature wwan off; start; feature wlan on; feature wwan on; suspend; resume"},
    {"only_wlan_half_enabled", "feature wwan off; start; plug cable 1 dhcp 0; wwan off; unplug cable 1"},
    {"only_wwan_half_enabled", "feature wlan off; start; plug cable 1 dhcp 0; wifi off; unplug cable 1"},
    {"plug_and_unplug", "start; plug cable 1 dhcp 0; unplug cable 1"},
    {"late_address", "start; plug cable 1 dhcp 3000; unplug cable 1"},
    {"no_address_ever", "start; plug cable 1 noaddress; unplug cable 1"},
    {"two_cables_one_pulled", "start; plug cable 1 dhcp 0; plug cable 2 dhcp 0; unplug cable 1"},
    {"vpn_and_virtual_adapters", "vpn on; virtual on; start; plug cable 1 dhcp 0; unplug cable 1; vpn off"},
    {"many_adapters", "adapter fill 12; start; plug cable 1 dhcp 0; unplug cable 1"},
    {"adapters_hidden",
     "start; call GetAdaptersInfo fail always with 50; plug cable 1 dhcp 0; wifi off; wifi on; "
     "call GetAdaptersInfo ok; unplug cable 1"},
    {"vanishing_connection", "start; event connection {12345678-5E1F-4B2C-9AD3-C0DE00000001} 64"},
    {"quick_changes", "start; plug cable 1 dhcp 0 & 100 unplug cable 1 & 600 plug cable 1 dhcp 700"},
    {"user_switch_without_cable", "start; wifi off; wifi on; wwan off; wwan on"},
    {"user_switch_with_cable", "start; plug cable 1 dhcp 0; wifi on; wwan on; unplug cable 1"},
    {"user_turned_wifi_off_before_cable", "start; wifi off; wwan off; plug cable 1 dhcp 0; unplug cable 1"},
    {"user_switches_while_plugging",
     "start; plug cable 1 dhcp 700 & 100 wifi off & 600 wwan off; unplug cable 1"},
    {"notification_during_switch",
     "start; plug cable 1 dhcp 0 & 50 wifi notify 16 7 & 100 wifi available; unplug cable 1"},
    {"wifi_connections", "start; wifi disconnect; wifi available; wifi connect"},
    {"network_available_with_cable", "start; plug cable 1 dhcp 0; wifi on; wifi available; unplug cable 1"},
    {"wifi_odd_notifications", "start; wifi notify 16 7 null; wifi notify 8 19; wifi notify 16 7 nodata"},
    {"hardware_switch_off",
     "start; wifi hardware off; plug cable 1 dhcp 0; wifi hardware on; unplug cable 1"},
    {"two_wlan_adapters", "start; plug cable 1 dhcp 0; unplug cable 1", {2, 1, 1}},
    {"phy_refuses_for_a_while", "start; phy 1 refuse 2; plug cable 1 dhcp 0; unplug cable 1"},
    {"phy_refuses_for_ever", "start; phy 1 refuse for-ever; plug cable 1 dhcp 0; unplug cable 1"},
    {"stored_choice_false",
     "stored wlan False; stored wwan False; plug cable 1 dhcp 0; start; unplug cable 1"},
    {"stored_choice_true", "stored wlan True; stored wwan True; plug cable 1 dhcp 0; start; unplug cable 1"},
    {"stored_choice_of_other_text",
     "stored wlan true; stored wwan 1; start; plug cable 1 dhcp 0; unplug cable 1"},
    {"stored_choice_of_wrong_type",
     "stored wlan type dword 1; stored wwan type dword 1; start; plug cable 1 dhcp 0; unplug cable 1"},
    {"airplane_without_cable", "start; airplane on; airplane off"},
    {"airplane_with_cable", "start; plug cable 1 dhcp 0; airplane on; airplane off; unplug cable 1"},
    {"airplane_values", "start; airplane value dword 1; airplane value dword 2; airplane value dword 0"},
    {"airplane_key_missing", "start; airplane value missing; airplane value dword 1"},
    {"airplane_while_unplugging",
     "start; plug cable 1 dhcp 0; airplane on & 50 unplug cable 1; airplane off"},
    {"airplane_during_a_switch", "start; plug cable 1 dhcp 0 & 50 airplane on; airplane off; unplug cable 1"},
    {"airplane_with_false_stored",
     "stored wlan False; start; airplane value dword 1; airplane value dword 0"},
    {"resume_unchanged_without_cable", "start; suspend; resume"},
    {"resume_unchanged_with_cable", "start; plug cable 1 dhcp 0; suspend; resume"},
    {"resume_cable_plugged", "start; suspend; plug cable 1 dhcp 0; resume"},
    {"resume_cable_pulled", "start; plug cable 1 dhcp 0; suspend; unplug cable 1; resume"},
    {"resume_during_cable_event", "start; plug cable 1 dhcp 700; suspend & 0 unplug cable 1 & 50 resume"},
    {"resume_with_late_service",
     "start; suspend; service WlanSvc late 3000; service WwanSvc late 9000; resume"},
    {"resume_with_wwan_service_gone", "start; suspend; service WwanSvc absent; resume"},
    {"resume_without_modem", "start; plug cable 1 dhcp 0; suspend; resume", kWithoutModem},
    {"wlan_autoconfig_late", "service WlanSvc late 3000; start"},
    {"wlan_autoconfig_absent", "service WlanSvc absent; start"},
    {"wwan_autoconfig_late", "service WwanSvc late 3000; start"},
    {"wwan_autoconfig_absent", "service WwanSvc absent; start"},
    {"wwan_two_modems", "start; plug cable 1 dhcp 0; unplug cable 1", {1, 1, 2}},
    {"wwan_modem_confirms_late",
     "start; modem 1 follows on confirm 9000; plug cable 1 dhcp 0; unplug cable 1"},
    {"wwan_modem_never_confirms",
     "start; modem 1 follows on confirm never; plug cable 1 dhcp 0; unplug cable 1"},
    {"wwan_neither_follows_nor_confirms",
     "start; modem 1 follows off confirm never; plug cable 1 dhcp 0; unplug cable 1"},
    {"wwan_refuses_thrice", "start; modem 1 refuse 4; plug cable 1 dhcp 0; unplug cable 1"},
    {"wwan_falls_back_at_once", "start; modem 1 reverts 1 after 60; plug cable 1 dhcp 0; unplug cable 1"},
    {"wwan_completion_with_odd_radio",
     "start; modem 1 radio failing; plug cable 1 dhcp 0; modem 1 radio null; unplug cable 1"},
    {"restart_with_cable_kept_in", "start; plug cable 1 dhcp 0; stop; start; unplug cable 1"},
    {"preshutdown_and_restart", "start; preshutdown; start"},
    {"stop_during_a_switch", "start; phy 1 refuse 7; plug cable 1 dhcp 0 & 100 stop"},
    {"stop_during_notification", "start; plug cable 1 dhcp 0; wifi on & 0 stop"},
    {"stop_during_resume", "start; suspend; service WlanSvc late 3000; resume & 600 stop"},
};

std::vector<std::string> Parts(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end = 0; end != std::string::npos; begin = end + separator.size()) {
        end = text.find(separator, begin);
        parts.push_back(text.substr(begin, end - begin));
    }
    return parts;
}

Step ReadStep(const std::string& text) {
    Step step;
    for (std::string part : Parts(text, " & ")) {
        std::size_t digits = 0;
        std::uint32_t at = 0;
        if (!step.commands.empty()) {
            at = static_cast<std::uint32_t>(std::stoul(part, &digits));
            part.erase(0, digits + 1);
        }
        step.commands.push_back(ReadCommand(part));
        step.commands.back().at = at;
    }
    return step;
}

}  // namespace

const std::vector<Scene>& Scenes() {
    static const std::vector<Scene> scenes = [] {
        std::vector<Scene> all;
        for (const Told& told : kTold) {
            Scene& scene = all.emplace_back(Scene{told.name, {told.shape, {}}});
            for (const std::string& step : Parts(told.steps, "; ")) {
                scene.day.steps.push_back(ReadStep(step));
            }
        }
        return all;
    }();
    return scenes;
}

const Scene& FindScene(std::string_view name) {
    const auto found = std::ranges::find(Scenes(), name, &Scene::name);
    if (found == Scenes().end()) {
        throw std::runtime_error("no scene: " + std::string(name));
    }
    return *found;
}

}  // namespace RandomEvents
