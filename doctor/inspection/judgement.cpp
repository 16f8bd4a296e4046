#include "doctor/inspection/judgement.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <utility>

namespace Inspection {
namespace {

constexpr std::string_view kElevate = "Ask again from an elevated prompt.";
/// Since its feature release of 2024 Windows 11 tells nobody about Wi-Fi who has no consent to location.
constexpr std::string_view kElevateOrConsent =
    "Ask again from an elevated prompt. Windows 11 24H2 and later: turn location services on for the device "
    "(Settings, Privacy & security, Location).";
constexpr std::string_view kRepair =
    "Repair the package: msiexec /i LinkvaneService.msi REINSTALL=ALL REINSTALLMODE=vomus; where it is not "
    "installed, install it over this. Do not use -remove: it forgets what users chose.";

/// What is found, in the order in which it is looked for.
class Findings {
  public:
    void Add(Severity severity, std::string_view id, std::string_view subject, std::string sentence,
             std::string_view remedy = {}) {
        m_findings.push_back(
            {std::string(id), severity, std::string(subject), std::move(sentence), std::string(remedy)});
    }

    [[nodiscard]] std::vector<Finding> Sorted() && {
        std::stable_sort(m_findings.begin(), m_findings.end(),
                         [](const Finding& a, const Finding& b) { return a.severity > b.severity; });
        return std::move(m_findings);
    }

    [[nodiscard]] bool IsWell() const {
        return std::none_of(m_findings.begin(), m_findings.end(),
                            [](const Finding& finding) { return finding.severity > Severity::kNote; });
    }

  private:
    std::vector<Finding> m_findings;
};

Finding WellFinding(const State& state) {
    const bool hasBoth = state.lanWlan.isEnabled && state.lanWwan.isEnabled;
    return {"well", Severity::kWell, "service",
            hasBoth                   ? "The service runs, for Wi-Fi and mobile broadband."
            : state.lanWlan.isEnabled ? "The service runs, for Wi-Fi alone."
                                      : "The service runs, for mobile broadband alone.",
            ""};
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char letter) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    });
    return lower;
}

// --- The service and those that it depends on

void JudgeRegistration(const Service& service, Findings& findings) {
    if (!service.isExecutableThere) {
        findings.Add(Severity::kFault, "service-file-missing", "service",
                     fmt::format("The executable that is registered is not there: {}.", service.executable),
                     kRepair);
    } else if (!service.isQuoted && service.executable.find(' ') != std::string::npos) {
        findings.Add(Severity::kWarning, "service-path-unquoted", "service",
                     "The registered path has blanks and no quotes: Windows may start another program.",
                     kRepair);
    }
    if (service.start == "disabled") {
        findings.Add(Severity::kFault, "service-disabled", "service", "The service is disabled.",
                     "sc config LinkvaneService start= auto");
    } else if (service.start != "automatic") {
        findings.Add(Severity::kWarning, "service-not-automatic", "service",
                     "The service does not start with Windows.", "sc config LinkvaneService start= auto");
    }
    if (Lower(service.account) != "localsystem") {
        findings.Add(Severity::kWarning, "service-account", "service",
                     fmt::format("The service runs under {}, not under local system: it may lack the rights "
                                 "that it needs, and its log is elsewhere.",
                                 service.account),
                     "sc config LinkvaneService obj= LocalSystem");
    }
    if (service.type != "own-process") {
        findings.Add(Severity::kWarning, "service-type", "service",
                     "The service is not registered as a process of its own.", kRepair);
    }
    if (service.dependencies != service.expectedDependencies) {
        findings.Add(
            Severity::kWarning, "service-dependencies", "service",
            "The service is not registered to depend on WlanSvc and WwanSvc: it may start before them.",
            "sc config LinkvaneService depend= WlanSvc/WwanSvc");
    }
}

