#include "tests/doctor/written_log.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include "doctor/analysis/log_line.h"

namespace Doctor {
namespace {

constexpr Time kLineMs = 10;
constexpr std::uint32_t kWorkerThread = 0x20;
constexpr std::uint32_t kEventThread = 0x30;
constexpr const char kConnection[] = "{C0AA3C70-5E1F-4B2C-9AD3-C0DE00000001}";

}  // namespace

ScratchFolder::ScratchFolder() {
    static std::atomic<int> number = 0;
    m_path = std::filesystem::temp_directory_path() / fmt::format("doctor-test-{}-{}", getpid(), ++number);
    std::filesystem::create_directories(m_path);
}

ScratchFolder::~ScratchFolder() {
    std::error_code error;
    std::filesystem::remove_all(m_path, error);
}

std::filesystem::path ScratchFolder::Write(const std::string& name, std::string_view bytes) const {
    const std::filesystem::path path = m_path / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
}

WrittenLog::WrittenLog() : m_time(*TimeFromUser("2026/11/20 20:00:00.000", 0)) {}

WrittenLog& WrittenLog::On(std::uint32_t thread, std::string operation) {
    m_thread = thread;
    m_operation = std::move(operation);
    return *this;
}

WrittenLog& WrittenLog::Line(std::string_view level, std::string_view text) {
    m_text += fmt::format("{}|{:08X}|{:<11}|{}|{}\r\n", TimeText(m_time), m_thread, level, m_operation, text);
    m_time += kLineMs;
    return *this;
}

WrittenLog& WrittenLog::Later(Time milliseconds) {
    m_time += milliseconds;
    return *this;
}

WrittenLog& WrittenLog::At(Time time) {
    m_time = time;
    return *this;
}

WrittenLog& WrittenLog::LooksAtAdapters(bool cable) {
    const std::string operation = m_operation;
    In("NLMEventHandler::InitialiseAdapter").Information("GetAdaptersInfo() success: ulOutBufLen = 1408.");
    In("NLMEventHandler::CheckEthernetConnectionStatus");
    if (cable) {
        Information("An Ethernet network interface.").Information("Ethernet is not VPN and IP is valid");
    } else {
        Information("An IEEE 802.11 wireless network interface.");
    }
    return In(operation);
}

WrittenLog& WrittenLog::LooksAtWifi(bool on) {
    const std::string operation = m_operation;
    In("ServiceUtils::CheckWlanStatus").TraceIn();
    Information(fmt::format("Phy: 0 {}", on ? "On" : "Off"));
    Information(fmt::format("Phy state : {}", on ? 1 : 0));
    TraceOut(fmt::format("WLAN Status = {}", on ? 1 : 0));
    return In(operation);
}

WrittenLog& WrittenLog::Started(std::string_view wlanSetting) {
    On(0x10, "CMainService::OnStart").Information("Linkvane Service (1.0.0.1) in OnStart");
    On(kWorkerThread, "CMainService::ServiceWorkerThread").TraceIn("ServiceWorkerThread - Entry");
    In("NLMUtils::IsLanWlanAutoSwitchingEnabled");
    if (!wlanSetting.empty() && wlanSetting.front() != '*') {
        Information("Inside LAN / WLAN Auto Switching section :feature enabled");
    }
    Information(fmt::format("BIOS(LAN/WLAN) Read Value {}", wlanSetting));
    In("CMainService::ServiceWorkerThread");
    Information(
        "WLAN AutoConfig wait completed and WLAN Device Available. So Listening for WLAN Notifications..");
    LooksAtAdapters(false);
    LooksAtWifi(true);
    Error("WWAN Device enumeration failed / No supporting WWAN device found ");
    return Later(1000);
}

WrittenLog& WrittenLog::CableIn() {
    On(kEventThread, "NLMEventHandler::NetworkConnectionConnectivityChanged")
        .TraceIn("NLM_CONNECTIVITY = 64");
    Information("------------------start----------------------");
    Information(fmt::format("Connection ID : {}", kConnection)).Information("Connectivity state : 64 ");
    In("NLMUtils::PrintAdapterInfo").Information("Description   : Brook Gigabit Ethernet Controller 1");
    In("NLMEventHandler::NetworkConnectionConnectivityChanged").Information("Ethernet state : 1 ");
    return LooksAtAdapters(true).Information("Ethernet is connected");
}

WrittenLog& WrittenLog::CableOut(bool another) {
    On(kEventThread, "NLMEventHandler::NetworkConnectionConnectivityChanged").TraceIn("NLM_CONNECTIVITY = 0");
    Information("------------------start----------------------");
    Information(fmt::format("Connection ID : {}", kConnection));
    Information("Disconnecting connection, check list to see if it was Ethernet.");
    LooksAtAdapters(another);
    return Information(fmt::format("Ethernet connection status = {}", another ? 1 : 0));
}

WrittenLog& WrittenLog::EventEnds() {
    return In("NLMEventHandler::NetworkConnectionConnectivityChanged")
        .Information("-------------------end-----------------------")
        .TraceOut();
}

WrittenLog& WrittenLog::SwitchesWifi(bool on) {
    const std::string operation = m_operation;
    In("ServiceUtils::SwitchWlanStatus");
    TraceIn(fmt::format("OnOffValue = {}, bCheckAirplaneStatus = 0", on ? 1 : 0));
    LooksAtWifi(!on);
    Information(fmt::format("Current WLAN Status : {}, To Change Status = {}", on ? 0 : 1, on ? 1 : 0));
    Information(fmt::format("Set WLAN state {} for PHY 0 success", on ? 1 : 0));
    LooksAtWifi(on);
    Information(fmt::format("New WIFI state : {}", on ? 1 : 0));
    TraceOut("WLAN switching Status = 1");
    return In(operation);
}

Machine Analysed(std::string_view bytes, const Question& question) {
    const ScratchFolder folder;
    std::vector<Machine> machines = Analyse({folder.Write("LinkvaneService.log", bytes)}, question);
    return std::move(machines.front());
}

std::string VerdictOf(std::string_view bytes, const Question& question) {
    return std::string(InfoOf(Analysed(bytes, question).findings.front().cause).id);
}

}  // namespace Doctor
