#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The state of this machine as far as the service is concerned. What is read here is plain data, so
/// that what is made of it (judgement, reports) needs no Windows. Texts are UTF-8; where a field has
/// words of its own they are listed, and stand so in the JSON.
namespace Inspection {

/// What could not be looked at, and why: 0, a Win32 error or an HRESULT.
using ErrorCode = std::uint32_t;

// The Win32 errors that mean something to the judgement ("System Error Codes").
constexpr ErrorCode kErrorFileNotFound = 2;
constexpr ErrorCode kErrorAccessDenied = 5;
constexpr ErrorCode kErrorNoData = 232;
constexpr ErrorCode kErrorServiceDoesNotExist = 1060;
constexpr ErrorCode kErrorServiceNotActive = 1062;

// WBEM_E_... and WBEM_S_... of "WMI Error Constants", and what COM says of a class that is missing.
constexpr ErrorCode kWmiNoSuchSetting = 0x00000001;
constexpr ErrorCode kWmiTimedOut = 0x00040004;
constexpr ErrorCode kWmiAccessDenied = 0x80041003;
constexpr ErrorCode kWmiInvalidNamespace = 0x8004100E;
constexpr ErrorCode kWmiInvalidClass = 0x80041010;
constexpr ErrorCode kClassNotRegistered = 0x80040154;

/// A service, as the service control manager has it.
struct Service {
    std::string name;
    /// running, stopped, starting, stopping, paused, absent; unknown when it could not be asked.
    std::string state = "unknown";
    ErrorCode error = 0;

    // The registration; only of the service itself.
    bool isConfigKnown = false;
    std::string commandLine;
    std::string executable;  ///< the file in the command line
    bool isExecutableThere = false;
    bool isQuoted = false;
    std::string version;  ///< of that file; 0.0.0.0 when it has none
    /// own-process or other.
    std::string type;
    /// automatic, manual, disabled, other.
    std::string start;
    std::string account;
    std::vector<std::string> dependencies;

    bool isRecoveryKnown = false;
    std::vector<std::uint32_t> restartMinutes;
    std::uint32_t forgetsAfterSeconds = 0;
    bool restartsAfterErrors = false;

    // As `-install` and the start of the service make it.
    std::vector<std::string> expectedDependencies;
    std::vector<std::uint32_t> expectedRestartMinutes;
    std::uint32_t expectedForgetsAfterSeconds = 0;
};

/// One of the two firmware settings.
struct FirmwareHalf {
    std::string setting;  ///< the name under which it was found, or one that was asked for
    ErrorCode result = 0;
    std::string value;
    bool isEnabled = false;
};

struct Adapter {
    std::string description;
    std::string name;  ///< the one that can be changed; may be empty
    std::string id;
    std::uint32_t type = 0;  ///< IANA ifType
    std::string typeName;
    std::string address;  ///< its first IPv4 address
    /// up, down, unknown.
    std::string link = "unknown";
    /// cable, no-address, virtual, not-ethernet.
    std::string verdict;
};

struct Network {
    ErrorCode error = 0;
    std::vector<Adapter> adapters;
    [[nodiscard]] const Adapter* Cable() const {
        for (const Adapter& adapter : adapters) {
            if (adapter.verdict == "cable") {
                return &adapter;
            }
        }
        return nullptr;
    }
};

struct Phy {
    /// on, off, unknown.
    std::string software;
    std::string hardware;
};

struct WlanInterface {
    std::string description;
    std::string id;
    std::string state;
    ErrorCode error = 0;  ///< of the question for its PHYs
    std::vector<Phy> phys;
};

struct Wlan {
    bool isApiThere = false;  ///< wlanapi.dll
    ErrorCode error = 0;
    std::vector<WlanInterface> interfaces;
    /// What the service takes the radio for.
    bool isOn = false;
};

struct Modem {
    std::string id;
    ErrorCode error = 0;
    /// on, off, unknown.
    std::string software = "unknown";
    std::string hardware = "unknown";
};

struct Wwan {
    ErrorCode error = 0;
    /// The service switches the last one.
    std::vector<Modem> modems;
};

/// A registry value as it stands.
struct Value {
    std::string name;
    std::string type;  ///< REG_SZ and the like
    std::string text;  ///< its content, for people
};

struct AirplaneMode {
    ErrorCode error = 0;  ///< of its key or value
    Value value;
    bool isNumber = false;
    bool isOn = false;
};

/// What is remembered for one radio.
struct Remembered {
    ErrorCode error = 0;
    std::optional<Value> value;
    /// What the service reads: on, off.
    std::string readAs = "on";
    /// none, other-text, wrong-type, not-terminated, too-long.
    std::string oddity = "none";
};

struct Policy {
    bool isOfExecutable = false;
    Value value;
    /// none, unknown-name, unknown-word, wrong-type, too-long, zero, empty.
    std::string oddity = "none";
    std::string meantName;  ///< of an unknown name: the one that it resembles, or empty
};

struct LogPolicies {
    ErrorCode error = 0;
    std::vector<Policy> policies;
    // What is in force.
    int minLevel = 0;
    int maxLevel = 0;
    std::uint32_t maxSizeKilobytes = 0;
    bool isQueued = false;
    std::vector<std::string> outputs;
    [[nodiscard]] bool WritesNothing() const { return minLevel > maxLevel || minLevel > kHighestLevel; }
    [[nodiscard]] bool WritesFile() const {
        return !WritesNothing() && std::find(outputs.begin(), outputs.end(), "file") != outputs.end();
    }

  private:
    static constexpr int kHighestLevel = 6;
};

struct LogFile {
    std::string path;
    std::uint64_t bytes = 0;
    std::string written;  ///< local time of the last change
};

struct LogFolder {
    std::string path;
    bool isServices = false;  ///< of the service; else of whoever asks, where -install and -remove log
    ErrorCode error = 0;
    std::vector<LogFile> files;
};

struct LastDecision {
    std::string time;
    std::string text;
};

struct State {
    std::string doctorVersion;
    std::string time;  ///< local
    bool isElevated = false;
    Service service;
    Service wlanService;
    Service wwanService;
    FirmwareHalf lanWlan;
    FirmwareHalf lanWwan;
    Network network;
    Wlan wlan;
    Wwan wwan;
    AirplaneMode airplane;
    Remembered rememberedWlan;
    Remembered rememberedWwan;
    LogPolicies policies;
    std::vector<LogFolder> logFolders;
    std::optional<LastDecision> lastDecision;
};

}  // namespace Inspection