void JudgeRecovery(const Service& service, Findings& findings) {
    const bool isAsSet = service.restartMinutes == service.expectedRestartMinutes &&
                         service.forgetsAfterSeconds == service.expectedForgetsAfterSeconds &&
                         service.restartsAfterErrors;
    // Every start sets it; before the first one it is not set.
    if (service.isRecoveryKnown && service.state == "running" && !isAsSet) {
        findings.Add(Severity::kWarning, "service-recovery", "service",
                     "Windows would not restart the service after a failure as it should (after 2, 4 and 6 "
                     "minutes, also after an error).",
                     "Restart the service; it sets this at each start.");
    }
}

void JudgeServiceState(const State& state, Findings& findings) {
    const Service& service = state.service;
    if (service.state == "absent") {
        findings.Add(Severity::kFault, "service-not-installed", "service", "The service is not installed.",
                     "In an elevated prompt: LinkvaneService.exe -install, then net start LinkvaneService.");
    } else if (service.state == "stopped" || service.state == "stopping") {
        findings.Add(Severity::kFault, "service-not-running", "service",
                     "The service does not run: the radios are left as they are.",
                     "net start LinkvaneService. If it ends again: doctor why, and the System event log.");
    } else if (service.state == "starting" || service.state == "paused") {
        findings.Add(Severity::kWarning, "service-busy", "service",
                     service.state == "paused"
                         ? "The service is paused: the machine wakes up, or was never told that it has."
                         : "The service is still starting.",
                     "Ask again in a minute; if it stays so, restart the service.");
    } else if (service.state != "running") {
        findings.Add(Severity::kUnknown, "service-unknown", "service",
                     fmt::format("The service control manager does not tell about the service (error {}).",
                                 service.error),
                     kElevate);
    }
    if (service.isConfigKnown) {
        JudgeRegistration(service, findings);
        JudgeRecovery(service, findings);
    }
}

void JudgeNeighbour(const Service& neighbour, std::string_view title, bool isNeeded, Findings& findings) {
    const std::string id = Lower(neighbour.name);
    if (neighbour.state == "absent") {
        findings.Add(Severity::kFault, id + "-absent", "service",
                     fmt::format("{} ({}) is not there: Windows does not start a service that depends on it.",
                                 title, neighbour.name),
                     "Server editions: add the feature Wireless LAN Service. Else repair Windows.");
    } else if (neighbour.state == "unknown") {
        findings.Add(Severity::kUnknown, id + "-unknown", "service",
                     fmt::format("Whether {} ({}) runs cannot be told (error {}).", title, neighbour.name,
                                 neighbour.error),
                     kElevate);
    } else if (neighbour.state != "running") {
        findings.Add(isNeeded ? Severity::kFault : Severity::kNote, id + "-not-running", "service",
                     fmt::format("{} ({}) does not run: its radio cannot be looked at or switched.", title,
                                 neighbour.name),
                     isNeeded
                         ? fmt::format("net start {0}; if it cannot be started: sc qc {0}", neighbour.name)
                         : std::string());
    }
}

// --- The firmware

bool IsMissing(ErrorCode result) {
    return result == kWmiInvalidNamespace || result == kWmiInvalidClass || result == kClassNotRegistered;
}

void JudgeHalf(const FirmwareHalf& half, std::string_view id, std::string_view radio, bool isElevated,
               Findings& findings) {
    if (half.result == 0 && !half.value.empty()) {
        if (!half.isEnabled) {
            findings.Add(Severity::kNote, fmt::format("{}-half-disabled", id), "firmware",
                         fmt::format(R"(The half for {} is disabled in the firmware ("{}" is "{}").)", radio,
                                     half.setting, half.value),
                         "If that is not meant: enable it in the notebook's setup, then restart Windows.");
        }
        return;
    }
    const bool isAbsent = half.result == kWmiNoSuchSetting || half.result == 0;
    if (isAbsent) {
        findings.Add(Severity::kNote, fmt::format("{}-half-absent", id), "firmware",
                     fmt::format("The firmware has no setting for the half of {}: it stays off.", radio),
                     "A newer firmware may have it.");
    } else if (!IsMissing(half.result)) {
        findings.Add(
            Severity::kUnknown, fmt::format("{}-half-unreadable", id), "firmware",
            fmt::format("The firmware setting \"{}\" cannot be read (0x{:08X}): whether the half for "
                        "{} is enabled cannot be told.",
                        half.setting, half.result, radio),
            half.result == kWmiTimedOut ? "Ask again; the service itself asks six times."
            : isElevated                ? "The notebook's WMI provider refuses: look for a newer one."
                                        : kElevate);
    }
}

