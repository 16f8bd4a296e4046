#include "doctor/inspection/report.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <string_view>
#include <utility>

#include "doctor/analysis/report.h"

namespace Inspection {
namespace {

using Doctor::Harmless;
using Doctor::SeverityName;
using Json = nlohmann::ordered_json;

/// Model of the JSON that `status` and `check` print; changes when a field changes its meaning.
constexpr int kModelNumber = 1;

std::string Write(const Json& json) {
    // What is no UTF-8 is replaced, not thrown at.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

/// HRESULTs are written in hexadecimal.
constexpr ErrorCode kMostWin32Error = 0xFFFF;

std::string ErrorText(ErrorCode error) {
    return error > kMostWin32Error ? fmt::format("0x{:08X}", error) : std::to_string(error);
}

// --- JSON

Json ServiceJson(const Service& service) {
    Json json{{"name", service.name}, {"state", service.state}, {"error", service.error}};
    if (service.isConfigKnown) {
        json["command_line"] = Harmless(service.commandLine);
        json["executable"] = Harmless(service.executable);
        json["executable_there"] = service.isExecutableThere;
        json["version"] = service.version;
        json["type"] = service.type;
        json["start"] = service.start;
        json["account"] = Harmless(service.account);
        json["dependencies"] = service.dependencies;
        json["recovery_known"] = service.isRecoveryKnown;
        json["restart_minutes"] = service.restartMinutes;
        json["forgets_failures_after_seconds"] = service.forgetsAfterSeconds;
        json["restarts_after_errors"] = service.restartsAfterErrors;
    }
    return json;
}

Json HalfJson(const FirmwareHalf& half) {
    return {{"setting", half.setting},
            {"result", half.result},
            {"value", Harmless(half.value)},
            {"enabled", half.isEnabled}};
}

Json NetworkJson(const Network& network) {
    Json adapters = Json::array();
    for (const Adapter& adapter : network.adapters) {
        adapters.push_back({{"description", Harmless(adapter.description)},
                            {"name", Harmless(adapter.name)},
                            {"id", adapter.id},
                            {"type", adapter.type},
                            {"type_name", adapter.typeName},
                            {"address", adapter.address},
                            {"link", adapter.link},
                            {"verdict", adapter.verdict}});
    }
    return {
        {"error", network.error}, {"cable", network.Cable() != nullptr}, {"adapters", std::move(adapters)}};
}

Json WlanJson(const Wlan& wlan) {
    Json interfaces = Json::array();
    for (const WlanInterface& each : wlan.interfaces) {
        Json phys = Json::array();
        for (const Phy& phy : each.phys) {
            phys.push_back({{"software", phy.software}, {"hardware", phy.hardware}});
        }
        interfaces.push_back({{"description", Harmless(each.description)},
                              {"id", each.id},
                              {"state", each.state},
                              {"error", each.error},
                              {"switched", interfaces.empty()},
                              {"phys", std::move(phys)}});
    }
    return {{"api", wlan.isApiThere},
            {"error", wlan.error},
            {"on", wlan.isOn},
            {"interfaces", std::move(interfaces)}};
}

Json WwanJson(const Wwan& wwan) {
    Json modems = Json::array();
    for (const Modem& modem : wwan.modems) {
        modems.push_back({{"id", modem.id},
                          {"error", modem.error},
                          {"software", modem.software},
                          {"hardware", modem.hardware},
                          {"switched", &modem == &wwan.modems.back()}});
    }
    return {{"error", wwan.error}, {"modems", std::move(modems)}};
}

Json ValueJson(const Value& value) {
    return {{"name", Harmless(value.name)}, {"type", value.type}, {"text", Harmless(value.text)}};
}

Json RememberedJson(const Remembered& remembered) {
    return {{"error", remembered.error},
            {"value", remembered.value ? ValueJson(*remembered.value) : Json(nullptr)},
            {"read_as", remembered.readAs},
            {"oddity", remembered.oddity}};
}

Json PoliciesJson(const LogPolicies& policies) {
    Json values = Json::array();
    for (const Policy& policy : policies.policies) {
        Json json = ValueJson(policy.value);
        json["key"] = policy.isOfExecutable ? "executable" : "product";
        json["oddity"] = policy.oddity;
        values.push_back(std::move(json));
    }
    return {{"error", policies.error},
            {"values", std::move(values)},
            {"in_force",
             {{"outputs", policies.outputs},
              {"min_level", policies.minLevel},
              {"max_level", policies.maxLevel},
              {"max_size_kilobytes", policies.maxSizeKilobytes},
              {"queued", policies.isQueued}}}};
}

Json LogsJson(const std::vector<LogFolder>& folders) {
    Json json = Json::array();
    for (const LogFolder& folder : folders) {
        Json files = Json::array();
        for (const LogFile& file : folder.files) {
            files.push_back({{"path", file.path}, {"bytes", file.bytes}, {"written", file.written}});
        }
        json.push_back({{"path", folder.path},
                        {"of", folder.isServices ? "service" : "user"},
                        {"error", folder.error},
                        {"files", std::move(files)}});
    }
    return json;
}

// --- Text

/// Lines of a heading and what stands beside it.
class Lines {
  public:
    void Add(std::string_view heading, std::string_view text) {
        m_text += fmt::format("{:<18}{}\n", heading, Harmless(text));
    }
    void More(std::string_view text) { Add("", text); }
    [[nodiscard]] std::string Take() && { return std::move(m_text); }

  private:
    std::string m_text;
};

std::string OnOff(bool isOn) {
    return isOn ? "on" : "off";
}

void AddService(const Service& service, Lines& lines) {
    lines.Add("Service",
              service.state + (service.error != 0 ? " (error " + ErrorText(service.error) + ")" : ""));
    if (!service.isConfigKnown) {
        return;
    }
    lines.More(fmt::format("{}{}, version {}", service.commandLine,
                           service.isExecutableThere ? "" : " (is not there)", service.version));
    lines.More(fmt::format("start {}, account {}, depends on {}", service.start, service.account,
                           fmt::join(service.dependencies, " ")));
    lines.More(!service.isRecoveryKnown ? std::string("whether it is restarted after failures cannot be told")
               : service.restartMinutes.empty()
                   ? std::string("is not restarted after failures")
                   : fmt::format("restarted {} minutes after failures{}, which are forgotten after {} s",
                                 fmt::join(service.restartMinutes, ", "),
                                 service.restartsAfterErrors ? " and errors" : "",
                                 service.forgetsAfterSeconds));
}

void AddHalf(std::string_view heading, const FirmwareHalf& half, Lines& lines) {
    lines.Add(heading, half.result == 0
                           ? fmt::format(R"({} ("{}" is "{}"))", half.isEnabled ? "enabled" : "disabled",
                                         half.setting, half.value)
                           : fmt::format("not read (\"{}\": {})", half.setting, ErrorText(half.result)));
}

std::string_view Because(const Adapter& adapter) {
    if (adapter.verdict == "cable") {
        return "a cable: Ethernet, has an IPv4 address, and neither VPN nor Virtual in its description";
    }
    if (adapter.verdict == "virtual") {
        return "no cable: VPN or Virtual is in its description";
    }
    return adapter.verdict == "no-address" ? "no cable: has no IPv4 address" : "no cable: is not Ethernet";
}

void AddNetwork(const Network& network, Lines& lines) {
    const Adapter* const cable = network.Cable();
    lines.Add("Cable", network.error != 0 ? "cannot be told (error " + ErrorText(network.error) + ")"
                       : cable != nullptr ? "in: " + cable->description
                                          : std::string("none is in"));
    for (const Adapter& adapter : network.adapters) {
        lines.Add("  adapter",
                  fmt::format("{} [{}], type {} ({}), {}, link {}", adapter.description, adapter.name,
                              adapter.type, adapter.typeName, adapter.address, adapter.link));
        lines.More(Because(adapter));
    }
}

void AddWlan(const Wlan& wlan, Lines& lines) {
    lines.Add("Wi-Fi", !wlan.isApiThere  ? "Windows' WLAN interface (wlanapi.dll) is not there"
                       : wlan.error != 0 ? "cannot be told (error " + ErrorText(wlan.error) + ")"
                                         : OnOff(wlan.isOn));
    for (const WlanInterface& each : wlan.interfaces) {
        lines.Add(
            "  adapter",
            fmt::format("{}, {}{}", each.description, each.state,
                        &each == &wlan.interfaces.front() ? "" : " (is not switched: only the first is)"));
        if (each.error != 0) {
            lines.More("its PHYs cannot be read: error " + ErrorText(each.error));
        }
        for (std::size_t i = 0; i < each.phys.size(); ++i) {
            lines.More(fmt::format("PHY {}: {}, the notebook's own switch {}", i, each.phys[i].software,
                                   each.phys[i].hardware));
        }
    }
}

void AddWwan(const Wwan& wwan, Lines& lines) {
    lines.Add("Mobile broadband", !wwan.modems.empty() ? wwan.modems.back().software
                                  : wwan.error != 0    ? "no modem (" + ErrorText(wwan.error) + ")"
                                                       : std::string("no modem"));
    for (const Modem& modem : wwan.modems) {
        lines.Add(
            "  modem",
            fmt::format("{}: {}, the notebook's own switch {}{}", modem.id, modem.software, modem.hardware,
                        &modem == &wwan.modems.back() ? "" : " (is not switched: only the last is)"));
    }
}

void AddRemembered(std::string_view heading, const Remembered& remembered, Lines& lines) {
    lines.Add(heading, remembered.value
                           ? fmt::format("{} ({} \"{}\"{})", remembered.readAs, remembered.value->type,
                                         remembered.value->text,
                                         remembered.oddity == "none" ? "" : ", " + remembered.oddity)
                           : fmt::format("nothing, which counts as {}", remembered.readAs));
}

void AddPolicies(const LogPolicies& policies, Lines& lines) {
    static constexpr std::string_view kLevels[] = {"TraceIn", "TraceOut", "Verbose", "Information",
                                                   "Warning", "Error",    "Diag"};
    const auto name = [](int level) {
        return level >= 0 && static_cast<std::size_t>(level) < std::size(kLevels)
                   ? kLevels[static_cast<std::size_t>(level)]
                   : std::string_view("Never");
    };
    lines.Add("Log", fmt::format("{} to {}, to {}{}, rotated at {} KB", name(policies.minLevel),
                                 name(policies.maxLevel), fmt::join(policies.outputs, " and "),
                                 policies.isQueued ? " (queued)" : "", policies.maxSizeKilobytes));
    for (const Policy& policy : policies.policies) {
        lines.Add("  policy", fmt::format("{} {} \"{}\" ({}){}", policy.value.name, policy.value.type,
                                          policy.value.text, policy.isOfExecutable ? "executable" : "product",
                                          policy.oddity == "none" ? "" : ": " + policy.oddity));
    }
}

void AddLogs(const std::vector<LogFolder>& folders, Lines& lines) {
    for (const LogFolder& folder : folders) {
        lines.Add("  folder",
                  fmt::format("{} ({}){}", folder.path,
                              folder.isServices ? "the service's" : "of your -install and -remove",
                              folder.error != 0      ? ": error " + ErrorText(folder.error)
                              : folder.files.empty() ? std::string(": empty")
                                                     : std::string()));
        for (const LogFile& file : folder.files) {
            lines.More(fmt::format("{}, {} bytes, {}", file.path.substr(file.path.rfind('\\') + 1),
                                   file.bytes, file.written));
        }
    }
}

}  // namespace

std::string StateAsJson(const State& state) {
    Json json{
        {"model", kModelNumber},
        {"doctor", state.doctorVersion},
        {"time", state.time},
        {"elevated", state.isElevated},
        {"service", ServiceJson(state.service)},
        {"neighbours", Json::array({ServiceJson(state.wlanService), ServiceJson(state.wwanService)})},
        {"firmware", {{"wlan", HalfJson(state.lanWlan)}, {"wwan", HalfJson(state.lanWwan)}}},
        {"network", NetworkJson(state.network)},
        {"wifi", WlanJson(state.wlan)},
        {"wwan", WwanJson(state.wwan)},
        {"airplane",
         {{"error", state.airplane.error},
          {"on", state.airplane.isOn},
          {"value", state.airplane.error == 0 ? ValueJson(state.airplane.value) : Json(nullptr)}}},
        {"remembered",
         {{"wlan", RememberedJson(state.rememberedWlan)}, {"wwan", RememberedJson(state.rememberedWwan)}}},
        {"policies", PoliciesJson(state.policies)},
        {"logs", LogsJson(state.logFolders)},
        {"last_decision", nullptr}};
    if (state.lastDecision) {
        json["last_decision"] = {{"time", state.lastDecision->time},
                                 {"text", Harmless(state.lastDecision->text)}};
    }
    return Write(json);
}

std::string StateAsText(const State& state) {
    Lines lines;
    lines.Add("Time", fmt::format("{}, {}, doctor {}", state.time,
                                  state.isElevated ? "elevated" : "not elevated", state.doctorVersion));
    AddService(state.service, lines);
    lines.Add("WLAN AutoConfig", state.wlanService.state);
    lines.Add("WWAN AutoConfig", state.wwanService.state);
    AddHalf("Firmware: Wi-Fi", state.lanWlan, lines);
    AddHalf("Firmware: mobile", state.lanWwan, lines);
    AddNetwork(state.network, lines);
    AddWlan(state.wlan, lines);
    AddWwan(state.wwan, lines);
    lines.Add(
        "Airplane mode",
        OnOff(state.airplane.isOn) +
            (state.airplane.error != 0 ? " (not read: error " + ErrorText(state.airplane.error) + ")" : ""));
    AddRemembered("Remembered: Wi-Fi", state.rememberedWlan, lines);
    AddRemembered("  mobile", state.rememberedWwan, lines);
    AddPolicies(state.policies, lines);
    AddLogs(state.logFolders, lines);
    lines.Add("Last decision", state.lastDecision ? state.lastDecision->time + " " + state.lastDecision->text
                                                  : std::string("not known"));
    return std::move(lines).Take();
}

std::string FindingsAsText(const std::vector<Finding>& findings) {
    std::string text;
    int number = 0;
    for (const Finding& finding : findings) {
        text += fmt::format("{:>2}. {:<8} {} ({})\n", ++number, SeverityName(finding.severity),
                            Harmless(finding.sentence), finding.id);
        if (!finding.remedy.empty()) {
            text += fmt::format("             -> {}\n", Harmless(finding.remedy));
        }
    }
    return text;
}

std::string FindingsAsJson(const std::vector<Finding>& findings, const State& state) {
    Json list = Json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"number", list.size() + 1},
                        {"cause", finding.id},
                        {"severity", SeverityName(finding.severity)},
                        {"subject", finding.subject},
                        {"sentence", Harmless(finding.sentence)},
                        {"remedy", Harmless(finding.remedy)}});
    }
    return Write({{"model", kModelNumber},
                  {"doctor", state.doctorVersion},
                  {"time", state.time},
                  {"exit_code", ExitCode(findings)},
                  {"findings", std::move(list)}});
}

}  // namespace Inspection
