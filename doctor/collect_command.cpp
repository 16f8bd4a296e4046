#include <windows.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "doctor/command_line.h"
#include "doctor/event_log.h"
#include "doctor/inspection/judgement.h"
#include "doctor/inspection/readers.h"
#include "doctor/inspection/registry_view.h"
#include "doctor/inspection/report.h"
#include "doctor/inspection/text.h"
#include "doctor/machine_now.h"
#include "doctor/zip_file.h"
#include "platform/handles.h"
#include "radio/airplane_mode.h"

namespace Doctor {
namespace {

constexpr char kReadMe[] =
    "What LinkvaneDoctor collected of this machine, for whoever looks after the service. Nothing was\r\n"
    "sent anywhere; read it before you pass it on.\r\n"
    "\r\n"
    "status.txt, status.json   the machine as the service sees it\r\n"
    "check.txt, check.json     the same, judged\r\n"
    "registry.txt              the keys that the service reads or is registered with\r\n"
    "events.txt                the Windows event log's entries of the service, and about it\r\n"
    "logs/service/             the service's log\r\n"
    "logs/user/                the log of -install and -remove, run by who collected this\r\n"
    "\r\n"
    "Personal data in it:\r\n"
    "- when the cable was plugged in and pulled, when the notebook slept, and when radios were switched,\r\n"
    "  to the millisecond, for as far back as the log reaches: when somebody was at the desk\r\n"
    "- names of networks that the notebook was connected to (home, employer, hotels), in the logs\r\n"
    "- names and identifiers of the network adapters and modems, and their IPv4 addresses at this moment\r\n"
    "- the name of the user who collected this, in the paths of status.txt and status.json, and perhaps "
    "the\r\n"
    "  machine's or a user's name wherever a person put it into the name of an adapter or network\r\n"
    "There are no passwords, no keys of networks, no traffic and no places visited in it.\r\n";

struct KeyToCollect {
    const wchar_t* path;
    Inspection::Below below = Inspection::Below::kToo;
};
constexpr KeyToCollect kKeys[] = {
    {L"SOFTWARE\\Orva\\Orva Brimlet Support"},
    {Inspection::kPolicyKey},
    {ServiceUtils::kAirplaneModeKey},
    {L"SYSTEM\\CurrentControlSet\\Services\\LinkvaneService"},
    // What Windows keeps below these is about networks.
    {L"SYSTEM\\CurrentControlSet\\Services\\WlanSvc", Inspection::Below::kNot},
    {L"SYSTEM\\CurrentControlSet\\Services\\WwanSvc", Inspection::Below::kNot},
    {L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\LinkvaneService"},
};

using UniqueFile = Platform::UniqueResource<HANDLE, &::CloseHandle, -1>;

/// A file of the log in the zip file. It is opened so that the service can write, move and delete it
/// meanwhile. The Win32 error, or 0.
DWORD AddFile(ZipFile& zip, const std::string& name, const std::string& path) {
    const UniqueFile file(CreateFileW(Inspection::Wide(path).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return GetLastError();
    }
    DWORD error = ERROR_SUCCESS;
    const bool isWhole = zip.Add(name, [&](char* place, std::size_t bytes) -> std::ptrdiff_t {
        DWORD read = 0;
        if (ReadFile(file.Get(), place, static_cast<DWORD>(bytes), &read, nullptr) == FALSE) {
            error = GetLastError();
            return -1;
        }
        return static_cast<std::ptrdiff_t>(read);
    });
    return isWhole || error != ERROR_SUCCESS ? error : static_cast<DWORD>(ERROR_FILE_TOO_LARGE);
}

std::string FileName(const std::string& path) {
    return path.substr(path.rfind('\\') + 1);
}

/// What could not be taken along, a line each.
std::vector<std::string> AddLogs(ZipFile& zip, const std::vector<Inspection::LogFolder>& folders) {
    std::vector<std::string> missing;
    for (const Inspection::LogFolder& folder : folders) {
        if (folder.error != 0) {
            missing.push_back(fmt::format("{}: error {}", folder.path, folder.error));
        }
        for (const Inspection::LogFile& file : folder.files) {
            const std::string name =
                fmt::format("logs/{}/{}", folder.isServices ? "service" : "user", FileName(file.path));
            if (const DWORD error = AddFile(zip, name, file.path)) {
                missing.push_back(fmt::format("{}: error {}", file.path, error));
            }
        }
    }
    return missing;
}

std::string RegistryText() {
    std::string text;
    for (const KeyToCollect& key : kKeys) {
        text += Inspection::Dump(HKEY_LOCAL_MACHINE, key.path, key.below);
    }
    return text;
}

std::string ReadMe(const std::vector<std::string>& missing) {
    std::string text = kReadMe;
    if (!missing.empty()) {
        text += "\r\nWhat could not be taken along (from an elevated prompt there is more):\r\n";
        for (const std::string& line : missing) {
            text += line + "\r\n";
        }
    }
    return text;
}

struct Collected {
    bool isWritten = false;
    std::vector<std::string> missing;
};

Collected CollectInto(const std::string& path) {
    ZipFile zip(Inspection::Wide(path).c_str());
    if (!zip.IsGood()) {
        return {};
    }
    const Inspection::State state = LookAtMachine();
    const std::vector<Inspection::Finding> findings = Inspection::Judge(state);
    zip.Add("status.txt", Inspection::StateAsText(state));
    zip.Add("status.json", Inspection::StateAsJson(state));
    zip.Add("check.txt", Inspection::FindingsAsText(findings));
    zip.Add("check.json", Inspection::FindingsAsJson(findings, state));
    zip.Add("registry.txt", RegistryText());
    zip.Add("events.txt", ServiceEventsAsText());
    std::vector<std::string> missing = AddLogs(zip, state.logFolders);
    zip.Add("README.txt", ReadMe(missing));
    return {zip.Finish(), std::move(missing)};
}

void Report(const std::string& path, const Collected& collected, bool asJson) {
    if (asJson) {
        const nlohmann::ordered_json json{
            {"file", path}, {"written", collected.isWritten}, {"missing", collected.missing}};
        std::puts(json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
        return;
    }
    for (const std::string& line : collected.missing) {
        std::printf("Not taken along: %s\n", line.c_str());
    }
    if (collected.isWritten) {
        std::printf("%s is written. It holds personal data: see README.txt in it.\n", path.c_str());
    } else {
        std::printf("%s cannot be written.\n", path.c_str());
    }
}

}  // namespace

void AddCollectCommand(CLI::App& app, int& exitCode) {
    struct Options {
        std::string path;
        bool asJson = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* const collect = app.add_subcommand(
        "collect", "Puts logs, status, registry keys and event-log entries into a zip file");
    collect->add_option("file", options->path, "The zip file to write; one that is there is replaced")
        ->required();
    collect->add_flag("--json", options->asJson, "Says what was done as JSON");
    collect->callback([options, &exitCode] {
        const Collected collected = CollectInto(options->path);
        Report(options->path, collected, options->asJson);
        exitCode = collected.isWritten ? 0 : 1;
    });
}

}  // namespace Doctor