void JudgeFirmware(const State& state, Findings& findings) {
    JudgeHalf(state.lanWlan, "wifi", "Wi-Fi", state.isElevated, findings);
    JudgeHalf(state.lanWwan, "wwan", "mobile broadband", state.isElevated, findings);
    if (IsMissing(state.lanWlan.result) && IsMissing(state.lanWwan.result)) {
        findings.Add(
            Severity::kFault, "provider-missing", "firmware",
            fmt::format("The firmware's WMI provider is not there (0x{:08X}): the service takes both "
                        "halves for disabled and switches nothing.",
                        state.lanWlan.result),
            "Install the notebook's WMI provider, then restart the service. Other makes have none.");
    }
    const auto isOff = [](const FirmwareHalf& half) {
        return !half.isEnabled && (half.result == 0 || half.result == kWmiNoSuchSetting);
    };
    if (isOff(state.lanWlan) && isOff(state.lanWwan)) {
        findings.Add(Severity::kFault, "both-halves-disabled", "firmware",
                     "Neither half is enabled in the firmware: the service switches nothing for a cable.",
                     "Enable what is wanted in the notebook's setup, then restart Windows.");
    }
}

// --- The cable

/// Words in the names of adapters that are no cables. The service looks for "VPN" and "Virtual" alone.
constexpr std::array<std::string_view, 11> kSuspiciousWords{
    "vpn",    "virtual", "tap-",     "tap0",      "tunnel",    "hyper-v",
    "vmware", "wintun",  "loopback", "vethernet", "wireguard",
};

bool SoundsVirtual(const Adapter& adapter) {
    const std::string names = Lower(adapter.description + "\n" + adapter.name);
    return std::any_of(kSuspiciousWords.begin(), kSuspiciousWords.end(),
                       [&names](std::string_view word) { return names.find(word) != std::string::npos; });
}

void JudgeCable(const State& state, Findings& findings) {
    if (state.network.error == kErrorNoData) {
        findings.Add(Severity::kWarning, "cable-no-adapters", "cable",
                     "Windows lists no network adapter at all: the service cannot look for a cable.",
                     "Device Manager");
        return;
    }
    if (state.network.error != 0) {
        findings.Add(Severity::kUnknown, "cable-unreadable", "cable",
                     fmt::format("The network adapters cannot be read (error {}).", state.network.error));
        return;
    }
    for (const Adapter& adapter : state.network.adapters) {
        if (adapter.verdict == "cable" && SoundsVirtual(adapter)) {
            findings.Add(Severity::kWarning, "odd-cable", "cable",
                         fmt::format("\"{}\" counts as a cable (Ethernet with the address {}), but does not "
                                     "sound like one: the radios are kept off for it.",
                                     adapter.description, adapter.address),
                         "Disable it, or disconnect it, when Wi-Fi is wanted.");
        }
    }
    if (const Adapter* const cable = state.network.Cable()) {
        findings.Add(
            Severity::kNote, "cable-in", "cable",
            fmt::format("A cable is in: \"{}\" with the address {}.", cable->description, cable->address));
    }
}

// --- The radios

void JudgeWlanInterfaces(const Wlan& wlan, Findings& findings) {
    if (wlan.interfaces.empty()) {
        findings.Add(Severity::kWarning, "wifi-no-adapter", "wifi",
                     "There is no Wi-Fi adapter: removed, disabled, or without a driver.", "Device Manager");
        return;
    }
    const WlanInterface& first = wlan.interfaces.front();
    if (wlan.interfaces.size() > 1) {
        findings.Add(Severity::kWarning, "wifi-only-first", "wifi",
                     fmt::format("There are {} Wi-Fi adapters, and only the first is switched: \"{}\".",
                                 wlan.interfaces.size(), first.description),
                     "Disable the adapter that is not to be used.");
    }
    if (first.error != 0) {
        findings.Add(
            Severity::kUnknown, "wifi-unreadable", "wifi",
            fmt::format("The state of \"{}\" cannot be read (error {}).", first.description, first.error),
            first.error == kErrorAccessDenied ? kElevateOrConsent : "The adapter's driver");
        return;
    }
    if (std::any_of(first.phys.begin(), first.phys.end(),
                    [](const Phy& phy) { return phy.hardware == "off"; })) {
        findings.Add(Severity::kNote, "wifi-hardware-off", "wifi",
                     "The notebook's own switch or key for wireless is off: no service can turn Wi-Fi on.",
                     "The switch or key");
    }
}

void JudgeWlan(const State& state, Findings& findings) {
    const Wlan& wlan = state.wlan;
    if (!wlan.isApiThere) {
        findings.Add(Severity::kFault, "wlanapi-missing", "wifi",
                     "Windows' WLAN interface (wlanapi.dll) is not there: the service cannot even be loaded.",
                     "Server editions: add the feature Wireless LAN Service.");
    } else if (wlan.error == 0) {
        JudgeWlanInterfaces(wlan, findings);
    } else if (wlan.error != kErrorServiceNotActive) {
        // When WLAN AutoConfig does not run, that is a finding of its own.
        findings.Add(Severity::kUnknown, "wifi-unreadable", "wifi",
                     fmt::format("The Wi-Fi adapters cannot be read (error {}).", wlan.error),
                     wlan.error == kErrorAccessDenied ? kElevateOrConsent : std::string_view());
    }
}

void JudgeWwan(const State& state, Findings& findings) {
    const Wwan& wwan = state.wwan;
    if (wwan.modems.size() > 1) {
        findings.Add(
            Severity::kWarning, "wwan-only-last", "wwan",
            fmt::format("There are {} modems, and only the last one listed is switched.", wwan.modems.size()),
            "Disable the modem that is not to be used.");
    }
    if (wwan.modems.empty() && state.lanWwan.isEnabled) {
        findings.Add(Severity::kNote, "wwan-no-modem", "wwan",
                     "There is no modem: the half for mobile broadband has nothing to switch.",
                     "If there is one: Device Manager, then restart the service, which looks once.");
    }
    if (!wwan.modems.empty() && wwan.modems.back().error != 0) {
        findings.Add(
            Severity::kWarning, "wwan-unreadable", "wwan",
            fmt::format("The modem does not tell its radio's state (0x{:08X}).", wwan.modems.back().error),
            "The modem's driver");
    }
}

/// A radio that is not as the rules would have it. A switch may be on its way, hence the wording.
void JudgeRadio(const State& state, std::string_view id, std::string_view radio, bool isOn,
                const Remembered& remembered, Findings& findings) {
    const bool isCableIn = state.network.Cable() != nullptr;
    if (isCableIn && isOn) {
        findings.Add(
            Severity::kWarning, fmt::format("{}-on-beside-cable", id), id,
            fmt::format("{} is on although a cable is in and the service runs.", radio),
            "Ask again in a minute. If it stays so: doctor why, and pull the cable and plug it in again.");
    }
    if (!isCableIn && !isOn && remembered.readAs == "on" && !state.airplane.isOn) {
        findings.Add(Severity::kWarning, fmt::format("{}-off-without-cable", id), id,
                     fmt::format("{} is off although no cable is in, airplane mode is off, and \"on\" is "
                                 "remembered.",
                                 radio),
                     "Ask again in a minute. If it stays so: doctor why.");
    }
}

void JudgeRadios(const State& state, Findings& findings) {
    if (state.service.state != "running" || state.network.error != 0) {
        return;
    }
    const bool isWlanKnown = state.wlan.isApiThere && state.wlan.error == 0 &&
                             !state.wlan.interfaces.empty() && state.wlan.interfaces.front().error == 0;
    if (isWlanKnown && state.lanWlan.isEnabled) {
        JudgeRadio(state, "wifi", "Wi-Fi", state.wlan.isOn, state.rememberedWlan, findings);
    }
    const bool isWwanKnown = !state.wwan.modems.empty() && state.wwan.modems.back().error == 0;
    if (isWwanKnown && state.lanWwan.isEnabled) {
        JudgeRadio(state, "wwan", "Mobile broadband", state.wwan.modems.back().software == "on",
                   state.rememberedWwan, findings);
    }
}

// --- The registry

void JudgeAirplaneMode(const AirplaneMode& airplane, Findings& findings) {
    if (airplane.error == kErrorFileNotFound) {
        findings.Add(
            Severity::kNote, "airplane-missing", "airplane",
            "Windows keeps no airplane mode here (the key or its value is missing): it counts as off.");
    } else if (airplane.error != 0) {
        findings.Add(
            Severity::kWarning, "airplane-unreadable", "airplane",
            fmt::format("Airplane mode cannot be read (error {}): it counts as off.", airplane.error));
    } else if (!airplane.isNumber) {
        findings.Add(Severity::kWarning, "airplane-type", "airplane",
                     fmt::format("Airplane mode is kept as {}, not as REG_DWORD: it counts as {}.",
                                 airplane.value.type, airplane.isOn ? "on" : "off"));
    }
    if (airplane.isOn) {
        findings.Add(Severity::kNote, "airplane-mode", "airplane",
                     "Airplane mode is on: the service turns no radio on.");
    }
}

constexpr std::string_view kRememberRemedy =
    "Turn the radio on, or off, without a cable: that is remembered. By hand: see operations.md.";

void JudgeRemembered(const Remembered& remembered, std::string_view radio, Findings& findings) {
    const std::string subject = "remembered";
    if (remembered.error != 0 && remembered.error != kErrorFileNotFound) {
        findings.Add(
            Severity::kUnknown, "remembered-unreadable", subject,
            fmt::format("What is remembered for {} cannot be read (error {}).", radio, remembered.error),
            kElevate);
        return;
    }
    if (!remembered.value) {
        return;
    }
    if (remembered.oddity == "other-text") {
        findings.Add(Severity::kWarning, "remembered-odd", subject,
                     fmt::format(R"("{}" is remembered for {}: it is neither "True" nor "False", and counts )"
                                 "as off.",
                                 remembered.value->text, radio),
                     kRememberRemedy);
    } else if (remembered.oddity != "none") {
        findings.Add(Severity::kWarning, "remembered-type", subject,
                     fmt::format("What is remembered for {} is no text as the service writes it ({}, {}): it "
                                 "counts as on.",
                                 radio, remembered.value->type, remembered.oddity),
                     kRememberRemedy);
    } else if (remembered.readAs == "off") {
        findings.Add(Severity::kNote, "remembered-off", subject,
                     fmt::format("\"off\" is remembered for {}: it stays off when the cable goes.", radio),
                     "If that is not meant: turn it on without a cable.");
    }
}

std::string OddityOf(const Policy& policy) {
    const std::string& name = policy.value.name;
    if (policy.oddity == "unknown-name") {
        return fmt::format("\"{}\" is no policy{}.", name,
                           policy.meantName.empty() ? "" : fmt::format("; \"{}\" is", policy.meantName));
    }
    if (policy.oddity == "unknown-word") {
        const bool isLevel = name.find("Level") != std::string::npos;
        return fmt::format("\"{}\" of {} is not known{}.", policy.value.text, name,
                           isLevel ? ": it counts as \"Never\"" : ": that word counts for nothing");
    }
    if (policy.oddity == "wrong-type") {
        return fmt::format("{} is of type {}: {}.", name, policy.value.type,
                           name.find("Level") != std::string::npos
                               ? "it counts as missing"
                               : "its bytes are taken for something else");
    }
    if (policy.oddity == "too-long") {
        return fmt::format("{} is too long: it counts as missing.", name);
    }
    if (policy.oddity == "empty") {
        return fmt::format("{} is empty, and hides what the product's key says.", name);
    }
    return fmt::format("{} is 0: it counts as missing.", name);
}

void JudgePolicies(const LogPolicies& policies, Findings& findings) {
    for (const Policy& policy : policies.policies) {
        if (policy.oddity != "none") {
            findings.Add(Severity::kWarning, fmt::format("policy-{}", policy.oddity), "policy",
                         fmt::format("In the {} key: {}",
                                     policy.isOfExecutable ? "executable's" : "product's", OddityOf(policy)),
                         "docs/logging.md, \"Policies\". Restart the service afterwards.");
        }
    }
    if (policies.WritesNothing()) {
        findings.Add(Severity::kWarning, "log-silenced", "policy",
                     "The policies let no line through: the service writes no log.",
                     "Delete MinLogLevel and MaxLogLevel, restart the service.");
    }
    if (policies.error != 0 && policies.error != kErrorFileNotFound) {
        findings.Add(Severity::kNote, "policy-unreadable", "policy",
                     fmt::format("The policies cannot be read (error {}).", policies.error), kElevate);
    }
}

void JudgeLog(const State& state, Findings& findings) {
    for (const LogFolder& folder : state.logFolders) {
        if (!folder.isServices) {
            continue;
        }
        if (folder.error == kErrorAccessDenied) {
            findings.Add(Severity::kNote, "log-not-readable", "log",
                         "The service's log is for administrators: it was not looked at.", kElevate);
        } else if (folder.files.empty() && state.service.state == "running" && state.policies.WritesFile()) {
            findings.Add(Severity::kWarning, "log-missing", "log",
                         fmt::format("The service runs, and has no log in {}.", folder.path),
                         "docs/logging.md, \"What to expect when things go wrong\".");
        }
    }
}

}  // namespace

std::vector<Finding> Judge(const State& state) {
    Findings findings;
    JudgeServiceState(state, findings);
    JudgeNeighbour(state.wlanService, "WLAN AutoConfig", true, findings);
    JudgeNeighbour(state.wwanService, "WWAN AutoConfig", !state.wwan.modems.empty(), findings);
    JudgeFirmware(state, findings);
    JudgeCable(state, findings);
    JudgeWlan(state, findings);
    JudgeWwan(state, findings);
    JudgeRadios(state, findings);
    JudgeAirplaneMode(state.airplane, findings);
    JudgeRemembered(state.rememberedWlan, "Wi-Fi", findings);
    JudgeRemembered(state.rememberedWwan, "mobile broadband", findings);
    JudgePolicies(state.policies, findings);
    JudgeLog(state, findings);
    const bool isWell = findings.IsWell();
    std::vector<Finding> sorted = std::move(findings).Sorted();
    if (isWell) {
        sorted.insert(sorted.begin(), WellFinding(state));
    }
    return sorted;
}

int ExitCode(const std::vector<Finding>& findings) {
    const auto has = [&findings](Severity severity) {
        return std::any_of(findings.begin(), findings.end(),
                           [severity](const Finding& finding) { return finding.severity == severity; });
    };
    if (has(Severity::kFault)) {
        return kCannotWork;
    }
    if (has(Severity::kUnknown)) {
        return kCannotBeTold;
    }
    return has(Severity::kWarning) ? kWarnings : kAllWell;
}

}  // namespace Inspection
